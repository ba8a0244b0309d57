#include "ruleritem.h"

#include <QGraphicsSimpleTextItem>
#include <QPen>

#include "markeritem.h"

RulerItem::RulerItem(QGraphicsItem* parent) : QGraphicsLineItem(parent) {
    setPen(QPen(Qt::yellow, 0));
    for (MarkerItem*& end : m_ends) {
        end = new MarkerItem(this);
        end->setColor(Qt::yellow);
        end->setRadius(5);
    }
    m_label = new QGraphicsSimpleTextItem(this);
    m_label->setBrush(Qt::yellow);
    m_label->setFlag(ItemIgnoresTransformations);
}

void RulerItem::setEnds(const QPointF& first, const QPointF& second) {
    setLine(QLineF(first, second));
    m_ends[0]->setPos(first);
    m_ends[1]->setPos(second);
    m_label->setText(QStringLiteral("%1 px").arg(length(), 0, 'f', 1));
    m_label->setPos((first + second) / 2);
}

QString RulerItem::label() const {
    return m_label->text();
}
