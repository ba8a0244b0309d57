#include "pivvectormapitem.h"

#include <QPainter>
#include <algorithm>

#include "piv_data2d.h"
#include "recordcolor.h"

PIVVectorMapItem::PIVVectorMapItem(QGraphicsItem* parent) : VectorMapItem(parent) {}

PIVVectorMapItem::~PIVVectorMapItem() {
    if (m_data) m_data->release();
}

void PIVVectorMapItem::setData(PIV_Data2D* data, int timeStep) {
    if (data) data->addRef();
    if (m_data) m_data->release();
    m_data = data;
    m_timeStep = std::max(0, timeStep);
    m_gridLines.clear();
    if (m_data && !m_data->isNull()) {
        const DATA_GRID4D& g = m_data->grid();
        setRect(0, 0, g.imageSize.width, g.imageSize.height);
        setMarkSize(std::max(2, std::min(g.step.width, g.step.height) / 4));
        const double ax = g.step.width / 2.0, ay = g.step.height / 2.0;
        long count = 0;
        const PIV_VECTOR* v = stepVectors(&count);
        m_gridLines.reserve(int(2 * count));
        for (long k = 0; k < count; k++) {
            const QPointF node(v[k].ix, v[k].iy);
            m_gridLines.append(QLineF(node.x() - ax, node.y(), node.x() + ax, node.y()));
            m_gridLines.append(QLineF(node.x(), node.y() - ay, node.x(), node.y() + ay));
        }
    }
    invalidateVectors();
}

const PIV_VECTOR* PIVVectorMapItem::stepVectors(long* count) const {
    *count = 0;
    if (!m_data || m_data->isNull() || m_timeStep >= m_data->timeSteps()) return nullptr;
    // The array holds the steps one after the other (the row accessors use
    // a stride of their own, which differs on grids that are not square).
    *count = m_data->nodeCount() / m_data->timeSteps();
    return m_data->dataAtTime(m_timeStep);
}

void PIVVectorMapItem::drawGrid(QPainter* painter) {
    if (!m_data || m_data->isNull()) return;
    const float width = vectorCfg().LineWidth;
    painter->setPen(QPen(RecordColor(colorCfg().Valid), width));
    painter->drawLines(m_gridLines);
    const DATA_GRID4D& g = m_data->grid();
    if (g.roiEnabled) {
        painter->setBrush(Qt::NoBrush);
        painter->drawRect(
            QRectF(g.roi.left, g.roi.top, g.roi.right - g.roi.left, g.roi.bottom - g.roi.top));
    }
}

void PIVVectorMapItem::collectVectors() const {
    long count = 0;
    const PIV_VECTOR* v = stepVectors(&count);
    if (!v) return;
    const DATA_GRID4D& g = m_data->grid();
    const int nx = std::max(1, g.nodes.width);
    const long ny = count / nx;
    const int skipX = std::max(1, vectorCfg().SkipX), skipY = std::max(1, vectorCfg().SkipY);
    if (vectorCfg().OffsetType == OFFSET_MEAN) setMeanOffset(meanVector(v, count));
    for (long row = 0; row < ny; row += skipY)
        for (long col = 0; col < nx; col += skipX) paintVector(v[row * nx + col]);
}
