#include "time_format.h"

#include <charconv>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "settings.h"

namespace {

// strftime is always given this length; callers size their buffers for it.
constexpr std::size_t STRFTIME_LENGTH = 128;

// sec_decimals as an int; option parsing keeps it small, this only keeps the
// conversion defined for any value.
int sec_decimals_as_int() {
    if (sec_decimals > INT_MAX) return INT_MAX;
    if (sec_decimals < INT_MIN) return INT_MIN;
    return static_cast<int>(sec_decimals);
}

// ceil(log10(x)) as an int, or 0 when it is not finite. The finite values
// lie within about ±330, so the conversion is always defined.
int digit_count(double x) {
    double l = std::ceil(std::log10(x));
    return std::isfinite(l) ? static_cast<int>(l) : 0;
}

// ".%06d": the point, then the microseconds zero-padded to six characters
// (the minus sign of a negative value counts toward the six).
char* write_microseconds(char* out, int us) {
    *out++ = '.';
    int width = 6;
    unsigned magnitude = static_cast<unsigned>(us);
    if (us < 0) {
        *out++ = '-';
        --width;
        magnitude = 0u - magnitude;
    }
    char digits[12];
    char* end = std::to_chars(digits, digits + sizeof digits, magnitude).ptr;
    int n = static_cast<int>(end - digits);
    for (int i = n; i < width; ++i) *out++ = '0';
    std::memcpy(out, digits, static_cast<std::size_t>(n));
    return out + n;
}

} // namespace

int determine_format(double last, double before_last, int& dec) {
    int digits = digit_count(last);
    double diff = last - before_last;
    int wanted = sec_decimals_as_int();
    if (diff == 0) {
        dec = wanted >= 0 ? wanted : 0;
    } else if (wanted >= 0) {
        dec = wanted;
    } else {
        double frac = std::ceil(std::log10(1 / std::fabs(diff)));
        if (!std::isfinite(frac)) {
            // A NaN or infinite step, or one whose inverse overflows, has no
            // finite logarithm: -1 then prints as six decimals.
            dec = -1;
        } else {
            int f = static_cast<int>(frac); // within about ±330
            dec = f != 0 ? f + 2 : 0;
        }
    }
    return digits;
}

int window_decimals(const TimeAxis& time, long end) {
    int dec = 0;
    if (end >= 2 && static_cast<unsigned long>(end) <= time.size()) {
        determine_format(time[static_cast<std::size_t>(end - 1)], time[static_cast<std::size_t>(end - 2)], dec);
    } else {
        determine_format(0.0, 0.0, dec);
    }
    return dec;
}

time_t to_time_t(double seconds) {
    static_assert(sizeof(time_t) == 8, "time_t is expected to be 64 bits");
    if (std::isnan(seconds)) return 0;
    if (seconds >= 0x1p63) return INT64_MAX;
    if (seconds < -0x1p63) return INT64_MIN;
    return static_cast<time_t>(seconds);
}

namespace {

// Whole seconds and microseconds of a time as strftime_us shows them.
struct SplitTime {
    time_t seconds;
    int us;
};

SplitTime split_time(double whence) {
    time_t t = to_time_t(whence);
    // Within the range of time_t the fraction lies in (-1, 1); for clamped
    // or non-finite times it may not, and then no microseconds are shown.
    double us_real = std::round((whence - static_cast<double>(t)) * 1000000);
    int us = std::fabs(us_real) <= 1000000 ? static_cast<int>(us_real) : 0;
    return {t, us};
}

// strftime of the whole seconds into `out` (STRFTIME_LENGTH bytes); 0 when
// the C library cannot break the time down or the text does not fit.
std::size_t whole_seconds_text(char* out, const char* timefmt, time_t t) {
    tm broken_down;
    if (gmtime_r(&t, &broken_down) == nullptr) return 0;
    return std::strftime(out, STRFTIME_LENGTH, timefmt, &broken_down);
}

// Appends the fraction at timestr + n when it fits in `size`, and the end
// of the string; returns the new length.
std::size_t append_fraction(char* timestr, std::size_t size, std::size_t n, int us) {
    char fraction[16];
    std::size_t k = static_cast<std::size_t>(write_microseconds(fraction, us) - fraction);
    if (n + k < size) {
        std::memcpy(timestr + n, fraction, k);
        timestr[n + k] = '\0';
        return n + k;
    }
    if (n < size) timestr[n] = '\0';
    return n;
}

} // namespace

unsigned strftime_us(char* timestr, size_t size, const char* timefmt, double whence) {
    SplitTime split = split_time(whence);
    std::size_t n = whole_seconds_text(timestr, timefmt, split.seconds);
    return static_cast<unsigned>(append_fraction(timestr, size, n, split.us));
}

std::string_view TimeStamper::operator()(double whence) {
    SplitTime split = split_time(whence);
    if (!m_valid || split.seconds != m_seconds) {
        m_length = whole_seconds_text(m_text, m_format, split.seconds);
        m_seconds = split.seconds;
        m_valid = true;
    }
    return {m_text, append_fraction(m_text, sizeof m_text, m_length, split.us)};
}

bool my_time_t::to_tm(tm& out) const { return gmtime_r(&m_t, &out) != nullptr; }

my_time_t::operator tm() const {
    tm result{};
    if (!to_tm(result)) result = tm{};
    return result;
}

std::ostream& operator<<(std::ostream& os, const tm& t) {
    char buf[64];
    std::size_t n = std::strftime(buf, sizeof buf, default_time_format, &t);
    return os.write(buf, static_cast<std::streamsize>(n));
}

std::ostream& operator<<(std::ostream& os, const my_time_t& t) {
    tm broken_down;
    if (t.to_tm(broken_down)) os << broken_down;
    return os;
}
