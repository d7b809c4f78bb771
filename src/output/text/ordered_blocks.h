// Text blocks formatted on worker threads and taken in their order: block b
// is formatted by whichever worker is free, into one of a few reused slots,
// and the caller waits for the blocks one after another. A worker runs ahead
// of the caller by at most the number of slots, so the memory stays bounded
// however long the file.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "text_block.h"

class OrderedBlocks {
  public:
    // format(b, text) formats block b into `text` (empty when called). The
    // threads start at once.
    OrderedBlocks(std::size_t count, std::function<void(std::size_t, TextBlock&)> format, unsigned threads);
    ~OrderedBlocks();

    // Stops the workers (those busy finish their block) and joins them; no
    // block is formatted afterwards. Also done when the process exits.
    void stop();

    OrderedBlocks(const OrderedBlocks&) = delete;
    OrderedBlocks& operator=(const OrderedBlocks&) = delete;

    // Waits until block b is formatted and returns its text, valid until
    // done(b). Blocks are taken in order; an exception thrown while
    // formatting block b is thrown here.
    const TextBlock& wait(std::size_t b);
    // The caller is finished with block b: its slot may take a later block.
    void done(std::size_t b);

  private:
    struct Slot {
        TextBlock text;
        std::size_t block = 0;
        bool ready = false;
        std::exception_ptr error;
    };
    void work();

    const std::size_t m_count;
    const std::function<void(std::size_t, TextBlock&)> m_format;
    std::vector<Slot> m_slots;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::size_t m_next = 0;     // the next block a worker takes
    std::size_t m_finished = 0; // blocks before this one are done with
    bool m_stop = false;
    std::vector<std::thread> m_threads;
};
