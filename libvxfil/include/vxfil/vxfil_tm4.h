// TM4 text recordings: a time column and one column per channel.
#pragma once

#include <string_view>

#include "vxfil/vxfil_base.h"

namespace VxFil {

class VXFIL_TM4 : public Vxfil_Base {
  public:
    // initial_basetime: a precise start time in Unix seconds (0 when unknown),
    // taken only when it lies within 2 s of the first data line's time.
    // A file that cannot be opened yields a recording without samples.
    VXFIL_TM4(const char *filename, double initial_basetime);
    // Parses TM4 text already held in memory; name is only for messages.
    VXFIL_TM4(std::string_view text, const char *name, double initial_basetime);
    ORIGIN get_origin() const override { return ORIGIN_TM4; }

  private:
    void parse(std::string_view text, double initial_basetime);
};

} // namespace VxFil
