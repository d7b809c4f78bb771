// The report page, OUTPUT/index.html, and the files it loads from
// OUTPUT/report/: the run, the availability chart, the gaps, overlaps and
// changes of settings, the failures and skipped files, the quick-looks and
// the problems found. Everything is in the page or beside it: it works
// opened as a file, with no server and no network, and shows its chart
// without any script.
#pragma once

#include <string>

#include "report_model.h"

namespace report {

struct report_files {
    std::string index_html;
    // Empty when the gap lists are in the page; else report/gaps.js and
    // report/report.js.
    std::string gaps_js, report_js;
    // Figures for the line the program prints.
    std::size_t channels = 0, gaps = 0;
};

report_files build_report(const archive &a);

} // namespace report
