// Image2D: PCO b16 files, 16-bit frames behind a short little-endian header.
// A double image holds the two frames of a frame-straddling camera one above
// the other; loading can keep either half.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "image2d.h"
#include "image2d_pixel.h"
#include "image2d_stats_simd.h"
#include "image_file_bytes.h"
#include "piv_file.h"
#include "piv_messages.h"

using PIV::Guarded;
using namespace PIV::ImageFile;

namespace {

constexpr size_t kHeaderRead = 128;
constexpr uint32_t kSavedHeaderBytes = 24;

struct PcoHeader {
    int64_t fileSize = 0, headerSize = 0, width = 0, height = 0, extended = 0;
};

// The fixed part of the header; raises with the loader's messages.
PcoHeader _readHeader(std::FILE* file, const char* path, PIVerror& error) {
    uint8_t head[kHeaderRead];
    const size_t got = std::fread(head, 1, sizeof head, file);
    if (got < sizeof head) {
        error.setMessage("Read error with Image: %s  - Can't read header! (Read %d of %d bytes)",
                         path, static_cast<int>(got), static_cast<int>(sizeof head));
        throw PIVerror::FILE_READ_FAILED;
    }
    if (std::memcmp(head, "PCO-", 4) != 0) {
        error.setMessage("Read error with image '%s' - Not a PCO-image!", path);
        throw PIVerror::INVALID_FILE_CONTENT;
    }
    PcoHeader h;
    h.fileSize = GetLE32s(head + 4);
    h.headerSize = GetLE32s(head + 8);
    h.width = GetLE32s(head + 12);
    h.height = GetLE32s(head + 16);
    h.extended = GetLE32s(head + 20);
    return h;
}

}  // namespace

// Page 1 or split mode 1 keeps the upper half of a double image, page 2 or
// mode 2 the lower one. False for an odd height, which cannot be split.
bool Image2D::splitDoubleImage(uint64_t& height, uint64_t& firstRow, int page) {
    firstRow = 0;
    if (page < 1 && m_pcoSplitMode == PCO_SPLIT_NONE) return true;
    m_currentPage = 1;
    if (height % 2 != 0) return false;
    height /= 2;
    if (page >= 2 || m_pcoSplitMode == PCO_SPLIT_SECOND) {
        m_currentPage = 2;
        m_pcoSplitMode = PCO_SPLIT_SECOND;
        firstRow = height;
    } else {
        m_pcoSplitMode = PCO_SPLIT_FIRST;
    }
    return true;
}

bool Image2D::loadPCO(const char* path, int page) {
    m_wasSplit = false;
    m_currentPage = 0;
    return Guarded(m_error, "loadPCO()", [&] {
        PIV::FilePtr file = PIV::OpenFile(path, "rb");
        if (!file) {
            m_error.setMessage("loadPCO() - trouble opening file '%s'", path ? path : "");
            throw PIVerror::FILE_OPEN_FAILED;
        }
        std::FILE* f = file.get();
        const PcoHeader h = _readHeader(f, path, m_error);
        if (h.extended != 0) {
            // Comments behind the fixed header: read to prove they are there.
            const uint64_t n = static_cast<uint64_t>(std::max<int64_t>(h.headerSize, 0));
            uint8_t skip[4096];
            uint64_t done = 0;
            while (done < n) {
                const size_t want = static_cast<size_t>(std::min<uint64_t>(sizeof skip, n - done));
                if (std::fread(skip, 1, want, f) != want) break;
                done += want;
            }
            if (done < n) {
                m_error.setMessage(
                    "Read error with Image '%s' - Can't read comments,  Extended Hdr=%d", path,
                    static_cast<int>(h.extended));
                throw PIVerror::FILE_READ_FAILED;
            }
        }
        // Writers disagree on the header size; the pixels are the last 2wh
        // bytes of the stated file size whenever the numbers do not add up.
        // Sizes that are not positive count as none here; the allocation reports them.
        const int64_t pixelBytes = h.width > 0 && h.height > 0 ? 2 * h.width * h.height : 0;
        int64_t offset = h.headerSize;
        if (h.headerSize + pixelBytes != h.fileSize) offset = h.fileSize - pixelBytes;

        uint64_t height = h.height > 0 ? static_cast<uint64_t>(h.height) : 0, firstRow = 0;
        if (!splitDoubleImage(height, firstRow, page)) {
            m_error.setMessage(
                "Possible problem in PCO-double image '%s'\nImage can not be "
                "split since height is odd (h=%d)",
                path, static_cast<int>(height));
            throw PIVerror::BAD_DIMENSIONS;
        }
        m_wasSplit = m_currentPage != 0;
        m_fileFrames = m_wasSplit ? 2 : 1;
        offset += 2 * h.width * static_cast<int64_t>(firstRow);
        if (h.width <= 0 || height == 0)
            allocForFileOrThrow(h.width, static_cast<int64_t>(height), IMAGE_UINT16);
        // A frame cut short fails in any case, so the whole of it must be
        // there before its block is allocated; pixels said to start before
        // the file can be behind no more than the whole file.
        const uint64_t available = BytesFrom(f, std::max<int64_t>(offset, 0));
        PIV::FileBounds::RequireOrThrow(m_error, "loadPCO()", path, "pixel data",
                                        2 * static_cast<uint64_t>(h.width) * height, available,
                                        false);
        PIV::FileBounds::RequirePixelsOrThrow(m_error, "loadPCO()", path,
                                              static_cast<uint64_t>(h.width), height);
        if (offset < 0 || std::fseek(f, static_cast<long>(offset), SEEK_SET) != 0) {
            m_error.setMessage(
                offset < 0 ? "fseek() failure#1 in file '%s'" : "fseek() failure#2 in file '%s'",
                path);
            throw PIVerror::FILE_ACCESS_ERROR;
        }
        // Asked for float, the rows are widened from a buffer of some rows.
        const bool widen = m_readAsFloat;
        allocForFileOrThrow(h.width, static_cast<int64_t>(height),
                            widen ? IMAGE_FLOAT : IMAGE_UINT16);
        if (widen) m_widenedFrom = IMAGE_UINT16;
        const uint64_t want = 2 * m_width * m_height;
        uint64_t got = 0;
        PIV::Simd::RowMoments moments;
        if (want <= available) {
            if (widen) {
                const uint64_t rows = std::max<uint64_t>(1, (uint64_t(256) << 10) / (2 * m_width));
                std::vector<uint16_t> buffer(rows * m_width);
                for (uint64_t y = 0; y < m_height;) {
                    const uint64_t n = std::min(rows, m_height - y);
                    const size_t read = std::fread(buffer.data(), 1, 2 * m_width * n, f);
                    got += read;
                    if (read != 2 * m_width * n) break;
                    for (uint64_t r = 0; r < n; r++, y++)
                        widenStoredRow(buffer.data() + r * m_width, y, moments);
                }
            } else if (m_bytesPerLine == 2 * m_width) {
                got = std::fread(m_bits, 1, want, f);
            } else {
                for (uint64_t y = 0; y < m_height; y++) {
                    const size_t n = std::fread(scanLine<uint8_t>(y), 1, 2 * m_width, f);
                    got += n;
                    if (n != 2 * m_width) break;
                }
            }
        } else {
            got = available;
        }
        file.reset();
        if (got < want) {
            m_error.setMessage(
                "Read error with Image '%s'' - Can't read image! (Read %d of %d bytes)", path,
                static_cast<int>(got), static_cast<int>(want));
            throw PIVerror::FILE_READ_FAILED;
        }
        m_fileFormat = PIV::FORMAT_PCO;
        markChanged();
        if (widen)
            storeWidenedStatistics(moments);
        else
            doStatistics(true);
        setFileName(path);
        clearOrientation();
    });
}

bool Image2D::getPCOImageSizeInfo(const char* path, int& width, int& height) {
    PIVerror error("Image2D::getPCOImageSizeInfo)");
    width = height = 0;
    return Guarded(error, "getPCOImageSizeInfo()", [&] {
        PIV::FilePtr file = PIV::OpenFile(path, "rb");
        if (!file) throw PIVerror::FILE_OPEN_FAILED;
        const PcoHeader h = _readHeader(file.get(), path, error);
        width = static_cast<int>(h.width);
        height = static_cast<int>(h.height);
        if (width <= 0 || height <= 0) throw PIVerror::BAD_IMAGE_SIZE;
    });
}

bool Image2D::savePCO(const char* path) const {
    return Guarded(m_error, "savePCO()", [&] {
        if (!path || !*path) throw PIVerror::BAD_FILE_NAME;
        if (isNull() || m_type != IMAGE_UINT16) throw PIVerror::IMAGE_IS_NULL;
        PIV::TempFile temp(path);
        if (!temp.file()) {
            m_error.setMessage("savePCO() - failed creating file '%s'", path);
            throw PIVerror::FILE_CREATE_FAILED;
        }
        const uint64_t pixelBytes = 2 * m_width * m_height;
        uint8_t head[kSavedHeaderBytes] = {'P', 'C', 'O', '-'};
        PutLE32(head + 4, static_cast<uint32_t>(kSavedHeaderBytes + pixelBytes));
        PutLE32(head + 8, kSavedHeaderBytes);
        PutLE32(head + 12, static_cast<uint32_t>(m_width));
        PutLE32(head + 16, static_cast<uint32_t>(m_height));
        if (std::fwrite(head, 1, sizeof head, temp.file()) != sizeof head) {
            m_error.setMessage("savePCO() - save error with image '%s' - can't store header!",
                               path);
            throw PIVerror::FILE_WRITE_FAILED;
        }
        if (m_bytesPerLine == 2 * m_width) {
            const size_t wrote = std::fwrite(m_bits, 1, pixelBytes, temp.file());
            if (wrote != pixelBytes) {
                m_error.setMessage(
                    "savePCO() - save error with image '%s' (only wrote %d of %d "
                    "bytes)",
                    path, static_cast<int>(wrote), static_cast<int>(pixelBytes));
                throw PIVerror::FILE_WRITE_FAILED;
            }
        } else {
            for (uint64_t y = 0; y < m_height; y++) {
                if (std::fwrite(scanLine<uint8_t>(y), 1, 2 * m_width, temp.file()) != 2 * m_width) {
                    m_error.setMessage(
                        "savePCO() - save error with image '%s' - Can't store "
                        "image! (was writing row %d of %d)",
                        path, static_cast<int>(y), static_cast<int>(m_height));
                    throw PIVerror::FILE_WRITE_FAILED;
                }
            }
        }
        if (!temp.commit(path)) {
            m_error.setMessage(
                "savePCO() - save error with image '%s' - Can't store image! (was "
                "writing row %d of %d)",
                path, static_cast<int>(m_height), static_cast<int>(m_height));
            throw PIVerror::FILE_WRITE_FAILED;
        }
    });
}
