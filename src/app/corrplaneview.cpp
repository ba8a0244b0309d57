#include "corrplaneview.h"

#include <QGraphicsScene>
#include <QMouseEvent>
#include <QStatusBar>
#include <QToolBar>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "bitmap_lut.h"
#include "image2d.h"
#include "image2ditem.h"
#include "imageview.h"
#include "markeritem.h"
#include "toolbaroptions.h"

namespace {

// Planes are small: a window of 32 px wants a few screen pixels a pixel.
constexpr double kZooms[] = {1.0, 2.0, 3.0, 4.0, 6.0, 8.0};
constexpr int kZoomCount = int(sizeof(kZooms) / sizeof(kZooms[0]));
constexpr int kLutCount = LUT_USER_DEFINED;  // the user's table has no colours here
constexpr qreal kGap = 4.0;                  // between the pictures, in plane pixels

// Replaces the float image `image` by the plane; an empty plane leaves it empty.
void _fill(Image2D* image, const FloatPlane& plane) {
    if (!plane.values) {
        image->destroy();
        return;
    }
    if (!image->resize(plane.width, plane.height, IMAGE_FLOAT)) return;
    for (int y = 0; y < plane.height; ++y)
        std::memcpy(image->scanLine<float>(uint64_t(y)),
                    plane.values->data() + size_t(y) * size_t(plane.width),
                    sizeof(float) * size_t(plane.width));
}

}  // namespace

CorrPlaneView::CorrPlaneView(QWidget* parent) : QMainWindow(parent) {
    setWindowTitle(tr("Correlation plane"));
    m_scene = new QGraphicsScene(this);
    m_view = new ImageView(m_scene, this);
    setCentralWidget(m_view);
    for (int v = 0; v < kViews; ++v)
        for (int k = 0; k < 3; ++k) {
            m_images[v][k] = new Image2D();  // one reference, ours
            m_items[v][k] = new Image2DItem();
            m_items[v][k]->setIntensityScaling(false);
            m_scene->addItem(m_items[v][k]);
        }
    m_marker = new MarkerItem();
    m_marker->setZValue(1.0);
    m_scene->addItem(m_marker);

    QToolBar* bar = addToolBar(tr("Correlation plane"));
    QAction* samples = bar->addAction(tr("Samples"), this, &CorrPlaneView::slotShowSamples);
    samples->setCheckable(true);
    samples->setChecked(m_showSamples);
    bar->addAction(tr("Zoom in"), this, &CorrPlaneView::slotZoomIn);
    bar->addAction(tr("Zoom out"), this, &CorrPlaneView::slotZoomOut);
    bar->addAction(tr("Previous LUT"), this, &CorrPlaneView::slotLUTPrevious);
    bar->addAction(tr("Next LUT"), this, &CorrPlaneView::slotLUTNext);
    bar->addAction(tr("Save"), this, &CorrPlaneView::slotSaveCorr);
    connect(m_view, &ImageView::signalMousePressEvent, this, &CorrPlaneView::slotMousePressEvent);
    connect(m_view, &ImageView::signalMouseMoveEvent, this, &CorrPlaneView::slotMouseMoveEvent);
    statusBar();
    slotSetZoom(2);
}

CorrPlaneView::~CorrPlaneView() {
    // The items hold references of their own and go with the scene.
    for (auto& view : m_images)
        for (Image2D* image : view) image->release();
}

void CorrPlaneView::setStereoMode(bool on) {
    m_stereo = on;
    redraw();
}

void CorrPlaneView::setDisplayParams(const BMP_DISPLAY_PARAMS& params) {
    m_lut = std::clamp(int(params.LUTIndex), 0, kLutCount - 1);
    m_display = params;
    applyLut();
}

void CorrPlaneView::setToolbarOptions(const QSize& size, Qt::ToolButtonStyle text,
                                      const QFont& font) {
    ApplyToolbarOptions(this, size, text, font);
}

void CorrPlaneView::registryIO(MySettings* settings, MySettings::AccessMode mode) {
    if (!settings) return;
    settings->serializeBool(mode, QStringLiteral("/CorrPlane/ShowSamples"), &m_showSamples);
    settings->serializeInt(mode, QStringLiteral("/CorrPlane/ZoomIndex"), &m_zoomIndex);
    if (mode == MySettings::READ) slotSetZoom(m_zoomIndex);
}

void CorrPlaneView::slotDrawSamples(const FloatPlane& a, const FloatPlane& b, int, int index) {
    if (!isVisible() || !a.values || !b.values || a.width < 1 || a.height < 1) return;
    drawSamples(a, b, index > 0 ? 1 : 0);
}

void CorrPlaneView::slotDrawCorrelation(const FloatPlane& plane, const PIV_VECTOR& vector,
                                        int index) {
    if (!isVisible() || !plane.values || plane.width < 1 || plane.height < 1) return;
    const int view = index > 0 ? 1 : 0;
    m_vector[view] = vector;
    drawCorrelation(plane, view);
    redraw();
}

void CorrPlaneView::drawSamples(const FloatPlane& a, const FloatPlane& b, int view) {
    m_sample[view][0] = a;
    m_sample[view][1] = b;
    for (int k = 1; k < 3; ++k) {
        _fill(m_images[view][k], m_sample[view][k - 1]);
        m_items[view][k]->updateImage2D(m_images[view][k]);
        m_items[view][k]->autoScale();
    }
}

void CorrPlaneView::drawCorrelation(const FloatPlane& plane, int view) {
    m_plane[view] = plane;
    ++m_planeNumber;
    _fill(m_images[view][0], plane);
    m_items[view][0]->updateImage2D(m_images[view][0]);
    m_items[view][0]->autoScale();
}

QPointF CorrPlaneView::markerPosition() const {
    const FloatPlane& p = m_plane[0];
    const PIV_VECTOR& v = m_vector[0];
    // The plane is correlated about the expected shift; its rows run
    // against the vector's dy, which already holds that shift's y.
    const double dx = double(v.dx) - m_cfg.SampleOffset.x;
    const double dy = m_cfg.SampleOffset.y - double(v.dy);
    const double limit = 1e12 * std::max(p.width, p.height);
    if (!std::isfinite(dx) || !std::isfinite(dy) || std::abs(dx) > limit || std::abs(dy) > limit)
        return QPointF(p.width / 2, p.height / 2);
    return QPointF(p.width / 2 + dx, p.height / 2 + dy);
}

void CorrPlaneView::redraw() {
    qreal y = 0.0;
    for (int v = 0; v < kViews; ++v) {
        const bool shown = v == 0 || m_stereo;
        qreal x = 0.0;
        for (int k = 0; k < 3; ++k) {
            const FloatPlane& p = k == 0 ? m_plane[v] : m_sample[v][k - 1];
            Image2DItem* item = m_items[v][k];
            item->setVisible(shown && p.values && (k == 0 || m_showSamples));
            item->setPos(x, y);
            if (item->isVisible()) x += p.width + kGap;
        }
        if (shown) y += std::max({m_plane[v].height, m_sample[v][0].height}) + kGap;
    }
    m_marker->setVisible(haveData());
    // The centre of a pixel, as the image items draw pixel k over [k, k+1).
    m_marker->setPos(markerPosition() + QPointF(0.5, 0.5));
    m_scene->setSceneRect(m_scene->itemsBoundingRect());
}

void CorrPlaneView::slotShowSamples(bool on) {
    m_showSamples = on;
    redraw();
}

void CorrPlaneView::applyLut() {
    for (auto& view : m_items)
        for (Image2DItem* item : view)
            item->setLUTChoice(m_lut, BitmapLUT::kSize, m_display.Reversed);
}

void CorrPlaneView::slotLUTNext() {
    m_lut = (m_lut + 1) % kLutCount;
    applyLut();
}

void CorrPlaneView::slotLUTPrevious() {
    m_lut = (m_lut + kLutCount - 1) % kLutCount;
    applyLut();
}

void CorrPlaneView::slotSetZoom(int index) {
    m_zoomIndex = std::clamp(index, 0, kZoomCount - 1);
    m_view->setZoomFactor(kZooms[m_zoomIndex]);
}

bool CorrPlaneView::planePixel(const QPointF& point, int* view, int* x, int* y) const {
    for (int v = 0; v < kViews; ++v) {
        const Image2DItem* item = m_items[v][0];
        if (!item->isVisible()) continue;
        const QPointF local = point - item->pos();
        const int px = int(std::floor(local.x())), py = int(std::floor(local.y()));
        if (px < 0 || py < 0 || px >= m_plane[v].width || py >= m_plane[v].height) continue;
        *view = v;
        *x = px;
        *y = py;
        return true;
    }
    return false;
}

void CorrPlaneView::slotMouseMoveEvent(QMouseEvent*, QPointF point) {
    int v = 0, x = 0, y = 0;
    if (!planePixel(point, &v, &x, &y)) return;
    const FloatPlane& p = m_plane[v];
    const int dx = x - p.width / 2, dy = y - p.height / 2;
    statusBar()->showMessage(
        tr("Pos %1,%2  Shift %3,%4  Corr %5")
            .arg(x)
            .arg(y)
            .arg(dx)
            .arg(dy)
            .arg(double((*p.values)[size_t(y) * size_t(p.width) + size_t(x)]), 0, 'g', 4));
}

void CorrPlaneView::slotMousePressEvent(QMouseEvent* event, QPointF point) {
    if (event && event->button() != Qt::LeftButton) return;
    int v = 0, x = 0, y = 0;
    if (!planePixel(point, &v, &x, &y)) return;
    // A peak off the centre means the particles of this spot moved there:
    // the next window is taken that much further on.
    const PIV_VECTOR& vec = m_vector[v];
    emit signalInterrogateAtPoint(
        QPoint(vec.ix + x - m_plane[v].width / 2, vec.iy + y - m_plane[v].height / 2));
}
