#include "randompivvectormapitem.h"

RandomPIVVectorMapItem::RandomPIVVectorMapItem(QGraphicsItem* parent) : VectorMapItem(parent) {}

void RandomPIVVectorMapItem::addVector(const PIV_VECTOR& vector) {
    m_vectors.push_back(vector);
    invalidateVectors();
}

void RandomPIVVectorMapItem::clearVectors() {
    if (m_vectors.empty()) return;
    m_vectors.clear();
    invalidateVectors();
}

void RandomPIVVectorMapItem::collectVectors() const {
    if (vectorCfg().OffsetType == OFFSET_MEAN)
        setMeanOffset(meanVector(m_vectors.data(), long(m_vectors.size())));
    for (const PIV_VECTOR& v : m_vectors) paintVector(v);
}
