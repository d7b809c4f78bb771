#include "write_plot.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <sstream>

#include "atomic_file.h"
#include "number_format.h"
#include "plot_envelope.h"
#include "plot_script.h"
#include "process_exit.h"
#include "time_format.h"

namespace fs = std::filesystem;

namespace {

std::string quoted(const fs::path &p) {
    std::ostringstream s;
    s << p;
    return s.str();
}

// A UTC time with the fraction of its second, trailing zeros dropped:
// "2017-07-14 02:44:59.95".
std::string utc_text(const char *format, double t) {
    char text[200];
    strftime_us(text, sizeof text, format, t);
    std::string s = text;
    const std::size_t point = s.rfind('.');
    if (point != std::string::npos && s.find_first_not_of("0123456789", point + 1) == std::string::npos) {
        const std::size_t last = s.find_last_not_of('0');
        s.erase(last == point ? point : last + 1);
    }
    return s;
}

std::string utc_date(double t) {
    return utc_text("%Y-%m-%d", t).substr(0, 10);
}

std::string trimmed(double v) {
    char buffer[FIXED6_TEXT_MAX];
    return std::string(buffer, format_trimmed(buffer, v));
}

// The bytes gnuplot wrote to `f`.
std::string read_back(FILE *f) {
    std::string bytes;
    std::rewind(f);
    char buffer[1 << 16];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0)
        bytes.append(buffer, n);
    return bytes;
}

bool is_png(const std::string &bytes) {
    return bytes.compare(0, 8, "\x89PNG\r\n\x1a\n", 8) == 0;
}

struct file_closer {
    void operator()(FILE *f) const { std::fclose(f); }
};

// The horizontal frame: the window's time range, widened a little when all
// samples share one time so that the axis has a length.
plot_frame frame_of(const plot_source &source, long start_i, long size) {
    double t0 = 0.0, t1 = 1.0;
    if (!window_time_range(source.time, start_i, size, t0, t1)) {
        t0 = 0.0;
        t1 = 1.0;
    }
    return plot_frame_of_range(t0, t1, source.rate);
}

plot_page page_of(const plot_source &source, long start_i, long size) {
    const plot_frame frame = frame_of(source, start_i, size);
    double first = frame.t0, last = frame.t1;
    window_time_range(source.time, start_i, size, first, last);
    plot_page page;
    page.title = plot_title(source, first, last, size);
    page.xlabel = plot_time_label(first, last);
    page.t0 = frame.t0;
    page.t1 = frame.t1;
    for (std::size_t ch = 0; ch < source.data.size(); ++ch)
        page.panels.push_back({"channel " + std::to_string(ch),
                               envelope_trace(source.time, source.data[ch], start_i, size, frame)});
    return page;
}

} // namespace

plot_frame plot_frame_of_range(double first, double last, double rate) {
    plot_frame frame;
    frame.columns = plot_columns();
    frame.sample_step = rate > 0.0 && std::isfinite(rate) ? 1.0 / rate : 0.0;
    frame.t0 = first;
    frame.t1 = last;
    if (!(frame.t1 > frame.t0)) {
        const double half = frame.sample_step > 0.0 ? frame.sample_step / 2 : 0.5;
        frame.t0 -= half;
        frame.t1 += half;
    }
    if (!(frame.t1 > frame.t0)) {
        frame.t0 = std::nextafter(frame.t0, -std::numeric_limits<double>::infinity());
        frame.t1 = std::nextafter(frame.t1, std::numeric_limits<double>::infinity());
    }
    return frame;
}

void check_plot_tool() {
    if (!gnuplot_on_path())
        exit_with_line("Error: --plot needs gnuplot, which is not on the PATH; install it "
                       "(Debian: apt-get install gnuplot-nox)\n");
}

void check_plot_channels(const fs::path &first_input, std::size_t channels) {
    if (channels > PLOT_MAX_CHANNELS)
        exit_with_line("Error: --plot draws at most " + std::to_string(PLOT_MAX_CHANNELS) +
                       " channels, but " + quoted(first_input) + " has " + std::to_string(channels) + "\n");
}

std::string plot_title(const plot_source &source, double first, double last, long size) {
    const std::string start = utc_text("%Y-%m-%d %H:%M:%S", first);
    const std::string end =
        utc_text(utc_date(first) == utc_date(last) ? "%H:%M:%S" : "%Y-%m-%d %H:%M:%S", last);
    return "station " + source.station + "    " + trimmed(source.rate) + " samples/s    " + start + " to " +
           end + " UTC    " + std::to_string(size) + (size == 1 ? " sample" : " samples");
}

std::string plot_time_label(double first, double last) {
    const std::string a = utc_date(first), b = utc_date(last);
    return a == b ? "UTC, " + a : "UTC, " + a + " to " + b;
}

std::string draw_plot_page(const fs::path &path, const plot_page &page, const gnuplot_runner &run) {
    // The output file is opened first, so that a place that cannot be written
    // is refused before gnuplot runs; gnuplot draws into an anonymous file,
    // whose bytes go to the output only when they are a picture.
    AtomicFile out;
    if (!out.open(path)) return "Can't open file " + quoted(path) + "\n";
    std::unique_ptr<FILE, file_closer> picture(std::tmpfile());
    if (!picture) {
        out.abort();
        return "Error: Can't write file " + quoted(path) + ": " + std::strerror(errno) + "\n";
    }
    const gnuplot_result drawn = run(gnuplot_script(page), fileno(picture.get()));
    if (!drawn.ok) {
        out.abort();
        std::string messages = drawn.messages;
        if (!messages.empty() && messages.back() != '\n') messages += '\n';
        return "Error: gnuplot could not draw " + quoted(path) + ":\n" + messages;
    }
    const std::string png = read_back(picture.get());
    if (!is_png(png)) {
        out.abort();
        return "Error: gnuplot wrote no PNG picture for " + quoted(path) + "\n";
    }
    if (!out.write(png.data(), png.size()) || !out.commit()) {
        const int error = errno != 0 ? errno : EIO;
        out.abort();
        return "Error: Can't write file " + quoted(path) + ": " + std::strerror(error) + "\n";
    }
    return "";
}

void write_plot(const fs::path &path, const plot_source &source, long start_i, long size,
                const gnuplot_runner &run) {
    const std::string failure = draw_plot_page(path, page_of(source, start_i, size), run);
    if (!failure.empty()) exit_with_line(failure);
}
