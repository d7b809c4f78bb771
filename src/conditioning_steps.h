// The single steps of the conditioning chain, one series at a time. The chain
// itself, with its progress words and its fixed order, is condition_series()
// in conditioning.h; the steps are separate so that each can be checked alone.
#pragma once

#include <vector>

#include "series.h"

// Most values a resampled series may hold (2^31). Larger requests are refused
// rather than attempted.
constexpr long MAX_RESAMPLED = 2147483648L;

// Subtracts the mean (sum from first to last, from 0.0, divided by the
// length) from every value. An empty series is left alone.
void remove_series_offset(series_t& values);

// The largest value over all non-empty series, and at least 0.0. Signed: a
// series of negative values only contributes nothing.
double max_over_series(const std::vector<series_t>& series);

// Automatic scale for a max: 1, doubled for each n = 14, 13, ..., 8 until
// 2^n <= max. So 1 for max >= 16384, 2 for [8192, 16384), ..., 128 below 256.
long choose_scale(double max);

// Multiplies every value by scale. Nothing divides the values back later.
void scale_series(series_t& values, long scale);

// Throws std::runtime_error ("Error: Upsampling factor (-u) out of range.\n")
// unless up >= 1 and count * up stays within MAX_RESAMPLED (count >= 0).
void check_upsample_factor(long count, long up);

// The value the fraction f of the way from a to b, as resampling computes
// it: a + f * (b - a). Values and times interpolated apart (whole series,
// stretches of rows, single times) all take this expression, so they are
// the same numbers.
inline double interpolated(double a, double b, double f) { return a + f * (b - a); }

// The fractions j / up of resampling by up, j = 0 .. up-1, each the same
// division (none for up <= 0).
std::vector<double> resampling_fractions(long up);

// Linear interpolation by the factor up: for every consecutive pair
// (v[i], v[i+1]) the values v[i] + (j / up) * (v[i+1] - v[i]), j = 0 .. up-1.
// The last value starts no pair, so the result holds (n - 1) * up values
// (none for n < 2). Throws like check_upsample_factor for a bad factor.
series_t resample_series(const series_t& values, long up);

// Runs every value, first to last, through the shared filter after
// Initialize(0.0); the filter's write index carries over from the call before.
void filter_series(series_t& values);

// After resampling the series are one input step short of the new sample
// count (see conditioning.cpp). These fill a series up to count entries:
// values with last_value, times by adding step to the last time (or, for an
// empty resampled axis, with first_time). Longer series are left as they are.
void extend_series(series_t& values, double last_value, long count);
void extend_time_axis(series_t& times, double first_time, double step, long count);
