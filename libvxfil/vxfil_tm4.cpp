// Reader of TM4 text recordings.
//
// A TM4 file is text: comment lines that begin with "!" (the third comment
// grammar, giving the sample rate and the station), and data lines holding a
// time in Unix seconds followed by one value per channel (up to 8), separated
// by white space. Values are stored as integer counts, truncated toward zero;
// each channel record says 10 V per count.
#include "vxfil/vxfil_tm4.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "vxfil/comment.h"

namespace VxFil {

namespace {

constexpr int max_values = 8;

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

// The next line of text without its line feed, as a stream's getline gives it;
// false once the text is used up.
bool next_line(std::string_view text, size_t &pos, std::string &line) {
    if (pos >= text.size()) return false;
    size_t end = text.find('\n', pos);
    if (end == std::string_view::npos) end = text.size();
    line.assign(text.substr(pos, end - pos));
    pos = end + 1;
    return true;
}

} // namespace

VXFIL_TM4::VXFIL_TM4(const char *filename, double initial_basetime) : Vxfil_Base(filename) {
    // A file that cannot be opened simply reads as empty.
    std::ifstream in(filename, std::ios::binary);
    std::string text;
    if (in) text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    parse(text, initial_basetime);
}

VXFIL_TM4::VXFIL_TM4(std::string_view text, const char *name, double initial_basetime) : Vxfil_Base(name) {
    parse(text, initial_basetime);
}

void VXFIL_TM4::parse(std::string_view text, double initial_basetime) {
    vx_header_header &hh = m_header.header;
    vx_header_common &c = m_header.common;
    hh.m_magic = magic_vx24;
    hh.m_version = 1;
    hh.m_station = test;
    c.m_num_channels = 3;
    c.m_channel_bitmap = 7;
    c.m_bits_per_sample = 32;
    c.m_bytes_per_sample = 4;
    c.m_sample_freq_hz = -1.0; // unknown until a comment or two time stamps tell

    // Every channel claims a ±10 V range and 10 V per count.
    auto set_channels = [this](size_t n) {
        m_data.resize(n);
        m_channels.assign(n, vx_channel{});
        for (size_t k = 0; k < n; ++k) {
            vx_channel &ch = m_channels[k];
            ch.m_magic = magic_chan;
            ch.m_channel = static_cast<uint16_t>(k);
            ch.m_gain = 1;
            ch.m_v_min = -10.0;
            ch.m_v_max = 10.0;
            ch.m_ext_gain = 1.0;
        }
    };
    // So that even a recording without data lines holds its channel records.
    set_channels(c.m_num_channels);

    // Start time from t0, unless initial_basetime is within 2 s of it: then
    // the precise base time is taken. False when a time does not fit the
    // header's unsigned fields; the reading ends there.
    auto set_start = [&](double t0) {
        uint32_t seconds = 0, nanoseconds = 0;
        if (!truncate_u32(t0, seconds)) return false;
        c.m_seconds = seconds;
        if (!truncate_u32((t0 - c.m_seconds) * 1e9, nanoseconds)) return false;
        c.m_nanoseconds = nanoseconds;
        if (std::fabs(m_header.time() - initial_basetime) < 2.0) {
            if (!truncate_u32(initial_basetime, seconds)) return false;
            c.m_seconds = seconds;
            m_header.v.v1.m_host_timestamp = seconds;
            if (!truncate_u32((initial_basetime - c.m_seconds) * 1e9, nanoseconds)) return false;
            c.m_nanoseconds = nanoseconds;
        }
        return true;
    };

    double t0 = 0.0;
    int first = 2; // counts the first two data lines down
    double t = 0.0;
    double ch_val[max_values] = {};
    std::string line;
    size_t pos = 0;

    while (next_line(text, pos, line)) {
        if (!line.empty() && line[0] == '!') {
            double frequency = -1.0;
            int gain = -1;
            std::string station, date, time;
            char kind = 0;
            int length = 0;
            bool unixtime = false;
            arguments a(frequency, gain, station, kind, length, unixtime, date, time);
            valid_comment_type3(line.c_str(), a);
            if (frequency > -1.0) c.m_sample_freq_hz = frequency;
            auto found = station_string2stationid.find(station);
            if (found != station_string2stationid.end()) {
                hh.m_station = found->second;
            } else {
                std::cerr << "WARNING: Unknown station: <" << station << ">\n";
                hh.m_station = unknown;
            }
            continue;
        }

        // One scan per line with the C library's %lf rules.
        const int r =
            std::sscanf(line.c_str(), "%lf %lf %lf %lf %lf %lf %lf %lf %lf", &t, &ch_val[0], &ch_val[1],
                        &ch_val[2], &ch_val[3], &ch_val[4], &ch_val[5], &ch_val[6], &ch_val[7]);
        if (r < 4) break;
        // A time that is not a number, or a value that no 32-bit count can
        // hold, ends the data like a malformed line.
        if (!std::isfinite(t)) break;
        bool values_fit = true;
        for (int k = 0; k < r - 1; ++k)
            values_fit = values_fit && fits_int32(ch_val[k]);
        if (!values_fit) break;

        const size_t n_values = static_cast<size_t>(r - 1);
        if (first > 0) {
            if (first == 2)
                t0 = t;
            else if (c.m_sample_freq_hz < 0.0)
                c.m_sample_freq_hz = 1.0 / (t - t0);
            if (!set_start(t0)) break;
            // The first data line fixes the channel count.
            if (first == 2 && c.m_num_channels == 3 && r != 4) c.m_num_channels = static_cast<uint8_t>(r - 1);
            set_channels(c.m_num_channels);
            --first;
            t0 = m_header.time();
        }
        if (n_values != c.m_num_channels) break;

        // The time column is kept as it stands, gaps and irregular steps included.
        for (size_t k = 0; k < c.m_num_channels; ++k)
            m_data[k].push_back(static_cast<int32_t>(ch_val[k]));
        m_time.push_back(t);
    }
}

} // namespace VxFil
