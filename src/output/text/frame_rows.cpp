#include "frame_rows.h"

#include <algorithm>

#include "rows_together.h"

thread_local frame_stretch held_frames;

void read_frame_stretch(const VxFil::vx24_frames &frames, std::uint64_t k) {
    frame_stretch &held = held_frames;
    held.serial = 0;
    const std::uint64_t count = k < frames.frames() ? std::min<std::uint64_t>(rows_per_stretch(), frames.frames() - k) : 1;
    frames.read(k, static_cast<std::size_t>(count), held.values.room(static_cast<std::size_t>(count) * frames.channels()));
    held.serial = frames.serial();
    held.first = k;
    held.count = count;
}
