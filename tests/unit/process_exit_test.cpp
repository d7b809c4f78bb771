// The tool's early ends go through process_exit, so that a test or a fuzzer
// can turn them into exceptions and keep running; with such a handler the
// refusals still leave nothing open behind them.
#include <dirent.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "at_file.h"
#include "brantel.h"
#include "process_exit.h"
#include "series.h"
#include "settings.h"
#include "temp_dir.h"
#include "vx24_fixture.h"
#include "vxfil/fatal.h"

namespace {

// Installs the throwing handler for one test and restores the default.
struct throwing_ends {
    throwing_ends() { set_exit_handler(VxFil::throwing_fatal_handler); }
    ~throwing_ends() {
        set_exit_handler(nullptr);
        reset_settings();
    }
};

int open_descriptors() {
    int n = 0;
    if (DIR* d = opendir("/proc/self/fd")) {
        while (readdir(d)) ++n;
        closedir(d);
    }
    return n;
}

int status_of(void (*f)()) {
    try {
        f();
    } catch (const VxFil::fatal_exit_called& e) {
        return e.status;
    }
    return -1;
}

} // namespace

TEST(ProcessExit, HandlerReceivesTheStatus) {
    throwing_ends guard;
    EXPECT_EQ(status_of([] { process_exit(1); }), 1);
    EXPECT_EQ(status_of([] { process_exit(0); }), 0);
}

TEST(ProcessExit, DefaultEndsTheProcessWithTheStatus) {
    EXPECT_EXIT(process_exit(3), testing::ExitedWithCode(3), "");
}

TEST(ProcessExit, SelfIncludingArgumentFileIsClosedWhenTheRefusalThrows) {
    throwing_ends guard;
    temp_dir dir;
    dir.enter();
    dir.write("list", "a\n@list\n");
    const int before = open_descriptors();
    char prog[] = "brantel", list[] = "@list";
    char* given[] = {prog, list, nullptr};
    int argc = 2;
    char** argv = given;
    testing::internal::CaptureStderr();
    EXPECT_THROW(rebuild_argv(&argc, &argv), VxFil::fatal_exit_called);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error: argument file includes itself: list\n");
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(argv, given);
}

TEST(ProcessExit, RefusedRecordingEndsTheRunThroughTheHandler) {
    throwing_ends guard;
    temp_dir dir;
    dir.enter();
    fixtures::vx24_params p;
    p.channel_numbers = {0, 2, 2};
    p.samples = 10;
    dir.write("rec.vx24", fixtures::make_vx24(p));
    std::vector<std::filesystem::path> names{"rec.vx24"};
    int optind_copy = 0;
    testing::internal::CaptureStderr();
    int status = -1;
    try {
        brantel(names, optind_copy, 0);
    } catch (const VxFil::fatal_exit_called& e) {
        status = e.status;
    }
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(status, 1);
    EXPECT_NE(err.find("Error: channel number 2 repeats in \"rec.vx24\"\n"), std::string::npos) << err;
    EXPECT_FALSE(std::filesystem::exists(dir.file("rec.tm4")));
}
