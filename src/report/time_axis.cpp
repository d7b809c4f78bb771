// The chart's time axis (see time_axis.h).
#include "time_axis.h"

#include <cstdio>

#include "report_time.h"

namespace report {

namespace {

constexpr int64_t SECOND = 1000000;

std::string second_text(int64_t t_us) {
    const std::string minute = minute_text(t_us);
    const int64_t in_minute = ((t_us / SECOND) % 60 + 60) % 60;
    char text[8];
    std::snprintf(text, sizeof text, ":%02d", static_cast<int>(in_minute));
    return minute + text;
}

int64_t ceil_multiple(int64_t t, int64_t step) {
    int64_t q = t / step;
    if (q * step < t) ++q;
    return q * step;
}

} // namespace

std::vector<axis_tick> time_ticks(int64_t t0, int64_t t1, int max_ticks) {
    std::vector<axis_tick> ticks;
    if (t1 <= t0 || max_ticks < 1) return ticks;
    static const int64_t steps[] = {1,    2,    5,    10,    30,    60,    120,   300,    600,    900,
                                    1800, 3600, 7200, 10800, 21600, 43200, 86400, 172800, 604800};
    for (int64_t step_s : steps) {
        const int64_t step = step_s * SECOND;
        if ((t1 - t0) / step > max_ticks) continue;
        for (int64_t t = ceil_multiple(t0, step); t <= t1; t += step)
            ticks.push_back({t, step_s < 60      ? second_text(t)
                                : step_s < 86400 ? minute_text(t)
                                                 : day_text(utc_day(t))});
        return ticks;
    }
    // Steps of whole months, from month starts.
    const civil_date first = date_of(utc_day(t0)), last = date_of(utc_day(t1));
    const int64_t m0 = static_cast<int64_t>(first.year) * 12 + first.month - 1;
    const int64_t m1 = static_cast<int64_t>(last.year) * 12 + last.month - 1;
    static const int64_t month_steps[] = {1, 2, 3, 6, 12, 24, 60, 120, 240, 600, 1200, 2400, 6000, 12000, 120000};
    for (int64_t months : month_steps) {
        if ((m1 - m0) / months > max_ticks) continue;
        for (int64_t m = ceil_multiple(m0, months); m <= m1; m += months) {
            const civil_date d{static_cast<int>(m / 12), static_cast<int>(m % 12) + 1, 1};
            const int64_t t = days_of(d) * 86400 * SECOND;
            if (t < t0 || t > t1) continue;
            char text[32];
            if (months < 12)
                std::snprintf(text, sizeof text, "%04d-%02d", d.year, d.month);
            else
                std::snprintf(text, sizeof text, "%04d", d.year);
            ticks.push_back({t, text});
        }
        return ticks;
    }
    return ticks;
}

} // namespace report
