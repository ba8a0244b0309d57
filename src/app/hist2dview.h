// Hist2DView: the field's displacements as dots in the (dx, dy) plane, in
// the colours of their validation, with the distributions of dx and dy and
// of their fractions. Up to three regions drawn over the dots become the
// global histogram windows of validation: what lies outside them is an
// outlier.
#pragma once

#include <QMainWindow>
#include <QPointF>
#include <QRectF>
#include <QVector>

#include <memory>
#include <vector>

#include "mysettings.h"
#include "piv_plot.h"
#include "piv_types.h"

class ImageView;
class ItemEditor;
class PIV_Data2D;
class QAbstractGraphicsShapeItem;
class QGraphicsPixmapItem;
class QGraphicsScene;
class QMouseEvent;
class XYPlotWindow;

// A histogram window of validation: a rectangle or the ellipse inside it.
using DATA_ROI = GLOBALHIST_ROI;

class Hist2DView : public QMainWindow {
    Q_OBJECT
public:
    // The four distributions, in the order of their windows.
    enum Pdf { PDF_X = 0, PDF_Y = 1, PDF_SUBPIXEL_X = 2, PDF_SUBPIXEL_Y = 3, PDF_COUNT = 4 };

    explicit Hist2DView(QWidget* parent = nullptr);
    ~Hist2DView() override;
    // The bins as text, "dx count dy count"; false if the file could not be
    // written whole, the file saved before kept.
    bool saveHistogram(const QString& path) const;

    // Takes a reference to the field and draws it: the session may drop or
    // replace its own while the window is open.
    void updatePivData(PIV_Data2D* data, const PIVEVAL_CFG& cfg);
    void setPivEvalCfg(const PIVEVAL_CFG& cfg) { m_cfg = cfg; }
    // The windows to show, relative to the evaluation's expected shift;
    // `enabled` says which of the three are in use.
    void setROI(const DATA_ROI* rois, const bool* enabled);
    // The regions on view as windows; those not in use come last, as empty
    // ellipses, which validation skips.
    const DATA_ROI* getROI();
    int roiCount() const;
    void setHistValidatorEnabled(bool on) { m_validatorEnabled = on; }
    void setValidationColors(const PIVPLOT::COLOR_CFG& colors) { m_colors = colors; }
    void setToolbarOptions(const QSize& size, Qt::ToolButtonStyle text, const QFont& font);
    void registryIO(MySettings* settings, MySettings::AccessMode mode);

    void show1DPDFs(bool on);
    // Bins and dots of the enabled vectors, the field held as by
    // updatePivData; false without raw data.
    bool compute2DPDF(PIV_Data2D* data);
    bool compute1DPDFs();
    void add1DPDFs();
    void allocPDFs();
    void clearPDFs();
    void setBinsPerPixel(int bins);
    int binsPerPixel() const { return m_binsPerPixel; }
    void updateSceneSize();
    void updateUI();

    const std::vector<double>& bins(Pdf pdf) const { return m_pdf[pdf]; }
    // The displacement at the lower edge of bin 0 of dx and dy, and the bin width.
    double low(int axis) const { return m_low[axis]; }
    double binWidth() const { return m_binWidth; }
    const QImage& dots() const { return m_dots; }
    XYPlotWindow* pdfWindow(Pdf pdf) const { return m_plots[pdf]; }
    // Scene point of a displacement, and back.
    QPointF toScene(double dx, double dy) const;
    QPointF toDisplacement(const QPointF& scene) const;

public slots:
    void slotAddROI();
    void slotRemoveROI();
    void slotConvertROIShape();
    // The selected region (else the first in use) round the enabled vectors.
    void slotFitROI();
    void slotCenterData();
    void slotChangedDotSize(double size);
    void slotSetBinsPerPixel(int index);
    void slotShow1DPDFs() { show1DPDFs(!m_show1D); }
    void slotSaveHistogram();
    void slotValidate();
    void slotSetZoom(int index);
    void slotMouseMoveEvent(QMouseEvent* event, QPointF point);
    void slotMousePressEvent(QMouseEvent* event, QPointF point);

signals:
    void signalValidate();

private:
    // The region item in slot k, of the shape asked for, keeping its place.
    void setRegionShape(int k, bool ellipse);
    int selectedRegion() const;
    void holdData(PIV_Data2D* data);
    void drawDots(const PIV_Data2D* data);
    // Whether a vector goes in the bins and the range: enabled and finite.
    static bool counts(const PIV_VECTOR& v);

    PIVEVAL_CFG m_cfg;
    std::shared_ptr<PIV_Data2D> m_data;  // a counted reference, given back on reset
    PIVPLOT::COLOR_CFG m_colors;
    bool m_validatorEnabled = true;
    bool m_show1D = false;
    double m_dotSize = 2.0;
    int m_binsPerPixel = 10;
    int m_zoomIndex = 2;
    double m_low[2] = {0.0, 0.0};
    double m_binWidth = 0.1;
    int m_count = 0;  // bins along each axis
    std::vector<double> m_pdf[PDF_COUNT];
    QImage m_dots;
    DATA_ROI m_rois[3] = {};

    QGraphicsScene* m_scene;
    ImageView* m_view;
    ItemEditor* m_editor;
    QGraphicsPixmapItem* m_dotItem;
    QAbstractGraphicsShapeItem* m_regions[3];
    XYPlotWindow* m_plots[PDF_COUNT] = {};
};
