// The recording library's trace switch.
#pragma once

namespace VxFil {
// When nonzero, the library writes trace lines to standard error.
extern int vxfil_debug;
} // namespace VxFil
