#include "huge_page_buffer.h"

#include <new>
#include <utility>

#include "vxfil/huge_pages.h"

namespace {

constexpr std::size_t HUGE_PAGE = VxFil::HUGE_PAGE_BYTES;

} // namespace

HugePageBuffer::HugePageBuffer(std::size_t bytes) {
    if (bytes == 0) return;
    if (bytes > SIZE_MAX - HUGE_PAGE) throw std::bad_alloc();
    // Whole huge pages, each starting on a huge-page boundary, so that every
    // one of them can be a huge page.
    const std::size_t size = (bytes + HUGE_PAGE - 1) / HUGE_PAGE * HUGE_PAGE;
    m_data = static_cast<char*>(VxFil::new_on_huge_pages(size));
    m_size = size;
}

void HugePageBuffer::release() noexcept {
    if (m_data == nullptr) return;
    VxFil::free_on_huge_pages(m_data);
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
