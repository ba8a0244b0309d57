// QImageItem: an annotation of the plot, either a line of text (title,
// subtitle) or a logo bitmap, drawn with its top-left corner at the origin.
#pragma once

#include <QColor>
#include <QFont>
#include <QGraphicsItem>
#include <QImage>
#include <QString>

class QImageItem : public QGraphicsItem {
public:
    enum { Type = UserType + 0x106 };

    explicit QImageItem(QGraphicsItem* parent = nullptr);

    int type() const override { return Type; }
    QRectF boundingRect() const override;
    void paint(QPainter* painter, const QStyleOptionGraphicsItem* option,
               QWidget* widget = nullptr) override;

    // Each replaces the other: the item shows text or a bitmap.
    void setText(const QString& text, const QFont& font, const QColor& color = Qt::black);
    // False, and nothing shown, for a file Qt cannot read.
    bool setLogo(const QString& file);
    void setLogo(const QImage& image);

    QString text() const { return m_text; }
    const QImage& logo() const { return m_logo; }

private:
    QString m_text;
    QFont m_font;
    QColor m_color = Qt::black;
    QImage m_logo;
    QRectF m_rect;
};
