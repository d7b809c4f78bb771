#include "plot_envelope.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace {

// The index range of the window that both series hold.
struct index_range {
    std::size_t begin = 0;
    std::size_t end = 0;
};

index_range usable_range(std::size_t time_size, std::size_t values_size, long start_i, long size) {
    index_range r;
    if (start_i < 0 || size <= 0) return r;
    const std::size_t held = std::min(time_size, values_size);
    r.begin = std::min(static_cast<std::size_t>(start_i), held);
    const std::size_t wanted = static_cast<std::size_t>(start_i) + static_cast<std::size_t>(size);
    r.end = std::max(r.begin, std::min(wanted, held));
    return r;
}

// Time distance beyond which two neighbouring points are not joined.
double break_distance(const plot_frame &frame) {
    const double column = (frame.t1 - frame.t0) / frame.columns;
    return std::max(column, 1.5 * frame.sample_step);
}

int column_of(double t, const plot_frame &frame) {
    const double span = frame.t1 - frame.t0;
    if (!(span > 0.0)) return 0;
    const double c = std::floor((t - frame.t0) / span * frame.columns);
    if (!(c >= 0.0)) return 0;
    return c >= frame.columns ? frame.columns - 1 : static_cast<int>(c);
}

double column_middle(int c, const plot_frame &frame) {
    return frame.t0 + (c + 0.5) * (frame.t1 - frame.t0) / frame.columns;
}

// Appends a point, starting a new run when `broken` or when there is none.
void add_point(plot_trace &trace, bool broken, plot_point p) {
    if (broken || trace.empty()) trace.emplace_back();
    trace.back().push_back(p);
}

bool usable(double t, double y) {
    return std::isfinite(t) && std::isfinite(y);
}

// Few samples per column: the samples are the points.
plot_trace sample_trace(const series_t &time, const series_t &values, index_range r,
                        const plot_frame &frame) {
    plot_trace trace;
    const double gap = break_distance(frame);
    bool have_last = false;
    double last_t = 0.0;
    for (std::size_t i = r.begin; i < r.end; ++i) {
        if (!usable(time[i], values[i])) continue;
        const bool broken = have_last && std::fabs(time[i] - last_t) > gap;
        add_point(trace, broken, {time[i], values[i]});
        last_t = time[i];
        have_last = true;
    }
    return trace;
}

// What one pixel column holds.
struct column_extent {
    double lo = std::numeric_limits<double>::infinity();
    double hi = -std::numeric_limits<double>::infinity();
    double first_t = std::numeric_limits<double>::infinity();
    double last_t = -std::numeric_limits<double>::infinity();
    bool used = false;
};

std::vector<column_extent> column_extents(const series_t &time, const series_t &values, index_range r,
                                          const plot_frame &frame) {
    std::vector<column_extent> cols(static_cast<std::size_t>(frame.columns));
    for (std::size_t i = r.begin; i < r.end; ++i) {
        const double t = time[i], y = values[i];
        if (!usable(t, y)) continue;
        column_extent &c = cols[static_cast<std::size_t>(column_of(t, frame))];
        c.lo = std::min(c.lo, y);
        c.hi = std::max(c.hi, y);
        c.first_t = std::min(c.first_t, t);
        c.last_t = std::max(c.last_t, t);
        c.used = true;
    }
    return cols;
}

// Many samples per column: the minimum and maximum of every column, in the
// order that continues the line from the previous column with the shorter
// stroke.
plot_trace column_trace(const series_t &time, const series_t &values, index_range r,
                        const plot_frame &frame) {
    const std::vector<column_extent> cols = column_extents(time, values, r, frame);
    plot_trace trace;
    const double gap = break_distance(frame);
    int previous = -1;
    double last_y = 0.0;
    for (int c = 0; c < frame.columns; ++c) {
        const column_extent &col = cols[static_cast<std::size_t>(c)];
        if (!col.used) continue;
        bool broken = false;
        if (previous >= 0) {
            const column_extent &before = cols[static_cast<std::size_t>(previous)];
            broken = c > previous + 1 || col.first_t - before.last_t > gap;
        }
        const double x = column_middle(c, frame);
        const bool low_first = previous < 0 || std::fabs(col.lo - last_y) <= std::fabs(col.hi - last_y);
        const double a = low_first ? col.lo : col.hi;
        const double b = low_first ? col.hi : col.lo;
        add_point(trace, broken, {x, a});
        if (b != a) trace.back().push_back({x, b});
        last_y = b;
        previous = c;
    }
    return trace;
}

} // namespace

bool window_time_range(const series_t &time, long start_i, long size, double &t0, double &t1) {
    const index_range r = usable_range(time.size(), time.size(), start_i, size);
    bool found = false;
    for (std::size_t i = r.begin; i < r.end; ++i) {
        const double t = time[i];
        if (!std::isfinite(t)) continue;
        if (!found) {
            t0 = t1 = t;
            found = true;
        }
        t0 = std::min(t0, t);
        t1 = std::max(t1, t);
    }
    return found;
}

plot_trace envelope_trace(const series_t &time, const series_t &values, long start_i, long size,
                          const plot_frame &frame) {
    const index_range r = usable_range(time.size(), values.size(), start_i, size);
    if (frame.columns < 1) return {};
    const std::size_t count = r.end - r.begin;
    if (count <= 2 * static_cast<std::size_t>(frame.columns)) return sample_trace(time, values, r, frame);
    return column_trace(time, values, r, frame);
}
