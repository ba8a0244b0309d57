// Vectors at arbitrary points (probed by the user), drawn as the field's
// vectors are; the list grows by addVector until clearVectors.
#pragma once

#include <vector>

#include "vectormapitem.h"

class RandomPIVVectorMapItem : public VectorMapItem {
public:
    enum { Type = QGraphicsItem::UserType + 32 };

    explicit RandomPIVVectorMapItem(QGraphicsItem* parent = nullptr);

    int type() const override { return Type; }

    // The vector is drawn at (ix, iy).
    void addVector(const PIV_VECTOR& vector);
    void clearVectors();
    int vectorCount() const { return int(m_vectors.size()); }

protected:
    void collectVectors() const override;

private:
    std::vector<PIV_VECTOR> m_vectors;
};
