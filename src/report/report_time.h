// UTC calendar arithmetic and the time texts of the report page.
#pragma once

#include <cstdint>
#include <string>

namespace report {

struct civil_date {
    int year;
    int month; // 1 to 12
    int day;   // 1 to 31
};

// Days since 1970-01-01 of a date, and back.
int64_t days_of(const civil_date &date);
civil_date date_of(int64_t days);

// The UTC day of a time in microseconds (floor).
int64_t utc_day(int64_t t_us);

// "2016-05-04"
std::string day_text(int64_t days);
// "2016-05-04 22:29" (UTC, the minute the time falls in)
std::string minute_text(int64_t t_us);
// "2016-05-04T22:29:52.000Z": the form of the page's time hooks.
std::string hook_time(int64_t t_us);
// A length of time given in milliseconds, in seconds: "8.000 s".
std::string seconds_text(int64_t length_ms);

// Milliseconds since 1970 of a time in microseconds (floor), as the hooks
// round.
int64_t milliseconds_of(int64_t t_us);

} // namespace report
