// The reference arrow: "PixelShift" pixels at the map's stretch, pointing
// right, with a label below it that tells what the arrow stands for.
#pragma once

#include <QFont>
#include <QGraphicsItem>
#include <QPainterPath>

#include "piv_plot.h"

// "DisplayMode" of the reference vector record: what the label tells, in the
// numbering of PIVPLOT::ConversionMode. Other values label in pixels.
enum RefVectorDisplayMode {
    REFVECTOR_PIXELS = 0,    // "PixelShift" "px"
    REFVECTOR_VELOCITY = 1,  // "Velocity" "VelUnit"
    REFVECTOR_SHIFT = 2,     // "PhysShift" "ShiftUnit"
};

class RefVectorItem : public QGraphicsItem {
public:
    enum { Type = QGraphicsItem::UserType + 36 };

    explicit RefVectorItem(QGraphicsItem* parent = nullptr);

    int type() const override { return Type; }
    QRectF boundingRect() const override;
    void paint(QPainter* painter, const QStyleOptionGraphicsItem* option, QWidget* widget) override;

    // Position, arrow, label and colours; an equal record and stretch
    // change nothing.
    void setConfig(const PIVPLOT::REFVECTOR_CFG& cfg, double stretch = 1.0);
    const PIVPLOT::REFVECTOR_CFG& config() const { return m_cfg; }
    void setFont(const QFont& font);
    QString label() const { return m_label; }
    // The shaft, from its tail to its tip, in item coordinates.
    QLineF arrow() const { return m_shaft; }

protected:
    // Arrow, head, label and box from the record.
    void setShape();

private:
    PIVPLOT::REFVECTOR_CFG m_cfg;
    double m_stretch = 1.0;
    QFont m_font;
    QString m_label;
    QLineF m_shaft;
    QPainterPath m_head;
    QRectF m_labelRect, m_box;
};
