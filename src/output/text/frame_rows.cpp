#include "frame_rows.h"

#include <algorithm>
#include <vector>

#include "rows_together.h"

namespace {

// The rows of one block of rows formatted together, so that a block's rows
// come from one read; at least this many when rows are written in order.
std::uint64_t frames_per_read() {
    constexpr std::uint64_t AT_LEAST = 16384;
    return static_cast<std::uint64_t>(std::max(rows_together_block(), static_cast<long>(AT_LEAST)));
}

} // namespace

thread_local frame_stretch held_frames;

void read_frame_stretch(const VxFil::vx24_frames &frames, std::uint64_t k) {
    frame_stretch &held = held_frames;
    held.serial = 0;
    const std::uint64_t count = k < frames.frames() ? std::min(frames_per_read(), frames.frames() - k) : 1;
    held.values.resize(static_cast<std::size_t>(count) * frames.channels());
    frames.read(k, static_cast<std::size_t>(count), held.values.data());
    held.serial = frames.serial();
    held.first = k;
    held.count = count;
}
