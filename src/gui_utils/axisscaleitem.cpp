#include "axisscaleitem.h"

#include <QFontMetricsF>
#include <QPainter>
#include <algorithm>

#include "piv_record.h"
#include "tickvalues.h"

AxisScaleItem::AxisScaleItem(Qt::Orientation orientation, QGraphicsItem* parent)
    : QGraphicsItem(parent), m_orientation(orientation) {
    m_cfg.MajorTickSize = 6;
    m_cfg.MinorTickSize = 3;
    m_cfg.PixIncr = 100;
    m_cfg.PhysIncr = 10;
    m_cfg.ShowLabels = true;
    _calcAxisRange();
}

void AxisScaleItem::setConfig(const PIVPLOT::AXIS_CFG& cfg) {
    if (PIV::SameRecord(cfg, m_cfg)) return;
    m_cfg = cfg;
    setVisible(cfg.Show);
    setOpacity(1.0 - std::clamp(cfg.Transparency, 0, 100) / 100.0);
    _calcAxisRange();
}

void AxisScaleItem::setLength(double pixels) {
    m_length = std::max(0.0, pixels);
    _calcAxisRange();
}

void AxisScaleItem::setPhysicalScaling(double factor, double origin, double offset) {
    m_factor = factor;
    m_origin = origin;
    m_offset = offset;
    _calcAxisRange();
}

void AxisScaleItem::setImageOriginOnTop(bool onTop) {
    m_originOnTop = onTop;
    _calcAxisRange();
}

void AxisScaleItem::setColor(const QColor& color) {
    m_color = color;
    update();
}

void AxisScaleItem::setFont(const QFont& font) {
    m_font = font;
    _calcAxisRange();
}

QFont AxisScaleItem::sizedFont(int pixelSize) const {
    QFont f = m_font;
    if (pixelSize > 0) f.setPixelSize(pixelSize);
    return f;
}

QString AxisScaleItem::title() const {
    if (!m_cfg.ShowTitle) return QString();
    return QString::fromUtf8(m_cfg.UsePhysUnit ? m_cfg.PhysTitle : m_cfg.Title);
}

QVector<double> AxisScaleItem::majorTickPositions() const {
    QVector<double> pos;
    for (const Tick& t : m_ticks)
        if (t.major) pos.append(t.pos);
    return pos;
}

// Tick values are image coordinates (x, or y as the origin says) or physical
// ones; a position is where that coordinate lies along the scale.
void AxisScaleItem::_calcAxisRange() {
    prepareGeometryChange();
    m_ticks.clear();
    const bool vertical = m_orientation == Qt::Vertical;
    const auto position = [&](double pixel) {
        return vertical && !m_originOnTop ? m_length - pixel : pixel;
    };
    const int minor = std::max(0, int(m_cfg.MinorTicks));
    const bool phys = m_cfg.UsePhysUnit && m_factor != 0;
    const double incr = phys ? m_cfg.PhysIncr : m_cfg.PixIncr;
    const QVector<TickValue> values =
        phys ? TickValues(m_cfg.PhysAnchor, incr, m_offset - m_origin * m_factor,
                          (m_length - m_origin) * m_factor + m_offset, minor)
             : TickValues(m_cfg.PixAnchor, incr, 0, m_length, minor);
    const int every = std::max(0, int(m_cfg.Skip)) + 1;
    int major = 0;
    for (const TickValue& t : values) {
        const double pixel = phys ? m_origin + (t.value - m_offset) / m_factor : t.value;
        QString label;
        if (t.major && m_cfg.ShowLabels && major++ % every == 0) label = TickLabel(t.value, incr);
        m_ticks.append(Tick{position(pixel), t.major, label});
    }

    const double tick = std::max(m_cfg.MajorTickSize, m_cfg.MinorTickSize);
    QRectF bounds = vertical ? QRectF(-tick, 0, tick, m_length) : QRectF(0, 0, m_length, tick);
    const QFont labelFont = sizedFont(m_cfg.LabelSize);
    double reach = tick;  // how far labels stand off the line
    for (const Tick& t : qAsConst(m_ticks))
        if (!t.label.isEmpty()) {
            const QRectF r = labelRect(t, labelFont);
            bounds |= r;
            reach = std::max(reach, vertical ? -r.left() : r.bottom());
        }
    m_titleRect = QRectF();
    const QString text = title();
    if (!text.isEmpty()) {
        const QFontMetricsF fm(sizedFont(m_cfg.TitleSize));
        const double w = fm.horizontalAdvance(text), h = fm.height();
        // A vertical title is turned a quarter left; its rect is in the
        // turned frame, centred on the scale.
        m_titleRect = vertical ? QRectF(-m_length / 2 - w / 2, -reach - kLabelGap - h, w, h)
                               : QRectF(m_length / 2 - w / 2, reach + kLabelGap, w, h);
        bounds |= vertical ? QRectF(-reach - kLabelGap - h, 0, h, m_length) : m_titleRect;
    }
    const double pad = std::max(1.0f, m_cfg.LineWidth);
    m_bounds = bounds.adjusted(-pad, -pad, pad, pad);
    update();
}

QRectF AxisScaleItem::labelRect(const Tick& tick, const QFont& font) const {
    const QFontMetricsF fm(font);
    const double w = fm.horizontalAdvance(tick.label), h = fm.height();
    const double off = std::max(m_cfg.MajorTickSize, 0) + kLabelGap;
    if (m_orientation == Qt::Vertical) return QRectF(-off - w, tick.pos - h / 2, w, h);
    return QRectF(tick.pos - w / 2, off, w, h);
}

QRectF AxisScaleItem::boundingRect() const {
    return m_bounds;
}

void AxisScaleItem::paint(QPainter* painter, const QStyleOptionGraphicsItem*, QWidget*) {
    painter->save();
    painter->setPen(QPen(m_color, m_cfg.LineWidth));
    const bool vertical = m_orientation == Qt::Vertical;
    QVector<QLineF> lines;
    lines.append(vertical ? QLineF(0, 0, 0, m_length) : QLineF(0, 0, m_length, 0));
    for (const Tick& t : qAsConst(m_ticks)) {
        const double size = t.major ? m_cfg.MajorTickSize : m_cfg.MinorTickSize;
        if (size <= 0) continue;
        lines.append(vertical ? QLineF(0, t.pos, -size, t.pos) : QLineF(t.pos, 0, t.pos, size));
    }
    painter->drawLines(lines);
    painter->setFont(sizedFont(m_cfg.LabelSize));
    for (const Tick& t : qAsConst(m_ticks))
        if (!t.label.isEmpty())
            painter->drawText(labelRect(t, painter->font()), Qt::AlignCenter, t.label);
    if (!m_titleRect.isNull()) {
        painter->setFont(sizedFont(m_cfg.TitleSize));
        if (vertical) painter->rotate(-90);
        painter->drawText(m_titleRect, Qt::AlignCenter, title());
    }
    painter->restore();
}
