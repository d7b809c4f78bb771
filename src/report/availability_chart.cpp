// The availability chart (see availability_chart.h).
#include "availability_chart.h"

#include <algorithm>
#include <cmath>

#include "html_text.h"
#include "time_axis.h"

namespace report {

namespace {

constexpr int AXIS_HEIGHT = 34;
constexpr int BAR_TOP = 3;
constexpr int BAR_HEIGHT = 11;
constexpr int MARK_TOP = 15;
constexpr int MARK_HEIGHT = 3;

std::string rect(int x, int y, int w, int h, const char *cls) {
    return "<rect class=\"" + std::string(cls) + "\" x=\"" + std::to_string(x) + "\" y=\"" + std::to_string(y) +
           "\" width=\"" + std::to_string(w) + "\" height=\"" + std::to_string(h) + "\"/>";
}

// The pixel column of a time, unclamped.
double x_of(int64_t t, const chart_frame &f) {
    return static_cast<double>(t - f.t0) / static_cast<double>(f.t1 - f.t0) * f.width;
}

std::string row_svg(const chart_row &row, int y, const chart_frame &f) {
    std::string out = "<g data-channel=\"" + html_escape(row.id) + "\" transform=\"translate(0," +
                      std::to_string(y) + ")\">";
    out += "<text class=\"label\" x=\"" + std::to_string(CHART_LABEL_WIDTH - 8) + "\" y=\"13\">" +
           html_escape(row.id) + "</text>";
    for (const column_run &r : level_runs(row.view.levels)) {
        if (r.level == column_level::empty) continue;
        out += rect(CHART_LABEL_WIDTH + r.begin, BAR_TOP, r.end - r.begin, BAR_HEIGHT,
                    r.level == column_level::full ? "full" : "part");
    }
    for (const column_run &r : mark_runs(row.view.gap_marks))
        out += rect(CHART_LABEL_WIDTH + r.begin, MARK_TOP, r.end - r.begin, MARK_HEIGHT, "gap");
    // At most one link starts in a pixel column (the earliest picture's):
    // tens of thousands of recordings' pictures would not fit apart anyway,
    // and the row stays as small as the chart is wide.
    std::vector<picture_link> pictures = row.pictures;
    std::stable_sort(pictures.begin(), pictures.end(),
                     [](const picture_link &a, const picture_link &b) { return a.first < b.first; });
    int taken = -1;
    for (const picture_link &p : pictures) {
        const double a = std::max(0.0, x_of(p.first, f)), b = std::min<double>(f.width, x_of(p.last, f));
        if (b < 0.0 || a > f.width) continue;
        const int x = static_cast<int>(std::floor(a));
        if (x <= taken) continue;
        taken = x;
        const int w = std::max(1, static_cast<int>(std::ceil(b)) - x);
        out += "<a href=\"" + html_escape(url_path(p.href)) + "\"><title>" + html_escape(p.title) + "</title>" +
               rect(CHART_LABEL_WIDTH + x, 1, w, CHART_ROW_HEIGHT - 2, "pic") + "</a>";
    }
    out += "</g>\n";
    return out;
}

std::string axis_svg(int y, const chart_frame &f) {
    std::string out = "<g class=\"axis\" transform=\"translate(0," + std::to_string(y) + ")\">";
    out += "<line x1=\"" + std::to_string(CHART_LABEL_WIDTH) + "\" x2=\"" + std::to_string(CHART_LABEL_WIDTH + f.width) +
           "\" y1=\"0\" y2=\"0\"/>";
    const std::vector<axis_tick> ticks = time_ticks(f.t0, f.t1, std::max(2, f.width / 110));
    for (const axis_tick &t : ticks) {
        const int x = CHART_LABEL_WIDTH + static_cast<int>(std::lround(x_of(t.t, f)));
        out += "<line x1=\"" + std::to_string(x) + "\" x2=\"" + std::to_string(x) + "\" y1=\"0\" y2=\"5\"/>";
        out += "<text x=\"" + std::to_string(x) + "\" y=\"18\">" + html_escape(t.label) + "</text>";
    }
    out += "<text class=\"utc\" x=\"" + std::to_string(CHART_LABEL_WIDTH - 70) + "\" y=\"18\">UTC</text>";
    out += "</g>\n";
    return out;
}

} // namespace

std::string availability_svg(const std::vector<chart_row> &rows, const chart_frame &frame) {
    const int height = static_cast<int>(rows.size()) * CHART_ROW_HEIGHT + AXIS_HEIGHT;
    const int width = CHART_LABEL_WIDTH + frame.width + 70;
    std::string out = "<svg class=\"chart\" width=\"" + std::to_string(width) +
                      "\" height=\"" + std::to_string(height) + "\" viewBox=\"0 0 " + std::to_string(width) + " " +
                      std::to_string(height) + "\" role=\"img\" aria-label=\"availability per channel\">\n";
    int y = 0;
    for (const chart_row &row : rows) {
        out += row_svg(row, y, frame);
        y += CHART_ROW_HEIGHT;
    }
    if (frame.t1 > frame.t0) out += axis_svg(y + 2, frame);
    out += "</svg>\n";
    return out;
}

} // namespace report
