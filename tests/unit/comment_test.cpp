// The comment line: reading it (readcomment) and its three grammars.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

#include "vx16_test_support.h"
#include "vxfil/comment.h"
#include "vxfil/vxfil.h"

using namespace VxFil;
using namespace vx16_test;

namespace {

struct scratch_values {
    double frequency = -1.0;
    int gain = -1;
    std::string station, date, time;
    char c = 0;
    int len = 0;
    bool unixtime = false;
    arguments args{frequency, gain, station, c, len, unixtime, date, time};
};

// A text reader over a file holding exactly bytes.
std::unique_ptr<VXFIL> text_reader(const scratch_dir& dir, const std::string& bytes) {
    VXFIL_arguments a = quiet_args();
    return std::make_unique<AsciiVXFIL>(dir.write("x.txt", bytes).c_str(), &a);
}

std::unique_ptr<VXFIL> binary_reader(const scratch_dir& dir, const std::string& bytes) {
    VXFIL_arguments a = quiet_args();
    return std::make_unique<BinaryVXFIL>(dir.write("x.dat", bytes).c_str(), &a);
}

class Comment : public ::testing::Test {
  protected:
    void SetUp() override { force_utc_env(); }
    throwing_fatal fatal_guard; // a stray library end fails the test instead of ending the run
    scratch_dir dir;
};

} // namespace

TEST_F(Comment, Type1GivesFrequencyAndGainAndLength128) {
    scratch_values v;
    EXPECT_TRUE(valid_comment_type1("!Tidserier 20 3", v.args));
    EXPECT_EQ(v.frequency, 20.0);
    EXPECT_EQ(v.gain, 3);

    auto r = text_reader(dir, "!Tidserier 20 3\n");
    EXPECT_EQ(r->get_frequency(), 20.0);
    EXPECT_EQ(r->get_gain(), 3);
    EXPECT_EQ(r->get_length(), 128u);
    EXPECT_EQ(r->get_station(), '\0');
    EXPECT_TRUE(r->m_date_from_comment.empty());
}

TEST_F(Comment, Type2IsRecognisedAndType1FailsOnIt) {
    const char* line = "!Tidserier  sampfrek: 18.0 gain: 2";
    scratch_values v1;
    EXPECT_FALSE(valid_comment_type1(line, v1.args));
    scratch_values v2;
    EXPECT_TRUE(valid_comment_type2(line, v2.args));
    EXPECT_EQ(v2.frequency, 18.0);
    EXPECT_EQ(v2.gain, 2);

    auto r = text_reader(dir, std::string(line) + "\n");
    EXPECT_EQ(r->get_frequency(), 18.0);
    EXPECT_EQ(r->get_gain(), 2);
}

TEST_F(Comment, Type3WithFrequencyOnly) {
    scratch_values v;
    EXPECT_TRUE(valid_comment_type3("!S512Tidserier sampfrek: 18", v.args));
    EXPECT_EQ(v.len, 512);
    EXPECT_EQ(v.c, 'S');

    auto r = text_reader(dir, "!S512Tidserier sampfrek: 18\n");
    EXPECT_EQ(r->get_frequency(), 18.0);
    EXPECT_EQ(r->get_gain(), -1);
    EXPECT_TRUE(r->m_station.empty());
    EXPECT_TRUE(r->m_date_from_comment.empty());
    EXPECT_TRUE(r->m_time_from_comment.empty());
    EXPECT_EQ(r->get_length(), 512u);
    EXPECT_FALSE(r->m_unixtime);
}

TEST_F(Comment, KindUSetsUnixTime) {
    auto r = text_reader(
        dir, "!U128Tidserier sampfrek: 12.5 gain: 4 station: bredmo date: 2017-01-02 time: 03:04:05\n");
    EXPECT_TRUE(r->m_unixtime);
    EXPECT_EQ(r->get_length(), 128u);
    EXPECT_EQ(r->get_frequency(), 12.5);
    EXPECT_EQ(r->get_gain(), 4);
    EXPECT_EQ(r->m_station, "bredmo");
    EXPECT_EQ(r->get_station(), 'b');
    EXPECT_EQ(r->m_date_from_comment, "2017-01-02");
    EXPECT_EQ(r->m_time_from_comment, "03:04:05");
}

TEST_F(Comment, UnknownKindLetterIsInvalidAndFallsBackTo18Hz) {
    scratch_values v;
    EXPECT_FALSE(valid_comment_type3("!X512Tidserier sampfrek: 20", v.args));
    EXPECT_EQ(v.frequency, 20.0); // scanned although invalid

    std::unique_ptr<VXFIL> r;
    std::string err = capture_stderr([&] { r = text_reader(dir, "!X512Tidserier sampfrek: 20\n"); });
    EXPECT_EQ(err, "parse_comment: Invalid comment line\nCouldn't determine sampling frequency\n"
                   "defaulting to 18.0Hz\n");
    EXPECT_EQ(r->get_frequency(), 18.0);
    EXPECT_FALSE(r->parse_comment("!X512Tidserier sampfrek: 20"));
}

TEST_F(Comment, ValidateCommentMessageNamesItself) {
    std::string err = capture_stderr([] { EXPECT_FALSE(validate_comment("garbage")); });
    EXPECT_EQ(err, "validate_comment: Invalid comment line\nCouldn't determine sampling frequency\n"
                   "defaulting to 18.0Hz\n");
    EXPECT_TRUE(validate_comment("!Tidserier 20 3"));
    EXPECT_TRUE(validate_comment("!S128Tidserier sampfrek: 18 gain: 1 station: a date: 2016-13-99"));
}

TEST_F(Comment, NonstandardLengthWarnsAndReadcommentTakes128) {
    scratch_values v;
    std::string err =
        capture_stderr([&] { EXPECT_TRUE(valid_comment_type3("!S256Tidserier sampfrek: 18", v.args)); });
    EXPECT_EQ(err, "WARNING: nonstandard length: 256\n");
    std::unique_ptr<VXFIL> r;
    err = capture_stderr([&] { r = text_reader(dir, "!S256Tidserier sampfrek: 18\n"); });
    EXPECT_EQ(err, "WARNING: nonstandard length: 256\n");
    EXPECT_EQ(r->get_length(), 128u);
}

TEST_F(Comment, NoCommentByteIsLeftUnread) {
    auto r = text_reader(dir, "X1 2 3\n");
    EXPECT_TRUE(r->m_firstline.empty());
    EXPECT_EQ(std::fgetc(r->m_fd.get()), 'X');
    // Calling it again gives 0 again and still leaves the byte.
    std::ungetc('X', r->m_fd.get());
    EXPECT_EQ(r->readcomment(), 0);
    EXPECT_EQ(std::fgetc(r->m_fd.get()), 'X');
}

TEST_F(Comment, LongStationIsCutAndStopsTheScan) {
    std::string station(300, 'q');
    std::string line =
        "!S512Tidserier sampfrek: 18 gain: 2 station: " + station + " date: 2016-05-04 time: 13:30:00";
    scratch_values v;
    EXPECT_TRUE(valid_comment_type3(line.c_str(), v.args));
    EXPECT_EQ(v.station, std::string(255, 'q'));
    EXPECT_TRUE(v.date.empty());
    EXPECT_TRUE(v.time.empty());
}

TEST_F(Comment, OldestKindBeginsWithT) {
    std::unique_ptr<VXFIL> r;
    capture_stderr([&] { r = binary_reader(dir, std::string("Tidserier 20 3\r") + std::string(10, '\0')); });
    EXPECT_FALSE(r->is_newfile());
    EXPECT_EQ(r->get_length(), 128u);
    EXPECT_EQ(r->get_frequency(), 18.0); // no grammar matches a line without "!"
}

TEST_F(Comment, TextLineEndsAtLineFeedAndDropsCarriageReturns) {
    auto r = text_reader(dir, "!S512Tidserier\r sampfrek: 18\r\n1 2 3\n");
    EXPECT_EQ(std::string(r->firstline()), "!S512Tidserier sampfrek: 18");
    EXPECT_EQ(r->m_firstline.size(), std::string("!S512Tidserier sampfrek: 18").size() + 1); // counts the NUL
    EXPECT_EQ(r->m_firstline.back(), '\0');
    EXPECT_EQ(std::fgetc(r->m_fd.get()), '1');
}

TEST_F(Comment, BinaryLineEndsAtCarriageReturnAndKeepsLineFeeds) {
    auto r = binary_reader(dir, "!S512Tidserier sampfrek: 18\n gain: 3\r\nAB");
    EXPECT_EQ(std::string(r->firstline()), "!S512Tidserier sampfrek: 18\n gain: 3");
    EXPECT_EQ(r->get_gain(), 3);                // the blank in the format matches the line feed
    EXPECT_EQ(std::fgetc(r->m_fd.get()), '\n'); // the byte after the carriage return is data
}

TEST_F(Comment, CommentCutShortIsFatal) {
    throwing_fatal guard;
    for (const char* bytes : {"", "!S512Tidserier sampfrek: 18", "T"}) {
        std::string err;
        testing::internal::CaptureStderr();
        try {
            text_reader(dir, bytes);
            ADD_FAILURE() << "no fatal end for " << bytes;
        } catch (const fatal_exit_called& e) {
            EXPECT_EQ(e.status, 1);
        }
        err = testing::internal::GetCapturedStderr();
        EXPECT_EQ(err, "fgetc: EOF \n") << bytes;
    }
    // The binary reader waits for a carriage return that never comes.
    testing::internal::CaptureStderr();
    EXPECT_THROW(binary_reader(dir, "!S512Tidserier sampfrek: 18\n1 2 3\n"), fatal_exit_called);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "fgetc: EOF \n");
}

TEST(Formatter, BuildsStrings) {
    std::string s = Formatter() << "Can't open " << 42 << " " << 1.5;
    EXPECT_EQ(s, "Can't open 42 1.5");
    EXPECT_EQ((Formatter() << "x" << 'y').str(), "xy");
    EXPECT_EQ(Formatter() << "a" >> Formatter::to_str, "a");
}
