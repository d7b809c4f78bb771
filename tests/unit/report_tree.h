// A synthetic converted archive for the report's tests: the bookkeeping that
// brantel --sds and the archive driver keep (the facts of every recording,
// the index of the day files, the driver's settings and outcomes) and empty
// day files, written directly so that a year of recordings takes seconds.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

struct synthetic_archive {
    std::filesystem::path top;
    int stations = 2;               // each with three channels, REA1..3, RCA1..3, ...
    long recordings = 4;            // per station
    int64_t start_us = 1462320000LL * 1000000; // 2016-05-04T00:00:00Z
    int64_t step_us = 1800LL * 1000000;        // one recording every half hour
    int64_t length_us = 1792LL * 1000000;      // each 1792 s long: 8 s gaps
    double rate = 20.0;
    std::string source = "/data/src";
};

// The facts path of recording `i` of station `s`, as given to brantel.
std::string synthetic_recording_path(const synthetic_archive &a, int s, long i);

// Writes the archive; every file with plain writes (no syncing).
void write_synthetic_archive(const synthetic_archive &a);
