// The legacy dat layout: blocks of 512 samples, each block one line per
// channel for the first three channels. A line is the block's start minute
// and second ("%.0f %.0f"), then 512 values, each after a blank, in their
// trimmed form:
//
//   2 5 12 -3.5 0 ...
//
// The second is rounded by "%.0f", so a block starting 59.6 s into a minute
// shows "60" with the lower minute; that is how these files have always read.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iostream>

#include "gap_warning.h"
#include "out_file.h"
#include "process_exit.h"
#include "row_writer.h"
#include "settings.h"
#include "writer_window.h"
#include "writers.h"

namespace {

// Samples per block and channel, the "512" of the "!S512" header line.
constexpr long BLOCK = 512;
// Channels written per block.
constexpr std::size_t CHANNELS = 3;

} // namespace

double write_vxdat(const std::filesystem::path& s, const series_t& time, const std::vector<series_t>& data,
                   long start_i, long size, double stm, double freq, const char* comment) {
    if (output_type == OT_TWOCOLUMNS) return stm + size / freq;
    if (data.size() < CHANNELS) {
        std::cout.flush();
        std::cerr << "Error: vxdat file " << s << " needs three channels, the data has " << data.size()
                  << "\n";
        process_exit(1);
    }
    check_window("write_vxdat", time, start_i, size);
    OutFile out(s);
    stm = first_time(stm, time, start_i);
    const long end = start_i + size;
    // The time decimals of the other layouts play no part here.
    const double tdiff = 1 / freq;
    if (comment != nullptr) {
        out.put(comment);
        out.put('\n');
    }
    // A block always takes 512 values per channel, reaching past the window
    // where the series hold them. A block that would pass the end of a series
    // is left out.
    std::size_t available = data[0].size();
    for (std::size_t c = 1; c < CHANNELS; ++c)
        available = std::min(available, data[c].size());

    double prev_time = size > 0 ? time[static_cast<std::size_t>(start_i)] : 0.0;
    long i = start_i;
    for (; i < end; i += BLOCK) {
        const auto k = static_cast<std::size_t>(i);
        if (k > available || available - k < static_cast<std::size_t>(BLOCK)) break;
        const double block_start = printed_time(sample_times != 0, stm, time[k]);
        const double min = std::floor(block_start / 60);
        const double sec = std::fmod(block_start, 60);
        for (std::size_t c = 0; c < CHANNELS; ++c) {
            out.put_f0(min);
            out.put(' ');
            out.put_f0(sec);
            const double* values = data[c].data() + k;
            for (long j = 0; j < BLOCK; ++j) {
                out.put(' ');
                out.put_trimmed(values[j]);
            }
            out.put('\n');
        }
        // Block starts lie 512 samples apart, so at the usual sample rates
        // every block after the first is reported.
        const double t = time[k];
        if (is_gap(t - prev_time, freq)) {
            out.settle(); // a failed earlier write is reported first, as it happened first
            report_gap(s, t - prev_time, 0, t, prev_time);
        }
        stm += BLOCK * tdiff;
        prev_time = t;
    }
    out.close();
    if (i < end) {
        std::cerr << "Warning: last vxdat block passes the end of the data, " << (end - i)
                  << " samples left out\n";
    }
    return stm;
}
