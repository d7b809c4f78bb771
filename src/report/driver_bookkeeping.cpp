// The archive driver's bookkeeping (see driver_bookkeeping.h).
#include "driver_bookkeeping.h"

#include <algorithm>
#include <map>
#include <system_error>

#include "book_files.h"
#include "sds_index.h"

namespace report {

namespace fs = std::filesystem;

namespace {

// The failures of one SOURCE's last run, file by file.
void read_failures(const fs::path &book, const std::string &mode, archive &a) {
    std::map<std::string, std::vector<std::string>> directory_files;
    if (mode == "per-directory") directory_files = jobs_by_name(book);
    for (const std::string &line : file_lines(book / "report")) {
        const std::size_t tab = line.find('\t');
        const std::string name = line.substr(0, tab);
        const std::string message = tab == std::string::npos ? "" : line.substr(tab + 1);
        const auto files = directory_files.find(name);
        if (files != directory_files.end())
            for (const std::string &path : files->second) a.failures.push_back({path, message});
        else
            a.failures.push_back({name, message});
    }
}

void read_source(const fs::path &book, bool sds, archive &a) {
    const std::vector<std::string> settings = file_lines(book / "settings");
    if (settings.size() < 2) {
        a.problems.push_back("the driver's settings in " + (book / "settings").string() + " cannot be read");
        return;
    }
    source_run run;
    run.mode = settings[0];
    run.source = settings[1];
    if (sds)
        run.options = file_lines(book / "options");
    else if (settings.size() > 3)
        run.options.assign(settings.begin() + 3, settings.end());
    run.ended = modified_seconds(book / "report");
    for (const std::string &line : file_lines(book / "outcomes"))
        if (line.rfind("ok\t", 0) == 0) ++run.converted;
    read_failures(book, run.mode, a);
    run.failed = static_cast<long>(file_lines(book / "report").size());
    for (const std::string &line : file_lines(book / "skipped")) {
        a.skipped.push_back(line);
        ++run.skipped;
    }
    a.sources.push_back(std::move(run));
}

} // namespace

directory_job directory_job_of(const std::string &line) {
    directory_job job;
    const std::vector<std::string> fields = sds::split_tabs(line);
    const std::string &dir = fields[0];
    job.name = dir + ":";
    for (std::size_t i = 1; i < fields.size(); ++i) {
        job.name += " " + fields[i];
        job.paths.push_back(dir == "." ? fields[i] : dir + "/" + fields[i]);
    }
    return job;
}

std::map<std::string, std::vector<std::string>> jobs_by_name(const fs::path &book) {
    std::map<std::string, std::vector<std::string>> jobs;
    for (const std::string &line : file_lines(book / "jobs")) {
        directory_job job = directory_job_of(line);
        jobs[job.name] = std::move(job.paths);
    }
    return jobs;
}

bool is_sds_tree(const fs::path &output) {
    std::error_code ec;
    const fs::path book = sds::book_of(output);
    return fs::exists(book / "tree", ec) || fs::is_directory(book / "sources", ec);
}

void read_driver_bookkeeping(const fs::path &output, archive &a) {
    const fs::path book = sds::book_of(output);
    std::error_code ec;
    if (!a.sds) {
        if (fs::exists(book / "settings", ec)) read_source(book, false, a);
        return;
    }
    std::vector<fs::path> books;
    for (const auto &e : fs::directory_iterator(book / "sources", ec))
        if (e.is_directory(ec)) books.push_back(e.path());
    std::sort(books.begin(), books.end());
    for (const fs::path &b : books) read_source(b, true, a);
}

} // namespace report
