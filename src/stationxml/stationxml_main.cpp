// brantel-stationxml: the station metadata of an SDS archive as FDSN
// StationXML 1.2, from the facts the archive keeps of its recordings and a
// station table. A program of its own beside brantel, so that brantel's
// options (and what their prefixes select) stay as they are.
//
//   brantel-stationxml --check TABLE     checks the table only
//   brantel-stationxml TABLE DIR         writes DIR/stations.xml
//
// Status 0 when the table is good (and the document written or already up
// to date), 1 otherwise, with one line per fault on standard error.
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "station_file.h"
#include "station_table.h"

namespace {

constexpr char USAGE[] = "Usage: brantel-stationxml --check TABLE\n"
                         "       brantel-stationxml TABLE DIR    (writes DIR/stations.xml)\n";

// Created: now, or SOURCE_DATE_EPOCH where that is set (reproducible output).
std::string now_text() {
    std::time_t t = std::time(nullptr);
    if (const char *fixed = std::getenv("SOURCE_DATE_EPOCH")) t = static_cast<std::time_t>(std::atoll(fixed));
    std::tm tm{};
    gmtime_r(&t, &tm);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &tm);
    return text;
}

int print_faults(const std::vector<std::string> &faults) {
    for (const std::string &f : faults)
        std::cerr << f << "\n";
    return faults.empty() ? 0 : 1;
}

bool load_table(const std::string &name, stationxml::station_table &table, std::vector<std::string> &faults) {
    bool missing = false;
    std::string text;
    try {
        text = sds::read_text(name, &missing);
    } catch (const std::exception &e) {
        faults.push_back(std::string("Error: can't read the station table \"") + name + "\": " + e.what());
        return false;
    }
    if (missing) {
        faults.push_back("Error: can't read the station table \"" + name + "\": No such file or directory");
        return false;
    }
    return stationxml::read_station_table(name, text, table, faults);
}

} // namespace

int main(int argc, char **argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    if (args.size() == 1 && (args[0] == "--help" || args[0] == "-h")) {
        std::cout << USAGE;
        return 0;
    }
    if (args.size() == 1 && args[0] == "--version") {
        std::cout << "brantel-stationxml " BRANTEL_VERSION "\n";
        return 0;
    }
    const bool check = args.size() == 2 && args[0] == "--check";
    if (!check && (args.size() != 2 || args[0].rfind("--", 0) == 0)) {
        std::cerr << USAGE;
        return 1;
    }
    stationxml::station_table table;
    std::vector<std::string> faults;
    const std::string table_name = check ? args[1] : args[0];
    const bool good = load_table(table_name, table, faults);
    if (check) return print_faults(faults);

    const stationxml::fs::path top = args[1];
    try {
        if (!good) {
            // The table went bad since the run began: no document for this archive.
            std::error_code ec;
            stationxml::fs::remove(stationxml::station_file_path(top), ec);
            return print_faults(faults);
        }
        std::vector<sds::recording_facts> facts;
        std::string error;
        if (!stationxml::read_archive_facts(top, facts, error)) {
            std::error_code ec;
            stationxml::fs::remove(stationxml::station_file_path(top), ec);
            return print_faults({error});
        }
        const stationxml::station_file_outcome out = stationxml::update_station_file(
            top, facts, table, table_name, "brantel " BRANTEL_VERSION, now_text());
        if (out.refused) {
            faults = out.faults;
            faults.push_back("Error: no " + stationxml::station_file_path(top).string() + " written");
            return print_faults(faults);
        }
        std::printf("StationXML: %zu channel epochs of %zu channels %s %s\n", out.epochs, out.channels,
                    out.written ? "written to" : "unchanged in", stationxml::station_file_path(top).c_str());
        return 0;
    } catch (const std::exception &e) {
        return print_faults({std::string("Error: ") + e.what()});
    }
}
