// Speed of the number conversions against snprintf, in values per second.
// Disabled by default; run with
//   unit_tests --gtest_also_run_disabled_tests --gtest_filter='*NumberFormatSpeed*'
#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cstdio>
#include <functional>
#include <random>
#include <vector>

#include "number_format.h"

namespace {

constexpr int VALUES = 2000000;

struct Inputs {
    const char* name;
    std::vector<double> values;
};

std::vector<Inputs> make_inputs() {
    std::mt19937_64 rng(11);
    std::uniform_int_distribution<long> counts(-40000, 40000);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    Inputs raw{"raw counts", {}}, times{"times 1.7e9 + k/20", {}}, scaled{"scaled samples", {}};
    double t = 1.7e9;
    for (int i = 0; i < VALUES; ++i) {
        raw.values.push_back(static_cast<double>(counts(rng)));
        times.values.push_back(t);
        t += 1 / 20.0;
        scaled.values.push_back(unit(rng) * 3.7);
    }
    return {raw, times, scaled};
}

double rate(const std::vector<double>& values, const std::function<std::size_t(double)>& one) {
    std::size_t sink = 0;
    auto t0 = std::chrono::steady_clock::now();
    for (double v : values) sink += one(v);
    auto t1 = std::chrono::steady_clock::now();
    EXPECT_GT(sink, 0u);
    return static_cast<double>(values.size()) / std::chrono::duration<double>(t1 - t0).count();
}

void compare(const char* label, const char* fmt, int precision, char* (*mine)(char*, double)) {
    char buf[FIXED6_TEXT_MAX + 64];
    for (const Inputs& in : make_inputs()) {
        double theirs = rate(in.values, [&](double v) {
            int n = precision == INT_MIN ? std::snprintf(buf, sizeof buf, fmt, v)
                                         : std::snprintf(buf, sizeof buf, fmt, precision, v);
            return static_cast<std::size_t>(n);
        });
        double ours = rate(in.values, [&](double v) { return static_cast<std::size_t>(mine(buf, v) - buf); });
        std::printf("%-10s %-20s ours %8.2f M/s  snprintf %8.2f M/s  x%.1f\n", label, in.name, ours / 1e6,
                    theirs / 1e6, ours / theirs);
    }
}

char* fixed4(char* out, double v) { return format_fixed(out, v, 4); }

} // namespace

TEST(NumberFormatSpeed, DISABLED_ValuesPerSecond) {
    compare("%-.*f(4)", "%-.*f", 4, fixed4);
    compare("%f", "%f", INT_MIN, format_f);
    compare("%.0f", "%.0f", INT_MIN, format_f0);
    compare("%12.0f", "%12.0f", INT_MIN, format_f12_0);
    compare("%g", "%g", INT_MIN, format_g);
    compare("trimmed", "%lf", INT_MIN, format_trimmed); // snprintf side without the trimming loop
    {
        char buf[64];
        std::vector<double> dummy(VALUES, 0.0);
        long k = 0;
        double theirs = rate(dummy, [&](double) { return static_cast<std::size_t>(std::snprintf(buf, 64, "%ld", k++)); });
        k = 0;
        double ours = rate(dummy, [&](double) { return static_cast<std::size_t>(format_ld(buf, k++) - buf); });
        std::printf("%-10s %-20s ours %8.2f M/s  snprintf %8.2f M/s  x%.1f\n", "%ld", "0..2e6", ours / 1e6,
                    theirs / 1e6, ours / theirs);
    }
}
