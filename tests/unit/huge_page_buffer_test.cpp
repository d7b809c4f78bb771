// Buffers on huge pages: whole huge pages, aligned to them, writable to the
// last byte, handed over by moving, and grown without keeping the old room.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <utility>

#include "huge_page_buffer.h"

namespace {

constexpr std::size_t HUGE = std::size_t{2} << 20;

TEST(HugePageBuffer, IsWholeAlignedHugePages) {
    for (std::size_t bytes : {std::size_t{1}, HUGE - 1, HUGE, HUGE + 1, 3 * HUGE + 12345}) {
        HugePageBuffer buffer(bytes);
        ASSERT_NE(buffer.data(), nullptr);
        EXPECT_GE(buffer.size(), bytes);
        EXPECT_EQ(buffer.size() % HUGE, 0u);
        EXPECT_LT(buffer.size() - bytes, HUGE);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(buffer.data()) % HUGE, 0u);
        std::memset(buffer.data(), 'x', buffer.size());
        EXPECT_EQ(buffer.data()[buffer.size() - 1], 'x');
    }
}

TEST(HugePageBuffer, EmptyHasNoMemory) {
    HugePageBuffer none;
    EXPECT_EQ(none.data(), nullptr);
    EXPECT_EQ(none.size(), 0u);
    HugePageBuffer zero(0);
    EXPECT_EQ(zero.data(), nullptr);
}

TEST(HugePageBuffer, MovesItsMemory) {
    HugePageBuffer a(100);
    a.data()[0] = 'a';
    char* const memory = a.data();
    HugePageBuffer b(std::move(a));
    EXPECT_EQ(b.data(), memory);
    EXPECT_EQ(b.data()[0], 'a');
    HugePageBuffer c(5);
    c = std::move(b);
    EXPECT_EQ(c.data(), memory);
    EXPECT_EQ(c.size(), HUGE);
}

// A size that whole huge pages cannot even be counted in is refused before
// any allocation (a size the allocator refuses throws std::bad_alloc too,
// but AddressSanitizer ends the process on it instead).
TEST(HugePageBuffer, ImpossibleSizeThrowsBadAlloc) {
    EXPECT_THROW(HugePageBuffer(SIZE_MAX), std::bad_alloc);
    EXPECT_THROW(HugePageBuffer(SIZE_MAX - 1000), std::bad_alloc);
    HugePageArray<double> values;
    EXPECT_THROW(values.room(SIZE_MAX / 4), std::bad_alloc);
}

TEST(HugePageArray, RoomGrowsAndStaysWhileLargeEnough) {
    HugePageArray<double> values;
    double* first = values.room(1000);
    ASSERT_NE(first, nullptr);
    first[999] = 1.5;
    EXPECT_EQ(values.room(10), first); // enough room already: the same memory
    EXPECT_EQ(values.data(), first);
    double* larger = values.room(HUGE); // HUGE doubles: 16 MiB
    larger[HUGE - 1] = 2.5;
    EXPECT_EQ(larger[HUGE - 1], 2.5);
}

} // namespace
