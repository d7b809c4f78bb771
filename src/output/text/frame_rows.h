// The frames of a vx24 file read in place, row by row, for the writers that
// print one frame per row. Rows are asked for in order, so each thread keeps
// one stretch of frames and reads the next stretch when a row falls outside
// it: a block of rows formatted on a worker costs one read of the file.
#pragma once

#include <cstddef>
#include <cstdint>

#include "huge_page_buffer.h"
#include "vxfil/vx24_frames.h"

// The stretch of frames this thread holds.
struct frame_stretch {
    std::uint64_t serial = 0; // the file's serial; 0 while nothing is held
    std::uint64_t first = 0;
    std::uint64_t count = 0;
    HugePageArray<std::int32_t> values;
};
extern thread_local frame_stretch held_frames;

// Reads the stretch of frames that begins with frame k into held_frames.
void read_frame_stretch(const VxFil::vx24_frames &frames, std::uint64_t k);

// The values of frame k (frames.channels() of them), valid on this thread
// until the next call. k must be below frames.frames(); a file that has
// become shorter throws std::runtime_error naming it.
inline const std::int32_t *frame_row(const VxFil::vx24_frames &frames, std::uint64_t k) {
    frame_stretch &held = held_frames;
    if (held.serial != frames.serial() || k < held.first || k - held.first >= held.count)
        read_frame_stretch(frames, k);
    return held.values.data() + static_cast<std::size_t>(k - held.first) * frames.channels();
}
