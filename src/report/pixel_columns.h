// The availability of a channel per pixel column of the chart: years of
// samples and tens of thousands of recordings reduce to one value per column,
// so the chart's size depends on its width, not on the archive.
#pragma once

#include <cstdint>
#include <vector>

#include "channel_gaps.h"

namespace report {

enum class column_level : uint8_t {
    empty,   // no sample in the column
    partial, // samples over part of the column
    full,    // samples over (nearly) the whole column
};

struct column_view {
    std::vector<column_level> levels;
    std::vector<bool> gap_marks; // a gap lies (partly) in the column
};

// The columns of the time range [t0, t1) split into `width` equal columns.
// A column is full when samples cover at least 99.9 % of it; a covered
// stretch stands for its samples' intervals (to one interval after its last
// sample).
column_view pixel_columns(const channel_findings &channel, int64_t t0, int64_t t1, int width);

// Runs of equal values: [begin, end) column ranges with their value.
struct column_run {
    int begin, end;
    column_level level;
};
std::vector<column_run> level_runs(const std::vector<column_level> &levels);
std::vector<column_run> mark_runs(const std::vector<bool> &marks);

} // namespace report
