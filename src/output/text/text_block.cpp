#include "text_block.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

// The first room of a block: one huge page. The block of rows formatted
// together is some 0.3 to 1 MB of text, so the first block of every slot
// neither copies itself from one doubled buffer into the next nor faults in
// the pages of buffers it outgrew.
constexpr std::size_t FIRST_ROOM = std::size_t{2} << 20;

} // namespace

void TextBlock::grow(std::size_t n) {
    const std::size_t capacity = std::max({m_used + n, 2 * m_buffer.size(), FIRST_ROOM});
    HugePageBuffer bigger(capacity);
    if (m_used > 0) std::memcpy(bigger.data(), m_buffer.data(), m_used);
    m_buffer = std::move(bigger);
}
