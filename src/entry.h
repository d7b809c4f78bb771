// Start-up of brantel: environment, argument lists, run log, options, and the
// calls of the conversion run.
#pragma once

int brantel_main(int argc, char** argv);

// Prints the help text to standard output.
void Usage(char* name);
