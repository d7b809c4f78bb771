// UTC calendar arithmetic and time texts (see report_time.h).
#include "report_time.h"

#include <cinttypes>
#include <cstdio>

#include "sds_paths.h"

namespace report {

namespace {

int64_t floor_div(int64_t a, int64_t b) {
    return a / b - ((a % b != 0) && ((a < 0) != (b < 0)));
}

} // namespace

// The proleptic Gregorian calendar counted in eras of 400 years, which
// repeat exactly (146097 days each).
int64_t days_of(const civil_date &date) {
    const int64_t y = static_cast<int64_t>(date.year) - (date.month <= 2);
    const int64_t era = floor_div(y, 400);
    const int64_t yoe = y - era * 400;
    const int64_t mp = (date.month + 9) % 12; // March is 0
    const int64_t doy = (153 * mp + 2) / 5 + date.day - 1;
    const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

civil_date date_of(int64_t days) {
    const int64_t z = days + 719468;
    const int64_t era = floor_div(z, 146097);
    const int64_t doe = z - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    const int day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    const int month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    return {static_cast<int>(yoe + era * 400 + (month <= 2)), month, day};
}

int64_t utc_day(int64_t t_us) {
    return floor_div(t_us, 86400000000LL);
}

std::string day_text(int64_t days) {
    const civil_date d = date_of(days);
    char text[48];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d", d.year, d.month, d.day);
    return text;
}

std::string minute_text(int64_t t_us) {
    const int64_t day = utc_day(t_us);
    const int64_t minute = floor_div(t_us - day * 86400000000LL, 60000000);
    char text[64];
    std::snprintf(text, sizeof text, "%s %02d:%02d", day_text(day).c_str(), static_cast<int>(minute / 60),
                  static_cast<int>(minute % 60));
    return text;
}

std::string hook_time(int64_t t_us) {
    return iso_time_ms(t_us);
}

int64_t milliseconds_of(int64_t t_us) {
    return floor_div(t_us, 1000);
}

std::string seconds_text(int64_t ms) {
    const int64_t whole = floor_div(ms, 1000);
    char text[48];
    std::snprintf(text, sizeof text, "%" PRId64 ".%03d s", whole, static_cast<int>(ms - whole * 1000));
    return text;
}

} // namespace report
