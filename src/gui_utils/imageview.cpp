#include "imageview.h"

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileInfo>
#include <QMetaMethod>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainter>
#include <QUrl>

#include <algorithm>
#include <cmath>

ImageView::ImageView(QGraphicsScene* scene, QWidget* parent) : QGraphicsView(scene, parent) {
    setAcceptDrops(true);
    setMouseTracking(true);
    setAlignment(Qt::AlignLeft | Qt::AlignTop);
    setTransformationAnchor(QGraphicsView::AnchorViewCenter);
}

void ImageView::setZoomFactor(double factor) {
    if (!(factor > 0.0) || !std::isfinite(factor)) return;
    m_zoom = factor;
    resetTransform();
    scale(factor, factor);
}

void ImageView::setEditMode(ImageViewMode mode) {
    m_mode = mode;
    m_outline = false;
    setDragMode(mode == VIEW_HAND ? QGraphicsView::ScrollHandDrag : QGraphicsView::NoDrag);
    viewport()->update();
}

QRectF ImageView::currentRect() const {
    QRectF r = QRectF(m_start, m_end).normalized();
    if (m_square) {
        const qreal side = std::min(r.width(), r.height());
        r.setSize(QSizeF(side, side));
    }
    return r;
}

void ImageView::mousePressEvent(QMouseEvent* event) {
    const QPointF at = mapToScene(event->pos());
    if (m_mode != VIEW_PLAIN && m_mode != VIEW_HAND && event->button() == Qt::LeftButton) {
        m_start = m_end = at;
        m_outline = true;
    }
    emit signalMousePressEvent(event, at);
    if (!event->isAccepted() || m_mode == VIEW_PLAIN || m_mode == VIEW_HAND)
        QGraphicsView::mousePressEvent(event);
}

void ImageView::mouseMoveEvent(QMouseEvent* event) {
    const QPointF at = mapToScene(event->pos());
    if (m_outline) {
        m_end = at;
        viewport()->update();
    }
    emit signalMouseMoveEvent(event, at);
    QGraphicsView::mouseMoveEvent(event);
}

void ImageView::mouseReleaseEvent(QMouseEvent* event) {
    const QPointF at = mapToScene(event->pos());
    if (m_outline) m_end = at;
    // The shape is still readable by the receivers of the release.
    emit signalMouseReleaseEvent(event, at);
    m_outline = false;
    viewport()->update();
    QGraphicsView::mouseReleaseEvent(event);
}

// Files are taken only when someone listens; otherwise the drop goes on to
// the window underneath.
void ImageView::dragEnterEvent(QDragEnterEvent* event) {
    dragMoveEvent(event);
}

void ImageView::dragMoveEvent(QDragMoveEvent* event) {
    const QMetaMethod drop = QMetaMethod::fromSignal(&ImageView::signalFileDropEvent);
    if (event->mimeData()->hasUrls() && isSignalConnected(drop))
        event->acceptProposedAction();
    else
        event->ignore();
}

void ImageView::dropEvent(QDropEvent* event) {
    for (const QUrl& url : event->mimeData()->urls())
        if (url.isLocalFile())
            emit signalFileDropEvent(QFileInfo(url.toLocalFile()).absoluteFilePath());
    event->acceptProposedAction();
}

void ImageView::drawForeground(QPainter* painter, const QRectF& rect) {
    QGraphicsView::drawForeground(painter, rect);
    if (!m_outline) return;
    painter->save();
    QPen pen(Qt::yellow, 0, Qt::DashLine);
    painter->setPen(pen);
    painter->setBrush(Qt::NoBrush);
    switch (m_mode) {
        case VIEW_RECTANGLE:
            painter->drawRect(currentRect());
            break;
        case VIEW_ELLIPSE:
            painter->drawEllipse(currentRect());
            break;
        case VIEW_LINE:
            painter->drawLine(currentLine());
            break;
        default:
            break;
    }
    painter->restore();
}
