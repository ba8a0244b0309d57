#include "piv_eval2d_base.h"

#include <algorithm>
#include <cstdio>

#include "piv_enums.h"
#include "piv_messages.h"

PIV_Eval2D_Base::PIV_Eval2D_Base(PIV_Data2D* data, PIV_Parameters* parameters)
    : m_data(data), m_params(parameters), m_error("PIV_Eval2D_Base") {
    if (m_data)
        m_data->addRef();
    else
        m_data = new PIV_Data2D();
    if (m_params)
        m_params->addRef();
    else
        m_params = new PIV_Parameters();
    m_status[0] = '\0';
}

PIV_Eval2D_Base::~PIV_Eval2D_Base() {
    m_data->release();
    m_params->release();
}

bool PIV_Eval2D_Base::updateCorrelator(const PIVEVAL_CFG&) {
    return false;
}

bool PIV_Eval2D_Base::doPostProcessing(bool force) {
    showStatusMessage("Data post-processing...");
    if (force) m_newValidation = true;
    if (m_newValidation) m_data->setFlagValidated(false);
    m_data->setFlagAllowPostProcess(true);
    m_data->setFlagDifferentiated(false);
    const bool ok = m_data->postProcess(m_params, postProcessMask(), false);
    if (!ok && m_data->haveRawData()) appendToLogFile("PostProcessing failed");
    return ok;
}

void PIV_Eval2D_Base::showProgress(int, int) {}

void PIV_Eval2D_Base::showStatusMessage(const char* text) {
    if (text && text[0]) DebugPrintExt(1, "%s", text);
}

void PIV_Eval2D_Base::appendToLogFile(const char* text) {
    if (text && text[0]) ShowStatus("%s", text);
}

bool PIV_Eval2D_Base::wasCancelled() {
    return false;
}

void PIV_Eval2D_Base::updateProgressDialog(const char*, bool) {}

void PIV_Eval2D_Base::showNewPivData() {}

void PIV_Eval2D_Base::setAnalysisMode(int mode) {
    m_analysisMode = PIV::ToAnalysisMode(mode);
    m_data->setAnalysisMode(m_analysisMode);
}

bool PIV_Eval2D_Base::clearData() {
    if (m_data->isNull()) return false;
    m_data->clear();
    return true;
}

bool PIV_Eval2D_Base::setROI(const RECT3D& roi) {
    // A field read from a file keeps the grid it was evaluated on.
    const bool fileData = isFileData();
    const bool changed = m_params->setROI(roi, !fileData);
    const SIZE3D image = m_params->dataGrid().imageSize;
    if (changed && !fileData && image.width > 0 && image.height > 0)
        updateEvalGrid(image.width, image.height);
    return changed;
}

bool PIV_Eval2D_Base::updatePIVparameters() {
    const SIZE3D image = m_params->dataGrid().imageSize;
    if (isFileData() || image.width < 1 || image.height < 1) {
        updateCorrelator(m_params->pivEvalCfg());
        return true;
    }
    m_params->update();
    return updateEvalGrid(image.width, image.height);
}

bool PIV_Eval2D_Base::updatePivConvertCfg(const PIVCONVERT_CFG& cfg) {
    const bool changed = m_params->setPivConvertCfg(cfg);
    if (!changed || m_data->isNull()) return changed;
    PIV_PARAMETERS held = m_data->pivParameters();
    held.convert = m_params->pivConvertCfg();
    m_data->setPivParameters(held);
    // Physical values and gradients of the old conversion would be wrong.
    if (m_data->isConverted()) {
        m_data->convert(m_params);
        if (m_data->isDifferentiated()) m_data->differentiate();
        m_data->doStatistics();
    }
    return changed;
}

void PIV_Eval2D_Base::updateFDiffCfg(const DIFFERENTIATE_CFG& cfg) {
    m_params->setDifferentiateCfg(cfg);
    if (m_data->isNull()) return;
    PIV_PARAMETERS held = m_data->pivParameters();
    held.differentiate = cfg;
    m_data->setPivParameters(held);
    if (m_data->isDifferentiated()) m_data->differentiate();
}

void PIV_Eval2D_Base::setDebug(int level) {
    SetDebugLevel(level);
}

void PIV_Eval2D_Base::setFlagNewImage(bool on) {
    m_newImage = on;
    if (on && !isFileData()) clearData();
}

void PIV_Eval2D_Base::showStats() {
    if (!m_data->isNull() && m_data->doStatistics()) showStatusMessage(m_data->formattedStats());
}

void PIV_Eval2D_Base::clear() {
    m_status[0] = '\0';
    m_processTime = 0.0;
    clearData();
}

bool PIV_Eval2D_Base::updateEvalGrid(int width, int height) {
    if (width > 20000 || height > 20000) {
        m_error.setMessage("updateEvalGrid(%d,%d) - Invalid image size!!!", width, height);
        m_error.handleError(PIVerror::BAD_IMAGE_SIZE, "updateEvalGrid()");
        clear();
        return false;
    }
    if (m_params->isNewImageSize(width, height, 1)) m_params->setImageSize(width, height, 1, true);
    const PIVEVAL_CFG cfg = m_params->pivEvalCfg();
    const DATA_GRID4D& grid = cfg.grid;
    const long nodes = long(grid.nodes.width) * grid.nodes.height * std::max(grid.nodes.depth, 1);
    const DATA_GRID4D& held = m_data->grid();
    const bool newGrid =
        m_data->isNull() || long(m_data->nodeCount()) != nodes ||
        held.nodes.width != grid.nodes.width || held.nodes.height != grid.nodes.height ||
        held.step.width != grid.step.width || held.step.height != grid.step.height ||
        held.first.x != grid.first.x || held.first.y != grid.first.y ||
        held.imageSize.width != grid.imageSize.width ||
        held.imageSize.height != grid.imageSize.height;
    const bool newCorrelator = updateCorrelator(cfg);
    DebugPrintExt(3,
                  "PIV_Eval2D_Base::updateEvalGrid(%dx%d)   newGrid=%d sample=%dx%d (new=%d) "
                  "step=%dx%d nodes=%dx%d",
                  width, height, newGrid, cfg.SampleSize.width, cfg.SampleSize.height,
                  newCorrelator, grid.step.width, grid.step.height, grid.nodes.width,
                  grid.nodes.height);
    if (newGrid) {
        clear();
        if (nodes <= 0 || grid.imageSize.width < 1 || grid.imageSize.height < 1) {
            PrintWarning("PIV_Eval2D::calculateEvalGrid() - internal error - no nodes in grid!");
            return false;
        }
        // A field on another grid cannot take this evaluation's vectors.
        m_data->create(grid);
        m_data->setFlagRawData(false);
        m_data->setFlagFileData(false);
        clearData();
    }
    m_data->setDataType(m_analysisMode == PIV::ANALYSIS_SPECKLE ? PIV::DATA_SPECKLE
                                                                : PIV::DATA_VELOCITY);
    m_data->setAnalysisMode(m_analysisMode);
    return true;
}

bool PIV_Eval2D_Base::updatePivEvalCfg(const PIVEVAL_CFG& cfg) {
    if (cfg.grid.roiEnabled) m_params->setROI(cfg.grid.roi, !isFileData());
    if (isFileData()) {
        // A field read from a file keeps its grid; only the method changes.
        PIVEVAL_CFG kept = cfg;
        kept.grid = m_params->dataGrid();
        m_params->setPivEvalCfg(kept, false);
        updateCorrelator(m_params->pivEvalCfg());
        return true;
    }
    PIVEVAL_CFG next = cfg;
    if (cfg.grid.roiEnabled) next.grid = m_params->dataGrid();
    // The image size belongs to the images, not to settings from elsewhere.
    next.grid.imageSize = m_params->dataGrid().imageSize;
    const SIZE3D& known = next.grid.imageSize;
    if (known.width < 1 || known.height < 1) {
        // No images yet: the grid is laid when they come.
        const bool changed = m_params->isNewMethod(next) || m_params->isNewPeakDetection(next);
        m_params->setPivEvalCfg(next, false);
        updateCorrelator(m_params->pivEvalCfg());
        return changed;
    }
    const bool changed = m_params->requiresNewGrid(next) || m_params->isNewMethod(next) ||
                         m_params->isNewPeakDetection(next) ||
                         next.SampleOffset.x != m_params->pivEvalCfg().SampleOffset.x ||
                         next.SampleOffset.y != m_params->pivEvalCfg().SampleOffset.y;
    m_params->setPivEvalCfg(next, true);
    updateEvalGrid(known.width, known.height);
    return changed;
}
