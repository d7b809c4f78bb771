#include <gtest/gtest.h>

#include <cmath>
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

TEST_F(FilterTest, CentreTap) { EXPECT_EQ(H[64], 0.50000000000006484); }

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
