// Installation: the install rules put the tool into <prefix>/bin and its
// manual page into <prefix>/share/man/man1, below DESTDIR when that is set.
// The installed tool must run, and the installed page must render without a
// single warning. The manual page must also name every option of the tool.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "temp_dir.h"

namespace {

namespace fs = std::filesystem;

struct command_result {
    int status = -1; // exit status, or -1 when the command did not exit normally
    std::string out;
    std::string err;
};

std::string read_file(const fs::path &p) {
    std::ifstream in(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Single-quotes a word for /bin/sh.
std::string sh_quote(const std::string &s) {
    std::string q = "'";
    for (char c : s) {
        if (c == '\'')
            q += "'\\''";
        else
            q += c;
    }
    return q + "'";
}

// Runs a command line with /bin/sh; its standard output and error are kept in
// files of io_dir and returned.
command_result run_shell(const std::string &command, const fs::path &io_dir) {
    const fs::path out = io_dir / "command.out";
    const fs::path err = io_dir / "command.err";
    const std::string line =
        "(" + command + ") </dev/null >" + sh_quote(out.string()) + " 2>" + sh_quote(err.string());
    const int rc = std::system(line.c_str());
    command_result r;
    if (rc != -1 && WIFEXITED(rc)) r.status = WEXITSTATUS(rc);
    r.out = read_file(out);
    r.err = read_file(err);
    return r;
}

bool have_command(const char *name) {
    const std::string line = std::string("command -v ") + name + " >/dev/null 2>&1";
    return std::system(line.c_str()) == 0;
}

// cmake --install writes its manifest into the build directory; installs of
// tests that ctest runs side by side take turns on this lock.
class install_lock {
  public:
    install_lock()
        : m_fd(::open((fs::path(BUILD_DIR) / "install_test.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC,
                      0644)) {
        if (m_fd >= 0) ::flock(m_fd, LOCK_EX);
    }
    ~install_lock() {
        if (m_fd >= 0) ::close(m_fd); // closing releases the lock
    }
    install_lock(const install_lock &) = delete;
    install_lock &operator=(const install_lock &) = delete;

  private:
    int m_fd;
};

// Installs the build tree below prefix; destdir empty means DESTDIR unset.
command_result install(const fs::path &prefix, const fs::path &destdir, const fs::path &io_dir) {
    std::string env = destdir.empty() ? "env -u DESTDIR" : "env DESTDIR=" + sh_quote(destdir.string());
    install_lock lock;
    return run_shell(env + " " + sh_quote(CMAKE_BIN) + " --install " + sh_quote(BUILD_DIR) + " --prefix " +
                         sh_quote(prefix.string()),
                     io_dir);
}

// Renders a manual page the way a reader's man would, with warnings on; the
// locale is fixed so that a host without the user's locale adds no message.
command_result render_page(const fs::path &page, const fs::path &io_dir) {
    return run_shell("env LC_ALL=C MANWIDTH=80 man --warnings -l " + sh_quote(page.string()), io_dir);
}

bool is_executable_file(const fs::path &p) {
    struct stat st {};
    return ::stat(p.c_str(), &st) == 0 && S_ISREG(st.st_mode) && (st.st_mode & S_IXUSR);
}

// Everything that one installed tree must hold and do. root is where the
// files really are (the prefix, or DESTDIR followed by the prefix).
void check_installed_tree(const fs::path &root, const fs::path &io_dir, const fs::path &work_dir) {
    const fs::path tool = root / "bin" / "brantel";
    const fs::path page = root / "share" / "man" / "man1" / "brantel.1";
    ASSERT_TRUE(is_executable_file(tool)) << tool;
    // The archive driver goes beside the tool, byte for byte the checked-in script.
    const fs::path archive = root / "bin" / "brantel-archive";
    ASSERT_TRUE(is_executable_file(archive)) << archive;
    EXPECT_EQ(read_file(archive), read_file(fs::path(SOURCE_DIR) / "scripts" / "brantel-archive"));
    // brantel-stationxml, the station metadata of an archive, goes beside it too.
    const fs::path stationxml = root / "bin" / "brantel-stationxml";
    ASSERT_TRUE(is_executable_file(stationxml)) << stationxml;
    const command_result version = run_shell(sh_quote(stationxml.string()) + " --version", io_dir);
    EXPECT_EQ(version.status, 0) << version.err;
    EXPECT_EQ(version.out, "brantel-stationxml 1.74\n");
    // brantel-lock, which holds the archive driver's lock, goes beside it too
    // and takes and gives up a lock.
    const fs::path lock = root / "bin" / "brantel-lock";
    ASSERT_TRUE(is_executable_file(lock)) << lock;
    const command_result locked =
        run_shell(sh_quote(lock.string()) + " " + sh_quote((work_dir / "lock").string()) + " echo held", io_dir);
    EXPECT_EQ(locked.status, 0) << locked.err;
    EXPECT_EQ(locked.out, "held\n");
    // brantel-report, which writes the driver's report page, goes beside it too.
    const fs::path report = root / "bin" / "brantel-report";
    ASSERT_TRUE(is_executable_file(report)) << report;
    const command_result usage = run_shell(sh_quote(report.string()) + " --help", io_dir);
    EXPECT_EQ(usage.status, 0) << usage.err;
    EXPECT_EQ(usage.out, "Usage: brantel-report OUTPUT\n");
    ASSERT_TRUE(fs::is_regular_file(page)) << page;
    EXPECT_EQ(read_file(page), read_file(fs::path(SOURCE_DIR) / "doc" / "brantel.1"));

    // The tool appends to "logfile" in its working directory: run it in a
    // directory of the test's own.
    command_result help =
        run_shell("cd " + sh_quote(work_dir.string()) + " && " + sh_quote(tool.string()) + " -h", io_dir);
    EXPECT_EQ(help.status, 0) << help.err;
    EXPECT_EQ(help.out.rfind("brantel Version 1.74 ", 0), 0u) << help.out;

    if (!have_command("man")) GTEST_SKIP() << "man is not installed; the page was not rendered";
    command_result shown = render_page(page, io_dir);
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(shown.err, "");
    EXPECT_NE(shown.out.find("brantel"), std::string::npos);
}

struct install_dirs {
    temp_dir tmp;
    fs::path io = tmp.path / "io";
    fs::path work = tmp.path / "work";
    install_dirs() {
        fs::create_directories(io);
        fs::create_directories(work);
    }
};

TEST(InstallTest, PrefixHoldsToolAndManualPage) {
    install_dirs d;
    const fs::path prefix = d.tmp.path / "prefix";
    command_result r = install(prefix, {}, d.io);
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    check_installed_tree(prefix, d.io, d.work);
}

TEST(InstallTest, DestdirStagesTheTreeBelowAnotherRoot) {
    install_dirs d;
    const fs::path prefix = d.tmp.path / "usr";
    const fs::path stage = d.tmp.path / "stage";
    command_result r = install(prefix, stage, d.io);
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    // Staged below DESTDIR with the whole prefix path, nothing at the prefix.
    EXPECT_FALSE(fs::exists(prefix));
    check_installed_tree(stage / prefix.relative_path(), d.io, d.work);
}

TEST(ManualPageTest, SourcePageRendersWithoutWarnings) {
    if (!have_command("man")) GTEST_SKIP() << "man is not installed";
    install_dirs d;
    command_result shown = render_page(fs::path(SOURCE_DIR) / "doc" / "brantel.1", d.io);
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(shown.err, "");
}

// The built-in help lists only part of the options; the page must name all of
// them, the alternative spellings included (in roff, "-" is written "\-").
TEST(ManualPageTest, NamesEveryOption) {
    const std::string page = read_file(fs::path(SOURCE_DIR) / "doc" / "brantel.1");
    ASSERT_FALSE(page.empty());
    const std::vector<std::string> options = {
        "-1",
        "-2",
        "-4",
        "-6",
        "-c",
        "-f",
        "-l",
        "-n",
        "-s",
        "-t",
        "-h",
        "-?",
        "-o",
        "-u",
        "-z",
        "--no_comments",
        "--no-comments",
        "--nocomments",
        "--no_time",
        "--notime",
        "--no-time",
        "--time",
        "--one-file",
        "--onefile",
        "--amplitude",
        "--average",
        "--vxdat",
        "--nrsamples",
        "--minutes",
        "--seconds",
        "--minutes-in-day",
        "--seconds-in-day",
        "--sec-decimals",
        "--slist",
        "--tspair",
        "--debug",
        "--quiet",
        "--help",
        "--disable-globbing",
        "--enable-globbing",
        "--target-directory",
        "--identify",
    };
    for (const std::string &opt : options) {
        std::string roff;
        for (char c : opt)
            roff += c == '-' ? std::string("\\-") : std::string(1, c);
        // Followed by a character that cannot continue the option's name.
        bool found = false;
        for (size_t at = page.find(roff); at != std::string::npos && !found; at = page.find(roff, at + 1)) {
            const size_t end = at + roff.size();
            const char next = end < page.size() ? page[end] : '\n';
            found = !(std::isalnum(static_cast<unsigned char>(next)) || next == '_' || next == '\\');
        }
        EXPECT_TRUE(found) << opt << " is not in the manual page";
    }
    for (const char *section :
         {".SH NAME", ".SH SYNOPSIS", ".SH DESCRIPTION", ".SH OPTIONS", ".SH EXIT STATUS", ".SH DIAGNOSTICS"})
        EXPECT_NE(page.find(section), std::string::npos) << section;
}

} // namespace
