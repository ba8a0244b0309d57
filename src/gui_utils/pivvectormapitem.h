// The vectors of one time step of a field, drawn at their nodes; or, in grid
// mode, a cross at every node and the region of interest.
#pragma once

#include "vectormapitem.h"

class PIV_Data2D;

class PIVVectorMapItem : public VectorMapItem {
public:
    enum { Type = QGraphicsItem::UserType + 31 };

    explicit PIVVectorMapItem(QGraphicsItem* parent = nullptr);
    ~PIVVectorMapItem() override;
    PIVVectorMapItem(const PIVVectorMapItem&) = delete;
    PIVVectorMapItem& operator=(const PIVVectorMapItem&) = delete;

    int type() const override { return Type; }

    // Holds a reference to the field (addRef) until the next field or the
    // end of the item; the rectangle becomes the field's image. Null clears.
    void setData(PIV_Data2D* data, int timeStep = 0);
    const PIV_Data2D* data() const { return m_data; }

protected:
    // A cross of one pen width at every node, its arms half the grid step,
    // and the region of interest when the grid has one.
    void drawGrid(QPainter* painter) override;
    void collectVectors() const override;

private:
    const PIV_VECTOR* stepVectors(long* count) const;

    PIV_Data2D* m_data = nullptr;
    int m_timeStep = 0;
    QVector<QLineF> m_gridLines;
};
