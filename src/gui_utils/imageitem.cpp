#include "imageitem.h"

#include <QPainter>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace {

struct IndexRule {
    double min, max;
    int size;
    bool clip;
};

// The index of integer value v: (v - min)(S - 1) / (max - min) in integers,
// 0 below the minimum, then limited to the table or taken modulo its size.
inline uint8_t IntegerIndex(int64_t v, int64_t min, int64_t span, const IndexRule& r) {
    if (v < min) return 0;
    const int64_t i = (v - min) * (r.size - 1) / span;
    if (r.clip) return static_cast<uint8_t>(i > r.size - 1 ? r.size - 1 : i);
    return static_cast<uint8_t>(i % r.size);
}

inline uint8_t FloatIndex(float v, const IndexRule& r) {
    const double q = (v - r.min) * (r.size - 1) / (r.max - r.min);
    if (!(q >= 0.0)) return 0;  // below the minimum, or NaN
    if (r.clip) return static_cast<uint8_t>(q >= r.size - 1 ? r.size - 1 : q);
    const double i = std::fmod(std::trunc(q), r.size);
    return std::isfinite(i) ? static_cast<uint8_t>(i) : 0;
}

// 8- and 16-bit pixels go through a table of every possible value, so the
// per-pixel work is one load.
template <typename T>
void ConvertByTable(const uint8_t* bits, long bytesPerLine, const IndexRule& r, QImage& image) {
    const int64_t min = static_cast<int64_t>(r.min), span = static_cast<int64_t>(r.max) - min;
    std::vector<uint8_t> table(size_t(1) << (8 * sizeof(T)));
    for (size_t v = 0; v < table.size(); v++) table[v] = IntegerIndex(int64_t(v), min, span, r);
    const int w = image.width();
    for (int y = 0; y < image.height(); y++) {
        const T* in = reinterpret_cast<const T*>(bits + y * bytesPerLine);
        uint8_t* out = image.scanLine(y);
        for (int x = 0; x < w; x++) out[x] = table[in[x]];
    }
}

}  // namespace

ImageItem::ImageItem(QGraphicsItem* parent) : QGraphicsItem(parent), m_lut(new ImageLut) {
    setCacheMode(QGraphicsItem::DeviceCoordinateCache);
}

ImageItem::~ImageItem() {
    m_lut->release();
}

QRectF ImageItem::boundingRect() const {
    const QRectF r(m_offset, QSizeF(m_image.width(), m_image.height()));
    const qreal pad = m_frame ? m_frameWidth / 2 : 0.0;
    return r.adjusted(-pad, -pad, pad, pad);
}

void ImageItem::paint(QPainter* painter, const QStyleOptionGraphicsItem*, QWidget*) {
    if (m_image.isNull()) return;
    const QRectF target(m_offset, QSizeF(m_image.width(), m_image.height()));
    painter->save();
    if (m_flipX || m_flipY) {
        const QPointF c = target.center();
        painter->translate(c);
        painter->scale(m_flipX ? -1 : 1, m_flipY ? -1 : 1);
        painter->translate(-c);
    }
    painter->drawImage(target, m_image);
    painter->restore();
    if (m_frame) {
        painter->setPen(QPen(m_frameColor, m_frameWidth));
        painter->setBrush(Qt::NoBrush);
        painter->drawRect(target);
    }
}

void ImageItem::setLUT(ImageLut* lut) {
    if (!lut || lut == m_lut) return;
    lut->addRef();
    m_lut->release();
    m_lut = lut;
    applyLUT();
}

void ImageItem::setLUTChoice(int choice, int levels, bool reversed) {
    m_lut->setLUT(choice, levels, reversed);
    applyLUT();
}

void ImageItem::applyLUT() {
    if (m_image.isNull()) return;
    m_image.setColorTable(m_lut->colorTable());
    update();
}

void ImageItem::setIntensityRange(double a, double b) {
    if (!std::isfinite(a) || !std::isfinite(b)) return;
    const double lo = a < b ? a : b, hi = a < b ? b : a;
    if (lo == m_min && hi == m_max) return;
    m_min = lo;
    m_max = hi;
    calculateNewImage();
}

void ImageItem::autoScale(bool recalculate) {
    int w, h;
    ImageType type;
    double lo, hi;
    if (!sourceInfo(&w, &h, &type) || !sourceRange(&lo, &hi)) return;
    if (type == IMAGE_FLOAT) {
        m_min = lo;
        m_max = hi > lo ? hi : lo + 1.0;
    } else {
        double top = 1.0;
        if (hi > 2.0)
            while (top < hi && top < 65535.0) top = 2.0 * top + 1.0;
        m_min = 0.0;
        m_max = top;
    }
    if (recalculate) calculateNewImage();
}

void ImageItem::brighter() {
    double top;
    if (m_intensityScaling) {
        top = (m_max - m_min) / 2 + m_min;
        if (top > 4) top = std::floor(top);
    } else {
        if (m_max < 4) return;
        top = std::floor((m_max + 1) / 2) - 1;
    }
    if (top <= m_min) return;
    m_max = top;
    calculateNewImage();
}

void ImageItem::darker() {
    double top;
    if (m_intensityScaling) {
        top = 2 * (m_max - m_min) + m_min;
        if (top > 4) top += 1;
    } else {
        top = 2 * (m_max + 1) - 1;
    }
    m_max = top;
    calculateNewImage();
}

void ImageItem::setClipping(bool on) {
    if (on == m_clip) return;
    m_clip = on;
    calculateNewImage();
}

bool ImageItem::calculateNewImage() {
    if (m_delay) {
        m_pending = true;
        return false;
    }
    m_pending = false;
    int w = 0, h = 0;
    ImageType type = IMAGE_UNDEFINED;
    int code = NO_SOURCE;
    QImage image;
    if (sourceInfo(&w, &h, &type) && w > 0 && h > 0) {
        // The old block is reused when the size stays.
        image = m_image.size() == QSize(w, h) ? m_image : QImage(w, h, QImage::Format_Indexed8);
        m_image = QImage();
        code = image.isNull() ? NO_MEMORY : convertToIndices(image);
    }
    prepareGeometryChange();
    m_lastError = code;
    m_image = code == 0 ? image : QImage();
    if (code == 0) applyLUT();
    update();
    return code == 0;
}

void ImageItem::delayUpdate(bool on) {
    m_delay = on;
    if (!on && m_pending) calculateNewImage();
}

void ImageItem::setOrientation(bool flipX, bool flipY) {
    m_flipX = flipX;
    m_flipY = flipY;
    update();
}

void ImageItem::setFrame(bool on, const QColor& color, qreal width) {
    prepareGeometryChange();
    m_frame = on;
    m_frameColor = color;
    m_frameWidth = width;
    update();
}

void ImageItem::setOffset(const QPointF& offset) {
    if (offset == m_offset) return;
    prepareGeometryChange();
    m_offset = offset;
}

bool ImageItem::sourceInfo(int*, int*, ImageType*) const {
    return false;
}

bool ImageItem::sourceRange(double*, double*) {
    return false;
}

int ImageItem::convertToIndices(QImage&) {
    return NO_SOURCE;
}

int ImageItem::convertRows(const uint8_t* bits, long bytesPerLine, ImageType type,
                           QImage& image) const {
    if (!bits) return NO_SOURCE;
    // Integer limits stay within +-2^40, far beyond any pixel, so that the
    // integer rule cannot overflow.
    const double limit = 1099511627776.0;
    auto integral = [&](double v) { return std::trunc(std::max(-limit, std::min(limit, v))); };
    const IndexRule r{type == IMAGE_FLOAT ? m_min : integral(m_min),
                      type == IMAGE_FLOAT ? m_max : integral(m_max), tableSize(), m_clip};
    if (r.min == r.max) return EQUAL_LIMITS;
    const int w = image.width();
    switch (type) {
        case IMAGE_UINT8:
            ConvertByTable<uint8_t>(bits, bytesPerLine, r, image);
            return 0;
        case IMAGE_UINT16:
            ConvertByTable<uint16_t>(bits, bytesPerLine, r, image);
            return 0;
        case IMAGE_UINT32: {
            const int64_t min = static_cast<int64_t>(r.min),
                          span = static_cast<int64_t>(r.max) - min;
            for (int y = 0; y < image.height(); y++) {
                const uint32_t* in = reinterpret_cast<const uint32_t*>(bits + y * bytesPerLine);
                uint8_t* out = image.scanLine(y);
                for (int x = 0; x < w; x++) out[x] = IntegerIndex(in[x], min, span, r);
            }
            return 0;
        }
        case IMAGE_FLOAT:
            for (int y = 0; y < image.height(); y++) {
                const float* in = reinterpret_cast<const float*>(bits + y * bytesPerLine);
                uint8_t* out = image.scanLine(y);
                for (int x = 0; x < w; x++) out[x] = FloatIndex(in[x], r);
            }
            return 0;
        default:
            return NO_SOURCE;
    }
}
