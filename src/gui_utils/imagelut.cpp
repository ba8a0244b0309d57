#include "imagelut.h"

ImageLut::ImageLut(BitmapLUTChoice choice, int levels) {
    setLUT(choice, levels, false);
}

int ImageLut::release() {
    const int left = --m_useCount;
    if (left <= 0) delete this;
    return left;
}

QVector<QRgb> ImageLut::colorTable() const {
    QVector<QRgb> table(size());
    for (int i = 0; i < size(); i++) table[i] = rgbValue(i);
    return table;
}
