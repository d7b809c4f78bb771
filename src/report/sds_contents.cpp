// An SDS tree's contents: its filed recordings' facts where their day files
// are present (see archive_contents.h).
#include <map>
#include <sys/stat.h>

#include "archive_contents.h"
#include "sds_paths.h"

namespace report {

namespace fs = std::filesystem;

namespace {

// The size of a file, or -1 when there is none.
long long file_size_of(const fs::path &path) {
    struct stat sb {};
    if (::stat(path.c_str(), &sb) != 0 || !S_ISREG(sb.st_mode)) return -1;
    return static_cast<long long>(sb.st_size);
}

} // namespace

void read_sds_contents(const fs::path &output, archive &a) {
    // Every day file that the index lists, checked once against the tree.
    for (const std::string &name : sds::day_entry_names(output)) {
        sds::day_entry entry;
        bool listed = false;
        try {
            listed = sds::read_day_entry(output, name, entry);
        } catch (const std::exception &) {
            entry.damaged = true;
        }
        const std::string path = day_file_path_of_name(name);
        if (path.empty()) continue;
        const long long size = file_size_of(output / path);
        if (size < 0)
            a.problems.push_back("day file " + path + " is listed in the bookkeeping but missing: not drawn");
        else if (listed && entry.damaged)
            a.problems.push_back("the bookkeeping's entry of day file " + path + " is damaged");
        else if (listed && static_cast<unsigned long long>(size) != entry.size)
            a.problems.push_back("day file " + path + " has changed since the archive wrote it");
    }

    std::map<std::string, bool> present_files;
    long present_count = 0;
    const presence present = [&](const channel_codes &codes, int64_t day) {
        const std::string path = day_file_path(codes, day);
        const auto [it, fresh] = present_files.emplace(path, false);
        if (fresh) {
            it->second = file_size_of(output / path) >= 0;
            if (it->second) ++present_count;
        }
        return it->second;
    };
    for (const sds::recording_facts &facts : read_facts_folder(sds::book_of(output) / "recordings", a.problems))
        add_recording(a, facts, relative_to_source(facts.path, a.sources), present, true);
    a.day_files = present_count;
}

} // namespace report
