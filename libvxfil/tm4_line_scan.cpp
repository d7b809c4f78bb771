// The numbers of one TM4 data line.
//
// A data line has always been read with one sscanf of nine "%lf", and the
// C library's rules decide what a line means: a "+" sign, "inf" and "nan",
// hexadecimal numbers, numbers that run together ("1.5-2"), a partial
// exponent, a tenth number, any other character. Those rules stay in charge
// for every unusual line. Almost every real line is plain decimal numbers
// between blanks, though, and for those std::from_chars (or, for short
// numbers, one exact division) gives the same correctly rounded double as the
// C library's strtod, many times faster.
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <system_error>

#include "vxfil/vxfil_tm4.h"

namespace VxFil {

namespace {

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}
bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// Digits of a number converted here without from_chars: any 15 digits make
// an integer that a double holds exactly.
constexpr std::size_t quick_digits = 15;
constexpr double powers_of_ten[quick_digits + 1] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                    1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};

// End of the digit run that starts at i; the digits are appended to
// mantissa and counted, as long as fewer than quick_digits came before.
std::size_t take_digits(const char *p, std::size_t n, std::size_t i, uint64_t &mantissa, std::size_t &count) {
    for (; i < n && is_digit(p[i]); ++i) {
        if (count < quick_digits) mantissa = mantissa * 10 + static_cast<uint64_t>(p[i] - '0');
        ++count;
    }
    return i;
}

// A number of the simple form: [-]digits[.digits][(e|E)[+-]digits], digits
// before or after the point (or both).
struct simple_number {
    std::size_t end = 0; // 0: no number of that form starts here
    bool quick = false;  // value holds it, exactly rounded already
    double value = 0.0;
};

// The number that starts at i. An exponent letter without digits makes the
// whole token unfit, as does anything but a blank, a carriage return or the
// line end right after the number.
//
// A number of at most 15 digits without exponent is an integer below 2^53
// over a power of ten up to 10^15, both exact doubles, so one division
// rounds it correctly, as strtod does; other numbers go to from_chars.
simple_number scan_number(const char *p, std::size_t n, std::size_t i) {
    simple_number out;
    const bool negative = i < n && p[i] == '-';
    if (negative) ++i;
    uint64_t mantissa = 0;
    std::size_t digits = 0;
    i = take_digits(p, n, i, mantissa, digits);
    std::size_t fraction = 0;
    if (i < n && p[i] == '.') {
        const std::size_t whole = digits;
        i = take_digits(p, n, i + 1, mantissa, digits);
        fraction = digits - whole;
    }
    if (digits == 0) return out;
    bool has_exponent = false;
    if (i < n && (p[i] == 'e' || p[i] == 'E')) {
        has_exponent = true;
        ++i;
        if (i < n && (p[i] == '+' || p[i] == '-')) ++i;
        const std::size_t exponent_begin = i;
        while (i < n && is_digit(p[i]))
            ++i;
        if (i == exponent_begin) return out;
    }
    if (i < n && !is_blank(p[i]) && p[i] != '\r') return out;
    out.end = i;
    if (!has_exponent && digits <= quick_digits) {
        const double magnitude = static_cast<double>(mantissa) / powers_of_ten[fraction];
        out.value = negative ? -magnitude : magnitude;
        out.quick = true;
    }
    return out;
}

} // namespace

int tm4_scan_simple(const char *p, std::size_t n, double (&values)[tm4_max_numbers]) {
    int count = 0;
    std::size_t i = 0;
    for (;;) {
        while (i < n && is_blank(p[i]))
            ++i;
        if (i == n) break;
        if (p[i] == '\r') {
            // Carriage returns only at the end, among trailing blanks.
            for (; i < n; ++i)
                if (!is_blank(p[i]) && p[i] != '\r') return tm4_declined;
            break;
        }
        if (count == tm4_max_numbers) return tm4_declined;
        const simple_number number = scan_number(p, n, i);
        if (number.end == 0) return tm4_declined;
        if (number.quick) {
            values[count] = number.value;
        } else {
            // Overflow and underflow are left to the C library, which gives an
            // infinity or a zero where from_chars only reports the range error.
            const std::from_chars_result got = std::from_chars(p + i, p + number.end, values[count]);
            if (got.ec != std::errc() || got.ptr != p + number.end) return tm4_declined;
        }
        ++count;
        i = number.end;
    }
    // Nothing but blanks: the scan meets the end before its first number.
    return count == 0 ? EOF : count;
}

int tm4_scan_line(std::string_view line, double (&values)[tm4_max_numbers], std::string &scratch, bool fast) {
    if (fast) {
        const int r = tm4_scan_simple(line.data(), line.size(), values);
        if (r != tm4_declined) return r;
    }
    scratch.assign(line);
    return std::sscanf(scratch.c_str(), "%lf %lf %lf %lf %lf %lf %lf %lf %lf", &values[0], &values[1],
                       &values[2], &values[3], &values[4], &values[5], &values[6], &values[7], &values[8]);
}

} // namespace VxFil
