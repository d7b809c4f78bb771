// The report page's hooks in their exact forms, its time texts, and the
// compact gap lists that a script turns into the same rows.
#include <gtest/gtest.h>

#include "report_test_support.h"

#include "gap_lists.h"
#include "html_text.h"
#include "report_page.h"
#include "report_time.h"

using namespace report;

namespace {

constexpr int64_t S = 1000000;
constexpr int64_t DAY = 1462320000LL * S; // 2016-05-04T00:00:00Z

archive small_archive() {
    archive a;
    a.sds = true;
    a.output = "/data/sds";
    a.sources.push_back({"/data/src", "sds", {"--quiet"}, 0, 2, 1, 1});
    for (const char *station : {"REA1", "REA2"}) {
        channel_data c;
        c.codes = {"XX", station, "", "BDF"};
        c.stretches = {{DAY, DAY + 1791 * S + 950000, 20.0}, {DAY + 1800 * S, DAY + 3591 * S + 950000, 20.0}};
        c.settings = {{DAY, 20.0, 1.0, 10.0, "a.vx24"}, {DAY + 1800 * S, 20.0, 2.0, 10.0, "b.vx24"}};
        c.samples = 71680;
        a.channels[c.codes.id()] = c;
    }
    a.failures.push_back({"vx24/arvola/2017/07/16/arvola_20170716_000000.vx24", "Error: \"x\" is damaged"});
    a.skipped.push_back("README.txt");
    a.recordings = 2;
    return a;
}

} // namespace

TEST(ReportTime, HookForm) {
    EXPECT_EQ(hook_time(DAY + (22 * 3600 + 29 * 60 + 52) * S), "2016-05-04T22:29:52.000Z");
    EXPECT_EQ(hook_time(DAY + 1791 * S + 950999), "2016-05-04T00:29:51.950Z");
    EXPECT_EQ(hook_time(-1), "1969-12-31T23:59:59.999Z");
    EXPECT_EQ(milliseconds_of(-1), -1);
    EXPECT_EQ(seconds_text(8050), "8.050 s");
    EXPECT_EQ(seconds_text(0), "0.000 s");
    EXPECT_EQ(seconds_text(86400000), "86400.000 s");
    EXPECT_EQ(minute_text(DAY + 3599 * S), "2016-05-04 00:59");
}

TEST(ReportTime, CalendarBothWays) {
    EXPECT_EQ(days_of({1970, 1, 1}), 0);
    EXPECT_EQ(days_of({2016, 5, 4}), 16925);
    EXPECT_EQ(days_of({2000, 3, 1}), 11017);
    EXPECT_EQ(day_text(-1), "1969-12-31");
    for (int64_t d = -800000; d < 800000; d += 997) {
        const civil_date c = date_of(d);
        EXPECT_EQ(days_of(c), d);
    }
    EXPECT_EQ(utc_day(-1), -1);
}

TEST(ReportHooks, GapRowsInTheirExactForm) {
    const gap_table t{"gaps-0", "XX.REA1..BDF", {{DAY + 1791 * S + 950000, DAY + 1800 * S}}};
    EXPECT_EQ(gap_rows(t), "<tr data-channel=\"XX.REA1..BDF\" data-gap-start=\"2016-05-04T00:29:51.950Z\" "
                           "data-gap-end=\"2016-05-04T00:30:00.000Z\"><td>2016-05-04T00:29:51.950Z</td>"
                           "<td>2016-05-04T00:30:00.000Z</td><td>8.050 s</td></tr>\n");
}

TEST(ReportHooks, CompactGapData) {
    const std::vector<gap_table> tables{
        {"gaps-0", "XX.REA1..BDF", {{1000 * S, 1008 * S}, {2000 * S + 500, 2030 * S}}},
        {"gaps-3", "XX.RCA1.00.BDF", {{5 * S, 6 * S}}},
    };
    // First gap absolute; then from the end of the one before; each with its length, in ms.
    EXPECT_EQ(gap_data_script(tables), "var brantelGaps = [\n"
                                       "[\"gaps-0\",\"XX.REA1..BDF\",[1000000,8000,992000,30000]],\n"
                                       "[\"gaps-3\",\"XX.RCA1.00.BDF\",[5000,1000]],\n"
                                       "];\n");
    const std::string script = gap_rows_script();
    EXPECT_EQ(count_of(script, "console"), 0u);
    EXPECT_EQ(count_of(script, "fetch"), 0u);
    EXPECT_EQ(count_of(script, "data-gap-start"), 1u);
}

TEST(ReportHooks, PageHooks) {
    const report_files files = build_report(small_archive());
    const std::string &page = files.index_html;
    // One row per channel, and one element per gap: nothing else carries data-channel.
    EXPECT_EQ(count_of(page, "data-channel="), 4u);
    EXPECT_EQ(count_of(page, "<g data-channel=\"XX.REA1..BDF\""), 1u);
    EXPECT_EQ(count_of(page, "<g data-channel=\"XX.REA2..BDF\""), 1u);
    EXPECT_EQ(count_of(page, "<tr data-channel=\"XX.REA2..BDF\" data-gap-start=\"2016-05-04T00:29:51.950Z\" "
                             "data-gap-end=\"2016-05-04T00:30:00.000Z\">"),
              1u);
    EXPECT_EQ(count_of(page, "<li data-failed=\"vx24/arvola/2017/07/16/arvola_20170716_000000.vx24\">"), 1u);
    EXPECT_EQ(count_of(page, "Error: &quot;x&quot; is damaged"), 1u);
    // The gain change with its time.
    EXPECT_EQ(count_of(page, "<td>2016-05-04T00:30:00.000Z</td><td>20 Hz, gain 1, 10 V/count</td>"
                             "<td>20 Hz, gain 2, 10 V/count</td>"),
              2u);
    // Nothing from elsewhere, no script for a small archive.
    EXPECT_EQ(count_of(page, "http"), 0u);
    EXPECT_EQ(count_of(page, "<script"), 0u);
    EXPECT_EQ(count_of(page, "<svg"), 1u);
    EXPECT_TRUE(files.gaps_js.empty());
    EXPECT_EQ(files.gaps, 2u);
}

TEST(ReportHooks, LongGapListsGoToCompactData) {
    archive a = small_archive();
    channel_data &c = a.channels["XX.REA1..BDF"];
    c.stretches.clear();
    for (int64_t i = 0; i <= static_cast<int64_t>(INLINE_GAPS); ++i)
        c.stretches.push_back({DAY + i * 10 * S, DAY + i * 10 * S + 5 * S, 20.0});
    const report_files files = build_report(a);
    EXPECT_EQ(files.gaps, INLINE_GAPS + 1);
    EXPECT_EQ(count_of(files.index_html, "data-gap-start"), 0u);
    EXPECT_EQ(count_of(files.index_html, "data-channel="), 2u);
    EXPECT_EQ(count_of(files.index_html, "<script src=\"report/gaps.js\"></script>\n"
                                         "<script src=\"report/report.js\"></script>\n"),
              1u);
    EXPECT_EQ(count_of(files.index_html, "<tbody id=\"gaps-0\">"), 1u);
    EXPECT_EQ(files.gaps_js.rfind("var brantelGaps = [\n[\"gaps-0\",\"XX.REA1..BDF\",[1462320005000,5000,5000,5000,", 0), 0u);
    EXPECT_EQ(files.report_js, gap_rows_script());
}

TEST(ReportHooks, EscapedText) {
    EXPECT_EQ(html_escape("a<b>&\"c'"), "a&lt;b&gt;&amp;&quot;c&#39;");
    EXPECT_EQ(url_path("2016/05/day's t #1.png"), "2016/05/day%27s%20t%20%231.png");
    EXPECT_EQ(count_text(1234567), "1 234 567");
    EXPECT_EQ(count_text(12), "12");
}
