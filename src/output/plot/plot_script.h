// The gnuplot script of a quick-look picture: a PNG of PLOT_WIDTH x
// PLOT_HEIGHT pixels (terminal pngcairo, written to gnuplot's standard
// output), a title line, and one panel per channel stacked over one time axis
// in UTC. The traces travel inside the script as data blocks; a blank line in
// a block is a break in the line.
#pragma once

#include <string>
#include <vector>

#include "plot_envelope.h"

constexpr int PLOT_WIDTH = 1600;
constexpr int PLOT_HEIGHT = 900;

// The pixel columns of the plot area, the resolution of the traces.
int plot_columns();

struct plot_panel {
    std::string label; // the y axis label
    plot_trace trace;  // no runs: the panel says "no samples"
};

struct plot_page {
    std::string title;
    std::string xlabel; // below the time axis
    double t0 = 0.0;    // the time axis, Unix seconds; t1 > t0
    double t1 = 1.0;
    std::vector<plot_panel> panels;
};

std::string gnuplot_script(const plot_page &page);
