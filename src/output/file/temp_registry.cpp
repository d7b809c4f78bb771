#include "temp_registry.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace {

// A fixed table, so that the signal handler reads memory that is never freed
// or moved. Writers keep a handful of files open at a time.
constexpr int ENTRIES = 64;
constexpr std::size_t PATH_ROOM = 4096;

enum : int { FREE = 0, FILLING = 1, LIVE = 2 };

// The states apart from the paths, and all zero at compile time: a pass over
// the states (for a free entry, or at exit) reads one page, not one page per
// entry, and no page of the table is written before an output is entered.
constinit std::atomic<int> states[ENTRIES] = {};
constinit char paths[ENTRIES][PATH_ROOM] = {};

const int cleaned_signals[] = {SIGINT, SIGTERM, SIGHUP};

extern "C" void remove_and_reraise(int sig) {
    const int saved = errno;
    remove_entered_temporaries();
    // The default action ends the process by this signal as soon as the
    // handler returns and the signal is unblocked.
    ::signal(sig, SIG_DFL);
    ::raise(sig);
    errno = saved;
}

extern "C" void remove_at_exit() {
    remove_entered_temporaries();
}

void install_once() {
    for (int sig : cleaned_signals) {
        struct sigaction old {};
        if (::sigaction(sig, nullptr, &old) == 0 && old.sa_handler == SIG_IGN) continue;
        struct sigaction sa {};
        sa.sa_handler = remove_and_reraise;
        sigemptyset(&sa.sa_mask);
        for (int other : cleaned_signals)
            sigaddset(&sa.sa_mask, other);
        ::sigaction(sig, &sa, nullptr);
    }
    ::signal(SIGXFSZ, SIG_IGN);
    std::atexit(remove_at_exit);
}

} // namespace

void install_temporary_cleanup() {
    static std::once_flag once;
    std::call_once(once, install_once);
}

int enter_temporary(const char *path) {
    const std::size_t n = std::strlen(path);
    if (n >= PATH_ROOM) return -1;
    for (int i = 0; i < ENTRIES; ++i) {
        int expected = FREE;
        if (!states[i].compare_exchange_strong(expected, FILLING)) continue;
        std::memcpy(paths[i], path, n + 1);
        states[i].store(LIVE);
        return i;
    }
    return -1;
}

void leave_temporary(int entry) {
    if (entry >= 0 && entry < ENTRIES) states[entry].store(FREE);
}

void remove_entered_temporaries() noexcept {
    for (int i = 0; i < ENTRIES; ++i)
        if (states[i].load() == LIVE) ::unlink(paths[i]);
}
