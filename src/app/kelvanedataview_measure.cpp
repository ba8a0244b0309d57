// Measuring objects in the scene: drawn by the mouse in the measuring modes,
// kept in the object file, and integrated over the field into MeasureDlg.
#include <QFileDialog>
#include <QGraphicsEllipseItem>
#include <QGraphicsLineItem>
#include <QGraphicsPathItem>
#include <QGraphicsPolygonItem>
#include <QGraphicsRectItem>
#include <QGraphicsScene>
#include <QMouseEvent>
#include <QPainterPath>

#include "itemeditor.h"
#include "kelvanedataobject.h"
#include "kelvanedataview.h"
#include "kelvanesceneview.h"
#include "measuredlg.h"
#include "piv_data2d.h"
#include "plotobjects.h"
#include "vertexpick.h"

namespace {

const qreal kZMeasure = 165;

FPOINT2D _point(const QPointF& p) {
    return {static_cast<float>(p.x()), static_cast<float>(p.y())};
}

QPainterPath _polyline(const QPolygonF& points) {
    QPainterPath path;
    path.addPolygon(points);
    return path;
}

}  // namespace

void KelvaneDataView::addMeasureItem(QGraphicsItem* item) {
    auto* shape = static_cast<QAbstractGraphicsShapeItem*>(item);
    QPen pen(Qt::magenta, 2);
    pen.setCosmetic(true);
    if (auto* line = qgraphicsitem_cast<QGraphicsLineItem*>(item))
        line->setPen(pen);
    else
        shape->setPen(pen);
    item->setZValue(kZMeasure + m_currentScene);
    m_scene[m_currentScene]->addItem(item);
    m_measure[m_currentScene].append(item);
}

void KelvaneDataView::measureObjectsAdd(const PlotObjects& objects) {
    for (size_t i = 0; i < objects.size(); ++i) {
        const PlotObject* o = objects.at(i);
        const PLOT_RECT& r = o->rect();
        const QRectF rect(r.left, r.top, r.right - r.left, r.bottom - r.top);
        QPolygonF points;
        if (auto* p = dynamic_cast<const PlotPolygon*>(o))
            for (const FPOINT2D& q : p->points()) points << QPointF(q.x, q.y);
        switch (o->shape()) {
            case PlotObject::RECTANGLE:
                addMeasureItem(new QGraphicsRectItem(rect));
                break;
            case PlotObject::ELLIPSE:
                addMeasureItem(new QGraphicsEllipseItem(rect));
                break;
            case PlotObject::LINE: {
                auto* l = static_cast<const PlotLine*>(o);
                addMeasureItem(new QGraphicsLineItem(l->point1().x, l->point1().y, l->point2().x,
                                                     l->point2().y));
                break;
            }
            case PlotObject::POLYGON:
                addMeasureItem(new QGraphicsPolygonItem(points));
                break;
            case PlotObject::POLYLINE:
                addMeasureItem(new QGraphicsPathItem(_polyline(points)));
                break;
            default:
                break;
        }
    }
    ++m_needsRedraw;
}

PlotObjects KelvaneDataView::measureObjectsCurrentList() const {
    PlotObjects list;
    for (const QGraphicsItem* item : m_measure[m_currentScene]) {
        std::unique_ptr<PlotObject> o;
        if (auto* r = qgraphicsitem_cast<const QGraphicsRectItem*>(item)) {
            const QRectF s = r->mapRectToScene(r->rect());
            o = std::make_unique<PlotRectangle>();
            o->setRect(s.left(), s.top(), s.width(), s.height());
        } else if (auto* e = qgraphicsitem_cast<const QGraphicsEllipseItem*>(item)) {
            const QRectF s = e->mapRectToScene(e->rect());
            o = std::make_unique<PlotEllipse>();
            o->setRect(s.left(), s.top(), s.width(), s.height());
        } else if (auto* l = qgraphicsitem_cast<const QGraphicsLineItem*>(item)) {
            auto line = std::make_unique<PlotLine>();
            line->setPoints(_point(l->mapToScene(l->line().p1())),
                            _point(l->mapToScene(l->line().p2())));
            o = std::move(line);
        } else {
            auto poly = qgraphicsitem_cast<const QGraphicsPathItem*>(item)
                            ? std::make_unique<PlotPolyLine>()
                            : std::make_unique<PlotPolygon>();
            for (const QPointF& p : SceneVertices(item)) poly->addPoint(_point(p));
            o = std::move(poly);
        }
        list.add(std::move(o));
    }
    return list;
}

QGraphicsItem* KelvaneDataView::getMeasureObjectAt(const QPointF& point) const {
    const QList<QGraphicsItem*>& items = m_measure[m_currentScene];
    for (int i = items.size() - 1; i >= 0; --i) {
        // Lines and polylines are hit within a few pixels of their stroke.
        QPainterPathStroker stroker;
        stroker.setWidth(6.0 / std::max(currentZoomFactor(), 0.01));
        const QPointF local = items[i]->mapFromScene(point);
        if (items[i]->contains(local) || stroker.createStroke(items[i]->shape()).contains(local))
            return items[i];
    }
    return nullptr;
}

void KelvaneDataView::slotMeasureObjectsDeleteAll() {
    m_editor[m_currentScene]->releaseItem();
    m_vertexItem = nullptr;
    qDeleteAll(m_measure[m_currentScene]);
    m_measure[m_currentScene].clear();
    if (m_measureDlg) m_measureDlg->setRows({});
    ++m_needsRedraw;
}

void KelvaneDataView::slotMeasureObjectsSave() {
    const QString file =
        QFileDialog::getSaveFileName(m_parent, tr("Save contour objects"), QString(),
                                     tr("Mask objects (*.msk);;All files (*.*)"));
    if (file.isEmpty()) return;
    const PlotObjects list = measureObjectsCurrentList();
    if (!list.save(file.toStdString()))
        emit signalMessage(QString::fromStdString(list.lastError()));
}

void KelvaneDataView::slotMeasureObjectsLoad() {
    const QString file =
        QFileDialog::getOpenFileName(m_parent, tr("Load contour objects"), QString(),
                                     tr("Mask objects (*.msk);;All files (*.*)"));
    if (file.isEmpty()) return;
    PlotObjects list;
    if (!list.load(file.toStdString())) {
        emit signalMessage(QString::fromStdString(list.lastError()));
        return;
    }
    measureObjectsAdd(list);
    slotMeasureObjectsUpdate();
}

void KelvaneDataView::slotMeasureObjectsUpdate() {
    PIV_Data2D* field = m_dataObject->data(-1);
    if (!field || field->isNull()) return;
    if (!m_measureDlg) {
        m_measureDlg = new MeasureDlg(m_parent);
        connect(m_measureDlg, &MeasureDlg::signalUpdate, this,
                &KelvaneDataView::slotMeasureObjectsUpdate);
    }
    const PIVCONVERT_CFG& cv = field->pivParameters().convert;
    const bool physical = m_measureDlg->isPhysical();
    const PlotObjects list = measureObjectsCurrentList();
    QVector<MEASURE_ROW> rows;
    for (size_t i = 0; i < list.size(); ++i) {
        const PlotObject* o = list.at(i);
        const PLOT_RECT& r = o->rect();
        MEASURE_ROW row{};
        row.closed = o->shape() != PlotObject::LINE && o->shape() != PlotObject::POLYLINE;
        const auto* poly = dynamic_cast<const PlotPolygon*>(o);
        switch (o->shape()) {
            case PlotObject::RECTANGLE:
                row.shape = tr("Rectangle");
                row.valid = field->integrateRect(0, r.left, r.top, o->width(), o->height(),
                                                 row.data, physical);
                break;
            case PlotObject::ELLIPSE:
                row.shape = tr("Ellipse");
                row.valid = field->integrateEllipse(0, r.left, r.top, o->width(), o->height(),
                                                    row.data, physical);
                break;
            case PlotObject::LINE: {
                auto* l = static_cast<const PlotLine*>(o);
                row.shape = tr("Line");
                row.valid = field->integrateLine(0, l->point1(), l->point2(), row.data, physical);
                break;
            }
            case PlotObject::POLYGON:
                row.shape = tr("Polygon");
                row.valid = field->integratePolygon(0, poly->points().data(),
                                                    int(poly->points().size()), row.data, physical);
                break;
            case PlotObject::POLYLINE: {
                // Along the polyline, piece by piece, as a line integral.
                row.shape = tr("PolyLine");
                const auto& p = poly->points();
                row.valid = p.size() > 1;
                for (size_t k = 1; k < p.size() && row.valid; ++k) {
                    INTEGRATION_DATA piece{};
                    row.valid = field->integrateLine(0, p[k - 1], p[k], piece, physical);
                    row.data.length += piece.length;
                    row.data.circulation += piece.circulation;
                    row.data.entrainment += piece.entrainment;
                }
                break;
            }
            default:
                break;
        }
        rows.append(row);
    }
    m_measureDlg->setConversion(cv.PulseDelay, cv.LengthConversion[0],
                                QString::fromLatin1(cv.LengthConversionUnits),
                                QString::fromLatin1(cv.VelocityUnits));
    m_measureDlg->setRows(rows);
    m_measureDlg->show();
}

// ---- the mouse -----------------------------------------------------------------

void KelvaneDataView::measurePress(QMouseEvent* event, const QPointF& point) {
    const KelvaneMode mode = m_dataObject->kelvaneMode();
    ItemEditor* editor = m_editor[m_currentScene];
    if (mode == MODE_MEASURE_DELETE) {
        if (QGraphicsItem* item = getMeasureObjectAt(point)) {
            if (editor->currentItem() == item) editor->releaseItem();
            if (m_vertexItem == item) m_vertexItem = nullptr;
            m_measure[m_currentScene].removeOne(item);
            delete item;
            slotMeasureObjectsUpdate();
        }
    } else if (mode == MODE_MEASURE_ADJUST) {
        // The topmost object with a vertex near the press; rectangles and
        // ellipses have none and keep to the resize mode.
        m_vertexItem = nullptr;
        m_vertex = -1;
        const QList<QGraphicsItem*>& items = m_measure[m_currentScene];
        for (int i = items.size() - 1; i >= 0 && !m_vertexItem; --i) {
            m_vertex = NearestVertex(SceneVertices(items[i]), point, currentZoomFactor());
            if (m_vertex >= 0) m_vertexItem = items[i];
        }
    } else if (mode == MODE_MEASURE_MOVE || mode == MODE_MEASURE_RESIZE) {
        if (editor->currentItem() && editor->handleAt(point) != ItemEditor::NO_HANDLE) return;
        if (QGraphicsItem* item = getMeasureObjectAt(point)) {
            editor->selectItem(item);
            editor->show();
        } else {
            editor->releaseItem();
            editor->hide();
        }
    } else if (mode == MODE_MEASURE_POLYGON || mode == MODE_MEASURE_POLYLINE) {
        if (event->button() == Qt::LeftButton) {
            m_measurePoints << point;
            if (!m_measureDraft) {
                m_measureDraft = new QGraphicsPathItem;
                m_measureDraft->setPen(QPen(Qt::magenta, 0, Qt::DashLine));
                m_measureDraft->setZValue(kZMeasure + 10);
                m_scene[m_currentScene]->addItem(m_measureDraft);
            }
            m_measureDraft->setPath(_polyline(m_measurePoints));
        } else if (event->button() == Qt::RightButton) {
            const QPolygonF points = m_measurePoints;
            delete m_measureDraft;
            m_measureDraft = nullptr;
            m_measurePoints.clear();
            if (points.size() >= (mode == MODE_MEASURE_POLYGON ? 3 : 2)) {
                if (mode == MODE_MEASURE_POLYGON)
                    addMeasureItem(new QGraphicsPolygonItem(points));
                else
                    addMeasureItem(new QGraphicsPathItem(_polyline(points)));
                slotMeasureObjectsUpdate();
            }
        }
    }
}

void KelvaneDataView::measureMove(const QPointF& point) {
    if (m_vertexItem) MoveVertex(m_vertexItem, m_vertex, point);
}

void KelvaneDataView::measureRelease(QMouseEvent* event, const QPointF&) {
    const KelvaneMode mode = m_dataObject->kelvaneMode();
    KelvaneSceneView* view = m_view[m_currentScene];
    if (event->button() == Qt::LeftButton && view->isOutlineMode()) {
        const QRectF rect = view->currentRect().normalized();
        const QLineF line = view->currentLine();
        if (mode == MODE_MEASURE_LINE && line.length() >= 1)
            addMeasureItem(new QGraphicsLineItem(line));
        else if (mode == MODE_MEASURE_RECTANGLE && rect.width() >= 1 && rect.height() >= 1)
            addMeasureItem(new QGraphicsRectItem(rect));
        else if (mode == MODE_MEASURE_ELLIPSE && rect.width() >= 1 && rect.height() >= 1)
            addMeasureItem(new QGraphicsEllipseItem(rect));
        else
            return;
        slotMeasureObjectsUpdate();
    } else if (mode == MODE_MEASURE_ADJUST) {
        if (!m_vertexItem) return;
        m_vertexItem = nullptr;
        slotMeasureObjectsUpdate();
    } else if (mode == MODE_MEASURE_MOVE || mode == MODE_MEASURE_RESIZE) {
        if (m_editor[m_currentScene]->currentItem()) slotMeasureObjectsUpdate();
    }
}
