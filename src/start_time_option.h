// The -s option: a start time of day as h.m.s, m.s or h.
#pragma once

#include <string>

// Parses the argument of -s. On success stores the seconds in seconds and
// returns true; otherwise returns false and appends the error lines to errors.
bool parse_start_time(const char* argument, long& seconds, std::string& errors);
