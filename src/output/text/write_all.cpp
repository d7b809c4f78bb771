// The four-column layout: the time and the value of every channel per row.
#include "row_writer.h"
#include "settings.h"
#include "writers.h"

double write_all(const std::filesystem::path& s, const series_t& time, const std::vector<series_t>& data,
                 long start_i, long size, double stm, double freq, const char* comment) {
    if (output_type == OT_TWOCOLUMNS) return stm + size / freq;
    check_window("write_all", time, start_i, size);
    check_window("write_all", data, start_i, size);
    return write_window_rows<true>(s, time, start_i, size, stm, freq, comment, no_head,
                             [&](auto& out, std::size_t k, double t, FixedColumn& column, long) {
                                 out.put_fixed(column, t);
                                 for (const series_t& channel : data) {
                                     out.put(' ');
                                     out.put_trimmed(channel[k]);
                                 }
                                 out.put('\n');
                             });
}
