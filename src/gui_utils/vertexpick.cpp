#include "vertexpick.h"

#include <QGraphicsLineItem>
#include <QGraphicsPathItem>
#include <QGraphicsPolygonItem>
#include <QLineF>
#include <QPainterPath>

#include <algorithm>

QPolygonF SceneVertices(const QGraphicsItem* item) {
    QPolygonF points;
    if (auto* p = qgraphicsitem_cast<const QGraphicsPolygonItem*>(item)) {
        points = p->mapToScene(p->polygon());
    } else if (auto* p = qgraphicsitem_cast<const QGraphicsPathItem*>(item)) {
        // The path's own elements: a fill polygon would close an open polyline.
        const QPainterPath path = p->path();
        for (int i = 0; i < path.elementCount(); ++i) points << p->mapToScene(path.elementAt(i));
    } else if (auto* p = qgraphicsitem_cast<const QGraphicsLineItem*>(item)) {
        points << p->mapToScene(p->line().p1()) << p->mapToScene(p->line().p2());
    }
    return points;
}

int NearestVertex(const QPolygonF& vertices, const QPointF& pos, double zoomFactor) {
    const double reach = kVertexReach / std::max(zoomFactor, 1e-6);
    int found = -1;
    double best = 0.0;
    for (int k = 0; k < vertices.size(); ++k) {
        const double d = QLineF(vertices[k], pos).length();
        if (d <= reach && (found < 0 || d < best)) {
            found = k;
            best = d;
        }
    }
    return found;
}

bool MoveVertex(QGraphicsItem* item, int index, const QPointF& pos) {
    if (index < 0) return false;
    const QPointF local = item->mapFromScene(pos);
    if (auto* p = qgraphicsitem_cast<QGraphicsPolygonItem*>(item)) {
        QPolygonF poly = p->polygon();
        if (index >= poly.size()) return false;
        poly[index] = local;
        p->setPolygon(poly);
    } else if (auto* p = qgraphicsitem_cast<QGraphicsPathItem*>(item)) {
        QPainterPath path = p->path();
        if (index >= path.elementCount()) return false;
        path.setElementPositionAt(index, local.x(), local.y());
        p->setPath(path);
    } else if (auto* p = qgraphicsitem_cast<QGraphicsLineItem*>(item)) {
        if (index > 1) return false;
        QLineF line = p->line();
        index == 0 ? line.setP1(local) : line.setP2(local);
        p->setLine(line);
    } else {
        return false;
    }
    return true;
}
