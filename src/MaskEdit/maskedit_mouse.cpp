// MaskEdit: what the mouse does in each mode.
#include <QGraphicsEllipseItem>
#include <QGraphicsPolygonItem>
#include <QGraphicsRectItem>
#include <QGraphicsScene>
#include <QMouseEvent>
#include <cmath>

#include "imageview.h"
#include "itemeditor.h"
#include "maskedit.h"
#include "vertexpick.h"

QGraphicsItem* MaskEdit::itemAt(const QPointF& pos) const {
    // The topmost, that is the last added, wins.
    for (int i = m_items.size() - 1; i >= 0; --i)
        if (m_items[i]->contains(m_items[i]->mapFromScene(pos))) return m_items[i];
    return nullptr;
}

void MaskEdit::slotMousePress(QMouseEvent* event, QPointF pos) {
    switch (m_mode) {
        case MASK_EDIT_MOVE:
            if (m_editor->currentItem() && m_editor->handleAt(pos) != ItemEditor::NO_HANDLE) {
                m_modified = true;
                m_maskValid = false;
                return;  // the editor takes the drag
            }
            if (QGraphicsItem* item = itemAt(pos)) {
                m_editor->selectItem(item);
                m_editor->show();
                m_modified = true;
                m_maskValid = false;
            } else {
                m_editor->releaseItem();
                m_editor->hide();
            }
            return;
        case MASK_EDIT_VERTEX: {
            // Only polygons have vertices here; the first in the list wins.
            m_vertexItem = m_vertex = -1;
            for (int i = 0; i < m_items.size() && m_vertex < 0; ++i) {
                m_vertex = NearestVertex(SceneVertices(m_items[i]), pos, m_view->zoomFactor());
                if (m_vertex >= 0) m_vertexItem = i;
            }
            return;
        }
        case MASK_EDIT_POLYGON:
            if (event->button() == Qt::LeftButton) {
                if (!m_drawing) {
                    m_drawing = new QGraphicsPolygonItem;
                    m_drawing->setPen(QPen(Qt::yellow, 0));
                    m_drawing->setZValue(30);
                    m_scene->addItem(m_drawing);
                }
                QPolygonF poly = m_drawing->polygon();
                poly << pos;
                m_drawing->setPolygon(poly);
            } else if (event->button() == Qt::RightButton && m_drawing) {
                const QPolygonF poly = m_drawing->polygon();
                delete m_drawing;
                m_drawing = nullptr;
                addPolygon(poly);
            }
            return;
        case MASK_EDIT_DELETE:
            if (QGraphicsItem* item = itemAt(pos)) {
                m_items.removeOne(item);
                delete item;
                m_modified = true;
                m_maskValid = false;
                updateCaption();
            }
            return;
        default:
            return;
    }
}

void MaskEdit::slotMouseMove(QMouseEvent*, QPointF pos) {
    if (m_mode != MASK_EDIT_VERTEX || m_vertex < 0) return;
    MoveVertex(m_items[m_vertexItem], m_vertex, pos);
    m_modified = true;
    m_maskValid = false;
}

void MaskEdit::slotMouseRelease(QMouseEvent* event, QPointF) {
    m_vertexItem = m_vertex = -1;
    if (event->button() != Qt::LeftButton || !m_view->isOutlineMode()) return;
    if (m_mode == MASK_EDIT_RECT) {
        const QRectF rect = m_view->currentRect().normalized();
        if (rect.width() >= 1 && rect.height() >= 1) addRectangle(rect);
    } else if (m_mode == MASK_EDIT_ELLIPSE) {
        QRectF rect = m_view->currentRect().normalized();
        if (m_centered) {
            // From the centre out to a corner.
            const QLineF line = m_view->currentLine();
            const QPointF d(std::fabs(line.dx()), std::fabs(line.dy()));
            rect = QRectF(line.p1() - d, line.p1() + d);
        }
        if (rect.width() >= 1 && rect.height() >= 1) addEllipse(rect);
    }
}
