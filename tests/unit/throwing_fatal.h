// Makes the fatal end of the recording library throw instead of ending the
// process, for the lifetime of the object.
#pragma once

#include "vxfil/fatal.h"

struct throwing_fatal {
    VxFil::fatal_handler previous = VxFil::set_fatal_handler(VxFil::throwing_fatal_handler);
    ~throwing_fatal() { VxFil::set_fatal_handler(previous); }
};
