// Choice between the text and the binary comment-headed reader.
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "vx16_fixture.h"
#include "vx16_test_support.h"
#include "vxfil/vxfil.h"

using namespace VxFil;
using namespace vx16_test;

namespace {

class Detect : public ::testing::Test {
  protected:
    void SetUp() override { force_utc_env(); }

    // The runtime error text of detect on bytes, or "" when it succeeded.
    std::string error_of(const std::string& bytes) {
        std::string path = dir.write("e.dat", bytes);
        VXFIL_arguments a = quiet_args();
        try {
            std::unique_ptr<VXFIL> r(detect(path.c_str(), &a));
        } catch (const std::runtime_error& e) {
            return e.what();
        }
        return "";
    }

    std::unique_ptr<VXFIL> detected(const std::string& bytes) {
        VXFIL_arguments a = quiet_args();
        return std::unique_ptr<VXFIL>(detect(dir.write("d/x.dat", bytes).c_str(), &a));
    }

    throwing_fatal fatal_guard; // a stray library end fails the test instead of ending the run
    scratch_dir dir;
};

fixtures::vx16_recipe recipe(const std::string& kind) {
    fixtures::vx16_recipe s;
    s.kind = kind;
    s.blocks = 2;
    s.date = "2016-05-04";
    return s;
}

} // namespace

TEST_F(Detect, ShortFileThrowsEvenWithACompleteComment) {
    EXPECT_EQ(error_of("!S512Tidserier sampfrek: 18\n1 2 3\n"), "fread: EOF \n");
    std::string bytes = fixtures::make_vx16_text(recipe("S128"));
    EXPECT_EQ(error_of(bytes.substr(0, 255)), "fread: EOF \n");
    EXPECT_EQ(error_of(bytes.substr(0, 256)), "");
}

TEST_F(Detect, CannotOpen) {
    std::string missing = (dir.path() / "nothing.dat").string();
    try {
        delete detect(missing.c_str(), false, false, false);
        FAIL() << "no error";
    } catch (const std::runtime_error& e) {
        EXPECT_EQ(std::string(e.what()), "Can't open " + missing + "\n");
    }
}

TEST_F(Detect, NoLineEndInTheProbe) {
    EXPECT_EQ(error_of(std::string(300, 'a')), "Found no end of first commentline\n");
    // A line end as the very last of the 256 bytes is overwritten by the terminator.
    EXPECT_EQ(error_of(std::string(255, 'a') + "\n" + std::string(10, 'b')),
              "Found no end of first commentline\n");
}

TEST_F(Detect, TextWithThreeNumbers) {
    auto r = detected(fixtures::make_vx16_text(recipe("S512")));
    EXPECT_FALSE(r->is_binary());
    EXPECT_STREQ(r->type(), "text");
    auto u = detected(fixtures::make_vx16_text(recipe("U128")));
    EXPECT_FALSE(u->is_binary());
    EXPECT_TRUE(u->m_unixtime);
}

TEST_F(Detect, BinaryRecordings) {
    auto r = detected(fixtures::make_vx16_binary(recipe("S512")));
    EXPECT_TRUE(r->is_binary());
    EXPECT_STREQ(r->type(), "binary");
    auto s = detected(fixtures::make_vx16_binary(recipe("S128")));
    EXPECT_TRUE(s->is_binary());
}

TEST_F(Detect, SecondLineWithFewerThanThreeNumbersIsBinary) {
    std::string bytes = "!S512Tidserier sampfrek: 18\n1 2\n" + std::string(300, ' ') + "\r";
    auto r = detected(bytes);
    EXPECT_TRUE(r->is_binary());
}

TEST_F(Detect, InvalidCommentIsBinary) {
    std::string bytes = "!Xyz\n1 2 3\r" + std::string(300, ' ');
    std::unique_ptr<VXFIL> r;
    std::string err = capture_stderr([&] { r = detected(bytes); });
    EXPECT_TRUE(r->is_binary());
    EXPECT_EQ(err.rfind("validate_comment: Invalid comment line\n", 0), 0u);
    EXPECT_EQ(std::string(r->firstline()), "!Xyz\n1 2 3");
}

TEST_F(Detect, LengthAloneMakesTheCommentValid) {
    // "!s128" scans as a length of 128 although no grammar matches.
    std::string bytes = "!s128 hello\n1 2 3\n" + std::string(300, ' ');
    std::unique_ptr<VXFIL> r;
    capture_stderr([&] { r = detected(bytes); });
    EXPECT_FALSE(r->is_binary());
}

TEST_F(Detect, FourArgumentFormIsNotQuiet) {
    std::string path = dir.write("q.txt", fixtures::make_vx16_text(recipe("S128")));
    std::string err = capture_stderr([&] { delete detect(path.c_str(), true, false, false); });
    EXPECT_EQ(err, "File: " + path + " Type:text\n");
}

TEST_F(Detect, FromAnOpenStream) {
    std::string bytes = fixtures::make_vx16_text(recipe("S128"));
    VXFIL_arguments a = quiet_args();
    std::unique_ptr<VXFIL> r(detect(fmemopen(bytes.data(), bytes.size(), "rb"), "mem.txt", &a));
    EXPECT_FALSE(r->is_binary());
    EXPECT_EQ(r->getdata(), 0);
    EXPECT_EQ(r->current[0][0], fixtures::vx16_sample(recipe("S128"), 0, 0));
    std::string small = "!S128";
    try {
        delete detect(fmemopen(small.data(), small.size(), "rb"), "small", &a);
        FAIL() << "no error";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "fread: EOF \n");
    }
    EXPECT_THROW(detect(static_cast<FILE*>(nullptr), "none", &a), std::runtime_error);
}
