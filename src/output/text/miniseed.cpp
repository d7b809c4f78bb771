// SEED codes and time units for the miniSEED ASCII layouts (SLIST, TSPAIR).
#include "miniseed.h"

#include <cmath>

#include "settings.h"

namespace {

struct station_code {
    const char* name;
    const char* code;
};

// Station names and their SEED station codes; the first match wins. There is
// deliberately no row for "ensholm2": it keeps the placeholder code "test".
constexpr station_code STATION_CODES[] = {
    {"arvola", "RAA"},  {"arvola2", "RAA"},  {"bredmo", "RBA"},  {"bredmo2", "RBA"},
    {"corsund", "RCA"}, {"corsund2", "RCA"}, {"dovmark", "RDA"}, {"dovmark2", "RDA"},
    {"ensholm", "REA"},
};

} // namespace

void miniseed_name(std::string station, std::string* net, std::string* sta, std::string* loc,
                   std::string* chan) {
    // The location code is always the placeholder "test".
    *net = "ZEK";
    *sta = "test";
    *loc = "test";
    *chan = "BDF";
    for (const station_code& row : STATION_CODES) {
        if (station == row.name) {
            *sta = row.code;
            return;
        }
    }
}

double time_convert(double t) {
    // 60 is a single-precision constant; it converts exactly, so t / 60.0f is
    // the same double division as t / 60.0.
    switch (time_in_minutes) {
    case TIME_MINUTES:
        return t / 60.0f;
    case TIME_SECONDS_DAY:
        return std::fmod(t, 86400.0);
    case TIME_MINUTES_DAY:
        return std::fmod(t / 60.0f, 1440.0);
    default:
        return t;
    }
}
