#include "ordered_blocks.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace {

// The pipelines whose workers are running. A write error ends the process
// from the writing thread with exit(); the workers read the series, which
// exit() destroys, so they are stopped first: the handler registered here
// runs before the destructors of everything that existed when it was
// registered.
struct running_pipelines {
    std::mutex mutex;
    std::vector<OrderedBlocks*> list;
};

running_pipelines& running() {
    static running_pipelines* const pipelines = [] {
        static running_pipelines instance;
        std::atexit([] {
            std::vector<OrderedBlocks*> to_stop;
            {
                std::lock_guard<std::mutex> lock(running().mutex);
                to_stop = running().list;
            }
            for (OrderedBlocks* blocks : to_stop) blocks->stop();
        });
        return &instance;
    }();
    return *pipelines;
}

void enrol(OrderedBlocks* blocks) {
    std::lock_guard<std::mutex> lock(running().mutex);
    running().list.push_back(blocks);
}

void leave(OrderedBlocks* blocks) {
    std::lock_guard<std::mutex> lock(running().mutex);
    auto& list = running().list;
    list.erase(std::remove(list.begin(), list.end(), blocks), list.end());
}

} // namespace

OrderedBlocks::OrderedBlocks(std::size_t count, std::function<void(std::size_t, TextBlock&)> format,
                             unsigned threads)
    : m_count(count), m_format(std::move(format)),
      m_slots(2 * static_cast<std::size_t>(threads) + 2) {
    enrol(this);
    m_threads.reserve(threads);
    try {
        for (unsigned i = 0; i < threads; ++i) m_threads.emplace_back([this] { work(); });
    } catch (...) {
        // No thread to be had: those started are stopped, and the caller
        // hears of it.
        stop();
        leave(this);
        throw;
    }
}

OrderedBlocks::~OrderedBlocks() {
    stop();
    leave(this);
}

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
        m_changed.wait(lock, [this] {
            return m_stop || m_next >= m_count || m_next < m_finished + m_slots.size();
        });
        if (m_stop || m_next >= m_count) return;
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
