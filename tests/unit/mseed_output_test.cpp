// The binary miniSEED layout end to end inside the process: recordings from
// the fixtures are converted with brantel() and every written file is read
// back with libmseed and with the tests' own reader (mseed_check.h), against
// the series the run leaves behind.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "brantel.h"
#include "mseed_check.h"
#include "process_exit.h"
#include "run_state.h"
#include "sac_file.h"
#include "series.h"
#include "settings.h"
#include "temp_dir.h"
#include "tm4_fixture.h"
#include "vx16_fixture.h"
#include "vx24_fixture.h"
#include "vxfil/fatal.h"

namespace fs = std::filesystem;

namespace {

class MseedOutput : public ::testing::Test {
  protected:
    temp_dir dir;

    void SetUp() override {
        reset_settings();
        set_exit_handler(VxFil::throwing_fatal_handler);
        dir.enter();
        output_type = OT_MSEED;
        quiet = 1;
    }
    void TearDown() override {
        set_exit_handler(nullptr);
        reset_settings();
    }

    void run(const std::vector<std::string> &names) {
        std::vector<fs::path> paths(names.begin(), names.end());
        int optind_copy = 0;
        brantel(paths, optind_copy, 0);
        load_whole_if_read_in_place(paths);
    }

    // A single vx24 file goes to miniSEED from its frames, read where they
    // lie, and the run leaves its series empty: the series that the records
    // must hold are then those of the file read whole (as a run with a
    // picture reads it).
    static void load_whole_if_read_in_place(const std::vector<fs::path> &paths) {
        bool all_empty = !data.empty();
        for (const series_t &s : data)
            all_empty &= s.empty();
        if (!all_empty || paths.size() != 1) return;
        data.clear();
        time_array.clear();
        const int saved_plot = plot;
        plot = 1;
        run_state st;
        load_recordings(paths, st);
        plot = saved_plot;
    }

    // Runs and expects the run to end with status 1.
    void run_refused(const std::vector<std::string> &names) {
        try {
            run(names);
        } catch (const VxFil::fatal_exit_called &e) {
            EXPECT_EQ(e.status, 1);
            return;
        }
        ADD_FAILURE() << "the run was not refused";
    }

    void write_vx24(const std::string &name, fixtures::vx24_params p) {
        dir.write(name, fixtures::make_vx24(p));
    }

    static mseed_expectation arvola(std::vector<sample_range> segments, std::vector<int> encodings) {
        mseed_expectation e;
        e.stations = {"RAA1", "RAA2", "RAA3"};
        e.segments = std::move(segments);
        e.encodings = std::move(encodings);
        return e;
    }
};

constexpr int STEIM2 = 11, INT32 = 3, FLOAT64 = 5;

fixtures::vx24_params ramp(uint64_t samples, uint32_t seconds = 1500000000) {
    fixtures::vx24_params p;
    p.samples = samples;
    p.seconds = seconds;
    return p;
}

} // namespace

TEST_F(MseedOutput, IntegerDataIsSteim2) {
    fixtures::vx24_params p = ramp(3000);
    p.wave.wave = "sine";
    p.wave.noise = 3000; // differences of all sizes, so that several records fill
    write_vx24("rec.vx24", p);
    run({"rec.vx24"});
    ASSERT_TRUE(fs::exists("rec.mseed"));
    EXPECT_GT(check_mseed_file("rec.mseed", data, time_array, arvola({{0, 3000}}, {STEIM2})), 3);
    EXPECT_EQ(libmseed_trace_count("rec.mseed"), 3);
}

TEST_F(MseedOutput, DifferenceOver30BitsIs32BitIntegers) {
    fixtures::vx24_params p = ramp(500);
    p.wave.wave = "sine";
    p.wave.amp = 1e9;
    p.wave.wave_hz = 5.0; // a quarter turn per sample: steps of 1e9
    write_vx24("rec.vx24", p);
    run({"rec.vx24"});
    check_mseed_file("rec.mseed", data, time_array, arvola({{0, 500}}, {INT32}));
}

TEST_F(MseedOutput, OffsetRemovalGivesFloats) {
    write_vx24("rec.vx24", ramp(1000));
    remove_offset = 1;
    run({"rec.vx24"});
    ASSERT_NE(data[0][0], std::trunc(data[0][0]));
    check_mseed_file("rec.mseed", data, time_array, arvola({{0, 1000}}, {FLOAT64}));
}

TEST_F(MseedOutput, ScaledIntegersStaySteim2) {
    write_vx24("rec.vx24", ramp(1000));
    global_scale = 0; // automatic: 8 for a max of 2999
    run({"rec.vx24"});
    EXPECT_EQ(data[0][1], 3 * 8);
    check_mseed_file("rec.mseed", data, time_array, arvola({{0, 1000}}, {STEIM2}));
}

TEST_F(MseedOutput, FilteredDataGivesFloats) {
    fixtures::vx24_params p = ramp(1000);
    p.wave.wave = "sine";
    write_vx24("rec.vx24", p);
    need_filter = 1;
    run({"rec.vx24"});
    check_mseed_file("rec.mseed", data, time_array, arvola({{0, 1000}}, {FLOAT64}));
}

TEST_F(MseedOutput, UpsamplingWritesTheHigherRate) {
    write_vx24("rec.vx24", ramp(500));
    upsample = 4;
    run({"rec.vx24"});
    mseed_expectation e = arvola({{0, 2000}}, {FLOAT64});
    e.rate = 80.0;
    e.channel = "HDF";
    check_mseed_file("rec.mseed", data, time_array, e);
}

TEST_F(MseedOutput, UpsamplingByOneKeepsIntegers) {
    write_vx24("rec.vx24", ramp(500));
    upsample = 1;
    run({"rec.vx24"});
    check_mseed_file("rec.mseed", data, time_array, arvola({{0, 500}}, {STEIM2}));
}

TEST_F(MseedOutput, GapMakesTwoSegmentsPerChannel) {
    write_vx24("a.vx24", ramp(1000));
    write_vx24("b.vx24", ramp(1000, 1500000100)); // 50 s after the end of a.vx24
    combine = 1;
    run({"a.vx24", "b.vx24"});
    check_mseed_file("a.mseed", data, time_array, arvola({{0, 1000}, {1000, 2000}}, {STEIM2, STEIM2}));
    EXPECT_EQ(libmseed_trace_count("a.mseed"), 6);
}

TEST_F(MseedOutput, OverlapMakesTwoSegmentsPerChannel) {
    write_vx24("a.vx24", ramp(1000));
    write_vx24("b.vx24", ramp(1000, 1500000020)); // starts 30 s before a.vx24 ends
    combine = 1;
    run({"a.vx24", "b.vx24"});
    check_mseed_file("a.mseed", data, time_array, arvola({{0, 1000}, {1000, 2000}}, {STEIM2, STEIM2}));
}

TEST_F(MseedOutput, GapWithUpsamplingIsNotBridged) {
    write_vx24("a.vx24", ramp(100));
    write_vx24("b.vx24", ramp(100, 1500000010));
    combine = 1;
    upsample = 4;
    run({"a.vx24", "b.vx24"});
    ASSERT_EQ(samples, 0); // reset by the run; the series stay
    ASSERT_EQ(time_array.size(), 800u);
    // The first segment ends with input sample 99 (written sample 396); the
    // three samples interpolated across the gap are left out.
    mseed_expectation e = arvola({{0, 397}, {400, 800}}, {FLOAT64, FLOAT64});
    e.rate = 80.0;
    e.channel = "HDF";
    check_mseed_file("a.mseed", data, time_array, e);
    EXPECT_EQ(libmseed_trace_count("a.mseed"), 6);
}

TEST_F(MseedOutput, SnippetsGetALetterBeforeTheExtension) {
    write_vx24("rec.vx24", ramp(1000));
    snippets = 2;
    snippet_length = 400;
    run({"rec.vx24"});
    check_mseed_file("rec.a.mseed", data, time_array, arvola({{0, 400}}, {STEIM2}));
    check_mseed_file("rec.b.mseed", data, time_array, arvola({{400, 800}}, {STEIM2}));
    EXPECT_FALSE(fs::exists("rec.mseed"));
}

TEST_F(MseedOutput, SnippetsAcrossAGap) {
    write_vx24("a.vx24", ramp(300));
    write_vx24("b.vx24", ramp(300, 1500000100));
    combine = 1;
    snippets = 3;
    snippet_length = 200;
    run({"a.vx24", "b.vx24"});
    check_mseed_file("a.a.mseed", data, time_array, arvola({{0, 200}}, {STEIM2}));
    check_mseed_file("a.b.mseed", data, time_array, arvola({{200, 300}, {300, 400}}, {STEIM2, STEIM2}));
    check_mseed_file("a.c.mseed", data, time_array, arvola({{400, 600}}, {STEIM2}));
}

TEST_F(MseedOutput, WindowFromATimeOfDay) {
    // 1500000000 is 02:40:00 UTC; start at 02:41:00 with -c.
    write_vx24("rec.vx24", ramp(3000));
    combine = 1;
    global_start_time = 2 * 3600 + 41 * 60;
    snippet_length = 500;
    run({"rec.vx24"});
    check_mseed_file("rec.mseed", data, time_array, arvola({{1200, 1700}}, {STEIM2}));
}

TEST_F(MseedOutput, NetworkAndRecordLength) {
    write_vx24("rec.vx24", ramp(2000));
    mseed_network = "9Z";
    mseed_record_length = 256;
    run({"rec.vx24"});
    mseed_expectation e = arvola({{0, 2000}}, {STEIM2});
    e.network = "9Z";
    e.record_length = 256;
    EXPECT_GT(check_mseed_file("rec.mseed", data, time_array, e), 20);
}

TEST_F(MseedOutput, LargestRecordLength) {
    fixtures::vx24_params p = ramp(20000);
    p.wave.wave = "sine";
    p.wave.noise = 300;
    write_vx24("rec.vx24", p);
    mseed_record_length = 65536;
    run({"rec.vx24"});
    mseed_expectation e = arvola({{0, 20000}}, {STEIM2});
    e.record_length = 65536;
    check_mseed_file("rec.mseed", data, time_array, e);
}

TEST_F(MseedOutput, MicrosecondStartTimes) {
    fixtures::vx24_params p = ramp(100);
    p.nanoseconds = 123456789; // 0.123457 s after rounding to microseconds
    write_vx24("rec.vx24", p);
    run({"rec.vx24"});
    check_mseed_file("rec.mseed", data, time_array, arvola({{0, 100}}, {STEIM2}));
    const int64_t first = std::llround(time_array[0] * 1e6);
    EXPECT_EQ(first % 1000000, 123457);
}

TEST_F(MseedOutput, RecordTimesComeFromTheTimeAxis) {
    // Times that wander by up to a fifth of a sample: one segment, but each
    // record starts at its own first sample's time, not at a time computed
    // from the rate.
    std::string text = "!S512Tidserier sampfrek: 20.000000 gain: 1 station: bredmo date: 2017-07-14 time: "
                       "02:40:00\n";
    for (int i = 0; i < 3000; ++i) {
        char line[96];
        std::snprintf(line, sizeof line, "%.6f %d %d %d\n",
                      1500000000.0 + i * 0.05 + 0.01 * std::sin(i * 0.1), i % 50, -i % 70, (i * 7) % 1000);
        text += line;
    }
    dir.write("rec.txt", text);
    mseed_record_length = 256;
    run({"rec.txt"});
    mseed_expectation e;
    e.stations = {"RBA1", "RBA2", "RBA3"};
    e.segments = {{0, 3000}};
    e.encodings = {STEIM2};
    e.record_length = 256;
    check_mseed_file("rec.mseed", data, time_array, e);
    EXPECT_EQ(libmseed_trace_count("rec.mseed"), 3);
}

TEST_F(MseedOutput, Vx16BinaryRecording) {
    fixtures::vx16_recipe r;
    r.date = "2016-05-04";
    r.time = "13:30:00";
    dir.write("e6050427.dat", fixtures::make_vx16_binary(r));
    run({"e6050427.dat"});
    mseed_expectation e;
    e.stations = {"REA1", "REA2", "REA3"};
    e.rate = 18.0;
    e.segments = {{0, 5120}};
    e.encodings = {STEIM2};
    check_mseed_file("e6050427.mseed", data, time_array, e);
}

TEST_F(MseedOutput, Vx16TextRecording) {
    fixtures::vx16_recipe r;
    r.date = "2016-05-04";
    r.time = "13:30:00";
    r.station = "a";
    dir.write("a6050427.txt", fixtures::make_vx16_text(r));
    run({"a6050427.txt"});
    mseed_expectation e = arvola({{0, 5120}}, {STEIM2});
    e.rate = 18.0;
    check_mseed_file("a6050427.mseed", data, time_array, e);
}

TEST_F(MseedOutput, Tm4Recording) {
    fixtures::tm4_params p;
    p.lines = 1000;
    p.wave.wave = "sine";
    dir.write("rec.tm4", fixtures::make_tm4(p));
    run({"rec.tm4"});
    mseed_expectation e;
    e.stations = {"RDA1", "RDA2", "RDA3"};
    e.segments = {{0, 1000}};
    e.encodings = {STEIM2};
    check_mseed_file("rec.mseed", data, time_array, e);
}

TEST_F(MseedOutput, UnnamedStationIsTest) {
    fixtures::vx24_params p = ramp(100);
    p.station = 254;
    write_vx24("rec.vx24", p);
    run({"rec.vx24"});
    mseed_expectation e = arvola({{0, 100}}, {STEIM2});
    e.stations = {"TEST1", "TEST2", "TEST3"};
    check_mseed_file("rec.mseed", data, time_array, e);
}

TEST_F(MseedOutput, NineChannelsFitTenAreRefused) {
    fixtures::vx24_params p = ramp(100);
    p.station = 254;
    p.channels = 9;
    write_vx24("nine.vx24", p);
    run({"nine.vx24"});
    mseed_expectation e = arvola({{0, 100}}, {STEIM2});
    e.stations.clear();
    for (int k = 1; k <= 9; ++k)
        e.stations.push_back("TEST" + std::to_string(k));
    check_mseed_file("nine.mseed", data, time_array, e);

    p.channels = 10;
    write_vx24("ten.vx24", p);
    run_refused({"ten.vx24"});
    EXPECT_FALSE(fs::exists("ten.mseed"));
}

TEST_F(MseedOutput, TenChannelsOfANamedStationFit) {
    fixtures::vx24_params p = ramp(100);
    p.channels = 10;
    write_vx24("rec.vx24", p);
    run({"rec.vx24"});
    mseed_expectation e = arvola({{0, 100}}, {STEIM2});
    e.stations.clear();
    for (int k = 1; k <= 10; ++k)
        e.stations.push_back("RAA" + std::to_string(k));
    check_mseed_file("rec.mseed", data, time_array, e);
}

TEST_F(MseedOutput, TimesBeyondTheYear2100AreRefused) {
    write_vx24("rec.vx24", ramp(100, 4200000000)); // in 2103
    run_refused({"rec.vx24"});
    EXPECT_FALSE(fs::exists("rec.mseed"));
    write_vx24("rec.vx24", ramp(100, 4133980700)); // the last 100 s of 2100
    run({"rec.vx24"});
    check_mseed_file("rec.mseed", data, time_array, arvola({{0, 100}}, {STEIM2}));
}

// mseed2sac, an outside reader, turns each segment of each channel into a
// SAC file with the same codes, start, rate and samples.
TEST_F(MseedOutput, Mseed2sacReadsEverySegment) {
    write_vx24("a.vx24", ramp(1000));
    write_vx24("b.vx24", ramp(600, 1500000100));
    combine = 1;
    run({"a.vx24", "b.vx24"});
    ASSERT_EQ(std::system("mseed2sac -f 3 a.mseed > mseed2sac.log 2>&1"), 0) << dir.read("mseed2sac.log");
    std::vector<sac_file> sacs;
    for (const auto &e : fs::directory_iterator(dir.path))
        if (e.path().extension() == ".SAC") sacs.push_back(read_sac(dir.read(e.path().filename().string())));
    ASSERT_EQ(sacs.size(), 6u);
    const sample_range segments[] = {{0, 1000}, {1000, 1600}};
    for (const sac_file &s : sacs) {
        SCOPED_TRACE(s.station);
        EXPECT_EQ(s.network, "XX");
        EXPECT_EQ(s.channel, "BDF");
        EXPECT_FLOAT_EQ(s.delta, 0.05f);
        ASSERT_EQ(s.station.size(), 4u);
        const size_t ch = static_cast<size_t>(s.station[3] - '1');
        ASSERT_LT(ch, 3u);
        // 1500000000 is 2017-07-14 (day 195) 02:40:00; the second file starts 100 s later.
        const bool second = s.minute == 41;
        const sample_range seg = segments[second ? 1 : 0];
        EXPECT_EQ(s.year, 2017);
        EXPECT_EQ(s.jday, 195);
        EXPECT_EQ(s.hour, 2);
        EXPECT_EQ(s.minute, second ? 41 : 40);
        EXPECT_EQ(s.second, second ? 40 : 0);
        EXPECT_EQ(s.msec, 0);
        EXPECT_EQ(s.b, 0.0f);
        ASSERT_EQ(s.npts, seg.end - seg.begin);
        ASSERT_EQ(s.samples.size(), static_cast<size_t>(s.npts));
        for (long i = seg.begin; i < seg.end; ++i)
            ASSERT_EQ(s.samples[static_cast<size_t>(i - seg.begin)],
                      static_cast<float>(data[ch][static_cast<size_t>(i)]))
                << "sample " << i;
    }
}
