// The channel-recording interface: every recording format is presented to the
// conversion run as a Vxfil_Base holding the whole recording in memory.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "vxfil/stations.h"

namespace VxFil {

using magic = std::array<uint8_t, 4>;

inline constexpr magic magic_vx24 = {'v', 'x', '2', '4'};
inline constexpr magic magic_chns = {'c', 'h', 'n', 's'};
inline constexpr magic magic_chan = {'c', 'h', 'a', 'n'};
inline constexpr magic magic_data = {'d', 'a', 't', 'a'};

using data_channel_type = std::vector<int32_t>;
using data_type = std::vector<data_channel_type>;

enum ORIGIN { ORIGIN_UNDEFINED = 0, ORIGIN_VX24 = 1, ORIGIN_VX16 = 2, ORIGIN_TM4 = 3 };

// First 8 bytes of a vx24 file.
struct vx_header_header {
    magic m_magic{};
    uint8_t m_version = 0;
    uint8_t m_station = 0;
    uint16_t m_header_length = 0; // as stored; never used to position reading
};

// The next 24 bytes of a vx24 file; packed, so it is exactly the file layout.
struct __attribute__((packed)) vx_header_common {
    uint32_t m_seconds = 0;     // first sample, Unix seconds UTC
    uint32_t m_nanoseconds = 0; // fraction of that second
    uint32_t m_channel_bitmap = 0;
    uint8_t m_num_channels = 0;
    uint8_t m_unused = 0;
    double m_sample_freq_hz = 0.0;
    uint8_t m_bits_per_sample = 0;
    uint8_t m_bytes_per_sample = 0;
};
static_assert(sizeof(vx_header_common) == 24);

struct vx_header_v1 {
    uint32_t m_host_timestamp;
};
struct vx_header_v2 {
    uint32_t m_host_timestamp;
    uint32_t m_device_id;
};

struct vx_header {
    vx_header_header header{};
    vx_header_common common{};
    union {
        vx_header_v1 v1;
        vx_header_v2 v2;
    } v{};

    // Time of the first sample in Unix seconds.
    double time() const { return common.m_seconds + common.m_nanoseconds / 1e9; }
    // Sample interval in seconds.
    double delta_t() const { return 1.0 / common.m_sample_freq_hz; }
    size_t num_channels() const { return common.m_num_channels; }
};

// One channel record; also the exact 32-byte record of a vx24 file.
struct __attribute__((packed)) vx_channel {
    magic m_magic{};
    uint16_t m_channel = 0;
    uint16_t m_gain = 0;
    double m_v_min = 0.0;
    double m_v_max = 0.0;    // also the volts-per-count factor of raw2volt
    double m_ext_gain = 0.0; // external gain factor
};
static_assert(sizeof(vx_channel) == 32);

class Vxfil_Base {
  public:
    explicit Vxfil_Base(const char* filename);
    virtual ~Vxfil_Base();

    // raw × m_v_max × m_ext_gain. m_v_min and m_gain take no part, and there
    // is no division by a full-scale count: m_v_max is the volts per count.
    virtual double raw2volt(int32_t raw, const vx_channel& ch) const;
    virtual ORIGIN get_origin() const { return ORIGIN_UNDEFINED; }

    double get_frequency() const { return m_header.common.m_sample_freq_hz; }
    const vx_header& get_header() const { return m_header; }
    const std::vector<vx_channel>& get_channels() const { return m_channels; }
    // The indexed accessors check their index and throw std::out_of_range.
    const vx_channel& get_channel_info(size_t i) const { return m_channels.at(i); }
    const data_channel_type& get_data(size_t i) const { return m_data.at(i); }
    const std::vector<double>& get_time() const { return m_time; }
    double get_time(size_t i) const { return m_time.at(i); }
    // Station name by the checked lookup: an unknown byte throws "map::at".
    const char* station_name() const;

    vx_header m_header;
    std::vector<vx_channel> m_channels;
    data_type m_data;
    std::vector<double> m_time;
};

} // namespace VxFil
