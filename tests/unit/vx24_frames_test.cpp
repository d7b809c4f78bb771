// The samples of a vx24 file read in place, a stretch of frames at a time,
// are the samples the reader of the whole file gives; a damaged file fails
// with the same message; a file that becomes shorter while it is converted
// is named. The four-column conversion that reads its rows in place writes
// the very bytes and messages of the conversion through the series.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "child_process.h"
#include "same_with_plot.h"
#include "fixture_registry.h"
#include "temp_dir.h"
#include "throwing_fatal.h"
#include "sample_time_axis.h"
#include "vx24_fixture.h"
#include "vxfil/fatal.h"
#include "vxfil/vx24_frames.h"
#include "vxfil/vxdetect.h"
#include "vxfil/vxfil24.h"

using namespace VxFil;
using fixtures::make_vx24;
using fixtures::vx24_params;

namespace {

namespace fs = std::filesystem;

// What opening a file gives: "ok", or the failure as the reader words it.
std::string failure_of(const std::function<void()> &open) {
    throwing_fatal fatal;
    try {
        open();
        return "ok";
    } catch (const std::runtime_error &e) {
        return std::string("error:") + e.what();
    } catch (const fatal_exit_called &e) {
        return "fatal:" + std::to_string(e.status);
    }
}

vx24_params random_params(std::mt19937 &rng) {
    vx24_params s = fixtures::random_vx24_params(rng, 6, 50000);
    s.wave.wave = "noise";
    return s;
}

// A file of noise: `channels` channels at `rate` Hz, `samples` whole frames
// and `extra` values after them.
vx24_params noise(int channels, double rate, uint64_t samples, uint64_t extra) {
    vx24_params s;
    s.channels = channels;
    s.rate = rate;
    s.samples = samples;
    s.extra_values = extra;
    s.wave.wave = "noise";
    return s;
}

} // namespace

TEST(Vx24Frames, EveryFrameIsTheWholeReadersSamples) {
    temp_dir d;
    std::mt19937 rng(29);
    for (int round = 0; round < 40; ++round) {
        const vx24_params s = random_params(rng);
        const std::string path = d.file("r.vx24").string();
        fixtures::write_file(path, make_vx24(s));
        const VXFIL24 whole(path.c_str());
        const vx24_frames frames(path.c_str());
        ASSERT_EQ(frames.frames(), whole.get_time().size()) << round;
        ASSERT_EQ(frames.channels(), whole.m_data.size()) << round;

        // Everything but the samples, from the layout alone.
        const VXFIL24 bare(frames.layout(), path.c_str());
        EXPECT_EQ(std::memcmp(&bare.m_header, &whole.m_header, sizeof bare.m_header), 0) << round;
        ASSERT_EQ(bare.m_channels.size(), whole.m_channels.size());
        for (size_t c = 0; c < bare.m_channels.size(); ++c)
            EXPECT_EQ(std::memcmp(&bare.m_channels[c], &whole.m_channels[c], sizeof(vx_channel)), 0);
        // Its times are not written out: each is computed when asked, the
        // very number of the whole reader's time sequence.
        EXPECT_TRUE(bare.get_time().empty());
        const double t0 = bare.m_header.time(), rate = bare.get_frequency();
        const TimeAxis axis(t0, rate, frames.frames());
        ASSERT_EQ(axis.size(), whole.get_time().size());
        for (uint64_t k = 0; k < frames.frames(); ++k) {
            const double t = vx24_sample_time(t0, rate, k), asked = axis[k];
            ASSERT_EQ(std::memcmp(&t, &whole.get_time()[k], sizeof t), 0) << round << " frame " << k;
            ASSERT_EQ(std::memcmp(&t, &asked, sizeof t), 0) << round << " frame " << k;
        }
        ASSERT_EQ(bare.m_data.size(), whole.m_data.size());
        for (const data_channel_type &channel : bare.m_data)
            EXPECT_TRUE(channel.empty());

        // Stretches of random lengths from random places.
        for (int pick = 0; pick < 20 && frames.frames() > 0; ++pick) {
            const uint64_t first = rng() % frames.frames();
            const size_t count = 1 + static_cast<size_t>(rng() % (frames.frames() - first));
            std::vector<int32_t> got(count * frames.channels());
            frames.read(first, count, got.data());
            for (size_t k = 0; k < count; ++k)
                for (size_t c = 0; c < frames.channels(); ++c)
                    ASSERT_EQ(got[k * frames.channels() + c], whole.m_data[c][first + k])
                        << "round " << round << " frame " << first + k << " channel " << c;
        }
    }
}

TEST(Vx24Frames, DamagedFilesFailAsTheWholeReaderFails) {
    temp_dir d;
    const std::string path = d.file("r.vx24").string();
    vx24_params s;
    s.samples = 10;
    const std::string good = make_vx24(s);
    std::vector<std::string> damaged;
    damaged.push_back(good.substr(0, 20)); // the header cut short
    damaged.push_back(good.substr(0, 40)); // no channel records
    std::string bad_chns = good;
    bad_chns[36] = 'x';
    damaged.push_back(bad_chns);
    std::string bad_chan = good;
    bad_chan[44] = 'x';
    damaged.push_back(bad_chan);
    std::string bad_data = good;
    bad_data[fixtures::vx24_data_offset(1, 3) - 8] = 'x';
    damaged.push_back(bad_data);
    std::string version9 = good;
    version9[4] = 9;
    damaged.push_back(version9);
    vx24_params none = s;
    none.channels = 0;
    damaged.push_back(make_vx24(none));
    for (size_t i = 0; i < damaged.size(); ++i) {
        fixtures::write_file(path, damaged[i]);
        const std::string whole = failure_of([&] { VXFIL24 v(path.c_str()); });
        EXPECT_NE(whole, "ok") << i;
        EXPECT_EQ(failure_of([&] { vx24_frames f(path.c_str()); }), whole) << i;
    }
    EXPECT_EQ(failure_of([&] { vx24_frames f(d.file("missing.vx24").c_str()); }),
              failure_of([&] { VXFIL24 v(d.file("missing.vx24").c_str()); }));
}

TEST(Vx24Frames, AFileThatBecameShorterIsNamed) {
    temp_dir d;
    const std::string path = d.file("r.vx24").string();
    vx24_params s;
    s.samples = 1000;
    fixtures::write_file(path, make_vx24(s));
    const vx24_frames frames(path.c_str());
    ASSERT_EQ(::truncate(path.c_str(), static_cast<off_t>(fixtures::vx24_data_offset(1, 3) + 12 * 500)), 0);
    std::vector<int32_t> got(3 * 10);
    frames.read(490, 10, got.data()); // still there
    try {
        frames.read(495, 10, got.data());
        FAIL() << "read past the end";
    } catch (const std::runtime_error &e) {
        EXPECT_EQ(std::string(e.what()),
                  "Error: \"" + path + "\" became shorter while it was being converted\n");
    }
    // Frames past those the file had when it was opened are refused alike.
    EXPECT_THROW(frames.read(1000, 1, got.data()), std::runtime_error);
    EXPECT_THROW(frames.read(999, 2, got.data()), std::runtime_error);
}

TEST(Vx24Frames, OnlyARegularNonEmptyVx24FileIsReadInPlace) {
    temp_dir d;
    vx24_params s;
    fixtures::write_file(d.file("r.vx24").string(), make_vx24(s));
    fixtures::write_file(d.file("empty").string(), "");
    fixtures::write_file(d.file("r.tm4").string(), "1500000000.0000 1 2 3\n1500000000.0500 1 2 3\n");
    fs::create_directory(d.file("dir"));
    ASSERT_EQ(::mkfifo(d.file("fifo").c_str(), 0600), 0);
    EXPECT_TRUE(regular_vx24_file(d.file("r.vx24").c_str()));
    EXPECT_FALSE(regular_vx24_file(d.file("empty").c_str()));
    EXPECT_FALSE(regular_vx24_file(d.file("r.tm4").c_str()));
    EXPECT_FALSE(regular_vx24_file(d.file("dir").c_str()));
    EXPECT_FALSE(regular_vx24_file(d.file("fifo").c_str()));
    EXPECT_FALSE(regular_vx24_file(d.file("missing").c_str()));
}

// The conversion reads the rows in place by default; with --plot the run
// draws whole series and loads them. Both write the same bytes and say
// the same, over windows that cut the blocks of rows formatted together at
// odd places, snippets, a rate low enough that every row is a gap, and a
// last partial frame.
TEST(Vx24Frames, RowsReadInPlaceAreTheRowsOfTheSeries) {
    temp_dir d;
    fixtures::write_file(d.file("day.vx24").string(), make_vx24(noise(3, 20.0, 70001, 2)));
    fixtures::write_file(d.file("slow.vx24").string(), make_vx24(noise(2, 1.0, 300, 0)));
    const std::vector<std::vector<std::string>> cases = {
        {"day.vx24"},
        {"-l", "33333", "-n", "2", "day.vx24"},
        {"-c", "-s", "02:40:07", "-l", "20001", "day.vx24"},
        {"--sample-times", "day.vx24"},
        {"--minutes-in-day", "day.vx24"},
        {"--no-time", "-l", "40000", "day.vx24"},
        {"--debug", "-n", "2", "-l", "30000", "day.vx24"},
        {"--minutes", "-c", "-s", "02:41", "-l", "5000", "day.vx24"},
        {"--no-comment", "slow.vx24"},
        {"-n", "3", "-l", "100", "slow.vx24"},
    };
    expect_same_as_with_plot(d.path, cases, true);
}

// A single vx24 file goes to miniSEED from its frames, channel by channel,
// and with --plot from its series read whole: the same records and words,
// over windows, snippets, record lengths up to the one whose records could
// hold more samples than a record may carry, steps too large for Steim-2,
// a rate of one sample a second, a file with values after its last frame
// (read whole either way), times beyond 2100 (refused) and the network and
// station codes.
TEST(Vx24Frames, RecordsPackedInPlaceAreTheRecordsOfTheSeries) {
    temp_dir d;
    fixtures::write_file(d.file("even.vx24").string(), make_vx24(noise(3, 20.0, 70001, 0)));
    fixtures::write_file(d.file("extra.vx24").string(), make_vx24(noise(3, 20.0, 5000, 2)));
    fixtures::write_file(d.file("slow.vx24").string(), make_vx24(noise(2, 1.0, 300, 0)));
    vx24_params steps = noise(3, 20.0, 2000, 0);
    steps.wave.wave = "sine";
    steps.wave.amp = 1e9;
    steps.wave.wave_hz = 5.0; // a quarter turn per sample: steps of 1e9
    fixtures::write_file(d.file("steps.vx24").string(), make_vx24(steps));
    vx24_params late = noise(3, 20.0, 100, 0);
    late.seconds = 4200000000u;
    fixtures::write_file(d.file("late.vx24").string(), make_vx24(late));
    const std::vector<std::vector<std::string>> cases = {
        {"--mseed", "even.vx24"},
        {"--mseed", "-l", "33333", "-n", "2", "even.vx24"},
        {"--mseed", "-c", "-s", "02:40:07", "-l", "20001", "even.vx24"},
        {"--mseed", "--record-length", "512", "even.vx24"},
        {"--mseed", "--record-length", "65536", "even.vx24"},
        {"--mseed", "--network", "XX", "--station", "ABC", "even.vx24"},
        {"--mseed", "extra.vx24"},
        {"--mseed", "slow.vx24"},
        {"--mseed", "steps.vx24"},
        {"--mseed", "late.vx24"},
    };
    expect_same_as_with_plot(d.path, cases, false);
}
