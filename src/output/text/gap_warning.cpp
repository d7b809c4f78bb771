#include "gap_warning.h"

#include <iostream>
#include <sstream>

#include "time_format.h"

void report_gap(const std::filesystem::path& file, double diff, long row, double later, double earlier) {
    // Built on a fresh stream so that the difference always gets the default
    // double formatting, whatever was done to std::cerr.
    std::ostringstream msg;
    msg << "Warning: It's a gap in the timeline of " << diff << " seconds";
    if (row > 0) msg << " on line " << row;
    msg << " in file " << file << "\n"
        << my_time_t(to_time_t(later)) << " - " << my_time_t(to_time_t(earlier)) << "\n";
    std::cerr << msg.str();
}
