// Damaged vx16 recordings: the examples cut at many offsets and with flipped
// bytes, read through VXFIL16 with library ends turned into exceptions. Each
// either converts its intact part or ends with a documented error; nothing may
// crash, hang or trip the sanitizers.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>

#include "vx16_fixture.h"
#include "vx16_test_support.h"
#include "vxfil/vxfil16.h"

using namespace VxFil;
using namespace vx16_test;

namespace {

std::string read_example(const std::string& relative) {
    std::ifstream in(std::string(SOURCE_DIR) + "/examples/vx16/" + relative, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

enum class outcome { CONVERTED, ERROR, FATAL };

struct result {
    outcome how = outcome::ERROR;
    size_t samples = 0;
    std::string message;
};

// Reads bytes as a recording of the given name through an in-memory stream.
result load(std::string bytes, const char* name) {
    result res;
    throwing_fatal guard;
    testing::internal::CaptureStderr();
    try {
        FILE* f = bytes.empty() ? nullptr : fmemopen(bytes.data(), bytes.size(), "rb");
        VXFIL16 r(f, name, 0.0);
        res.how = outcome::CONVERTED;
        res.samples = r.get_time().size();
        // The invariants of the channel-recording interface hold for what was kept.
        EXPECT_EQ(r.get_channels().size(), 3u);
        EXPECT_EQ(r.m_data.size(), 3u);
        for (size_t k = 0; k < r.m_data.size(); ++k)
            EXPECT_EQ(r.get_data(k).size(), res.samples);
    } catch (const fatal_exit_called& e) {
        res.how = outcome::FATAL;
        EXPECT_EQ(e.status, 1);
    } catch (const std::exception& e) {
        res.how = outcome::ERROR;
        res.message = e.what();
    }
    res.message += testing::internal::GetCapturedStderr();
    return res;
}

struct example {
    const char* file;
    const char* name;
    bool binary;
    size_t block_bytes; // bytes of one binary block
};

const example examples[] = {
    {"2016/05/20160504/e6050427.dat", "2016/05/20160504/e6050427.dat", true, 3 * 514 * 2},
    {"2016/05/20160504/e6050427.txt", "2016/05/20160504/e6050427.txt", false, 0},
    {"2016/05/20160505/d6050510.dat", "2016/05/20160505/d6050510.dat", true, 3 * 130 * 2},
};

class Damaged : public ::testing::TestWithParam<example> {
  protected:
    void SetUp() override {
        force_utc_env();
        bytes = read_example(GetParam().file);
        ASSERT_GT(bytes.size(), 1000u) << "example missing: " << GetParam().file;
        comment_end = bytes.find(GetParam().binary ? '\r' : '\n');
        ASSERT_NE(comment_end, std::string::npos);
    }
    std::string bytes;
    size_t comment_end = 0;
};

} // namespace

TEST_P(Damaged, IntactExampleConverts) {
    result r = load(bytes, GetParam().name);
    ASSERT_EQ(r.how, outcome::CONVERTED) << r.message;
    EXPECT_EQ(r.message, "");
    size_t blocks = 0;
    if (GetParam().binary) {
        EXPECT_EQ((bytes.size() - comment_end - 1) % GetParam().block_bytes, 0u);
        blocks = (bytes.size() - comment_end - 1) / GetParam().block_bytes;
        EXPECT_EQ(r.samples, blocks * (GetParam().block_bytes / 6 - 2));
    } else {
        for (size_t p = comment_end + 1; p < bytes.size(); ++p)
            blocks += bytes[p] == '\n';
        EXPECT_EQ(r.samples, blocks / 3 * 512);
    }
    EXPECT_GT(blocks, 0u);
}

TEST_P(Damaged, TruncatedAtManyOffsets) {
    std::mt19937 rng(12345);
    std::vector<size_t> cuts = {0, 1, 2, comment_end, comment_end + 1, comment_end + 2, 255, 256, 257};
    for (size_t c = 0; c < bytes.size(); c += bytes.size() / 97 + 1)
        cuts.push_back(c);
    for (int i = 0; i < 60; ++i)
        cuts.push_back(rng() % bytes.size());
    if (GetParam().binary)
        for (size_t b = 0; b < 6; ++b) {
            size_t at = comment_end + 1 + b * GetParam().block_bytes;
            for (size_t d : {size_t{0}, size_t{1}, size_t{2}, GetParam().block_bytes / 3})
                if (at + d <= bytes.size()) cuts.push_back(at + d);
        }
    for (size_t cut : cuts) {
        if (cut > bytes.size()) continue;
        result r = load(bytes.substr(0, cut), GetParam().name);
        if (cut < 256) {
            // Too short for the reader choice.
            EXPECT_EQ(r.how, outcome::ERROR) << cut;
            continue;
        }
        ASSERT_EQ(r.how, outcome::CONVERTED) << cut << ": " << r.message;
        if (GetParam().binary) {
            const size_t data = cut - (comment_end + 1);
            const size_t blocks = data / GetParam().block_bytes;
            const size_t per_channel = GetParam().block_bytes / 3 / 2 - 2;
            EXPECT_EQ(r.samples, blocks * per_channel) << cut;
            // A cut inside a channel's words says so; one between channels is a clean end.
            const size_t rest = data % GetParam().block_bytes;
            // fread counts whole words: a single byte of a channel reads as nothing.
            const bool clean = rest % (GetParam().block_bytes / 3) < 2;
            EXPECT_EQ(r.message, clean ? "" : "fread: EOF\n") << cut;
        } else {
            // Complete lines give whole blocks; a line cut after its last value may still count.
            size_t lines = 0;
            for (size_t p = comment_end + 1; p < cut; ++p)
                lines += bytes[p] == '\n';
            EXPECT_GE(r.samples, lines / 3 * 512) << cut;
            EXPECT_LE(r.samples, (lines / 3 + 1) * 512) << cut;
        }
    }
}

TEST_P(Damaged, FlippedBytes) {
    std::mt19937 rng(777);
    for (int round = 0; round < 300; ++round) {
        std::string damaged = bytes;
        int flips = 1 + static_cast<int>(rng() % 8);
        for (int f = 0; f < flips; ++f) {
            // Half the flips hit the comment line and the first block, where most decisions are made.
            size_t limit = (f % 2 == 0) ? std::min(damaged.size(), comment_end + 700) : damaged.size();
            size_t at = rng() % limit;
            damaged[at] = static_cast<char>(damaged[at] ^ static_cast<char>(1u << (rng() % 8)));
        }
        result r = load(damaged, GetParam().name);
        if (r.how == outcome::CONVERTED) {
            EXPECT_LE(r.samples, bytes.size()) << round;
        }
    }
}

TEST_P(Damaged, ShapedDamage) {
    // Typical ways a copy goes wrong: a zeroed stretch, a doubled stretch, a lost stretch, garbage text.
    std::vector<std::string> variants;
    std::string zeroed = bytes;
    std::fill(zeroed.begin() + static_cast<std::ptrdiff_t>(comment_end / 2),
              zeroed.begin() + static_cast<std::ptrdiff_t>(comment_end + 900), '\0');
    variants.push_back(zeroed);
    variants.push_back(bytes.substr(0, 5000) + bytes.substr(3000));
    variants.push_back(bytes.substr(0, 3000) + bytes.substr(5000));
    std::string garbage = bytes.substr(0, comment_end + 1);
    for (int i = 0; i < 4000; ++i)
        garbage += "9e99999 -inf nan 0x1p40 \t\r\n!"[static_cast<size_t>(i * 7) % 29];
    variants.push_back(garbage);
    std::string long_comment = std::string(1, '!') + std::string(70000, 'S') + bytes;
    variants.push_back(long_comment);
    for (const std::string& v : variants) {
        result r = load(v, GetParam().name);
        SUCCEED() << static_cast<int>(r.how);
    }
}

INSTANTIATE_TEST_SUITE_P(Examples, Damaged, ::testing::ValuesIn(examples),
                         [](const ::testing::TestParamInfo<example>& info) {
                             return std::string(info.param.binary ? "binary" : "text") +
                                    std::to_string(info.index);
                         });
