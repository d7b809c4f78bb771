// Filtering every series at once on every core against filtering them one
// after another: the same outputs bit for bit, and the same shared filter
// state afterwards (the next Filter calls give the same results).
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "conditioning_steps.h"
#include "filter.h"
#include "filter_together.h"

namespace {

// The same doubles bit for bit (NaN and signed zeros included).
bool same_bits(const std::vector<double> &a, const std::vector<double> &b) {
    return a.size() == b.size() &&
           (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0);
}

std::vector<series_t> random_series(const std::vector<std::size_t> &sizes, unsigned seed) {
    std::mt19937_64 rng(seed);
    std::uniform_real_distribution<double> value(-30000.0, 30000.0);
    std::vector<series_t> all;
    for (std::size_t n : sizes) {
        series_t s(n);
        for (double &v : s)
            v = value(rng);
        all.push_back(s);
    }
    return all;
}

// The outputs of both ways and the next outputs of the shared filter after each.
void expect_same_as_one_after_another(const std::vector<std::size_t> &sizes, unsigned seed) {
    std::vector<series_t> apart = random_series(sizes, seed), together = apart;
    reset_filter_state_for_tests();
    for (int i = 0; i < 37; ++i)
        Filter(i); // a write index that is not at its start
    for (series_t &s : apart)
        filter_series(s);
    const int index_apart = filter_index_for_tests();
    std::vector<double> next_apart;
    for (int i = 0; i < 200; ++i)
        next_apart.push_back(Filter(i * 0.5));

    reset_filter_state_for_tests();
    for (int i = 0; i < 37; ++i)
        Filter(i);
    filter_all_series(together);
    EXPECT_EQ(filter_index_for_tests(), index_apart);
    std::vector<double> next_together;
    for (int i = 0; i < 200; ++i)
        next_together.push_back(Filter(i * 0.5));

    ASSERT_EQ(apart.size(), together.size());
    for (std::size_t k = 0; k < apart.size(); ++k) {
        ASSERT_EQ(apart[k].size(), together[k].size());
        EXPECT_TRUE(same_bits(apart[k], together[k])) << "series " << k;
    }
    EXPECT_TRUE(same_bits(next_apart, next_together));
    reset_filter_state_for_tests();
}

TEST(FilterTogether, ThreeChannelsOfADay) {
    expect_same_as_one_after_another({200000, 200000, 200000}, 1);
}

TEST(FilterTogether, UnequalAndEmptySeries) {
    expect_same_as_one_after_another({150000, 0, 70001, 5}, 2);
    expect_same_as_one_after_another({100, 90000, 128}, 3);
    expect_same_as_one_after_another({70000, 129, 0}, 4);
}

TEST(FilterTogether, SmallRunsStayOnOneThread) {
    expect_same_as_one_after_another({10, 20, 30}, 5);
    expect_same_as_one_after_another({}, 6);
}

} // namespace
