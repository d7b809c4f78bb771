#include "write_plot.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>
#include <sstream>

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

// The temporary file beside `path`: ".NAME.PID.N.tmp", created exclusively.
int open_temporary(const fs::path &path, fs::path &temporary) {
    const std::string stem = "." + path.filename().string() + "." + std::to_string(::getpid()) + ".";
    for (int n = 0; n < 1000; ++n) {
        temporary = path.parent_path() / (stem + std::to_string(n) + ".tmp");
        const int fd = ::open(temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0 || errno != EEXIST) return fd;
    }
    return -1;
}

[[noreturn]] void fail(const fs::path &temporary, const std::string &lines) {
    ::unlink(temporary.c_str());
    exit_with_line(lines);
}

bool starts_as_png(int fd) {
    static const unsigned char signature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    unsigned char head[8];
    return ::pread(fd, head, sizeof head, 0) == static_cast<ssize_t>(sizeof head) &&
           std::memcmp(head, signature, sizeof head) == 0;
}

// The horizontal frame: the window's time range, widened a little when all
// samples share one time so that the axis has a length.
plot_frame frame_of(const plot_source &source, long start_i, long size) {
    plot_frame frame;
    frame.columns = plot_columns();
    frame.sample_step = source.rate > 0.0 && std::isfinite(source.rate) ? 1.0 / source.rate : 0.0;
    if (!window_time_range(source.time, start_i, size, frame.t0, frame.t1)) {
        frame.t0 = 0.0;
        frame.t1 = 1.0;
    }
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

void write_plot(const fs::path &path, const plot_source &source, long start_i, long size,
                const gnuplot_runner &run) {
    fs::path temporary;
    const int fd = open_temporary(path, temporary);
    if (fd < 0) exit_with_line("Can't open file " + quoted(path) + "\n");
    const gnuplot_result drawn = run(gnuplot_script(page_of(source, start_i, size)), fd);
    const bool png = drawn.ok && starts_as_png(fd);
    if (::close(fd) != 0 && png)
        fail(temporary, "Error: Can't write file " + quoted(path) + ": " + std::strerror(errno) + "\n");
    if (!drawn.ok) {
        std::string messages = drawn.messages;
        if (!messages.empty() && messages.back() != '\n') messages += '\n';
        fail(temporary, "Error: gnuplot could not draw " + quoted(path) + ":\n" + messages);
    }
    if (!png) fail(temporary, "Error: gnuplot wrote no PNG picture for " + quoted(path) + "\n");
    if (::rename(temporary.c_str(), path.c_str()) != 0)
        fail(temporary, "Error: Can't write file " + quoted(path) + ": " + std::strerror(errno) + "\n");
}
