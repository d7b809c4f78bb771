// The vx24 container: a versioned header, channel records and interleaved
// 32-bit samples.
#pragma once

#include "vxfil/vxfil_base.h"

namespace VxFil {

class VXFIL24 : public Vxfil_Base {
  public:
    // Reads the whole file; throws std::runtime_error on a damaged file.
    explicit VXFIL24(const char* filename);
    ORIGIN get_origin() const override { return ORIGIN_VX24; }
};

} // namespace VxFil
