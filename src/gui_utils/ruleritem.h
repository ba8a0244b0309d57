// RulerItem: a line between two end markers with its length written beside
// it, for setting the image scale in calibration mode.
#pragma once

#include <QGraphicsLineItem>

class QGraphicsSimpleTextItem;
class MarkerItem;

class RulerItem : public QGraphicsLineItem {
public:
    enum { Type = UserType + 0x111 };

    explicit RulerItem(QGraphicsItem* parent = nullptr);

    int type() const override { return Type; }
    // Moves both ends and rewrites the label with the length in pixels.
    void setEnds(const QPointF& first, const QPointF& second);
    QPointF first() const { return line().p1(); }
    QPointF second() const { return line().p2(); }
    double length() const { return line().length(); }
    QString label() const;

private:
    MarkerItem* m_ends[2];
    QGraphicsSimpleTextItem* m_label;
};
