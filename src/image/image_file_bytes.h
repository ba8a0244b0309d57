// Little-endian fields of image file headers and the size of an open file:
// the byte-level helpers every format reader and writer shares.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "piv_file_bounds.h"

// Pixel blocks are read and written as they stand in memory.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "the image file readers assume a little-endian host");

namespace PIV {
namespace ImageFile {

inline uint16_t GetLE16(const uint8_t* p) {
    return static_cast<uint16_t>(p[0] | (p[1] << 8));
}
inline uint32_t GetLE32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
           (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}
inline int16_t GetLE16s(const uint8_t* p) {
    return static_cast<int16_t>(GetLE16(p));
}
inline int32_t GetLE32s(const uint8_t* p) {
    return static_cast<int32_t>(GetLE32(p));
}
inline uint64_t GetLE64(const uint8_t* p) {
    return static_cast<uint64_t>(GetLE32(p)) | (static_cast<uint64_t>(GetLE32(p + 4)) << 32);
}
inline float GetLEFloat(const uint8_t* p) {
    const uint32_t bits = GetLE32(p);
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
}

inline void PutLE16(uint8_t* p, uint32_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}
inline void PutLE32(uint8_t* p, uint32_t v) {
    PutLE16(p, v);
    PutLE16(p + 2, v >> 16);
}

// The file-size helpers are shared with every other reader.
using PIV::FileBounds::BytesFrom;
inline int64_t FileSize(std::FILE* file) {
    return PIV::FileBounds::SizeOf(file);
}

}  // namespace ImageFile
}  // namespace PIV
