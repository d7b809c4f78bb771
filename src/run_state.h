// What one conversion run learns from its first recording and hands to the
// writers.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "conditioned_channels.h"
#include "series.h"
#include "sds_index.h"
#include "settings.h"
#include "sample_time_axis.h"
#include "vxfil/vx24_frames.h"

struct run_state {
    double freq = -1.0;       // sample rate of the first file (per second, or per minute)
    std::string station;      // station name of the first file
    char comment[STRLEN] = {}; // the comment line the writers put first
    // Device and inode of every input, so that no output overwrites one.
    std::vector<std::pair<dev_t, ino_t>> inputs;
    // For the quick-look (--plot): the sample times in Unix seconds, kept
    // only when the time axis is converted to another unit, and the rate per
    // second of the conditioned series.
    series_t utc_times;
    double utc_rate = 0.0;
    // Binary miniSEED only: where the input series' time axis jumps, taken
    // before conditioning (see mseed_segments.h).
    std::vector<long> segment_breaks;
    // With --facts or --catalog: the facts of every recording of the run, kept once its
    // outputs are written.
    std::vector<sds::recording_facts> facts;
    // The samples of a run whose four-column rows are read from the one vx24
    // input as they are written (see load_recordings.cpp); the channel series
    // and time_array then stay empty. Null when the samples are in the series.
    std::shared_ptr<const VxFil::vx24_frames> frames;
    // The channels of a four-column run whose resampling and filtering are
    // done stretch by stretch as the rows are written (see
    // conditioned_channels.h); the channel series then hold the inputs to
    // those steps. Null when the series hold the rows' values.
    std::shared_ptr<const ConditionedChannels> conditioned;
    // The times of the samples: time_array, the regular axis of the vx24
    // input whose frames are read in place, or time_array resampled.
    TimeAxis times{time_array};
};

// Reads every named recording and appends it to data and time_array.
void load_recordings(const std::vector<std::filesystem::path>& names, run_state& st);

// Index of the first sample to write, from the -s time of day; prints the
// "using ... as starting time" line. Ends the process on a window error.
long find_window_start(const run_state& st);

// Writes every window in the layout that output_type selects.
void write_outputs(const std::vector<std::filesystem::path>& names, const run_state& st, long start_i);
