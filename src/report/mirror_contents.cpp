// A mirror's contents: its recordings' facts as read, where their outputs
// are present (see archive_contents.h).
#include <algorithm>
#include <map>
#include <set>
#include <system_error>

#include "archive_contents.h"
#include "atomic_file.h"
#include "book_files.h"
#include "driver_bookkeeping.h"

namespace report {

namespace fs = std::filesystem;

namespace {

// The file names of a folder of OUTPUT, listed once.
class folder_listing {
  public:
    explicit folder_listing(fs::path top) : m_top(std::move(top)) {}

    const std::vector<std::string> &names(const std::string &dir) {
        const auto [it, fresh] = m_names.emplace(dir, std::vector<std::string>{});
        if (fresh) {
            std::error_code ec;
            for (const auto &e : fs::directory_iterator(m_top / dir, ec)) {
                const std::string name = e.path().filename().string();
                if (name.rfind(TEMP_MARKER, 0) != 0 && e.is_regular_file(ec)) it->second.push_back(name);
            }
            std::sort(it->second.begin(), it->second.end());
        }
        return it->second;
    }

  private:
    fs::path m_top;
    std::map<std::string, std::vector<std::string>> m_names;
};

std::string folder_of(const std::string &relative) {
    const std::size_t slash = relative.rfind('/');
    return slash == std::string::npos ? std::string() : relative.substr(0, slash);
}

} // namespace

void read_mirror_contents(const fs::path &output, archive &a) {
    const fs::path book = sds::book_of(output);
    // Facts as read; a run that kept only the facts for station metadata
    // (recordings/) stands in for recordings that the catalog lacks.
    std::map<std::string, sds::recording_facts> by_path;
    for (sds::recording_facts &f : read_facts_folder(book / "recordings", a.problems))
        by_path[f.path] = std::move(f);
    for (sds::recording_facts &f : read_facts_folder(sds::catalog_of(output), a.problems))
        by_path[f.path] = std::move(f);

    // A directory's combined run names its outputs after its first file.
    std::map<std::string, std::string> named_after;
    if (!a.sources.empty() && a.sources.front().mode == "per-directory")
        for (const std::string &line : file_lines(book / "jobs")) {
            const directory_job job = directory_job_of(line);
            for (const std::string &path : job.paths) named_after[path] = job.paths.front();
        }

    // Recordings converted by a driver that kept no catalog have no facts.
    std::set<std::string> with_facts;
    for (const auto &entry : by_path) with_facts.insert(relative_to_source(entry.first, a.sources));
    const std::map<std::string, std::vector<std::string>> job_files = jobs_by_name(book);
    long without_facts = 0;
    for (const std::string &line : file_lines(book / "outcomes")) {
        if (line.rfind("ok\t", 0) != 0) continue;
        const std::string name = line.substr(3);
        const auto files = job_files.find(name);
        for (const std::string &path : files == job_files.end() ? std::vector<std::string>{name} : files->second)
            if (!with_facts.count(path)) ++without_facts;
    }
    if (without_facts > 0)
        a.problems.push_back(std::to_string(without_facts) +
                             " converted recordings have no facts (converted before the driver kept its catalog): "
                             "not drawn; --restart converts them again");

    folder_listing listing(output);
    for (const auto &[path, facts] : by_path) {
        const std::string relative = relative_to_source(path, a.sources);
        const auto owner = named_after.find(relative);
        const std::string named = owner == named_after.end() ? relative : owner->second;
        const std::string dir = folder_of(named);
        const std::string stem = fs::path(named).stem().string() + ".";
        std::vector<std::string> outputs, pictures;
        for (const std::string &name : listing.names(dir)) {
            if (name.compare(0, stem.size(), stem) != 0) continue;
            const std::string file = dir.empty() ? name : dir + "/" + name;
            outputs.push_back(file);
            if (name.size() > 4 && name.compare(name.size() - 4, 4, ".png") == 0) pictures.push_back(file);
        }
        if (outputs.empty()) {
            a.problems.push_back("the outputs of " + relative + " are missing: not drawn");
            continue;
        }
        add_recording(a, facts, relative, [](const channel_codes &, int64_t) { return true; }, false, pictures);
    }
}

} // namespace report
