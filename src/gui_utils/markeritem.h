// MarkerItem: a cross in a circle that marks a point of the image, such as
// the origin of the physical coordinates. It keeps its size on screen.
#pragma once

#include <QColor>
#include <QGraphicsItem>

class MarkerItem : public QGraphicsItem {
public:
    enum { Type = UserType + 0x110 };

    explicit MarkerItem(QGraphicsItem* parent = nullptr);

    int type() const override { return Type; }
    QRectF boundingRect() const override;
    void paint(QPainter* painter, const QStyleOptionGraphicsItem* option, QWidget* widget) override;

    void setColor(const QColor& color);
    // Radius in screen pixels.
    void setRadius(qreal radius);

private:
    QColor m_color = Qt::red;
    qreal m_radius = 8.0;
};
