// The in-memory series of one conversion run, read by every writer.
#pragma once

#include <vector>

using series_t = std::vector<double>;

// One series of doubles per channel, indexed by channel number.
extern std::vector<series_t> data;
// One time per sample: Unix seconds (UTC), later possibly minutes or time of day.
extern series_t time_array;
// Number of samples in the run.
extern long samples;

// Room reserved in every series when it is created.
constexpr long MAXSIZE = 3276800;
