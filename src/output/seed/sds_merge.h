// The merge of a run's staged recordings into the day files of an SDS
// archive. One merge at a time holds the archive's merge lock. It goes in
// three steps:
//   1. decide: every staged recording of the run, in byte order of its path,
//      is checked against the archive and the recordings accepted before it;
//      one that conflicts (or conflicts with itself) is refused whole;
//   2. the decision is written down (staging/RUN/plan), then every day file
//      that an accepted recording reaches is merged and replaced atomically;
//   3. the accepted recordings' facts go to recordings/, the refusals to
//      staging/RUN/refused, and the staged files and the plan are removed.
// A merge killed after step 1 is finished by the next merge of any run, with
// the decisions it had made, before that merge decides anything of its own:
// a recording is in the archive only once all its day files hold it.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "sds_index.h"

namespace sds {

struct merge_outcome {
    std::size_t day_files_written = 0;
    std::size_t channels = 0;  // channels whose day files were written
    std::size_t gaps = 0;      // gaps longer than 1.5 intervals in the day files written
    std::size_t conflicts = 0; // recordings refused by a conflict
    std::vector<std::pair<std::string, std::string>> refused; // path as given, message line
};

// Merges what `run` staged. `record_length` is the archive's. Warnings (a day
// file missing or changed since the archive wrote it) and refusals go to
// standard error as they are found. Throws std::runtime_error when the
// archive cannot be written.
merge_outcome merge_run(const fs::path &top, const std::string &run, int record_length);

} // namespace sds
