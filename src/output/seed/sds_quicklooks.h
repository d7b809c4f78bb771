// Quick-look pictures of an SDS archive (brantel --sds ... --plot): one
// picture per recorder and UTC day, with every channel that the recorder's
// day files hold that day (the elements of an array station, each a station
// code of its own: RAA1, RAA2, RAA3 of station RAA) stacked over one time
// axis, drawn from the day files as --plot draws a recording. The picture
// goes under the name of every element, NET.STA.LOC of its channels,
//   DIR/report/quicklooks/NET.STA.LOC/YYYY-MM-DD.png
// (the folder of an element without location code ends in its dot:
// XX.REA1.), so that a channel leads to its day's picture by its own codes;
// the names of one picture share their bytes (hard links where the file
// system has them).
//
// A merge that rewrites a day file removes its recorder's pictures of that
// day before the new day file is put in place; a merge with --plot then
// draws every picture that is missing. So a picture never shows other
// samples than its day files hold, a run that changes nothing draws
// nothing, a run that adds --plot draws every day that lacks a picture, and
// a merge killed between the two leaves a day to be drawn by the next run
// with --plot.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "sds_paths.h"
#include "write_plot.h"

namespace sds {

namespace fs = std::filesystem;

// NET.STA.LOC of a channel: its element.
std::string element_id(const channel_codes &codes);

// Its recorder: NET.STA.LOC with the element number at the end of the
// station code left out (XX.RAA. of XX.RAA2..BDF).
std::string recorder_id(const channel_codes &codes);

// The picture of the channel's recorder and UTC day (days since
// 1970-01-01), under the channel's element.
fs::path quicklook_path(const fs::path &top, const channel_codes &codes, int64_t day);

// Removes the pictures of the channel's recorder and day, under every
// element. Throws std::runtime_error when one is there and cannot be
// removed.
void forget_quicklook(const fs::path &top, const channel_codes &codes, int64_t day);

struct quicklook_outcome {
    std::size_t drawn = 0; // pictures (a recorder's day), not names
    std::vector<std::string> failures; // one message per picture not drawn
};

// Draws every picture of the archive's day files that is missing, as many
// at a time as there are cores. The caller holds the archive's merge lock,
// so that no day file changes meanwhile.
quicklook_outcome draw_missing_quicklooks(const fs::path &top, const gnuplot_runner &run = run_gnuplot);

} // namespace sds
