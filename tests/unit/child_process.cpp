#include "child_process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace fs = std::filesystem;

pid_t start_child(const fs::path &cwd, const std::string &program, const std::vector<std::string> &args,
                  const fs::path &out, const fs::path &err) {
    std::vector<char *> argv{const_cast<char *>(program.c_str())};
    for (const std::string &a : args)
        argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    const pid_t pid = fork();
    if (pid < 0) throw std::runtime_error("fork failed");
    if (pid == 0) {
        const int in_fd = open("/dev/null", O_RDONLY);
        const int out_fd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int err_fd = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (in_fd < 0 || out_fd < 0 || err_fd < 0 || chdir(cwd.c_str()) != 0) _exit(126);
        dup2(in_fd, 0);
        dup2(out_fd, 1);
        dup2(err_fd, 2);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    return pid;
}

int wait_child(pid_t pid) {
    int ws = 0;
    while (waitpid(pid, &ws, 0) < 0)
        ;
    if (WIFEXITED(ws)) return WEXITSTATUS(ws);
    if (WIFSIGNALED(ws)) return -WTERMSIG(ws);
    return -1000;
}

std::string file_bytes(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

child_result run_child(const fs::path &cwd, const std::string &program,
                       const std::vector<std::string> &args) {
    static std::atomic<int> serial{0};
    const std::string stem = (fs::temp_directory_path() /
                              ("brantel-child-" + std::to_string(getpid()) + "-" + std::to_string(serial++)))
                                 .string();
    const fs::path out = stem + ".out", err = stem + ".err";
    child_result r;
    r.status = wait_child(start_child(cwd, program, args, out, err));
    r.out = file_bytes(out);
    r.err = file_bytes(err);
    std::error_code ec;
    fs::remove(out, ec);
    fs::remove(err, ec);
    return r;
}

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    size_t pos = 0;
    while (pos < text.size()) {
        const size_t end = text.find('\n', pos);
        if (end == std::string::npos) {
            lines.push_back(text.substr(pos));
            break;
        }
        lines.push_back(text.substr(pos, end - pos));
        pos = end + 1;
    }
    return lines;
}
