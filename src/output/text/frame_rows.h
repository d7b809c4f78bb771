// The frames of a vx24 file read in place, row by row, for the writers that
// print one frame per row. Rows are asked for in order, so each thread keeps
// one stretch of frames and reads the next stretch when a row falls outside
// it: a block of rows formatted on a worker costs one read of the file.
#pragma once

#include <cstdint>

#include "vxfil/vx24_frames.h"

// The values of frame k (frames.channels() of them), valid on this thread
// until the next call. k must be below frames.frames(); a file that has
// become shorter throws std::runtime_error naming it.
const std::int32_t *frame_row(const VxFil::vx24_frames &frames, std::uint64_t k);
