// Outputs are never half-written: the built tool is started on a one-day
// recording and killed, interrupted, limited or raced at many points of its
// run; the final name must always hold a complete output (the earlier one or
// the new one), and interrupted runs must leave no temporary file.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "atomic_file.h"
#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

std::string read_file(const fs::path &p) {
    std::ifstream in(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Starts a program in `dir` with stdin from /dev/null and stdout/stderr into
// files of `dir`; `limit_bytes` > 0 sets the file-size limit of the child.
pid_t start(const fs::path &dir, const std::string &program, const std::vector<std::string> &args,
            rlim_t limit_bytes = 0) {
    pid_t pid = fork();
    if (pid == 0) {
        if (chdir(dir.c_str()) != 0) _exit(126);
        int in = open("/dev/null", O_RDONLY);
        int out = open("run.out", O_WRONLY | O_CREAT | O_TRUNC, 0644);
        int err = open("run.err", O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(in, 0);
        dup2(out, 1);
        dup2(err, 2);
        if (limit_bytes > 0) {
            struct rlimit rl {
                limit_bytes, limit_bytes
            };
            setrlimit(RLIMIT_FSIZE, &rl);
        }
        std::vector<char *> argv{const_cast<char *>(program.c_str())};
        for (const std::string &a : args)
            argv.push_back(const_cast<char *>(a.c_str()));
        argv.push_back(nullptr);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    return pid;
}

int wait_for(pid_t pid) {
    int ws = 0;
    waitpid(pid, &ws, 0);
    return ws;
}

int run(const fs::path &dir, const std::vector<std::string> &args, rlim_t limit_bytes = 0) {
    int ws = wait_for(start(dir, BRANTEL_BIN, args, limit_bytes));
    return WIFEXITED(ws) ? WEXITSTATUS(ws) : -1;
}

std::vector<std::string> temporaries(const fs::path &dir) {
    std::vector<std::string> found;
    for (const auto &e : fs::recursive_directory_iterator(dir)) {
        std::string name = e.path().filename().string();
        if (name.rfind(TEMP_MARKER, 0) == 0) found.push_back(name);
    }
    return found;
}

// Waits until a temporary output file exists in dir (the run is writing).
bool wait_for_temporary(const fs::path &dir) {
    for (int i = 0; i < 5000; ++i) {
        if (!temporaries(dir).empty()) return true;
        std::this_thread::sleep_for(1ms);
    }
    return false;
}

// A sanitized build runs the tool several times slower: a four-hour recording
// keeps its suite short; kill points scale with the measured run time anyway.
#if defined(__SANITIZE_ADDRESS__)
const char *const RECORDING_DURATION = "duration=14400";
const char *const RECORDING_SAMPLES = "288000";
#else
const char *const RECORDING_DURATION = "duration=86400";
const char *const RECORDING_SAMPLES = "1728000";
#endif

// A one-day 20 Hz recording and the two complete outputs that the tests
// expect to find: "old" from the default four-column layout with three time
// decimals, "new" with six.
class AtomicOutput : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        dir = new temp_dir;
        ASSERT_EQ(WEXITSTATUS(
                      wait_for(start(dir->path, FIXTURE_BIN,
                                     {"vx24", "out=day.vx24", RECORDING_DURATION, "wave=sine", "amp=1000"}))),
                  0);
        ASSERT_EQ(run(dir->path, {"--quiet", "--sec-decimals", "3", "day.vx24"}), 0);
        old_output = new std::string(read_file(dir->file("day.tm4")));
        ASSERT_EQ(run(dir->path, {"--quiet", "--sec-decimals", "6", "day.vx24"}), 0);
        new_output = new std::string(read_file(dir->file("day.tm4")));
        ASSERT_NE(*old_output, *new_output);
        ASSERT_GT(new_output->size(), 4u << 20);
    }
    static void TearDownTestSuite() {
        delete dir;
        delete old_output;
        delete new_output;
    }
    // A working directory with the recording (hard-linked) and the old output.
    void SetUp() override {
        fs::create_hard_link(dir->file("day.vx24"), work.file("day.vx24"));
        put_old();
    }
    void put_old() const {
        std::ofstream out(work.file("day.tm4"), std::ios::binary | std::ios::trunc);
        out << *old_output;
    }
    std::vector<std::string> new_args() const { return {"--quiet", "--sec-decimals", "6", "day.vx24"}; }

    static temp_dir *dir;
    static std::string *old_output;
    static std::string *new_output;
    temp_dir work;
};

temp_dir *AtomicOutput::dir = nullptr;
std::string *AtomicOutput::old_output = nullptr;
std::string *AtomicOutput::new_output = nullptr;

TEST_F(AtomicOutput, SigkillAtAnyPointLeavesOldOrNewComplete) {
    // Kill points from the start of the run to past its end, spread over the
    // time a whole run takes on this machine now.
    const auto t0 = std::chrono::steady_clock::now();
    ASSERT_EQ(run(work.path, new_args()), 0);
    const auto whole = std::chrono::steady_clock::now() - t0;
    int saw_old = 0, saw_new = 0;
    for (int k = 0; k < 25; ++k) {
        put_old();
        pid_t pid = start(work.path, BRANTEL_BIN, new_args());
        std::this_thread::sleep_for(whole * k / 20);
        if (k < 24) kill(pid, SIGKILL); // the last run is left to finish
        const int ws = wait_for(pid);
        if (k == 24) {
            ASSERT_TRUE(WIFEXITED(ws) && WEXITSTATUS(ws) == 0)
                << "the run left to finish ended with wait status " << ws << ": " << read_file(work.file("run.err"));
        }
        const std::string now = read_file(work.file("day.tm4"));
        ASSERT_TRUE(now == *old_output || now == *new_output)
            << "kill " << k << ": " << now.size() << " bytes";
        (now == *old_output ? saw_old : saw_new)++;
        // Only temporary files can remain; remove them for the next round.
        for (const std::string &t : temporaries(work.path))
            fs::remove(work.file(t));
    }
    EXPECT_GT(saw_old, 0);
    EXPECT_GT(saw_new, 0);
}

TEST_F(AtomicOutput, TerminatingSignalsRemoveTheTemporaryFile) {
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) {
        put_old();
        pid_t pid = start(work.path, BRANTEL_BIN, new_args());
        ASSERT_TRUE(wait_for_temporary(work.path)) << "signal " << sig;
        kill(pid, sig);
        const int ws = wait_for(pid);
        if (WIFEXITED(ws) && WEXITSTATUS(ws) == 0) continue; // finished before the signal came
        ASSERT_TRUE(WIFSIGNALED(ws)) << "signal " << sig;
        EXPECT_EQ(WTERMSIG(ws), sig);
        EXPECT_TRUE(temporaries(work.path).empty()) << "signal " << sig;
        EXPECT_TRUE(read_file(work.file("day.tm4")) == *old_output) << "signal " << sig;
    }
}

TEST_F(AtomicOutput, WriteFailingPartWayKeepsTheOldOutput) {
    // A file-size limit of 2 MiB stops the write part way with EFBIG.
    EXPECT_EQ(run(work.path, new_args(), rlim_t{2} << 20), 1);
    EXPECT_EQ(read_file(work.file("run.err")),
              std::string("INFO: Time diff: -1500000000 seconds\n") + RECORDING_SAMPLES +
                  " & 0\nError: Can't write file \"day.tm4\": File too large\n");
    EXPECT_TRUE(read_file(work.file("day.tm4")) == *old_output);
    EXPECT_TRUE(temporaries(work.path).empty());
}

TEST_F(AtomicOutput, TwoRunsAtOnceLeaveOneCompleteFile) {
    fs::remove(work.file("day.tm4"));
    pid_t a = start(work.path, BRANTEL_BIN, new_args());
    pid_t b = start(work.path, BRANTEL_BIN, new_args());
    EXPECT_EQ(WEXITSTATUS(wait_for(a)), 0);
    EXPECT_EQ(WEXITSTATUS(wait_for(b)), 0);
    EXPECT_TRUE(read_file(work.file("day.tm4")) == *new_output);
    EXPECT_TRUE(temporaries(work.path).empty());
}

TEST_F(AtomicOutput, SymbolicLinkKeepsTheLinkAndReplacesItsTarget) {
    temp_dir elsewhere;
    fs::remove(work.file("day.tm4"));
    {
        std::ofstream out(elsewhere.file("target.tm4"), std::ios::binary);
        out << *old_output;
    }
    fs::create_symlink(elsewhere.file("target.tm4"), work.file("day.tm4"));
    EXPECT_EQ(run(work.path, new_args()), 0);
    EXPECT_TRUE(fs::is_symlink(work.file("day.tm4")));
    EXPECT_TRUE(read_file(elsewhere.file("target.tm4")) == *new_output);
    EXPECT_TRUE(temporaries(work.path).empty());
    EXPECT_TRUE(temporaries(elsewhere.path).empty());
}

TEST_F(AtomicOutput, FifoIsWrittenDirectly) {
    fs::remove(work.file("day.tm4"));
    ASSERT_EQ(mkfifo(work.file("day.tm4").c_str(), 0644), 0);
    std::string received;
    std::thread reader([&] { received = read_file(work.file("day.tm4")); });
    EXPECT_EQ(run(work.path, new_args()), 0);
    reader.join();
    EXPECT_TRUE(received == *new_output);
    EXPECT_TRUE(fs::is_fifo(work.file("day.tm4")));
    EXPECT_TRUE(temporaries(work.path).empty());
}

TEST_F(AtomicOutput, DevFullReportsTheWriteError) {
    if (!fs::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
    fs::remove(work.file("day.tm4"));
    fs::create_symlink("/dev/full", work.file("day.tm4"));
    EXPECT_EQ(run(work.path, new_args()), 1);
    EXPECT_NE(read_file(work.file("run.err"))
                  .find("Error: Can't write file \"day.tm4\": No space left on device\n"),
              std::string::npos);
    EXPECT_TRUE(fs::is_symlink(work.file("day.tm4")));
    EXPECT_TRUE(temporaries(work.path).empty());
}

TEST_F(AtomicOutput, NewFileHasThePermissionsOfAPlainCreate) {
    fs::remove(work.file("day.tm4"));
    for (mode_t mask : {mode_t{022}, mode_t{077}, mode_t{002}}) {
        const mode_t old_mask = umask(mask);
        EXPECT_EQ(run(work.path, new_args()), 0);
        umask(old_mask);
        struct stat sb {};
        ASSERT_EQ(stat(work.file("day.tm4").c_str(), &sb), 0);
        EXPECT_EQ(sb.st_mode & 0777, 0666 & ~mask) << std::oct << mask;
    }
}

// ---- the atomic file itself ------------------------------------------------

TEST(AtomicFile, TemporaryNameStartsWithMarkerAndFinalName) {
    EXPECT_EQ(temporary_name("dir/rec.tm4", 4711, 2), fs::path("dir/.brantel-tmp.rec.tm4.4711.2"));
    // Long final names are cut so that the temporary name stays a valid name.
    fs::path t = temporary_name("d/" + std::string(300, 'x'), 1, 0);
    EXPECT_LE(t.filename().string().size(), 255u);
    EXPECT_EQ(t.filename().string().rfind(".brantel-tmp.xxx", 0), 0u);
}

TEST(AtomicFile, CommitRenamesAbortRemoves) {
    temp_dir d;
    {
        std::ofstream out(d.file("f"));
        out << "old";
    }
    {
        AtomicFile f;
        ASSERT_TRUE(f.open(d.file("f")));
        ASSERT_TRUE(f.write("new", 3));
        EXPECT_EQ(d.read("f"), "old");
        f.abort();
    }
    EXPECT_EQ(d.read("f"), "old");
    {
        AtomicFile f;
        ASSERT_TRUE(f.open(d.file("f")));
        ASSERT_TRUE(f.write("new", 3));
        // Destroyed without commit: abandoned.
    }
    EXPECT_EQ(d.read("f"), "old");
    AtomicFile f;
    ASSERT_TRUE(f.open(d.file("f")));
    ASSERT_TRUE(f.write("new", 3));
    ASSERT_TRUE(f.commit());
    EXPECT_EQ(d.read("f"), "new");
    EXPECT_TRUE(temporaries(d.path).empty());
}

TEST(AtomicFile, LinkTargetFollowsChainsAndDanglingLinks) {
    temp_dir d;
    fs::create_symlink("b", d.file("a"));
    fs::create_symlink(d.file("c"), d.file("b"));
    EXPECT_EQ(link_target(d.file("a")), d.file("c"));
    EXPECT_EQ(link_target(d.file("plain")), d.file("plain"));
    AtomicFile f;
    ASSERT_TRUE(f.open(d.file("a")));
    ASSERT_TRUE(f.write("x", 1));
    ASSERT_TRUE(f.commit());
    EXPECT_TRUE(fs::is_symlink(d.file("a")));
    EXPECT_EQ(d.read("c"), "x");
}

TEST(AtomicFile, UnwritableDirectoryFailsToOpen) {
    if (geteuid() == 0) GTEST_SKIP() << "root writes everywhere";
    temp_dir d;
    fs::permissions(d.path, fs::perms::owner_read | fs::perms::owner_exec);
    AtomicFile f;
    EXPECT_FALSE(f.open(d.file("x")));
    fs::permissions(d.path, fs::perms::owner_all);
}

} // namespace
