// Reading the station table (see station_table.h).
#include "station_table.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>

#include "csv_records.h"

namespace stationxml {

namespace {

// Days from 1970-01-01 to a civil date (proleptic Gregorian).
int64_t days_from_civil(int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const auto yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

bool leap_year(int y) {
    return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

int days_in_month(int y, int m) {
    static constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return m == 2 && leap_year(y) ? 29 : days[m - 1];
}

std::string trim(const std::string &s) {
    const auto blank = [](char c) { return c == ' ' || c == '\t'; };
    std::size_t b = 0, e = s.size();
    while (b < e && blank(s[b]))
        ++b;
    while (e > b && blank(s[e - 1]))
        --e;
    return s.substr(b, e - b);
}

std::string lower(std::string s) {
    for (char &c : s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

bool parse_number(const std::string &s, double &v) {
    if (s.empty()) return false;
    char *end = nullptr;
    v = std::strtod(s.c_str(), &end);
    return *end == '\0' && std::isfinite(v);
}

// Well-formed UTF-8 without the control characters that XML 1.0 forbids.
bool xml_text(const std::string &s) {
    std::size_t i = 0;
    while (i < s.size()) {
        const auto c = static_cast<unsigned char>(s[i]);
        if (c < 0x80) {
            if (c < 0x20 && c != '\t' && c != '\n' && c != '\r') return false;
            ++i;
            continue;
        }
        int more;
        uint32_t cp;
        if ((c & 0xE0) == 0xC0) {
            more = 1;
            cp = c & 0x1F;
        } else if ((c & 0xF0) == 0xE0) {
            more = 2;
            cp = c & 0x0F;
        } else if ((c & 0xF8) == 0xF0) {
            more = 3;
            cp = c & 0x07;
        } else {
            return false;
        }
        if (i + more >= s.size()) return false;
        for (int k = 1; k <= more; ++k) {
            const auto cc = static_cast<unsigned char>(s[i + k]);
            if ((cc & 0xC0) != 0x80) return false;
            cp = (cp << 6) | (cc & 0x3F);
        }
        static constexpr uint32_t least[] = {0, 0x80, 0x800, 0x10000};
        if (cp < least[more] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF) || cp == 0xFFFE ||
            cp == 0xFFFF)
            return false;
        i += static_cast<std::size_t>(more) + 1;
    }
    return true;
}

// What a column holds and where it goes in a row. Columns whose text may be
// empty say what an empty one means by leaving the row's default.
enum class kind { CODE, NUMBER, OPTIONAL_NUMBER, TIME, TEXT };

struct column {
    const char *name;
    kind type;
    bool needed;                             // the table must have the column
    std::size_t max_length = 0;              // CODE: most characters
    bool may_be_empty = false;               // CODE, NUMBER: an empty field leaves the row's default
    double low = -INFINITY, high = INFINITY; // NUMBER, OPTIONAL_NUMBER
    bool high_included = true, low_included = true;
    std::string station_row::*text = nullptr;
    double station_row::*number = nullptr;
    std::optional<double> station_row::*optional_number = nullptr;
    int64_t station_row::*time = nullptr;
    const char *range = ""; // the allowed range in words, for messages
};

// Codes are those of miniSEED 2 records; the angles and coordinates those
// that StationXML readers accept (a latitude of 90 is not among them: its
// type ends below 90; an azimuth runs from 0 up to 360 exclusive).
const std::vector<column> &columns() {
    static const std::vector<column> table = [] {
        std::vector<column> c;
        const auto code = [&](const char *name, std::size_t max, bool may_be_empty,
                              std::string station_row::*f) {
            column k{name, kind::CODE, true};
            k.max_length = max;
            k.may_be_empty = may_be_empty;
            k.text = f;
            c.push_back(k);
        };
        const auto number = [&](const char *name, double low, bool low_in, double high, bool high_in,
                                const char *range, double station_row::*f, bool may_be_empty = false) {
            column k{name, kind::NUMBER, true};
            k.may_be_empty = may_be_empty;
            k.low = low;
            k.low_included = low_in;
            k.high = high;
            k.high_included = high_in;
            k.range = range;
            k.number = f;
            c.push_back(k);
        };
        const auto optional = [&](const char *name, bool needed, double low, bool low_in, double high,
                                  bool high_in, const char *range, std::optional<double> station_row::*f) {
            column k{name, kind::OPTIONAL_NUMBER, needed};
            k.low = low;
            k.low_included = low_in;
            k.high = high;
            k.high_included = high_in;
            k.range = range;
            k.optional_number = f;
            c.push_back(k);
        };
        const auto time = [&](const char *name, int64_t station_row::*f) {
            column k{name, kind::TIME, true};
            k.time = f;
            c.push_back(k);
        };
        code("network", 2, true, &station_row::network);
        code("station", 5, false, &station_row::station);
        code("location", 2, true, &station_row::location);
        number("latitude", -90, true, 90, false, "from -90 up to (not including) 90", &station_row::latitude);
        number("longitude", -180, true, 180, true, "from -180 to 180", &station_row::longitude);
        number("elevation", -INFINITY, true, INFINITY, true, "", &station_row::elevation);
        number("depth", -INFINITY, true, INFINITY, true, "", &station_row::depth, true); // empty: 0
        optional("azimuth", true, 0, true, 360, false, "from 0 up to (not including) 360",
                 &station_row::azimuth);
        optional("dip", true, -90, true, 90, true, "from -90 to 90", &station_row::dip);
        number("sensitivity", 0, false, INFINITY, true, "above 0", &station_row::sensitivity);
        number("frequency", 0, false, INFINITY, true, "above 0", &station_row::frequency);
        optional("counts_per_volt", false, 0, false, INFINITY, true, "above 0",
                 &station_row::counts_per_volt);
        time("start", &station_row::start);
        time("end", &station_row::end);
        column site{"site", kind::TEXT, true};
        site.text = &station_row::site;
        c.push_back(site);
        return c;
    }();
    return table;
}

bool in_range(const column &k, double v) {
    if (k.low_included ? v < k.low : v <= k.low) return false;
    if (k.high_included ? v > k.high : v >= k.high) return false;
    return true;
}

std::string quoted(const std::string &s) {
    return "\"" + s + "\"";
}

// NET.STA or NET.STA.LOC as the records name it; STA (every network) for a
// row without a network.
std::string element_text(const station_row &r) {
    const std::string sta = r.station + (r.location.empty() ? "" : "." + r.location);
    return r.network.empty() ? sta + " (every network)" : r.network + "." + sta;
}

class table_reader {
  public:
    table_reader(const std::string &name, std::vector<std::string> &faults)
        : m_name(name), m_faults(faults) {}

    void fault(int line, const std::string &column, const std::string &what) {
        m_faults.push_back("Error: " + quoted(m_name) + " line " + std::to_string(line) +
                           (column.empty() ? "" : ", column " + column) + ": " + what);
    }

    // The header's column positions; false when the table cannot be read on.
    bool read_header(const csv_record &header) {
        const bool one_field_with_semicolons =
            header.fields.size() == 1 && header.fields[0].find(';') != std::string::npos;
        if (one_field_with_semicolons) {
            fault(header.line, "",
                  "the columns are separated by semicolons; save the table with commas between "
                  "columns (CSV, comma-separated)");
            return false;
        }
        for (std::size_t i = 0; i < header.fields.size(); ++i) {
            const std::string key = lower(trim(header.fields[i]));
            if (key.empty()) continue;
            if (m_position.count(key)) {
                fault(header.line, key, "the column appears twice");
                continue;
            }
            m_position[key] = i;
        }
        m_width = header.fields.size();
        for (const column &k : columns())
            if (k.needed && !m_position.count(k.name))
                fault(header.line, k.name, "the table has no such column");
        return m_faults.empty();
    }

    void read_row(const csv_record &record, station_table &table) {
        const bool blank = std::all_of(record.fields.begin(), record.fields.end(),
                                       [](const std::string &f) { return trim(f).empty(); });
        if (blank) return;
        if (record.fields.size() != m_width) {
            fault(record.line, "",
                  std::to_string(record.fields.size()) + " fields where the header has " +
                      std::to_string(m_width));
            return;
        }
        station_row row;
        row.line = record.line;
        bool good = true;
        for (const column &k : columns()) {
            const auto at = m_position.find(k.name);
            if (at == m_position.end()) continue;
            const std::string raw = record.fields[at->second];
            good = read_field(k, k.type == kind::TEXT ? raw : trim(raw), record.line, row) && good;
        }
        if (good && row.end <= row.start) {
            fault(record.line, "end",
                  quoted(utc_time_text(row.end)) + " is not after the start " +
                      quoted(utc_time_text(row.start)));
            good = false;
        }
        if (good) table.rows.push_back(row);
    }

    // Rows of one element must not overlap in time: which would apply?
    void check_overlaps(const station_table &table) {
        for (std::size_t j = 1; j < table.rows.size(); ++j) {
            const station_row &b = table.rows[j];
            for (std::size_t i = 0; i < j; ++i) {
                const station_row &a = table.rows[i];
                const bool same_element = a.station == b.station && a.location == b.location &&
                                          (a.network == b.network || a.network.empty() || b.network.empty());
                if (same_element && a.start < b.end && b.start < a.end) {
                    fault(b.line, "start",
                          "the row of " + element_text(b) + " overlaps the row of line " +
                              std::to_string(a.line));
                    break;
                }
            }
        }
    }

  private:
    bool read_field(const column &k, const std::string &text, int line, station_row &row) {
        switch (k.type) {
        case kind::CODE:
            if (text.empty() && !k.may_be_empty) {
                fault(line, k.name, "is empty");
                return false;
            }
            if (text.size() > k.max_length) {
                fault(line, k.name,
                      quoted(text) + " is longer than " + std::to_string(k.max_length) + " characters");
                return false;
            }
            for (char c : text)
                if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_') {
                    fault(line, k.name, quoted(text) + " is not a code of letters and digits");
                    return false;
                }
            row.*k.text = text;
            return true;
        case kind::NUMBER:
        case kind::OPTIONAL_NUMBER: {
            if (text.empty()) {
                if (k.type == kind::OPTIONAL_NUMBER || k.may_be_empty) return true;
                fault(line, k.name, "is empty");
                return false;
            }
            double v;
            if (!parse_number(text, v)) {
                fault(line, k.name, quoted(text) + " is not a number");
                return false;
            }
            if (!in_range(k, v)) {
                fault(line, k.name, quoted(text) + " is outside the range " + k.range);
                return false;
            }
            if (k.number) row.*k.number = v;
            if (k.optional_number) row.*k.optional_number = v;
            return true;
        }
        case kind::TIME: {
            if (text.empty()) return true;
            int64_t t;
            if (!parse_utc_time(text, t)) {
                fault(line, k.name, quoted(text) + " is not a UTC time of the form YYYY-MM-DDThh:mm:ssZ");
                return false;
            }
            row.*k.time = t;
            return true;
        }
        case kind::TEXT:
            if (!xml_text(text)) {
                fault(line, k.name, "is not UTF-8 text (save the table as UTF-8)");
                return false;
            }
            row.*k.text = text;
            return true;
        }
        return false;
    }

    const std::string &m_name;
    std::vector<std::string> &m_faults;
    std::map<std::string, std::size_t> m_position;
    std::size_t m_width = 0;
};

} // namespace

bool parse_utc_time(const std::string &s, int64_t &t_us) {
    // YYYY-MM-DDThh:mm:ss, then an optional fraction, then Z.
    static constexpr char shape[] = "dddd-dd-ddTdd:dd:dd";
    constexpr std::size_t len = sizeof shape - 1;
    if (s.size() < len + 1 || s.back() != 'Z') return false;
    for (std::size_t i = 0; i < len; ++i) {
        const bool digit = std::isdigit(static_cast<unsigned char>(s[i])) != 0;
        if (shape[i] == 'd' ? !digit : s[i] != shape[i]) return false;
    }
    int64_t micro = 0;
    const std::string rest = s.substr(len, s.size() - len - 1);
    if (!rest.empty()) {
        if (rest[0] != '.' || rest.size() < 2) return false;
        int scale = 100000;
        for (std::size_t i = 1; i < rest.size(); ++i) {
            if (!std::isdigit(static_cast<unsigned char>(rest[i]))) return false;
            if (scale > 0) micro += (rest[i] - '0') * scale;
            scale /= 10;
        }
    }
    const auto num = [&s](std::size_t at, std::size_t n) { return std::atoi(s.substr(at, n).c_str()); };
    const int year = num(0, 4), month = num(5, 2), day = num(8, 2);
    const int hour = num(11, 2), minute = num(14, 2), second = num(17, 2);
    if (month < 1 || month > 12 || day < 1 || day > days_in_month(year, month) || hour > 23 || minute > 59 ||
        second > 59)
        return false;
    const int64_t days = days_from_civil(year, static_cast<unsigned>(month), static_cast<unsigned>(day));
    t_us = ((days * 24 + hour) * 60 + minute) * 60000000LL + second * 1000000LL + micro;
    return true;
}

std::string utc_time_text(int64_t t_us) {
    int64_t seconds = t_us / 1000000;
    int64_t micro = t_us % 1000000;
    if (micro < 0) {
        micro += 1000000;
        --seconds;
    }
    const auto whole = static_cast<std::time_t>(seconds);
    std::tm tm{};
    gmtime_r(&whole, &tm);
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%06dZ", tm.tm_year + 1900, tm.tm_mon + 1,
                  tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, static_cast<int>(micro));
    return text;
}

bool read_station_table(const std::string &name, const std::string &text, station_table &table,
                        std::vector<std::string> &faults) {
    table = station_table{};
    const std::size_t faults_before = faults.size();
    std::vector<std::string> own;
    table_reader reader(name, own);
    std::vector<csv_record> records;
    int bad_line = 0;
    if (!read_csv(text, records, bad_line)) {
        reader.fault(bad_line, "", "a quoted field is not closed, or text follows its closing quote");
    } else if (records.empty() || records[0].line != 1) {
        reader.fault(1, "", "the header line is missing (network,station,location,...)");
    } else if (reader.read_header(records[0])) {
        for (std::size_t i = 1; i < records.size(); ++i)
            reader.read_row(records[i], table);
        reader.check_overlaps(table);
    }
    faults.insert(faults.end(), own.begin(), own.end());
    return faults.size() == faults_before;
}

} // namespace stationxml
