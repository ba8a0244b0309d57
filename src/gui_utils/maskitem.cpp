#include "maskitem.h"

#include <vector>

#include "image2d.h"

MaskItem::MaskItem(QGraphicsItem* parent) : Image2DItem(parent) {}

void MaskItem::setMaskColor(const QColor& color) {
    if (color == m_color) return;
    m_color = color;
    applyLUT();
}

void MaskItem::setMaskOpacity(double opacity) {
    opacity = opacity < 0.0 ? 0.0 : (opacity > 1.0 ? 1.0 : opacity);
    if (opacity == m_opacity) return;
    m_opacity = opacity;
    applyLUT();
}

void MaskItem::applyLUT() {
    if (m_image.isNull()) return;
    QColor on = m_color;
    on.setAlpha(static_cast<int>(255 * m_opacity));
    m_image.setColorTable({qRgba(0, 0, 0, 0), on.rgba()});
    update();
}

int MaskItem::convertToIndices(QImage& image) {
    if (!m_source || m_source->isNull()) return NO_SOURCE;
    const int w = image.width();
    if (m_source->type() == IMAGE_UINT8) {
        for (int y = 0; y < image.height(); y++) {
            const uint8_t* in = m_source->scanLine<uint8_t>(y);
            uint8_t* out = image.scanLine(y);
            for (int x = 0; x < w; x++) out[x] = in[x] != 0;
        }
        return 0;
    }
    std::vector<float> row(static_cast<size_t>(w));
    for (int y = 0; y < image.height(); y++) {
        if (!m_source->getRow(row.data(), y)) return NO_SOURCE;
        uint8_t* out = image.scanLine(y);
        for (int x = 0; x < w; x++) out[x] = row[x] != 0.0f;
    }
    return 0;
}
