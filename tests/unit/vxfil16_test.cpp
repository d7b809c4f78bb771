// vx16 recordings through the channel-recording interface.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <regex>
#include <stdexcept>
#include <string>

#include "vx16_fixture.h"
#include "vx16_test_support.h"
#include "vxfil/debug.h"
#include "vxfil/vxfil16.h"

using namespace VxFil;
using namespace vx16_test;

namespace {

constexpr int64_t start_2016 = 1462368600; // 2016-05-04 13:30:00 UTC

class Vx16 : public ::testing::Test {
  protected:
    void SetUp() override { force_utc_env(); }
    void TearDown() override { vxfil_debug = 0; }

    std::unique_ptr<VXFIL16> load_binary(const fixtures::vx16_recipe& s, double basetime = 0.0) {
        return std::make_unique<VXFIL16>(dir.write("r.dat", fixtures::make_vx16_binary(s)).c_str(), basetime);
    }
    std::unique_ptr<VXFIL16> load_text(const fixtures::vx16_recipe& s, double basetime = 0.0) {
        return std::make_unique<VXFIL16>(dir.write("r.txt", fixtures::make_vx16_text(s)).c_str(), basetime);
    }

    throwing_fatal fatal_guard; // a stray library end fails the test instead of ending the run
    scratch_dir dir;
};

// 128 samples at 12.8 Hz: blocks of exactly 10 s, Unix stamps.
fixtures::vx16_recipe ten_second_blocks(int blocks) {
    fixtures::vx16_recipe s;
    s.kind = "U128";
    s.freq = 12.8;
    s.blocks = blocks;
    s.start = start_2016;
    s.pattern = "ramp";
    return s;
}

fixtures::vx16_recipe archive_recipe(int blocks) {
    fixtures::vx16_recipe s;
    s.kind = "S512";
    s.gain = 3;
    s.station = "e";
    s.date = "2016-05-04";
    s.time = "13:30:00";
    s.blocks = blocks;
    s.start = 13 * 3600 + 30 * 60;
    return s;
}

} // namespace

TEST_F(Vx16, HeaderAndChannelRecords) {
    auto r = load_binary(archive_recipe(3));
    const vx_header& h = r->get_header();
    EXPECT_EQ(h.header.m_magic, magic_vx24);
    EXPECT_EQ(h.header.m_version, 1);
    EXPECT_EQ(h.header.m_station, ensholm);
    EXPECT_STREQ(r->station_name(), "ensholm");
    EXPECT_EQ(h.common.m_num_channels, 3);
    EXPECT_EQ(h.common.m_channel_bitmap, 7u);
    EXPECT_EQ(h.common.m_bits_per_sample, 16);
    EXPECT_EQ(h.common.m_bytes_per_sample, 2);
    EXPECT_EQ(h.common.m_sample_freq_hz, 18.0);
    EXPECT_EQ(h.common.m_seconds, static_cast<uint32_t>(start_2016));
    EXPECT_EQ(h.common.m_nanoseconds, 0u);
    EXPECT_EQ(h.v.v1.m_host_timestamp, 0u);
    ASSERT_EQ(r->get_channels().size(), 3u);
    for (uint16_t k = 0; k < 3; ++k) {
        const vx_channel& ch = r->get_channel_info(k);
        EXPECT_EQ(ch.m_magic, magic_chan);
        EXPECT_EQ(ch.m_channel, k);
        EXPECT_EQ(ch.m_gain, 1);
        EXPECT_EQ(ch.m_v_min, -10.0);
        EXPECT_EQ(ch.m_v_max, 10.0);
        EXPECT_EQ(ch.m_ext_gain, 30.0); // gain setting 3
        EXPECT_EQ(r->raw2volt(100, ch), 30000.0);
        EXPECT_EQ(r->get_data(k).size(), 3u * 512);
    }
    EXPECT_EQ(r->get_time().size(), 3u * 512);
    const Vxfil_Base& base = *r;
    EXPECT_EQ(base.get_origin(), ORIGIN_VX16);
}

TEST_F(Vx16, SamplesInChannelOrder) {
    auto s = archive_recipe(2);
    s.pattern = "ramp";
    auto r = load_binary(s);
    for (int ch = 0; ch < 3; ++ch)
        for (int n : {0, 511, 512, 1023})
            EXPECT_EQ(r->get_data(ch)[n], static_cast<int32_t>(fixtures::vx16_sample(s, ch, n)));
}

TEST_F(Vx16, CountsByTruncation) {
    auto s = ten_second_blocks(1);
    s.pattern = "frac";
    auto r = load_text(s);
    EXPECT_EQ(r->get_data(0)[0], 3);  // 3.7
    EXPECT_EQ(r->get_data(0)[1], -3); // -3.7
    EXPECT_EQ(r->get_data(0)[3], -4); // -4.7
    EXPECT_EQ(r->get_data(1)[0], 1003);
}

TEST_F(Vx16, InitialBaseTimeWithinTwoSeconds) {
    auto s = ten_second_blocks(2);
    auto r = load_binary(s, static_cast<double>(start_2016) + 1.9);
    EXPECT_EQ(r->get_header().common.m_seconds, static_cast<uint32_t>(start_2016 + 1));
    EXPECT_EQ(r->get_header().v.v1.m_host_timestamp, static_cast<uint32_t>(start_2016 + 1));
    EXPECT_NEAR(r->get_header().common.m_nanoseconds, 9e8, 1000);
    // 1.9 s from the first block's stamp is more than the 1.5 s a stretch
    // tolerates: the times restart at the block's own second.
    EXPECT_EQ(r->get_time(0), static_cast<double>(start_2016));
    auto close = load_binary(s, static_cast<double>(start_2016) + 0.9);
    EXPECT_NEAR(close->get_time(0), static_cast<double>(start_2016) + 0.9, 1e-6);
    EXPECT_NEAR(close->get_header().common.m_nanoseconds, 9e8, 1000);

    auto ignored = load_binary(s, static_cast<double>(start_2016) - 2.0);
    EXPECT_EQ(ignored->get_header().common.m_seconds, static_cast<uint32_t>(start_2016));
    EXPECT_EQ(ignored->get_header().common.m_nanoseconds, 0u);
    EXPECT_EQ(ignored->get_header().v.v1.m_host_timestamp, 0u);
    EXPECT_EQ(ignored->get_time(0), static_cast<double>(start_2016));
}

TEST_F(Vx16, RefinementOfATenSecondStretch) {
    vxfil_debug = 1;
    std::unique_ptr<VXFIL16> r;
    std::string err = capture_stderr([&] { r = load_binary(ten_second_blocks(4)); });
    vxfil_debug = 0;
    ASSERT_EQ(r->get_time().size(), 4u * 128);
    double t = static_cast<double>(start_2016);
    for (size_t k = 0; k < r->get_time().size(); ++k) {
        EXPECT_NEAR(r->get_time(k), t + 0.495, 1e-6) << k;
        t += 1.0 / 12.8;
    }
    EXPECT_TRUE(
        std::regex_search(err, std::regex("(^|\n)vxfil16\\.cpp:[0-9]+:: debug: For 0 vectors are equal\n")))
        << err;
    EXPECT_TRUE(
        std::regex_search(err, std::regex("\nvxfil16\\.cpp:[0-9]+:: debug: For 0\\.99 vectors are equal\n")));
    EXPECT_TRUE(std::regex_search(
        err,
        std::regex(
            "\nvxfil16\\.cpp:[0-9]+:: debug: Time offset equal between 0 & 0\\.99\\. Using 0\\.495\n$")));
}

TEST_F(Vx16, NoDebugLinesWithoutTheSwitch) {
    std::string err = capture_stderr([&] { load_binary(ten_second_blocks(4)); });
    EXPECT_EQ(err, "");
}

TEST_F(Vx16, ThreeBlocksAreNotRefined) {
    auto r = load_binary(ten_second_blocks(3));
    EXPECT_EQ(r->get_time(0), static_cast<double>(start_2016));
    EXPECT_EQ(r->get_time(2 * 128), static_cast<double>(start_2016 + 20));
}

TEST_F(Vx16, FourStretchesAreNotRefinedThreeAre) {
    auto s = ten_second_blocks(16);
    s.gaps = {{4, 5}, {8, 5}, {12, 5}};
    auto r = load_binary(s);
    EXPECT_EQ(r->get_time(0), static_cast<double>(start_2016));
    EXPECT_EQ(r->get_time(4 * 128), static_cast<double>(start_2016 + 45));
    EXPECT_EQ(r->get_time(12 * 128), static_cast<double>(start_2016 + 135));

    s.blocks = 12;
    s.gaps = {{4, 5}, {8, 5}};
    auto three = load_binary(s);
    EXPECT_NEAR(three->get_time(0), static_cast<double>(start_2016) + 0.495, 1e-6);
    EXPECT_NEAR(three->get_time(4 * 128), static_cast<double>(start_2016 + 45) + 0.495, 1e-6);
    EXPECT_NEAR(three->get_time(8 * 128 + 5), static_cast<double>(start_2016 + 90) + 5 / 12.8 + 0.495, 1e-6);
}

TEST_F(Vx16, JumpOfTwoSecondsStartsAStretch) {
    auto s = ten_second_blocks(3);
    s.gaps = {{2, 2}};
    auto r = load_binary(s);
    EXPECT_EQ(r->get_time(2 * 128), static_cast<double>(start_2016 + 22));
    EXPECT_EQ(r->get_time(2 * 128 - 1), static_cast<double>(start_2016 + 20) - 1 / 12.8);

    s.gaps = {{2, 1}};
    auto one = load_binary(s);
    EXPECT_EQ(one->get_time(2 * 128), static_cast<double>(start_2016 + 20)); // runs on by accumulation
}

TEST_F(Vx16, TimesRunOnWithinAStretch) {
    auto r = load_binary(archive_recipe(64));
    const auto& t = r->get_time();
    ASSERT_EQ(t.size(), 64u * 512);
    double offset = t[0] - static_cast<double>(start_2016);
    EXPECT_GE(offset, 0.0);
    EXPECT_LT(offset, 1.0);
    // Accumulated sample by sample at about 1.5e9 s: rounding adds up to a few ms.
    EXPECT_NEAR(t.back() - t[0], (64 * 512 - 1) / 18.0, 0.01);
    for (size_t k = 1; k < t.size(); ++k)
        ASSERT_GT(t[k], t[k - 1]) << k;
}

TEST_F(Vx16, UnknownStationLetter) {
    auto s = archive_recipe(1);
    s.station = "F";
    try {
        load_binary(s);
        FAIL() << "no error";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "map::at");
    }
    // Comments of type 1 name no station at all.
    s.comment = "!Tidserier 18 2";
    s.kind = "S128";
    EXPECT_THROW(load_binary(s), std::out_of_range);
}

TEST_F(Vx16, GainOutsideTheTable) {
    auto s = archive_recipe(1);
    s.gain = 5;
    try {
        load_binary(s);
        FAIL() << "no error";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "array::at: __n (which is 4) >= _Nm (which is 4)");
    }
    s.gain = 0;
    EXPECT_THROW(load_binary(s), std::out_of_range);
    s.comment = "!S512Tidserier sampfrek: 18 gain: -2147483648 station: e";
    EXPECT_THROW(load_binary(s), std::out_of_range);
}

TEST_F(Vx16, CommentWithoutBlocksGivesEmptySequences) {
    std::string comment = "!S512Tidserier sampfrek: 18 gain: 2 station: e date: 2016-05-04\n";
    std::string path = dir.write("empty.dat", comment + std::string(256, ' ') + "\r");
    VXFIL16 r(path.c_str(), 0.0);
    EXPECT_TRUE(r.get_time().empty());
    ASSERT_EQ(r.m_data.size(), 3u);
    for (int k = 0; k < 3; ++k)
        EXPECT_TRUE(r.get_data(k).empty());
    ASSERT_EQ(r.get_channels().size(), 3u);
    EXPECT_EQ(r.get_channel_info(2).m_ext_gain, 20.0);
    EXPECT_EQ(r.get_frequency(), 18.0);
    EXPECT_EQ(r.get_header().header.m_station, ensholm);
    EXPECT_EQ(r.get_header().common.m_seconds, 0u);

    // A partial first block: "fread: EOF" and still nothing.
    auto s = archive_recipe(1);
    std::string bytes = fixtures::make_vx16_binary(s);
    std::string cut = dir.write("cut.dat", bytes.substr(0, bytes.size() - 10));
    std::string err = capture_stderr([&] {
        VXFIL16 c(cut.c_str(), 0.0);
        EXPECT_TRUE(c.get_time().empty());
        EXPECT_EQ(c.get_channels().size(), 3u);
    });
    EXPECT_EQ(err, "fread: EOF\n");
}

TEST_F(Vx16, InvalidFrequencyIsOneClearError) {
    auto s = archive_recipe(2);
    s.freq = 0.0;
    try {
        load_binary(s);
        FAIL() << "no error";
    } catch (const std::runtime_error& e) {
        EXPECT_TRUE(std::regex_match(e.what(), std::regex("Error: sample rate 0 of \".*\" is not usable\n"))) << e.what();
    }
}

TEST_F(Vx16, TextAndBinaryAgree) {
    auto s = archive_recipe(8);
    auto b = load_binary(s);
    auto t = load_text(s);
    EXPECT_EQ(b->get_time(), t->get_time());
    for (int k = 0; k < 3; ++k)
        EXPECT_EQ(b->get_data(k), t->get_data(k));
}

TEST_F(Vx16, FromAnOpenStream) {
    std::string bytes = fixtures::make_vx16_binary(archive_recipe(2));
    VXFIL16 r(fmemopen(bytes.data(), bytes.size(), "rb"), "2016/05/20160504/e6050427.dat", 0.0);
    EXPECT_EQ(r.get_time().size(), 2u * 512);
}

TEST_F(Vx16, ExamplesMatchTheirFixtureCommands) {
    // The command lines in examples/README-vx16.md, as recipes.
    auto read = [](const std::string& rel) {
        std::ifstream in(std::string(SOURCE_DIR) + "/examples/vx16/" + rel, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    };
    fixtures::vx16_recipe s = archive_recipe(64);
    s.gain = 2;
    s.amplitude = 200;
    EXPECT_EQ(read("2016/05/20160504/e6050427.dat"), fixtures::make_vx16_binary(s));
    EXPECT_EQ(read("2016/05/20160504/e6050427.txt"), fixtures::make_vx16_text(s));
    fixtures::vx16_recipe d = archive_recipe(40);
    d.kind = "S128";
    d.station = "d";
    d.date = "2016-05-05";
    d.time = "05:00:00";
    d.start = 18000;
    d.amplitude = 500;
    EXPECT_EQ(read("2016/05/20160505/d6050510.dat"), fixtures::make_vx16_binary(d));

    VXFIL16 r((std::string(SOURCE_DIR) + "/examples/vx16/2016/05/20160504/e6050427.dat").c_str(), 0.0);
    EXPECT_EQ(r.get_time().size(), 64u * 512);
    EXPECT_STREQ(r.station_name(), "ensholm");
    EXPECT_GE(r.get_time(0), 1462368600.0);
    EXPECT_LT(r.get_time(0), 1462368601.0);
}
