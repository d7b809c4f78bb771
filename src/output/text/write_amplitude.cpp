// The amplitude layout: the time and the plain sum of all channels per row.
#include "row_writer.h"
#include "settings.h"
#include "writers.h"

double write_amplitude(const std::filesystem::path& s, const series_t& time, const std::vector<series_t>& data,
                       long start_i, long size, double stm, double freq, const char* comment) {
    if (output_type == OT_TWOCOLUMNS) return stm + size / freq;
    check_window("write_amplitude", time, start_i, size);
    check_window("write_amplitude", data, start_i, size);
    return write_window_rows<true>(s, time, start_i, size, stm, freq, comment, no_head,
                             [&](auto& out, std::size_t k, double t, FixedColumn& column, long) {
                                 // The plain sum, starting from +0, in channel order: not a
                                 // mean and not a root of squares.
                                 double sum = 0;
                                 for (const series_t& channel : data) sum += channel[k];
                                 out.put_fixed(column, t);
                                 out.put(' ');
                                 out.put_trimmed(sum);
                                 out.put('\n');
                             });
}
