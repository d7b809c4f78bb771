// Buffered output file of the writers. It collects the text in a large buffer
// of its own and hands it to the system in big chunks, so that writing a
// value costs a few stores rather than a library call. The bytes go through
// an AtomicFile: the final name shows the new contents only after close().
//
// A file that cannot be opened ends the process with status 1 after
// "Can't open file " and the quoted path; a failed write, flush or close ends
// it with status 1 after one line "Error: Can't write file " with the quoted
// path and the system's reason; the temporary file is removed first, so an
// earlier file under the final name stays as it was. These are the only
// places where writing ends the process.
//
// On a machine with more than one processor the full buffer is handed to a
// writer thread and the next one is filled meanwhile (two buffers in turn).
// A write that fails in the background is reported at the next hand-over,
// at settle() or at close(), whichever comes first, with the same line and
// status, so no message of a later row can come before it: the writers call
// settle() before they print anything while the file is open.
#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string_view>

#include "atomic_file.h"
#include "background_writer.h"
#include "number_format.h"
#include "number_puts.h"

class OutFile : public NumberPuts<OutFile> {
public:
    // Opens `path` for writing (a temporary file until close()).
    explicit OutFile(const std::filesystem::path& path);
    // A file that was not closed (an exception unwinding through a writer)
    // is abandoned: its temporary file is removed.
    ~OutFile() = default;

    OutFile(const OutFile&) = delete;
    OutFile& operator=(const OutFile&) = delete;

    void put(char c) {
        if (m_used == m_capacity) flush();
        m_buffer[m_used++] = c;
    }
    void put(std::string_view text);

    // Numbers: put_fixed, put_f, put_g, put_trimmed and the others of
    // NumberPuts, in the conversions of number_format.h.

    // Writes the buffer out (in the background where that is on).
    void flush();
    // Waits until everything handed over is written; a failed write ends the
    // process here. Call before printing a message while the file is open.
    void settle();
    // Writes the buffer out, closes the file and puts it under its final name.
    void close();

    const std::filesystem::path& path() const { return m_path; }

    // Whether full buffers are written on a second thread: by default where
    // the machine has more than one processor. Tests switch it to run both
    // ways; files opened afterwards follow the new setting.
    static void set_background_writes(bool on);
    static bool background_writes();

private:
    friend class NumberPuts<OutFile>;
    // Makes room for `n` more bytes and returns where they go; commit() then
    // records how many were written.
    char* reserve(std::size_t n);
    void commit(char* end) { m_used = static_cast<std::size_t>(end - m_buffer.get()); }
    // Writes the buffer on this thread.
    void write_in_place();
    [[noreturn]] void fail_write(int error);

    std::filesystem::path m_path;
    AtomicFile m_file;
    std::unique_ptr<char[]> m_buffer;
    std::size_t m_capacity = 0;
    std::size_t m_used = 0;
    // The buffer being written in the background, and the thread writing it.
    std::unique_ptr<char[]> m_spare;
    std::size_t m_spare_capacity = 0;
    bool m_background; // the setting when the file was opened
    std::unique_ptr<BackgroundWriter> m_writer;
    bool m_in_flight = false;
};
