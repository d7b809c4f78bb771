// Start-up of brantel: environment, argument lists, run log, options, and the
// calls of the conversion run.
#pragma once

int brantel_main(int argc, char** argv);

// Prints the help text to standard output.
void Usage(char* name);

struct option;
// The option tables that brantel_main hands to getopt_long (for tests).
const struct option *brantel_long_options();
const char *brantel_short_options();
