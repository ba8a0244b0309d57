// The colour bar: the table as a bar of `Length` by `Width` pixels, entry 0
// at the left (horizontal) or bottom (vertical) end and entry 255 at the
// other, with frame, title, ticks every `ValueIncr` and their labels. The
// bar is an indexed image, so a new table rewrites 256 colours only.
#pragma once

#include <QFont>
#include <QGraphicsItem>
#include <QImage>
#include <QVector>

#include "bitmap_lut.h"
#include "piv_plot.h"

class LutItem : public QGraphicsItem {
public:
    enum { Type = QGraphicsItem::UserType + 33 };
    enum Orientation { Horizontal = 0, Vertical = 1 };

    explicit LutItem(QGraphicsItem* parent = nullptr);

    int type() const override { return Type; }
    QRectF boundingRect() const override;
    void paint(QPainter* painter, const QStyleOptionGraphicsItem* option, QWidget* widget) override;

    // Position, size, orientation, ticks and colours; the label range
    // becomes ValueMin to ValueMax. An equal record changes nothing.
    void setConfig(const PIVPLOT::LUT_CFG& cfg);
    const PIVPLOT::LUT_CFG& config() const { return m_cfg; }
    void setLUT(const BitmapLUT& lut);
    void setTitle(const QString& title);
    void setFont(const QFont& font);
    // The values written at the two ends of the bar.
    void setLabelRange(double min, double max);
    void setMinLabel(double value);
    void setMaxLabel(double value);
    double minLabel() const { return m_min; }
    double maxLabel() const { return m_max; }
    // The bar in item coordinates.
    QRectF barRect() const { return m_barRect; }

private:
    struct Tick {
        double pos;  // along the bar from its start, in pixels
        bool major;
        QString label;
    };
    void rebuildBar();
    void layout();
    QRectF labelRect(const Tick& tick) const;
    bool horizontal() const { return m_cfg.Orientation != Vertical; }

    PIVPLOT::LUT_CFG m_cfg;
    double m_min = 0, m_max = 1;
    QString m_title;
    QFont m_font;
    QVector<QRgb> m_colours;
    QImage m_bar;
    QRectF m_barRect, m_titleRect, m_bounds;
    QVector<Tick> m_ticks;
};
