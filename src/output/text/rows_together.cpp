#include "rows_together.h"

#include <algorithm>
#include <thread>

#include "gap_warning.h"

namespace {

// About half a megabyte of four-column text: large enough that handing a
// block over costs nothing against formatting it, small enough that the
// first block is ready at once.
constexpr long DEFAULT_BLOCK = 16384;

long block_setting = std::thread::hardware_concurrency() > 1 ? DEFAULT_BLOCK : 0;

} // namespace

long rows_together_block() { return block_setting; }
void set_rows_together_block(long rows) { block_setting = rows > 0 ? rows : 0; }

std::size_t rows_per_stretch() {
    constexpr long AT_LEAST = 16384;
    return static_cast<std::size_t>(std::max(block_setting, AT_LEAST));
}

unsigned rows_together_threads() {
    const unsigned n = std::thread::hardware_concurrency();
    return n > 1 ? n : 1;
}

bool rows_together_worthwhile(long size) { return block_setting > 0 && size > block_setting; }

RowBlocks plan_row_blocks(const TimeAxis& time, long start_i, long end, double stm, double tdiff, double freq) {
    RowBlocks plan;
    plan.rows = block_setting > 0 ? block_setting : std::max(end - start_i, 1L);
    if (end > start_i) {
        double prev_time = time[static_cast<std::size_t>(start_i)];
        for (long first = start_i; first < end; first += plan.rows) {
            plan.stm.push_back(stm);
            const long last = std::min(end, first + plan.rows);
            bool gap = false;
            for (long i = first; i < last; ++i) {
                const double t = time[static_cast<std::size_t>(i)];
                gap |= is_gap(t - prev_time, freq);
                stm += tdiff;
                prev_time = t;
            }
            plan.has_gap.push_back(gap);
        }
    }
    plan.end_stm = stm;
    return plan;
}
