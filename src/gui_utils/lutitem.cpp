#include "lutitem.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QtGlobal>

#include "piv_record.h"
#include "recordcolor.h"
#include "tickvalues.h"

namespace {
constexpr double kMajorTick = 6, kMinorTick = 3;
// Beyond this the bar is no longer a picture element; painters also stop
// being exact past 16-bit coordinates.
constexpr int kMaxBar = 32767;
}  // namespace

LutItem::LutItem(QGraphicsItem* parent) : QGraphicsItem(parent) {
    m_cfg.Length = 256;
    m_cfg.Width = 16;
    m_cfg.ShowLabels = true;
    setLUT(BitmapLUT());
    rebuildBar();
    layout();
}

void LutItem::setConfig(const PIVPLOT::LUT_CFG& cfg) {
    if (PIV::SameRecord(cfg, m_cfg)) return;
    const bool newBar = cfg.Length != m_cfg.Length || cfg.Width != m_cfg.Width ||
                        cfg.Orientation != m_cfg.Orientation;
    m_cfg = cfg;
    m_min = cfg.ValueMin;
    m_max = cfg.ValueMax;
    setPos(cfg.PosX, cfg.PosY);
    setVisible(cfg.Show);
    if (newBar) rebuildBar();
    layout();
}

void LutItem::setLUT(const BitmapLUT& lut) {
    m_colours.resize(BitmapLUT::kSize);
    for (int i = 0; i < BitmapLUT::kSize; i++) m_colours[i] = lut.rgbValue(i);
    if (!m_bar.isNull()) m_bar.setColorTable(m_colours);
    update();
}

void LutItem::setTitle(const QString& title) {
    m_title = title;
    layout();
}

void LutItem::setFont(const QFont& font) {
    m_font = font;
    layout();
}

void LutItem::setLabelRange(double min, double max) {
    m_min = min;
    m_max = max;
    layout();
}

void LutItem::setMinLabel(double value) {
    setLabelRange(value, m_max);
}

void LutItem::setMaxLabel(double value) {
    setLabelRange(m_min, value);
}

// Pixel i of the bar's length shows entry i·255 / (length - 1), so the ends
// show entries 0 and 255 whatever the length. The bar is kept as a strip
// one pixel across and stretched to its width when painted: a wide bar from
// a plot file costs no more memory than a narrow one.
void LutItem::rebuildBar() {
    const int length = std::max(0, int(m_cfg.Length)), width = std::max(0, int(m_cfg.Width));
    m_bar = QImage();
    if (length < 1 || width < 1) return;
    if (length > kMaxBar || width > kMaxBar) {
        qWarning("LutItem: a colour bar of %d x %d pixels is refused", length, width);
        return;
    }
    const auto entry = [length](int i) { return uchar(length > 1 ? i * 255 / (length - 1) : 0); };
    QImage strip = horizontal() ? QImage(length, 1, QImage::Format_Indexed8)
                                : QImage(1, length, QImage::Format_Indexed8);
    if (strip.isNull()) return;
    for (int i = 0; i < length; i++) {
        if (horizontal())
            strip.scanLine(0)[i] = entry(i);
        else
            strip.scanLine(i)[0] = entry(length - 1 - i);
    }
    strip.setColorTable(m_colours);
    m_bar = strip;
}

QRectF LutItem::labelRect(const Tick& tick) const {
    const QFontMetricsF fm(m_font);
    const double w = fm.horizontalAdvance(tick.label), h = fm.height();
    if (horizontal())
        return QRectF(m_barRect.left() + tick.pos - w / 2,
                      m_barRect.bottom() + kMajorTick + kLabelGap, w, h);
    return QRectF(m_barRect.right() + kMajorTick + kLabelGap, m_barRect.bottom() - tick.pos - h / 2,
                  w, h);
}

void LutItem::layout() {
    prepareGeometryChange();
    const QFontMetricsF fm(m_font);
    const bool title = m_cfg.ShowTitle && !m_title.isEmpty();
    // A vertical bar's end label stands half a line above the bar.
    const double top = title ? fm.height() * (horizontal() ? 1 : 1.5) + kLabelGap : 0;
    const double length = std::max(0, int(m_cfg.Length)), width = std::max(0, int(m_cfg.Width));
    m_barRect = horizontal() ? QRectF(0, top, length, width) : QRectF(0, top, width, length);
    const double tw = fm.horizontalAdvance(m_title);
    m_titleRect = !title         ? QRectF()
                  : horizontal() ? QRectF(m_barRect.center().x() - tw / 2, 0, tw, fm.height())
                                 : QRectF(0, 0, tw, fm.height());

    m_ticks.clear();
    const double span = m_max - m_min;
    const auto along = [&](double v) {
        return (span != 0 ? (v - m_min) / span : 0) * (length - 1) + 0.5;
    };
    QVector<TickValue> values = TickValues(m_min, m_cfg.ValueIncr, m_min, m_max,
                                           m_cfg.MinorTicksShow ? m_cfg.MinorTicks : 0);
    if (values.isEmpty()) values = {{m_min, true}, {m_max, true}};
    for (const TickValue& t : values)
        m_ticks.append(
            Tick{along(t.value), t.major,
                 t.major && m_cfg.ShowLabels ? TickLabel(t.value, m_cfg.ValueIncr) : QString()});

    const double pad = kLabelGap + std::max(1.0f, m_cfg.LineWidth);
    QRectF bounds = m_barRect | m_titleRect;
    bounds |= horizontal() ? m_barRect.adjusted(0, 0, 0, kMajorTick)
                           : m_barRect.adjusted(0, 0, kMajorTick, 0);
    for (const Tick& t : qAsConst(m_ticks))
        if (!t.label.isEmpty()) bounds |= labelRect(t);
    m_bounds = bounds.adjusted(-pad, -pad, pad, pad);
    update();
}

QRectF LutItem::boundingRect() const {
    return m_bounds;
}

void LutItem::paint(QPainter* painter, const QStyleOptionGraphicsItem*, QWidget*) {
    painter->save();
    if (m_cfg.FillBkgd) painter->fillRect(m_bounds, RecordColor(m_cfg.ColorBkgd));
    if (!m_bar.isNull()) painter->drawImage(m_barRect, m_bar);
    painter->setPen(QPen(RecordColor(m_cfg.Color), m_cfg.LineWidth));
    painter->setBrush(Qt::NoBrush);
    painter->setFont(m_font);
    // Outside the bar, so the end columns keep their table colours.
    if (m_cfg.Frame) painter->drawRect(m_barRect.adjusted(-1, -1, 0, 0));
    QVector<QLineF> lines;
    for (const Tick& t : qAsConst(m_ticks)) {
        const double size = t.major ? kMajorTick : kMinorTick;
        if (horizontal()) {
            const double x = m_barRect.left() + t.pos, y = m_barRect.bottom();
            lines.append(QLineF(x, y, x, y + size));
        } else {
            const double x = m_barRect.right(), y = m_barRect.bottom() - t.pos;
            lines.append(QLineF(x, y, x + size, y));
        }
    }
    painter->drawLines(lines);
    for (const Tick& t : qAsConst(m_ticks))
        if (!t.label.isEmpty()) painter->drawText(labelRect(t), Qt::AlignCenter, t.label);
    if (!m_titleRect.isNull()) painter->drawText(m_titleRect, Qt::AlignCenter, m_title);
    painter->restore();
}
