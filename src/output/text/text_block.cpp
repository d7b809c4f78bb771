#include "text_block.h"

#include <algorithm>

void TextBlock::grow(std::size_t n) {
    // Not zero-filled: every byte that counts is written before it is read.
    const std::size_t capacity = std::max({m_used + n, 2 * m_capacity, std::size_t{1} << 16});
    std::unique_ptr<char[]> bigger(new char[capacity]);
    if (m_used > 0) std::memcpy(bigger.get(), m_buffer.get(), m_used);
    m_buffer = std::move(bigger);
    m_capacity = capacity;
}
