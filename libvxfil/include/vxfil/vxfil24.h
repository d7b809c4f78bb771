// The vx24 container: a versioned header, channel records and interleaved
// 32-bit samples.
#pragma once

#include <cstddef>

#include "vxfil/vxfil_base.h"

namespace VxFil {

class VXFIL24 : public Vxfil_Base {
  public:
    // Reads the whole file; throws std::runtime_error on a damaged file.
    explicit VXFIL24(const char *filename);
    // Parses a vx24 file already held in memory (size bytes at bytes); name is
    // only used in messages. Same results and failures as reading the file.
    VXFIL24(const unsigned char *bytes, size_t size, const char *name);
    ORIGIN get_origin() const override { return ORIGIN_VX24; }

  private:
    void parse(const unsigned char *bytes, size_t size);
};

} // namespace VxFil
