// The writers, each run into a fresh temporary directory and checked against
// the whole expected file content.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

#include "settings.h"
#include "writers.h"

namespace fs = std::filesystem;

namespace {

class Writers : public testing::Test {
protected:
    void SetUp() override {
        reset_settings();
        std::random_device rd;
        m_dir = fs::temp_directory_path() /
                ("brantel-writers-" + std::to_string(::getpid()) + "-" + std::to_string(rd()));
        fs::create_directories(m_dir);
    }
    void TearDown() override {
        reset_settings();
        std::error_code ec;
        fs::remove_all(m_dir, ec);
    }

    fs::path file(const std::string& name) const { return m_dir / name; }

    static std::string read(const fs::path& p) {
        std::ifstream in(p, std::ios::binary);
        std::ostringstream ss;
        ss << in.rdbuf();
        return ss.str();
    }

    static std::string quoted(const fs::path& p) {
        std::ostringstream ss;
        ss << p;
        return ss.str();
    }

    fs::path m_dir;
};

// A whole-second date as the gap warning prints it.
std::string date(time_t t) {
    tm broken_down;
    gmtime_r(&t, &broken_down);
    char buf[64];
    std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S %Z", &broken_down);
    return buf;
}

// The trimmed value form, made independently through snprintf.
std::string trimmed(double v) {
    char buf[400];
    std::snprintf(buf, sizeof buf, "%lf", v);
    std::string s = buf;
    while (!s.empty() && s.back() == '0') s.pop_back();
    if (!s.empty() && s.back() == '.') s.pop_back();
    return s;
}

series_t ramp(long n, double start, double step) {
    series_t t;
    double v = start;
    for (long i = 0; i < n; ++i, v += step) t.push_back(v);
    return t;
}

} // namespace

// ---- write_tm -------------------------------------------------------------

TEST_F(Writers, TwoColumnsThreeSamplesAt20Hz) {
    output_type = OT_TWOCOLUMNS;
    series_t time = {0.0, 0.05, 0.1};
    series_t values = {1.0, 2.5, -3e-7};
    double next = write_tm(file("a.channel0"), values, time, 0, 3, 0.0, 20.0, "C");
    EXPECT_EQ(read(file("a.channel0")), "C\n0.0000 1\n0.0500 2.5\n0.1000 -3e-07\n");
    double expected = 0.0;
    for (int i = 0; i < 3; ++i) expected += 1 / 20.0;
    EXPECT_EQ(next, expected);
}

TEST_F(Writers, TimeAdvancesRowByRow) {
    // Adding 0.1 ten times gives 0.9999999999999999, not 1.
    output_type = OT_TWOCOLUMNS;
    sec_decimals = 17;
    series_t time = ramp(11, 0.0, 0.1);
    series_t values(11, 0.0);
    write_tm(file("a"), values, time, 0, 11, 0.0, 10.0, nullptr);
    std::string text = read(file("a"));
    EXPECT_NE(text.find("\n0.99999999999999989 0\n"), std::string::npos) << text;
}

TEST_F(Writers, NegativeStmTakesTheFirstTimeOfTheWindow) {
    output_type = OT_TWOCOLUMNS;
    series_t time = {10.0, 11.0, 12.0, 13.0};
    series_t values = {1, 2, 3, 4};
    double next = write_tm(file("a"), values, time, 1, 2, -1.0, 1.0, nullptr);
    EXPECT_EQ(read(file("a")), "11 2\n12 3\n");
    EXPECT_EQ(next, 13.0);
}

TEST_F(Writers, NrsamplesLineInTwoColumnAndAverageOnly) {
    series_t time = {0.0, 0.5};
    series_t values = {1, 2};
    nrsamples = 1;
    output_type = OT_TWOCOLUMNS;
    write_tm(file("two"), values, time, 0, 2, 0.0, 2.0, "C");
    EXPECT_EQ(read(file("two")), "C\n2\n0.000 1\n0.500 2\n");
    output_type = OT_AVERAGE;
    write_tm(file("avg"), values, time, 0, 2, 0.0, 2.0, "C");
    EXPECT_EQ(read(file("avg")), "C\n2\n0.000 1\n0.500 2\n");
    output_type = OT_ONECOLUMN;
    write_tm(file("one"), values, time, 0, 2, 0.0, 2.0, "C");
    EXPECT_EQ(read(file("one")), "C\n1.000000\n2.000000\n");
}

TEST_F(Writers, OneColumnUsesPercentF) {
    output_type = OT_ONECOLUMN;
    series_t time = {0.0, 1.0, 2.0};
    series_t values = {-0.0, 1234.5678905, 1e20};
    write_tm(file("one"), values, time, 0, 3, 0.0, 1.0, nullptr);
    EXPECT_EQ(read(file("one")), "-0.000000\n1234.567890\n100000000000000000000.000000\n");
}

TEST_F(Writers, SlistSevenSamplesEndsWithoutLineBreak) {
    output_type = OT_SLIST;
    series_t time = ramp(7, 0.0, 0.05);
    series_t values = {1, -2, 3.5, 2.5, 123456789012.0, 6, 7};
    write_tm(file("s"), values, time, 0, 7, 0.0, 20.0, "TIMESERIES X");
    EXPECT_EQ(read(file("s")), "TIMESERIES X\n"
                               "           1          -2           4           2123456789012           6\n"
                               "           7");
}

TEST_F(Writers, SlistSixSamplesEndsWithLineBreak) {
    output_type = OT_SLIST;
    series_t time = ramp(6, 0.0, 0.05);
    series_t values = {1, 2, 3, 4, 5, 6};
    write_tm(file("s"), values, time, 0, 6, 0.0, 20.0, nullptr);
    EXPECT_EQ(read(file("s")), "           1           2           3           4           5           6\n");
}

TEST_F(Writers, TspairRows) {
    output_type = OT_TSPAIR;
    series_t time = ramp(3, 1700000000.0, 0.05);
    series_t values = {1.4, -2.5, 3.5};
    double next = write_tm(file("t"), values, time, 0, 3, 1700000000.0, 20.0, "TIMESERIES Y");
    EXPECT_EQ(read(file("t")), "TIMESERIES Y\n"
                               "2023-11-14T22:13:20.000000 1\n"
                               "2023-11-14T22:13:20.050000 -2\n"
                               "2023-11-14T22:13:20.100000 4\n");
    EXPECT_GT(next, 1700000000.1);
}

TEST_F(Writers, OtherLayoutsGetOnlyTheCommentLine) {
    for (OUTPUT_TYPE type : {OT_FOURCOLUMNS, OT_AMPLITUDE, OT_VXDAT}) {
        output_type = type;
        series_t time = {0.0, 1.0};
        series_t values = {1, 2};
        double next = write_tm(file("o"), values, time, 0, 2, 5.0, 1.0, "C");
        EXPECT_EQ(read(file("o")), "C\n");
        EXPECT_EQ(next, 7.0);
    }
}

TEST_F(Writers, EmptyRangeWritesOnlyTheComment) {
    series_t time = {0.0, 1.0, 2.0};
    series_t values = {1, 2, 3};
    output_type = OT_TWOCOLUMNS;
    EXPECT_EQ(write_tm(file("e"), values, time, 1, 0, 7.0, 1.0, "C"), 7.0);
    EXPECT_EQ(read(file("e")), "C\n");
    nrsamples = 1;
    EXPECT_EQ(write_tm(file("n"), values, time, 3, 0, 7.0, 1.0, "C"), 7.0);
    EXPECT_EQ(read(file("n")), "C\n0\n");
    EXPECT_EQ(write_tm(file("neg"), values, time, 2, -2, 7.0, 1.0, nullptr), 7.0);
    EXPECT_EQ(read(file("neg")), "0\n");
}

TEST_F(Writers, GapOfFifteenSecondsAt20HzWarns) {
    output_type = OT_TWOCOLUMNS;
    series_t time = {1700000000.0, 1700000000.05, 1700000015.05};
    series_t values = {1, 2, 3};
    fs::path p = file("gap \"x\".channel0");
    testing::internal::CaptureStderr();
    write_tm(p, values, time, 0, 3, -1.0, 20.0, nullptr);
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err, "Warning: It's a gap in the timeline of 15 seconds on line 3 in file " + quoted(p) + "\n" +
                       date(1700000015) + " - " + date(1700000000) + "\n");
    EXPECT_NE(quoted(p).find("\\\"x\\\""), std::string::npos);
}

TEST_F(Writers, GapOfFourteenSecondsAt20HzDoesNotWarn) {
    output_type = OT_TWOCOLUMNS;
    series_t time = {0.0, 14.0, 28.0};
    series_t values = {1, 2, 3};
    testing::internal::CaptureStderr();
    write_tm(file("g"), values, time, 0, 3, -1.0, 20.0, nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(Writers, GapCheckRunsInEveryLayout) {
    series_t time = {0.0, 1.0, 100.0};
    series_t values = {1, 2, 3};
    for (OUTPUT_TYPE type : {OT_ONECOLUMN, OT_SLIST, OT_TSPAIR, OT_FOURCOLUMNS}) {
        output_type = type;
        testing::internal::CaptureStderr();
        write_tm(file("g"), values, time, 0, 3, -1.0, 1.0, nullptr);
        std::string err = testing::internal::GetCapturedStderr();
        EXPECT_NE(err.find("of 99 seconds on line 3 in file"), std::string::npos) << type << ": " << err;
    }
}

TEST_F(Writers, WindowBeyondTheSeriesThrowsBeforeCreatingTheFile) {
    series_t time = {0.0, 1.0};
    series_t values = {1, 2};
    EXPECT_THROW(write_tm(file("w"), values, time, 1, 2, 0.0, 1.0, nullptr), std::out_of_range);
    EXPECT_THROW(write_tm(file("w"), values, time, -1, 1, 0.0, 1.0, nullptr), std::out_of_range);
    series_t short_values = {1};
    EXPECT_THROW(write_tm(file("w"), short_values, time, 0, 2, 0.0, 1.0, nullptr), std::out_of_range);
    EXPECT_FALSE(fs::exists(file("w")));
}

TEST_F(Writers, OpenFailureEndsWithStatusOne) {
    fs::path p = file("missing dir") / "a\\b";
    series_t time = {0.0, 1.0};
    series_t values = {1, 2};
    std::string expected = "Can't open file " + quoted(p) + "\n";
    EXPECT_EXIT(write_tm(p, values, time, 0, 2, 0.0, 1.0, nullptr), testing::ExitedWithCode(1),
                testing::Eq(expected));
}

TEST_F(Writers, WriteFailureEndsWithStatusOne) {
    if (!fs::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
    fs::path p = file("full");
    fs::create_symlink("/dev/full", p);
    output_type = OT_TWOCOLUMNS;
    series_t time = {0.0, 1.0};
    series_t values = {1, 2};
    std::string expected = "Error: Can't write file " + quoted(p) + ": No space left on device\n";
    EXPECT_EXIT(write_tm(p, values, time, 0, 2, 0.0, 20.0, nullptr), testing::ExitedWithCode(1),
                testing::Eq(expected));
    // A file larger than the buffer fails at the first chunk.
    series_t big_time = ramp(300000, 0.0, 1.0);
    series_t big_values(300000, 123456.0);
    EXPECT_EXIT(write_tm(p, big_values, big_time, 0, 300000, 0.0, 20.0, nullptr), testing::ExitedWithCode(1),
                testing::Eq(expected));
}

// ---- write_time -----------------------------------------------------------

TEST_F(Writers, WriteTimeRows) {
    output_type = OT_ONECOLUMN;
    nrsamples = 1; // ignored here
    series_t time = {0.0, 0.5, 1.0};
    double next = write_time(file("time"), time, 0, 3, 0.0, 2.0, "C");
    EXPECT_EQ(read(file("time")), "C\n0.000\n0.500\n1.000\n");
    EXPECT_EQ(next, 1.5);
}

TEST_F(Writers, WriteTimeNegativeDecimalsPrintSix) {
    output_type = OT_ONECOLUMN;
    series_t time = {0.0, 1000.0};
    testing::internal::CaptureStderr(); // a step of 1000 s is a gap at this rate
    write_time(file("time"), time, 0, 2, -1.0, 0.001, nullptr);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(read(file("time")), "0.000000\n1000.000000\n");
}

TEST_F(Writers, WriteTimeTwoColumnsCreatesNoFile) {
    output_type = OT_TWOCOLUMNS;
    series_t time = {0.0, 0.5, 1.0};
    EXPECT_EQ(write_time(file("time"), time, 0, 3, 10.0, 2.0, "C"), 11.5);
    EXPECT_FALSE(fs::exists(file("time")));
}

// ---- write_all ------------------------------------------------------------

TEST_F(Writers, AllChannelsPerRow) {
    series_t time = {12.35, 12.40};
    std::vector<series_t> data = {{0.25, 2.5}, {-1.5, 3.0}, {3.0, -0.0}};
    double next = write_all(file("x.tm4"), time, data, 0, 2, -1.0, 20.0, "C");
    EXPECT_EQ(read(file("x.tm4")), "C\n12.3500 0.25 -1.5 3\n12.4000 2.5 3 -0\n");
    EXPECT_EQ(next, 12.35 + 1 / 20.0 + 1 / 20.0);
}

TEST_F(Writers, AllValuesWithoutTrailingZeros) {
    series_t time = {0.0, 1.0};
    std::vector<series_t> data = {{2.5, 3.0}, {1e-7, 12345678.9}};
    write_all(file("x.tm4"), time, data, 0, 2, 0.0, 1.0, nullptr);
    EXPECT_EQ(read(file("x.tm4")), "0 2.5 0\n1 3 12345678.9\n");
}

TEST_F(Writers, AllSecDecimalsTwoWhateverTheStep) {
    sec_decimals = 2;
    series_t time = {1700000000.0, 1700000000.05};
    std::vector<series_t> data = {{1, 2}};
    write_all(file("x.tm4"), time, data, 0, 2, -1.0, 20.0, nullptr);
    EXPECT_EQ(read(file("x.tm4")), "1700000000.00 1\n1700000000.05 2\n");
}

TEST_F(Writers, AllEmptyAndNegativeSizeWriteOnlyTheComment) {
    series_t time = {0.0, 1.0, 2.0, 3.0};
    std::vector<series_t> data = {{1, 2, 3, 4}};
    EXPECT_EQ(write_all(file("e"), time, data, 2, 0, 4.0, 1.0, "C"), 4.0);
    EXPECT_EQ(read(file("e")), "C\n");
    EXPECT_EQ(write_all(file("n"), time, data, 3, -1, 4.0, 1.0, "C"), 4.0);
    EXPECT_EQ(read(file("n")), "C\n");
}

TEST_F(Writers, AllTwoColumnsWritesNothing) {
    output_type = OT_TWOCOLUMNS;
    series_t time = {0.0, 1.0};
    std::vector<series_t> data = {{1, 2}};
    EXPECT_EQ(write_all(file("x"), time, data, 0, 2, 3.0, 4.0, "C"), 3.5);
    EXPECT_EQ(write_amplitude(file("x"), time, data, 0, 2, 3.0, 4.0, "C"), 3.5);
    EXPECT_EQ(write_vxdat(file("x"), time, data, 0, 2, 3.0, 4.0, "C"), 3.5);
    EXPECT_FALSE(fs::exists(file("x")));
}

TEST_F(Writers, AllGapWarning) {
    series_t time = {0.0, 1.0, 16.5};
    std::vector<series_t> data = {{1, 2, 3}};
    fs::path p = file("g.tm4");
    testing::internal::CaptureStderr();
    write_all(p, time, data, 0, 3, -1.0, 20.0, nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Warning: It's a gap in the timeline of 15.5 seconds on line 3 in file " + quoted(p) + "\n" +
                  date(16) + " - " + date(1) + "\n");
}

TEST_F(Writers, AllChannelShorterThanTheWindowThrows) {
    series_t time = {0.0, 1.0};
    std::vector<series_t> data = {{1, 2}, {}};
    EXPECT_THROW(write_all(file("x"), time, data, 0, 2, 0.0, 1.0, nullptr), std::out_of_range);
    EXPECT_FALSE(fs::exists(file("x")));
}

TEST_F(Writers, AllLargeFileMatchesReference) {
    // More than one buffer of rows, against text made through snprintf.
    const long n = 60000;
    series_t time = ramp(n, 1700000000.0, 0.05);
    std::vector<series_t> data(3);
    std::mt19937_64 rng(5);
    std::uniform_int_distribution<int> counts(-30000, 30000);
    for (auto& ch : data)
        for (long i = 0; i < n; ++i) ch.push_back(counts(rng) / 8.0);
    double next = write_all(file("big"), time, data, 0, n, -1.0, 20.0, "C");
    std::string expected = "C\n";
    double stm = time[0];
    char buf[128];
    for (long i = 0; i < n; ++i) {
        std::snprintf(buf, sizeof buf, "%-.*f", 4, stm);
        expected += buf;
        for (auto& ch : data) expected += " " + trimmed(ch[static_cast<std::size_t>(i)]);
        expected += "\n";
        stm += 1 / 20.0;
    }
    EXPECT_EQ(read(file("big")), expected);
    EXPECT_EQ(next, stm);
}

// ---- write_amplitude ------------------------------------------------------

TEST_F(Writers, AmplitudeIsThePlainSum) {
    series_t time = {0.0, 0.05};
    std::vector<series_t> data = {{1.5, 1}, {-0.5, 2}, {0, 3}};
    write_amplitude(file("a.tm4"), time, data, 0, 2, 0.0, 20.0, "C");
    EXPECT_EQ(read(file("a.tm4")), "C\n0.0000 1\n0.0500 6\n");
}

TEST_F(Writers, AmplitudeOfOneChannelIsThatChannel) {
    series_t time = {0.0, 1.0, 2.0};
    std::vector<series_t> data = {{2.25, -7, 1e6}};
    write_amplitude(file("a.tm4"), time, data, 0, 3, 0.0, 1.0, nullptr);
    EXPECT_EQ(read(file("a.tm4")), "0 2.25\n1 -7\n2 1000000\n");
}

TEST_F(Writers, AmplitudeEmptyRangeWritesOnlyTheComment) {
    series_t time = {0.0, 1.0};
    std::vector<series_t> data = {{1, 2}, {3, 4}};
    EXPECT_EQ(write_amplitude(file("a"), time, data, 1, 0, 2.0, 1.0, "C"), 2.0);
    EXPECT_EQ(read(file("a")), "C\n");
}

TEST_F(Writers, AmplitudeGapWarning) {
    series_t time = {0.0, 20.0};
    std::vector<series_t> data = {{1, 2}};
    testing::internal::CaptureStderr();
    write_amplitude(file("a"), time, data, 0, 2, -1.0, 20.0, nullptr);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("of 20 seconds on line 2 in file"), std::string::npos);
}

// ---- write_vxdat ----------------------------------------------------------

namespace {

// The expected vxdat lines of one block, made through snprintf.
std::string vxdat_block(double stm, const std::vector<series_t>& data, long i) {
    std::string out;
    char buf[64];
    for (int c = 0; c < 3; ++c) {
        std::snprintf(buf, sizeof buf, "%.0f %.0f", std::floor(stm / 60), std::fmod(stm, 60));
        out += buf;
        for (long k = 0; k < 512; ++k) out += " " + trimmed(data[static_cast<std::size_t>(c)][static_cast<std::size_t>(i + k)]);
        out += "\n";
    }
    return out;
}

std::vector<series_t> vx_data(long n) {
    std::vector<series_t> data(3);
    for (int c = 0; c < 3; ++c)
        for (long i = 0; i < n; ++i) data[static_cast<std::size_t>(c)].push_back((c + 1) * 1000 + i * 0.5 - 300);
    return data;
}

} // namespace

TEST_F(Writers, VxdatTwoBlocks) {
    output_type = OT_VXDAT;
    series_t time = ramp(1024, 125.0, 0.05);
    std::vector<series_t> data = vx_data(1024);
    testing::internal::CaptureStderr();
    double next = write_vxdat(file("v.vxdat"), time, data, 0, 1024, 125.0, 20.0, "!S512Tidserier sampfrek: 20");
    std::string err = testing::internal::GetCapturedStderr();
    std::string text = read(file("v.vxdat"));
    EXPECT_EQ(text, "!S512Tidserier sampfrek: 20\n" + vxdat_block(125.0, data, 0) +
                        vxdat_block(125.0 + 512 * (1 / 20.0), data, 512));
    // Six data lines, each with two numbers and 512 values.
    std::istringstream lines(text);
    std::string line;
    std::getline(lines, line);
    int count = 0;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::string f;
        int n = 0;
        while (fields >> f) ++n;
        EXPECT_EQ(n, 514);
        ++count;
    }
    EXPECT_EQ(count, 6);
    EXPECT_EQ(text.compare(28, 4, "2 5 "), 0);
    EXPECT_NE(text.find("\n2 31 "), std::string::npos);
    EXPECT_EQ(next, 125.0 + 512 * (1 / 20.0) + 512 * (1 / 20.0));
    // The block starts lie 25.6 s apart, above 0.7 x 20: the second block
    // is reported, without a line number.
    EXPECT_EQ(err, "Warning: It's a gap in the timeline of 25.6 seconds in file " + quoted(file("v.vxdat")) +
                       "\n" + date(150) + " - " + date(125) + "\n");
}

TEST_F(Writers, VxdatSecondsRoundUpToSixty) {
    series_t time = ramp(512, 59.6, 0.05);
    std::vector<series_t> data = vx_data(512);
    write_vxdat(file("v"), time, data, 0, 512, -1.0, 20.0, nullptr);
    EXPECT_EQ(read(file("v")).substr(0, 5), "0 60 ");
}

TEST_F(Writers, VxdatBlockReachesPastTheWindow) {
    series_t time = ramp(1024, 0.0, 0.05);
    std::vector<series_t> data = vx_data(1024);
    testing::internal::CaptureStderr();
    write_vxdat(file("v"), time, data, 0, 600, 0.0, 20.0, nullptr);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(read(file("v")), vxdat_block(0.0, data, 0) + vxdat_block(512 * (1 / 20.0), data, 512));
}

TEST_F(Writers, VxdatBlockPastTheDataIsLeftOut) {
    series_t time = ramp(600, 0.0, 0.05);
    std::vector<series_t> data = vx_data(600);
    data[1].resize(1100); // only the shortest series counts
    testing::internal::CaptureStderr();
    double next = write_vxdat(file("v"), time, data, 0, 600, 0.0, 20.0, nullptr);
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(read(file("v")), vxdat_block(0.0, data, 0));
    EXPECT_EQ(err, "Warning: last vxdat block passes the end of the data, 88 samples left out\n");
    EXPECT_EQ(next, 512 * (1 / 20.0));
}

TEST_F(Writers, VxdatEmptyRange) {
    series_t time = ramp(10, 0.0, 1.0);
    std::vector<series_t> data = vx_data(10);
    EXPECT_EQ(write_vxdat(file("v"), time, data, 3, 0, 9.0, 1.0, "C"), 9.0);
    EXPECT_EQ(read(file("v")), "C\n");
}

TEST_F(Writers, VxdatNeedsThreeChannels) {
    series_t time = ramp(512, 0.0, 1.0);
    std::vector<series_t> data = vx_data(512);
    data.pop_back();
    fs::path p = file("v.vxdat");
    EXPECT_EXIT(write_vxdat(p, time, data, 0, 512, 0.0, 1.0, nullptr), testing::ExitedWithCode(1),
                testing::Eq("Error: vxdat file " + quoted(p) + " needs three channels, the data has 2\n"));
    EXPECT_FALSE(fs::exists(p));
}
