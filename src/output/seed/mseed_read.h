// Reading miniSEED 2 records back with libmseed: the day files of an SDS
// archive and the staged recordings that are merged into them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// One record: its codes, timing, shape and (when asked for) its samples.
struct seed_record {
    std::string network, station, location, channel;
    int64_t start_us = 0; // first sample, Unix microseconds
    double rate = 0.0;    // samples per second, as the header gives it
    int64_t count = 0;    // samples in the record
    int record_length = 0;
    int encoding = 0;     // SEED data encoding number
    char quality = 0;
    std::vector<double> samples; // filled only when decoding
};

// Calls `each` for every record of bytes[0 .. size), in file order; with
// `decode` the record's samples are unpacked into `samples`. Throws
// std::runtime_error, naming `what`, when the bytes are not a whole sequence
// of records.
void read_seed_records(const char *bytes, std::size_t size, const std::string &what, bool decode,
                       const std::function<void(const seed_record &)> &each);

// The same, decoding only the records for which `wanted` (given the record
// without its samples) says yes; the others reach `each` without samples.
void read_seed_records_if(const char *bytes, std::size_t size, const std::string &what,
                          const std::function<bool(const seed_record &)> &wanted,
                          const std::function<void(const seed_record &)> &each);

// The whole content of a file; throws std::runtime_error naming it when it
// cannot be read. A missing file gives `missing` set and no bytes.
std::string read_whole_file(const std::string &path, bool *missing = nullptr);
