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
    std::vector<long> first;   // the first row of each block
    std::vector<double> stm;   // the running time at each block's first row
    long end = 0;              // the row after the last block
    double end_stm = 0;        // the running time after the last row
    // The row after block b: where the next block starts.
    long block_end(std::size_t b) const { return b + 1 < first.size() ? first[b + 1] : end; }
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
// rows. The rows' own times are not looked at. The first blocks are an
// eighth, a quarter and a half of the others, so that the first text reaches
// the file (and its sync along the way starts) soon after the start.
RowBlocks plan_row_blocks(long start_i, long end, double stm, double tdiff);

// stm with tdiff added `rows` times, one addition after another as the rows
// add it, with the rounding of every addition.
double added_rows(double stm, double tdiff, long rows);
