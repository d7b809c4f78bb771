// The TM4 text reader. The first byte picks the time base handed in.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string_view>

#include "fuzz_support.h"
#include "vxfil/vxfil_tm4.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::init_process();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    static const double bases[] = {0.0, 1500000000.0, -1.0, 1e300};
    const double base = bases[data[0] % 4];
    std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
    try {
        VxFil::VXFIL_TM4 rec(text, "fuzz.tm4", base);
        volatile double sum = rec.get_frequency();
        for (const VxFil::vx_channel& ch : rec.get_channels()) {
            const VxFil::data_channel_type& d = rec.get_data(ch.m_channel);
            if (!d.empty()) sum = sum + d.back();
        }
        (void)rec.station_name();
    } catch (const VxFil::fatal_exit_called&) {
    } catch (const std::exception&) {
    }
    return 0;
}
