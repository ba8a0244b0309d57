#include "hist2dview.h"

#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFileDialog>
#include <QGraphicsPixmapItem>
#include <QGraphicsScene>
#include <QMouseEvent>
#include <QSaveFile>
#include <QStatusBar>
#include <QTextStream>
#include <QToolBar>

#include <algorithm>
#include <cmath>

#include "imageview.h"
#include "itemeditor.h"
#include "piv_data2d.h"
#include "piv_messages.h"
#include "toolbaroptions.h"
#include "vectormapitem.h"
#include "xyplotwindow.h"

namespace {

constexpr int kBinChoices[] = {10, 20, 50, 100};
constexpr int kBinChoiceCount = int(sizeof(kBinChoices) / sizeof(kBinChoices[0]));
constexpr double kZooms[] = {0.5, 1.0, 2.0, 4.0, 8.0};
constexpr int kZoomCount = int(sizeof(kZooms) / sizeof(kZooms[0]));
// A few wild vectors must not make the picture a giant: beyond this many
// bins along an axis the bins widen instead.
constexpr int kMaxBins = 2048;
// Space round the data, as a share of its extent.
constexpr double kMargin = 0.25;

}  // namespace

bool Hist2DView::counts(const PIV_VECTOR& v) {
    // One NaN would spoil the range and turn into a bin index of nothing.
    return (v.flag & VECTOR_ENABLED) != 0 && std::isfinite(v.dx) && std::isfinite(v.dy);
}

Hist2DView::Hist2DView(QWidget* parent) : QMainWindow(parent) {
    setWindowTitle(tr("2D Histogram"));
    m_colors = PIVPLOT::DefaultPlotCfg().colors;
    m_scene = new QGraphicsScene(this);
    m_view = new ImageView(m_scene, this);
    setCentralWidget(m_view);
    m_dotItem = m_scene->addPixmap(QPixmap());
    for (int k = 0; k < 3; ++k) {
        m_regions[k] = nullptr;
        setRegionShape(k, false);
    }
    m_editor = new ItemEditor(-1, -65536);
    m_editor->setZValue(3.0);
    m_scene->addItem(m_editor);

    QToolBar* bar = addToolBar(tr("Histogram"));
    auto* bins = new QComboBox(bar);
    bins->setObjectName(QStringLiteral("binsPerPixel"));
    bins->setToolTip(tr("Number of bins per pixel"));
    for (int b : kBinChoices) bins->addItem(tr("%1 bins/pixel").arg(b));
    bar->addWidget(bins);
    connect(bins, QOverload<int>::of(&QComboBox::activated), this,
            &Hist2DView::slotSetBinsPerPixel);
    auto* dot = new QDoubleSpinBox(bar);
    dot->setObjectName(QStringLiteral("dotSize"));
    dot->setPrefix(tr("Dot size "));
    dot->setRange(1.0, 10.0);
    dot->setValue(m_dotSize);
    bar->addWidget(dot);
    connect(dot, QOverload<double>::of(&QDoubleSpinBox::valueChanged), this,
            &Hist2DView::slotChangedDotSize);
    QAction* pdfs = bar->addAction(tr("1-D PDFs"), this, &Hist2DView::slotShow1DPDFs);
    pdfs->setCheckable(true);
    bar->addAction(tr("Add ROI"), this, &Hist2DView::slotAddROI);
    bar->addAction(tr("Remove ROI"), this, &Hist2DView::slotRemoveROI);
    bar->addAction(tr("Rectangle/Ellipse"), this, &Hist2DView::slotConvertROIShape);
    bar->addAction(tr("Fit ROI"), this, &Hist2DView::slotFitROI);
    bar->addAction(tr("Center"), this, &Hist2DView::slotCenterData);
    bar->addAction(tr("Validate"), this, &Hist2DView::slotValidate);
    bar->addAction(tr("Save"), this, &Hist2DView::slotSaveHistogram);
    connect(m_view, &ImageView::signalMousePressEvent, this, &Hist2DView::slotMousePressEvent);
    connect(m_view, &ImageView::signalMouseMoveEvent, this, &Hist2DView::slotMouseMoveEvent);
    statusBar();
    slotSetZoom(m_zoomIndex);
}

Hist2DView::~Hist2DView() = default;

void Hist2DView::setToolbarOptions(const QSize& size, Qt::ToolButtonStyle text, const QFont& font) {
    ApplyToolbarOptions(this, size, text, font);
}

void Hist2DView::registryIO(MySettings* settings, MySettings::AccessMode mode) {
    if (!settings) return;
    settings->serializeDouble(mode, QStringLiteral("/Hist2D/DotSize"), &m_dotSize);
    settings->serializeInt(mode, QStringLiteral("/Hist2D/ZoomIndex"), &m_zoomIndex);
    if (mode == MySettings::WRITE) {
        settings->setValue(QStringLiteral("/Hist2D/State"), saveState());
        return;
    }
    restoreState(settings->value(QStringLiteral("/Hist2D/State")).toByteArray());
    m_dotSize = std::clamp(m_dotSize, 1.0, 10.0);
    slotSetZoom(m_zoomIndex);
}

void Hist2DView::holdData(PIV_Data2D* data) {
    if (data == m_data.get()) return;
    if (data) {
        data->addRef();
        m_data.reset(data, [](PIV_Data2D* d) { d->release(); });
    } else {
        m_data.reset();
    }
}

void Hist2DView::updatePivData(PIV_Data2D* data, const PIVEVAL_CFG& cfg) {
    holdData(data);
    if (!isVisible()) {
        m_cfg = cfg;
        return;
    }
    // The regions stay on the same displacements while the scale changes.
    DATA_ROI rois[3];
    bool used[3];
    for (int k = 0; k < 3; ++k) {
        used[k] = m_regions[k]->isVisible();
        m_regions[k]->setVisible(true);
    }
    std::copy(getROI(), getROI() + 3, rois);
    m_cfg = cfg;
    compute2DPDF(data);
    setROI(rois, used);
    compute1DPDFs();
    if (m_show1D) add1DPDFs();
    updateSceneSize();
}

void Hist2DView::allocPDFs() {
    for (int p = 0; p < PDF_COUNT; ++p)
        m_pdf[p].assign(size_t(p < PDF_SUBPIXEL_X ? m_count : m_binsPerPixel), 0.0);
}

void Hist2DView::clearPDFs() {
    for (auto& pdf : m_pdf) std::fill(pdf.begin(), pdf.end(), 0.0);
    m_dots = QImage();
}

bool Hist2DView::compute2DPDF(PIV_Data2D* data) {
    holdData(data);
    if (!data || !data->haveRawData()) {
        for (auto& pdf : m_pdf) pdf.clear();
        m_dots = QImage();
        return false;
    }
    const PIV_VECTOR* v = data->data();
    const long n = data->nodeCount();
    // The range of what counts: one wild vector that is switched off must
    // not squeeze the others into a corner.
    double lo[2] = {0, 0}, hi[2] = {0, 0};
    bool any = false;
    for (long k = 0; k < n; ++k) {
        if (!counts(v[k])) continue;
        const double d[2] = {v[k].dx, v[k].dy};
        for (int a = 0; a < 2; ++a) {
            lo[a] = any ? std::min(lo[a], d[a]) : d[a];
            hi[a] = any ? std::max(hi[a], d[a]) : d[a];
        }
        any = true;
    }
    // Both axes share one scale, so a circle of displacements stays round.
    const double extent = std::max({hi[0] - lo[0], hi[1] - lo[1], 1.0}) * (1.0 + 2.0 * kMargin);
    m_binWidth = std::max(1.0 / m_binsPerPixel, extent / kMaxBins);
    m_count = int(std::ceil(extent / m_binWidth));
    for (int a = 0; a < 2; ++a) m_low[a] = (lo[a] + hi[a]) / 2.0 - extent / 2.0;
    allocPDFs();
    clearPDFs();
    for (long k = 0; k < n; ++k) {
        if (!counts(v[k])) continue;
        const double d[2] = {v[k].dx, v[k].dy};
        for (int a = 0; a < 2; ++a) {
            const double bin = std::trunc((d[a] - m_low[a]) / m_binWidth);
            m_pdf[a][size_t(std::clamp(bin, 0.0, double(m_count - 1)))] += 1.0;
        }
    }
    drawDots(data);
    return true;
}

void Hist2DView::drawDots(const PIV_Data2D* data) {
    m_dots = QImage(m_count, m_count, QImage::Format_ARGB32_Premultiplied);
    m_dots.fill(Qt::white);
    const int side = std::max(1, int(std::lround(m_dotSize)));
    const int half = side / 2;
    const PIV_VECTOR* v = data->data();
    const long n = data->nodeCount();
    // Outliers first, so the valid dots stay on top of them.
    for (int pass = 0; pass < 2; ++pass)
        for (long k = 0; k < n; ++k) {
            const bool valid = (v[k].flag & VECTOR_ENABLED) && !(v[k].flag & VECTOR_OUTLIER);
            if (valid != (pass == 1)) continue;
            if ((v[k].flag & VECTOR_NO_RESULT) || !std::isfinite(v[k].dx) ||
                !std::isfinite(v[k].dy))
                continue;
            const QPointF p = toScene(v[k].dx, v[k].dy);
            if (!(std::abs(p.x()) < 1e6 && std::abs(p.y()) < 1e6)) continue;
            const int x0 = int(std::floor(p.x())) - half, y0 = int(std::floor(p.y())) - half;
            const QRgb colour = VectorMapItem::ValidationColor(m_colors, v[k].flag) | 0xff000000u;
            for (int y = std::max(0, y0); y < std::min(m_count, y0 + side); ++y) {
                auto* row = reinterpret_cast<QRgb*>(m_dots.scanLine(y));
                for (int x = std::max(0, x0); x < std::min(m_count, x0 + side); ++x)
                    row[x] = colour;
            }
        }
}

QPointF Hist2DView::toScene(double dx, double dy) const {
    // dy counts upwards: the top row holds the largest dy.
    return QPointF((dx - m_low[0]) / m_binWidth, m_count - (dy - m_low[1]) / m_binWidth);
}

QPointF Hist2DView::toDisplacement(const QPointF& scene) const {
    return QPointF(m_low[0] + scene.x() * m_binWidth,
                   m_low[1] + (m_count - scene.y()) * m_binWidth);
}

bool Hist2DView::compute1DPDFs() {
    if (!m_data || !m_data->haveRawData()) {
        DebugPrint("Hist2DView::compute1DPDFs() - no data!!");
        return false;
    }
    if (m_pdf[PDF_SUBPIXEL_X].empty() || m_pdf[PDF_SUBPIXEL_Y].empty()) {
        DebugPrint("Hist2DView::compute1DPDFs() - no space for PDFs allocated");
        return false;
    }
    const PIV_VECTOR* v = m_data->data();
    const long n = m_data->nodeCount();
    for (int p = PDF_SUBPIXEL_X; p <= PDF_SUBPIXEL_Y; ++p)
        std::fill(m_pdf[p].begin(), m_pdf[p].end(), 0.0);
    for (long k = 0; k < n; ++k) {
        if (!counts(v[k])) continue;
        const double d[2] = {v[k].dx, v[k].dy};
        for (int a = 0; a < 2; ++a) {
            const double fraction = d[a] - std::floor(d[a]);
            const int bin = std::clamp(int(fraction * m_binsPerPixel), 0, m_binsPerPixel - 1);
            m_pdf[PDF_SUBPIXEL_X + a][size_t(bin)] += 1.0;
        }
    }
    return true;
}

void Hist2DView::add1DPDFs() {
    static const char* const kTitles[PDF_COUNT] = {
        "PDF for horizontal displacements", "PDF for vertical displacements",
        "Subpixel-PDF for horizontal displacements", "Subpixel-PDF for vertical displacements"};
    static const char* const kAxes[PDF_COUNT] = {"Horizontal displacement", "Vertical displacement",
                                                 "Subpixel, horizontal", "Subpixel, vertical"};
    for (int p = 0; p < PDF_COUNT; ++p) {
        if (!m_plots[p]) {
            m_plots[p] = new XYPlotWindow(tr(kTitles[p]), this);
            m_plots[p]->setWindowFlags(Qt::Window);
            m_plots[p]->setWindowTitle(tr(kTitles[p]));
            m_plots[p]->setAxisTitles(tr(kAxes[p]), tr("n"));
        }
        m_plots[p]->setCurve(0, QVector<double>(m_pdf[p].begin(), m_pdf[p].end()));
        m_plots[p]->setVisible(m_show1D);
    }
}

void Hist2DView::show1DPDFs(bool on) {
    m_show1D = on;
    if (on) {
        add1DPDFs();
    } else {
        for (XYPlotWindow* w : m_plots)
            if (w) w->hide();
    }
}

void Hist2DView::setBinsPerPixel(int bins) {
    m_binsPerPixel = std::clamp(bins, 1, kMaxBins);
    const int* choice = std::find(kBinChoices, kBinChoices + kBinChoiceCount, m_binsPerPixel);
    if (choice != kBinChoices + kBinChoiceCount)
        findChild<QComboBox*>(QStringLiteral("binsPerPixel"))
            ->setCurrentIndex(int(choice - kBinChoices));
    updatePivData(m_data.get(), m_cfg);
}

void Hist2DView::slotSetBinsPerPixel(int index) {
    setBinsPerPixel(kBinChoices[std::clamp(index, 0, kBinChoiceCount - 1)]);
}

void Hist2DView::slotChangedDotSize(double size) {
    m_dotSize = size;
    auto* spin = findChild<QDoubleSpinBox*>(QStringLiteral("dotSize"));
    if (spin->value() != size) spin->setValue(size);
    if (m_data && m_data->haveRawData() && m_count > 0) drawDots(m_data.get());
    updateSceneSize();
}

void Hist2DView::updateSceneSize() {
    m_dotItem->setPixmap(QPixmap::fromImage(m_dots));
    m_scene->setSceneRect(0, 0, m_count, m_count);
    updateUI();
}

void Hist2DView::updateUI() {
    statusBar()->showMessage(tr("%1 regions, %2 px a bin").arg(roiCount()).arg(m_binWidth));
}

void Hist2DView::slotSetZoom(int index) {
    m_zoomIndex = std::clamp(index, 0, kZoomCount - 1);
    m_view->setZoomFactor(kZooms[m_zoomIndex]);
    m_editor->setZoomFactor(kZooms[m_zoomIndex]);
}

void Hist2DView::slotCenterData() {
    m_view->centerOn(m_scene->sceneRect().center());
}

// The bins as text: a head of comment lines, then "dx count dy count".
void Hist2DView::slotSaveHistogram() {
    const QString path = QFileDialog::getSaveFileName(this, tr("Save histogram"), QString(),
                                                      tr("Text files (*.dat *.txt)"));
    if (path.isEmpty()) return;
    if (!saveHistogram(path)) statusBar()->showMessage(tr("Trouble saving file: '%1'").arg(path));
}

bool Hist2DView::saveHistogram(const QString& path) const {
    // Renamed over the target only once whole: a failed save keeps the old file.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text)) return false;
    QTextStream out(&file);
    out << "# Histogram of displacements, " << m_binWidth << " px a bin\n# dx n(dx) dy n(dy)\n";
    for (int k = 0; k < m_count && size_t(k) < m_pdf[PDF_X].size(); ++k)
        out << m_low[0] + (k + 0.5) * m_binWidth << ' ' << m_pdf[PDF_X][size_t(k)] << ' '
            << m_low[1] + (k + 0.5) * m_binWidth << ' ' << m_pdf[PDF_Y][size_t(k)] << '\n';
    out.flush();
    return out.status() == QTextStream::Ok && file.commit();
}
