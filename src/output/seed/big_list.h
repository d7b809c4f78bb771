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
    static constexpr std::size_t HUGE_PAGE = std::size_t{2} << 20;
    uninitialised_allocator() = default;
    template <class U> uninitialised_allocator(const uninitialised_allocator<U> &) noexcept {}
    T *allocate(std::size_t n) {
        if (n < HUGE_PAGE / sizeof(T)) return std::allocator<T>::allocate(n);
        if (n > SIZE_MAX / sizeof(T)) throw std::bad_array_new_length();
        void *p = ::operator new(n * sizeof(T), std::align_val_t{HUGE_PAGE});
        VxFil::advise_huge_pages(p, n * sizeof(T));
        return static_cast<T *>(p);
    }
    void deallocate(T *p, std::size_t n) noexcept {
        if (n < HUGE_PAGE / sizeof(T))
            std::allocator<T>::deallocate(p, n);
        else
            ::operator delete(p, std::align_val_t{HUGE_PAGE});
    }
    template <class U> void construct(U *p) noexcept { ::new (static_cast<void *>(p)) U; }
    template <class U, class... Args> void construct(U *p, Args &&...args) {
        ::new (static_cast<void *>(p)) U(std::forward<Args>(args)...);
    }
};
template <class T> using big_list = std::vector<T, uninitialised_allocator<T>>;
