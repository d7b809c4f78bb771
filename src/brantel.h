// The conversion run.
#pragma once

#include <filesystem>
#include <vector>

// Reads every named recording into one series, conditions it, cuts the
// windows and writes them. Returns 0; failures end the process with status 1
// or throw (the caller prints the exception's text).
int brantel(std::vector<std::filesystem::path>& names, int& optind_ref, int argc);
