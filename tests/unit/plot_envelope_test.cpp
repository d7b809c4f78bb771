// The traces of the quick-look pictures against a brute-force minimum and
// maximum per pixel column, on random data with single-sample spikes and
// gaps, and the breaks of the line at the gaps.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <random>
#include <utility>
#include <vector>

#include "plot_envelope.h"

namespace {

struct recording {
    series_t time;
    series_t values;
};

// 20 samples per second from `start`, `n` samples, random values with a few
// single-sample spikes, and the samples of every [from, to) index range in
// `holes` left out (a gap in the time axis).
recording random_recording(std::mt19937_64 &rng, double start, std::size_t n,
                           const std::vector<std::pair<std::size_t, std::size_t>> &holes) {
    std::normal_distribution<double> noise(0.0, 100.0);
    std::uniform_int_distribution<std::size_t> where(0, n - 1);
    std::vector<double> spike(n, 0.0);
    for (int k = 0; k < 12; ++k)
        spike[where(rng)] = (k % 2 ? -1 : 1) * 1e6 * (1 + k);
    recording r;
    for (std::size_t i = 0; i < n; ++i) {
        bool left_out = false;
        for (auto [from, to] : holes)
            left_out = left_out || (i >= from && i < to);
        if (left_out) continue;
        r.time.push_back(start + static_cast<double>(i) / 20.0);
        r.values.push_back(std::round(noise(rng)) + spike[i]);
    }
    return r;
}

plot_frame frame_for(const recording &r, int columns) {
    plot_frame f;
    EXPECT_TRUE(window_time_range(r.time, 0, static_cast<long>(r.time.size()), f.t0, f.t1));
    f.columns = columns;
    f.sample_step = 1.0 / 20.0;
    return f;
}

int column_of(double t, const plot_frame &f) {
    const double c = std::floor((t - f.t0) / (f.t1 - f.t0) * f.columns);
    return std::clamp(static_cast<int>(c), 0, f.columns - 1);
}

// The column a drawn point stands for: points sit at column middles.
int column_of_point(double x, const plot_frame &f) {
    const double width = (f.t1 - f.t0) / f.columns;
    return static_cast<int>(std::lround((x - f.t0) / width - 0.5));
}

using extent = std::pair<double, double>;

std::map<int, extent> brute_force(const recording &r, const plot_frame &f, std::size_t begin,
                                  std::size_t end) {
    std::map<int, extent> cols;
    for (std::size_t i = begin; i < end; ++i) {
        const int c = column_of(r.time[i], f);
        auto it = cols.find(c);
        if (it == cols.end())
            cols[c] = {r.values[i], r.values[i]};
        else
            it->second = {std::min(it->second.first, r.values[i]), std::max(it->second.second, r.values[i])};
    }
    return cols;
}

std::map<int, extent> drawn(const plot_trace &trace, const plot_frame &f) {
    std::map<int, extent> cols;
    for (const auto &run : trace)
        for (const plot_point &p : run) {
            const int c = column_of_point(p.t, f);
            auto it = cols.find(c);
            if (it == cols.end())
                cols[c] = {p.y, p.y};
            else
                it->second = {std::min(it->second.first, p.y), std::max(it->second.second, p.y)};
        }
    return cols;
}

TEST(PlotEnvelope, EveryColumnHoldsTheBruteForceMinimumAndMaximum) {
    std::mt19937_64 rng(17);
    for (int round = 0; round < 20; ++round) {
        const std::size_t n = 50000 + static_cast<std::size_t>(rng() % 200000);
        const std::size_t a = n / 5 + rng() % 1000, b = a + 20 + rng() % 20000;
        const std::size_t c = n / 2 + rng() % 1000, d = c + 1 + rng() % 50;
        const recording r =
            random_recording(rng, 1.5e9 + static_cast<double>(rng() % 86400), n, {{a, b}, {c, d}});
        const int columns = 200 + static_cast<int>(rng() % 1400);
        const plot_frame f = frame_for(r, columns);
        const plot_trace trace = envelope_trace(r.time, r.values, 0, static_cast<long>(r.time.size()), f);
        EXPECT_EQ(drawn(trace, f), brute_force(r, f, 0, r.time.size())) << "round " << round;
    }
}

TEST(PlotEnvelope, AWindowInsideTheSeriesUsesOnlyItsSamples) {
    std::mt19937_64 rng(5);
    const recording r = random_recording(rng, 1.5e9, 100000, {});
    const long start = 30000, size = 40000;
    plot_frame f;
    ASSERT_TRUE(window_time_range(r.time, start, size, f.t0, f.t1));
    EXPECT_EQ(f.t0, r.time[start]);
    EXPECT_EQ(f.t1, r.time[start + size - 1]);
    f.columns = 1456;
    f.sample_step = 0.05;
    const plot_trace trace = envelope_trace(r.time, r.values, start, size, f);
    EXPECT_EQ(drawn(trace, f), brute_force(r, f, start, start + size));
}

TEST(PlotEnvelope, ASingleSampleSpikeLiftsItsColumn) {
    std::mt19937_64 rng(3);
    recording r = random_recording(rng, 1.5e9, 1728000, {}); // a day at 20 Hz
    for (double &v : r.values)
        v = std::clamp(v, -400.0, 400.0);
    r.values[1000001] = 90000.0;
    const plot_frame f = frame_for(r, 1456);
    const plot_trace trace = envelope_trace(r.time, r.values, 0, static_cast<long>(r.time.size()), f);
    std::size_t points = 0;
    double top = -1e300;
    for (const auto &run : trace) {
        points += run.size();
        for (const plot_point &p : run)
            top = std::max(top, p.y);
    }
    EXPECT_EQ(top, 90000.0);
    EXPECT_LE(points, 2u * 1456u); // a day becomes at most two points per column
    EXPECT_EQ(trace.size(), 1u);   // and no gap, no break
}

// Every gap wider than a column breaks the line, and no run joins two
// points across such a gap or across an empty column.
TEST(PlotEnvelope, TheLineBreaksAtEveryGapWiderThanAColumn) {
    std::mt19937_64 rng(11);
    for (int round = 0; round < 20; ++round) {
        const std::size_t n = 100000;
        std::vector<std::pair<std::size_t, std::size_t>> holes;
        for (std::size_t k = 1; k <= 4; ++k) {
            const std::size_t from = k * 20000 + rng() % 1000;
            holes.push_back({from, from + 1 + rng() % 3000});
        }
        const recording r = random_recording(rng, 1.5e9, n, holes);
        const plot_frame f = frame_for(r, 1456);
        const double width = (f.t1 - f.t0) / f.columns;
        const plot_trace trace = envelope_trace(r.time, r.values, 0, static_cast<long>(r.time.size()), f);

        std::size_t wide_gaps = 0;
        for (std::size_t i = 1; i < r.time.size(); ++i)
            if (r.time[i] - r.time[i - 1] > width) ++wide_gaps;
        for (const auto &run : trace)
            for (std::size_t k = 1; k < run.size(); ++k)
                EXPECT_LE(column_of_point(run[k].t, f) - column_of_point(run[k - 1].t, f), 1)
                    << "round " << round;
        // Each wide gap separates two runs; narrower gaps may or may not.
        EXPECT_GE(trace.size(), wide_gaps + 1) << "round " << round;
        EXPECT_LE(trace.size(), holes.size() + 1) << "round " << round;
    }
}

TEST(PlotEnvelope, FewSamplesAreDrawnThemselvesWithBreaksAtGaps) {
    series_t time, values;
    for (int i = 0; i < 50; ++i) {
        time.push_back(1e9 + i * 0.5 + (i >= 30 ? 4.0 : 0.0)); // 2 per second, a 4 s gap after the 30th
        values.push_back(i);
    }
    plot_frame f;
    ASSERT_TRUE(window_time_range(time, 0, 50, f.t0, f.t1));
    f.columns = 1456;
    f.sample_step = 0.5;
    const plot_trace trace = envelope_trace(time, values, 0, 50, f);
    ASSERT_EQ(trace.size(), 2u);
    ASSERT_EQ(trace[0].size(), 30u);
    ASSERT_EQ(trace[1].size(), 20u);
    EXPECT_EQ(trace[0][29].t, time[29]);
    EXPECT_EQ(trace[1][0].t, time[30]);
    EXPECT_EQ(trace[1][0].y, 30.0);
}

TEST(PlotEnvelope, ShortSeriesNonFiniteValuesAndOddWindowsAreSafe) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    series_t time = {1.0, 2.0, nan, 4.0, 5.0};
    series_t values = {1.0, nan, 3.0, 4.0};
    plot_frame f;
    ASSERT_TRUE(window_time_range(time, 0, 5, f.t0, f.t1));
    EXPECT_EQ(f.t0, 1.0);
    EXPECT_EQ(f.t1, 5.0);
    f.columns = 10;
    f.sample_step = 1.0;
    const plot_trace trace = envelope_trace(time, values, 0, 100, f); // values hold 4 only
    ASSERT_EQ(trace.size(), 2u);                                      // 1 and 4: 3 s apart, a break
    EXPECT_EQ(trace[0].size(), 1u);
    EXPECT_EQ(trace[1][0].t, 4.0);
    EXPECT_TRUE(envelope_trace(time, values, -3, 5, f).empty());
    EXPECT_TRUE(envelope_trace(time, values, 7, 5, f).empty());
    EXPECT_TRUE(envelope_trace(time, {}, 0, 5, f).empty());
    double a = 0, b = 0;
    EXPECT_FALSE(window_time_range(time, 9, 5, a, b));
    EXPECT_FALSE(window_time_range({nan, nan}, 0, 2, a, b));
}

} // namespace
