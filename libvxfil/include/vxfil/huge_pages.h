// Large sample sequences are filled once, front to back. Asking the kernel
// for huge pages on them before they are first touched turns hundreds of
// thousands of small page faults into a few hundred large ones.
#pragma once

#include <cstddef>
#include <vector>

namespace VxFil {

// The size of a transparent huge page on x86-64 and most other systems; on
// one with another size, memory is simply aligned to this one.
inline constexpr std::size_t HUGE_PAGE_BYTES = std::size_t{2} << 20;

// `bytes` of heap memory that start on a huge-page boundary, advised as
// huge pages before anything touches them. Throws std::bad_alloc when the
// system has no memory to give. Freed only by free_on_huge_pages.
void* new_on_huge_pages(std::size_t bytes);
void free_on_huge_pages(void* p) noexcept;

// Advises huge pages for the whole 2 MiB pages inside [p, p + bytes); does
// nothing for smaller ranges or where the system does not offer them.
void advise_huge_pages(const void* p, std::size_t bytes);

// Reserves room for n elements in v and advises huge pages on it, before
// anything is written there.
template <class T> void reserve_huge(std::vector<T>& v, std::size_t n) {
    v.reserve(n);
    advise_huge_pages(v.data() + v.size(), (v.capacity() - v.size()) * sizeof(T));
}

} // namespace VxFil
