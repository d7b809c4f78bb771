#include "background_writer.h"

#include <cerrno>

BackgroundWriter::BackgroundWriter(AtomicFile &file) : m_file(file), m_thread(&BackgroundWriter::run, this) {}

BackgroundWriter::~BackgroundWriter() {
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return !m_busy; });
        m_stop = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void BackgroundWriter::start(const char *data, std::size_t size) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_data = data;
        m_size = size;
        m_error = 0;
        m_busy = true;
    }
    m_changed.notify_all();
}

int BackgroundWriter::wait() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return !m_busy; });
    return m_error;
}

void BackgroundWriter::run() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_busy || m_stop; });
        if (!m_busy) return;
        const char *data = m_data;
        const std::size_t size = m_size;
        lock.unlock();
        // The chunk is the only thing this thread touches while unlocked; the
        // owner does not touch it until wait() has seen the result.
        errno = 0;
        const int error = m_file.write(data, size) ? 0 : (errno != 0 ? errno : EIO);
        lock.lock();
        m_error = error;
        m_busy = false;
        m_changed.notify_all();
    }
}
