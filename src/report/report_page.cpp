// The report page (see report_page.h).
#include "report_page.h"

#include <algorithm>
#include <set>

#include "availability_chart.h"
#include "channel_gaps.h"
#include "gap_lists.h"
#include "html_text.h"
#include "report_time.h"

namespace report {

namespace {

constexpr int CHART_WIDTH = 1000;

const char STYLE[] = R"(body{font-family:sans-serif;margin:1.5em;color:#222;max-width:1300px}
h1{font-size:1.5em}h2{font-size:1.2em;margin-top:1.6em;border-bottom:1px solid #ccc}
table{border-collapse:collapse;margin:.5em 0}td,th{padding:2px 8px;text-align:left;border-bottom:1px solid #eee}
th{background:#f3f3f3}td.n{text-align:right}
svg.chart text{font-size:11px;font-family:monospace}svg.chart text.label,svg.chart text.utc{text-anchor:end}
svg.chart .axis text{text-anchor:middle}svg.chart .axis line{stroke:#555}
.full{fill:#2b7a3d}.part{fill:#9ccf7a}.gap{fill:#c62828}.pic{fill:#1565c0;fill-opacity:0}
a:hover .pic{fill-opacity:.25}.legend span{display:inline-block;width:12px;height:10px;margin:0 4px 0 12px}
.warning{color:#8a4b00}code{font-size:.95em}details{margin:.3em 0}
)";

std::string cell(const std::string &text, bool number = false) {
    return std::string(number ? "<td class=\"n\">" : "<td>") + text + "</td>";
}

std::string when_text(int64_t seconds) {
    return seconds == 0 ? "unknown" : minute_text(seconds * 1000000) + " UTC";
}

std::string options_text(const std::vector<std::string> &options) {
    if (options.empty()) return "(none)";
    std::string out;
    for (const std::string &o : options) out += (out.empty() ? "" : " ") + o;
    return "<code>" + html_escape(out) + "</code>";
}

struct examined {
    const channel_data *channel;
    channel_findings found;
};

std::string run_section(const archive &a, const std::vector<examined> &channels) {
    std::string out = "<h2 id=\"run\">Run</h2>\n<table class=\"runs\"><tr><th>SOURCE</th><th>mode</th>"
                      "<th>brantel options</th><th>last run ended</th><th>converted</th><th>failed</th>"
                      "<th>skipped</th></tr>\n";
    long converted = 0, failed = 0, skipped = 0;
    for (const source_run &s : a.sources) {
        out += "<tr>" + cell("<code>" + html_escape(s.source) + "</code>") + cell(html_escape(s.mode)) +
               cell(options_text(s.options)) + cell(when_text(s.ended)) + cell(std::to_string(s.converted), true) +
               cell(std::to_string(s.failed), true) + cell(std::to_string(s.skipped), true) + "</tr>\n";
        converted += s.converted;
        failed += s.failed;
        skipped += s.skipped;
    }
    out += "</table>\n";
    std::set<int64_t> days;
    uint64_t samples = 0;
    for (const examined &e : channels) {
        samples += e.channel->samples;
        for (const stretch &s : e.found.covered)
            for (int64_t d = utc_day(s.first), last = utc_day(s.last); d <= last; ++d) days.insert(d);
    }
    out += "<table class=\"totals\">";
    const auto row = [&](const std::string &what, uint64_t n) {
        out += "<tr><th>" + what + "</th>" + cell(count_text(n), true) + "</tr>";
    };
    row("recordings converted", static_cast<uint64_t>(converted));
    row("recordings failed", static_cast<uint64_t>(failed));
    row("files skipped", static_cast<uint64_t>(skipped));
    row("recordings drawn", static_cast<uint64_t>(a.recordings));
    row("channels", channels.size());
    row("days with samples", days.size());
    if (a.sds) row("day files", static_cast<uint64_t>(a.day_files));
    row("samples", samples);
    out += "</table>\n";
    return out;
}

std::string availability_section(const std::vector<examined> &channels) {
    std::string out = "<h2 id=\"availability\">Availability</h2>\n";
    int64_t t0 = 0, t1 = 0;
    bool any = false;
    for (const examined &e : channels)
        for (const stretch &s : e.found.covered) {
            const int64_t end = s.last + interval_us(s.rate);
            t0 = any ? std::min(t0, s.first) : s.first;
            t1 = any ? std::max(t1, end) : end;
            any = true;
        }
    if (!any) return out + "<p>No samples in OUTPUT yet.</p>\n";
    const chart_frame frame{t0, t1, CHART_WIDTH};
    std::vector<chart_row> rows;
    for (const examined &e : channels)
        rows.push_back({e.channel->codes.id(), pixel_columns(e.found, t0, t1, CHART_WIDTH), e.channel->pictures});
    out += "<p class=\"legend\">From " + hook_time(t0) + " to " + hook_time(t1) + "; one pixel column is " +
           seconds_text((t1 - t0) / CHART_WIDTH / 1000) +
           ".<span class=\"full\" style=\"background:#2b7a3d\"></span>samples over the whole column"
           "<span style=\"background:#9ccf7a\"></span>over part of it"
           "<span style=\"background:#c62828\"></span>a gap in the column."
           " A picture's time is a link to it.</p>\n";
    out += availability_svg(rows, frame);
    return out;
}

std::string settings_text(const channel_setting &s) {
    return number_text(s.rate) + " Hz, gain " + number_text(s.gain) + ", " + number_text(s.volts_per_count) +
           " V/count";
}

std::string gaps_section(const archive &a, const std::vector<examined> &channels, report_files &files) {
    std::string out = "<h2 id=\"gaps\">Gaps</h2>\n<p>Gaps longer than 1.5 sample intervals: from the last "
                      "sample before the gap to the first after it.</p>\n"
                      "<table class=\"channels\"><tr><th>channel</th><th>rate (Hz)</th><th>first sample</th>"
                      "<th>last sample</th><th>samples</th><th>gaps</th><th>longest gap</th><th>overlaps</th></tr>\n";
    std::vector<gap_table> tables;
    for (std::size_t i = 0; i < channels.size(); ++i) {
        const examined &e = channels[i];
        std::set<double> rates;
        for (const channel_setting &s : e.channel->settings) rates.insert(s.rate);
        std::string rate_list;
        for (double r : rates) rate_list += (rate_list.empty() ? "" : ", ") + number_text(r);
        int64_t longest = 0;
        for (const gap &g : e.found.gaps)
            longest = std::max(longest, milliseconds_of(g.end) - milliseconds_of(g.start));
        const bool any = !e.found.covered.empty();
        out += "<tr>" + cell("<code>" + html_escape(e.channel->codes.id()) + "</code>") + cell(rate_list) +
               cell(any ? hook_time(e.found.covered.front().first) : "") +
               cell(any ? hook_time(e.found.covered.back().last) : "") + cell(count_text(e.channel->samples), true) +
               cell(count_text(e.found.gaps.size()), true) +
               cell(e.found.gaps.empty() ? "" : seconds_text(longest), true) +
               cell(count_text(e.found.overlaps.size()), true) + "</tr>\n";
        if (!e.found.gaps.empty())
            tables.push_back({"gaps-" + std::to_string(i), e.channel->codes.id(), e.found.gaps});
    }
    out += "</table>\n";
    std::size_t total = 0;
    for (const gap_table &t : tables) total += t.gaps.size();
    files.gaps = total;
    const bool compact = total > INLINE_GAPS;
    for (const gap_table &t : tables) {
        out += "<details class=\"gaplist\"><summary><code>" + html_escape(t.channel) + "</code>: " +
               count_text(t.gaps.size()) + (t.gaps.size() == 1 ? " gap" : " gaps") +
               "</summary>\n<table><thead><tr><th>last sample before</th><th>first sample after</th><th>length</th>"
               "</tr></thead><tbody id=\"" + t.body_id + "\">\n" + (compact ? "" : gap_rows(t)) +
               "</tbody></table></details>\n";
    }
    if (compact) {
        out += "<noscript><p>The " + count_text(total) +
               " gaps are listed by report/gaps.js, which needs scripts enabled.</p></noscript>\n";
        files.gaps_js = gap_data_script(tables);
        files.report_js = gap_rows_script();
    }

    out += "<h3>Overlaps and conflicts</h3>\n";
    std::string rows;
    for (const examined &e : channels)
        for (const overlap &o : e.found.overlaps)
            rows += "<tr>" + cell("<code>" + html_escape(e.channel->codes.id()) + "</code>") + cell(hook_time(o.first)) +
                    cell(hook_time(o.last)) + cell("samples held by more than one recording (kept once)") + "</tr>\n";
    for (const failed_file &f : a.failures)
        if (f.message.find("conflict") != std::string::npos)
            rows += "<tr>" + cell("<code>" + html_escape(f.path) + "</code>") + cell("") + cell("") +
                    cell(html_escape(f.message)) + "</tr>\n";
    out += rows.empty() ? "<p>None.</p>\n"
                        : "<table class=\"overlaps\"><tr><th>channel or recording</th><th>first</th><th>last</th>"
                          "<th>what</th></tr>\n" + rows + "</table>\n";

    out += "<h3>Rate and gain changes</h3>\n";
    rows.clear();
    for (const examined &e : channels)
        for (const setting_change &c : e.found.changes)
            rows += "<tr>" + cell("<code>" + html_escape(e.channel->codes.id()) + "</code>") +
                    cell(hook_time(c.after.time)) + cell(html_escape(settings_text(c.before))) +
                    cell(html_escape(settings_text(c.after))) + cell("<code>" + html_escape(c.after.recording) + "</code>") +
                    "</tr>\n";
    out += rows.empty() ? "<p>None.</p>\n"
                        : "<table class=\"changes\"><tr><th>channel</th><th>from</th><th>before</th><th>after</th>"
                          "<th>recording</th></tr>\n" + rows + "</table>\n";
    return out;
}

std::string failures_section(const archive &a) {
    std::string out = "<h2 id=\"failures\">Failures</h2>\n";
    if (a.failures.empty()) {
        out += "<p>None.</p>\n";
    } else {
        out += "<ul class=\"failures\">\n";
        for (const failed_file &f : a.failures)
            out += "<li data-failed=\"" + html_escape(f.path) + "\"><code>" + html_escape(f.path) + "</code>: " +
                   html_escape(f.message) + "</li>\n";
        out += "</ul>\n";
    }
    out += "<h3>Skipped: not recordings</h3>\n";
    if (a.skipped.empty()) return out + "<p>None.</p>\n";
    out += "<details><summary>" + count_text(a.skipped.size()) + (a.skipped.size() == 1 ? " file" : " files") +
           "</summary><ul class=\"skipped\">\n";
    for (const std::string &s : a.skipped) out += "<li><code>" + html_escape(s) + "</code></li>\n";
    return out + "</ul></details>\n";
}

std::string quicklooks_section(const archive &a) {
    std::string out = "<h2 id=\"quicklooks\">Quick-looks</h2>\n";
    if (!a.sds) {
        std::size_t n = 0;
        for (const auto &[id, c] : a.channels) n += c.pictures.size();
        return out + (n == 0 ? "<p>None: convert with <code>-- --plot</code> to draw them.</p>\n"
                             : "<p>The pictures that <code>--plot</code> drew beside the outputs are linked from "
                               "each recording's time in the chart.</p>\n");
    }
    if (a.quicklooks.empty()) return out + "<p>None: convert with <code>-- --plot</code> to draw them.</p>\n";
    out += "<p>One picture per recorder and UTC day; each is also linked from its day in the chart.</p>\n";
    for (const auto &[recorder, days] : a.quicklooks) {
        out += "<details><summary><code>" + html_escape(recorder) + "</code>: " + count_text(days.size()) +
               (days.size() == 1 ? " day" : " days") + "</summary><p class=\"days\">";
        for (const auto &[day, href] : days)
            out += "<a href=\"" + html_escape(url_path(href)) + "\">" + day_text(day) + "</a> ";
        out += "</p></details>\n";
    }
    return out;
}

std::string problems_section(const archive &a) {
    if (a.problems.empty()) return "";
    std::string out = "<h2 id=\"problems\">Problems in the bookkeeping</h2>\n<ul class=\"warning\">\n";
    for (const std::string &p : a.problems) out += "<li>" + html_escape(p) + "</li>\n";
    return out + "</ul>\n";
}

} // namespace

report_files build_report(const archive &a) {
    report_files files;
    std::vector<examined> channels;
    for (const auto &[id, c] : a.channels) channels.push_back({&c, examine_channel(c)});
    files.channels = channels.size();
    std::string body = run_section(a, channels) + availability_section(channels);
    body += gaps_section(a, channels, files);
    body += failures_section(a) + quicklooks_section(a) + problems_section(a);
    std::string page = "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                       "<title>Archive report: " + html_escape(a.output) + "</title>\n<style>\n" + STYLE +
                       "</style>\n</head>\n<body>\n<h1>Archive report</h1>\n<p>" +
                       (a.sds ? "SDS tree " : "Mirror ") + "<code>" + html_escape(a.output) + "</code></p>\n" + body;
    if (!files.gaps_js.empty())
        page += "<script src=\"report/gaps.js\"></script>\n<script src=\"report/report.js\"></script>\n";
    page += "</body>\n</html>\n";
    files.index_html = std::move(page);
    return files;
}

} // namespace report
