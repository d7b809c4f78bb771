// The description of a vx24 file from its layout and size against the
// reader's own figures after reading the file whole: the same verdict, the
// same message, the same fields, on many files with spoilt or cut headers.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>

#include "temp_dir.h"
#include "vx24_fixture.h"
#include "vxfil/fatal.h"
#include "vxfil/header_description.h"
#include "vxfil/vxfil24.h"

namespace {

// The description that reading the whole file gives.
VxFil::header_description read_whole(const std::string &path) {
    VxFil::header_description d;
    const VxFil::fatal_handler old = VxFil::set_fatal_handler(VxFil::throwing_fatal_handler);
    try {
        VxFil::VXFIL24 rec(path.c_str());
        d.station = rec.station_name();
        d.kind = "vx24";
        d.version = rec.m_header.header.m_version;
        d.rate = rec.get_frequency();
        d.channels = rec.m_channels.size();
        d.samples = rec.m_time.size();
        const double t = rec.m_time.empty() ? rec.m_header.common.m_seconds : rec.m_time.front();
        d.has_start = std::isfinite(t);
        if (d.has_start) d.start = static_cast<std::time_t>(t);
    } catch (const std::exception &e) {
        d = VxFil::header_description{};
        d.kind = "damaged";
        d.message = e.what();
        while (!d.message.empty() && (d.message.back() == '\n' || d.message.back() == ' '))
            d.message.pop_back();
    } catch (const VxFil::fatal_exit_called &) {
        d = VxFil::header_description{};
        d.kind = "damaged";
        d.message = "the reader stopped without a message";
    }
    VxFil::set_fatal_handler(old);
    return d;
}

void expect_same(const VxFil::header_description &got, const VxFil::header_description &want,
                 const std::string &what) {
    EXPECT_EQ(got.kind, want.kind) << what;
    EXPECT_EQ(got.message, want.message) << what;
    EXPECT_EQ(got.version, want.version) << what;
    EXPECT_EQ(got.station, want.station) << what;
    EXPECT_EQ(std::memcmp(&got.rate, &want.rate, sizeof got.rate) == 0 || got.rate == want.rate, true)
        << what << ": rate " << got.rate << " against " << want.rate;
    EXPECT_EQ(got.has_start, want.has_start) << what;
    if (got.has_start && want.has_start) {
        EXPECT_EQ(got.start, want.start) << what;
    }
    EXPECT_EQ(got.channels, want.channels) << what;
    EXPECT_EQ(got.block_length, want.block_length) << what;
    EXPECT_EQ(got.samples, want.samples) << what;
}

TEST(HeaderDescription, Vx24FromItsLayoutAsFromItsSamples) {
    temp_dir dir;
    std::mt19937_64 rng(20261125);
    int damaged = 0, whole = 0;
    for (int round = 0; round < 3000; ++round) {
        fixtures::vx24_params p;
        p.version = static_cast<int>(rng() % 3);
        p.channels = static_cast<int>(rng() % 5);
        p.samples = rng() % 6;
        p.extra_values = rng() % 3;
        p.extra_bytes = rng() % 4;
        p.station = static_cast<uint8_t>(rng() % 12);
        p.nanoseconds = static_cast<uint32_t>(rng());
        std::string bytes = fixtures::make_vx24(p);
        // Spoil a few bytes after the magic, mostly in the layout, or cut the file.
        const size_t layout_end = fixtures::vx24_data_offset(p.version, p.channels);
        const int spoils = static_cast<int>(rng() % 4);
        for (int k = 0; k < spoils; ++k) {
            const size_t at = 4 + rng() % (layout_end + 4 - 4);
            if (at < bytes.size()) bytes[at] = static_cast<char>(rng());
        }
        if (rng() % 4 == 0) bytes.resize(4 + rng() % (bytes.size() - 3));
        const std::string path = dir.file("r" + std::to_string(round) + ".vx24").string();
        dir.write("r" + std::to_string(round) + ".vx24", bytes);
        const VxFil::header_description want = read_whole(path);
        const VxFil::header_description got = VxFil::describe_header(path.c_str());
        if (bytes.size() < 5) continue; // read as a comment-headed file, not by the vx24 reader
        expect_same(got, want, "round " + std::to_string(round));
        (want.kind == "damaged" ? damaged : whole) += 1;
        if (HasFailure()) break;
    }
    // Both verdicts were tried many times.
    EXPECT_GT(damaged, 500);
    EXPECT_GT(whole, 500);
}

} // namespace
