// Conditioning of the run's series, in its fixed order: offset removal, max
// finding and scaling, resampling, low-pass filtering.
#pragma once

#include <cstdint>
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

// A vx24 file whose frames are read in place, and its time axis.
struct frames_in_place {
    std::shared_ptr<const VxFil::vx24_frames> frames;
    TimeAxis times;
};

// Runs every step that the settings ask for on data, time_array and samples.
// Progress words go to standard output unless quiet. May set global_scale
// (automatic scale) and samples (resampling). With `may_defer`, for a
// writer that reads the channels stretch by stretch, resampling and
// filtering of channels that all share the time axis's length (at least two
// samples) are left to the stretches: data and time_array then stay as they
// were after scaling, and what to read instead is returned. With
// `in_place`, whatever conditioning is asked is left to the stretches,
// which read the file's frames (see conditioning_in_place_possible).
std::optional<deferred_conditioning> condition_series(bool may_defer = false,
                                                      const frames_in_place* in_place = nullptr);

// Whether the settings ask for any conditioning at all.
bool conditioning_asked();

// Whether the conditioning that the settings ask for can be left to the rows
// of a vx24 file of `frames` whole frames and `left_over` values after them,
// read in place: always when none is asked; otherwise the file needs a pair
// of frames and nothing after the last whole one (whose values would count
// in the offsets of the whole reading), and a factor that the rows resample.
bool conditioning_in_place_possible(std::uint64_t frames, std::uint64_t left_over);

// The rate of the conditioned series for a recording rate `freq`: resampling
// by -u U multiplies it by U (a factor of 0 or below leaves the series alone).
double upsampled_rate(double freq);
