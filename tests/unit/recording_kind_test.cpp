// The kind of a file by its first bytes, as --identify reports it and the
// recording library decides it.
#include <gtest/gtest.h>

#include <string>

#include "vxfil/recording_kind.h"

namespace {

std::string kind(const std::string &bytes) {
    return VxFil::kind_by_first_bytes(reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size());
}

const std::string comment =
    "!S512Tidserier sampfrek: 18.000000 gain: 2 station: e date: 2016-05-04 time: 13:30:00";

// A text block line: the two stamp numbers and 512 samples.
std::string block_line() {
    std::string line = "810 0";
    for (int i = 0; i < 512; ++i)
        line += " " + std::to_string(i % 7);
    return line;
}

TEST(RecordingKind, Vx24ByItsMagicAlone) {
    EXPECT_EQ(kind("vx24"), "vx24");
    EXPECT_EQ(kind(std::string("vx24\x01\x00\x20\x00", 8)), "vx24");
}

TEST(RecordingKind, CommentHeadedTextAndBinary) {
    EXPECT_EQ(kind(comment + "\n" + block_line() + "\n"), "vx16-text");
    EXPECT_EQ(kind(comment + "\r\n" + block_line() + "\r\n"), "vx16-text");
    EXPECT_EQ(kind(comment + "\r" + std::string("\x2a\x03\x00\x00\x05\x00", 6)), "vx16-binary");
    // The older comment forms count as well.
    EXPECT_EQ(kind("!Tidserier 18.0 2\n810 0 1 2 3\n"), "vx16-text");
    EXPECT_EQ(kind("!U128\r\x01\x02"), "vx16-binary");
}

TEST(RecordingKind, Tm4WithAndWithoutCommentLine) {
    EXPECT_EQ(kind(comment + "\n1462368600.0000 1 2 3\n"), "tm4");
    // A TM4 data line without the comment line is of the family (the reader
    // will then fail on it).
    EXPECT_EQ(kind("1462368600.0000 1 2 3\n1462368600.0500 1 2 3\n"), "tm4");
}

TEST(RecordingKind, ForeignFiles) {
    EXPECT_EQ(kind(""), "not-a-recording");
    EXPECT_EQ(kind("hello world\n"), "not-a-recording");
    EXPECT_EQ(kind("a,b\n1,2\n"), "not-a-recording");
    EXPECT_EQ(kind("1 2 3\n"), "not-a-recording");
    EXPECT_EQ(kind(std::string("\x7f"
                               "ELF\x02\x01\x01",
                               7)),
              "not-a-recording");
    EXPECT_EQ(kind("!just a remark\n"), "not-a-recording");
}

} // namespace
