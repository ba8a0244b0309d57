// Image2D: dispatch of loading and saving by file format.
#include "image2d.h"
#include "image2d_pixel.h"
#include "image_format.h"
#include "piv_messages.h"

using PIV::ImagePixel::Guarded;

int Image2D::getFileFormat(const char* path) {
    return PIV::GetFileFormat(path);
}

bool Image2D::load(const char* path, int page) {
    DebugPrintExt(1, "Image2D::load() - loading image '%s' - page%d", path ? path : "", page);
    const int format = getFileFormat(path);
    m_wasSplit = false;
    m_fileName[0] = '\0';

    bool ok = false;
    switch (format) {
        case PIV::FORMAT_PGM:
            ok = loadPGM(path);
            break;
        case PIV::FORMAT_NOT_FOUND:
            m_error.handleError(PIVerror::FILE_NOT_FOUND, "load() ");
            break;
        default:
            // TIFF, BMP, PCO and the LaVision files are recognised here but
            // have no reader yet; they fail like any other unloadable format.
            DebugPrintExt(2, "Image2D::load() - no reader for file format %d", format);
            m_error.handleError(PIVerror::IMAGE_TYPE_UNSUPPORTED, "load() ");
            break;
    }
    if (ok) {
        clearOrientation();
        doStatistics(true);
        setFileName(path);
    }
    m_changed = ok;
    return ok;
}

namespace {

const char* _writerName(int bits) {
    switch (bits) {
        case 16:
            return "PCO";
        case 8:
            return "TIFF";
        default:
            return "LaVision";
    }
}

}  // namespace

// The writers for TIFF, PCO and LaVision files are not part of the library
// yet: a request for one of them, and every fall-back by depth, ends in
// FUNCTION_NOT_AVAILABLE naming the writer that would have been used.
bool Image2D::save(const char* path, int format) const {
    DebugPrint("saving image to '%s'", path ? path : "");
    if (isNull()) {
        m_error.handleError(PIVerror::IMAGE_IS_NULL, "save()");
        return false;
    }
    // A PGM that cannot be written is a failure of its own: falling back to
    // another format under a .pgm name would only hide it.
    if (format == PIV::FORMAT_PGM) return savePGM(path);

    return Guarded(m_error, "save()", [&] {
        // Formats 100, 101, 1000 and 1003 would be tried first here; as none
        // of those writers exists, every request falls back by depth.
        const int bits = m_type == IMAGE_FLOAT ? 33 : bitsPerPixel();
        if (bits != 8 && bits != 16 && bits != 33) {
            m_error.setMessage("save() - %d-bit image storage not available", bitsPerPixel());
            throw PIVerror::IMAGE_TYPE_UNSUPPORTED;
        }
        m_error.setMessage("save() - %s writing is not available yet", _writerName(bits));
        throw PIVerror::FUNCTION_NOT_AVAILABLE;
    });
}
