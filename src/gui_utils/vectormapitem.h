// The base of the vector maps: turns PIV_VECTOR records into arrows, crosses
// and grid marks, coloured by a plain colour, by a quantity through a colour
// table or by validation state. The shapes are kept grouped by colour, so a
// paint is one drawLines (and one path for filled heads) per colour over the
// shapes in the painted area; the groups are rebuilt only when the vectors,
// the record or a colour changes.
#pragma once

#include <QGraphicsRectItem>
#include <QHash>
#include <QPainterPath>
#include <QVector>

#include "bitmap_lut.h"
#include "piv_plot.h"
#include "piv_types.h"

// The "ColorCode" of a vector record. The quantity codes keep the numbers of
// PIVPLOT::ColorCoding for what a node carries by itself (magnitude, snr,
// correlation, components, count, residual). A vector map has no gradients,
// so the numbers the gradient codings take there (3 to 8) are the plain
// colours here. Validation colouring takes the first number after the list;
// a code outside 0 to 14 colours by validation as well.
enum VectorColorCode {
    VCC_MAGNITUDE = 0,
    VCC_SNR = 1,
    VCC_CORRELATION = 2,
    VCC_BLACK = 3,
    VCC_GREY = 4,
    VCC_WHITE = 5,
    VCC_GREEN = 6,
    VCC_RED = 7,
    VCC_BLUE = 8,
    VCC_X_COMPONENT = 9,
    VCC_Y_COMPONENT = 10,
    VCC_Z_COMPONENT = 11,
    VCC_VECTOR_COUNT = 12,
    VCC_RESIDUALS = 13,
    VCC_VALIDATION = 14,
};

// "OutlierDisplay" of a vector record: vectors flagged VECTOR_OUTLIER are
// drawn as arrows like the rest, replaced by a cross in the outlier colour,
// or left out.
enum VectorOutlierDisplay {
    OUTLIERS_SHOW = 0,
    OUTLIERS_MARK_X = 1,
    OUTLIERS_HIDE = 2,
};

// "OffsetType": what is subtracted from every vector before it is drawn.
// Type 2 has no meaning here and subtracts nothing.
enum VectorOffsetType {
    OFFSET_NONE = 0,
    OFFSET_MEAN = 1,
    OFFSET_USER = 3,
};

class VectorMapItem : public QGraphicsRectItem {
public:
    enum { Type = QGraphicsItem::UserType + 30 };

    explicit VectorMapItem(QGraphicsItem* parent = nullptr);

    int type() const override { return Type; }
    QRectF boundingRect() const override;
    // The grid or the vectors, then the frame (the item's pen around rect()).
    void paint(QPainter* painter, const QStyleOptionGraphicsItem* option, QWidget* widget) override;

    // A record equal bytewise to the stored one changes nothing.
    void setVectorCfg(const PIVPLOT::VECTOR_CFG& cfg);
    const PIVPLOT::VECTOR_CFG& vectorCfg() const { return m_cfg; }
    void setColorCfg(const PIVPLOT::COLOR_CFG& colors);
    const PIVPLOT::COLOR_CFG& colorCfg() const { return m_colors; }
    // The item keeps a copy of the table.
    void setLUT(const BitmapLUT& lut);
    const BitmapLUT& lut() const { return m_lut; }
    // Which triple a quantity coding reads (PIVPLOT::ConversionMode).
    void setConversionMode(int mode);
    int conversionMode() const { return m_conversionMode; }
    void setFlagShowGrid(bool on);
    bool isShowGrid() const { return m_showGrid; }
    void setFlagShowFrame(bool on);
    bool isShowFrame() const { return m_showFrame; }

    // The colour of a vector by its status bits (VECTOR_...), from the
    // colour record.
    QRgb GetValidationColor(uint8_t flags) const;
    // The colour of a vector by its validation flags, from `colors`.
    static QRgb ValidationColor(const PIVPLOT::COLOR_CFG& colors, uint8_t flags);
    // A value normalised to 0..1 through the table.
    QRgb vectorColor(double f) const { return m_lut.vectorColor(f); }

protected:
    virtual void drawGrid(QPainter* painter);
    // Draws the colour groups, rebuilding them first when stale.
    virtual void drawVectorField(QPainter* painter);
    // Calls paintVector for every vector to show, after setOffset. Runs
    // while the colour groups are rebuilt, hence const.
    virtual void collectVectors() const = 0;
    // Adds one vector's arrow or cross to its colour group, in this order:
    // outlier display and zero vectors, offset, colour, arrow geometry.
    void paintVector(const PIV_VECTOR& vector) const;
    // The same, drawn from a point between the pixels (a particle's centre).
    void paintVector(const PIV_VECTOR& vector, const QPointF& node) const;
    // The offset paintVector subtracts when the record asks for the mean.
    void setMeanOffset(const PIV_VECTOR& mean) const { m_mean = mean; }
    // The mean of the enabled, not outlier vectors of the three triples.
    static PIV_VECTOR meanVector(const PIV_VECTOR* vectors, long count);
    // Half the size of the cross that marks an outlier.
    void setMarkSize(double size);
    // The vectors, record or colours changed: the groups go stale.
    void invalidateVectors();

private:
    struct ColourGroup {
        QRgb rgb;
        QVector<QLineF> lines;   // shafts, open heads and crosses
        QVector<QPointF> heads;  // filled heads, three corners each
    };
    QRgb colourOf(const PIV_VECTOR& v, const PIV_VECTOR& shown) const;
    ColourGroup& group(QRgb rgb) const;
    void addArrow(ColourGroup& g, const QPointF& node, const QPointF& d) const;
    void addCross(ColourGroup& g, const QPointF& node) const;
    void ensureGroups() const;

    PIVPLOT::VECTOR_CFG m_cfg;
    PIVPLOT::COLOR_CFG m_colors;
    BitmapLUT m_lut;
    int m_conversionMode = PIVPLOT::CONVERT_PIXELS;
    bool m_showGrid = false;
    bool m_showFrame = false;
    double m_markSize = 4.0;

    // The colour groups and what only their rebuild uses.
    mutable bool m_stale = true;
    mutable PIV_VECTOR m_mean;
    mutable QVector<ColourGroup> m_groups;
    mutable QHash<QRgb, int> m_groupOf;
    mutable QRectF m_shapeBounds;
    // What one paint hands to the painter; kept to reuse their memory.
    QVector<QLineF> m_paintLines;
    QPainterPath m_paintHeads;
};
