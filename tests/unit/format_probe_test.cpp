#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "vx24_fixture.h"
#include "vxfil/debug.h"
#include "vxfil/format_probe.h"

using namespace VxFil;

namespace {

struct probe_result {
    probe_kind kind;
    std::string trace;
};

// Runs the probe with tracing on and returns its decision and trace output.
probe_result probe(const std::string &bytes) {
    const int saved = vxfil_debug;
    vxfil_debug = 1;
    testing::internal::CaptureStderr();
    const probe_kind kind = probe_format(reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size());
    std::string trace = testing::internal::GetCapturedStderr();
    vxfil_debug = saved;
    return {kind, trace};
}

// The trace line of the probe: "Debug:<source>(<line>) <message>\n".
bool is_trace(const std::string &trace, const std::string &message) {
    return std::regex_match(trace, std::regex("Debug:format_probe\\.cpp\\([0-9]+\\) " + message + "\n"));
}

const std::string s512_comment =
    "!S512Tidserier sampfrek: 20 gain: 1 station: arvola date: 2017-07-14 time: 02:40:00";
const std::string s128_comment =
    "!S128Tidserier sampfrek: 18 gain: 1 station: bredmo date: 2017-07-14 time: 02:40:00";

std::string numbers(int count) {
    std::string line;
    for (int i = 0; i < count; ++i)
        line += (i ? " " : "") + std::to_string(1500000000 + i) + ".5";
    return line;
}

// A binary file start: comment, carriage return, then three channel blocks
// of 2 stamp words and `samples` 16-bit samples each. The stamps of the
// channels are given; the samples vary.
std::string binary_file(const std::string &comment, size_t samples, const std::string &stamps0,
                        const std::string &stamps1, const std::string &stamps2) {
    std::string out = comment + "\r";
    const std::string *stamps[] = {&stamps0, &stamps1, &stamps2};
    for (int ch = 0; ch < 3; ++ch) {
        out += *stamps[ch];
        for (size_t i = 0; i < samples; ++i) {
            out.push_back(static_cast<char>((i * 7 + ch * 3 + 1) & 0xFF));
            out.push_back(static_cast<char>((i * 13 + ch) & 0xFF));
        }
    }
    return out;
}

} // namespace

TEST(FormatProbe, Vx24IsKnownByItsFirstFourBytesAlone) {
    const std::string vx24 = fixtures::make_vx24(fixtures::vx24_params{});
    probe_result r = probe(vx24);
    EXPECT_EQ(r.kind, probe_kind::VX24);
    EXPECT_TRUE(is_trace(r.trace, "Trying vx24")) << r.trace;

    // Whatever follows the magic, even a comment line and text.
    r = probe("vx24!S512Tidserier sampfrek: 20\n1 2 3 4\n");
    EXPECT_EQ(r.kind, probe_kind::VX24);
    EXPECT_TRUE(is_trace(r.trace, "Trying vx24"));
    EXPECT_EQ(probe(std::string("vx24\0", 5)).kind, probe_kind::VX24);
}

TEST(FormatProbe, NoTraceWithoutTheDebugSwitch) {
    vxfil_debug = 0;
    testing::internal::CaptureStderr();
    EXPECT_EQ(probe_format(reinterpret_cast<const unsigned char *>("vx24...."), 8), probe_kind::VX24);
    const std::string text = s512_comment + "\n" + numbers(4) + "\n";
    EXPECT_EQ(probe_format(reinterpret_cast<const unsigned char *>(text.data()), text.size()),
              probe_kind::TM4);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(FormatProbe, FewerThanFiveBytesGoToTheVx16Reader) {
    for (const std::string &bytes : {std::string(""), std::string("vx24"), std::string("!S51")}) {
        probe_result r = probe(bytes);
        EXPECT_EQ(r.kind, probe_kind::VX16) << bytes;
        EXPECT_EQ(r.trace, "");
    }
    EXPECT_EQ(probe_format(nullptr, 0), probe_kind::VX16);
}

TEST(FormatProbe, UnixStampCommentGoesToTheVx16ReaderUnprobed) {
    probe_result r = probe("!U512Tidserier sampfrek: 20 gain: 1\n" + numbers(4) + "\n");
    EXPECT_EQ(r.kind, probe_kind::VX16);
    EXPECT_EQ(r.trace, "");
    r = probe("!U128Tidserier sampfrek: 20\r" + std::string(3000, 'x'));
    EXPECT_EQ(r.kind, probe_kind::VX16);
    EXPECT_EQ(r.trace, "");
}

TEST(FormatProbe, OtherFirstBytesGoToTheVx16ReaderUnprobed) {
    for (const std::string &bytes : {std::string("!Tidserier 20 3\n1 2 3 4\n"), std::string("Tidserier\n"),
                                     std::string("!s512Tidserier\n1 2 3 4\n"), std::string("hello world")}) {
        probe_result r = probe(bytes);
        EXPECT_EQ(r.kind, probe_kind::VX16) << bytes;
        EXPECT_EQ(r.trace, "") << bytes;
    }
}

TEST(FormatProbe, NoLineEndMeansNoReader) {
    probe_result r = probe(s512_comment);
    EXPECT_EQ(r.kind, probe_kind::NONE);
    EXPECT_EQ(r.trace, "");
    // Only the first 3072 bytes count, and the last of them is ignored.
    std::string long_line = s512_comment + std::string(3072, 'x');
    EXPECT_EQ(probe(long_line + "\n1 2 3 4\n").kind, probe_kind::NONE);
    std::string edge = s512_comment + std::string(3071 - s512_comment.size(), 'x') + "\n1 2 3 4\n";
    ASSERT_EQ(edge[3071], '\n');
    EXPECT_EQ(probe(edge).kind, probe_kind::NONE);
    std::string inside = s512_comment + std::string(3070 - s512_comment.size(), 'x') + "\n1 2 3 4\n";
    EXPECT_EQ(probe(inside).kind, probe_kind::VX16); // the line after is past the probed bytes
    // A NUL before any line end ends the probed text.
    EXPECT_EQ(probe(s512_comment + std::string(1, '\0') + "\n1 2 3 4\n").kind, probe_kind::NONE);
}

TEST(FormatProbe, TextLineCountsDecide) {
    struct {
        int count;
        probe_kind kind;
        const char *trace;
    } cases[] = {{0, probe_kind::VX16, "Trying text !S512"},   {1, probe_kind::VX16, "Trying text !S512"},
                 {3, probe_kind::VX16, "Trying text !S512"},   {4, probe_kind::TM4, "Trying text TM4"},
                 {9, probe_kind::TM4, "Trying text TM4"},      {127, probe_kind::TM4, "Trying text TM4"},
                 {128, probe_kind::VX16, "Trying text !S512"}, {200, probe_kind::VX16, "Trying text !S512"}};
    for (const auto &c : cases) {
        for (const char *line_end : {"\n", "\r\n"}) {
            probe_result r =
                probe(s512_comment + line_end + numbers(c.count) + line_end + numbers(3) + line_end);
            EXPECT_EQ(r.kind, c.kind) << c.count;
            EXPECT_TRUE(is_trace(r.trace, c.trace)) << c.count << ": " << r.trace;
        }
    }
    // The same for a 128-sample comment.
    probe_result r = probe(s128_comment + "\n" + numbers(4) + "\n");
    EXPECT_EQ(r.kind, probe_kind::TM4);
}

TEST(FormatProbe, OnlyTheFirstLineAfterTheCommentIsCounted) {
    probe_result r = probe(s512_comment + "\n1 2 3\n4 5 6 7\n");
    EXPECT_EQ(r.kind, probe_kind::VX16);
    EXPECT_TRUE(is_trace(r.trace, "Trying text !S512"));
    r = probe(s512_comment + "\n1 2 3 4");
    EXPECT_EQ(r.kind, probe_kind::TM4);
}

TEST(FormatProbe, StreamExtractionRulesCountTheNumbers) {
    // The stream stops at the first thing that is not a number in its own
    // grammar: "nan" and "inf" are not.
    EXPECT_EQ(probe(s512_comment + "\n1 2 nan 4 5\n").kind, probe_kind::VX16);
    EXPECT_EQ(probe(s512_comment + "\n1 2 3 4 inf\n").kind, probe_kind::TM4);
    EXPECT_EQ(probe(s512_comment + "\n1 2 inf 4 5\n").kind, probe_kind::VX16);
    EXPECT_EQ(probe(s512_comment + "\n1 2 3 x 5\n").kind, probe_kind::VX16);
    EXPECT_EQ(probe(s512_comment + "\n  -1.5e3\t+2 .3 4.\n").kind, probe_kind::TM4);
    EXPECT_EQ(probe(s512_comment + "\n1 2 3 4e\n").kind, probe_kind::VX16);
    EXPECT_EQ(probe(s512_comment + "\n1,2,3,4\n").kind, probe_kind::VX16);
}

TEST(FormatProbe, Binary512BlockWithEqualStamps) {
    const std::string stamp("\x02\x00\x1E\x00", 4);
    probe_result r = probe(binary_file(s512_comment, 512, stamp, stamp, stamp));
    EXPECT_EQ(r.kind, probe_kind::VX16);
    EXPECT_TRUE(is_trace(r.trace, "Trying binary !S512")) << r.trace;
}

TEST(FormatProbe, Binary128BlockWithEqualStamps) {
    const std::string stamp("\x05\x00\x21\x00", 4);
    const std::string file = binary_file(s128_comment, 128, stamp, stamp, stamp) +
                             binary_file("", 128, "abcd", "efgh", "ijkl").substr(1) +
                             binary_file("", 128, "mnop", "qrst", "uvwx").substr(1) +
                             binary_file("", 128, "ABCD", "EFGH", "IJKL").substr(1);
    const size_t d = s128_comment.size() + 1;
    ASSERT_GE(file.size(), d + 2056 + 4);
    ASSERT_NE(file.substr(d, 4), file.substr(d + 1028, 4));
    ASSERT_NE(file.substr(d, 4), file.substr(d + 2056, 4));
    probe_result r = probe(file);
    EXPECT_EQ(r.kind, probe_kind::VX16);
    EXPECT_TRUE(is_trace(r.trace, "Trying binary !S128")) << r.trace;
}

TEST(FormatProbe, BinaryWithUnequalStampsAndNoLineFeedGoesToVx16Untraced) {
    probe_result r = probe(binary_file(s512_comment, 512, "abcd", "abce", "abcd"));
    EXPECT_EQ(r.kind, probe_kind::VX16);
    EXPECT_EQ(r.trace, "");
}

TEST(FormatProbe, BinaryProbeNeedsBothLaterStamps) {
    const std::string stamp("\x02\x00\x1E\x00", 4);
    probe_result r = probe(binary_file(s512_comment, 512, stamp, stamp, "zzzz"));
    EXPECT_EQ(r.kind, probe_kind::VX16);
    EXPECT_EQ(r.trace, "");
}

TEST(FormatProbe, FileTooShortForTheBinaryProbesFallsThrough) {
    // Zero stamps followed by nothing: the zero padding beyond the file must
    // not pass for equal stamps.
    const std::string stamp("\0\0\0\0", 4);
    probe_result r = probe(s512_comment + "\r" + stamp + std::string(100, '\0'));
    EXPECT_EQ(r.kind, probe_kind::VX16);
    EXPECT_EQ(r.trace, "");
    // The 512 probe needs the third stamp within the file; the 128 one may still apply.
    std::string short512 = binary_file(s512_comment, 512, stamp, stamp, stamp);
    short512.resize(s512_comment.size() + 1 + 2056 + 3);
    r = probe(short512);
    EXPECT_EQ(r.trace, "");
    // A carriage return and line feed with a short text after it: the text probe.
    r = probe(s512_comment + "\r\n1 2 3 4\n");
    EXPECT_EQ(r.kind, probe_kind::TM4);
    EXPECT_TRUE(is_trace(r.trace, "Trying text TM4"));
}

TEST(FormatProbe, BytesBeyondTheBufferAreIgnored) {
    const std::string stamp("\x02\x00\x1E\x00", 4);
    std::string file = binary_file(s512_comment, 512, stamp, stamp, stamp);
    file += std::string(100000, '\x7F');
    EXPECT_EQ(probe(file).kind, probe_kind::VX16);
    EXPECT_TRUE(is_trace(probe(file).trace, "Trying binary !S512"));
}
