#include "vxfil/vx24_frames.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "le_bytes.h"

namespace VxFil {

namespace {

std::atomic<uint64_t> next_serial{1};

constexpr size_t value_size = 4;

// Reads exactly n bytes at offset; false when the file ends before them or
// a read fails.
bool read_at(int fd, unsigned char *buffer, size_t n, uint64_t offset) {
    while (n > 0) {
        const ssize_t r = ::pread(fd, buffer, n, static_cast<off_t>(offset));
        if (r < 0 && errno == EINTR) continue;
        if (r <= 0) return false;
        buffer += r;
        n -= static_cast<size_t>(r);
        offset += static_cast<uint64_t>(r);
    }
    return true;
}

[[noreturn]] void shrank(const std::string &name) {
    throw std::runtime_error("Error: \"" + name + "\" became shorter while it was being converted\n");
}

} // namespace

vx24_frames::vx24_frames(const char *filename) : m_name(filename), m_serial(next_serial++) {
    m_fd = ::open(filename, O_RDONLY | O_CLOEXEC);
    if (m_fd < 0) throw std::runtime_error(std::string("Couldn't open ") + filename + "\n");
    struct stat sb {};
    if (::fstat(m_fd, &sb) != 0 || !S_ISREG(sb.st_mode) || sb.st_size <= 0) {
        ::close(m_fd);
        throw std::runtime_error(std::string("Couldn't open ") + filename + " as a regular file\n");
    }
    const auto size = static_cast<uint64_t>(sb.st_size);
    // The layout is decoded from the bytes before the first sample and the
    // measured size, as the reader of the whole file does.
    unsigned char head[vx24_layout_bytes];
    const size_t head_size = static_cast<size_t>(std::min<uint64_t>(size, sizeof head));
    try {
        if (!read_at(m_fd, head, head_size, 0)) shrank(m_name);
        m_layout = parse_vx24_layout(head, size);
    } catch (...) {
        ::close(m_fd);
        throw;
    }
}

vx24_frames::~vx24_frames() {
    if (m_fd >= 0) ::close(m_fd);
}

void vx24_frames::read(uint64_t first, size_t count, int32_t *out) const {
    const size_t n = channels();
    if (count == 0) return;
    if (first > m_layout.per_channel || count > m_layout.per_channel - first) shrank(m_name);
    const size_t values = count * n;
    // The bytes land in out itself and are turned into numbers in place:
    // four bytes become one value of four bytes.
    auto *bytes = reinterpret_cast<unsigned char *>(out);
    if (!read_at(m_fd, bytes, values * value_size, m_layout.data_offset + first * n * value_size))
        shrank(m_name);
    for (size_t i = 0; i < values; ++i) {
        const auto v = static_cast<int32_t>(le32(bytes + i * value_size));
        std::memcpy(out + i, &v, sizeof v);
    }
}

} // namespace VxFil
