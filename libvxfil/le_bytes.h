// Little-endian field decoding from a byte buffer, independent of the host's
// byte order and alignment.
#pragma once

#include <bit>
#include <cstdint>

#include "vxfil/vxfil_base.h"

namespace VxFil {

inline uint16_t le16(const unsigned char *p) {
    return static_cast<uint16_t>(p[0] | (p[1] << 8));
}

inline uint32_t le32(const unsigned char *p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

inline uint64_t le64(const unsigned char *p) {
    return static_cast<uint64_t>(le32(p)) | static_cast<uint64_t>(le32(p + 4)) << 32;
}

inline double le_double(const unsigned char *p) {
    return std::bit_cast<double>(le64(p));
}

inline magic le_magic(const unsigned char *p) {
    return magic{p[0], p[1], p[2], p[3]};
}

} // namespace VxFil
