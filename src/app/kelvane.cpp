#include "kelvane.h"

#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QMessageBox>
#include <QMimeData>
#include <QPixmap>
#include <QPrintDialog>
#include <QPrinter>
#include <QPushButton>
#include <QSplashScreen>
#include <QStackedWidget>
#include <QStatusBar>
#include <QTimer>
#include <QToolBar>
#include <QUrl>

#include <algorithm>

#include "app_messages.h"
#include "command_line.h"
#include "hist2dview.h"
#include "image2d.h"
#include "kelvanedata.h"
#include "kelvanedataobject.h"
#include "kelvanedataview.h"
#include "maskedit.h"
#include "piv_enums.h"
#include "piv_messages.h"
#include "piv_ncfile.h"
#include "piv_util.h"
#include "pivevalobj.h"
#include "ptvmodule.h"
#include "qlogbuffer.h"
#include "qpiv_imagepair.h"
#include "recentfiles.h"

// The resources live in a static library, whose registration the linker
// would drop unless something refers to it.
static void _initResources() {
    Q_INIT_RESOURCE(kelvane);
}

namespace {

constexpr int kRawData = 0x100;
constexpr int kParameters = 0x2000;

// The scan correlators pick their instruction set at run time; the window
// only switches them on or off.
void _applySimdSetting(bool on) {
    PIV_Set_SIMD_Level(on ? 6 : 0);
}

}  // namespace

QString Kelvane::logoPath() {
    static const bool registered = (_initResources(), true);
    (void)registered;
    return QStringLiteral(":/logos/images/logos/kelvane3-5-logo.png");
}

Kelvane::Kelvane(bool isMainInstance, bool /*unused*/, MySettings* settings, QSplashScreen* splash,
                 QWidget* parent, Qt::WindowFlags flags)
    : QMainWindow(parent, flags),
      m_isMainInstance(isMainInstance),
      m_settings(settings),
      m_splash(splash),
      m_recentImages(new RecentFiles(QStringLiteral("RecentImages"), this)),
      m_recentFiles(new RecentFiles(QStringLiteral("RecentFiles"), this)),
      m_threadCount(PIV::MaxThreadsPossible()) {
    QApplication::setOverrideCursor(Qt::WaitCursor);
    showSplash(tr("Configuring UI..."));
    setObjectName(QStringLiteral("Kelvane"));
    setAcceptDrops(true);
    m_logBuffer = MessageLogWindow();
    if (!m_logBuffer) {
        m_logBuffer = new QLogBuffer(DebugLevel(), QApplication::applicationName());
        m_ownLogBuffer = true;
    }
    m_printer = new QPrinter;
    std::fill(std::begin(m_plotOutputFormat), std::end(m_plotOutputFormat), '\0');
    std::copy_n("PNG", 3, m_plotOutputFormat);

    showSplash(tr("Creating image canvas..."));
    m_dataObject = new KelvaneDataObject(&m_state, settings, this);
    m_data = new KelvaneData(m_dataObject, this, settings);
    m_ptvModule = new PTVmodule(m_dataObject, settings, this);
    m_sceneStack = new QStackedWidget(this);
    m_dataView = new KelvaneDataView(this, m_printer, m_dataObject, settings, m_sceneStack);
    setCentralWidget(m_sceneStack);
    showSplash(tr("Creating mask editor..."));
    m_maskEdit = new MaskEdit(false, settings, this, Qt::Window);
    m_maskEdit->enableFeedBackSignals(this);
    showSplash(tr("Creating dialogs..."));
    createActions();
    createMenusAndToolBars();
    createSelectors();
    QAction* zoomIn = action(QStringLiteral("actionImageZoomIn"));
    m_toolBars.value(QStringLiteral("toolBarView"))
        ->insertWidget(zoomIn, m_dataView->createZoomWidget());
    m_prefsDlg = new PrefsDlg(this);
    m_prefsDlg->setMaxThreadsPossible(PIV::MaxThreadsPossible());

    showSplash(tr("Restoring previous session..."));
    if (m_settings) PrefsDlg::registryIO(*m_settings, MySettings::READ, m_prefs);
    showSplash(tr("Reading preferences..."));
    updateFileFilters();
    registryIO(MySettings::READ);
    m_data->setParameterFileFormat(m_prefs.ParFileFormat);
    statusBar()->clearMessage();
    setKelvaneMode(MODE_DATA, true);

    showSplash(tr("Making connections..."));
    connectActions();
    connect(m_dataObject, &KelvaneDataObject::signalMessage, this,
            [this](const QString& text) { statusBar()->showMessage(text); });
    connect(m_data, &KelvaneData::signalMessage, this,
            [this](const QString& text) { statusBar()->showMessage(text); });
    connect(m_dataObject, &KelvaneDataObject::signalLogMessage, m_logBuffer,
            &QLogBuffer::appendLine);
    connect(m_data, &KelvaneData::signalLogMessage, m_logBuffer, &QLogBuffer::appendLine);
    connect(m_dataObject, &KelvaneDataObject::signalSetCaption, this, [this](const QString& t) {
        setWindowTitle(t.isEmpty() ? m_dataObject->caption() : t);
    });
    connect(m_dataObject, &KelvaneDataObject::signalHaveNewImage, this, &Kelvane::slotUpdateImage);
    connect(m_maskEdit, &MaskEdit::signalNewMask, m_data, &KelvaneData::slotUpdateMask);
    connect(m_dataObject, &KelvaneDataObject::signalHaveNewData, this, &Kelvane::slotUpdateData);
    connect(m_dataObject, &KelvaneDataObject::signalChangedAnalysisMode, this,
            &Kelvane::signalChangedAnalysisMode);
    connect(m_dataObject, &KelvaneDataObject::signalChangedView, this,
            [this] { updateStatusLabel(); });
    connect(m_data, &KelvaneData::signalUpdateUI, this, &Kelvane::slotUpdateUI);
    connect(m_data, &KelvaneData::signalRedrawAll, m_dataView, &KelvaneDataView::slotRedrawAll);
    connect(m_dataView, &KelvaneDataView::signalUpdateUI, this, &Kelvane::slotUpdateUI);
    connect(m_dataView, &KelvaneDataView::signalMessage, this,
            [this](const QString& text) { statusBar()->showMessage(text); });
    connect(m_dataView, &KelvaneDataView::signalLogMessage, m_logBuffer, &QLogBuffer::appendLine);
    connect(m_dataView, &KelvaneDataView::signalSetCurrentScene, this, &Kelvane::slotSetViewOfData);
    // Direct connections: the mouse signals carry the view's own event.
    connect(m_dataView, &KelvaneDataView::signalMousePressAt, m_data,
            &KelvaneData::slotProcessMousePress);
    connect(m_dataView, &KelvaneDataView::signalMouseMoveAt, m_data,
            &KelvaneData::slotProcessMouseMove);
    connect(m_dataView, &KelvaneDataView::signalNewReferencePoint, m_data,
            &KelvaneData::slotSetReferencePoint);
    connect(m_dataView, &KelvaneDataView::signalNewRulerLength, m_data,
            &KelvaneData::slotSetRulerLength);
    connect(m_dataView, &KelvaneDataView::signalNewROI, m_data, &KelvaneData::slotSetROI);
    connect(m_dataView, &KelvaneDataView::signalNewDisplayParams, m_data,
            &KelvaneData::slotSetNewDisplayParams);
    connect(m_dataView, &KelvaneDataView::signalUpdateColors, m_data->hist2DView(),
            &Hist2DView::setValidationColors);
    connect(m_data, &KelvaneData::signalDrawVector, m_dataView,
            &KelvaneDataView::slotAddRandomVector);
    connect(m_data, &KelvaneData::signalResetRuler, m_dataView, &KelvaneDataView::slotResetRuler);
    connect(m_data, &KelvaneData::signalExportPlot, m_dataView,
            &KelvaneDataView::slotBatchExportPlot);
    connect(m_ptvModule, &PTVmodule::signalShowPTVVectors, m_dataView,
            &KelvaneDataView::setPTVmapVisible);
    connect(m_data, &KelvaneData::signalSetKelvaneMode, this,
            [this](KelvaneMode mode) { setKelvaneMode(mode, true); });
    connect(m_data, &KelvaneData::signalOpenNewWindow, this, &Kelvane::openNewWindow);
    connect(m_data, &KelvaneData::signalAddToRecentImages, m_recentImages, &RecentFiles::addFile);
    connect(m_data, &KelvaneData::signalAddToRecentFiles, m_recentFiles, &RecentFiles::addFile);
    connect(m_recentImages, &RecentFiles::signalOpenFile, this, &Kelvane::loadFile);
    connect(m_recentFiles, &RecentFiles::signalOpenFile, this, &Kelvane::loadFile);
    processCommandLine();

    applyToolBarStyle();
    removeUnofferedParts();
    updateStatusLabel();
    setWindowTitle(m_dataObject->caption());
    m_uiTimer = new QTimer(this);
    m_uiTimer->setInterval(1000);
    connect(m_uiTimer, &QTimer::timeout, this, &Kelvane::slotUpdateUI);
    m_uiTimer->start();
    showSplash(tr("Now we're finally ready for some PIV!"));
    m_state.setProcessingFlag(false);
    m_uiEnabled = true;
    slotUpdateUI();
    QApplication::restoreOverrideCursor();
}

Kelvane::~Kelvane() {
    // The scenes hold the data object's images and fields: they go first.
    delete m_dataView;
    m_dataView = nullptr;
    // The controller's engine waits for its worker before the data object goes.
    delete m_data;
    m_data = nullptr;
    delete m_printer;
    if (m_ownLogBuffer) delete m_logBuffer;
}

void Kelvane::showSplash(const QString& text) {
    if (m_splash) m_splash->showMessage(text, Qt::AlignBottom | Qt::AlignLeft, Qt::white);
}

bool Kelvane::loadFile(const QString& path) {
    if (!QFileInfo(path).isFile()) {
        m_logBuffer->appendLine(tr("File does not exist or cannot be read:\n   ") + path);
        return false;
    }
    PIV::FILE_INFO info;
    PIV::GetFileInformation(path.toLocal8Bit().constData(), info);
    if (info.format == PIV::FORMAT_NETCDF || info.format == PIV::FORMAT_PARFILE ||
        (info.content & kRawData)) {
        const bool params = info.content & kParameters;
        return m_data->loadFile(path, params, params, false);
    }
    if (m_dataObject->isStereoMode()) return false;
    return m_data->loadFile(path, false, false, false);
}

void Kelvane::processCommandLine() {
    const CommandLine* cl = ApplicationCommandLine();
    if (!cl) return;
    if (cl->help()) ShowStatus("%s", CommandLine::helpText());
    for (const std::string& option : cl->options()) {
        if (option == "auto")
            setAnalysisMode(PIV::ANALYSIS_AUTO_CORRELATION);
        else if (option == "cross")
            setAnalysisMode(PIV::ANALYSIS_CROSS_CORRELATION);
        else if (option == "speckle" || option == "bos")
            setAnalysisMode(PIV::ANALYSIS_SPECKLE);
    }
    if (cl->files().empty()) return;
    m_commandLineFile = QString::fromStdString(cl->files().back());
    loadFile(m_commandLineFile);
}

void Kelvane::registryIO(MySettings::AccessMode mode) {
    if (!m_settings) return;
    MySettings& s = *m_settings;
    const bool write = mode == MySettings::WRITE;
    if (write) PrefsDlg::registryIO(s, mode, m_prefs);
    m_recentImages->setMaxFiles(m_prefs.RecentImageCount);
    m_recentFiles->setMaxFiles(m_prefs.RecentFileCount);
    m_recentImages->registryIO(s, write);
    m_recentFiles->registryIO(s, write);
    s.serializeCharString(mode, QStringLiteral("/Plot/OutputFormat"), m_plotOutputFormat,
                          int(sizeof(m_plotOutputFormat)));
    s.serializeBool(mode, QStringLiteral("RelativePaths"), &m_relativePaths);
    s.serializeBool(mode, QStringLiteral("SIMD_Enable"), &m_simdEnabled);
    int threads = m_threadCount;
    s.serializeInt(mode, QStringLiteral("MaxThreads"), &threads);
    int analysis = m_dataObject->analysisMode();
    s.serializeInt(mode, QStringLiteral("/PIV/AnalysisMode"), &analysis);
    s.serializeBool(mode, QStringLiteral("/PIV/StereoMode"), &m_stereoMode);
    const bool normal = !isMaximized() && !isMinimized();
    if (write) {
        s.setValue(QStringLiteral("/MainWin/State"), saveState());
        if (normal) {
            s.setValue(QStringLiteral("/MainWin/Size"), size());
            s.setValue(QStringLiteral("/MainWin/Pos"), pos());
        }
        m_data->registryIO(mode);
        m_dataView->registryIO(mode);
        m_ptvModule->registryIO(mode);
        return;
    }
    _applySimdSetting(m_simdEnabled);
    m_threadCount = std::clamp(threads, 1, PIV::MaxThreadsPossible());
    if (m_threadCount != PIV::MaxThreads()) m_data->engine()->setThreadCount(m_threadCount);
    setAnalysisMode(analysis);
    restoreState(s.value(QStringLiteral("/MainWin/State")).toByteArray());
    const QSize stored = s.value(QStringLiteral("/MainWin/Size"), QSize(1024, 768)).toSize();
    const QPoint at = s.value(QStringLiteral("/MainWin/Pos"), QPoint(10, 10)).toPoint();
    resize(stored.width() > 200 && stored.height() > 200 ? stored : QSize(1024, 768));
    if (stored.width() > 200 && stored.height() > 200) move(at);
    m_dataView->registryIO(mode);
}

void Kelvane::slotUpdateImage(int view) {
    m_dataView->slotUpdateImage(view);
    // A hidden editor takes the image when it is shown, so that a batch does
    // not read every frame twice.
    m_maskEditView = view;
    m_maskEditPending = true;
    if (m_maskEdit->isVisible()) slotShowMaskEditor();
    setWindowTitle(m_dataObject->caption(view));
    m_dataView->slotRedrawAll();
    slotUpdateUI();
}

void Kelvane::slotShowMaskEditor() {
    const QPIV_ImagePair* pair = m_dataObject->image(m_maskEditView);
    if (m_maskEditPending && pair && !pair->filePath(false).isEmpty()) {
        m_maskEdit->setCameraView(m_maskEditView);
        m_maskEdit->loadImagePair(pair->filePath(false), pair->filePath(true),
                                  pair->imageCfg().SplitPCO);
    }
    m_maskEditPending = false;
    m_maskEdit->show();
    m_maskEdit->raise();
    m_maskEdit->activateWindow();
}

void Kelvane::slotUpdateData(int view) {
    m_dataView->slotClearRandomVectors();
    m_dataView->slotUpdateData(view);
    setViewOfData(view);
    setWindowTitle(m_dataObject->caption(view));
    m_dataView->slotRedrawAll();
    slotUpdateUI();
}

Kelvane* Kelvane::openNewWindow(const QString& file) {
    const QPoint old = pos();
    const auto step = [](int c) { return c >= 33 ? c - 32 : c + 32; };
    auto* window = new Kelvane(false, false, m_settings, nullptr);
    window->setAttribute(Qt::WA_DeleteOnClose);
    window->move(step(old.x()), step(old.y()));
    window->show();
    window->activateWindow();
    connect(this, &QObject::destroyed, window, &QWidget::close);
    if (file.size() >= 3) window->loadFile(file);
    window->raise();
    return window;
}

void Kelvane::closeEvent(QCloseEvent* event) {
    if (!m_isMainInstance) {
        registryIO(MySettings::WRITE);
        hide();
        event->accept();
        return;
    }
    bool save = m_prefs.AlwaysSaveSettings;
    if (!m_prefs.NoExitPrompt) {
        QMessageBox box(QMessageBox::Question, QApplication::applicationName(),
                        tr("About to quit Kelvane!\nDo you want to save the changes before "
                           "exiting?"),
                        QMessageBox::NoButton, this);
        QPushButton* yes = box.addButton(tr("&Save changes"), QMessageBox::AcceptRole);
        box.addButton(tr("&Discard changes"), QMessageBox::DestructiveRole);
        QPushButton* cancel = box.addButton(tr("Cancel"), QMessageBox::RejectRole);
        box.setDefaultButton(yes);
        box.setEscapeButton(cancel);
        box.exec();
        if (box.clickedButton() == cancel || !box.clickedButton()) {
            event->ignore();
            return;
        }
        save = box.clickedButton() == yes;
    }
    if (save) registryIO(MySettings::WRITE);
    m_data->closeDialogs();
    m_dataView->closeDialogs();
    m_dataObject->doCleanUp(save);
    emit signalKelvaneExiting();
    m_logBuffer->hide();
    m_prefsDlg->hide();
    hide();
    event->accept();
}

void Kelvane::dragEnterEvent(QDragEnterEvent* event) {
    statusBar()->showMessage(tr("Drop to open file"));
    event->acceptProposedAction();
}

void Kelvane::dropEvent(QDropEvent* event) {
    const QMimeData* mime = event->mimeData();
    for (const QString& format : mime->formats()) {
        if (format != QLatin1String("text/uri-list")) continue;
        QString partner;
        for (const QUrl& url : mime->urls()) {
            if (!url.isLocalFile()) continue;
            const QString path = QFileInfo(url.toLocalFile()).absoluteFilePath();
            // Both frames of a pair dropped: the first brought the second.
            if (!partner.isEmpty() && path == partner) continue;
            partner.clear();
            if (loadFile(path) && m_dataObject->isImagePair() && !m_dataObject->isFileData(0))
                partner = QFileInfo(m_dataObject->image(0)->filePath(true)).absoluteFilePath();
        }
    }
    event->acceptProposedAction();
}

void Kelvane::slotPreferences() {
    PREFS_CFG p = m_prefs;
    p.RelativePaths = m_relativePaths;
    p.SIMDEnable = m_simdEnabled;
    p.MaxThreads = std::min(m_threadCount, PIV::MaxThreadsPossible());
    p.OriginTopLeft = m_dataObject->isOriginTopLeft();
    p.CompressedTIFFOutput = m_dataObject->isTIFFCompression();
    p.VectorSampling = m_data->isVectorSampling();
    p.SamplingROI = m_data->samplingROI();
    const IMAGE_CFG image = m_dataObject->image(0)->imageCfg();
    p.InterpolationMethod = image.InterpolationMethod;
    p.InterpolationDegreeIndex = std::max(0, (image.InterpolationDegree - 1) / 2);
    m_prefsDlg->setRecord(p);
    if (m_prefsDlg->exec() != QDialog::Accepted) return;
    p = m_prefsDlg->record();
    m_prefs = p;
    m_relativePaths = p.RelativePaths;
    m_simdEnabled = p.SIMDEnable;
    _applySimdSetting(m_simdEnabled);
    const int threads = std::clamp(p.MaxThreads, 1, PIV::MaxThreadsPossible());
    if (threads != m_threadCount) m_data->engine()->setThreadCount(threads);
    m_threadCount = threads;
    m_recentImages->setMaxFiles(p.RecentImageCount);
    m_recentFiles->setMaxFiles(p.RecentFileCount);
    m_data->setParameterFileFormat(p.ParFileFormat);
    m_dataObject->setTIFFCompression(p.CompressedTIFFOutput);
    m_dataObject->setOriginTopLeft(p.OriginTopLeft);
    m_data->setVectorSampling(p.VectorSampling, p.SamplingROI);
    IMAGE_CFG cfg = m_dataObject->image(0)->imageCfg();
    cfg.InterpolationMethod = p.InterpolationMethod;
    cfg.InterpolationDegree = p.InterpolationDegreeIndex * 2 + 1;
    m_dataObject->image(0)->setImageCfg(cfg);
    applyToolBarStyle();
    updateFileFilters();
}

void Kelvane::slotShowOptions() {
    QMessageBox::information(this, tr("Kelvane Options"),
                             QString::fromLatin1(CommandLine::helpText()));
}

void Kelvane::slotAbout() {
    QMessageBox::about(this, tr("About %1").arg(QApplication::applicationName()),
                       QStringLiteral("%1 %2\n%3")
                           .arg(QApplication::applicationName(), QApplication::applicationVersion(),
                                QString::fromLatin1(PIV::LibraryVersionLine())));
}

void Kelvane::slotAboutQt() {
    QMessageBox::aboutQt(this);
}

void Kelvane::slotShowLogBuffer() {
    m_logBuffer->show();
    m_logBuffer->raise();
}

void Kelvane::slotPrint() {
    QPrintDialog dialog(m_printer, this);
    if (dialog.exec() == QDialog::Accepted) m_dataView->print();
}

void Kelvane::exportPlotAs(bool pdf) {
    const QString format = pdf ? QStringLiteral("PDF") : QString::fromLatin1(m_plotOutputFormat);
    const QString file = QFileDialog::getSaveFileName(
        this, pdf ? tr("Export as PDF") : tr("Export plot"), m_dataObject->currentOutputDir(),
        QStringLiteral("%1 (*.%2)").arg(format, format.toLower()));
    if (!file.isEmpty()) m_dataView->exportPlot(file, format, pdf);
}

void Kelvane::slotExportCurrentView() {
    const QString format = QString::fromLatin1(m_plotOutputFormat);
    const QString file = QFileDialog::getSaveFileName(
        this, tr("Export current view"), m_dataObject->currentOutputDir(),
        QStringLiteral("%1 (*.%2)").arg(format, format.toLower()));
    if (!file.isEmpty()) m_dataView->exportCurrentView(file, format, false);
}
