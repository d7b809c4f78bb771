// Choice between the text and the binary reader of a comment-headed
// recording, made from its first 256 bytes: a valid comment line followed by
// a line that starts with three numbers is text; everything else is binary.
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include "common.h"
#include "vxfil/vxfil.h"

namespace VxFil {

namespace {

struct stream_closer {
    void operator()(FILE* f) const {
        if (f) std::fclose(f);
    }
};

// Whether the first line is a comment, as far as the reader choice is
// concerned. With first-generation reading the oldest kind's line counts
// without the invalid-comment message.
bool first_line_valid(const char *line, bool legacy) {
    if (legacy && line[0] == 'T') {
        double frequency = -1.0;
        int gain = -1, len = 0;
        std::string station, date, time;
        char kind = 0;
        bool unixtime = false;
        arguments a(frequency, gain, station, kind, len, unixtime, date, time);
        if (valid_comment_oldest(line, a)) return true;
    }
    return validate_comment(line);
}

// Reads the probe from the stream; true when the text reader fits.
bool looks_like_text(FILE *fd, bool legacy) {
    char buffer[256];
    if (std::fread(buffer, 1, sizeof buffer, fd) < sizeof buffer) throw std::runtime_error("fread: EOF \n");
    buffer[sizeof buffer - 1] = '\0';
    char* end = nullptr;
    for (size_t i = 0; i + 1 < sizeof buffer; ++i) {
        if (buffer[i] == '\n' || buffer[i] == '\r') {
            end = buffer + i;
            break;
        }
    }
    if (!end) throw std::runtime_error("Found no end of first commentline\n");
    *end = '\0';
    bool valid = first_line_valid(buffer, legacy);
    size_t length = 0;
    if (std::sscanf(buffer, "!%*[!SUsu]%zu", &length) == 1 && (length == 128 || length == 512)) valid = true;
    if (end[1] != '\0' && valid) {
        float a = 0, b = 0, c = 0;
        if (std::sscanf(end + 1, "%f %f %f", &a, &b, &c) == 3) return true;
    }
    return false;
}

} // namespace

VXFIL* detect(const char* path, VXFIL_arguments* args) {
    bool text = false;
    {
        std::unique_ptr<FILE, stream_closer> probe(std::fopen(path, "rb"));
        if (!probe) throw std::runtime_error(Formatter() << "Can't open " << path << "\n");
        text = looks_like_text(probe.get(), args && args->m_legacy);
    }
    VX_TRACE("reading " << path << " as " << (text ? "text" : "binary") << "\n");
    if (text) return new AsciiVXFIL(path, args);
    return new BinaryVXFIL(path, args);
}

VXFIL* detect(const char* path, bool concat, bool old_file_type, bool fail_parse_path) {
    VXFIL_arguments args;
    args.m_concat = concat;
    args.m_old_file_type = old_file_type;
    args.m_fail_parse_path = fail_parse_path;
    args.m_quiet = false;
    return detect(path, &args);
}

VXFIL* detect(FILE* stream, const char* path, VXFIL_arguments* args) {
    std::unique_ptr<FILE, stream_closer> owned(stream);
    if (!owned) throw std::runtime_error(Formatter() << "Can't open " << path << "\n");
    bool text = looks_like_text(owned.get(), args && args->m_legacy);
    if (std::fseek(owned.get(), 0, SEEK_SET) != 0)
        throw std::runtime_error(Formatter() << "Can't rewind " << path << "\n");
    VX_TRACE("reading " << path << " as " << (text ? "text" : "binary") << "\n");
    if (text) return new AsciiVXFIL(owned.release(), path, args);
    return new BinaryVXFIL(owned.release(), path, args);
}

} // namespace VxFil
