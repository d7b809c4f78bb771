// The sample-count estimate that lets a run over many files reserve its
// series once: exact where the vx24 header tells, an upper bound otherwise.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "temp_dir.h"
#include "vx24_fixture.h"
#include "vxfil/sample_count_hint.h"
#include "vxfil/vxfil24.h"

using VxFil::sample_count_hint;

namespace {

void write_bytes(const std::filesystem::path &p, const std::string &bytes) {
    std::ofstream out(p, std::ios::binary);
    out << bytes;
}

} // namespace

TEST(SampleCountHint, Vx24GivesTheSamplesOfEveryVersion) {
    temp_dir dir;
    for (int version : {0, 1, 2}) {
        for (int channels : {1, 3, 7}) {
            fixtures::vx24_params p;
            p.version = version;
            p.channels = channels;
            p.samples = 12345;
            const auto path = dir.file("v.vx24");
            write_bytes(path, fixtures::make_vx24(p));
            const std::size_t hint = sample_count_hint(path.c_str());
            VxFil::VXFIL24 rec(path.c_str());
            EXPECT_GE(hint, rec.m_time.size()) << version << " " << channels;
            EXPECT_LE(hint, rec.m_time.size() + 1) << version << " " << channels;
        }
    }
}

TEST(SampleCountHint, OtherFilesAreBoundedBySixBytesPerSample) {
    temp_dir dir;
    const auto path = dir.file("text.dat");
    write_bytes(path, std::string(6000, '1'));
    EXPECT_EQ(sample_count_hint(path.c_str()), 1000u);
    // A damaged vx24 head (no room for its channel records) promises nothing.
    write_bytes(path, std::string("vx24\x01", 5) + std::string(30, '\0'));
    EXPECT_EQ(sample_count_hint(path.c_str()), 0u);
}

TEST(SampleCountHint, MissingAndEmptyFilesGiveZero) {
    temp_dir dir;
    EXPECT_EQ(sample_count_hint(dir.file("none").c_str()), 0u);
    write_bytes(dir.file("empty"), "");
    EXPECT_EQ(sample_count_hint(dir.file("empty").c_str()), 0u);
    EXPECT_EQ(sample_count_hint(dir.path.c_str()), 0u);
}
