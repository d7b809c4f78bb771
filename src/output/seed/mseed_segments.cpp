// Segments of the binary miniSEED layout (see mseed_segments.h).
#include "mseed_segments.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

std::vector<long> segment_breaks(const TimeAxis &time, double freq) {
    std::vector<long> breaks;
    const double step = 1.0 / freq;
    const double tolerance = 0.5 * step;
    for (std::size_t i = 1; i < time.size(); ++i) {
        const double deviation = std::fabs(time[i] - time[i - 1] - step);
        if (!(deviation <= tolerance)) breaks.push_back(static_cast<long>(i));
    }
    return breaks;
}

std::vector<sample_range> window_segments(const std::vector<long> &breaks, long up, long total, long start,
                                          long size) {
    // The written segments before cutting: from each segment's first input
    // sample to its last one, the last segment to the end of the series.
    std::vector<sample_range> whole;
    long first = 0;
    for (long b : breaks) {
        whole.push_back({first * up, (b - 1) * up + 1});
        first = b;
    }
    whole.push_back({first * up, total});

    std::vector<sample_range> cut;
    const long end = start + size;
    for (const sample_range &s : whole) {
        const long b = std::max(s.begin, start);
        const long e = std::min(s.end, end);
        if (b < e) cut.push_back({b, e});
    }
    return cut;
}
