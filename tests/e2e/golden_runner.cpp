// End-to-end golden cases: each folder under cases/ holds a command line, the
// recordings it needs (written by brantel-fixture, or copied from input/),
// and the expected standard output, standard error, exit status and every
// output file. The runner executes the built binary in a fresh temporary
// directory and compares everything byte for byte, masking only the build
// date of the help text, pointer values, and source line numbers.
//
// Case folder:
//   args             one argument per line (argv[0] is always "brantel")
//   setup            optional; one brantel-fixture call per line, or
//                    "symlink TARGET NAME" to make a symbolic link, or
//                    "fifo NAME" to make a named pipe (nothing writes to it)
//   input/           optional; copied into the working directory first
//   env              optional; NAME=VALUE lines set for the brantel run only
//                    (PATH=bin:/nonexistent, say, for a stand-in gnuplot)
//   together         optional, empty; standard error goes where standard
//                    output goes (as with 2>&1), so expected/stdout holds both
//                    in the order they were written and expected/stderr is empty
//   expected/status  the exit status
//   expected/stdout, expected/stderr
//   expected/files/  every file the run leaves besides its inputs and "logfile";
//                    a PNG picture is kept as its description (see png_summary)
//
// BRANTEL_REGEN_GOLDEN=1 rewrites expected/ from the current binary.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;

namespace {

std::string read_file(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

void write_file(const fs::path& p, const std::string& s) {
    fs::create_directories(p.parent_path());
    std::ofstream out(p, std::ios::binary | std::ios::trunc);
    out << s;
}

std::vector<std::string> read_lines(const fs::path& p) {
    std::vector<std::string> lines;
    if (!fs::exists(p)) return lines;
    std::ifstream in(p);
    std::string line;
    while (std::getline(in, line)) lines.push_back(line);
    return lines;
}

std::vector<std::string> split_words(const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> words;
    std::string w;
    while (in >> w) words.push_back(w);
    return words;
}

// Masks what legitimately differs between builds and runs.
std::string mask(const std::string& s) {
    static const std::regex build_date(R"(brantel Version 1\.74 [A-Z][a-z]{2} [ 0-9]\d \d{4} \d\d:\d\d:\d\d)");
    static const std::regex pointer(R"(0x[0-9a-f]+)");
    static const std::regex source_line(R"(([A-Za-z0-9_]+\.cpp):\d+::)");
    std::string r = std::regex_replace(s, build_date, "brantel Version 1.74 <build date>");
    r = std::regex_replace(r, pointer, "<pointer>");
    return std::regex_replace(r, source_line, "$1:<line>::");
}

// A PNG picture depends on the gnuplot and cairo versions of the machine, so
// a case compares what matters of it: a valid PNG (signature, header chunk,
// end chunk) and its size in pixels.
std::string png_summary(const std::string& png) {
    static const std::string signature("\x89PNG\r\n\x1a\n", 8);
    auto be32 = [&](std::size_t at) {
        unsigned long v = 0;
        for (std::size_t i = 0; i < 4; ++i) v = v << 8 | static_cast<unsigned char>(png[at + i]);
        return v;
    };
    if (png.size() < 33 || png.compare(0, 8, signature) != 0 || png.compare(12, 4, "IHDR") != 0)
        return "not a PNG picture\n";
    if (png.compare(png.size() - 8, 4, "IEND") != 0) return "PNG picture without its end\n";
    return "PNG picture, " + std::to_string(be32(16)) + " x " + std::to_string(be32(20)) + " pixels\n";
}

bool is_png_name(const std::string& name) {
    return name.size() > 4 && name.compare(name.size() - 4, 4, ".png") == 0;
}

struct run_result {
    int status = -1;
    std::string out, err;
};

// Runs argv in dir with stdin closed, stdout and stderr to files outside dir
// (both to the stdout file when `together`).
run_result run_in(const fs::path& dir, const fs::path& capture_dir, const std::string& program,
                  const std::vector<std::string>& args, const char* argv0,
                  const std::vector<std::string>& env = {}, bool together = false) {
    fs::path out_path = capture_dir / "stdout", err_path = capture_dir / "stderr";
    pid_t pid = fork();
    if (pid == 0) {
        if (chdir(dir.c_str()) != 0) _exit(126);
        int in = open("/dev/null", O_RDONLY);
        int out = open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        int err = open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(in, 0);
        dup2(out, 1);
        dup2(together ? out : err, 2);
        for (const std::string& setting : env) {
            const std::size_t eq = setting.find('=');
            if (eq != std::string::npos) setenv(setting.substr(0, eq).c_str(), setting.c_str() + eq + 1, 1);
        }
        std::vector<char*> argv;
        argv.push_back(const_cast<char*>(argv0));
        for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    run_result r;
    int wstatus = 0;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(300);
    while (waitpid(pid, &wstatus, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill(pid, SIGKILL);
            waitpid(pid, &wstatus, 0);
            r.status = -2;
            r.err = "timed out";
            return r;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    r.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus);
    r.out = read_file(out_path);
    r.err = read_file(err_path);
    return r;
}

std::map<std::string, std::string> snapshot(const fs::path& dir) {
    std::map<std::string, std::string> files;
    for (const auto& e : fs::recursive_directory_iterator(dir))
        if (e.is_regular_file() && !e.is_symlink()) files[fs::relative(e.path(), dir).string()] = read_file(e.path());
    return files;
}

std::vector<std::string> case_names() {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(CASES_DIR))
        if (e.is_directory()) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

class Golden : public testing::TestWithParam<std::string> {};

TEST_P(Golden, Case) {
    const fs::path case_dir = fs::path(CASES_DIR) / GetParam();
    std::mt19937_64 rng(std::random_device{}());
    const fs::path root = fs::temp_directory_path() / ("brantel-golden-" + std::to_string(rng()));
    const fs::path work = root / "work", capture = root / "capture";
    fs::create_directories(work);
    fs::create_directories(capture);

    if (fs::exists(case_dir / "input"))
        fs::copy(case_dir / "input", work, fs::copy_options::recursive);
    for (const std::string& line : read_lines(case_dir / "setup")) {
        std::vector<std::string> words = split_words(line);
        if (words.empty() || words[0][0] == '#') continue;
        if (words[0] == "symlink" && words.size() == 3) {
            fs::create_symlink(words[1], work / words[2]);
            continue;
        }
        if (words[0] == "fifo" && words.size() == 2) {
            ASSERT_EQ(::mkfifo((work / words[1]).c_str(), 0644), 0) << line;
            continue;
        }
        run_result r = run_in(work, capture, FIXTURE_BIN, words, "brantel-fixture");
        ASSERT_EQ(r.status, 0) << "setup failed: " << line << "\n" << r.err;
    }
    const std::map<std::string, std::string> before = snapshot(work);

    const std::vector<std::string> args = read_lines(case_dir / "args"), env = read_lines(case_dir / "env");
    run_result r = run_in(work, capture, BRANTEL_BIN, args, "brantel", env, fs::exists(case_dir / "together"));
    std::map<std::string, std::string> outputs;
    for (auto& [name, content] : snapshot(work)) {
        if (name == "logfile") continue;
        auto it = before.find(name);
        if (it != before.end()) {
            EXPECT_EQ(content, it->second) << "input file changed: " << name;
            continue;
        }
        outputs[name] = is_png_name(name) ? png_summary(content) : content;
    }

    const fs::path expected = case_dir / "expected";
    if (std::getenv("BRANTEL_REGEN_GOLDEN")) {
        fs::remove_all(expected);
        write_file(expected / "status", std::to_string(r.status) + "\n");
        write_file(expected / "stdout", mask(r.out));
        write_file(expected / "stderr", mask(r.err));
        for (auto& [name, content] : outputs) write_file(expected / "files" / name, content);
        fs::remove_all(root);
        return;
    }

    EXPECT_EQ(std::to_string(r.status) + "\n", read_file(expected / "status"));
    EXPECT_EQ(mask(r.out), read_file(expected / "stdout"));
    EXPECT_EQ(mask(r.err), read_file(expected / "stderr"));
    std::map<std::string, std::string> want;
    if (fs::exists(expected / "files")) want = snapshot(expected / "files");
    for (auto& [name, content] : want) {
        auto it = outputs.find(name);
        if (it == outputs.end()) {
            ADD_FAILURE() << "missing output file " << name;
            continue;
        }
        EXPECT_TRUE(it->second == content) << "output file differs: " << name;
    }
    for (auto& [name, content] : outputs)
        EXPECT_TRUE(want.count(name)) << "unexpected output file " << name;
    fs::remove_all(root);
}

std::string case_label(const testing::TestParamInfo<std::string>& info) {
    std::string s = info.param;
    for (char& c : s)
        if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
    return s;
}

INSTANTIATE_TEST_SUITE_P(Cases, Golden, testing::ValuesIn(case_names()), case_label);

} // namespace
