// The single steps of the conditioning chain (see conditioning_steps.h).
#include "conditioning_steps.h"

#include <cstddef>
#include <stdexcept>

#include "filter.h"
#include "vxfil/huge_pages.h"

void remove_series_offset(series_t& values) {
    if (values.empty()) {
        return;
    }
    double sum = 0.0;
    for (double v : values) {
        sum += v;
    }
    const double mean = sum / static_cast<double>(values.size());
    for (double& v : values) {
        v -= mean;
    }
}

double max_over_series(const std::vector<series_t>& series) {
    double overall = 0.0;
    for (const series_t& values : series) {
        if (values.empty()) {
            continue;
        }
        double largest = values.front();
        for (double v : values) {
            if (v > largest) {
                largest = v;
            }
        }
        if (largest > overall) {
            overall = largest;
        }
    }
    return overall;
}

long choose_scale(double max) {
    long scale = 1;
    for (int n = 14; n >= 8; --n) {
        if (static_cast<double>(1L << n) <= max) {
            break;
        }
        scale *= 2;
    }
    return scale;
}

void scale_series(series_t& values, long scale) {
    // A huge scale may turn values into infinities; that is a plain double
    // overflow, not undefined behaviour.
    const double factor = static_cast<double>(scale);
    for (double& v : values) {
        v *= factor;
    }
}

void check_upsample_factor(long count, long up) {
    if (up < 1 || count < 0 || count > MAX_RESAMPLED / up) {
        throw std::runtime_error("Error: Upsampling factor (-u) out of range.\n");
    }
}

std::vector<double> resampling_fractions(long up) {
    // Each computed once as the same division, so every interpolated value
    // keeps its digits.
    std::vector<double> fraction;
    for (long j = 0; j < up; ++j)
        fraction.push_back(static_cast<double>(j) / static_cast<double>(up));
    return fraction;
}

series_t resample_series(const series_t& values, long up) {
    const long n = static_cast<long>(values.size());
    check_upsample_factor(n, up);
    series_t out;
    if (n < 2) {
        return out;
    }
    // Room for the full count of n * up, which the extension after the
    // chain fills up to; the series is large and fresh, so on huge pages.
    VxFil::reserve_huge(out, static_cast<std::size_t>(n * up));
    const std::vector<double> fraction = resampling_fractions(up);
    for (long i = 0; i + 1 < n; ++i) {
        const double base = values[static_cast<std::size_t>(i)];
        const double next = values[static_cast<std::size_t>(i + 1)];
        for (const double f : fraction) {
            out.push_back(interpolated(base, next, f));
        }
    }
    return out;
}

void filter_series(series_t& values) {
    Initialize(0.0);
    // The same as values[i] = Filter(values[i]) for every i in turn, bit for
    // bit, only several outputs at a time.
    filter_block(values.data(), static_cast<long>(values.size()));
}

void extend_series(series_t& values, double last_value, long count) {
    if (count > 0 && values.size() < static_cast<std::size_t>(count)) {
        values.resize(static_cast<std::size_t>(count), last_value);
    }
}

void extend_time_axis(series_t& times, double first_time, double step, long count) {
    if (count <= 0 || times.size() >= static_cast<std::size_t>(count)) {
        return;
    }
    if (times.empty()) {
        times.resize(static_cast<std::size_t>(count), first_time);
        return;
    }
    times.reserve(static_cast<std::size_t>(count));
    while (times.size() < static_cast<std::size_t>(count)) {
        times.push_back(times.back() + step);
    }
}
