// The file of a staged recording's samples, KEY.samples, written by the
// conversion and read back by the merge. It keeps every sample's own time,
// which records of miniSEED would round to their starts and their rate, and
// it is small and quick to write and read: integers go as variable-length
// differences (LEB128 of the zigzag form: small magnitudes take one or two
// bytes).
//
//   "BRSTAGE2"                     8 bytes
//   channel count                  varint
//   time count n                   varint
//   times                          n varints: the change of the step from the
//                                  one before (the first step counts from 0,
//                                  the first time from 0)
//   per channel:
//     id length, id                varint, then NET.STA.LOC.CHAN
//     kind                         varint: 1 = integer values, 2 = f64 values
//     value count (at most n)      varint
//     values                       kind 1: varints of the difference to the
//                                  value before (the first from 0);
//                                  kind 2: count x 8 bytes, little-endian
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "big_list.h"

struct staged_channel {
    std::string id;             // NET.STA.LOC.CHAN
    big_list<double> values;    // one per time, from the first; may be fewer
};

struct staged_content {
    big_list<int64_t> times;
    std::vector<staged_channel> channels;
};

// The file's bytes. Values that are all 32-bit integers are stored as such.
std::string encode_staged(const staged_content &samples);

// The same from a recording as read: times in Unix seconds (rounded to the
// microsecond as miniSEED rounds them), per channel its raw counts
// multiplied by `scale`.
struct staged_source_channel {
    std::string id;
    const int32_t *raw;
    std::size_t count;
};
std::string encode_staged(const std::vector<double> &times, const std::vector<staged_source_channel> &channels,
                          long scale);

// Reads the bytes back; false with `why` set when they are not such a file.
bool decode_staged(const std::string &bytes, staged_content &samples, std::string &why);
