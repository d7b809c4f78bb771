// Differential tests of the number conversions against the C library's
// snprintf: edge values one by one, then millions of random values.
#include <gtest/gtest.h>

#include <bit>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "number_format.h"

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr int RANDOM_ROUNDS = 5000;
#else
constexpr int RANDOM_ROUNDS = 250000; // a million values per function
#endif

std::string ref(const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    va_list ap2;
    va_copy(ap2, ap);
    int n = std::vsnprintf(nullptr, 0, fmt, ap);
    va_end(ap);
    std::string s(static_cast<std::size_t>(n) + 1, '\0');
    std::vsnprintf(s.data(), s.size(), fmt, ap2);
    va_end(ap2);
    s.resize(static_cast<std::size_t>(n));
    return s;
}

// The trimmed form as the C library gives it: "%lf", trailing zeros, point.
std::string ref_trimmed(double v) {
    std::string s = ref("%lf", v);
    while (!s.empty() && s.back() == '0')
        s.pop_back();
    if (!s.empty() && s.back() == '.') s.pop_back();
    return s;
}

using Format = char *(*)(char *, double);

std::string mine(Format f, double v) {
    std::vector<char> buf(FIXED6_TEXT_MAX + 8, '\x7f');
    char *end = f(buf.data(), v);
    EXPECT_LE(static_cast<std::size_t>(end - buf.data()), FIXED6_TEXT_MAX);
    return std::string(buf.data(), end);
}

std::string mine_fixed(double v, int precision) {
    std::vector<char> buf(fixed_text_max(precision) + 8, '\x7f');
    char *end = format_fixed(buf.data(), v, precision);
    EXPECT_LE(static_cast<std::size_t>(end - buf.data()), fixed_text_max(precision));
    return std::string(buf.data(), end);
}

std::string mine_ld(long v) {
    char buf[SHORT_TEXT_MAX];
    return std::string(buf, format_ld(buf, v));
}

double neg_nan() {
    return std::copysign(std::numeric_limits<double>::quiet_NaN(), -1.0);
}

std::vector<double> edge_values() {
    std::vector<double> v = {
        0.0, -0.0, 0.5, 1.5, 2.5, 3.5, -0.5, -1.5, -2.5, 0.125, 0.375, -0.125, 0.05, 0.25, 0.0000004,
        -0.0000004, 0.0000005, -0.0000005, 0.0000015, 0.0000025, 0.9999996, 0.9999995, 999999.5, 999999.0,
        1000000.0, -999999.0, 99999.95, 12345678.9, 1.0, -1.0, 100.0, 1e-5, 1e-4, 0.0001, 123456.5, 1234567.5,
        9007199254740991.0, 9007199254740992.0, 9007199254740993.0, -9007199254740992.0, 0x1p62, 0x1p63,
        -0x1p63, 0x1p64, 0x1p64 - 2048, 0x1p65, 18446744073709551615.0, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20,
        1e21, 1e22, 1e23, 1e100, -1e100, 1e300, DBL_MAX, -DBL_MAX, DBL_MIN, -DBL_MIN, DBL_TRUE_MIN,
        -DBL_TRUE_MIN, DBL_MIN / 3, DBL_EPSILON, 1.5e9, 1.5e9 + 0.05, 1500000000.123456, 1700000000.9999995,
        4294967295.5, 4294967296.0,
        // Where whole numbers leave the 64-bit fast paths.
        9007199254740991.0, -9007199254740991.0, 9007199254740992.0, -9007199254740992.0, 9007199254740994.0,
        9223372036854775808.0, 18446744073709549568.0, 18446744073709551616.0, -18446744073709551616.0,
        18446744073709555712.0, std::numeric_limits<double>::infinity(),
        -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN(), neg_nan()};
    // Exact ties at several precisions: k + 0.5 scaled by powers of two.
    for (int k = 0; k < 20; ++k) {
        v.push_back(k + 0.5);
        v.push_back(-(k + 0.5));
        v.push_back((2 * k + 1) / 8.0);
        v.push_back((2 * k + 1) / 1024.0);
        v.push_back((2 * k + 1) / 2097152.0); // 2^-21: ties at six decimals and beyond
    }
    for (int e = -30; e <= 30; ++e) {
        v.push_back(std::pow(10.0, e));
        v.push_back(-std::pow(10.0, e));
        v.push_back(std::nextafter(std::pow(10.0, e), 0.0));
        v.push_back(std::nextafter(std::pow(10.0, e), 1e308));
    }
    return v;
}

// Realistic values: raw counts, times with fractions, small fractions,
// scaled samples.
double realistic(std::mt19937_64 &rng) {
    std::uniform_int_distribution<int> kind(0, 6);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    std::uniform_int_distribution<long> counts(-(1L << 31), 1L << 31);
    switch (kind(rng)) {
    case 0:
        return static_cast<double>(counts(rng));
    case 1:
        return static_cast<double>(counts(rng) % 100000);
    case 2:
        return 1.5e9 + std::fabs(unit(rng)) * 2e8;
    case 3:
        return 1.5e9 + static_cast<double>(counts(rng) % 100000) * 0.05;
    case 4:
        return unit(rng);
    case 5:
        return unit(rng) * 1e-5;
    default:
        return static_cast<double>(counts(rng)) / 3.0;
    }
}

double random_bits(std::mt19937_64 &rng) {
    return std::bit_cast<double>(rng());
}

template <class Check> void for_random_values(Check check) {
    std::mt19937_64 rng(20240611);
    for (int i = 0; i < RANDOM_ROUNDS; ++i) {
        // Random bit patterns are mostly huge numbers whose reference text is
        // slow to make; realistic values get three draws to their one.
        check(random_bits(rng));
        check(realistic(rng));
        check(realistic(rng));
        check(realistic(rng));
    }
}

} // namespace

TEST(NumberFormat, FixedEdgeValuesAllPrecisions) {
    for (double v : edge_values()) {
        for (int p = -3; p <= 24; ++p)
            ASSERT_EQ(mine_fixed(v, p), ref("%-.*f", p, v)) << "p=" << p;
    }
}

TEST(NumberFormat, FixedLargePrecisionNeverTruncates) {
    for (double v : edge_values()) {
        for (int p : {40, 100, 310, 330, 400, 1100})
            ASSERT_EQ(mine_fixed(v, p), ref("%-.*f", p, v)) << "p=" << p;
    }
}

TEST(NumberFormat, NegativePrecisionPrintsSixDecimals) {
    EXPECT_EQ(mine_fixed(1.5, -1), "1.500000");
    EXPECT_EQ(mine_fixed(1.5, -1), ref("%-.*f", -1, 1.5));
}

TEST(NumberFormat, FixedTiesRoundToEvenLikePrintf) {
    EXPECT_EQ(mine_fixed(0.5, 0), "0");
    EXPECT_EQ(mine_fixed(1.5, 0), "2");
    EXPECT_EQ(mine_fixed(2.5, 0), "2");
    EXPECT_EQ(mine_fixed(0.125, 2), "0.12");
    EXPECT_EQ(mine_fixed(0.375, 2), "0.38");
    EXPECT_EQ(mine_fixed(-0.0, 3), "-0.000");
}

// Up to four decimals the digits are worked out in 64 bits: every binary
// exponent, random mantissas, and the halves that round to even, where
// (2i + 1) / 2^(p + 1) lies exactly between two numbers of p decimals.
TEST(NumberFormat, FixedUpToFourDecimalsAtEveryExponent) {
    std::mt19937_64 rng(4);
    for (int e = -1074; e <= 80; ++e) {
        for (int round = 0; round < 6; ++round) {
            const double m = static_cast<double>((rng() >> 11) | (std::uint64_t{1} << 52));
            const double v = std::ldexp(m, e - 52) * ((rng() & 1) != 0 ? -1.0 : 1.0);
            for (int p = 0; p <= 4; ++p)
                ASSERT_EQ(mine_fixed(v, p), ref("%-.*f", p, v)) << std::hexfloat << v << " p=" << p;
        }
    }
    for (int p = 0; p <= 4; ++p)
        for (std::int64_t i = 0; i < 5000; ++i) {
            const double tie = std::ldexp(static_cast<double>(2 * i + 1), -(p + 1));
            ASSERT_EQ(mine_fixed(tie, p), ref("%-.*f", p, tie)) << std::hexfloat << tie << " p=" << p;
            const double big = tie + 1500000000.0;
            ASSERT_EQ(mine_fixed(big, p), ref("%-.*f", p, big)) << std::hexfloat << big << " p=" << p;
        }
}

TEST(NumberFormat, FixedRandomValues) {
    std::mt19937_64 prng(7);
    std::uniform_int_distribution<int> precision(-2, 22);
    for_random_values([&](double v) {
        int p = precision(prng);
        ASSERT_EQ(mine_fixed(v, p), ref("%-.*f", p, v)) << std::hexfloat << v << " p=" << p;
    });
}

TEST(NumberFormat, FEdgeAndRandom) {
    for (double v : edge_values())
        ASSERT_EQ(mine(format_f, v), ref("%f", v)) << std::hexfloat << v;
    for_random_values([](double v) { ASSERT_EQ(mine(format_f, v), ref("%f", v)) << std::hexfloat << v; });
}

TEST(NumberFormat, F0EdgeAndRandom) {
    for (double v : edge_values())
        ASSERT_EQ(mine(format_f0, v), ref("%.0f", v)) << std::hexfloat << v;
    for_random_values([](double v) { ASSERT_EQ(mine(format_f0, v), ref("%.0f", v)) << std::hexfloat << v; });
}

TEST(NumberFormat, F12_0EdgeAndRandom) {
    for (double v : edge_values())
        ASSERT_EQ(mine(format_f12_0, v), ref("%12.0f", v)) << std::hexfloat << v;
    for_random_values(
        [](double v) { ASSERT_EQ(mine(format_f12_0, v), ref("%12.0f", v)) << std::hexfloat << v; });
}

TEST(NumberFormat, GEdgeAndRandom) {
    for (double v : edge_values())
        ASSERT_EQ(mine(format_g, v), ref("%g", v)) << std::hexfloat << v;
    for_random_values([](double v) { ASSERT_EQ(mine(format_g, v), ref("%g", v)) << std::hexfloat << v; });
}

TEST(NumberFormat, TrimmedEdgeAndRandom) {
    for (double v : edge_values())
        ASSERT_EQ(mine(format_trimmed, v), ref_trimmed(v)) << std::hexfloat << v;
    for_random_values(
        [](double v) { ASSERT_EQ(mine(format_trimmed, v), ref_trimmed(v)) << std::hexfloat << v; });
}

// Conditioned values from 2^-11 to 2^33 take a path of their own: values on
// both sides of either end, of both signs, random mantissas within, and
// ties of the sixth decimal (odd multiples of 1/128: 1/128 = 0.0078125).
TEST(NumberFormat, TrimmedAcrossTheConditionedRange) {
    std::mt19937_64 rng(163);
    std::uniform_real_distribution<double> mantissa(1.0, 2.0);
    for (int i = 0; i < 200000; ++i) {
        double v = std::ldexp(mantissa(rng), static_cast<int>(rng() % 50) - 14);
        if (i % 4 == 1) v = std::ldexp(static_cast<double>(rng() % 1000000 * 2 + 1), -7);
        if (i % 8 == 2) v = std::nextafter(std::ldexp(1.0, rng() % 2 == 0 ? -11 : 33), rng() % 2 == 0 ? 0.0 : 1e300);
        if (rng() % 2 == 0) v = -v;
        ASSERT_EQ(mine(format_trimmed, v), ref_trimmed(v)) << std::hexfloat << v;
    }
}

// A count read straight from a recording prints as the trimmed form of the
// same count as a double: every edge, every count near a power of ten, and
// random counts of every size.
TEST(NumberFormat, CountIsTheTrimmedFormOfTheCount) {
    auto count_text = [](std::int32_t v) {
        char buf[SHORT_TEXT_MAX];
        return std::string(buf, format_count(buf, v));
    };
    std::vector<std::int32_t> counts = {0, 1, -1, 9, -9, 10, -10, INT32_MAX, INT32_MIN, INT32_MIN + 1, INT32_MAX - 1};
    for (std::int64_t p = 10; p <= 1000000000; p *= 10)
        for (std::int64_t d = -2; d <= 2; ++d) {
            counts.push_back(static_cast<std::int32_t>(p + d));
            counts.push_back(static_cast<std::int32_t>(-(p + d)));
        }
    std::mt19937_64 rng(29);
    for (int i = 0; i < 200000; ++i) {
        const int bits = static_cast<int>(rng() % 32);
        const auto magnitude = static_cast<std::int64_t>(rng() & ((std::uint64_t{1} << bits) - 1));
        counts.push_back(static_cast<std::int32_t>((rng() & 1) != 0 ? -magnitude : magnitude));
    }
    for (std::int32_t v : counts) {
        ASSERT_EQ(count_text(v), ref_trimmed(static_cast<double>(v))) << v;
        ASSERT_EQ(count_text(v), mine(format_trimmed, static_cast<double>(v))) << v;
    }
}

TEST(NumberFormat, TrimmedExamples) {
    EXPECT_EQ(mine(format_trimmed, -0.0), "-0");
    EXPECT_EQ(mine(format_trimmed, 12345678.9), "12345678.9");
    EXPECT_EQ(mine(format_trimmed, 1.5), "1.5");
    EXPECT_EQ(mine(format_trimmed, 2.0), "2");
    EXPECT_EQ(mine(format_trimmed, 100.0), "100");
    EXPECT_EQ(mine(format_trimmed, 0.0000004), "0");
    EXPECT_EQ(mine(format_trimmed, -0.0000004), "-0");
    EXPECT_EQ(mine(format_trimmed, std::numeric_limits<double>::infinity()), "inf");
    EXPECT_EQ(mine(format_trimmed, -std::numeric_limits<double>::infinity()), "-inf");
    EXPECT_EQ(mine(format_trimmed, std::numeric_limits<double>::quiet_NaN()), ref_trimmed(NAN));
    EXPECT_EQ(mine(format_trimmed, neg_nan()), ref_trimmed(neg_nan()));
    // The whole integer part of the largest double survives.
    EXPECT_EQ(mine(format_trimmed, DBL_MAX).size(), 309u);
}

// The values that conditioning produces: counts interpolated by small
// factors (quarters, thirds, fifths), counts in 64ths and finer binary
// fractions, offset-free and scaled values, and filter sums of many products.
// Each kind takes its own formatting path; every one must read as "%lf" trimmed.
TEST(NumberFormat, TrimmedConditionedValues) {
    std::mt19937_64 rng(161);
    std::uniform_int_distribution<long> counts(-(1L << 31), 1L << 31);
    std::uniform_int_distribution<int> factor(1, 16);
    std::uniform_int_distribution<int> shift(0, 12);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    for (int i = 0; i < RANDOM_ROUNDS; ++i) {
        const double a = static_cast<double>(counts(rng) % 50000);
        const double b = static_cast<double>(counts(rng) % 50000);
        const int up = factor(rng);
        const int j = static_cast<int>(rng() % static_cast<unsigned>(up));
        const double interpolated = a + (static_cast<double>(j) / up) * (b - a);
        ASSERT_EQ(mine(format_trimmed, interpolated), ref_trimmed(interpolated))
            << std::hexfloat << interpolated;
        const double binary = std::ldexp(static_cast<double>(counts(rng)), -shift(rng));
        ASSERT_EQ(mine(format_trimmed, binary), ref_trimmed(binary)) << std::hexfloat << binary;
        const double huge_binary =
            std::ldexp(static_cast<double>(rng() >> 11), static_cast<int>(rng() % 8)) / 64.0;
        ASSERT_EQ(mine(format_trimmed, huge_binary), ref_trimmed(huge_binary))
            << std::hexfloat << huge_binary;
        double sum = 0.0;
        for (int k = 0; k < 8; ++k)
            sum += unit(rng) * a;
        ASSERT_EQ(mine(format_trimmed, sum), ref_trimmed(sum)) << std::hexfloat << sum;
    }
}

TEST(NumberFormat, FputDoubleWritesTrimmedText) {
    FILE *f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    EXPECT_GE(fput_double(-0.0, f), 0);
    std::fputc(' ', f);
    fput_double(12345678.9, f);
    std::rewind(f);
    char buf[64] = {};
    ASSERT_NE(std::fgets(buf, sizeof buf, f), nullptr);
    EXPECT_STREQ(buf, "-0 12345678.9");
    std::fclose(f);
}

TEST(NumberFormat, LongEdgeAndRandom) {
    for (long v : {0L, 1L, -1L, 9L, 10L, -10L, 123456789L, LONG_MAX, LONG_MIN, LONG_MIN + 1})
        ASSERT_EQ(mine_ld(v), ref("%ld", v));
    std::mt19937_64 rng(3);
    for (int i = 0; i < RANDOM_ROUNDS; ++i) {
        long v = static_cast<long>(rng());
        ASSERT_EQ(mine_ld(v), ref("%ld", v));
        v >>= (rng() % 63);
        ASSERT_EQ(mine_ld(v), ref("%ld", v));
    }
}

// The time column reuses the digits of its whole part from row to row; every
// row must still read exactly as "%-.*f" prints it, also when the whole part
// or the sign changes between rows, and for the values it hands elsewhere.
TEST(NumberFormat, FixedColumnMatchesSnprintfRowByRow) {
    std::mt19937_64 rng(77);
    std::uniform_real_distribution<double> step(0.0, 0.2);
    for (int precision : {-1, 0, 1, 2, 3, 4, 6, 9, 19, 20, 25}) {
        FixedColumn column(precision);
        double t = -3.0 - step(rng);
        for (int i = 0; i < 20000; ++i) {
            char buf[2048];
            char *end = column.format(buf, t);
            ASSERT_EQ(std::string(buf, end), ref("%-.*f", precision, t)) << "precision " << precision;
            t += step(rng);
        }
        for (double v : edge_values()) {
            char buf[2048];
            char *end = column.format(buf, v);
            ASSERT_EQ(std::string(buf, end), ref("%-.*f", precision, v)) << "precision " << precision;
        }
    }
    // Four decimals take an inline path for 2^-15 <= |value| < 2^48: values
    // on both sides of either end, of both signs, and halves of the last
    // decimal (k / 32 with k odd is a tie at four decimals: 1/32 = 0.03125).
    FixedColumn four(4);
    std::uniform_real_distribution<double> mantissa(1.0, 2.0);
    for (int i = 0; i < 200000; ++i) {
        const int exponent = static_cast<int>(rng() % 70) - 18;
        double v = std::ldexp(mantissa(rng), exponent);
        if (i % 4 == 1) v = std::ldexp(static_cast<double>(rng() % 100000 * 2 + 1), -5);
        if (i % 8 == 2) v = std::nextafter(std::ldexp(1.0, rng() % 2 == 0 ? -15 : 48), rng() % 2 == 0 ? 0.0 : 1e300);
        if (rng() % 2 == 0) v = -v;
        char buf[2048];
        char *end = four.format(buf, v);
        ASSERT_EQ(std::string(buf, end), ref("%-.*f", 4, v)) << std::hexfloat << v;
    }
    FixedColumn times(4);
    for (double t = 1500000000.0; t < 1500000100.0; t += 1.0 / 20) {
        char buf[64];
        char *end = times.format(buf, t);
        ASSERT_EQ(std::string(buf, end), ref("%-.*f", 4, t));
    }
}
