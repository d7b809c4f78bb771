// The 129-tap half-band low-pass FIR filter.
#pragma once

// Fills the shared history with value; leaves the write index where it is.
void Initialize(double value);

// Pushes one sample and returns one filtered sample.
double Filter(double x);

// Filters count values in place, exactly as calling Filter on each of them in
// turn would: the same outputs bit for bit, and the same history and write
// index afterwards. Several outputs are computed together, which is faster.
void filter_block(double *values, long count);

// Filters count values in place as filter_block does, but after the 129
// inputs at before (oldest first) instead of the shared history, which it
// neither reads nor changes: pieces of one series can so be filtered at the
// same time, each after the inputs that precede it.
void filter_with_history(const double *before, double *values, long count);

// Leaves the shared history and write index as filter_block on count values
// would, without computing outputs; newest holds the last min(count, 129)
// of those values.
void filter_skip(const double *newest, long count);

// The coefficient table (129 taps, from filter.dat).
extern const double H[129];

// For tests only (the tool never calls these): the write index into the
// shared history, and a way to put it back to its start-up value 0 with an
// all-zero history.
int filter_index_for_tests();
void reset_filter_state_for_tests();

// Which vector width filter_block uses: chosen at run time from the
// processor, or forced (for tests, which compare the paths bit for bit).
enum class FilterLanes { AUTOMATIC, PORTABLE, AVX2 };
bool filter_has_avx2_for_tests();
void force_filter_lanes_for_tests(FilterLanes lanes);
