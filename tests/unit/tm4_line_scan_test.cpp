// The quick scan of TM4 data lines against the C library's sscanf, which
// defines what a data line means: whatever line the quick scan accepts, it
// must answer as sscanf does, with the same count and the same doubles bit
// for bit; every other line must be declined and go to sscanf itself.
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "vxfil/vxfil_tm4.h"

using namespace VxFil;

namespace {

struct scan_result {
    int r = 0;
    double values[tm4_max_numbers] = {};
};

scan_result by_sscanf(const std::string &line) {
    scan_result s;
    double *v = s.values;
    s.r = std::sscanf(line.c_str(), "%lf %lf %lf %lf %lf %lf %lf %lf %lf", &v[0], &v[1], &v[2], &v[3], &v[4],
                      &v[5], &v[6], &v[7], &v[8]);
    return s;
}

std::string shown(const std::string &line) {
    std::string out;
    for (char c : line) {
        if (c == '\t')
            out += "\\t";
        else if (c == '\r')
            out += "\\r";
        else if (c == '\0')
            out += "\\0";
        else
            out += c;
    }
    return "\"" + (out.size() > 200 ? out.substr(0, 200) + "..." : out) + "\"";
}

// Same count, and the same bits in every value the count covers.
::testing::AssertionResult same_scan(const std::string &line, int r, const double *values) {
    const scan_result want = by_sscanf(line);
    if (r != want.r)
        return ::testing::AssertionFailure() << shown(line) << ": count " << r << ", sscanf " << want.r;
    for (int k = 0; k < r; ++k)
        if (std::bit_cast<uint64_t>(values[k]) != std::bit_cast<uint64_t>(want.values[k]))
            return ::testing::AssertionFailure() << shown(line) << ": value " << k << " is " << values[k]
                                                 << ", sscanf gives " << want.values[k];
    return ::testing::AssertionSuccess();
}

// The quick scan either declines or agrees with sscanf; true when it accepted.
bool check_simple(const std::string &line, bool &agreed) {
    scan_result got;
    got.r = tm4_scan_simple(line.data(), line.size(), got.values);
    if (got.r == tm4_declined) {
        agreed = true;
        return false;
    }
    const ::testing::AssertionResult same = same_scan(line, got.r, got.values);
    agreed = static_cast<bool>(same);
    EXPECT_TRUE(same);
    return true;
}

// The whole scan of a line always agrees with sscanf.
void check_line(const std::string &line) {
    scan_result got;
    std::string scratch;
    got.r = tm4_scan_line(line, got.values, scratch);
    EXPECT_TRUE(same_scan(line, got.r, got.values));
}

std::string digits(std::mt19937_64 &rng, size_t n) {
    std::string s;
    for (size_t i = 0; i < n; ++i)
        s += static_cast<char>('0' + rng() % 10);
    return s;
}

size_t digit_count(std::mt19937_64 &rng) {
    switch (rng() % 8) {
    case 0:
        return 1;
    case 1:
        return 15 + rng() % 6; // about the precision of a double
    case 2:
        return 30 + rng() % 800; // far more digits than a double holds
    default:
        return 1 + rng() % 10;
    }
}

std::string exponent(std::mt19937_64 &rng) {
    std::string e = rng() % 2 ? "e" : "E";
    const int sign = static_cast<int>(rng() % 3);
    e += sign == 0 ? "" : sign == 1 ? "+" : "-";
    switch (rng() % 6) {
    case 0:
        return e + std::to_string(280 + rng() % 60); // near overflow, or denormals with "-"
    case 1:
        return e + std::string(rng() % 5, '0') + std::to_string(rng() % 400);
    case 2:
        return e + digits(rng, 1 + rng() % 25); // up to far out of any range
    default:
        return e + std::to_string(rng() % 30);
    }
}

// A number of the quick scan's grammar. in_range is cleared when it may lie
// outside the range of a double (the quick scan may decline those).
std::string plain_number(std::mt19937_64 &rng, bool &in_range) {
    static const char *const edges[] = {"1.7976931348623157e308",
                                        "1.7976931348623158e308",
                                        "1.7976931348623159e308",
                                        "179769313486231580793728971405301e276",
                                        "4.9406564584124654e-324",
                                        "2.4703282292062327e-324",
                                        "2.4703282292062328e-324",
                                        "2.2250738585072011e-308",
                                        "2.2250738585072014e-308",
                                        "9007199254740993",
                                        "9007199254740993.00000000000000000000001",
                                        "0.1",
                                        "-0",
                                        "-0.0e-999",
                                        "1500000000.050",
                                        "2147483647.9",
                                        "-2147483648.9",
                                        "4294967295.5",
                                        "0000000000000000000000000000000000012.5",
                                        "5.",
                                        ".5",
                                        "-.5",
                                        "-5."};
    const int kind = static_cast<int>(rng() % 12);
    if (kind == 0) {
        in_range = false;
        return edges[rng() % (sizeof edges / sizeof edges[0])];
    }
    std::string s = rng() % 3 == 0 ? "-" : "";
    switch (rng() % 5) {
    case 0:
        s += digits(rng, digit_count(rng));
        break;
    case 1:
        s += "." + digits(rng, digit_count(rng));
        break;
    case 2:
        s += digits(rng, digit_count(rng)) + ".";
        break;
    default:
        s += digits(rng, digit_count(rng)) + "." + digits(rng, digit_count(rng));
        break;
    }
    if (rng() % 3 == 0) {
        s += exponent(rng);
        in_range = false;
    }
    if (s.size() > 300) in_range = false; // long mantissas may reach the range ends too
    return s;
}

std::string blanks(std::mt19937_64 &rng, bool at_least_one) {
    std::string s;
    const size_t n = (at_least_one ? 1 : 0) + rng() % 3;
    for (size_t i = 0; i < n; ++i)
        s += rng() % 4 ? ' ' : '\t';
    return s;
}

// A line of the quick scan's grammar with 0 to 9 numbers (now and then 10).
std::string plain_line(std::mt19937_64 &rng, bool &expected_accepted) {
    bool in_range = true;
    const size_t n = rng() % 50 == 0 ? 10 : rng() % 10;
    std::string line = rng() % 4 ? "" : blanks(rng, false);
    for (size_t i = 0; i < n; ++i) {
        if (i > 0) line += blanks(rng, true);
        line += plain_number(rng, in_range);
    }
    if (rng() % 3 == 0) line += blanks(rng, false);
    if (rng() % 4 == 0) line += rng() % 2 ? "\r" : " \r\r ";
    expected_accepted = in_range && n <= 9;
    return line;
}

// Edits with the characters that change how a number is read.
std::string mutated(std::mt19937_64 &rng, std::string line) {
    static const char alphabet[] = " \t\r-+.eE0123456789xinfa,;";
    const int edits = 1 + static_cast<int>(rng() % 4);
    for (int e = 0; e < edits; ++e) {
        const size_t at = line.empty() ? 0 : rng() % (line.size() + 1);
        const char c = rng() % 40 == 0 ? '\0' : alphabet[rng() % (sizeof alphabet - 1)];
        switch (rng() % 4) {
        case 0:
            if (at < line.size()) {
                line[at] = c;
                break;
            }
            [[fallthrough]];
        case 1:
            line.insert(at, 1, c);
            break;
        case 2:
            if (at < line.size()) line.erase(at, 1 + rng() % 3);
            break;
        default:
            line.insert(at, rng() % 2 ? "inf" : rng() % 2 ? "e" : digits(rng, 1 + rng() % 40));
            break;
        }
    }
    return line;
}

} // namespace

TEST(Tm4LineScan, HandPickedLines) {
    const std::vector<std::string> lines = {"",
                                            " ",
                                            "\t",
                                            "\r",
                                            " \t\r ",
                                            "\r\r",
                                            "1",
                                            "1 2 3 4",
                                            "  1500000000.050 -7.2 2582.8 -2611.1\r",
                                            "1\t2\t3\t4\t",
                                            "1 2 3 4 5 6 7 8 9",
                                            "1 2 3 4 5 6 7 8 9 10",
                                            "1 2 3 4 5 6 7 8 9 \r",
                                            "1e",
                                            "1e+",
                                            "1e-",
                                            "1E5 2e-3 3E+2 4",
                                            "+1 2 3 4",
                                            "1 +2 3 4",
                                            "1.5-2-3-4",
                                            "-",
                                            ".",
                                            "-.",
                                            "-.e5",
                                            ".e5",
                                            "..5",
                                            "1..5",
                                            "1.5.5 2 3 4",
                                            "inf 1 2 3",
                                            "1 nan 2 3",
                                            "0x1p3 1 2 3",
                                            "1 2\r3 4",
                                            "1,5 2 3 4",
                                            "1;2 3 4",
                                            "1 2 3 4 ;",
                                            "--1 2 3 4",
                                            "1e5e5 2 3 4",
                                            "1 2 3 4\v",
                                            "\v1 2 3 4",
                                            "1e400 2 3 4",
                                            "1e-400 2 3 4",
                                            "4.9e-324 1 2 3",
                                            std::string("1 2\0 3 4", 8),
                                            "abc",
                                            "1 2 3 a"};
    int accepted = 0;
    for (const std::string &line : lines) {
        bool agreed = false;
        accepted += check_simple(line, agreed);
        check_line(line);
    }
    EXPECT_GE(accepted, 10);
}

TEST(Tm4LineScan, BlankLinesCountAsTheEndOfInput) {
    // sscanf meets the end before its first number and answers EOF, not 0;
    // the reader takes either as the end of the data, but the count is kept.
    double values[tm4_max_numbers];
    for (const std::string line : {"", "   ", "\t \t", " \r", "\r\r \t"})
        EXPECT_EQ(tm4_scan_simple(line.data(), line.size(), values), EOF) << shown(line);
}

TEST(Tm4LineScan, TypicalLinesTakeTheQuickScan) {
    double values[tm4_max_numbers];
    for (const std::string line :
         {"1500000000.050 -7.2 2582.8 -2611.1", "1500000000.000 174.8 2507.3 -2680.5\r",
          "\t1 2 3 4 5 6 7 8 9 ", "-.5 5. 1e5 1E-5", "0.1 0.2 0.3"}) {
        EXPECT_NE(tm4_scan_simple(line.data(), line.size(), values), tm4_declined) << shown(line);
    }
    for (const std::string line : {"+1 2 3 4", "1 2 3 4 5 6 7 8 9 10", "1e 2 3 4", "1 inf 2 3", "1 2 3 4,",
                                   "0x10 1 2 3", "1e999 2 3 4", "1e-999 2 3 4", "1.5-2 3 4", "1 2\r3 4"}) {
        EXPECT_EQ(tm4_scan_simple(line.data(), line.size(), values), tm4_declined) << shown(line);
    }
}

TEST(Tm4LineScan, GeneratedPlainLinesAgreeWithSscanf) {
    std::mt19937_64 rng(20240521);
    int accepted = 0, sure = 0, failures = 0;
    const int rounds = 60000;
    for (int round = 0; round < rounds && failures < 20; ++round) {
        bool expected_accepted = false;
        const std::string line = plain_line(rng, expected_accepted);
        bool agreed = false;
        const bool took = check_simple(line, agreed);
        if (expected_accepted) {
            EXPECT_TRUE(took) << shown(line);
            ++sure;
        }
        failures += !agreed || (expected_accepted && !took);
        accepted += took;
    }
    EXPECT_EQ(failures, 0);
    // Lines with exponents or very long numbers may lie outside a double's
    // range and be declined; all others are taken, and there are many of both.
    EXPECT_GT(sure, rounds / 6);
    EXPECT_GT(accepted - sure, rounds / 10);
}

TEST(Tm4LineScan, MutatedLinesAgreeWithSscanf) {
    std::mt19937_64 rng(77);
    int accepted = 0, declined = 0, failures = 0;
    const int rounds = 60000;
    for (int round = 0; round < rounds && failures < 20; ++round) {
        bool expected_accepted = false;
        const std::string line = mutated(rng, plain_line(rng, expected_accepted));
        bool agreed = false;
        if (check_simple(line, agreed))
            ++accepted;
        else
            ++declined;
        failures += !agreed;
        check_line(line);
    }
    EXPECT_EQ(failures, 0);
    // Both ways are exercised.
    EXPECT_GT(accepted, rounds / 10);
    EXPECT_GT(declined, rounds / 10);
}
