// Channel epochs (see channel_epochs.h).
#include "channel_epochs.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>

namespace stationxml {

namespace {

// A stretch of evenly spaced samples of one channel that share their facts
// and their table row.
struct piece {
    int64_t first = 0, last = 0;
    uint64_t samples = 0;
    double rate = 0.0, volts_per_count = 0.0, gain = 0.0;
    const station_row *row = nullptr;
};

int64_t sample_time(const piece &p, uint64_t i) {
    if (p.samples <= 1) return p.first;
    const double step = static_cast<double>(p.last - p.first) / static_cast<double>(p.samples - 1);
    return p.first + std::llround(step * static_cast<double>(i));
}

// Bitwise, so that an unknown (NaN) factor is one value too.
bool same_bits(double a, double b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

bool same_epoch(const channel_epoch &e, const piece &p) {
    return same_bits(e.rate, p.rate) && same_bits(e.volts_per_count, p.volts_per_count) &&
           same_bits(e.gain, p.gain) && e.row == p.row;
}

std::string element_of(const channel_codes &c) {
    return c.network + "." + c.station + (c.location.empty() ? "" : "." + c.location);
}

// Cuts a stretch where a row of its element starts or ends.
void cut_at_boundaries(piece p, const std::vector<int64_t> &boundaries, std::vector<piece> &out) {
    for (int64_t b : boundaries) {
        if (b <= p.first || b > p.last || p.samples < 2) continue;
        // k: the first sample at or after b.
        const double step = static_cast<double>(p.last - p.first) / static_cast<double>(p.samples - 1);
        auto k = static_cast<uint64_t>(std::clamp(std::ceil(static_cast<double>(b - p.first) / step), 1.0,
                                                  static_cast<double>(p.samples - 1)));
        while (k > 1 && sample_time(p, k - 1) >= b)
            --k;
        while (k < p.samples - 1 && sample_time(p, k) < b)
            ++k;
        piece before = p;
        before.last = sample_time(p, k - 1);
        before.samples = k;
        out.push_back(before);
        const int64_t next_first = sample_time(p, k);
        p.samples -= k;
        p.first = next_first;
    }
    out.push_back(p);
}

const station_row *row_for(const std::vector<const station_row *> &rows, int64_t t) {
    for (const station_row *r : rows)
        if (r->covers(t)) return r;
    return nullptr;
}

} // namespace

epoch_plan plan_epochs(const std::vector<sds::recording_facts> &recordings, const station_table &table) {
    // Every stretch of every channel, cut at the rows' boundaries and given
    // its row; by channel id.
    struct channel_pieces {
        channel_codes codes;
        std::vector<piece> pieces;
    };
    std::map<std::string, channel_pieces> by_channel;
    for (const sds::recording_facts &rec : recordings) {
        for (const sds::recording_channel &c : rec.channels) {
            if (c.samples == 0 || c.spans.empty()) continue;
            std::vector<const station_row *> rows;
            std::vector<int64_t> boundaries;
            for (const station_row &r : table.rows) {
                if (!r.applies_to(c.codes.network, c.codes.station, c.codes.location)) continue;
                rows.push_back(&r);
                if (r.start != OPEN_START) boundaries.push_back(r.start);
                if (r.end != OPEN_END) boundaries.push_back(r.end);
            }
            std::sort(boundaries.begin(), boundaries.end());
            channel_pieces &entry = by_channel[c.codes.id()];
            entry.codes = c.codes;
            std::vector<piece> cut;
            for (const sds::recording_channel::span &s : c.spans) {
                if (s.samples == 0) continue;
                piece p;
                p.first = s.first;
                p.last = s.last;
                p.samples = s.samples;
                p.rate = c.rate;
                p.volts_per_count = c.volts_per_count;
                p.gain = c.gain;
                cut_at_boundaries(p, boundaries, cut);
            }
            for (piece &p : cut)
                p.row = row_for(rows, p.first);
            entry.pieces.insert(entry.pieces.end(), cut.begin(), cut.end());
        }
    }

    epoch_plan plan;
    // Uncovered samples, per element: runs of uncovered stretches with no
    // covered one between them in time.
    std::map<std::string, std::vector<const piece *>> by_element;
    for (auto &[id, entry] : by_channel) {
        std::sort(entry.pieces.begin(), entry.pieces.end(), [](const piece &a, const piece &b) {
            return a.first != b.first ? a.first < b.first : a.last < b.last;
        });
        for (const piece &p : entry.pieces)
            by_element[element_of(entry.codes)].push_back(&p);
    }
    for (auto &[element, pieces] : by_element) {
        std::stable_sort(pieces.begin(), pieces.end(),
                         [](const piece *a, const piece *b) { return a->first < b->first; });
        bool open = false;
        for (const piece *p : pieces) {
            if (p->row) {
                open = false;
                continue;
            }
            if (open) {
                plan.uncovered.back().last = std::max(plan.uncovered.back().last, p->last);
            } else {
                plan.uncovered.push_back({element, p->first, p->last});
                open = true;
            }
        }
    }

    for (const auto &[id, entry] : by_channel) {
        channel_history history;
        history.codes = entry.codes;
        std::vector<int64_t> last_sample;
        for (const piece &p : entry.pieces) {
            if (!p.row) continue;
            if (!history.epochs.empty() && same_epoch(history.epochs.back(), p)) {
                last_sample.back() = std::max(last_sample.back(), p.last);
                continue;
            }
            channel_epoch e;
            e.start = p.first;
            e.rate = p.rate;
            e.volts_per_count = p.volts_per_count;
            e.gain = p.gain;
            e.row = p.row;
            history.epochs.push_back(e);
            last_sample.push_back(p.last);
        }
        for (std::size_t i = 0; i < history.epochs.size(); ++i) {
            channel_epoch &e = history.epochs[i];
            e.end = last_sample[i] + std::llround(1e6 / e.rate);
            if (i + 1 < history.epochs.size()) e.end = std::min(e.end, history.epochs[i + 1].start);
        }
        if (!history.epochs.empty()) plan.channels.push_back(std::move(history));
    }
    return plan;
}

} // namespace stationxml
