// The time column alone, the companion of the one-column files.
#include "row_writer.h"
#include "settings.h"
#include "writers.h"

double write_time(const std::filesystem::path &s, const series_t &time, long start_i, long size, double stm,
                  double freq, const char *comment) {
    // The two-column files carry their own time column.
    if (output_type == OT_TWOCOLUMNS) return stm + size / freq;
    check_window("write_time", time, start_i, size);
    return write_window_rows<true>(s, time, start_i, size, stm, freq, comment, no_head,
                             [&](auto &out, std::size_t, double t, FixedColumn &column, long) {
                                 out.put_fixed(column, t);
                                 out.put('\n');
                             });
}
