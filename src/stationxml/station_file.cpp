// DIR/stations.xml of an SDS archive (see station_file.h).
#include "station_file.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <stdexcept>

#include "atomic_file.h"
#include "sds_paths.h"
#include "stationxml_document.h"

namespace stationxml {

namespace {

std::string quoted(const std::string &s) {
    return "\"" + s + "\"";
}

bool usable_rate(double rate) {
    return std::isfinite(rate) && rate > 0.0;
}

// Epochs whose digitizer gain cannot be told: the recordings give no usable
// factor (a comment-headed recording without a valid gain setting has an
// external gain of 0) and the table row gives no counts_per_volt.
void check_gains(const epoch_plan &plan, const std::string &table_name, std::vector<std::string> &faults) {
    for (const channel_history &h : plan.channels)
        for (const channel_epoch &e : h.epochs) {
            const double g = counts_per_volt(e);
            if (std::isfinite(g) && g > 0.0) continue;
            faults.push_back("Error: " + h.codes.id() + " from " + iso_time_ms(e.start) + " to " +
                             iso_time_ms(e.end) +
                             ": its recordings give no usable volts-per-count factor and "
                             "external gain; give counts_per_volt in " +
                             quoted(table_name) + " line " + std::to_string(e.row->line));
        }
}

} // namespace

bool read_archive_facts(const fs::path &top, std::vector<sds::recording_facts> &facts, std::string &error) {
    facts.clear();
    const fs::path book = sds::book_of(top);
    std::error_code ec;
    if (!fs::is_directory(book, ec)) {
        error = "Error: " + quoted(top.string()) + " is not an SDS archive of brantel --sds (it has no " +
                book.filename().string() + " folder)";
        return false;
    }
    sds::merge_lock lock(top);
    // Samples scaled by -z are no longer counts: the response would misstate them.
    sds::tree_settings settings;
    if (sds::read_tree_settings(top, settings) && settings.scale != 1) {
        error = "Error: the archive " + quoted(top.string()) + " was made with -z " +
                std::to_string(settings.scale) +
                ": its samples are not counts, which the response would misstate";
        return false;
    }
    std::vector<fs::path> files;
    for (const auto &entry : fs::directory_iterator(book / "recordings", ec)) {
        if (entry.path().filename().string().rfind(TEMP_MARKER, 0) == 0) continue;
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    for (const fs::path &file : files) {
        bool missing = false;
        const std::string text = sds::read_text(file, &missing);
        if (missing) continue; // removed since the listing
        sds::recording_facts f;
        bool good = sds::parse_facts(text, f);
        for (const sds::recording_channel &c : f.channels)
            if (c.samples > 0 && !usable_rate(c.rate)) good = false;
        if (!good) {
            error = "Error: " + quoted(file.string()) + " is not a facts file of the archive (damaged?)";
            return false;
        }
        facts.push_back(std::move(f));
    }
    return true;
}

fs::path station_file_path(const fs::path &top) {
    return top / "stations.xml";
}

std::string created_of(const std::string &document) {
    const std::string open = "<Created>", close = "</Created>";
    const std::size_t a = document.find(open);
    if (a == std::string::npos) return "";
    const std::size_t b = document.find(close, a);
    if (b == std::string::npos) return "";
    return document.substr(a + open.size(), b - a - open.size());
}

station_file_outcome update_station_file(const fs::path &top, const std::vector<sds::recording_facts> &facts,
                                         const station_table &table, const std::string &table_name,
                                         const std::string &source, const std::string &now) {
    station_file_outcome out;
    const epoch_plan plan = plan_epochs(facts, table);
    for (const uncovered_span &u : plan.uncovered)
        out.faults.push_back("Error: no row of " + quoted(table_name) + " covers " + u.element + " from " +
                             iso_time_ms(u.first) + " to " + iso_time_ms(u.last));
    check_gains(plan, table_name, out.faults);
    if (plan.channels.empty() && out.faults.empty())
        out.faults.push_back("Error: the archive " + quoted(top.string()) + " holds no samples");

    const fs::path path = station_file_path(top);
    if (!out.faults.empty()) {
        // A half-covered or stale inventory would mislead: none at all.
        out.refused = true;
        std::error_code ec;
        fs::remove(path, ec);
        return out;
    }
    out.channels = plan.channels.size();
    for (const channel_history &h : plan.channels)
        out.epochs += h.epochs.size();

    // The old file stays when only Created would change.
    bool missing = true;
    const std::string old = fs::exists(path) ? sds::read_text(path, &missing) : std::string();
    if (!missing) {
        const std::string old_created = created_of(old);
        if (!old_created.empty() && stationxml_document(plan, source, old_created) == old) return out;
    }
    const std::string document = stationxml_document(plan, source, now);
    AtomicFile file;
    if (!file.open(path) || !file.write(document.data(), document.size()) || !file.commit())
        throw std::runtime_error("can't write " + quoted(path.string()) + ": " + std::strerror(errno));
    out.written = true;
    return out;
}

} // namespace stationxml
