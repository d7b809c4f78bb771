// The samples of a vx24 file read where they lie, a stretch of frames at a
// time, rather than all at once into memory. A writer that turns each frame
// into one line of text needs no more than the stretch it is on: a day's
// three channels would otherwise fill some 60 MB of fresh memory (the counts,
// then the same as doubles) before the first line is written.
//
// A frame is one value of every channel, in the order of the channel
// records; the frames of a file are numbered from 0 and there are
// layout().per_channel whole frames.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "vxfil/vxfil24.h"

namespace VxFil {

class vx24_frames {
  public:
    // Opens a regular file and decodes its layout, with the failures of
    // reading it whole (std::runtime_error with the reader's message, or the
    // process ending for a version above 2).
    explicit vx24_frames(const char *filename);
    ~vx24_frames();

    vx24_frames(const vx24_frames &) = delete;
    vx24_frames &operator=(const vx24_frames &) = delete;

    const vx24_layout &layout() const { return m_layout; }
    size_t channels() const { return m_layout.channels.size(); }
    uint64_t frames() const { return m_layout.per_channel; }
    // Tells this file apart from every other one opened by the process, also
    // from one that later takes the same address.
    uint64_t serial() const { return m_serial; }

    // The values of frames [first, first + count), frame after frame, into
    // out (count * channels() values). Safe to call from several threads at
    // once. Throws std::runtime_error naming the file when they are past its
    // end: it shrank since it was opened.
    void read(uint64_t first, size_t count, int32_t *out) const;

  private:
    std::string m_name;
    int m_fd = -1;
    vx24_layout m_layout;
    uint64_t m_serial = 0;
};

} // namespace VxFil
