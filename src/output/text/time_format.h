// Time formatting of the output files: the decimals of the time column, UTC
// time stamps with microseconds, and whole-second dates for diagnostics.
#pragma once

#include <cstddef>
#include <ctime>
#include <ostream>
#include <string_view>

#include "series.h"
#include "sample_time_axis.h"

// Returns the number of integer digits of `last` (ceil(log10(last)); 0 when
// that is not finite) and stores in `dec` the decimals for time values.
// `last` and `before_last` are the last two times of a series, so their
// difference is the sampling step. A non-negative sec_decimals is taken as it
// is; otherwise a zero step gives 0 decimals and any other step
// ceil(log10(1 / |step|)) + 2, or 0 when that logarithm rounds up to 0. The
// rule is kept as it stands for steps above one second: 10 s gives 1
// decimal, 100 s gives 0 and 1000 s gives -1. A negative `dec` (also the
// result of a step whose logarithm is not finite: NaN, infinite or a step so
// small that its inverse overflows) prints as six decimals in "%-.*f".
int determine_format(double last, double before_last, int& dec);

// The time decimals of the window that ends before index `end`: from
// time[end-1] and time[end-2] where both exist (even when they lie before the
// window), else those of a zero step.
int window_decimals(const TimeAxis& time, long end);

// Writes the UTC time `whence` (seconds since 1970 with fraction) with the
// strftime format `timefmt`, then "." and the microseconds as "%06d"; returns
// the number of characters written. strftime is given the constant length
// 128, so `timestr` must hold 128 bytes plus room for the fraction; the
// fraction is only appended when it fits in `size`. The microseconds are
// round((whence - whole seconds) * 1e6) with no carry into the seconds, so
// 0.9999996 shows ".1000000" and a negative time with a fraction shows a
// minus sign after the point. A time that is not finite or lies beyond the
// range of time_t is clamped to that range (NaN counts as 0); when the C
// library cannot break the time down, only the fraction is written.
unsigned strftime_us(char* timestr, size_t size, const char* timefmt, double whence);

// strftime_us for many times in a row, as the TSPAIR rows need it: the
// strftime text of the whole seconds is kept and reused while the second
// stays the same, so only the microseconds are formatted per call.
class TimeStamper {
public:
    explicit TimeStamper(const char* timefmt) : m_format(timefmt) {}
    // The text strftime_us writes for `whence`; valid until the next call.
    std::string_view operator()(double whence);

private:
    const char* m_format;
    bool m_valid = false;
    time_t m_seconds = 0;
    std::size_t m_length = 0;
    char m_text[128 + 16];
};

// Whole seconds of a time, truncated toward zero; NaN gives 0 and values
// beyond the range of time_t give its nearest end.
time_t to_time_t(double seconds);

// Whole seconds since 1970-01-01 UTC, convertible to a calendar record.
struct my_time_t {
    time_t m_t;

    my_time_t(time_t t) : m_t(t) {}
    // The UTC calendar record; false (and `out` untouched) when the C library
    // cannot break the time down.
    bool to_tm(tm& out) const;
    // The UTC calendar record; all fields zero when it cannot be formed.
    operator tm() const;
};

// Writes a calendar record with strftime and default_time_format (at most 63
// characters; nothing when the text does not fit).
std::ostream& operator<<(std::ostream& os, const tm& t);
// Writes the time as operator<< for tm does; nothing for a time the C
// library cannot break down.
std::ostream& operator<<(std::ostream& os, const my_time_t& t);
