#include "freed_memory.h"

#include <malloc.h>

void keep_freed_memory() {
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
}
