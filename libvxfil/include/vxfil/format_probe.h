// The decision of the recording format probe, over the first bytes of a file.
#pragma once

#include <cstddef>

namespace VxFil {

// Reader class that the first bytes of a file call for. NONE: no reader (no
// line end within the probed bytes).
enum class probe_kind { NONE, VX24, VX16, TM4 };

// Largest number of leading bytes that the probe looks at.
inline constexpr size_t probe_buffer_size = 3072;

// buf holds the first n bytes of the file (n may exceed probe_buffer_size;
// the rest is ignored). Fewer than 5 bytes means the first read failed. With
// vxfil_debug set, writes the trace line of the probe that decided.
probe_kind probe_format(const unsigned char *buf, size_t n);

} // namespace VxFil
