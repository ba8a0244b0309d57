// The corners of outlined shapes under the mouse: a polygon's points, the
// points of a path made of straight pieces (a polyline) and a line's two
// ends, found near a press and moved by a drag, in scene coordinates.
#pragma once

#include <QPointF>
#include <QPolygonF>

class QGraphicsItem;

// How near, in screen pixels, a press must come to a vertex to take it.
constexpr double kVertexReach = 6.0;

// The item's vertices in scene coordinates; empty for items without any
// (rectangles and ellipses are resized by their frame, not by corners).
QPolygonF SceneVertices(const QGraphicsItem* item);
// The vertex nearest `pos` within kVertexReach screen pixels at `zoomFactor`
// screen pixels per scene unit, or -1 if none is that near.
int NearestVertex(const QPolygonF& vertices, const QPointF& pos, double zoomFactor);
// Vertex `index` of the item goes to the scene point `pos`; false for an
// item or index without such a vertex.
bool MoveVertex(QGraphicsItem* item, int index, const QPointF& pos);
