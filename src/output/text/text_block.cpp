#include "text_block.h"

#include <algorithm>

namespace {

// The first room of a block: the block of rows formatted together is some
// 0.3 to 1 MB of text. Taken at once, the first block of every slot neither
// copies itself from one doubled buffer into the next nor touches the pages
// of the buffers it outgrew, which on these machines cost more than the
// copies; the pages of the room that no row reaches are never touched.
constexpr std::size_t FIRST_ROOM = std::size_t{1} << 20;

} // namespace

void TextBlock::grow(std::size_t n) {
    // Not zero-filled: every byte that counts is written before it is read.
    const std::size_t capacity = std::max({m_used + n, 2 * m_capacity, FIRST_ROOM});
    std::unique_ptr<char[]> bigger(new char[capacity]);
    if (m_used > 0) std::memcpy(bigger.get(), m_buffer.get(), m_used);
    m_buffer = std::move(bigger);
    m_capacity = capacity;
}
