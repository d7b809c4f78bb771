// The times of a run's samples as the writers and the window read them: the
// time series in memory, or the regular axis of a vx24 file whose frames are
// read in place, computed when asked. Its reader would write out the time of
// sample k as vx24_sample_time(start, rate, k); a day at 20 Hz would fill
// 14 MB of fresh memory with them before the first row is written. Asked
// here, a time is the same number, in the run's time unit once the run has
// converted its times.
#pragma once

#include <cstddef>

#include "series.h"
#include "vxfil/vxfil24.h"

double time_convert(double t);

class TimeAxis {
  public:
    // The series itself, which must outlive the axis (a run's time_array).
    TimeAxis(const series_t &times) : m_series(&times) {} // NOLINT: a series is an axis
    // k / rate + start for k below size.
    TimeAxis(double start, double rate, std::size_t size) : m_start(start), m_rate(rate), m_size(size) {}

    double operator[](std::size_t k) const {
        if (m_series != nullptr) return (*m_series)[k];
        const double t = VxFil::vx24_sample_time(m_start, m_rate, k);
        return m_converted ? time_convert(t) : t;
    }
    std::size_t size() const { return m_series != nullptr ? m_series->size() : m_size; }
    bool empty() const { return size() == 0; }
    double back() const { return (*this)[size() - 1]; }

    // The run has converted its times to its time unit (time_convert): a
    // series has been converted in place, a regular axis converts from now.
    void times_converted() {
        if (m_series == nullptr) m_converted = true;
    }

  private:
    const series_t *m_series = nullptr;
    double m_start = 0.0;
    double m_rate = 1.0;
    std::size_t m_size = 0;
    bool m_converted = false;
};
