// The run log: one appended line per run with the local date and time and the
// whole command line.
#pragma once

#include <string>

// A new malloc'ed copy of s with a backslash before every double quote and
// backslash; an empty string for null or empty s; null when allocation fails.
char* quote_string(const char* s);

// Appends the command line to the file path.
void flogfile(const char* path, int argc, char** argv);

// flogfile("logfile", argc, argv).
void logfile(int argc, char** argv);

// The fields of one log line (everything after the time stamp, without the
// line end), so that the quoting can be tested without a clock.
std::string log_fields(int argc, char** argv);
