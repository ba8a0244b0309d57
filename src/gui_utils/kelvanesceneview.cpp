#include "kelvanesceneview.h"

#include <cmath>

#include "kelvanestate.h"

namespace {

const double kZoomFactors[KelvaneSceneView::kZoomCount] = {
    0.1, 0.125, 0.2, 0.25, 0.3333333, 0.5, 0.75, 1, 1.5, 2, 3, 4, 6, 8, 10, 12, 16, 20};

}  // namespace

KelvaneSceneView::KelvaneSceneView(QGraphicsScene* scene, QWidget* parent)
    : ImageView(scene, parent) {}

double KelvaneSceneView::zoomFactorAt(int index) {
    return index >= 0 && index < kZoomCount ? kZoomFactors[index] : 1.0;
}

int KelvaneSceneView::zoomIndexOf(double factor) {
    int best = kZoomOne;
    double nearest = 0.01;
    for (int i = 0; i < kZoomCount; ++i) {
        const double d = std::fabs(kZoomFactors[i] - factor);
        if (d <= nearest) {
            nearest = d;
            best = i;
        }
    }
    return best;
}

QString KelvaneSceneView::zoomText(int index) {
    return QStringLiteral("%1%").arg(100.0 * zoomFactorAt(index));
}

void KelvaneSceneView::setKelvaneMode(int mode) {
    switch (mode) {
        case MODE_CALIBRATION:
        case MODE_MEASURE_LINE:
            setEditMode(VIEW_LINE);
            break;
        case MODE_MEASURE_RECTANGLE:
            setEditMode(VIEW_RECTANGLE);
            break;
        case MODE_MEASURE_ELLIPSE:
            setEditMode(VIEW_ELLIPSE);
            break;
        default:
            setEditMode(VIEW_PLAIN);
    }
}
