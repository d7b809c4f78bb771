// The gap lists of the report page. Each gap is one table row carrying its
// hooks: data-channel (NET.STA.LOC.CHAN), data-gap-start (the last sample
// before the gap) and data-gap-end (the first sample after it), times as
// 2016-05-04T22:29:52.000Z. Small lists are written into the page; long ones
// (half-hour recordings leave tens of thousands of gaps per channel and
// year) go to report/gaps.js as compact numbers that report/report.js turns
// into the same rows when the page loads.
#pragma once

#include <string>
#include <vector>

#include "channel_gaps.h"

namespace report {

// The gaps of one channel and the id of the table body that lists them.
struct gap_table {
    std::string body_id;
    std::string channel; // NET.STA.LOC.CHAN
    std::vector<gap> gaps;
};

// Up to this many gaps in all, the rows are written into the page.
inline constexpr std::size_t INLINE_GAPS = 2000;

// The rows of a table, as the page holds them.
std::string gap_rows(const gap_table &table);

// report/gaps.js: `var brantelGaps = [[BODY-ID, CHANNEL, [numbers]], ...];` where
// the numbers are, in milliseconds since 1970, the first gap's start, then
// its length, and for every later gap the time from the end of the one
// before to its start, and its length.
std::string gap_data_script(const std::vector<gap_table> &tables);

// report/report.js: fills each table body from brantelGaps with exactly the
// rows that gap_rows writes; it writes nothing to the console.
std::string gap_rows_script();

} // namespace report
