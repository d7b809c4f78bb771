// The three comment grammars, the combined check and the date parse, over the
// input as one NUL-terminated line.
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <exception>
#include <string>

#include "fuzz_support.h"
#include "vxfil/comment.h"
#include "vxfil/vxfil.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::init_process();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string line(reinterpret_cast<const char*>(data), size); // c_str() ends it
    try {
        (void)VxFil::validate_comment(line.c_str());
        bool (*const grammars[])(const char*, VxFil::arguments&) = {
            VxFil::valid_comment_type1, VxFil::valid_comment_type2, VxFil::valid_comment_type3};
        for (auto grammar : grammars) {
            double frequency = 18.0;
            int gain = -1;
            std::string station, date, time;
            char c = 'S';
            int len = 512;
            bool unixtime = false;
            VxFil::arguments a(frequency, gain, station, c, len, unixtime, date, time);
            if (grammar(line.c_str(), a)) {
                time_t start_of_day = 0, start = 0;
                (void)VxFil::parse_date(a, start_of_day, start);
            }
        }
    } catch (const VxFil::fatal_exit_called&) {
    } catch (const std::exception&) {
    }
    return 0;
}
