// --sample-times over a whole day: the time column of the running sum drifts
// from the recording's clock, the sample's own time does not.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "fixture_registry.h"
#include "temp_dir.h"
#include "vx24_fixture.h"

namespace {

// The last line of a text file.
std::string last_line(const std::filesystem::path &p) {
    std::ifstream in(p);
    std::string line, last;
    while (std::getline(in, line))
        if (!line.empty()) last = line;
    return last;
}

// Runs brantel with `options` on day.vx24 in dir; returns the last row of
// day.tm4.
std::string last_row(const temp_dir &dir, const std::string &options) {
    const std::string cmd = "cd '" + dir.path.string() + "' && '" BRANTEL_BIN "' --quiet " + options +
                            " day.vx24 >/dev/null 2>&1";
    EXPECT_EQ(std::system(cmd.c_str()), 0) << cmd;
    return last_line(dir.file("day.tm4"));
}

} // namespace

TEST(SampleTimes, LastRowOfADayCarriesTheSamplesOwnTime) {
    temp_dir dir;
    fixtures::vx24_params day;
    day.seconds = 1500000000;
    day.rate = 20.0;
    day.channels = 1;
    day.samples = 86400 * 20;
    day.wave.wave = "const";
    fixtures::write_file(dir.file("day.vx24").string(), fixtures::make_vx24(day));

    // 1727999 steps of 0.05 s added one by one fall 82 ms short of the
    // recording's own time of the last sample, 1500086399.95.
    const std::string summed = last_row(dir, "");
    EXPECT_EQ(summed.substr(0, summed.find(' ')), "1500086399.8676");
    const std::string own = last_row(dir, "--sample-times");
    EXPECT_EQ(own.substr(0, own.find(' ')), "1500086399.9500");
    // The values are the same either way.
    EXPECT_EQ(summed.substr(summed.find(' ')), own.substr(own.find(' ')));
}
