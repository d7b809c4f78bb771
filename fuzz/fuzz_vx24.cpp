// The vx24 container reader over arbitrary bytes, decoded whole and in small
// pieces as from a file being read: both must give the same recording or the
// same failure.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <string>

#include "fuzz_support.h"
#include "vxfil/vxfil24.h"

namespace {

// The recording, or what stopped it.
struct outcome {
    std::unique_ptr<VxFil::VXFIL24> rec;
    std::string failure;
};

template <class Load> outcome load(Load&& make) {
    outcome o;
    try {
        o.rec = make();
    } catch (const VxFil::fatal_exit_called& e) {
        o.failure = "end " + std::to_string(e.status);
    } catch (const std::exception& e) {
        o.failure = e.what();
    }
    return o;
}

bool same(const VxFil::VXFIL24& a, const VxFil::VXFIL24& b) {
    const auto same_bytes = [](const auto& x, const auto& y) {
        return x.size() == y.size() && (x.empty() || std::memcmp(x.data(), y.data(), x.size() * sizeof x[0]) == 0);
    };
    const VxFil::vx_header& g = a.m_header;
    const VxFil::vx_header& h = b.m_header;
    const bool same_header = g.header.m_magic == h.header.m_magic && g.header.m_version == h.header.m_version &&
                             g.header.m_station == h.header.m_station &&
                             g.header.m_header_length == h.header.m_header_length &&
                             std::memcmp(&g.common, &h.common, sizeof g.common) == 0 &&
                             g.v.v1.m_host_timestamp == h.v.v1.m_host_timestamp &&
                             (g.header.m_version != 2 || g.v.v2.m_device_id == h.v.v2.m_device_id);
    return same_header && same_bytes(a.m_channels, b.m_channels) && same_bytes(a.m_time, b.m_time) &&
           a.m_data == b.m_data;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::init_process();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const outcome whole = load([&] { return std::make_unique<VxFil::VXFIL24>(data, size, "fuzz.vx24"); });
    size_t at = 0;
    const auto read = [&](unsigned char* buffer, size_t n) {
        const size_t give = std::min(n, size - at);
        if (give > 0) std::memcpy(buffer, data + at, give);
        at += give;
        return give;
    };
    const size_t piece = 1 + size % 13;
    const outcome pieces = load([&] { return std::make_unique<VxFil::VXFIL24>(size, read, "fuzz.vx24", piece); });
    if (whole.failure != pieces.failure || (whole.rec && !same(*whole.rec, *pieces.rec))) std::abort();
    if (!whole.rec) return 0;

    const VxFil::VXFIL24& rec = *whole.rec;
    volatile double sum = rec.get_frequency() + rec.m_header.time();
    try {
        for (const VxFil::vx_channel& ch : rec.get_channels()) {
            const VxFil::data_channel_type& d = rec.get_data(ch.m_channel);
            if (!d.empty()) sum = sum + rec.raw2volt(d.back(), ch);
        }
        if (!rec.m_time.empty()) sum = sum + rec.get_time(rec.m_time.size() - 1);
        (void)rec.station_name();
    } catch (const std::exception&) {
    }
    return 0;
}
