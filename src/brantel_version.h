// Version texts of brantel.
#pragma once

// "brantel Version 1.74 " followed by the build date and time.
extern const char* Version;
extern const char* shortVersion;
extern const char* zekver;
// Two lines printed after the help text, and the bug-report line.
extern const char* notice;
extern const char* Bugs;
