// Segments of the binary miniSEED layout: runs of samples whose times follow
// each other at the sample rate. Where the time axis of the input series
// jumps by more than half a sample interval (a gap or an overlap between
// appended files) a new segment starts, so that the file carries the true
// timing instead of a series that pretends to be continuous.
#pragma once

#include <vector>

#include "series.h"
#include "sample_time_axis.h"

// A range of sample indices [begin, end).
struct sample_range {
    long begin;
    long end;
    bool operator==(const sample_range &) const = default;
};

// Indices i > 0 of the input time axis where a segment starts: the step
// time[i] - time[i - 1] differs from 1 / freq by more than half of 1 / freq
// (or is not a number).
std::vector<long> segment_breaks(const TimeAxis &time, double freq);

// The segments of the written series within the window [start, start + size).
// `breaks` are those of the input series; after resampling by `up` (1
// without resampling) input sample i is written sample i * up, and `total`
// is the written series' length. A segment that ends at a break ends with the
// last input sample before it: the samples interpolated across a break would
// bridge the gap and are left out. Empty pieces are dropped.
std::vector<sample_range> window_segments(const std::vector<long> &breaks, long up, long total, long start,
                                          long size);
