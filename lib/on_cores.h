// Independent jobs spread over threads: each thread takes the next job not
// yet taken until none is left, so uneven jobs balance themselves.
#pragma once

#include <cstddef>
#include <functional>

// The number of threads for `jobs` jobs: one per core, at most one per job,
// at least one.
std::size_t threads_for(std::size_t jobs);

// Runs job(0) ... job(count - 1), on `threads` threads, the calling thread
// among them (all on the calling thread when `threads` is 1 or less). Returns
// once every job has ended. When jobs throw, the others still run and the
// first exception (by job number) is thrown again here.
void run_on_threads(std::size_t count, std::size_t threads, const std::function<void(std::size_t)> &job);
