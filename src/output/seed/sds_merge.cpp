// The merge of staged recordings into an SDS archive (see sds_merge.h).
#include "sds_merge.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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
#include "mseed_read.h"
#include "sds_stage.h"

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

// Samples of a staged recording by channel id.
using channel_samples = std::map<std::string, sample_list>;

// A day file as read: its samples, or why it cannot be used.
struct day_content {
    sample_list samples;
    std::string trouble; // empty when readable
};

// The time of sample i of a record.
int64_t sample_time(const seed_record &r, std::size_t i) {
    return r.start_us + std::llround(static_cast<double>(i) * 1e6 / r.rate);
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
        : m_top(top), m_record_length(record_length), m_days(12u << 20), m_staged(12u << 20) {}

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

    std::shared_ptr<const channel_samples> staged_samples(const std::string &run, const staged_recording &rec);
    std::shared_ptr<const day_content> day(const channel_codes &codes, int64_t day);
    sample_list tree_samples(const channel_codes &codes, int64_t first, int64_t last, std::string &trouble);
    bool write_day(const channel_codes &codes, int64_t day, const sample_list &samples);
    double widest_reach() const;

    fs::path m_top;
    int m_record_length;
    facts_table m_facts;
    sample_cache<std::shared_ptr<const day_content>> m_days;
    sample_cache<std::shared_ptr<const channel_samples>> m_staged;

    // The plan of the run in hand: accepted recordings in order, refusals.
    std::vector<staged_recording> m_accepted;
    std::vector<std::pair<staged_recording, std::string>> m_refused;
    std::vector<std::string> m_conflicted; // keys refused by a conflict
    std::vector<uint64_t> m_added;         // per accepted recording and channel: samples added
    std::map<std::pair<std::size_t, std::string>, uint32_t> m_origin_of;
    std::vector<std::pair<std::size_t, std::string>> m_origins;
};

double merger::widest_reach() const {
    double widest = 0.0;
    for (std::size_t i = 0; i < m_facts.size(); ++i)
        widest = std::max(widest, 0.5e6 / m_facts[static_cast<uint32_t>(i)].rate);
    return std::ceil(widest);
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
        struct stat sb {};
        if (::stat(path.c_str(), &sb) != 0) {
            // Our own first write of this file, interrupted before the rename.
            if (!(entry.has_prev && entry.prev_absent))
                std::cerr << "Warning: day file " << quoted_text(path.string())
                          << " is missing since the archive wrote it; its samples are no longer in the archive\n";
            remove_day_entry(m_top, name);
            continue;
        }
        if (static_cast<uint64_t>(sb.st_size) == entry.size && mtime_ns_of(sb) == entry.mtime_ns) continue;
        const std::string bytes = read_text(path);
        const uint64_t hash = fnv1a(bytes.data(), bytes.size());
        if (bytes.size() == entry.size && hash == entry.hash) {
            // The rename went through; its time was not noted yet.
        } else if (entry.has_prev && !entry.prev_absent && bytes.size() == entry.prev_size &&
                   hash == entry.prev_hash) {
            // The rename never happened: the file holds what it held before.
            entry.spans = entry.prev_spans;
        } else {
            std::cerr << "Warning: day file " << quoted_text(path.string())
                      << " was changed since the archive wrote it; it is taken as it is now\n";
        }
        entry.size = bytes.size();
        entry.hash = hash;
        entry.mtime_ns = mtime_ns_of(sb);
        entry.has_prev = false;
        entry.prev_spans.clear();
        write_day_entry(m_top, name, entry);
    }
}

void merger::remove_abandoned_runs(const std::string &current) {
    std::error_code ec;
    for (const auto &e : fs::directory_iterator(book_of(m_top) / "staging", ec)) {
        const std::string run = e.path().filename().string();
        if (run == current || run.rfind("hand-", 0) != 0 || fs::exists(e.path() / "plan")) continue;
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

std::shared_ptr<const channel_samples> merger::staged_samples(const std::string &run, const staged_recording &rec) {
    const std::string cache_key = run + "/" + rec.key;
    if (auto *found = m_staged.find(cache_key)) return *found;
    const fs::path path = staging_dir(m_top, run) / (rec.key + ".mseed");
    const std::string bytes = read_text(path);
    std::map<std::string, uint32_t> facts_of;
    for (const recording_channel &c : rec.facts.channels)
        facts_of[c.codes.id()] = m_facts.id_of({c.rate, c.volts_per_count, c.gain});
    channel_samples samples;
    std::size_t total = 0;
    read_seed_records(bytes.data(), bytes.size(), path.string(), true, [&](const seed_record &r) {
        channel_codes codes{r.network, r.station, r.location, r.channel};
        auto f = facts_of.find(codes.id());
        if (f == facts_of.end())
            throw std::runtime_error("staged recording \"" + path.string() + "\" holds a channel its facts lack");
        sample_list &list = samples[codes.id()];
        for (std::size_t i = 0; i < r.samples.size(); ++i)
            list.push_back({sample_time(r, i), r.samples[i], f->second, NO_ORIGIN});
        total += r.samples.size();
    });
    for (auto &[id, list] : samples)
        sort_samples(list);
    return m_staged.put(cache_key, std::make_shared<const channel_samples>(std::move(samples)), total);
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
        const double unknown = std::nan("");
        try {
            read_seed_records(bytes.data(), bytes.size(), path.string(), true, [&](const seed_record &r) {
                if (channel_codes{r.network, r.station, r.location, r.channel} != codes)
                    throw std::runtime_error("\"" + path.string() + "\" holds records of " + r.network + "." +
                                             r.station + "." + r.location + "." + r.channel);
                if (!(r.rate > 0.0)) throw std::runtime_error("\"" + path.string() + "\" holds a record without rate");
                for (std::size_t i = 0; i < r.samples.size(); ++i) {
                    const int64_t t = sample_time(r, i);
                    sample_facts facts{r.rate, unknown, unknown};
                    for (const day_span &s : entry.spans)
                        if (t >= s.first && t <= s.last && s.facts.rate == r.rate) {
                            facts = s.facts;
                            break;
                        }
                    content.samples.push_back({t, r.samples[i], m_facts.id_of(facts), NO_ORIGIN});
                }
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
    sample_list out;
    for (int64_t d = day_of(first); d <= day_of(last); ++d) {
        const auto c = day(codes, d);
        if (!c->trouble.empty() && trouble.empty()) trouble = c->trouble;
        for (const sds_sample &s : c->samples)
            if (s.t >= first && s.t <= last) out.push_back(s);
    }
    return out;
}

void merger::decide(const std::string &run, const std::vector<staged_recording> &recordings) {
    m_accepted.clear();
    m_refused.clear();
    m_conflicted.clear();
    for (const staged_recording &rec : recordings) {
        std::string message;
        bool conflict = false;
        const auto mine = staged_samples(run, rec);
        for (const recording_channel &c : rec.facts.channels) {
            auto it = mine->find(c.codes.id());
            if (it == mine->end() || it->second.empty()) continue;
            const sample_list &incoming = it->second;
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
            const auto reach = static_cast<int64_t>(widest_reach());
            const int64_t first = incoming.front().t - reach, last = incoming.back().t + reach;
            std::string trouble;
            const sample_list tree = tree_samples(c.codes, first, last, trouble);
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
            for (const staged_recording &other : m_accepted) {
                const auto theirs = staged_samples(run, other);
                auto o = theirs->find(c.codes.id());
                if (o == theirs->end() || o->second.empty()) continue;
                if (o->second.back().t < first || o->second.front().t > last) continue;
                if (auto clash = find_conflict(m_facts, o->second, incoming)) {
                    message = head + quoted_text(other.facts.path) + span_text(*clash);
                    conflict = true;
                    break;
                }
            }
            if (!message.empty()) break;
        }
        if (message.empty()) {
            m_accepted.push_back(rec);
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

bool merger::write_day(const channel_codes &codes, int64_t d, const sample_list &samples) {
    const std::string rel = day_file_path(codes, d);
    const std::string name = day_file_name(codes, d);
    const fs::path path = m_top / rel;

    std::string bytes;
    int sequence = 1;
    const mseed_encoding encoding = day_encoding(samples);
    std::vector<double> values;
    std::unique_ptr<int32_t[]> integers(new int32_t[std::max<std::size_t>(samples.size(), 1)]);
    const record_sink sink = [&bytes](const char *b, std::size_t n) { bytes.append(b, n); };
    for (const auto &[begin, end] : day_runs(m_facts, samples)) {
        const std::size_t n = end - begin;
        values.resize(n);
        for (std::size_t i = 0; i < n; ++i) {
            values[i] = samples[begin + i].value;
            if (encoding != mseed_encoding::FLOAT64) integers[i] = static_cast<int32_t>(values[i]);
        }
        const double rate = m_facts[samples[begin].facts].rate;
        const mseed_stream stream{codes.network, codes.station, codes.location, codes.channel, rate, m_record_length};
        const auto start_us = [&samples, begin](std::size_t i) { return samples[begin + i].t; };
        pack_segment_as(stream, encoding, values.data(), integers.get(), start_us, n, sequence, sink);
    }

    bool missing = false;
    const std::string old = read_text(path, &missing);
    if (!missing && old == bytes) return false; // the same bytes: the file stays as it is

    day_entry entry;
    const bool indexed = read_day_entry(m_top, name, entry);
    day_entry next;
    next.size = bytes.size();
    next.hash = fnv1a(bytes.data(), bytes.size());
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const sample_facts &f = m_facts[samples[i].facts];
        if (i > 0 && same_facts(m_facts[samples[i - 1].facts], f))
            next.spans.back().last = samples[i].t;
        else
            next.spans.push_back({samples[i].t, samples[i].t, f});
    }
    next.has_prev = true;
    if (missing) {
        next.prev_absent = true;
    } else {
        next.prev_size = old.size();
        next.prev_hash = fnv1a(old.data(), old.size());
        if (indexed) next.prev_spans = entry.spans;
    }
    write_day_entry(m_top, name, next);

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
    m_days.forget(rel);
    return true;
}

void merger::execute(const std::string &run, merge_outcome &outcome) {
    // Every channel and day that an accepted recording reaches, with the
    // recordings that reach it.
    std::map<std::pair<std::string, int64_t>, std::vector<std::size_t>> reached;
    std::map<std::string, channel_codes> codes_of;
    for (std::size_t r = 0; r < m_accepted.size(); ++r)
        for (const recording_channel &c : m_accepted[r].facts.channels) {
            codes_of[c.codes.id()] = c.codes;
            for (const recording_channel::span &s : c.spans)
                for (int64_t d = day_of(s.first); d <= day_of(s.last); ++d) {
                    std::vector<std::size_t> &list = reached[{c.codes.id(), d}];
                    if (list.empty() || list.back() != r) list.push_back(r);
                }
        }
    m_added.clear();
    m_origin_of.clear();
    m_origins.clear();
    std::set<std::string> written_channels;
    for (const auto &[where, recs] : reached) {
        const channel_codes &codes = codes_of[where.first];
        const int64_t d = where.second;
        sample_list incoming;
        for (std::size_t r : recs) {
            const auto mine = staged_samples(run, m_accepted[r]);
            auto it = mine->find(where.first);
            if (it == mine->end()) continue;
            auto key = std::make_pair(r, where.first);
            auto [o, fresh] = m_origin_of.try_emplace(key, static_cast<uint32_t>(m_origins.size()));
            if (fresh) m_origins.push_back(key);
            const int64_t from = day_start_us(d), to = day_start_us(d + 1);
            auto lo = std::lower_bound(it->second.begin(), it->second.end(), sds_sample{from, 0.0, 0, 0},
                                       [](const sds_sample &a, const sds_sample &b) { return a.t < b.t; });
            for (; lo != it->second.end() && lo->t < to; ++lo) {
                sds_sample s = *lo;
                s.origin = o->second;
                incoming.push_back(s);
            }
        }
        if (incoming.empty()) continue;
        sort_samples(incoming);
        drop_repeats(m_facts, incoming);

        const auto current = day(codes, d);
        if (!current->trouble.empty())
            throw std::runtime_error("day file \"" + (m_top / day_file_path(codes, d)).string() +
                                     "\" cannot be merged: " + current->trouble);
        sample_list merged = current->samples;
        // The neighbouring days' samples near midnight, so that a sample
        // already filed on the other side is not filed again.
        const auto reach = static_cast<int64_t>(widest_reach());
        sample_list context;
        for (int64_t side : {d - 1, d + 1}) {
            const auto next = day(codes, side);
            for (const sds_sample &s : next->samples)
                if (s.t >= day_start_us(d) - reach && s.t < day_start_us(d + 1) + reach) context.push_back(s);
        }
        if (!merge_samples(m_facts, merged, context, incoming, &m_added)) continue;
        if (write_day(codes, d, merged)) {
            ++outcome.day_files_written;
            written_channels.insert(where.first);
            outcome.gaps += count_gaps(m_facts, merged);
        }
    }
    outcome.channels = written_channels.size();
}

void merger::finalize(const std::string &run, merge_outcome &outcome) {
    const fs::path dir = staging_dir(m_top, run);
    fs::create_directories(book_of(m_top) / "recordings");
    for (std::size_t r = 0; r < m_accepted.size(); ++r) {
        recording_facts facts = m_accepted[r].facts;
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
    }
    std::string refused;
    for (const auto &[rec, message] : m_refused) {
        std::string line = message;
        if (!line.empty() && line.back() == '\n') line.pop_back();
        refused += rec.facts.path + "\t" + line + "\n";
        outcome.refused.emplace_back(rec.facts.path, message);
    }
    outcome.conflicts = m_conflicted.size();
    write_text(dir / "refused", refused);
    std::error_code ec;
    auto remove_staged = [&](const staged_recording &rec) {
        fs::remove(dir / (rec.key + ".facts"), ec);
        fs::remove(dir / (rec.key + ".mseed"), ec);
    };
    for (const staged_recording &rec : m_accepted) remove_staged(rec);
    for (const auto &[rec, message] : m_refused) remove_staged(rec);
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
    for (const std::string &run : runs) merge(run);
}

merge_outcome merger::merge(const std::string &run) {
    merge_outcome outcome;
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
    return m.merge(run);
}

} // namespace sds
