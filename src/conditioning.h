// Conditioning of the run's series, in its fixed order: offset removal, max
// finding and scaling, resampling, low-pass filtering.
#pragma once

#include <memory>
#include <optional>

#include "conditioned_channels.h"
#include "sample_time_axis.h"

// Resampling and filtering left to the rows as they are written: the
// channels and the time axis they would have given.
struct deferred_conditioning {
    std::shared_ptr<const ConditionedChannels> channels;
    TimeAxis times;
};

// Runs every step that the settings ask for on data, time_array and samples.
// Progress words go to standard output unless quiet. May set global_scale
// (automatic scale) and samples (resampling). With `may_defer`, for a
// writer that reads the channels stretch by stretch, resampling and
// filtering of channels that all share the time axis's length (at least two
// samples) are left to the stretches: data and time_array then stay as they
// were after scaling, and what to read instead is returned.
std::optional<deferred_conditioning> condition_series(bool may_defer = false);

// The rate of the conditioned series for a recording rate `freq`: resampling
// by -u U multiplies it by U (a factor of 0 or below leaves the series alone).
double upsampled_rate(double freq);
