#include "sds_tree_check.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <regex>
#include <set>

#include "child_process.h"
#include "mseed_check.h"
#include "seed_record_reader.h"

namespace fs = std::filesystem;

namespace sds {

namespace {

constexpr int64_t US_PER_DAY = 86400LL * 1000000;
constexpr char ARCHIVE_DIR[] = ".brantel-archive";
constexpr char TEMP_MARKER[] = ".brantel-tmp.";

bool leap(int y) {
    return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

// Days since 1970-01-01 of January 1 of a year, and the civil date of a day.
int64_t days_to_year(int y) {
    int64_t d = 0;
    for (int k = 1970; k < y; ++k)
        d += leap(k) ? 366 : 365;
    return d;
}
void year_and_doy(int64_t day, int &year, int &doy) {
    year = 1970;
    while (day >= (leap(year) ? 366 : 365)) {
        day -= leap(year) ? 366 : 365;
        ++year;
    }
    doy = static_cast<int>(day) + 1;
}

double record_rate(const seed::record &r) {
    return r.has_b100 ? static_cast<double>(r.b100_rate) : r.header_rate;
}

int64_t sample_time(const seed::record &r, size_t i) {
    return r.start_us + std::llround(static_cast<double>(i) * 1e6 / record_rate(r));
}

std::string channel_id(const std::string &net, const std::string &sta, const std::string &loc,
                       const std::string &chan) {
    return net + "." + sta + "." + loc + "." + chan;
}

// Reads a file with both readers; they must agree on every record. Returns
// the tests' reader's records (empty when it fails).
std::vector<seed::record> read_both(const fs::path &file) {
    const std::string bytes = file_bytes(file);
    std::vector<seed::record> ours;
    try {
        ours = seed::read_records(bytes);
    } catch (const std::exception &e) {
        ADD_FAILURE() << file << ": " << e.what();
        return {};
    }
    const std::vector<library_record> theirs = read_with_libmseed(file.string());
    EXPECT_EQ(ours.size(), theirs.size()) << file << ": libmseed reads another number of records";
    for (size_t k = 0; k < std::min(ours.size(), theirs.size()); ++k) {
        const seed::record &a = ours[k];
        const library_record &b = theirs[k];
        const bool same = a.network == b.network && a.station == b.station && a.location == b.location &&
                          a.channel == b.channel && a.quality == b.quality && a.start_us == b.start_us &&
                          record_rate(a) == b.rate && a.encoding == b.encoding &&
                          a.record_length == b.record_length && a.samples == b.samples;
        if (!same) {
            ADD_FAILURE() << file << ": record " << k << " reads differently with libmseed";
            break;
        }
    }
    return ours;
}

bool same_sample(const sample &a, const sample &b) {
    return a.value == b.value && a.rate == b.rate;
}

// Half an interval in microseconds, of the slower rate where two samples differ.
double half_interval_us(const sample &a, const sample &b) {
    return 0.5e6 / std::min(a.rate, b.rate);
}

void sort_by_time(std::vector<sample> &v) {
    std::stable_sort(v.begin(), v.end(), [](const sample &a, const sample &b) { return a.t_us < b.t_us; });
}

} // namespace

int64_t utc_day(int64_t t_us) {
    return t_us >= 0 ? t_us / US_PER_DAY : -((-t_us + US_PER_DAY - 1) / US_PER_DAY);
}

std::string iso_time(int64_t t_us) {
    const int64_t day = utc_day(t_us);
    int64_t rest = t_us - day * US_PER_DAY;
    // Civil date of the day.
    int64_t z = day + 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const int64_t doe = z - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    const int64_t d = doy - (153 * mp + 2) / 5 + 1;
    const int64_t m = mp < 10 ? mp + 3 : mp - 9;
    const int64_t y = yoe + era * 400 + (m <= 2);
    char buf[160]; // room for any 64-bit fields, so that the compiler sees no truncation
    std::snprintf(buf, sizeof buf, "%04lld-%02lld-%02lldT%02lld:%02lld:%02lld.%06lldZ",
                  static_cast<long long>(y), static_cast<long long>(m), static_cast<long long>(d),
                  static_cast<long long>(rest / 3600000000), static_cast<long long>(rest / 60000000 % 60),
                  static_cast<long long>(rest / 1000000 % 60), static_cast<long long>(rest % 1000000));
    return buf;
}

std::string day_file_path(const std::string &channel, int64_t day) {
    int year = 0, doy = 0;
    year_and_doy(day, year, doy);
    const size_t d1 = channel.find('.'), d2 = channel.find('.', d1 + 1), d3 = channel.find('.', d2 + 1);
    const std::string net = channel.substr(0, d1), sta = channel.substr(d1 + 1, d2 - d1 - 1),
                      chan = channel.substr(d3 + 1);
    char doy_text[16];
    std::snprintf(doy_text, sizeof doy_text, "%03d", doy);
    return std::to_string(year) + "/" + net + "/" + sta + "/" + chan + ".D/" + channel + ".D." +
           std::to_string(year) + "." + doy_text;
}

day_files read_tree(const fs::path &dir) {
    day_files files;
    if (!fs::is_directory(dir)) {
        ADD_FAILURE() << dir << " is not a directory";
        return files;
    }
    static const std::regex day_path(R"(^(\d{4})/([A-Z0-9]{1,2})/([A-Z0-9]{1,5})/([A-Z0-9]{3})\.D/)"
                                     R"(\2\.\3\.([A-Z0-9]{0,2})\.\4\.D\.\1\.(\d{3})$)");
    static const std::regex dir_path(R"(^\d{4}(/[A-Z0-9]{1,2}(/[A-Z0-9]{1,5}(/[A-Z0-9]{3}\.D)?)?)?$)");
    std::set<std::string> dirs;
    for (auto it = fs::recursive_directory_iterator(dir); it != fs::recursive_directory_iterator(); ++it) {
        const std::string rel = fs::relative(it->path(), dir).generic_string();
        if (it.depth() == 0 && it->path().filename() == ARCHIVE_DIR) {
            EXPECT_TRUE(it->is_directory()) << rel << " is not a directory";
            it.disable_recursion_pending();
            continue;
        }
        if (it->is_symlink()) {
            ADD_FAILURE() << "a symbolic link in the tree: " << rel;
            continue;
        }
        if (it->is_directory()) {
            EXPECT_TRUE(std::regex_match(rel, dir_path)) << "a directory that leads to no day file: " << rel;
            dirs.insert(rel);
            continue;
        }
        if (!it->is_regular_file()) {
            ADD_FAILURE() << "neither a file nor a directory: " << rel;
            continue;
        }
        std::smatch m;
        if (!std::regex_match(rel, m, day_path)) {
            ADD_FAILURE() << "a file that is not a day file: " << rel;
            continue;
        }
        day_file f;
        f.year = std::stoi(m[1]);
        f.doy = std::stoi(m[6]);
        f.channel = channel_id(m[2], m[3], m[5], m[4]);
        if (f.doy < 1 || f.doy > (leap(f.year) ? 366 : 365)) {
            ADD_FAILURE() << rel << ": no such day of the year";
            continue;
        }
        const int64_t day_start = (days_to_year(f.year) + f.doy - 1) * US_PER_DAY;
        const int64_t day_end = day_start + US_PER_DAY;
        const std::vector<seed::record> records = read_both(it->path());
        EXPECT_FALSE(records.empty()) << rel << " holds no record";
        f.records = records.size();
        if (!records.empty()) {
            f.record_length = records[0].record_length;
            f.encoding = records[0].encoding;
        }
        EXPECT_EQ(fs::file_size(it->path()), f.records * static_cast<size_t>(f.record_length))
            << rel << ": the size is not a whole number of records";
        int64_t previous_start = INT64_MIN;
        int failures = 0;
        for (size_t k = 0; k < records.size() && failures < 5; ++k) {
            const seed::record &r = records[k];
            std::string what;
            if (channel_id(r.network, r.station, r.location, r.channel) != f.channel)
                what += " carries " + channel_id(r.network, r.station, r.location, r.channel) + ";";
            if (r.quality != 'D') what += std::string(" quality ") + r.quality + ";";
            if (r.record_length != f.record_length)
                what += " record length " + std::to_string(r.record_length) + " after " +
                        std::to_string(f.record_length) + ";";
            if (r.encoding != f.encoding)
                what +=
                    " encoding " + std::to_string(r.encoding) + " after " + std::to_string(f.encoding) + ";";
            if (r.encoding != 11 && r.encoding != 3 && r.encoding != 5)
                what += " encoding " + std::to_string(r.encoding) + ";";
            if (r.sample_count < 1 || r.sample_count > 32767)
                what += " " + std::to_string(r.sample_count) + " samples;";
            if (record_rate(r) <= 0) what += " no rate;";
            if (!r.has_b1000) what += " no Blockette 1000;";
            if (r.start_us < previous_start)
                what += " starts at " + iso_time(r.start_us) + ", before the record before it (" +
                        iso_time(previous_start) + ");";
            if (r.sample_count > 0 && record_rate(r) > 0) {
                const int64_t last = sample_time(r, static_cast<size_t>(r.sample_count - 1));
                if (r.start_us < day_start || last >= day_end)
                    what += " runs from " + iso_time(r.start_us) + " to " + iso_time(last) +
                            ", outside the file's day;";
            }
            if (!what.empty()) {
                ADD_FAILURE() << rel << ": record " << k << what;
                ++failures;
            }
            previous_start = r.start_us;
            if (record_rate(r) > 0) {
                if (std::find(f.rates.begin(), f.rates.end(), record_rate(r)) == f.rates.end())
                    f.rates.push_back(record_rate(r));
                for (size_t i = 0; i < r.samples.size(); ++i)
                    f.samples.push_back(
                        {sample_time(r, i), r.samples[i], record_rate(r), static_cast<int32_t>(i)});
            }
        }
        files.emplace(rel, std::move(f));
    }
    // Every directory leads to a day file.
    for (const std::string &d : dirs) {
        bool used = false;
        for (const auto &[path, f] : files)
            if (path.compare(0, d.size() + 1, d + "/") == 0) {
                used = true;
                break;
            }
        EXPECT_TRUE(used) << "an empty directory in the tree: " << d;
    }
    return files;
}

channel_samples channels_of(const day_files &files) {
    channel_samples channels;
    for (const auto &[path, f] : files) {
        std::vector<sample> &v = channels[f.channel];
        v.insert(v.end(), f.samples.begin(), f.samples.end());
    }
    for (auto &[id, v] : channels) {
        sort_by_time(v);
        int reported = 0;
        for (size_t i = 1; i < v.size() && reported < 3; ++i)
            if (static_cast<double>(v[i].t_us - v[i - 1].t_us) < half_interval_us(v[i - 1], v[i])) {
                ADD_FAILURE() << id << ": two samples closer than half an interval, " << v[i - 1].value
                              << " at " << iso_time(v[i - 1].t_us) << " and " << v[i].value << " at "
                              << iso_time(v[i].t_us);
                ++reported;
            }
    }
    return channels;
}

channel_samples read_mseed(const fs::path &file) {
    channel_samples channels;
    for (const seed::record &r : read_both(file)) {
        std::vector<sample> &v = channels[channel_id(r.network, r.station, r.location, r.channel)];
        for (size_t i = 0; i < r.samples.size(); ++i)
            v.push_back({sample_time(r, i), r.samples[i], record_rate(r), static_cast<int32_t>(i)});
    }
    for (auto &[id, v] : channels)
        sort_by_time(v);
    return channels;
}

std::vector<std::string> add_samples(channel_samples &into, const channel_samples &more) {
    std::vector<std::string> conflicts;
    for (const auto &[id, extra] : more) {
        std::vector<sample> all = into[id];
        all.insert(all.end(), extra.begin(), extra.end());
        sort_by_time(all);
        std::vector<sample> kept;
        kept.reserve(all.size());
        for (const sample &s : all) {
            if (!kept.empty() &&
                static_cast<double>(s.t_us - kept.back().t_us) < half_interval_us(kept.back(), s)) {
                if (!same_sample(kept.back(), s))
                    conflicts.push_back(id + ": " + std::to_string(kept.back().value) + " at " +
                                        iso_time(kept.back().t_us) + " against " + std::to_string(s.value) +
                                        " at " + iso_time(s.t_us));
                continue;
            }
            kept.push_back(s);
        }
        into[id] = std::move(kept);
    }
    return conflicts;
}

std::map<std::string, std::vector<sample>> split_into_days(const channel_samples &channels) {
    std::map<std::string, std::vector<sample>> days;
    for (const auto &[id, v] : channels) {
        int64_t day = INT64_MIN;
        std::vector<sample> *into = nullptr;
        for (const sample &s : v) {
            if (utc_day(s.t_us) != day) {
                day = utc_day(s.t_us);
                into = &days[day_file_path(id, day)];
            }
            into->push_back(s);
        }
    }
    return days;
}

namespace {

// Compares two sorted sample lists; describes the first difference.
std::string first_difference(const std::vector<sample> &got, const std::vector<sample> &want,
                             int64_t tolerance_us) {
    const size_t n = std::min(got.size(), want.size());
    const std::string counts =
        " (" + std::to_string(got.size()) + " samples, expected " + std::to_string(want.size()) + ")";
    // With as many samples on both sides, every time too far off is counted
    // and the farthest named; otherwise the first difference says enough.
    std::string first;
    size_t late = 0;
    int64_t worst = 0, worst_allowed = 0;
    size_t worst_at = 0;
    for (size_t i = 0; i < n; ++i) {
        const sample &a = got[i], &b = want[i];
        int64_t allowed = tolerance_us;
        const size_t k = static_cast<size_t>(a.in_record);
        if (k > 0 && k <= i && a.rate > 0) {
            const int64_t where = want[i - k].t_us + std::llround(static_cast<double>(k) * 1e6 / a.rate);
            allowed += std::llabs(where - b.t_us);
        }
        const int64_t off = std::llabs(a.t_us - b.t_us) - allowed;
        if (off <= 0 && a.value == b.value) continue;
        if (first.empty())
            first = "sample " + std::to_string(i) + ": " + std::to_string(a.value) + " at " +
                    iso_time(a.t_us) + " (sample " + std::to_string(k) + " of its record), expected " +
                    std::to_string(b.value) + " at " + iso_time(b.t_us) + counts;
        if (!(a.value == b.value) || got.size() != want.size()) return first;
        ++late;
        if (off > worst - worst_allowed) {
            worst = std::llabs(a.t_us - b.t_us);
            worst_allowed = allowed;
            worst_at = i;
        }
    }
    if (!first.empty())
        return first + "; " + std::to_string(late) +
               " samples off by more than allowed, the farthest sample " + std::to_string(worst_at) + " by " +
               std::to_string(worst) + " us where " + std::to_string(worst_allowed) + " us are allowed (" +
               iso_time(got[worst_at].t_us) + " against " + iso_time(want[worst_at].t_us) + ")";
    if (got.size() != want.size()) {
        std::string s = std::to_string(got.size()) + " samples, expected " + std::to_string(want.size());
        if (got.size() > n) s += "; the first extra one at " + iso_time(got[n].t_us);
        if (want.size() > n) s += "; the first missing one at " + iso_time(want[n].t_us);
        if (!got.empty() && !want.empty())
            s += "; spans " + iso_time(got.front().t_us) + " to " + iso_time(got.back().t_us) + " against " +
                 iso_time(want.front().t_us) + " to " + iso_time(want.back().t_us);
        return s;
    }
    return {};
}

} // namespace

bool expect_same_samples(const channel_samples &got, const channel_samples &want, const std::string &what,
                         int64_t tolerance_us) {
    bool same = true;
    for (const auto &[id, v] : got)
        if (!want.count(id)) {
            ADD_FAILURE() << what << ": channel " << id << " (" << v.size()
                          << " samples) should not be there";
            same = false;
        }
    for (const auto &[id, v] : want) {
        auto it = got.find(id);
        if (it == got.end()) {
            ADD_FAILURE() << what << ": channel " << id << " (" << v.size() << " samples) is missing";
            same = false;
            continue;
        }
        const std::string d = first_difference(it->second, v, tolerance_us);
        if (!d.empty()) {
            ADD_FAILURE() << what << ": " << id << ": " << d;
            same = false;
        }
    }
    return same;
}

bool expect_same_day_files(const day_files &got, const std::map<std::string, std::vector<sample>> &want,
                           const std::string &what, int64_t tolerance_us) {
    bool same = true;
    for (const auto &[path, f] : got)
        if (!want.count(path)) {
            ADD_FAILURE() << what << ": day file " << path << " should not be there";
            same = false;
        }
    for (const auto &[path, v] : want) {
        auto it = got.find(path);
        if (it == got.end()) {
            ADD_FAILURE() << what << ": day file " << path << " is missing";
            same = false;
            continue;
        }
        std::vector<sample> sorted = it->second.samples;
        sort_by_time(sorted);
        const std::string d = first_difference(sorted, v, tolerance_us);
        if (!d.empty()) {
            ADD_FAILURE() << what << ": " << path << ": " << d;
            same = false;
        }
    }
    return same;
}

std::vector<std::string> temporaries(const fs::path &dir) {
    std::vector<std::string> found;
    if (!fs::exists(dir)) return found;
    for (const auto &e : fs::recursive_directory_iterator(dir))
        if (e.path().filename().string().find(TEMP_MARKER) != std::string::npos)
            found.push_back(fs::relative(e.path(), dir).generic_string());
    return found;
}

std::map<std::string, file_state> snapshot(const fs::path &dir, bool with_archive) {
    std::map<std::string, file_state> files;
    if (!fs::exists(dir)) return files;
    for (auto it = fs::recursive_directory_iterator(dir); it != fs::recursive_directory_iterator(); ++it) {
        if (!with_archive && it.depth() == 0 && it->path().filename() == ARCHIVE_DIR) {
            it.disable_recursion_pending();
            continue;
        }
        if (!it->is_regular_file()) continue;
        files[fs::relative(it->path(), dir).generic_string()] = {file_bytes(it->path()),
                                                                 fs::last_write_time(it->path())};
    }
    return files;
}

bool expect_unchanged(const std::map<std::string, file_state> &before,
                      const std::map<std::string, file_state> &after, const std::string &what) {
    bool same = true;
    for (const auto &[path, s] : before) {
        auto it = after.find(path);
        if (it == after.end()) {
            ADD_FAILURE() << what << ": " << path << " was removed";
            same = false;
        } else if (it->second.bytes != s.bytes) {
            ADD_FAILURE() << what << ": " << path << " changed its bytes";
            same = false;
        } else if (it->second.mtime != s.mtime) {
            ADD_FAILURE() << what << ": " << path << " has a new modification time";
            same = false;
        }
    }
    for (const auto &[path, s] : after)
        if (!before.count(path)) {
            ADD_FAILURE() << what << ": " << path << " was added";
            same = false;
        }
    return same;
}

} // namespace sds
