// The station table of brantel-stationxml, which a user writes or exports
// from a spreadsheet: read as a table, and where it reads, planned against a
// small archive's facts and written as a document.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include "channel_epochs.h"
#include "fuzz_support.h"
#include "station_table.h"
#include "stationxml_document.h"

namespace {

// Three elements of network XX at 20 Hz, two recordings each, the second
// with another external gain.
std::vector<sds::recording_facts> small_archive() {
    std::vector<sds::recording_facts> facts;
    const int64_t t0 = 1462368600000000LL; // 2016-05-04T13:30:00Z
    for (int r = 0; r < 2; ++r) {
        sds::recording_facts f;
        f.path = "r" + std::to_string(r);
        for (int e = 1; e <= 3; ++e) {
            sds::recording_channel c;
            c.codes = {"XX", "REA" + std::to_string(e), "", "BDF"};
            c.rate = 20;
            c.volts_per_count = 10;
            c.gain = r == 0 ? 20 : 30;
            c.first = t0 + r * 60000000LL;
            c.last = c.first + 59950000LL;
            c.samples = c.filed = 1200;
            c.spans.push_back({c.first, c.last, c.samples});
            f.channels.push_back(c);
        }
        facts.push_back(f);
    }
    return facts;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz::init_process();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const std::vector<sds::recording_facts> facts = small_archive();
    const std::string text(reinterpret_cast<const char *>(data), size);
    stationxml::station_table table;
    std::vector<std::string> faults;
    if (!stationxml::read_station_table("fuzz.csv", text, table, faults)) return 0;
    const stationxml::epoch_plan plan = stationxml::plan_epochs(facts, table);
    if (!plan.uncovered.empty()) return 0;
    try {
        (void)stationxml::stationxml_document(plan, "brantel", "2016-05-04T00:00:00Z");
    } catch (const std::exception &) {
    }
    return 0;
}
