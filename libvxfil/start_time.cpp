// The recording start time: the day from the file name and its directories
// (or from a type 3 comment), the hour that minute-of-hour stamps count from,
// and the conversion of block stamps to Unix seconds.
//
// Archive names: station letter, last digit of the year, month, day and the
// half-hour index of the day (0 to 47), then "." and an extension, e.g.
// "e6050427.dat", usually below year, month and day directories such as
// "2016/05/20160504/".
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "common.h"
#include "vxfil/vxfil.h"

namespace VxFil {

time_t my_timegm(tm* t) {
    time_t ltime = std::mktime(t);
    tm gm{};
    int offset = 0;
    if (gmtime_r(&ltime, &gm) != nullptr) offset = gm.tm_hour - t->tm_hour;
    // Kept as it always was: the sign is wrong east of UTC near midnight,
    // which never matters because the zone is forced to UTC first.
    if (offset >= 13) offset = 24 - offset;
    return std::mktime(t) - static_cast<time_t>(offset) * 3600;
}

namespace {

time_t day_start(int year, int month, int day) {
    tm t{};
    t.tm_year = year - 1900;
    t.tm_mon = month - 1;
    t.tm_mday = day;
    t.tm_isdst = 0;
    return my_timegm(&t);
}

// What an accepted file-name pattern gives.
struct name_fields {
    int year = 0, month = 0, day = 0;
    int half_hour = -1;
    char station = 0;
    bool one_digit_year = false;
};

// Year directory, month directory, day directory, then the archive name.
bool scan_order1(const char *text, name_fields &f) {
    int y1 = 0, m1 = 0, y2 = 0, m2 = 0, d2 = 0, y3 = 0, m3 = 0, d3 = 0, half = 0;
    char station = 0;
    int n = std::sscanf(text, "%04d%*c%02d%*c%04d%02d%02d%*c%c%1d%02d%02d%02d.", &y1, &m1, &y2, &m2, &d2,
                        &station, &y3, &m3, &d3, &half);
    if (n != 10 || y1 != y2 || m1 != m2 || m2 != m3 || d2 != d3 || y2 % 10 != y3 || half >= 48) return false;
    f = {y2, m2, d2, half, station, false};
    return true;
}

// A day directory, then the archive name.
bool scan_order2(const char *text, name_fields &f) {
    int y1 = 0, m1 = 0, d1 = 0, y2 = 0, m2 = 0, d2 = 0, half = 0;
    char station = 0;
    int n =
        std::sscanf(text, "%04d%02d%02d%*c%c%1d%02d%02d%02d.", &y1, &m1, &d1, &station, &y2, &m2, &d2, &half);
    if (n != 8 || m1 != m2 || d1 != d2 || y1 % 10 != y2 || half > 47) return false;
    f = {y1, m1, d1, half, station, false};
    return true;
}

// The archive name alone, with a four-digit or a one-digit year.
bool scan_order4(const char *text, name_fields &f) {
    int y = 0, m = 0, d = 0, half = 0;
    char station = 0;
    bool one_digit_year = false;
    int n = std::sscanf(text, "%c%04d%02d%02d%02d.", &station, &y, &m, &d, &half);
    if (n != 5) {
        n = std::sscanf(text, "%c%1d%02d%02d%02d.", &station, &y, &m, &d, &half);
        // The one-digit year is taken from the decade 2010 to 2019.
        y += 2010;
        one_digit_year = true;
    }
    if (n != 5 || half >= 48) return false;
    f = {y, m, d, half, station, one_digit_year};
    return true;
}

using scanner = bool (*)(const char *, name_fields &);

// Scans every remainder after a "/" of the path, left to right.
bool scan_components(const char *fname, scanner scan, name_fields &f) {
    for (const char* slash = std::strchr(fname, '/'); slash; slash = std::strchr(slash + 1, '/'))
        if (scan(slash + 1, f)) return true;
    return false;
}

} // namespace

bool VXFIL::set_time_start_of_day(const char* fname) {
    name_fields f;
    bool found = scan_components(fname, scan_order1, f) || scan_order2(fname, f) ||
                 scan_components(fname, scan_order2, f) || scan_order4(fname, f);
    if (!found) {
        VX_TRACE("no date in path " << fname << "\n");
        return false;
    }
    m_start_of_day = day_start(f.year, f.month, f.day);
    m_uncertain_year = f.one_digit_year;
    m_name_half_hour = f.half_hour;
    m_name_station = f.station;
    VX_TRACE("start of day " << m_start_of_day << " from " << fname << "\n");
    return true;
}

void VXFIL::set_time_base(const char* fname) {
    const char* slash = std::strrchr(fname, '/');
    const char* base = slash ? slash + 1 : fname;
    char station = 0;
    int year = 0, month = 0, day = 0, half = -1;
    int n = std::sscanf(base, "%c%1d%02d%02d%02d", &station, &year, &month, &day, &half);
    if (n == 5 && half >= 0 && half <= 47) m_time_base = static_cast<time_t>(half / 2) * 3600;
    // parse_comment empties the station again before it scans the comment.
    if (m_station.empty()) m_station = std::string(1, base[0]);
}

bool parse_date(arguments& a, time_t& start_of_day, time_t& start) {
    int year = 0, month = 0, day = 0;
    if (std::sscanf(a.m_date_from_comment.c_str(), "%04d%*c%02d%*c%02d", &year, &month, &day) < 3)
        return false;
    tm date{};
    date.tm_year = year - 1900;
    date.tm_mon = month - 1;
    date.tm_mday = day;
    date.tm_isdst = 0;
    tm moment = date;
    int hour = 0, minute = 0, second = 0;
    if (std::sscanf(a.m_time_from_comment.c_str(), "%02d%*c%02d%*c%02d", &hour, &minute, &second) == 3) {
        moment.tm_hour = hour;
        moment.tm_min = minute;
        moment.tm_sec = second;
    }
    start_of_day = my_timegm(&date);
    start = my_timegm(&moment);
    return true;
}

time_t VXFIL::get_start_of_day() const {
    if (m_date_from_comment.empty()) return m_start_of_day;
    int year = 0, month = 0, day = 0;
    if (std::sscanf(m_date_from_comment.c_str(), "%04d-%02d-%02d", &year, &month, &day) == 3 && year > 1969 &&
        month >= 1 && month <= 12 && day >= 1 && day <= 31)
        return day_start(year, month, day);
    return 0;
}

time_t VXFIL::get_vxtime(int i) const {
    if (m_unixtime) {
        // Low word first, high word second. 64-bit arithmetic: no overflow
        // whatever the text reader stored.
        return static_cast<time_t>(static_cast<int64_t>(m_time[i + 1]) * 65536 +
                                   static_cast<int64_t>(m_time[i]));
    }
    // Minute and second. A minute below 60 is a minute of the hour the file
    // name's half-hour index names; a larger one counts from midnight.
    int64_t minute = m_time[i];
    int64_t second = m_time[i + 1];
    int64_t t = static_cast<int64_t>(m_start_of_day);
    if (minute < 60) t += static_cast<int64_t>(m_time_base);
    return static_cast<time_t>(t + 60 * minute + second);
}

} // namespace VxFil
