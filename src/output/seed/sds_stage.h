// Staging: a recording converted for an SDS archive and kept under
// DIR/.brantel-archive/staging/RUN/ until its run's merge files it. Each
// staged recording is two files named by its key (see recording_key):
//   KEY.samples  every sample's own time and every channel's values (see
//                sds_staged_file.h), as the recording holds them
//   KEY.facts    its facts (recording_facts), written last: a staged
//                recording without them is incomplete and ignored
#pragma once

#include <filesystem>
#include <string>

#include "sds_index.h"

namespace sds {

// What shapes the records of a conversion into the archive.
struct conversion_request {
    std::string network;
    long scale = 1; // every sample multiplied by it
};

fs::path staging_dir(const fs::path &top, const std::string &run);
// KEY.samples of a recording staged for `run`.
fs::path staged_samples_path(const fs::path &top, const std::string &run, const std::string &key);

// Reads the recording at `path` and stages it for `run`. A recording that
// cannot be converted ends through the tool's usual messages and process end
// (exit_with_line or the recording library's own).
void stage_recording(const fs::path &top, const std::string &run, const fs::path &path,
                     const conversion_request &request);

} // namespace sds
