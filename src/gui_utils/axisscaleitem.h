// One axis scale along the image: a line of the image's extent, ticks every
// "PixIncr" pixels from "PixAnchor", or, in physical units, every "PhysIncr"
// from "PhysAnchor" through the pixel-to-unit conversion, with labels and a
// title. A horizontal scale lies along its y = 0 with ticks and labels
// below; a vertical one along its x = 0 with ticks and labels to the left.
#pragma once

#include <QFont>
#include <QGraphicsItem>
#include <QVector>

#include "piv_plot.h"

class AxisScaleItem : public QGraphicsItem {
public:
    enum { Type = QGraphicsItem::UserType + 35 };

    explicit AxisScaleItem(Qt::Orientation orientation, QGraphicsItem* parent = nullptr);

    int type() const override { return Type; }
    QRectF boundingRect() const override;
    void paint(QPainter* painter, const QStyleOptionGraphicsItem* option, QWidget* widget) override;

    // An equal record changes nothing.
    void setConfig(const PIVPLOT::AXIS_CFG& cfg);
    const PIVPLOT::AXIS_CFG& config() const { return m_cfg; }
    // The extent of the image along the axis, in pixels.
    void setLength(double pixels);
    // The physical coordinate of pixel p is (p - origin) · factor + offset.
    void setPhysicalScaling(double factor, double origin, double offset);
    // Rows count down from the top; otherwise a vertical scale counts up
    // from the bottom of the image, as the field's y does.
    void setImageOriginOnTop(bool onTop);
    void setColor(const QColor& color);
    void setFont(const QFont& font);

    Qt::Orientation orientation() const { return m_orientation; }
    // Where the major ticks lie along the scale, in item pixels.
    QVector<double> majorTickPositions() const;

protected:
    // Ticks, labels and the extent of the scale from the record and the
    // scaling.
    void _calcAxisRange();

private:
    struct Tick {
        double pos;  // along the scale, item pixels
        bool major;
        QString label;
    };
    QRectF labelRect(const Tick& tick, const QFont& font) const;
    QFont sizedFont(int pixelSize) const;
    QString title() const;

    Qt::Orientation m_orientation;
    PIVPLOT::AXIS_CFG m_cfg;
    double m_length = 0;
    double m_factor = 1, m_origin = 0, m_offset = 0;
    bool m_originOnTop = false;
    QColor m_color = Qt::black;
    QFont m_font;
    QVector<Tick> m_ticks;
    QRectF m_titleRect, m_bounds;
};
