// The regions over the dots: added, reshaped, fitted to the data and handed
// to validation as its global histogram windows.
#include <QAbstractGraphicsShapeItem>
#include <QGraphicsScene>
#include <QMouseEvent>
#include <QPen>
#include <QStatusBar>

#include <algorithm>
#include <cmath>

#include "hist2dview.h"
#include "imageview.h"
#include "itemeditor.h"
#include "piv_data2d.h"
#include "piv_messages.h"

namespace {

// The region's rectangle in the scene, without its outline.
QRectF RegionRect(const QAbstractGraphicsShapeItem* item) {
    if (auto* r = qgraphicsitem_cast<const QGraphicsRectItem*>(item))
        return r->mapRectToScene(r->rect());
    if (auto* e = qgraphicsitem_cast<const QGraphicsEllipseItem*>(item))
        return e->mapRectToScene(e->rect());
    return QRectF();
}

}  // namespace

void Hist2DView::setRegionShape(int k, bool ellipse) {
    QAbstractGraphicsShapeItem* old = m_regions[k];
    const QRectF rect = old ? RegionRect(old) : QRectF();
    const bool visible = old && old->isVisible();
    QAbstractGraphicsShapeItem* item;
    if (ellipse)
        item = new QGraphicsEllipseItem(rect);
    else
        item = new QGraphicsRectItem(rect);
    QPen pen(Qt::blue, 2.0);
    pen.setCosmetic(true);  // the same line at every zoom
    item->setPen(pen);
    item->setZValue(2.0);
    item->setVisible(visible);
    if (old) {
        if (m_editor && m_editor->currentItem() == old) m_editor->releaseItem();
        delete old;
    }
    m_scene->addItem(item);
    m_regions[k] = item;
}

int Hist2DView::roiCount() const {
    return int(std::count_if(m_regions, m_regions + 3,
                             [](const QAbstractGraphicsShapeItem* r) { return r->isVisible(); }));
}

int Hist2DView::selectedRegion() const {
    for (int k = 0; k < 3; ++k)
        if (m_editor->currentItem() == m_regions[k]) return k;
    for (int k = 0; k < 3; ++k)
        if (m_regions[k]->isVisible()) return k;
    return -1;
}

void Hist2DView::slotAddROI() {
    const auto free =
        std::find_if(m_regions, m_regions + 3,
                     [](const QAbstractGraphicsShapeItem* r) { return !r->isVisible(); });
    if (free != m_regions + 3) {
        m_editor->releaseItem();
        const QRectF scene = m_scene->sceneRect();
        const QRectF rect(scene.width() / 4, scene.height() / 4, scene.width() / 2,
                          scene.height() / 2);
        if (auto* r = qgraphicsitem_cast<QGraphicsRectItem*>(*free)) r->setRect(rect);
        if (auto* e = qgraphicsitem_cast<QGraphicsEllipseItem*>(*free)) e->setRect(rect);
        (*free)->setVisible(true);
        DebugPrintExt(2, "added ROI %d", int(free - m_regions));
    }
    updateUI();
}

void Hist2DView::slotRemoveROI() {
    const int k = selectedRegion();
    if (k < 0) return;
    m_editor->releaseItem();
    m_regions[k]->setVisible(false);
    updateUI();
}

void Hist2DView::slotConvertROIShape() {
    const int k = selectedRegion();
    if (k < 0) return;
    setRegionShape(k, qgraphicsitem_cast<QGraphicsRectItem*>(m_regions[k]) != nullptr);
    m_editor->selectItem(m_regions[k]);
}

void Hist2DView::slotFitROI() {
    const int k = selectedRegion();
    if (k < 0 || !m_data || !m_data->haveRawData()) return;
    const PIV_VECTOR* v = m_data->data();
    double x0 = 0, x1 = 0, y0 = 0, y1 = 0;
    bool any = false;
    for (long i = 0; i < m_data->nodeCount(); ++i) {
        if (!counts(v[i])) continue;
        const QPointF p = toScene(v[i].dx, v[i].dy);
        x0 = any ? std::min(x0, p.x()) : p.x();
        x1 = any ? std::max(x1, p.x()) : p.x();
        y0 = any ? std::min(y0, p.y()) : p.y();
        y1 = any ? std::max(y1, p.y()) : p.y();
        any = true;
    }
    if (!any) return;
    QRectF box(QPointF(x0, y0), QPointF(x1, y1));
    // A dot's width round the outermost ones, so they are inside, not on the edge;
    // an ellipse must reach the corners of the box.
    const bool ellipse = qgraphicsitem_cast<QGraphicsEllipseItem*>(m_regions[k]) != nullptr;
    if (ellipse) {
        const QPointF c = box.center();
        box = QRectF(c - (c - box.topLeft()) * M_SQRT2, c + (box.bottomRight() - c) * M_SQRT2);
    }
    box.adjust(-m_dotSize, -m_dotSize, m_dotSize, m_dotSize);
    m_editor->releaseItem();
    if (auto* r = qgraphicsitem_cast<QGraphicsRectItem*>(m_regions[k])) r->setRect(box);
    if (auto* e = qgraphicsitem_cast<QGraphicsEllipseItem*>(m_regions[k])) e->setRect(box);
    m_regions[k]->setVisible(true);
    m_editor->selectItem(m_regions[k]);
}

void Hist2DView::setROI(const DATA_ROI* rois, const bool* enabled) {
    const double offX = m_cfg.SampleOffset.x, offY = m_cfg.SampleOffset.y;
    for (int k = 0; k < 3; ++k) {
        const DATA_ROI& r = rois[k];
        setRegionShape(k, r.type1);
        const QPointF a = toScene(r.xMin + offX, r.yMax + offY);
        const QPointF b = toScene(r.xMax + offX, r.yMin + offY);
        const QRectF rect = QRectF(a, b).normalized();
        if (auto* q = qgraphicsitem_cast<QGraphicsRectItem*>(m_regions[k])) q->setRect(rect);
        if (auto* e = qgraphicsitem_cast<QGraphicsEllipseItem*>(m_regions[k])) e->setRect(rect);
        m_regions[k]->setVisible(enabled[k]);
    }
    updateUI();
}

const DATA_ROI* Hist2DView::getROI() {
    // Validation measures the windows from the shift the evaluation expects.
    const double offX = m_cfg.SampleOffset.x, offY = m_cfg.SampleOffset.y;
    int used = 0;
    for (DATA_ROI& r : m_rois) r = DATA_ROI{0, 0, 0, 0, true, false};
    for (QAbstractGraphicsShapeItem* item : m_regions) {
        if (!item->isVisible()) continue;
        const QRectF rect = RegionRect(item).normalized();
        const QPointF a = toDisplacement(rect.topLeft()), b = toDisplacement(rect.bottomRight());
        DATA_ROI& r = m_rois[used++];
        r.xMin = float(a.x() - offX);
        r.xMax = float(b.x() - offX);
        r.yMin = float(b.y() - offY);
        r.yMax = float(a.y() - offY);
        r.type1 = qgraphicsitem_cast<QGraphicsEllipseItem*>(item) != nullptr;
        r.type2 = false;
    }
    return m_rois;
}

void Hist2DView::slotValidate() {
    const DATA_ROI* rois = getROI();
    for (int k = 0; k < 3; ++k)
        DebugPrintExt(2, " ROI%d enabled=%d ellipse=%d  x=%g y=%g w=%g h=%g", k,
                      int(k < roiCount()), int(rois[k].type1), double(rois[k].xMin),
                      double(rois[k].yMin), double(rois[k].xMax - rois[k].xMin),
                      double(rois[k].yMax - rois[k].yMin));
    emit signalValidate();
}

void Hist2DView::slotMousePressEvent(QMouseEvent* event, QPointF point) {
    if (event && event->button() != Qt::LeftButton) return;
    if (m_editor->currentItem() && m_editor->handleAt(point) != ItemEditor::NO_HANDLE) return;
    for (QAbstractGraphicsShapeItem* item : m_regions)
        if (item->isVisible() && RegionRect(item).normalized().contains(point)) {
            m_editor->selectItem(item);
            return;
        }
    m_editor->releaseItem();
}

void Hist2DView::slotMouseMoveEvent(QMouseEvent*, QPointF point) {
    const QPointF d = toDisplacement(point);
    statusBar()->showMessage(tr("Pos %1,%2").arg(d.x(), 0, 'f', 3).arg(d.y(), 0, 'f', 3));
}
