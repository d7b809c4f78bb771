#include "file_by_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iostream>
#include <string>
#include <string_view>

#include "process_exit.h"
#include "settings.h"
#include "vxfil/fatal.h"
#include "write_fully.h"

namespace {

// Thrown instead of ending the process while one file of many is converted.
struct file_failed {};

[[noreturn]] void throw_on_exit(int) { throw file_failed{}; }

int done_list_fd = -1;

// Standard error of one file, held in a temporary file until the file's
// outcome is known, so that the lines of a failed file can be marked with
// its path whichever part of the program wrote them. One temporary serves
// the whole run.
class held_messages {
  public:
    held_messages() {
        static std::FILE* const store = std::tmpfile();
        if (store == nullptr)
            exit_with_line(std::string("Error: can't hold a file's messages in a temporary file: ") +
                           std::strerror(errno) + "\n");
        m_store = ::fileno(store);
        std::cerr.flush();
        std::fflush(stderr);
        if (::ftruncate(m_store, 0) != 0 || ::lseek(m_store, 0, SEEK_SET) != 0 || (m_saved = ::dup(STDERR_FILENO)) < 0 ||
            ::dup2(m_store, STDERR_FILENO) < 0)
            exit_with_line(std::string("Error: can't hold a file's messages in a temporary file: ") +
                           std::strerror(errno) + "\n");
    }
    ~held_messages() { restore(); }
    held_messages(const held_messages&) = delete;
    held_messages& operator=(const held_messages&) = delete;

    // Gives standard error back and returns what was written to it meanwhile.
    std::string release() {
        restore();
        std::string text;
        char buf[65536];
        off_t at = 0;
        for (;;) {
            const ssize_t n = ::pread(m_store, buf, sizeof buf, at);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            text.append(buf, static_cast<std::size_t>(n));
            at += n;
        }
        return text;
    }

  private:
    void restore() {
        if (m_saved < 0) return;
        std::cerr.flush();
        std::fflush(stderr);
        ::dup2(m_saved, STDERR_FILENO);
        ::close(m_saved);
        m_saved = -1;
    }
    int m_store = -1;
    int m_saved = -1;
};

// Every line of `text` after "PATH: " (a last line without its end gets one).
std::string after_path(const char* path, std::string_view text) {
    std::string marked;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        const std::string_view line = text.substr(0, end);
        marked.append(path).append(": ").append(line).append("\n");
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return marked;
}

// Runs `work` with every end of the process turned into file_failed; the
// message of an exception is printed as the run would print it at its end.
bool run_guarded(const std::function<void()>& work) {
    const exit_handler previous = set_exit_handler(throw_on_exit);
    const VxFil::fatal_handler previous_fatal = VxFil::set_fatal_handler(throw_on_exit);
    bool ok = true;
    try {
        work();
    } catch (const file_failed&) {
        ok = false;
    } catch (const std::exception& e) {
        std::string line = e.what();
        if (line.empty() || line.back() != '\n') line += '\n';
        std::fflush(stdout);
        std::fputs(line.c_str(), stderr);
        ok = false;
    }
    set_exit_handler(previous);
    VxFil::set_fatal_handler(previous_fatal);
    return ok;
}

} // namespace

void open_done_list() {
    done_list_fd = ::open(done_list, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (done_list_fd < 0)
        exit_with_line("Error: can't open the done list \"" + std::string(done_list) + "\": " + std::strerror(errno) +
                       "\n");
}

bool convert_one_file(const char* path, const std::function<void()>& work) {
    bool ok;
    if (keep_going) {
        held_messages held;
        ok = run_guarded(work);
        const std::string text = held.release();
        std::fflush(stdout);
        // Written past stdio, which was flushed before the messages were held.
        write_fully(STDERR_FILENO, ok ? text : after_path(path, text));
    } else {
        ok = run_guarded(work);
    }
    if (ok && done_list_fd >= 0 && !write_fully(done_list_fd, std::string(path) + "\n"))
        exit_with_line("Error: can't write the done list \"" + std::string(done_list) + "\": " +
                       std::strerror(errno) + "\n");
    return ok;
}
