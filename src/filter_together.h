// The low-pass filter over every series of a run at once, on every core.
#pragma once

#include <vector>

#include "series.h"

// The same outputs, bit for bit, and the same shared filter state afterwards
// as filter_series on each series in turn.
void filter_all_series(std::vector<series_t> &series);
