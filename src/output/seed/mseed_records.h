// Packing of one segment of one channel into miniSEED 2 records with
// libmseed: big-endian records of a fixed length, each with Blockette 1000
// (encoding, byte order, record length), Blockette 100 (the exact sample rate)
// and Blockette 1001 (the start time's microseconds).
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

// How the samples of a segment are stored.
enum class mseed_encoding {
    STEIM2,  // integers whose successive differences fit in 30 bits, lossless
    INT32,   // other integers within 32-bit range
    FLOAT64, // anything else
};

// The value as a 32-bit integer, when it is one (`out` is then that integer;
// otherwise it holds no meaning). Inline and without branches: it is asked of
// every sample, and loops over many values can take several at once.
inline bool as_int32(double v, int32_t &out) {
    const bool in_range = v >= -2147483648.0 && v <= 2147483647.0;
    // Out of range (or NaN) converts 0 instead, so that the conversion is always defined.
    out = static_cast<int32_t>(in_range ? v : 0.0);
    return in_range & (static_cast<double>(out) == v);
}

// Whether a difference of neighbours fits the 30 bits that Steim-2 stores.
constexpr bool steim2_difference(int64_t d) {
    return d >= -(int64_t{1} << 29) && d <= (int64_t{1} << 29) - 1;
}

// STEIM2 when every value is an integer within 32-bit range and every
// difference of neighbours fits in 30 bits (-2^29 to 2^29 - 1); INT32 when
// the values are such integers but a difference does not fit; FLOAT64
// otherwise (fractions, larger values, infinities, NaN). Unless the result is
// FLOAT64, `integers` (room for n values) holds the values as integers.
mseed_encoding choose_encoding(const double *values, std::size_t n, int32_t *integers);
// The encoding of integers[0 .. n): STEIM2 when every difference of
// neighbours fits in 30 bits, else INT32 (what choose_encoding picks for the
// same integers as doubles).
mseed_encoding integer_encoding(const int32_t *integers, std::size_t n);

// The codes and shape of the records of one channel.
struct mseed_stream {
    std::string network;
    std::string station;
    std::string location;
    std::string channel;
    double rate = 0.0;        // samples per second
    int record_length = 4096; // bytes
};

// Receives each finished record.
using record_sink = std::function<void(const char *bytes, std::size_t length)>;

// Microseconds since 1970 of a time in Unix seconds, rounded to the nearest.
// The caller makes sure that the time lies within the years 1900 to 2100.
int64_t microseconds_of(double t);

// True when the fixed header's rate factor and multiplier (two 16-bit
// integers) can express a rate near r: 1e-9 to 1e9 samples per second.
inline bool writable_rate(double r) {
    return r >= 1e-9 && r <= 1e9;
}

// True when t is a time that miniSEED can carry: 1900-01-01 (Unix time
// -2208988800) up to the end of 2100 (4133980800).
inline bool writable_time(double t) {
    return t >= -2208988800.0 && t < 4133980800.0;
}

// A record holds at most this many samples: the header's count is 16 bits,
// and some readers take it as signed.
constexpr std::size_t MAX_RECORD_SAMPLES = 32767;

// The lines that refuse what miniSEED cannot carry, naming the input
// (`name`, quoted): a rate its header cannot express, a time outside its
// years, a station code over 5 characters of a recording with `channels`
// channels.
std::string unwritable_rate_line(double rate, const std::string &name);
std::string unwritable_time_line(double t, const std::string &name);
std::string long_station_code_line(const std::string &code, std::size_t channels, const std::string &name);

// Packs values[0 .. n) in the given encoding. For STEIM2 and INT32
// `integers` holds the values as integers (as choose_encoding leaves them);
// for FLOAT64 it is not read. Each record starts at the time that
// `start_us(i)` gives for its first sample i (Unix microseconds). Otherwise
// as pack_segment.
void pack_segment_as(const mseed_stream &stream, mseed_encoding encoding, const double *values,
                     const int32_t *integers, const std::function<int64_t(std::size_t)> &start_us,
                     std::size_t n, int &sequence, const record_sink &sink);

// Packs values[0 .. n) in the encoding that choose_encoding picks, with
// `scratch` (room for n values) as the integers' buffer. Each record starts
// at the time that times[] gives for its first sample, never at a time
// computed from the sample rate. `sequence` is the sequence number of the
// first record and is advanced past the last one. Throws std::runtime_error
// with libmseed's complaint when it refuses to pack.
void pack_segment(const mseed_stream &stream, const double *values, const double *times, std::size_t n,
                  int32_t *scratch, int &sequence, const record_sink &sink);
