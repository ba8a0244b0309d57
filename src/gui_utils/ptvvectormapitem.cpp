#include "ptvvectormapitem.h"

#include <vector>

#include "ptv_data2d.h"

PTVVectorMapItem::PTVVectorMapItem(QGraphicsItem* parent) : VectorMapItem(parent) {}

void PTVVectorMapItem::setData(std::shared_ptr<const PTV_Data2D> data) {
    m_data = std::move(data);
    if (m_data) setRect(0, 0, m_data->imageWidth(), m_data->imageHeight());
    invalidateVectors();
}

void PTVVectorMapItem::collectVectors() const {
    if (!m_data) return;
    // The pairs as vectors at the first particle; the mean offset needs them
    // all before the first is drawn.
    std::vector<PIV_VECTOR> vectors;
    std::vector<QPointF> at;
    for (size_t k = 0; k < m_data->size(); k++) {
        const PTV_PAIR& p = *m_data->pairData(k);
        if (p.first.id < 0 || p.second.id < 0) continue;
        PIV_VECTOR v;
        v.ix = int32_t(p.first.x + 0.5f), v.iy = int32_t(p.first.y + 0.5f);
        v.dx = p.dx, v.dy = p.dy;
        v.flag = uint8_t(p.valid ? VECTOR_ENABLED : VECTOR_ENABLED | VECTOR_OUTLIER);
        vectors.push_back(v);
        at.emplace_back(p.first.x, p.first.y);
    }
    if (vectorCfg().OffsetType == OFFSET_MEAN)
        setMeanOffset(meanVector(vectors.data(), long(vectors.size())));
    for (size_t k = 0; k < vectors.size(); k++) paintVector(vectors[k], at[k]);
}
