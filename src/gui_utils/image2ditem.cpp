#include "image2ditem.h"

#include "image2d.h"

Image2DItem::Image2DItem(QGraphicsItem* parent) : ImageItem(parent) {}

Image2DItem::~Image2DItem() {
    if (m_source) m_source->release();
}

void Image2DItem::updateImage2D(Image2D* image) {
    if (image) image->addRef();
    if (m_source) m_source->release();
    m_source = image;
    calculateNewImage();
}

bool Image2DItem::sourceInfo(int* width, int* height, ImageType* type) const {
    if (!m_source || m_source->isNull()) return false;
    *width = static_cast<int>(m_source->width());
    *height = static_cast<int>(m_source->height());
    *type = m_source->type();
    return true;
}

bool Image2DItem::sourceRange(double* low, double* high) {
    if (!m_source || m_source->isNull()) return false;
    *low = m_source->minimum();
    *high = m_source->maximum();
    return true;
}

int Image2DItem::convertToIndices(QImage& image) {
    if (!m_source || m_source->isNull()) return NO_SOURCE;
    return convertRows(m_source->bits(), static_cast<long>(m_source->bytesPerLine()),
                       m_source->type(), image);
}
