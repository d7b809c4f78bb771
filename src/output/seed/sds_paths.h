// Names in an SDS archive: one file per channel and UTC day,
//   YEAR/NET/STA/CHAN.D/NET.STA.LOC.CHAN.D.YEAR.DOY
// with the day of the year in three digits (001 to 366).
#pragma once

#include <cstdint>
#include <string>

// The SEED codes of one channel of the archive.
struct channel_codes {
    std::string network, station, location, channel;
    // NET.STA.LOC.CHAN, the location empty where it is.
    std::string id() const;
    bool operator==(const channel_codes &) const = default;
    bool operator<(const channel_codes &o) const { return id() < o.id(); }
};

// Codes from "NET.STA.LOC.CHAN"; false when the text has not four fields.
bool parse_channel_id(const std::string &id, channel_codes &codes);

// The day file of a channel and UTC day (days since 1970-01-01), relative to
// the archive's top.
std::string day_file_path(const channel_codes &codes, int64_t day);

// Its last component alone: NET.STA.LOC.CHAN.D.YEAR.DOY.
std::string day_file_name(const channel_codes &codes, int64_t day);

// A time in Unix microseconds as 2016-05-04T22:29:52.000Z (UTC, milliseconds).
std::string iso_time_ms(int64_t t_us);

// The path (relative to the archive's top) of a day file named
// NET.STA.LOC.CHAN.D.YEAR.DOY; empty when the name is not of that form.
std::string day_file_path_of_name(const std::string &name);

// The codes and UTC day of a day file named NET.STA.LOC.CHAN.D.YEAR.DOY;
// false when the name is not of that form or names no day of its year.
bool parse_day_file_name(const std::string &name, channel_codes &codes, int64_t &day);
