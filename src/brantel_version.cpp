#include "brantel_version.h"

const char* Version = "brantel Version 1.74 " __DATE__ " " __TIME__;
const char* shortVersion = "brantel Ver: 1.74";
const char* zekver = "$zekver 1.74";
const char* notice = "Converts microbarometer recordings (vx24, vx16, TM4) to text time series.\n"
                     "All times are UTC.";
const char* Bugs = "Report bugs to the station operators' maintainers.";
