// Many named files converted in one run, one at a time. A file that fails
// ends only its own conversion, so that the run can go on with the next
// (--keep-going); its messages can then be told apart from those of the
// other files by the path put before each of their lines; and every file
// that ended well can be listed as soon as its outputs are complete
// (--done-list), so that a script resumes a killed run without converting
// a finished file again.
#pragma once

#include <functional>

// Opens the --done-list file for appending; a list that cannot be opened
// ends the process with one line before any file is converted.
void open_done_list();

// Runs `work`, the conversion of the file named `path` as the command line
// gave it. An end of the process inside it (a refused input, a damaged
// recording, a write error, an exception) ends only this file. The messages
// of a file that fails go to standard error as usual, or with --keep-going
// each of their lines after "PATH: "; a file that ends well is appended to
// the --done-list. True when the file ended well.
bool convert_one_file(const char* path, const std::function<void()>& work);
