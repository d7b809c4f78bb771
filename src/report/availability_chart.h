// The availability chart: inline SVG, one row per channel over the archive's
// whole time span, drawn per pixel column (see pixel_columns.h), with a UTC
// time axis. Each row is a <g data-channel="NET.STA.LOC.CHAN">, the only
// element of the chart that carries data-channel; its pictures are links
// (transparent boxes over their time) to plain relative paths, at most one
// starting in each pixel column.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "pixel_columns.h"
#include "report_model.h"

namespace report {

struct chart_row {
    std::string id; // NET.STA.LOC.CHAN
    column_view view;
    std::vector<picture_link> pictures;
};

struct chart_frame {
    int64_t t0 = 0, t1 = 0; // the time range drawn, Unix microseconds
    int width = 1000;       // pixel columns
};

inline constexpr int CHART_LABEL_WIDTH = 170;
inline constexpr int CHART_ROW_HEIGHT = 20;

std::string availability_svg(const std::vector<chart_row> &rows, const chart_frame &frame);

} // namespace report
