// A whole conversion run with a random option set over one recording (or the
// same recording twice, combined). The first bytes choose the options, the
// rest is the recording, written to a file in the process's own directory;
// the outputs are removed after each run.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "brantel.h"
#include "fuzz_support.h"
#include "series.h"
#include "settings.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::init_process();
    if (chdir(fuzz::process_dir().c_str()) != 0) std::abort();
    std::error_code ec;
    std::filesystem::create_directories("2016/05/20160504", ec);
    return 0;
}

namespace {

constexpr size_t option_bytes = 6;

// Input names: the extension decides nothing (the probe reads the bytes), but
// the name gives comment-headed recordings their date, and an output with
// the input's own name must be refused.
const char* const names[] = {"rec.vx24", "2016/05/20160504/e6050427.dat", "e6050427.txt", "rec.tm4",
                             "d6050510.dat", "rec"};

void decode_options(const uint8_t* b) {
    reset_settings();
    output_type = static_cast<OUTPUT_TYPE>(b[0] & 7);
    time_in_minutes = (b[0] >> 3) & 3;
    remove_offset = (b[0] >> 5) & 1;
    need_filter = (b[0] >> 6) & 1;
    combine = (b[0] >> 7) & 1;
    if (output_type == OT_AMPLITUDE) remove_offset = 1; // as --amplitude sets it

    upsample = b[1] & 3; // 0 (none) to 3
    static const long scales[] = {1, 0, 2, -1, 10, 1000, 7, 1};
    global_scale = scales[(b[1] >> 2) & 7];
    no_comment = (b[1] >> 5) & 1;
    nrsamples = (b[1] >> 6) & 1;

    snippets = b[2] < 192 ? 1 : (b[2] - 192) % 26 + 1;
    snippet_length = b[3] < 128 ? 0 : (b[3] & 127) * 37 + 1;
    global_start_time = b[4] < 128 ? 0 : ((b[4] & 127) * 691) % 86400;
    sec_decimals = (b[5] & 7) == 7 ? -1 : (b[5] & 7) * 3;
    if (output_type == OT_VXDAT && sec_decimals < 0) sec_decimals = 0;
    quiet = (b[5] >> 7) & 1;

    // Byte 4 with both low bits set picks the binary miniSEED layout, with a
    // record length of 256 to 32768 bytes and one of two network codes; its
    // time unit is always seconds, as the command line allows no other.
    if ((b[4] & 3) == 3) {
        output_type = OT_MSEED;
        time_in_minutes = TIME_SECONDS;
        mseed_record_length = 256L << ((b[4] >> 2) & 7);
        mseed_network = (b[4] & 32) ? "9Z" : "XX";
    }
}

void remove_outputs(const std::string& keep) {
    std::error_code ec;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(".", ec)) {
        if (!entry.is_regular_file(ec)) continue;
        if (entry.path().lexically_normal() == std::filesystem::path(keep).lexically_normal()) continue;
        std::filesystem::remove(entry.path(), ec);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < option_bytes) return 0;
    const std::string input = names[(data[5] >> 3) % (sizeof names / sizeof names[0])];
    if (!fuzz::write_file(input, data + option_bytes, size - option_bytes)) return 0;
    decode_options(data);
    std::vector<std::filesystem::path> files{input};
    if ((data[1] >> 7) & 1) files.push_back(input);
    int optind_copy = 0;
    try {
        brantel(files, optind_copy, 0);
    } catch (const VxFil::fatal_exit_called&) {
    } catch (const std::exception&) {
    }
    remove_outputs(input);
    std::error_code ec;
    std::filesystem::remove(input, ec);
    return 0;
}
