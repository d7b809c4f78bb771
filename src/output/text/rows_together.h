// The plan of a window whose rows are formatted on several threads: the
// window is cut into blocks of rows, each formatted apart from the others,
// so every block needs the printed time it starts with. Whether a gap
// warning falls inside a block is found by the thread that formats it.
#pragma once

#include <cstddef>
#include <vector>

#include "series.h"
#include "sample_time_axis.h"

struct RowBlocks {
    long rows = 0;             // rows per block (the last may have fewer)
    std::vector<double> stm;   // the running time at each block's first row
    double end_stm = 0;        // the running time after the last row
};

// Rows per block when rows are formatted together, or 0 when they are
// formatted in order on the writing thread: the default is together where
// the machine has more than one processor. Tests set it to run both ways.
long rows_together_block();
void set_rows_together_block(long rows);
// Rows that a writer reading its values stretch by stretch (from a file, or
// computing them) takes at a time, so that a block of rows formatted
// together costs one stretch; at least 16384 when rows are written in order.
std::size_t rows_per_stretch();
// Worker threads that format blocks.
unsigned rows_together_threads();

// Whether a window of `size` rows is worth cutting into blocks.
bool rows_together_worthwhile(long size);

// The blocks of rows [start_i, end): the running time starts at `stm` and
// grows by `tdiff` per row, exactly as the rows add it one by one, so a block
// that starts from its planned time prints the very times of a pass over all
// rows. The rows' own times are not looked at: a day's plan is one chain of
// additions, about a millisecond before the first block can start.
RowBlocks plan_row_blocks(long start_i, long end, double stm, double tdiff);
