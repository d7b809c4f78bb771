// Small text files of the bookkeeping (see book_files.h).
#include "book_files.h"

#include <chrono>
#include <exception>
#include <system_error>

#include "mseed_read.h"

namespace report {

namespace fs = std::filesystem;

std::string file_text(const fs::path &path, bool *readable) {
    if (readable) *readable = true;
    try {
        bool missing = false;
        std::string text = read_whole_file(path.string(), &missing);
        if (missing && readable) *readable = false;
        return text;
    } catch (const std::exception &) {
        if (readable) *readable = false;
        return {};
    }
}

std::vector<std::string> text_lines(const std::string &text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

std::vector<std::string> file_lines(const fs::path &path) {
    return text_lines(file_text(path));
}

int64_t modified_seconds(const fs::path &path) {
    std::error_code ec;
    const fs::file_time_type t = fs::last_write_time(path, ec);
    if (ec) return 0;
    const auto since = std::chrono::file_clock::to_sys(t).time_since_epoch();
    return std::chrono::duration_cast<std::chrono::seconds>(since).count();
}

} // namespace report
