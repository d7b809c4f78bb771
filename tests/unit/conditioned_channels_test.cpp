// Resampling and filtering left to the rows as they are written, against the
// chain's steps over whole series: the same values bit for bit in stretches
// cut anywhere, the same times, the same shared filter state afterwards, the
// same words; and the four-column conversion that defers them writes the
// very bytes and messages of the one that conditions whole series first.
#include <gtest/gtest.h>

#include <cstring>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "child_process.h"
#include "same_with_plot.h"
#include "conditioned_channels.h"
#include "conditioning.h"
#include "conditioning_steps.h"
#include "filter.h"
#include "fixture_registry.h"
#include "fresh_run_test.h"
#include "series.h"
#include "settings.h"
#include "temp_dir.h"
#include "vx24_fixture.h"
#include "vxfil/vx24_frames.h"

namespace {

namespace fs = std::filesystem;

bool same_bits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

std::vector<series_t> random_channels(std::size_t channels, std::size_t n, std::mt19937_64 &rng) {
    std::uniform_real_distribution<double> value(-30000.0, 30000.0);
    std::vector<series_t> all(channels, series_t(n));
    for (series_t &s : all)
        for (double &v : s)
            v = value(rng);
    return all;
}

// The chain's own steps over whole series: resampled, filtered (each channel
// after Initialize, as filter_series does), filled up after the last pair.
std::vector<series_t> whole_series(std::vector<series_t> channels, long up, bool filtered) {
    const std::size_t n = channels.front().size();
    for (series_t &s : channels) {
        const double last = s.back();
        if (up != 0) s = resample_series(s, up);
        if (filtered) filter_series(s);
        if (up != 0) extend_series(s, last, static_cast<long>(n) * up);
    }
    return channels;
}

// Cuts [0, rows) at random places, short stretches and long, the first ones
// inside the filter's history.
std::vector<std::size_t> random_cuts(std::size_t rows, std::mt19937_64 &rng) {
    std::vector<std::size_t> cuts{0};
    while (cuts.back() < rows) {
        const std::size_t step = rng() % 3 == 0 ? 1 + rng() % 7 : 1 + rng() % 400;
        cuts.push_back(std::min(rows, cuts.back() + step));
    }
    return cuts;
}

class ConditionedChannelsTest : public FreshRunTest {};

} // namespace

TEST_F(ConditionedChannelsTest, StretchesAreTheWholeSeriesValues) {
    std::mt19937_64 rng(31);
    for (long up : {0L, 1L, 2L, 3L, 4L, 7L, 130L}) {
        for (bool filtered : {false, true}) {
            if (up == 0 && !filtered) continue;
            for (std::size_t n : {2u, 3u, 50u, 129u, 130u, 1000u}) {
                const std::vector<series_t> inputs = random_channels(2, n, rng);
                const std::vector<series_t> whole = whole_series(inputs, up, filtered);
                const ConditionedChannels deferred(inputs, up, filtered);
                ASSERT_EQ(deferred.channels(), 2u);
                ASSERT_EQ(deferred.rows(), whole.front().size()) << up << " " << n;
                const std::vector<std::size_t> cuts = random_cuts(deferred.rows(), rng);
                for (std::size_t p = 0; p + 1 < cuts.size(); ++p) {
                    const std::size_t count = cuts[p + 1] - cuts[p];
                    std::vector<double> got(2 * count);
                    deferred.fill(cuts[p], count, got.data());
                    for (std::size_t c = 0; c < 2; ++c)
                        for (std::size_t k = 0; k < count; ++k)
                            ASSERT_TRUE(same_bits(got[c * count + k], whole[c][cuts[p] + k]))
                                << "up " << up << " filtered " << filtered << " n " << n << " row " << cuts[p] + k;
                }
            }
        }
    }
}

// The shared filter leaves its write index where whole passes leave it, and
// its next outputs are the same.
TEST_F(ConditionedChannelsTest, FilterStateIsLeftAsWholePassesLeaveIt) {
    std::mt19937_64 rng(32);
    for (std::size_t n : {2u, 40u, 129u, 5000u}) {
        const std::vector<series_t> inputs = random_channels(3, n, rng);
        auto state_after = [&](bool whole) {
            reset_filter_state_for_tests();
            for (int i = 0; i < 37; ++i)
                Filter(i); // a write index that is not at its start
            if (whole)
                whole_series(inputs, 4, true);
            else
                ConditionedChannels(inputs, 4, true).leave_filter_state();
            std::vector<double> next{static_cast<double>(filter_index_for_tests())};
            for (int i = 0; i < 200; ++i)
                next.push_back(Filter(i * 0.5));
            return next;
        };
        const std::vector<double> a = state_after(true), b = state_after(false);
        ASSERT_EQ(a.size(), b.size());
        for (std::size_t k = 0; k < a.size(); ++k)
            EXPECT_TRUE(same_bits(a[k], b[k])) << n << " " << k;
    }
}

// The chain deferred says the same words, sets the same sample count and
// gives the very times and values of the chain over whole series; series it
// cannot defer (channels of other lengths, a single sample, a huge factor)
// are conditioned whole.
TEST_F(ConditionedChannelsTest, DeferredChainIsTheWholeChain) {
    std::mt19937_64 rng(33);
    std::uniform_real_distribution<double> jitter(0.0, 0.01);
    for (long up : {0L, 1L, 4L, 5L}) {
        for (int filter : {0, 1}) {
            if (up == 0 && filter == 0) continue;
            const std::size_t n = 3000;
            const std::vector<series_t> inputs = random_channels(3, n, rng);
            series_t times;
            for (std::size_t k = 0; k < n; ++k)
                times.push_back(1.6e9 + static_cast<double>(k) * 0.05 + jitter(rng));
            auto run = [&](bool may_defer, std::string &words) {
                reset_all();
                data = inputs;
                time_array = times;
                samples = static_cast<long>(n);
                upsample = up;
                need_filter = filter;
                remove_offset = 1;
                ::testing::internal::CaptureStdout();
                std::optional<deferred_conditioning> d = condition_series(may_defer);
                words = ::testing::internal::GetCapturedStdout();
                return d;
            };
            std::string whole_words, deferred_words;
            ASSERT_FALSE(run(false, whole_words).has_value());
            const std::vector<series_t> whole_values = data;
            const series_t whole_times = time_array;
            const long whole_samples = samples;
            const std::optional<deferred_conditioning> d = run(true, deferred_words);
            ASSERT_TRUE(d.has_value()) << up;
            EXPECT_EQ(deferred_words, whole_words);
            EXPECT_EQ(samples, whole_samples);
            ASSERT_EQ(d->times.size(), whole_times.size());
            EXPECT_EQ(d->times.in_series(), up == 0);
            for (std::size_t k = 0; k < whole_times.size(); ++k)
                ASSERT_TRUE(same_bits(d->times[k], whole_times[k])) << up << " time " << k;
            ASSERT_EQ(d->channels->rows(), whole_times.size());
            const std::size_t rows = d->channels->rows();
            std::vector<double> got(3 * rows);
            d->channels->fill(0, rows, got.data());
            for (std::size_t c = 0; c < 3; ++c)
                for (std::size_t k = 0; k < rows; ++k)
                    ASSERT_TRUE(same_bits(got[c * rows + k], whole_values[c][k]))
                        << up << " channel " << c << " row " << k;
        }
    }

    // Not deferred: these are conditioned whole, as before.
    auto deferred_for = [&](std::vector<series_t> channels, std::size_t times, long up) {
        reset_all();
        quiet = 1;
        data = std::move(channels);
        for (std::size_t k = 0; k < times; ++k)
            time_array.push_back(1.6e9 + static_cast<double>(k));
        samples = static_cast<long>(times);
        upsample = up;
        need_filter = 1;
        return condition_series(true).has_value();
    };
    EXPECT_TRUE(deferred_for({{1, 2, 3}, {4, 5, 6}}, 3, 4));
    EXPECT_FALSE(deferred_for({{1, 2, 3}, {4, 5}}, 3, 4));
    EXPECT_FALSE(deferred_for({{1, 2, 3}, {}}, 3, 4));
    EXPECT_FALSE(deferred_for({{1}}, 1, 4));
    EXPECT_FALSE(deferred_for({{1, 2}}, 2, 65537));
    EXPECT_TRUE(deferred_for({{1, 2}}, 2, 65536));
    EXPECT_FALSE(deferred_for({}, 2, 4));
}

// The frames of a vx24 file read in place, each count taken through the
// offset and scale, give the values of the series that hold those counts
// with the offset removed and the scale applied.
TEST_F(ConditionedChannelsTest, FramesInPlaceAreTheSeriesOfTheirCounts) {
    temp_dir d;
    std::mt19937_64 rng(34);
    for (int round = 0; round < 12; ++round) {
        fixtures::vx24_params p;
        p.channels = 1 + static_cast<int>(rng() % 4);
        p.samples = 2 + rng() % 3000;
        p.wave.wave = "noise";
        const std::string path = d.file("r.vx24").string();
        fixtures::write_file(path, fixtures::make_vx24(p));
        auto frames = std::make_shared<const VxFil::vx24_frames>(path.c_str());
        const std::size_t n = static_cast<std::size_t>(frames->frames()), channels = frames->channels();
        std::vector<std::int32_t> counts(n * channels);
        frames->read(0, n, counts.data());
        count_steps steps;
        if (round % 2 == 0)
            for (std::size_t c = 0; c < channels; ++c)
                steps.means.push_back(static_cast<double>(rng() % 20001) / 7.0 - 1000.0);
        steps.factor = round % 3 == 0 ? 1.0 : static_cast<double>(1 + rng() % 64);
        std::vector<series_t> series(channels);
        for (std::size_t c = 0; c < channels; ++c)
            for (std::size_t k = 0; k < n; ++k) {
                double v = counts[k * channels + c];
                if (!steps.means.empty()) v -= steps.means[c];
                if (steps.factor != 1.0) v *= steps.factor;
                series[c].push_back(v);
            }
        const long up = static_cast<long>(rng() % 6);
        const bool filtered = rng() % 2 == 0;
        const ConditionedChannels from_series(series, up, filtered);
        const ConditionedChannels from_frames(frames, steps, up, filtered);
        ASSERT_EQ(from_frames.rows(), from_series.rows());
        ASSERT_EQ(from_frames.channels(), channels);
        const std::vector<std::size_t> cuts = random_cuts(from_series.rows(), rng);
        for (std::size_t q = 0; q + 1 < cuts.size(); ++q) {
            const std::size_t count = cuts[q + 1] - cuts[q];
            std::vector<double> a(channels * count), b(channels * count);
            from_series.fill(cuts[q], count, a.data());
            from_frames.fill(cuts[q], count, b.data());
            for (std::size_t k = 0; k < a.size(); ++k)
                ASSERT_TRUE(same_bits(a[k], b[k])) << "round " << round << " stretch at " << cuts[q];
        }
    }
}

// The four-column conversion defers the steps (a single vx24 file reading
// its frames in place); with --plot the run draws whole series and
// conditions them whole first. Both write the same bytes and say the same,
// over windows that cut the blocks of rows formatted together at odd places,
// snippets, every time unit, offset removal and scales, text recordings
// appended, and the files and factors that are never deferred (channels of
// unequal length, a single frame, factors out of range or over 65,536).
TEST(ConditionedChannelsRun, DeferredRowsAreTheRowsOfTheWholeChain) {
    temp_dir d;
    fixtures::vx24_params day;
    day.channels = 3;
    day.rate = 20.0;
    day.samples = 41001;
    day.wave.wave = "noise";
    fixtures::write_file(d.file("day.vx24").string(), fixtures::make_vx24(day));
    fixtures::vx24_params odd = day;
    odd.samples = 3001;
    odd.extra_values = 2; // the first two channels one sample longer
    fixtures::write_file(d.file("odd.vx24").string(), fixtures::make_vx24(odd));
    std::string a, b;
    for (int k = 0; k < 400; ++k) {
        const std::string t = std::to_string(1500000000 + k) + "." + (k % 2 ? "05" : "00");
        a += t + " " + std::to_string(k * 3 % 101) + " " + std::to_string(-k) + " 7\n";
        b += std::to_string(1500000400 + k) + ".00 " + std::to_string(k % 13) + " 1 " + std::to_string(k) + "\n";
    }
    fixtures::vx24_params one = day;
    one.samples = 1;
    fixtures::write_file(d.file("one.vx24").string(), fixtures::make_vx24(one));
    fixtures::write_file(d.file("a.tm4").string(), a);
    fixtures::write_file(d.file("b.tm4").string(), b);
    const std::vector<std::vector<std::string>> cases = {
        {"-u", "4", "-f", "day.vx24"},
        {"-f", "day.vx24"},
        {"-u", "1", "day.vx24"},
        {"-u", "3", "-o", "-z", "0", "day.vx24"},
        {"-u", "4", "-f", "-l", "33333", "-n", "3", "day.vx24"},
        {"-u", "2", "-f", "-c", "-s", "00:10:07", "-l", "20001", "day.vx24"},
        {"-u", "4", "-f", "--sample-times", "day.vx24"},
        {"-u", "4", "-f", "--minutes-in-day", "day.vx24"},
        {"-u", "5", "--seconds-in-day", "-f", "day.vx24"},
        {"-u", "4", "-f", "--no-time", "-l", "40000", "day.vx24"},
        {"-u", "4", "-f", "--debug", "-n", "2", "-l", "30000", "day.vx24"},
        {"-u", "4", "-f", "--minutes", "-c", "-s", "00:11", "-l", "5000", "day.vx24"},
        {"-u", "4", "-f", "-c", "a.tm4", "b.tm4"},
        {"-u", "4", "-f", "odd.vx24"},
        {"-o", "odd.vx24"},
        {"-o", "day.vx24"},
        {"-z", "0", "day.vx24"},
        {"-z", "3", "-u", "2", "-l", "30000", "day.vx24"},
        {"-o", "-z", "0", "-f", "--minutes", "day.vx24"},
        {"-u", "4", "-f", "one.vx24"},
        {"-u", "65536", "day.vx24"},
        {"-u", "-3", "-f", "day.vx24"},
        {"-u", "65537", "-l", "100", "day.vx24"},
    };
    expect_same_as_with_plot(d.path, cases, false);
}
