// Facts of recordings turned into the archive's channels (see
// archive_contents.h).
#include "archive_contents.h"

#include <algorithm>
#include <system_error>

#include "atomic_file.h"
#include "book_files.h"
#include "report_time.h"

namespace report {

namespace fs = std::filesystem;

std::vector<sds::recording_facts> read_facts_folder(const fs::path &folder, std::vector<std::string> &problems) {
    std::vector<fs::path> files;
    std::error_code ec;
    for (const auto &e : fs::directory_iterator(folder, ec)) {
        const std::string name = e.path().filename().string();
        if (name.rfind(TEMP_MARKER, 0) == 0) continue;
        files.push_back(e.path());
    }
    std::sort(files.begin(), files.end());
    std::vector<sds::recording_facts> all;
    for (const fs::path &file : files) {
        bool readable = true;
        const std::string text = file_text(file, &readable);
        sds::recording_facts facts;
        if (!readable || !sds::parse_facts(text, facts)) {
            problems.push_back("damaged facts file " + file.string() + ": its recording is not drawn");
            continue;
        }
        all.push_back(std::move(facts));
    }
    return all;
}

std::string relative_to_source(const std::string &path, const std::vector<source_run> &sources) {
    std::size_t best = 0;
    for (const source_run &s : sources) {
        const std::string prefix = s.source + "/";
        if (path.size() > prefix.size() && path.compare(0, prefix.size(), prefix) == 0)
            best = std::max(best, prefix.size());
    }
    return path.substr(best);
}

namespace {

// Times of recordings lie between 1900 and 2200; facts with others are
// damaged, and their spans (of up to millions of years) are not walked.
bool plausible_times(const sds::recording_channel &c) {
    static const int64_t earliest = days_of({1900, 1, 1}) * 86400000000LL;
    static const int64_t latest = days_of({2200, 1, 1}) * 86400000000LL;
    const auto within = [](int64_t first, int64_t last) { return earliest <= first && first <= last && last < latest; };
    if (!within(c.first, c.last)) return false;
    for (const auto &s : c.spans)
        if (!within(s.first, s.last)) return false;
    return true;
}

} // namespace

bool add_recording(archive &a, const sds::recording_facts &facts, const std::string &relative,
                   const presence &present, bool count_filed, const std::vector<std::string> &pictures) {
    bool kept_any = false;
    for (const sds::recording_channel &c : facts.channels) {
        if (!plausible_times(c)) {
            a.problems.push_back("the facts of " + relative + " give " + c.codes.id() +
                                 " times outside 1900 to 2200: not drawn");
            continue;
        }
        channel_data &ch = a.channels[c.codes.id()];
        ch.codes = c.codes;
        std::vector<sds::recording_channel::span> spans = c.spans;
        if (spans.empty()) spans.push_back({c.first, c.last, c.samples});
        int64_t whole = 0, kept = 0;
        bool kept_channel = false;
        for (const auto &s : spans) {
            whole += s.last - s.first + 1;
            for (int64_t day = utc_day(s.first), last_day = utc_day(s.last); day <= last_day; ++day) {
                const int64_t first = std::max<int64_t>(s.first, day * 86400000000LL);
                const int64_t last = std::min<int64_t>(s.last, (day + 1) * 86400000000LL - 1);
                if (!present(c.codes, day)) continue;
                ch.stretches.push_back({first, last, c.rate});
                kept += last - first + 1;
                kept_channel = true;
            }
        }
        if (!kept_channel) continue;
        kept_any = true;
        ch.settings.push_back({c.first, c.rate, c.gain, c.volts_per_count, relative});
        const uint64_t samples = count_filed ? c.filed : c.samples;
        ch.samples += whole > 0 && kept < whole
                          ? static_cast<uint64_t>(static_cast<double>(samples) * static_cast<double>(kept) /
                                                  static_cast<double>(whole))
                          : samples;
        for (const std::string &picture : pictures)
            ch.pictures.push_back({c.first, c.last, picture, relative});
    }
    if (kept_any) ++a.recordings;
    return kept_any;
}

} // namespace report
