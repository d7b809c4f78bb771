// Describing a recording from its header. A vx24 file's verdict needs only
// its layout (header, channel records, "data" chunk head) and its size: the
// samples cannot be damaged, since any four bytes make a value. The
// comment-headed and TM4 readers find damage anywhere in a file (a short
// block, a garbled text line), so those files are read whole.
#include "vxfil/header_description.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "vxfil/fatal.h"
#include "vxfil/format_probe.h"
#include "vxfil/legacy_reading.h"
#include "vxfil/recording_kind.h"
#include "vxfil/stations.h"
#include "vxfil/vxdetect.h"
#include "vxfil/vxfil24.h"

namespace VxFil {

namespace {

struct file_closer {
    void operator()(std::FILE *f) const { std::fclose(f); }
};

// What the reader printed and threw, as one line.
std::string one_line(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
        text.pop_back();
    for (char &c : text)
        if (c == '\n' || c == '\t' || c == '\r') c = ' ';
    return text.empty() ? "the reader stopped without a message" : text;
}

// The library's own ends of the process become exceptions while one file is
// described.
struct process_end {};
[[noreturn]] void throw_process_end(int) {
    throw process_end{};
}

// Standard output and error go into `sink`, and the library's ends of the
// process throw, for the lifetime of the object.
class captured_reading {
  public:
    explicit captured_reading(std::ostringstream &sink)
        : m_out(std::cout.rdbuf(sink.rdbuf())), m_err(std::cerr.rdbuf(sink.rdbuf())),
          m_fatal(set_fatal_handler(throw_process_end)) {}
    ~captured_reading() {
        set_fatal_handler(m_fatal);
        std::cout.rdbuf(m_out);
        std::cerr.rdbuf(m_err);
    }
    captured_reading(const captured_reading &) = delete;
    captured_reading &operator=(const captured_reading &) = delete;

  private:
    std::streambuf *m_out;
    std::streambuf *m_err;
    fatal_handler m_fatal;
};

// The time of a first sample as whole seconds toward zero, when it is one.
void set_start(header_description &d, double t) {
    d.has_start = t >= -9.2e18 && t <= 9.2e18;
    if (d.has_start) d.start = static_cast<std::time_t>(t);
}

// Fills the fields from a recording read whole.
void describe_read(header_description &d, const Vxfil_Base &rec, const std::string &station) {
    if (d.kind == "vx24") d.version = rec.m_header.header.m_version;
    d.station = station;
    d.rate = rec.get_frequency();
    if (rec.m_time.empty()) {
        d.has_start = true;
        d.start = static_cast<std::time_t>(rec.m_header.common.m_seconds);
    } else {
        set_start(d, rec.m_time.front());
    }
    d.channels = rec.m_channels.size();
    d.samples = rec.m_time.size();
}

// The recording is handed out to outlive the capture: what its destructor
// prints (the comment-headed reader's note of time gaps) goes to standard
// error as it would after a conversion.
void read_whole(header_description &d, const char *path, const legacy_options &options,
                std::unique_ptr<Vxfil_Base> &rec) {
    try {
        rec.reset(vxdetect(path, 0.0, options));
    } catch (const missing_station &) {
        throw std::runtime_error(missing_station_line(path));
    }
    if (!rec) throw std::runtime_error(std::string("Can't open ") + path);
    describe_read(d, *rec, rec->station_name());
}

// The first bytes of a vx24 file up to its first sample, and its size: the
// rest is read and counted only when the size cannot be asked for.
struct vx24_head {
    std::vector<unsigned char> bytes;
    std::size_t size = 0;
};

vx24_head read_vx24_head(std::FILE *f) {
    vx24_head head;
    head.bytes.resize(vx24_layout_bytes);
    if (std::fseek(f, 0, SEEK_END) == 0) {
        const long end = std::ftell(f);
        if (end > 0 && std::fseek(f, 0, SEEK_SET) == 0) {
            head.size = static_cast<std::size_t>(end);
            const std::size_t got = std::fread(head.bytes.data(), 1, head.bytes.size(), f);
            // A file that shrank since it was measured is taken as it is now.
            if (got < head.bytes.size() && got < head.size) head.size = got;
            return head;
        }
    }
    std::rewind(f);
    unsigned char piece[65536];
    std::size_t got;
    while ((got = std::fread(piece, 1, sizeof piece, f)) > 0) {
        const std::size_t keep =
            head.size < head.bytes.size() ? std::min(got, head.bytes.size() - head.size) : 0;
        std::copy(piece, piece + keep, head.bytes.begin() + static_cast<std::ptrdiff_t>(head.size));
        head.size += got;
    }
    return head;
}

// A vx24 file from its layout and size, with the figures that reading its
// samples would give: the time sequence holds one entry per whole frame, the
// first at the header's time.
void describe_vx24(header_description &d, std::FILE *f, const unsigned char *first, std::size_t n) {
    // The probe sees the first five bytes, as the reader choice does; its
    // trace line is all it adds here.
    (void)probe_format(first, n < 5 ? n : 5);
    const vx24_head head = read_vx24_head(f);
    const vx24_layout layout = parse_vx24_layout(head.bytes.data(), head.size);
    const vx_header &h = layout.header;
    d.version = h.header.m_version;
    d.station = stationid2stationname.at(static_cast<STATIONS>(h.header.m_station));
    d.rate = h.common.m_sample_freq_hz;
    if (layout.per_channel == 0) {
        d.has_start = true;
        d.start = static_cast<std::time_t>(h.common.m_seconds);
    } else {
        set_start(d, 0.0 / d.rate + h.time());
    }
    d.channels = layout.channels.size();
    d.samples = layout.per_channel;
}

} // namespace

namespace {

// The kind of the file at path by its first bytes (read into `first`, `n`
// of them), and the open file for reading on; no file when the kind is
// already the verdict (not a recording, or cannot be opened).
std::unique_ptr<std::FILE, file_closer> open_and_judge(const char *path, const legacy_options &options,
                                                       header_description &d,
                                                       unsigned char (&first)[probe_buffer_size], std::size_t &n) {
    n = 0;
    if (names_a_pipe(path)) {
        d.kind = "not-a-recording";
        return nullptr;
    }
    std::unique_ptr<std::FILE, file_closer> f(std::fopen(path, "rb"));
    if (!f) {
        d.kind = "damaged";
        d.message = std::string("Can't open ") + path;
        return nullptr;
    }
    n = std::fread(first, 1, sizeof first, f.get());
    d.kind = kind_by_first_bytes(first, n, options);
    if (d.kind == "not-a-recording") return nullptr;
    return f;
}

} // namespace

header_description describe_kind(const char *path, const legacy_options &options) {
    header_description d;
    unsigned char first[probe_buffer_size];
    std::size_t n = 0;
    open_and_judge(path, options, d, first, n);
    return d;
}

header_description describe_header(const char *path, const legacy_options &options) {
    header_description d;
    unsigned char first[probe_buffer_size];
    std::size_t n = 0;
    const std::unique_ptr<std::FILE, file_closer> f = open_and_judge(path, options, d, first, n);
    if (!f) return d;
    if (d.kind.rfind("vx16", 0) == 0) d.block_length = comment_block_length(first, n);

    std::ostringstream messages;
    std::string error;
    std::unique_ptr<Vxfil_Base> rec;
    {
        captured_reading capture(messages);
        try {
            if (d.kind == "vx24" && n >= 5)
                describe_vx24(d, f.get(), first, n);
            else
                read_whole(d, path, options, rec);
        } catch (const std::exception &e) {
            error = e.what();
        } catch (const process_end &) {
            error = " ";
        }
    }
    if (!error.empty()) {
        d = header_description{};
        d.kind = "damaged";
        d.message = one_line(messages.str() + error);
    }
    return d;
}

} // namespace VxFil
