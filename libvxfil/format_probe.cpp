// The recording format probe: which reader the first bytes of a file call for.
//
// Order of the probes:
//   1. "vx24" in the first four bytes: the vx24 container, nothing else looked at.
//   2. Anything but a "!S512" or "!S128" comment: a comment-headed recording of
//      another kind, left to the vx16 reader to sort out.
//   3. A carriage return ends the comment line of binary files. The three
//      channel stamps of the first block are equal there, so the 4 bytes after
//      the comment are compared with those one and two channel blocks further
//      on: 1028 bytes (2 + 512 words) or 260 bytes (2 + 128 words).
//   4. Text: the number of values on the first line after the comment tells a
//      TM4 line (a time and a few channels) from a text block line.
#include "vxfil/format_probe.h"

#include <algorithm>
#include <cstring>
#include <sstream>
#include <string>

#include "common.h"

namespace VxFil {

namespace {

constexpr size_t stamp_size = 4;
constexpr size_t channel_block_512 = 1028; // 2-word stamp and 512 samples, 16 bits each
constexpr size_t channel_block_128 = 260;  // 2-word stamp and 128 samples

// Values of a TM4 data line: a time and 3 to 126 channels.
constexpr int min_tm4_numbers = 4;
constexpr int max_tm4_numbers = 127;

int count_numbers(const std::string &line) {
    std::istringstream in(line);
    int count = 0;
    double value;
    while (in >> value)
        ++count;
    return count;
}

} // namespace

probe_kind probe_format(const unsigned char *bytes, size_t n) {
    if (n < 5) return probe_kind::VX16;
    if (std::memcmp(bytes, "vx24", 4) == 0) {
        VX_TRACE("Trying vx24\n");
        return probe_kind::VX24;
    }

    // The probed bytes, zero beyond the file's end, last byte always NUL so
    // that the text probes can treat them as one C string.
    char buf[probe_buffer_size] = {};
    n = std::min(n, probe_buffer_size);
    std::memcpy(buf, bytes, n);
    buf[probe_buffer_size - 1] = '\0';

    if (std::memcmp(buf, "!S512", 5) != 0 && std::memcmp(buf, "!S128", 5) != 0) return probe_kind::VX16;

    const size_t eol = std::strcspn(buf, "\r\n");
    if (buf[eol] == '\0') return probe_kind::NONE;

    size_t text = eol + 1;
    if (buf[eol] == '\r') {
        const size_t d = eol + 1; // first byte of the first block of a binary file
        auto same_stamp = [&](size_t offset) {
            return d + offset + stamp_size <= n && std::memcmp(buf + d, buf + d + offset, stamp_size) == 0;
        };
        if (same_stamp(channel_block_512) && same_stamp(2 * channel_block_512)) {
            VX_TRACE("Trying binary !S512\n");
            return probe_kind::VX16;
        }
        if (same_stamp(channel_block_128) && same_stamp(2 * channel_block_128)) {
            VX_TRACE("Trying binary !S128\n");
            return probe_kind::VX16;
        }
        if (buf[d] != '\n') return probe_kind::VX16;
        text = d + 1;
    }

    // The buffer's forced NUL bounds the text; its first line is read up to
    // the next line feed and its numbers counted as a stream extracts them.
    std::string line(buf + text);
    line = line.substr(0, line.find('\n'));
    const int numbers = count_numbers(line);
    if (numbers >= min_tm4_numbers && numbers <= max_tm4_numbers) {
        VX_TRACE("Trying text TM4\n");
        return probe_kind::TM4;
    }
    VX_TRACE("Trying text !S512\n");
    return probe_kind::VX16;
}

} // namespace VxFil
