// The ticks of the chart's UTC time axis: round times (minutes, hours, days,
// month and year starts) at most `max_ticks` over the range, labelled as
// finely as the step needs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace report {

struct axis_tick {
    int64_t t; // Unix microseconds
    std::string label;
};

std::vector<axis_tick> time_ticks(int64_t t0, int64_t t1, int max_ticks);

} // namespace report
