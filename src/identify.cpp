#include "identify.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

#include "open_recording.h"
#include "process_exit.h"
#include "settings.h"
#include "vxfil/comment.h"
#include "vxfil/fatal.h"
#include "vxfil/format_probe.h"
#include "vxfil/vxdetect.h"

namespace {

struct file_closer {
    void operator()(std::FILE *f) const { std::fclose(f); }
};

// A comment line of one of the three grammars, or one whose kind and length
// ("!S512", "!U128", ...) name a block length, as the reader choice accepts.
bool is_comment_line(const std::string &line) {
    if (line.empty() || line[0] != '!') return false;
    double frequency = -1.0;
    int gain = -1, len = 0;
    std::string station(512, '\0'), date(512, '\0'), time(512, '\0');
    char kind = 0;
    bool unixtime = false;
    VxFil::arguments a(frequency, gain, station, kind, len, unixtime, date, time);
    if (VxFil::valid_comment_type1(line.c_str(), a) || VxFil::valid_comment_type2(line.c_str(), a) ||
        VxFil::valid_comment_type3(line.c_str(), a))
        return true;
    std::size_t length = 0;
    return std::sscanf(line.c_str(), "!%*[!SUsu]%zu", &length) == 1 && (length == 128 || length == 512);
}

// Numbers at the start of a line, read one after another until one fails.
int leading_numbers(const std::string &line) {
    std::istringstream in(line);
    int count = 0;
    double v = 0;
    while (in >> v)
        ++count;
    return count;
}

// Block length named by the comment line ("!S512..." or "!U128..."), or 0.
std::size_t block_length(const std::string &line) {
    std::size_t length = 0;
    if (std::sscanf(line.c_str(), "!%*[!SUsu]%zu", &length) == 1 && (length == 128 || length == 512))
        return length;
    return 0;
}

std::string first_line(const unsigned char *bytes, std::size_t n, std::size_t *end) {
    std::size_t i = 0;
    while (i < n && bytes[i] != '\n' && bytes[i] != '\r')
        ++i;
    *end = i;
    return std::string(reinterpret_cast<const char *>(bytes), i);
}

// A comment-headed recording whose first line ends at `end`: as the reader
// choice decides, a text recording's first block line (three numbers at
// least) follows the first line; binary words make none.
std::string vx16_kind(const unsigned char *bytes, std::size_t n, std::size_t end) {
    if (end + 1 < n) {
        const std::string rest(reinterpret_cast<const char *>(bytes) + end + 1, n - end - 1);
        float a = 0, b = 0, c = 0;
        if (std::sscanf(rest.c_str(), "%f %f %f", &a, &b, &c) == 3) return "vx16-text";
    }
    return "vx16-binary";
}

// With --legacy, a first line that names no kind of its own ("Tidserier 18
// 2" of the oldest recorders) still heads a recording when the reader
// choice takes it for one.
std::string kind_with_options(const unsigned char *bytes, std::size_t n) {
    const std::string kind = kind_by_first_bytes(bytes, n);
    if (kind != "not-a-recording" || !legacy || n < 5 || VxFil::probe_format(bytes, n) != VxFil::probe_kind::VX16)
        return kind;
    std::size_t end = 0;
    first_line(bytes, n, &end);
    return vx16_kind(bytes, n, end);
}

struct first_bytes {
    unsigned char bytes[VxFil::probe_buffer_size];
    std::size_t n = 0;
    bool opened = false;
};

first_bytes read_first_bytes(const char *path) {
    first_bytes fb;
    std::unique_ptr<std::FILE, file_closer> f(std::fopen(path, "rb"));
    if (!f) return fb;
    fb.opened = true;
    fb.n = std::fread(fb.bytes, 1, sizeof fb.bytes, f.get());
    return fb;
}

// What the reader printed and threw, as one line.
std::string one_line(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
        text.pop_back();
    for (char &c : text)
        if (c == '\n' || c == '\t' || c == '\r') c = ' ';
    return text.empty() ? "the reader stopped without a message" : text;
}

// Ends of the process that the readers and the tool's checks take are turned
// into exceptions while one file is read.
struct process_end {};
[[noreturn]] void throw_process_end(int) {
    throw process_end{};
}

// Standard output and error go into `sink` for the lifetime of the object.
class captured_streams {
  public:
    explicit captured_streams(std::ostringstream &sink)
        : m_out(std::cout.rdbuf(sink.rdbuf())), m_err(std::cerr.rdbuf(sink.rdbuf())) {}
    ~captured_streams() {
        std::cout.rdbuf(m_out);
        std::cerr.rdbuf(m_err);
    }
    captured_streams(const captured_streams &) = delete;
    captured_streams &operator=(const captured_streams &) = delete;

  private:
    std::streambuf *m_out;
    std::streambuf *m_err;
};

std::string format_rate(double rate) {
    char text[64];
    std::snprintf(text, sizeof text, "%g", rate);
    return text;
}

std::string format_start(const VxFil::Vxfil_Base &rec) {
    std::time_t t = static_cast<std::time_t>(rec.m_header.common.m_seconds);
    if (!rec.m_time.empty()) t = static_cast<std::time_t>(rec.m_time.front());
    std::tm tm{};
    char text[64];
    if (!gmtime_r(&t, &tm) || std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &tm) == 0) return "-";
    return text;
}

// Reads the whole recording; returns the header fields, or throws the
// reader's message as a runtime_error.
std::string header_fields(const char *path, const std::string &kind, std::size_t block) {
    std::ostringstream messages;
    std::unique_ptr<VxFil::Vxfil_Base> rec;
    std::string station;
    {
        captured_streams capture(messages);
        const VxFil::fatal_handler old_fatal = VxFil::set_fatal_handler(throw_process_end);
        const exit_handler old_exit = set_exit_handler(throw_process_end);
        std::string error;
        try {
            rec = open_recording_or_throw(path);
            if (!rec)
                error = std::string("Can't open ") + path;
            else
                station = rec->station_name();
        } catch (const std::exception &e) {
            error = e.what();
        } catch (const process_end &) {
            error = " ";
        }
        VxFil::set_fatal_handler(old_fatal);
        set_exit_handler(old_exit);
        if (!error.empty()) throw std::runtime_error(one_line(messages.str() + error));
    }
    const std::string version = kind == "vx24" ? std::to_string(rec->m_header.header.m_version) : "-";
    return version + "\t" + station + "\t" + format_rate(rec->get_frequency()) + "\t" + format_start(*rec) +
           "\t" + std::to_string(rec->m_channels.size()) + "\t" + (block ? std::to_string(block) : "-") +
           "\t" + std::to_string(rec->m_time.size());
}

} // namespace

std::string kind_by_first_bytes(const unsigned char *bytes, std::size_t n) {
    if (n >= 4 && std::memcmp(bytes, "vx24", 4) == 0) return "vx24";
    std::size_t end = 0;
    const std::string line = first_line(bytes, n, &end);
    if (is_comment_line(line)) {
        if (n >= 5 && VxFil::probe_format(bytes, n) == VxFil::probe_kind::TM4) return "tm4";
        return vx16_kind(bytes, n, end);
    }
    const int numbers = leading_numbers(line);
    if (end < n && numbers >= 4 && numbers <= 127) return "tm4";
    return "not-a-recording";
}

int identify_files(int count, char **paths) {
    int status = 0;
    for (int i = 0; i < count; ++i) {
        const char *path = paths[i];
        const first_bytes fb = read_first_bytes(path);
        std::string line = path;
        if (!fb.opened) {
            line += std::string("\tdamaged\tCan't open ") + path;
            status = 1;
        } else {
            const std::string kind = kind_with_options(fb.bytes, fb.n);
            std::size_t end = 0;
            try {
                if (kind == "not-a-recording") throw std::logic_error(kind);
                const std::size_t block =
                    kind.rfind("vx16", 0) == 0 ? block_length(first_line(fb.bytes, fb.n, &end)) : 0;
                line += "\t" + kind + "\t" + header_fields(path, kind, block);
            } catch (const std::runtime_error &e) {
                line += std::string("\tdamaged\t") + e.what();
                status = 1;
            } catch (const std::logic_error &) {
                line += "\tnot-a-recording";
                status = 1;
            }
        }
        std::cout << line << "\n";
    }
    std::cout.flush();
    return status;
}
