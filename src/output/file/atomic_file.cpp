#include "atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>

#include "temp_registry.h"

namespace fs = std::filesystem;

namespace {

// Longest file name the usual file systems take.
constexpr std::size_t NAME_MAX_BYTES = 255;
// Symbolic links followed before giving up, as the kernel does.
constexpr int MAX_LINKS = 40;

std::atomic<unsigned> next_serial{0};

// Writeback is started in stretches of this size.
constexpr std::size_t WRITEBACK_STRETCH = std::size_t{4} << 20;

// Starts writing [from, to) of the file to the disk without waiting. A file
// system that cannot is left to the fsync of commit(), which reports any
// error of the writeback.
void start_writeback(int fd, std::size_t from, std::size_t to) {
#ifdef SYNC_FILE_RANGE_WRITE
    ::sync_file_range(fd, static_cast<off_t>(from), static_cast<off_t>(to - from), SYNC_FILE_RANGE_WRITE);
#else
    (void)fd;
    (void)from;
    (void)to;
#endif
}

int close_keeping_errno(int fd) {
    const int saved = errno;
    const int r = ::close(fd);
    errno = saved;
    return r;
}

} // namespace

fs::path link_target(const fs::path &path) {
    fs::path p = path;
    for (int hops = 0; hops < MAX_LINKS; ++hops) {
        struct stat sb {};
        if (::lstat(p.c_str(), &sb) != 0 || !S_ISLNK(sb.st_mode)) return p;
        std::error_code ec;
        fs::path next = fs::read_symlink(p, ec);
        if (ec) return p;
        p = next.is_absolute() ? next : p.parent_path() / next;
    }
    return p;
}

fs::path temporary_name(const fs::path &target, long pid, unsigned serial) {
    const std::string tail = "." + std::to_string(pid) + "." + std::to_string(serial);
    std::string name = target.filename().string();
    const std::size_t room = NAME_MAX_BYTES - (sizeof TEMP_MARKER - 1) - tail.size();
    if (name.size() > room) name.resize(room);
    return target.parent_path() / (TEMP_MARKER + name + tail);
}

bool AtomicFile::open(const fs::path &final_path) {
    abort();
    install_temporary_cleanup();
    m_target = link_target(final_path);
    struct stat sb {};
    m_direct = ::stat(m_target.c_str(), &sb) == 0 && !S_ISREG(sb.st_mode);
    if (m_direct) {
        m_temp = m_target;
        m_fd = ::open(m_target.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        return m_fd >= 0;
    }
    m_written = 0;
    m_started = 0;
    m_temp = temporary_name(m_target, static_cast<long>(::getpid()), next_serial++);
    // Entered before it exists, so that no signal can leave it behind.
    m_entry = enter_temporary(m_temp.c_str());
    m_fd = ::open(m_temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (m_fd < 0) {
        leave_temporary(m_entry);
        m_entry = -1;
        return false;
    }
    return true;
}

bool AtomicFile::write(const void *bytes, std::size_t n) {
    const char *p = static_cast<const char *>(bytes);
    while (n > 0) {
        const ssize_t w = ::write(m_fd, p, n);
        if (w < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        if (w == 0) {
            errno = EIO;
            return false;
        }
        p += w;
        n -= static_cast<std::size_t>(w);
        m_written += static_cast<std::size_t>(w);
    }
    if (!m_direct && m_written - m_started >= WRITEBACK_STRETCH) {
        start_writeback(m_fd, m_started, m_written);
        m_started = m_written;
    }
    return true;
}

bool AtomicFile::commit() {
    if (m_fd < 0) return true;
    const int fd = m_fd;
    if (m_direct) {
        m_fd = -1;
        return ::close(fd) == 0;
    }
    if (::fsync(fd) != 0 && errno != EINVAL) {
        abort();
        return false;
    }
    m_fd = -1;
    if (::close(fd) != 0 || ::rename(m_temp.c_str(), m_target.c_str()) != 0) {
        const int saved = errno;
        ::unlink(m_temp.c_str());
        leave_temporary(m_entry);
        m_entry = -1;
        errno = saved;
        return false;
    }
    leave_temporary(m_entry);
    m_entry = -1;
    return true;
}

void AtomicFile::abort() noexcept {
    if (m_fd < 0) return;
    const int saved = errno;
    close_keeping_errno(m_fd);
    m_fd = -1;
    if (!m_direct) {
        ::unlink(m_temp.c_str());
        leave_temporary(m_entry);
        m_entry = -1;
    }
    errno = saved;
}
