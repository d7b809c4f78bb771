// Binary comment-headed recordings: after the comment line (ended by a
// carriage return), blocks of 16-bit little-endian words, per channel a
// 2-word stamp (none in the oldest files) and m_length signed samples.
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <iostream>

#include "common.h"
#include "vxfil/vxfil.h"

namespace VxFil {

BinaryVXFIL::BinaryVXFIL(const char* path, VXFIL_arguments* args) : VXFIL(path, args) {
    open_recording(path);
}

BinaryVXFIL::BinaryVXFIL(FILE* stream, const char* path, VXFIL_arguments* args) : VXFIL(stream, path, args) {
    open_recording(path);
}

BinaryVXFIL::~BinaryVXFIL() = default;

int BinaryVXFIL::readcomment() {
    return read_comment_line(true);
}

int BinaryVXFIL::read(atype& out, int* time) {
    const size_t prefix = m_old_file_type ? 0 : 2;
    const size_t words = prefix + m_length;
    if (words > Max) return -1; // m_length is 128 or 512; never more than one block of Max words
    short buffer[Max];
    for (size_t i = 0; i < 3; ++i) {
        errno = 0;
        size_t got = std::fread(buffer, sizeof(short), words, m_fd.get());
        if (got == 0) return -1; // clean end between blocks or channels
        if (got < words) {
            if (std::ferror(m_fd.get()))
                std::cerr << "fread: can't read data\n";
            else if (std::feof(m_fd.get()))
                std::cerr << "fread: EOF\n";
            return -1;
        }
        std::vector<double>& channel = out[m_micorder[i]];
        if (channel.size() < m_length) channel.resize(m_length);
        for (size_t n = 0; n < m_length; ++n)
            channel[n] = static_cast<double>(le16toh16(buffer[prefix + n]));
    }
    // Only the stamp in front of the third channel is kept.
    if (!m_old_file_type) {
        short w0 = le16toh16(buffer[0]);
        short w1 = le16toh16(buffer[1]);
        if (m_unixtime) {
            time[0] = static_cast<uint16_t>(w0);
            time[1] = static_cast<uint16_t>(w1);
        } else {
            time[0] = w0;
            time[1] = w1;
        }
    }
    return 0;
}

} // namespace VxFil
