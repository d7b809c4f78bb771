// The run log under load: many processes of the real binary append to one
// "logfile" at once, and every run must leave exactly one intact line.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "temp_dir.h"

extern char** environ;

namespace {

constexpr int workers = 8;
constexpr int runs_per_worker = 200;

// Runs `brantel -h w<worker> r<run>` in the working directory with standard
// output thrown away; returns the exit status (-1 when it could not start).
int run_help(int worker, int run) {
    std::string w = "w" + std::to_string(worker), r = "r" + std::to_string(run);
    char name[] = "brantel", help[] = "-h";
    char* argv[] = {name, help, w.data(), r.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    int rc = posix_spawn(&pid, BRANTEL_BIN, &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) return -1;
    int status = 0;
    if (waitpid(pid, &status, 0) != pid) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

TEST(LogfileLoad, ParallelRunsLeaveOneIntactLineEach) {
    temp_dir dir;
    dir.enter();
    const auto started = std::chrono::steady_clock::now();

    // Each worker is a forked process that starts its runs one after another;
    // the workers run at the same time. A worker's exit status counts the
    // runs that did not end with status 0.
    std::vector<pid_t> children;
    for (int w = 0; w < workers; ++w) {
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            int failures = 0;
            for (int r = 0; r < runs_per_worker; ++r)
                if (run_help(w, r) != 0) ++failures;
            _exit(failures > 255 ? 255 : failures);
        }
        children.push_back(pid);
    }
    for (pid_t pid : children) {
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 0) << "runs that failed in one worker";
    }

    // "MM/DD/YY HH:MM:SS" in the C locale, then the arguments as given.
    const std::regex line_shape(R"(\d\d/\d\d/\d\d \d\d:\d\d:\d\d brantel -h w(\d+) r(\d+))");
    std::istringstream log(dir.read("logfile"));
    std::set<std::pair<int, int>> seen;
    std::string line;
    int lines = 0;
    while (std::getline(log, line)) {
        ++lines;
        std::smatch m;
        ASSERT_TRUE(std::regex_match(line, m, line_shape)) << "broken line " << lines << ": " << line;
        auto key = std::make_pair(std::stoi(m[1]), std::stoi(m[2]));
        EXPECT_TRUE(seen.insert(key).second) << "line twice: " << line;
    }
    EXPECT_EQ(lines, workers * runs_per_worker);
    EXPECT_EQ(seen.size(), static_cast<size_t>(workers * runs_per_worker));
    EXPECT_EQ(dir.read("logfile").back(), '\n');

    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    RecordProperty("seconds", std::to_string(seconds));
    std::printf("%d runs in %.1f s\n", workers * runs_per_worker, seconds);
}
