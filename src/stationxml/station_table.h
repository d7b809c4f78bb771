// The station table: what the recordings do not know about a sensor, one row
// per element and installation, as a spreadsheet exports it (comma-separated,
// header on line 1, columns in any order):
//
//   network,station,location,latitude,longitude,elevation,depth,azimuth,dip,
//   sensitivity,frequency,start,end,site            (and counts_per_volt)
//
// - network, station, location: the codes of the miniSEED records. An empty
//   network makes the row apply to that station code in every network.
// - latitude, longitude (degrees, WGS84), elevation and depth (metres; depth
//   empty is 0), azimuth and dip (degrees, may be empty).
// - sensitivity: the sensor's output in volts per pascal at `frequency` Hz.
// - counts_per_volt (optional column, may be empty): the digitizer's
//   calibrated gain; without it the recordings' own factor is used.
// - start, end: YYYY-MM-DDThh:mm:ssZ (fractions of a second allowed); the row
//   applies to samples at times t with start <= t < end; empty is open.
//   Rows of one element may not overlap.
// - site: a name for the place; empty gives the station code.
// Other columns are ignored.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace stationxml {

inline constexpr int64_t OPEN_START = std::numeric_limits<int64_t>::min();
inline constexpr int64_t OPEN_END = std::numeric_limits<int64_t>::max();

struct station_row {
    int line = 0; // where the row starts in the table
    std::string network, station, location;
    double latitude = 0.0, longitude = 0.0, elevation = 0.0, depth = 0.0;
    std::optional<double> azimuth, dip;
    double sensitivity = 0.0; // V/Pa
    double frequency = 0.0;   // Hz
    std::optional<double> counts_per_volt;
    int64_t start = OPEN_START, end = OPEN_END; // Unix microseconds
    std::string site;

    // The row speaks of this element (an empty network: of every network).
    bool applies_to(const std::string &net, const std::string &sta, const std::string &loc) const {
        return station == sta && location == loc && (network.empty() || network == net);
    }
    bool covers(int64_t t) const { return start <= t && t < end; }
};

struct station_table {
    std::vector<station_row> rows;
};

// Reads a table from its text. `name` is how messages name the file. Every
// fault goes to `faults` as one line (without line end) naming the file, the
// line and the column; false when there is any.
bool read_station_table(const std::string &name, const std::string &text, station_table &table,
                        std::vector<std::string> &faults);

// A time of the form YYYY-MM-DDThh:mm:ss[.fff...]Z in Unix microseconds
// (digits past the sixth of the fraction are dropped); false when the text
// is not such a time or names no real date.
bool parse_utc_time(const std::string &text, int64_t &t_us);

// Unix microseconds as YYYY-MM-DDThh:mm:ss.ffffffZ.
std::string utc_time_text(int64_t t_us);

} // namespace stationxml
