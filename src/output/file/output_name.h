// Names of the output files: the first input's path with a new extension,
// in the --target-directory when one is given.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

// The output of `input` with `extension` (without its leading dot).
std::filesystem::path output_name(const std::filesystem::path &input, const std::string &extension);

// With a target directory, runs of different inputs can name the same
// output (a/rec.vx24 and b/rec.vx24, or rec.vx24 and rec.dat). Ends the
// process with one line naming the first two such inputs, before anything is
// written. `inputs` are the inputs of runs of their own (not combined).
void refuse_clashing_outputs(const std::vector<std::filesystem::path> &inputs);

// Creates the target directory with its parents when it is missing; ends the
// process with one line naming it when that fails.
void make_target_directory();
