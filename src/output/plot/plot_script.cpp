#include "plot_script.h"

#include <cmath>
#include <string_view>

#include "number_format.h"

namespace {

// The plot area in screen fractions: room on the left for the value labels,
// at the top for the title, at the bottom for the time labels.
constexpr double LEFT = 0.075;
constexpr double RIGHT = 0.985;
constexpr double TOP = 0.94;
constexpr double BOTTOM = 0.08;
// Space between two panels, in screen fractions.
constexpr double PANEL_GAP = 0.02;

// Line colours of the panels, in turn.
const char *const COLOURS[] = {"#1f4e9c", "#b8401a", "#2a7d2e", "#7a3b9a",
                               "#a0780a", "#0f7f86", "#9c1f5a", "#4d4d4d"};

// Times as Unix seconds with microseconds, values in the trimmed form that
// keeps every digit of a whole count.
void put_time(std::string &out, double t) {
    char buffer[fixed_text_max(6)];
    out.append(buffer, format_fixed(buffer, t, 6));
}

void put_value(std::string &out, double y) {
    char buffer[FIXED6_TEXT_MAX];
    out.append(buffer, format_trimmed(buffer, y));
}

void put_point(std::string &out, const plot_point &p) {
    put_time(out, p.t);
    out += ' ';
    put_value(out, p.y);
    out += '\n';
}

void put_number(std::string &out, double v) {
    char buffer[SHORT_TEXT_MAX];
    out.append(buffer, format_g(buffer, v));
}

// A gnuplot single-quoted string: a quote is doubled, and control characters
// (which would end the command) become "?".
std::string quoted(std::string_view text) {
    std::string s = "'";
    for (char c : text) {
        if (c == '\'')
            s += "''";
        else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
            s += '?';
        else
            s += c;
    }
    return s + "'";
}

// The time labels: coarser for longer windows.
const char *time_label_format(double span) {
    if (span >= 2 * 86400.0) return "%m-%d %H:%M";
    if (span >= 600.0) return "%H:%M";
    if (span >= 10.0) return "%H:%M:%S";
    return "%H:%M:%.3S";
}

// The data blocks of one panel: $chN with the runs, separated by blank
// lines, and $chN_single with the points that stand alone between breaks
// (a line needs two points to show).
bool put_blocks(std::string &out, const plot_trace &trace, std::size_t n) {
    const std::string name = "$ch" + std::to_string(n);
    out += name + " << EOD\n";
    bool singles = false;
    for (const std::vector<plot_point> &run : trace) {
        singles = singles || run.size() == 1;
        for (const plot_point &p : run)
            put_point(out, p);
        out += '\n';
    }
    out += "EOD\n";
    if (!singles) return false;
    out += name + "_single << EOD\n";
    for (const std::vector<plot_point> &run : trace)
        if (run.size() == 1) put_point(out, run[0]);
    out += "EOD\n";
    return true;
}

void put_margin(std::string &out, const char *side, double at) {
    out += "set ";
    out += side;
    out += " at screen ";
    put_number(out, at);
    out += '\n';
}

void put_panel(std::string &out, const plot_panel &panel, std::size_t n, std::size_t count, bool singles,
               const std::string &time_format, const std::string &xlabel) {
    const double height = (TOP - BOTTOM) / static_cast<double>(count);
    const double top = TOP - height * static_cast<double>(n);
    put_margin(out, "tmargin", top);
    put_margin(out, "bmargin", top - height + PANEL_GAP);
    out += "set ylabel " + quoted(panel.label) + "\n";
    if (n + 1 == count)
        out += "set format x " + quoted(time_format) + " timedate\nset xlabel " + quoted(xlabel) + "\n";
    else
        out += "set format x ''\nunset xlabel\n";
    const std::string name = "$ch" + std::to_string(n);
    const std::string colour = quoted(COLOURS[n % (sizeof COLOURS / sizeof COLOURS[0])]);
    if (panel.trace.empty()) {
        out += "set yrange [-1:1]\nset label 1 'no samples' at graph 0.5, 0.5 center\nplot NaN notitle\n"
               "unset label 1\nset autoscale y\n";
        return;
    }
    out += "plot " + name + " using 1:2 with lines lw 1 lc rgb " + colour + " notitle";
    if (singles)
        out += ", " + name + "_single using 1:2 with points pt 7 ps 0.4 lc rgb " + colour + " notitle";
    out += '\n';
}

} // namespace

int plot_columns() {
    return static_cast<int>(std::lround((RIGHT - LEFT) * PLOT_WIDTH));
}

std::string gnuplot_script(const plot_page &page) {
    std::string out;
    out += "set terminal pngcairo size " + std::to_string(PLOT_WIDTH) + "," + std::to_string(PLOT_HEIGHT) +
           " noenhanced font 'sans,10'\nset output\n";
    std::vector<bool> singles;
    for (std::size_t n = 0; n < page.panels.size(); ++n)
        singles.push_back(put_blocks(out, page.panels[n].trace, n));

    out += "set multiplot title " + quoted(page.title) + " font 'sans,12'\n";
    put_margin(out, "lmargin", LEFT);
    put_margin(out, "rmargin", RIGHT);
    out += "set xrange [";
    put_time(out, page.t0);
    out += ':';
    put_time(out, page.t1);
    out += "]\nset grid xtics ytics lc rgb '#d8d8d8'\nset ytics nomirror\nset key off\n"
           // the value axis hugs the data, with a twentieth of room above and below
           "set autoscale yfix\nset offsets 0, 0, graph 0.05, graph 0.05\n";
    const std::string time_format = time_label_format(page.t1 - page.t0);
    for (std::size_t n = 0; n < page.panels.size(); ++n)
        put_panel(out, page.panels[n], n, page.panels.size(), singles[n], time_format, page.xlabel);
    out += "unset multiplot\n";
    return out;
}
