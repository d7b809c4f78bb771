#include "freed_memory.h"

#include <malloc.h>

void keep_freed_memory() {
    mallopt(M_MMAP_MAX, 0);
    // One heap for every thread: a block freed by one thread is reused by
    // the next that asks, instead of each thread faulting in a heap of its own.
    mallopt(M_ARENA_MAX, 1);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
}
