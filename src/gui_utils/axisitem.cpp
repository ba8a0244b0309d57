#include "axisitem.h"

AxisItem::AxisItem(QGraphicsItem* parent)
    : QGraphicsItem(parent),
      m_x(new AxisScaleItem(Qt::Horizontal, this)),
      m_y(new AxisScaleItem(Qt::Vertical, this)) {
    setFlag(ItemHasNoContents);
}

QRectF AxisItem::boundingRect() const {
    return childrenBoundingRect();
}

void AxisItem::paint(QPainter*, const QStyleOptionGraphicsItem*, QWidget*) {}

void AxisItem::setConfig(const PIVPLOT::AXIS_CFG& xAxis, const PIVPLOT::AXIS_CFG& yAxis) {
    m_x->setConfig(xAxis);
    m_y->setConfig(yAxis);
}

void AxisItem::setImageSize(double width, double height) {
    prepareGeometryChange();
    m_x->setLength(width);
    m_x->setPos(0, height);
    m_y->setLength(height);
}

void AxisItem::setPhysicalScaling(double factorX, double originX, double offsetX, double factorY,
                                  double originY, double offsetY) {
    m_x->setPhysicalScaling(factorX, originX, offsetX);
    m_y->setPhysicalScaling(factorY, originY, offsetY);
}

void AxisItem::setImageOriginOnTop(bool onTop) {
    m_y->setImageOriginOnTop(onTop);
}

void AxisItem::setColor(const QColor& color) {
    m_x->setColor(color);
    m_y->setColor(color);
}

void AxisItem::setFont(const QFont& font) {
    m_x->setFont(font);
    m_y->setFont(font);
}
