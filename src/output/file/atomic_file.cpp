#include "atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <exception>
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

// A file is synced along the way once this much more has been written. The
// flushes of the virtual disks here go no faster than about 1.2 MB/ms, close
// to the speed at which rows are written, so the first flush starts as soon
// as a megabyte is there, and the next whenever the one before has returned.
constexpr std::size_t SYNC_STRETCH = std::size_t{1} << 20;

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
    m_synced = 0;
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
    if (!m_direct && m_written - m_synced >= SYNC_STRETCH) {
        m_synced = m_written;
        start_sync();
    }
    return true;
}

void AtomicFile::start_sync() {
    if (!m_sync) {
        try {
            m_sync = std::make_unique<StretchSync>(m_fd);
        } catch (const std::exception &) {
            return; // no thread to be had: the final fsync does it all
        }
    }
    m_sync->more_written();
}

int AtomicFile::end_sync() noexcept {
    if (!m_sync) return 0;
    const int error = m_sync->finish();
    m_sync.reset();
    return error;
}

bool AtomicFile::commit() {
    if (m_fd < 0) return true;
    const int fd = m_fd;
    if (m_direct) {
        m_fd = -1;
        return ::close(fd) == 0;
    }
    // A sync along the way that failed fails the file, even if the kernel
    // has forgotten the error by the final fsync.
    if (const int error = end_sync(); error != 0) {
        abort();
        errno = error;
        return false;
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
    end_sync(); // the sync thread's descriptor must stay open until it has ended
    close_keeping_errno(m_fd);
    m_fd = -1;
    if (!m_direct) {
        ::unlink(m_temp.c_str());
        leave_temporary(m_entry);
        m_entry = -1;
    }
    errno = saved;
}
