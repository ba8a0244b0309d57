#include "refvectoritem.h"

#include <QFontMetricsF>
#include <QPainter>
#include <algorithm>

#include "piv_record.h"
#include "recordcolor.h"

namespace {
constexpr double kPad = 4;
}

RefVectorItem::RefVectorItem(QGraphicsItem* parent) : QGraphicsItem(parent) {
    m_cfg.PixelShift = 10;
    setShape();
}

void RefVectorItem::setConfig(const PIVPLOT::REFVECTOR_CFG& cfg, double stretch) {
    if (stretch == m_stretch && PIV::SameRecord(cfg, m_cfg)) return;
    m_cfg = cfg;
    m_stretch = stretch;
    setPos(cfg.PosX, cfg.PosY);
    setVisible(cfg.Show);
    setShape();
}

void RefVectorItem::setFont(const QFont& font) {
    m_font = font;
    setShape();
}

void RefVectorItem::setShape() {
    prepareGeometryChange();
    const auto number = [](double v) { return QString::number(v, 'g', 4); };
    switch (m_cfg.DisplayMode) {
        case REFVECTOR_VELOCITY:
            m_label = number(m_cfg.Velocity) + ' ' + QString::fromUtf8(m_cfg.VelUnit);
            break;
        case REFVECTOR_SHIFT:
            m_label = number(m_cfg.PhysShift) + ' ' + QString::fromUtf8(m_cfg.ShiftUnit);
            break;
        default:
            m_label = number(m_cfg.PixelShift) + QStringLiteral(" px");
    }
    QFont font = m_font;
    if (m_cfg.FontSize > 0) font.setPixelSize(m_cfg.FontSize);
    const QFontMetricsF fm(font);
    const double length = std::max(0.0, m_cfg.PixelShift * m_stretch);
    const double headLength = std::min(8.0, length / 3), headWidth = headLength * 0.6;
    const double textWidth = fm.horizontalAdvance(m_label);
    const double width = std::max(length, textWidth);
    const double y = kPad + headWidth / 2;
    const double x0 = kPad + (width - length) / 2;
    m_shaft = QLineF(x0, y, x0 + length, y);
    m_head = QPainterPath();
    if (headLength > 0) {
        m_head.moveTo(x0 + length, y);
        m_head.lineTo(x0 + length - headLength, y - headWidth / 2);
        m_head.lineTo(x0 + length - headLength, y + headWidth / 2);
        m_head.closeSubpath();
    }
    m_labelRect =
        QRectF(kPad + (width - textWidth) / 2, y + headWidth / 2 + kPad, textWidth, fm.height());
    m_box = QRectF(0, 0, width + 2 * kPad, m_labelRect.bottom() + kPad);
    update();
}

QRectF RefVectorItem::boundingRect() const {
    return m_box.adjusted(-1, -1, 1, 1);
}

void RefVectorItem::paint(QPainter* painter, const QStyleOptionGraphicsItem*, QWidget*) {
    painter->save();
    const QColor colour = RecordColor(m_cfg.Color);
    if (m_cfg.FillBkgd) painter->fillRect(m_box, RecordColor(m_cfg.ColorBkgd));
    painter->setPen(colour);
    painter->setBrush(Qt::NoBrush);
    if (m_cfg.Frame) painter->drawRect(m_box);
    painter->drawLine(m_shaft);
    painter->fillPath(m_head, colour);
    QFont font = m_font;
    if (m_cfg.FontSize > 0) font.setPixelSize(m_cfg.FontSize);
    painter->setFont(font);
    painter->drawText(m_labelRect, Qt::AlignCenter, m_label);
    painter->restore();
}
