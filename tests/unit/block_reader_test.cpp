// Binary and text block readers and the joining of consecutive blocks.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "vx16_fixture.h"
#include "vx16_test_support.h"
#include "vxfil/vxfil.h"

using namespace VxFil;
using namespace vx16_test;

namespace {

class BlockReader : public ::testing::Test {
  protected:
    void SetUp() override { force_utc_env(); }

    std::unique_ptr<VXFIL> binary(const std::string& bytes, bool concat = false) {
        VXFIL_arguments a = quiet_args(concat);
        return std::make_unique<BinaryVXFIL>(dir.write("b/r.dat", bytes).c_str(), &a);
    }
    std::unique_ptr<VXFIL> text(const std::string& bytes, bool concat = false) {
        VXFIL_arguments a = quiet_args(concat);
        return std::make_unique<AsciiVXFIL>(dir.write("t/r.txt", bytes).c_str(), &a);
    }

    throwing_fatal fatal_guard; // a stray library end fails the test instead of ending the run
    scratch_dir dir;
};

fixtures::vx16_recipe ramp_recipe(const std::string& kind, int blocks) {
    fixtures::vx16_recipe s;
    s.kind = kind;
    s.blocks = blocks;
    s.pattern = "ramp";
    s.date = "2016-05-04";
    s.time = "13:30:00";
    return s;
}

// Stamp words of a binary block, one channel's samples all set to v.
void put_block(std::string& out, int minute, int second, int len, int v0, int v1, int v2) {
    auto word = [&](int w) {
        out.push_back(static_cast<char>(w & 0xff));
        out.push_back(static_cast<char>((w >> 8) & 0xff));
    };
    for (int v : {v0, v1, v2}) {
        word(minute);
        word(second);
        for (int n = 0; n < len; ++n)
            word(v);
    }
}

} // namespace

TEST_F(BlockReader, BinaryBlocksInOrderAndCleanEnd) {
    auto s = ramp_recipe("S512", 3);
    auto r = binary(fixtures::make_vx16_binary(s));
    EXPECT_STREQ(r->type(), "binary");
    EXPECT_TRUE(r->is_binary());
    for (int b = 0; b < 3; ++b) {
        ASSERT_EQ(r->getdata(), 0);
        for (int ch = 0; ch < 3; ++ch)
            for (int n : {0, 1, 511})
                EXPECT_EQ(r->current[ch][n], fixtures::vx16_sample(s, ch, b * 512 + n)) << b << " " << ch;
        EXPECT_EQ(r->get_vxtime(0), 1462320000 + fixtures::vx16_block_time(s, b));
    }
    std::string err = capture_stderr([&] { EXPECT_EQ(r->getdata(), -1); });
    EXPECT_EQ(err, ""); // the file ends exactly after a block
}

TEST_F(BlockReader, BinaryCutInsideABlock) {
    std::string bytes = fixtures::make_vx16_binary(ramp_recipe("S128", 2));
    for (size_t cut : {size_t{1}, size_t{100}, size_t{3 * 260 - 2}}) { // 780 bytes per block
        auto r = binary(bytes.substr(0, bytes.size() - cut));
        ASSERT_EQ(r->getdata(), 0);
        std::string err = capture_stderr([&] { EXPECT_EQ(r->getdata(), -1); });
        EXPECT_EQ(err, "fread: EOF\n") << cut;
    }
    // A cut exactly between channels of the second block is a clean end, and
    // so is one that leaves less than a word of the next channel.
    for (size_t cut : {size_t{260}, size_t{259}, size_t{3 * 260 - 1}}) {
        auto r = binary(bytes.substr(0, bytes.size() - cut));
        ASSERT_EQ(r->getdata(), 0);
        std::string err = capture_stderr([&] { EXPECT_EQ(r->getdata(), -1); });
        EXPECT_EQ(err, "") << cut;
    }
}

TEST_F(BlockReader, BinaryUnixStampsAreUnsigned) {
    auto s = ramp_recipe("U512", 2);
    s.start = 1462368600; // 0x5716 0x5358: low word above 32767
    auto r = binary(fixtures::make_vx16_binary(s));
    ASSERT_EQ(r->getdata(), 0);
    EXPECT_TRUE(r->m_unixtime);
    EXPECT_EQ(r->m_time[0], static_cast<int>(s.start & 0xffff));
    EXPECT_GT(r->m_time[0], 32767);
    EXPECT_EQ(r->get_vxtime(0), s.start);
}

TEST_F(BlockReader, OldestKindHasNoStamps) {
    auto s = ramp_recipe("T", 2);
    std::unique_ptr<VXFIL> r;
    capture_stderr([&] { r = binary(fixtures::make_vx16_binary(s)); });
    EXPECT_FALSE(r->is_newfile());
    ASSERT_EQ(r->getdata(), 0);
    EXPECT_EQ(r->current[2][5], fixtures::vx16_sample(s, 2, 5));
    ASSERT_EQ(r->getdata(), 0);
    EXPECT_EQ(r->current[0][0], fixtures::vx16_sample(s, 0, 128));
    EXPECT_EQ(r->getdata(), -1);

    capture_stderr([&] { r = text(fixtures::make_vx16_text(s)); });
    EXPECT_FALSE(r->is_newfile());
    ASSERT_EQ(r->getdata(), 0);
    EXPECT_EQ(r->current[1][127], fixtures::vx16_sample(s, 1, 127));
}

TEST_F(BlockReader, OldFileTypeFromArguments) {
    std::string bytes = "!S128Tidserier sampfrek: 18\r";
    for (int v = 0; v < 3 * 128; ++v)
        bytes += std::string{static_cast<char>(v & 0xff), 0};
    VXFIL_arguments a = quiet_args();
    a.m_old_file_type = true;
    BinaryVXFIL r(dir.write("old.dat", bytes).c_str(), &a);
    EXPECT_FALSE(r.is_newfile());
    ASSERT_EQ(r.getdata(), 0);
    EXPECT_EQ(r.current[1][0], 128);
    r.set_newfile();
    EXPECT_TRUE(r.is_newfile());
    r.set_oldfile();
    EXPECT_FALSE(r.is_newfile());
}

TEST_F(BlockReader, TextBlocksAndSkippedLines) {
    auto s = ramp_recipe("S128", 2);
    std::string bytes = fixtures::make_vx16_text(s);
    // Comment lines, letter lines and empty lines may stand anywhere between block lines.
    size_t second_line = bytes.find('\n', bytes.find('\n') + 1) + 1;
    bytes.insert(second_line, "!a remark\n\nthe recorder restarted\n");
    auto r = text(bytes);
    EXPECT_STREQ(r->type(), "text");
    EXPECT_FALSE(r->is_binary());
    ASSERT_EQ(r->getdata(), 0);
    EXPECT_EQ(r->current[0][3], fixtures::vx16_sample(s, 0, 3));
    EXPECT_EQ(r->current[1][3], fixtures::vx16_sample(s, 1, 3));
    EXPECT_EQ(r->current[2][127], fixtures::vx16_sample(s, 2, 127));
    auto [minute, second] = fixtures::vx16_stamp(s, 0);
    EXPECT_EQ(r->m_time[0], minute);
    EXPECT_EQ(r->m_time[1], second);
    ASSERT_EQ(r->getdata(), 0);
    EXPECT_EQ(r->current[2][0], fixtures::vx16_sample(s, 2, 128));
    EXPECT_EQ(r->getdata(), -1);
}

TEST_F(BlockReader, TextCrLfAndRoundedStamps) {
    std::string line = "10.6 27.4";
    for (int n = 0; n < 128; ++n)
        line += " " + std::to_string(n);
    auto r = text("!S128Tidserier sampfrek: 18\r\n" + line + "\r\n" + line + "\r\n" + line + "\r\n");
    ASSERT_EQ(r->getdata(), 0);
    EXPECT_EQ(r->m_time[0], 11);
    EXPECT_EQ(r->m_time[1], 27);
    EXPECT_EQ(r->current[2][127], 127);
}

TEST_F(BlockReader, TextLineTooLong) {
    std::string bytes = "!S128Tidserier sampfrek: 18\n" + std::string(51199, '1');
    auto r = text(bytes);
    std::string err = capture_stderr([&] { EXPECT_EQ(r->getdata(), -1); });
    EXPECT_EQ(err, "Error: Line to long\n");
    // One character less with its line feed fits.
    auto r2 = text("!S128Tidserier sampfrek: 18\n" + std::string(51198, ' ') + "\n");
    err = capture_stderr([&] { EXPECT_EQ(r2->getdata(), -1); });
    EXPECT_EQ(err, ""); // no stamps on that line: a silent end
}

TEST_F(BlockReader, TextMissingValue) {
    std::string good = "10 0";
    for (int n = 0; n < 128; ++n)
        good += " 5";
    std::string bad = "10 0 1 2 3 x\n";
    auto r = text("!S128Tidserier sampfrek: 18\n" + good + "\n" + bad + good + "\n");
    std::string err = capture_stderr([&] { EXPECT_EQ(r->getdata(), -1); });
    EXPECT_EQ(err, "Failed to read value 5 of line:\n" + bad);
}

TEST_F(BlockReader, TextValuesThatAreNoCounts) {
    for (const char* value : {"inf", "nan", "-nan", "1e300", "2147483648", "-2147483649"}) {
        std::string line = "10 0 7 " + std::string(value);
        for (int n = 2; n < 128; ++n)
            line += " 5";
        line += "\n";
        auto r = text("!S128Tidserier sampfrek: 18\n" + line + line + line);
        std::string err = capture_stderr([&] { EXPECT_EQ(r->getdata(), -1); });
        EXPECT_EQ(err, "Failed to read value 3 of line:\n" + line) << value;
    }
    // The extremes that still truncate to a 32-bit count are taken.
    std::string line = "10 0 2147483647.9 -2147483648.9";
    for (int n = 2; n < 128; ++n)
        line += " 5";
    line += "\n";
    auto r = text("!S128Tidserier sampfrek: 18\n" + line + line + line);
    ASSERT_EQ(r->getdata(), 0);
    EXPECT_EQ(r->current[0][0], 2147483647.9);
    // A stamp beyond int is refused too.
    std::string stamp = "1e12 0";
    for (int n = 0; n < 128; ++n)
        stamp += " 5";
    stamp += "\n";
    auto r2 = text("!S128Tidserier sampfrek: 18\n" + line + line + stamp);
    std::string err = capture_stderr([&] { EXPECT_EQ(r2->getdata(), -1); });
    EXPECT_EQ(err, "Failed to read value 0 of line:\n" + stamp);
}

TEST_F(BlockReader, TextMissingStampIsSilent) {
    auto r = text("!S128Tidserier sampfrek: 18\n 5\n");
    std::string err = capture_stderr([&] { EXPECT_EQ(r->getdata(), -1); });
    EXPECT_EQ(err, "");
}

TEST_F(BlockReader, JoinsWhenStampsContinue) {
    std::string bytes = "!S512Tidserier sampfrek: 18 gain: 1 station: e date: 2016-05-04\r";
    put_block(bytes, 10, 0, 512, 1, 2, 3);
    put_block(bytes, 10, 28, 512, 4, 5, 6); // 28 s < 512/18 + 2
    put_block(bytes, 10, 59, 512, 7, 8, 9); // 31 s: a gap
    auto r = binary(bytes, true);
    ASSERT_EQ(r->getdata(), 0);
    EXPECT_TRUE(r->extended_data());
    EXPECT_FALSE(r->is_timegap());
    EXPECT_EQ(r->current[0][0], 1);
    EXPECT_EQ(r->current[0][511], 1);
    EXPECT_EQ(r->current[0][512], 4);
    EXPECT_EQ(r->current[2][1023], 6);
    EXPECT_EQ(r->m_timegaps, 0);

    ASSERT_EQ(r->getdata(), 0); // the block read ahead becomes current
    EXPECT_EQ(r->current[1][0], 5);
    EXPECT_FALSE(r->extended_data());
    EXPECT_TRUE(r->is_timegap());
    EXPECT_EQ(r->m_timegaps, 1);
    EXPECT_EQ(r->get_vxtime(0), 1462320000 + 600 + 28);

    ASSERT_EQ(r->getdata(), 0);
    EXPECT_EQ(r->current[0][0], 7);
    EXPECT_EQ(r->getdata(), -1);
    std::string err = capture_stderr([&] { r.reset(); });
    EXPECT_EQ(err, "TIMEGAP in data\n");
}

TEST_F(BlockReader, TimeIsOkReportsGaps) {
    auto r = text("!S512Tidserier sampfrek: 18\n");
    r->m_time_base = 0;
    r->m_start_of_day = 0;
    r->m_time[0] = 10;
    r->m_time[1] = 0;
    r->m_time[2] = 10;
    r->m_time[3] = 28;
    EXPECT_FALSE(r->time_is_ok());
    r->m_time[3] = 31;
    EXPECT_TRUE(r->time_is_ok());
    EXPECT_EQ(r->m_timegaps, 1);
    // Backwards by as much counts as well.
    r->m_time[0] = 10;
    r->m_time[1] = 31;
    r->m_time[3] = 0;
    EXPECT_TRUE(r->time_is_ok());
    EXPECT_EQ(r->m_timegaps, 2);
    std::string err = capture_stderr([&] { r.reset(); });
    EXPECT_EQ(err, "Warning: TIMEGAPs in data\n");
}

TEST_F(BlockReader, MidnightRule) {
    auto r = text("!S512Tidserier sampfrek: 18\n");
    r->m_time_base = 0;
    r->m_start_of_day = 1462320000;
    r->m_time[0] = 1439;
    r->m_time[1] = 50;
    r->m_time[2] = 0;
    r->m_time[3] = 18;
    EXPECT_FALSE(r->time_is_ok()); // -86372 + 86400 = 28 s
    r->m_time[3] = 25;
    EXPECT_TRUE(r->time_is_ok());
}

TEST_F(BlockReader, WithoutJoiningReadnextDoesNothing) {
    auto r = binary(fixtures::make_vx16_binary(ramp_recipe("S128", 2)));
    atype scratch;
    EXPECT_EQ(r->readnext(scratch), 1);
    EXPECT_FALSE(r->m_is_next);
}

TEST_F(BlockReader, MicOrderReordersChannels) {
    std::string bytes = "!S128Tidserier sampfrek: 18\r";
    put_block(bytes, 0, 0, 128, 11, 22, 33);
    auto r = binary(bytes);
    r->set_micorder(2, 1, 0);
    ASSERT_EQ(r->getdata(), 0);
    EXPECT_EQ(r->current[2][0], 11);
    EXPECT_EQ(r->current[1][0], 22);
    EXPECT_EQ(r->current[0][0], 33);
    EXPECT_THROW(r->set_micorder(0, 1, 3), std::out_of_range);
}

TEST_F(BlockReader, TextLineStartingWithLetterIsSkipped) {
    std::string line = "0 0";
    for (int n = 0; n < 128; ++n)
        line += " 9";
    auto r = text("!S128Tidserier sampfrek: 18\nX 1 2 3\n" + line + "\nz\n" + line + "\n" + line + "\n");
    ASSERT_EQ(r->getdata(), 0);
    EXPECT_EQ(r->current[0][0], 9);
    EXPECT_EQ(r->getdata(), -1);
}

TEST_F(BlockReader, OpenFailureIsFatal) {
    throwing_fatal guard;
    VXFIL_arguments a = quiet_args();
    std::string missing = (dir.path() / "missing.dat").string();
    testing::internal::CaptureStderr();
    EXPECT_THROW(BinaryVXFIL(missing.c_str(), &a), fatal_exit_called);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Can't open " + missing + "\n");
}

TEST_F(BlockReader, AnnouncesFileAndType) {
    std::string path = dir.write("n.dat", "!S128Tidserier sampfrek: 18\r");
    VXFIL_arguments a;
    std::string err = capture_stderr([&] { BinaryVXFIL r(path.c_str(), &a); });
    EXPECT_EQ(err, "File: " + path + " Type:binary\n");
}

TEST_F(BlockReader, ReadsFromAnOpenStream) {
    std::string bytes = fixtures::make_vx16_binary(ramp_recipe("S128", 2));
    FILE* f = fmemopen(bytes.data(), bytes.size(), "rb");
    ASSERT_NE(f, nullptr);
    VXFIL_arguments a = quiet_args();
    BinaryVXFIL r(f, "2016/05/20160504/e6050427.dat", &a);
    EXPECT_EQ(r.m_start_of_day, 1462320000);
    ASSERT_EQ(r.getdata(), 0);
    ASSERT_EQ(r.getdata(), 0);
    EXPECT_EQ(r.getdata(), -1);

    std::string txt = fixtures::make_vx16_text(ramp_recipe("S128", 1));
    AsciiVXFIL t(fmemopen(txt.data(), txt.size(), "rb"), "mem", &a);
    ASSERT_EQ(t.getdata(), 0);
    EXPECT_EQ(t.getdata(), -1);
}

TEST_F(BlockReader, Le16ToHost) {
    unsigned char bytes[2] = {0x34, 0x82};
    short w;
    std::memcpy(&w, bytes, 2);
    EXPECT_EQ(VXFIL::le16toh16(w), static_cast<short>(0x8234));
}
