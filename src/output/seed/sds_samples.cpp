// The merge rules of SDS archive channels (see sds_samples.h).
#include "sds_samples.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

bool same_bits(double a, double b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}


// The longest half interval of any facts of the table: no two samples
// further apart than this can be too close.
double widest_half_interval(const facts_table &facts) {
    double widest = 0.0;
    for (std::size_t i = 0; i < facts.size(); ++i)
        widest = std::max(widest, 0.5e6 / facts[static_cast<uint32_t>(i)].rate);
    return widest;
}

auto by_time = [](const sds_sample &a, const sds_sample &b) { return a.t < b.t; };

} // namespace

bool same_facts(const sample_facts &a, const sample_facts &b) {
    return same_bits(a.rate, b.rate) && same_bits(a.volts_per_count, b.volts_per_count) &&
           same_bits(a.gain, b.gain);
}

uint32_t facts_table::id_of(const sample_facts &f) {
    for (std::size_t i = 0; i < m_rows.size(); ++i)
        if (same_facts(m_rows[i], f)) return static_cast<uint32_t>(i);
    m_rows.push_back(f);
    m_half.push_back(0.5e6 / f.rate);
    return static_cast<uint32_t>(m_rows.size() - 1);
}

double half_interval_us(const facts_table &facts, const sds_sample &a, const sds_sample &b) {
    return std::max(facts.half_interval(a.facts), facts.half_interval(b.facts));
}

bool too_close(const facts_table &facts, const sds_sample &a, const sds_sample &b) {
    const double apart = std::fabs(static_cast<double>(a.t - b.t));
    return apart < half_interval_us(facts, a, b);
}

bool same_sample(const facts_table &facts, const sds_sample &a, const sds_sample &b) {
    return too_close(facts, a, b) && same_bits(a.value, b.value) &&
           (a.facts == b.facts || same_facts(facts[a.facts], facts[b.facts]));
}

void sort_samples(sample_list &samples) {
    // Samples mostly arrive in order already; checking is far cheaper than sorting.
    if (std::is_sorted(samples.begin(), samples.end(), by_time)) return;
    std::stable_sort(samples.begin(), samples.end(), by_time);
}

std::optional<time_span> self_conflict(const facts_table &facts, const sample_list &sorted) {
    std::optional<time_span> span;
    for (std::size_t i = 1; i < sorted.size(); ++i) {
        if (!too_close(facts, sorted[i - 1], sorted[i])) continue;
        if (!span) span = time_span{sorted[i - 1].t, sorted[i].t};
        span->last = sorted[i].t;
    }
    return span;
}

std::optional<time_span> find_conflict(const facts_table &facts, const sample_list &existing,
                                       const sample_list &incoming) {
    std::optional<time_span> span;
    const auto reach = static_cast<int64_t>(std::ceil(widest_half_interval(facts)));
    std::size_t from = 0;
    for (const sds_sample &n : incoming) {
        while (from < existing.size() && existing[from].t < n.t - reach) ++from;
        for (std::size_t j = from; j < existing.size() && existing[j].t <= n.t + reach; ++j) {
            const sds_sample &e = existing[j];
            if (!too_close(facts, e, n) || same_sample(facts, e, n)) continue;
            if (!span) span = time_span{n.t, n.t};
            span->first = std::min(span->first, n.t);
            span->last = std::max(span->last, n.t);
        }
    }
    return span;
}

void drop_repeats(const facts_table &facts, sample_list &sorted) {
    std::size_t kept = 0;
    for (std::size_t i = 0; i < sorted.size(); ++i) {
        // A recording's own samples never repeat (it would conflict with itself).
        if (kept > 0 && sorted[kept - 1].origin != sorted[i].origin && same_sample(facts, sorted[kept - 1], sorted[i]))
            continue;
        sorted[kept++] = sorted[i];
    }
    sorted.resize(kept);
}

namespace {

// Counts an added sample for its origin.
void count_added(std::vector<uint64_t> *added_per_origin, const sds_sample &n) {
    if (!added_per_origin) return;
    if (added_per_origin->size() <= n.origin) added_per_origin->resize(n.origin + 1, 0);
    ++(*added_per_origin)[n.origin];
}

} // namespace

bool merge_samples(const facts_table &facts, sample_list &existing, const sample_list &context,
                   const sample_list &incoming, std::vector<uint64_t> *added_per_origin) {
    if (incoming.empty()) return false;
    if (existing.empty() && context.empty()) {
        // Nothing to meet: every incoming sample is added.
        existing = incoming;
        for (const sds_sample &n : incoming) count_added(added_per_origin, n);
        return true;
    }
    const auto reach = static_cast<int64_t>(std::ceil(widest_half_interval(facts)));
    const int64_t context_from = context.empty() ? 0 : context.front().t - reach;
    const int64_t context_to = context.empty() ? -1 : context.back().t + reach;
    // Both lists are sorted: one walk finds each incoming sample's
    // neighbours in `existing`.
    bool changed = false;
    sample_list added;
    added.reserve(incoming.size());
    std::size_t from = 0;
    for (const sds_sample &n : incoming) {
        while (from < existing.size() && existing[from].t < n.t - reach) ++from;
        std::size_t there = existing.size();
        for (std::size_t j = from; j < existing.size() && existing[j].t <= n.t + reach; ++j)
            if (same_sample(facts, existing[j], n)) {
                there = j;
                break;
            }
        if (there != existing.size()) {
            if (n.t < existing[there].t) {
                existing[there].t = n.t;
                changed = true;
            }
            continue;
        }
        // A sample already in the neighbouring day file stays there: a sample
        // never moves from one day file into another.
        if (n.t >= context_from && n.t <= context_to) {
            auto it = std::lower_bound(context.begin(), context.end(), sds_sample{n.t - reach, 0.0, 0, 0}, by_time);
            bool elsewhere = false;
            for (; it != context.end() && it->t <= n.t + reach && !elsewhere; ++it)
                elsewhere = same_sample(facts, *it, n);
            if (elsewhere) continue;
        }
        added.push_back(n);
        count_added(added_per_origin, n);
    }
    if (!added.empty()) {
        changed = true;
        const std::size_t old_size = existing.size();
        existing.insert(existing.end(), added.begin(), added.end());
        std::inplace_merge(existing.begin(), existing.begin() + static_cast<std::ptrdiff_t>(old_size),
                           existing.end(), by_time);
    } else if (changed) {
        sort_samples(existing);
    }
    return changed;
}

int64_t day_of(int64_t t_us) {
    constexpr int64_t DAY = 86400000000LL;
    return t_us >= 0 ? t_us / DAY : -((-t_us + DAY - 1) / DAY);
}

day_shape survey_day(const facts_table &facts, const sample_list &sorted) {
    day_shape shape;
    bool integers = true, small_differences = true;
    int32_t previous = 0;
    std::size_t run_begin = 0, facts_begin = 0;
    for (std::size_t i = 0; i <= sorted.size(); ++i) {
        const bool last = i == sorted.size();
        if (!last && integers) {
            int32_t v;
            if (!as_int32(sorted[i].value, v)) {
                integers = false;
            } else {
                if (i > 0) {
                    const int64_t d = int64_t{v} - int64_t{previous};
                    small_differences = small_differences && steim2_difference(d);
                }
                previous = v;
            }
        }
        if (i == 0) continue;
        bool other_facts = last, cut = last;
        if (!last) {
            const sds_sample &a = sorted[i - 1], &b = sorted[i];
            other_facts = a.facts != b.facts && !same_facts(facts[a.facts], facts[b.facts]);
            const double half_a = facts.half_interval(a.facts);
            const double step = static_cast<double>(b.t - a.t);
            // A run of records: the step differs from the interval by half an
            // interval at most, the facts stay, and every sample lies within
            // a twentieth of an interval of where the run's first sample and
            // the rate put it (so that a record, which starts at its first
            // sample's own time, puts none further off than a tenth).
            const double expected = static_cast<double>(sorted[run_begin].t) +
                                    static_cast<double>(i - run_begin) * 2.0 * half_a;
            cut = other_facts || !(std::fabs(step - 2.0 * half_a) <= half_a) ||
                  !(std::fabs(static_cast<double>(b.t) - expected) <= 0.1 * half_a);
            // A gap: more than 1.5 intervals of the slower rate.
            if (step > 3.0 * std::max(half_a, facts.half_interval(b.facts))) ++shape.gaps;
        }
        if (cut) {
            shape.runs.emplace_back(run_begin, i);
            run_begin = i;
        }
        if (other_facts) {
            shape.fact_runs.emplace_back(facts_begin, i);
            facts_begin = i;
        }
    }
    shape.encoding = !integers ? mseed_encoding::FLOAT64
                               : small_differences ? mseed_encoding::STEIM2 : mseed_encoding::INT32;
    return shape;
}

mseed_encoding day_encoding(const sample_list &sorted) {
    // The encoding alone needs no facts.
    facts_table none;
    sample_list values(sorted);
    const uint32_t only = none.id_of({1.0, 0.0, 0.0});
    for (sds_sample &s : values) s.facts = only;
    return survey_day(none, values).encoding;
}

std::vector<std::pair<std::size_t, std::size_t>> day_runs(const facts_table &facts, const sample_list &sorted) {
    return survey_day(facts, sorted).runs;
}

std::size_t count_gaps(const facts_table &facts, const sample_list &sorted) {
    return survey_day(facts, sorted).gaps;
}
