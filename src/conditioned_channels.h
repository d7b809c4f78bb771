// The channels of a run resampled and filtered stretch by stretch as their
// rows are written, rather than whole before the first row. A day at 20 Hz
// resampled by four is 55 MB of fresh memory per channel, and the kernel
// zeroing those pages costs more than the interpolation and the filter
// together; a stretch of rows needs only its own values and the filter's
// 129 inputs before it. Every value is the very number that resampling the
// whole series, filtering it, and filling it up after the last pair gives
// (see conditioning.cpp).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "series.h"

class ConditionedChannels {
  public:
    // The channels `inputs` as they stand after offset removal and scaling
    // (every one of the same length n >= 2; they must outlive this),
    // resampled by `up` (0: not resampled), then filtered or not. Resampled,
    // a channel holds (n - 1) * up interpolated values and then up times its
    // last input value, neither filtered nor interpolated: n * up rows.
    ConditionedChannels(const std::vector<series_t> &inputs, long up, bool filtered);

    std::size_t channels() const { return m_inputs->size(); }
    std::size_t rows() const { return m_rows; }
    // Different for every object made by this process, so that a stretch
    // kept for one run is never taken for a stretch of the next.
    std::uint64_t serial() const { return m_serial; }

    // Values [first, first + count) of channel ch into out (within rows()).
    void fill(std::size_t ch, std::size_t first, std::size_t count, double *out) const;

    // Leaves the shared filter state as filtering every whole channel in
    // turn would have left it.
    void leave_filter_state() const;

  private:
    // The channel's values [from, to) before filtering, below m_computed.
    void interpolate(std::size_t ch, std::size_t from, std::size_t to, double *out) const;

    const std::vector<series_t> *m_inputs;
    std::size_t m_up; // 0: not resampled
    bool m_filtered;
    std::size_t m_rows;
    std::size_t m_computed; // values below this are interpolated (and filtered)
    std::vector<double> m_fraction; // j / up, computed as the resampling step does
    std::uint64_t m_serial;
};
