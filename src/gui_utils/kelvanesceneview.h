// KelvaneSceneView: the view of one data slot's scene. It knows the zoom
// steps the window offers and how each interaction mode of the window draws.
#pragma once

#include "imageview.h"

class KelvaneSceneView : public ImageView {
    Q_OBJECT
public:
    static constexpr int kZoomCount = 18;
    static constexpr int kZoomOne = 7;  // the index of factor 1

    explicit KelvaneSceneView(QGraphicsScene* scene, QWidget* parent = nullptr);

    static double zoomFactorAt(int index);
    // The index of the entry within 0.01 of `factor`, else that of factor 1.
    static int zoomIndexOf(double factor);
    // The combo text of an entry: "%1%" of 100 times the factor.
    static QString zoomText(int index);

    // A window mode (KelvaneMode) chooses what a drag draws.
    void setKelvaneMode(int mode);
};
