// The channels of a run resampled and filtered stretch by stretch as their
// rows are written, rather than whole before the first row. A day at 20 Hz
// resampled by four is 55 MB of fresh memory per channel, and the kernel
// zeroing those pages costs more than the interpolation and the filter
// together; a stretch of rows needs only its own values and the filter's
// 129 inputs before it. Every value is the very number that resampling the
// whole series, filtering it, and filling it up after the last pair gives
// (see conditioning.cpp).
//
// The inputs are the channel series after offset removal and scaling, or
// the frames of a vx24 file read in place, each count then having the
// offset removed and the scale applied as the series would have had them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "series.h"
#include "vxfil/vx24_frames.h"

// What is done to a count of a file read in place before resampling: the
// channel's mean subtracted (when `means` is not empty), then multiplied by
// `factor` (when it is not 1), each as its own step on the double.
struct count_steps {
    std::vector<double> means;
    double factor = 1.0;
};

class ConditionedChannels {
  public:
    // The channels `inputs` as they stand after offset removal and scaling
    // (every one of the same length n >= 2; they must outlive this),
    // resampled by `up` (0: not resampled), then filtered or not. Resampled,
    // a channel holds (n - 1) * up interpolated values and then up times its
    // last input value, neither filtered nor interpolated: n * up rows.
    ConditionedChannels(const std::vector<series_t> &inputs, long up, bool filtered);
    // The same with the frames of a vx24 file (at least two) as the inputs,
    // each count taken through `steps`.
    ConditionedChannels(std::shared_ptr<const VxFil::vx24_frames> frames, count_steps steps, long up,
                        bool filtered);

    std::size_t channels() const { return m_channels; }
    std::size_t rows() const { return m_rows; }
    // Different for every object made by this process, so that a stretch
    // kept for one run is never taken for a stretch of the next.
    std::uint64_t serial() const { return m_serial; }

    // Values [first, first + count) of every channel into out, channel
    // after channel (count values each; within rows()).
    void fill(std::size_t first, std::size_t count, double *out) const;

    // Leaves the shared filter state as filtering every whole channel in
    // turn would have left it.
    void leave_filter_state() const;

  private:
    // The inputs [lo, hi) of one channel: x[i - first] for i in [lo, hi).
    struct input_view {
        const double *x;
        std::size_t first;
    };
    // Makes the inputs [lo, hi) of every channel available (frames are read
    // and converted into `room`).
    std::vector<input_view> inputs(std::size_t lo, std::size_t hi, std::vector<double> &room) const;
    double input_of_count(std::int32_t count, std::size_t ch) const;
    // The channel's values [from, to) before filtering, below m_computed.
    void interpolate(const input_view &x, std::size_t from, std::size_t to, double *out) const;
    void lay_out(std::size_t n, long up);

    const std::vector<series_t> *m_series = nullptr;
    std::shared_ptr<const VxFil::vx24_frames> m_frames;
    count_steps m_steps;
    std::size_t m_channels = 0;
    std::size_t m_up = 0;     // 0: not resampled
    bool m_filtered = false;
    std::size_t m_rows = 0;
    std::size_t m_computed = 0;     // values below this are interpolated (and filtered)
    std::vector<double> m_fraction; // j / up, computed as the resampling step does
    std::vector<double> m_last;     // every channel's last input, the fill-up after the last pair
    std::uint64_t m_serial = 0;
};
