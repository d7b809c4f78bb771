// The times of a run's samples as the writers and the window read them: the
// time series in memory; the regular axis of a vx24 file whose frames are
// read in place; or either of them as resampling would have filled it. The
// last two are computed when asked. A vx24 reader would write out the time of
// sample k as vx24_sample_time(start, rate, k), and resampling a day at 20 Hz
// by four would fill 55 MB of fresh memory, before the first row is written.
// Asked here, a time is the same number, in the run's time unit once the run
// has converted its times.
#pragma once

#include <cstddef>
#include <memory>
#include <utility>

#include "conditioning_steps.h"
#include "series.h"
#include "vxfil/vxfil24.h"

double time_convert(double t);

class TimeAxis {
  public:
    // The series itself, which must outlive the axis (a run's time_array).
    TimeAxis(const series_t &times) : m_series(&times) {} // NOLINT: a series is an axis
    // k / rate + start for k below size.
    TimeAxis(double start, double rate, std::size_t size) : m_start(start), m_rate(rate), m_size(size) {}
    // The times of `base` (at least two, in seconds) resampled by `up`: time
    // i * up + j is base[i] + (j / up) * (base[i + 1] - base[i]) while
    // i + 1 < base.size(), the very expression of the resampling step; the
    // `up` times after those are `tail`.
    TimeAxis(const TimeAxis &base, std::size_t up, std::shared_ptr<const series_t> tail)
        : m_base(std::make_shared<const TimeAxis>(base)), m_up(up), m_tail(std::move(tail)),
          m_size(base.size() * up) {}

    double operator[](std::size_t k) const {
        if (in_series()) return (*m_series)[k];
        const double t = m_base != nullptr ? resampled_time(k) : VxFil::vx24_sample_time(m_start, m_rate, k);
        return m_converted ? time_convert(t) : t;
    }
    std::size_t size() const { return in_series() ? m_series->size() : m_size; }
    bool empty() const { return size() == 0; }
    double back() const { return (*this)[size() - 1]; }

    // The times are those of the series in memory, which the run converts
    // to its time unit in place.
    bool in_series() const { return m_series != nullptr; }
    // The run has converted its times to its time unit (time_convert): a
    // series has been converted in place, computed times convert from now.
    void times_converted() {
        if (!in_series()) m_converted = true;
    }

  private:
    double resampled_time(std::size_t k) const {
        const std::size_t i = k / m_up, j = k % m_up;
        if (i + 1 < m_base->size())
            return interpolated((*m_base)[i], (*m_base)[i + 1], static_cast<double>(j) / static_cast<double>(m_up));
        return (*m_tail)[k - (m_base->size() - 1) * m_up];
    }

    const series_t *m_series = nullptr;
    std::shared_ptr<const TimeAxis> m_base; // the axis resampled, or null
    std::size_t m_up = 0;                   // the factor of the resampling
    std::shared_ptr<const series_t> m_tail;
    double m_start = 0.0;
    double m_rate = 1.0;
    std::size_t m_size = 0;
    bool m_converted = false;
};
