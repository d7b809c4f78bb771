// The availability chart: per pixel column, and its SVG rows.
#include <gtest/gtest.h>

#include "report_test_support.h"

#include "availability_chart.h"
#include "pixel_columns.h"
#include "time_axis.h"

using namespace report;

namespace {

constexpr int64_t S = 1000000;

channel_findings covered_by(std::vector<stretch> covered, std::vector<gap> gaps = {}) {
    channel_findings f;
    f.covered = std::move(covered);
    f.gaps = std::move(gaps);
    return f;
}

std::string levels_text(const column_view &v) {
    std::string out;
    for (column_level l : v.levels) out += l == column_level::full ? '#' : l == column_level::partial ? '+' : '.';
    out += '|';
    for (bool m : v.gap_marks) out += m ? 'x' : '.';
    return out;
}

} // namespace

TEST(ReportChart, OneValuePerPixelColumn) {
    // Ten columns of 10 s at 1 Hz: samples 0..29 s cover 0-30 s; 35..54 s
    // cover 35-55 s; a gap from 29 to 35 s.
    const channel_findings f = covered_by({{0, 29 * S, 1.0}, {35 * S, 54 * S, 1.0}}, {{29 * S, 35 * S}});
    EXPECT_EQ(levels_text(pixel_columns(f, 0, 100 * S, 10)), "###+#+....|..xx......");
}

TEST(ReportChart, ShortGapsInLongColumnsAreMarked) {
    // A day in 4 columns of 6 h: an 8 s gap leaves the column full, and marked.
    const channel_findings f = covered_by({{0, 36000 * S, 20.0}, {36008 * S, 86400 * S - 50000, 20.0}},
                                          {{36000 * S, 36008 * S}});
    EXPECT_EQ(levels_text(pixel_columns(f, 0, 86400 * S, 4)), "####|.x..");
}

TEST(ReportChart, ManyStretchesFewRuns) {
    // 20 000 recordings of 1 s back to back: one run of columns.
    channel_findings f;
    for (int64_t i = 0; i < 20000; ++i) f.covered.push_back({i * S, i * S, 1.0});
    const column_view v = pixel_columns(f, 0, 20000 * S, 500);
    const std::vector<column_run> runs = level_runs(v.levels);
    ASSERT_EQ(runs.size(), 1u);
    EXPECT_EQ(runs[0].begin, 0);
    EXPECT_EQ(runs[0].end, 500);
    EXPECT_EQ(runs[0].level, column_level::full);
    EXPECT_TRUE(mark_runs(v.gap_marks).empty());
}

TEST(ReportChart, RowsCarryTheChannelHookAndNothingElseDoes) {
    const channel_findings f = covered_by({{0, 49 * S, 1.0}, {60 * S, 99 * S, 1.0}}, {{49 * S, 60 * S}});
    std::vector<chart_row> rows{
        {"XX.REA1..BDF", pixel_columns(f, 0, 100 * S, 10), {{0, 10 * S, "report/quicklooks/XX.REA1./2016-05-04.png", "day"}}},
        {"XX.REA2.00.BDF", pixel_columns(f, 0, 100 * S, 10), {}},
    };
    const std::string svg = availability_svg(rows, {0, 100 * S, 10});
    EXPECT_EQ(count_of(svg, "data-channel="), 2u);
    EXPECT_EQ(count_of(svg, "<g data-channel=\"XX.REA1..BDF\" transform=\"translate(0,0)\">"), 1u);
    EXPECT_EQ(count_of(svg, "<g data-channel=\"XX.REA2.00.BDF\" transform=\"translate(0,20)\">"), 1u);
    // Per row: columns 0-4 full, column 5 empty, 6-9 full; one gap mark.
    EXPECT_EQ(count_of(svg, "<rect class=\"full\" x=\"170\" y=\"3\" width=\"5\" height=\"11\"/>"), 2u);
    EXPECT_EQ(count_of(svg, "<rect class=\"full\" x=\"176\" y=\"3\" width=\"4\" height=\"11\"/>"), 2u);
    EXPECT_EQ(count_of(svg, "<rect class=\"gap\" x=\"174\" y=\"15\" width=\"3\" height=\"3\"/>"), 2u);
    EXPECT_EQ(count_of(svg, "<a href=\"report/quicklooks/XX.REA1./2016-05-04.png\"><title>day</title>"
                            "<rect class=\"pic\" x=\"170\" y=\"1\" width=\"1\" height=\"18\"/></a>"),
              1u);
    EXPECT_EQ(count_of(svg, "http"), 0u);
}

TEST(ReportChart, AtMostOneLinkStartsInAPixelColumn) {
    // Ten columns of 10 s; pictures every 4 s: those starting in columns
    // already taken are left out.
    chart_row row{"XX.REA1..BDF", pixel_columns(channel_findings{}, 0, 100 * S, 10), {}};
    for (int64_t t = 96; t >= 0; t -= 4)
        row.pictures.push_back({t * S, t * S + 3 * S, "p" + std::to_string(t) + ".png", "p"});
    const std::string svg = availability_svg({row}, {0, 100 * S, 10});
    EXPECT_EQ(count_of(svg, "<a href="), 10u);
    EXPECT_EQ(count_of(svg, "<a href=\"p0.png\">"), 1u);
    EXPECT_EQ(count_of(svg, "<a href=\"p4.png\">"), 0u);
    EXPECT_EQ(count_of(svg, "<a href=\"p12.png\">"), 1u);
    EXPECT_EQ(count_of(svg, "<a href=\"p92.png\">"), 1u);
}

TEST(ReportChart, TimeAxisInUtc) {
    const int64_t day = 1462320000LL * S; // 2016-05-04
    const std::vector<axis_tick> hours = time_ticks(day, day + 3 * 3600 * S, 8);
    ASSERT_EQ(hours.size(), 7u);
    EXPECT_EQ(hours[0].label, "2016-05-04 00:00");
    EXPECT_EQ(hours[1].label, "2016-05-04 00:30");
    const std::vector<axis_tick> year = time_ticks(day, day + 366 * 86400 * S, 9);
    ASSERT_EQ(year.size(), 6u);
    EXPECT_EQ(year[0].label, "2016-07");
    EXPECT_EQ(year[0].t, 1467331200LL * S);
    EXPECT_EQ(year[5].label, "2017-05");
    const std::vector<axis_tick> years = time_ticks(day, day + 3650 * 86400 * S, 8);
    ASSERT_FALSE(years.empty());
    EXPECT_EQ(years[0].label, "2018");
}
