// MaskItem: a mask image over the picture. Masked pixels (non-zero) take the
// mask colour at the mask opacity; the others are transparent. Its two-colour
// table is its own, so the image's colour table does not touch it.
#pragma once

#include "image2ditem.h"

class MaskItem : public Image2DItem {
public:
    enum { Type = UserType + 0x104 };

    explicit MaskItem(QGraphicsItem* parent = nullptr);

    int type() const override { return Type; }

    void setMaskColor(const QColor& color);
    QColor maskColor() const { return m_color; }
    // 0 invisible to 1 opaque; clamped.
    void setMaskOpacity(double opacity);
    double maskOpacity() const { return m_opacity; }

    void applyLUT() override;

protected:
    int convertToIndices(QImage& image) override;

private:
    QColor m_color = Qt::red;
    double m_opacity = 0.5;
};
