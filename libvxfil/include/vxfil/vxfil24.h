// The vx24 container: a versioned header, channel records and interleaved
// 32-bit samples.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "vxfil/vxfil_base.h"

namespace VxFil {

// Everything of a vx24 file but its samples: the header, the channel
// records, where the samples begin and how they divide among the channels.
struct vx24_layout {
    vx_header header;
    std::vector<vx_channel> channels;
    size_t data_offset = 0;   // first byte of the first sample
    uint64_t per_channel = 0; // whole frames: the length of the time sequence
    uint64_t left_over = 0;   // values after the last whole frame, one each to the first channels
};

// Time of sample i of a vx24 file whose first sample is at t0 (Unix
// seconds) and whose rate is f: the reader's time sequence holds exactly
// these numbers.
inline double vx24_sample_time(double t0, double f, uint64_t i) {
    return static_cast<double>(i) / f + t0;
}

// Decodes and checks the layout of a vx24 file of size bytes, failing as the
// reader does (std::runtime_error with its message, or fatal_exit for a
// version above 2). Only the bytes before the first sample are looked at, so
// bytes may hold no more than the first vx24_layout_bytes of the file while
// size is the whole file's.
vx24_layout parse_vx24_layout(const unsigned char *bytes, size_t size);

// Bytes before the first sample of the largest layout: a version-2 header,
// the "chns" chunk head, 255 channel records and the "data" chunk head.
inline constexpr size_t vx24_layout_bytes = 40 + 8 + 255 * 32 + 8;

// Bytes of a file from where the last call stopped: fills at most n bytes at
// buffer and returns how many it filled. Fewer than n means that the file
// ends there (its end, or a read error).
using vx24_read_fn = std::function<size_t(unsigned char *buffer, size_t n)>;

// How much of a file is read at a time. Pieces from 64 KiB to 1 MiB decode a
// day's file equally fast (larger ones are slower); 1 MiB keeps the reads few.
inline constexpr size_t vx24_piece_bytes = size_t{1} << 20;

class VXFIL24 : public Vxfil_Base {
  public:
    // Reads the file; throws std::runtime_error on a damaged file. A regular
    // file is read in pieces, anything else whole.
    explicit VXFIL24(const char *filename);
    // Parses a vx24 file already held in memory (size bytes at bytes); name is
    // only used in messages. Same results and failures as reading the file.
    VXFIL24(const unsigned char *bytes, size_t size, const char *name);
    // Decodes a vx24 file measured at size bytes as read hands it out, in
    // pieces of piece_bytes. Bytes past size are not asked for; a file that
    // ends early is taken as the bytes it had. Same results and failures as
    // parsing those bytes in memory.
    VXFIL24(uint64_t size, const vx24_read_fn &read, const char *name, size_t piece_bytes = vx24_piece_bytes);
    // The header and the channel records of a file, from its layout; the
    // channels' sample sequences and the time sequence stay empty
    // (vx24_frames reads the samples where they lie, vx24_sample_time gives
    // any time). name is only used in messages.
    VXFIL24(const vx24_layout &layout, const char *name);
    ORIGIN get_origin() const override { return ORIGIN_VX24; }

  private:
    void parse(const unsigned char *bytes, size_t size);
    void read_pieces(uint64_t size, const vx24_read_fn &read, size_t piece_bytes);
    void lay_out(vx24_layout &&layout, bool with_samples = true);
};

} // namespace VxFil
