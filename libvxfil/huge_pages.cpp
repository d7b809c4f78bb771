#include "vxfil/huge_pages.h"

#include <sys/mman.h>

#include <cstdint>

namespace VxFil {

void advise_huge_pages(const void* p, std::size_t bytes) {
#ifdef MADV_HUGEPAGE
    constexpr std::uintptr_t huge = std::uintptr_t{2} << 20;
    const auto begin = reinterpret_cast<std::uintptr_t>(p);
    const std::uintptr_t first = (begin + huge - 1) & ~(huge - 1);
    const std::uintptr_t last = (begin + bytes) & ~(huge - 1);
    if (last > first) madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
#else
    (void)p;
    (void)bytes;
#endif
}

} // namespace VxFil
