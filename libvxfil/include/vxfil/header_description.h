// What a recording's header says, for listing files without converting them:
// the kind of file and, for a recording that reads, its version, station,
// rate, start, channels, block length and sample count; for one that does
// not, the reader's message.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

#include "vxfil/legacy_reading.h"

namespace VxFil {

struct header_description {
    // A kind of kind_by_first_bytes, or "damaged": the file is of the family
    // (or cannot be opened) but its reader fails.
    std::string kind;
    std::string message; // damaged: what the reader printed and threw, as one line
    int version = -1;    // vx24: the header version; -1 for the other formats
    std::string station;
    double rate = 0;
    bool has_start = false; // false: the first sample's time is no representable second
    std::time_t start = 0;  // Unix seconds of the first sample (of the header when there is none)
    std::size_t channels = 0;
    std::size_t block_length = 0; // comment-headed: 128 or 512 as the comment names it; 0: none
    std::uint64_t samples = 0;    // length of the time sequence
};

// Describes the file at path. A vx24 file is judged from its header, channel
// records and size, without its samples being read; the other formats are
// read whole, as their damage can lie anywhere. Messages that the readers
// print while doing so go into the description instead of the standard
// streams. First-generation reading applies as the options ask: the kinds
// and stations are those that a conversion with the same options sees.
header_description describe_header(const char *path, const legacy_options &options = {});

// Only the kind of the file at path, told by its first bytes as
// describe_header tells it, without reading further: a recording damaged
// past its first bytes keeps its kind here. "damaged" only when the file
// cannot be opened; the other fields stay empty.
header_description describe_kind(const char *path, const legacy_options &options = {});

} // namespace VxFil
