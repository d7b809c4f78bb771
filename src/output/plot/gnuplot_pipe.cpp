#include "gnuplot_pipe.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "write_fully.h"

extern char **environ;

namespace {

const char GNUPLOT[] = "gnuplot";

bool executable_file(const std::string &path) {
    struct stat sb {};
    return ::stat(path.c_str(), &sb) == 0 && S_ISREG(sb.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

// The PATH as the exec functions read it.
std::string search_path() {
    if (const char *p = std::getenv("PATH")) return p;
    const std::size_t n = ::confstr(_CS_PATH, nullptr, 0);
    if (n == 0) return "/bin:/usr/bin";
    std::string p(n, '\0');
    ::confstr(_CS_PATH, p.data(), n);
    p.resize(n - 1);
    return p;
}


std::string read_back(FILE *f) {
    std::string text;
    std::rewind(f);
    char buffer[4096];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0)
        text.append(buffer, n);
    return text;
}

struct file_closer {
    void operator()(FILE *f) const { std::fclose(f); }
};

std::string exit_text(int wstatus) {
    if (WIFEXITED(wstatus)) return "gnuplot ended with status " + std::to_string(WEXITSTATUS(wstatus)) + "\n";
    if (WIFSIGNALED(wstatus))
        return "gnuplot was ended by signal " + std::to_string(WTERMSIG(wstatus)) + "\n";
    return "gnuplot ended abnormally\n";
}

} // namespace

ignore_sigpipe::ignore_sigpipe() {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigemptyset(&ignore.sa_mask);
    ::sigaction(SIGPIPE, &ignore, &m_previous);
}

ignore_sigpipe::~ignore_sigpipe() {
    ::sigaction(SIGPIPE, &m_previous, nullptr);
}

bool gnuplot_on_path() {
    const std::string path = search_path();
    std::size_t begin = 0;
    while (true) {
        const std::size_t end = path.find(':', begin);
        std::string dir = path.substr(begin, end == std::string::npos ? std::string::npos : end - begin);
        if (dir.empty()) dir = ".";
        if (executable_file(dir + "/" + GNUPLOT)) return true;
        if (end == std::string::npos) return false;
        begin = end + 1;
    }
}

gnuplot_result run_gnuplot(const std::string &script, int out_fd) {
    gnuplot_result result;
    std::unique_ptr<FILE, file_closer> errors(std::tmpfile());
    int pipe_fds[2];
    if (!errors || ::pipe2(pipe_fds, O_CLOEXEC) != 0) {
        result.messages = std::string("cannot start gnuplot: ") + std::strerror(errno) + "\n";
        return result;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipe_fds[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out_fd, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fileno(errors.get()), STDERR_FILENO);
    // The script is named as a file, /dev/stdin, rather than left for
    // gnuplot to find on its standard input: it then reads the script as it
    // reads a file, in large pieces, instead of line by line as it reads a
    // terminal, which for the data of a day takes a second longer.
    char name[] = "gnuplot";
    char defaults[] = "-d";
    char script_file[] = "/dev/stdin";
    char *argv[] = {name, defaults, script_file, nullptr};
    pid_t pid = -1;
    const int spawned = ::posix_spawnp(&pid, GNUPLOT, &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipe_fds[0]);
    if (spawned != 0) {
        ::close(pipe_fds[1]);
        result.messages = std::string("cannot start gnuplot: ") + std::strerror(spawned) + "\n";
        return result;
    }
    bool written;
    {
        ignore_sigpipe guard;
        written = write_fully(pipe_fds[1], script);
        ::close(pipe_fds[1]);
    }
    int wstatus = 0;
    while (::waitpid(pid, &wstatus, 0) < 0 && errno == EINTR) {
    }
    result.messages = read_back(errors.get());
    const bool clean_exit = WIFEXITED(wstatus) && WEXITSTATUS(wstatus) == 0;
    result.ok = written && clean_exit;
    if (!clean_exit)
        result.messages += exit_text(wstatus);
    else if (!written)
        result.messages += "gnuplot did not read the whole script\n";
    return result;
}
