// The writers with sample_times: every row prints its sample's own time
// from the time axis instead of the first time plus one step per row.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "settings.h"
#include "temp_dir.h"
#include "writers.h"

namespace {

class SampleTimesWriters : public testing::Test {
  protected:
    void SetUp() override {
        reset_settings();
        sample_times = 1;
    }
    void TearDown() override { reset_settings(); }

    std::filesystem::path file(const std::string &name) const { return dir.file(name); }
    std::string read(const std::string &name) const { return dir.read(name); }

    temp_dir dir;
};

// 20 Hz with a jump of 3 s after the second sample (below the gap warning's
// 14 s), and a third time off the grid by 0.01 s.
const series_t jumpy = {100.0, 100.05, 103.1, 103.15};
const std::vector<series_t> three = {{1, 2, 3, 4}, {5, 6, 7, 8}, {9, 10, 11, 12}};

} // namespace

TEST_F(SampleTimesWriters, FourColumnsShowTheJump) {
    write_all(file("a.tm4"), jumpy, three, 0, 4, 100.0, 20.0, nullptr);
    EXPECT_EQ(read("a.tm4"), "100.0000 1 5 9\n100.0500 2 6 10\n103.1000 3 7 11\n103.1500 4 8 12\n");
    sample_times = 0; // the running sum passes over it
    write_all(file("b.tm4"), jumpy, three, 0, 4, 100.0, 20.0, nullptr);
    EXPECT_EQ(read("b.tm4"), "100.0000 1 5 9\n100.0500 2 6 10\n100.1000 3 7 11\n100.1500 4 8 12\n");
}

TEST_F(SampleTimesWriters, AWindowPrintsItsOwnTimesWhateverStmSays) {
    write_all(file("a.tm4"), jumpy, three, 2, 2, 50.0, 20.0, nullptr);
    EXPECT_EQ(read("a.tm4"), "103.1000 3 7 11\n103.1500 4 8 12\n");
}

TEST_F(SampleTimesWriters, TwoColumnsAverageAndTimeFile) {
    output_type = OT_TWOCOLUMNS;
    write_tm(file("a.channel0"), three[0], jumpy, 0, 4, 100.0, 20.0, nullptr);
    EXPECT_EQ(read("a.channel0"), "100.0000 1\n100.0500 2\n103.1000 3\n103.1500 4\n");
    output_type = OT_AVERAGE;
    write_tm(file("a.avg"), three[1], jumpy, 0, 4, 100.0, 20.0, nullptr);
    EXPECT_EQ(read("a.avg"), "100.0000 5\n100.0500 6\n103.1000 7\n103.1500 8\n");
    output_type = OT_ONECOLUMN;
    write_time(file("a.time"), jumpy, 0, 4, 100.0, 20.0, nullptr);
    EXPECT_EQ(read("a.time"), "100.0000\n100.0500\n103.1000\n103.1500\n");
}

TEST_F(SampleTimesWriters, Amplitude) {
    write_amplitude(file("a.tm4"), jumpy, three, 0, 4, 100.0, 20.0, nullptr);
    EXPECT_EQ(read("a.tm4"), "100.0000 15\n100.0500 18\n103.1000 21\n103.1500 24\n");
}

TEST_F(SampleTimesWriters, Tspair) {
    output_type = OT_TSPAIR;
    write_tm(file("a.tspair"), three[0], jumpy, 0, 4, 100.0, 20.0, "TIMESERIES X");
    EXPECT_EQ(read("a.tspair"), "TIMESERIES X\n"
                                "1970-01-01T00:01:40.000000 1\n"
                                "1970-01-01T00:01:40.050000 2\n"
                                "1970-01-01T00:01:43.100000 3\n"
                                "1970-01-01T00:01:43.150000 4\n");
}

TEST_F(SampleTimesWriters, VxdatBlocksStartAtTheirOwnTimes) {
    output_type = OT_VXDAT;
    // Two blocks of 512 at 20 Hz; the second starts 100 s after the first
    // instead of 25.6 s.
    series_t time;
    for (int i = 0; i < 1024; ++i)
        time.push_back(125.0 + (i < 512 ? i * 0.05 : 100.0 + (i - 512) * 0.05));
    std::vector<series_t> data(3, series_t(1024, 1.0));
    testing::internal::CaptureStderr(); // block starts 512 samples apart are reported
    write_vxdat(file("v.vxdat"), time, data, 0, 1024, 125.0, 20.0, nullptr);
    testing::internal::GetCapturedStderr();
    std::istringstream lines(read("v.vxdat"));
    std::vector<std::string> starts;
    std::string line;
    while (std::getline(lines, line))
        starts.push_back(line.substr(0, line.find(' ', line.find(' ') + 1)));
    EXPECT_EQ(starts, (std::vector<std::string>{"2 5", "2 5", "2 5", "3 45", "3 45", "3 45"}));
}
