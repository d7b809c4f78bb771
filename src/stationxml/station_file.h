// DIR/stations.xml of an SDS archive: read the facts that the archive keeps
// of its recordings, plan the channel epochs with the station table, and
// write the document, or remove a stale one when no complete document can be
// made.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "channel_epochs.h"
#include "sds_index.h"
#include "station_table.h"

namespace stationxml {

namespace fs = std::filesystem;

// The facts of every recording in the archive at `top`, read under the
// archive's merge lock so that a merge running beside is not seen half done.
// False, with one line in `error`, when the archive has no bookkeeping, was
// made with -z (its samples are not counts) or a facts file is damaged.
bool read_archive_facts(const fs::path &top, std::vector<sds::recording_facts> &facts, std::string &error);

struct station_file_outcome {
    bool written = false;            // the file was replaced (false: left as it was, or removed)
    bool refused = false;            // no document: `faults` says why, and an old file is removed
    std::vector<std::string> faults; // one line each, without line end
    std::size_t channels = 0, epochs = 0;
};

// The path of the document in an archive.
fs::path station_file_path(const fs::path &top);

// Makes `top`/stations.xml from the facts and the table. `table_name` names
// the table in messages, `source` is the document's Source and `now` its
// Created time for a new content. A file whose content would change only in
// its Created time is left alone (bytes and modification time). Throws
// std::runtime_error when the file cannot be written.
station_file_outcome update_station_file(const fs::path &top, const std::vector<sds::recording_facts> &facts,
                                         const station_table &table, const std::string &table_name,
                                         const std::string &source, const std::string &now);

// The Created text of a document, or empty.
std::string created_of(const std::string &document);

} // namespace stationxml
