#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include "conditioning.h"
#include "conditioning_steps.h"
#include "fresh_run_test.h"
#include "filter.h"
#include "series.h"
#include "settings.h"

namespace {

class ConditioningTest : public FreshRunTest {
protected:
    // Installs channel series and a time axis of 1 s steps from t0.
    static void load(const std::vector<series_t>& channels, long count, double t0 = 1.6e9) {
        data = channels;
        time_array.clear();
        for (long i = 0; i < count; ++i) {
            time_array.push_back(t0 + static_cast<double>(i));
        }
        samples = count;
    }

    // Runs the chain and returns what it printed on standard output.
    static std::string run_chain() {
        ::testing::internal::CaptureStdout();
        condition_series();
        return ::testing::internal::GetCapturedStdout();
    }
};

series_t ramp(int n, double first, double step) {
    series_t v;
    for (int i = 0; i < n; ++i) {
        v.push_back(first + step * i);
    }
    return v;
}

} // namespace

// ---- offset removal -------------------------------------------------------

TEST_F(ConditioningTest, OffsetOfOneSampleMakesItZero) {
    series_t v{12345.0};
    remove_series_offset(v);
    ASSERT_EQ(v.size(), 1u);
    EXPECT_EQ(v[0], 0.0);
}

TEST_F(ConditioningTest, OffsetSubtractsTheMean) {
    series_t v{1.0, 2.0, 3.0, 6.0};
    remove_series_offset(v);
    EXPECT_EQ(v, (series_t{-2.0, -1.0, 0.0, 3.0}));
}

TEST_F(ConditioningTest, OffsetLeavesEmptySeriesAlone) {
    series_t v;
    remove_series_offset(v);
    EXPECT_TRUE(v.empty());
}

TEST_F(ConditioningTest, ChainRemovesOffsetOnlyWhenAsked) {
    load({{10.0, 20.0, 30.0}}, 3);
    quiet = 1;
    run_chain();
    EXPECT_EQ(global_scale, 1); // the default leaves the values unscaled
    EXPECT_EQ(data[0], (series_t{10.0, 20.0, 30.0}));

    reset_all();
    load({{10.0, 20.0, 30.0}, {5.0}, {}}, 3);
    quiet = 1;
    remove_offset = 1;
    global_scale = 1;
    run_chain();
    EXPECT_EQ(data[0], (series_t{-10.0, 0.0, 10.0}));
    EXPECT_EQ(data[1], (series_t{0.0}));
    EXPECT_TRUE(data[2].empty());
}

// ---- max and automatic scale ----------------------------------------------

TEST_F(ConditioningTest, MaxIsSignedAndAtLeastZero) {
    EXPECT_EQ(max_over_series({}), 0.0);
    EXPECT_EQ(max_over_series({{-5.0, -3.0}}), 0.0);
    EXPECT_EQ(max_over_series({{-5.0, 300.0, -7000.0}, {}, {12.0}}), 300.0);
    EXPECT_EQ(max_over_series({{1.0, 2.0}, {-9.0, 40000.0}}), 40000.0);
}

TEST_F(ConditioningTest, ScaleLadder) {
    EXPECT_EQ(choose_scale(1e9), 1);
    EXPECT_EQ(choose_scale(16384.0), 1);
    EXPECT_EQ(choose_scale(16383.5), 2);
    EXPECT_EQ(choose_scale(8192.0), 2);
    EXPECT_EQ(choose_scale(8191.0), 4);
    EXPECT_EQ(choose_scale(4096.0), 4);
    EXPECT_EQ(choose_scale(2048.0), 8);
    EXPECT_EQ(choose_scale(1024.0), 16);
    EXPECT_EQ(choose_scale(512.0), 32);
    EXPECT_EQ(choose_scale(300.0), 64);
    EXPECT_EQ(choose_scale(256.0), 64);
    EXPECT_EQ(choose_scale(255.9), 128);
    EXPECT_EQ(choose_scale(0.0), 128);
}

TEST_F(ConditioningTest, LargeValuesKeepScaleOneAndAreNotMultiplied) {
    load({{16384.0, 20000.0, 30000.5}}, 3);
    global_scale = 0;
    const std::string out = run_chain();
    EXPECT_EQ(global_scale, 1);
    EXPECT_EQ(data[0], (series_t{16384.0, 20000.0, 30000.5}));
    EXPECT_EQ(out, "Finding max...done\n");
}

TEST_F(ConditioningTest, MaxThreeHundredGetsScaleSixtyFour) {
    load({{-1000.0, 300.0, 2.5}, {100.0}}, 3);
    global_scale = 0;
    const std::string out = run_chain();
    EXPECT_EQ(global_scale, 64);
    EXPECT_EQ(data[0], (series_t{-64000.0, 19200.0, 160.0}));
    EXPECT_EQ(data[1], (series_t{6400.0}));
    EXPECT_EQ(out, "Finding max...done\nScaling 64 ... done\n");
}

TEST_F(ConditioningTest, AllZeroSeriesGetsScale128) {
    load({{0.0, 0.0, 0.0}}, 3);
    global_scale = 0;
    run_chain();
    EXPECT_EQ(global_scale, 128);
}

TEST_F(ConditioningTest, AllNegativeSeriesGetsScale128) {
    load({{-20000.0, -30000.0, -1.0}}, 3);
    global_scale = 0;
    run_chain();
    EXPECT_EQ(global_scale, 128);
    EXPECT_EQ(data[0], (series_t{-20000.0 * 128, -30000.0 * 128, -128.0}));
}

TEST_F(ConditioningTest, UserScaleIsUsedAsItStands) {
    load({{1.0, -2.0, 40000.0}}, 3);
    global_scale = 3;
    const std::string out = run_chain();
    EXPECT_EQ(global_scale, 3);
    EXPECT_EQ(data[0], (series_t{3.0, -6.0, 120000.0}));
    EXPECT_EQ(out, "Finding max...done\nScaling 3 ... done\n");
}

TEST_F(ConditioningTest, ScaleOneDisablesScaling) {
    load({{1.0, -2.0, 3.0}}, 3);
    global_scale = 1;
    const std::string out = run_chain();
    EXPECT_EQ(global_scale, 1);
    EXPECT_EQ(data[0], (series_t{1.0, -2.0, 3.0}));
    EXPECT_EQ(out.find("Scaling"), std::string::npos);
}

TEST_F(ConditioningTest, HugeScaleOverflowsToInfinityQuietly) {
    series_t v{1e300, -1e300, 0.0};
    scale_series(v, LONG_MAX);
    EXPECT_TRUE(std::isinf(v[0]) && v[0] > 0);
    EXPECT_TRUE(std::isinf(v[1]) && v[1] < 0);
    EXPECT_EQ(v[2], 0.0);
}

// ---- resampling -----------------------------------------------------------

TEST_F(ConditioningTest, ResampleSeriesInterpolatesPairs) {
    const series_t v{0.0, 4.0, 2.0};
    const series_t r = resample_series(v, 4);
    EXPECT_EQ(r, (series_t{0.0, 1.0, 2.0, 3.0, 4.0, 3.5, 3.0, 2.5}));
}

TEST_F(ConditioningTest, ResampleSeriesComputesTheFractionInFloatingPoint) {
    const series_t v{1.0, 2.0};
    const series_t r = resample_series(v, 3);
    ASSERT_EQ(r.size(), 3u);
    EXPECT_EQ(r[0], 1.0);
    EXPECT_EQ(r[1], 1.0 + (1.0 / 3.0) * 1.0);
    EXPECT_EQ(r[2], 1.0 + (2.0 / 3.0) * 1.0);
}

TEST_F(ConditioningTest, ResampleSeriesOfTenByFourGivesThirtySix) {
    EXPECT_EQ(resample_series(ramp(10, 5.0, 2.0), 4).size(), 36u);
    EXPECT_TRUE(resample_series({}, 4).empty());
    EXPECT_TRUE(resample_series({7.0}, 4).empty());
    EXPECT_EQ(resample_series(ramp(10, 5.0, 2.0), 1), ramp(9, 5.0, 2.0));
}

TEST_F(ConditioningTest, ResampleFourWithTenSamples) {
    load({ramp(10, 100.0, 8.0), ramp(10, -50.0, -4.0), ramp(10, 0.0, 0.0)}, 10, 1000.0);
    upsample = 4;
    const std::string out = run_chain();
    EXPECT_EQ(out, "Finding max...done\nResampling 4 ... done\n");
    EXPECT_EQ(samples, 40);
    ASSERT_EQ(time_array.size(), 40u);
    for (const series_t& v : data) {
        ASSERT_EQ(v.size(), 40u);
    }
    // The interpolated rows.
    for (int i = 0; i < 36; ++i) {
        EXPECT_EQ(data[0][static_cast<std::size_t>(i)], 100.0 + 2.0 * i) << "row " << i;
        EXPECT_EQ(data[1][static_cast<std::size_t>(i)], -50.0 - 1.0 * i) << "row " << i;
        EXPECT_EQ(time_array[static_cast<std::size_t>(i)], 1000.0 + 0.25 * i) << "row " << i;
    }
    // Rows 36..39: the last input value, times continuing by the step.
    for (std::size_t i = 36; i < 40; ++i) {
        EXPECT_EQ(data[0][i], 172.0);
        EXPECT_EQ(data[1][i], -86.0);
        EXPECT_EQ(data[2][i], 0.0);
        EXPECT_EQ(time_array[i], time_array[i - 1] + 0.25);
    }
    EXPECT_EQ(time_array[36], 1009.0);
    EXPECT_EQ(time_array[39], 1009.75);
}

TEST_F(ConditioningTest, ResampleByOneDropsThenRestoresTheLastSample) {
    load({{1.0, 2.0, 3.0, 9.0}}, 4, 500.0);
    upsample = 1;
    quiet = 1;
    run_chain();
    EXPECT_EQ(samples, 4);
    EXPECT_EQ(data[0], (series_t{1.0, 2.0, 3.0, 9.0}));
    EXPECT_EQ(time_array, (series_t{500.0, 501.0, 502.0, 503.0}));
}

TEST_F(ConditioningTest, FillUpUsesTheScaledButUnfilteredLastValue) {
    load({ramp(10, 1.0, 1.0)}, 10, 0.0);
    upsample = 2;
    global_scale = 3;
    need_filter = 1;
    quiet = 1;
    run_chain();
    ASSERT_EQ(data[0].size(), 20u);
    // 18 filtered values, then the last input sample times the scale.
    EXPECT_EQ(data[0][18], 30.0);
    EXPECT_EQ(data[0][19], 30.0);
    // The first output of the filter is H[1] times the first value.
    EXPECT_EQ(data[0][0], H[1] * 3.0);
}

TEST_F(ConditioningTest, FillUpOfSingleSampleRepeatsItsTime) {
    load({{42.0}, {}}, 1, 77.5);
    upsample = 3;
    global_scale = 0;
    quiet = 1;
    run_chain();
    EXPECT_EQ(samples, 3);
    EXPECT_EQ(data[0], (series_t{42.0 * 128, 42.0 * 128, 42.0 * 128}));
    EXPECT_TRUE(data[1].empty());
    EXPECT_EQ(time_array, (series_t{77.5, 77.5, 77.5}));
}

TEST_F(ConditioningTest, EmptyChannelStaysEmptyWhenResampling) {
    load({ramp(5, 1.0, 1.0), {}, ramp(5, 2.0, 0.0)}, 5);
    upsample = 2;
    global_scale = 1;
    quiet = 1;
    run_chain();
    EXPECT_EQ(samples, 10);
    EXPECT_EQ(data[0].size(), 10u);
    EXPECT_TRUE(data[1].empty());
    EXPECT_EQ(data[2], series_t(10, 2.0));
}

TEST_F(ConditioningTest, NoSamplesNoResampledValues) {
    load({{}, {}}, 0);
    upsample = 4;
    quiet = 1;
    run_chain();
    EXPECT_EQ(samples, 0);
    EXPECT_TRUE(time_array.empty());
    EXPECT_TRUE(data[0].empty());
}

TEST_F(ConditioningTest, NegativeUpsampleIsRefusedBeforeAnyWork) {
    load({{1.0, 2.0}}, 2);
    upsample = -2;
    remove_offset = 1;
    std::string message;
    ::testing::internal::CaptureStdout();
    try {
        condition_series();
    } catch (const std::runtime_error& e) {
        message = e.what();
    }
    const std::string out = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(message, "Error: Upsampling factor (-u) out of range.\n");
    EXPECT_EQ(out, "");
    EXPECT_EQ(data[0], (series_t{1.0, 2.0}));
    EXPECT_EQ(samples, 2);
}

TEST_F(ConditioningTest, HugeUpsampleIsRefused) {
    load({{1.0, 2.0}}, 2);
    quiet = 1;
    upsample = LONG_MAX;
    EXPECT_THROW(condition_series(), std::runtime_error);
    upsample = LONG_MAX / 2 + 1; // 2 * up overflows a long
    EXPECT_THROW(condition_series(), std::runtime_error);
    upsample = MAX_RESAMPLED / 2 + 1; // fits a long but exceeds the limit
    EXPECT_THROW(condition_series(), std::runtime_error);
    EXPECT_EQ(samples, 2);
    EXPECT_EQ(data[0], (series_t{1.0, 2.0}));
    EXPECT_THROW(resample_series({1.0, 2.0}, -1), std::runtime_error);
    EXPECT_THROW(resample_series({1.0, 2.0}, 0), std::runtime_error);
    EXPECT_THROW(resample_series({1.0, 2.0}, LONG_MAX), std::runtime_error);
}

TEST_F(ConditioningTest, UpsampleLimitIsExact) {
    EXPECT_NO_THROW(check_upsample_factor(2, MAX_RESAMPLED / 2));
    EXPECT_THROW(check_upsample_factor(2, MAX_RESAMPLED / 2 + 1), std::runtime_error);
    EXPECT_NO_THROW(check_upsample_factor(0, LONG_MAX));
    EXPECT_THROW(check_upsample_factor(-1, 1), std::runtime_error);
}

TEST_F(ConditioningTest, LongChannelIsCheckedToo) {
    // A channel longer than the time axis must not slip past the limit.
    load({{1.0, 2.0, 3.0, 4.0}}, 1);
    quiet = 1;
    upsample = MAX_RESAMPLED / 3;
    EXPECT_THROW(condition_series(), std::runtime_error);
}

// ---- filtering ------------------------------------------------------------

TEST_F(ConditioningTest, FilterSeriesGivesTheImpulseResponse) {
    series_t v(130, 0.0);
    v[0] = 1.0;
    filter_series(v);
    for (int k = 1; k <= 128; ++k) {
        EXPECT_EQ(v[static_cast<std::size_t>(k - 1)], H[k]);
    }
    EXPECT_EQ(v[128], H[0]);
    EXPECT_EQ(v[129], 0.0);
}

TEST_F(ConditioningTest, ChainFiltersEveryChannelWithTheSharedIndex) {
    const series_t a = ramp(50, 3.0, 7.0);
    const series_t b = ramp(300, -2.0, 0.5);
    load({a, b}, 0);
    need_filter = 1;
    global_scale = 1;
    const std::string out = run_chain();
    EXPECT_EQ(out, "Finding max...done\nFiltering...done.\n");
    // Same outputs as filtering the channels one after the other.
    reset_filter_state_for_tests();
    series_t fa = a;
    series_t fb = b;
    filter_series(fa);
    filter_series(fb);
    EXPECT_EQ(data[0], fa);
    EXPECT_EQ(data[1], fb);
    EXPECT_EQ(filter_index_for_tests(), (50 + 300) % 129);
}

// ---- progress words -------------------------------------------------------

TEST_F(ConditioningTest, ProgressWordsOfTheWholeChain) {
    load({{1.0, 2.0, 301.0}, {0.0, 0.0, 0.0}}, 3);
    remove_offset = 1;
    global_scale = 0;
    upsample = 2;
    need_filter = 1;
    const std::string out = run_chain();
    // Max after offset removal is 200, so the scale is 128.
    EXPECT_EQ(out, "Removing offset...done\n"
                   "Finding max...done\n"
                   "Scaling 128 ... done\n"
                   "Resampling 2 ... done\n"
                   "Filtering...done.\n");
    EXPECT_EQ(global_scale, 128);
    EXPECT_EQ(samples, 6);
}

TEST_F(ConditioningTest, QuietSilencesEveryWord) {
    load({{1.0, 2.0, 301.0}}, 3);
    remove_offset = 1;
    global_scale = 0;
    upsample = 2;
    need_filter = 1;
    quiet = 1;
    EXPECT_EQ(run_chain(), "");
    EXPECT_EQ(global_scale, 128);
    EXPECT_EQ(samples, 6);
}
