// Availability per pixel column (see pixel_columns.h).
#include "pixel_columns.h"

#include <algorithm>
#include <cmath>

namespace report {

namespace {

// The column that a time falls in, held to [0, width).
int column_of(double t, int64_t t0, double column_us, int width) {
    const double c = std::floor((t - static_cast<double>(t0)) / column_us);
    if (c < 0) return 0;
    if (c >= width) return width - 1;
    return static_cast<int>(c);
}

} // namespace

column_view pixel_columns(const channel_findings &channel, int64_t t0, int64_t t1, int width) {
    column_view view;
    if (width <= 0) return view;
    view.levels.assign(static_cast<std::size_t>(width), column_level::empty);
    view.gap_marks.assign(static_cast<std::size_t>(width), false);
    if (t1 <= t0) return view;
    const double column_us = static_cast<double>(t1 - t0) / width;
    std::vector<double> covered(static_cast<std::size_t>(width), 0.0);
    for (const stretch &s : channel.covered) {
        const double a = std::max<double>(static_cast<double>(s.first), static_cast<double>(t0));
        const double b = std::min<double>(static_cast<double>(s.last) + static_cast<double>(interval_us(s.rate)),
                                          static_cast<double>(t1));
        if (b <= a) continue;
        const int c0 = column_of(a, t0, column_us, width), c1 = column_of(b, t0, column_us, width);
        for (int c = c0; c <= c1; ++c) {
            const double lo = static_cast<double>(t0) + c * column_us, hi = lo + column_us;
            covered[static_cast<std::size_t>(c)] += std::max(0.0, std::min(b, hi) - std::max(a, lo));
        }
    }
    for (std::size_t c = 0; c < covered.size(); ++c) {
        if (covered[c] >= 0.999 * column_us)
            view.levels[c] = column_level::full;
        else if (covered[c] > 0.0)
            view.levels[c] = column_level::partial;
    }
    for (const gap &g : channel.gaps) {
        const int c0 = column_of(static_cast<double>(g.start), t0, column_us, width);
        const int c1 = column_of(static_cast<double>(g.end), t0, column_us, width);
        for (int c = c0; c <= c1; ++c) view.gap_marks[static_cast<std::size_t>(c)] = true;
    }
    return view;
}

std::vector<column_run> level_runs(const std::vector<column_level> &levels) {
    std::vector<column_run> runs;
    for (std::size_t c = 0; c < levels.size(); ++c) {
        if (!runs.empty() && runs.back().level == levels[c] && runs.back().end == static_cast<int>(c))
            ++runs.back().end;
        else
            runs.push_back({static_cast<int>(c), static_cast<int>(c) + 1, levels[c]});
    }
    return runs;
}

std::vector<column_run> mark_runs(const std::vector<bool> &marks) {
    std::vector<column_level> levels;
    for (bool m : marks) levels.push_back(m ? column_level::full : column_level::empty);
    std::vector<column_run> runs;
    for (const column_run &r : level_runs(levels))
        if (r.level == column_level::full) runs.push_back(r);
    return runs;
}

} // namespace report
