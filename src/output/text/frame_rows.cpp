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

struct stretch {
    std::uint64_t serial = 0; // the file's serial; 0 while nothing is held
    std::uint64_t first = 0;
    std::uint64_t count = 0;
    std::vector<std::int32_t> values;
};

} // namespace

const std::int32_t *frame_row(const VxFil::vx24_frames &frames, std::uint64_t k) {
    thread_local stretch held;
    const std::size_t n = frames.channels();
    if (held.serial != frames.serial() || k < held.first || k - held.first >= held.count) {
        held.serial = 0;
        const std::uint64_t count =
            k < frames.frames() ? std::min(frames_per_read(), frames.frames() - k) : 1;
        held.values.resize(static_cast<std::size_t>(count) * n);
        frames.read(k, static_cast<std::size_t>(count), held.values.data());
        held.serial = frames.serial();
        held.first = k;
        held.count = count;
    }
    return held.values.data() + static_cast<std::size_t>(k - held.first) * n;
}
