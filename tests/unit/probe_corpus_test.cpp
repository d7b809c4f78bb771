// The format probe over every example and over fixture recordings of every
// kind: each file must be opened by the reader class that its format calls for.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "temp_dir.h"
#include "tm4_fixture.h"
#include "vx16_fixture.h"
#include "vx24_fixture.h"
#include "vxfil/fatal.h"
#include "vxfil/vxdetect.h"

namespace {

namespace fs = std::filesystem;
using VxFil::ORIGIN;

// first_generation: read as with --legacy, so that the first-generation
// examples (no station in the comment) open too.
ORIGIN origin_of(const fs::path &path, bool first_generation = false) {
    VxFil::legacy_options legacy;
    legacy.m_enabled = first_generation;
    std::unique_ptr<VxFil::Vxfil_Base> rec(VxFil::vxdetect(path.c_str(), 0.0, legacy));
    if (!rec) return VxFil::ORIGIN_UNDEFINED;
    return rec->get_origin();
}

ORIGIN expected_for_example(const fs::path& p) {
    const std::string ext = p.extension().string();
    if (ext == ".vx24") return VxFil::ORIGIN_VX24;
    if (ext == ".tm4") return VxFil::ORIGIN_TM4;
    return VxFil::ORIGIN_VX16;
}

TEST(ProbeCorpus, EveryExampleOpensWithItsReader) {
    int seen = 0;
    for (const auto& e : fs::recursive_directory_iterator(fs::path(SOURCE_DIR) / "examples")) {
        const std::string ext = e.path().extension().string();
        if (!e.is_regular_file() || ext == ".md" || ext == ".sh") continue;
        testing::internal::CaptureStderr();
        ORIGIN got = origin_of(e.path(), true);
        testing::internal::GetCapturedStderr();
        EXPECT_EQ(got, expected_for_example(e.path())) << e.path();
        ++seen;
    }
    EXPECT_GE(seen, 6);
}

struct corpus_entry {
    std::string name;
    std::string bytes;
    ORIGIN expected;
};

std::vector<corpus_entry> fixture_corpus() {
    std::vector<corpus_entry> c;
    for (int version : {0, 1, 2}) {
        fixtures::vx24_params p;
        p.version = version;
        p.samples = 50;
        c.push_back({"v" + std::to_string(version) + ".vx24", fixtures::make_vx24(p), VxFil::ORIGIN_VX24});
    }
    for (const std::string kind : {"S512", "S128", "U512", "U128", "T"}) {
        fixtures::vx16_recipe r;
        r.kind = kind;
        r.date = "2016-05-04";
        r.time = "13:30:00";
        r.blocks = 3;
        c.push_back({"e6050427_" + kind + ".dat", fixtures::make_vx16_binary(r), VxFil::ORIGIN_VX16});
        c.push_back({"e6050427_" + kind + ".txt", fixtures::make_vx16_text(r), VxFil::ORIGIN_VX16});
    }
    {
        fixtures::tm4_params t;
        c.push_back({"with_comment.tm4", fixtures::make_tm4(t), VxFil::ORIGIN_TM4});
        t.channels = 8;
        c.push_back({"eight_channels.tm4", fixtures::make_tm4(t), VxFil::ORIGIN_TM4});
    }
    {
        // Without the comment line a TM4 file goes to the comment-headed
        // readers, as does one whose lines hold fewer than four numbers.
        fixtures::tm4_params t;
        t.comment = false;
        c.push_back({"no_comment.tm4", fixtures::make_tm4(t), VxFil::ORIGIN_VX16});
        t.comment = true;
        t.channels = 2;
        c.push_back({"two_channels.tm4", fixtures::make_tm4(t), VxFil::ORIGIN_VX16});
    }
    return c;
}

TEST(ProbeCorpus, EveryFixtureKindOpensWithItsReader) {
    temp_dir d;
    VxFil::set_fatal_handler(VxFil::throwing_fatal_handler);
    for (const corpus_entry& e : fixture_corpus()) {
        d.write(e.name, e.bytes);
        testing::internal::CaptureStderr();
        ORIGIN got = VxFil::ORIGIN_UNDEFINED;
        try {
            got = origin_of(d.file(e.name));
        } catch (const std::exception& ex) {
            // The comment-headed readers may reject what they cannot use (a
            // comment without a station, say); the probe still chose them.
            got = std::string(ex.what()) == "map::at" ? VxFil::ORIGIN_VX16 : VxFil::ORIGIN_UNDEFINED;
        } catch (const VxFil::fatal_exit_called&) {
            // The oldest kind as text has no carriage return, so the binary
            // reader that the comment-headed choice falls back to ends at
            // its comment line.
            got = VxFil::ORIGIN_VX16;
        }
        testing::internal::GetCapturedStderr();
        EXPECT_EQ(got, e.expected) << e.name;
    }
    VxFil::set_fatal_handler(nullptr);
}

TEST(ProbeCorpus, UnopenableFileAndNoLineEndGiveNoReader) {
    temp_dir d;
    EXPECT_EQ(VxFil::vxdetect(d.file("missing").c_str(), 0.0), nullptr);
    d.write("noline", "!S512" + std::string(4000, 'x'));
    EXPECT_EQ(VxFil::vxdetect(d.file("noline").c_str(), 0.0), nullptr);
}

} // namespace
