// Number-to-text conversions of the output files. Every function writes the
// exact bytes that the C library's snprintf gives for the named conversion in
// the "C" locale, but through std::to_chars and integer arithmetic, so that a
// writer can print millions of values without printf.
//
// Each function writes into `out` (no terminating NUL) and returns the end of
// the text. `out` must have room for the bound given next to the function.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

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
// The whole text is kept, however long the integer part is. Bytes after the
// returned end may be written too (within the room of FIXED6_TEXT_MAX).
char* format_trimmed(char* out, double value);

// The trimmed form of a whole count, as format_trimmed prints the same count
// as a double: its digits, after "-" when it is negative (a count has no
// negative zero). Room: SHORT_TEXT_MAX (bytes after the returned end may be
// written too).
char* format_count(char* out, std::int32_t value);

// Writes the trimmed form of `number` to `f`; returns what fputs returns.
int fput_double(double number, FILE* f);

// The 128-bit number high * 2^64 + low shifted right by s places
// (1 <= s <= 63) and rounded to the nearest, ties to even: how printf rounds
// the exact binary value to its last printed digit. The result must fit in
// 64 bits.
inline std::uint64_t shifted_to_even(std::uint64_t high, std::uint64_t low, unsigned s) {
    const std::uint64_t q = (high << (64 - s)) | (low >> s);
    const std::uint64_t rem = low & ((std::uint64_t{1} << s) - 1);
    const std::uint64_t half = std::uint64_t{1} << (s - 1);
    return q + ((rem > half || (rem == half && (q & 1) != 0)) ? 1 : 0);
}

// "00" to "99": two digits per step when printing an integer.
inline constexpr char DIGIT_PAIRS[201] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// "%-.*f" for a column whose values keep their whole part for many rows in a
// row (a time column): the digits of the whole part are kept and reused
// while it stays the same, so that most rows only print their decimals. The
// text is always exactly format_fixed's.
class FixedColumn {
  public:
    explicit FixedColumn(int precision) : m_precision(precision < 0 ? 6 : precision) {}
    char* format(char* out, double value) {
        // Four decimals, the time column of rates from 20 to 100 Hz, inline
        // for values from 2^-15 to 2^48 (a time of day in seconds since
        // 1970, say): there the value is m * 2^e with -67 <= e <= -5, and
        // its ten-thousandths, m * 10^4 * 2^e rounded, are m * 625 shifted
        // right by -e - 4 (1 to 63 places), rounded to even as printf rounds
        // the exact binary value; m * 625 < 2^63.
        const auto bits = std::bit_cast<std::uint64_t>(value);
        const auto biased = static_cast<unsigned>(bits >> 52) & 0x7ffu;
        if (m_precision == 4 && biased - FOUR_BIASED_MIN <= FOUR_BIASED_MAX - FOUR_BIASED_MIN) {
            const std::uint64_t m = (bits & ((std::uint64_t{1} << 52) - 1)) | (std::uint64_t{1} << 52);
            const std::uint64_t q = shifted_to_even(0, m * 625, 1071u - biased);
            const std::uint64_t whole = q / 10000;
            const auto frac = static_cast<unsigned>(q - whole * 10000);
            const bool negative = (bits >> 63) != 0;
            if (!m_valid || whole != m_whole || negative != m_negative) keep_whole(whole, negative);
            // All the kept bytes at once, a copy of constant size; only the
            // digits count (the caller's room is far larger).
            static_assert(sizeof m_digits <= FIXED6_TEXT_MAX);
            std::memcpy(out, m_digits, sizeof m_digits);
            out += m_length;
            *out++ = '.';
            std::memcpy(out, DIGIT_PAIRS + 2 * (frac / 100), 2);
            std::memcpy(out + 2, DIGIT_PAIRS + 2 * (frac % 100), 2);
            return out + 4;
        }
        return format_any(out, value);
    }
    int precision() const { return m_precision; }

  private:
    // The exponents of the inline path: 2^-15 <= |value| < 2^48.
    static constexpr unsigned FOUR_BIASED_MIN = 1008;
    static constexpr unsigned FOUR_BIASED_MAX = 1070;

    // Every other precision and value.
    char* format_any(char* out, double value);
    // Keeps the digits (and the sign) of a new whole part.
    void keep_whole(std::uint64_t whole, bool negative);
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
