// Checks of the sample window handed to a writer.
#pragma once

#include <cstddef>
#include <vector>

#include "series.h"
#include "sample_time_axis.h"

// Throws std::out_of_range, naming `writer`, when `start_i` is negative or a
// non-empty window [start_i, start_i + size) passes the end of `series`. The
// writers call it before they create their file, so a caller's mistake
// cannot read beyond a series.
void check_window(const char* writer, const series_t& series, long start_i, long size);
// The same for a source of `length` rows that is not a series in memory.
void check_window_length(const char* writer, std::size_t length, long start_i, long size);
void check_window(const char* writer, const std::vector<series_t>& data, long start_i, long size);

// The first printed time: `stm` unless it is negative, then the time of the
// first sample of the window (when that sample exists).
double first_time(double stm, const TimeAxis& time, long start_i);
