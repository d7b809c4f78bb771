// Sorting a file into the family's kinds by its first bytes. It follows the
// reader choice (format_probe.cpp) where that decides, and also names the
// files that the readers would try and fail on: a comment line of any of the
// three grammars, or one whose kind letter and length name a block length,
// makes a comment-headed recording; four to 127 numbers on a first line make
// a TM4 data line even without the comment line.
#include "vxfil/recording_kind.h"

#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>

#include "vxfil/comment.h"
#include "vxfil/format_probe.h"

namespace VxFil {

namespace {

// A length only in the two sizes the readers know: 128 or 512 samples.
std::size_t named_block_length(const std::string &line) {
    std::size_t length = 0;
    if (std::sscanf(line.c_str(), "!%*[!SUsu]%zu", &length) == 1 && (length == 128 || length == 512))
        return length;
    return 0;
}

bool is_comment_line(const std::string &line) {
    if (line.empty() || line[0] != '!') return false;
    double frequency = -1.0;
    int gain = -1, len = 0;
    std::string station(512, '\0'), date(512, '\0'), time(512, '\0');
    char kind = 0;
    bool unixtime = false;
    arguments a(frequency, gain, station, kind, len, unixtime, date, time);
    return valid_comment_type1(line.c_str(), a) || valid_comment_type2(line.c_str(), a) ||
           valid_comment_type3(line.c_str(), a) || named_block_length(line) != 0;
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

// The first line, up to a line feed or carriage return; end is where it stops.
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

} // namespace

std::string kind_by_first_bytes(const unsigned char *bytes, std::size_t n) {
    if (n >= 4 && std::memcmp(bytes, "vx24", 4) == 0) return "vx24";
    std::size_t end = 0;
    const std::string line = first_line(bytes, n, &end);
    if (is_comment_line(line)) {
        if (n >= 5 && probe_format(bytes, n) == probe_kind::TM4) return "tm4";
        return vx16_kind(bytes, n, end);
    }
    const int numbers = leading_numbers(line);
    if (end < n && numbers >= 4 && numbers <= 127) return "tm4";
    return "not-a-recording";
}

std::string kind_by_first_bytes(const unsigned char *bytes, std::size_t n, const legacy_options &options) {
    std::string kind = kind_by_first_bytes(bytes, n);
    if (kind != "not-a-recording" || !options.m_enabled || n < 5 || probe_format(bytes, n) != probe_kind::VX16)
        return kind;
    std::size_t end = 0;
    first_line(bytes, n, &end);
    return vx16_kind(bytes, n, end);
}

std::size_t comment_block_length(const unsigned char *bytes, std::size_t n) {
    std::size_t end = 0;
    return named_block_length(first_line(bytes, n, &end));
}

} // namespace VxFil
