// A small reader of miniSEED 2 records for the tests, written from the SEED
// format's own description and sharing nothing with libmseed: the fixed
// header, Blockettes 100, 1000 and 1001, and the sample encodings the tool
// writes (Steim-2, 32-bit integers, 64-bit floats), all big-endian. It checks
// what it reads and throws std::runtime_error on anything malformed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace seed {

struct record {
    long offset = 0; // of the record in the file
    int sequence = 0;
    char quality = 0;
    std::string network, station, location, channel; // trailing spaces removed
    int64_t start_us = 0;                            // first sample, microseconds since 1970
    double header_rate = 0;                          // from the rate factor and multiplier
    bool has_b100 = false;
    float b100_rate = 0;
    bool has_b1000 = false;
    int encoding = -1;
    int word_order = -1;
    int record_length = 0;
    bool has_b1001 = false;
    int usec = 0;
    int sample_count = 0;
    std::vector<double> samples;
    // Steim-2 only: the integration constants and the first difference.
    int32_t x0 = 0, xn = 0;
};

// Reads every record of a file's bytes.
std::vector<record> read_records(const std::string &bytes);

} // namespace seed
