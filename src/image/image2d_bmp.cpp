// Image2D: the Windows bitmap reader. Every depth ends as an 8-bit grey
// image: 1 and 4-bit files through their colour table, 8-bit files as their
// raw indices and 24-bit files as one colour channel.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "image2d.h"
#include "image2d_files.h"
#include "image2d_pixel.h"
#include "image_file_bytes.h"
#include "piv_file.h"
#include "piv_messages.h"

using PIV::Guarded;
using namespace PIV::ImageFile;

namespace {

constexpr int64_t kFileHeaderBytes = 14;

struct BmpHeader {
    uint32_t fileSize = 0;
    int64_t dataOffset = 0;
    uint32_t headerSize = 0;
    int32_t width = 0, height = 0;
    uint16_t planes = 0, bitCount = 0;
    uint32_t compression = 0, sizeImage = 0, xResolution = 0, yResolution = 0;
    uint32_t colorsUsed = 0, colorsImportant = 0;
};

// Reads n bytes; what the file no longer holds reads as 0, so a cut header
// ends in the checks of its fields rather than in a read error.
void _readOrZero(std::FILE* file, uint8_t* buffer, size_t n) {
    const size_t got = std::fread(buffer, 1, n, file);
    if (got < n) std::memset(buffer + got, 0, n - got);
}

// False if the magic is not "BM".
bool _readHeader(std::FILE* file, BmpHeader& h) {
    uint8_t head[18];
    _readOrZero(file, head, sizeof head);
    if (head[0] != 'B' || head[1] != 'M') return false;
    h.fileSize = GetLE32(head + 2);
    h.dataOffset = GetLE32s(head + 10);
    h.headerSize = GetLE32(head + 14);
    if (h.headerSize == 40 || h.headerSize == 64) {
        uint8_t info[36];
        _readOrZero(file, info, sizeof info);
        h.width = GetLE32s(info);
        h.height = GetLE32s(info + 4);
        h.planes = GetLE16(info + 8);
        h.bitCount = GetLE16(info + 10);
        h.compression = GetLE32(info + 12);
        h.sizeImage = GetLE32(info + 16);
        h.xResolution = GetLE32(info + 20);
        h.yResolution = GetLE32(info + 24);
        h.colorsUsed = GetLE32(info + 28);
        h.colorsImportant = GetLE32(info + 32);
    } else {
        DebugPrintExt(2, "assuming old BMP format...");
        uint8_t info[8];
        _readOrZero(file, info, sizeof info);
        h.width = GetLE16s(info);
        h.height = GetLE16s(info + 2);
        h.planes = GetLE16(info + 4);
        h.bitCount = GetLE16(info + 6);
    }
    return true;
}

// BT.601-like weights in 1/32 on the blue, green, red order of the table.
uint8_t _grey(const uint8_t* entry) {
    return static_cast<uint8_t>((11 * entry[0] + 16 * entry[1] + 5 * entry[2]) >> 5);
}

}  // namespace

bool Image2D::loadBMP(const char* path, int page) {
    DebugPrintExt(2, "  trying to read BMP image: %s", path ? path : "");
    m_fileName[0] = '\0';
    return Guarded(m_error, "loadBMP()", [&] {
        PIV::FilePtr file = PIV::OpenFile(path, "rb");
        if (!file) {
            m_error.setMessage("loadBMP() - trouble opening file '%s'", path ? path : "");
            throw PIVerror::FILE_OPEN_FAILED;
        }
        std::FILE* f = file.get();
        BmpHeader h;
        if (!_readHeader(f, h)) {
            m_error.setMessage("Not a BMP image file '%s'", path);
            throw PIVerror::INVALID_FILE_CONTENT;
        }
        const int bits = h.bitCount;
        const bool indexed = bits == 1 || bits == 4 || bits == 8;
        const uint64_t colors = !indexed ? 0 : (h.colorsUsed ? h.colorsUsed : 1u << bits);
        int64_t sizeImage = static_cast<int32_t>(h.sizeImage);
        if (sizeImage <= 0) {
            sizeImage = static_cast<int64_t>(h.width) * h.height;
            if (bits == 1) sizeImage /= 8;
        }
        if (DebugLevel() > 2) {
            DebugPrint("\toffset...........%d", static_cast<int>(h.dataOffset));
            DebugPrint("\tbiSize...........%u", h.headerSize);
            DebugPrint("\tbiWidth..........%d", h.width);
            DebugPrint("\tbiHeight.........%d", h.height);
            DebugPrint("\tbiPlanes.........%d", h.planes);
            DebugPrint("\tbiBitCount.......%d", h.bitCount);
            DebugPrint("\tbiCompression....%u", h.compression);
            DebugPrint("\tbiSizeImage......%d", static_cast<int>(sizeImage));
            DebugPrint("\tbiXPelsPerMeter..%u", h.xResolution);
            DebugPrint("\tbiYPelsPerMeter..%u", h.yResolution);
            DebugPrint("\tbiClrUsed........%u", h.colorsUsed);
            DebugPrint("\tbiClrImportant...%u", h.colorsImportant);
        }
        if (!(bits == 1 || bits == 4 || bits == 8 || bits == 24) || h.compression != 0) {
            m_error.setMessage(
                "loadBMP(%s) - Unsupported image depth (%d-bits) or compressed BMP image file",
                path, bits);
            throw PIVerror::IMAGE_TYPE_UNSUPPORTED;
        }

        // The table is read up to the count the header gives; a count larger
        // than the file ends in the short read.
        std::vector<uint8_t> grey;
        for (uint64_t i = 0; i < colors; i++) {
            uint8_t entry[4];
            if (std::fread(entry, 1, 4, f) != 4) {
                m_error.setMessage("loadBMP(%s) - failure reading color entry at index %d of %d",
                                   path, static_cast<int>(i), static_cast<int>(colors));
                throw PIVerror::FILE_READ_FAILED;
            }
            grey.push_back(_grey(entry));
        }

        int64_t w = h.width, ht = h.height;
        bool flipRows = true;
        if (ht < 0) {
            m_error.setMessage("loadBMP(%s) - invalid image height %d (reversing sign)", path,
                               h.height);
            ht = -ht;
            flipRows = false;
        }
        if (w < 0) {
            m_error.setMessage("loadBMP(%s) - invalid image width %d (reversing sign)", path,
                               h.width);
            w = -w;
        }
        const int64_t expected = bits == 1 ? w * ht / 8 : w * ht;
        if (sizeImage != expected)
            m_error.setMessage("loadBMP(%s) - image size mismatch (%d x %d) != %d", path,
                               static_cast<int>(w), static_cast<int>(ht),
                               static_cast<int>(sizeImage));
        int64_t offset = h.dataOffset;
        if (offset < 0 || offset > w * ht + static_cast<int64_t>(h.headerSize)) {
            if (std::fseek(f, static_cast<long>(h.headerSize) + kFileHeaderBytes, SEEK_SET) != 0) {
                m_error.setMessage("fseek() failure #2 in file '%s'", path);
                throw PIVerror::FILE_ACCESS_ERROR;
            }
            offset = static_cast<int64_t>(h.headerSize) + kFileHeaderBytes;
        } else if (std::fseek(f, static_cast<long>(offset), SEEK_SET) != 0) {
            m_error.setMessage("fseek() failure #1 in file '%s'", path);
            throw PIVerror::FILE_ACCESS_ERROR;
        }
        const uint64_t available = BytesFrom(f, offset);
        // 8-bit rows read one by one and 24-bit data load from a file cut
        // short; the other depths need all their bytes.
        const uint64_t uw = static_cast<uint64_t>(w), uh = static_cast<uint64_t>(ht);
        // 1-bit rows take the size the header gives, but never less than
        // one byte for each started group of eight pixels: the image is
        // allocated at a byte per pixel whatever the data.
        const uint64_t declared =
            bits == 1   ? std::max<uint64_t>((uw + 7) / 8 * uh,
                                           static_cast<uint64_t>(std::max<int64_t>(sizeImage, 0)))
            : bits == 4 ? (uw + 7) / 8 * 4 * uh
            : bits == 8 ? uw * uh
                        : 3 * uw * uh;
        if (PIV::FileBounds::RequireOrThrow(m_error, "loadBMP()", path, "pixel data", declared,
                                            available, bits >= 8) == PIV::FileBounds::Fit::SHORT)
            PrintWarning("loadBMP() - '%s' holds %llu of %llu bytes of pixel data", path,
                         static_cast<unsigned long long>(available),
                         static_cast<unsigned long long>(declared));
        PIV::FileBounds::RequirePixelsOrThrow(m_error, "loadBMP()", path, uw, uh);
        allocForFileOrThrow(w, ht, IMAGE_UINT8);
        const uint64_t width = m_width, height = m_height;

        switch (bits) {
            case 1: {
                // Set bits are black unless the table says the first colour
                // is the darker one.
                uint8_t setValue = 0, clearValue = 255;
                if (grey.size() == 2 && grey[0] < grey[1]) {
                    DebugPrintExt(2, " -> image negative required ...");
                    std::swap(setValue, clearValue);
                }
                const uint64_t want = static_cast<uint64_t>(std::max<int64_t>(sizeImage, 0));
                std::vector<uint8_t> data;
                if (want <= available) {
                    data.resize(want);
                    data.resize(std::fread(data.data(), 1, want, f));
                }
                if (data.size() < want || want == 0) {
                    m_error.setMessage("loadBMP() - trouble reading 1-bit BMP from file '%s'",
                                       path);
                    throw PIVerror::FILE_READ_FAILED;
                }
                uint64_t bpl = data.size() / height;
                if (bpl == 0) bpl = width / 8;
                DebugPrintExt(2, " -> %d bytes per line", static_cast<int>(bpl));
                // Pixels of a width that does not fill its last byte stay 0.
                fill(0);
                for (uint64_t r = 0; r < height; r++) {
                    uint8_t* out = scanLine<uint8_t>(height - 1 - r);
                    for (uint64_t i = 0; i < width / 8; i++) {
                        const uint64_t at = r * bpl + i;
                        const uint8_t byte = at < data.size() ? data[at] : 0;
                        for (int k = 0; k < 8; k++)
                            out[8 * i + k] = (byte & (0x80u >> k)) ? setValue : clearValue;
                    }
                }
                break;
            }
            case 4: {
                DebugPrintExt(2, " - reading 4-bit BMP image...");
                const uint64_t rowBytes = (width + 7) / 8 * 4;
                if (rowBytes * height > available) {
                    m_error.setMessage(" - failed reading image data");
                    throw PIVerror::FILE_READ_FAILED;
                }
                std::vector<uint8_t> row(rowBytes);
                for (uint64_t r = 0; r < height; r++) {
                    if (std::fread(row.data(), 1, rowBytes, f) != rowBytes) {
                        m_error.setMessage(" - failed reading image data");
                        throw PIVerror::FILE_READ_FAILED;
                    }
                    uint8_t* out = scanLine<uint8_t>(height - 1 - r);
                    for (uint64_t x = 0; x < width; x++)
                        out[x] = (x % 2 == 0) ? row[x / 2] >> 4 : row[x / 2] & 15;
                }
                // The table applies to the whole block, row padding included.
                uint8_t* p = m_bits;
                for (uint64_t i = 0; i < numBytes(); i++)
                    if (p[i] < grey.size()) p[i] = grey[p[i]];
                break;
            }
            case 8: {
                // The pixels are the indices: PIV cameras write their grey
                // values there and a table, if any, is ignored.
                const uint64_t all = width * height;
                if (static_cast<int64_t>(height * m_bytesPerLine) == sizeImage) {
                    const size_t got = all <= available ? std::fread(m_bits, 1, all, f) : 0;
                    if (got < all) {
                        m_error.setMessage("  read too few bytes (%d) < (%d)",
                                           static_cast<int>(std::min<uint64_t>(available, all)),
                                           static_cast<int>(all));
                        throw PIVerror::FILE_READ_FAILED;
                    }
                } else {
                    DebugPrintExt(2, "\t--- reading line by line: bpl=%d w=%d ---",
                                  static_cast<int>(m_bytesPerLine), static_cast<int>(width));
                    // Rows of the file that are not there keep the pixels
                    // alloc left: zeros for a fresh image.
                    fill(0);
                    for (uint64_t y = 0; y < height; y++)
                        if (std::fread(scanLine<uint8_t>(y), 1, width, f) != width) break;
                }
                break;
            }
            default: {  // 24 bits: rows are taken as unpadded
                const uint64_t all = 3 * width * height;
                const int channel = ((page % 3) + 3) % 3;
                std::vector<uint8_t> data;
                if (all <= available) {
                    data.resize(all);
                    if (std::fread(data.data(), 1, all, f) != all) data.clear();
                }
                if (data.empty()) {
                    // A file cut short leaves the image blank, without an error.
                    fill(0);
                    break;
                }
                for (uint64_t y = 0; y < height; y++) {
                    uint8_t* out = scanLine<uint8_t>(y);
                    const uint8_t* in = data.data() + 3 * y * width + channel;
                    for (uint64_t x = 0; x < width; x++) out[x] = in[3 * x];
                }
                break;
            }
        }
        file.reset();

        // Bottom-up files: the top row of the picture becomes row 0.
        if (bits != 1 && flipRows) {
            std::vector<uint8_t> tmp(m_bytesPerLine);
            for (uint64_t y = 0; y < height / 2; y++) {
                uint8_t* a = scanLine<uint8_t>(y);
                uint8_t* b = scanLine<uint8_t>(height - 1 - y);
                std::memcpy(tmp.data(), a, m_bytesPerLine);
                std::memcpy(a, b, m_bytesPerLine);
                std::memcpy(b, tmp.data(), m_bytesPerLine);
            }
        }
        DebugPrintExt(2, "successfully read BMP from '%s'", path);
        m_fileFormat = PIV::FORMAT_BMP;
        clearOrientation();
        markChanged();
        doStatistics(true);
        setFileName(path);
    });
}

bool PIV::ImageFiles::BmpInfo(const char* path, int* width, int* height) {
    PIV::FilePtr file = PIV::OpenFile(path, "rb");
    BmpHeader h;
    if (!file || !_readHeader(file.get(), h)) return false;
    *width = h.width;
    *height = h.height;
    return true;
}
