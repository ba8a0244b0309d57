#include "pivscalarmapitem.h"

#include <cstring>

#include "image2d.h"
#include "piv_data2d.h"
#include "piv_messages.h"

PIVScalarMapItem::PIVScalarMapItem(QGraphicsItem* parent)
    : Image2DItem(parent), m_scalar(new Image2D) {
    // The scalar image holds table indices already: the identity range.
    setIntensityRange(0, 255);
    setClipping(true);
    m_cfg.lut.PalLength = BitmapLUT::kSize;
    m_cfg.lut.ValueMax = 1.0;
    takeLutFromCfg();
}

PIVScalarMapItem::~PIVScalarMapItem() {
    // The base still holds the index image and lets it go after this.
    m_scalar->release();
    if (m_data) m_data->release();
}

void PIVScalarMapItem::updateData(PIV_Data2D* data) {
    if (data) data->addRef();
    if (m_data) m_data->release();
    m_data = data;
    calculateNewContours();
}

void PIVScalarMapItem::setContourCfg(const PIVPLOT::CONTOUR_CFG& cfg) {
    if (PIV::SameRecord(cfg, m_cfg)) return;
    const PIVPLOT::LUT_CFG &a = cfg.lut, &b = m_cfg.lut;
    const bool sameIndices = cfg.Coding == m_cfg.Coding && cfg.ConvertMode == m_cfg.ConvertMode &&
                             cfg.FillValue == m_cfg.FillValue &&
                             cfg.DataAreaOnly == m_cfg.DataAreaOnly && a.PalLength == b.PalLength &&
                             a.ValueMin == b.ValueMin && a.ValueMax == b.ValueMax &&
                             a.Wrap == b.Wrap;
    m_cfg = cfg;
    takeLutFromCfg();
    if (!sameIndices) {
        calculateNewContours();
        return;
    }
    applyLUT();
    setVisible(m_cfg.Show && !indexImage().isNull());
}

void PIVScalarMapItem::takeLutFromCfg() {
    const PIVPLOT::LUT_CFG& l = m_cfg.lut;
    lut()->setLUT(l.Index, l.UseDiscreteLevels ? l.Levels : BitmapLUT::kSize, l.Reversed);
    const PIVPLOT::OPACITY_CFG& o = m_cfg.opacity;
    lut()->setOpacity(BITMAP_OPACITY_CFG{o.Mode, o.Opacity, o.ColorTrans, o.ColorTransEnable});
}

bool PIVScalarMapItem::calculateNewContours() {
    try {
        if (!m_data || !m_data->haveRawData()) {
            // Nothing measured yet: nothing to show, and nothing went wrong.
            updateImage2D(nullptr);
            hide();
            return false;
        }
        if (!m_data->createScalarImage(m_scalar, m_cfg)) throw PIVerror::OPERATION_FAILED;
        if (m_scalar->isNull()) throw PIVerror::IMAGE_IS_NULL;
        const PIV_VECTOR first = m_data->getVector2D(0, 0);
        setOffset(m_cfg.DataAreaOnly ? QPointF(first.ix, first.iy) : QPointF());
        updateImage2D(m_scalar);
        if (lastError() != 0) throw PIVerror::IMAGE_IS_NULL;
        setVisible(m_cfg.Show);
        return true;
    } catch (PIVerror::ErrorType code) {
        m_error.handleError(code, "calculateNewContours()");
        DebugPrint("ContourMap::calculateNewContours() - Failed");
        updateImage2D(nullptr);
        hide();
        return false;
    }
}

void PIVScalarMapItem::applyLUT() {
    const int p = m_cfg.lut.PalLength;
    if (m_image.isNull() || p < 2 || p >= BitmapLUT::kSize) {
        ImageItem::applyLUT();
        return;
    }
    QVector<QRgb> table(BitmapLUT::kSize);
    for (int i = 0; i < table.size(); i++)
        table[i] = lut()->rgbValue((i < p ? i : p - 1) * (BitmapLUT::kSize - 1) / (p - 1));
    m_image.setColorTable(table);
    update();
}

int PIVScalarMapItem::convertToIndices(QImage& image) {
    if (!m_source || m_source->isNull() || m_source->type() != IMAGE_UINT8) return NO_SOURCE;
    for (int y = 0; y < image.height(); y++)
        std::memcpy(image.scanLine(y), m_source->scanLine<uint8_t>(y), size_t(image.width()));
    return 0;
}
