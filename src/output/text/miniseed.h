// Names and time units of the miniSEED ASCII layouts.
#pragma once

#include <string>

// Network, station, location and channel codes for a station name.
void miniseed_name(std::string station, std::string* net, std::string* sta, std::string* loc,
                   std::string* chan);

// A time in Unix seconds in the unit that time_in_minutes selects.
double time_convert(double t);
