// The mouse over the scenes, by the window's mode: drawing, the ruler, the
// region of interest, and everything else handed on to the data controller.
#include <QGraphicsRectItem>
#include <QGraphicsScene>
#include <QMouseEvent>

#include <cmath>

#include "itemeditor.h"
#include "kelvanedataobject.h"
#include "kelvanedataview.h"
#include "kelvanedataview_bmpitems.h"
#include "kelvanesceneview.h"
#include "qpiv_imagepair.h"
#include "ruleritem.h"
#include "xyplotwindow.h"

void KelvaneDataView::slotMousePressEvent(QMouseEvent* event, QPointF point) {
    m_lastPointer = point;
    const KelvaneMode mode = m_dataObject->kelvaneMode();
    // Drawing and object editing stay inside the view and its editor.
    if (mode >= MODE_MEASURE_MOVE) measurePress(event, point);
    if (mode >= MODE_MEASURE_MOVE || mode == MODE_ROI_EDIT) return;
    const bool inImage =
        m_dataObject->haveImage(0) && m_items[m_currentScene]->dataRect().contains(point);
    emit signalMousePressAt(event, point, inImage);
}

void KelvaneDataView::slotMouseMoveEvent(QMouseEvent* event, QPointF point) {
    m_lastPointer = point;
    updateProfiles(point);
    const KelvaneMode mode = m_dataObject->kelvaneMode();
    KelvaneSceneView* view = m_view[m_currentScene];
    if (mode == MODE_CALIBRATION && view->isOutlineMode() && m_currentScene == 0) {
        m_ruler->setEnds(view->currentLine().p1(), view->currentLine().p2());
        return;
    }
    if (mode == MODE_MEASURE_ADJUST) measureMove(point);
    if (mode >= MODE_MEASURE_MOVE || mode == MODE_ROI_EDIT) return;
    const bool inImage =
        m_dataObject->haveImage(0) && m_items[m_currentScene]->dataRect().contains(point);
    emit signalMouseMoveAt(event, point, inImage);
}

void KelvaneDataView::slotMouseReleaseEvent(QMouseEvent* event, QPointF point) {
    m_lastPointer = point;
    const KelvaneMode mode = m_dataObject->kelvaneMode();
    KelvaneSceneView* view = m_view[m_currentScene];
    if (mode >= MODE_MEASURE_MOVE) {
        measureRelease(event, point);
    } else if (mode == MODE_ROI_EDIT) {
        emit signalNewROI(m_roi->mapRectToScene(m_roi->rect()).normalized().toRect());
    } else if (mode == MODE_CALIBRATION && view->isOutlineMode()) {
        const QLineF line = view->currentLine();
        // A click without a drag keeps the ruler.
        if (line.length() < 2) return;
        m_ruler->setEnds(line.p1(), line.p2());
        emit signalNewRulerLength(m_ruler->length());
    }
}

void KelvaneDataView::slotResetRuler() {
    const QRectF r = m_items[0]->dataRect();
    const qreal y = r.top() + r.height() / 2;
    m_ruler->setEnds(QPointF(r.left() + r.width() / 4, y),
                     QPointF(r.left() + r.width() * 3 / 4, y));
    emit signalNewRulerLength(m_ruler->length());
    ++m_needsRedraw;
}

void KelvaneDataView::slotCenterOrigin() {
    emit signalNewReferencePoint(m_lastPointer);
}

// ---- profiles ------------------------------------------------------------------

bool KelvaneDataView::isProfileVisible(int axis) const {
    return m_profile[axis] && m_profile[axis]->isVisible();
}

void KelvaneDataView::showProfile(int axis, bool show) {
    if (!m_profile[axis]) {
        m_profile[axis] = new XYPlotWindow(
            axis == 0 ? tr("Horizontal profile") : tr("Vertical profile"), m_parent);
        m_profile[axis]->setAxisTitles(axis == 0 ? tr("x [pixel]") : tr("y [pixel]"), tr("I"));
    }
    m_profile[axis]->setVisible(show);
    if (show) updateProfiles(m_lastPointer);
}

void KelvaneDataView::updateProfiles(const QPointF& point) {
    if (!isProfileVisible(0) && !isProfileVisible(1)) return;
    QPIV_ImagePair* pair = m_dataObject->image(0);
    if (pair->isNull()) return;
    Image2D* frames[2] = {pair->imgA(), pair->isImagePair() ? pair->imgB() : nullptr};
    const int x = int(std::floor(point.x())), y = int(std::floor(point.y()));
    const int w = int(frames[0]->width()), h = int(frames[0]->height());
    if (x < 0 || y < 0 || x >= w || y >= h) return;
    for (int axis = 0; axis < 2; ++axis) {
        if (!isProfileVisible(axis)) continue;
        for (int f = 0; f < 2; ++f) {
            QVector<double> values;
            if (frames[f] && frames[f]->width() == frames[0]->width() &&
                frames[f]->height() == frames[0]->height()) {
                values.resize(axis == 0 ? w : h);
                for (int i = 0; i < values.size(); ++i)
                    values[i] = axis == 0 ? frames[f]->pixel(i, y) : frames[f]->pixel(x, i);
            }
            m_profile[axis]->setCurve(f, values);
        }
    }
}
