// The quick-look writer (--plot): one PNG picture of a window, one panel per
// channel, drawn by gnuplot. The picture goes out like every output, through
// the atomic output file (atomic_file.h), and only when gnuplot has succeeded,
// so a failed or interrupted drawing never leaves a partial picture under the
// real name.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "gnuplot_pipe.h"
#include "plot_envelope.h"
#include "plot_script.h"
#include "series.h"

// The most channels one picture stacks.
constexpr std::size_t PLOT_MAX_CHANNELS = 8;

// What the picture shows: the sample times in Unix seconds (whatever unit
// the text columns use), the channel series, and their rate per second.
struct plot_source {
    const series_t &time;
    const std::vector<series_t> &data;
    double rate = 0.0;
    std::string station;
};

// Runs gnuplot on a script with its picture going to a file descriptor; tests
// put in their own to see the script.
using gnuplot_runner = std::function<gnuplot_result(const std::string &script, int out_fd)>;

// Ends the process with one line saying what to install when gnuplot is not
// on the PATH.
void check_plot_tool();

// Ends the process with one line when a series of `channels` channels, read
// from `first_input` onwards, is too wide for a picture.
void check_plot_channels(const std::filesystem::path &first_input, std::size_t channels);

// Draws the window [start_i, start_i + size) into `path`. A failure of
// gnuplot ends the process with a line naming the file, followed by
// gnuplot's own messages; nothing is left under `path` or the temporary name.
void write_plot(const std::filesystem::path &path, const plot_source &source, long start_i, long size,
                const gnuplot_runner &run = run_gnuplot);

// The horizontal frame of a picture of the samples from `first` to `last`
// (Unix seconds) at `rate` per second, widened a little when the two are one
// time so that the axis has a length.
plot_frame plot_frame_of_range(double first, double last, double rate);

// Draws `page` into `path` as write_plot does; returns empty when the
// picture is in place, else the message (one line naming the file, followed
// by gnuplot's own messages), with nothing left under `path` or the
// temporary name.
std::string draw_plot_page(const std::filesystem::path &path, const plot_page &page,
                           const gnuplot_runner &run = run_gnuplot);

// The text of a plot's title and time axis label, from the window's first and
// last time (exposed for tests).
std::string plot_title(const plot_source &source, double first, double last, long size);
std::string plot_time_label(double first, double last);
