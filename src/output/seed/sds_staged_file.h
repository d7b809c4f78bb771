// The file of a staged recording's samples, KEY.samples, written by the
// conversion and read back by the merge. It keeps every sample's own time,
// which records of miniSEED would round to their starts and their rate:
//
//   "BRSTAGE1"                     8 bytes
//   0x01020304                     u32, in the writer's byte order (checked)
//   channel count                  u32
//   time count n                   u64
//   times                          n x i64, Unix microseconds
//   per channel:
//     id length, id                u32, then NET.STA.LOC.CHAN
//     kind                         u32: 1 = i32 values, 2 = f64 values
//     value count (at most n)      u64
//     values                       count x 4 or 8 bytes
//
// Only the merge of the same archive reads it, on a machine of the same
// kind; the byte-order word refuses a file written elsewhere.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct staged_channel {
    std::string id;             // NET.STA.LOC.CHAN
    std::vector<double> values; // one per time, from the first; may be fewer
};

struct staged_content {
    std::vector<int64_t> times;
    std::vector<staged_channel> channels;
};

// The file's bytes. Values that are all 32-bit integers are stored as such.
std::string encode_staged(const staged_content &samples);

// Reads the bytes back; false with `why` set when they are not such a file.
bool decode_staged(const std::string &bytes, staged_content &samples, std::string &why);
