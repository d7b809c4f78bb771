// The --station option: a station name of the station-number table.
#pragma once

#include <string>

// Station number of `name` ("arvola" to "dovmark2", or "test"); -1 when the
// name is not one of them. Only exact lower-case names count.
int station_number_of_name(const std::string &name);

// The accepted names in table order, joined for the refusal message:
// "arvola, bredmo, ..., dovmark2, test".
std::string accepted_station_names();
