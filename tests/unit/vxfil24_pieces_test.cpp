// Decoding a vx24 file in pieces, as it is read, gives what decoding all of
// its bytes at once gives: the same recording, or the same failure.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>

#include "temp_dir.h"
#include "throwing_fatal.h"
#include "vx24_fixture.h"
#include "vxfil/fatal.h"
#include "vxfil/vxfil24.h"

using namespace VxFil;
using fixtures::make_vx24;
using fixtures::vx24_params;

namespace {

template <class T> void append_raw(std::string &out, const T &value) {
    out.append(reinterpret_cast<const char *>(&value), sizeof value);
}

// Everything a reader hands out, as bytes: the header fields, the channel
// records, the times (bit for bit) and every channel's values; or the failure.
std::string outcome(const std::function<VXFIL24()> &load) {
    try {
        const VXFIL24 v = load();
        std::string out = "loaded:";
        const vx_header &h = v.get_header();
        append_raw(out, h.header);
        append_raw(out, h.common);
        append_raw(out, h.v.v2.m_host_timestamp);
        append_raw(out, h.v.v2.m_device_id);
        append_raw(out, v.get_channels().size());
        for (const vx_channel &ch : v.get_channels())
            append_raw(out, ch);
        append_raw(out, v.get_time().size());
        out.append(reinterpret_cast<const char *>(v.get_time().data()), v.get_time().size() * sizeof(double));
        append_raw(out, v.m_data.size());
        for (const data_channel_type &d : v.m_data) {
            append_raw(out, d.size());
            out.append(reinterpret_cast<const char *>(d.data()), d.size() * sizeof(int32_t));
        }
        return out;
    } catch (const std::runtime_error &e) {
        return std::string("error:") + e.what();
    } catch (const fatal_exit_called &e) {
        return "fatal:" + std::to_string(e.status);
    }
}

std::string from_memory(const std::string &bytes) {
    return outcome([&] { return VXFIL24(reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size(), "f"); });
}

// A file of which only the first `available` bytes can be read, measured at
// `size` bytes, handed out at most `most` bytes per read (a shorter read only
// where the bytes run out). Counts the bytes asked for.
struct source {
    const std::string &bytes;
    size_t available;
    size_t most;
    size_t at = 0;
    uint64_t asked = 0;

    size_t operator()(unsigned char *buffer, size_t n) {
        asked += n;
        const size_t give = std::min(n, available - at);
        std::memcpy(buffer, bytes.data() + at, give);
        at += give;
        return give;
    }
};

std::string from_pieces(const std::string &bytes, uint64_t size, size_t available, size_t piece_bytes,
                        uint64_t *asked = nullptr) {
    source s{bytes, available, piece_bytes};
    std::string out = outcome([&] { return VXFIL24(size, std::ref(s), "f", piece_bytes); });
    if (asked) *asked = s.asked;
    return out;
}

// A random file: 1 to 8 channels, any version, any count of frames, a last
// partial frame and trailing bytes, values anywhere in the 32-bit range.
std::string random_file(std::mt19937 &rng) {
    const vx24_params s = fixtures::random_vx24_params(rng, 8, 400);
    std::string bytes = make_vx24(s);
    for (size_t i = fixtures::vx24_data_offset(s.version, s.channels); i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(rng() & 0xFF);
    return bytes;
}

const size_t piece_sizes[] = {1, 2, 3, 5, 7, 12, 13, 64, 1000, 4096, vx24_piece_bytes};

std::string from_file(const std::string &path) {
    return outcome([&] { return VXFIL24(path.c_str()); });
}

} // namespace

TEST(Vxfil24Pieces, EqualToTheWholeBufferForManyFilesAndPieceSizes) {
    std::mt19937 rng(20251125);
    for (int round = 0; round < 300; ++round) {
        const std::string bytes = random_file(rng);
        const std::string whole = from_memory(bytes);
        ASSERT_EQ(whole.rfind("loaded:", 0), 0u) << whole;
        for (size_t piece : piece_sizes)
            ASSERT_TRUE(from_pieces(bytes, bytes.size(), bytes.size(), piece) == whole)
                << "round " << round << " piece " << piece << " size " << bytes.size();
    }
}

TEST(Vxfil24Pieces, ValuesStraddlingPiecesKeepTheirChannels) {
    vx24_params s;
    s.channels = 3;
    s.samples = 5;
    s.extra_values = 2;
    s.extra_bytes = 3;
    const std::string bytes = make_vx24(s);
    for (size_t piece = 1; piece <= 40; ++piece) {
        source src{bytes, bytes.size(), piece};
        VXFIL24 v(bytes.size(), std::ref(src), "f", piece);
        ASSERT_EQ(v.get_time().size(), 5u);
        EXPECT_EQ(v.get_data(0), (data_channel_type{0, 3, 6, 9, 12, 15}));
        EXPECT_EQ(v.get_data(1), (data_channel_type{1, 4, 7, 10, 13, 16}));
        EXPECT_EQ(v.get_data(2), (data_channel_type{2, 5, 8, 11, 14}));
    }
}

// A file that shrinks while being read gives what its remaining bytes give,
// wherever it is cut: in the header, the channel records or the samples.
TEST(Vxfil24Pieces, AFileThatShrinksIsTakenAsTheBytesItHad) {
    throwing_fatal guard;
    std::mt19937 rng(7);
    for (int round = 0; round < 40; ++round) {
        const std::string bytes = random_file(rng);
        for (size_t cut = 0; cut < bytes.size(); cut += 1 + rng() % 23) {
            const std::string whole = from_memory(bytes.substr(0, cut));
            for (size_t piece : {size_t{1}, size_t{5}, size_t{64}, vx24_piece_bytes})
                ASSERT_TRUE(from_pieces(bytes, bytes.size(), cut, piece) == whole)
                    << "round " << round << " cut " << cut << " of " << bytes.size() << " piece " << piece;
        }
    }
}

// A file that grows while being read is taken as it was measured, and no
// byte past that size is asked for.
TEST(Vxfil24Pieces, AFileThatGrowsIsTakenAsMeasured) {
    std::mt19937 rng(11);
    for (int round = 0; round < 40; ++round) {
        const std::string bytes = random_file(rng);
        const size_t measured = rng() % (bytes.size() + 1);
        const std::string whole = from_memory(bytes.substr(0, measured));
        for (size_t piece : {size_t{1}, size_t{6}, size_t{100}, vx24_piece_bytes}) {
            uint64_t asked = 0;
            ASSERT_TRUE(from_pieces(bytes, measured, bytes.size(), piece, &asked) == whole)
                << "round " << round << " measured " << measured << " piece " << piece;
            EXPECT_LE(asked, measured);
        }
    }
}

TEST(Vxfil24Pieces, EmptyAndShortFilesFailAsInMemory) {
    throwing_fatal guard;
    const std::string bytes = make_vx24(vx24_params{});
    for (size_t len = 0; len <= 60; ++len) {
        const std::string cut = bytes.substr(0, len);
        const std::string whole = from_memory(cut);
        EXPECT_EQ(whole.rfind("error:", 0), 0u) << len;
        for (size_t piece : {size_t{1}, size_t{4}, vx24_piece_bytes})
            EXPECT_EQ(from_pieces(cut, cut.size(), cut.size(), piece), whole) << len;
    }
    EXPECT_EQ(from_pieces("", 0, 0, 1), "error:This is not a valid vx24 file\n");
    std::string v9 = bytes.substr(0, 5);
    v9[4] = 9;
    EXPECT_EQ(from_pieces(v9, v9.size(), v9.size(), 1), "fatal:1");
}

// Damaged files give the same recording or the same failure either way.
TEST(Vxfil24Pieces, DamagedFilesFailAsInMemory) {
    throwing_fatal guard;
    std::mt19937 rng(99);
    int loaded = 0, failed = 0;
    for (int round = 0; round < 2000; ++round) {
        std::string bytes = random_file(rng);
        const int flips = 1 + static_cast<int>(rng() % 3);
        for (int f = 0; f < flips; ++f)
            bytes[rng() % std::min<size_t>(bytes.size(), 120)] = static_cast<char>(rng() & 0xFF);
        if (rng() % 3 == 0) bytes.resize(rng() % (bytes.size() + 1));
        const std::string whole = from_memory(bytes);
        (whole.rfind("loaded:", 0) == 0 ? loaded : failed) += 1;
        const size_t piece = piece_sizes[rng() % std::size(piece_sizes)];
        ASSERT_TRUE(from_pieces(bytes, bytes.size(), bytes.size(), piece) == whole) << "round " << round;
    }
    EXPECT_GT(loaded, 0);
    EXPECT_GT(failed, 0);
}

// A file of several default pieces, read from disk.
TEST(Vxfil24Pieces, AFileOfSeveralPiecesReadsLikeItsBytes) {
    temp_dir dir;
    vx24_params s;
    s.version = 2;
    s.channels = 3;
    s.samples = 250000;
    s.extra_values = 1;
    s.extra_bytes = 2;
    s.wave.wave = "sine";
    s.wave.amp = 3000;
    s.wave.noise = 20;
    const std::string bytes = make_vx24(s);
    ASSERT_GT(bytes.size(), 2 * vx24_piece_bytes);
    dir.write("big.vx24", bytes);
    EXPECT_TRUE(from_file(dir.file("big.vx24").string()) == from_memory(bytes));
}

TEST(Vxfil24Pieces, EmptyAndShortFilesOnDiskFailAsInMemory) {
    throwing_fatal guard;
    temp_dir dir;
    const std::string bytes = make_vx24(vx24_params{});
    for (size_t len : {0, 1, 5, 35, 36, 43, 44, 100}) {
        const std::string cut = bytes.substr(0, len);
        dir.write("short.vx24", cut);
        EXPECT_EQ(from_file(dir.file("short.vx24").string()), from_memory(cut)) << len;
    }
}

// A pipe has no size to measure: it is read whole, as it always was.
TEST(Vxfil24Pieces, APipeIsReadWhole) {
    temp_dir dir;
    vx24_params s;
    s.samples = 40000;
    s.extra_values = 2;
    const std::string bytes = make_vx24(s);
    const std::string path = dir.file("pipe").string();
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    std::thread writer([&] { std::ofstream(path, std::ios::binary).write(bytes.data(), std::streamsize(bytes.size())); });
    const std::string read = from_file(path);
    writer.join();
    EXPECT_TRUE(read == from_memory(bytes));
}
