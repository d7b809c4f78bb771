// The vectors of the SDS merge that hold millions of samples, times or
// values at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "vxfil/huge_pages.h"

// Leaves elements that a vector grows by uninitialised instead of zeroing
// them: lists of millions of samples are written right after they grow.
// Lists of a huge page or more lie on whole huge pages, aligned to them and
// advised as such before anything touches them: a day's list of one channel
// is tens of megabytes of fresh memory, which in small pages costs more
// than the merge itself.
template <class T> struct uninitialised_allocator : std::allocator<T> {
    template <class U> struct rebind {
        using other = uninitialised_allocator<U>;
    };
    uninitialised_allocator() = default;
    template <class U> uninitialised_allocator(const uninitialised_allocator<U> &) noexcept {}
    T *allocate(std::size_t n) {
        if (!on_huge_pages(n)) return std::allocator<T>::allocate(n);
        if (n > SIZE_MAX / sizeof(T)) throw std::bad_array_new_length();
        return static_cast<T *>(VxFil::new_on_huge_pages(n * sizeof(T)));
    }
    void deallocate(T *p, std::size_t n) noexcept {
        if (on_huge_pages(n))
            VxFil::free_on_huge_pages(p);
        else
            std::allocator<T>::deallocate(p, n);
    }
    // Where a list of n elements lies; allocate and deallocate must agree.
    static bool on_huge_pages(std::size_t n) { return n >= VxFil::HUGE_PAGE_BYTES / sizeof(T); }
    template <class U> void construct(U *p) noexcept { ::new (static_cast<void *>(p)) U; }
    template <class U, class... Args> void construct(U *p, Args &&...args) {
        ::new (static_cast<void *>(p)) U(std::forward<Args>(args)...);
    }
};
template <class T> using big_list = std::vector<T, uninitialised_allocator<T>>;
