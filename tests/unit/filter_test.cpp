#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "filter.h"

namespace {

class FilterTest : public ::testing::Test {
protected:
    void SetUp() override { reset_filter_state_for_tests(); }
    void TearDown() override { reset_filter_state_for_tests(); }
};

// Compensated (Neumaier) sum: the correctly rounded total for a table like H.
double compensated_sum(const double* v, int n) {
    double s = 0.0;
    double c = 0.0;
    for (int i = 0; i < n; ++i) {
        const double t = s + v[i];
        if (std::fabs(s) >= std::fabs(v[i])) {
            c += (s - t) + v[i];
        } else {
            c += (v[i] - t) + s;
        }
        s = t;
    }
    return s + c;
}

} // namespace

TEST_F(FilterTest, TableIsSymmetric) {
    for (int k = 0; k < 129; ++k) {
        EXPECT_EQ(H[k], H[128 - k]) << "k = " << k;
    }
}

TEST_F(FilterTest, CentreTap) {
    EXPECT_EQ(H[64], 0.50000000000006484);
}

TEST_F(FilterTest, SomeTapsHoldTheirExactValues) {
    EXPECT_EQ(H[0], -2.5522871035638949e-15);
    EXPECT_EQ(H[1], -7.58927954397188e-06);
    EXPECT_EQ(H[63], 0.31795303819148318);
    EXPECT_EQ(H[65], 0.31795303819148318);
    EXPECT_EQ(H[127], -7.58927954397188e-06);
    EXPECT_EQ(H[128], -2.5522871035638949e-15);
}

TEST_F(FilterTest, HalfBandShape) {
    for (int d = 1; d <= 64; ++d) {
        const double tap = H[64 - d];
        if (d % 2 == 0) {
            EXPECT_LT(std::fabs(tap), 1e-13) << "distance " << d;
        } else {
            EXPECT_GT(std::fabs(tap), 1e-7) << "distance " << d;
            if (d >= 3) {
                EXPECT_LT(tap * H[64 - d + 2], 0.0) << "odd taps alternate at distance " << d;
            }
        }
    }
    EXPECT_GT(H[63], 0.0);
}

TEST_F(FilterTest, CoefficientSum) {
    // The plain sum in index order carries about ten units in the last place
    // of rounding error (it gives 0.9999941604178949); the exactly rounded
    // total is 0.9999941604178938.
    double sum = 0.0;
    for (int k = 0; k < 129; ++k) {
        sum += H[k];
    }
    EXPECT_NEAR(sum, 0.9999941604178938, 2e-15);
    EXPECT_EQ(compensated_sum(H, 129), 0.9999941604178938);
}

TEST_F(FilterTest, ImpulseResponseIsRotatedByOneTap) {
    ASSERT_EQ(filter_index_for_tests(), 0);
    Initialize(0.0);
    EXPECT_EQ(Filter(1.0), H[1]);
    for (int k = 2; k <= 128; ++k) {
        EXPECT_EQ(Filter(0.0), H[k]) << "output " << k - 1;
    }
    EXPECT_EQ(Filter(0.0), H[0]);
    // The impulse has left the history.
    EXPECT_EQ(Filter(0.0), 0.0);
}

TEST_F(FilterTest, IndexAdvancesAndWraps) {
    Initialize(0.0);
    for (int i = 1; i <= 128; ++i) {
        Filter(0.0);
        EXPECT_EQ(filter_index_for_tests(), i);
    }
    Filter(0.0);
    EXPECT_EQ(filter_index_for_tests(), 0);
}

TEST_F(FilterTest, InitializeKeepsTheIndex) {
    Initialize(0.0);
    for (int i = 0; i < 5; ++i) {
        Filter(3.0);
    }
    ASSERT_EQ(filter_index_for_tests(), 5);
    Initialize(0.0);
    EXPECT_EQ(filter_index_for_tests(), 5);
    // With a uniform history the index cannot change any output.
    EXPECT_EQ(Filter(1.0), H[1]);
    EXPECT_EQ(filter_index_for_tests(), 6);
    Initialize(7.0);
    EXPECT_EQ(filter_index_for_tests(), 6);
}

TEST_F(FilterTest, InitializeFillsTheWholeHistory) {
    Initialize(2.0);
    // Pushing 2.0 again keeps a history of 2.0 everywhere: the output is the
    // sum of the taps in index order, each times 2.0.
    double expected = 0.0;
    for (int k = 0; k < 129; ++k) {
        expected += H[k] * 2.0;
    }
    EXPECT_EQ(Filter(2.0), expected);
}

TEST_F(FilterTest, MatchesDirectConvolutionOnRandomData) {
    // Direct form: H[0] meets the sample 128 steps old, H[k] (k >= 1) the
    // sample k - 1 steps old; samples before the start are zero.
    std::mt19937_64 rng(12345);
    std::uniform_real_distribution<double> dist(-40000.0, 40000.0);
    std::vector<double> x(1000);
    for (double& v : x) {
        v = dist(rng);
    }
    // Start at a non-zero index so the wrap of the history is exercised.
    for (int i = 0; i < 77; ++i) {
        Filter(1.0);
    }
    Initialize(0.0);
    auto at = [&](long i) { return i < 0 ? 0.0 : x[static_cast<std::size_t>(i)]; };
    for (long n = 0; n < static_cast<long>(x.size()); ++n) {
        double expected = 0.0;
        expected += H[0] * at(n - 128);
        for (int k = 1; k < 129; ++k) {
            expected += H[k] * at(n - (k - 1));
        }
        ASSERT_EQ(Filter(x[static_cast<std::size_t>(n)]), expected) << "n = " << n;
    }
}

// ---- block form -----------------------------------------------------------

namespace {

std::uint64_t bits(double v) {
    std::uint64_t b = 0;
    std::memcpy(&b, &v, sizeof b);
    return b;
}

std::vector<std::vector<double>> random_channels() {
    std::mt19937_64 rng(20240611);
    std::uniform_real_distribution<double> dist(-2.0e6, 2.0e6);
    std::vector<std::vector<double>> channels;
    // Lengths around the lane width, the history length and the chunk size.
    for (long n : {0L, 1L, 7L, 8L, 9L, 128L, 129L, 130L, 300L, 2047L, 2048L, 2049L, 4100L, 9001L}) {
        std::vector<double> v(static_cast<std::size_t>(n));
        for (double& x : v) {
            x = dist(rng);
        }
        channels.push_back(v);
    }
    // Signed zeros, tiny, huge and infinite values.
    channels.push_back({-0.0, -0.0, 0.0, 5e-324, -5e-324, 1e308, -1e308, 1e308, 1e308,
                        std::numeric_limits<double>::infinity(), -0.0, 3.0, -0.0, 1e-300, 2.5e300, -7.0});
    return channels;
}

// Filters the channels one after the other like the conditioning chain, then
// pushes a few more samples without Initialize, which reveals the history
// that each channel left behind. Returns every output in order.
template <typename FilterOne>
std::vector<double> run_channels(const std::vector<std::vector<double>>& channels, FilterOne filter_one,
                                 std::vector<int>& indices) {
    reset_filter_state_for_tests();
    std::vector<double> outputs;
    for (const std::vector<double>& channel : channels) {
        std::vector<double> v = channel;
        Initialize(0.0);
        filter_one(v);
        outputs.insert(outputs.end(), v.begin(), v.end());
        for (double probe : {1.0, -2.0, 0.5}) {
            outputs.push_back(Filter(probe));
        }
        indices.push_back(filter_index_for_tests());
    }
    return outputs;
}

} // namespace

TEST_F(FilterTest, BlockFormIsBitIdenticalOverChannels) {
    const auto channels = random_channels();
    std::vector<int> plain_indices;
    std::vector<int> block_indices;
    const std::vector<double> plain = run_channels(
        channels,
        [](std::vector<double>& v) {
            for (double& x : v) {
                x = Filter(x);
            }
        },
        plain_indices);
    const std::vector<double> block = run_channels(
        channels, [](std::vector<double>& v) { filter_block(v.data(), static_cast<long>(v.size())); },
        block_indices);
    ASSERT_EQ(plain.size(), block.size());
    for (std::size_t i = 0; i < plain.size(); ++i) {
        ASSERT_EQ(bits(plain[i]), bits(block[i])) << "output " << i << ": " << plain[i] << " vs " << block[i];
    }
    EXPECT_EQ(plain_indices, block_indices);
    // The indices really moved around the ring.
    EXPECT_NE(plain_indices.front(), plain_indices.back());
}

TEST_F(FilterTest, BlockFormContinuesAnyHistory) {
    // Pieces of one stream, with no Initialize in between, equal the plain
    // filter over the whole stream.
    std::mt19937_64 rng(7);
    std::uniform_real_distribution<double> dist(-1000.0, 1000.0);
    std::vector<double> x(6000);
    for (double& v : x) {
        v = dist(rng);
    }
    for (int i = 0; i < 40; ++i) {
        Filter(dist(rng));
    }
    std::vector<double> plain = x;
    for (double& v : plain) {
        v = Filter(v);
    }
    const int plain_index = filter_index_for_tests();
    const double plain_next = Filter(1.0);

    reset_filter_state_for_tests();
    std::mt19937_64 rng2(7);
    std::uniform_real_distribution<double> dist2(-1000.0, 1000.0);
    std::vector<double> copy(6000);
    for (double& v : copy) {
        v = dist2(rng2);
    }
    ASSERT_EQ(copy, x);
    for (int i = 0; i < 40; ++i) {
        Filter(dist2(rng2));
    }
    std::size_t at = 0;
    for (std::size_t piece : {std::size_t{3}, std::size_t{1}, std::size_t{200}, std::size_t{0},
                              std::size_t{2500}, std::size_t{129}, std::size_t{3167}}) {
        filter_block(copy.data() + at, static_cast<long>(piece));
        at += piece;
    }
    ASSERT_EQ(at, copy.size());
    for (std::size_t i = 0; i < x.size(); ++i) {
        ASSERT_EQ(bits(plain[i]), bits(copy[i])) << "output " << i;
    }
    EXPECT_EQ(filter_index_for_tests(), plain_index);
    // The history left behind is the same too.
    EXPECT_EQ(bits(Filter(1.0)), bits(plain_next));
}

TEST_F(FilterTest, BlockFormStartsEverySumAtPositiveZero) {
    // A window in which every product is -0.0: the sum starts at 0.0, so the
    // output is +0.0, not -0.0. Output 136 is the first lane of a group.
    const long m = 136;
    std::vector<double> x(200, 1.0);
    x[static_cast<std::size_t>(m - 128)] = H[0] > 0 ? -0.0 : 0.0;
    for (int k = 1; k < 129; ++k) {
        x[static_cast<std::size_t>(m - k + 1)] = H[k] > 0 ? -0.0 : 0.0;
    }
    std::vector<double> plain = x;
    Initialize(0.0);
    for (double& v : plain) {
        v = Filter(v);
    }
    ASSERT_EQ(bits(plain[static_cast<std::size_t>(m)]), bits(0.0));
    reset_filter_state_for_tests();
    std::vector<double> block = x;
    filter_block(block.data(), static_cast<long>(block.size()));
    for (std::size_t i = 0; i < x.size(); ++i) {
        ASSERT_EQ(bits(plain[i]), bits(block[i])) << "output " << i;
    }
}

// The vector width is chosen from the processor at run time; every path must
// give the plain filter's outputs bit for bit, on random input, over lengths
// that leave every kind of remainder after the groups of lanes.
TEST_F(FilterTest, VectorPathsEqualTheScalarFilterBitForBit) {
    std::mt19937_64 rng(2024);
    std::uniform_real_distribution<double> dist(-40000.0, 40000.0);
    std::vector<double> x(50000);
    for (double &v : x) {
        v = dist(rng);
    }
    std::vector<double> scalar = x;
    Initialize(0.0);
    for (double &v : scalar) {
        v = Filter(v);
    }
    std::vector<FilterLanes> paths = {FilterLanes::PORTABLE, FilterLanes::AUTOMATIC};
    if (filter_has_avx2_for_tests()) {
        paths.push_back(FilterLanes::AVX2);
    }
    for (FilterLanes lanes : paths) {
        force_filter_lanes_for_tests(lanes);
        for (long length : {50000L, 49999L, 17L, 15L, 8L, 7L, 2049L}) {
            reset_filter_state_for_tests();
            std::vector<double> block(x.begin(), x.begin() + length);
            filter_block(block.data(), length);
            for (long i = 0; i < length; ++i) {
                ASSERT_EQ(bits(scalar[static_cast<std::size_t>(i)]), bits(block[static_cast<std::size_t>(i)]))
                    << "path " << static_cast<int>(lanes) << ", length " << length << ", output " << i;
            }
        }
    }
    force_filter_lanes_for_tests(FilterLanes::AUTOMATIC);
    if (!filter_has_avx2_for_tests()) {
        GTEST_SKIP() << "no AVX2 on this processor: only the portable path was compared";
    }
}
