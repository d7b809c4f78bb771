// Reading the small text files of the bookkeeping without letting a missing
// or unreadable one stop the report.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace report {

// The whole content of a file; empty when it is missing or cannot be read
// (`readable` tells which, when given).
std::string file_text(const std::filesystem::path &path, bool *readable = nullptr);

// The lines of a text (without their line feeds).
std::vector<std::string> text_lines(const std::string &text);

// The lines of a file; none when it is missing.
std::vector<std::string> file_lines(const std::filesystem::path &path);

// A file's modification time in Unix seconds; 0 when it is missing.
int64_t modified_seconds(const std::filesystem::path &path);

} // namespace report
