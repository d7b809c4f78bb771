// brantel-lock [-q] FILE COMMAND [ARG]...: runs COMMAND while holding an
// exclusive lock on FILE, or refuses at once when another process holds it.
//
// The lock is a POSIX record lock (fcntl F_SETLK over the whole file), which
// NFS carries between hosts; flock(2) locks may stay local to one host there.
// A record lock belongs to a process and ends when that process closes any
// descriptor of the file or ends, so the lock is held here, in a process that
// does nothing else, while COMMAND runs as its child. Termination signals
// sent to this process are passed on to COMMAND, whose end ends the lock.
//
// Exit status: COMMAND's; 75 when another process holds the lock; 125 when
// FILE can't be opened or locked or the arguments are wrong; 126 when COMMAND
// can't be run, 127 when it isn't found; 128 + N when COMMAND was ended by
// signal N.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int held_status = 75;   // EX_TEMPFAIL: try again later
constexpr int own_error_status = 125;

const char usage_line[] = "Usage: brantel-lock [-q] FILE COMMAND [ARG]...\n";

volatile sig_atomic_t child_pid = 0;

void pass_on(int sig) {
    if (child_pid > 0) kill(child_pid, sig);
}

} // namespace

int main(int argc, char** argv) {
    int arg = 1;
    bool quiet = false;
    if (arg < argc && std::strcmp(argv[arg], "-q") == 0) {
        quiet = true;
        ++arg;
    }
    if (arg < argc && (std::strcmp(argv[arg], "-h") == 0 || std::strcmp(argv[arg], "--help") == 0)) {
        std::fputs(usage_line, stdout);
        return 0;
    }
    if (argc - arg < 2) {
        std::fputs(usage_line, stderr);
        return own_error_status;
    }
    const char* file = argv[arg];
    char** command = argv + arg + 1;

    const int fd = open(file, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0) {
        std::fprintf(stderr, "brantel-lock: can't open %s: %s\n", file, std::strerror(errno));
        return own_error_status;
    }
    struct flock whole{};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    whole.l_start = 0;
    whole.l_len = 0;  // to the end of the file, however long it grows
    if (fcntl(fd, F_SETLK, &whole) != 0) {
        if (errno == EACCES || errno == EAGAIN) {
            if (!quiet) std::fprintf(stderr, "brantel-lock: %s is locked by another process\n", file);
            return held_status;
        }
        std::fprintf(stderr, "brantel-lock: can't lock %s: %s\n", file, std::strerror(errno));
        return own_error_status;
    }

    // The signals wait until the child's id is known, so none is lost
    // between the fork and the assignment. A signal that this process was
    // told to ignore (as a shell does for a background job) stays ignored;
    // the child gets the original actions back before it runs COMMAND.
    constexpr int passed_signals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};
    struct sigaction original[4];
    sigset_t passed, before;
    sigemptyset(&passed);
    for (int i = 0; i < 4; ++i) {
        sigaction(passed_signals[i], nullptr, &original[i]);
        if (original[i].sa_handler == SIG_IGN) continue;
        struct sigaction action{};
        action.sa_handler = pass_on;
        sigemptyset(&action.sa_mask);
        sigaction(passed_signals[i], &action, nullptr);
        sigaddset(&passed, passed_signals[i]);
    }
    sigprocmask(SIG_BLOCK, &passed, &before);

    const pid_t pid = fork();
    if (pid < 0) {
        std::fprintf(stderr, "brantel-lock: can't start %s: %s\n", command[0], std::strerror(errno));
        return own_error_status;
    }
    if (pid == 0) {
        for (int i = 0; i < 4; ++i) sigaction(passed_signals[i], &original[i], nullptr);
        sigprocmask(SIG_SETMASK, &before, nullptr);
        execvp(command[0], command);
        const int error = errno;
        std::fprintf(stderr, "brantel-lock: can't run %s: %s\n", command[0], std::strerror(error));
        _exit(error == ENOENT ? 127 : 126);
    }
    child_pid = pid;
    sigprocmask(SIG_SETMASK, &before, nullptr);

    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) {
            std::fprintf(stderr, "brantel-lock: can't wait for %s: %s\n", command[0], std::strerror(errno));
            return own_error_status;
        }
    }
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    return 128 + WTERMSIG(status);
}
