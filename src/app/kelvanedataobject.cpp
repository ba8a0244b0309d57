#include "kelvanedataobject.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <cstring>

#include "image2d.h"
#include "imagecfg_settings.h"
#include "piv3c_params.h"
#include "piv_data2d.h"
#include "piv_enums.h"
#include "piv_messages.h"
#include "piv_parametersqt.h"
#include "piv_params.h"
#include "piv_postprocess.h"
#include "piv_record.h"
#include "ptv_data2d.h"
#include "qpiv_imagepair.h"

KelvaneDataObject::KelvaneDataObject(KelvaneState* state, MySettings* settings, QObject* parent)
    : QObject(parent), m_error("KelvaneDataObject"), m_state(state), m_settings(settings) {
    if (DebugLevel() > 0) m_error.setErrorHandling(PIVerror::ERROR_REPORT);
    m_stereoParams = new PIV3C_Parameters;
    auto* pair = new QPIV_ImagePair;
    m_params[0] = new PIV_Parameters;
    m_data[0] = new PIV_Data2D;
    m_masks[0] = new Image2D;
    for (int s = 1; s < 3; ++s) {
        m_params[s] = m_params[0];
        m_data[s] = m_data[0];
        m_masks[s] = m_masks[0];
    }
    std::fill(std::begin(m_images), std::end(m_images), pair);
    m_data[3] = new PIV_Data2D;
    m_params[3] = new PIV_Parameters;
    m_masks[3] = new Image2D;
    pair->setStereoCfg(m_stereoParams, 0);
    registryIO(MySettings::READ);
    connect(pair, &QPIV_ImagePair::signalMessage, this, &KelvaneDataObject::signalMessage);
}

KelvaneDataObject::~KelvaneDataObject() {
    for (int s : {0, 3}) {
        m_data[s]->release();
        m_params[s]->release();
        delete m_masks[s];
    }
    delete m_images[0];
    delete m_stereoParams;
}

// ---- views and slots ---------------------------------------------------------

int KelvaneDataObject::slotOfView(int view) const {
    if (view < 0) view = m_currentView;
    if (m_stereoEnabled) return std::min(view, 3);
    return view == 0 ? 0 : 3;
}

QPIV_ImagePair* KelvaneDataObject::image(int view) const {
    if (!m_stereoEnabled) return m_images[0];
    return m_images[std::clamp(view < 0 ? m_currentView : view, 0, 3)];
}

bool KelvaneDataObject::haveData(int view) const {
    const PIV_Data2D* d = data(view);
    return d->haveRawData() && d->nodeCount() > 0;
}

bool KelvaneDataObject::isFileData(int view) const {
    return data(view)->isFileData();
}

bool KelvaneDataObject::isEvaluated(int view) const {
    return data(view)->haveRawData();
}

bool KelvaneDataObject::isIntermediateData(int view) const {
    return data(view)->isIntermediateData();
}

bool KelvaneDataObject::haveMultiplePeaks(int view) const {
    return data(view)->haveMultiplePeaks();
}

void KelvaneDataObject::setFileData(bool on, int view) {
    data(view)->setFlagFileData(on);
}

void KelvaneDataObject::setIntermediateData(bool on, int view) {
    data(view)->setFlagIntermediateData(on);
}

bool KelvaneDataObject::haveImage(int view) const {
    if (view < 0) view = m_currentView;
    return view == 0 && !m_images[0]->isNull();
}

bool KelvaneDataObject::isImagePair() const {
    return m_currentView != 3 && image()->isImagePair();
}

bool KelvaneDataObject::isImageAvailable() const {
    return m_currentView != 3 && image()->isImageAvailable();
}

void KelvaneDataObject::setEvaluated(bool on) {
    for (PIV_Data2D* d : m_data)
        if (!d->isFileData()) d->setFlagRawData(on);
}

void KelvaneDataObject::clearPivData() {
    for (PIV_Data2D* d : m_data) {
        d->setFlagRawData(false);
        d->setFlagFileData(false);
    }
}

void KelvaneDataObject::clearVectors() {
    for (PIV_Data2D* d : m_data) d->clear();
    for (auto& tracks : m_ptv) tracks.reset();
}

// ---- particle tracks ---------------------------------------------------------

bool KelvaneDataObject::havePTVdata(int view) const {
    const std::shared_ptr<const PTV_Data2D>& tracks = m_ptv[slotOfView(view)];
    return tracks && tracks->particleCount() > 0;
}

void KelvaneDataObject::setPTVdata(std::shared_ptr<const PTV_Data2D> tracks, int view) {
    m_ptv[slotOfView(view)] = std::move(tracks);
    emit signalHaveNewPTVData(view);
}

bool KelvaneDataObject::setPTVParameters(const PTV_PARAMS& cfg) {
    if (std::memcmp(&cfg, &m_ptvParams, sizeof cfg) != 0) m_ptvParams = cfg;
    emit signalHaveNewPTVParameters();
    return true;
}

void KelvaneDataObject::clearAll() {
    clearVectors();
    m_images[0]->clear();
}

void KelvaneDataObject::setDataType(int flags) {
    const int kind =
        m_analysisMode == PIV::ANALYSIS_SPECKLE ? PIV::DATA_SPECKLE : PIV::DATA_VELOCITY;
    for (PIV_Data2D* d : m_data) d->setDataType(d->dataType() | flags | kind);
}

void KelvaneDataObject::setAnalysisMode(int mode) {
    m_analysisMode = PIV::ToAnalysisMode(mode);
    switch (m_analysisMode) {
        case PIV::ANALYSIS_AUTO_CORRELATION:
            emit signalMessage(tr("Switched to PIV-Autocorrelation Mode"));
            break;
        case PIV::ANALYSIS_SPECKLE:
            emit signalMessage(tr("Switched to Speckle Displacement Mode"));
            break;
        default:
            emit signalMessage(tr("Switched to PIV-CrossCorrelation Mode"));
    }
    for (QPIV_ImagePair* pair : m_images) pair->setAnalysisMode(m_analysisMode);
    emit signalChangedAnalysisMode();
}

void KelvaneDataObject::setKelvaneMode(KelvaneMode mode) {
    // The window drives the updates of a new mode.
    if (mode != m_mode) m_mode = mode;
}

void KelvaneDataObject::setCurrentView(int view) {
    QString label = tr("Raw data");
    int next = 0;
    if (view == 3) {
        label = tr("Post-processed data");
        next = 3;
    } else if (m_stereoEnabled && view == 0) {
        label = tr("Raw data for view A");
    }
    if (next == m_currentView) return;
    m_currentView = next;
    emit signalChangedView(next);
    if (m_data[next]->haveRawData()) logStats(next, label);
}

// ---- stereo: switched off in the two-component edition ------------------------

void KelvaneDataObject::setFlagStereoMode(bool) {
    m_stereoEnabled = false;
}

bool KelvaneDataObject::loadStereoProject(const QString&) {
    return false;
}

bool KelvaneDataObject::saveStereoProject(const QString&) {
    return false;
}

bool KelvaneDataObject::loadStereoImage(const QString&, const QString&, int) {
    return false;
}

void KelvaneDataObject::slotToggleStereoMode() {}

void KelvaneDataObject::slotToggleRoiMode() {}

// The stereo record carries no geometry flag yet; nothing can have moved.
void KelvaneDataObject::slotUpdateStereoGeometry() {}

bool KelvaneDataObject::mergeStereoViews(const PIVCONVERT_CFG&) {
    m_lastError.clear();
    if (!m_stereoEnabled || isFileData(0)) return true;
    // The library has no three-component reconstruction of two fields yet.
    m_lastError = tr("Failed creating 3-C data");
    return false;
}

// ---- parameters -------------------------------------------------------------------

bool KelvaneDataObject::setPivParameters(const PIV_PARAMETERS& a, const PIV_PARAMETERS& b) {
    PIV_PARAMETERS pa = a, pb = b;
    bool changed = false;
    if (!isFileData(0)) {
        // Without an image there is no grid to lay yet: the settings are
        // kept, and the first image lays the grid.
        const bool image = haveImage(0);
        if (image) {
            const SIZE3D size{m_images[0]->width(), m_images[0]->height(), 1};
            pa.eval.grid.imageSize = pb.eval.grid.imageSize = size;
        }
        const bool newGrid = image && m_params[0]->requiresNewGrid(pa.eval);
        const bool newEval = m_params[0]->setPivEvalCfg(pa.eval, true);
        changed = newGrid || newEval;
        if (changed) clearVectors();
        for (int s = 0; s < 4; ++s) {
            const PIVEVAL_CFG& eval = (s == 1 && m_stereoEnabled) ? pb.eval : pa.eval;
            if (m_params[s]->setPivEvalCfg(eval, true) || changed) regrid(s);
        }
    }
    const bool newOutliers =
        !PIV::SameRecord(m_params[0]->outlierCfg(), pa.outlier) ||
        !PIV::SameRecord(m_params[1]->outlierCfg(), m_stereoEnabled ? pb.outlier : pa.outlier);
    for (int s = 0; s < 4; ++s)
        m_params[s]->setOutlierCfg((s == 1 && m_stereoEnabled) ? pb.outlier : pa.outlier);
    bool newConversion = false;
    for (PIV_Parameters* p : m_params) newConversion |= p->setPivConvertCfg(pa.convert);
    const bool newDifferentiation =
        !PIV::SameRecord(m_params[0]->differentiateCfg(), pa.differentiate);
    for (PIV_Parameters* p : m_params) p->setDifferentiateCfg(pa.differentiate);
    for (PIV_Data2D* d : m_data) {
        if (newOutliers) d->setFlagValidated(false);
        if (newConversion) d->setFlagConverted(false);
        if (newDifferentiation) d->setFlagDifferentiated(false);
    }
    for (int s = 0; s < 4; ++s)
        if (m_data[s]->haveRawData()) m_data[s]->postProcess(m_params[s], nullptr, false);
    if (m_data[0]->haveRawData()) return doPostProcessing();
    return changed || newOutliers || newConversion || newDifferentiation;
}

bool KelvaneDataObject::setPostProcessCfg(const POSTPROCESS_CFG& cfg) {
    const bool changed = !PIV::SameRecord(m_params[3]->postProcessCfg(), cfg);
    for (PIV_Parameters* p : m_params) p->setPostProcessCfg(cfg);
    return changed;
}

POSTPROCESS_CFG KelvaneDataObject::postProcessCfg() const {
    return m_params[3]->postProcessCfg();
}

bool KelvaneDataObject::setROI(const RECT3D& rect) {
    RECT3D asked = rect;
    asked.front = asked.back = 0;
    const RECT3D before = m_params[0]->dataGrid().roi;
    for (int s = 1; s < 4; ++s) m_params[s]->setROI(asked, true);
    const RECT3D after = m_params[0]->dataGrid().roi;
    if (!PIV::SameRecord(before, after)) {
        clearVectors();
        regridData();
        emit signalHaveNewData(m_currentView);
    }
    return PIV::SameRecord(after, asked);
}

bool KelvaneDataObject::setROI(const QRect& rect) {
    return setROI(RECT3D{rect.left(), rect.right(), rect.top(), rect.bottom(), 0, 0});
}

bool KelvaneDataObject::setOrigin(const FPOINT2D& point) {
    const POINT3D origin{int(point.x), int(point.y), 0};
    if (!m_params[0]->setOrigin(origin)) return false;
    for (int s = 1; s < 4; ++s) m_params[s]->setOrigin(origin);
    emit signalHaveNewParameters();
    return true;
}

bool KelvaneDataObject::setPivConvertCfg(const PIVCONVERT_CFG& cfg) {
    if (!m_params[0]->setPivConvertCfg(cfg)) return false;
    for (int s = 1; s < 4; ++s) m_params[s]->setPivConvertCfg(cfg);
    emit signalHaveNewParameters();
    return true;
}

bool KelvaneDataObject::setGlobalHistograms(const GLOBALHIST_ROI* rois, bool enable, int view) {
    PIV_Parameters* p = m_params[view < 1 ? 0 : 1];
    OUTLIER_CFG cfg = p->outlierCfg();
    if (rois) std::copy(rois, rois + PIV::MaxGlobalHistROI(), cfg.GlobalHist);
    cfg.CheckGlobalHist = enable;
    const bool changed = !PIV::SameRecord(cfg, p->outlierCfg());
    p->setOutlierCfg(cfg);
    return changed;
}

// ---- data ----------------------------------------------------------------------------

void KelvaneDataObject::regridData() {
    for (int s = 0; s < 4; ++s) regrid(s);
}

void KelvaneDataObject::regrid(int slot) {
    // Before an image sets the size the grid has no nodes: the field stays
    // as it is rather than fill the log with a failed allocation.
    const DATA_GRID4D grid = m_params[slot]->dataGrid();
    if (grid.nodes.width > 0 && grid.nodes.height > 0) m_data[slot]->create(grid);
}

bool KelvaneDataObject::calcPivStats() {
    bool ok = false;
    for (PIV_Data2D* d : m_data) ok = !d->isNull() && d->doStatistics();
    return ok;
}

PIV_VECTOR KelvaneDataObject::getNearestVector(const FPOINT2D& point, bool* ok) const {
    bool found = false;
    const PIV_Data2D* d = data();
    const long k = d->nearestVectorIndex(int(point.x), int(point.y), 0, &found);
    if (ok) *ok = found;
    return found ? d->getVector(k) : PIV_VECTOR();
}

DIFFERENTIALS KelvaneDataObject::getNearestDifferentials(const FPOINT2D& point, bool* ok) const {
    bool found = false;
    const PIV_Data2D* d = data();
    const long k = d->nearestVectorIndex(int(point.x), int(point.y), 0, &found);
    if (ok) *ok = found;
    return found ? d->getDifferentials(k) : DIFFERENTIALS();
}

SIZE2D KelvaneDataObject::imageSize(int view) const {
    if (isFileData(view)) {
        const SIZE3D& s = data(view)->grid().imageSize;
        return SIZE2D{s.width, s.height};
    }
    return image(view)->size2D();
}

// The same rule as the vectors' own positions: x = (ix - ImageOrigin.x) /
// magX + PhysicalOrigin.x, and y upwards from the origin's row.
double KelvaneDataObject::physicalX(double x) const {
    const PIVCONVERT_CFG c = m_params[0]->pivConvertCfg();
    const double mag = c.LengthConversion[0];
    return mag != 0.0 ? (x - c.ImageOrigin.x) / mag + c.PhysicalOrigin.x : 0.0;
}

double KelvaneDataObject::physicalY(double y, bool fromTop) const {
    const PIVCONVERT_CFG c = m_params[0]->pivConvertCfg();
    const double mag = c.LengthConversion[1];
    // Rows counted from the bottom are turned into the image's own.
    const double row = fromTop ? y : double(imageSize(0).height) - 1.0 - y;
    return mag != 0.0 ? (c.ImageOrigin.y - row) / mag + c.PhysicalOrigin.y : 0.0;
}

void KelvaneDataObject::logStats(int slot, const QString& label) {
    const QString text =
        QStringLiteral("%1\n%2").arg(label, QString::fromLatin1(m_data[slot]->formattedStats()));
    if (text != m_lastStatsText) {
        m_lastStatsText = text;
        emit signalLogMessage(text);
    }
}

bool KelvaneDataObject::doPostProcessing() {
    const int source = m_stereoEnabled ? 2 : 0;
    const POSTPROCESS_CFG cfg = m_params[3]->postProcessCfg();
    // The views show the mask of the result; the chain loads its own copy.
    bool masked = false;
    if (m_stereoEnabled) {
        *m_masks[3] = *m_masks[2];
    } else if (cfg.MaskEnable && cfg.MaskFile[0] && m_masks[3]->load(cfg.MaskFile)) {
        if (cfg.MaskInvert) m_masks[3]->negative(0);
        const SIZE3D& size = m_data[source]->grid().imageSize;
        masked = int(m_masks[3]->width()) == size.width && int(m_masks[3]->height()) == size.height;
    } else {
        m_masks[3]->destroy();
    }
    const PIV::PostProcessResult r =
        PIV::PostProcessData(*m_data[source], *m_data[3], cfg, m_params[0]);
    for (const QString& line : QString::fromStdString(r.warnings).split('\n', Qt::SkipEmptyParts))
        m_error.setError(PIVerror::OPERATION_FAILED, "%s", line.toLocal8Bit().constData());
    if (!r.ok) {
        m_error.handleError(r.code, "doPostProcessing()");
        emit signalMessage(tr("ERROR while post processing: ") + QString::fromStdString(r.reason));
        return false;
    }
    // The result counts as post-processed only when a step changed it.
    const bool filtered =
        cfg.InterpolateDisabledVectors || cfg.MedianApply || cfg.SmoothApply || masked;
    const int slot = filtered ? 3 : source;
    logStats(slot, slot < 3 ? tr("Raw data") : tr("Post-processed data"));
    emit signalHaveNewData(slot);
    emit signalShowMask(slot, false);
    return true;
}

// ---- names ------------------------------------------------------------------------------

QString KelvaneDataObject::title(int view) const {
    if (isFileData(view)) return m_dataFileName;
    const QPIV_ImagePair* pair = image(view);
    if (pair->isNull()) return tr("No data");
    QString text = pair->fileName(false);
    if (pair->isImagePair() && !pair->isSplitPCO() &&
        m_analysisMode != PIV::ANALYSIS_AUTO_CORRELATION)
        text += QStringLiteral(" | ") + pair->fileName(true);
    return text;
}

QString KelvaneDataObject::caption(int view) const {
    QString text = QCoreApplication::applicationName() + QStringLiteral(" | ");
    const QPIV_ImagePair* pair = image(view);
    if (pair->isNull() && !haveData(view)) return text + tr("No data");
    if (isFileData(view)) return text + m_dataFileName;
    if (m_stereoEnabled) text += tr("Stereo View A: ");
    text += pair->fileName(false);
    if (pair->isSplitPCO())
        text += tr(" (PCO-Type)");
    else if (pair->isImagePair() && m_analysisMode != PIV::ANALYSIS_AUTO_CORRELATION)
        text += QStringLiteral("|") + pair->fileName(true);
    switch (m_analysisMode) {
        case PIV::ANALYSIS_AUTO_CORRELATION:
            return text + tr(" (Autocorrelation Mode)");
        case PIV::ANALYSIS_SPECKLE:
            return text + tr(" (Speckle Mode)");
        default:
            return text + tr(" (Cross-Correlation Mode)");
    }
}

QString KelvaneDataObject::filePath(int view) const {
    if (isFileData(view)) return QFileInfo(m_dataFileName).absoluteFilePath();
    const QString path = image(view)->filePath(false);
    return path.isEmpty() ? QString() : QFileInfo(path).absoluteFilePath();
}

QString KelvaneDataObject::fileName(int view) const {
    return QFileInfo(filePath(view)).fileName();
}

QString KelvaneDataObject::fileDir(int view) const {
    const QString path = filePath(view);
    return path.isEmpty() ? QString() : QFileInfo(path).absolutePath();
}

QString KelvaneDataObject::currentOutputDir() const {
    const QFileInfo output(m_outputFileName);
    if (!m_outputFileName.isEmpty() && output.exists()) return output.absolutePath();
    return QDir::currentPath();
}

// ---- settings ----------------------------------------------------------------------------

void KelvaneDataObject::registryIO(MySettings::AccessMode mode) {
    if (!m_settings) return;
    MySettings& s = *m_settings;
    const bool read = mode == MySettings::READ;
    // Only slot 0 is written; the post-processing block lives in slot 3.
    if (!read) m_params[0]->setPostProcessCfg(m_params[3]->postProcessCfg());
    PIV_ParametersQT(m_params[0], m_settings).registryIO(mode);
    if (read) m_params[3]->setPostProcessCfg(m_params[0]->postProcessCfg());

    QPIV_ImagePair* pair = m_images[0];
    QString reference = pair->referenceImage();
    s.serializeString(mode, "/PIV/ReferenceImage", &reference);
    s.serializeBool(mode, "/Image/EnableTIFFCompression", &m_tiffCompression);
    s.serializeBool(mode, "/Prefs/OriginTopLeft", &m_originTopLeft);
    int separation = pair->frameSeparation();
    s.serializeInt(mode, "/PIV/FrameSeparation", &separation);
    IMAGE_CFG cfg = pair->imageCfg();
    registryIOImageCfg(s, 0, mode, cfg);
    if (!read) return;
    pair->setReferenceImage(reference);
    pair->setTIFFCompressionEnabled(m_tiffCompression);
    pair->setFrameSeparation(separation);
    pair->setImageCfg(cfg);
    pair->setInterpolationMethod(cfg.InterpolationMethod, cfg.InterpolationDegree);
}

void KelvaneDataObject::doCleanUp(bool save) {
    emit signalAboutToQuit(save);
    if (save) registryIO(MySettings::WRITE);
}

void KelvaneDataObject::slotClearPivData() {
    if (isFileData()) return;
    clearVectors();
    emit signalHaveNewData(m_currentView);
}

void KelvaneDataObject::slotSetNewPivData() {
    emit signalHaveNewData(m_currentView);
}
