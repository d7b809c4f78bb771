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

// stm with tdiff added `rows` times, one addition after another as the rows
// add it. Apart from the plan's loop, whose vector may call the allocator,
// the sum stays in one register; in the loop the compiler kept it in memory
// or moved it through another register on every addition, several times
// slower over a day's rows.
[[gnu::noinline]] double added_rows(double stm, double tdiff, long rows) {
    for (long i = 0; i < rows; ++i)
        stm += tdiff;
    return stm;
}

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

RowBlocks plan_row_blocks(long start_i, long end, double stm, double tdiff) {
    RowBlocks plan;
    plan.rows = block_setting > 0 ? block_setting : std::max(end - start_i, 1L);
    for (long first = start_i; first < end; first += plan.rows) {
        plan.stm.push_back(stm);
        stm = added_rows(stm, tdiff, std::min(end, first + plan.rows) - first);
    }
    plan.end_stm = stm;
    return plan;
}
