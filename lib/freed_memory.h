// A conversion builds series of millions of values and drops them again,
// one after another. Memory that is freed is kept for the next allocation
// instead of being given back to the system, since memory that the kernel
// hands out afresh is zeroed page by page on first touch, and that zeroing
// costs as much as decoding the recording.
#pragma once

// Keeps large blocks on the heap (no mmap of its own per block), one heap
// for all threads, and never trims it. Call once, before the first large allocation.
void keep_freed_memory();
