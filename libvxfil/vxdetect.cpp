// vxdetect: opens a recording with the reader its first bytes call for.
#include "vxfil/vxdetect.h"

#include <sys/stat.h>

#include <cstdio>
#include <memory>

#include "vxfil/format_probe.h"
#include "vxfil/vxfil16.h"
#include "vxfil/vxfil24.h"
#include "vxfil/vxfil_tm4.h"

namespace VxFil {

namespace {
struct file_closer {
    void operator()(std::FILE *f) const { std::fclose(f); }
};
} // namespace

bool names_a_pipe(const char *path) {
    struct stat sb {};
    return ::stat(path, &sb) == 0 && (S_ISFIFO(sb.st_mode) || S_ISSOCK(sb.st_mode));
}

namespace {

// The reader the first bytes of path call for; false when it cannot be opened.
bool probe_path(const char *path, probe_kind &kind) {
    unsigned char buf[probe_buffer_size];
    size_t n = 0;
    {
        std::unique_ptr<std::FILE, file_closer> f(std::fopen(path, "rb"));
        if (!f) return false;
        // Five bytes first: a vx24 file is known by its magic, and nothing more
        // is read from it here.
        n = std::fread(buf, 1, 5, f.get());
        if (n == 5 && !(buf[0] == 'v' && buf[1] == 'x' && buf[2] == '2' && buf[3] == '4'))
            n += std::fread(buf + 5, 1, probe_buffer_size - 5, f.get());
    }
    kind = probe_format(buf, n);
    return true;
}

} // namespace

bool regular_vx24_file(const char *path) {
    struct stat sb {};
    if (::stat(path, &sb) != 0 || !S_ISREG(sb.st_mode) || sb.st_size <= 0) return false;
    probe_kind kind = probe_kind::NONE;
    return probe_path(path, kind) && kind == probe_kind::VX24;
}

Vxfil_Base *vxdetect(const char *path, double frequency, const legacy_options &legacy) {
    probe_kind kind = probe_kind::NONE;
    if (!probe_path(path, kind)) return nullptr;
    switch (kind) {
    case probe_kind::NONE:
        return nullptr;
    case probe_kind::VX24:
        return new VXFIL24(path);
    case probe_kind::TM4:
        return new VXFIL_TM4(path, frequency);
    case probe_kind::VX16:
        break;
    }
    return new VXFIL16(path, frequency, legacy);
}

} // namespace VxFil
