#include "identify.h"

#include <cstdio>
#include <ctime>
#include <iostream>
#include <string>

#include "open_recording.h"
#include "settings.h"
#include "vxfil/header_description.h"

namespace {

std::string format_rate(double rate) {
    char text[64];
    std::snprintf(text, sizeof text, "%g", rate);
    return text;
}

std::string format_start(const VxFil::header_description &d) {
    std::tm tm{};
    char text[64];
    if (!d.has_start || !gmtime_r(&d.start, &tm) ||
        std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &tm) == 0)
        return "-";
    return text;
}

std::string describe_line(const char *path, const VxFil::header_description &d) {
    std::string line = std::string(path) + "\t" + d.kind;
    if (d.kind == "damaged") return line + "\t" + d.message;
    if (d.kind == "not-a-recording") return line;
    return line + "\t" + (d.version >= 0 ? std::to_string(d.version) : "-") + "\t" + d.station + "\t" +
           format_rate(d.rate) + "\t" + format_start(d) + "\t" + std::to_string(d.channels) + "\t" +
           (d.block_length ? std::to_string(d.block_length) : "-") + "\t" + std::to_string(d.samples);
}

// --by-header: the path and the kind, and for a file that cannot be opened
// the message.
std::string kind_line(const char *path, const VxFil::header_description &d) {
    std::string line = std::string(path) + "\t" + d.kind;
    return d.kind == "damaged" ? line + "\t" + d.message : line;
}

} // namespace

int identify_files(int count, char **paths) {
    int status = 0;
    for (int i = 0; i < count; ++i) {
        const VxFil::header_description d = identify_by_header
                                                ? VxFil::describe_kind(paths[i], legacy_reading_options())
                                                : VxFil::describe_header(paths[i], legacy_reading_options());
        if (d.kind == "damaged" || d.kind == "not-a-recording") status = 1;
        std::cout << (identify_by_header ? kind_line(paths[i], d) : describe_line(paths[i], d)) << "\n";
    }
    std::cout.flush();
    return status;
}
