// The rows of channels resampled and filtered as they are written (see
// conditioned_channels.h), row by row for the four-column writer. Rows are
// asked for in order, so each thread keeps one stretch of every channel's
// values and computes the next stretch when a row falls outside it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "conditioned_channels.h"
#include "huge_page_buffer.h"

// The stretch of values this thread holds, channel after channel.
struct conditioned_stretch {
    std::uint64_t serial = 0; // the channels' serial; 0 while nothing is held
    std::size_t first = 0;
    std::size_t count = 0;
    HugePageArray<double> values;
};
extern thread_local conditioned_stretch held_conditioned;

// Computes the stretch of rows that begins with row k into held_conditioned.
void compute_conditioned_stretch(const ConditionedChannels &channels, std::size_t k);

// The values of row k: channel c's at [c * stride], valid on this thread
// until the next call. k must be below channels.rows().
inline const double *conditioned_row(const ConditionedChannels &channels, std::size_t k, std::size_t &stride) {
    conditioned_stretch &held = held_conditioned;
    if (held.serial != channels.serial() || k < held.first || k - held.first >= held.count)
        compute_conditioned_stretch(channels, k);
    stride = held.count;
    return held.values.data() + (k - held.first);
}
