// Text put into the report page: escaped for HTML, paths as relative URLs,
// numbers as people read them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace report {

// &, <, >, " and ' as character references: safe in text and in quoted
// attribute values.
std::string html_escape(std::string_view text);

// A relative path as a URL: every byte but letters, digits, '-', '.', '_',
// '~' and '/' percent-encoded, so that blanks, '#' and '?' in file names
// stay part of the path.
std::string url_path(std::string_view path);

// A number as %g prints it ("20", "0.5"), or "unknown" for NaN.
std::string number_text(double v);

// An integer with thin groups of three digits: "1 234 567".
std::string count_text(uint64_t n);

} // namespace report
