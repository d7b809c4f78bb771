// Runs every command of the README's cookbook, in order, as written, in a
// copy of examples/, with the built brantel and Debian's python3 (numpy,
// pandas) first on the PATH. Each must end with status 0.
//
// Lines that carry the words "not run by the tests" are skipped (ObsPy, which
// Debian does not package, and the copy that the test makes itself). Lines
// about miniSEED files are skipped, and named in the output, while the built
// tool refuses --mseed.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "temp_dir.h"

namespace fs = std::filesystem;

namespace {

// The commands of the "## Cookbook" section: its indented code lines, with
// continuation lines (ending in a backslash) joined and comment lines left out.
std::vector<std::string> cookbook_commands(const fs::path &readme) {
    std::ifstream in(readme);
    std::string line;
    bool inside = false;
    std::vector<std::string> commands;
    std::string pending;
    while (std::getline(in, line)) {
        if (line.rfind("## ", 0) == 0) {
            inside = line == "## Cookbook";
            continue;
        }
        if (!inside || line.rfind("    ", 0) != 0) continue;
        std::string code = line.substr(4);
        if (pending.empty() && (code.empty() || code[0] == '#' || code[0] == ' ')) continue;
        if (!code.empty() && code.back() == '\\') {
            pending += code.substr(0, code.size() - 1) + " ";
            continue;
        }
        commands.push_back(pending + code);
        pending.clear();
    }
    return commands;
}

struct shell_result {
    int status = -1;
    std::string output;
};

shell_result run_shell(const std::string &command) {
    shell_result r;
    FILE *p = ::popen(("bash -c '" + command + "' 2>&1").c_str(), "r");
    if (!p) return r;
    char buffer[4096];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, p)) > 0)
        r.output.append(buffer, n);
    const int wstatus = ::pclose(p);
    r.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : -1;
    return r;
}

// A command in single quotes for bash -c.
std::string single_quoted(const std::string &s) {
    std::string q;
    for (char c : s) {
        if (c == '\'')
            q += "'\\''";
        else
            q += c;
    }
    return q;
}

// Asked in `dir`, where the run log line goes.
bool mseed_supported(const fs::path &dir) {
    const shell_result r =
        run_shell(single_quoted("cd \"" + dir.string() + "\" && " + std::string(BRANTEL_BIN) + " --mseed"));
    return r.output.find("unrecognized option") == std::string::npos;
}

TEST(ReadmeCookbook, EveryCommandRunsOnTheExamples) {
    const std::vector<std::string> commands = cookbook_commands(fs::path(SOURCE_DIR) / "README.md");
    ASSERT_GE(commands.size(), 15u);

    temp_dir dir;
    const fs::path bin = dir.path / "bin", work = dir.path / "try";
    fs::create_directories(bin);
    fs::create_symlink(BRANTEL_BIN, bin / "brantel");
    fs::create_symlink("/usr/bin/python3", bin / "python3");
    fs::copy(fs::path(SOURCE_DIR) / "examples", work, fs::copy_options::recursive);
    const std::string path = bin.string() + ":/usr/bin:/bin";
    const bool mseed = mseed_supported(dir.path);

    int run = 0;
    for (const std::string &command : commands) {
        if (command.find("not run by the tests") != std::string::npos) continue;
        if (!mseed && command.find("mseed") != std::string::npos) {
            std::printf("skipped while --mseed is refused: %s\n", command.c_str());
            continue;
        }
        const std::string script = "cd \"" + work.string() + "\" && PATH=\"" + path + "\" && " + command;
        const shell_result r = run_shell(single_quoted(script));
        EXPECT_EQ(r.status, 0) << command << "\n" << r.output;
        ++run;
    }
    EXPECT_GE(run, 15);
}

} // namespace
