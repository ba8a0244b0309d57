#include "kelvanedataview.h"

#include <QComboBox>
#include <QFileInfo>
#include <QGraphicsRectItem>
#include <QGraphicsScene>
#include <QMetaMethod>
#include <QPen>
#include <QPrinter>
#include <QScrollBar>
#include <QStackedWidget>

#include <algorithm>
#include <utility>
#include <vector>

#include "image2d.h"
#include "imagepairitem.h"
#include "itemeditor.h"
#include "kelvanedataobject.h"
#include "kelvanedataview_bmpitems.h"
#include "kelvanesceneview.h"
#include "piv_data2d.h"
#include "piv_params.h"
#include "pivplotsetupdlg.h"
#include "qpiv_imagepair.h"
#include "ruleritem.h"

namespace {

const char* const kPageNames[KelvaneDataView::kSceneCount] = {"pageViewA", "pageViewB",
                                                              "pageView3C", "pageViewResult"};

QSize _sizeOf(const Image2D* image) {
    return image ? QSize(int(image->width()), int(image->height())) : QSize();
}

}  // namespace

KelvaneDataView::KelvaneDataView(QWidget* parent, QPrinter* printer, KelvaneDataObject* dataObject,
                                 MySettings* settings, QStackedWidget* sceneStack)
    : QObject(parent),
      m_parent(parent),
      m_printer(printer),
      m_dataObject(dataObject),
      m_sceneStack(sceneStack),
      m_settings(settings),
      m_plotDlg(new PIVPlotSetupDlg(parent)),
      m_zoomIndex(KelvaneSceneView::kZoomOne) {
    if (!m_printer) {
        m_printer = new QPrinter;
        m_ownPrinter = true;
    }
    for (int i = 0; i < kSceneCount; ++i) createScene(i);
    // All views scroll together.
    for (int i = 0; i < kSceneCount; ++i)
        for (int j = 0; j < kSceneCount; ++j) {
            if (i == j) continue;
            connect(m_view[i]->horizontalScrollBar(), &QScrollBar::valueChanged,
                    m_view[j]->horizontalScrollBar(), &QScrollBar::setValue);
            connect(m_view[i]->verticalScrollBar(), &QScrollBar::valueChanged,
                    m_view[j]->verticalScrollBar(), &QScrollBar::setValue);
        }
    m_view[3]->setToolTip(tr("Post-processed result"));

    m_ruler = new RulerItem;
    m_ruler->setZValue(161);
    m_ruler->setVisible(false);
    m_scene[0]->addItem(m_ruler);
    m_roi = new QGraphicsRectItem(100, 150, 200, 300);
    m_roi->setPen(QPen(Qt::red, 2, Qt::SolidLine));
    m_roi->setBrush(Qt::NoBrush);
    m_roi->setZValue(160);
    m_roi->setVisible(false);
    m_scene[0]->addItem(m_roi);

    connect(m_plotDlg, &PIVPlotSetupDlg::signalApply, this,
            &KelvaneDataView::slotApplyPlotSettings);
    connect(m_dataObject, &KelvaneDataObject::signalReleaseImages, this, [this] {
        for (KelvaneBmpItems* items : m_items)
            items->updateImagePairAndMask(nullptr, nullptr, nullptr);
    });
    connect(m_dataObject, &KelvaneDataObject::signalShowMask, this, &KelvaneDataView::slotShowMask);
    connect(m_dataObject, &KelvaneDataObject::signalHaveNewParameters, this,
            &KelvaneDataView::slotUpdatePivParameters);
    for (KelvaneBmpItems* items : m_items) items->setPlotCfg(record(), true);
    slotResetRuler();
    m_sceneStack->setCurrentIndex(0);
}

KelvaneDataView::~KelvaneDataView() {
    // The items hold references to images and fields: they go first.
    for (int i = 0; i < kSceneCount; ++i) {
        delete m_items[i];
        delete m_scene[i];
    }
    if (m_ownPrinter) delete m_printer;
}

void KelvaneDataView::connectNotify(const QMetaMethod& signal) {
    // The views take dropped files only once someone loads them.
    if (m_dropsForwarded ||
        signal != QMetaMethod::fromSignal(&KelvaneDataView::signalFileDropEvent))
        return;
    m_dropsForwarded = true;
    for (KelvaneSceneView* view : m_view)
        connect(view, &ImageView::signalFileDropEvent, this, &KelvaneDataView::signalFileDropEvent);
}

void KelvaneDataView::createScene(int i) {
    auto* scene = new QGraphicsScene(0, 0, 2048, 2048);
    scene->setItemIndexMethod(QGraphicsScene::NoIndex);
    auto* view = new KelvaneSceneView(scene, m_sceneStack);
    view->setObjectName(QLatin1String(kPageNames[i]));
    view->setBackgroundBrush(QBrush(Qt::darkGray, Qt::BrushStyle(6)));
    view->setAcceptDrops(true);
    m_sceneStack->addWidget(view);
    m_scene[i] = scene;
    m_view[i] = view;
    m_items[i] = new KelvaneBmpItems(scene, i);
    m_haveView[i] = true;
    m_editor[i] = new ItemEditor(-1, -65536);
    m_editor[i]->setZValue(500 + i);
    scene->addItem(m_editor[i]);
    connect(view, &ImageView::signalMousePressEvent, this, &KelvaneDataView::slotMousePressEvent);
    connect(view, &ImageView::signalMouseMoveEvent, this, &KelvaneDataView::slotMouseMoveEvent);
    connect(view, &ImageView::signalMouseReleaseEvent, this,
            &KelvaneDataView::slotMouseReleaseEvent);
}

const PIVPLOT::PLOT_CFG& KelvaneDataView::record() const {
    return m_plotDlg->record();
}

bool KelvaneDataView::isOnline() const {
    const KelvaneState* state = m_dataObject->state();
    return state && state->isProcessingInProgress();
}

bool KelvaneDataView::haveFileData() const {
    return m_dataObject->haveData(-1) && m_dataObject->isFileData(-1);
}

// ---- images and data --------------------------------------------------------

void KelvaneDataView::slotSetCurrentScene(int scene) {
    if (scene < 0 || scene >= kSceneCount) return;
    m_currentScene = scene;
    m_sceneStack->setCurrentWidget(m_view[scene]);
    ++m_needsRedraw;
}

void KelvaneDataView::slotUpdateImage(int view) {
    if (isOnline()) return;
    for (KelvaneBmpItems* items : m_items) items->clearRandomVectors();
    slotSetCurrentScene(view == 1 && m_dataObject->isStereoMode() ? 1 : 0);
    QPIV_ImagePair* pair = m_dataObject->image(view);
    Image2D* a = pair->imgA();
    Image2D* b = pair->isImagePair() ? pair->imgB() : nullptr;
    PIV_Image2D* pa = pair->imgA();
    Image2D* mask = pa->isMaskAvailable() ? pa->imageMask() : nullptr;
    m_dataTooSmall = false;
    // The result's scene shows the same frames under its field.
    for (int s : {m_currentScene, 3}) m_items[s]->updateImagePairAndMask(a, b, mask);
    m_frame = 0;
    for (KelvaneBmpItems* items : m_items) {
        items->setImageSize(_sizeOf(a));
        if (!items->isImageToggleMode()) items->showImageFrame(0);
    }
    slotShowMask(view, mask != nullptr);
    slotUpdatePivParameters();
    slotApplyPlotSettings();
    if (m_autoScaleOnLoad) slotAutoScale();
    ++m_needsRedraw;
}

void KelvaneDataView::slotUpdateData(int view) {
    KelvaneDataObject* o = m_dataObject;
    const int scene = o->slotOfView(view);
    PIV_Data2D* data = o->data(view);
    const bool intermediate = o->isIntermediateData(view);
    KelvaneBmpItems* items = m_items[scene];
    items->setPivData(o->haveData(view) ? data : nullptr, intermediate);
    const SIZE3D grid = data->grid().imageSize;
    Image2D* mask =
        o->image(view)->imgA()->isMaskAvailable() ? o->image(view)->imgA()->imageMask() : nullptr;
    slotShowMask(view, mask && _sizeOf(mask) == QSize(grid.width, grid.height));
    if (!o->haveImage(0) || o->isFileData(view)) {
        items->updateImagePair(nullptr, nullptr);
        if (grid.width > 0 && grid.height > 0) setDataSize(QSize(grid.width, grid.height));
    }
    items->setPTVdata(o->ptvData(view));
    slotApplyPlotSettings();
    ++m_needsRedraw;
}

void KelvaneDataView::setDataSize(const QSize& size) {
    // Too small to draw: hidden, but the record keeps what the user chose.
    m_dataTooSmall = size.width() < 11 || size.height() < 11;
    if (!m_dataTooSmall)
        for (KelvaneBmpItems* items : m_items) items->setImageSize(size);
    ++m_needsRedraw;
}

void KelvaneDataView::slotShowMask(int view, bool show) {
    PIV_Image2D* a = m_dataObject->image(view)->imgA();
    Image2D* mask = show && a->isMaskAvailable() ? a->imageMask() : nullptr;
    for (int s : {m_dataObject->slotOfView(view), 3}) m_items[s]->updateMask(mask);
    ++m_needsRedraw;
}

void KelvaneDataView::slotAddRandomVector(PIV_VECTOR vector, int view) {
    m_items[m_dataObject->slotOfView(view)]->addRandomVector(vector);
    ++m_needsRedraw;
}

void KelvaneDataView::slotClearRandomVectors() {
    for (KelvaneBmpItems* items : m_items) items->clearRandomVectors();
    ++m_needsRedraw;
}

void KelvaneDataView::slotUpdatePivParameters() {
    slotUpdateOrigin();
    for (KelvaneBmpItems* items : m_items)
        items->setFlagImageOriginAtTop(m_dataObject->isOriginTopLeft());
}

void KelvaneDataView::slotUpdateOrigin() {
    const PIVCONVERT_CFG c = m_dataObject->parameters(0)->pivConvertCfg();
    for (KelvaneBmpItems* items : m_items)
        items->setRefPoint(QPointF(c.ImageOrigin.x, c.ImageOrigin.y));
    ++m_needsRedraw;
}

void KelvaneDataView::slotApplyPlotSettings() {
    // While the user arranges the plot, the items keep where they were put.
    for (KelvaneBmpItems* items : m_items) items->setPlotCfg(record(), !isArranging());
    emit signalUpdateColors(record().colors);
    updateAnnotations();
    ++m_needsRedraw;
}

void KelvaneDataView::updateAnnotations() {
    const PIVPLOT::PLOT_CFG& c = record();
    for (int i = 0; i < kSceneCount; ++i) {
        const int view = i == 3 ? 3 : 0;
        const auto fill = [this, view](const char* text) {
            return QString::fromLatin1(text)
                .replace(QLatin1String("%f"), m_dataObject->fileName(view))
                .replace(QLatin1String("%d"), m_dataObject->fileDir(view))
                .replace(QLatin1String("%p"), m_dataObject->filePath(view));
        };
        m_items[i]->setTitles(fill(c.title.Text), fill(c.subTitle.Text));
    }
}

// ---- zoom ---------------------------------------------------------------------

double KelvaneDataView::currentZoomFactor() const {
    return KelvaneSceneView::zoomFactorAt(m_zoomIndex);
}

void KelvaneDataView::slotSetZoom(int index) {
    if (index < 0 || index >= KelvaneSceneView::kZoomCount) return;
    m_zoomIndex = index;
    const double factor = currentZoomFactor();
    for (int i = 0; i < kSceneCount; ++i) {
        m_view[i]->setZoomFactor(factor);
        m_editor[i]->setZoomFactor(factor);
    }
    if (m_zoomCombo && m_zoomCombo->currentIndex() != index) {
        const QSignalBlocker quiet(m_zoomCombo);
        m_zoomCombo->setCurrentIndex(index);
    }
    emit signalUpdateUI();
}

QWidget* KelvaneDataView::createZoomWidget() {
    if (m_zoomCombo) return m_zoomCombo;
    m_zoomCombo = new QComboBox;
    m_zoomCombo->setToolTip(tr("Image zoom factor"));
    for (int i = 0; i < KelvaneSceneView::kZoomCount; ++i)
        m_zoomCombo->addItem(KelvaneSceneView::zoomText(i));
    m_zoomCombo->setCurrentIndex(m_zoomIndex);
    connect(m_zoomCombo, qOverload<int>(&QComboBox::activated), this,
            &KelvaneDataView::slotSetZoom);
    return m_zoomCombo;
}

// ---- settings -------------------------------------------------------------------

void KelvaneDataView::registryIO(MySettings::AccessMode mode) {
    if (!m_settings) return;
    MySettings& s = *m_settings;
    const bool write = mode == MySettings::WRITE;
    if (write) copyObjectPositions();
    s.serializeBool(mode, QStringLiteral("/Plot/AutoScaleImage"), &m_autoScaleOnLoad);
    QPointF ends[2] = {m_ruler->first(), m_ruler->second()};
    const char* endKeys[2] = {"/Conversion/RulerPt1", "/Conversion/RulerPt2"};
    for (int e = 0; e < 2; ++e) {
        if (write)
            s.setValue(QLatin1String(endKeys[e]), ends[e]);
        else
            ends[e] = s.value(QLatin1String(endKeys[e]), ends[e]).toPointF();
    }
    s.serializeString(mode, QStringLiteral("/Plot/UserLUT"), &m_userLUTFile);
    s.serializeString(mode, QStringLiteral("/Plot/ConfigFile"), &m_configFile);
    int zoom = m_zoomIndex;
    s.serializeInt(mode, QStringLiteral("/MainWin/ZoomIndex"), &zoom);
    // The dialog reads its own keys; the arranged positions go on top.
    if (write) m_plotDlg->registryIO(s, mode);
    PIVPLOT::PLOT_CFG cfg = record();
    using Annotation = PIVPLOT::ANNOTATION_CFG PIVPLOT::PLOT_CFG::*;
    const std::pair<const char*, Annotation> places[] = {
        {"/Plot/PosTitle", &PIVPLOT::PLOT_CFG::title},
        {"/Plot/PosSubTitle", &PIVPLOT::PLOT_CFG::subTitle},
        {"/Plot/PosLogo", &PIVPLOT::PLOT_CFG::logo},
        {"/Plot/PosBackgroundImage", &PIVPLOT::PLOT_CFG::background},
        {"/Plot/PosOverlayImage", &PIVPLOT::PLOT_CFG::overlay}};
    std::vector<QPoint> read;
    for (const auto& [key, member] : places) {
        const QPoint at((cfg.*member).PosX, (cfg.*member).PosY);
        if (write)
            s.setValue(QLatin1String(key), at);
        else
            read.push_back(s.value(QLatin1String(key), at).toPoint());
    }
    if (write) return;
    m_plotDlg->registryIO(s, mode);
    cfg = record();
    for (size_t i = 0; i < read.size(); ++i) {
        (cfg.*places[i].second).PosX = read[i].x();
        (cfg.*places[i].second).PosY = read[i].y();
    }
    m_plotDlg->setRecord(cfg);
    const PIVPLOT::PLOT_CFG& applied = record();
    m_ruler->setEnds(ends[0], ends[1]);
    for (KelvaneBmpItems* items : m_items) items->setPlotCfg(applied, true);
    if (!m_userLUTFile.isEmpty()) loadUserLUT(m_userLUTFile);
    slotSetZoom(std::clamp(zoom, 0, KelvaneSceneView::kZoomCount - 1));
    ++m_needsRedraw;
}

void KelvaneDataView::closeDialogs() {
    m_plotDlg->hide();
}
