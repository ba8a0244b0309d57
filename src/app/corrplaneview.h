// CorrPlaneView: the two samples and the correlation plane of one
// interrogation spot, with a marker on the peak the evaluator chose. It fills
// while a window is correlated at a click and during a live evaluation; a
// click on the plane correlates anew where the peak under it would lead.
#pragma once

#include <QMainWindow>
#include <QPoint>
#include <QPointF>
#include <QString>

#include "kelvanedataview.h"
#include "mysettings.h"
#include "piv_types.h"
#include "qpiv_eval2d.h"

class Image2D;
class Image2DItem;
class ImageView;
class MarkerItem;
class QGraphicsScene;
class QMouseEvent;

class CorrPlaneView : public QMainWindow {
    Q_OBJECT
public:
    // Views A and B; each has a plane and two samples.
    static constexpr int kViews = 2;

    explicit CorrPlaneView(QWidget* parent = nullptr);
    ~CorrPlaneView() override;
    CorrPlaneView(const CorrPlaneView&) = delete;
    CorrPlaneView& operator=(const CorrPlaneView&) = delete;

    void setPivEvalCfg(const PIVEVAL_CFG& cfg) { m_cfg = cfg; }
    void setVector(const PIV_VECTOR& vector) { m_vector[0] = vector; }
    void setStereoMode(bool on);
    void setDisplayParams(const BMP_DISPLAY_PARAMS& params);
    void setToolbarOptions(const QSize& size, Qt::ToolButtonStyle text, const QFont& font);
    // Where the files of slotSaveCorr go: the image's folder.
    void setDirectory(const QString& dir) { m_dir = dir; }
    void registryIO(MySettings* settings, MySettings::AccessMode mode);

    // Lays out plane and samples and puts the marker on the peak.
    void redraw();
    void drawSamples(const FloatPlane& a, const FloatPlane& b, int view);
    void drawCorrelation(const FloatPlane& plane, int view);

    bool haveData() const { return m_plane[0].values != nullptr; }
    const FloatPlane& plane(int view) const { return m_plane[view]; }
    const FloatPlane& sample(int view, int which) const { return m_sample[view][which]; }
    // The marker's place in the pixels of view A's plane.
    QPointF markerPosition() const;
    bool showSamples() const { return m_showSamples; }
    int lutIndex() const { return m_lut; }

public slots:
    void slotDrawSamples(const FloatPlane& a, const FloatPlane& b, int width, int index);
    void slotDrawCorrelation(const FloatPlane& plane, const PIV_VECTOR& vector, int index);
    void slotShowSamples(bool on);
    void slotLUTNext();
    void slotLUTPrevious();
    // Three text files in the image's folder; a box tells where, or why not.
    void slotSaveCorr();
    void slotSetZoom(int index);
    void slotZoomIn() { slotSetZoom(m_zoomIndex + 1); }
    void slotZoomOut() { slotSetZoom(m_zoomIndex - 1); }
    void slotMouseMoveEvent(QMouseEvent* event, QPointF point);
    void slotMousePressEvent(QMouseEvent* event, QPointF point);

signals:
    void signalInterrogateAtPoint(QPoint point);

private:
    // The plane's pixel under a scene point, or false outside every plane.
    bool planePixel(const QPointF& point, int* view, int* x, int* y) const;
    void applyLut();
    bool saveFile(const QString& path, const QString& title, const FloatPlane& data);

    PIVEVAL_CFG m_cfg;
    PIV_VECTOR m_vector[kViews];
    bool m_stereo = false;
    bool m_showSamples = true;
    int m_lut = 0;
    int m_zoomIndex = 0;
    BMP_DISPLAY_PARAMS m_display;
    QString m_dir;
    // Counts the planes shown; the one last saved is not written twice.
    quint64 m_planeNumber = 0, m_savedNumber = 0;

    FloatPlane m_plane[kViews];
    FloatPlane m_sample[kViews][2];
    Image2D* m_images[kViews][3];  // plane, sample 1, sample 2; one reference each
    Image2DItem* m_items[kViews][3];
    MarkerItem* m_marker;
    QGraphicsScene* m_scene;
    ImageView* m_view;
};
