// Rows formatted in blocks on worker threads: the blocks come back in order,
// and the files and warnings of the writers are exactly those of one pass
// over the rows, whatever the block size, gaps and time settings.
#include <gtest/gtest.h>

#include <atomic>
#include <bit>
#include <cmath>
#include <cstdint>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "ordered_blocks.h"
#include "rows_together.h"
#include "settings.h"
#include "temp_dir.h"
#include "writers.h"

namespace {

TEST(OrderedBlocks, BlocksComeBackInOrder) {
    const std::size_t count = 1000;
    std::atomic<int> formatted{0};
    OrderedBlocks blocks(
        count,
        [&](std::size_t b, TextBlock& text) {
            ++formatted;
            text.put(std::to_string(b));
            text.put('\n');
        },
        3);
    std::string got, expected;
    for (std::size_t b = 0; b < count; ++b) {
        expected += std::to_string(b) + "\n";
        got += std::string(blocks.wait(b).text());
        blocks.done(b);
    }
    EXPECT_EQ(got, expected);
    EXPECT_EQ(formatted.load(), static_cast<int>(count));
}

TEST(OrderedBlocks, AFailedBlockThrowsWhereItIsTaken) {
    OrderedBlocks blocks(
        50,
        [](std::size_t b, TextBlock& text) {
            if (b == 13) throw std::runtime_error("block 13");
            text.put_ld(static_cast<long>(b));
        },
        2);
    for (std::size_t b = 0; b < 13; ++b) {
        EXPECT_EQ(blocks.wait(b).text(), std::to_string(b));
        blocks.done(b);
    }
    EXPECT_THROW(blocks.wait(13), std::runtime_error);
    // Leaving with blocks still to come stops the workers without waiting for them.
}

TEST(OrderedBlocks, AbandonedAtOnceEndsItsThreads) {
    for (int round = 0; round < 50; ++round) {
        OrderedBlocks blocks(
            100000, [](std::size_t, TextBlock& text) { text.put('x'); }, 2);
    }
}

TEST(OrderedBlocks, ABlockGrowsPastAnyFirstSize) {
    OrderedBlocks blocks(
        3,
        [](std::size_t b, TextBlock& text) { text.put(std::string((b + 1) * 300000, static_cast<char>('a' + b))); },
        2);
    for (std::size_t b = 0; b < 3; ++b) {
        EXPECT_EQ(blocks.wait(b).text(), std::string((b + 1) * 300000, static_cast<char>('a' + b)));
        blocks.done(b);
    }
}

TEST(RowsTogether, OnByDefaultWhereThereIsMoreThanOneProcessor) {
    if (std::thread::hardware_concurrency() > 1)
        EXPECT_GT(rows_together_block(), 0);
    else
        EXPECT_EQ(rows_together_block(), 0);
}

TEST(RowsTogether, ThePlanStartsEveryBlockAtTheRunningTime) {
    const long saved = rows_together_block();
    set_rows_together_block(3);
    const RowBlocks plan = plan_row_blocks(1, 10, 5.0, 0.25);
    set_rows_together_block(saved);
    // Blocks of 3 rows after the first ones of an eighth, a quarter and a
    // half (at least one row each): rows 1, 2, 3, then 4 to 6 and 7 to 9.
    EXPECT_EQ(plan.first, (std::vector<long>{1, 2, 3, 4, 7}));
    EXPECT_EQ(plan.stm, (std::vector<double>{5.0, 5.25, 5.5, 5.75, 6.5}));
    EXPECT_EQ(plan.end, 10);
    EXPECT_EQ(plan.block_end(0), 2);
    EXPECT_EQ(plan.block_end(4), 10);
    EXPECT_EQ(plan.end_stm, 7.25);
}

TEST(RowsTogether, TheFirstBlocksGrowToTheBlockSize) {
    const long saved = rows_together_block();
    set_rows_together_block(16384);
    const RowBlocks plan = plan_row_blocks(0, 100000, 0.0, 0.05);
    set_rows_together_block(saved);
    ASSERT_GE(plan.first.size(), 6u);
    EXPECT_EQ(plan.first[1] - plan.first[0], 2048);
    EXPECT_EQ(plan.first[2] - plan.first[1], 4096);
    EXPECT_EQ(plan.first[3] - plan.first[2], 8192);
    EXPECT_EQ(plan.first[4] - plan.first[3], 16384);
    EXPECT_EQ(plan.first[5] - plan.first[4], 16384);
    EXPECT_EQ(plan.block_end(plan.first.size() - 1), 100000);
}

// The one-by-one sum that added_rows must give.
double added_in_turn(double stm, double tdiff, long rows) {
    for (long i = 0; i < rows; ++i)
        stm += tdiff;
    return stm;
}

TEST(RowsTogether, AddedRowsIsTheSumOfTheAdditionsInTurn) {
    // Times of a day in seconds since 1970, in hours, in minutes, from zero;
    // steps of common rates and random ones; sums that cross into the next
    // binade, steps that are a tie of half a unit, below half a unit, larger
    // than the sum, and signs and values that take the additions one by one.
    std::mt19937_64 rng(41);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const std::vector<double> starts = {1500000000.0, 1500086399.95, 416666.6666, 25000.0, 0.0, 1.0, 1073741823.9,
                                        2147483647.99, -1500000000.0, 1e-300, 3.0e15, 4503599627370495.5};
    const std::vector<double> steps = {0.05, 0.01, 0.002, 1.0 / 3, 0.25, 1.0 / 72000, 1.0 / 1200, 1e-9,
                                       std::ldexp(1.0, -23), std::ldexp(3.0, -24), std::ldexp(1.0, -24),
                                       std::ldexp(1.0, -25), 2.5e9, -0.05, 0.0};
    const std::vector<long> counts = {0, 1, 2, 7, 2048, 16384, 100000};
    long checked = 0;
    for (double start : starts)
        for (double step : steps)
            for (long rows : counts) {
                const double expected = added_in_turn(start, step, rows);
                const double got = added_rows(start, step, rows);
                ASSERT_EQ(std::bit_cast<std::uint64_t>(got), std::bit_cast<std::uint64_t>(expected))
                    << std::hexfloat << start << " + " << step << " x " << rows;
                ++checked;
            }
    for (int i = 0; i < 20000; ++i) {
        const double start = std::ldexp(unit(rng), static_cast<int>(rng() % 80) - 20);
        const double step = std::ldexp(unit(rng), static_cast<int>(rng() % 60) - 50);
        const long rows = static_cast<long>(rng() % 3000);
        ASSERT_EQ(std::bit_cast<std::uint64_t>(added_rows(start, step, rows)),
                  std::bit_cast<std::uint64_t>(added_in_turn(start, step, rows)))
            << std::hexfloat << start << " + " << step << " x " << rows;
        ++checked;
    }
    EXPECT_GT(checked, 20000);
}

// The writers with rows together against the same writers in one pass.
class RowsTogetherWriters : public testing::Test {
  protected:
    void SetUp() override {
        reset_settings();
        m_saved = rows_together_block();
    }
    void TearDown() override {
        set_rows_together_block(m_saved);
        reset_settings();
    }

    struct Result {
        std::string file;
        std::string err;
        double next = 0;
    };

    // Runs `writer` with rows in blocks of `block` (0: one pass).
    template <class Writer> Result run(long block, const std::string& name, Writer writer) {
        set_rows_together_block(block);
        Result r;
        testing::internal::CaptureStderr();
        r.next = writer(m_dir.file(name));
        r.err = testing::internal::GetCapturedStderr();
        r.file = m_dir.read(name);
        return r;
    }

    temp_dir m_dir;
    long m_saved = 0;
};

TEST_F(RowsTogetherWriters, EveryWriterGivesTheBytesAndWarningsOfOnePass) {
    std::mt19937_64 rng(29);
    std::uniform_int_distribution<int> counts(-40000, 40000);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (int round = 0; round < 30; ++round) {
        const long n = 50 + static_cast<long>(rng() % 1500);
        const double freq = round % 3 == 0 ? 20.0 : (round % 3 == 1 ? 1.0 : 0.3);
        series_t time;
        double t = 1500000000.0 + static_cast<double>(rng() % 100000) / 7.0;
        for (long i = 0; i < n; ++i) {
            // Now and then a gap, a step back or a time that is not a number.
            const double u = unit(rng);
            if (u < 0.004)
                t += 30.0 + 1000 * unit(rng);
            else if (u < 0.006)
                t -= 5.0;
            time.push_back(u > 0.0065 && u < 0.007 ? std::nan("") : t);
            t += 1.0 / freq;
        }
        std::vector<series_t> data(1 + rng() % 4);
        for (series_t& ch : data)
            for (long i = 0; i < n; ++i)
                ch.push_back(round % 2 ? counts(rng) : counts(rng) / 64.0 + unit(rng) * 1e-3);
        const long start_i = static_cast<long>(rng() % 20);
        const long size = n - start_i - static_cast<long>(rng() % 20);
        const double stm = round % 4 == 0 ? -1.0 : 1234.5;
        sample_times = round % 5 == 0;
        const char* comment = round % 2 ? "!comment" : nullptr;
        for (long block : {round % 6 == 0 ? 1L : 2L, 7L, 64L, 700L}) {
            const std::string what = "round " + std::to_string(round) + ", blocks of " + std::to_string(block);
            auto all = [&](const std::filesystem::path& p) {
                return write_all(p, time, data, start_i, size, stm, freq, comment);
            };
            auto amplitude = [&](const std::filesystem::path& p) {
                return write_amplitude(p, time, data, start_i, size, stm, freq, comment);
            };
            auto times = [&](const std::filesystem::path& p) {
                return write_time(p, time, start_i, size, stm, freq, comment);
            };
            const Result all_one = run(0, "all", all), all_blocks = run(block, "all", all);
            EXPECT_EQ(all_blocks.file, all_one.file) << what;
            EXPECT_EQ(all_blocks.err, all_one.err) << what;
            EXPECT_EQ(all_blocks.next, all_one.next) << what;
            const Result amp_one = run(0, "amp", amplitude), amp_blocks = run(block, "amp", amplitude);
            EXPECT_EQ(amp_blocks.file, amp_one.file) << what;
            EXPECT_EQ(amp_blocks.err, amp_one.err) << what;
            const Result time_one = run(0, "time", times), time_blocks = run(block, "time", times);
            EXPECT_EQ(time_blocks.file, time_one.file) << what;
            EXPECT_EQ(time_blocks.err, time_one.err) << what;
            EXPECT_EQ(time_blocks.next, time_one.next) << what;
        }
    }
}

TEST_F(RowsTogetherWriters, AGapOnTheFirstRowOfABlockIsWarnedOnce) {
    series_t time;
    for (int i = 0; i < 40; ++i) time.push_back(1000.0 + i + (i >= 8 ? 100.0 : 0.0));
    std::vector<series_t> data(1, series_t(40, 1.0));
    auto all = [&](const std::filesystem::path& p) { return write_all(p, time, data, 0, 40, -1.0, 1.0, nullptr); };
    const Result one = run(0, "a", all), blocks = run(8, "a", all);
    EXPECT_EQ(blocks.file, one.file);
    EXPECT_EQ(blocks.err, one.err);
    EXPECT_NE(one.err.find("on line 9 "), std::string::npos) << one.err;
}

} // namespace

namespace {

// Series that live as long as the process, as the tool's own do: exit()
// destroys them, so the workers must be stopped before that.
std::vector<series_t> lasting_data;
series_t lasting_time;

TEST_F(RowsTogetherWriters, AWriteFailureEndsWithStatusOneWhileBlocksAreFormatted) {
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
    const std::filesystem::path p = m_dir.file("full");
    std::filesystem::create_symlink("/dev/full", p);
    const long n = 400000;
    lasting_time.clear();
    lasting_data.assign(3, series_t{});
    for (long i = 0; i < n; ++i) {
        lasting_time.push_back(1500000000.0 + i / 20.0);
        for (series_t& ch : lasting_data) ch.push_back(static_cast<double>(i % 977));
    }
    set_rows_together_block(512);
    std::ostringstream quoted;
    quoted << p;
    EXPECT_EXIT(write_all(p, lasting_time, lasting_data, 0, n, -1.0, 20.0, nullptr), testing::ExitedWithCode(1),
                testing::Eq("Error: Can't write file " + quoted.str() + ": No space left on device\n"));
}

} // namespace
