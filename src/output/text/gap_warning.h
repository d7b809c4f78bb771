// The warning that every writer prints when the time axis jumps.
#pragma once

#include <filesystem>

// True when two successive printed times lie more than 0.7 x freq seconds
// apart. The threshold is 0.7 times the sample-rate value itself, in seconds,
// not 0.7 sample periods; it is kept that way on purpose.
inline bool is_gap(double diff, double freq) { return diff > 0.7 * freq; }

// Prints to standard error "Warning: It's a gap in the timeline of ", the
// difference, " seconds on line ", the row (counted from 1), " in file ", the
// quoted path and a line end, then the later time and the earlier one as
// whole-second dates in default_time_format, joined by " - ", and a line end.
// A row of 0 leaves out the " on line " part (the legacy dat writer checks
// block starts, not rows).
void report_gap(const std::filesystem::path& file, double diff, long row, double later, double earlier);
