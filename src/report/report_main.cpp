// brantel-report OUTPUT: rebuilds OUTPUT/index.html and OUTPUT/report/ from
// what OUTPUT really holds: the facts its conversions kept, checked against
// the files present, and the archive driver's bookkeeping of its runs.
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>
#include <system_error>

#include "archive_contents.h"
#include "driver_bookkeeping.h"
#include "quicklook_pictures.h"
#include "report_page.h"
#include "sds_index.h"

namespace fs = std::filesystem;

namespace {

const char USAGE[] = "Usage: brantel-report OUTPUT\n";

int fail(const std::string &line) {
    std::cerr << "brantel-report: " << line << "\n";
    return 1;
}

// Writes or removes one of the report's own files in OUTPUT/report/.
void put_asset(const fs::path &path, const std::string &text) {
    if (!text.empty()) {
        sds::write_text(path, text);
        return;
    }
    std::error_code ec;
    fs::remove(path, ec);
}

} // namespace

int main(int argc, char **argv) {
    if (argc == 2 && (std::strcmp(argv[1], "-h") == 0 || std::strcmp(argv[1], "--help") == 0)) {
        std::cout << USAGE;
        return 0;
    }
    if (argc != 2 || argv[1][0] == '\0' || argv[1][0] == '-') {
        std::cerr << USAGE;
        return 1;
    }
    const std::string given = argv[1];
    const fs::path output = given;
    std::error_code ec;
    if (!fs::is_directory(output, ec)) return fail("OUTPUT " + given + " is not a directory");
    if (!fs::is_directory(sds::book_of(output), ec))
        return fail(given + " holds no conversion: it has no .brantel-archive folder");

    report::archive a;
    a.output = given;
    try {
        a.sds = report::is_sds_tree(output);
        report::read_driver_bookkeeping(output, a);
        if (a.sds) {
            report::read_sds_contents(output, a);
            report::link_quicklooks(output, a);
        } else {
            report::read_mirror_contents(output, a);
        }
        for (const std::string &p : a.problems) std::cerr << "brantel-report: warning: " << p << "\n";
        const report::report_files files = report::build_report(a);
        const fs::path assets = output / "report";
        fs::create_directories(assets);
        put_asset(assets / "gaps.js", files.gaps_js);
        put_asset(assets / "report.js", files.report_js);
        sds::write_text(output / "index.html", files.index_html);
        std::cout << "Report: " << files.channels << " channels, " << files.gaps << " gaps, " << a.failures.size()
                  << " failed files: " << (output / "index.html").string() << "\n";
    } catch (const std::exception &e) {
        return fail(e.what());
    }
    return 0;
}
