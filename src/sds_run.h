// brantel --sds DIR FILE...: recordings filed into an SDS archive of day
// files (see output/seed/sds_merge.h for the merge and its rules).
#pragma once

#include <string>
#include <vector>

// An option as the command line gave it: the code getopt_long returned and
// its name ("-z", "--one-file").
struct given_option {
    int code;
    std::string name;
};

// With --sds only the options that neither lay out text nor change samples
// or windows are allowed (and -z with a factor above zero); the first other
// one ends the process with one line, before anything is written.
void refuse_options_beside_sds(const std::vector<given_option>& given);

// The run: stages every file (going on past one that fails) and merges them,
// or only stages (--sds-stage) or only merges (--sds-merge). Returns the
// exit status: 1 when any recording failed or was refused.
int sds_main(int count, char** files);
