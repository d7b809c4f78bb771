// Gaps, overlaps and changes of settings of a channel, from its stretches.
#include <gtest/gtest.h>

#include "channel_gaps.h"

using namespace report;

namespace {

constexpr int64_t S = 1000000; // one second in microseconds

channel_data channel_of(std::vector<stretch> stretches) {
    channel_data c;
    c.codes = {"XX", "REA1", "", "BDF"};
    c.stretches = std::move(stretches);
    return c;
}

} // namespace

TEST(ReportGaps, BreaksLongerThanOneAndAHalfIntervals) {
    // 20 Hz: an interval of 50 ms. 75 ms between samples is no gap, 75.001 ms is.
    const channel_findings f = examine_channel(channel_of({
        {0, 10 * S, 20.0},
        {10 * S + 75000, 20 * S, 20.0},
        {20 * S + 75001, 30 * S, 20.0},
        {38 * S, 40 * S, 20.0},
    }));
    EXPECT_EQ(f.gaps, (std::vector<gap>{{20 * S, 20 * S + 75001}, {30 * S, 38 * S}}));
    ASSERT_EQ(f.covered.size(), 3u);
    EXPECT_EQ(f.covered[0].first, 0);
    EXPECT_EQ(f.covered[0].last, 20 * S);
    EXPECT_TRUE(f.overlaps.empty());
}

TEST(ReportGaps, StretchesInAnyOrder) {
    const channel_findings f = examine_channel(channel_of({
        {1800 * S, 3591 * S, 20.0},
        {0, 1791 * S + 950000, 20.0},
    }));
    // The last sample before the 8 s gap and the first after it.
    EXPECT_EQ(f.gaps, (std::vector<gap>{{1791 * S + 950000, 1800 * S}}));
}

TEST(ReportGaps, TheLowerRateDecides) {
    // 1 Hz beside 100 Hz: 1.2 s is no gap at the interval of 1 s.
    const channel_findings f = examine_channel(channel_of({{0, 10 * S, 100.0}, {11200000, 20 * S, 1.0}}));
    EXPECT_TRUE(f.gaps.empty());
    const channel_findings g = examine_channel(channel_of({{0, 10 * S, 100.0}, {11600000, 20 * S, 1.0}}));
    EXPECT_EQ(g.gaps.size(), 1u);
}

TEST(ReportGaps, OverlapsOfRecordingsHeldTwice) {
    // The same half hour twice, and a stretch that starts inside another.
    const channel_findings f = examine_channel(channel_of({
        {0, 100 * S, 20.0},
        {0, 100 * S, 20.0},
        {90 * S, 200 * S, 20.0},
        {300 * S, 400 * S, 20.0},
    }));
    EXPECT_EQ(f.overlaps, (std::vector<overlap>{{0, 100 * S}}));
    EXPECT_EQ(f.gaps, (std::vector<gap>{{200 * S, 300 * S}}));
    // A sample within half an interval of the last one stands for the same instant.
    const channel_findings g = examine_channel(channel_of({{0, 100 * S, 20.0}, {100 * S + 20000, 200 * S, 20.0}}));
    EXPECT_EQ(g.overlaps, (std::vector<overlap>{{100 * S + 20000, 100 * S}}));
    EXPECT_TRUE(g.gaps.empty());
}

TEST(ReportGaps, RateAndGainChangesWithTheirTimes) {
    channel_data c = channel_of({});
    c.settings = {
        {3600 * S, 20.0, 2.0, 10.0, "c.vx24"},
        {0, 20.0, 1.0, 10.0, "a.vx24"},
        {1800 * S, 20.0, 1.0, 10.0, "b.vx24"},
        {5400 * S, 40.0, 2.0, 10.0, "d.vx24"},
        {7200 * S, 40.0, 2.0, 10.0, "e.vx24"},
    };
    const channel_findings f = examine_channel(c);
    ASSERT_EQ(f.changes.size(), 2u);
    EXPECT_EQ(f.changes[0].before.recording, "b.vx24");
    EXPECT_EQ(f.changes[0].after.recording, "c.vx24");
    EXPECT_EQ(f.changes[0].after.time, 3600 * S);
    EXPECT_EQ(f.changes[1].after.recording, "d.vx24");
    EXPECT_EQ(f.changes[1].after.rate, 40.0);
}

TEST(ReportGaps, UnknownGainsAreTheSame) {
    channel_data c = channel_of({});
    const double unknown = std::numeric_limits<double>::quiet_NaN();
    c.settings = {{0, 20.0, unknown, 10.0, "a"}, {S, 20.0, unknown, 10.0, "b"}};
    EXPECT_TRUE(examine_channel(c).changes.empty());
}

TEST(ReportGaps, IntervalOfOddRates) {
    EXPECT_EQ(interval_us(20.0), 50000);
    EXPECT_EQ(interval_us(0.0), 1000000);
    EXPECT_EQ(interval_us(-5.0), 1000000);
    EXPECT_EQ(interval_us(std::numeric_limits<double>::quiet_NaN()), 1000000);
    EXPECT_EQ(interval_us(std::numeric_limits<double>::infinity()), 1000000);
    EXPECT_EQ(interval_us(1e12), 1);
}
