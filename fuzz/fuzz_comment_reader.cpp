// The comment-headed readers, chosen by detect over a stream, read block by
// block to the end. The first byte holds the reader arguments and picks the
// path whose name and directories the start time may come from.
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
const char* const paths[] = {
    "2016/05/20160504/e6050427.dat",
    "d6050510.dat",
    "e6050427.txt",
    "recording.dat",
    "2016/05/20160504/x.dat",
    "/archive/2017/12/20171231/z7123147.dat",
    "",
    "20160504",
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const uint8_t flags = data[0];
    VxFil::VXFIL_arguments args;
    args.m_concat = flags & 1;
    args.m_old_file_type = flags & 2;
    args.m_fail_parse_path = flags & 4;
    args.m_quiet = true;
    const char* path = paths[(flags >> 3) % (sizeof paths / sizeof paths[0])];
    std::string storage;
    FILE* stream = fuzz::memory_stream(data + 1, size - 1, storage);
    try {
        std::unique_ptr<VxFil::VXFIL> reader(VxFil::detect(stream, path, &args));
        if (flags & 0x80) reader->set_micorder(2, 0, 1);
        volatile double sum = 0;
        while (reader->getdata() == 0) {
            for (const auto& ch : reader->current)
                for (size_t i = 0; i < reader->get_length() && i < ch.size(); ++i) sum = sum + ch[i];
            sum = sum + static_cast<double>(reader->get_vxtime(0)) + reader->is_timegap();
        }
    } catch (const VxFil::fatal_exit_called&) {
    } catch (const std::exception&) {
    }
    return 0;
}
