// Image2DPair: two frames of one recording, written as one double-height
// 16-bit image (A above B). The pair does not own its images.
#pragma once

#include "image2d.h"
#include "image_types.h"
#include "piv_error.h"

class Image2DPair {
public:
    Image2DPair(Image2D* a = nullptr, Image2D* b = nullptr);

    void setImages(Image2D* a, Image2D* b) {
        m_imageA = a;
        m_imageB = b;
    }
    Image2D* imageA() const { return m_imageA; }
    Image2D* imageB() const { return m_imageB; }

    const IMAGE_COMPRESSION& compression() const { return m_compression; }
    void setCompression(const IMAGE_COMPRESSION& c) { m_compression = c; }

    // Both images present, not null and of equal size.
    bool isValid();
    // Format 100 means TIFF, any other PCO.
    bool save(const char* path, int format);

    PIVerror& error() { return m_error; }

private:
    Image2D* m_imageA;
    Image2D* m_imageB;
    IMAGE_COMPRESSION m_compression;
    PIVerror m_error;
};
