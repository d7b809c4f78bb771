// The traces of a quick-look picture: what to draw of one channel series so
// that a day of millions of samples becomes a few thousand points without
// losing a spike, and so that gaps in the recording stay visible.
//
// The time span of the window is divided into the pixel columns of the plot
// area. When the window holds at most two samples per column, the samples
// themselves are the points. Otherwise every column becomes the minimum and
// the maximum of its samples, two points at the column's middle time, so a
// line through them covers the whole envelope: a single sample far off the
// rest still lifts its column's maximum. In both cases the line breaks where
// the time from one drawn sample (or column) to the next exceeds one column
// and one and a half sample steps, or where a column in between is empty.
#pragma once

#include <vector>

#include "series.h"

// A point of a trace: a time in Unix seconds and a value.
struct plot_point {
    double t;
    double y;
};

// Connected runs of points; a break lies between consecutive runs.
using plot_trace = std::vector<std::vector<plot_point>>;

// The horizontal frame of the picture.
struct plot_frame {
    double t0 = 0.0;          // time at the left edge
    double t1 = 0.0;          // time at the right edge; t1 > t0
    int columns = 1;          // pixel columns between t0 and t1
    double sample_step = 0.0; // nominal time between samples (seconds)
};

// The smallest and largest finite time of the window [start_i, start_i +
// size) of `time`, as far as `time` reaches; false when there is none.
bool window_time_range(const series_t &time, long start_i, long size, double &t0, double &t1);

// The trace of `values` over the window [start_i, start_i + size), using only
// the indices both `time` and `values` hold and only finite times and values.
plot_trace envelope_trace(const series_t &time, const series_t &values, long start_i, long size,
                          const plot_frame &frame);
