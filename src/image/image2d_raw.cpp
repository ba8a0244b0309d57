// Image2D: headerless raw files and frames handed over in memory by a
// camera driver, optionally binned.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "image2d.h"
#include "image2d_pixel.h"
#include "image_file_bytes.h"
#include "piv_file.h"
#include "piv_messages.h"

using PIV::Guarded;

bool Image2D::loadRaw(const char* path, int width, int height, int depthBits, long offset) {
    return Guarded(m_error, "loadRaw()", [&] {
        if (width < 1 || height < 1 || depthBits < 1 || offset < 0) {
            m_error.setMessage("Invalid raw image dimensions: W=%d H=%d D=%d Offset=%d", width,
                               height, depthBits, static_cast<int>(offset));
            throw PIVerror::BAD_IMAGE_SIZE;
        }
        PIV::FileBounds::RequirePixelsOrThrow(m_error, "loadRaw()", path,
                                              static_cast<uint64_t>(width),
                                              static_cast<uint64_t>(height));
        const uint64_t count = static_cast<uint64_t>(width) * static_cast<uint64_t>(height) *
                               static_cast<uint64_t>(depthBits) / 8;
        PIV::FilePtr file = PIV::OpenFile(path, "rb");
        if (!file) {
            m_error.setMessage("Trouble opening raw image file: %s", path ? path : "");
            throw PIVerror::FILE_OPEN_FAILED;
        }
        // The size test leaves the offset out; a file that is long enough
        // overall but not behind the offset fails in the read.
        const int64_t size = PIV::ImageFile::FileSize(file.get());
        if (size >= 0 && static_cast<uint64_t>(size) < count) {
            m_error.setMessage("Raw image file smaller than requested size!");
            throw PIVerror::FILE_SIZE_INVALID;
        }
        ImageType type = IMAGE_UNDEFINED;
        switch (depthBits) {
            case 8:
                type = IMAGE_UINT8;
                break;
            case 16:
                type = IMAGE_UINT16;
                break;
            case 32:
                type = IMAGE_UINT32;
                break;
            default:
                throw PIVerror::IMAGE_TYPE_UNSUPPORTED;
        }
        allocForFileOrThrow(width, height, type);
        if (std::fseek(file.get(), offset, SEEK_SET) != 0) {
            m_error.setMessage("fseek() failure in file: %s", path);
            throw PIVerror::FILE_ACCESS_ERROR;
        }
        const uint64_t rowBytes = m_width * static_cast<uint64_t>(bytesPerPixel());
        uint64_t got = 0;
        if (rowBytes == m_bytesPerLine) {
            got = std::fread(m_bits, 1, count, file.get());
        } else {
            for (uint64_t y = 0; y < m_height; y++) {
                const size_t n = std::fread(scanLine<uint8_t>(y), 1, rowBytes, file.get());
                got += n;
                if (n != rowBytes) break;
            }
        }
        if (got < count) {
            m_error.setMessage(
                "loadRaw() - read error with image: %s\n - Can't read image! (Read %d of %d bytes)",
                path, static_cast<int>(got), static_cast<int>(count));
            throw PIVerror::FILE_READ_FAILED;
        }
        file.reset();
        markChanged();
        doStatistics(true);
        setFileName(path);
    });
}

bool Image2D::loadFromBuffer(const void* bytes, int width, int height, int depthBits, int stride,
                             bool isFloat, int binning) {
    return Guarded(m_error, "loadFromBuffer()", [&] {
        if (!bytes || width < 2 || height < 2) throw PIVerror::BAD_IMAGE_SIZE;
        if (stride < 0) throw PIVerror::BAD_IMAGE_SIZE;
        const uint64_t srcStride =
            stride != 0 ? static_cast<uint64_t>(stride)
                        : static_cast<uint64_t>(width) * static_cast<uint64_t>(depthBits) / 8;
        ImageType type = IMAGE_UNDEFINED;
        if (isFloat)
            type = IMAGE_FLOAT;
        else if (depthBits == 16)
            type = IMAGE_UINT16;
        else if (depthBits == 32)
            type = IMAGE_UINT32;
        else if (depthBits == 8)
            type = IMAGE_UINT8;
        else
            throw PIVerror::IMAGE_TYPE_UNSUPPORTED;

        if (binning < 2) {
            allocOrThrow(width, height, type, 0);
            const uint8_t* src = static_cast<const uint8_t*>(bytes);
            if (srcStride == m_bytesPerLine) {
                std::memcpy(m_bits, src, m_bytesPerLine * m_height);
            } else {
                // Row padding stays zero: comparisons see it.
                const uint64_t n =
                    std::min<uint64_t>(srcStride, m_width * static_cast<uint64_t>(bytesPerPixel()));
                for (uint64_t y = 0; y < m_height; y++)
                    std::memcpy(scanLine<uint8_t>(y), src + y * srcStride, n);
            }
        } else if (type == IMAGE_UINT16) {
            if (!loadFromBufferUShort(static_cast<const uint16_t*>(bytes), width, height, binning))
                throw PIVerror::OPERATION_FAILED;
        } else {
            DebugPrint("loadFromBuffer() - unsupported image depth %d", depthBits);
            throw PIVerror::IMAGE_TYPE_UNSUPPORTED;
        }
        markChanged();
    });
}

// Binning sums without dividing: a camera's 12-bit values summed over 2x2
// still fit 16 bits, and the sum keeps the full signal.
bool Image2D::loadFromBufferUShort(const uint16_t* words, int width, int height, int binning) {
    return Guarded(m_error, "loadFromBufferUShort()", [&] {
        if (!words || width < 1 || height < 1 || binning < 1) throw PIVerror::BAD_IMAGE_SIZE;
        const int bin = std::min(binning, 4);
        const int newW = width / bin, newH = height / bin;
        if (newW < 1 || newH < 1) throw PIVerror::IMAGE_SIZE_MISMATCH;
        const int factor = std::max(height / newH, width / newW);
        if (factor < 1 || factor > 4) {
            m_error.setMessage("loadFrom16BitBuffer() - unsupported binning factor %d", factor);
            throw PIVerror::OPERATION_FAILED;
        }
        // Every output pixel needs its whole block inside the buffer.
        if (static_cast<int64_t>(newW) * factor > width ||
            static_cast<int64_t>(newH) * factor > height)
            throw PIVerror::IMAGE_SIZE_MISMATCH;
        allocOrThrow(newW, newH, IMAGE_UINT16, 0);
        const uint64_t w = static_cast<uint64_t>(width);
        for (uint64_t y = 0; y < m_height; y++) {
            uint16_t* out = scanLine<uint16_t>(y);
            for (uint64_t x = 0; x < m_width; x++) {
                uint32_t sum = 0;
                for (uint64_t j = 0; j < static_cast<uint64_t>(factor); j++) {
                    const uint16_t* in = words + (y * factor + j) * w + x * factor;
                    for (int i = 0; i < factor; i++) sum += in[i];
                }
                out[x] = static_cast<uint16_t>(sum);
            }
        }
        markChanged();
    });
}
