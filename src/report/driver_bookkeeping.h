// What the archive driver keeps of its runs in OUTPUT/.brantel-archive/: the
// settings (mode, SOURCE, options), the outcome of every job, the failures
// with their messages and the files skipped as not recordings. A mirror has
// one such bookkeeping at the top; an SDS tree one per SOURCE in sources/ID/.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "report_model.h"

namespace report {

// Whether OUTPUT is an SDS tree (its bookkeeping has `tree` or `sources/`).
bool is_sds_tree(const std::filesystem::path &output);

// Fills the archive's sources, failures and skipped files, and notes in its
// problems what cannot be read.
void read_driver_bookkeeping(const std::filesystem::path &output, archive &a);

// The recordings of a per-directory job line ("DIR\tFILE\tFILE..."), as the
// driver names them in its failures ("DIR: FILE FILE") and as paths
// relative to SOURCE.
struct directory_job {
    std::string name;
    std::vector<std::string> paths;
};
directory_job directory_job_of(const std::string &line);

// Every job line of a bookkeeping folder's `jobs`, by its name.
std::map<std::string, std::vector<std::string>> jobs_by_name(const std::filesystem::path &book);

} // namespace report
