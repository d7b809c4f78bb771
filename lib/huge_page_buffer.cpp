#include "huge_page_buffer.h"

#include <sys/mman.h>

#include <cstdint>
#include <new>
#include <utility>

namespace {

// The size of a transparent huge page on x86-64 and most other systems; on
// one with another size the buffer is simply aligned to this one.
constexpr std::size_t HUGE_PAGE = std::size_t{2} << 20;

std::size_t whole_huge_pages(std::size_t bytes) { return (bytes + HUGE_PAGE - 1) / HUGE_PAGE * HUGE_PAGE; }

#if defined(__SANITIZE_ADDRESS__)
constexpr bool ON_THE_HEAP = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool ON_THE_HEAP = true;
#else
constexpr bool ON_THE_HEAP = false;
#endif
#else
constexpr bool ON_THE_HEAP = false;
#endif

} // namespace

bool HugePageBuffer::mapped() { return !ON_THE_HEAP; }

HugePageBuffer::HugePageBuffer(std::size_t bytes) {
    if (bytes == 0) return;
    if (bytes > SIZE_MAX - 2 * HUGE_PAGE) throw std::bad_alloc();
    const std::size_t size = whole_huge_pages(bytes);
    if (ON_THE_HEAP) {
        m_data = new char[size];
        m_size = size;
        return;
    }
    // A huge page must start on a huge-page boundary: map one page more and
    // give back the unaligned ends.
    const std::size_t mapped = size + HUGE_PAGE;
    void* p = ::mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) throw std::bad_alloc();
    const auto start = reinterpret_cast<std::uintptr_t>(p);
    const std::uintptr_t aligned = (start + HUGE_PAGE - 1) / HUGE_PAGE * HUGE_PAGE;
    const std::size_t head = aligned - start;
    if (head > 0) ::munmap(p, head);
    if (mapped - head > size) ::munmap(reinterpret_cast<char*>(aligned) + size, mapped - head - size);
    m_data = reinterpret_cast<char*>(aligned);
    m_size = size;
    // Only a wish: a system without transparent huge pages refuses it, and
    // the memory works all the same.
    ::madvise(m_data, m_size, MADV_HUGEPAGE);
}

void HugePageBuffer::release() noexcept {
    if (m_data == nullptr) return;
    if (ON_THE_HEAP)
        delete[] m_data;
    else
        ::munmap(m_data, m_size);
    m_data = nullptr;
    m_size = 0;
}

HugePageBuffer::~HugePageBuffer() { release(); }

HugePageBuffer::HugePageBuffer(HugePageBuffer&& other) noexcept
    : m_data(std::exchange(other.m_data, nullptr)), m_size(std::exchange(other.m_size, 0)) {}

HugePageBuffer& HugePageBuffer::operator=(HugePageBuffer&& other) noexcept {
    if (this != &other) {
        release();
        m_data = std::exchange(other.m_data, nullptr);
        m_size = std::exchange(other.m_size, 0);
    }
    return *this;
}
