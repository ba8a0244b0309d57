// ImageItem: a bitmap in the plot scene. It keeps the picture as an indexed
// QImage of table indices plus the 256 colours of its ImageLut, so that a
// colour change rewrites the colour table only; the indices are rebuilt on
// new data or a new intensity range. Derived items supply the pixels.
#pragma once

#include <QColor>
#include <QGraphicsItem>
#include <QImage>

#include "image_base.h"
#include "imagelut.h"

class ImageItem : public QGraphicsItem {
public:
    enum { Type = UserType + 0x101 };
    // Codes of a failed conversion; the item then shows nothing.
    enum ConversionError { NO_SOURCE = -1, NO_MEMORY = -2, EQUAL_LIMITS = -4 };

    explicit ImageItem(QGraphicsItem* parent = nullptr);
    ~ImageItem() override;

    int type() const override { return Type; }
    QRectF boundingRect() const override;
    void paint(QPainter* painter, const QStyleOptionGraphicsItem* option,
               QWidget* widget = nullptr) override;

    // ---- colours: only the colour table of the picture changes ----------
    // Shares `lut` (null keeps the current one).
    void setLUT(ImageLut* lut);
    ImageLut* lut() const { return m_lut; }
    void setLUTChoice(int choice, int levels = BitmapLUT::kSize, bool reversed = false);
    // Copies the table's colours into the picture, after a change to the table.
    virtual void applyLUT();

    // ---- range: the indices are rebuilt ----------------------------------
    // The larger of the two is the maximum.
    void setIntensityRange(double a, double b);
    double minimum() const { return m_min; }
    double maximum() const { return m_max; }
    // Integer images: 0 to the data maximum rounded up to 2^k - 1 (at most
    // 65535; a maximum of 2 or less gives 0 to 1). Float images: the data range.
    void autoScale(bool recalculate = true);
    void brighter();
    void darker();
    // With scaling the range halves or doubles over its bottom; without it
    // the top follows the powers of two less 1.
    void setIntensityScaling(bool on) { m_intensityScaling = on; }
    bool intensityScaling() const { return m_intensityScaling; }
    // Off: values past the top wrap around the table, so over-exposure shows.
    void setClipping(bool on);
    bool clipping() const { return m_clip; }

    // Rebuilds the indices from the source, unless held back by delayUpdate.
    bool calculateNewImage();
    // While on, calculateNewImage only notes that it is due; turning it off
    // catches up.
    void delayUpdate(bool on);

    // ---- display ----------------------------------------------------------
    void setOrientation(bool flipX, bool flipY);
    void setFrame(bool on, const QColor& color = Qt::black, qreal width = 1.0);
    // Where the picture's first pixel sits in item coordinates.
    void setOffset(const QPointF& offset);

    // The code of the last conversion: 0, or a ConversionError.
    int lastError() const { return m_lastError; }
    const QImage& indexImage() const { return m_image; }

protected:
    // The source's size, pixel type and data range; false without a source.
    virtual bool sourceInfo(int* width, int* height, ImageType* type) const;
    virtual bool sourceRange(double* low, double* high);
    // Fills `image` (indexed, of the source's size) with table indices;
    // returns 0 or a ConversionError.
    virtual int convertToIndices(QImage& image);
    // The index rule for raw rows of any pixel type.
    int convertRows(const uint8_t* bits, long bytesPerLine, ImageType type, QImage& image) const;
    int tableSize() const { return m_lut->size(); }

    QImage m_image;

private:
    ImageLut* m_lut;
    double m_min = 0.0, m_max = 255.0;
    bool m_clip = true;
    bool m_intensityScaling = true;
    bool m_delay = false;
    bool m_pending = false;
    bool m_flipX = false, m_flipY = false;
    bool m_frame = false;
    QColor m_frameColor = Qt::black;
    qreal m_frameWidth = 1.0;
    QPointF m_offset;
    int m_lastError = NO_SOURCE;
};
