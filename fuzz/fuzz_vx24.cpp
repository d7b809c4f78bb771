// The vx24 container reader over arbitrary bytes.
#include <cstddef>
#include <cstdint>
#include <exception>

#include "fuzz_support.h"
#include "vxfil/vxfil24.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::init_process();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    try {
        VxFil::VXFIL24 rec(data, size, "fuzz.vx24");
        volatile double sum = rec.get_frequency() + rec.m_header.time();
        for (const VxFil::vx_channel& ch : rec.get_channels()) {
            const VxFil::data_channel_type& d = rec.get_data(ch.m_channel);
            if (!d.empty()) sum = sum + rec.raw2volt(d.back(), ch);
        }
        if (!rec.m_time.empty()) sum = sum + rec.get_time(rec.m_time.size() - 1);
        (void)rec.station_name();
    } catch (const VxFil::fatal_exit_called&) {
    } catch (const std::exception&) {
    }
    return 0;
}
