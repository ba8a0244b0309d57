// KelvaneBmpItems: the items of one plot scene (image pair, mask, contours,
// vectors, tracks, probed vectors, colour bars, annotations, reference
// point), created once with their names and stacking and then only shown,
// hidden and fed. The scene owns the items.
#pragma once

#include <QPointF>
#include <QRectF>
#include <QSize>

#include <memory>

#include "bitmap_lut.h"
#include "piv_plot.h"
#include "piv_types.h"

class AxisItem;
class Image2D;
class Image2DItem;
class ImagePairItem;
class LutItem;
class MarkerItem;
class MaskItem;
class PIV_Data2D;
class PIVScalarMapItem;
class PIVVectorMapItem;
class PTV_Data2D;
class PTVVectorMapItem;
class QGraphicsItem;
class QGraphicsRectItem;
class QGraphicsScene;
class QImageItem;
class RandomPIVVectorMapItem;
class RefVectorItem;

class KelvaneBmpItems {
public:
    // The items that are shown and hidden as a whole.
    enum Item {
        ITEM_IMAGE,
        ITEM_IMAGE2,
        ITEM_MASK,
        ITEM_CONTOURS,
        ITEM_VECTORS,
        ITEM_TRACKS,
        ITEM_RANDOM_VECTORS,
        ITEM_REF_VECTOR,
        ITEM_VECTOR_LUT,
        ITEM_CONTOUR_LUT,
        ITEM_IMAGE_LUT,
        ITEM_TITLE,
        ITEM_SUBTITLE,
        ITEM_LOGO,
        ITEM_BACKGROUND,
        ITEM_OVERLAY,
        ITEM_AXES,
        ITEM_REF_POINT,
        ITEM_COUNT
    };

    KelvaneBmpItems(QGraphicsScene* scene, int sceneNumber);
    ~KelvaneBmpItems();
    KelvaneBmpItems(const KelvaneBmpItems&) = delete;
    KelvaneBmpItems& operator=(const KelvaneBmpItems&) = delete;

    QGraphicsItem* item(Item which) const { return m_items[which]; }
    void show(Item which, bool on);
    bool isShown(Item which) const;
    void hideAll();

    // ---- data -------------------------------------------------------------
    // An intermediate field is copied: the running evaluation keeps writing
    // to its own.
    void setPivData(PIV_Data2D* data, bool intermediate);
    const PIV_Data2D* pivData() const;
    void setPTVdata(std::shared_ptr<const PTV_Data2D> tracks);
    void updateImagePair(Image2D* a, Image2D* b);
    void updateImagePairAndMask(Image2D* a, Image2D* b, Image2D* mask);
    void updateMask(Image2D* mask);
    // Sides below 25 pixels are ignored: the scene keeps its size.
    void setImageSize(const QSize& size);
    QSize imageSize() const { return m_imageSize; }
    void setImageToggleMode(bool on);
    bool isImageToggleMode() const { return m_toggle; }
    void showImageFrame(int frame);
    void setImageStacking(int order);
    void addRandomVector(const PIV_VECTOR& vector);
    void clearRandomVectors();
    int randomVectorCount() const;

    // ---- image colours and range ------------------------------------------
    void setIntensityRange(double bottom, double top);
    double intensityBottom() const;
    double intensityTop() const;
    void brighter();
    void darker();
    void setClipping(bool on);
    void setImageLUT(int choice, bool reversed);
    bool setUserLUT(const BitmapLUT& lut);

    // ---- plot record ------------------------------------------------------
    void setPlotCfg(const PIVPLOT::PLOT_CFG& cfg, bool positions);
    const PIVPLOT::PLOT_CFG& currentPlotCfg() const { return m_cfg; }
    // The positions of the arranged items into `cfg`.
    void updateObjectPositions(PIVPLOT::PLOT_CFG& cfg) const;
    void resetObjectPositions();
    void setTitles(const QString& title, const QString& subTitle);
    void setRefPoint(const QPointF& point);
    // Image, or data when there is no image, united with all shown items;
    // true when the scene rectangle changed.
    bool updateBoundingRect();
    QRectF dataRect(bool withMargin = false) const;
    QPointF mapFromScene(const QPointF& point) const;
    void setFlagImageOriginAtTop(bool on) { m_originAtTop = on; }

    // Items movable only while the plot is arranged, the reference point
    // only in calibration mode outside stereo.
    void setKelvaneMode(int mode, bool stereo);

    bool itemsChanged() const { return m_changed; }
    void setFlagItemsChanged(bool on) { m_changed = on; }

    ImagePairItem* imagePair() const { return m_pair; }
    PIVVectorMapItem* vectorMap() const { return m_vectors; }
    PIVScalarMapItem* contourMap() const { return m_contours; }
    LutItem* imageLutItem() const { return m_imageLut; }

private:
    void feedContours(bool force);

    QGraphicsScene* m_scene;
    int m_number;
    QGraphicsRectItem* m_root;
    AxisItem* m_axes;
    ImagePairItem* m_pair;
    Image2DItem* m_second;
    MaskItem* m_mask;
    PIVScalarMapItem* m_contours;
    PIVVectorMapItem* m_vectors;
    PTVVectorMapItem* m_tracks;
    RandomPIVVectorMapItem* m_random;
    RefVectorItem* m_refVector;
    LutItem* m_vectorLut;
    LutItem* m_contourLut;
    LutItem* m_imageLut;
    QImageItem* m_title;
    QImageItem* m_subTitle;
    QImageItem* m_logo;
    QImageItem* m_background;
    QImageItem* m_overlay;
    MarkerItem* m_refPoint;
    QGraphicsItem* m_items[ITEM_COUNT];

    PIVPLOT::PLOT_CFG m_cfg;
    // The field on show (the vector map holds it) and the one under the contours.
    PIV_Data2D* m_field = nullptr;
    PIV_Data2D* m_contoursOf = nullptr;
    QSize m_imageSize;
    bool m_toggle = false;
    bool m_originAtTop = true;
    bool m_changed = false;
};
