// Jobs spread over threads: every job runs once, whatever the number of
// threads, and a job that throws neither stops the others nor is lost.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "on_cores.h"

TEST(OnThreads, EveryJobRunsOnce) {
    for (std::size_t threads : {0, 1, 2, 3, 8}) {
        for (std::size_t count : {0, 1, 2, 3, 17, 1000}) {
            std::vector<std::atomic<int>> runs(count);
            run_on_threads(count, threads, [&](std::size_t k) { ++runs[k]; });
            for (std::size_t k = 0; k < count; ++k)
                EXPECT_EQ(runs[k].load(), 1) << "job " << k << " of " << count << " on " << threads;
        }
    }
}

TEST(OnThreads, OneThreadRunsInOrderOnTheCaller) {
    std::vector<std::size_t> order;
    const std::thread::id caller = std::this_thread::get_id();
    run_on_threads(5, 1, [&](std::size_t k) {
        EXPECT_EQ(std::this_thread::get_id(), caller);
        order.push_back(k);
    });
    EXPECT_EQ(order, (std::vector<std::size_t>{0, 1, 2, 3, 4}));
}

TEST(OnThreads, SeveralThreadsShareTheJobs) {
    // Each job waits until two threads are inside jobs at once, or gives up
    // after a while: with two threads the wait ends, with one it could not.
    std::mutex m;
    std::set<std::thread::id> seen;
    std::atomic<int> inside{0};
    std::atomic<bool> met{false};
    run_on_threads(4, 2, [&](std::size_t) {
        {
            std::lock_guard<std::mutex> lock(m);
            seen.insert(std::this_thread::get_id());
        }
        ++inside;
        for (int i = 0; i < 2000 && !met; ++i) {
            if (inside >= 2) met = true;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        --inside;
    });
    EXPECT_TRUE(met.load());
    EXPECT_EQ(seen.size(), 2u);
}

TEST(OnThreads, TheFirstFailureIsThrownAfterEveryJobRan) {
    for (std::size_t threads : {1, 2, 4}) {
        std::vector<std::atomic<int>> runs(10);
        try {
            run_on_threads(10, threads, [&](std::size_t k) {
                ++runs[k];
                if (k == 3 || k == 7) throw std::runtime_error("job " + std::to_string(k));
            });
            FAIL() << "no exception on " << threads;
        } catch (const std::runtime_error &e) {
            EXPECT_EQ(std::string(e.what()), "job 3");
        }
        for (std::size_t k = 0; k < runs.size(); ++k)
            EXPECT_EQ(runs[k].load(), 1) << "job " << k;
    }
}

TEST(OnThreads, ThreadsForIsAtLeastOneAndAtMostTheJobs) {
    EXPECT_EQ(threads_for(0), 1u);
    EXPECT_EQ(threads_for(1), 1u);
    EXPECT_GE(threads_for(100), 1u);
    EXPECT_LE(threads_for(2), 2u);
}
