// A piece of an output file's text formatted away from the file: rows that
// another thread formats while the file takes the rows before them. The
// buffer grows as needed and keeps its memory when cleared, so a block that
// is used again and again touches no fresh pages; it lies on huge pages
// where the system has them.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

#include "huge_page_buffer.h"
#include "number_puts.h"

class TextBlock : public NumberPuts<TextBlock> {
  public:
    void put(char c) {
        reserve(1);
        m_buffer.data()[m_used++] = c;
    }
    void put(std::string_view text) {
        std::memcpy(reserve(text.size()), text.data(), text.size());
        m_used += text.size();
    }
    void clear() { m_used = 0; }
    std::string_view text() const { return {m_buffer.data(), m_used}; }

  private:
    friend class NumberPuts<TextBlock>;
    char* reserve(std::size_t n) {
        if (n > m_buffer.size() - m_used) grow(n);
        return m_buffer.data() + m_used;
    }
    void grow(std::size_t n);
    void commit(char* end) { m_used = static_cast<std::size_t>(end - m_buffer.data()); }

    HugePageBuffer m_buffer;
    std::size_t m_used = 0;
};
