// The lists of the SDS merge: from a huge page on they start on a huge-page
// boundary, whatever their element type; smaller ones are the heap's as
// usual; every kind keeps its values through growth, copies and moves, and
// frees its memory the way it took it (the sanitized build checks that).
#include <gtest/gtest.h>

#include <cstdint>
#include <new>
#include <utility>

#include "big_list.h"
#include "sds_samples.h"

namespace {

constexpr std::size_t HUGE = std::size_t{2} << 20;

bool on_huge_page_boundary(const void *p) { return reinterpret_cast<std::uintptr_t>(p) % HUGE == 0; }

TEST(BigList, AListOfAHugePageOrMoreStartsOnAHugePage) {
    big_list<double> values(HUGE / sizeof(double));
    EXPECT_TRUE(on_huge_page_boundary(values.data()));
    big_list<int32_t> counts(3 * HUGE / sizeof(int32_t) + 7);
    EXPECT_TRUE(on_huge_page_boundary(counts.data()));
    sample_list samples(HUGE / sizeof(sds_sample) + 1);
    EXPECT_TRUE(on_huge_page_boundary(samples.data()));
}

TEST(BigList, ASmallListIsOrdinaryHeapMemory) {
    // One element short of a huge page: the allocator does not align it
    // (the heap may still happen to, so only its use is checked).
    big_list<double> values(HUGE / sizeof(double) - 1);
    values.back() = 1.5;
    EXPECT_EQ(values.back(), 1.5);
    big_list<int64_t> empty;
    EXPECT_EQ(empty.size(), 0u);
}

TEST(BigList, ValuesSurviveGrowthCopiesAndMoves) {
    big_list<int64_t> times;
    // From small to several huge pages, through both kinds of memory.
    for (int64_t i = 0; i < static_cast<int64_t>(HUGE); ++i) times.push_back(i * 3);
    ASSERT_EQ(times.size(), HUGE);
    EXPECT_EQ(times[12345], 12345 * 3);
    EXPECT_EQ(times.back(), static_cast<int64_t>(HUGE - 1) * 3);
    big_list<int64_t> copy = times;
    EXPECT_TRUE(on_huge_page_boundary(copy.data()));
    EXPECT_EQ(copy, times);
    big_list<int64_t> moved = std::move(copy);
    EXPECT_EQ(moved.back(), times.back());
    moved.resize(10);
    moved.shrink_to_fit(); // back to the ordinary heap: freed as it was taken
    EXPECT_EQ(moved[9], 27);
}

TEST(BigList, AnImpossibleLengthThrows) {
    uninitialised_allocator<sds_sample> allocator;
    EXPECT_THROW(static_cast<void>(allocator.allocate(SIZE_MAX / 2)), std::bad_array_new_length);
}

} // namespace
