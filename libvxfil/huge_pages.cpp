#include "vxfil/huge_pages.h"

#include <sys/mman.h>

#include <cstdint>
#include <new>

namespace VxFil {

void advise_huge_pages(const void* p, std::size_t bytes) {
#ifdef MADV_HUGEPAGE
    constexpr std::uintptr_t huge = HUGE_PAGE_BYTES;
    const auto begin = reinterpret_cast<std::uintptr_t>(p);
    const std::uintptr_t first = (begin + huge - 1) & ~(huge - 1);
    const std::uintptr_t last = (begin + bytes) & ~(huge - 1);
    if (last > first) madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
#else
    (void)p;
    (void)bytes;
#endif
}

void* new_on_huge_pages(std::size_t bytes) {
    void* p = ::operator new(bytes, std::align_val_t{HUGE_PAGE_BYTES});
    advise_huge_pages(p, bytes);
    return p;
}

void free_on_huge_pages(void* p) noexcept {
    ::operator delete(p, std::align_val_t{HUGE_PAGE_BYTES});
}

} // namespace VxFil
