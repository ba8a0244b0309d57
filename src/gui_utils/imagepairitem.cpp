#include "imagepairitem.h"

#include <algorithm>
#include <cmath>

#include "image2d.h"

namespace {

void Share(Image2D*& slot, Image2D* image) {
    if (image) image->addRef();
    if (slot) slot->release();
    slot = image;
}

// Truncated index of q, limited to the table.
inline uint8_t Clamped(double q, int top) {
    if (!(q >= 0.0)) return 0;
    return static_cast<uint8_t>(q >= top ? top : q);
}

}  // namespace

ImagePairItem::ImagePairItem(QGraphicsItem* parent) : Image2DItem(parent) {}

ImagePairItem::~ImagePairItem() {
    Share(m_second, nullptr);
    Share(m_background[0], nullptr);
    Share(m_background[1], nullptr);
}

void ImagePairItem::updateImages(Image2D* first, Image2D* second) {
    Share(m_second, second);
    updateImage2D(first);
}

void ImagePairItem::setBackgrounds(Image2D* first, Image2D* second) {
    Share(m_background[0], first);
    Share(m_background[1], second);
    calculateNewImage();
}

void ImagePairItem::setCombineMode(int mode) {
    if (mode < SHOW_FIRST || mode > SHOW_PAIR_COLOR) mode = SHOW_FIRST;
    if (mode == m_mode) return;
    m_mode = mode;
    calculateNewImage();
}

void ImagePairItem::setImageOffset(int x, int y) {
    if (x == m_offsetX && y == m_offsetY) return;
    m_offsetX = x;
    m_offsetY = y;
    calculateNewImage();
}

void ImagePairItem::applyLUT() {
    if (m_mode != SHOW_PAIR_COLOR || m_image.isNull()) {
        Image2DItem::applyLUT();
        return;
    }
    const int step = 255 / (kPairLevels - 1);
    QVector<QRgb> table(kPairLevels * kPairLevels);
    for (int i = 0; i < table.size(); i++) {
        const int a = (i / kPairLevels) * step, b = (i % kPairLevels) * step;
        table[i] = qRgb(a, b, b);
    }
    m_image.setColorTable(table);
    update();
}

Image2D* ImagePairItem::shown() const {
    return m_mode == SHOW_SECOND ? m_second : m_source;
}

bool ImagePairItem::sourceInfo(int* width, int* height, ImageType* type) const {
    const Image2D* image = shown();
    if (!image || image->isNull()) return false;
    *width = static_cast<int>(image->width());
    *height = static_cast<int>(image->height());
    *type = m_mode >= SHOW_DIFFERENCE ? IMAGE_FLOAT : image->type();
    return true;
}

bool ImagePairItem::sourceRange(double* low, double* high) {
    Image2D* image = shown();
    if (!image || image->isNull()) return false;
    *low = image->minimum();
    *high = image->maximum();
    return true;
}

int ImagePairItem::convertToIndices(QImage& image) {
    switch (m_mode) {
        case SHOW_DIFFERENCE:
            return convertDiffToBmpEx(image);
        case SHOW_QUOTIENT:
            return m_offsetX || m_offsetY || haveBackground() ? convertQuotToBmpEx(image)
                                                              : convertQuotToBmp(image);
        case SHOW_PAIR_COLOR:
            return convertPairToBmpOp(image);
        default:
            break;
    }
    Image2D* image2 = shown();
    if (!image2 || image2->isNull()) return NO_SOURCE;
    const Image2D* background = m_background[m_mode == SHOW_SECOND ? 1 : 0];
    if (!background || !background->isSameSize(*image2, false))
        return convertRows(image2->bits(), static_cast<long>(image2->bytesPerLine()),
                           image2->type(), image);
    // With a background the frame goes through float rows; the one rule
    // for float pixels then applies.
    Image2D difference(static_cast<int64_t>(image2->width()),
                       static_cast<int64_t>(image2->height()), IMAGE_FLOAT);
    if (difference.isNull()) return NO_MEMORY;
    const int w = image.width();
    m_rowTmp.resize(size_t(w));
    for (int y = 0; y < image.height(); y++) {
        float* out = difference.scanLine<float>(y);
        image2->getRow(out, y);
        background->getRow(m_rowTmp.data(), y);
        for (int x = 0; x < w; x++) out[x] = std::max(out[x] - m_rowTmp[x], 0.0f);
    }
    return convertRows(difference.bits(), static_cast<long>(difference.bytesPerLine()), IMAGE_FLOAT,
                       image);
}

bool ImagePairItem::readRows(int y, int width, bool withExtras) {
    if (!m_source || !m_second || m_source->isNull() || m_second->isNull()) return false;
    m_rowA.resize(size_t(width));
    m_rowB.assign(size_t(width), 0.0f);
    m_source->getRow(m_rowA.data(), y);
    const int dx = withExtras ? m_offsetX : 0, dy = withExtras ? m_offsetY : 0;
    const int w2 = static_cast<int>(m_second->width());
    const int y2 = y - dy;
    if (y2 >= 0 && y2 < static_cast<int>(m_second->height())) {
        m_rowTmp.resize(std::max<size_t>(size_t(w2), size_t(width)));
        m_second->getRow(m_rowTmp.data(), y2);
        if (withExtras && m_background[1] && m_background[1]->isSameSize(*m_second, false)) {
            m_rowBg.resize(size_t(w2));
            m_background[1]->getRow(m_rowBg.data(), y2);
            for (int x = 0; x < w2; x++) m_rowTmp[x] = std::max(m_rowTmp[x] - m_rowBg[x], 0.0f);
        }
        for (int x = std::max(0, dx); x < width && x - dx < w2; x++) m_rowB[x] = m_rowTmp[x - dx];
    }
    if (withExtras && m_background[0] && m_background[0]->isSameSize(*m_source, false)) {
        m_rowTmp.resize(std::max(m_rowTmp.size(), size_t(width)));
        m_background[0]->getRow(m_rowTmp.data(), y);
        for (int x = 0; x < width; x++) m_rowA[x] = std::max(m_rowA[x] - m_rowTmp[x], 0.0f);
    }
    return true;
}

template <typename F>
int ImagePairItem::forEachPixel(QImage& image, bool withExtras, F index) {
    const int w = image.width();
    for (int y = 0; y < image.height(); y++) {
        if (!readRows(y, w, withExtras)) return NO_SOURCE;
        uint8_t* out = image.scanLine(y);
        for (int x = 0; x < w; x++) out[x] = index(m_rowA[x], m_rowB[x]);
    }
    return 0;
}

int ImagePairItem::convertDiffToBmpEx(QImage& image) {
    const double range = maximum() - minimum();
    if (range <= 0.0) return EQUAL_LIMITS;
    const int top = tableSize() - 1;
    // Multiplied before the division, so that a difference of the full
    // range lands on the top entry exactly.
    return forEachPixel(image, true, [&](float a, float b) {
        return Clamped((a - b + range) * top / (2.0 * range), top);
    });
}

int ImagePairItem::convertQuotToBmp(QImage& image) {
    return quotient(image, false);
}

int ImagePairItem::convertQuotToBmpEx(QImage& image) {
    return quotient(image, true);
}

int ImagePairItem::quotient(QImage& image, bool withExtras) {
    const int top = tableSize() - 1;
    return forEachPixel(image, withExtras, [&](float a, float b) {
        // Light where the second frame has none: the top, or the middle for 0 / 0.
        if (b <= 0.0f) return static_cast<uint8_t>(a > 0.0f ? top : top / 2);
        return Clamped(double(a) / b * top / 2.0, top);
    });
}

int ImagePairItem::convertPairToBmpOp(QImage& image) {
    const double lo = minimum(), range = maximum() - minimum();
    if (range <= 0.0) return EQUAL_LIMITS;
    const int top = kPairLevels - 1;
    return forEachPixel(image, true, [&](float a, float b) {
        return static_cast<uint8_t>(Clamped((a - lo) * top / range, top) * kPairLevels +
                                    Clamped((b - lo) * top / range, top));
    });
}
