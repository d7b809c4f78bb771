// The bookkeeping of an SDS archive (see sds_index.h).
#include "sds_index.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include "atomic_file.h"
#include "mseed_read.h"

namespace sds {

namespace {

std::string number(double v) {
    char text[40];
    std::snprintf(text, sizeof text, "%.17g", v);
    return text;
}

bool to_i64(const std::string &s, int64_t &v) {
    char *end = nullptr;
    errno = 0;
    const long long n = std::strtoll(s.c_str(), &end, 10);
    if (s.empty() || *end != '\0' || errno != 0) return false;
    v = n;
    return true;
}

bool to_u64(const std::string &s, uint64_t &v) {
    char *end = nullptr;
    errno = 0;
    const unsigned long long n = std::strtoull(s.c_str(), &end, 10);
    if (s.empty() || s[0] == '-' || *end != '\0' || errno != 0) return false;
    v = n;
    return true;
}

bool to_hex(const std::string &s, uint64_t &v) {
    char *end = nullptr;
    errno = 0;
    const unsigned long long n = std::strtoull(s.c_str(), &end, 16);
    if (s.empty() || *end != '\0' || errno != 0) return false;
    v = n;
    return true;
}

bool to_double(const std::string &s, double &v) {
    char *end = nullptr;
    v = std::strtod(s.c_str(), &end);
    return !s.empty() && *end == '\0';
}

std::string span_line(const char *tag, const day_span &s) {
    return std::string(tag) + "\t" + std::to_string(s.first) + "\t" + std::to_string(s.last) + "\t" +
           number(s.facts.rate) + "\t" + number(s.facts.volts_per_count) + "\t" + number(s.facts.gain) + "\n";
}

bool parse_span(const std::vector<std::string> &f, day_span &s) {
    return f.size() == 6 && to_i64(f[1], s.first) && to_i64(f[2], s.last) && to_double(f[3], s.facts.rate) &&
           to_double(f[4], s.facts.volts_per_count) && to_double(f[5], s.facts.gain);
}

} // namespace

std::vector<std::string> split_tabs(const std::string &line) {
    std::vector<std::string> fields;
    std::size_t start = 0;
    for (;;) {
        const std::size_t tab = line.find('\t', start);
        fields.push_back(line.substr(start, tab == std::string::npos ? std::string::npos : tab - start));
        if (tab == std::string::npos) break;
        start = tab + 1;
    }
    return fields;
}

fs::path book_of(const fs::path &top) {
    return top / ".brantel-archive";
}

uint64_t fnv1a(const void *bytes, std::size_t n, uint64_t seed) {
    const auto *p = static_cast<const unsigned char *>(bytes);
    uint64_t h = seed;
    for (std::size_t i = 0; i < n; ++i) {
        h ^= p[i];
        h *= 0x100000001b3ULL;
    }
    return h;
}

uint64_t content_hash(const void *bytes, std::size_t n) {
    // FNV-1a over 64-bit words, then the tail byte by byte: eight times
    // fewer steps over day files of megabytes.
    const auto *p = static_cast<const unsigned char *>(bytes);
    uint64_t h = 0xcbf29ce484222325ULL ^ n;
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        uint64_t word;
        std::memcpy(&word, p + i, 8);
        h ^= word;
        h *= 0x100000001b3ULL;
        h ^= h >> 29;
    }
    return fnv1a(p + i, n - i, h);
}

std::string hex64(uint64_t v) {
    char text[20];
    std::snprintf(text, sizeof text, "%016" PRIx64, v);
    return text;
}

std::string read_text(const fs::path &path, bool *missing) {
    return read_whole_file(path.string(), missing);
}

void write_text(const fs::path &path, const std::string &text) {
    bool missing = false;
    if (fs::exists(path) && read_text(path, &missing) == text && !missing) return;
    AtomicFile file;
    if (!file.open(path) || !file.write(text.data(), text.size()) || !file.commit())
        throw std::runtime_error("can't write \"" + path.string() + "\": " + std::strerror(errno));
}

bool read_tree_settings(const fs::path &top, tree_settings &settings) {
    bool missing = false;
    const std::string text = read_text(book_of(top) / "tree", &missing);
    if (missing) return false;
    std::istringstream in(text);
    std::string key;
    long value;
    while (in >> key >> value) {
        if (key == "record-length") settings.record_length = value;
        if (key == "scale") settings.scale = value;
    }
    return true;
}

std::string check_tree_settings(const fs::path &top, const tree_settings &wanted, bool record) {
    tree_settings had;
    if (read_tree_settings(top, had)) {
        const std::string archive = "Error: the archive \"" + top.string() + "\" was made with ";
        if (had.record_length != wanted.record_length)
            return archive + "--record-length " + std::to_string(had.record_length) +
                   "; this run asks for --record-length " + std::to_string(wanted.record_length) + "\n";
        if (had.scale != wanted.scale)
            return archive + "-z " + std::to_string(had.scale) + "; this run asks for -z " +
                   std::to_string(wanted.scale) + "\n";
        return "";
    }
    if (record)
        write_text(book_of(top) / "tree", "record-length " + std::to_string(wanted.record_length) + "\nscale " +
                                              std::to_string(wanted.scale) + "\n");
    return "";
}

merge_lock::merge_lock(const fs::path &top) {
    const fs::path path = book_of(top) / "merge.lock";
    m_fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (m_fd < 0) throw std::runtime_error("can't open \"" + path.string() + "\": " + std::strerror(errno));
    struct flock lk {};
    lk.l_type = F_WRLCK;
    lk.l_whence = SEEK_SET;
    while (::fcntl(m_fd, F_SETLKW, &lk) != 0) {
        if (errno == EINTR) continue;
        const int e = errno;
        ::close(m_fd);
        throw std::runtime_error("can't lock \"" + path.string() + "\": " + std::strerror(e));
    }
}

merge_lock::~merge_lock() {
    if (m_fd >= 0) ::close(m_fd); // closing releases the lock
}

fs::path day_entry_path(const fs::path &top, const std::string &day_file_name) {
    return book_of(top) / "days" / day_file_name;
}

bool read_day_entry(const fs::path &top, const std::string &day_file_name, day_entry &entry) {
    bool missing = false;
    const std::string text = read_text(day_entry_path(top, day_file_name), &missing);
    entry = day_entry{};
    if (missing) return false;
    entry.damaged = !parse_day_entry(text, entry);
    return true;
}

bool parse_day_entry(const std::string &text, day_entry &entry) {
    entry = day_entry{};
    std::istringstream in(text);
    std::string line;
    bool whole = !text.empty() && text.back() == '\n', have_file = false;
    while (std::getline(in, line)) {
        const std::vector<std::string> f = split_tabs(line);
        day_span s;
        if (f[0] == "file" && f.size() == 4) {
            have_file = to_u64(f[1], entry.size) && to_i64(f[2], entry.mtime_ns) && to_hex(f[3], entry.hash);
        } else if (f[0] == "span" && parse_span(f, s)) {
            entry.spans.push_back(s);
        } else if (f[0] == "prev" && f.size() == 3) {
            entry.has_prev = true;
            to_u64(f[1], entry.prev_size);
            to_hex(f[2], entry.prev_hash);
        } else if (f[0] == "prev-absent") {
            entry.has_prev = true;
            entry.prev_absent = true;
        } else if (f[0] == "prevspan" && parse_span(f, s)) {
            entry.prev_spans.push_back(s);
        } else {
            whole = false;
        }
    }
    return whole && have_file;
}

void write_day_entry(const fs::path &top, const std::string &day_file_name, const day_entry &entry) {
    std::string text = "file\t" + std::to_string(entry.size) + "\t" + std::to_string(entry.mtime_ns) + "\t" +
                       hex64(entry.hash) + "\n";
    for (const day_span &s : entry.spans) text += span_line("span", s);
    if (entry.has_prev) {
        if (entry.prev_absent)
            text += "prev-absent\n";
        else
            text += "prev\t" + std::to_string(entry.prev_size) + "\t" + hex64(entry.prev_hash) + "\n";
        for (const day_span &s : entry.prev_spans) text += span_line("prevspan", s);
    }
    fs::create_directories(book_of(top) / "days");
    write_text(day_entry_path(top, day_file_name), text);
}

void remove_day_entry(const fs::path &top, const std::string &day_file_name) {
    std::error_code ec;
    fs::remove(day_entry_path(top, day_file_name), ec);
}

std::vector<std::string> day_entry_names(const fs::path &top) {
    std::vector<std::string> names;
    std::error_code ec;
    for (const auto &e : fs::directory_iterator(book_of(top) / "days", ec)) {
        const std::string name = e.path().filename().string();
        if (name.rfind(TEMP_MARKER, 0) == 0) continue;
        names.push_back(name);
    }
    return names;
}

std::string facts_text(const recording_facts &facts) {
    std::string text = "path\t" + facts.path + "\nrun\t" + facts.run + "\n";
    if (!facts.check.empty()) text += "check\t" + facts.check + "\n";
    for (const recording_channel &c : facts.channels) {
        text += "channel\t" + c.codes.id() + "\t" + std::to_string(c.first) + "\t" + std::to_string(c.last) + "\t" +
                number(c.rate) + "\t" + number(c.volts_per_count) + "\t" + number(c.gain) + "\t" +
                std::to_string(c.samples) + "\t" + std::to_string(c.filed) + "\n";
        for (const recording_channel::span &s : c.spans)
            text += "span\t" + c.codes.id() + "\t" + std::to_string(s.first) + "\t" + std::to_string(s.last) +
                    "\t" + std::to_string(s.samples) + "\n";
    }
    return text;
}

bool parse_facts(const std::string &text, recording_facts &facts) {
    facts = recording_facts{};
    std::istringstream in(text);
    std::string line;
    bool have_path = false;
    while (std::getline(in, line)) {
        const std::vector<std::string> f = split_tabs(line);
        if (f[0] == "path" && f.size() == 2) {
            facts.path = f[1];
            have_path = true;
        } else if (f[0] == "run" && f.size() == 2) {
            facts.run = f[1];
        } else if (f[0] == "check" && f.size() == 2) {
            facts.check = f[1];
        } else if (f[0] == "channel" && f.size() == 9) {
            recording_channel c;
            if (!parse_channel_id(f[1], c.codes) || !to_i64(f[2], c.first) || !to_i64(f[3], c.last) ||
                !to_double(f[4], c.rate) || !to_double(f[5], c.volts_per_count) || !to_double(f[6], c.gain) ||
                !to_u64(f[7], c.samples) || !to_u64(f[8], c.filed))
                return false;
            facts.channels.push_back(c);
        } else if (f[0] == "span" && f.size() == 5) {
            recording_channel::span s{};
            if (facts.channels.empty() || f[1] != facts.channels.back().codes.id() || !to_i64(f[2], s.first) ||
                !to_i64(f[3], s.last) || !to_u64(f[4], s.samples))
                return false;
            facts.channels.back().spans.push_back(s);
        } else {
            return false;
        }
    }
    return have_path;
}

std::string recording_key(const std::string &path) {
    return hex64(fnv1a(path.data(), path.size()));
}

fs::path recording_facts_path(const fs::path &top, const std::string &path) {
    return book_of(top) / "recordings" / recording_key(path);
}

fs::path catalog_of(const fs::path &top) {
    return book_of(top) / "catalog";
}

} // namespace sds
