// The window's actions, menus, tool bars and selectors, and the rules that
// enable them.
#include <QAction>
#include <QComboBox>
#include <QFileDialog>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QSignalBlocker>
#include <QStackedWidget>
#include <QStatusBar>
#include <QToolBar>

#include "kelvane.h"
#include "kelvanedata.h"
#include "kelvanedataobject.h"
#include "kelvanedataview.h"
#include "outputdlg.h"
#include "piv_data2d.h"
#include "piv_enums.h"
#include "piv_params.h"
#include "pivevalobj.h"
#include "ptvmodule.h"
#include "qlogbuffer.h"
#include "qtwinprogresstoolbar.h"
#include "recentfiles.h"
#include "xyplotwindow.h"

namespace {

// clang-format off
// Menus, in the order of the menu bar; "Evaluation mode" sits in "PIV".
struct MenuDef {
    const char* name;
    const char* title;
};
const MenuDef kMenus[] = {
    {"menuFile", "File"},         {"menuParameters", "Parameters"},
    {"menuImage", "Image"},       {"menuView", "View"},
    {"menuPIV", "PIV"},           {"menuEvaluation_mode_2", "Evaluation mode"},
    {"menuPlot", "Plot"},         {"menuPostProcess", "PostProcess"},
    {"menuStereo", "Stereo"},     {"menuMeasure", "Measure"},
    {"menuPTV", "PTV"},           {"menuCamera", "Camera"},
    {"menuTools", "Tools"},       {"menuHelp", "Help"},
};

struct BarDef {
    const char* name;
    const char* title;
};
const BarDef kToolBars[] = {
    {"toolBarMain", "File"},          {"toolBarView", "View options"},
    {"toolBarPIV", "PIV"},            {"toolBarStereo", "Stereo"},
    {"toolBarQuickEdit", "Plot control"}, {"toolBarMeasure", "Measure"},
    {"toolBarImageProvider", "Image stream"},
};

struct ActionDef {
    const char* name;
    const char* text;
    const char* shortcut;
    const char* menu;
    const char* toolBar;
    bool checkable;
};
const ActionDef kActions[] = {
    {"actionFileOpen", "&Load image(s)", "Ctrl+O", "menuFile", "toolBarMain", false},
    {"actionFileOpenPair", "Load image pair", "", "menuFile", "toolBarMain", false},
    {"actionFileOpenRefImage", "Set reference image", "", "menuFile", nullptr, false},
    {"actionFileOpenPIV", "Load PIV data set", "", "menuFile", "toolBarMain", false},
    {"actionFileSave", "&Save", "Ctrl+S", "menuFile", "toolBarMain", false},
    {"actionFileSaveAs", "Save &As...", "", "menuFile", nullptr, false},
    {"actionFileSaveTecplot", "Save for Tecplot", "", "menuFile", nullptr, false},
    {"actionImageSavePair", "Save image pair", "", "menuFile", nullptr, false},
    {"actionFilePrint", "&Print...", "Ctrl+P", "menuFile", "toolBarMain", false},
    {"actionFilePreferences", "Preferences", "", "menuFile", nullptr, false},
    {"actionNewWindow", "Open new window", "Ctrl+N", "menuFile", nullptr, false},
    {"actionFileExit", "E&xit", "Ctrl+Q", "menuFile", nullptr, false},
    {"actionParametersRead", "Load parameters", "", "menuParameters", nullptr, false},
    {"actionParametersSave", "Save parameters", "", "menuParameters", nullptr, false},
    {"actionParametersSaveAs", "Save as...", "", "menuParameters", nullptr, false},
    {"actionImagePreProcess", "Image pre-processing menu", "Ctrl+I", "menuImage", nullptr, false},
    {"actionImageViewer", "Image viewer", "", "menuImage", nullptr, false},
    {"actionImageMaskEditor", "Mask editor", "", "menuImage", nullptr, false},
    {"actionImageProfileX", "Horizontal profile", "X", "menuImage", nullptr, false},
    {"actionImageProfileY", "Vertical profile", "Y", "menuImage", nullptr, false},
    {"actionImageHistogram", "Histogram", "H", "menuImage", nullptr, false},
    {"actionImageZoomIn", "Zoom in", "+", "menuView", "toolBarView", false},
    {"actionImageZoomOut", "Zoom out", "-", "menuView", "toolBarView", false},
    {"actionImageChangeLUT", "Change color LUT", "L", "menuView", "toolBarView", false},
    {"actionImagePreviousLUT", "Previous LUT", "Ctrl+L", "menuView", nullptr, false},
    {"actionImageClipLUT", "Clip LUT", "Ctrl+C", "menuView", nullptr, true},
    {"actionImageReverseLUT", "Reverse LUT", "Ctrl+R", "menuView", nullptr, true},
    {"actionImageShowLUT", "Show LUT", "", "menuView", nullptr, true},
    {"actionImageLUTLoad", "Load Look-Up Table", "", "menuView", nullptr, false},
    {"actionImageBrighter", "Brighter", "B", "menuView", "toolBarView", false},
    {"actionImageDarker", "Darker", "D", "menuView", "toolBarView", false},
    {"actionImageAutoScale", "Auto-scale intensity", "", "menuView", nullptr, true},
    {"actionImageShow", "Show image", "I", "menuView", "toolBarView", true},
    {"actionImageTogglePair", "Toggle image pair", "Space", "menuView", "toolBarView", false},
    {"actionImageOverlapPair", "Overlay images", "Ctrl+Space", "menuView", nullptr, true},
    {"actionShowFilteredData", "Show filtered data", "F", "menuView", nullptr, true},
    {"actionPIVProcess", "PIV process", "", "menuPIV", "toolBarPIV", false},
    {"actionPIVParameters", "PIV parameters", "", "menuPIV", "toolBarPIV", false},
    {"actionPIVBatchProcess", "Batch processing", "", "menuPIV", "toolBarPIV", false},
    {"actionImageBatchProcess", "Image batch processing", "", "menuPIV", nullptr, false},
    {"actionPIVCorrelationPlane", "Correlation plane", "", "menuPIV", nullptr, false},
    {"actionPIVHistogram", "2D Histogram", "", "menuPIV", nullptr, false},
    {"actionPIVProbeDlg", "PIV data probe", "", "menuPIV", nullptr, false},
    {"actionPIVStatistics", "PIV Statistics", "", "menuPIV", "toolBarPIV", false},
    {"actionPIVClearData", "Clear data", "", "menuPIV", nullptr, false},
    {"actionModeCrossCorrelation", "Cross-correlation PIV", "", "menuEvaluation_mode_2", nullptr, true},
    {"actionModeAutoCorrelation", "Autocorrelation PIV", "", "menuEvaluation_mode_2", nullptr, true},
    {"actionModeSpeckleCorrelation", "Specke Displacement", "", "menuEvaluation_mode_2", nullptr, true},
    {"actionPIVMode", "PIV mode", "", "menuPIV", nullptr, false},
    {"actionPIVCalibrationMode", "Calibration mode", "", "menuPIV", nullptr, true},
    {"actionPIVEditROI", "Set ROI", "", "menuPIV", nullptr, true},
    {"actionCalibCenterOrigin", "Move origin here", "", "menuPIV", nullptr, false},
    {"actionCalibResetRuler", "Reset ruler", "", "menuPIV", nullptr, false},
    {"actionPlotMenu", "Plot Configuration", "P", "menuPlot", "toolBarQuickEdit", false},
    {"actionPlotVectors", "Show vectors", "V", "menuPlot", "toolBarQuickEdit", true},
    {"actionPlotContours", "Show contours", "C", "menuPlot", "toolBarQuickEdit", true},
    {"actionPlotAxis", "Show axis", "A", "menuPlot", "toolBarQuickEdit", true},
    {"actionPlotSubtractMean", "Subtract mean", "", "menuPlot", nullptr, true},
    {"actionPlotClearRandomVectors", "Clear random vectors", "", "menuPlot", nullptr, false},
    {"actionPlotRedrawAll", "Redraw all", "F10", "menuPlot", nullptr, false},
    {"actionPlotExport", "Export plot", "", "menuPlot", nullptr, false},
    {"actionPlotExportPDF", "Export as PDF", "", "menuPlot", nullptr, false},
    {"actionPlotExportView", "Export current view", "", "menuPlot", nullptr, false},
    {"actionPlotMoveObjects", "Move objects", "", "menuPlot", "toolBarQuickEdit", true},
    {"actionPlotResetObjects", "Reset objects", "", "menuPlot", nullptr, false},
    {"actionPlotConfigSave", "Save plot configuration", "", "menuPlot", nullptr, false},
    {"actionPlotConfigLoad", "Load plot configuration", "", "menuPlot", nullptr, false},
    {"actionPostProcessMenu", "Post-process menu", "", "menuPostProcess", nullptr, false},
    {"actionPostProcess", "Do post-processing", "", "menuPostProcess", nullptr, false},
    {"actionStereoMode", "Stereo mode", "", "menuStereo", "toolBarStereo", true},
    {"actionAddRectangle", "Add rectangle", "", "menuMeasure", "toolBarMeasure", true},
    {"actionAddEllipse", "Add ellipse", "", "menuMeasure", "toolBarMeasure", true},
    {"actionAddLine", "Add line", "", "menuMeasure", "toolBarMeasure", true},
    {"actionAddPolygon", "Add polygon", "", "menuMeasure", "toolBarMeasure", true},
    {"actionMeasureObjectsDelete", "Delete objects", "", "menuMeasure", "toolBarMeasure", true},
    {"actionMeasureObjectsResize", "Resize objects", "", "menuMeasure", "toolBarMeasure", true},
    {"actionMeasureObjectsMoveVertex", "Move vertices", "", "menuMeasure", "toolBarMeasure", true},
    {"actionMeasureObjectsSave", "Save contour objects", "", "menuMeasure", nullptr, false},
    {"actionMeasureObjectsLoad", "Load contour objects", "", "menuMeasure", nullptr, false},
    {"actionMeasureObjectsUpdate", "Update measurements", "", "menuMeasure", nullptr, false},
    {"actionMeasureObjectsDeleteAll", "Delete all objects", "", "menuMeasure", nullptr, false},
    {"actionPTV_ProcessImage", "PTV scan", "", "menuPTV", nullptr, false},
    {"actionPTV_Parameters", "PTV parameters", "", "menuPTV", nullptr, false},
    {"actionPTV_ShowVectors", "Show PTV vectors", "", "menuPTV", nullptr, true},
    {"actionPTV_SaveData", "Save PTV data", "", "menuPTV", nullptr, false},
    {"actionLogBuffer", "Show log", "", "menuTools", nullptr, false},
    {"actionToolLogMessages", "Log internal messages", "", "menuTools", nullptr, true},
    {"actionHelpShowOptions", "Kelvane &Options", "", "menuHelp", nullptr, false},
    {"actionHelpAbout", "About Kelvane", "", "menuHelp", nullptr, false},
    {"actionHelpAboutQt", "About Qt", "", "menuHelp", nullptr, false},
};

// The mode of each entry of the mode selector.
const KelvaneMode kSelectorModes[] = {
    MODE_DATA,           MODE_CALIBRATION,       MODE_ROI_EDIT,          MODE_ARRANGE_PLOT,
    MODE_MEASURE_LINE,   MODE_MEASURE_POLYLINE,  MODE_MEASURE_RECTANGLE, MODE_MEASURE_ELLIPSE,
    MODE_MEASURE_POLYGON, MODE_MEASURE_MOVE,     MODE_MEASURE_RESIZE,    MODE_MEASURE_ADJUST,
    MODE_MEASURE_DELETE,
};
const char* const kSelectorTexts[] = {
    "Data / PIV mode",   "Calibration mode",   "Set ROI",         "Arrange plot",
    "Measure: Line",     "Measure: PolyLine",  "Measure: Rectangle", "Measure: Ellipse",
    "Measure: Polygon",  "Measure: Move",      "Measure: Resize", "Measure: Adjust",
    "Measure: Delete",
};
// clang-format on

const char* const kImageExtensions[11] = {"*.b16", "*.img", "*.ima", "*.imb", "*.bmp", "*.tif",
                                          "*.jpg", "*.png", "*.pbm", "*.pgm", "*.ppm"};
const char* const kDataExtensions[4] = {"*.piv", "*.nc", "*.cdf", "*.dat"};

QString _dataFilterList(int mask) {
    QStringList patterns;
    for (int b = 0; b < 4; ++b)
        if (mask >> (12 + b) & 1) patterns << QLatin1String(kDataExtensions[b]);
    return patterns.join(QLatin1Char(' '));
}

}  // namespace

QString Kelvane::imageFilterList(int mask) {
    QStringList patterns;
    for (int b = 0; b < 11; ++b)
        if (mask >> b & 1) patterns << QLatin1String(kImageExtensions[b]);
    return patterns.join(QLatin1Char(' '));
}

void Kelvane::createActions() {
    for (const ActionDef& d : kActions) {
        auto* a = new QAction(tr(d.text), this);
        a->setObjectName(QLatin1String(d.name));
        if (d.shortcut[0]) a->setShortcut(QKeySequence(QLatin1String(d.shortcut)));
        a->setCheckable(d.checkable);
        // What is not connected stays off until its receiver comes.
        a->setEnabled(false);
        m_actions.insert(a->objectName(), a);
    }
}

void Kelvane::createMenusAndToolBars() {
    for (const MenuDef& d : kMenus) {
        auto* menu = new QMenu(tr(d.title), this);
        menu->setObjectName(QLatin1String(d.name));
        m_menus.insert(menu->objectName(), menu);
        if (QLatin1String(d.name) == QLatin1String("menuEvaluation_mode_2"))
            m_menus.value(QStringLiteral("menuPIV"))->addMenu(menu);
        else
            menuBar()->addMenu(menu);
    }
    for (const BarDef& d : kToolBars) {
        // The PIV bar starts a row of its own, with room for the selectors.
        const QLatin1String name(d.name);
        if (name == QLatin1String("toolBarPIV") || name == QLatin1String("toolBarMeasure"))
            addToolBarBreak();
        QToolBar* bar = addToolBar(tr(d.title));
        bar->setObjectName(QLatin1String(d.name));
        m_toolBars.insert(bar->objectName(), bar);
    }
    for (const ActionDef& d : kActions) {
        QAction* a = action(QLatin1String(d.name));
        m_menus.value(QLatin1String(d.menu))->addAction(a);
        if (d.toolBar) m_toolBars.value(QLatin1String(d.toolBar))->addAction(a);
    }
    QMenu* file = m_menus.value(QStringLiteral("menuFile"));
    QAction* exit = action(QStringLiteral("actionFileExit"));
    file->insertMenu(exit, m_recentImages->menu(tr("Recent images")));
    file->insertMenu(exit, m_recentFiles->menu(tr("Recent files")));
    file->insertSeparator(exit);
}

void Kelvane::createSelectors() {
    m_viewSelector = new QComboBox(this);
    m_viewSelector->setObjectName(QStringLiteral("viewSelector"));
    m_viewSelector->setToolTip(tr("Select view of data"));
    m_viewSelector->addItems({tr("Raw data / image"), tr("Post-processed data")});
    m_modeSelector = new QComboBox(this);
    m_modeSelector->setObjectName(QStringLiteral("modeSelector"));
    m_modeSelector->setToolTip(tr("Kelvane Mode"));
    for (const char* text : kSelectorTexts) m_modeSelector->addItem(tr(text));
    QToolBar* piv = m_toolBars.value(QStringLiteral("toolBarPIV"));
    QAction* stats = action(QStringLiteral("actionPIVStatistics"));
    piv->insertWidget(stats, m_viewSelector);
    piv->insertWidget(stats, m_modeSelector);
    connect(m_viewSelector, qOverload<int>(&QComboBox::activated), this,
            [this](int index) { setViewOfData(index == 0 ? 0 : 3); });
    connect(m_modeSelector, qOverload<int>(&QComboBox::activated), this, [this](int index) {
        if (index >= 0 && index < int(std::size(kSelectorModes)))
            setKelvaneMode(kSelectorModes[index], false);
    });
    m_statusLabel = new QLabel(this);
    statusBar()->addPermanentWidget(m_statusLabel);
}

void Kelvane::bindMode(const char* name, KelvaneMode mode) {
    QAction* a = action(QLatin1String(name));
    connect(a, &QAction::triggered, this,
            [this, mode](bool on) { setKelvaneMode(on ? mode : MODE_DATA, true); });
    m_bound.insert(a);
}

void Kelvane::connectActions() {
    KelvaneData* d = m_data;
    const auto bindD = [this, d](const char* name, void (KelvaneData::*slot)()) {
        bind(action(QLatin1String(name)), d, slot);
    };
    const auto bindW = [this](const char* name, void (Kelvane::*slot)()) {
        bind(action(QLatin1String(name)), this, slot);
    };
    bindD("actionFileOpen", &KelvaneData::slotFileChooseImage);
    bindD("actionFileOpenPair", &KelvaneData::slotFileChooseImagePair);
    bindD("actionFileOpenRefImage", &KelvaneData::slotFileChooseReferenceImage);
    bindD("actionFileOpenPIV", &KelvaneData::slotFileChooseData);
    bindD("actionPIVCorrelationPlane", &KelvaneData::slotShowCorrelationPlane);
    bindD("actionPIVHistogram", &KelvaneData::slotShowHistogram);
    bindD("actionFileSave", &KelvaneData::slotFileSaveData);
    bindD("actionFileSaveAs", &KelvaneData::slotFileSaveData);
    bindD("actionFileSaveTecplot", &KelvaneData::slotFileSaveTecplot);
    bindD("actionParametersRead", &KelvaneData::slotFileParametersRead);
    bindD("actionParametersSave", &KelvaneData::slotFileParametersSave);
    bindD("actionParametersSaveAs", &KelvaneData::slotFileParametersSaveAs);
    bindD("actionImageSavePair", &KelvaneData::slotFileSaveImage);
    bindD("actionPIVProcess", &KelvaneData::slotEvaluateImage);
    bindD("actionPIVBatchProcess", &KelvaneData::slotPivBatchProcess);
    bindD("actionImageBatchProcess", &KelvaneData::slotImageBatchProcess);
    bindD("actionPostProcess", &KelvaneData::slotPostProcess);
    bindD("actionPostProcessMenu", &KelvaneData::slotPostProcessMenu);
    bindD("actionPIVParameters", &KelvaneData::slotShowPIVParameters);
    bindD("actionImagePreProcess", &KelvaneData::slotOpenImageProcDlg);
    bindD("actionPIVProbeDlg", &KelvaneData::slotShowProbleDlg);
    bindD("actionPIVStatistics", &KelvaneData::slotPivStats);
    bindD("actionImageViewer", &KelvaneData::slotShowImageViewer);
    bindD("actionPTV_ProcessImage", &KelvaneData::slotPTV_ProcessImage);
    PTVmodule* ptv = m_ptvModule;
    bind(action(QStringLiteral("actionPTV_Parameters")), ptv, &PTVmodule::slotPTV_Parameters);
    bind(action(QStringLiteral("actionPTV_ShowVectors")), ptv, &PTVmodule::slotShowPTVVectors);
    bind(action(QStringLiteral("actionPTV_SaveData")), ptv, &PTVmodule::slotSaveData);
    connect(ptv, &PTVmodule::signalSaveData, d, &KelvaneData::slotPTV_SaveData);
    bind(action(QStringLiteral("actionPIVClearData")), m_dataObject,
         &KelvaneDataObject::slotClearPivData);
    bind(action(QStringLiteral("actionFileExit")), this, &QWidget::close);
    bindW("actionFilePreferences", &Kelvane::slotPreferences);
    bindW("actionNewWindow", &Kelvane::slotOpenNewWindow);
    bindW("actionHelpShowOptions", &Kelvane::slotShowOptions);
    bindW("actionHelpAbout", &Kelvane::slotAbout);
    bindW("actionHelpAboutQt", &Kelvane::slotAboutQt);
    bindW("actionLogBuffer", &Kelvane::slotShowLogBuffer);
    bindW("actionImageMaskEditor", &Kelvane::slotShowMaskEditor);
    bind(action(QStringLiteral("actionToolLogMessages")), m_logBuffer,
         &QLogBuffer::slotStartLogging);
    bindW("actionModeCrossCorrelation", &Kelvane::slotModeCrossCorrelation);
    bindW("actionModeAutoCorrelation", &Kelvane::slotModeAutoCorrelation);
    bindW("actionModeSpeckleCorrelation", &Kelvane::slotModeSpeckleCorrelation);
    bindW("actionPIVMode", &Kelvane::slotSetDefaultMode);
    bindMode("actionPIVCalibrationMode", MODE_CALIBRATION);
    bindMode("actionPIVEditROI", MODE_ROI_EDIT);
    bindMode("actionPlotMoveObjects", MODE_ARRANGE_PLOT);
    bindMode("actionAddRectangle", MODE_MEASURE_RECTANGLE);
    bindMode("actionAddEllipse", MODE_MEASURE_ELLIPSE);
    bindMode("actionAddLine", MODE_MEASURE_LINE);
    bindMode("actionAddPolygon", MODE_MEASURE_POLYGON);
    bindMode("actionMeasureObjectsDelete", MODE_MEASURE_DELETE);
    bindMode("actionMeasureObjectsResize", MODE_MEASURE_RESIZE);
    bindMode("actionMeasureObjectsMoveVertex", MODE_MEASURE_ADJUST);
    bindW("actionFilePrint", &Kelvane::slotPrint);
    bindW("actionPlotExport", &Kelvane::slotExportPlot);
    bindW("actionPlotExportPDF", &Kelvane::slotExportPlotAsPDF);
    bindW("actionPlotExportView", &Kelvane::slotExportCurrentView);

    KelvaneDataView* v = m_dataView;
    const auto bindV = [this, v](const char* name, void (KelvaneDataView::*slot)()) {
        bind(action(QLatin1String(name)), v, slot);
    };
    bindV("actionMeasureObjectsSave", &KelvaneDataView::slotMeasureObjectsSave);
    bindV("actionMeasureObjectsLoad", &KelvaneDataView::slotMeasureObjectsLoad);
    bindV("actionMeasureObjectsUpdate", &KelvaneDataView::slotMeasureObjectsUpdate);
    bindV("actionMeasureObjectsDeleteAll", &KelvaneDataView::slotMeasureObjectsDeleteAll);
    bindV("actionShowFilteredData", &KelvaneDataView::slotShowFilteredData);
    bindV("actionCalibCenterOrigin", &KelvaneDataView::slotCenterOrigin);
    bindV("actionCalibResetRuler", &KelvaneDataView::slotResetRuler);
    bindV("actionImageZoomIn", &KelvaneDataView::slotZoomIn);
    bindV("actionImageZoomOut", &KelvaneDataView::slotZoomOut);
    bindV("actionImageChangeLUT", &KelvaneDataView::slotChangeLUT);
    bindV("actionImagePreviousLUT", &KelvaneDataView::slotPreviousLUT);
    bindV("actionImageClipLUT", &KelvaneDataView::slotClipLUT);
    bindV("actionImageReverseLUT", &KelvaneDataView::slotReverseLUT);
    bindV("actionImageShowLUT", &KelvaneDataView::slotImageShowLUT);
    bindV("actionImageLUTLoad", &KelvaneDataView::slotLoadUserLUT);
    bindV("actionImageBrighter", &KelvaneDataView::slotBrighter);
    bindV("actionImageDarker", &KelvaneDataView::slotDarker);
    bindV("actionImageAutoScale", &KelvaneDataView::slotAutoScale);
    bindV("actionImageShow", &KelvaneDataView::slotShowImage);
    bindV("actionImageTogglePair", &KelvaneDataView::slotToggleImagePair);
    bindV("actionImageOverlapPair", &KelvaneDataView::slotOverlapImagePair);
    bindV("actionPlotMenu", &KelvaneDataView::slotShowPlotDialog);
    bindV("actionPlotVectors", &KelvaneDataView::slotShowVectors);
    bindV("actionPlotContours", &KelvaneDataView::slotShowContours);
    bindV("actionPlotAxis", &KelvaneDataView::slotShowAxis);
    bindV("actionPlotSubtractMean", &KelvaneDataView::slotSubtractMeanVector);
    bindV("actionPlotClearRandomVectors", &KelvaneDataView::slotClearRandomVectors);
    bindV("actionPlotRedrawAll", &KelvaneDataView::slotRedrawAll);
    bindV("actionPlotResetObjects", &KelvaneDataView::slotResetObjects);
    bindV("actionPlotConfigSave", &KelvaneDataView::slotPlotConfigSave);
    bindV("actionPlotConfigLoad", &KelvaneDataView::slotPlotConfigLoad);
    // Each press shows the window or hides it again.
    bind(action(QStringLiteral("actionImageProfileX")), v,
         [v] { v->slotImageProfileX(!v->isProfileVisible(0)); });
    bind(action(QStringLiteral("actionImageProfileY")), v,
         [v] { v->slotImageProfileY(!v->isProfileVisible(1)); });
    bind(action(QStringLiteral("actionImageHistogram")), d,
         [d] { d->slotImageHistogram(!d->imageHistogram() || !d->imageHistogram()->isVisible()); });
}

// This edition offers no stereo and no image stream.
void Kelvane::removeUnofferedParts() {
    for (const char* name : {"menuStereo", "menuCamera"})
        menuBar()->removeAction(m_menus.value(QLatin1String(name))->menuAction());
    QAction* stereo = action(QStringLiteral("actionStereoMode"));
    for (QWidget* w : stereo->associatedWidgets()) w->removeAction(stereo);
    for (const char* name : {"toolBarStereo", "toolBarImageProvider"}) {
        QToolBar* bar = m_toolBars.value(QLatin1String(name));
        bar->clear();
        bar->close();
    }
}

void Kelvane::enable(const char* name, bool rule) {
    QAction* a = action(QLatin1String(name));
    a->setEnabled(rule && m_bound.contains(a));
}

void Kelvane::check(const char* name, bool on) {
    QAction* a = action(QLatin1String(name));
    const QSignalBlocker quiet(a);
    a->setChecked(on);
}

void Kelvane::slotUpdateUI() {
    if (!m_uiEnabled) return;
    m_dataView->autoRedraw(false);
    const KelvaneDataObject* o = m_dataObject;
    const bool data = o->haveData(-1);
    const bool image = o->haveImage(0);
    const bool pair = o->isImagePair();
    const KelvaneMode mode = o->kelvaneMode();
    const bool dataMode = mode == MODE_DATA;
    const bool batch = m_data->isBatchMode();
    const bool running = m_state.isProcessingInProgress() || batch;

    for (QAction* a : qAsConst(m_actions)) a->setEnabled(m_bound.contains(a));
    for (const char* name : {"actionFileSave", "actionFileSaveAs", "actionFileSaveTecplot"})
        enable(name, data);
    m_viewSelector->setEnabled(image || o->haveData(0));
    enable("actionPIVCorrelationPlane", dataMode && pair);
    enable("actionPIVProcess", dataMode && pair && !batch);
    enable("actionPTV_ProcessImage", dataMode);
    enable("actionPTV_SaveData", o->havePTVdata(-1));
    enable("actionPIVHistogram", data && dataMode);
    for (const char* name : {"actionPIVStatistics", "actionPlotVectors", "actionPlotContours",
                             "actionPlotSubtractMean"})
        enable(name, data);
    enable("actionPIVEditROI", image && o->parameters(0)->pivEvalCfg().grid.roiEnabled);
    enable("actionPIVParameters", dataMode);
    enable("actionPIVBatchProcess", dataMode && !batch);
    // While the image batch runs, its action stops it.
    enable("actionImageBatchProcess", dataMode);
    for (const char* name : {"actionImageSavePair", "actionImageMaskEditor", "actionImageShow"})
        enable(name, image);
    // Ctrl+C is "Clip LUT" and "Stop": only one of them may be live at a time.
    enable("actionImageClipLUT", !running);
    enable("actionImageZoomIn", m_dataView->canZoomIn());
    enable("actionImageZoomOut", m_dataView->canZoomOut());
    enable("actionImageTogglePair", pair && !o->isFileData(-1));
    m_data->progressBars()->stopAction()->setEnabled(running);

    const int analysis = o->analysisMode();
    check("actionModeCrossCorrelation", analysis == PIV::ANALYSIS_CROSS_CORRELATION);
    check("actionModeAutoCorrelation", analysis == PIV::ANALYSIS_AUTO_CORRELATION);
    check("actionModeSpeckleCorrelation", analysis == PIV::ANALYSIS_SPECKLE);
    check("actionPIVCalibrationMode", mode == MODE_CALIBRATION);
    check("actionPIVEditROI", mode == MODE_ROI_EDIT);
    check("actionPlotMoveObjects", mode == MODE_ARRANGE_PLOT);
    check("actionAddRectangle", mode == MODE_MEASURE_RECTANGLE);
    check("actionAddEllipse", mode == MODE_MEASURE_ELLIPSE);
    check("actionAddLine", mode == MODE_MEASURE_LINE);
    check("actionAddPolygon", mode == MODE_MEASURE_POLYGON);
    check("actionMeasureObjectsDelete", mode == MODE_MEASURE_DELETE);
    check("actionMeasureObjectsResize", mode == MODE_MEASURE_RESIZE);
    check("actionMeasureObjectsMoveVertex", mode == MODE_MEASURE_ADJUST);
    check("actionShowFilteredData", o->currentView() == 3);
    const KelvaneDataView* v = m_dataView;
    check("actionImageShow", v->isImageVisible());
    check("actionImageShowLUT", v->isImageLUTVisible());
    check("actionImageReverseLUT", v->isImageLUTReversed());
    check("actionPlotVectors", v->isVectorMapVisible());
    check("actionPlotContours", v->isContourMapVisible());
    check("actionPlotAxis", v->isAxisVisible());
    check("actionPlotSubtractMean", v->isMeanVectorSubtracted());
    check("actionPTV_ShowVectors", m_ptvModule->isShowingVectors());
}

void Kelvane::setKelvaneMode(KelvaneMode mode, bool syncSelector) {
    if (mode == m_dataObject->kelvaneMode()) return;
    m_dataObject->setKelvaneMode(mode);
    m_data->updateKelvaneMode(mode);
    m_dataView->updateKelvaneMode();
    const Qt::CursorShape cursor = mode == MODE_CALIBRATION ? Qt::CrossCursor : Qt::ArrowCursor;
    for (int p = 0; p < m_sceneStack->count(); ++p) m_sceneStack->widget(p)->setCursor(cursor);
    slotUpdateUI();
    if (!syncSelector) return;
    for (int i = 0; i < int(std::size(kSelectorModes)); ++i)
        if (kSelectorModes[i] == mode) m_modeSelector->setCurrentIndex(i);
}

void Kelvane::setAnalysisMode(int mode) {
    mode = PIV::ToAnalysisMode(mode);
    const bool speckle = mode == PIV::ANALYSIS_SPECKLE;
    check("actionModeCrossCorrelation", mode == PIV::ANALYSIS_CROSS_CORRELATION);
    check("actionModeAutoCorrelation", mode == PIV::ANALYSIS_AUTO_CORRELATION);
    check("actionModeSpeckleCorrelation", speckle);
    action(QStringLiteral("actionFileOpenRefImage"))->setVisible(speckle);
    action(QStringLiteral("actionFileOpen"))
        ->setText(speckle ? tr("Load displaced image") : tr("&Load image(s)"));
    m_dataObject->setAnalysisMode(mode);
    updateFileFilters();
}

int Kelvane::analysisMode() const {
    return m_dataObject->analysisMode();
}

void Kelvane::setViewOfData(int view) {
    if (m_viewGuard) return;
    m_viewGuard = true;
    if (view == 3 || view == 1) {
        const bool result = m_dataObject->haveData(3);
        m_dataObject->setCurrentView(result ? 3 : 0);
        m_viewSelector->setCurrentIndex(result ? 1 : 0);
    } else {
        m_dataObject->setCurrentView(view);
        m_viewSelector->setCurrentIndex(0);
    }
    check("actionShowFilteredData", m_dataObject->currentView() == 3);
    m_dataView->slotSetCurrentScene(m_dataObject->currentView() == 3 ? 3 : 0);
    updateStatusLabel();
    m_viewGuard = false;
}

void Kelvane::updateStatusLabel() {
    QString text = tr("2C-PIV mode");
    text += m_dataObject->currentView() == 3 ? tr(" | Final result") : tr(" | Raw data");
    m_statusLabel->setText(text);
}

void Kelvane::updateFileFilters() {
    const PREFS_CFG& p = m_prefs;
    const auto filter = [&p](const QString& name, int type) {
        return QStringLiteral("%1 (%2)").arg(name, imageFilterList(p.ImageTypeMask[type]));
    };
    QStringList images;
    switch (m_dataObject->analysisMode()) {
        case PIV::ANALYSIS_AUTO_CORRELATION:
            images << filter(tr("Double-exposed PIV Images"), IMAGES_PIV_DOUBLE);
            break;
        case PIV::ANALYSIS_SPECKLE:
            images << filter(tr("Displaced Speckle Images"), IMAGES_DISPLACED)
                   << filter(tr("Reference Speckle Images"), IMAGES_REFERENCE);
            break;
        default:
            images << filter(tr("Single-exposed PIV Images"), IMAGES_PIV_PAIRS)
                   << filter(tr("PCO-Double Images"), IMAGES_PCO_DOUBLE);
    }
    images << QStringLiteral("%1 (%2)").arg(tr("All Available Images"), imageFilterList(4095));
    m_data->setImageFileFilters(images.join(QStringLiteral(";;")) + tr(";;All files (*.*)"));
    const QString own = _dataFilterList(p.PivFileMask);
    m_data->setFileFilters(QStringLiteral("%1 (%2);;%3 (%4);;%5 (*.*)")
                               .arg(tr("PIV Files"), own, tr("All Supported Data Files"),
                                    _dataFilterList(0xF000), tr("All Files")));
}

void Kelvane::applyToolBarStyle() {
    const int pixels = m_prefs.ToolButtonSize * 8 + 8;
    QFont font = this->font();
    font.setPointSize(m_prefs.ToolButtonFontSize);
    for (QToolBar* bar : qAsConst(m_toolBars)) {
        bar->setIconSize(QSize(pixels, pixels));
        bar->setToolButtonStyle(m_prefs.ToolButtonText ? Qt::ToolButtonTextUnderIcon
                                                       : Qt::ToolButtonIconOnly);
        bar->setFont(font);
    }
    QFont dialogFont = this->font();
    dialogFont.setPointSize(m_prefs.DialogFontSize);
    m_prefsDlg->setFont(dialogFont);
    m_data->outputDlg()->setFont(dialogFont);
}
