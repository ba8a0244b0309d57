// ItemEditor: wraps one selected scene item in eight handles (corners and
// mid-sides). Dragging a handle resizes a rectangle or ellipse item; dragging
// inside moves the item. The item is given back by releaseItem.
#pragma once

#include <QColor>
#include <QGraphicsItem>

class ItemEditor : public QGraphicsItem {
public:
    enum { Type = UserType + 0x112 };
    enum { NO_HANDLE = -1, MOVE = 8 };

    // Colours as packed ARGB numbers: -1 is white, -65536 red.
    ItemEditor(int frameColor, int handleColor, QGraphicsItem* parent = nullptr);

    int type() const override { return Type; }
    QRectF boundingRect() const override;
    void paint(QPainter* painter, const QStyleOptionGraphicsItem* option, QWidget* widget) override;

    void selectItem(QGraphicsItem* item);
    void releaseItem();
    QGraphicsItem* currentItem() const { return m_item; }
    // Handles keep their size on screen.
    void setZoomFactor(double factor);
    // The handle under a scene point: 0..7 clockwise from the top left, MOVE
    // inside, NO_HANDLE elsewhere.
    int handleAt(const QPointF& scenePos) const;
    QRectF handleRect(int handle) const;
    QRectF editedRect() const { return m_rect; }

protected:
    void mousePressEvent(QGraphicsSceneMouseEvent* event) override;
    void mouseMoveEvent(QGraphicsSceneMouseEvent* event) override;
    void mouseReleaseEvent(QGraphicsSceneMouseEvent* event) override;

private:
    void updateHandles();
    void applyToItem();

    QColor m_frame, m_handle;
    QGraphicsItem* m_item = nullptr;
    QRectF m_rect;  // scene coordinates
    qreal m_handleSize = 8.0;
    int m_grabbed = NO_HANDLE;
    QPointF m_last;
};
