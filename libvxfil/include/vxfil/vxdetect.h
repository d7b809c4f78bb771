// The recording format probe: picks the reader for a path by its first bytes.
#pragma once

#include "vxfil/legacy_reading.h"
#include "vxfil/vxfil_base.h"

namespace VxFil {

// Returns a new reader owned by the caller (VXFIL24, VXFIL16 or VXFIL_TM4), or
// nullptr when the file cannot be opened or holds no line end in its first
// 3072 bytes. frequency is handed to the VXFIL16 and VXFIL_TM4 constructors as
// their initial base time. legacy applies to comment-headed recordings only.
Vxfil_Base *vxdetect(const char *path, double frequency, const legacy_options &legacy = {});

// Whether vxdetect would read path with the vx24 reader as a regular file
// that is not empty: the file whose samples vx24_frames can read in place.
bool regular_vx24_file(const char *path);

// Whether path names a pipe (or a socket). No recording is read from one:
// the probe takes its first bytes and the reader would open it again without
// them, and opening one waits for a writer.
bool names_a_pipe(const char *path);

} // namespace VxFil
