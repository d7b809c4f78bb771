// vx16 recordings: comment-headed recordings of 16-bit recorders, read whole
// through a comment-headed reader and presented as a channel recording.
#pragma once

#include <cstdio>

#include "vxfil/vxfil_base.h"

namespace VxFil {

class VXFIL; // the comment-headed reader (vxfil/vxfil.h)

class VXFIL16 : public Vxfil_Base {
  public:
    // initial_basetime: a precise start time in Unix seconds (0 when unknown),
    // taken only when it lies within 2 s of the recording's own start.
    VXFIL16(const char* filename, double initial_basetime);
    // The same from an already-open, seekable stream, whose ownership passes
    // to the object; name stands for the path (start time from the name).
    VXFIL16(FILE* stream, const char* name, double initial_basetime);
    ORIGIN get_origin() const override { return ORIGIN_VX16; }

  private:
    void load(VXFIL* reader, const char* name, double initial_basetime);
};

} // namespace VxFil
