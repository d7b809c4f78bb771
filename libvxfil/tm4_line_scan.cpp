// The numbers of one TM4 data line.
//
// A data line has always been read with one sscanf of nine "%lf", and the
// C library's rules decide what a line means: a "+" sign, "inf" and "nan",
// hexadecimal numbers, numbers that run together ("1.5-2"), a partial
// exponent, a tenth number, any other character. Those rules stay in charge
// for every unusual line. Almost every real line is plain decimal numbers
// between blanks, though, and for those std::from_chars gives the same
// correctly rounded double as the C library's strtod, many times faster.
#include <charconv>
#include <cstdio>
#include <system_error>

#include "vxfil/vxfil_tm4.h"

namespace VxFil {

namespace {

bool is_blank(char c) { return c == ' ' || c == '\t'; }
bool is_digit(char c) { return c >= '0' && c <= '9'; }

// End of the digit run that starts at i.
std::size_t skip_digits(const char *p, std::size_t n, std::size_t i) {
    while (i < n && is_digit(p[i]))
        ++i;
    return i;
}

// End of a number of the simple form that starts at i, or i itself when
// there is none: [-]digits[.digits][(e|E)[+-]digits], digits before or
// after the point (or both). An exponent letter without digits makes the
// whole token unfit, as does anything but a blank, a carriage return or the
// line end right after the number.
std::size_t simple_number_end(const char *p, std::size_t n, std::size_t i) {
    const std::size_t start = i;
    if (i < n && p[i] == '-') ++i;
    const std::size_t whole_begin = i;
    i = skip_digits(p, n, i);
    std::size_t digits = i - whole_begin;
    if (i < n && p[i] == '.') {
        const std::size_t fraction_begin = ++i;
        i = skip_digits(p, n, i);
        digits += i - fraction_begin;
    }
    if (digits == 0) return start;
    if (i < n && (p[i] == 'e' || p[i] == 'E')) {
        ++i;
        if (i < n && (p[i] == '+' || p[i] == '-')) ++i;
        const std::size_t exponent_begin = i;
        i = skip_digits(p, n, i);
        if (i == exponent_begin) return start;
    }
    if (i < n && !is_blank(p[i]) && p[i] != '\r') return start;
    return i;
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
        const std::size_t end = simple_number_end(p, n, i);
        if (end == i) return tm4_declined;
        // Overflow and underflow are left to the C library, which gives an
        // infinity or a zero where from_chars only reports the range error.
        const std::from_chars_result got = std::from_chars(p + i, p + end, values[count]);
        if (got.ec != std::errc() || got.ptr != p + end) return tm4_declined;
        ++count;
        i = end;
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
    return std::sscanf(scratch.c_str(), "%lf %lf %lf %lf %lf %lf %lf %lf %lf", &values[0], &values[1], &values[2],
                       &values[3], &values[4], &values[5], &values[6], &values[7], &values[8]);
}

} // namespace VxFil
