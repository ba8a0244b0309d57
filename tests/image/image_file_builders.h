// Small PCO, IM7 and IMX files built byte by byte, their header fields at the
// offsets the formats give, for the tests of damaged and hostile input.
#pragma once

#include <cstdint>
#include <string>

#include "lavision_reader.h"

namespace image_test {

inline void Put16(std::string& s, size_t at, unsigned v) {
    s[at] = static_cast<char>(v & 0xff);
    s[at + 1] = static_cast<char>((v >> 8) & 0xff);
}
inline void Put32(std::string& s, size_t at, uint32_t v) {
    Put16(s, at, v & 0xffff);
    Put16(s, at + 2, v >> 16);
}

// PCO: "PCO-", file size, header size, width, height, extended flag.
inline std::string PcoHeader(uint32_t fileSize, uint32_t headerSize, uint32_t w, uint32_t h,
                             uint32_t extended = 0) {
    std::string s = "PCO-" + std::string(20, '\0');
    const uint32_t fields[] = {fileSize, headerSize, w, h, extended};
    for (size_t i = 0; i < 5; i++) Put32(s, 4 + 4 * i, fields[i]);
    return s;
}

// A PCO file of w x h 16-bit pixels (the low byte counting up) behind the
// 24-byte header this program writes.
inline std::string Pco(uint32_t w, uint32_t h) {
    std::string s = PcoHeader(24 + 2 * w * h, 24, w, h);
    for (uint32_t i = 0; i < w * h; i++) s += std::string{static_cast<char>(i), 1};
    return s;
}

// An IM7 file (header version 7) of one nx x ny frame of words, its pixel
// data `data` in pack type `pack`.
inline std::string Im7(int pack, const std::string& data, int nx, int ny) {
    std::string s(256, '\0');
    Put16(s, 0, 7);
    Put16(s, 2, static_cast<unsigned>(pack));
    Put16(s, 4, static_cast<unsigned>(BUFFER_FORMAT_WORD));
    Put32(s, 8, static_cast<uint32_t>(nx));
    Put32(s, 12, static_cast<uint32_t>(ny));
    Put32(s, 16, 1);
    Put32(s, 20, 1);
    return s + data;
}

// An IMX file of the older header (`version` 18 to 23) of w x h pixels.
inline std::string Imx(int version, int w, int h, const std::string& data) {
    std::string s(256, '\0');
    Put16(s, 0, static_cast<unsigned>(version));
    Put16(s, 10, static_cast<unsigned>(h));
    Put16(s, 12, static_cast<unsigned>(w));
    return s + data;
}

// Sets a SHORT or LONG field of the first directory of a little-endian
// TIFF file: width 256, length 257, rows per strip 278.
inline void SetTiffField(std::string& tif, uint32_t tag, uint32_t v) {
    auto byte = [&](size_t at) { return static_cast<uint32_t>(static_cast<uint8_t>(tif[at])); };
    const uint32_t ifd = byte(4) | byte(5) << 8 | byte(6) << 16 | byte(7) << 24;
    const uint32_t entries = byte(ifd) | byte(ifd + 1) << 8;
    for (size_t e = ifd + 2; e < ifd + 2 + 12 * entries && e + 12 <= tif.size(); e += 12) {
        const uint32_t type = byte(e + 2) | byte(e + 3) << 8;
        if ((byte(e) | byte(e + 1) << 8) != tag) continue;
        if (type == 3)
            Put16(tif, e + 8, v);
        else
            Put32(tif, e + 8, v);
    }
}
inline void SetTiffSize(std::string& tif, uint32_t width, uint32_t height) {
    SetTiffField(tif, 256, width);
    SetTiffField(tif, 257, height);
}

}  // namespace image_test
