// Image2D: LaVision image files, read through the buffer reader of
// lavision_reader.h, and the simple IMG writer.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "image2d.h"
#include "image2d_files.h"
#include "image2d_pixel.h"
#include "image_file_bytes.h"
#include "lavision_reader.h"
#include "piv_file.h"
#include "piv_messages.h"

using PIV::Guarded;
using namespace PIV::ImageFile;

namespace {

constexpr size_t kHeaderBytes = 256;

// The reader's buffer freed on every path.
struct BufferHolder {
    IMX_BUFFER_TYPE buffer{};
    ~BufferHolder() { DestroyBuffer(&buffer); }
};

const char* _formatText(int format) {
    switch (format) {
        case -5:
            return " Type: double Image (%d frames)";
        case -4:
            return " Type: word Image (%d frames)";
        case -3:
            return " Type: float Image (%d frames)";
        case -2:
            return " Type: byte Image (%d frames)";
        case 0:
            return " Type: 8-bit image (%d frames)";
        case 1:
            return " Type: 2D-PIV-Vector (header, 4x(Vx,Vy))";
        case 2:
            return " Type: 2D-Vector (Vx,Vy)";
        case 3:
            return " Type: 2D-PIV+p.ratio (header, 4x(Vx,Vy), peakratio)";
        case 4:
            return " Type: 3D-Vector (Vx,Vy,Vz)";
        case 5:
            return " Type: 3D-Vector+p.ratio (header, 4x(Vx,Vy,Vz), peakratio)";
        default:
            return nullptr;
    }
}

void _logScale(const char* format, const IMX_BUFFER_SCALE_TYPE& s) {
    DebugPrintExt(2, format, static_cast<double>(s.factor), static_cast<double>(s.offset), s.unit,
                  s.description);
}

}  // namespace

bool Image2D::loadLavVC7(const char* path, int page) {
    bool isImage = true;
    const bool ok = Guarded(m_error, "loadLavVC7()", [&] {
        BufferHolder holder;
        IMX_BUFFER_TYPE& b = holder.buffer;
        std::string refusal;
        const int rc = ReadIM7(path, &b, nullptr, &refusal);
        if (rc != IMREAD_ERR_NO) {
            if (!refusal.empty())
                m_error.setMessage("loadLavVC7() - %s", refusal.c_str());
            else
                m_error.setMessage("loadLavVC7() - trouble reading '%s'!", path ? path : "");
            // A refused buffer is one beyond the pixel limit.
            throw rc == IMREAD_ERR_MEMORY && !refusal.empty() ? PIVerror::DATA_TOO_LARGE
                                                              : PIVerror::FILE_READ_FAILED;
        }
        DebugPrintExt(2, "File-Info: '%s'\n Size: %d x %d x %d x %d  (type=%d)", path, b.nx, b.ny,
                      b.nz, b.nf, b.format);
        if (const char* text = _formatText(b.format)) DebugPrintExt(2, text, b.nf);
        _logScale("X-Scale: %f * i + %f %s (%s)", b.scaleX);
        _logScale("Y-Scale: %f * j + %f %s (%s)", b.scaleY);
        _logScale("Z-Scale: %f * k + %f %s (%s)", b.scaleZ);
        _logScale("I-Scale: %f * t + %f %s (%s)", b.scaleI);
        if (b.format != BUFFER_FORMAT_WORD && b.format != BUFFER_FORMAT_FLOAT) {
            DebugPrintExt(1, " Not an image / unsupported format");
            isImage = false;
            return;
        }
        // Frames stand one above the other; planes in z beyond the first
        // of each frame are not shown.
        uint64_t height = static_cast<uint64_t>(b.ny) * static_cast<uint64_t>(b.nf);
        uint64_t firstRow = 0;
        m_currentPage = 0;
        if (!splitDoubleImage(height, firstRow, page)) {
            m_error.setMessage(
                "loadLavVC7 - possible problem in double image \n   Image can not "
                "be split since height is odd (h=%d)",
                static_cast<int>(height));
            throw PIVerror::OPERATION_FAILED;
        }
        if (firstRow) DebugPrintExt(1, " offset=%d", static_cast<int>(firstRow));
        m_fileFrames = std::max(b.nf, m_currentPage != 0 ? 2 : 1);
        const bool isFloat = b.format == BUFFER_FORMAT_FLOAT;
        allocForFileOrThrow(b.nx, static_cast<int64_t>(height),
                            isFloat ? IMAGE_FLOAT : IMAGE_UINT16);
        for (uint64_t y = 0; y < m_height; y++) {
            uint64_t bytes = 0;
            const void* row = Buffer_GetRowAddrAndSize(&b, static_cast<int>(firstRow + y), &bytes);
            if (!row) throw PIVerror::INTERNAL_ERROR;
            std::memcpy(scanLine<uint8_t>(y), row, bytes);
        }
        clearOrientation();
        markChanged();
        doStatistics(true);
        setFileName(path);
    });
    return ok && isImage;
}

bool Image2D::saveLavImg(const char* path) const {
    return Guarded(m_error, "saveLavImg()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        if (!path || !*path) throw PIVerror::BAD_FILE_NAME;
        PIV::TempFile temp(path);
        if (!temp.file()) {
            m_error.setMessage("LaVision-Image file creation error '%s'", path);
            throw PIVerror::FILE_CREATE_FAILED;
        }
        uint8_t h[kHeaderBytes] = {};
        PutLE16(h, m_type == IMAGE_FLOAT ? 20 : 18);
        PutLE16(h + 10, m_height >= 32768 ? 0xFFFF : static_cast<uint32_t>(m_height));
        PutLE16(h + 12, m_width >= 32768 ? 0xFFFF : static_cast<uint32_t>(m_width));
        std::memcpy(h + 20, "img", 3);
        PutLE32(h + 228, static_cast<uint32_t>(m_height));
        PutLE32(h + 232, static_cast<uint32_t>(m_width));
        PutLE32(h + 236, 1);
        if (std::fwrite(h, 1, sizeof h, temp.file()) != sizeof h) {
            m_error.setMessage("saveLavImg() - save error with image '%s' - can't store header!",
                               path);
            throw PIVerror::FILE_WRITE_FAILED;
        }
        // Types other than words and floats are written as they are stored,
        // under a header that calls them words.
        const uint64_t rowBytes = m_width * static_cast<uint64_t>(bytesPerPixel());
        uint64_t wrote = 0;
        if (m_pixelsPerLine == m_width) {
            wrote = std::fwrite(m_bits, 1, numBytes(), temp.file());
        } else {
            for (uint64_t y = 0; y < m_height; y++) {
                const size_t n = std::fwrite(scanLine<uint8_t>(y), 1, rowBytes, temp.file());
                wrote += n;
                if (n != rowBytes) break;
            }
        }
        const uint64_t want = rowBytes * m_height;
        if (wrote != want || !temp.commit(path)) {
            m_error.setMessage(
                "saveLavImg() - save error with image '%s' (only wrote %d of %d "
                "bytes)",
                path, static_cast<int>(wrote), static_cast<int>(want));
            throw PIVerror::FILE_WRITE_FAILED;
        }
    });
}

bool PIV::ImageFiles::LaVisionInfo(const char* path, int* width, int* height, int* frames) {
    PIV::FilePtr file = PIV::OpenFile(path, "rb");
    uint8_t h[kHeaderBytes];
    if (!file || std::fread(h, 1, sizeof h, file.get()) != sizeof h) return false;
    const int version = GetLE16s(h);
    if (version >= 18 && version <= 23) {
        const int sub = h[33];
        *frames = sub >= 54 && sub <= 99 ? GetLE16s(h + 18) : 1;
        *width = GetLE16(h + 12);
        *height = GetLE16(h + 10);
        if (*width >= 65535) *width = GetLE32s(h + 232);
        if (*height >= 65535) *height = GetLE32s(h + 228);
    } else {
        *width = GetLE32s(h + 8);
        *height = GetLE32s(h + 12);
        *frames = GetLE32s(h + 20);
    }
    DebugPrintExt(2,
                  "GetImageInfo() - LaVision image - header version: %d    pack type: %d\n   "
                  "w=%d  h=%d  d=%d  nf=%d",
                  version, GetLE16s(h + 2), *width, *height, 1, *frames);
    return true;
}
