// Writing a whole text to a file descriptor: a pipe or a file may take it in
// several pieces, and a signal may interrupt a write before any byte.
#pragma once

#include <string_view>

// Writes all of `text` to `fd`; false when the reader went away or another
// write error happened.
bool write_fully(int fd, std::string_view text);
