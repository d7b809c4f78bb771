// The demo behind `make demo`: it converts every bundled example into its
// own folder of the demo directory, keeps the results with a quick-look
// picture of each, says where they are, and ends by filing every example
// into one SDS tree with the archive driver.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <set>
#include <string>

#include "temp_dir.h"

namespace fs = std::filesystem;

namespace {

TEST(Demo, KeepsEveryResultWithAPictureOutsideTheSourceTree) {
    if (std::system("command -v gnuplot >/dev/null 2>&1") != 0) GTEST_SKIP() << "gnuplot is not installed";
    temp_dir dir;
    const fs::path demo = dir.path / "demo";
    const std::string command = "cd \"" + dir.path.string() + "\" && bash \"" + SOURCE_DIR +
                                "/examples/demo.sh\" \"" + BRANTEL_BIN + "\" \"" + demo.string() + "\" 2>&1";
    FILE *p = ::popen(command.c_str(), "r");
    ASSERT_NE(p, nullptr);
    std::string output;
    char buffer[4096];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, p)) > 0)
        output.append(buffer, n);
    const int status = ::pclose(p);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << output;

    std::set<std::string> pictures;
    for (const auto &e : fs::recursive_directory_iterator(demo))
        if (e.path().extension() == ".png") pictures.insert(fs::relative(e.path(), demo).string());
    std::set<std::string> expected = {
        "combined/vx24/arvola_20170714_024000.png",
        "filtered/vx24/arvola_20170714_024000.png",
        "four-columns/vx24/arvola_20170714_024000.png",
        "snippets/vx24/arvola_20170714_024000.a.png",
        "snippets/vx24/arvola_20170714_024000.b.png",
        "tm4-two-columns/tm4/dovmark_20170714_024000.png",
        "tspair/vx24/arvola_20170714_024000.png",
        "vx16-binary/vx16/2016/05/20160504/e6050427.png",
        "vx16-legacy/vx16/1993/11/19931102/b3110214.png",
        "vx16-s128-slist/vx16/2016/05/20160505/d6050510.png",
        "vx16-station-sample-times/vx16/1995/06/19950617/c5061733.png",
        "vx16-text-average/vx16/2016/05/20160504/e6050427.png",
    };
    // The SDS tree of every example: a picture per recorder and day, under
    // each of its three elements.
    for (const char *recorder_day : {"RAA%/2017-07-14", "RBA%/1993-11-02", "RCA%/1995-06-17", "RDA%/2016-05-05",
                                     "RDA%/2017-07-14", "REA%/2016-05-04"})
        for (const char element : {'1', '2', '3'}) {
            std::string name = recorder_day;
            name.replace(name.find('%'), 1, std::string(1, element) + ".");
            expected.insert("sds/report/quicklooks/XX." + name + ".png");
        }
    EXPECT_EQ(pictures, expected);
    EXPECT_TRUE(fs::exists(demo / "combined/vx24/arvola_20170714_024000.tm4"));
    EXPECT_TRUE(fs::exists(demo / "vx16-s128-slist/vx16/2016/05/20160505/d6050510.channel2.slist.ascii"));
    EXPECT_NE(output.find("The demo outputs are kept in " + fs::canonical(demo).string()), std::string::npos)
        << output;
    EXPECT_EQ(output.find("(exit status"), std::string::npos) << output;
    // It ends with the archive driver: every example filed (the recording
    // that is there twice kept once), none failed.
    EXPECT_NE(output.find("brantel-archive: 8 converted, 0 failed, 0 skipped\n"), std::string::npos) << output;
    EXPECT_NE(output.find(", 0 conflicts\n"), std::string::npos) << output;
    EXPECT_NE(output.find("brantel-archive: quick-looks: 6 drawn, 0 failed\n"), std::string::npos) << output;
    for (const auto &e : fs::recursive_directory_iterator(fs::path(SOURCE_DIR) / "examples"))
        EXPECT_NE(e.path().extension(), ".png") << e.path();
}

} // namespace
