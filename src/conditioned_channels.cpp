#include "conditioned_channels.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "conditioning_steps.h"
#include "filter.h"

namespace {

// The filter's output at a value depends on it and the 128 inputs before
// it; filter_with_history takes the 129 inputs before a stretch.
constexpr std::size_t HISTORY = 129;

std::atomic<std::uint64_t> last_serial{0};

} // namespace

ConditionedChannels::ConditionedChannels(const std::vector<series_t> &inputs, long up, bool filtered)
    : m_series(&inputs), m_channels(inputs.size()), m_filtered(filtered), m_serial(++last_serial) {
    lay_out(inputs.empty() ? 0 : inputs.front().size(), up);
    for (const series_t &x : inputs)
        m_last.push_back(x.back());
}

ConditionedChannels::ConditionedChannels(std::shared_ptr<const VxFil::vx24_frames> frames, count_steps steps,
                                         long up, bool filtered)
    : m_frames(std::move(frames)), m_steps(std::move(steps)), m_channels(m_frames->channels()),
      m_filtered(filtered), m_serial(++last_serial) {
    const std::size_t n = static_cast<std::size_t>(m_frames->frames());
    lay_out(n, up);
    std::vector<std::int32_t> last(m_channels);
    m_frames->read(n - 1, 1, last.data());
    for (std::size_t c = 0; c < m_channels; ++c)
        m_last.push_back(input_of_count(last[c], c));
}

void ConditionedChannels::lay_out(std::size_t n, long up) {
    m_up = static_cast<std::size_t>(up);
    m_rows = m_up == 0 ? n : n * m_up;
    m_computed = m_up == 0 ? n : (n - 1) * m_up;
    m_fraction = resampling_fractions(up);
}

double ConditionedChannels::input_of_count(std::int32_t count, std::size_t ch) const {
    double v = count;
    if (!m_steps.means.empty()) v -= m_steps.means[ch];
    if (m_steps.factor != 1.0) v *= m_steps.factor;
    return v;
}

std::vector<ConditionedChannels::input_view> ConditionedChannels::inputs(std::size_t lo, std::size_t hi,
                                                                         std::vector<double> &room) const {
    std::vector<input_view> views;
    if (m_series != nullptr) {
        for (const series_t &x : *m_series)
            views.push_back({x.data(), 0});
        return views;
    }
    // One read of the frames for every channel, then each channel's values
    // side by side.
    const std::size_t len = hi - lo;
    thread_local std::vector<std::int32_t> counts;
    counts.resize(len * m_channels);
    if (len > 0) m_frames->read(lo, len, counts.data());
    room.resize(len * m_channels);
    for (std::size_t c = 0; c < m_channels; ++c) {
        double *x = room.data() + c * len;
        for (std::size_t k = 0; k < len; ++k)
            x[k] = input_of_count(counts[k * m_channels + c], c);
        views.push_back({x, lo});
    }
    return views;
}

void ConditionedChannels::interpolate(const input_view &in, std::size_t from, std::size_t to, double *out) const {
    const double *x = in.x;
    if (m_up == 0) {
        std::copy(x + (from - in.first), x + (to - in.first), out);
        return;
    }
    std::size_t i = from / m_up - in.first, j = from % m_up;
    for (std::size_t k = from; k < to; ++k) {
        *out++ = interpolated(x[i], x[i + 1], m_fraction[j]);
        if (++j == m_up) {
            j = 0;
            ++i;
        }
    }
}

void ConditionedChannels::fill(std::size_t first, std::size_t count, double *out) const {
    const std::size_t end = std::min(first + count, m_computed);
    if (first < end) {
        // The filter's history reaches HISTORY values before the stretch.
        const std::size_t from = m_filtered && first >= HISTORY ? first - HISTORY : (m_filtered ? 0 : first);
        // Interpolating value k takes inputs k / up and the one after it.
        const std::size_t lo = m_up == 0 ? from : from / m_up;
        const std::size_t hi = m_up == 0 ? end : (end - 1) / m_up + 2;
        thread_local std::vector<double> room;
        const std::vector<input_view> views = inputs(lo, hi, room);
        for (std::size_t c = 0; c < m_channels; ++c) {
            double *values = out + c * count;
            interpolate(views[c], first, end, values);
            if (m_filtered) {
                // The inputs before the stretch; zeros before the channel's
                // first value, the history every channel's pass starts from.
                double before[HISTORY] = {};
                interpolate(views[c], from, first, before + HISTORY - (first - from));
                filter_with_history(before, values, static_cast<long>(end - first));
            }
        }
    }
    for (std::size_t c = 0; c < m_channels; ++c)
        for (std::size_t k = std::max(first, end); k < first + count; ++k)
            out[c * count + (k - first)] = m_last[c];
}

void ConditionedChannels::leave_filter_state() const {
    if (!m_filtered) return;
    const std::size_t kept = std::min(HISTORY, m_computed);
    const std::size_t from = m_computed - kept;
    const std::size_t lo = m_up == 0 ? from : from / m_up;
    const std::size_t hi = m_up == 0 ? m_computed : (m_computed - 1) / m_up + 2;
    std::vector<double> room;
    const std::vector<input_view> views = inputs(lo, hi, room);
    std::vector<double> newest(kept);
    for (std::size_t ch = 0; ch < m_channels; ++ch) {
        interpolate(views[ch], from, m_computed, newest.data());
        Initialize(0.0);
        filter_skip(newest.data(), static_cast<long>(m_computed));
    }
}
