#include "markeritem.h"

#include <QPainter>

MarkerItem::MarkerItem(QGraphicsItem* parent) : QGraphicsItem(parent) {
    setFlag(ItemIgnoresTransformations);
}

QRectF MarkerItem::boundingRect() const {
    const qreal r = m_radius + 1.0;
    return QRectF(-r, -r, 2 * r, 2 * r);
}

void MarkerItem::paint(QPainter* painter, const QStyleOptionGraphicsItem*, QWidget*) {
    painter->setPen(QPen(m_color, 1.5));
    painter->setBrush(Qt::NoBrush);
    const qreal r = m_radius;
    painter->drawEllipse(QPointF(0, 0), r * 0.6, r * 0.6);
    painter->drawLine(QPointF(-r, 0), QPointF(r, 0));
    painter->drawLine(QPointF(0, -r), QPointF(0, r));
}

void MarkerItem::setColor(const QColor& color) {
    m_color = color;
    update();
}

void MarkerItem::setRadius(qreal radius) {
    prepareGeometryChange();
    m_radius = radius;
}
