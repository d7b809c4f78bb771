// The quick-look writer with a stand-in for gnuplot that keeps the script it
// is fed: the script's frame and data blocks (a break at a gap), the file
// appearing only when the drawing succeeded, and the refusals.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "plot_script.h"
#include "process_exit.h"
#include "settings.h"
#include "temp_dir.h"
#include "vxfil/fatal.h"
#include "write_plot.h"

namespace fs = std::filesystem;

namespace {

const std::string FAKE_PNG("\x89PNG\r\n\x1a\n fake picture", 21);

struct throwing_ends {
    throwing_ends() { set_exit_handler(VxFil::throwing_fatal_handler); }
    ~throwing_ends() { set_exit_handler(nullptr); }
};

// A stand-in for gnuplot: keeps the script, writes `picture`, answers `ok`.
struct capture {
    std::string script;
    std::string picture = FAKE_PNG;
    bool ok = true;
    std::string messages;

    gnuplot_runner runner() {
        return [this](const std::string &s, int fd) {
            script = s;
            EXPECT_EQ(::write(fd, picture.data(), picture.size()), static_cast<ssize_t>(picture.size()));
            return gnuplot_result{ok, messages};
        };
    }
};

// Three channels at 20 samples per second from 2017-07-14 02:40:00, with a
// gap of `gap` seconds after the first `before` samples.
struct series_with_gap {
    series_t time;
    std::vector<series_t> data{3};

    series_with_gap(int before, int after, double gap = 30.0) {
        for (int i = 0; i < before + after; ++i) {
            time.push_back(1500000000.0 + i / 20.0 + (i >= before ? gap : 0.0));
            for (int ch = 0; ch < 3; ++ch)
                data[ch].push_back(ch * 100 + i % 7);
        }
    }
};

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    std::size_t begin = 0, end;
    while ((end = text.find('\n', begin)) != std::string::npos) {
        lines.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return lines;
}

// The lines of the data block `name` of a script.
std::vector<std::string> block(const std::string &script, const std::string &name) {
    std::vector<std::string> lines = lines_of(script), out;
    bool inside = false;
    for (const std::string &l : lines) {
        if (l == name + " << EOD")
            inside = true;
        else if (inside && l == "EOD")
            break;
        else if (inside)
            out.push_back(l);
    }
    return out;
}

std::vector<std::string> leftovers(const fs::path &dir) {
    std::vector<std::string> names;
    for (const auto &e : fs::directory_iterator(dir))
        names.push_back(e.path().filename().string());
    return names;
}

TEST(WritePlot, TheScriptBreaksTheLineAtAGap) {
    temp_dir dir;
    series_with_gap s(100, 50);
    capture gnuplot;
    write_plot(dir.file("rec.png"), {s.time, s.data, 20.0, "arvola"}, 0, 150, gnuplot.runner());

    EXPECT_NE(gnuplot.script.find("set terminal pngcairo size 1600,900"), std::string::npos);
    EXPECT_NE(gnuplot.script.find("set output\n"), std::string::npos);
    EXPECT_NE(gnuplot.script.find("set xrange [1500000000.000000:1500000037.450000]"), std::string::npos);
    EXPECT_NE(gnuplot.script.find("timedate"), std::string::npos);
    for (int ch = 0; ch < 3; ++ch) {
        const std::vector<std::string> b = block(gnuplot.script, "$ch" + std::to_string(ch));
        // 100 samples, a blank line, 50 samples, the closing blank line.
        ASSERT_EQ(b.size(), 152u) << ch;
        EXPECT_EQ(b[0], "1500000000.000000 " + std::to_string(ch * 100));
        EXPECT_EQ(b[99], "1500000004.950000 " + std::to_string(ch * 100 + 99 % 7));
        EXPECT_EQ(b[100], "");
        EXPECT_EQ(b[101], "1500000035.000000 " + std::to_string(ch * 100 + 100 % 7));
        EXPECT_EQ(b[151], "");
        EXPECT_NE(gnuplot.script.find("set ylabel 'channel " + std::to_string(ch) + "'"), std::string::npos);
    }
    EXPECT_EQ(dir.read("rec.png"), FAKE_PNG);
    EXPECT_EQ(leftovers(dir.path), std::vector<std::string>{"rec.png"});
}

TEST(WritePlot, ADayIsDrawnAsAnEnvelopeWithItsGap) {
    // A column of a day is about a minute wide; a gap of half a minute is
    // narrower and joins, one of two minutes breaks the line.
    temp_dir dir;
    series_with_gap s(864000, 864000, 120.0); // two half days, 2 minutes apart: two columns
    capture gnuplot;
    write_plot(dir.file("day.png"), {s.time, s.data, 20.0, "arvola"}, 0, 1728000, gnuplot.runner());
    const std::vector<std::string> b = block(gnuplot.script, "$ch0");
    EXPECT_LE(b.size(), 2u * static_cast<std::size_t>(plot_columns()) + 2);
    // Exactly one break inside the block, plus its closing blank line.
    EXPECT_EQ(std::count(b.begin(), b.end(), std::string()), 2);
    EXPECT_LT(gnuplot.script.size(), 400000u);

    series_with_gap narrow(864000, 864000, 30.0);
    write_plot(dir.file("day.png"), {narrow.time, narrow.data, 20.0, "arvola"}, 0, 1728000, gnuplot.runner());
    const std::vector<std::string> joined = block(gnuplot.script, "$ch0");
    EXPECT_EQ(std::count(joined.begin(), joined.end(), std::string()), 1);
}

TEST(WritePlot, TitleAndTimeLabel) {
    series_with_gap s(6000, 0);
    const plot_source source{s.time, s.data, 20.0, "arvola"};
    EXPECT_EQ(plot_title(source, s.time.front(), s.time.back(), 6000),
              "station arvola    20 samples/s    2017-07-14 02:40:00 to 02:44:59.95 UTC    6000 samples");
    EXPECT_EQ(
        plot_title(source, 1500000000.0, 1500100000.5, 1),
        "station arvola    20 samples/s    2017-07-14 02:40:00 to 2017-07-15 06:26:40.5 UTC    1 sample");
    EXPECT_EQ(plot_time_label(1500000000.0, 1500000300.0), "UTC, 2017-07-14");
    EXPECT_EQ(plot_time_label(1500000000.0, 1500100000.0), "UTC, 2017-07-14 to 2017-07-15");
}

TEST(WritePlot, ChannelsWithoutSamplesSayIt) {
    temp_dir dir;
    series_with_gap s(10, 0);
    s.data[1].clear();
    capture gnuplot;
    write_plot(dir.file("rec.png"), {s.time, s.data, 20.0, "x"}, 0, 10, gnuplot.runner());
    EXPECT_TRUE(block(gnuplot.script, "$ch1").empty());
    EXPECT_NE(gnuplot.script.find("'no samples'"), std::string::npos);
}

TEST(WritePlot, AStationNameCannotBreakTheScript) {
    temp_dir dir;
    series_with_gap s(10, 0);
    capture gnuplot;
    write_plot(dir.file("rec.png"), {s.time, s.data, 20.0, "it's\nset output '/etc/x'"}, 0, 10,
               gnuplot.runner());
    EXPECT_NE(gnuplot.script.find("station it''s?set output ''/etc/x''"), std::string::npos);
}

TEST(WritePlot, AFailureLeavesNoFileAndShowsGnuplotsMessages) {
    throwing_ends ends;
    temp_dir dir;
    dir.write("rec.png", "an older picture");
    series_with_gap s(10, 0);
    capture gnuplot;
    gnuplot.ok = false;
    gnuplot.messages = "line 12: something went wrong";
    testing::internal::CaptureStderr();
    EXPECT_THROW(write_plot(dir.file("rec.png"), {s.time, s.data, 20.0, "x"}, 0, 10, gnuplot.runner()),
                 VxFil::fatal_exit_called);
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err, "Error: gnuplot could not draw \"" + dir.file("rec.png").string() +
                       "\":\nline 12: something went wrong\n");
    EXPECT_EQ(dir.read("rec.png"), "an older picture");
    EXPECT_EQ(leftovers(dir.path), std::vector<std::string>{"rec.png"});
}

TEST(WritePlot, SuccessWithoutAPictureIsAFailure) {
    throwing_ends ends;
    temp_dir dir;
    series_with_gap s(10, 0);
    capture gnuplot;
    gnuplot.picture = "";
    testing::internal::CaptureStderr();
    EXPECT_THROW(write_plot(dir.file("rec.png"), {s.time, s.data, 20.0, "x"}, 0, 10, gnuplot.runner()),
                 VxFil::fatal_exit_called);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Error: gnuplot wrote no PNG picture for \"" + dir.file("rec.png").string() + "\"\n");
    EXPECT_TRUE(leftovers(dir.path).empty());
}

TEST(WritePlot, AnUnwritableDirectoryIsRefused) {
    throwing_ends ends;
    series_with_gap s(10, 0);
    capture gnuplot;
    testing::internal::CaptureStderr();
    EXPECT_THROW(write_plot("/nonexistent/dir/rec.png", {s.time, s.data, 20.0, "x"}, 0, 10, gnuplot.runner()),
                 VxFil::fatal_exit_called);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Can't open file \"/nonexistent/dir/rec.png\"\n");
    EXPECT_TRUE(gnuplot.script.empty());
}

TEST(WritePlot, AtMostEightChannels) {
    throwing_ends ends;
    check_plot_channels("rec.vx24", 8);
    testing::internal::CaptureStderr();
    EXPECT_THROW(check_plot_channels("rec.vx24", 9), VxFil::fatal_exit_called);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Error: --plot draws at most 8 channels, but \"rec.vx24\" has 9\n");
}

TEST(WritePlot, RealGnuplotDrawsAPicture) {
    if (!gnuplot_on_path()) GTEST_SKIP() << "gnuplot is not installed";
    temp_dir dir;
    series_with_gap s(3000, 3000);
    write_plot(dir.file("rec.png"), {s.time, s.data, 20.0, "arvola"}, 0, 6000);
    const std::string png = dir.read("rec.png");
    ASSERT_GT(png.size(), 24u);
    EXPECT_EQ(png.substr(0, 8), FAKE_PNG.substr(0, 8));
    EXPECT_EQ(png.substr(12, 4), "IHDR");
    EXPECT_EQ(png.substr(16, 8), std::string("\0\0\x06\x40\0\0\x03\x84", 8)); // 1600 x 900
    EXPECT_EQ(leftovers(dir.path), std::vector<std::string>{"rec.png"});
}

} // namespace

namespace {

// Times far outside the calendar of the recorders still end: gnuplot draws
// them or fails, and the writer reports either way.
TEST(WritePlot, FarTimesEndWithAPictureOrAMessage) {
    if (!gnuplot_on_path()) GTEST_SKIP() << "gnuplot is not installed";
    throwing_ends ends;
    for (const series_t &time : {series_t{-1e12, 1e13}, series_t{1e17, 1e17}, series_t{-5.0, -4.95}}) {
        temp_dir dir;
        const std::vector<series_t> data = {{1.0, 2.0}, {3.0, -1e300}};
        testing::internal::CaptureStderr();
        try {
            write_plot(dir.file("rec.png"), {time, data, 20.0, "x"}, 0, 2);
        } catch (const VxFil::fatal_exit_called &e) {
            EXPECT_EQ(e.status, 1);
        }
        const std::string err = testing::internal::GetCapturedStderr();
        const std::vector<std::string> left = leftovers(dir.path);
        EXPECT_TRUE(left.empty() || left == std::vector<std::string>{"rec.png"}) << err;
        EXPECT_EQ(left.empty(), !err.empty()) << err;
    }
}

} // namespace
