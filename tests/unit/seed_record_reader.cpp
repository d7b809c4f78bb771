// The tests' own miniSEED 2 reader (see seed_record_reader.h).
#include "seed_record_reader.h"

#include <cstring>
#include <stdexcept>

namespace seed {

namespace {

[[noreturn]] void bad(long offset, const std::string &what) {
    throw std::runtime_error("record at byte " + std::to_string(offset) + ": " + what);
}

uint32_t be32(const unsigned char *p) {
    return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | uint32_t{p[3]};
}
uint16_t be16(const unsigned char *p) {
    return static_cast<uint16_t>((p[0] << 8) | p[1]);
}
int16_t be16s(const unsigned char *p) {
    return static_cast<int16_t>(be16(p));
}
int32_t be32s(const unsigned char *p) {
    return static_cast<int32_t>(be32(p));
}

std::string text(const unsigned char *p, size_t n) {
    std::string s(reinterpret_cast<const char *>(p), n);
    while (!s.empty() && s.back() == ' ')
        s.pop_back();
    return s;
}

bool leap(int y) {
    return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

// Days from 1970-01-01 to January 1 of year y.
int64_t days_before_year(int y) {
    int64_t days = 0;
    if (y >= 1970)
        for (int k = 1970; k < y; ++k)
            days += leap(k) ? 366 : 365;
    else
        for (int k = y; k < 1970; ++k)
            days -= leap(k) ? 366 : 365;
    return days;
}

// Rate from the fixed header's factor and multiplier.
double header_rate(int factor, int multiplier) {
    if (factor == 0 || multiplier == 0) return 0.0;
    if (factor > 0 && multiplier > 0) return double(factor) * multiplier;
    if (factor > 0 && multiplier < 0) return -double(factor) / multiplier;
    if (factor < 0 && multiplier > 0) return -double(multiplier) / factor;
    return 1.0 / (double(factor) * multiplier);
}

// A Steim-2 difference of `bits` bits at bit `shift` of a word, sign-extended.
int32_t field(uint32_t word, int shift, int bits) {
    const uint32_t v = (word >> shift) & ((bits == 32 ? 0xFFFFFFFFu : (1u << bits) - 1));
    const uint32_t sign = 1u << (bits - 1);
    return static_cast<int32_t>((v ^ sign) - sign);
}

// Steim-2 frames: 64 bytes, 16 words. Word 0 holds 16 two-bit codes, one
// per word (word 0's own code is 0). In the first frame words 1 and 2 are the
// first and the last sample (forward and reverse integration constants).
// Code 1: four 8-bit differences. Code 2: the word's top two bits say one
// 30-bit, two 15-bit or three 10-bit differences (1, 2, 3). Code 3: five
// 6-bit, six 5-bit or seven 4-bit differences (0, 1, 2). Samples are the
// first sample and then the running sum of the differences after the first,
// which links to the previous record.
std::vector<double> steim2(const unsigned char *p, size_t bytes, int count, record &r) {
    std::vector<int32_t> diffs;
    const size_t frames = bytes / 64;
    for (size_t f = 0; f < frames && static_cast<int>(diffs.size()) < count; ++f) {
        const unsigned char *frame = p + 64 * f;
        const uint32_t codes = be32(frame);
        for (int w = 1; w < 16; ++w) {
            const uint32_t word = be32(frame + 4 * w);
            if (f == 0 && w == 1) {
                r.x0 = static_cast<int32_t>(word);
                continue;
            }
            if (f == 0 && w == 2) {
                r.xn = static_cast<int32_t>(word);
                continue;
            }
            const int code = (codes >> (30 - 2 * w)) & 3;
            const int dnib = word >> 30;
            switch (code) {
            case 0:
                break;
            case 1:
                for (int k = 0; k < 4; ++k)
                    diffs.push_back(field(word, 24 - 8 * k, 8));
                break;
            case 2:
                if (dnib == 1)
                    diffs.push_back(field(word, 0, 30));
                else if (dnib == 2)
                    for (int k = 0; k < 2; ++k)
                        diffs.push_back(field(word, 15 - 15 * k, 15));
                else if (dnib == 3)
                    for (int k = 0; k < 3; ++k)
                        diffs.push_back(field(word, 20 - 10 * k, 10));
                else
                    bad(r.offset, "Steim-2 code 2 with dnib 0");
                break;
            case 3:
                if (dnib == 0)
                    for (int k = 0; k < 5; ++k)
                        diffs.push_back(field(word, 24 - 6 * k, 6));
                else if (dnib == 1)
                    for (int k = 0; k < 6; ++k)
                        diffs.push_back(field(word, 25 - 5 * k, 5));
                else if (dnib == 2)
                    for (int k = 0; k < 7; ++k)
                        diffs.push_back(field(word, 24 - 4 * k, 4));
                else
                    bad(r.offset, "Steim-2 code 3 with dnib 3");
                break;
            }
        }
    }
    if (static_cast<int>(diffs.size()) < count) bad(r.offset, "Steim-2 frames hold too few differences");
    std::vector<double> out;
    out.reserve(count);
    int64_t x = r.x0;
    for (int i = 0; i < count; ++i) {
        if (i > 0) x += diffs[i];
        out.push_back(static_cast<double>(static_cast<int32_t>(x)));
    }
    if (count > 0 && static_cast<int32_t>(x) != r.xn) bad(r.offset, "Steim-2 last sample differs from Xn");
    return out;
}

record read_one(const unsigned char *p, size_t available, long offset) {
    record r;
    r.offset = offset;
    if (available < 64) bad(offset, "shorter than a header");
    for (int k = 0; k < 6; ++k)
        if (p[k] < '0' || p[k] > '9') bad(offset, "sequence number is not six digits");
    r.sequence = std::stoi(std::string(reinterpret_cast<const char *>(p), 6));
    r.quality = static_cast<char>(p[6]);
    r.station = text(p + 8, 5);
    r.location = text(p + 13, 2);
    r.channel = text(p + 15, 3);
    r.network = text(p + 18, 2);

    // BTIME: year, day of year, hour, minute, second, unused, 1/10000 s.
    const int year = be16(p + 20), doy = be16(p + 22);
    const int hour = p[24], minute = p[25], second = p[26], fract = be16(p + 28);
    if (year < 1900 || year > 2100 || doy < 1 || doy > (leap(year) ? 366 : 365) || hour > 23 || minute > 59 ||
        second > 60 || fract > 9999)
        bad(offset, "start time out of range");
    r.sample_count = be16(p + 30);
    r.header_rate = header_rate(be16s(p + 32), be16s(p + 34));
    const int activity = p[36];
    const int blockettes = p[39];
    const int32_t correction = be32s(p + 40);
    const int data_offset = be16(p + 44);
    int next = be16(p + 46);

    for (int b = 0; b < blockettes; ++b) {
        if (next < 48 || next + 4 > static_cast<int>(available)) bad(offset, "blockette offset out of range");
        const unsigned char *q = p + next;
        const int type = be16(q);
        const int following = be16(q + 2);
        if (type == 100) {
            uint32_t bits = be32(q + 4);
            std::memcpy(&r.b100_rate, &bits, 4);
            r.has_b100 = true;
        } else if (type == 1000) {
            r.encoding = q[4];
            r.word_order = q[5];
            if (q[6] < 7 || q[6] > 20) bad(offset, "record length exponent out of range");
            r.record_length = 1 << q[6];
            r.has_b1000 = true;
        } else if (type == 1001) {
            r.usec = static_cast<int8_t>(q[5]);
            r.has_b1001 = true;
        }
        if (following == 0) break;
        if (following <= next) bad(offset, "blockettes do not move forward");
        next = following;
    }
    if (!r.has_b1000) bad(offset, "no Blockette 1000");
    if (r.word_order != 1) bad(offset, "not big-endian");
    if (static_cast<size_t>(r.record_length) > available) bad(offset, "record runs past the end of the file");
    if (data_offset < 48 || data_offset > r.record_length) bad(offset, "data offset out of range");

    int64_t seconds = (days_before_year(year) + doy - 1) * 86400 + hour * 3600 + minute * 60 + second;
    int64_t us = seconds * 1000000 + int64_t{fract} * 100 + r.usec;
    if ((activity & 0x02) == 0) us += int64_t{correction} * 100; // correction not yet applied
    r.start_us = us;

    const unsigned char *d = p + data_offset;
    const size_t bytes = static_cast<size_t>(r.record_length - data_offset);
    switch (r.encoding) {
    case 3: // 32-bit integers
        if (static_cast<size_t>(r.sample_count) * 4 > bytes) bad(offset, "too many 32-bit integers");
        for (int i = 0; i < r.sample_count; ++i)
            r.samples.push_back(be32s(d + 4 * i));
        break;
    case 5: // 64-bit IEEE floats
        if (static_cast<size_t>(r.sample_count) * 8 > bytes) bad(offset, "too many 64-bit floats");
        for (int i = 0; i < r.sample_count; ++i) {
            const uint64_t bits = (uint64_t{be32(d + 8 * i)} << 32) | be32(d + 8 * i + 4);
            double v;
            std::memcpy(&v, &bits, 8);
            r.samples.push_back(v);
        }
        break;
    case 11: // Steim-2
        if (data_offset % 64 != 0) bad(offset, "Steim-2 frames not on a 64-byte boundary");
        r.samples = steim2(d, bytes, r.sample_count, r);
        break;
    default:
        bad(offset, "encoding " + std::to_string(r.encoding) + " not expected");
    }
    return r;
}

} // namespace

std::vector<record> read_records(const std::string &bytes) {
    std::vector<record> out;
    size_t pos = 0;
    const auto *base = reinterpret_cast<const unsigned char *>(bytes.data());
    while (pos < bytes.size()) {
        out.push_back(read_one(base + pos, bytes.size() - pos, static_cast<long>(pos)));
        pos += static_cast<size_t>(out.back().record_length);
    }
    return out;
}

} // namespace seed
