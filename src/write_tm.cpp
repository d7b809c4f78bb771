// The single-series writers: samples in one of the column layouts, or the
// time column alone.
#include "gap_warning.h"
#include "out_file.h"
#include "settings.h"
#include "time_format.h"
#include "writer_window.h"
#include "writers.h"

namespace {

// TSPAIR time stamp: the date and time to the second, then the microseconds.
constexpr const char* TSPAIR_TIME_FORMAT = "%Y-%m-%dT%H:%M:%S";
// SLIST values per line.
constexpr long SLIST_PER_LINE = 6;

} // namespace

double write_tm(const std::filesystem::path& s, const series_t& values, const series_t& time, long start_i,
                long size, double stm, double freq, const char* comment) {
    check_window("write_tm", values, start_i, size);
    check_window("write_tm", time, start_i, size);
    OutFile out(s);
    stm = first_time(stm, time, start_i);
    const long end = start_i + size;
    const int dec = window_decimals(time, end);
    const double tdiff = 1 / freq;
    if (comment != nullptr) {
        out.put(comment);
        out.put('\n');
    }
    const OUTPUT_TYPE type = output_type;
    if ((type == OT_TWOCOLUMNS || type == OT_AVERAGE) && nrsamples) {
        out.put_ld(size > 0 ? size : 0);
        out.put('\n');
    }
    TimeStamper stamp(TSPAIR_TIME_FORMAT);
    double prev_time = size > 0 ? time[static_cast<std::size_t>(start_i)] : 0.0;
    for (long i = start_i; i < end; ++i) {
        const double value = values[static_cast<std::size_t>(i)];
        const long row = i - start_i + 1;
        switch (type) {
        case OT_ONECOLUMN:
            out.put_f(value);
            out.put('\n');
            break;
        case OT_TWOCOLUMNS:
        case OT_AVERAGE:
            out.put_fixed(stm, dec);
            out.put(' ');
            out.put_g(value);
            out.put('\n');
            break;
        case OT_TSPAIR: {
            out.put(stamp(stm));
            out.put(' ');
            out.put_f0(value);
            out.put('\n');
            break;
        }
        case OT_SLIST:
            // The last line deliberately ends without a line break when the
            // count is not a multiple of six.
            out.put_f12_0(value);
            if (row % SLIST_PER_LINE == 0) out.put('\n');
            break;
        default:
            // The other layouts have their own writers; here they get only
            // the comment line.
            break;
        }
        const double t = time[static_cast<std::size_t>(i)];
        if (is_gap(t - prev_time, freq)) report_gap(s, t - prev_time, row, t, prev_time);
        stm += tdiff;
        prev_time = t;
    }
    out.close();
    return stm;
}

double write_time(const std::filesystem::path& s, const series_t& time, long start_i, long size, double stm,
                  double freq, const char* comment) {
    // The two-column files carry their own time column.
    if (output_type == OT_TWOCOLUMNS) return stm + size / freq;
    check_window("write_time", time, start_i, size);
    OutFile out(s);
    stm = first_time(stm, time, start_i);
    const long end = start_i + size;
    const int dec = window_decimals(time, end);
    const double tdiff = 1 / freq;
    if (comment != nullptr) {
        out.put(comment);
        out.put('\n');
    }
    double prev_time = size > 0 ? time[static_cast<std::size_t>(start_i)] : 0.0;
    for (long i = start_i; i < end; ++i) {
        out.put_fixed(stm, dec);
        out.put('\n');
        const double t = time[static_cast<std::size_t>(i)];
        if (is_gap(t - prev_time, freq)) report_gap(s, t - prev_time, i - start_i + 1, t, prev_time);
        stm += tdiff;
        prev_time = t;
    }
    out.close();
    return stm;
}
