// The samples of an SDS archive channel and the rules that merge them: the
// same sample kept once, a conflict refused, the series cut at midnight and
// packed with one encoding per day file.
//
// Two samples of a channel closer than half a sample interval are the same
// sample when their values are bitwise equal and they share the rate, the
// volts-per-count factor and the external gain; then one of them is kept, at
// the earlier time. Any other two samples that close conflict. Where the two
// rates differ, the longer of the two intervals decides, so that no two
// samples of a channel ever lie closer than half an interval of either.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>
#include <optional>
#include <vector>

#include "big_list.h"
#include "mseed_records.h"

// What a sample shares with the others of its recording.
struct sample_facts {
    double rate = 0.0;            // samples per second
    double volts_per_count = 0.0; // the recording's factor; NaN where unknown
    double gain = 0.0;            // external gain; NaN where unknown
};

// Bitwise equality, so that an unknown (NaN) factor equals nothing.
bool same_facts(const sample_facts &a, const sample_facts &b);

// The facts of every sample of a merge, each stored once.
class facts_table {
  public:
    uint32_t id_of(const sample_facts &f);
    const sample_facts &operator[](uint32_t id) const { return m_rows[id]; }
    std::size_t size() const { return m_rows.size(); }
    // Half an interval of a row's rate, in microseconds.
    double half_interval(uint32_t id) const { return m_half[id]; }

  private:
    std::vector<sample_facts> m_rows;
    std::vector<double> m_half;
};

struct sds_sample {
    int64_t t;       // Unix microseconds
    double value;
    uint32_t facts;  // row of the facts_table
    uint32_t origin; // which recording brought it (the caller's numbering)
};

using sample_list = big_list<sds_sample>;

// Half an interval in microseconds between two samples: the longer interval
// of the two rates.
double half_interval_us(const facts_table &facts, const sds_sample &a, const sds_sample &b);

// True when a and b are closer than half an interval.
bool too_close(const facts_table &facts, const sds_sample &a, const sds_sample &b);

// True when a and b are one sample (close, equal value bits, same facts).
bool same_sample(const facts_table &facts, const sds_sample &a, const sds_sample &b);

// A stretch of time, Unix microseconds, first and last included.
struct time_span {
    int64_t first;
    int64_t last;
    bool operator==(const time_span &) const = default;
};

// Sorts by time (stable, so equal times keep their order).
void sort_samples(sample_list &samples);

// Two samples of one list (sorted) closer than half an interval: the span
// from the first to the last such sample, or nothing.
std::optional<time_span> self_conflict(const facts_table &facts, const sample_list &sorted);

// Samples of `incoming` (sorted) that conflict with `existing` (sorted): the
// span from the first to the last of them, or nothing. Same samples do not
// conflict.
std::optional<time_span> find_conflict(const facts_table &facts, const sample_list &existing,
                                       const sample_list &incoming);

// Keeps one of every group of same samples in a sorted list whose close
// samples are all same samples (as accepted recordings' samples are): the
// earliest. The result stays sorted.
void drop_repeats(const facts_table &facts, sample_list &sorted);

// Merges `incoming` (sorted, free of conflicts with `existing` and with
// `context`) into `existing` (sorted): a same sample already there is kept
// once, at the earlier of the two times; a same sample in `context` (the
// neighbouring day files' samples near midnight) is left where it is and
// not added. Returns true when `existing` changed. With `added`, each
// sample added counts one for its origin (the vector grows as needed).
bool merge_samples(const facts_table &facts, sample_list &existing, const sample_list &context,
                   const sample_list &incoming, std::vector<uint64_t> *added = nullptr);

// The UTC day (days since 1970-01-01) of a time in microseconds.
int64_t day_of(int64_t t_us);

// Microseconds at the start of a day.
inline int64_t day_start_us(int64_t day) { return day * 86400000000LL; }

// The encoding of a whole day file: STEIM2 when every value is a 32-bit
// integer and every difference of neighbours (in time order) fits in 30
// bits, INT32 when a difference does not, FLOAT64 when any value is not such
// an integer.
mseed_encoding day_encoding(const sample_list &sorted);

// Runs of a sorted day's samples that one segment of records carries: the
// step stays within half an interval of 1 / rate and the facts stay the same.
std::vector<std::pair<std::size_t, std::size_t>> day_runs(const facts_table &facts, const sample_list &sorted);

// Gaps in a sorted list: neighbours further apart than 1.5 intervals.
std::size_t count_gaps(const facts_table &facts, const sample_list &sorted);

// All that a day file needs of its sorted samples, in one pass: the
// encoding (day_encoding), the runs of records (day_runs), the gaps
// (count_gaps) and the stretches of samples that share their facts.
struct day_shape {
    mseed_encoding encoding = mseed_encoding::STEIM2;
    std::vector<std::pair<std::size_t, std::size_t>> runs;
    std::size_t gaps = 0;
    std::vector<std::pair<std::size_t, std::size_t>> fact_runs;
};
day_shape survey_day(const facts_table &facts, const sample_list &sorted);
