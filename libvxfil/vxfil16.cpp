// vx16 recordings: a comment-headed recording read whole into the channel
// recording interface, with the time of every sample and the start of each
// continuous stretch refined to a fraction of a second.
//
// Block stamps are whole seconds. Within a continuous stretch the times run on
// by accumulating the sample interval; a stamp more than 1.5 s away from the
// running time starts a new stretch. For a stretch of 4 or more blocks the
// sub-second offset of its start is the middle of the range of offsets that
// reproduce every block's whole-second stamp.
#include "vxfil/vxfil16.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <vector>

#include "common.h"
#include "vxfil/vxfil.h"

namespace VxFil {

namespace {

// External gain by recorder gain setting 1 to 4.
constexpr std::array<double, 4> gains = {10.0, 20.0, 30.0, 40.0};

// Raw count by truncation toward zero. The readers only hand out values in
// range (16-bit words, or text values checked on reading).
int32_t to_count(double v) {
    if (!(v > -2147483649.0 && v < 2147483648.0)) throw std::out_of_range("vx16 sample outside 32-bit range");
    return static_cast<int32_t>(v);
}

// Truncation toward zero to a whole second; false when the value has no such
// integer (non-finite or beyond 64 bits).
bool whole_second(double v, int64_t& out) {
    if (!(v > -9.2e18 && v < 9.2e18)) return false;
    out = static_cast<int64_t>(v);
    return true;
}

// Station of a first-generation recording: the comment's own when it names
// one, else the one the options give, else the station letter of the file
// name.
uint8_t legacy_station(const VXFIL &reader, const legacy_options &legacy, const char *name) {
    if (!reader.m_station.empty()) return old_station2new_station(reader.get_station());
    if (legacy.m_station >= 0) return static_cast<uint8_t>(legacy.m_station);
    auto letter = station_char2stationid.find(reader.m_name_station);
    if (letter != station_char2stationid.end()) return letter->second;
    throw missing_station(name);
}

// Gain setting of a first-generation recording: one that names none is
// converted with setting 1, and says so.
int legacy_gain(const VXFIL &reader, const char *name) {
    if (reader.get_gain() != -1) return reader.get_gain();
    std::cerr << "Warning: \"" << name << "\" names no gain setting; converting with gain setting 1\n";
    return 1;
}

// The oldest kind has no block stamps: the recording starts at the half-hour
// that the file name's index names.
uint32_t oldest_kind_start(const VXFIL &reader, const char *name) {
    if (reader.m_name_half_hour < 0)
        throw std::runtime_error(Formatter() << "Error: \"" << name
                                             << "\" has no time stamps and its file name gives no date and "
                                                "half-hour index\n");
    return static_cast<uint32_t>(reader.m_start_of_day + static_cast<time_t>(reader.m_name_half_hour) * 1800);
}

vx_channel channel_record(uint16_t k, int gain) {
    vx_channel ch;
    ch.m_magic = magic_chan;
    ch.m_channel = k;
    ch.m_gain = 1;
    ch.m_v_min = -10.0;
    ch.m_v_max = 10.0;
    // Checked access: a gain setting outside 1 to 4 raises std::out_of_range.
    ch.m_ext_gain = gains.at(static_cast<size_t>(static_cast<int64_t>(gain) - 1));
    return ch;
}

} // namespace

VXFIL16::VXFIL16(const char *filename, double initial_basetime, const legacy_options &legacy)
    : Vxfil_Base(filename) {
    VXFIL_arguments args;
    args.m_quiet = true;
    args.m_legacy = legacy.m_enabled;
    load(detect(filename, &args), filename, initial_basetime, legacy);
}

VXFIL16::VXFIL16(FILE *stream, const char *name, double initial_basetime, const legacy_options &legacy)
    : Vxfil_Base(name) {
    VXFIL_arguments args;
    args.m_quiet = true;
    args.m_legacy = legacy.m_enabled;
    load(detect(stream, name, &args), name, initial_basetime, legacy);
}

void VXFIL16::load(VXFIL *reader, const char *name, double initial_basetime, const legacy_options &legacy) {
    std::unique_ptr<VXFIL> vxfil(reader);
    // Oldest-kind samples run on at the rate from the start the file name
    // gives, block after block: there are no stamps to reset on.
    const bool oldest = legacy.m_enabled && !vxfil->is_newfile();

    m_header.header.m_magic = magic_vx24;
    m_header.header.m_version = 1;
    m_header.common.m_num_channels = 3;
    m_header.common.m_channel_bitmap = 7;
    m_header.common.m_bits_per_sample = 16;
    m_header.common.m_bytes_per_sample = 2;

    double t0 = 0.0;
    bool first = true;
    std::vector<std::vector<int64_t>> time_org;
    int time_resets = 0;

    while (vxfil->getdata() == 0) {
        const size_t length = vxfil->get_length();
        if (first) {
            const double frequency = vxfil->get_frequency();
            if (!(frequency > 0.0) || !std::isfinite(frequency) || !std::isfinite(1.0 / frequency))
                throw std::runtime_error(Formatter() << "Error: sample rate " << frequency << " of \"" << name
                                                      << "\" is not usable\n");
            m_header.common.m_sample_freq_hz = frequency;
            m_header.common.m_seconds =
                oldest ? oldest_kind_start(*vxfil, name) : static_cast<uint32_t>(vxfil->get_vxtime(0));
            m_header.common.m_nanoseconds = 0;
            m_header.header.m_station = legacy.m_enabled ? legacy_station(*vxfil, legacy, name)
                                                         : old_station2new_station(vxfil->get_station());
            if (std::fabs(m_header.time() - initial_basetime) < 2.0) {
                // Within 2 s of a time that is at least 0, so the truncation fits.
                auto seconds = static_cast<uint32_t>(static_cast<int64_t>(initial_basetime));
                m_header.common.m_seconds = seconds;
                m_header.v.v1.m_host_timestamp = seconds;
                double ns = (initial_basetime - static_cast<double>(seconds)) * 1e9;
                m_header.common.m_nanoseconds =
                    (ns >= 0.0 && ns < 4294967296.0) ? static_cast<uint32_t>(ns) : 0;
            }
            m_data.assign(3, data_channel_type{});
            m_channels.clear();
            const int gain = legacy.m_enabled ? legacy_gain(*vxfil, name) : vxfil->get_gain();
            for (uint16_t k = 0; k < 3; ++k)
                m_channels.push_back(channel_record(k, gain));
            t0 = m_header.time();
            time_org.emplace_back().reserve(64);
            time_resets = 1;
            first = false;
        }

        for (size_t ch = 0; ch < 3; ++ch) {
            const std::vector<double>& samples = vxfil->current[ch];
            for (size_t n = 0; n < length; ++n)
                m_data[ch].push_back(to_count(samples[n]));
        }

        const double block_time = oldest ? std::floor(t0) : static_cast<double>(vxfil->get_vxtime(0));
        if (!oldest && std::fabs(block_time - t0) > 1.5) {
            time_org.emplace_back().reserve(64);
            ++time_resets;
            t0 = block_time;
        }
        time_org.back().push_back(static_cast<int64_t>(block_time));

        const double dt = m_header.delta_t();
        for (size_t n = 0; n < length; ++n) {
            m_time.push_back(t0);
            t0 += dt;
        }
    }

    if (first) {
        // Nothing but a comment line: no samples and no times, but the three
        // channel records as far as the comment alone tells them.
        m_header.common.m_sample_freq_hz = vxfil->get_frequency();
        auto station = station_char2stationid.find(vxfil->get_station());
        m_header.header.m_station = station != station_char2stationid.end() ? station->second : unknown;
        if (legacy.m_enabled && vxfil->m_station.empty()) {
            // Without samples a station known from nowhere stays unknown.
            try {
                m_header.header.m_station = legacy_station(*vxfil, legacy, name);
            } catch (const missing_station &) {
            }
        }
        m_data.assign(3, data_channel_type{});
        m_channels.clear();
        const int gain = vxfil->get_gain();
        for (uint16_t k = 0; k < 3; ++k) {
            vx_channel ch = channel_record(k, gain >= 1 && gain <= 4 ? gain : 1);
            if (gain < 1 || gain > 4) ch.m_ext_gain = 0.0;
            m_channels.push_back(ch);
        }
        return;
    }

    // With many jumps the stamps are not trusted enough to refine anything;
    // without stamps there is nothing to refine.
    if (time_resets > 3 || oldest) return;

    const double delta = static_cast<double>(vxfil->get_length()) / m_header.common.m_sample_freq_hz;
    for (const std::vector<int64_t>& stretch : time_org) {
        if (stretch.size() < 4) continue;
        double n_min = -1.0, n_max = -1.0;
        for (int n = 0; n < 100; ++n) {
            const double nn = n * 0.01;
            bool equal = true;
            for (size_t i = 0; i < stretch.size() && equal; ++i) {
                int64_t candidate = 0;
                equal = whole_second(static_cast<double>(stretch[0]) + nn + static_cast<double>(i) * delta,
                                     candidate) &&
                        candidate == stretch[i];
            }
            if (equal) {
                VX16_DEBUG("For " << nn << " vectors are equal\n");
                if (n_min < 0.0) n_min = nn;
                n_max = nn;
            } else if (n_min >= 0.0 && nn > n_max) {
                break;
            }
        }
        if (n_min < 0.0 || n_max < 0.0) continue;
        const double offset = (n_min + n_max) * 0.5;
        VX16_DEBUG("Time offset equal between " << n_min << " & " << n_max << ". Using " << offset << "\n");

        // The stretch is found by its whole-second start; a start moved by a
        // fractional initial base time is not found and stays unrefined.
        auto it = std::find(m_time.begin(), m_time.end(), static_cast<double>(stretch[0]));
        const size_t count = stretch.size() * vxfil->get_length();
        for (size_t k = 0; k < count && it != m_time.end(); ++k, ++it)
            *it += offset;
    }
}

} // namespace VxFil
