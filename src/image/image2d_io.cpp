// Image2D: dispatch of loading and saving by file format.
#include <algorithm>

#include "image2d.h"
#include "image2d_convert_simd.h"
#include "image2d_files.h"
#include "image2d_pixel.h"
#include "image2d_stats_simd.h"
#include "image_format.h"
#include "piv_messages.h"

int Image2D::getFileFormat(const char* path) {
    return PIV::GetFileFormat(path);
}

bool Image2D::load(const char* path, int page) {
    DebugPrintExt(1, "Image2D::load() - loading image '%s' - page%d", path ? path : "", page);
    const int format = getFileFormat(path);
    m_wasSplit = false;
    m_currentPage = 0;
    m_fileFrames = 0;
    m_fileName[0] = '\0';
    m_widenedFrom = IMAGE_UNDEFINED;

    bool ok = false;
    switch (format) {
        case PIV::FORMAT_BMP:
            ok = loadBMP(path, page);
            break;
        case PIV::FORMAT_TIFF:
            ok = loadTIFF(path, page);
            break;
        case PIV::FORMAT_PCO:
            ok = loadPCO(path, page);
            break;
        case PIV::FORMAT_PGM:
            ok = loadPGM(path);
            break;
        case PIV::FORMAT_LAVISION_0:
        case PIV::FORMAT_LAVISION_1:
        case PIV::FORMAT_LAVISION_2:
        case PIV::FORMAT_LAVISION_3:
        case PIV::FORMAT_LAVISION_4:
        case PIV::FORMAT_LAVISION_5:
        case PIV::FORMAT_LAVISION_6:
        case PIV::FORMAT_LAVISION_7:
            ok = loadLavVC7(path, page);
            break;
        case PIV::FORMAT_NOT_FOUND:
            m_error.handleError(PIVerror::FILE_NOT_FOUND, "load() ");
            break;
        default:
            // B32, JPEG and PNG are recognised but have no reader.
            DebugPrintExt(2, "Image2D::load() - no reader for file format %d", format);
            m_error.handleError(PIVerror::IMAGE_TYPE_UNSUPPORTED, "load() ");
            break;
    }
    if (ok) {
        m_fileFrames = std::max(m_fileFrames, 1);
        clearOrientation();
        // Most readers have just taken the statistics; a second pass over
        // the frame would change nothing.
        doStatistics(false);
        setFileName(path);
    }
    m_changed = ok;
    return ok;
}

bool Image2D::loadAsFloat(const char* path, int page) {
    m_readAsFloat = true;
    bool ok = false;
    {
        // Whatever leaves load(), later loads read as stored again.
        struct Reset {
            bool& flag;
            ~Reset() { flag = false; }
        } reset{m_readAsFloat};
        ok = load(path, page);
    }
    const ImageType stored = m_widenedFrom;
    m_widenedFrom = IMAGE_UNDEFINED;
    if (stored == IMAGE_UNDEFINED) {
        // A reader that cannot widen: the conversion follows, as it would
        // after load(). Its failure is the caller's to see in the type.
        if (ok && !isFloat()) toFloat();
        return ok;
    }
    if (!ok) {
        // What a failed reader had read goes back to the type of the file.
        try {
            convertOrThrow(stored, true);
        } catch (PIVerror::ErrorType) {
            // Without the memory for it the frame stays float.
        }
        m_changed = false;
        return false;
    }
    // What toFloat() leaves: the statistics stay those of the stored
    // pixels until asked for again.
    m_fileFormat = PIV::FORMAT_UNKNOWN;
    markChanged();
    return true;
}

template <typename T>
void Image2D::widenStoredRow(const T* row, uint64_t y, PIV::Simd::RowMoments& m) {
    static_assert(sizeof(T) <= 2, "only 8 and 16-bit pixels widen exactly");
    if (y == 0) m.intMin = m.intMax = row[0];
    PIV::Simd::AddRow(row, m_width, m);
    PIV::Simd::WidenRow(row, m_width, scanLine<float>(y));
}
template void Image2D::widenStoredRow(const uint8_t*, uint64_t, PIV::Simd::RowMoments&);
template void Image2D::widenStoredRow(const uint16_t*, uint64_t, PIV::Simd::RowMoments&);

void Image2D::storeWidenedStatistics(const PIV::Simd::RowMoments& m) {
    storeStatistics(static_cast<double>(m.intSum), static_cast<double>(m.intSquares), m.intMin,
                    m.intMax);
}

// A writer that fails, or a format without one, falls back to the writer
// of the image's depth, so a save never stops at a format it was not asked for.
bool Image2D::save(const char* path, int format) const {
    DebugPrint("saving image to '%s'", path ? path : "");
    if (isNull()) {
        m_error.handleError(PIVerror::IMAGE_IS_NULL, "save()");
        return false;
    }
    // A PGM that cannot be written is a failure of its own: falling back to
    // another format under a .pgm name would only hide it.
    if (format == PIV::FORMAT_PGM) return savePGM(path);

    switch (format) {
        case PIV::FORMAT_TIFF:
            if (saveTIFF(path)) return true;
            break;
        case PIV::FORMAT_PCO:
            if (savePCO(path)) return true;
            break;
        case PIV::FORMAT_LAVISION_0:
        case PIV::FORMAT_LAVISION_3:
            if (saveLavImg(path)) return true;
            break;
        default:
            break;
    }
    if (m_type == IMAGE_UINT16) return savePCO(path);
    if (m_type == IMAGE_UINT8) return saveTIFF(path);
    if (m_type == IMAGE_FLOAT) return saveLavImg(path);
    m_error.setMessage("save() - %d-bit image storage not available", bitsPerPixel());
    m_error.handleError(PIVerror::IMAGE_TYPE_UNSUPPORTED, "save()");
    return false;
}

bool Image2D::GetImageInfo(const char* path, int* format, ImageType* type, int* width, int* height,
                           int* frames) {
    int f = 0, w = 1, h = 1, n = 1;
    ImageType t = IMAGE_UNDEFINED;
    // Probing many files must not fill the log with libtiff's remarks.
    PIV::ImageFiles::QuietTiffWarnings();
    f = PIV::GetFileFormat(path);
    bool ok = true;
    switch (f) {
        case PIV::FORMAT_B32:
            t = IMAGE_UINT32;
            break;
        case PIV::FORMAT_BMP:
            ok = PIV::ImageFiles::BmpInfo(path, &w, &h);
            t = IMAGE_UINT8;
            break;
        case PIV::FORMAT_TIFF:
            ok = PIV::ImageFiles::TiffInfo(path, &t, &w, &h, &n);
            break;
        case PIV::FORMAT_PCO:
            // True even when the header cannot be read, with a size of 0.
            if (getPCOImageSizeInfo(path, w, h)) t = IMAGE_UINT16;
            break;
        case PIV::FORMAT_LAVISION_0:
        case PIV::FORMAT_LAVISION_1:
        case PIV::FORMAT_LAVISION_2:
        case PIV::FORMAT_LAVISION_3:
        case PIV::FORMAT_LAVISION_4:
        case PIV::FORMAT_LAVISION_5:
        case PIV::FORMAT_LAVISION_6:
        case PIV::FORMAT_LAVISION_7:
            ok = PIV::ImageFiles::LaVisionInfo(path, &w, &h, &n);
            break;
        default:
            n = 0;
            ok = false;
            break;
    }
    if (format) *format = f;
    if (type) *type = t;
    if (width) *width = w;
    if (height) *height = h;
    if (frames) *frames = n;
    return ok;
}
