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
#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string_view>

#include "atomic_file.h"
#include "number_format.h"

class OutFile {
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

    // Numbers in the conversions of number_format.h.
    void put_fixed(double value, int precision); // "%-.*f"
    void put_fixed(FixedColumn& column, double value); // "%-.*f" with the column's precision
    void put_f(double value);                    // "%f"
    void put_f0(double value);                   // "%.0f"
    void put_f12_0(double value);                // "%12.0f"
    void put_g(double value);                    // "%g"
    void put_ld(long value);                     // "%ld"
    void put_trimmed(double value);              // "%lf" without trailing zeros

    // Writes the buffer out.
    void flush();
    // Writes the buffer out, closes the file and puts it under its final name.
    void close();

    const std::filesystem::path& path() const { return m_path; }

private:
    // Makes room for `n` more bytes and returns where they go; commit() then
    // records how many were written.
    char* reserve(std::size_t n);
    void commit(char* end) { m_used = static_cast<std::size_t>(end - m_buffer.get()); }
    [[noreturn]] void fail_write(int error);

    std::filesystem::path m_path;
    AtomicFile m_file;
    std::unique_ptr<char[]> m_buffer;
    std::size_t m_capacity = 0;
    std::size_t m_used = 0;
};
