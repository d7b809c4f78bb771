// The frame shared by the row writers: open the file, write the comment
// line, then walk the window row by row with the gap check and the advance of
// the printed time by one sample period per row.
#pragma once

#include <cstddef>
#include <filesystem>

#include "gap_warning.h"
#include "out_file.h"
#include "series.h"
#include "settings.h"
#include "time_format.h"
#include "writer_window.h"

// The time a row prints: the running sum `stm` of the time step, or with
// sample_times (read once per file into own_times) the sample's own time `t`
// on the series' time axis, which never drifts and shows gaps.
inline double printed_time(bool own_times, double stm, double t) {
    return own_times ? t : stm;
}

// head(out) writes what comes between the comment and the rows;
// row(out, i, stm, column, row_number) writes row i with the printed time
// stm, through `column`, the time column's "%-.*f" with the window's decimals.
// Returns the time after the last row.
template <class Head, class Row>
double write_window_rows(const std::filesystem::path& s, const series_t& time, long start_i, long size,
                         double stm, double freq, const char* comment, Head&& head, Row&& row) {
    OutFile out(s);
    stm = first_time(stm, time, start_i);
    const long end = start_i + size;
    FixedColumn column(window_decimals(time, end));
    const double tdiff = 1 / freq;
    if (comment != nullptr) {
        out.put(comment);
        out.put('\n');
    }
    head(out);
    double prev_time = size > 0 ? time[static_cast<std::size_t>(start_i)] : 0.0;
    const bool own_times = sample_times != 0;
    for (long i = start_i; i < end; ++i) {
        const auto k = static_cast<std::size_t>(i);
        const long row_number = i - start_i + 1;
        const double t = time[k];
        row(out, k, printed_time(own_times, stm, t), column, row_number);
        if (is_gap(t - prev_time, freq)) {
            out.settle(); // a failed earlier write is reported first, as it happened first
            report_gap(s, t - prev_time, row_number, t, prev_time);
        }
        stm += tdiff;
        prev_time = t;
    }
    out.close();
    return stm;
}

inline void no_head(OutFile&) {}
