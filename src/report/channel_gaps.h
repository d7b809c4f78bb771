// Gaps, overlaps and changes of settings of one channel, from the stretches
// of samples that its recordings hold.
#pragma once

#include <cstdint>
#include <vector>

#include "report_model.h"

namespace report {

// A break between two samples further apart than 1.5 sample intervals (of
// the lower rate of the two sides): the last sample before it and the first
// after it, Unix microseconds.
struct gap {
    int64_t start = 0, end = 0;
    bool operator==(const gap &) const = default;
};

// Samples of two recordings at the same instants (nearer than half an
// interval): the first and the last of them.
struct overlap {
    int64_t first = 0, last = 0;
    bool operator==(const overlap &) const = default;
};

// A recording whose rate, gain or volts-per-count factor differs from the
// recording before it on the channel.
struct setting_change {
    channel_setting before, after;
};

// The time that a sample stands for: one interval at `rate`, or a second
// where the rate is not a usable number.
int64_t interval_us(double rate);

struct channel_findings {
    // The stretches joined wherever they touch: the samples are continuous
    // from `first` to `last` (rate: the lowest of the joined ones).
    std::vector<stretch> covered;
    std::vector<gap> gaps;
    std::vector<overlap> overlaps;
    std::vector<setting_change> changes;
};

channel_findings examine_channel(const channel_data &channel);

} // namespace report
