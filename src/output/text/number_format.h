// Number-to-text conversions of the output files. Every function writes the
// exact bytes that the C library's snprintf gives for the named conversion in
// the "C" locale, but through std::to_chars and integer arithmetic, so that a
// writer can print millions of values without printf.
//
// Each function writes into `out` (no terminating NUL) and returns the end of
// the text. `out` must have room for the bound given next to the function.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

// Room for any double in "%f", "%.0f", "%12.0f" or the trimmed form: a sign,
// 309 integer digits (DBL_MAX), the point and six decimals, with some slack.
constexpr std::size_t FIXED6_TEXT_MAX = 330;
// Room for "%g" and "%ld".
constexpr std::size_t SHORT_TEXT_MAX = 32;

// Room for "%-.*f" with this precision (a negative precision means six).
constexpr std::size_t fixed_text_max(int precision) {
    return FIXED6_TEXT_MAX + (precision > 6 ? static_cast<std::size_t>(precision) : 0);
}

// "%-.*f": fixed notation with `precision` decimals; a negative precision
// prints six, as printf does when the precision argument is negative.
char* format_fixed(char* out, double value, int precision);
// "%f"
char* format_f(char* out, double value);
// "%.0f"
char* format_f0(char* out, double value);
// "%12.0f": "%.0f" right-aligned in a field of 12.
char* format_f12_0(char* out, double value);
// "%g"
char* format_g(char* out, double value);
// "%ld"
char* format_ld(char* out, long value);
// The shortest fixed form of a sample value: "%lf", then every trailing "0"
// dropped and then a trailing "." dropped. 1.5 gives "1.5", 100.0 "100",
// -0.0 "-0", 0.0000004 "0", -0.0000004 "-0". At most six decimals survive.
// The whole text is kept, however long the integer part is.
char* format_trimmed(char* out, double value);

// The trimmed form of a whole count, as format_trimmed prints the same count
// as a double: its digits, after "-" when it is negative (a count has no
// negative zero). Room: SHORT_TEXT_MAX (bytes after the returned end may be
// written too).
char* format_count(char* out, std::int32_t value);

// Writes the trimmed form of `number` to `f`; returns what fputs returns.
int fput_double(double number, FILE* f);

// "%-.*f" for a column whose values keep their whole part for many rows in a
// row (a time column): the digits of the whole part are kept and reused
// while it stays the same, so that most rows only print their decimals. The
// text is always exactly format_fixed's.
class FixedColumn {
  public:
    explicit FixedColumn(int precision) : m_precision(precision < 0 ? 6 : precision) {}
    char* format(char* out, double value);
    int precision() const { return m_precision; }

  private:
    // The text of q / 10^precision (q = the value times 10^precision,
    // rounded), the whole part from the kept digits when it is unchanged.
    char* put_digits(char* out, std::uint64_t q, bool negative, int precision, std::uint64_t scale);
    template <int PRECISION> char* put_digits(char* out, std::uint64_t q, bool negative);

    int m_precision;
    std::uint64_t m_whole = 0;
    bool m_valid = false;
    bool m_negative = false;
    char m_digits[24] = {};
    std::size_t m_length = 0;
};
