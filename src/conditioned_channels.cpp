#include "conditioned_channels.h"

#include <algorithm>
#include <atomic>

#include "filter.h"

namespace {

// The filter's output at a value depends on it and the 128 inputs before
// it; filter_with_history takes the 129 inputs before a stretch.
constexpr std::size_t HISTORY = 129;

std::atomic<std::uint64_t> last_serial{0};

} // namespace

ConditionedChannels::ConditionedChannels(const std::vector<series_t> &inputs, long up, bool filtered)
    : m_inputs(&inputs), m_up(static_cast<std::size_t>(up)), m_filtered(filtered), m_serial(++last_serial) {
    const std::size_t n = inputs.empty() ? 0 : inputs.front().size();
    m_rows = m_up == 0 ? n : n * m_up;
    m_computed = m_up == 0 ? n : (n - 1) * m_up;
    for (std::size_t j = 0; j < m_up; ++j)
        m_fraction.push_back(static_cast<double>(j) / static_cast<double>(m_up));
}

void ConditionedChannels::interpolate(std::size_t ch, std::size_t from, std::size_t to, double *out) const {
    const series_t &x = (*m_inputs)[ch];
    if (m_up == 0) {
        std::copy(x.begin() + static_cast<std::ptrdiff_t>(from), x.begin() + static_cast<std::ptrdiff_t>(to), out);
        return;
    }
    std::size_t i = from / m_up, j = from % m_up;
    for (std::size_t k = from; k < to; ++k) {
        const double base = x[i];
        const double d = x[i + 1] - base;
        *out++ = base + m_fraction[j] * d;
        if (++j == m_up) {
            j = 0;
            ++i;
        }
    }
}

void ConditionedChannels::fill(std::size_t ch, std::size_t first, std::size_t count, double *out) const {
    const std::size_t end = std::min(first + count, m_computed);
    if (first < end) {
        interpolate(ch, first, end, out);
        if (m_filtered) {
            // The inputs before the stretch; zeros before the channel's first
            // value, the history every channel's pass starts from.
            double before[HISTORY] = {};
            const std::size_t from = first >= HISTORY ? first - HISTORY : 0;
            interpolate(ch, from, first, before + HISTORY - (first - from));
            filter_with_history(before, out, static_cast<long>(end - first));
        }
    }
    const double last = (*m_inputs)[ch].back();
    for (std::size_t k = std::max(first, end); k < first + count; ++k)
        out[k - first] = last;
}

void ConditionedChannels::leave_filter_state() const {
    if (!m_filtered) return;
    const std::size_t kept = std::min(HISTORY, m_computed);
    std::vector<double> newest(kept);
    for (std::size_t ch = 0; ch < channels(); ++ch) {
        interpolate(ch, m_computed - kept, m_computed, newest.data());
        Initialize(0.0);
        filter_skip(newest.data(), static_cast<long>(m_computed));
    }
}
