// Hands the chunks of one output file to the kernel on a thread of its own,
// so that the next chunk can be formatted while the previous one is copied
// out. One chunk is in flight at a time; its bytes must stay untouched until
// wait() has returned.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <thread>

#include "atomic_file.h"

class BackgroundWriter {
  public:
    explicit BackgroundWriter(AtomicFile &file);
    // Waits for the chunk in flight and ends the thread.
    ~BackgroundWriter();

    BackgroundWriter(const BackgroundWriter &) = delete;
    BackgroundWriter &operator=(const BackgroundWriter &) = delete;

    // Starts writing size bytes at data. The previous chunk must have been
    // waited for.
    void start(const char *data, std::size_t size);
    // Waits until the chunk in flight is written; returns 0, or the error
    // number of a write that failed (EIO when the library gave none).
    int wait();

  private:
    void run();

    AtomicFile &m_file;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    const char *m_data = nullptr;
    std::size_t m_size = 0;
    bool m_busy = false;
    bool m_stop = false;
    int m_error = 0;
    std::thread m_thread;
};
