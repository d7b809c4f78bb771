// Argument-list expansion: the input is written as an argument file in the
// process's own directory and expanded through "@" and "$" as the entry point
// does. Lines that name further argument files stay inside that directory,
// where the only file is the input itself, so that a file including itself
// is reached but devices such as /dev/zero are not.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

#include "at_file.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::init_process();
    if (chdir(fuzz::process_dir().c_str()) != 0) std::abort();
    return 0;
}

namespace {
// True when some line names an argument file outside the working directory.
bool leaves_directory(const uint8_t* data, size_t size) {
    size_t i = 0;
    while (i < size) {
        size_t end = i;
        while (end < size && data[end] != '\n') ++end;
        if ((data[i] == '@' || data[i] == '$') && std::memchr(data + i, '/', end - i)) return true;
        i = end + 1;
    }
    return false;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (leaves_directory(data, size)) return 0;
    if (!fuzz::write_file("args", data, size)) return 0;
    try {
        char prog[] = "brantel", list[] = "@args", dollar[] = "$args", plain[] = "-c";
        char* given[] = {prog, plain, list, dollar, nullptr};
        int argc = 4;
        char** argv = given;
        rebuild_argv(&argc, &argv);
        volatile size_t total = 0;
        for (int i = 0; i < argc; ++i) total = total + (argv[i] ? std::strlen(argv[i]) : 0);
        restore_argv(&argc, &argv, 4, given);

        int count = 0;
        (void)add_arg_to_argv(&count, nullptr, list);
    } catch (const VxFil::fatal_exit_called&) {
    } catch (const std::exception&) {
    }
    return 0;
}
