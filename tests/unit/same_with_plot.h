// A run against the same command with --plot in front: the picture reads
// whole series, so that run loads the recordings and conditions them whole,
// where the run without it may read frames in place or condition rows as they
// are written. Both must say and write the same.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

// Runs every command line of `cases` in `dir` (whose files are the inputs),
// then the same with --plot first, and expects the same status, standard
// output, standard error and output files (every new file but the run log
// and the pictures), removing the outputs after each case. With
// `every_case_writes`, each case must leave at least one output.
void expect_same_as_with_plot(const std::filesystem::path &dir,
                              const std::vector<std::vector<std::string>> &cases, bool every_case_writes);
