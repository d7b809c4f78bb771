// Filtering every series of a run on every core. Each output of the FIR
// filter depends on its own input and the 128 before it, and every series
// starts from an all-zero history, so the series laid end to end can be cut
// into equal stretches, one per core: a stretch starts after the 129 inputs
// before it in its own series (zeros before a series' first value), copied
// before any stretch is overwritten by its outputs. The outputs are the very
// numbers of one pass; only the shared filter state, which a pass leaves
// behind and the next series' pass continues from, is then set as the pass
// would have left it.
#include "filter_together.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <thread>

#include "conditioning_steps.h"
#include "filter.h"

namespace {

constexpr long HISTORY = 129;
// Below this many values in all a second thread costs more than it saves.
constexpr std::size_t THREADED_FROM = std::size_t{1} << 16;

// Part of one series filtered by one thread, after the inputs in `before`.
struct stretch {
    series_t *series;
    long begin, end;
    std::vector<double> before;
};

std::vector<double> inputs_before(const series_t &values, long begin) {
    std::vector<double> before(HISTORY, 0.0);
    for (long t = 1; t <= HISTORY && begin - t >= 0; ++t)
        before[static_cast<std::size_t>(HISTORY - t)] = values[static_cast<std::size_t>(begin - t)];
    return before;
}

// The stretches of worker w of `workers`: its share of all values, in order.
std::vector<stretch> share_of(std::vector<series_t> &series, std::size_t total, std::size_t w,
                              std::size_t workers) {
    const std::size_t from = total * w / workers, to = total * (w + 1) / workers;
    std::vector<stretch> mine;
    std::size_t offset = 0;
    for (series_t &s : series) {
        const std::size_t lo = std::max(from, offset), hi = std::min(to, offset + s.size());
        if (lo < hi) {
            const long begin = static_cast<long>(lo - offset);
            mine.push_back({&s, begin, static_cast<long>(hi - offset), inputs_before(s, begin)});
        }
        offset += s.size();
    }
    return mine;
}

void filter_stretches(std::vector<stretch> &mine) {
    for (stretch &p : mine)
        filter_with_history(p.before.data(), p.series->data() + p.begin, p.end - p.begin);
}

} // namespace

void filter_all_series(std::vector<series_t> &series) {
    std::size_t total = 0;
    for (const series_t &s : series)
        total += s.size();
    const std::size_t workers =
        total < THREADED_FROM ? 1 : std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, 8);
    if (workers == 1) {
        for (series_t &s : series)
            filter_series(s);
        return;
    }
    // The newest inputs of every series, for the state a pass leaves behind.
    std::vector<std::vector<double>> newest;
    for (const series_t &s : series)
        newest.emplace_back(s.end() - std::min<long>(HISTORY, static_cast<long>(s.size())), s.end());
    std::vector<std::vector<stretch>> shares;
    for (std::size_t w = 0; w < workers; ++w)
        shares.push_back(share_of(series, total, w, workers));
    std::vector<std::thread> threads;
    for (std::size_t w = 1; w < workers; ++w)
        threads.emplace_back(filter_stretches, std::ref(shares[w]));
    filter_stretches(shares[0]);
    for (std::thread &t : threads)
        t.join();
    for (std::size_t k = 0; k < series.size(); ++k) {
        Initialize(0.0);
        filter_skip(newest[k].data(), static_cast<long>(series[k].size()));
    }
}
