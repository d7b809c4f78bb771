// The kind of a file by its first bytes, as the description of a recording
// names it: one of the family's formats, or a file of no format of the family.
#pragma once

#include <cstddef>
#include <string>

#include "vxfil/legacy_reading.h"

namespace VxFil {

// "vx24" (the magic), "tm4" (a TM4 data line, after a comment line or
// without one), "vx16-text" (a comment line followed by a text block line of
// three numbers at least), "vx16-binary" (a comment line followed by binary
// words) or "not-a-recording" (no magic, no comment line of a comment-headed
// recording, no TM4 data line).
std::string kind_by_first_bytes(const unsigned char *bytes, std::size_t n);

// The same with first-generation reading: when it is on, a first line that
// names no kind of its own ("Tidserier 18 2" of the oldest recorders) still
// heads a comment-headed recording when the reader choice takes it for one.
std::string kind_by_first_bytes(const unsigned char *bytes, std::size_t n, const legacy_options &options);

// Block length named by a comment-headed recording's comment line ("!S512..."
// or "!U128..."), or 0 when it names none.
std::size_t comment_block_length(const unsigned char *bytes, std::size_t n);

} // namespace VxFil
