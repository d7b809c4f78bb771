// Channel epochs from the facts that the archive keeps of every recording it
// holds, and the station table.
//
// A channel's samples are known by their continuous stretches (first and
// last sample time, count) and what each recording says of them: the rate,
// the volts-per-count factor and the external gain. A new epoch starts where
// any of these or the table row that applies changes; a gap alone starts
// none. Each epoch starts at its first sample and ends one interval after its
// last, or at the next epoch's start where that comes first, so that the
// epochs of a channel never overlap and every sample lies in exactly one.
//
// A table row's start or end may fall inside a stretch. The samples of a
// stretch are taken as evenly spaced from its first to its last, and those
// at or after the row's boundary go to the next row.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sds_index.h"
#include "station_table.h"

namespace stationxml {

struct channel_epoch {
    int64_t start = 0, end = 0; // Unix microseconds; end excluded
    double rate = 0.0;
    double volts_per_count = 0.0;
    double gain = 0.0;                // external gain
    const station_row *row = nullptr; // the table row that applies
};

struct channel_history {
    channel_codes codes;
    std::vector<channel_epoch> epochs; // in time order
};

// Samples of an element that no table row covers, from the first to the last.
struct uncovered_span {
    std::string element; // NET.STA, or NET.STA.LOC where there is a location
    int64_t first = 0, last = 0;
};

struct epoch_plan {
    std::vector<channel_history> channels; // sorted by NET.STA.LOC.CHAN
    std::vector<uncovered_span> uncovered; // by element, then time
};

epoch_plan plan_epochs(const std::vector<sds::recording_facts> &recordings, const station_table &table);

} // namespace stationxml
