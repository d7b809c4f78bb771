// What the report page shows, gathered from an output folder: the channels
// with the stretches of samples that are really there, the recordings, the
// runs of the archive driver and what they failed or skipped, and the
// problems found in the bookkeeping itself.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "sds_paths.h"

namespace report {

// Continuous samples of one channel, first and last sample in Unix
// microseconds, at `rate` samples per second.
struct stretch {
    int64_t first = 0, last = 0;
    double rate = 0.0;
};

// The settings that one recording gives a channel from its first sample on.
struct channel_setting {
    int64_t time = 0;
    double rate = 0.0;
    double gain = 0.0;
    double volts_per_count = 0.0;
    std::string recording; // its path relative to its SOURCE
};

// A link from a stretch of a channel's row to a picture (relative to OUTPUT).
struct picture_link {
    int64_t first = 0, last = 0;
    std::string href;
    std::string title;
};

struct channel_data {
    channel_codes codes;
    std::vector<stretch> stretches;
    std::vector<channel_setting> settings;
    std::vector<picture_link> pictures;
    uint64_t samples = 0;
};

// One SOURCE converted into OUTPUT and its last run.
struct source_run {
    std::string source;
    std::string mode; // "sds", "single" or "per-directory"
    std::vector<std::string> options;
    int64_t ended = 0; // Unix seconds; 0 when unknown
    long converted = 0, failed = 0, skipped = 0;
};

// A file that failed (or was refused, or is damaged), by its path relative
// to its SOURCE.
struct failed_file {
    std::string path;
    std::string message;
};

struct archive {
    bool sds = false;
    std::string output; // OUTPUT as given
    std::vector<source_run> sources;
    std::map<std::string, channel_data> channels; // by NET.STA.LOC.CHAN
    std::vector<failed_file> failures;
    std::vector<std::string> skipped; // files that are not recordings
    std::vector<std::string> problems; // of the bookkeeping and the files present
    long recordings = 0;              // recordings whose samples are drawn
    long day_files = 0;               // SDS: day files present
    // SDS: the quick-look pictures by NET.STA.LOC and UTC day (days since 1970).
    std::map<std::string, std::map<int64_t, std::string>> quicklooks;
};

} // namespace report
