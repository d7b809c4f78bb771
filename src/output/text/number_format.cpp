#include "number_format.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace {

__extension__ typedef unsigned __int128 uint128;

constexpr std::uint64_t POW10[20] = {1ull,
                                     10ull,
                                     100ull,
                                     1000ull,
                                     10000ull,
                                     100000ull,
                                     1000000ull,
                                     10000000ull,
                                     100000000ull,
                                     1000000000ull,
                                     10000000000ull,
                                     100000000000ull,
                                     1000000000000ull,
                                     10000000000000ull,
                                     100000000000000ull,
                                     1000000000000000ull,
                                     10000000000000000ull,
                                     100000000000000000ull,
                                     1000000000000000000ull,
                                     10000000000000000000ull};

// Number of decimal digits of v (1 for 0): log10 estimated from the bit
// length (1233 / 4096 is just above log10 2), then corrected by one table look-up.
inline int decimal_digits(std::uint64_t v) {
    const std::uint64_t w = v | 1;
    const int t = (std::bit_width(w) * 1233) >> 12;
    return t + (w >= POW10[t] ? 1 : 0);
}

// The decimal digits of v, written in place from the last pair backwards.
// The same bytes as to_chars, without its call and its second pass.
inline char *write_u64(char *out, std::uint64_t v) {
    char *const end = out + decimal_digits(v);
    char *p = end;
    while (v >= 100) {
        const auto pair = static_cast<unsigned>(v % 100);
        v /= 100;
        p -= 2;
        std::memcpy(p, DIGIT_PAIRS + 2 * pair, 2);
    }
    if (v >= 10) {
        std::memcpy(p - 2, DIGIT_PAIRS + 2 * v, 2);
    } else {
        p[-1] = static_cast<char>('0' + v);
    }
    return end;
}

// The digits of v < 10^4: the four digits with their leading zeros as one
// 32-bit word, shifted so that the leading zeros fall off the front, stored
// whole (four bytes are written, only the digits count).
inline char *write_below_10000(char *out, std::uint32_t v) {
    if constexpr (std::endian::native == std::endian::little) {
        std::uint16_t high, low;
        std::memcpy(&high, DIGIT_PAIRS + 2 * (v / 100), 2);
        std::memcpy(&low, DIGIT_PAIRS + 2 * (v % 100), 2);
        const int digits = 1 + (v >= 10) + (v >= 100) + (v >= 1000);
        const std::uint32_t word = (high | static_cast<std::uint32_t>(low) << 16) >> (8 * (4 - digits));
        std::memcpy(out, &word, 4);
        return out + digits;
    } else {
        return write_u64(out, v);
    }
}

// The `count` last decimal digits of frac, with their leading zeros, written
// two at a time from the last one backwards. Returns the end of the text.
inline char *write_decimals(char *out, std::uint64_t frac, int count) {
    char *const end = out + count;
    char *p = end;
    for (; count >= 2; count -= 2, frac /= 100) {
        p -= 2;
        std::memcpy(p, DIGIT_PAIRS + 2 * (frac % 100), 2);
    }
    if (count == 1) p[-1] = static_cast<char>('0' + frac % 10);
    return end;
}

// q as a fixed number with `precision` decimals (q = value * 10^precision,
// `scale` = 10^precision): the integer part, the point, then the decimals
// written from the last one backwards with their leading zeros.
inline char *write_point_digits(char *out, std::uint64_t q, int precision, std::uint64_t scale) {
    std::uint64_t frac = q % scale;
    out = write_u64(out, q / scale);
    *out++ = '.';
    return write_decimals(out, frac, precision);
}

template <int PRECISION> inline char *write_point_digits(char *out, std::uint64_t q) {
    return write_point_digits(out, q, PRECISION, POW10[PRECISION]);
}

// The point and the decimals of a fraction in millionths (0 <= frac < 10^6)
// without their trailing zeros; nothing at all for 0. Used where words are
// not little-endian.
[[maybe_unused]] inline char *write_trimmed_decimals(char *out, std::uint64_t frac) {
    if (frac == 0) return out;
    *out++ = '.';
    int n = 6;
    while (frac % 100 == 0) {
        frac /= 100;
        n -= 2;
    }
    if (frac % 10 == 0) {
        frac /= 10;
        --n;
    }
    return write_decimals(out, frac, n);
}

// The trimmed form of a value given in millionths (q = |value| * 10^6).
inline char *write_trimmed_millionths(char *out, bool negative, std::uint64_t q) {
    constexpr std::uint64_t MILLION = 1000000;
    // The sign without a branch: filtered values swing about zero, and a
    // branch on the sign would be mispredicted half the time.
    *out = '-';
    out += negative;
    const std::uint64_t whole = q / MILLION;
    const auto frac = static_cast<std::uint32_t>(q - whole * MILLION);
    out = whole < 10000 ? write_below_10000(out, static_cast<std::uint32_t>(whole)) : write_u64(out, whole);
    if constexpr (std::endian::native == std::endian::little) {
        if (frac == 0) return out;
        // The six decimals as three pairs in one word, the first digit in
        // its lowest byte; the trailing zeros are the highest bytes that
        // read '0', counted at once. Eight bytes are stored, only the
        // digits up to the last one that is not a zero count.
        std::uint64_t word = 0;
        std::memcpy(reinterpret_cast<char *>(&word), DIGIT_PAIRS + 2 * (frac / 10000), 2);
        std::memcpy(reinterpret_cast<char *>(&word) + 2, DIGIT_PAIRS + 2 * (frac / 100 % 100), 2);
        std::memcpy(reinterpret_cast<char *>(&word) + 4, DIGIT_PAIRS + 2 * (frac % 100), 2);
        const std::uint64_t not_zero = word ^ 0x303030303030u; // 0 in the bytes of '0'
        const int length = (64 - std::countl_zero(not_zero) + 7) / 8;
        *out = '.';
        std::memcpy(out + 1, &word, 8);
        return out + 1 + length;
    } else {
        return write_trimmed_decimals(out, frac);
    }
}

// Largest precision the exact integer path handles: 10^19 still fits in 64
// bits, so a 53-bit mantissa times 10^precision fits in 117 bits.
constexpr int EXACT_PRECISION_MAX = 19;

// Room for the decimal digits of a 128-bit integer.
constexpr int UINT128_DIGITS_MAX = 40;

// Writes the decimal digits of `q` (no leading zeros, "0" for 0).
char *write_uint128(char *out, uint128 q) {
    if (q <= UINT64_MAX) return write_u64(out, static_cast<std::uint64_t>(q));
    // q < 2^64 * 10^19 (see fixed_exact), so the high part fits in 64 bits.
    std::uint64_t high = static_cast<std::uint64_t>(q / POW10[19]);
    std::uint64_t low = static_cast<std::uint64_t>(q % POW10[19]);
    char *p = std::to_chars(out, out + UINT128_DIGITS_MAX, high).ptr;
    char digits[20];
    char *e = std::to_chars(digits, digits + sizeof digits, low).ptr;
    std::size_t n = static_cast<std::size_t>(e - digits);
    std::memset(p, '0', 19 - n);
    std::memcpy(p + (19 - n), digits, n);
    return p + 19;
}

// "inf", "-inf", "nan", "-nan": what printf writes for the non-finite values
// in every conversion used here.
char *write_non_finite(char *out, double value) {
    if (std::signbit(value)) *out++ = '-';
    std::memcpy(out, std::isnan(value) ? "nan" : "inf", 3);
    return out + 3;
}

// Fixed notation of a finite value with 0..19 decimals by exact integer
// arithmetic: the value is m * 2^e, and m * 10^precision * 2^e rounded to an
// integer (ties to even, as printf rounds the exact binary value) gives all
// printed digits at once. Returns null when the digits would not fit the
// 128-bit arithmetic (values of 2^64 and above).
// The value times 10^precision, rounded to an integer (ties to even, as
// printf rounds the exact binary value). False when it would not fit the
// 128-bit arithmetic (values of 2^64 and above).
inline bool scaled_exact(double value, int precision, uint128 &q) {
    std::uint64_t bits = std::bit_cast<std::uint64_t>(value);
    int biased = static_cast<int>((bits >> 52) & 0x7ff);
    std::uint64_t m = bits & ((std::uint64_t{1} << 52) - 1);
    int e;
    if (biased == 0) {
        e = -1074;
    } else {
        m |= std::uint64_t{1} << 52;
        e = biased - 1075;
    }
    if (e >= 0) {
        if (e > 11) return false; // m << e would not fit in 64 bits
        q = static_cast<uint128>(m << e) * POW10[precision];
    } else if (precision <= 4 && -e - precision >= 1 && -e - precision <= 63) {
        // Up to four decimals (times of day, say), in 64 bits: 10^p is
        // 5^p * 2^p, and m * 5^p < 2^53 * 625 < 2^63, so m * 10^p * 2^e is
        // m * 5^p shifted right by -e - p, the very number that the 128-bit
        // path below rounds, rounded the same way.
        constexpr std::uint64_t POW5[5] = {1, 5, 25, 125, 625};
        q = shifted_to_even(0, m * POW5[precision], static_cast<unsigned>(-e - precision));
    } else {
        uint128 prod = static_cast<uint128>(m) * POW10[precision]; // < 2^117
        int s = -e;
        if (s >= 118) {
            q = 0; // prod < 2^117 <= half of 2^s: rounds to zero
        } else {
            q = prod >> s;
            uint128 rem = prod & ((uint128{1} << s) - 1);
            uint128 half = uint128{1} << (s - 1);
            if (rem > half || (rem == half && (q & 1) != 0)) ++q;
        }
    }
    return true;
}

// Fixed notation of a finite value with 0..19 decimals by exact integer
// arithmetic: the value is m * 2^e, and m * 10^precision * 2^e rounded gives
// all printed digits at once. Returns null when scaled_exact cannot.
char *fixed_exact(char *out, double value, int precision) {
    uint128 q;
    if (!scaled_exact(value, precision, q)) return nullptr;
    if (std::signbit(value)) *out++ = '-';
    if (q <= UINT64_MAX) {
        // The usual case: the digits go straight into place, the integer part
        // by to_chars and the decimals from the last one backwards.
        auto q64 = static_cast<std::uint64_t>(q);
        switch (precision) {
        case 0:
            return write_u64(out, q64);
        // The usual precisions get a constant divisor, which the compiler
        // turns into a multiplication; a 64-bit division costs far more.
        case 2:
            return write_point_digits<2>(out, q64);
        case 3:
            return write_point_digits<3>(out, q64);
        case 4:
            return write_point_digits<4>(out, q64);
        case 6:
            return write_point_digits<6>(out, q64);
        default:
            return write_point_digits(out, q64, precision, POW10[precision]);
        }
    }
    char digits[UINT128_DIGITS_MAX];
    char *end = write_uint128(digits, q);
    int n = static_cast<int>(end - digits);
    if (precision == 0) {
        std::memcpy(out, digits, static_cast<std::size_t>(n));
        return out + n;
    }
    if (n > precision) {
        int whole = n - precision;
        std::memcpy(out, digits, static_cast<std::size_t>(whole));
        out += whole;
        *out++ = '.';
        std::memcpy(out, digits + whole, static_cast<std::size_t>(precision));
        return out + precision;
    }
    *out++ = '0';
    *out++ = '.';
    std::memset(out, '0', static_cast<std::size_t>(precision - n));
    out += precision - n;
    std::memcpy(out, digits, static_cast<std::size_t>(n));
    return out + n;
}

} // namespace

char *format_fixed(char *out, double value, int precision) {
    if (precision < 0) precision = 6;
    if (!std::isfinite(value)) return write_non_finite(out, value);
    if (precision <= EXACT_PRECISION_MAX) {
        if (char *end = fixed_exact(out, value, precision)) return end;
    }
    return std::to_chars(out, out + fixed_text_max(precision), value, std::chars_format::fixed, precision)
        .ptr;
}

char *format_f(char *out, double value) {
    return format_fixed(out, value, 6);
}

char *format_f0(char *out, double value) {
    return format_fixed(out, value, 0);
}

char *format_f12_0(char *out, double value) {
    constexpr std::ptrdiff_t WIDTH = 12;
    char *end = format_fixed(out, value, 0);
    std::ptrdiff_t n = end - out;
    if (n >= WIDTH) return end;
    std::memmove(out + (WIDTH - n), out, static_cast<std::size_t>(n));
    std::memset(out, ' ', static_cast<std::size_t>(WIDTH - n));
    return out + WIDTH;
}

char *format_g(char *out, double value) {
    if (!std::isfinite(value)) return write_non_finite(out, value);
    // Whole numbers below 10^6 print as plain integers under "%g"; the sign of
    // negative zero is kept.
    double magnitude = std::fabs(value);
    if (magnitude < 1e6) {
        auto whole = static_cast<std::uint32_t>(magnitude);
        if (static_cast<double>(whole) == magnitude) {
            if (std::signbit(value)) *out++ = '-';
            return write_u64(out, whole);
        }
    }
    return std::to_chars(out, out + SHORT_TEXT_MAX, value, std::chars_format::general, 6).ptr;
}

char *format_ld(char *out, long value) {
    return std::to_chars(out, out + SHORT_TEXT_MAX, value).ptr;
}

namespace {

// The exponents of format_trimmed's path for conditioned values:
// 2^-11 <= |value| < 2^33.
constexpr unsigned TRIMMED_BIASED_MIN = 1012;
constexpr unsigned TRIMMED_BIASED_MAX = 1055;

} // namespace

char *format_trimmed(char *out, double value) {
    // Whole numbers, the common case of raw counts: "%lf" prints their digits
    // and ".000000", and the trim takes the decimals away again. Below 2^53
    // every whole double converts to a 64-bit integer exactly. Negative zero
    // keeps its sign ("-0"); NaN fails the comparison and takes the general path.
    const double magnitude = std::fabs(value);
    if (magnitude < 9007199254740992.0) {
        const auto whole = static_cast<std::uint64_t>(magnitude);
        if (static_cast<double>(whole) == magnitude) {
            if (std::signbit(value)) *out++ = '-';
            return write_u64(out, whole);
        }
    }
    // Multiples of 1/64 (the halves and quarters of interpolated counts) have
    // at most six decimals, all exact: n / 64 is n * 15625 millionths, so no
    // rounding is involved. Multiplying by 64 is exact, and below 2^46 the
    // test by conversion is too.
    const double sixty_fourths = magnitude * 64.0;
    if (sixty_fourths < 70368744177664.0) {
        const auto n = static_cast<std::uint64_t>(sixty_fourths);
        if (static_cast<double>(n) == sixty_fourths) {
            return write_trimmed_millionths(out, std::signbit(value), n * 15625);
        }
    }
    // The usual values of conditioned series, from 2^-11 to 2^33: the value
    // is m * 2^e with 20 <= -e <= 63, and its millionths, m * 10^6 * 2^e
    // rounded, are the 117-bit product m * 10^6 shifted right by -e,
    // rounded to even as printf rounds the exact binary value: one
    // multiplication and 64-bit arithmetic on its halves.
    {
        const auto bits = std::bit_cast<std::uint64_t>(value);
        const auto biased = static_cast<unsigned>(bits >> 52) & 0x7ffu;
        if (biased - TRIMMED_BIASED_MIN <= TRIMMED_BIASED_MAX - TRIMMED_BIASED_MIN) {
            const std::uint64_t m = (bits & ((std::uint64_t{1} << 52) - 1)) | (std::uint64_t{1} << 52);
            const uint128 prod = static_cast<uint128>(m) * 1000000u;
            const std::uint64_t q = shifted_to_even(static_cast<std::uint64_t>(prod >> 64),
                                                    static_cast<std::uint64_t>(prod), 1075u - biased); // 20 to 63
            return write_trimmed_millionths(out, (bits >> 63) != 0, q);
        }
    }
    // Other finite values below 2^64: the value in millionths, rounded as
    // "%lf" rounds, gives the whole part and six decimals at once; the
    // decimals' trailing zeros are dropped from the number before any digit
    // is written, rather than from the text afterwards.
    uint128 q;
    if (std::isfinite(value) && scaled_exact(value, 6, q) && q <= UINT64_MAX) {
        return write_trimmed_millionths(out, std::signbit(value), static_cast<std::uint64_t>(q));
    }
    char *end = format_fixed(out, value, 6);
    while (end > out && end[-1] == '0')
        --end;
    if (end > out && end[-1] == '.') --end;
    return end;
}

char *format_count(char *out, std::int32_t value) {
    // The sign is written always and kept only for a negative count: counts
    // swing about zero, and a branch on the sign would be mispredicted half
    // the time. The magnitude is taken in 64 bits so that the most negative
    // count has one too.
    const bool negative = value < 0;
    const auto magnitude = static_cast<std::uint64_t>(negative ? -static_cast<std::int64_t>(value) : value);
    *out = '-';
    out += negative;
    // Below 10^4 the usual case.
    if (magnitude < 10000) return write_below_10000(out, static_cast<std::uint32_t>(magnitude));
    return write_u64(out, magnitude);
}

int fput_double(double number, FILE *f) {
    char buf[FIXED6_TEXT_MAX + 1];
    char *end = format_trimmed(buf, number);
    *end = '\0';
    return std::fputs(buf, f);
}

void FixedColumn::keep_whole(std::uint64_t whole, bool negative) {
    char *p = m_digits;
    if (negative) *p++ = '-';
    p = write_u64(p, whole);
    m_length = static_cast<std::size_t>(p - m_digits);
    m_whole = whole;
    m_negative = negative;
    m_valid = true;
}

inline char *FixedColumn::put_digits(char *out, std::uint64_t q, bool negative, int precision, std::uint64_t scale) {
    const std::uint64_t whole = q / scale;
    if (!m_valid || whole != m_whole || negative != m_negative) keep_whole(whole, negative);
    // All the kept bytes at once, a copy of constant size that needs no
    // library call; only the digits count (the caller's room is far larger).
    std::memcpy(out, m_digits, sizeof m_digits);
    out += m_length;
    if (precision == 0) return out;
    *out++ = '.';
    return write_decimals(out, q - whole * scale, precision);
}

template <int PRECISION> char *FixedColumn::put_digits(char *out, std::uint64_t q, bool negative) {
    return put_digits(out, q, negative, PRECISION, POW10[PRECISION]);
}

char *FixedColumn::format_any(char *out, double value) {
    uint128 q;
    if (m_precision > EXACT_PRECISION_MAX || !std::isfinite(value) || !scaled_exact(value, m_precision, q) ||
        q > UINT64_MAX)
        return format_fixed(out, value, m_precision);
    // The usual precisions get a constant divisor, which the compiler turns
    // into a multiplication; a 64-bit division costs far more.
    switch (m_precision) {
    case 2:
        return put_digits<2>(out, static_cast<std::uint64_t>(q), std::signbit(value));
    case 3:
        return put_digits<3>(out, static_cast<std::uint64_t>(q), std::signbit(value));
    case 4:
        return put_digits<4>(out, static_cast<std::uint64_t>(q), std::signbit(value));
    case 6:
        return put_digits<6>(out, static_cast<std::uint64_t>(q), std::signbit(value));
    default:
        return put_digits(out, static_cast<std::uint64_t>(q), std::signbit(value), m_precision, POW10[m_precision]);
    }
}

