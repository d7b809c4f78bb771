// Memory for the large buffers that a conversion fills again and again (the
// blocks of rows formatted on other threads, the stretches of frames read
// from a file), backed by transparent huge pages where the system offers
// them. On the virtual machines here, every 4 KiB page that a process touches
// for the first time costs about 16 microseconds (a megabyte about 4 ms),
// while a 2 MiB huge page comes zeroed in about 0.2 ms. The memory is the
// heap's, whole huge pages aligned to them and advised as such; where huge
// pages are off it behaves as any other, only the pages touched are faulted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>

class HugePageBuffer {
  public:
    HugePageBuffer() = default;
    // At least `bytes` bytes (rounded up to whole huge pages), not zeroed for
    // the caller's sake: every byte that counts is written before it is
    // read. Throws std::bad_alloc when the system has no memory to give.
    explicit HugePageBuffer(std::size_t bytes);
    ~HugePageBuffer();

    HugePageBuffer(HugePageBuffer&& other) noexcept;
    HugePageBuffer& operator=(HugePageBuffer&& other) noexcept;
    HugePageBuffer(const HugePageBuffer&) = delete;
    HugePageBuffer& operator=(const HugePageBuffer&) = delete;

    char* data() const { return m_data; }
    std::size_t size() const { return m_size; }

  private:
    void release() noexcept;

    char* m_data = nullptr;
    std::size_t m_size = 0;
};

// Room for `n` values of a trivial type in a HugePageBuffer, for buffers
// that are filled whole each time: growing gives up the old contents.
template <class T> class HugePageArray {
  public:
    // Room for n values; what the room held before is not kept.
    T* room(std::size_t n) {
        if (n > m_buffer.size() / sizeof(T)) {
            if (n > SIZE_MAX / sizeof(T)) throw std::bad_alloc();
            m_buffer = HugePageBuffer(n * sizeof(T));
        }
        return data();
    }
    T* data() const { return reinterpret_cast<T*>(m_buffer.data()); }

  private:
    HugePageBuffer m_buffer;
};
