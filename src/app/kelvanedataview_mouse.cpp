// The mouse over the scenes, by the window's mode: drawing, the ruler, the
// region of interest, and everything else handed on to the data controller.
#include <QGraphicsRectItem>
#include <QGraphicsScene>
#include <QMouseEvent>

#include "itemeditor.h"
#include "kelvanedataobject.h"
#include "kelvanedataview.h"
#include "kelvanedataview_bmpitems.h"
#include "kelvanesceneview.h"
#include "ruleritem.h"

void KelvaneDataView::slotMousePressEvent(QMouseEvent* event, QPointF point) {
    m_lastPointer = point;
    const KelvaneMode mode = m_dataObject->kelvaneMode();
    // Drawing and object editing stay inside the view and its editor.
    if (mode >= MODE_MEASURE_MOVE || mode == MODE_ROI_EDIT) return;
    const bool inImage =
        m_dataObject->haveImage(0) && m_items[m_currentScene]->dataRect().contains(point);
    emit signalMousePressAt(event, point, inImage);
}

void KelvaneDataView::slotMouseMoveEvent(QMouseEvent* event, QPointF point) {
    m_lastPointer = point;
    const KelvaneMode mode = m_dataObject->kelvaneMode();
    KelvaneSceneView* view = m_view[m_currentScene];
    if (mode == MODE_CALIBRATION && view->isOutlineMode() && m_currentScene == 0) {
        m_ruler->setEnds(view->currentLine().p1(), view->currentLine().p2());
        return;
    }
    if (mode >= MODE_MEASURE_MOVE || mode == MODE_ROI_EDIT) return;
    const bool inImage =
        m_dataObject->haveImage(0) && m_items[m_currentScene]->dataRect().contains(point);
    emit signalMouseMoveAt(event, point, inImage);
}

void KelvaneDataView::slotMouseReleaseEvent(QMouseEvent*, QPointF point) {
    m_lastPointer = point;
    const KelvaneMode mode = m_dataObject->kelvaneMode();
    KelvaneSceneView* view = m_view[m_currentScene];
    if (mode == MODE_ROI_EDIT) {
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
