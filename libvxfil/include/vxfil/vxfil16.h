// vx16 recordings: comment-headed recordings of 16-bit recorders, read whole
// through a comment-headed reader and presented as a channel recording.
#pragma once

#include <cstdio>

#include "vxfil/legacy_reading.h"
#include "vxfil/vxfil_base.h"

namespace VxFil {

class VXFIL; // the comment-headed reader (vxfil/vxfil.h)

class VXFIL16 : public Vxfil_Base {
  public:
    // initial_basetime: a precise start time in Unix seconds (0 when unknown),
    // taken only when it lies within 2 s of the recording's own start.
    // legacy: first-generation reading (station, gain and start time as
    // legacy_reading.h describes); off by default.
    VXFIL16(const char *filename, double initial_basetime, const legacy_options &legacy = {});
    // The same from an already-open, seekable stream, whose ownership passes
    // to the object; name stands for the path (start time from the name).
    VXFIL16(FILE *stream, const char *name, double initial_basetime, const legacy_options &legacy = {});
    ORIGIN get_origin() const override { return ORIGIN_VX16; }

  private:
    void load(VXFIL *reader, const char *name, double initial_basetime, const legacy_options &legacy);
};

} // namespace VxFil
