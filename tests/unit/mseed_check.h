// Checks of a written miniSEED file against the run's series: every record
// is read with libmseed's reader and with the tests' own reader
// (seed_record_reader.h); the two must agree on every field and sample, and
// both must match the codes, the rate, the segments, the encodings, the
// start times (from the time axis) and every value of the series.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mseed_segments.h"
#include "series.h"

struct mseed_expectation {
    std::string network = "XX";
    std::vector<std::string> stations; // one per series
    std::string channel = "BDF";
    double rate = 20.0;
    int record_length = 4096;
    std::vector<sample_range> segments; // indices into the series
    std::vector<int> encodings;         // per segment: 11 Steim-2, 3 int32, 5 float64
};

// One record as libmseed's file reader delivers it.
struct library_record {
    int sequence;
    std::string network, station, location, channel;
    char quality;
    int64_t start_us;
    double rate;
    int encoding;
    int record_length;
    std::vector<double> samples;
};

// Every record of a file, read with libmseed (failures through EXPECT_*).
std::vector<library_record> read_with_libmseed(const std::string &path);

// Reads `path` and compares it with data / time_array through EXPECT_*
// and ADD_FAILURE. Returns the number of records.
int check_mseed_file(const std::string &path, const std::vector<series_t> &series, const series_t &time,
                     const mseed_expectation &want);

// Number of continuous traces libmseed's trace builder makes of the file.
int libmseed_trace_count(const std::string &path);
