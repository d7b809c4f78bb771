// Reader of TM4 text recordings.
//
// A TM4 file is text: comment lines that begin with "!" (the third comment
// grammar, giving the sample rate and the station), and data lines holding a
// time in Unix seconds followed by one value per channel (up to 8), separated
// by white space. Values are stored as integer counts, truncated toward zero;
// each channel record says 10 V per count.
//
// Lines are read in place, from the caller's text or from a file read piece
// by piece, so that no more than one piece of the text is held next to the
// samples.
#include "vxfil/vxfil_tm4.h"

#include <sys/stat.h>

#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "vxfil/comment.h"
#include "vxfil/huge_pages.h"

namespace VxFil {

namespace {

// Piece of a file read at a time; a longer line makes the piece grow.
constexpr std::size_t piece_size = std::size_t{1} << 20;

// Data lines read before the sample sequences are sized for the whole text
// by the average length of those lines.
constexpr std::size_t lines_before_estimate = 4096;

// Truncation toward zero into an unsigned 32-bit field; false when the result
// would not fit (or v is not a number), where a plain conversion is undefined.
bool truncate_u32(double v, uint32_t &out) {
    if (!(v > -1.0 && v < 4294967296.0)) return false;
    out = static_cast<uint32_t>(v);
    return true;
}

bool fits_int32(double v) {
    return v > -2147483649.0 && v < 2147483648.0;
}

// The quick scan knows only "." as the decimal point, the point of the "C"
// locale that the tool runs in; under any other numeric locale every line
// goes to the C library.
bool decimal_point_is_dot() {
    const std::lconv *conv = std::localeconv();
    return conv != nullptr && conv->decimal_point != nullptr && std::strcmp(conv->decimal_point, ".") == 0;
}

struct file_closer {
    void operator()(std::FILE *f) const { std::fclose(f); }
};

} // namespace

// Takes the text one line (without its line feed) at a time and fills the
// recording; line() answers false at the line that ends the data.
class VXFIL_TM4::line_reader {
  public:
    // text_bytes: size of the whole text when known (0 otherwise), used to
    // size the sample sequences once the first lines show the line length.
    line_reader(VXFIL_TM4 &rec, double initial_basetime, std::size_t text_bytes);
    bool line(const char *p, std::size_t n);

  private:
    void set_channels(std::size_t n);
    bool set_start(double t0);
    void comment(std::string_view text);
    void reserve_for_text();

    VXFIL_TM4 &m_rec;
    double m_initial_basetime;
    std::size_t m_text_bytes;
    std::size_t m_bytes_seen = 0; // bytes of the lines read so far, line feeds included
    bool m_fast;
    std::string m_scratch; // a NUL-terminated copy of a line for the C library
    double m_t0 = 0.0;
    int m_first = 2; // counts the first two data lines down
};

VXFIL_TM4::line_reader::line_reader(VXFIL_TM4 &rec, double initial_basetime, std::size_t text_bytes)
    : m_rec(rec), m_initial_basetime(initial_basetime), m_text_bytes(text_bytes),
      m_fast(decimal_point_is_dot()) {
    vx_header_header &hh = m_rec.m_header.header;
    vx_header_common &c = m_rec.m_header.common;
    hh.m_magic = magic_vx24;
    hh.m_version = 1;
    hh.m_station = test;
    c.m_num_channels = 3;
    c.m_channel_bitmap = 7;
    c.m_bits_per_sample = 32;
    c.m_bytes_per_sample = 4;
    c.m_sample_freq_hz = -1.0; // unknown until a comment or two time stamps tell
    // So that even a recording without data lines holds its channel records.
    set_channels(c.m_num_channels);
}

// Every channel claims a ±10 V range and 10 V per count.
void VXFIL_TM4::line_reader::set_channels(std::size_t n) {
    m_rec.m_data.resize(n);
    m_rec.m_channels.assign(n, vx_channel{});
    for (std::size_t k = 0; k < n; ++k) {
        vx_channel &ch = m_rec.m_channels[k];
        ch.m_magic = magic_chan;
        ch.m_channel = static_cast<uint16_t>(k);
        ch.m_gain = 1;
        ch.m_v_min = -10.0;
        ch.m_v_max = 10.0;
        ch.m_ext_gain = 1.0;
    }
}

// Start time from t0, unless initial_basetime is within 2 s of it: then the
// precise base time is taken. False when a time does not fit the header's
// unsigned fields; the reading ends there.
bool VXFIL_TM4::line_reader::set_start(double t0) {
    vx_header_common &c = m_rec.m_header.common;
    uint32_t seconds = 0, nanoseconds = 0;
    if (!truncate_u32(t0, seconds)) return false;
    c.m_seconds = seconds;
    if (!truncate_u32((t0 - c.m_seconds) * 1e9, nanoseconds)) return false;
    c.m_nanoseconds = nanoseconds;
    if (std::fabs(m_rec.m_header.time() - m_initial_basetime) < 2.0) {
        if (!truncate_u32(m_initial_basetime, seconds)) return false;
        c.m_seconds = seconds;
        m_rec.m_header.v.v1.m_host_timestamp = seconds;
        if (!truncate_u32((m_initial_basetime - c.m_seconds) * 1e9, nanoseconds)) return false;
        c.m_nanoseconds = nanoseconds;
    }
    return true;
}

// A comment line sets the rate (when it gives one) and the station; a later
// comment overrides an earlier one.
void VXFIL_TM4::line_reader::comment(std::string_view text) {
    double frequency = -1.0;
    int gain = -1;
    std::string station, date, time;
    char kind = 0;
    int length = 0;
    bool unixtime = false;
    arguments a(frequency, gain, station, kind, length, unixtime, date, time);
    m_scratch.assign(text);
    valid_comment_type3(m_scratch.c_str(), a);
    if (frequency > -1.0) m_rec.m_header.common.m_sample_freq_hz = frequency;
    auto found = station_string2stationid.find(station);
    if (found != station_string2stationid.end()) {
        m_rec.m_header.header.m_station = found->second;
    } else {
        std::cerr << "WARNING: Unknown station: <" << station << ">\n";
        m_rec.m_header.header.m_station = unknown;
    }
}

// Sizes the sample sequences for the data lines the rest of the text holds
// at the average line length so far, with an eighth to spare. Room reserved
// but never filled costs address space only; a text of longer lines further
// on grows the sequences as usual.
void VXFIL_TM4::line_reader::reserve_for_text() {
    if (m_text_bytes <= m_bytes_seen || m_bytes_seen == 0) return;
    const double lines = static_cast<double>(m_rec.m_time.size());
    const double estimate =
        lines * (static_cast<double>(m_text_bytes) / static_cast<double>(m_bytes_seen)) * 1.125;
    // No more data lines than bytes: a bound that also keeps the estimate finite.
    const std::size_t n =
        static_cast<std::size_t>(std::fmin(estimate, static_cast<double>(m_text_bytes))) + 64;
    reserve_huge(m_rec.m_time, n);
    for (data_channel_type &d : m_rec.m_data)
        reserve_huge(d, n);
}

bool VXFIL_TM4::line_reader::line(const char *p, std::size_t n) {
    m_bytes_seen += n + 1;
    if (n > 0 && p[0] == '!') {
        comment(std::string_view(p, n));
        return true;
    }

    vx_header_common &c = m_rec.m_header.common;
    // The numbers as sscanf with "%lf %lf %lf %lf %lf %lf %lf %lf %lf" reads them.
    double values[tm4_max_numbers];
    const int r = tm4_scan_line(std::string_view(p, n), values, m_scratch, m_fast);
    if (r < 4) return false;
    const double t = values[0];
    const double *ch_val = values + 1;
    // A time that is not a number, or a value that no 32-bit count can
    // hold, ends the data like a malformed line.
    if (!std::isfinite(t)) return false;
    bool values_fit = true;
    for (int k = 0; k < r - 1; ++k)
        values_fit = values_fit && fits_int32(ch_val[k]);
    if (!values_fit) return false;

    const std::size_t n_values = static_cast<std::size_t>(r - 1);
    if (m_first > 0) {
        if (m_first == 2)
            m_t0 = t;
        else if (c.m_sample_freq_hz < 0.0)
            c.m_sample_freq_hz = 1.0 / (t - m_t0);
        if (!set_start(m_t0)) return false;
        // The first data line fixes the channel count.
        if (m_first == 2 && c.m_num_channels == 3 && r != 4) c.m_num_channels = static_cast<uint8_t>(r - 1);
        set_channels(c.m_num_channels);
        --m_first;
        m_t0 = m_rec.m_header.time();
    }
    if (n_values != c.m_num_channels) return false;

    // The time column is kept as it stands, gaps and irregular steps included.
    for (std::size_t k = 0; k < n_values; ++k)
        m_rec.m_data[k].push_back(static_cast<int32_t>(ch_val[k]));
    m_rec.m_time.push_back(t);
    if (m_rec.m_time.size() == lines_before_estimate) reserve_for_text();
    return true;
}

VXFIL_TM4::VXFIL_TM4(const char *filename, double initial_basetime) : Vxfil_Base(filename) {
    // A file that cannot be opened simply reads as empty.
    std::unique_ptr<std::FILE, file_closer> f(std::fopen(filename, "rb"));
    struct stat sb {};
    const bool sized = f && ::fstat(::fileno(f.get()), &sb) == 0 && S_ISREG(sb.st_mode) && sb.st_size > 0;
    line_reader reader(*this, initial_basetime, sized ? static_cast<std::size_t>(sb.st_size) : 0);
    if (!f) return;

    // The text in pieces: every whole line of a piece is read in place, and
    // the unfinished last line is moved to the front to be completed by the
    // next piece. The end of the file (or a read error) ends the last line.
    std::vector<char> piece(piece_size);
    std::size_t held = 0;
    for (;;) {
        const std::size_t got = std::fread(piece.data() + held, 1, piece.size() - held, f.get());
        held += got;
        const char *const base = piece.data();
        std::size_t start = 0;
        for (;;) {
            const void *lf = std::memchr(base + start, '\n', held - start);
            if (lf == nullptr) break;
            const std::size_t end = static_cast<std::size_t>(static_cast<const char *>(lf) - base);
            if (!reader.line(base + start, end - start)) return;
            start = end + 1;
        }
        if (got == 0) {
            if (start < held) reader.line(base + start, held - start);
            return;
        }
        std::memmove(piece.data(), base + start, held - start);
        held -= start;
        if (held == piece.size()) piece.resize(piece.size() * 2);
    }
}

VXFIL_TM4::VXFIL_TM4(std::string_view text, const char *name, double initial_basetime) : Vxfil_Base(name) {
    line_reader reader(*this, initial_basetime, text.size());
    std::size_t pos = 0;
    while (pos < text.size()) {
        std::size_t end = text.find('\n', pos);
        if (end == std::string_view::npos) end = text.size();
        if (!reader.line(text.data() + pos, end - pos)) return;
        pos = end + 1;
    }
}

} // namespace VxFil
