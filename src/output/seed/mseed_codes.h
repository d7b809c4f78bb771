// SEED codes of the binary miniSEED layout: one station code per sensor (the
// station's code followed by the 1-based channel number, as in the names of
// the ASCII TIMESERIES series), an empty location, and a channel code made of
// the band code of the written sample rate and "DF" (pressure, infrasound).
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// A SEED station code holds at most 5 characters.
constexpr std::size_t MAX_STATION_CODE = 5;

// Band code of a sensor with a corner period of 10 s or more sampled at
// `rate` hertz: B for 10 to below 80 Hz, H for 80 to below 250 Hz and so on.
char band_code(double rate);

// Band code followed by "DF", e.g. "BDF" at 20 Hz.
std::string channel_code(double rate);

// Upper-case station code of series `ch` (0-based) of a station, e.g. "RAA1"
// for the first series of arvola, "TEST10" for the tenth of an unnamed one.
// The caller refuses codes longer than MAX_STATION_CODE.
std::string station_code(const std::string &station, std::size_t ch);

// A network code is 1 or 2 upper-case letters or digits.
bool valid_network_code(std::string_view code);

// A record length is a power of two from 256 to 65536 bytes.
bool valid_record_length(long length);
