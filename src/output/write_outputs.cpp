// Dispatch of the windows to the writer of the chosen layout, with the output
// names of output_name.h.
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include "miniseed.h"
#include "output_name.h"
#include "run_state.h"
#include "series.h"
#include "time_format.h"
#include "writers.h"
#include "process_exit.h"

namespace {

namespace fs = std::filesystem;

// One output file to write: its path and the writer call that fills it.
struct write_job {
    fs::path path;
    std::function<void()> write;
};

// The files of one window, in the order they are written.
struct window_plan {
    long start_i;
    std::vector<write_job> jobs;
};

std::string snippet_suffix(long i) { return snippets > 1 ? std::string(1, static_cast<char>('a' + i)) : ""; }

// Series that a writer reads must reach the end of the window.
void check_series_length(const fs::path& first_input, long end) {
    for (size_t ch = 0; ch < data.size(); ++ch)
        if (static_cast<long>(data[ch].size()) < end) {
            exit_with_line("Error: channel " + std::to_string(ch) + " of \"" + first_input.string() + "\" holds " +
                           std::to_string(data[ch].size()) + " samples, fewer than the " + std::to_string(end) +
                           " of the time axis\n");
        }
}

// The mean of all series, entry by entry; series count in the divisor even
// when empty, and a short series adds only what it has.
series_t average_series() {
    series_t avg(static_cast<size_t>(samples), 0.0);
    for (const series_t& s : data) {
        size_t n = std::min(s.size(), avg.size());
        for (size_t i = 0; i < n; ++i) avg[i] += s[i];
    }
    const double count = static_cast<double>(data.size());
    for (double& v : avg) v /= count;
    return avg;
}

// An output must never replace one of the inputs (a TM4 input "rec.tm4" and
// the default four-column output "rec.tm4", say): refuse before writing.
void refuse_outputs_over_inputs(const std::vector<window_plan>& plan, const run_state& st) {
    for (const window_plan& w : plan)
        for (const write_job& job : w.jobs) {
            struct stat sb {};
            if (::stat(job.path.c_str(), &sb) != 0) continue;
            for (const auto& [dev, ino] : st.inputs)
                if (sb.st_dev == dev && sb.st_ino == ino)
                    exit_with_line("Error: output file \"" + job.path.string() + "\" is one of the input files\n");
        }
}

void print_debug_window(long start_i, long size) {
    if (debug) std::cerr << time_array[start_i] << " - " << time_array[start_i + size - 1] << "\n";
}

// The files of one window of the column layouts.
std::vector<write_job> column_jobs(const fs::path& first, const run_state& st, const series_t& avg, long start_i,
                                   const std::string& suffix) {
    const long len = snippet_length;
    const double stm = time_array[start_i];
    const double freq = st.freq;
    const char* comment = no_comment ? nullptr : st.comment;
    std::vector<write_job> jobs;
    auto per_channel = [&] {
        for (size_t ch = 0; ch < data.size(); ++ch) {
            fs::path p = output_name(first, "channel" + std::to_string(ch) + suffix);
            jobs.push_back({p, [=] { write_tm(p, data[ch], time_array, start_i, len, stm, freq, comment); }});
        }
    };
    auto one_file = [&](const std::string& ext, auto writer) {
        fs::path p = output_name(first, ext + suffix);
        jobs.push_back({p, [=] { writer(p, time_array, data, start_i, len, stm, freq, comment); }});
    };
    switch (output_type) {
    case OT_TWOCOLUMNS: per_channel(); break;
    case OT_FOURCOLUMNS: one_file("tm4", write_all); break;
    case OT_VXDAT: one_file("vxdat", write_vxdat); break;
    case OT_AVERAGE: {
        fs::path p = output_name(first, "avg" + suffix);
        jobs.push_back({p, [=, &avg] { write_tm(p, avg, time_array, start_i, len, stm, freq, comment); }});
        break;
    }
    case OT_AMPLITUDE: one_file("tm4", write_amplitude); break; // the same extension as four columns
    case OT_ONECOLUMN: {
        per_channel();
        fs::path p = output_name(first, "time" + suffix);
        jobs.push_back({p, [=] { write_time(p, time_array, start_i, len, stm, freq, comment); }});
        break;
    }
    default: break;
    }
    return jobs;
}

// The rate a TIMESERIES header states: the first file's, or with sample_times
// the series' true rate, which after upsampling is the upsampled one.
double header_rate(const run_state &st) {
    return sample_times && upsample > 0 ? st.freq * upsample : st.freq;
}

// The miniSEED ASCII layouts: one file per channel, one window only, headed
// by the format's own TIMESERIES line (written also without comments).
std::vector<write_job> miniseed_jobs(const fs::path& first, const run_state& st, long start_i) {
    const bool tspair = output_type == OT_TSPAIR;
    char start[160];
    strftime_us(start, sizeof start, "%Y-%m-%dT%H:%M:%S", time_array[start_i]);
    std::string net, sta, loc, chan;
    miniseed_name(st.station, &net, &sta, &loc, &chan);
    std::vector<write_job> jobs;
    for (size_t ch = 0; ch < data.size(); ++ch) {
        std::string series_name = net + "_" + sta + std::to_string(ch + 1) + "_" + loc + "_" + chan;
        char header[512];
        std::snprintf(header, sizeof header, "TIMESERIES %s, %ld samples, %f sps, %s, %s, INTEGER",
                      series_name.c_str(), snippet_length, header_rate(st), start,
                      tspair ? "TSPAIR" : "SLIST");
        std::string head = header;
        fs::path p = output_name(first, "channel" + std::to_string(ch) + (tspair ? ".tspair.ascii" : ".slist.ascii"));
        const long len = snippet_length;
        const double stm = time_array[start_i];
        const double freq = st.freq;
        jobs.push_back({p, [=] { write_tm(p, data[ch], time_array, start_i, len, stm, freq, head.c_str()); }});
    }
    return jobs;
}

} // namespace

void write_outputs(const std::vector<fs::path>& names, const run_state& st, long start_i) {
    const fs::path& first = names.front();
    const bool miniseed = output_type == OT_SLIST || output_type == OT_TSPAIR;
    series_t avg;
    if (output_type == OT_AVERAGE) avg = average_series();

    // Plan every window first, so that outputs can be checked before any is written.
    std::vector<window_plan> plan;
    long written = 0;
    bool stopped_early = false;
    if (miniseed) {
        plan.push_back({start_i, miniseed_jobs(first, st, start_i)});
    } else {
        for (long i = 0; i < snippets; ++i) {
            if (snippet_length > samples - start_i) {
                stopped_early = true;
                break;
            }
            plan.push_back({start_i, column_jobs(first, st, avg, start_i, snippet_suffix(i))});
            start_i += snippet_length;
            ++written;
        }
    }
    refuse_outputs_over_inputs(plan, st);
    if (output_type != OT_AVERAGE && !plan.empty()) check_series_length(first, plan.back().start_i + snippet_length);

    for (const window_plan& w : plan) {
        print_debug_window(w.start_i, snippet_length);
        for (const write_job& job : w.jobs) job.write();
    }
    if (stopped_early)
        std::cerr << "Warning: only " << written << " of " << snippets << " snippets produced\n";
}
