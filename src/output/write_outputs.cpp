// The table of layouts: for each layout the files of one window, named by
// output_name.h, and the writer that fills each; the windows are planned,
// checked and then handed to the writers.
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "conditioning.h"
#include "miniseed.h"
#include "mseed_codes.h"
#include "mseed_records.h"
#include "mseed_segments.h"
#include "output_name.h"
#include "process_exit.h"
#include "run_state.h"
#include "series.h"
#include "settings.h"
#include "time_format.h"
#include "write_plot.h"
#include "writers.h"

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

void print_debug_window(const TimeAxis &times, long start_i, long size) {
    if (debug)
        std::cerr << times[static_cast<std::size_t>(start_i)] << " - "
                  << times[static_cast<std::size_t>(start_i + size - 1)] << "\n";
}


// What a layout needs to plan the files of one window.
struct window_request {
    const fs::path &first; // the first input, after which every output is named
    const run_state &st;
    const series_t &avg; // the average series (average layout only)
    long start_i;
    std::string suffix; // the snippet letter, or empty
};

// The pieces every column layout passes to its writer.
struct column_args {
    long len;
    double stm;
    double freq;
    const char *comment;
};

column_args column_args_of(const window_request &w) {
    return {snippet_length, w.st.times[static_cast<std::size_t>(w.start_i)], w.st.freq,
            no_comment ? nullptr : w.st.comment};
}

// A layout of one file per window: write(path, start_i, args) fills it.
template <class Write>
std::vector<write_job> one_file_by(const window_request &w, const std::string &ext, Write write) {
    const column_args a = column_args_of(w);
    const long start_i = w.start_i;
    fs::path p = output_name(w.first, ext + w.suffix);
    return {{p, [=] { write(p, start_i, a); }}};
}

// A layout of one file per window written by one of the all-channel writers.
template <auto writer> std::vector<write_job> one_file(const window_request &w, const std::string &ext) {
    return one_file_by(w, ext, [](const fs::path &p, long start_i, const column_args &a) {
        writer(p, time_array, data, start_i, a.len, a.stm, a.freq, a.comment);
    });
}

std::vector<write_job> per_channel_jobs(const window_request &w) {
    const column_args a = column_args_of(w);
    const long start_i = w.start_i;
    std::vector<write_job> jobs;
    for (size_t ch = 0; ch < data.size(); ++ch) {
        fs::path p = output_name(w.first, "channel" + std::to_string(ch) + w.suffix);
        jobs.push_back(
            {p, [=] { write_tm(p, data[ch], time_array, start_i, a.len, a.stm, a.freq, a.comment); }});
    }
    return jobs;
}

std::vector<write_job> one_column_jobs(const window_request &w) {
    std::vector<write_job> jobs = per_channel_jobs(w);
    const column_args a = column_args_of(w);
    const long start_i = w.start_i;
    fs::path p = output_name(w.first, "time" + w.suffix);
    jobs.push_back({p, [=] { write_time(p, time_array, start_i, a.len, a.stm, a.freq, a.comment); }});
    return jobs;
}

std::vector<write_job> four_column_jobs(const window_request &w) {
    if (w.st.conditioned) {
        // The values are resampled and filtered as the rows are written.
        std::shared_ptr<const ConditionedChannels> channels = w.st.conditioned;
        const TimeAxis times = w.st.times;
        return one_file_by(w, "tm4", [channels, times](const fs::path &p, long start_i, const column_args &a) {
            write_all_conditioned(p, times, *channels, start_i, a.len, a.stm, a.freq, a.comment);
        });
    }
    if (!w.st.frames) return one_file<write_all>(w, "tm4");
    // The samples are read from the input as the rows are written, and
    // their times computed.
    std::shared_ptr<const VxFil::vx24_frames> frames = w.st.frames;
    const TimeAxis times = w.st.times;
    return one_file_by(w, "tm4", [frames, times](const fs::path &p, long start_i, const column_args &a) {
        write_all_in_place(p, times, *frames, start_i, a.len, a.stm, a.freq, a.comment);
    });
}

// Deliberately the same extension as the four-column layout.
std::vector<write_job> amplitude_jobs(const window_request &w) {
    return one_file<write_amplitude>(w, "tm4");
}

std::vector<write_job> vxdat_jobs(const window_request &w) {
    return one_file<write_vxdat>(w, "vxdat");
}

std::vector<write_job> average_jobs(const window_request &w) {
    const column_args a = column_args_of(w);
    const long start_i = w.start_i;
    const series_t *avg = &w.avg;
    fs::path p = output_name(w.first, "avg" + w.suffix);
    return {{p, [=] { write_tm(p, *avg, time_array, start_i, a.len, a.stm, a.freq, a.comment); }}};
}

// The rate a TIMESERIES header states: the first file's, or with sample_times
// the series' true rate, which after upsampling is the upsampled one.
double header_rate(const run_state &st) {
    return sample_times ? upsampled_rate(st.freq) : st.freq;
}

// The miniSEED ASCII layouts: one file per channel, headed by the format's
// own TIMESERIES line (written also without comments).
std::vector<write_job> miniseed_ascii_jobs(const window_request &w) {
    const bool tspair = output_type == OT_TSPAIR;
    char start[160];
    strftime_us(start, sizeof start, "%Y-%m-%dT%H:%M:%S", time_array[w.start_i]);
    std::string net, sta, loc, chan;
    miniseed_name(w.st.station, &net, &sta, &loc, &chan);
    const column_args a = column_args_of(w);
    const long start_i = w.start_i;
    std::vector<write_job> jobs;
    for (size_t ch = 0; ch < data.size(); ++ch) {
        std::string series_name = net + "_" + sta + std::to_string(ch + 1) + "_" + loc + "_" + chan;
        char header[512];
        std::snprintf(header, sizeof header, "TIMESERIES %s, %ld samples, %f sps, %s, %s, INTEGER",
                      series_name.c_str(), snippet_length, header_rate(w.st), start,
                      tspair ? "TSPAIR" : "SLIST");
        std::string head = header;
        fs::path p = output_name(w.first, "channel" + std::to_string(ch) +
                                              (tspair ? ".tspair.ascii" : ".slist.ascii"));
        jobs.push_back(
            {p, [=] { write_tm(p, data[ch], time_array, start_i, a.len, a.stm, a.freq, head.c_str()); }});
    }
    return jobs;
}

// The quick-look picture of a window (--plot) joins the window's files:
// "rec.png", or "rec.a.png" for a snippet.
std::vector<write_job> with_plot(std::vector<write_job> jobs, const window_request &w) {
    if (!plot) return jobs;
    fs::path p = output_name(w.first, w.suffix.empty() ? "png" : w.suffix + ".png");
    const run_state &st = w.st;
    const long start_i = w.start_i, len = snippet_length;
    jobs.push_back({p, [p, &st, start_i, len] {
                        const plot_source source{st.utc_times.empty() ? time_array : st.utc_times, data,
                                                 st.utc_rate, st.station};
                        write_plot(p, source, start_i, len);
                    }});
    return jobs;
}

// What miniSEED cannot hold is refused before any file is written: a rate
// the header cannot express, a station code over 5 characters, a time
// outside the years its header carries.
void refuse_unwritable(const mseed_file &file, const TimeAxis &time, const fs::path &first) {
    const std::string name = "\"" + first.string() + "\"";
    if (!writable_rate(file.rate)) exit_with_line(unwritable_rate_line(file.rate, name));
    for (const std::string &code : file.stations)
        if (code.size() > MAX_STATION_CODE)
            exit_with_line(long_station_code_line(code, file.stations.size(), name));
    for (const sample_range &seg : file.segments)
        for (long i = seg.begin; i < seg.end; ++i)
            if (!writable_time(time[static_cast<size_t>(i)]))
                exit_with_line(unwritable_time_line(time[static_cast<size_t>(i)], name));
}

// The binary miniSEED layout: one file per window with every channel. The
// written rate is the recording's times the upsampling factor.
std::vector<write_job> mseed_jobs(const window_request &w) {
    const long up = upsample > 0 ? upsample : 1;
    mseed_file file;
    file.network = mseed_network;
    file.rate = upsampled_rate(w.st.freq);
    file.channel = channel_code(file.rate);
    file.record_length = static_cast<int>(mseed_record_length);
    for (size_t ch = 0; ch < data.size(); ++ch)
        file.stations.push_back(station_code(w.st.station, ch));
    file.segments = window_segments(w.st.segment_breaks, up, samples, w.start_i, snippet_length);
    refuse_unwritable(file, w.st.times, w.first);
    fs::path p = output_name(w.first, w.suffix.empty() ? "mseed" : w.suffix + ".mseed");
    if (w.st.frames != nullptr) {
        const std::shared_ptr<const VxFil::vx24_frames> frames = w.st.frames;
        const TimeAxis times = w.st.times;
        const std::size_t channels = data.size();
        return {{p, [=] { write_mseed_in_place(p, *frames, times, channels, file); }}};
    }
    return {{p, [=] { write_mseed(p, data, time_array, file); }}};
}

// One entry per layout: how it names and writes the files of one window.
struct layout {
    OUTPUT_TYPE type;
    bool snippets;             // false: one window only, whatever -n says
    bool reads_channel_series; // the channel series must reach the end of the window
    std::vector<write_job> (*plan)(const window_request &);
};

constexpr layout LAYOUTS[] = {
    {OT_ONECOLUMN, true, true, one_column_jobs},
    {OT_TWOCOLUMNS, true, true, per_channel_jobs},
    {OT_FOURCOLUMNS, true, true, four_column_jobs},
    {OT_AMPLITUDE, true, true, amplitude_jobs},
    {OT_AVERAGE, true, false, average_jobs},
    {OT_VXDAT, true, true, vxdat_jobs},
    {OT_SLIST, false, true, miniseed_ascii_jobs},
    {OT_TSPAIR, false, true, miniseed_ascii_jobs},
    {OT_MSEED, true, true, mseed_jobs},
};

const layout *find_layout(OUTPUT_TYPE type) {
    for (const layout &l : LAYOUTS)
        if (l.type == type) return &l;
    return nullptr;
}

} // namespace

void write_outputs(const std::vector<fs::path> &names, const run_state &st, long start_i) {
    const layout *chosen = find_layout(output_type);
    if (chosen == nullptr) return;
    const fs::path &first = names.front();
    series_t avg;
    if (output_type == OT_AVERAGE) avg = average_series();

    // Plan every window first, so that outputs can be checked before any is written.
    std::vector<window_plan> plan;
    long written = 0;
    bool stopped_early = false;
    if (!chosen->snippets) {
        const window_request w{first, st, avg, start_i, ""};
        plan.push_back({start_i, with_plot(chosen->plan(w), w)});
    } else {
        for (long i = 0; i < snippets; ++i) {
            if (snippet_length > samples - start_i) {
                stopped_early = true;
                break;
            }
            const window_request w{first, st, avg, start_i, snippet_suffix(i)};
            plan.push_back({start_i, with_plot(chosen->plan(w), w)});
            start_i += snippet_length;
            ++written;
        }
    }
    refuse_outputs_over_inputs(plan, st);
    // Samples read in place, or resampled as they are written, cover the
    // whole time axis.
    if (chosen->reads_channel_series && !plan.empty() && !st.frames && !st.conditioned)
        check_series_length(first, plan.back().start_i + snippet_length);

    for (const window_plan &w : plan) {
        print_debug_window(st.times, w.start_i, snippet_length);
        for (const write_job &job : w.jobs)
            job.write();
    }
    if (stopped_early)
        std::cerr << "Warning: only " << written << " of " << snippets << " snippets produced\n";
}
