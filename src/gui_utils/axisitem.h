// The two axis scales of an image: x along its bottom edge, y along its left
// edge. The item paints nothing itself; its children do.
#pragma once

#include <QGraphicsItem>

#include "axisscaleitem.h"

class AxisItem : public QGraphicsItem {
public:
    enum { Type = QGraphicsItem::UserType + 34 };

    explicit AxisItem(QGraphicsItem* parent = nullptr);

    int type() const override { return Type; }
    QRectF boundingRect() const override;
    void paint(QPainter* painter, const QStyleOptionGraphicsItem* option, QWidget* widget) override;

    void setConfig(const PIVPLOT::AXIS_CFG& xAxis, const PIVPLOT::AXIS_CFG& yAxis);
    void setImageSize(double width, double height);
    // Per axis, as AxisScaleItem::setPhysicalScaling.
    void setPhysicalScaling(double factorX, double originX, double offsetX, double factorY,
                            double originY, double offsetY);
    void setImageOriginOnTop(bool onTop);
    void setColor(const QColor& color);
    void setFont(const QFont& font);

    AxisScaleItem* xAxis() { return m_x; }
    AxisScaleItem* yAxis() { return m_y; }

private:
    AxisScaleItem* m_x;  // children, deleted with the item
    AxisScaleItem* m_y;
};
