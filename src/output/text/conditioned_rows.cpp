#include "conditioned_rows.h"

#include <algorithm>

#include "rows_together.h"

thread_local conditioned_stretch held_conditioned;

void compute_conditioned_stretch(const ConditionedChannels &channels, std::size_t k) {
    conditioned_stretch &held = held_conditioned;
    held.serial = 0;
    const std::size_t count = std::min(rows_per_stretch(), channels.rows() - k);
    channels.fill(k, count, held.values.room(count * channels.channels()));
    held.serial = channels.serial();
    held.first = k;
    held.count = count;
}
