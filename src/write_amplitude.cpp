// The amplitude layout: the time and the plain sum of all channels per row.
#include "gap_warning.h"
#include "out_file.h"
#include "settings.h"
#include "time_format.h"
#include "writer_window.h"
#include "writers.h"

double write_amplitude(const std::filesystem::path& s, const series_t& time, const std::vector<series_t>& data,
                       long start_i, long size, double stm, double freq, const char* comment) {
    if (output_type == OT_TWOCOLUMNS) return stm + size / freq;
    check_window("write_amplitude", time, start_i, size);
    check_window("write_amplitude", data, start_i, size);
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
        const auto k = static_cast<std::size_t>(i);
        // The plain sum, starting from +0, in channel order: not a mean and
        // not a root of squares.
        double sum = 0;
        for (const series_t& channel : data) sum += channel[k];
        out.put_fixed(stm, dec);
        out.put(' ');
        out.put_trimmed(sum);
        out.put('\n');
        const double t = time[k];
        if (is_gap(t - prev_time, freq)) report_gap(s, t - prev_time, i - start_i + 1, t, prev_time);
        stm += tdiff;
        prev_time = t;
    }
    out.close();
    return stm;
}
