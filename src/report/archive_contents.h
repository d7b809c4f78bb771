// What OUTPUT really holds, from the facts that the conversions keep (per
// recording and channel: codes, stretches, rate, gain, samples), checked
// against the files present, without reading the samples again.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "report_model.h"
#include "sds_index.h"

namespace report {

// The facts files of a folder (recordings/ or catalog/), in name order. A
// file that is not whole facts is left out with a line in `problems`.
std::vector<sds::recording_facts> read_facts_folder(const std::filesystem::path &folder,
                                                    std::vector<std::string> &problems);

// A recording's path relative to the SOURCE it lies in (the longest one that
// holds it), or the path as it stands.
std::string relative_to_source(const std::string &path, const std::vector<source_run> &sources);

// Whether the samples of a channel on a UTC day (days since 1970) are
// present in OUTPUT.
using presence = std::function<bool(const channel_codes &, int64_t day)>;

// Adds a recording's channels to the archive: its stretches cut at UTC
// midnights, each piece kept only where `present` says so, and its
// settings. Samples count `filed` (what the recording added to an SDS tree)
// or all the recording's samples, for the share of its time kept. Pictures
// (paths relative to OUTPUT) are linked over each channel's time. Returns
// whether any piece was kept.
bool add_recording(archive &a, const sds::recording_facts &facts, const std::string &relative,
                   const presence &present, bool count_filed, const std::vector<std::string> &pictures = {});

// An SDS tree: the facts of its filed recordings (recordings/), kept where
// their day files are present; the index of the day files (days/) names the
// day files that are missing or changed since.
void read_sds_contents(const std::filesystem::path &output, archive &a);

// A mirror: the facts of its recordings as read (catalog/, or recordings/
// of runs that kept only those), kept where the recording's outputs are
// present; with the quick-look pictures among those outputs.
void read_mirror_contents(const std::filesystem::path &output, archive &a);

} // namespace report
