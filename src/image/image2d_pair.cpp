#include "image2d_pair.h"

#include <cstring>

#include "image2d_pixel.h"
#include "image_format.h"

using PIV::Guarded;

Image2DPair::Image2DPair(Image2D* a, Image2D* b)
    : m_imageA(a), m_imageB(b), m_compression(), m_error("Image2DPair") {}

bool Image2DPair::isValid() {
    return Guarded(m_error, "isValid()", [&] {
        if (!m_imageA || !m_imageB) throw PIVerror::INVALID_POINTER;
        if (m_imageA->isNull() || m_imageB->isNull()) throw PIVerror::IMAGE_IS_NULL;
        if (!m_imageA->isSameSize(*m_imageB, false)) throw PIVerror::IMAGE_SIZE_MISMATCH;
    });
}

bool Image2DPair::save(const char* path, int format) {
    return Guarded(m_error, "save()", [&] {
        if (!m_imageA || m_imageA->isNull()) {
            m_error.setMessage("save() - Image A contains no data");
            throw PIVerror::IMAGE_IS_NULL;
        }
        if (!m_imageB || m_imageB->isNull()) {
            m_error.setMessage("save() - Image B contains no data");
            throw PIVerror::IMAGE_IS_NULL;
        }
        if (m_imageA->type() != IMAGE_UINT16 || m_imageB->type() != IMAGE_UINT16) {
            m_error.setMessage("save() - images are not both 16-bit");
            throw PIVerror::IMAGE_TYPE_UNSUPPORTED;
        }
        if (!m_imageA->isSameSize(*m_imageB, true)) throw PIVerror::IMAGE_SIZE_MISMATCH;

        const uint64_t w = m_imageA->width(), h = m_imageA->height();
        Image2D both;
        if (!both.alloc(static_cast<int64_t>(w), 2 * static_cast<int64_t>(h), IMAGE_UINT16, 0)) {
            m_error.setMessage("save() - failed creating temp.image");
            throw PIVerror::ALLOCATION_FAILED;
        }
        for (uint64_t y = 0; y < h; y++) {
            std::memcpy(both.scanLine<uint16_t>(y), m_imageA->scanLine<uint16_t>(y),
                        w * sizeof(uint16_t));
            std::memcpy(both.scanLine<uint16_t>(h + y), m_imageB->scanLine<uint16_t>(y),
                        w * sizeof(uint16_t));
        }
        both.setCompression(m_compression);
        both.setFileName(m_imageA->fileName());

        const bool ok = format == PIV::FORMAT_TIFF ? both.saveTIFF(path) : both.savePCO(path);
        if (!ok) {
            m_error.setMessage("save() - failed writing to file '%s'", path ? path : "");
            throw PIVerror::FILE_WRITE_FAILED;
        }
    });
}
