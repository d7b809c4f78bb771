// The vx16 adapter over a comment-headed stream: reads every block, times
// every sample and refines the start of each stretch.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>

#include "fuzz_support.h"
#include "vxfil/vxfil16.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::init_process();
    return 0;
}

namespace {
const char* const paths[] = {"2016/05/20160504/e6050427.dat", "d6050510.dat", "e6050427.txt", "rec.dat"};
const double bases[] = {0.0, 1462368600.0, 1462424400.5, -5.0};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const char* path = paths[data[0] & 3];
    const double base = bases[(data[0] >> 2) & 3];
    // First-generation reading, with or without a station from the options.
    VxFil::legacy_options legacy;
    legacy.m_enabled = ((data[0] >> 4) & 1) != 0;
    legacy.m_station = ((data[0] >> 5) & 1) != 0 ? VxFil::arvola : -1;
    std::string storage;
    FILE* stream = fuzz::memory_stream(data + 1, size - 1, storage);
    try {
        VxFil::VXFIL16 rec(stream, path, base, legacy);
        volatile double sum = rec.get_frequency();
        for (const VxFil::vx_channel& ch : rec.get_channels()) {
            const VxFil::data_channel_type& d = rec.get_data(ch.m_channel);
            if (!d.empty()) sum = sum + d.back();
        }
        if (!rec.m_time.empty()) sum = sum + rec.m_time.back();
        (void)rec.station_name();
    } catch (const VxFil::fatal_exit_called&) {
    } catch (const std::exception&) {
    }
    return 0;
}
