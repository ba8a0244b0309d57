#include "itemeditor.h"

#include <QGraphicsEllipseItem>
#include <QGraphicsRectItem>
#include <QGraphicsSceneMouseEvent>
#include <QPainter>

ItemEditor::ItemEditor(int frameColor, int handleColor, QGraphicsItem* parent)
    : QGraphicsItem(parent),
      m_frame(QColor::fromRgba(QRgb(frameColor))),
      m_handle(QColor::fromRgba(QRgb(handleColor))) {
    setVisible(false);
}

QRectF ItemEditor::boundingRect() const {
    const qreal h = m_handleSize;
    return m_rect.adjusted(-h, -h, h, h);
}

QRectF ItemEditor::handleRect(int handle) const {
    const QRectF& r = m_rect;
    const QPointF at[8] = {r.topLeft(),     QPointF(r.center().x(), r.top()),
                           r.topRight(),    QPointF(r.right(), r.center().y()),
                           r.bottomRight(), QPointF(r.center().x(), r.bottom()),
                           r.bottomLeft(),  QPointF(r.left(), r.center().y())};
    if (handle < 0 || handle > 7) return QRectF();
    const qreal h = m_handleSize;
    return QRectF(at[handle] - QPointF(h / 2, h / 2), QSizeF(h, h));
}

void ItemEditor::paint(QPainter* painter, const QStyleOptionGraphicsItem*, QWidget*) {
    painter->setPen(QPen(m_frame, 0, Qt::DashLine));
    painter->setBrush(Qt::NoBrush);
    painter->drawRect(m_rect);
    painter->setPen(QPen(m_frame, 0));
    painter->setBrush(m_handle);
    for (int i = 0; i < 8; ++i) painter->drawRect(handleRect(i));
}

void ItemEditor::selectItem(QGraphicsItem* item) {
    m_item = item;
    if (!item) return releaseItem();
    prepareGeometryChange();
    m_rect = item->sceneBoundingRect();
    if (auto* r = qgraphicsitem_cast<QGraphicsRectItem*>(item))
        m_rect = r->mapRectToScene(r->rect());
    if (auto* e = qgraphicsitem_cast<QGraphicsEllipseItem*>(item))
        m_rect = e->mapRectToScene(e->rect());
    updateHandles();
    setVisible(true);
}

void ItemEditor::releaseItem() {
    m_item = nullptr;
    m_grabbed = NO_HANDLE;
    setVisible(false);
}

void ItemEditor::setZoomFactor(double factor) {
    if (!(factor > 0)) return;
    prepareGeometryChange();
    m_handleSize = 8.0 / factor;
    updateHandles();
}

void ItemEditor::updateHandles() {
    update();
}

int ItemEditor::handleAt(const QPointF& scenePos) const {
    for (int i = 0; i < 8; ++i)
        if (handleRect(i).contains(scenePos)) return i;
    return m_rect.contains(scenePos) ? MOVE : NO_HANDLE;
}

void ItemEditor::mousePressEvent(QGraphicsSceneMouseEvent* event) {
    m_grabbed = handleAt(event->scenePos());
    m_last = event->scenePos();
    if (m_grabbed == NO_HANDLE) event->ignore();
}

void ItemEditor::mouseMoveEvent(QGraphicsSceneMouseEvent* event) {
    if (m_grabbed == NO_HANDLE || !m_item) return;
    const QPointF p = event->scenePos();
    prepareGeometryChange();
    switch (m_grabbed) {
        case MOVE:
            m_rect.translate(p - m_last);
            break;
        case 0:
            m_rect.setTopLeft(p);
            break;
        case 1:
            m_rect.setTop(p.y());
            break;
        case 2:
            m_rect.setTopRight(p);
            break;
        case 3:
            m_rect.setRight(p.x());
            break;
        case 4:
            m_rect.setBottomRight(p);
            break;
        case 5:
            m_rect.setBottom(p.y());
            break;
        case 6:
            m_rect.setBottomLeft(p);
            break;
        case 7:
            m_rect.setLeft(p.x());
            break;
        default:
            break;
    }
    m_last = p;
    applyToItem();
    updateHandles();
}

void ItemEditor::mouseReleaseEvent(QGraphicsSceneMouseEvent*) {
    prepareGeometryChange();
    m_rect = m_rect.normalized();
    applyToItem();
    m_grabbed = NO_HANDLE;
    updateHandles();
}

void ItemEditor::applyToItem() {
    if (!m_item) return;
    const QRectF local = m_item->mapRectFromScene(m_rect.normalized());
    if (auto* r = qgraphicsitem_cast<QGraphicsRectItem*>(m_item))
        r->setRect(local);
    else if (auto* e = qgraphicsitem_cast<QGraphicsEllipseItem*>(m_item))
        e->setRect(local);
    else
        m_item->setPos(m_item->pos() + (m_rect.topLeft() - m_item->sceneBoundingRect().topLeft()));
}
