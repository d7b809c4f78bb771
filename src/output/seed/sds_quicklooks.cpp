// Quick-look pictures of an SDS archive (see sds_quicklooks.h).
#include "sds_quicklooks.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <limits>
#include <map>
#include <stdexcept>
#include <utility>

#include "atomic_file.h"
#include "on_cores.h"
#include "mseed_read.h"
#include "sds_index.h"
#include "sds_samples.h"

namespace sds {

namespace {

std::string utc_date_of_day(int64_t day) {
    const std::time_t seconds = static_cast<std::time_t>(day) * 86400;
    std::tm tm{};
    gmtime_r(&seconds, &tm);
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d", tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday);
    return text;
}

// Time of sample i of a record, in Unix seconds.
double sample_seconds(const seed_record &r, int64_t i) {
    return static_cast<double>(r.start_us) / 1e6 + static_cast<double>(i) / r.rate;
}

bool usable(const seed_record &r) {
    return r.count > 0 && r.rate > 0.0 && std::isfinite(r.rate);
}

// A day file of the picture: its channel, its bytes, and what a first look
// at its record headers found.
struct day_channel {
    channel_codes codes;
    std::string bytes;
    std::string what; // the file, for messages
    double first = std::numeric_limits<double>::infinity();
    double last = -std::numeric_limits<double>::infinity();
    double rate = 0.0; // of its first record
    int64_t samples = 0;
};

// One picture to draw: a recorder's channels of one day, and its names.
struct quicklook_job {
    int64_t day = 0;
    std::vector<channel_codes> channels; // in code order
    std::vector<fs::path> paths;         // one per element, in order
};

// Puts the picture at `from` under the name `to` as well: a hard link
// renamed into place, or where links fail a copy written atomically.
std::string share_picture(const fs::path &from, const fs::path &to) {
    std::error_code ec;
    fs::create_directories(to.parent_path(), ec);
    if (ec) return "Error: can't create \"" + to.parent_path().string() + "\": " + ec.message() + "\n";
    const fs::path link = to.parent_path() / (std::string(TEMP_MARKER) + to.filename().string() + ".link");
    fs::remove(link, ec);
    fs::create_hard_link(from, link, ec);
    if (!ec) {
        fs::rename(link, to, ec);
        if (!ec) return "";
        fs::remove(link, ec);
    }
    try {
        const std::string bytes = read_whole_file(from.string());
        AtomicFile out;
        if (!out.open(to) || !out.write(bytes.data(), bytes.size()) || !out.commit())
            return "Error: Can't write file \"" + to.string() + "\": " + std::strerror(errno) + "\n";
    } catch (const std::exception &e) {
        return std::string(e.what()) + "\n";
    }
    return "";
}

// Draws one picture; returns empty, or the message of its failure.
std::string draw_quicklook(const fs::path &top, const quicklook_job &job, const gnuplot_runner &run) {
    std::vector<day_channel> days;
    try {
        for (const channel_codes &codes : job.channels) {
            day_channel c;
            c.codes = codes;
            c.what = (top / day_file_path(codes, job.day)).string();
            bool missing = false;
            c.bytes = read_whole_file(c.what, &missing);
            if (missing) continue;
            read_seed_records(c.bytes.data(), c.bytes.size(), c.what, false, [&](const seed_record &r) {
                if (!usable(r)) return;
                if (c.rate == 0.0) c.rate = r.rate;
                c.first = std::min(c.first, sample_seconds(r, 0));
                c.last = std::max(c.last, sample_seconds(r, r.count - 1));
                c.samples += r.count;
            });
            if (c.samples > 0) days.push_back(std::move(c));
        }
        if (days.empty()) return "";

        double first = days.front().first, last = days.front().last;
        int64_t most = 0;
        for (const day_channel &c : days) {
            first = std::min(first, c.first);
            last = std::max(last, c.last);
            most = std::max(most, c.samples);
        }
        const series_t no_series;
        const std::vector<series_t> no_data;
        std::string elements;
        for (const fs::path &path : job.paths)
            elements += (elements.empty() ? "" : " ") + path.parent_path().filename().string();
        const plot_source described{no_series, no_data, days.front().rate, elements};
        plot_page page;
        page.title = plot_title(described, first, last, static_cast<long>(most));
        page.xlabel = plot_time_label(first, last);
        const plot_frame common = plot_frame_of_range(first, last, days.front().rate);
        page.t0 = common.t0;
        page.t1 = common.t1;
        for (day_channel &c : days) {
            // One channel's samples at a time: a day of a fast channel is
            // millions of them.
            series_t time, values;
            time.reserve(static_cast<std::size_t>(c.samples));
            values.reserve(static_cast<std::size_t>(c.samples));
            read_seed_records(c.bytes.data(), c.bytes.size(), c.what, true, [&](const seed_record &r) {
                if (!usable(r)) return;
                for (std::size_t i = 0; i < r.samples.size(); ++i) {
                    time.push_back(sample_seconds(r, static_cast<int64_t>(i)));
                    values.push_back(r.samples[i]);
                }
            });
            std::string().swap(c.bytes);
            plot_frame frame = common;
            frame.sample_step = 1.0 / c.rate;
            page.panels.push_back({c.codes.station + " " + c.codes.channel,
                                   envelope_trace(time, values, 0, static_cast<long>(time.size()), frame)});
        }
        const fs::path &first_path = job.paths.front();
        std::error_code ec;
        fs::create_directories(first_path.parent_path(), ec);
        if (ec) return "Error: can't create \"" + first_path.parent_path().string() + "\": " + ec.message() + "\n";
        std::string failure = draw_plot_page(first_path, page, run);
        for (std::size_t k = 1; k < job.paths.size() && failure.empty(); ++k)
            failure = share_picture(first_path, job.paths[k]);
        return failure;
    } catch (const std::exception &e) {
        std::string line = "Error: quick-look \"" + job.paths.front().string() + "\" not drawn: " + e.what();
        if (line.back() != '\n') line += '\n';
        return line;
    }
}

} // namespace

std::string element_id(const channel_codes &codes) {
    return codes.network + "." + codes.station + "." + codes.location;
}

std::string recorder_id(const channel_codes &codes) {
    const std::size_t digits = codes.station.find_last_not_of("0123456789");
    const std::string station = digits == std::string::npos ? "" : codes.station.substr(0, digits + 1);
    return codes.network + "." + station + "." + codes.location;
}

fs::path quicklook_path(const fs::path &top, const channel_codes &codes, int64_t day) {
    return top / "report" / "quicklooks" / element_id(codes) / (utc_date_of_day(day) + ".png");
}

void forget_quicklook(const fs::path &top, const channel_codes &codes, int64_t day) {
    const std::string recorder = recorder_id(codes);
    const std::string name = utc_date_of_day(day) + ".png";
    std::error_code ec;
    for (const auto &e : fs::directory_iterator(top / "report" / "quicklooks", ec)) {
        // A folder NET.STA.LOC of an element of the same recorder.
        channel_codes element;
        if (!parse_channel_id(e.path().filename().string() + ".", element) || recorder_id(element) != recorder)
            continue;
        const fs::path path = e.path() / name;
        std::error_code removed;
        fs::remove(path, removed);
        if (removed && removed != std::errc::no_such_file_or_directory)
            throw std::runtime_error("can't remove \"" + path.string() + "\": " + removed.message());
    }
}

quicklook_outcome draw_missing_quicklooks(const fs::path &top, const gnuplot_runner &run) {
    // Every recorder and day of the index, with its channels in code order.
    std::map<std::pair<std::string, int64_t>, quicklook_job> wanted;
    for (const std::string &name : day_entry_names(top)) {
        channel_codes codes;
        int64_t day = 0;
        if (!parse_day_file_name(name, codes, day)) continue;
        quicklook_job &job = wanted[{recorder_id(codes), day}];
        job.day = day;
        job.channels.push_back(codes);
    }
    // Those with a name missing are drawn again, under every name.
    std::vector<quicklook_job> jobs;
    for (auto &[key, job] : wanted) {
        std::sort(job.channels.begin(), job.channels.end());
        bool missing = false;
        for (const channel_codes &codes : job.channels) {
            const fs::path path = quicklook_path(top, codes, job.day);
            if (!job.paths.empty() && job.paths.back() == path) continue;
            job.paths.push_back(path);
            std::error_code ec;
            missing = missing || !fs::exists(path, ec);
        }
        if (missing) jobs.push_back(std::move(job));
    }

    // gnuplot takes most of the time: as many pictures at a time as there
    // are cores.
    const ignore_sigpipe guard;
    std::vector<std::string> failures(jobs.size());
    run_on_threads(jobs.size(), threads_for(jobs.size()),
                   [&](std::size_t k) { failures[k] = draw_quicklook(top, jobs[k], run); });

    quicklook_outcome outcome;
    for (std::size_t k = 0; k < jobs.size(); ++k) {
        if (!failures[k].empty())
            outcome.failures.push_back(failures[k]);
        else if (fs::exists(jobs[k].paths.front()))
            ++outcome.drawn;
    }
    return outcome;
}

} // namespace sds
