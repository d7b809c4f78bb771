// Station numbers, one-letter codes and station strings, and the tables that
// translate between them.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace VxFil {

// Station number as stored in one byte of a vx24 header. 9 to 253 are not stations.
enum STATIONS : uint8_t {
    arvola = 0,
    bredmo = 1,
    corsund = 2,
    dovmark = 3,
    ensholm = 4,
    arvola2 = 5,
    bredmo2 = 6,
    corsund2 = 7,
    dovmark2 = 8,
    test = 254,
    unknown = 255
};

inline const std::map<STATIONS, const char*> stationid2stationname = {
    {arvola, "arvola"},     {bredmo, "bredmo"},     {corsund, "corsund"}, {dovmark, "dovmark"},
    {ensholm, "ensholm"},   {arvola2, "arvola2"},   {bredmo2, "bredmo2"}, {corsund2, "corsund2"},
    {dovmark2, "dovmark2"}, {test, "test"},         {unknown, "unknown"},
};

// One-letter codes of the older comment lines; upper and lower case are the
// same station. The second-generation stations have no letter.
inline const std::map<char, STATIONS> station_char2stationid = {
    {'A', arvola}, {'B', bredmo}, {'C', corsund}, {'D', dovmark}, {'E', ensholm},
    {'a', arvola}, {'b', bredmo}, {'c', corsund}, {'d', dovmark}, {'e', ensholm},
};

// Station strings of TM4 comment lines. "dovmark2" and "d2" deliberately map
// to dovmark (3): recordings labelled so have always reported themselves as
// dovmark, and the archives depend on it.
inline const std::map<std::string, STATIONS> station_string2stationid = {
    {"arvola2", arvola2}, {"bredmo2", bredmo2}, {"corsund2", corsund2}, {"dovmark2", dovmark},
    {"arvola", arvola},   {"bredmo", bredmo},   {"corsund", corsund},   {"dovmark", dovmark},
    {"ensholm", ensholm}, {"a2", arvola2},      {"b2", bredmo2},        {"c2", corsund2},
    {"d2", dovmark},      {"a", arvola},        {"b", bredmo},          {"c", corsund},
    {"d", dovmark},       {"e", ensholm},
};

// One-letter code to station number; a letter that is not a key raises
// std::out_of_range ("map::at").
inline uint8_t old_station2new_station(char c) { return station_char2stationid.at(c); }

} // namespace VxFil
