// Trace lines of the recording library, written to standard error only while
// the debug switch vxfil_debug is on.
#pragma once

#include <iostream>

#include "vxfil/debug.h"

namespace VxFil {

constexpr const char* trace_base_name(const char* path) {
    const char* base = path;
    for (const char* p = path; *p; ++p)
        if (*p == '/' || *p == '\\') base = p + 1;
    return base;
}

} // namespace VxFil

// Comment-headed readers and the probe: "Debug:<source>(<line>) " and the message.
#define VX_TRACE(msg)                                                                                        \
    do {                                                                                                     \
        if (::VxFil::vxfil_debug)                                                                            \
            std::cerr << "Debug:" << ::VxFil::trace_base_name(__FILE__) << "(" << __LINE__ << ") " << msg;  \
    } while (0)

// vx16 adapter: "<source>:<line>:: debug: " and the message.
#define VX16_DEBUG(msg)                                                                                      \
    do {                                                                                                     \
        if (::VxFil::vxfil_debug)                                                                            \
            std::cerr << ::VxFil::trace_base_name(__FILE__) << ":" << __LINE__ << ":: debug: " << msg;       \
    } while (0)
