// The start of the output window: a time of day from -s (with -c), or the
// first sample; and the window checks.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iostream>

#include "run_state.h"
#include "series.h"
#include "time_format.h"
#include "process_exit.h"

namespace {

// Whole seconds toward zero, saturated to the range of long so that absurd
// times never convert out of range.
long whole_seconds(double t) {
    if (std::isnan(t)) return 0;
    if (t >= 9.2e18) return 9200000000000000000L;
    if (t <= -9.2e18) return -9200000000000000000L;
    return static_cast<long>(t);
}

// A window error prints the message and then, as it always has, the
// addresses of the two broken-down times rather than the times themselves.
[[noreturn]] void window_error(const char* message, long requested, long limit) {
    default_time_format = "%H:%M";
    std::time_t a = requested, b = limit;
    std::cout.flush();
    std::cerr << message << static_cast<const void*>(std::gmtime(&a)) << " > "
              << static_cast<const void*>(std::gmtime(&b)) << "\n";
    std::cerr.flush();
    process_exit(1);
}

// The first row whose time is not before t: the binary search of
// std::lower_bound, probe by probe, so that a series that steps back gives
// the row it always gave.
long first_not_before(const TimeAxis& times, double t) {
    std::size_t first = 0, count = times.size();
    while (count > 0) {
        const std::size_t half = count / 2;
        if (times[first + half] < t) {
            first += half + 1;
            count -= half + 1;
        } else {
            count = half;
        }
    }
    return static_cast<long>(first);
}

} // namespace

long find_window_start(const run_state& st) {
    const TimeAxis& times = st.times;
    long start_time = 0;
    if (!times.empty()) {
        start_time = whole_seconds(times[0]);
        if (global_start_time != 0) {
            long of_day = whole_seconds(std::floor(times[0] / 86400.0) * 86400.0 + global_start_time);
            std::time_t t = of_day;
            std::tm tm{};
            std::cout << "using ";
            if (gmtime_r(&t, &tm)) std::cout << tm;
            std::cout << " as starting time\n";
            // A time of day takes effect only when files are combined; a
            // computed start of exactly 0 falls back to the first sample too.
            if (combine && of_day != 0) start_time = of_day;
        }
    }

    long start_i = first_not_before(times, static_cast<double>(start_time));
    long last = times.empty() ? 0 : whole_seconds(times.back());
    if (start_i < 0) window_error("Error: Starttime before start of file ", start_time, last);
    if (start_i >= samples) window_error("Error: Starttime after end of file ", start_time, last);
    if (snippet_length > samples - start_i)
        window_error("Error: Starttime + length goes beyond end of file. ", start_time, last);
    if (snippet_length == 0) snippet_length = samples - start_i;
    return start_i;
}
