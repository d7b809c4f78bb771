#include "on_cores.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <system_error>
#include <thread>
#include <vector>

std::size_t threads_for(std::size_t jobs) {
    return std::max<std::size_t>(1, std::min<std::size_t>(std::thread::hardware_concurrency(), jobs));
}

void run_on_threads(std::size_t count, std::size_t threads, const std::function<void(std::size_t)> &job) {
    std::vector<std::exception_ptr> errors(count);
    std::atomic<std::size_t> next{0};
    auto work = [&] {
        for (std::size_t k = next++; k < count; k = next++) {
            try {
                job(k);
            } catch (...) {
                errors[k] = std::current_exception();
            }
        }
    };
    std::vector<std::thread> helpers;
    try {
        for (std::size_t t = 1; t < std::min(threads, count); ++t)
            helpers.emplace_back(work);
    } catch (const std::system_error &) {
        // No more threads to be had: those that started share the jobs.
    }
    work();
    for (std::thread &t : helpers)
        t.join();
    for (const std::exception_ptr &e : errors)
        if (e) std::rethrow_exception(e);
}
