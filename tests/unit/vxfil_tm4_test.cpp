#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <unistd.h>

#include "tm4_fixture.h"
#include "vxfil/vxfil_tm4.h"

using namespace VxFil;

namespace {

VXFIL_TM4 parse(const std::string &text, double initial_basetime = 0.0) {
    return VXFIL_TM4(std::string_view(text), "mem", initial_basetime);
}

struct temp_dir {
    std::filesystem::path path;
    temp_dir() {
        path = std::filesystem::temp_directory_path() /
               ("vxfil_tm4_test_" + std::to_string(::getpid()) + "_" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(path);
        std::filesystem::create_directories(path);
    }
    ~temp_dir() { std::filesystem::remove_all(path); }
};

const std::string no_rate_comment = "!S512Tidserier sampfrek: \n";

} // namespace

TEST(VxfilTm4, TwoLinesWithACommentWithoutRate) {
    testing::internal::CaptureStderr();
    VXFIL_TM4 v = parse(no_rate_comment + "1500000000.0 1 2 3\n1500000000.5 4 5 6\n");
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(v.get_header().common.m_num_channels, 3);
    EXPECT_EQ(v.get_frequency(), 2.0);
    EXPECT_EQ(v.get_time(), (std::vector<double>{1500000000.0, 1500000000.5}));
    EXPECT_EQ(v.get_data(0), (data_channel_type{1, 4}));
    EXPECT_EQ(v.get_data(1), (data_channel_type{2, 5}));
    EXPECT_EQ(v.get_data(2), (data_channel_type{3, 6}));
    EXPECT_EQ(v.get_header().common.m_seconds, 1500000000u);
    EXPECT_EQ(v.get_header().common.m_nanoseconds, 0u);
    EXPECT_EQ(v.get_origin(), ORIGIN_TM4);
}

TEST(VxfilTm4, PresetHeaderAndChannelRecords) {
    VXFIL_TM4 v = parse("1500000000.0 1 2 3\n");
    const vx_header &h = v.get_header();
    EXPECT_EQ(h.header.m_magic, magic_vx24);
    EXPECT_EQ(h.header.m_version, 1);
    EXPECT_EQ(h.header.m_station, 254);
    EXPECT_STREQ(v.station_name(), "test");
    EXPECT_EQ(h.common.m_num_channels, 3);
    EXPECT_EQ(h.common.m_channel_bitmap, 7u);
    EXPECT_EQ(h.common.m_bits_per_sample, 32);
    EXPECT_EQ(h.common.m_bytes_per_sample, 4);
    EXPECT_EQ(h.common.m_sample_freq_hz, -1.0); // one line and no comment: rate unknown
    ASSERT_EQ(v.get_channels().size(), 3u);
    for (size_t k = 0; k < 3; ++k) {
        const vx_channel &ch = v.get_channel_info(k);
        EXPECT_EQ(ch.m_magic, magic_chan);
        EXPECT_EQ(ch.m_channel, k);
        EXPECT_EQ(ch.m_gain, 1);
        EXPECT_EQ(ch.m_v_min, -10.0);
        EXPECT_EQ(ch.m_v_max, 10.0);
        EXPECT_EQ(ch.m_ext_gain, 1.0);
        EXPECT_EQ(v.raw2volt(v.get_data(k)[0], ch), 10.0 * (k + 1));
    }
}

TEST(VxfilTm4, FiveValuesMakeFiveChannelsAndAShorterLineEndsTheData) {
    VXFIL_TM4 v = parse("100.0 1 2 3 4 5\n100.1 6 7 8 9 10\n100.2 11 12 13 14\n100.3 1 2 3 4 5\n");
    EXPECT_EQ(v.get_header().common.m_num_channels, 5);
    ASSERT_EQ(v.get_channels().size(), 5u);
    EXPECT_EQ(v.get_channel_info(4).m_channel, 4);
    EXPECT_EQ(v.get_time().size(), 2u);
    for (size_t k = 0; k < 5; ++k)
        EXPECT_EQ(v.get_data(k), (data_channel_type{int32_t(k + 1), int32_t(k + 6)}));
}

TEST(VxfilTm4, EightChannelsAtMost) {
    VXFIL_TM4 v = parse("100 1 2 3 4 5 6 7 8 9 10\n101 1 2 3 4 5 6 7 8\n");
    EXPECT_EQ(v.get_header().common.m_num_channels, 8);
    EXPECT_EQ(v.get_time().size(), 2u);
    EXPECT_EQ(v.get_data(7), (data_channel_type{8, 8}));
}

TEST(VxfilTm4, FirstLineWithTwoValuesEndsAtOnce) {
    VXFIL_TM4 v = parse("1500000000.0 1 2\n1500000000.5 4 5 6\n");
    EXPECT_EQ(v.get_header().common.m_num_channels, 3);
    EXPECT_TRUE(v.get_time().empty());
    ASSERT_EQ(v.get_channels().size(), 3u);
    for (size_t k = 0; k < 3; ++k)
        EXPECT_TRUE(v.get_data(k).empty());
    EXPECT_EQ(v.get_header().common.m_seconds, 0u);
}

TEST(VxfilTm4, ChannelCountIsFixedByTheFirstLine) {
    // Three channels first; a later line with five is a different count and ends the data.
    VXFIL_TM4 v = parse("10 1 2 3\n11 1 2 3 4 5\n12 1 2 3\n");
    EXPECT_EQ(v.get_header().common.m_num_channels, 3);
    EXPECT_EQ(v.get_time().size(), 1u);
    for (size_t k = 0; k < 3; ++k)
        EXPECT_EQ(v.get_data(k).size(), 1u);
    VXFIL_TM4 w = parse("10 1 2 3\n11 1 2 3\n12 1 2 3 4 5\n13 1 2 3\n");
    EXPECT_EQ(w.get_time().size(), 2u);
}

TEST(VxfilTm4, StationStringFromTheComment) {
    testing::internal::CaptureStderr();
    VXFIL_TM4 v =
        parse("!S512Tidserier sampfrek: 20 gain: 1 station: dovmark2 date: 2017-07-14 time: 02:40:00\n"
              "1500000000.0 1 2 3\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(v.get_header().header.m_station, 3);
    EXPECT_STREQ(v.station_name(), "dovmark");
}

TEST(VxfilTm4, CommentWithoutStationWarnsAndTakesUnknown) {
    testing::internal::CaptureStderr();
    VXFIL_TM4 v = parse("!S512Tidserier sampfrek: 20 gain: 1\n1500000000.0 1 2 3\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "WARNING: Unknown station: <>\n");
    EXPECT_EQ(v.get_header().header.m_station, 255);
    EXPECT_EQ(v.get_frequency(), 20.0);
}

TEST(VxfilTm4, UnknownStationNameIsNamedInTheWarning) {
    testing::internal::CaptureStderr();
    VXFIL_TM4 v = parse("!S512Tidserier sampfrek: 20 gain: 1 station: Arvola\n1 2 3 4\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "WARNING: Unknown station: <Arvola>\n");
    EXPECT_EQ(v.get_header().header.m_station, 255);
}

TEST(VxfilTm4, ALaterCommentOverridesAnEarlierOne) {
    VXFIL_TM4 v = parse("!S512Tidserier sampfrek: 20 gain: 1 station: arvola\n"
                        "!S512Tidserier sampfrek: 40 gain: 1 station: e\n"
                        "1 2 3 4\n2 2 3 4\n");
    EXPECT_EQ(v.get_header().header.m_station, 4);
    EXPECT_EQ(v.get_frequency(), 40.0);
    EXPECT_EQ(v.get_time().size(), 2u);
}

TEST(VxfilTm4, CommentBetweenDataLinesIsHandled) {
    VXFIL_TM4 v = parse("1 2 3 4\n!S512Tidserier sampfrek: 5 gain: 1 station: b\n2 2 3 4\n3 2 3 4\n");
    EXPECT_EQ(v.get_header().header.m_station, 1);
    EXPECT_EQ(v.get_frequency(), 5.0);
    EXPECT_EQ(v.get_time().size(), 3u);
}

TEST(VxfilTm4, CommentRateWinsOverTheTimeStamps) {
    VXFIL_TM4 v = parse("!S512Tidserier sampfrek: 18 gain: 1 station: c\n"
                        "1500000000.0 1 2 3\n1500000000.5 4 5 6\n1500000001.0 7 8 9\n");
    EXPECT_EQ(v.get_frequency(), 18.0);
    EXPECT_EQ(v.get_header().header.m_station, 2);
}

TEST(VxfilTm4, CommentThatIsNotTypeThreeStillNamesAStation) {
    testing::internal::CaptureStderr();
    VXFIL_TM4 v = parse("!Tidserier 20 3\n100 2 3 4\n101 2 3 4\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "WARNING: Unknown station: <>\n");
    EXPECT_EQ(v.get_frequency(), 1.0); // from the time stamps: the comment gave none in this grammar
}

TEST(VxfilTm4, BaseTimeZeroIsTakenForTimesNearTheEpoch) {
    // 0 is within 2 s of a first time of 1, so the start becomes 0 and the
    // rate is derived from it.
    VXFIL_TM4 v = parse("1 2 3 4\n2 2 3 4\n", 0.0);
    EXPECT_EQ(v.get_header().common.m_seconds, 0u);
    EXPECT_EQ(v.get_frequency(), 0.5);
    EXPECT_EQ(v.get_time(), (std::vector<double>{1.0, 2.0}));
}

TEST(VxfilTm4, ValuesAreTruncatedToCounts) {
    VXFIL_TM4 v = parse("1 0.7 -2.9 1e3\n2 -0.5 2147483647.9 -2147483648.9\n");
    EXPECT_EQ(v.get_data(0), (data_channel_type{0, 0}));
    EXPECT_EQ(v.get_data(1), (data_channel_type{-2, INT32_MAX}));
    EXPECT_EQ(v.get_data(2), (data_channel_type{1000, INT32_MIN}));
    EXPECT_EQ(v.raw2volt(v.get_data(1)[0], v.get_channel_info(1)), -20.0);
}

TEST(VxfilTm4, TimesAreKeptAsTheyStand) {
    VXFIL_TM4 v = parse("100.0 1 2 3\n100.5 1 2 3\n107.25 1 2 3\n106.0 1 2 3\n");
    EXPECT_EQ(v.get_time(), (std::vector<double>{100.0, 100.5, 107.25, 106.0}));
    EXPECT_EQ(v.get_frequency(), 2.0);
}

TEST(VxfilTm4, StartTimeWithFraction) {
    VXFIL_TM4 v = parse("1500000000.25 1 2 3\n1500000000.30 1 2 3\n");
    EXPECT_EQ(v.get_header().common.m_seconds, 1500000000u);
    // The fraction goes through t0 - seconds and is truncated, as the header keeps it.
    const double t0 = 1500000000.25;
    EXPECT_EQ(v.get_header().common.m_nanoseconds, static_cast<uint32_t>((t0 - 1500000000u) * 1e9));
    EXPECT_NEAR(v.get_frequency(), 20.0, 1e-3);
}

TEST(VxfilTm4, InitialBaseTimeWithinTwoSecondsIsTaken) {
    VXFIL_TM4 v = parse("1500000000.0 1 2 3\n1500000000.5 1 2 3\n", 1499999998.75);
    EXPECT_EQ(v.get_header().common.m_seconds, 1499999998u);
    EXPECT_EQ(v.get_header().v.v1.m_host_timestamp, 1499999998u);
    EXPECT_EQ(v.get_header().common.m_nanoseconds, 750000000u);
    EXPECT_EQ(v.get_time(0), 1500000000.0); // the time column is not moved
}

TEST(VxfilTm4, InitialBaseTimeTwoSecondsOrMoreAwayIsIgnored) {
    VXFIL_TM4 v = parse("1500000000.0 1 2 3\n1500000000.5 1 2 3\n", 1499999998.0);
    EXPECT_EQ(v.get_header().common.m_seconds, 1500000000u);
    EXPECT_EQ(v.get_header().v.v1.m_host_timestamp, 0u);
    VXFIL_TM4 w = parse("1500000000.0 1 2 3\n", 1500000002.0);
    EXPECT_EQ(w.get_header().common.m_seconds, 1500000000u);
}

TEST(VxfilTm4, EmptyTextAndNoDataLineGiveNoSamples) {
    for (const std::string &text :
         {std::string(""), std::string("!S512Tidserier sampfrek: 20 gain: 1 station: a\n"),
          std::string("\n1 2 3 4\n"), std::string("time a b c\n1 2 3 4\n")}) {
        VXFIL_TM4 v = parse(text);
        EXPECT_TRUE(v.get_time().empty()) << text;
        EXPECT_EQ(v.get_header().common.m_num_channels, 3);
        ASSERT_EQ(v.m_data.size(), 3u);
        for (const auto &d : v.m_data)
            EXPECT_TRUE(d.empty());
    }
}

TEST(VxfilTm4, EmptyLineEndsTheData) {
    VXFIL_TM4 v = parse("1 2 3 4\n2 2 3 4\n\n3 2 3 4\n");
    EXPECT_EQ(v.get_time().size(), 2u);
}

TEST(VxfilTm4, LastLineWithoutLineEndAndCarriageReturns) {
    VXFIL_TM4 v = parse("1 2 3 4\r\n2 5 6 7");
    EXPECT_EQ(v.get_time(), (std::vector<double>{1.0, 2.0}));
    EXPECT_EQ(v.get_data(2), (data_channel_type{4, 7}));
}

TEST(VxfilTm4, NonFiniteOrHugeValuesEndTheData) {
    const char *bad_lines[] = {"3 nan 1 1", "3 1 inf 1",        "3 1 1 -infinity",   "nan 1 1 1",
                               "inf 1 1 1", "3 2147483648 1 1", "3 1 -2147483649 1", "3 1e300 1 1"};
    for (const char *bad : bad_lines) {
        VXFIL_TM4 v = parse(std::string("1 1 2 3\n2 4 5 6\n") + bad + "\n4 7 8 9\n");
        EXPECT_EQ(v.get_time().size(), 2u) << bad;
        EXPECT_EQ(v.get_data(0), (data_channel_type{1, 4})) << bad;
    }
    VXFIL_TM4 first_bad = parse("1 nan 2 3\n2 4 5 6\n");
    EXPECT_TRUE(first_bad.get_time().empty());
    EXPECT_EQ(first_bad.get_frequency(), -1.0);
}

TEST(VxfilTm4, StartTimesOutsideTheHeaderRangeEndTheData) {
    for (const char *text : {"-5 1 2 3\n6 1 2 3\n", "4294967296 1 2 3\n", "1e20 1 2 3\n", "-0.5 1 2 3\n"}) {
        VXFIL_TM4 v = parse(text);
        EXPECT_TRUE(v.get_time().empty()) << text;
    }
    VXFIL_TM4 top = parse("4294967295.5 1 2 3\n");
    EXPECT_EQ(top.get_time().size(), 1u);
    EXPECT_EQ(top.get_header().common.m_seconds, 4294967295u);
    // Later lines are not start times: any finite time is kept.
    VXFIL_TM4 later = parse("1 1 2 3\n2 1 2 3\n-7 1 2 3\n1e20 1 2 3\n");
    EXPECT_EQ(later.get_time().size(), 4u);
}

TEST(VxfilTm4, InitialBaseTimeOutsideTheRangeEndsTheData) {
    VXFIL_TM4 v = parse("0.5 1 2 3\n1 1 2 3\n", -1.0);
    EXPECT_TRUE(v.get_time().empty());
}

TEST(VxfilTm4, EqualFirstTimesGiveAnInfiniteRateWithoutHarm) {
    VXFIL_TM4 v = parse("5 1 2 3\n5 1 2 3\n");
    EXPECT_TRUE(std::isinf(v.get_frequency()));
    EXPECT_EQ(v.get_time().size(), 2u);
}

TEST(VxfilTm4, ScanfNumberRules) {
    // Blanks are optional between numbers that cannot run together, as for %lf.
    VXFIL_TM4 v = parse("1.5-2-3-4\n");
    EXPECT_EQ(v.get_time(), (std::vector<double>{1.5}));
    EXPECT_EQ(v.get_data(2), (data_channel_type{-4}));
}

TEST(VxfilTm4, ReadsAFixtureFile) {
    temp_dir dir;
    fixtures::tm4_params s;
    s.wave.wave = "sine";
    s.wave.amp = 3000;
    s.lines = 600;
    s.station = "bredmo2";
    s.rate = 20;
    const std::string path = (dir.path / "a.tm4").string();
    {
        const std::string text = fixtures::make_tm4(s);
        std::ofstream(path, std::ios::binary) << text;
    }
    VXFIL_TM4 v(path.c_str(), 0.0);
    EXPECT_EQ(v.get_header().header.m_station, 6);
    EXPECT_EQ(v.get_frequency(), 20.0);
    ASSERT_EQ(v.get_time().size(), 600u);
    for (uint64_t i = 0; i < 600; ++i) {
        ASSERT_NEAR(v.get_time(i), 1500000000.0 + i / 20.0, 1e-6);
        for (int k = 0; k < 3; ++k) {
            const double written = std::round(fixtures::tm4_value(s, i, k) * 10.0) / 10.0;
            ASSERT_NEAR(v.get_data(static_cast<size_t>(k))[i], std::trunc(written), 1.0) << i << " " << k;
        }
    }
}

TEST(VxfilTm4, MissingFileGivesAnEmptyRecording) {
    temp_dir dir;
    const std::string path = (dir.path / "missing.tm4").string();
    VXFIL_TM4 v(path.c_str(), 0.0);
    EXPECT_TRUE(v.get_time().empty());
    EXPECT_EQ(v.get_header().common.m_num_channels, 3);
    EXPECT_EQ(v.get_frequency(), -1.0);
}

TEST(VxfilTm4, EmbeddedNulEndsTheLineForTheScan) {
    const std::string text("1 2 3 4\n2 5\0 6 7\n", 17);
    VXFIL_TM4 v = parse(text);
    EXPECT_EQ(v.get_time().size(), 1u);
}

TEST(VxfilTm4, ExampleRecordingLoads) {
    const std::string path = std::string(SOURCE_DIR) + "/examples/tm4/dovmark_20170714_024000.tm4";
    VXFIL_TM4 v(path.c_str(), 0.0);
    EXPECT_STREQ(v.station_name(), "dovmark");
    EXPECT_EQ(v.get_frequency(), 20.0);
    EXPECT_EQ(v.get_header().common.m_seconds, 1500000000u);
    ASSERT_EQ(v.get_time().size(), 1200u);
    EXPECT_EQ(v.get_time(1199), 1500000059.95);
}

// Damaged text never crashes the reader and keeps its invariants.
TEST(VxfilTm4, RandomDamage) {
    fixtures::tm4_params s;
    s.lines = 20;
    s.wave.wave = "sine";
    const std::string original = fixtures::make_tm4(s);
    const char alphabet[] = "0123456789.-+eEnaifx !\n\r\t\0";
    std::mt19937 rng(7);
    testing::internal::CaptureStderr();
    for (int round = 0; round < 3000; ++round) {
        std::string text = original;
        const int edits = 1 + static_cast<int>(rng() % 6);
        for (int e = 0; e < edits; ++e) {
            const size_t at = rng() % text.size();
            const char c =
                rng() % 3 ? alphabet[rng() % (sizeof alphabet - 1)] : static_cast<char>(rng() & 0xFF);
            if (rng() % 2)
                text[at] = c;
            else
                text.insert(text.begin() + static_cast<std::ptrdiff_t>(at), c);
        }
        VXFIL_TM4 v = parse(text, rng() % 2 ? 0.0 : 1500000000.5);
        const size_t n = v.get_header().common.m_num_channels;
        ASSERT_GE(n, 3u);
        ASSERT_LE(n, 8u);
        ASSERT_EQ(v.m_data.size(), n);
        ASSERT_EQ(v.get_channels().size(), n);
        for (size_t k = 0; k < n; ++k)
            ASSERT_EQ(v.get_data(k).size(), v.get_time().size());
    }
    testing::internal::GetCapturedStderr();
}

namespace {

// Everything a reader leaves in the recording.
void expect_same_recording(const VXFIL_TM4 &a, const VXFIL_TM4 &b) {
    const vx_header &ha = a.get_header(), &hb = b.get_header();
    EXPECT_EQ(ha.header.m_station, hb.header.m_station);
    EXPECT_EQ(ha.common.m_seconds, hb.common.m_seconds);
    EXPECT_EQ(ha.common.m_nanoseconds, hb.common.m_nanoseconds);
    EXPECT_EQ(ha.common.m_num_channels, hb.common.m_num_channels);
    const double fa = ha.common.m_sample_freq_hz, fb = hb.common.m_sample_freq_hz;
    EXPECT_TRUE(fa == fb || (std::isnan(fa) && std::isnan(fb)));
    EXPECT_EQ(ha.v.v1.m_host_timestamp, hb.v.v1.m_host_timestamp);
    ASSERT_EQ(a.get_channels().size(), b.get_channels().size());
    EXPECT_EQ(a.m_data, b.m_data);
    EXPECT_EQ(a.get_time(), b.get_time());
}

} // namespace

// The file is read in pieces of 1 MiB: lines across the piece ends, a line
// longer than a piece and a last line without line end read as from memory.
TEST(VxfilTm4, FileReadInPiecesEqualsTheTextInMemory) {
    temp_dir dir;
    std::string text =
        "!S512Tidserier sampfrek: 20 gain: 1 station: dovmark date: 2017-07-14 time: 02:40:00\n";
    std::mt19937 rng(3);
    for (int i = 0; i < 120000; ++i) {
        text += std::to_string(1500000000 + i) + "." + std::to_string(rng() % 1000);
        for (int k = 0; k < 3; ++k)
            text +=
                (rng() % 2 ? " -" : "\t") + std::to_string(rng() % 100000) + "." + std::to_string(rng() % 10);
        if (i == 50000) text += std::string(3 << 20, ' '); // 3 MiB of trailing blanks
        text += i % 7 == 0 ? "\r\n" : "\n";
    }
    text += "1500200000.5 1 2 3"; // no line end
    const std::string path = (dir.path / "pieces.tm4").string();
    std::ofstream(path, std::ios::binary) << text;
    testing::internal::CaptureStderr();
    VXFIL_TM4 from_file(path.c_str(), 0.0);
    VXFIL_TM4 from_memory = parse(text);
    testing::internal::GetCapturedStderr();
    ASSERT_EQ(from_file.get_time().size(), 120001u);
    EXPECT_EQ(from_file.get_time(120000), 1500200000.5);
    expect_same_recording(from_file, from_memory);
}

TEST(VxfilTm4, DamagedFilesReadAsTheSameTextInMemory) {
    temp_dir dir;
    fixtures::tm4_params s;
    s.lines = 300;
    s.wave.wave = "sine";
    const std::string original = fixtures::make_tm4(s);
    const char alphabet[] = "0123456789.-+eEnaifx !\n\r\t\0";
    std::mt19937 rng(11);
    const std::string path = (dir.path / "damaged.tm4").string();
    testing::internal::CaptureStderr();
    for (int round = 0; round < 200; ++round) {
        std::string text = original;
        for (int e = 0; e < 3; ++e) {
            const size_t at = rng() % text.size();
            text[at] = alphabet[rng() % (sizeof alphabet - 1)];
        }
        std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
        VXFIL_TM4 from_file(path.c_str(), 1500000000.5);
        VXFIL_TM4 from_memory = parse(text, 1500000000.5);
        expect_same_recording(from_file, from_memory);
    }
    testing::internal::GetCapturedStderr();
}

TEST(VxfilTm4, TextEndsWhereTheViewEnds) {
    // The bytes after the view are not part of the text, not even digits.
    const std::string buffer = "1 2 3 4\n2 5 6 789";
    VXFIL_TM4 v(std::string_view(buffer.data(), buffer.size() - 2), "mem", 0.0);
    EXPECT_EQ(v.get_data(2), (data_channel_type{4, 7}));
    const std::string unusual = "1 2 3 4\n2 5 6 +789";
    VXFIL_TM4 w(std::string_view(unusual.data(), unusual.size() - 2), "mem", 0.0);
    EXPECT_EQ(w.get_data(2), (data_channel_type{4, 7}));
}

TEST(VxfilTm4, LongerLinesThanTheFirstOnesStillAllFit) {
    // The sample sequences are sized by the first lines' length; a text whose
    // later lines are much shorter holds more lines than that estimate.
    std::string text;
    for (int i = 0; i < 5000; ++i)
        text += std::to_string(i) + " 1 2 3" + std::string(200, ' ') + "\n";
    for (int i = 5000; i < 200000; ++i)
        text += std::to_string(i) + " 4 5 6\n";
    VXFIL_TM4 v = parse(text);
    ASSERT_EQ(v.get_time().size(), 200000u);
    EXPECT_EQ(v.get_time(199999), 199999.0);
    EXPECT_EQ(v.get_data(2).back(), 6);
    EXPECT_EQ(v.get_data(0)[4999], 1);
}

TEST(VxfilTm4, UnusualNumberFormsKeepTheCLibraryMeaning) {
    // Lines outside the plain decimal form are read by the C library's rules.
    VXFIL_TM4 v = parse("+1 2 3 4\n2 +5 6 7\n3 0x10 6 7\n4 8 9 x\n");
    EXPECT_EQ(v.get_time(), (std::vector<double>{1.0, 2.0, 3.0}));
    EXPECT_EQ(v.get_data(0), (data_channel_type{2, 5, 16}));
    VXFIL_TM4 w = parse("1 2 3 4 5 6 7 8 9 10 11\n2 2 3 4 5 6 7 8 9\n");
    EXPECT_EQ(w.get_header().common.m_num_channels, 8);
    EXPECT_EQ(w.get_time().size(), 2u);
}
