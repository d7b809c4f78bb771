#include <gtest/gtest.h>

#include <filesystem>
#include <cstdlib>
#include <fstream>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <unistd.h>

#include "throwing_fatal.h"
#include "vx24_fixture.h"
#include "vxfil/fatal.h"
#include "vxfil/vxfil24.h"

using namespace VxFil;
using fixtures::make_vx24;
using fixtures::vx24_params;

namespace {

VXFIL24 load(const std::string &bytes) {
    return VXFIL24(reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size(), "mem");
}

// The message of the runtime error that loading throws, or "" when it loads.
std::string load_error(const std::string &bytes) {
    try {
        load(bytes);
    } catch (const std::runtime_error &e) {
        return e.what();
    }
    return "";
}

struct temp_dir {
    std::filesystem::path path;
    temp_dir() {
        path = std::filesystem::temp_directory_path() /
               ("vxfil24_test_" + std::to_string(::getpid()) + "_" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(path);
        std::filesystem::create_directories(path);
    }
    ~temp_dir() { std::filesystem::remove_all(path); }
    std::string write(const std::string &name, const std::string &bytes) const {
        std::string p = (path / name).string();
        std::ofstream(p, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        return p;
    }
};

const std::set<std::string> documented_messages = {"This is not a valid vx24 file\n", "Unknown magic chns\n",
                                                   "Unknown magic chan\n", "Unknown magic data\n"};

vx24_params params_v(int version) {
    vx24_params s;
    s.version = version;
    return s;
}

} // namespace

TEST(Vxfil24, VersionZeroHasItsChannelBlockAt32) {
    std::string bytes = make_vx24(params_v(0));
    EXPECT_EQ(bytes.substr(32, 4), "chns");
    VXFIL24 v = load(bytes);
    EXPECT_EQ(v.get_header().header.m_version, 0);
    EXPECT_EQ(v.get_header().header.m_header_length, 32);
    EXPECT_EQ(v.get_time().size(), 100u);
    bytes[32] = 'x';
    EXPECT_EQ(load_error(bytes), "Unknown magic chns\n");
}

TEST(Vxfil24, VersionOneHasItsChannelBlockAt36AndALongerHeaderLength) {
    vx24_params s = params_v(1);
    s.header_length = 1000;
    s.host_timestamp = 1499999999;
    std::string bytes = make_vx24(s);
    EXPECT_EQ(bytes.substr(36, 4), "chns");
    VXFIL24 v = load(bytes);
    EXPECT_EQ(v.get_header().header.m_header_length, 1004);
    EXPECT_EQ(v.get_header().v.v1.m_host_timestamp, 1499999999u);
    EXPECT_EQ(v.get_data(0).size(), 100u);
    bytes[36] = 'x';
    EXPECT_EQ(load_error(bytes), "Unknown magic chns\n");
}

TEST(Vxfil24, VersionOneHeaderLengthWrapsInSixteenBits) {
    vx24_params s = params_v(1);
    s.header_length = 65534;
    EXPECT_EQ(load(make_vx24(s)).get_header().header.m_header_length, 2);
}

TEST(Vxfil24, VersionTwoHasItsChannelBlockAt40AndADeviceId) {
    vx24_params s = params_v(2);
    s.host_timestamp = 1234;
    s.device_id = 0xDEADBEEF;
    std::string bytes = make_vx24(s);
    EXPECT_EQ(bytes.substr(40, 4), "chns");
    VXFIL24 v = load(bytes);
    EXPECT_EQ(v.get_header().header.m_header_length, 40);
    EXPECT_EQ(v.get_header().v.v2.m_host_timestamp, 1234u);
    EXPECT_EQ(v.get_header().v.v2.m_device_id, 0xDEADBEEFu);
    bytes[40] = 'x';
    EXPECT_EQ(load_error(bytes), "Unknown magic chns\n");
}

TEST(Vxfil24, HeaderAndChannelFieldsAreDecoded) {
    vx24_params s = params_v(2);
    s.station = 7;
    s.seconds = 1600000000;
    s.nanoseconds = 250000000;
    s.channel_bitmap = 0x15;
    s.channels = 3;
    s.channel_numbers = {4, 2, 65535};
    s.gain = 64;
    s.v_min = -2.5;
    s.v_max = 2.5e-7;
    s.ext_gain = 13.0;
    s.rate = 40.0;
    s.bits_per_sample = 24;
    s.bytes_per_sample = 3;
    VXFIL24 v = load(make_vx24(s));
    const vx_header &h = v.get_header();
    EXPECT_EQ(h.header.m_magic, magic_vx24);
    EXPECT_EQ(h.header.m_station, 7);
    EXPECT_STREQ(v.station_name(), "corsund2");
    EXPECT_EQ(h.common.m_seconds, 1600000000u);
    EXPECT_EQ(h.common.m_nanoseconds, 250000000u);
    EXPECT_EQ(h.common.m_channel_bitmap, 0x15u);
    EXPECT_EQ(h.common.m_num_channels, 3);
    EXPECT_EQ(h.common.m_sample_freq_hz, 40.0);
    EXPECT_EQ(v.get_frequency(), 40.0);
    EXPECT_EQ(h.common.m_bits_per_sample, 24);
    EXPECT_EQ(h.common.m_bytes_per_sample, 3);
    ASSERT_EQ(v.get_channels().size(), 3u);
    const uint16_t numbers[] = {4, 2, 65535};
    for (size_t k = 0; k < 3; ++k) {
        const vx_channel &ch = v.get_channel_info(k);
        EXPECT_EQ(ch.m_magic, magic_chan);
        EXPECT_EQ(ch.m_channel, numbers[k]);
        EXPECT_EQ(ch.m_gain, 64);
        EXPECT_EQ(ch.m_v_min, -2.5);
        EXPECT_EQ(ch.m_v_max, 2.5e-7);
        EXPECT_EQ(ch.m_ext_gain, 13.0);
    }
    EXPECT_EQ(v.raw2volt(-5, v.get_channel_info(0)), -5 * 2.5e-7 * 13.0);
    EXPECT_EQ(v.get_origin(), ORIGIN_VX24);
}

TEST(Vxfil24, ForeignMagicWithVersionZeroToTwoIsNotValid) {
    for (int version = 0; version <= 2; ++version) {
        std::string bytes = make_vx24(params_v(version));
        bytes[0] = 'V';
        EXPECT_EQ(load_error(bytes), "This is not a valid vx24 file\n") << version;
        bytes.replace(0, 4, "!S51");
        EXPECT_EQ(load_error(bytes), "This is not a valid vx24 file\n") << version;
    }
}

TEST(Vxfil24, VersionThreeOrMoreEndsThroughTheFatalHandler) {
    throwing_fatal guard;
    for (int version = 3; version < 256; ++version) {
        for (bool foreign : {false, true}) {
            std::string bytes = make_vx24(params_v(2));
            bytes[4] = static_cast<char>(version);
            if (foreign) bytes.replace(0, 4, "!S51");
            try {
                load(bytes);
                FAIL() << "version " << version << " loaded";
            } catch (const fatal_exit_called &e) {
                EXPECT_EQ(e.status, 1);
            } catch (...) {
                FAIL() << "version " << version << " threw something else";
            }
        }
    }
}

TEST(Vxfil24, ShortFileWithVersionThreeStillEndsThroughTheFatalHandler) {
    throwing_fatal guard;
    const std::string bytes("ab\0\0\x07", 5);
    EXPECT_THROW(load(bytes), fatal_exit_called);
}

TEST(Vxfil24DeathTest, VersionThreeEndsTheProcessSilentlyWithStatusOne) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    std::string bytes = make_vx24(params_v(1));
    bytes[4] = 3;
    EXPECT_EXIT(
        {
            set_fatal_handler(nullptr);
            load(bytes);
        },
        ::testing::ExitedWithCode(1), "^$");
    bytes.replace(0, 4, "RIFF");
    bytes[4] = static_cast<char>(200);
    EXPECT_EXIT(
        {
            set_fatal_handler(nullptr);
            load(bytes);
        },
        ::testing::ExitedWithCode(1), "^$");
}

TEST(Vxfil24DeathTest, VersionThreeFromAFileEndsTheProcessSilently) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    temp_dir dir;
    std::string bytes = make_vx24(params_v(0));
    bytes[4] = 9;
    const std::string path = dir.write("v9.vx24", bytes);
    EXPECT_EXIT(
        {
            // The death test runs this test again in a process of its own,
            // which makes a directory of its own and ends inside the
            // library, past every destructor: it removes the directory on
            // its way out.
            static std::filesystem::path made;
            made = dir.path;
            std::atexit([] {
                std::error_code ec;
                std::filesystem::remove_all(made, ec);
            });
            set_fatal_handler(nullptr);
            VXFIL24 v(path.c_str());
        },
        ::testing::ExitedWithCode(1), "^$");
}

TEST(Vxfil24, TrailingBytesThatMakeNoValueAreIgnored) {
    vx24_params s;
    s.channels = 3;
    s.samples = 2500;
    s.extra_bytes = 2;
    s.rate = 20.0;
    const std::string bytes = make_vx24(s);
    ASSERT_EQ(bytes.size() - fixtures::vx24_data_offset(1, 3), 30002u);
    VXFIL24 v = load(bytes);
    ASSERT_EQ(v.get_time().size(), 2500u);
    const double t0 = v.get_header().time();
    for (size_t i = 0; i < 2500; ++i)
        EXPECT_EQ(v.get_time(i), static_cast<double>(i) / 20.0 + t0) << i;
    for (size_t k = 0; k < 3; ++k) {
        ASSERT_EQ(v.get_data(k).size(), 2500u);
        for (size_t i = 0; i < 2500; ++i)
            ASSERT_EQ(v.get_data(k)[i], static_cast<int32_t>(3 * i + k));
    }
}

TEST(Vxfil24, TimesAreQuotientPlusStartWithAnAwkwardRate) {
    vx24_params s;
    s.seconds = 1500000123;
    s.nanoseconds = 987654321;
    s.rate = 19.98;
    s.samples = 5000;
    VXFIL24 v = load(make_vx24(s));
    const double t0 = 1500000123 + 987654321 / 1e9;
    ASSERT_EQ(v.get_time().size(), 5000u);
    for (size_t i = 0; i < 5000; ++i)
        ASSERT_EQ(v.get_time(i), static_cast<double>(i) / 19.98 + t0) << i;
}

TEST(Vxfil24, ValuesBeyondTheLastFrameGoToTheFirstChannels) {
    vx24_params s;
    s.channels = 3;
    s.samples = 2;
    s.extra_values = 1;
    VXFIL24 v = load(make_vx24(s));
    EXPECT_EQ(v.get_time().size(), 2u);
    EXPECT_EQ(v.get_data(0), (data_channel_type{0, 3, 6}));
    EXPECT_EQ(v.get_data(1), (data_channel_type{1, 4}));
    EXPECT_EQ(v.get_data(2), (data_channel_type{2, 5}));

    s.extra_values = 2;
    VXFIL24 w = load(make_vx24(s));
    EXPECT_EQ(w.get_time().size(), 2u);
    EXPECT_EQ(w.get_data(0).size(), 3u);
    EXPECT_EQ(w.get_data(1).size(), 3u);
    EXPECT_EQ(w.get_data(2).size(), 2u);
}

TEST(Vxfil24, EmptyDataBlockGivesEmptySequences) {
    vx24_params s;
    s.samples = 0;
    VXFIL24 v = load(make_vx24(s));
    EXPECT_TRUE(v.get_time().empty());
    ASSERT_EQ(v.get_channels().size(), 3u);
    for (size_t k = 0; k < 3; ++k)
        EXPECT_TRUE(v.get_data(k).empty());

    s.extra_bytes = 3; // less than one value
    VXFIL24 w = load(make_vx24(s));
    EXPECT_TRUE(w.get_time().empty());
    for (size_t k = 0; k < 3; ++k)
        EXPECT_TRUE(w.get_data(k).empty());
}

TEST(Vxfil24, FirstTimeFromSecondsAndNanoseconds) {
    vx24_params s;
    s.seconds = 1500000000;
    s.nanoseconds = 500000000;
    VXFIL24 v = load(make_vx24(s));
    EXPECT_EQ(v.get_header().time(), 1500000000.5);
    EXPECT_EQ(v.get_time(0), 1500000000.5);
    EXPECT_EQ(v.get_time(1), 1500000000.55);
}

TEST(Vxfil24, SamplesAreSignedAndTakenAsTheyStand) {
    vx24_params s;
    s.channels = 1;
    s.samples = 4;
    s.bits_per_sample = 16;
    s.bytes_per_sample = 2;
    std::string bytes = make_vx24(s);
    const size_t d = fixtures::vx24_data_offset(1, 1);
    const unsigned char raw[16] = {0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x80,
                                   0xFF, 0xFF, 0xFF, 0x7F, 0xFF, 0xFF, 0x00, 0x00};
    bytes.replace(d, 16, reinterpret_cast<const char *>(raw), 16);
    VXFIL24 v = load(bytes);
    EXPECT_EQ(v.get_data(0), (data_channel_type{-1, INT32_MIN, INT32_MAX, 65535}));
}

TEST(Vxfil24, ManyChannels) {
    vx24_params s;
    s.channels = 255;
    s.samples = 10;
    s.extra_values = 254;
    VXFIL24 v = load(make_vx24(s));
    ASSERT_EQ(v.get_channels().size(), 255u);
    EXPECT_EQ(v.get_time().size(), 10u);
    EXPECT_EQ(v.get_data(253).size(), 11u);
    EXPECT_EQ(v.get_data(254).size(), 10u);
    EXPECT_EQ(v.get_data(254)[9], 9 * 255 + 254);
}

TEST(Vxfil24, ZeroChannelsIsNotValid) {
    vx24_params s;
    s.channels = 0;
    s.samples = 0;
    s.extra_values = 5;
    EXPECT_EQ(load_error(make_vx24(s)), "This is not a valid vx24 file\n");
    s.extra_values = 0;
    EXPECT_EQ(load_error(make_vx24(s)), "This is not a valid vx24 file\n");
}

TEST(Vxfil24, ZeroChannelsKeepsTheOrderOfTheChunkMessages) {
    vx24_params s;
    s.channels = 0;
    std::string bytes = make_vx24(s);
    std::string bad_data = bytes;
    bad_data[36 + 8] = 'D';
    EXPECT_EQ(load_error(bad_data), "Unknown magic data\n");
    std::string bad_chns = bytes;
    bad_chns[36] = 'C';
    EXPECT_EQ(load_error(bad_chns), "Unknown magic chns\n");
}

TEST(Vxfil24, BadChannelRecordMagic) {
    std::string bytes = make_vx24(params_v(1));
    bytes[36 + 8 + 32 * 2] = 'C';
    EXPECT_EQ(load_error(bytes), "Unknown magic chan\n");
}

TEST(Vxfil24, BadDataMagic) {
    std::string bytes = make_vx24(params_v(2));
    bytes[fixtures::vx24_data_offset(2, 3) - 8 + 3] = 'A';
    EXPECT_EQ(load_error(bytes), "Unknown magic data\n");
}

TEST(Vxfil24, FileShorterThanItsHeaderIsNotValid) {
    for (int version = 0; version <= 2; ++version) {
        const std::string bytes = make_vx24(params_v(version));
        const size_t h = fixtures::vx24_header_size(version);
        EXPECT_EQ(load_error(bytes.substr(0, h - 1)), "This is not a valid vx24 file\n") << version;
        EXPECT_EQ(load_error(bytes.substr(0, h)), "Unknown magic chns\n") << version;
    }
    EXPECT_EQ(load_error(""), "This is not a valid vx24 file\n");
    EXPECT_EQ(load_error("vx24"), "This is not a valid vx24 file\n");
}

TEST(Vxfil24, EmptyBufferFromANullPointer) {
    try {
        VXFIL24 v(nullptr, 0, "null");
        FAIL() << "an empty buffer loaded";
    } catch (const std::runtime_error &e) {
        EXPECT_STREQ(e.what(), "This is not a valid vx24 file\n");
    }
}

// Every cut of a file, from nothing to well into the samples, gives the
// message of the part that is cut, or loads the samples that are whole.
TEST(Vxfil24, TruncationAtEveryOffset) {
    for (int version = 0; version <= 2; ++version) {
        vx24_params s = params_v(version);
        s.samples = 8;
        const std::string bytes = make_vx24(s);
        const size_t h = fixtures::vx24_header_size(version);
        const size_t d = fixtures::vx24_data_offset(version, 3);
        for (size_t len = 0; len <= bytes.size(); ++len) {
            const std::string cut = bytes.substr(0, len);
            std::string expected;
            if (len < h)
                expected = "This is not a valid vx24 file\n";
            else if (len < h + 8)
                expected = "Unknown magic chns\n";
            else if (len < d - 8)
                expected = "Unknown magic chan\n";
            else if (len < d)
                expected = "Unknown magic data\n";
            if (!expected.empty()) {
                EXPECT_EQ(load_error(cut), expected) << "version " << version << " length " << len;
                continue;
            }
            VXFIL24 v = load(cut);
            const size_t values = (len - d) / 4;
            EXPECT_EQ(v.get_time().size(), values / 3) << len;
            for (size_t k = 0; k < 3; ++k)
                EXPECT_EQ(v.get_data(k).size(), values / 3 + (k < values % 3 ? 1 : 0)) << len;
        }
    }
}

// Damaged files either load with the invariants kept or fail with one of the
// documented messages (or the silent end for a version byte of 3 or more).
TEST(Vxfil24, RandomByteFlips) {
    throwing_fatal guard;
    std::mt19937 rng(20240601);
    vx24_params s = params_v(2);
    s.samples = 6;
    s.channels = 3;
    const std::string original = make_vx24(s);
    int loaded = 0, rejected = 0, ended = 0;
    for (int round = 0; round < 4000; ++round) {
        std::string bytes = original;
        const int flips = 1 + static_cast<int>(rng() % 4);
        for (int f = 0; f < flips; ++f) {
            // Mostly the header, the channel block and the data head, where damage matters.
            const size_t at = rng() % 2 ? rng() % 160 : rng() % bytes.size();
            bytes[at % bytes.size()] = static_cast<char>(rng() & 0xFF);
        }
        if (rng() % 4 == 0) bytes.resize(rng() % (bytes.size() + 1));
        try {
            VXFIL24 v = load(bytes);
            ++loaded;
            const size_t n = v.get_header().common.m_num_channels;
            ASSERT_GT(n, 0u);
            ASSERT_EQ(v.get_channels().size(), n);
            ASSERT_EQ(v.m_data.size(), n);
            for (size_t k = 0; k < n; ++k) {
                ASSERT_GE(v.get_data(k).size(), v.get_time().size());
                ASSERT_LE(v.get_data(k).size(), v.get_time().size() + 1);
            }
        } catch (const std::runtime_error &e) {
            ++rejected;
            ASSERT_TRUE(documented_messages.count(e.what())) << e.what();
        } catch (const fatal_exit_called &e) {
            ++ended;
            ASSERT_EQ(e.status, 1);
        }
    }
    EXPECT_GT(loaded, 0);
    EXPECT_GT(rejected, 0);
    EXPECT_GT(ended, 0);
}

TEST(Vxfil24, ReadsAFileLikeItsBytes) {
    temp_dir dir;
    vx24_params s = params_v(2);
    s.wave.wave = "sine";
    s.wave.amp = 3000;
    s.wave.noise = 50;
    s.samples = 1200;
    s.extra_values = 2;
    const std::string bytes = make_vx24(s);
    const std::string path = dir.write("a.vx24", bytes);
    VXFIL24 from_file(path.c_str());
    VXFIL24 from_memory = load(bytes);
    EXPECT_EQ(from_file.get_time(), from_memory.get_time());
    for (size_t k = 0; k < 3; ++k)
        EXPECT_EQ(from_file.get_data(k), from_memory.get_data(k));
    for (uint64_t p = 0; p < 3 * 1200 + 2; ++p)
        ASSERT_EQ(from_file.get_data(p % 3)[p / 3], fixtures::vx24_value(s, p)) << p;
    EXPECT_EQ(from_file.get_header().v.v2.m_device_id, 0u);
}

TEST(Vxfil24, MissingFileCannotBeOpened) {
    temp_dir dir;
    const std::string path = (dir.path / "missing.vx24").string();
    try {
        VXFIL24 v(path.c_str());
        FAIL() << "a missing file loaded";
    } catch (const std::runtime_error &e) {
        EXPECT_EQ(std::string(e.what()), "Couldn't open " + path + "\n");
    }
}

TEST(Vxfil24, DamagedFileOnDiskThrowsTheSameMessage) {
    temp_dir dir;
    std::string bytes = make_vx24(params_v(0));
    bytes[32 + 8] = 'x';
    const std::string path = dir.write("bad.vx24", bytes);
    try {
        VXFIL24 v(path.c_str());
        FAIL();
    } catch (const std::runtime_error &e) {
        EXPECT_STREQ(e.what(), "Unknown magic chan\n");
    }
}

TEST(Vxfil24, ExampleRecordingsLoadAndContinueAfterAGap) {
    const std::string dir = std::string(SOURCE_DIR) + "/examples/vx24/";
    VXFIL24 first((dir + "arvola_20170714_024000.vx24").c_str());
    VXFIL24 second((dir + "arvola_20170714_024530.vx24").c_str());
    for (const VXFIL24 *v : {&first, &second}) {
        EXPECT_EQ(v->get_header().header.m_version, 2);
        EXPECT_STREQ(v->station_name(), "arvola");
        EXPECT_EQ(v->get_frequency(), 20.0);
        ASSERT_EQ(v->get_channels().size(), 3u);
        ASSERT_EQ(v->get_time().size(), 6000u);
        for (size_t k = 0; k < 3; ++k)
            EXPECT_EQ(v->get_data(k).size(), 6000u);
    }
    EXPECT_EQ(first.get_time(0), 1500000000.0);
    EXPECT_EQ(first.get_time(5999), 1500000000.0 + 5999 / 20.0);
    EXPECT_EQ(second.get_time(0), 1500000330.0);
    EXPECT_EQ(second.get_time(0) - (first.get_time(5999) + 1 / 20.0), 30.0);
}
