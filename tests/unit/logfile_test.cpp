#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

#include "err_printf.h"
#include "logfile.h"
#include "temp_dir.h"

namespace {

std::string fields(std::vector<std::string> args) {
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    return log_fields(static_cast<int>(argv.size()), argv.data());
}

TEST(Logfile, BlankMakesQuotesAndEscapesInnerQuote) {
    EXPECT_EQ(fields({"p", "a\"b c"}), " p \"a\\\"b c\"");
}

TEST(Logfile, LongOptionValueIsQuotedAlone) { EXPECT_EQ(fields({"--x=1,2"}), " --x=\"1,2\""); }

TEST(Logfile, SingleDashOptionIsQuotedWhole) { EXPECT_EQ(fields({"-x=1,2"}), " \"-x=1,2\""); }

TEST(Logfile, PlainArgumentIsBareEvenWithQuotes) { EXPECT_EQ(fields({"a\"b\\c"}), " a\"b\\c"); }

TEST(Logfile, AsteriskAndBackslashAreQuotedAndEscaped) { EXPECT_EQ(fields({"a*\\"}), " \"a*\\\\\""); }

TEST(Logfile, QuoteStringOfNullAndEmpty) {
    char* a = quote_string(nullptr);
    char* b = quote_string("");
    EXPECT_STREQ(a, "");
    EXPECT_STREQ(b, "");
    std::free(a);
    std::free(b);
}

TEST(Logfile, AppendsOneLinePerRun) {
    temp_dir d;
    d.enter();
    std::string p = "brantel", a = "x y";
    char* argv[] = {p.data(), a.data()};
    logfile(2, argv);
    logfile(2, argv);
    std::string content = d.read("logfile");
    EXPECT_TRUE(std::regex_match(content, std::regex(R"((.* brantel "x y"\n){2})"))) << content;
}

TEST(Logfile, UnwritableLogSaysNoEntry) {
    temp_dir d;
    std::filesystem::create_directories(d.file("dir"));
    std::string p = "brantel";
    char* argv[] = {p.data()};
    testing::internal::CaptureStderr();
    flogfile(d.file("dir").c_str(), 1, argv);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "No logfile entry\n");
}

TEST(ErrPrintf, PrefixesBaseNameAndLine) {
    testing::internal::CaptureStderr();
    int line = __LINE__ + 1;
    ERR_PRINTF("Error: %s\n", "boom");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "logfile_test.cpp:" + std::to_string(line) + ":: error: Error: boom\n");
}

TEST(ErrPrintf, BaseNameDropsDirectories) {
    EXPECT_STREQ(source_base_name("/a/b/c.cpp"), "c.cpp");
    EXPECT_STREQ(source_base_name("c.cpp"), "c.cpp");
}

} // namespace
