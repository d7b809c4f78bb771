// A synthetic converted archive (see report_tree.h).
#include "report_tree.h"

#include <fstream>
#include <map>
#include <set>

#include "sds_index.h"
#include "sds_paths.h"
#include "sds_samples.h"

namespace fs = std::filesystem;

namespace {

void put(const fs::path &path, const std::string &text) {
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
}

std::string station_name(int s, int element) {
    return std::string("R") + static_cast<char>('E' + s) + "A" + std::to_string(element + 1);
}

} // namespace

std::string synthetic_recording_path(const synthetic_archive &a, int s, long i) {
    return a.source + "/st" + std::to_string(s) + "/rec" + std::to_string(i) + ".vx24";
}

void write_synthetic_archive(const synthetic_archive &a) {
    const fs::path book = sds::book_of(a.top);
    put(book / "tree", "record-length 4096\nscale 1\n");
    const int64_t interval = static_cast<int64_t>(1e6 / a.rate);
    std::set<std::string> day_files;
    std::string outcomes;
    for (int s = 0; s < a.stations; ++s) {
        for (long i = 0; i < a.recordings; ++i) {
            sds::recording_facts f;
            f.path = synthetic_recording_path(a, s, i);
            f.run = "src-0000000000000000";
            const int64_t first = a.start_us + i * a.step_us;
            const int64_t last = first + a.length_us - interval;
            const uint64_t n = static_cast<uint64_t>(a.length_us / interval);
            for (int e = 0; e < 3; ++e) {
                sds::recording_channel c;
                c.codes = {"XX", station_name(s, e), "", "BDF"};
                c.first = first;
                c.last = last;
                c.rate = a.rate;
                c.volts_per_count = 10;
                c.gain = 1;
                c.samples = c.filed = n;
                c.spans.push_back({first, last, n});
                f.channels.push_back(c);
                for (int64_t d = day_of(first); d <= day_of(last); ++d) day_files.insert(day_file_path(c.codes, d));
            }
            put(sds::recording_facts_path(a.top, f.path), sds::facts_text(f));
            outcomes += "ok\tst" + std::to_string(s) + "/rec" + std::to_string(i) + ".vx24\n";
        }
    }
    for (const std::string &path : day_files) {
        put(a.top / path, "");
        const std::string name = fs::path(path).filename().string();
        put(sds::day_entry_path(a.top, name), "file\t0\t0\t0000000000000000\n");
    }
    const fs::path src = book / "sources" / "src-0000000000000000";
    put(src / "settings", "sds\n" + a.source + "\n");
    put(src / "options", "--quiet\n");
    put(src / "outcomes", outcomes);
    put(src / "report", "");
    put(src / "skipped", "");
}
