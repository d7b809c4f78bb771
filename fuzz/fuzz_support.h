// Shared set-up of the fuzz targets: UTC time, and every process end of the
// library and the tool turned into an exception so that one process can run
// millions of inputs.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "process_exit.h"
#include "vxfil/fatal.h"

namespace fuzz {

inline void init_process() {
    static char tz[] = "TZ=UTC";
    putenv(tz);
    tzset();
    VxFil::set_fatal_handler(VxFil::throwing_fatal_handler);
    set_exit_handler(VxFil::throwing_fatal_handler);
}

// A private directory for the process, created once: temp files are written
// there and never into the source tree.
inline const std::string& process_dir() {
    static const std::string dir = [] {
        const char* base = std::getenv("TMPDIR");
        std::string tmpl = std::string(base && *base ? base : "/tmp") + "/brantel-fuzz-XXXXXX";
        if (!mkdtemp(tmpl.data())) std::abort();
        return tmpl;
    }();
    return dir;
}

// Writes bytes to a file; false when that fails (then the input is skipped).
inline bool write_file(const std::string& path, const unsigned char* data, size_t size) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    bool ok = std::fwrite(data, 1, size, f) == size;
    return std::fclose(f) == 0 && ok;
}

// A read-only stream over a copy of the input; nullptr for an empty input
// (fmemopen refuses a zero size).
inline FILE* memory_stream(const unsigned char* data, size_t size, std::string& storage) {
    storage.assign(reinterpret_cast<const char*>(data), size);
    if (storage.empty()) return nullptr;
    return fmemopen(storage.data(), storage.size(), "rb");
}

} // namespace fuzz
