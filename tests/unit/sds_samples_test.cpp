// The merge rules of SDS archive channels: same samples kept once at the
// earlier time, conflicts found (also against a recording's own samples),
// days cut at midnight, one encoding per day file, runs of records.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "sds_paths.h"
#include "sds_samples.h"

namespace {

constexpr int64_t SECOND = 1000000;

struct fixture {
    facts_table facts;
    uint32_t at20 = facts.id_of({20.0, 10.0, 1.0});
    uint32_t at20_gain2 = facts.id_of({20.0, 10.0, 2.0});
    uint32_t at18 = facts.id_of({18.0, 10.0, 1.0});

    // n samples at `rate_facts` from t0 (microseconds), value base + i.
    sample_list run(int64_t t0, int n, double base, uint32_t f, double rate = 20.0) const {
        sample_list s;
        for (int i = 0; i < n; ++i)
            s.push_back({t0 + std::llround(i * 1e6 / rate), base + i, f, 0});
        return s;
    }
};

} // namespace

TEST(SdsSamples, SameSampleNeedsEqualBitsRateAndFactors) {
    fixture f;
    const sds_sample a{0, 5.0, f.at20, 0};
    EXPECT_TRUE(same_sample(f.facts, a, {24999, 5.0, f.at20, 0}));
    EXPECT_FALSE(same_sample(f.facts, a, {25000, 5.0, f.at20, 0})); // half an interval apart is not closer
    EXPECT_FALSE(same_sample(f.facts, a, {10, 6.0, f.at20, 0}));
    EXPECT_FALSE(same_sample(f.facts, a, {10, 5.0, f.at20_gain2, 0}));
    EXPECT_FALSE(same_sample(f.facts, a, {10, 5.0, f.at18, 0}));
    // 0.0 and -0.0 compare equal as numbers but are not the same bits.
    EXPECT_FALSE(same_sample(f.facts, {0, 0.0, f.at20, 0}, {0, -0.0, f.at20, 0}));
}

TEST(SdsSamples, UnknownFactorsEqualNoKnownOnes) {
    facts_table facts;
    const double unknown = std::numeric_limits<double>::quiet_NaN();
    const uint32_t known = facts.id_of({20.0, 10.0, 1.0});
    const uint32_t lost = facts.id_of({20.0, unknown, unknown});
    EXPECT_NE(known, lost);
    EXPECT_FALSE(same_sample(facts, {0, 1.0, known, 0}, {0, 1.0, lost, 0}));
}

TEST(SdsSamples, DifferentRatesUseTheLongerInterval) {
    fixture f;
    // 18 Hz: half an interval is 27778 us; 20 Hz: 25000 us.
    EXPECT_TRUE(too_close(f.facts, {0, 1.0, f.at20, 0}, {26000, 1.0, f.at18, 0}));
    EXPECT_FALSE(too_close(f.facts, {0, 1.0, f.at20, 0}, {26000, 1.0, f.at20, 0}));
}

TEST(SdsSamples, IdenticalCopyAddsNothing) {
    fixture f;
    sample_list tree = f.run(0, 100, 0.0, f.at20);
    const sample_list copy = tree;
    EXPECT_FALSE(find_conflict(f.facts, tree, copy));
    EXPECT_FALSE(merge_samples(f.facts, tree, {}, copy));
    EXPECT_EQ(tree.size(), 100u);
}

TEST(SdsSamples, OverlapWithSameSamplesKeepsOneAtTheEarlierTime) {
    fixture f;
    sample_list tree = f.run(0, 100, 0.0, f.at20);
    // The last 20 samples again, 3 us earlier, then 30 new ones.
    sample_list more = f.run(80 * 50000 - 3, 50, 80.0, f.at20);
    EXPECT_FALSE(find_conflict(f.facts, tree, more));
    std::vector<uint64_t> added;
    EXPECT_TRUE(merge_samples(f.facts, tree, {}, more, &added));
    ASSERT_EQ(tree.size(), 130u);
    EXPECT_EQ(added.at(0), 30u);
    EXPECT_EQ(tree[80].t, 80 * 50000 - 3);
    EXPECT_EQ(tree[79].t, 79 * 50000);
    for (std::size_t i = 1; i < tree.size(); ++i) EXPECT_LT(tree[i - 1].t, tree[i].t);
}

TEST(SdsSamples, OverlapWithOtherValuesConflictsOverItsSpan) {
    fixture f;
    const sample_list tree = f.run(0, 100, 0.0, f.at20);
    const sample_list other = f.run(80 * 50000, 50, 1000.0, f.at20);
    const auto span = find_conflict(f.facts, tree, other);
    ASSERT_TRUE(span);
    EXPECT_EQ(span->first, 80 * 50000);
    EXPECT_EQ(span->last, 99 * 50000);
}

TEST(SdsSamples, GainChangeMakesOtherwiseEqualSamplesConflict) {
    fixture f;
    const sample_list tree = f.run(0, 10, 0.0, f.at20);
    const sample_list regained = f.run(0, 10, 0.0, f.at20_gain2);
    EXPECT_TRUE(find_conflict(f.facts, tree, regained));
}

TEST(SdsSamples, GapIsNoConflict) {
    fixture f;
    const sample_list tree = f.run(0, 100, 0.0, f.at20);
    const sample_list later = f.run(100 * 50000 + 30 * SECOND, 100, 0.0, f.at20);
    EXPECT_FALSE(find_conflict(f.facts, tree, later));
    sample_list merged = tree;
    merge_samples(f.facts, merged, {}, later);
    EXPECT_EQ(count_gaps(f.facts, merged), 1u);
    EXPECT_EQ(day_runs(f.facts, merged).size(), 2u);
}

TEST(SdsSamples, SelfConflictFindsOwnSamplesTooClose) {
    fixture f;
    sample_list own = f.run(0, 10, 0.0, f.at20);
    EXPECT_FALSE(self_conflict(f.facts, own));
    sample_list again = f.run(5 * 50000 + 10, 10, 0.0, f.at20); // overlapping itself, even with equal values
    own.insert(own.end(), again.begin(), again.end());
    sort_samples(own);
    const auto span = self_conflict(f.facts, own);
    ASSERT_TRUE(span);
    EXPECT_EQ(span->first, 5 * 50000);
    EXPECT_EQ(span->last, 9 * 50000 + 10);
}

TEST(SdsSamples, DropRepeatsKeepsTheEarliest) {
    fixture f;
    sample_list s = f.run(0, 5, 0.0, f.at20);
    sample_list t = f.run(-7, 5, 0.0, f.at20);
    for (sds_sample &x : t) x.origin = 1; // another recording's
    s.insert(s.end(), t.begin(), t.end());
    sort_samples(s);
    drop_repeats(f.facts, s);
    ASSERT_EQ(s.size(), 5u);
    EXPECT_EQ(s[0].t, -7);
    EXPECT_EQ(s[4].t, 4 * 50000 - 7);
}

TEST(SdsSamples, SampleInTheNeighbouringDayIsNotAddedAgain) {
    fixture f;
    const int64_t midnight = day_start_us(17000);
    // The other day file already holds the sample 10 us before midnight.
    const sample_list context = {{midnight - 10, 7.0, f.at20, 0}};
    sample_list today;
    const sample_list incoming = {{midnight + 5, 7.0, f.at20, 0}, {midnight + 50005, 8.0, f.at20, 0}};
    EXPECT_TRUE(merge_samples(f.facts, today, context, incoming));
    ASSERT_EQ(today.size(), 1u);
    EXPECT_EQ(today[0].value, 8.0);
}

TEST(SdsSamples, DaysAreCutAtMidnightUtc) {
    EXPECT_EQ(day_of(0), 0);
    EXPECT_EQ(day_of(86400 * SECOND - 1), 0);
    EXPECT_EQ(day_of(86400 * SECOND), 1);
    EXPECT_EQ(day_of(-1), -1);
    // 2016-12-31 is day 366 of a leap year; the next day is 2017's first.
    const int64_t last_of_2016 = 1483142400LL / 86400;
    const channel_codes codes{"XX", "RAA1", "", "BDF"};
    EXPECT_EQ(day_file_path(codes, last_of_2016), "2016/XX/RAA1/BDF.D/XX.RAA1..BDF.D.2016.366");
    EXPECT_EQ(day_file_path(codes, last_of_2016 + 1), "2017/XX/RAA1/BDF.D/XX.RAA1..BDF.D.2017.001");
    EXPECT_EQ(day_file_path_of_name("XX.RAA1..BDF.D.2016.126"), "2016/XX/RAA1/BDF.D/XX.RAA1..BDF.D.2016.126");
    EXPECT_EQ(day_file_path_of_name("XX.RAA1.BDF.D.2016.126"), "");
    EXPECT_EQ(iso_time_ms(1462400992 * SECOND), "2016-05-04T22:29:52.000Z");
    EXPECT_EQ(iso_time_ms(-1), "1969-12-31T23:59:59.999Z");
}

TEST(SdsSamples, OneEncodingPerDay) {
    fixture f;
    sample_list s = f.run(0, 10, 0.0, f.at20);
    EXPECT_EQ(day_encoding(s), mseed_encoding::STEIM2);
    s[5].value = 600000000.0; // a difference of more than 30 bits
    EXPECT_EQ(day_encoding(s), mseed_encoding::INT32);
    s[2].value = 0.5;
    EXPECT_EQ(day_encoding(s), mseed_encoding::FLOAT64);
    s[2].value = 3e9; // an integer beyond 32 bits
    EXPECT_EQ(day_encoding(s), mseed_encoding::FLOAT64);
}

TEST(SdsSamples, RunsBreakAtRateAndFactorChanges) {
    fixture f;
    sample_list s = f.run(0, 10, 0.0, f.at20);
    sample_list g = f.run(10 * 50000, 10, 10.0, f.at20_gain2);
    sample_list r = f.run(20 * 50000, 10, 20.0, f.at18, 18.0);
    s.insert(s.end(), g.begin(), g.end());
    s.insert(s.end(), r.begin(), r.end());
    const auto runs = day_runs(f.facts, s);
    ASSERT_EQ(runs.size(), 3u);
    EXPECT_EQ(runs[0], std::make_pair(std::size_t{0}, std::size_t{10}));
    EXPECT_EQ(runs[1], std::make_pair(std::size_t{10}, std::size_t{20}));
    EXPECT_EQ(runs[2], std::make_pair(std::size_t{20}, std::size_t{30}));
}

TEST(SdsSamples, MergeOrderDoesNotMatter) {
    fixture f;
    const sample_list a = f.run(0, 100, 0.0, f.at20);
    const sample_list b = f.run(60 * 50000 - 2, 100, 60.0, f.at20);
    sample_list ab, ba;
    merge_samples(f.facts, ab, {}, a);
    merge_samples(f.facts, ab, {}, b);
    merge_samples(f.facts, ba, {}, b);
    merge_samples(f.facts, ba, {}, a);
    ASSERT_EQ(ab.size(), ba.size());
    for (std::size_t i = 0; i < ab.size(); ++i) {
        EXPECT_EQ(ab[i].t, ba[i].t);
        EXPECT_EQ(ab[i].value, ba[i].value);
    }
}
