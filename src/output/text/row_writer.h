// The frame shared by the row writers: open the file, write the comment
// line, then walk the window row by row with the gap check and the advance of
// the printed time by one sample period per row.
#pragma once

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <type_traits>

#include "gap_warning.h"
#include "ordered_blocks.h"
#include "out_file.h"
#include "rows_together.h"
#include "series.h"
#include "settings.h"
#include "text_block.h"
#include "time_format.h"
#include "writer_window.h"

// The time a row prints: the running sum `stm` of the time step, or with
// sample_times (read once per file into own_times) the sample's own time `t`
// on the series' time axis, which never drifts and shows gaps.
inline double printed_time(bool own_times, double stm, double t) {
    return own_times ? t : stm;
}

// Rows [first, last) of the window that starts at start_i, in order, into
// `out`, the running time starting at `stm`; returns the running time after
// them. Into the file every row is checked for a gap and the warning printed
// at once; into a block formatted on a worker, a gap on any row only sets
// `*gap`, and the caller then writes the block's rows itself.
template <class Out, class Times, class Row>
double put_rows(Out& out, const std::filesystem::path& s, const Times& time, long start_i, long first, long last,
                double stm, double tdiff, double freq, FixedColumn& column, Row& row, bool* gap = nullptr) {
    double prev_time = time[static_cast<std::size_t>(first > start_i ? first - 1 : start_i)];
    const bool own_times = sample_times != 0;
    bool gap_seen = false;
    for (long i = first; i < last; ++i) {
        const auto k = static_cast<std::size_t>(i);
        const long row_number = i - start_i + 1;
        const double t = time[k];
        row(out, k, printed_time(own_times, stm, t), column, row_number);
        if constexpr (std::is_same_v<Out, OutFile>) {
            if (is_gap(t - prev_time, freq)) {
                out.settle(); // a failed earlier write is reported first, as it happened first
                report_gap(s, t - prev_time, row_number, t, prev_time);
            }
        } else {
            gap_seen |= is_gap(t - prev_time, freq);
        }
        stm += tdiff;
        prev_time = t;
    }
    if (gap != nullptr) *gap = gap_seen;
    return stm;
}

// The rows of a long window in blocks formatted on worker threads, handed to
// the file in order. A block in which a worker found a gap is written again
// on this thread with its warnings, so they come out among the rows as they
// would in one pass.
template <class Times, class Row>
double put_rows_together(OutFile& out, const std::filesystem::path& s, const Times& time, long start_i, long end,
                         double stm, double tdiff, double freq, int precision, Row& row) {
    const RowBlocks plan = plan_row_blocks(start_i, end, stm, tdiff);
    // Set by the worker of each block before it hands the block over.
    std::vector<char> has_gap(plan.stm.size(), 0);
    OrderedBlocks blocks(
        plan.stm.size(),
        [&](std::size_t b, TextBlock& text) {
            FixedColumn column(precision);
            bool gap = false;
            put_rows(text, s, time, start_i, plan.first[b], plan.block_end(b), plan.stm[b], tdiff, freq, column, row,
                     &gap);
            has_gap[b] = gap;
        },
        rows_together_threads());
    FixedColumn column(precision);
    for (std::size_t b = 0; b < plan.stm.size(); ++b) {
        const TextBlock& text = blocks.wait(b);
        if (has_gap[b])
            put_rows(out, s, time, start_i, plan.first[b], plan.block_end(b), plan.stm[b], tdiff, freq, column, row);
        else
            out.put(text.text());
        blocks.done(b);
    }
    return plan.end_stm;
}

// `time` is the time series or a TimeAxis (any type with [] and size()).
// head(out) writes what comes between the comment and the rows;
// row(out, i, stm, column, row_number) writes row i with the printed time
// stm, through `column`, the time column's "%-.*f" with the window's decimals.
// With `Together`, row must take any sink (the file or a text block) and be
// safe to call from several threads at once: long windows are then
// formatted in blocks on worker threads. Returns the time after the last row.
template <bool Together = false, class Times, class Head, class Row>
double write_window_rows(const std::filesystem::path& s, const Times& time, long start_i, long size,
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
    if (size > 0) {
        bool together = false;
        if constexpr (Together) {
            together = rows_together_worthwhile(size);
            if (together)
                stm = put_rows_together(out, s, time, start_i, end, stm, tdiff, freq, column.precision(), row);
        }
        if (!together) stm = put_rows(out, s, time, start_i, start_i, end, stm, tdiff, freq, column, row);
    }
    out.close();
    return stm;
}

inline void no_head(OutFile&) {}
