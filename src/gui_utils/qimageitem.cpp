#include "qimageitem.h"

#include <QFontMetricsF>
#include <QPainter>

QImageItem::QImageItem(QGraphicsItem* parent) : QGraphicsItem(parent) {
    setCacheMode(QGraphicsItem::DeviceCoordinateCache);
}

QRectF QImageItem::boundingRect() const {
    return m_rect;
}

void QImageItem::paint(QPainter* painter, const QStyleOptionGraphicsItem*, QWidget*) {
    if (!m_logo.isNull()) {
        painter->drawImage(QPointF(0, 0), m_logo);
    } else if (!m_text.isEmpty()) {
        painter->setFont(m_font);
        painter->setPen(m_color);
        painter->drawText(m_rect, Qt::AlignLeft | Qt::AlignTop, m_text);
    }
}

void QImageItem::setText(const QString& text, const QFont& font, const QColor& color) {
    prepareGeometryChange();
    m_logo = QImage();
    m_text = text;
    m_font = font;
    m_color = color;
    const QFontMetricsF metrics(font);
    m_rect = QRectF(QPointF(0, 0), metrics.size(0, text));
    update();
}

bool QImageItem::setLogo(const QString& file) {
    const QImage image(file);
    setLogo(image);
    return !image.isNull();
}

void QImageItem::setLogo(const QImage& image) {
    prepareGeometryChange();
    m_text.clear();
    m_logo = image;
    m_rect = QRectF(QPointF(0, 0), QSizeF(image.size()));
    update();
}
