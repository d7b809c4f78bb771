// Conditioning of the run's series, in its fixed order: offset removal, max
// finding and scaling, resampling, low-pass filtering.
#pragma once

// Runs every step that the settings ask for on data, time_array and samples.
// Progress words go to standard output unless quiet. May set global_scale
// (automatic scale) and samples (resampling).
void condition_series();

// The rate of the conditioned series for a recording rate `freq`: resampling
// by -u U multiplies it by U (a factor of 0 or below leaves the series alone).
double upsampled_rate(double freq);
