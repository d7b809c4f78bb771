// The dates that a comment-headed reader takes from a file name and its
// directories: a reader over a small valid recording, asked with the input
// as its path.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>

#include "fuzz_support.h"
#include "vxfil/vxfil.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::init_process();
    return 0;
}

namespace {
// A binary recording: the comment line ends at a carriage return, then one
// block of three channels.
std::string small_recording() {
    std::string r = "!S512Tidserier sampfrek: 18 gain: 2 station: e date: 2016-05-04 time: 13:30:00\r\n";
    r.append(3 * 514 * 2, '\0');
    return r;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path(reinterpret_cast<const char*>(data), size);
    static const std::string recording = small_recording();
    std::string storage = recording;
    FILE* stream = fmemopen(storage.data(), storage.size(), "rb");
    if (!stream) return 0;
    VxFil::VXFIL_arguments args;
    args.m_quiet = true;
    args.m_fail_parse_path = size > 0 && (data[0] & 1);
    try {
        std::unique_ptr<VxFil::VXFIL> reader(new VxFil::BinaryVXFIL(stream, path.c_str(), &args));
        (void)reader->set_time_start_of_day(path.c_str());
        reader->set_time_base(path.c_str());
        volatile time_t t = reader->get_start_of_day() + reader->get_vxtime(0);
        (void)t;
    } catch (const VxFil::fatal_exit_called&) {
    } catch (const std::exception&) {
    }
    return 0;
}
