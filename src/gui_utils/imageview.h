// ImageView: a graphics view of one plot scene with zoom, file drops and a
// rubber band for drawing shapes. Its mouse events leave it as signals that
// carry the scene position, so the owner decides what a click means.
#pragma once

#include <QGraphicsView>
#include <QLineF>
#include <QPointF>
#include <QRectF>

class QMouseEvent;

class ImageView : public QGraphicsView {
    Q_OBJECT
public:
    // What a drag of the left button draws.
    enum ImageViewMode {
        VIEW_PLAIN = 0,      // nothing: clicks pass on
        VIEW_RECTANGLE = 1,  // an axis-parallel rectangle
        VIEW_ELLIPSE = 2,    // the ellipse inside that rectangle
        VIEW_LINE = 3,       // a straight line
        VIEW_HAND = 4,       // the scene is dragged
    };

    explicit ImageView(QGraphicsScene* scene, QWidget* parent = nullptr);

    // Resets the matrix and scales both axes by `factor`.
    void setZoomFactor(double factor);
    double zoomFactor() const { return m_zoom; }

    void setEditMode(ImageViewMode mode);
    ImageViewMode editMode() const { return m_mode; }
    // The shape being drawn, in scene coordinates, while isOutlineMode().
    QRectF currentRect() const;
    QLineF currentLine() const { return QLineF(m_start, m_end); }
    bool isOutlineMode() const { return m_outline; }
    // Rectangles and ellipses keep equal sides, the shorter one winning.
    void setSquareMode(bool on) { m_square = on; }

signals:
    void signalMousePressEvent(QMouseEvent* event, QPointF scenePos);
    void signalMouseMoveEvent(QMouseEvent* event, QPointF scenePos);
    void signalMouseReleaseEvent(QMouseEvent* event, QPointF scenePos);
    void signalFileDropEvent(QString path);

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void drawForeground(QPainter* painter, const QRectF& rect) override;

private:
    double m_zoom = 1.0;
    ImageViewMode m_mode = VIEW_PLAIN;
    bool m_outline = false;
    bool m_square = false;
    QPointF m_start, m_end;
};
