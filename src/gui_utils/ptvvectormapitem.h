// The tracks of one image pair: an arrow from each first-frame particle that
// found a partner, by its tracked displacement. A pair outside the valid
// radius is an outlier and follows the record's outlier display.
#pragma once

#include <memory>

#include "vectormapitem.h"

class PTV_Data2D;

class PTVVectorMapItem : public VectorMapItem {
public:
    enum { Type = QGraphicsItem::UserType + 37 };

    explicit PTVVectorMapItem(QGraphicsItem* parent = nullptr);

    int type() const override { return Type; }

    // The item shares the tracks, which nobody changes after tracking; the
    // rectangle becomes their image. Null clears.
    void setData(std::shared_ptr<const PTV_Data2D> data);
    const PTV_Data2D* data() const { return m_data.get(); }

protected:
    void collectVectors() const override;

private:
    std::shared_ptr<const PTV_Data2D> m_data;
};
