#include "ordered_blocks.h"

#include <utility>

OrderedBlocks::OrderedBlocks(std::size_t count, std::vector<bool> by_caller,
                             std::function<void(std::size_t, TextBlock&)> format, unsigned threads)
    : m_count(count), m_by_caller(std::move(by_caller)), m_format(std::move(format)),
      m_slots(2 * static_cast<std::size_t>(threads) + 2) {
    m_threads.reserve(threads);
    try {
        for (unsigned i = 0; i < threads; ++i) m_threads.emplace_back([this] { work(); });
    } catch (...) {
        // No thread to be had: those started are stopped, and the caller
        // hears of it.
        stop();
        throw;
    }
}

OrderedBlocks::~OrderedBlocks() { stop(); }

void OrderedBlocks::stop() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_changed.notify_all();
    for (std::thread& t : m_threads)
        if (t.joinable()) t.join();
    m_threads.clear();
}

void OrderedBlocks::work() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        // Blocks that the caller writes itself are passed over.
        while (m_next < m_count && m_by_caller[m_next]) ++m_next;
        m_changed.wait(lock, [this] {
            return m_stop || m_next >= m_count || m_next < m_finished + m_slots.size();
        });
        if (m_stop || m_next >= m_count) return;
        if (m_by_caller[m_next]) continue;
        const std::size_t b = m_next++;
        Slot& slot = m_slots[b % m_slots.size()];
        lock.unlock();
        slot.text.clear();
        std::exception_ptr error;
        try {
            m_format(b, slot.text);
        } catch (...) {
            error = std::current_exception();
        }
        lock.lock();
        slot.block = b;
        slot.error = error;
        slot.ready = true;
        m_changed.notify_all();
    }
}

const TextBlock& OrderedBlocks::wait(std::size_t b) {
    Slot& slot = m_slots[b % m_slots.size()];
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [&] { return slot.ready && slot.block == b; });
    if (slot.error) std::rethrow_exception(slot.error);
    return slot.text;
}

void OrderedBlocks::done(std::size_t b) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_slots[b % m_slots.size()].ready = false;
        m_finished = b + 1;
    }
    m_changed.notify_all();
}
