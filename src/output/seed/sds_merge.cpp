// The merge of staged recordings into an SDS archive (see sds_merge.h).
#include "sds_merge.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <iostream>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>

#include "atomic_file.h"
#include "on_cores.h"
#include "sds_quicklooks.h"
#include "mseed_read.h"
#include "sds_stage.h"
#include "sds_staged_file.h"

namespace sds {

namespace {

constexpr uint32_t NO_ORIGIN = 0xffffffffu;

// Decoded samples kept for reuse, the least recently used given up first
// once the whole holds more than `budget` samples.
template <class Value> class sample_cache {
  public:
    explicit sample_cache(std::size_t budget) : m_budget(budget) {}

    Value *find(const std::string &key) {
        auto it = m_index.find(key);
        if (it == m_index.end()) return nullptr;
        m_order.splice(m_order.begin(), m_order, it->second);
        return &it->second->value;
    }

    Value &put(const std::string &key, Value value, std::size_t samples) {
        m_order.push_front({key, std::move(value), samples});
        m_index[key] = m_order.begin();
        m_total += samples;
        while (m_total > m_budget && m_order.size() > 1) {
            auto last = std::prev(m_order.end());
            m_total -= last->samples;
            m_index.erase(last->key);
            m_order.erase(last);
        }
        return m_order.begin()->value;
    }

    void forget(const std::string &key) {
        auto it = m_index.find(key);
        if (it == m_index.end()) return;
        m_total -= it->second->samples;
        m_order.erase(it->second);
        m_index.erase(it);
    }

  private:
    struct item {
        std::string key;
        Value value;
        std::size_t samples;
    };
    std::size_t m_budget;
    std::size_t m_total = 0;
    std::list<item> m_order;
    std::map<std::string, typename std::list<item>::iterator> m_index;
};

// A staged recording as read back: one time axis and, per channel id, its
// values and the row of its facts. Kept so, not as samples, it takes a third
// of the memory.
struct staged_view {
    big_list<int64_t> times;
    bool sorted = true; // the times only grow
    struct channel {
        big_list<double> values;    // the first values.size() times are theirs
        uint32_t facts = 0;
    };
    std::map<std::string, channel> channels;

    // The samples of one channel with times in [from, to), sorted, each
    // marked with `origin`; appended to `out`.
    void append(const std::string &id, int64_t from, int64_t to, uint32_t origin, sample_list &out) const {
        auto it = channels.find(id);
        if (it == channels.end()) return;
        const channel &c = it->second;
        const std::size_t n = c.values.size();
        const std::size_t before = out.size();
        if (sorted) {
            const auto lo = std::lower_bound(times.begin(), times.begin() + static_cast<std::ptrdiff_t>(n), from);
            const auto hi = std::lower_bound(lo, times.begin() + static_cast<std::ptrdiff_t>(n), to);
            const auto i0 = static_cast<std::size_t>(lo - times.begin());
            const auto count = static_cast<std::size_t>(hi - lo);
            out.resize(before + count);
            sds_sample *to_fill = out.data() + before;
            for (std::size_t k = 0; k < count; ++k) to_fill[k] = {times[i0 + k], c.values[i0 + k], c.facts, origin};
            return;
        }
        for (std::size_t i = 0; i < n; ++i) {
            const int64_t t = times[i];
            if (t >= from && t < to) out.push_back({t, c.values[i], c.facts, origin});
        }
        {
            sample_list mine(out.begin() + static_cast<std::ptrdiff_t>(before), out.end());
            sort_samples(mine);
            std::copy(mine.begin(), mine.end(), out.begin() + static_cast<std::ptrdiff_t>(before));
        }
    }
    // The first and last time of the samples that append() would give, or
    // false when there are none; without copying them.
    bool bounds(const std::string &id, int64_t from, int64_t to, int64_t &first, int64_t &last) const {
        auto it = channels.find(id);
        if (it == channels.end()) return false;
        const auto end = times.begin() + static_cast<std::ptrdiff_t>(it->second.values.size());
        if (sorted) {
            const auto lo = std::lower_bound(times.begin(), end, from);
            const auto hi = std::lower_bound(lo, end, to);
            if (lo == hi) return false;
            first = *lo;
            last = *(hi - 1);
            return true;
        }
        bool any = false;
        for (auto t = times.begin(); t != end; ++t) {
            if (*t < from || *t >= to) continue;
            first = any ? std::min(first, *t) : *t;
            last = any ? std::max(last, *t) : *t;
            any = true;
        }
        return any;
    }
    sample_list all(const std::string &id) const {
        sample_list out;
        append(id, INT64_MIN, INT64_MAX, NO_ORIGIN, out);
        return out;
    }
};

// A day file as read: its samples, or why it cannot be used.
struct day_content {
    sample_list samples;
    std::string trouble; // empty when readable
};

// The time of sample i of a record: its start and i intervals, rounded to
// the microsecond (the offsets are never negative).
int64_t sample_time(const seed_record &r, std::size_t i) {
    return r.start_us + static_cast<int64_t>(static_cast<double>(i) * 1e6 / r.rate + 0.5);
}

// The last sample time of a record, for deciding whether to decode it.
int64_t record_end(const seed_record &r) {
    return r.count > 0 ? sample_time(r, static_cast<std::size_t>(r.count - 1)) : r.start_us;
}

// The stretch of the day file's index that holds a sample of record r at
// time t, or -1 where none does.
// A day file gives each sample the time its record's start and rate imply,
// which may lie a little off the sample's own time that the index noted, and
// a rate that Blockette 100 holds in single precision: a stretch holds the
// sample when it lies within half an interval of it at nearly its rate.
// (Stretches with other facts lie further apart, or their samples would
// conflict.)
std::size_t span_at(const day_entry &entry, const seed_record &r, int64_t t, std::size_t hint = 0) {
    // Samples come in time order: the stretch of the sample before is tried first.
    for (std::size_t j = 0; j < entry.spans.size(); ++j) {
        const std::size_t k = (hint + j) % entry.spans.size();
        const day_span &s = entry.spans[k];
        const double half = 0.5e6 / s.facts.rate;
        const bool near_rate = std::fabs(s.facts.rate - r.rate) <= 1e-6 * s.facts.rate;
        if (near_rate && static_cast<double>(t) >= static_cast<double>(s.first) - half &&
            static_cast<double>(t) <= static_cast<double>(s.last) + half)
            return k;
    }
    return static_cast<std::size_t>(-1);
}

// The facts of that sample: the stretch's, or the record's rate with
// unknown factors where the index has none (a day file changed by hand).
sample_facts facts_at(const day_entry &entry, const seed_record &r, int64_t t) {
    const std::size_t k = span_at(entry, r, t);
    if (k != static_cast<std::size_t>(-1)) return entry.spans[k].facts;
    return {r.rate, std::nan(""), std::nan("")};
}

struct staged_recording {
    std::string key;
    recording_facts facts;
};

std::string quoted_text(const std::string &s) {
    return "\"" + s + "\"";
}

std::string file_errno(const std::string &what, const fs::path &path) {
    return "can't " + what + " \"" + path.string() + "\": " + std::strerror(errno);
}

int64_t mtime_ns_of(const struct stat &sb) {
    return static_cast<int64_t>(sb.st_mtim.tv_sec) * 1000000000LL + sb.st_mtim.tv_nsec;
}

class merger {
  public:
    merger(const fs::path &top, int record_length)
        : m_top(top), m_record_length(record_length), m_days(12u << 20), m_staged(6u << 20) {}

    // Removes temporary files that a killed merge left in the archive.
    void remove_stale_temporaries();
    // Names every day file that is missing or changed since the archive
    // wrote it, and takes it as it is now.
    void check_index();
    // Removes the staging folders of runs by hand whose process is gone
    // before they were merged.
    void remove_abandoned_runs(const std::string &current);
    // Finishes the merges that a killed run left written down.
    void finish_pending(const std::string &except);
    merge_outcome merge(const std::string &run);

  private:
    std::vector<staged_recording> staged_of(const std::string &run);
    void decide(const std::string &run, const std::vector<staged_recording> &recordings);
    void execute(const std::string &run, merge_outcome &outcome);
    void finalize(const std::string &run, merge_outcome &outcome);

    // A staged recording's name in the cache.
    static std::string staged_cache_key(const std::string &run, const std::string &key) { return run + "/" + key; }
    std::shared_ptr<const staged_view> staged_samples(const std::string &run, const staged_recording &rec);
    // Decodes the staged files of these accepted recordings that are not in
    // the cache, on every core, and puts them there. One that cannot be read
    // is left out, for staged_samples to find and report in its turn.
    void prefetch_staged(const std::string &run, const std::vector<std::size_t> &recs);
    std::shared_ptr<const staged_view> make_view(const std::string &run, const staged_recording &rec,
                                                 staged_content &&staged, const fs::path &path);
    std::shared_ptr<const day_content> day(const channel_codes &codes, int64_t day);
    sample_list tree_samples(const channel_codes &codes, int64_t first, int64_t last, std::string &trouble);
    // The samples of a day file within [from, to], decoding only the records
    // that reach into that stretch (the neighbouring day near midnight).
    sample_list day_stretch(const channel_codes &codes, int64_t day, int64_t from, int64_t to);
    // A day file's record must carry its channel's codes, a usable rate and
    // lie within its day; throws std::runtime_error naming the file.
    void check_day_record(const seed_record &r, const channel_codes &codes, int64_t d, const fs::path &path) const;
    // The record's samples within [from, to], with the facts of the index
    // stretch that holds each.
    void append_day_samples(const seed_record &r, const day_entry &entry, int64_t from, int64_t to,
                            sample_list &out);
    // Writes the day file of these samples unless it holds them already in
    // the same bytes; `gaps` receives the gaps in them.
    bool write_day(const channel_codes &codes, int64_t day, const sample_list &samples, std::size_t &gaps) const;
    // The records of a day file: the runs of day_runs, each record starting
    // at its first sample's own time, none reaching past midnight.
    std::string pack_day(const channel_codes &codes, int64_t day, const sample_list &samples,
                         const day_shape &shape) const;

    // One day file to merge: what the archive holds, what comes in, the
    // neighbouring days' samples near midnight, and the outcome.
    struct day_job {
        channel_codes codes;
        int64_t day = 0;
        // The incoming samples are collected by the job itself, on its own
        // thread, from these views (each with its origin number), and the day
        // file's samples copied there from `current`.
        std::vector<std::pair<std::shared_ptr<const staged_view>, uint32_t>> sources;
        std::size_t expected = 0; // incoming samples at most, for reserving
        std::shared_ptr<const day_content> current;
        sample_list merged;
        sample_list incoming;
        sample_list context;
        std::vector<uint64_t> added;
        std::size_t origins = 0; // recordings that bring samples
        bool written = false;
        std::size_t gaps = 0;
        std::string error;
    };
    day_job gather(const std::string &run, int64_t d, const std::string &id, const channel_codes &codes,
                   const std::vector<std::size_t> &recs);
    // The job's incoming samples from its sources, sorted, and the day
    // file's samples as the start of the merged ones.
    static void collect_incoming(day_job &job);
    // Reads the facts table only, so that the jobs of a day run at once.
    void run_day_job(day_job &job) const;
    void run_day_jobs(std::vector<day_job> &jobs) const;
    // Counts what the jobs of a day wrote; ends with the first error.
    void finish_day_jobs(std::vector<day_job> &jobs, int64_t d, merge_outcome &outcome);
    double widest_reach() const;
    // Whether a channel of a recording can conflict at all, judged from the
    // facts alone, so that most recordings are decided without decoding.
    bool could_conflict(const staged_recording &rec, const recording_channel &c);
    // Whether a staged recording's samples file is there and holds what its
    // conversion wrote (the hash its facts note).
    bool staged_copy_whole(const std::string &run, const staged_recording &rec);

    fs::path m_top;
    int m_record_length;
    facts_table m_facts;
    sample_cache<std::shared_ptr<const day_content>> m_days;
    sample_cache<std::shared_ptr<const staged_view>> m_staged;

    // The plan of the run in hand: accepted recordings in order, refusals.
    std::vector<staged_recording> m_accepted;
    // Per channel the stretches of the accepted recordings, by first sample
    // time: (first, (last, index in m_accepted)).
    struct channel_spans {
        std::multimap<int64_t, std::pair<int64_t, std::size_t>> by_first;
        int64_t longest = 0;
    };
    std::map<std::string, channel_spans> m_accepted_spans;
    // The accepted recordings (indices, ascending) with a stretch of channel
    // `id` that reaches [first, last].
    std::vector<std::size_t> accepted_near(const std::string &id, int64_t first, int64_t last) const;
    void note_accepted(const staged_recording &rec);
    std::vector<std::pair<staged_recording, std::string>> m_refused;
    std::vector<std::string> m_conflicted; // keys refused by a conflict
    std::vector<uint64_t> m_added;         // per accepted recording and channel: samples added
    std::map<std::pair<std::size_t, std::string>, uint32_t> m_origin_of;
    std::vector<std::pair<std::size_t, std::string>> m_origins;
    // Channels written by this process, over every merge it carried out.
    std::set<std::string> m_written_channels;
    // What merges of other runs, finished first, wrote.
    merge_outcome m_pending;
};

// Small files written durably, or files removed, at the same time: the
// time is the disk's, which takes several requests at once.
constexpr std::size_t DURABLE_WRITERS = 8;

double merger::widest_reach() const {
    double widest = 0.0;
    for (std::size_t i = 0; i < m_facts.size(); ++i)
        widest = std::max(widest, 0.5e6 / m_facts[static_cast<uint32_t>(i)].rate);
    // Rates are at least 1e-9 (a day file's records are checked for it), so
    // this only bounds what a search may span.
    return std::min(std::ceil(widest), 1e15);
}

void merger::remove_stale_temporaries() {
    std::error_code ec;
    const fs::path book = book_of(m_top);
    for (auto it = fs::recursive_directory_iterator(m_top, fs::directory_options::skip_permission_denied, ec);
         !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
        if (it->path() == book) {
            it.disable_recursion_pending();
            continue;
        }
        if (it->path().filename().string().rfind(TEMP_MARKER, 0) == 0 && it->is_regular_file(ec))
            fs::remove(it->path(), ec);
    }
    for (const char *sub : {"days", "recordings"})
        for (const auto &e : fs::directory_iterator(book / sub, ec))
            if (e.path().filename().string().rfind(TEMP_MARKER, 0) == 0) fs::remove(e.path(), ec);
}

void merger::check_index() {
    for (const std::string &name : day_entry_names(m_top)) {
        const std::string rel = day_file_path_of_name(name);
        if (rel.empty()) continue;
        const fs::path path = m_top / rel;
        day_entry entry;
        if (!read_day_entry(m_top, name, entry)) continue;
        // A day file that is gone or other than the archive wrote it: the
        // quick-look of its day shows what it no longer holds.
        auto forget_picture = [&] {
            channel_codes codes;
            int64_t day = 0;
            if (parse_day_file_name(name, codes, day)) forget_quicklook(m_top, codes, day);
        };
        struct stat sb {};
        if (::stat(path.c_str(), &sb) != 0) {
            forget_picture();
            // Our own first write of this file, interrupted before the rename.
            if (!(entry.has_prev && entry.prev_absent))
                std::cerr << "Warning: day file " << quoted_text(path.string())
                          << " is missing since the archive wrote it; its samples are no longer in the archive\n";
            remove_day_entry(m_top, name);
            continue;
        }
        if (entry.damaged) {
            // Its stretches may be lost: their samples are then taken with
            // unknown factors, and the same samples coming again conflict.
            std::cerr << "Warning: the archive's index entry of day file " << quoted_text(path.string())
                      << " is damaged; what it no longer says of its samples is taken as unknown\n";
            entry.mtime_ns = 0; // noted again below
        } else if (static_cast<uint64_t>(sb.st_size) == entry.size && mtime_ns_of(sb) == entry.mtime_ns) {
            continue;
        }
        const std::string bytes = read_text(path);
        const uint64_t hash = content_hash(bytes.data(), bytes.size());
        if (bytes.size() == entry.size && hash == entry.hash) {
            // The rename went through; its time was not noted yet.
        } else if (entry.has_prev && !entry.prev_absent && bytes.size() == entry.prev_size &&
                   hash == entry.prev_hash) {
            // The rename never happened: the file holds what it held before.
            entry.spans = entry.prev_spans;
        } else if (!entry.damaged) {
            std::cerr << "Warning: day file " << quoted_text(path.string())
                      << " was changed since the archive wrote it; it is taken as it is now\n";
            forget_picture();
        }
        entry.size = bytes.size();
        entry.hash = hash;
        entry.mtime_ns = mtime_ns_of(sb);
        entry.has_prev = false;
        entry.damaged = false;
        entry.prev_spans.clear();
        write_day_entry(m_top, name, entry);
    }
}

void merger::remove_abandoned_runs(const std::string &current) {
    std::error_code ec;
    for (const auto &e : fs::directory_iterator(book_of(m_top) / "staging", ec)) {
        const std::string run = e.path().filename().string();
        // Runs by hand, and the folders they were making when they died.
        const bool by_hand = run.rfind("hand-", 0) == 0 || run.rfind(".making-hand-", 0) == 0;
        if (run == current || !by_hand || fs::exists(e.path() / "plan")) continue;
        // A run by hand holds a lock on its owner file while it lives.
        const int fd = ::open((e.path() / "owner").c_str(), O_RDWR | O_CLOEXEC);
        if (fd < 0) continue;
        struct flock lk {};
        lk.l_type = F_WRLCK;
        lk.l_whence = SEEK_SET;
        const bool abandoned = ::fcntl(fd, F_SETLK, &lk) == 0;
        ::close(fd);
        if (abandoned) fs::remove_all(e.path(), ec);
    }
}

std::vector<staged_recording> merger::staged_of(const std::string &run) {
    std::vector<staged_recording> list;
    std::error_code ec;
    for (const auto &e : fs::directory_iterator(staging_dir(m_top, run), ec)) {
        const std::string name = e.path().filename().string();
        if (name.size() != 16 + 6 || name.compare(16, 6, ".facts") != 0) continue;
        staged_recording rec;
        rec.key = name.substr(0, 16);
        if (!parse_facts(read_text(e.path()), rec.facts)) continue;
        list.push_back(std::move(rec));
    }
    std::sort(list.begin(), list.end(),
              [](const staged_recording &a, const staged_recording &b) { return a.facts.path < b.facts.path; });
    return list;
}

std::shared_ptr<const staged_view> merger::staged_samples(const std::string &run, const staged_recording &rec) {
    if (auto *found = m_staged.find(staged_cache_key(run, rec.key))) return *found;
    const fs::path path = staged_samples_path(m_top, run, rec.key);
    staged_content staged;
    std::string why;
    if (!decode_staged(read_text(path), staged, why))
        throw std::runtime_error("staged recording \"" + path.string() + "\" " + why);
    return make_view(run, rec, std::move(staged), path);
}

std::shared_ptr<const staged_view> merger::make_view(const std::string &run, const staged_recording &rec,
                                                     staged_content &&staged, const fs::path &path) {
    auto view = std::make_shared<staged_view>();
    view->times = std::move(staged.times);
    view->sorted = std::is_sorted(view->times.begin(), view->times.end());
    std::size_t total = view->times.size();
    for (staged_channel &values : staged.channels) {
        const recording_channel *c = nullptr;
        for (const recording_channel &f : rec.facts.channels)
            if (f.codes.id() == values.id) c = &f;
        if (c == nullptr)
            throw std::runtime_error("staged recording \"" + path.string() + "\" holds a channel its facts lack");
        total += values.values.size();
        view->channels[values.id] = {std::move(values.values), m_facts.id_of({c->rate, c->volts_per_count, c->gain})};
    }
    // Counted in samples of the merge's lists: a third of a time and a value each.
    return m_staged.put(staged_cache_key(run, rec.key), std::move(view), total / 3);
}

void merger::prefetch_staged(const std::string &run, const std::vector<std::size_t> &recs) {
    std::vector<std::size_t> missing;
    for (std::size_t r : recs)
        if (m_staged.find(staged_cache_key(run, m_accepted[r].key)) == nullptr) missing.push_back(r);
    if (missing.size() < 2) return; // nothing to share out
    std::vector<staged_content> decoded(missing.size());
    std::vector<char> ok(missing.size(), 0);
    run_on_threads(missing.size(), threads_for(missing.size()), [&](std::size_t k) {
        const fs::path path = staged_samples_path(m_top, run, m_accepted[missing[k]].key);
        std::string why;
        try {
            ok[k] = decode_staged(read_text(path), decoded[k], why);
        } catch (const std::exception &) {
            ok[k] = 0; // staged_samples reads it again and says why
        }
    });
    // In order, so that the facts rows are numbered as when decoded one by one.
    // A failure stops the prefetch; staged_samples meets it again in its turn.
    for (std::size_t k = 0; k < missing.size() && ok[k]; ++k) {
        const staged_recording &rec = m_accepted[missing[k]];
        try {
            make_view(run, rec, std::move(decoded[k]), staged_samples_path(m_top, run, rec.key));
        } catch (const std::exception &) {
            break;
        }
    }
}

void merger::check_day_record(const seed_record &r, const channel_codes &codes, int64_t d,
                              const fs::path &path) const {
    if (channel_codes{r.network, r.station, r.location, r.channel} != codes)
        throw std::runtime_error("\"" + path.string() + "\" holds records of " + r.network + "." + r.station + "." +
                                 r.location + "." + r.channel);
    if (!writable_rate(r.rate))
        throw std::runtime_error("\"" + path.string() + "\" holds a record without a usable rate");
    if (r.start_us < day_start_us(d) || r.start_us >= day_start_us(d + 1) ||
        (r.count > 1 &&
         static_cast<double>(r.count - 1) * 1e6 / r.rate >= static_cast<double>(day_start_us(d + 1) - r.start_us)))
        throw std::runtime_error("\"" + path.string() + "\" holds a record of another day");
}

void merger::append_day_samples(const seed_record &r, const day_entry &entry, int64_t from, int64_t to,
                                sample_list &out) {
    // The stretch found for a sample holds the next ones up to its end (half
    // an interval beyond its last sample).
    uint32_t facts = NO_ORIGIN;
    std::size_t span = static_cast<std::size_t>(-1);
    int64_t span_end = INT64_MIN;
    out.reserve(out.size() + r.samples.size());
    for (std::size_t i = 0; i < r.samples.size(); ++i) {
        const int64_t t = sample_time(r, i);
        if (t < from || t > to) continue;
        if (facts == NO_ORIGIN || span == static_cast<std::size_t>(-1) || t > span_end) {
            span = span_at(entry, r, t, span == static_cast<std::size_t>(-1) ? 0 : span);
            facts = m_facts.id_of(facts_at(entry, r, t));
            span_end = span == static_cast<std::size_t>(-1)
                           ? INT64_MIN
                           : entry.spans[span].last + static_cast<int64_t>(0.5e6 / entry.spans[span].facts.rate);
        }
        out.push_back({t, r.samples[i], facts, NO_ORIGIN});
    }
}

std::shared_ptr<const day_content> merger::day(const channel_codes &codes, int64_t d) {
    const std::string rel = day_file_path(codes, d);
    if (auto *found = m_days.find(rel)) return *found;
    day_content content;
    bool missing = false;
    const fs::path path = m_top / rel;
    std::string bytes;
    try {
        bytes = read_text(path, &missing);
    } catch (const std::exception &e) {
        content.trouble = e.what();
    }
    if (!missing && content.trouble.empty()) {
        day_entry entry;
        const bool indexed = read_day_entry(m_top, day_file_name(codes, d), entry);
        if (!indexed)
            std::cerr << "Warning: day file " << quoted_text(path.string())
                      << " was not written by the archive; it is taken as it is\n";
        try {
            read_seed_records(bytes.data(), bytes.size(), path.string(), true, [&](const seed_record &r) {
                check_day_record(r, codes, d, path);
                append_day_samples(r, entry, INT64_MIN, INT64_MAX, content.samples);
            });
            sort_samples(content.samples);
        } catch (const std::exception &e) {
            content.samples.clear();
            content.trouble = e.what();
        }
    }
    const std::size_t n = content.samples.size();
    return m_days.put(rel, std::make_shared<const day_content>(std::move(content)), n);
}

sample_list merger::tree_samples(const channel_codes &codes, int64_t first, int64_t last, std::string &trouble) {
    // The days within reach of the stretch; reading them may bring slower
    // rates and so a wider reach, until the reach stays.
    int64_t reach = static_cast<int64_t>(widest_reach());
    for (;;) {
        for (int64_t d = day_of(first - reach); d <= day_of(last + reach); ++d) day(codes, d);
        const auto wider = static_cast<int64_t>(widest_reach());
        if (wider <= reach) break;
        reach = wider;
    }
    first -= reach;
    last += reach;
    sample_list out;
    for (int64_t d = day_of(first); d <= day_of(last); ++d) {
        const auto c = day(codes, d);
        if (!c->trouble.empty() && trouble.empty()) trouble = c->trouble;
        // A day's samples are sorted: only the stretch asked for is copied.
        const auto by_t = [](const sds_sample &a, int64_t t) { return a.t < t; };
        auto it = std::lower_bound(c->samples.begin(), c->samples.end(), first, by_t);
        for (; it != c->samples.end() && it->t <= last; ++it) out.push_back(*it);
    }
    return out;
}

sample_list merger::day_stretch(const channel_codes &codes, int64_t d, int64_t from, int64_t to) {
    sample_list out;
    if (auto *cached = m_days.find(day_file_path(codes, d))) {
        for (const sds_sample &s : (*cached)->samples)
            if (s.t >= from && s.t <= to) out.push_back(s);
        return out;
    }
    const fs::path path = m_top / day_file_path(codes, d);
    try {
        bool missing = false;
        const std::string bytes = read_text(path, &missing);
        if (missing) return out;
        day_entry entry;
        read_day_entry(m_top, day_file_name(codes, d), entry);
        // Only the records that reach into the stretch are decoded; each is
        // checked before its times are worked out.
        const auto wanted = [&](const seed_record &r) {
            check_day_record(r, codes, d, path);
            return r.start_us <= to && record_end(r) >= from;
        };
        read_seed_records_if(bytes.data(), bytes.size(), path.string(), wanted,
                             [&](const seed_record &r) { append_day_samples(r, entry, from, to, out); });
    } catch (const std::exception &) {
        // A neighbouring day file that cannot be read gives no samples near
        // midnight; merging into it would be refused by its own name.
        out.clear();
    }
    sort_samples(out);
    return out;
}

bool merger::staged_copy_whole(const std::string &run, const staged_recording &rec) {
    bool missing = false;
    try {
        const std::string bytes = read_text(staged_samples_path(m_top, run, rec.key), &missing);
        return !missing && hex64(content_hash(bytes.data(), bytes.size())) == rec.facts.check;
    } catch (const std::exception &) {
        return false;
    }
}

bool merger::could_conflict(const staged_recording &rec, const recording_channel &c) {
    if (c.samples == 0 || !(c.rate > 0.0)) return false;
    const double half = 0.5e6 / c.rate;
    const auto reach = static_cast<int64_t>(std::ceil(std::max(half, widest_reach())));
    const int64_t first = c.first - reach, last = c.last + reach;
    // Its own stretches: within one the samples follow at the rate, so only
    // stretches that come too close to each other can hold samples too close.
    std::vector<recording_channel::span> spans = c.spans;
    std::sort(spans.begin(), spans.end(), [](const auto &a, const auto &b) { return a.first < b.first; });
    for (std::size_t i = 1; i < spans.size(); ++i)
        if (static_cast<double>(spans[i].first - spans[i - 1].last) < half) return true;
    // The archive: only a day file that exists can hold samples. Its rates
    // are not known before it is read: the neighbouring days count too.
    for (int64_t d = day_of(first) - 1; d <= day_of(last) + 1; ++d)
        if (m_days.find(day_file_path(c.codes, d)) || fs::exists(m_top / day_file_path(c.codes, d))) return true;
    // The recordings accepted before it in this merge.
    (void)rec;
    return !accepted_near(c.codes.id(), first, last).empty();
}

std::vector<std::size_t> merger::accepted_near(const std::string &id, int64_t first, int64_t last) const {
    std::vector<std::size_t> near;
    auto it = m_accepted_spans.find(id);
    if (it == m_accepted_spans.end()) return near;
    const channel_spans &spans = it->second;
    // A channel's stretch [a, b] reaches [first, last] when a <= last and
    // b >= first; no stretch is longer than `longest`, so a >= first - longest.
    for (auto s = spans.by_first.lower_bound(first - spans.longest); s != spans.by_first.end() && s->first <= last;
         ++s)
        if (s->second.first >= first &&
            (near.empty() || near.back() != s->second.second))
            near.push_back(s->second.second);
    std::sort(near.begin(), near.end());
    near.erase(std::unique(near.begin(), near.end()), near.end());
    return near;
}

void merger::note_accepted(const staged_recording &rec) {
    const std::size_t index = m_accepted.size();
    m_accepted.push_back(rec);
    for (const recording_channel &c : rec.facts.channels) {
        if (c.samples == 0) continue;
        channel_spans &spans = m_accepted_spans[c.codes.id()];
        spans.by_first.emplace(c.first, std::make_pair(c.last, index));
        spans.longest = std::max(spans.longest, c.last - c.first);
    }
}

void merger::decide(const std::string &run, const std::vector<staged_recording> &recordings) {
    m_accepted.clear();
    m_accepted_spans.clear();
    m_refused.clear();
    m_conflicted.clear();
    // Every rate of the run is known before any recording is decided, so
    // that the reach of every search covers the slowest of them.
    for (const staged_recording &rec : recordings)
        for (const recording_channel &c : rec.facts.channels)
            if (c.rate > 0.0) m_facts.id_of({c.rate, c.volts_per_count, c.gain});
    for (const staged_recording &rec : recordings) {
        std::string message;
        bool conflict = false;
        // The staged copy must be whole before the recording is accepted: a
        // damaged one found while the day files are written would leave a
        // recording half filed.
        if (!staged_copy_whole(run, rec)) {
            message = "Error: " + quoted_text(rec.facts.path) +
                      ": its staged copy is missing or damaged; the recording is not filed, convert it again\n";
        }
        for (const recording_channel &c : rec.facts.channels) {
            if (!message.empty()) break;
            if (!could_conflict(rec, c)) continue;
            const sample_list incoming = staged_samples(run, rec)->all(c.codes.id());
            if (incoming.empty()) continue;
            const std::string head = "Error: " + quoted_text(rec.facts.path) + ": " + c.codes.id() + " conflicts with ";
            auto span_text = [](const time_span &s) {
                return " from " + iso_time_ms(s.first) + " to " + iso_time_ms(s.last) +
                       "; the recording is not filed\n";
            };
            if (auto self = self_conflict(m_facts, incoming)) {
                message = head + "itself" + span_text(*self);
                conflict = true;
                break;
            }
            std::string trouble;
            const sample_list tree = tree_samples(c.codes, incoming.front().t, incoming.back().t, trouble);
            const auto reach = static_cast<int64_t>(widest_reach());
            const int64_t first = incoming.front().t - reach, last = incoming.back().t + reach;
            if (!trouble.empty()) {
                message = "Error: " + quoted_text(rec.facts.path) + ": " + c.codes.id() +
                          " cannot be merged: " + trouble + "; the recording is not filed\n";
                break;
            }
            if (auto clash = find_conflict(m_facts, tree, incoming)) {
                message = head + "the archive" + span_text(*clash);
                conflict = true;
                break;
            }
            // Only a recording whose channel reaches this stretch can conflict.
            for (std::size_t k : accepted_near(c.codes.id(), first, last)) {
                const staged_recording &other = m_accepted[k];
                sample_list theirs;
                staged_samples(run, other)->append(c.codes.id(), first, last + 1, NO_ORIGIN, theirs);
                if (theirs.empty()) continue;
                if (auto clash = find_conflict(m_facts, theirs, incoming)) {
                    message = head + quoted_text(other.facts.path) + span_text(*clash);
                    conflict = true;
                    break;
                }
            }
            if (!message.empty()) break;
        }
        if (message.empty()) {
            note_accepted(rec);
        } else {
            if (conflict) m_conflicted.push_back(rec.key);
            m_refused.emplace_back(rec, message);
        }
    }
    // The decision, written down before any day file changes.
    std::string plan;
    for (const staged_recording &rec : m_accepted) plan += "accept\t" + rec.key + "\n";
    for (const auto &[rec, message] : m_refused) {
        std::string line = message;
        if (!line.empty() && line.back() == '\n') line.pop_back();
        plan += std::string(std::find(m_conflicted.begin(), m_conflicted.end(), rec.key) != m_conflicted.end()
                                ? "conflict\t"
                                : "refuse\t") +
                rec.key + "\t" + line + "\n";
    }
    write_text(staging_dir(m_top, run) / "plan", plan);
}

std::string merger::pack_day(const channel_codes &codes, int64_t d, const sample_list &samples,
                             const day_shape &shape) const {
    constexpr double drift_limit = 0.1; // of an interval
    const mseed_encoding encoding = shape.encoding;
    const int64_t day_end = day_start_us(d + 1);
    big_list<double> values;
    big_list<int32_t> integers(std::max<std::size_t>(samples.size(), 1));
    std::vector<std::pair<std::size_t, std::size_t>> runs = shape.runs;
    for (;;) {
        std::string bytes;
        int sequence = 1;
        // Where a record's rate puts a later sample past midnight (its own
        // time before it: a time axis that wanders or drifts), or further from
        // its own time than a tenth of an interval (a clock a little off its
        // stated rate), a new record starts at that sample's own time
        // instead: read back, every sample keeps its own time closely enough
        // to be the same sample when it comes again.
        std::vector<std::size_t> cross;
        for (const auto &run : runs) {
            // Plain names: lambdas below capture them.
            const std::size_t begin = run.first, end = run.second;
            const std::size_t n = end - begin;
            values.resize(n);
            for (std::size_t i = 0; i < n; ++i) {
                values[i] = samples[begin + i].value;
                if (encoding != mseed_encoding::FLOAT64) integers[i] = static_cast<int32_t>(values[i]);
            }
            const double rate = m_facts[samples[begin].facts].rate;
            const mseed_stream stream{codes.network, codes.station, codes.location, codes.channel, rate,
                                      m_record_length};
            std::size_t first = begin; // the first sample of the next record
            const record_sink sink = [&](const char *b, std::size_t length) {
                bytes.append(b, length);
                // The sample count of a record: bytes 30 and 31 of its fixed header, big-endian.
                const auto count = static_cast<std::size_t>((static_cast<unsigned char>(b[30]) << 8) |
                                                            static_cast<unsigned char>(b[31]));
                const double step = 1e6 / rate;
                const auto implied = [&](std::size_t j) {
                    return samples[first].t + static_cast<int64_t>(static_cast<double>(j - first) * step + 0.5);
                };
                if (count > 1 && first + count <= end) {
                    for (std::size_t j = first + 1; j < first + count; ++j) {
                        const int64_t at = implied(j);
                        if (at >= day_end || std::fabs(static_cast<double>(at - samples[j].t)) > drift_limit * step) {
                            cross.push_back(j);
                            break;
                        }
                    }
                }
                first += count;
            };
            const auto start_us = [&samples, begin](std::size_t i) { return samples[begin + i].t; };
            pack_segment_as(stream, encoding, values.data(), integers.data(), start_us, n, sequence, sink);
        }
        if (cross.empty()) return bytes;
        // Every record found wanting is cut at once; the next pass packs anew.
        std::vector<std::pair<std::size_t, std::size_t>> cut;
        std::size_t next = 0;
        for (const auto &run : runs) {
            std::size_t begin = run.first;
            while (next < cross.size() && cross[next] < run.second) {
                if (cross[next] > begin) {
                    cut.emplace_back(begin, cross[next]);
                    begin = cross[next];
                }
                ++next;
            }
            cut.emplace_back(begin, run.second);
        }
        runs = std::move(cut);
    }
}

bool merger::write_day(const channel_codes &codes, int64_t d, const sample_list &samples, std::size_t &gaps) const {
    const std::string rel = day_file_path(codes, d);
    const std::string name = day_file_name(codes, d);
    const fs::path path = m_top / rel;

    const day_shape shape = survey_day(m_facts, samples);
    gaps = shape.gaps;
    const std::string bytes = pack_day(codes, d, samples, shape);
    bool missing = false;
    const std::string old = read_text(path, &missing);
    if (!missing && old == bytes) return false; // the same bytes: the file stays as it is

    day_entry entry;
    const bool indexed = read_day_entry(m_top, name, entry);
    day_entry next;
    next.size = bytes.size();
    next.hash = content_hash(bytes.data(), bytes.size());
    for (const auto &[begin, end] : shape.fact_runs)
        next.spans.push_back({samples[begin].t, samples[end - 1].t, m_facts[samples[begin].facts]});
    next.has_prev = true;
    if (missing) {
        next.prev_absent = true;
    } else {
        next.prev_size = old.size();
        next.prev_hash = content_hash(old.data(), old.size());
        if (indexed) next.prev_spans = entry.spans;
    }
    write_day_entry(m_top, name, next);

    // The picture of the recorder's day shows the old samples: it goes
    // first, to be drawn again from the new day file.
    forget_quicklook(m_top, codes, d);
    std::error_code ec;
    fs::create_directories(path.parent_path(), ec);
    if (ec) throw std::runtime_error("can't create \"" + path.parent_path().string() + "\": " + ec.message());
    AtomicFile file;
    if (!file.open(path) || !file.write(bytes.data(), bytes.size()) || !file.commit())
        throw std::runtime_error(file_errno("write day file", path));
    struct stat sb {};
    if (::stat(path.c_str(), &sb) != 0) throw std::runtime_error(file_errno("read", path));
    next.mtime_ns = mtime_ns_of(sb);
    next.has_prev = false;
    next.prev_absent = false;
    next.prev_spans.clear();
    write_day_entry(m_top, name, next);
    return true;
}

void merger::execute(const std::string &run, merge_outcome &outcome) {
    // Every day and channel that an accepted recording reaches, with the
    // recordings that reach it; day by day, so that the recordings of a day
    // are decoded once for all its channels.
    std::map<int64_t, std::map<std::string, std::vector<std::size_t>>> reached;
    std::map<std::string, channel_codes> codes_of;
    for (std::size_t r = 0; r < m_accepted.size(); ++r)
        for (const recording_channel &c : m_accepted[r].facts.channels) {
            codes_of[c.codes.id()] = c.codes;
            for (const recording_channel::span &s : c.spans)
                for (int64_t d = day_of(s.first); d <= day_of(s.last); ++d) {
                    std::vector<std::size_t> &list = reached[d][c.codes.id()];
                    if (list.empty() || list.back() != r) list.push_back(r);
                }
        }
    m_added.clear();
    m_origin_of.clear();
    m_origins.clear();
    // The last day each accepted recording reaches: after it, its staged
    // samples are not needed again.
    std::map<std::size_t, int64_t> last_day;
    for (const auto &[d, channels] : reached)
        for (const auto &[id, recs] : channels)
            for (std::size_t r : recs) last_day[r] = d;
    for (const auto &[d, channels] : reached) {
        // The day's staged recordings are decoded first, on every core; its
        // day files are then gathered one after another (the caches and the
        // facts table are this thread's) and merged and written on every
        // core: a day file depends only on its own channel and day. A job
        // collects its samples when it starts and gives them up when it
        // ends, so only as many days of samples as there are threads are in
        // memory at a time, however many channels a day has.
        std::vector<std::pair<std::string, const std::vector<std::size_t> *>> todo;
        std::vector<std::size_t> day_recs;
        std::set<std::size_t> seen;
        for (const auto &[id, recs] : channels) {
            todo.emplace_back(id, &recs);
            for (std::size_t r : recs)
                if (seen.insert(r).second) day_recs.push_back(r);
        }
        prefetch_staged(run, day_recs);
        std::vector<day_job> jobs;
        for (const auto &[id, recs] : todo) {
            day_job job = gather(run, d, id, codes_of[id], *recs);
            if (!job.sources.empty()) jobs.push_back(std::move(job));
        }
        run_day_jobs(jobs);
        finish_day_jobs(jobs, d, outcome);
        for (const auto &[r, last] : last_day)
            if (last == d) m_staged.forget(staged_cache_key(run, m_accepted[r].key));
    }
    outcome.channels = m_written_channels.size();
}

void merger::finish_day_jobs(std::vector<day_job> &jobs, int64_t d, merge_outcome &outcome) {
    {
        for (day_job &job : jobs) {
            if (!job.error.empty()) throw std::runtime_error(job.error);
            for (std::size_t o = 0; o < job.added.size(); ++o) {
                if (m_added.size() <= o) m_added.resize(o + 1, 0);
                m_added[o] += job.added[o];
            }
            if (!job.written) continue;
            m_days.forget(day_file_path(job.codes, d));
            ++outcome.day_files_written;
            m_written_channels.insert(job.codes.id());
            outcome.gaps += job.gaps;
        }
    }
}

merger::day_job merger::gather(const std::string &run, int64_t d, const std::string &id, const channel_codes &codes,
                               const std::vector<std::size_t> &recs) {
    day_job job;
    job.codes = codes;
    job.day = d;
    job.origins = recs.size();
    for (std::size_t r : recs)
        for (const recording_channel &c : m_accepted[r].facts.channels)
            if (c.codes.id() == id)
                job.expected += static_cast<std::size_t>(std::min<uint64_t>(c.samples, 86400u * 1000u));
    const int64_t from = day_start_us(d), to = day_start_us(d + 1);
    // The first and last incoming time decide which neighbouring days matter.
    int64_t first = 0, last = 0;
    bool any = false;
    for (std::size_t r : recs) {
        auto mine = staged_samples(run, m_accepted[r]);
        auto key = std::make_pair(r, id);
        auto [o, fresh] = m_origin_of.try_emplace(key, static_cast<uint32_t>(m_origins.size()));
        if (fresh) m_origins.push_back(key);
        int64_t f = 0, l = 0;
        if (mine->bounds(id, from, to, f, l)) {
            first = any ? std::min(first, f) : f;
            last = any ? std::max(last, l) : l;
            any = true;
        }
        job.sources.emplace_back(std::move(mine), o->second);
    }
    if (!any) {
        job.sources.clear();
        return job;
    }

    job.current = day(codes, d);
    if (!job.current->trouble.empty())
        throw std::runtime_error("day file \"" + (m_top / day_file_path(codes, d)).string() +
                                 "\" cannot be merged: " + job.current->trouble);
    // The neighbouring days' samples near midnight, so that a sample already
    // filed on the other side is not filed again.
    const auto reach = static_cast<int64_t>(widest_reach());
    if (first < day_start_us(d) + reach)
        job.context = day_stretch(codes, d - 1, day_start_us(d) - reach, day_start_us(d));
    if (last >= day_start_us(d + 1) - reach) {
        const sample_list after = day_stretch(codes, d + 1, day_start_us(d + 1), day_start_us(d + 1) + reach);
        job.context.insert(job.context.end(), after.begin(), after.end());
    }
    return job;
}

void merger::collect_incoming(day_job &job) {
    const int64_t from = day_start_us(job.day), to = day_start_us(job.day + 1);
    const std::string id = job.codes.id();
    job.incoming.reserve(job.expected);
    for (const auto &[view, origin] : job.sources) view->append(id, from, to, origin, job.incoming);
    job.sources.clear();
    sort_samples(job.incoming);
    job.merged = job.current->samples;
    job.current.reset();
}

void merger::run_day_job(day_job &job) const {
    try {
        collect_incoming(job);
        // One recording's own samples never repeat (it would conflict with itself).
        if (job.origins > 1) drop_repeats(m_facts, job.incoming);
        if (job.merged.empty() && job.context.empty()) {
            // A new day file of these samples alone: they are taken over whole.
            if (job.origins == 1 && !job.incoming.empty()) {
                const uint32_t o = job.incoming.front().origin;
                job.added.resize(o + 1, 0);
                job.added[o] += job.incoming.size();
            } else {
                for (const sds_sample &n : job.incoming) {
                    if (job.added.size() <= n.origin) job.added.resize(n.origin + 1, 0);
                    ++job.added[n.origin];
                }
            }
            job.merged.swap(job.incoming);
        } else if (!merge_samples(m_facts, job.merged, job.context, job.incoming, &job.added)) {
            return;
        }
        job.written = write_day(job.codes, job.day, job.merged, job.gaps);
    } catch (const std::exception &e) {
        job.error = e.what();
    }
    // Only the counts are wanted from here on.
    sample_list().swap(job.merged);
    sample_list().swap(job.incoming);
    sample_list().swap(job.context);
}

void merger::run_day_jobs(std::vector<day_job> &jobs) const {
    run_on_threads(jobs.size(), threads_for(jobs.size()), [&](std::size_t k) { run_day_job(jobs[k]); });
}

void merger::finalize(const std::string &run, merge_outcome &outcome) {
    const fs::path dir = staging_dir(m_top, run);
    fs::create_directories(book_of(m_top) / "recordings");
    // Each recording's facts are a small file written durably: the time is
    // the disk's, not the processor's, so several are written at once. They
    // are files of their own (one per recording path), and only read here.
    run_on_threads(m_accepted.size(), DURABLE_WRITERS, [&](std::size_t r) {
        recording_facts facts = m_accepted[r].facts;
        facts.check.clear(); // of the staged copy only
        // What earlier conversions of the same recording added stays counted:
        // a second conversion adds only what the first did not.
        recording_facts before;
        bool missing = false;
        const std::string old = read_text(recording_facts_path(m_top, facts.path), &missing);
        if (missing || !parse_facts(old, before)) before = recording_facts{};
        for (recording_channel &c : facts.channels) {
            auto it = m_origin_of.find({r, c.codes.id()});
            c.filed = it != m_origin_of.end() && it->second < m_added.size() ? m_added[it->second] : 0;
            for (const recording_channel &o : before.channels)
                if (o.codes == c.codes && o.first == c.first && o.last == c.last && o.samples == c.samples)
                    c.filed = std::min(c.samples, c.filed + o.filed);
        }
        write_text(recording_facts_path(m_top, facts.path), facts_text(facts));
    });
    std::string refused;
    for (const auto &[rec, message] : m_refused) {
        std::string line = message;
        if (!line.empty() && line.back() == '\n') line.pop_back();
        refused += rec.facts.path + "\t" + line + "\n";
        outcome.refused.emplace_back(rec.facts.path, message);
    }
    outcome.conflicts = m_conflicted.size();
    write_text(dir / "refused", refused);
    // Only once every fact is down: until then a merge that is killed is
    // carried out again from the plan and needs the staged samples. Freeing
    // a large file's blocks waits on the disk too: several at once.
    std::vector<const staged_recording *> staged;
    for (const staged_recording &rec : m_accepted) staged.push_back(&rec);
    for (const auto &[rec, message] : m_refused) staged.push_back(&rec);
    run_on_threads(staged.size(), DURABLE_WRITERS, [&](std::size_t k) {
        std::error_code ignored;
        fs::remove(dir / (staged[k]->key + ".facts"), ignored);
        fs::remove(staged_samples_path(m_top, run, staged[k]->key), ignored);
    });
    std::error_code ec;
    fs::remove(dir / "plan", ec);
}

void merger::finish_pending(const std::string &except) {
    std::error_code ec;
    std::vector<std::string> runs;
    for (const auto &e : fs::directory_iterator(book_of(m_top) / "staging", ec)) {
        const std::string run = e.path().filename().string();
        if (run != except && fs::exists(e.path() / "plan")) runs.push_back(run);
    }
    std::sort(runs.begin(), runs.end());
    for (const std::string &run : runs) {
        const merge_outcome done = merge(run);
        m_pending.day_files_written += done.day_files_written;
        m_pending.gaps += done.gaps;
        m_pending.conflicts += done.conflicts;
    }
}

merge_outcome merger::merge(const std::string &run) {
    merge_outcome outcome;
    // Temporary files of a conversion of this run that was killed: every
    // conversion of the run has ended before its merge.
    std::error_code ec;
    for (const auto &e : fs::directory_iterator(staging_dir(m_top, run), ec))
        if (e.path().filename().string().rfind(TEMP_MARKER, 0) == 0) fs::remove(e.path(), ec);
    const std::vector<staged_recording> recordings = staged_of(run);
    bool missing = false;
    const std::string plan = read_text(staging_dir(m_top, run) / "plan", &missing);
    if (missing) {
        decide(run, recordings);
    } else {
        // A merge of this run was killed after its decision: it is carried
        // out as it was decided.
        m_accepted.clear();
        m_refused.clear();
        m_conflicted.clear();
        std::map<std::string, const staged_recording *> by_key;
        for (const staged_recording &rec : recordings) by_key[rec.key] = &rec;
        std::size_t start = 0;
        while (start < plan.size()) {
            std::size_t end = plan.find('\n', start);
            if (end == std::string::npos) end = plan.size();
            const std::string line = plan.substr(start, end - start);
            start = end + 1;
            const std::size_t tab = line.find('\t');
            if (tab == std::string::npos) continue;
            const std::string verb = line.substr(0, tab);
            const std::size_t tab2 = line.find('\t', tab + 1);
            const std::string key = line.substr(tab + 1, tab2 == std::string::npos ? std::string::npos : tab2 - tab - 1);
            auto it = by_key.find(key);
            if (it == by_key.end()) continue;
            if (verb == "accept") {
                m_accepted.push_back(*it->second);
            } else {
                const std::string message = tab2 == std::string::npos ? "" : line.substr(tab2 + 1) + "\n";
                m_refused.emplace_back(*it->second, message);
                if (verb == "conflict") m_conflicted.push_back(key);
            }
        }
    }
    execute(run, outcome);
    finalize(run, outcome);
    // The archive also gained what the interrupted merges of other runs
    // wrote when they were finished first.
    outcome.day_files_written += m_pending.day_files_written;
    outcome.gaps += m_pending.gaps;
    outcome.conflicts += m_pending.conflicts;
    m_pending = merge_outcome{};
    for (const auto &[path, message] : outcome.refused) std::cerr << message;
    return outcome;
}

} // namespace

merge_outcome merge_run(const fs::path &top, const std::string &run, int record_length) {
    fs::create_directories(book_of(top) / "staging");
    merge_lock lock(top);
    merger m(top, record_length);
    m.remove_stale_temporaries();
    m.check_index();
    m.remove_abandoned_runs(run);
    m.finish_pending(run);
    // A run by hand whose interrupted merge was just finished is gone too.
    m.remove_abandoned_runs(run);
    return m.merge(run);
}

} // namespace sds
