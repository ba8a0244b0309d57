// ImageLut: a colour table shared by the items that show it. A change is
// seen by every user at its next applyLUT(); the last user frees it.
#pragma once

#include <QRgb>
#include <QVector>

#include "bitmap_lut.h"

class ImageLut : public BitmapLUT {
public:
    explicit ImageLut(BitmapLUTChoice choice = LUT_LINEAR_GRAYSCALE, int levels = kSize);
    ImageLut(const ImageLut&) = delete;
    ImageLut& operator=(const ImageLut&) = delete;

    // The count starts at 1 for the creator; release() deletes at 0.
    int addRef() { return ++m_useCount; }
    int release();
    int useCount() const { return m_useCount; }

    // The 256 packed colours as the indexed QImage takes them: alpha in the
    // top byte, then red, green and blue, which is also QRgb's order.
    QVector<QRgb> colorTable() const;

private:
    ~ImageLut() = default;
    int m_useCount = 1;
};
