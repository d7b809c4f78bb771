// Text comment-headed recordings: after the comment line, three lines per
// block, one per channel, each holding two stamp numbers (none in the oldest
// files) and m_length sample numbers separated by white space. Lines that
// begin with "!", a letter or a line feed are comments and skipped.
#include <cctype>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "common.h"
#include "vxfil/vxfil.h"

namespace VxFil {

namespace {

// Values whose truncation toward zero fits a signed 32-bit count. Anything
// else (including infinities and NaN) is treated as a value that failed to read.
bool fits_count(double v) {
    return std::isfinite(v) && v > -2147483649.0 && v < 2147483648.0;
}

// Stamps are rounded to the nearest integer and kept as int.
bool fits_stamp(double v) {
    return std::isfinite(v) && v > INT_MIN - 0.5 && v < INT_MAX + 0.5;
}

// One number as " %lf" reads it; false when none is there.
bool next_number(const char*& p, double& value) {
    char* end = nullptr;
    value = std::strtod(p, &end);
    if (end == p) return false;
    p = end;
    return true;
}

} // namespace

AsciiVXFIL::AsciiVXFIL(const char* path, VXFIL_arguments* args) : VXFIL(path, args), m_line(FBUFSIZE) {
    open_recording(path);
}

AsciiVXFIL::AsciiVXFIL(FILE* stream, const char* path, VXFIL_arguments* args)
    : VXFIL(stream, path, args), m_line(FBUFSIZE) {
    open_recording(path);
}

AsciiVXFIL::~AsciiVXFIL() = default;

int AsciiVXFIL::readcomment() {
    return read_comment_line(false);
}

int AsciiVXFIL::read(atype& out, int* time) {
    char* line = m_line.data();
    double stamp[2] = {0.0, 0.0};
    for (size_t i = 0; i < 3; ++i) {
        for (;;) {
            if (std::fgets(line, FBUFSIZE, m_fd.get()) == nullptr) return -1;
            size_t len = std::strlen(line);
            if (len >= FBUFSIZE - 1 && line[len - 1] != '\n') {
                std::cerr << "Error: Line to long\n";
                return -1;
            }
            unsigned char first = static_cast<unsigned char>(line[0]);
            if (first == '!' || std::isalpha(first) || first == '\n') continue;
            break;
        }
        const char* p = line;
        if (!m_old_file_type) {
            if (!next_number(p, stamp[0]) || !next_number(p, stamp[1])) return -1;
            if (i == 2) {
                for (int k = 0; k < 2; ++k) {
                    if (!fits_stamp(stamp[k])) {
                        std::cerr << "Failed to read value " << k << " of line:\n" << line;
                        return -1;
                    }
                }
            }
        }
        if (m_length == 0) continue;
        std::vector<double>& channel = out[m_micorder[i]];
        if (channel.size() < m_length) channel.resize(m_length);
        for (size_t n = 0; n < m_length; ++n) {
            double value = 0.0;
            if (!next_number(p, value) || !fits_count(value)) {
                std::cerr << "Failed to read value " << n + 2 << " of line:\n" << line;
                return -1;
            }
            channel[n] = value;
        }
    }
    if (!m_old_file_type) {
        time[0] = static_cast<int>(std::round(stamp[0]));
        time[1] = static_cast<int>(std::round(stamp[1]));
    }
    return 0;
}

} // namespace VxFil
