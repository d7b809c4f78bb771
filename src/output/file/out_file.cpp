#include "out_file.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <thread>
#include <utility>

#include "number_format.h"
#include "process_exit.h"

namespace {

// Size of the buffer: large enough that a file of a few million rows takes a
// few dozen system calls.
constexpr std::size_t BUFFER_SIZE = std::size_t{1} << 20;
// Texts from this size on are written as they are rather than copied into
// the buffer; below the buffer's size, so that any text fits the buffer
// after a flush.
constexpr std::size_t DIRECT_FROM = BUFFER_SIZE / 8;

bool background_setting = std::thread::hardware_concurrency() > 1;

[[noreturn]] void end_process() {
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
    process_exit(1);
}

} // namespace

OutFile::OutFile(const std::filesystem::path& path)
    : m_path(path), m_buffer(new char[BUFFER_SIZE]), m_capacity(BUFFER_SIZE),
      m_background(background_setting) {
    if (!m_file.open(path)) {
        std::cerr << "Can't open file " << path << "\n";
        end_process();
    }
}

void OutFile::set_background_writes(bool on) { background_setting = on; }
bool OutFile::background_writes() { return background_setting; }

void OutFile::put(std::string_view text) {
    // A large text (a block of rows formatted on another thread) goes to the
    // file as it is, on this thread, after what was handed over before it:
    // copying it into the buffer first would move the same bytes once more.
    if (text.size() >= DIRECT_FROM) {
        flush();
        settle();
        if (!m_file.write(text.data(), text.size())) fail_write(errno);
        return;
    }
    if (text.size() > m_capacity - m_used) flush();
    std::memcpy(m_buffer.get() + m_used, text.data(), text.size());
    m_used += text.size();
}

char* OutFile::reserve(std::size_t n) {
    if (n > m_capacity - m_used) {
        flush();
        if (n > m_capacity) {
            // Only an absurd precision needs more than the whole buffer.
            m_buffer.reset(new char[n]);
            m_capacity = n;
        }
    }
    return m_buffer.get() + m_used;
}

void OutFile::flush() {
    if (m_used == 0) return;
    // The thread starts with the first full buffer: a small file never needs it.
    if (m_background && !m_writer) m_writer = std::make_unique<BackgroundWriter>(m_file);
    if (m_writer) {
        // The previous chunk must be out before its buffer takes new text.
        settle();
        m_writer->start(m_buffer.get(), m_used);
        m_in_flight = true;
        if (!m_spare) {
            m_spare.reset(new char[BUFFER_SIZE]);
            m_spare_capacity = BUFFER_SIZE;
        }
        m_buffer.swap(m_spare);
        std::swap(m_capacity, m_spare_capacity);
        m_used = 0;
        return;
    }
    write_in_place();
}

void OutFile::write_in_place() {
    errno = 0;
    if (!m_file.write(m_buffer.get(), m_used)) fail_write(errno);
    m_used = 0;
}

void OutFile::settle() {
    if (!m_in_flight) return;
    m_in_flight = false;
    if (int error = m_writer->wait(); error != 0) fail_write(error);
}

void OutFile::close() {
    if (!m_file.is_open()) return;
    // The last, partly filled buffer goes out from here: no thread is
    // started for it, and one that runs has finished its chunk first.
    settle();
    if (m_used > 0) write_in_place();
    m_writer.reset();
    errno = 0;
    if (!m_file.commit()) fail_write(errno);
}

void OutFile::fail_write(int error) {
    m_file.abort();
    std::cerr << "Error: Can't write file " << m_path << ": " << std::strerror(error != 0 ? error : EIO) << "\n";
    end_process();
}
