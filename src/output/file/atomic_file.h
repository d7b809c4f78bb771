// An output file that appears under its final name only when it is complete.
//
// The bytes go to a temporary file in the directory of the final file, named
// TEMP_MARKER + final name + "." + process id + "." + serial (for example
// ".brantel-tmp.rec.tm4.4711.0"), created with the permissions of a plain
// create (0666 less the umask). commit() makes the content durable (fsync),
// closes it and renames it onto the final name, which replaces an existing
// file in one step; abort(), an error, or SIGINT, SIGTERM and SIGHUP remove
// the temporary file and leave the final name as it was. After SIGKILL or a
// power loss only a temporary file can remain, never a partial file under a
// final name.
//
// Replacing by rename gives the final name a new inode: hard links to the old
// file keep the old contents, and the old file's permissions and owner are
// not carried over. A final name that is a symbolic link keeps the link: the
// temporary file goes beside the link's target and replaces the target. A
// final name that exists and is not a regular file (a device such as
// /dev/full or /dev/stdout, a FIFO) is written directly, so that its write
// errors are still reported.
//
// While a temporary file is written, each further megabyte is
// synced on a thread of its own (StretchSync), so that the disk works while
// the rest is still being produced and the fsync of commit() finds little
// left to do.
#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>

#include "stretch_sync.h"

// Start of every temporary file name; a killed run can leave such files, and
// anything may remove them once no run is writing.
inline constexpr char TEMP_MARKER[] = ".brantel-tmp.";

class AtomicFile {
  public:
    AtomicFile() = default;
    // Aborts a file that was not committed.
    ~AtomicFile() { abort(); }

    AtomicFile(const AtomicFile &) = delete;
    AtomicFile &operator=(const AtomicFile &) = delete;

    // Creates the temporary file for `final_path` (or opens a non-regular
    // final file directly). False, with errno set, when it cannot be created.
    bool open(const std::filesystem::path &final_path);
    // Writes all `n` bytes. False, with errno set, on failure.
    bool write(const void *bytes, std::size_t n);
    // Syncs, closes and renames onto the final name. False, with errno set,
    // when any step fails; the temporary file is then removed.
    bool commit();
    // Closes and removes the temporary file; the final name is left alone.
    void abort() noexcept;

    bool is_open() const { return m_fd >= 0; }
    // The file written: the temporary file, or the final file when direct.
    const std::filesystem::path &temporary_path() const { return m_temp; }

  private:
    // Hands the stretch written so far to the sync thread, started at the first.
    void start_sync();
    // Ends the sync thread; the first error of its syncs, or 0.
    int end_sync() noexcept;

    int m_fd = -1;
    int m_entry = -1;               // entry in the registry of live temporary files
    std::size_t m_written = 0;      // bytes written so far
    std::size_t m_synced = 0;       // bytes handed to the sync thread
    bool m_direct = false;          // writing straight into an existing non-regular file
    std::filesystem::path m_target; // the file the rename replaces
    std::filesystem::path m_temp;
    std::unique_ptr<StretchSync> m_sync;
};

// The file that writing `path` replaces: `path` itself, or the end of its
// chain of symbolic links (which need not exist yet).
std::filesystem::path link_target(const std::filesystem::path &path);

// The temporary name for `target` in the same directory.
std::filesystem::path temporary_name(const std::filesystem::path &target, long pid, unsigned serial);
