#include "stretch_sync.h"

#include <unistd.h>

#include <cerrno>

StretchSync::StretchSync(int fd) : m_fd(fd), m_thread(&StretchSync::run, this) {}

StretchSync::~StretchSync() {
    finish();
}

void StretchSync::more_written() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_pending = true;
    }
    m_changed.notify_one();
}

int StretchSync::finish() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_changed.notify_one();
    if (m_thread.joinable()) m_thread.join();
    return m_error;
}

void StretchSync::run() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_pending || m_stop; });
        // What is still unsynced at the end is the owner's final fsync's.
        if (m_stop) return;
        m_pending = false;
        lock.unlock();
        const int error = ::fdatasync(m_fd) == 0 ? 0 : errno;
        lock.lock();
        if (error == EINVAL) return; // cannot sync here: the final fsync decides
        if (error != 0 && m_error == 0) m_error = error;
    }
}
