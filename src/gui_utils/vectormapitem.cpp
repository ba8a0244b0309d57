#include "vectormapitem.h"

#include <QPaintEngine>
#include <QPainter>
#include <QPen>
#include <algorithm>
#include <cmath>

#include "piv_record.h"
#include "recordcolor.h"

namespace {

// The plain colours of codes 3 to 8.
constexpr QRgb kPlainColours[] = {0xff000000, 0xff7f7f7f, 0xffffffff,
                                  0xff00ff00, 0xffff0000, 0xff0000ff};

bool isPlainColour(int code) {
    return code >= VCC_BLACK && code <= VCC_BLUE;
}

bool isQuantity(int code) {
    return (code >= VCC_MAGNITUDE && code <= VCC_CORRELATION) ||
           (code >= VCC_X_COMPONENT && code <= VCC_RESIDUALS);
}

void subtract(PIV_VECTOR& v, const PIV_VECTOR& o) {
    for (int t = 0; t < 3; t++)
        for (int c = 0; c < 2; c++) PIV::Component(v, t, c) -= PIV::Component(o, t, c);
}

}  // namespace

VectorMapItem::VectorMapItem(QGraphicsItem* parent) : QGraphicsRectItem(parent) {
    m_cfg.Stretch = 1.0;
    m_cfg.ColorCode = VCC_VALIDATION;
}

void VectorMapItem::setVectorCfg(const PIVPLOT::VECTOR_CFG& cfg) {
    if (PIV::SameRecord(cfg, m_cfg)) return;
    m_cfg = cfg;
    invalidateVectors();
}

void VectorMapItem::setColorCfg(const PIVPLOT::COLOR_CFG& colors) {
    if (PIV::SameRecord(colors, m_colors)) return;
    m_colors = colors;
    // The arrows are regrouped only when their colours come from this record:
    // by validation, or the outliers' crosses. The grid reads it when painted.
    const int code = m_cfg.ColorCode;
    if ((!isPlainColour(code) && !isQuantity(code)) || m_cfg.OutlierDisplay == OUTLIERS_MARK_X)
        invalidateVectors();
    else
        update();
}

void VectorMapItem::setLUT(const BitmapLUT& lut) {
    m_lut = lut;
    if (isQuantity(m_cfg.ColorCode)) invalidateVectors();
}

void VectorMapItem::setConversionMode(int mode) {
    if (mode == m_conversionMode) return;
    m_conversionMode = mode;
    invalidateVectors();
}

void VectorMapItem::setFlagShowGrid(bool on) {
    if (on == m_showGrid) return;
    m_showGrid = on;
    update();
}

void VectorMapItem::setFlagShowFrame(bool on) {
    if (on == m_showFrame) return;
    m_showFrame = on;
    update();
}

void VectorMapItem::setMarkSize(double size) {
    if (size == m_markSize) return;
    m_markSize = size;
    invalidateVectors();
}

void VectorMapItem::invalidateVectors() {
    prepareGeometryChange();
    m_stale = true;
    update();
}

QRgb VectorMapItem::GetValidationColor(uint8_t flags) const {
    return ValidationColor(m_colors, flags);
}

QRgb VectorMapItem::ValidationColor(const PIVPLOT::COLOR_CFG& colors, uint8_t flags) {
    if ((flags & VECTOR_ENABLED) && !(flags & VECTOR_OUTLIER)) {
        if (flags & VECTOR_INTERPOLATED) return colors.Interpolated;
        if (flags & VECTOR_LOWER_PEAK) return colors.Replaced;
        return colors.Valid;
    }
    return (flags & VECTOR_EDITED) ? colors.Edited : colors.Outlier;
}

PIV_VECTOR VectorMapItem::meanVector(const PIV_VECTOR* vectors, long count) {
    PIV_VECTOR mean;
    double sum[3][2] = {};
    long n = 0;
    for (long k = 0; k < count; k++) {
        const PIV_VECTOR& v = vectors[k];
        if (!(v.flag & VECTOR_ENABLED) || (v.flag & VECTOR_OUTLIER)) continue;
        for (int t = 0; t < 3; t++)
            for (int c = 0; c < 2; c++) sum[t][c] += PIV::Component(v, t, c);
        n++;
    }
    if (n > 0)
        for (int t = 0; t < 3; t++)
            for (int c = 0; c < 2; c++) PIV::Component(mean, t, c) = float(sum[t][c] / n);
    return mean;
}

QRgb VectorMapItem::colourOf(const PIV_VECTOR& v, const PIV_VECTOR& shown) const {
    const int code = m_cfg.ColorCode;
    if (isPlainColour(code)) return kPlainColours[code - VCC_BLACK];
    if (!isQuantity(code)) return RecordRgb(GetValidationColor(v.flag));
    const double value = _GetCornerVector(shown, code, m_conversionMode);
    const double span = m_cfg.MaxColor - m_cfg.MinColor;
    if (span == 0) return vectorColor(value >= m_cfg.MaxColor ? 1.0 : 0.0);
    return vectorColor((value - m_cfg.MinColor) / span);
}

VectorMapItem::ColourGroup& VectorMapItem::group(QRgb rgb) const {
    auto it = m_groupOf.constFind(rgb);
    if (it != m_groupOf.constEnd()) return m_groups[*it];
    m_groupOf.insert(rgb, m_groups.size());
    m_groups.append(ColourGroup{rgb, {}, {}});
    return m_groups.last();
}

void VectorMapItem::paintVector(const PIV_VECTOR& vector) const {
    paintVector(vector, QPointF(vector.ix, vector.iy));
}

void VectorMapItem::paintVector(const PIV_VECTOR& vector, const QPointF& node) const {
    if (vector.flag & VECTOR_OUTLIER) {
        if (m_cfg.OutlierDisplay == OUTLIERS_HIDE) return;
        if (m_cfg.OutlierDisplay == OUTLIERS_MARK_X) {
            addCross(group(RecordRgb(m_colors.Outlier)), node);
            return;
        }
    }
    if (vector.dx == 0 && vector.dy == 0) return;

    PIV_VECTOR shown = vector;
    if (m_cfg.OffsetType == OFFSET_MEAN) {
        subtract(shown, m_mean);
    } else if (m_cfg.OffsetType == OFFSET_USER) {
        shown.dx -= float(m_cfg.OffsetX);
        shown.dy -= float(m_cfg.OffsetY);
    }
    // dy counts upwards, the rows of the picture downwards.
    addArrow(group(colourOf(vector, shown)), node, QPointF(shown.dx, -shown.dy));
}

void VectorMapItem::addArrow(ColourGroup& g, const QPointF& node, const QPointF& d) const {
    const double norm = std::hypot(d.x(), d.y());
    if (!(norm > 0)) return;
    const double length = m_cfg.UniformVectors ? m_cfg.UniformVectorLength : m_cfg.Stretch * norm;
    if (!std::isfinite(length) || (m_cfg.MaxVector > 0 && length > m_cfg.MaxVector)) return;
    const QPointF u = d / norm;
    const QPointF start = m_cfg.MidPointAnchor ? node - u * (length / 2) : node;
    const QPointF tip = start + u * length;
    g.lines.append(QLineF(start, tip));
    m_shapeBounds |= QRectF(start, tip).normalized();

    double headLength = m_cfg.HeadLength * length, headWidth = m_cfg.HeadWidth * length;
    if (m_cfg.UniformHead) {
        headLength = m_cfg.UniformHeadSize;
        headWidth = m_cfg.UniformHeadSize *
                    (m_cfg.HeadLength > 0 ? m_cfg.HeadWidth / m_cfg.HeadLength : 0.5);
    }
    if (!(headLength > 0)) return;
    const QPointF base = tip - u * headLength;
    const QPointF across = QPointF(-u.y(), u.x()) * (headWidth / 2);
    const QPointF left = base + across, right = base - across;
    if (m_cfg.FillArrowHead) {
        g.heads.append({tip, left, right});
    } else {
        g.lines.append(QLineF(tip, left));
        g.lines.append(QLineF(tip, right));
    }
    m_shapeBounds |= QPolygonF({tip, left, right}).boundingRect();
}

void VectorMapItem::addCross(ColourGroup& g, const QPointF& node) const {
    const QPointF a(m_markSize, m_markSize), b(m_markSize, -m_markSize);
    g.lines.append(QLineF(node - a, node + a));
    g.lines.append(QLineF(node - b, node + b));
    m_shapeBounds |= QRectF(node - a, node + a);
}

void VectorMapItem::ensureGroups() const {
    if (!m_stale) return;
    m_groups.clear();
    m_groupOf.clear();
    m_shapeBounds = QRectF();
    m_mean = PIV_VECTOR();
    collectVectors();
    m_stale = false;
}

QRectF VectorMapItem::boundingRect() const {
    ensureGroups();
    const double pad = std::max(1.0, double(m_cfg.LineWidth)) + pen().widthF();
    return (QGraphicsRectItem::boundingRect() | m_shapeBounds).adjusted(-pad, -pad, pad, pad);
}

void VectorMapItem::paint(QPainter* painter, const QStyleOptionGraphicsItem*, QWidget*) {
    painter->save();
    if (m_showGrid)
        drawGrid(painter);
    else
        drawVectorField(painter);
    if (m_showFrame) {
        painter->setPen(pen());
        painter->setBrush(Qt::NoBrush);
        painter->drawRect(rect());
    }
    painter->restore();
}

void VectorMapItem::drawGrid(QPainter*) {}

// The raster engine pays for every line and head it is given, clipped or
// not: at zoom 1 a window shows about a third of a 2560 x 2160 field, so only
// the shapes that meet the painted area are handed over. Where a line would
// be one screen pixel wide or less, it is drawn as the single-pixel line it
// looks like anyway, which the raster engine draws several times faster.
void VectorMapItem::drawVectorField(QPainter* painter) {
    ensureGroups();
    const QTransform& toDevice = painter->worldTransform();
    bool invertible = false;
    const QTransform toItem = toDevice.inverted(&invertible);
    const QPaintDevice* device = painter->device();
    QRectF area;
    if (invertible && device && device->width() > 0 && device->height() > 0)
        area = toItem.mapRect(QRectF(0, 0, device->width(), device->height()));
    const auto seen = [&area](const QRectF& r) { return area.isEmpty() || area.intersects(r); };
    const bool raster = painter->paintEngine() && painter->paintEngine()->type() == QPaintEngine::Raster;
    const double scale = std::sqrt(std::abs(toDevice.determinant()));
    const bool hairline = raster && m_cfg.LineWidth * scale <= 1.0;

    m_paintHeads.setFillRule(Qt::WindingFill);
    for (const ColourGroup& g : qAsConst(m_groups)) {
        const QColor colour = QColor::fromRgba(g.rgb);
        m_paintLines.clear();
        for (const QLineF& l : g.lines)
            if (seen(QRectF(l.p1(), l.p2()).normalized().adjusted(-1, -1, 1, 1))) m_paintLines.append(l);
        m_paintHeads.clear();
        for (int i = 0; i + 2 < g.heads.size(); i += 3) {
            const QPointF* t = g.heads.constData() + i;
            const QPointF low(std::min({t[0].x(), t[1].x(), t[2].x()}), std::min({t[0].y(), t[1].y(), t[2].y()}));
            const QPointF high(std::max({t[0].x(), t[1].x(), t[2].x()}), std::max({t[0].y(), t[1].y(), t[2].y()}));
            if (!seen(QRectF(low, high))) continue;
            m_paintHeads.moveTo(t[0]);
            m_paintHeads.lineTo(t[1]);
            m_paintHeads.lineTo(t[2]);
            m_paintHeads.closeSubpath();
        }
        painter->setPen(QPen(colour, hairline ? 0 : m_cfg.LineWidth, Qt::SolidLine, Qt::FlatCap, Qt::MiterJoin));
        painter->drawLines(m_paintLines);
        if (!m_paintHeads.isEmpty()) painter->fillPath(m_paintHeads, colour);
    }
}
