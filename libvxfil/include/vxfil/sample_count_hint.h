// How many samples per channel a recording will give, judged from its size
// and first bytes without reading it, so that a run over many files can
// reserve its series once.
#pragma once

#include <cstddef>

namespace VxFil {

// An estimate meant for reserving memory, never for indexing: exact for a
// whole vx24 file (its header gives the channel count and where the samples
// begin), and otherwise an upper bound from the file size at two bytes per
// value and three channels, the most compact form of the other formats.
// 0 for a file that cannot be opened.
std::size_t sample_count_hint(const char *path);

} // namespace VxFil
