#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "at_file.h"
#include "temp_dir.h"

namespace {

std::vector<std::string> expand(std::vector<std::string> args) {
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    const int old_argc = static_cast<int>(args.size());
    int argc = old_argc;
    char** v = argv.data();
    rebuild_argv(&argc, &v);
    std::vector<std::string> out(v, v + argc);
    EXPECT_EQ(v[argc], nullptr);
    restore_argv(&argc, &v, old_argc, argv.data());
    return out;
}

TEST(AtFile, ListFileExpandsAndDropsComments) {
    temp_dir d;
    d.enter();
    d.write("list", "-c\na.dat\n#note\nb.dat\n");
    EXPECT_EQ(expand({"brantel", "@list"}), (std::vector<std::string>{"brantel", "-c", "a.dat", "b.dat"}));
}

TEST(AtFile, DollarBehavesAsAt) {
    temp_dir d;
    d.enter();
    d.write("list", "-c\na.dat\n#note\nb.dat\n");
    EXPECT_EQ(expand({"brantel", "$list"}), (std::vector<std::string>{"brantel", "-c", "a.dat", "b.dat"}));
}

TEST(AtFile, HashArgumentDisappears) {
    EXPECT_EQ(expand({"brantel", "#x", "a"}), (std::vector<std::string>{"brantel", "a"}));
}

TEST(AtFile, MissingFileStaysAndVectorIsNotRebuilt) {
    temp_dir d;
    d.enter();
    std::string prog = "brantel", arg = "@missing";
    char* argv[] = {prog.data(), arg.data(), nullptr};
    int argc = 2;
    char** v = argv;
    rebuild_argv(&argc, &v);
    EXPECT_EQ(v, argv);
    EXPECT_EQ(argc, 2);
    EXPECT_STREQ(v[1], "@missing");
}

TEST(AtFile, LinesKeepBlanksCarriageReturnsAndEmptyLines) {
    temp_dir d;
    d.enter();
    d.write("list", "a b\nc\r\n\nd");
    EXPECT_EQ(expand({"p", "@list"}), (std::vector<std::string>{"p", "a b", "c\r", "", "d"}));
}

TEST(AtFile, NestedListsExpandAtAnyDepth) {
    temp_dir d;
    d.enter();
    d.write("inner", "x\ny\n");
    d.write("outer", "a\n@inner\nb\n");
    EXPECT_EQ(expand({"p", "@outer"}), (std::vector<std::string>{"p", "a", "x", "y", "b"}));
}

TEST(AtFile, LongLineIsSplitAtTheBufferBoundary) {
    temp_dir d;
    d.enter();
    d.write("list", std::string(5000, 'a') + "\n");
    auto out = expand({"p", "@list"});
    ASSERT_EQ(out.size(), 3u);
    EXPECT_EQ(out[1].size(), 4095u);
    EXPECT_EQ(out[2].size(), 5000u - 4095u);
}

TEST(AtFile, CountingPassReturnsExpandedLines) {
    temp_dir d;
    d.enter();
    d.write("list", "a\n#c\nb\n");
    int argc = 0;
    EXPECT_EQ(add_arg_to_argv(&argc, nullptr, "@list"), 3);
    EXPECT_EQ(argc, 2);
}

TEST(AtFile, SelfIncludingFileEndsWithOneLine) {
    temp_dir d;
    d.enter();
    d.write("loop", "a\n@loop\n");
    EXPECT_EXIT(expand({"p", "@loop"}), testing::ExitedWithCode(1),
                "^Error: argument file includes itself: loop\n$");
}

TEST(AtFile, IndirectSelfInclusionIsCaught) {
    temp_dir d;
    d.enter();
    d.write("one", "@two\n");
    d.write("two", "@one\n");
    EXPECT_EXIT(expand({"p", "@one"}), testing::ExitedWithCode(1), "includes itself: one\n");
}

TEST(AtFile, NestingDeeperThanSixteenIsRefused) {
    temp_dir d;
    d.enter();
    for (int i = 0; i < 20; ++i) d.write("l" + std::to_string(i), "@l" + std::to_string(i + 1) + "\n");
    d.write("l20", "end\n");
    EXPECT_EXIT(expand({"p", "@l0"}), testing::ExitedWithCode(1), "nested too deeply: l16\n");
}

TEST(AtFile, SixteenLevelsAreFollowed) {
    temp_dir d;
    d.enter();
    for (int i = 0; i < 15; ++i) d.write("l" + std::to_string(i), "@l" + std::to_string(i + 1) + "\n");
    d.write("l15", "end\n");
    EXPECT_EQ(expand({"p", "@l0"}), (std::vector<std::string>{"p", "end"}));
}

TEST(AtFile, EndlessArgumentFileIsRefusedAtTheByteLimit) {
    if (!std::filesystem::exists("/dev/zero")) GTEST_SKIP() << "no /dev/zero";
    EXPECT_EXIT(expand({"p", "@/dev/zero"}), testing::ExitedWithCode(1),
                "^Error: argument file larger than 64 MiB: /dev/zero\n$");
}

TEST(AtFile, FileOfExactlySixtyFourMiBIsRead) {
    temp_dir d;
    d.enter();
    // 1024-byte lines: 65536 lines are 64 MiB exactly.
    const std::string line = std::string(1023, 'x') + "\n";
    std::string big;
    for (int i = 0; i < 65536; ++i) big += line;
    ASSERT_EQ(big.size(), max_at_file_bytes + 0);
    d.write("big", big);
    EXPECT_EQ(expand({"p", "@big"}).size(), 65537u);
    d.write("bigger", big + "y\n");
    EXPECT_EXIT(expand({"p", "@bigger"}), testing::ExitedWithCode(1), "larger than 64 MiB: bigger\n$");
}

TEST(AtFile, MoreThanAMillionArgumentsAreRefused) {
    temp_dir d;
    d.enter();
    // Ten files of 100000 arguments are a million; with the program name that
    // is one too many.
    std::string lines;
    for (int i = 0; i < 100000; ++i) lines += "a\n";
    d.write("part", lines);
    std::string list;
    for (int i = 0; i < 10; ++i) list += "@part\n";
    d.write("million", list);
    EXPECT_EXIT(expand({"p", "@million"}), testing::ExitedWithCode(1),
                "^Error: more than a million arguments from argument file: part\n$");
    d.write("fewer", list.substr(0, list.size() - 6) + "x\n");
    EXPECT_EQ(expand({"p", "@fewer"}).size(), 900002u);
}

TEST(AtFile, RestoreArgvPutsTheOldVectorBack) {
    temp_dir d;
    d.enter();
    d.write("list", "a\n");
    std::string prog = "p", arg = "@list";
    char* argv[] = {prog.data(), arg.data(), nullptr};
    int argc = 2;
    char** v = argv;
    rebuild_argv(&argc, &v);
    ASSERT_NE(v, argv);
    restore_argv(&argc, &v, 2, argv);
    EXPECT_EQ(v, argv);
    EXPECT_EQ(argc, 2);
}

} // namespace
