// The gap lists (see gap_lists.h).
#include "gap_lists.h"

#include "html_text.h"
#include "report_time.h"

namespace report {

std::string gap_rows(const gap_table &table) {
    const std::string channel = html_escape(table.channel);
    std::string out;
    for (const gap &g : table.gaps) {
        const std::string start = hook_time(g.start), end = hook_time(g.end);
        out += "<tr data-channel=\"" + channel + "\" data-gap-start=\"" + start + "\" data-gap-end=\"" + end +
               "\"><td>" + start + "</td><td>" + end + "</td><td>" +
               seconds_text(milliseconds_of(g.end) - milliseconds_of(g.start)) + "</td></tr>\n";
    }
    return out;
}

std::string gap_data_script(const std::vector<gap_table> &tables) {
    std::string out = "var brantelGaps = [\n";
    for (const gap_table &t : tables) {
        // Codes and ids are letters, digits and dots; escaped all the same
        // for a string in double quotes.
        out += "[\"" + t.body_id + "\",\"";
        for (char c : t.channel) {
            if (c == '"' || c == '\\') out += '\\';
            if (static_cast<unsigned char>(c) >= 0x20) out += c;
        }
        out += "\",[";
        int64_t before = 0;
        bool first = true;
        for (const gap &g : t.gaps) {
            const int64_t start = milliseconds_of(g.start), end = milliseconds_of(g.end);
            if (!first) out += ',';
            out += std::to_string(first ? start : start - before);
            out += ',';
            out += std::to_string(end - start);
            before = end;
            first = false;
        }
        out += "]],\n";
    }
    out += "];\n";
    return out;
}

std::string gap_rows_script() {
    return R"(// Turns the compact gap lists of gaps.js into the rows of the page's gap
// tables, one row per gap with its hooks.
(function () {
  "use strict";
  var data = window.brantelGaps;
  if (!data) return;
  function esc(s) {
    return s.replace(/&/g, "&amp;").replace(/</g, "&lt;").replace(/>/g, "&gt;")
      .replace(/"/g, "&quot;").replace(/'/g, "&#39;");
  }
  for (var i = 0; i < data.length; i++) {
    var body = document.getElementById(data[i][0]);
    if (!body) continue;
    var channel = esc(data[i][1]), g = data[i][2], rows = [], end = 0;
    for (var j = 0; j + 1 < g.length; j += 2) {
      var start = j === 0 ? g[0] : end + g[j];
      end = start + g[j + 1];
      var a = new Date(start).toISOString(), b = new Date(end).toISOString();
      rows.push("<tr data-channel=\"" + channel + "\" data-gap-start=\"" + a + "\" data-gap-end=\"" + b +
        "\"><td>" + a + "</td><td>" + b + "</td><td>" + (g[j + 1] / 1000).toFixed(3) + " s</td></tr>\n");
    }
    body.innerHTML = rows.join("");
  }
})();
)";
}

} // namespace report
