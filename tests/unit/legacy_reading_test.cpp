// First-generation comment-headed recordings read with legacy_options: the
// oldest kind (first line "Tidserier RATE GAIN", no block stamps) and type 1
// and type 2 comments, which name no station.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "vx16_fixture.h"
#include "vx16_test_support.h"
#include "vxfil/vxdetect.h"
#include "vxfil/vxfil16.h"

using namespace VxFil;
using namespace vx16_test;

namespace {

constexpr int64_t day_2016_05_04 = 1462320000; // 2016-05-04 00:00:00 UTC
const char *const archive_name = "2016/05/20160504/e6050427.dat";

class Legacy : public ::testing::Test {
  protected:
    void SetUp() override { force_utc_env(); }

    std::unique_ptr<VXFIL16> load(const std::string &name, const std::string &bytes, legacy_options opts) {
        opts.m_enabled = true;
        return std::make_unique<VXFIL16>(dir.write(name, bytes).c_str(), 0.0, opts);
    }

    throwing_fatal fatal_guard;
    scratch_dir dir;
};

fixtures::vx16_recipe oldest(int blocks) {
    fixtures::vx16_recipe s;
    s.kind = "T";
    s.freq = 18;
    s.gain = 3;
    s.blocks = blocks;
    s.pattern = "ramp";
    return s;
}

// Type 1 or 2 with minute-of-hour stamps counted from the name's half-hour.
fixtures::vx16_recipe first_generation(const std::string &kind, int blocks) {
    fixtures::vx16_recipe s;
    s.kind = kind;
    s.freq = 20;
    s.gain = 2;
    s.blocks = blocks;
    s.start = 13 * 3600 + 30 * 60;
    s.minutes_of_day = false;
    s.pattern = "ramp";
    return s;
}

void expect_continuous(const VXFIL16 &r, double start, double rate) {
    const std::vector<double> &t = r.get_time();
    ASSERT_FALSE(t.empty());
    EXPECT_DOUBLE_EQ(t.front(), start);
    for (size_t i = 1; i < t.size(); ++i)
        ASSERT_NEAR(t[i] - t[i - 1], 1.0 / rate, 1e-6) << i;
}

} // namespace

TEST_F(Legacy, OldestBinaryStartsAtTheNamesHalfHourAndRunsOn) {
    auto r = load(archive_name, fixtures::make_vx16_binary(oldest(3)), {});
    EXPECT_EQ(r->get_header().common.m_sample_freq_hz, 18.0);
    EXPECT_EQ(r->get_header().common.m_seconds, static_cast<uint32_t>(day_2016_05_04 + 27 * 1800));
    EXPECT_STREQ(r->station_name(), "ensholm");
    EXPECT_EQ(r->get_channels()[0].m_ext_gain, 30.0);
    ASSERT_EQ(r->get_time().size(), 3u * 128u);
    expect_continuous(*r, static_cast<double>(day_2016_05_04 + 27 * 1800), 18.0);
    const fixtures::vx16_recipe s = oldest(3);
    for (int ch = 0; ch < 3; ++ch)
        for (int64_t n : {0, 127, 128, 383})
            EXPECT_EQ(r->get_data(ch)[n], static_cast<int32_t>(fixtures::vx16_sample(s, ch, n)));
}

TEST_F(Legacy, OldestTextGoesToTheTextReader) {
    auto r = load("20160504/b6050401.txt", fixtures::make_vx16_text(oldest(2)), {});
    EXPECT_EQ(r->get_header().common.m_seconds, static_cast<uint32_t>(day_2016_05_04 + 1800));
    EXPECT_STREQ(r->station_name(), "bredmo");
    ASSERT_EQ(r->get_time().size(), 2u * 128u);
    EXPECT_EQ(r->get_data(2)[255], static_cast<int32_t>(fixtures::vx16_sample(oldest(2), 2, 255)));
}

TEST_F(Legacy, OldestWithoutLegacyStillFailsAsBefore) {
    const std::string path = dir.write(archive_name, fixtures::make_vx16_binary(oldest(2)));
    // The station lookup of an empty station ends it, as it always has.
    EXPECT_THROW(capture_stderr([&] { VXFIL16 r(path.c_str(), 0.0); }), std::out_of_range);
}

TEST_F(Legacy, TypeOneAndTwoKeepTheirStamps) {
    for (const char *kind : {"1", "2"}) {
        fixtures::vx16_recipe s = first_generation(kind, 4);
        s.gaps = {{2, 60}}; // the third block one minute late
        auto r = load(archive_name, fixtures::make_vx16_binary(s), {});
        const std::vector<double> &t = r->get_time();
        ASSERT_EQ(t.size(), 4u * 128u) << kind;
        EXPECT_EQ(r->get_header().common.m_sample_freq_hz, 20.0);
        EXPECT_EQ(r->get_channels()[0].m_ext_gain, 20.0);
        EXPECT_EQ(t[0], static_cast<double>(day_2016_05_04 + 13 * 3600 + 30 * 60)) << kind;
        EXPECT_EQ(t[256], static_cast<double>(day_2016_05_04 + fixtures::vx16_block_time(s, 2))) << kind;
        EXPECT_STREQ(r->station_name(), "ensholm");
    }
}

TEST_F(Legacy, StationOptionWinsOverTheNameLetter) {
    legacy_options opts;
    opts.m_station = arvola2;
    auto r = load(archive_name, fixtures::make_vx16_binary(first_generation("1", 2)), opts);
    EXPECT_STREQ(r->station_name(), "arvola2");
}

TEST_F(Legacy, ACommentStationIsKept) {
    fixtures::vx16_recipe s;
    s.kind = "S512";
    s.station = "c";
    s.date = "2016-05-04";
    s.time = "13:30:00";
    s.blocks = 2;
    legacy_options opts;
    opts.m_station = arvola;
    auto r = load(archive_name, fixtures::make_vx16_binary(s), opts);
    EXPECT_STREQ(r->station_name(), "corsund");
}

TEST_F(Legacy, NoStationAnywhereIsReported) {
    try {
        load("20160504/x6050427.dat", fixtures::make_vx16_binary(first_generation("2", 2)), {});
        FAIL() << "no exception";
    } catch (const missing_station &e) {
        EXPECT_NE(e.path().find("x6050427.dat"), std::string::npos);
    }
    // A name that is no archive name has no station letter either.
    EXPECT_THROW(load("data.dat", fixtures::make_vx16_binary(first_generation("1", 2)), {}), missing_station);
}

TEST_F(Legacy, MissingGainIsSettingOneWithAWarning) {
    fixtures::vx16_recipe s = oldest(2);
    s.gain = -1;
    std::unique_ptr<VXFIL16> r;
    std::string err = capture_stderr([&] { r = load(archive_name, fixtures::make_vx16_binary(s), {}); });
    EXPECT_EQ(r->get_channels()[0].m_ext_gain, 10.0);
    EXPECT_NE(err.find("e6050427.dat\" names no gain setting; converting with gain setting 1\n"),
              std::string::npos)
        << err;
}

TEST_F(Legacy, OldestWithoutHalfHourInTheNameIsRefused) {
    legacy_options opts;
    opts.m_station = arvola;
    EXPECT_THROW(load("old.dat", fixtures::make_vx16_binary(oldest(2)), opts), std::runtime_error);
}

TEST_F(Legacy, VxdetectPassesTheOptionsOn) {
    const std::string path = dir.write(archive_name, fixtures::make_vx16_text(first_generation("1", 2)));
    legacy_options opts;
    opts.m_enabled = true;
    opts.m_station = dovmark2;
    std::unique_ptr<Vxfil_Base> r(vxdetect(path.c_str(), 0.0, opts));
    ASSERT_TRUE(r);
    EXPECT_STREQ(r->station_name(), "dovmark2");
}

TEST_F(Legacy, ACommentAloneTakesTheStationItCan) {
    // The reader choice needs 256 bytes; these end inside the first block.
    const std::string bytes = fixtures::make_vx16_binary(oldest(0)) + std::string(300, '\0');
    legacy_options opts;
    opts.m_station = corsund2;
    std::unique_ptr<VXFIL16> named, unnamed;
    capture_stderr([&] {
        named = load(archive_name, bytes, opts);
        unnamed = load("data.dat", bytes, {});
    });
    EXPECT_TRUE(named->get_time().empty());
    EXPECT_STREQ(named->station_name(), "corsund2");
    EXPECT_STREQ(unnamed->station_name(), "unknown");
}

TEST_F(Legacy, ExamplesMatchTheirFixtureCommands) {
    // The first-generation command lines in examples/README-vx16.md.
    auto path = [](const std::string &rel) { return std::string(SOURCE_DIR) + "/examples/vx16/" + rel; };
    auto read = [&](const std::string &rel) {
        std::ifstream in(path(rel), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    };
    fixtures::vx16_recipe t = oldest(30);
    t.pattern = "sine";
    t.amplitude = 400;
    EXPECT_EQ(read("1993/11/19931102/b3110214.dat"), fixtures::make_vx16_binary(t));
    fixtures::vx16_recipe one = first_generation("1", 30);
    one.start = 59400;
    one.pattern = "sine";
    one.amplitude = 300;
    EXPECT_EQ(read("1995/06/19950617/c5061733.txt"), fixtures::make_vx16_text(one));

    legacy_options opts;
    opts.m_enabled = true;
    VXFIL16 r(path("1993/11/19931102/b3110214.dat").c_str(), 0.0, opts);
    EXPECT_EQ(r.get_time().size(), 30u * 128);
    EXPECT_STREQ(r.station_name(), "bredmo");
    EXPECT_EQ(r.get_time(0), 752223600.0); // 1993-11-02 07:00:00 UTC
}

TEST_F(Legacy, DamagedFirstGenerationRecordingsNeverCrash) {
    // Every cut and many flipped bytes of each kind end in a recording or an
    // exception, never in a crash or a read out of bounds.
    std::vector<std::pair<std::string, std::string>> kinds = {
        {archive_name, fixtures::make_vx16_binary(oldest(3))},
        {"1993/11/19931102/b3110215.txt", fixtures::make_vx16_text(oldest(3))},
        {archive_name, fixtures::make_vx16_binary(first_generation("1", 3))},
        {"19950617/c5061733.txt", fixtures::make_vx16_text(first_generation("2", 3))},
    };
    std::mt19937 rng(20261123);
    for (const auto &[name, intact] : kinds) {
        std::vector<std::string> variants;
        for (size_t cut = 0; cut < intact.size(); cut += 1 + cut / 7)
            variants.push_back(intact.substr(0, cut));
        for (int i = 0; i < 60; ++i) {
            std::string b = intact;
            for (int k = 0; k < 4; ++k)
                b[rng() % b.size()] = static_cast<char>(rng() & 0xff);
            variants.push_back(b);
        }
        for (std::string &bytes : variants) {
            for (int station : {-1, static_cast<int>(arvola)}) {
                legacy_options opts;
                opts.m_enabled = true;
                opts.m_station = station;
                capture_stderr([&] {
                    try {
                        FILE *f = bytes.empty() ? nullptr : fmemopen(bytes.data(), bytes.size(), "rb");
                        VXFIL16 r(f, name.c_str(), 0.0, opts);
                        for (size_t k = 0; k < 3; ++k)
                            EXPECT_EQ(r.get_data(k).size(), r.get_time().size());
                    } catch (const fatal_exit_called &) {
                    } catch (const std::exception &) {
                    }
                });
            }
        }
    }
}
