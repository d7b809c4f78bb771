// Names in an SDS archive (see sds_paths.h).
#include "sds_paths.h"

#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

namespace {

struct year_day {
    int year;
    int day_of_year; // 1 to 366
};

year_day calendar_of(int64_t day) {
    const std::time_t seconds = static_cast<std::time_t>(day) * 86400;
    std::tm tm{};
    gmtime_r(&seconds, &tm);
    return {tm.tm_year + 1900, tm.tm_yday + 1};
}

} // namespace

std::string channel_codes::id() const {
    return network + "." + station + "." + location + "." + channel;
}

bool parse_channel_id(const std::string &id, channel_codes &codes) {
    std::string parts[4];
    int field = 0;
    for (char c : id) {
        if (c == '.') {
            if (++field > 3) return false;
        } else {
            parts[field] += c;
        }
    }
    if (field != 3) return false;
    codes = {parts[0], parts[1], parts[2], parts[3]};
    return true;
}

std::string day_file_name(const channel_codes &codes, int64_t day) {
    const year_day yd = calendar_of(day);
    char tail[32];
    std::snprintf(tail, sizeof tail, ".D.%04d.%03d", yd.year, yd.day_of_year);
    return codes.id() + tail;
}

std::string day_file_path(const channel_codes &codes, int64_t day) {
    const year_day yd = calendar_of(day);
    char year[16];
    std::snprintf(year, sizeof year, "%04d", yd.year);
    return std::string(year) + "/" + codes.network + "/" + codes.station + "/" + codes.channel + ".D/" +
           day_file_name(codes, day);
}

std::string iso_time_ms(int64_t t_us) {
    int64_t ms = t_us >= 0 ? t_us / 1000 : -((-t_us + 999) / 1000);
    const int64_t whole = ms >= 0 ? ms / 1000 : -((-ms + 999) / 1000);
    const int millis = static_cast<int>(ms - whole * 1000);
    const std::time_t seconds = static_cast<std::time_t>(whole);
    std::tm tm{};
    gmtime_r(&seconds, &tm);
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", tm.tm_year + 1900, tm.tm_mon + 1,
                  tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, millis);
    return text;
}

namespace {

// The fields of NET.STA.LOC.CHAN.D.YEAR.DOY; empty when the name is not of
// that form.
std::vector<std::string> day_file_fields(const std::string &name) {
    std::vector<std::string> f(1);
    for (char c : name) {
        if (c == '.')
            f.emplace_back();
        else
            f.back() += c;
    }
    if (f.size() != 7 || f[4] != "D" || f[5].size() != 4 || f[6].size() != 3 || f[0].empty() || f[1].empty() ||
        f[3].empty())
        return {};
    return f;
}

bool all_digits(const std::string &text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

} // namespace

std::string day_file_path_of_name(const std::string &name) {
    const std::vector<std::string> f = day_file_fields(name);
    if (f.empty()) return "";
    return f[5] + "/" + f[0] + "/" + f[1] + "/" + f[3] + ".D/" + name;
}

bool parse_day_file_name(const std::string &name, channel_codes &codes, int64_t &day) {
    const std::vector<std::string> f = day_file_fields(name);
    if (f.empty() || !all_digits(f[5]) || !all_digits(f[6])) return false;
    const int year = std::stoi(f[5]), day_of_year = std::stoi(f[6]);
    std::tm tm{};
    tm.tm_year = year - 1900;
    tm.tm_mday = 1;
    const int64_t first = static_cast<int64_t>(timegm(&tm)) / 86400;
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    if (day_of_year < 1 || day_of_year > (leap ? 366 : 365)) return false;
    codes = {f[0], f[1], f[2], f[3]};
    day = first + day_of_year - 1;
    return true;
}
