// The four-column layout: the time and the value of every channel per row.
#include "conditioned_rows.h"
#include "frame_rows.h"
#include "row_writer.h"
#include "settings.h"
#include "writers.h"

namespace {

// The frame shared by both sources of the channels' values: values(k, p)
// writes a blank and the value of each of the `channels` channels of row k
// at p, at most `value_room` bytes per value, and returns the end. A row is
// written through one pointer.
template <class Times, class Values>
double write_all_rows(const std::filesystem::path &s, const Times &time, long start_i, long size,
                      double stm, double freq, const char *comment, std::size_t channels,
                      std::size_t value_room, const Values &values) {
    return write_window_rows<true>(s, time, start_i, size, stm, freq, comment, no_head,
                                   [&](auto &out, std::size_t k, double t, FixedColumn &column, long) {
                                       out.put_formatted(fixed_text_max(column.precision()) +
                                                             channels * (1 + value_room) + 1,
                                                         [&](char *p) {
                                                             p = column.format(p, t);
                                                             p = values(k, p);
                                                             *p++ = '\n';
                                                             return p;
                                                         });
                                   });
}

} // namespace

double write_all(const std::filesystem::path &s, const series_t &time, const std::vector<series_t> &data,
                 long start_i, long size, double stm, double freq, const char *comment) {
    if (output_type == OT_TWOCOLUMNS) return stm + size / freq;
    check_window("write_all", time, start_i, size);
    check_window("write_all", data, start_i, size);
    return write_all_rows(s, time, start_i, size, stm, freq, comment, data.size(), FIXED6_TEXT_MAX,
                          [&](std::size_t k, char *p) {
                              for (const series_t &channel : data) {
                                  *p++ = ' ';
                                  p = format_trimmed(p, channel[k]);
                              }
                              return p;
                          });
}

double write_all_in_place(const std::filesystem::path &s, const TimeAxis &time,
                          const VxFil::vx24_frames &frames, long start_i, long size, double stm, double freq,
                          const char *comment) {
    if (output_type == OT_TWOCOLUMNS) return stm + size / freq;
    check_window_length("write_all", time.size(), start_i, size);
    check_window_length("write_all", frames.frames(), start_i, size);
    const std::size_t n = frames.channels();
    // The counts print as their doubles in the series would.
    return write_all_rows(s, time, start_i, size, stm, freq, comment, n, SHORT_TEXT_MAX,
                          [&](std::size_t k, char *p) {
                              const std::int32_t *row = frame_row(frames, k);
                              for (std::size_t c = 0; c < n; ++c) {
                                  *p++ = ' ';
                                  p = format_count(p, row[c]);
                              }
                              return p;
                          });
}

double write_all_conditioned(const std::filesystem::path &s, const TimeAxis &time,
                             const ConditionedChannels &channels, long start_i, long size, double stm, double freq,
                             const char *comment) {
    check_window_length("write_all", time.size(), start_i, size);
    check_window_length("write_all", channels.rows(), start_i, size);
    const std::size_t n = channels.channels();
    return write_all_rows(s, time, start_i, size, stm, freq, comment, n, FIXED6_TEXT_MAX,
                          [&](std::size_t k, char *p) {
                              std::size_t stride = 0;
                              const double *row = conditioned_row(channels, k, stride);
                              for (std::size_t c = 0; c < n; ++c) {
                                  *p++ = ' ';
                                  p = format_trimmed(p, row[c * stride]);
                              }
                              return p;
                          });
}
