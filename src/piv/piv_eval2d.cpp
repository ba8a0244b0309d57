#include "piv_eval2d.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <new>

#include "image2d.h"
#include "piv_enums.h"
#include "piv_imagepair.h"
#include "piv_messages.h"
#include "piv_opencl.h"
#include "piv_util.h"

PIV_Eval2D::PIV_Eval2D(PIV_Data2D* data, PIV_Parameters* parameters)
    : PIV_Eval2D_Base(data, parameters) {
    m_error.setName("PIV_Eval2D");
    const int count = std::max(1, PIV::MaxThreads());
    const PIVEVAL_CFG cfg = m_params->pivEvalCfg();
    for (int i = 0; i < count; i++) {
        PIV_Corr2D* corr = new PIV_Corr2D();
        // A failed window is part of every evaluation; the sample list
        // reports it when asked to.
        corr->error().setErrorHandling(PIVerror::ERROR_QUIET);
        corr->setPivEvalCfg(cfg);
        m_corr.push_back(corr);
    }
    m_window.assign(m_corr.size(), SIZE2D{cfg.SampleSize.width, cfg.SampleSize.height});
}

PIV_Eval2D::~PIV_Eval2D() {
    for (PIV_Corr2D* corr : m_corr) corr->release();
}

void PIV_Eval2D::drawSamples(float*, float*, const SIZE2D&, const SIZE2D&, int, int, bool) {}

void PIV_Eval2D::drawCorrelation(float*, const SIZE2D&, const PIV_VECTOR&, int) {}

bool PIV_Eval2D::updateCorrelator(const PIVEVAL_CFG& cfg) {
    bool changed = false;
    for (size_t i = 0; i < m_corr.size(); i++) {
        changed = m_corr[i]->setPivEvalCfg(cfg) || changed;
        m_window[i] = SIZE2D{cfg.SampleSize.width, cfg.SampleSize.height};
    }
    return changed;
}

bool PIV_Eval2D::setPivImages(const Image2D* a, const Image2D* b, const Image2D* c,
                              const Image2D* d) {
    if (!a || !b || a->isNull() || b->isNull()) {
        m_error.handleError(PIVerror::IMAGE_IS_NULL, "setPivImages()");
        return false;
    }
    auto sameSize = [](const Image2D* x, const Image2D* y) {
        const SIZE2D sx = x->size2D(), sy = y->size2D();
        return sx.width == sy.width && sx.height == sy.height;
    };
    if (!sameSize(a, b) || (c && !sameSize(a, c)) || (d && !sameSize(a, d))) {
        m_error.setMessage("setPivImages() - mismatched images cannot be processed");
        m_error.handleError(PIVerror::IMAGE_SIZE_MISMATCH, "setPivImages()");
        return false;
    }
    const bool changed = a != m_pImgA || b != m_pImgB || c != m_pImgC || d != m_pImgD;
    m_pImgA = a;
    m_pImgB = b;
    m_pImgC = c;
    m_pImgD = d;
    const SIZE2D size = a->size2D();
    if (changed || m_params->isNewImageSize(size.width, size.height, 1) || m_data->isNull())
        return updateEvalGrid(size.width, size.height);
    return true;
}

bool PIV_Eval2D::setPivImagePair(PIV_ImagePair* pair) {
    if (!pair) {
        m_error.handleError(PIVerror::IMAGE_IS_NULL, "setPivImages()");
        return false;
    }
    return setPivImages(pair->imgA(), pair->imgB());
}

int PIV_Eval2D::setMaskImages(const Image2D* maskA, const Image2D* maskB, bool enabled) {
    m_pMaskA = m_pMaskB = nullptr;
    m_useMask = m_useSecondMask = false;
    if (!enabled || !maskA) return 0;
    if (maskA->isNull() || (maskB && maskB->isNull())) {
        m_error.handleError(PIVerror::IMAGE_IS_NULL, "setMaskImages()");
        return 0;
    }
    if (m_pImgA) {
        const SIZE2D is = m_pImgA->size2D();
        for (const Image2D* m : {maskA, maskB}) {
            if (!m) continue;
            const SIZE2D ms = m->size2D();
            if (ms.width != is.width || ms.height != is.height) {
                m_error.handleError(PIVerror::IMAGE_SIZE_MISMATCH, "setMaskImages()");
                return 0;
            }
        }
    }
    m_pMaskA = maskA;
    m_pMaskB = maskB;
    m_useSecondMask = maskB && maskB != maskA;
    m_useMask = true;
    return 1;
}

bool PIV_Eval2D::isImagePairValid() {
    if (!m_pImgA || !m_pImgB || m_pImgA->isNull() || m_pImgB->isNull()) {
        m_error.setMessage("No image available");
        m_error.handleError(PIVerror::IMAGE_IS_NULL, "isImagePairValid()");
        return false;
    }
    if (!m_pImgA->isSameSize(*m_pImgB, false)) {
        m_error.setMessage("Image pair size mismatch");
        m_error.handleError(PIVerror::IMAGE_SIZE_MISMATCH, "isImagePairValid()");
        return false;
    }
    return true;
}

bool PIV_Eval2D::isMultiGridPossible() {
    const PIVEVAL_CFG cfg = m_params->pivEvalCfg();
    if (m_analysisMode == PIV::ANALYSIS_AUTO_CORRELATION) {
        m_error.setMessage("MultiGrid not possible with double-exposed images");
        m_error.handleError(PIVerror::OPERATION_NOT_POSSIBLE, "isMultiGridPossible()");
        return false;
    }
    if (cfg.Method != PIV::METHOD_MULTI_GRID) {
        m_error.setMessage("MultiGrid is not enabled!");
        m_error.handleError(PIVerror::OPERATION_NOT_POSSIBLE, "isMultiGridPossible()");
        return false;
    }
    const int d = std::max(cfg.MultiGrid_Desample, 1);
    if (cfg.MultiGrid_SampleSize.width * d <= cfg.SampleSize.width ||
        cfg.MultiGrid_SampleSize.height * d <= cfg.SampleSize.height) {
        m_error.setMessage(
            "MultiGrid-PIV processing not possible:\n   Final sample (%dx%d) larger or equal to "
            "starting sample (%dx%d)",
            cfg.SampleSize.width, cfg.SampleSize.height, cfg.MultiGrid_SampleSize.width * d,
            cfg.MultiGrid_SampleSize.height * d);
        m_error.handleError(PIVerror::BAD_SAMPLE_SIZE, "isMultiGridPossible()");
        return false;
    }
    return true;
}

bool PIV_Eval2D::isInterrogationPossible(bool checkMultiGrid) {
    const char* where = "isInterrogationPossible()";
    if (m_evaluationRunning) {
        m_error.setMessage("Evaluation already in progress...");
        m_error.handleError(PIVerror::OPERATION_NOT_POSSIBLE, where);
        return false;
    }
    if (!isImagePairValid()) return false;
    const DATA_GRID4D grid = m_params->dataGrid();
    const long nodes = long(std::max(grid.nodes.width, 0)) * std::max(grid.nodes.height, 0) *
                       std::max(grid.nodes.depth, 1);
    if (nodes <= 0) {
        m_error.setMessage("No grid");
        m_error.handleError(PIVerror::BAD_GRID_DIMENSION, where);
        return false;
    }
    if (m_data->isNull() || long(m_data->nodeCount()) != nodes) {
        m_error.setMessage("Grid mismatch");
        m_error.handleError(PIVerror::GRID_MISMATCH, where);
        return false;
    }
    const PIVEVAL_CFG cfg = m_params->pivEvalCfg();
    if (checkMultiGrid && cfg.Method == PIV::METHOD_MULTI_GRID && !isMultiGridPossible())
        return false;
    if (cfg.Method != PIV::METHOD_SINGLE_PASS) {
        // An iterative evaluation always validates between its passes.
        OUTLIER_CFG outlier = m_params->outlierCfg();
        if (!outlier.Enable) {
            outlier.Enable = true;
            m_params->setOutlierCfg(outlier);
        }
    }
    return true;
}

bool PIV_Eval2D::processSampleList(CORR_SAMPLE_POS* samples, int count, PIV_VECTOR* data,
                                   const PIVEVAL_CFG&, bool accumulate, const Image2D* a,
                                   const Image2D* b, const Image2D* c, const Image2D* d,
                                   const Image2D* maskA, const Image2D* maskB, int* good) {
    if (good) *good = 0;
    if (!samples || !data || count <= 0) return count == 0;
    bool deviceResult = false;
    if (PIV::DeviceIsOpenCL() && processSampleListOnDevice(samples, count, data, accumulate, a, b,
                                                           maskA, maskB, good, deviceResult))
        return deviceResult;
    const int workers = std::max(1, std::min(int(m_corr.size()), PIV::MaxThreads()));
    const int stepSize = count < 100 ? 1 : count / 100;
    const int steps = count < 100 ? count : 100;
    int total = 0;
    // An exception cannot leave a parallel region: a worker that meets one
    // stops, notes its code here, and the calling thread reports it.
    std::atomic<int> failure{PIVerror::NO_ERROR};
    // Worker w takes entries w, w + workers, ...: all workers read the same
    // part of the images at a time. What a worker may touch: its own
    // correlator, and entry k of `samples` and `data` for its own k; the
    // images and masks only read (fillSample writes nothing into them); the
    // cancel flag, an atomic, only read. Worker 0 runs on the calling thread
    // and alone calls the hooks; the counts join in the reduction.
#pragma omp parallel for num_threads(workers) schedule(static, 1) reduction(+ : total)
    for (int w = 0; w < workers; w++) {
        PIV_Corr2D* corr = m_corr[size_t(w)];
        int mine = 0;
        int progress = 0;
        try {
            for (int k = w; k < count; k += workers) {
                if (w == 0 && k / stepSize > progress) {
                    progress = k / stepSize;
                    showProgress(progress, steps);
                    cancelRequested();
                }
                if (m_cancelled.load(std::memory_order_relaxed)) break;
                CORR_SAMPLE_POS& s = samples[k];
                if (!s.enabled) continue;
                POINT2D pos = s.pos;
                const bool sampled = m_crossPairCorrelation
                                         ? corr->sampleAndCorrelateDualPairWithMask(
                                               a, b, c, d, maskA, maskB, &pos, s.offset, false)
                                         : corr->sampleAndCorrelateWithMask(a, b, maskA, maskB,
                                                                            &pos, s.offset, false);
                if (finishWindow(corr, k, s, data[k], pos, sampled ? 0 : corr->lastErrorCode(),
                                 accumulate))
                    mine++;
            }
        } catch (const std::bad_alloc&) {
            failure = PIVerror::ALLOCATION_FAILED;
        } catch (...) {
            failure = PIVerror::INTERNAL_ERROR;
        }
        total += mine;
    }
    showProgress(-1, steps);
    if (good) *good = total;
    if (failure != PIVerror::NO_ERROR) {
        m_error.setMessage("processSampleList() - a worker stopped");
        m_error.handleError(failure, "processSampleList()");
        return false;
    }
    return !m_cancelled;
}

bool PIV_Eval2D::finishWindow(PIV_Corr2D* corr, int k, CORR_SAMPLE_POS& s, PIV_VECTOR& v,
                              POINT2D pos, int code, bool accumulate,
                              const PIV_PEAK_SCAN* planeScan) {
    const bool autocorrelation = m_analysisMode == PIV::ANALYSIS_AUTO_CORRELATION;
    bool found = false;
    if (code != 0) {
        s.error = code;
        v.flag = VECTOR_NO_RESULT | VECTOR_OUTLIER;
        if (DebugLevel() >= 3 && s.error != PIVerror::SAMPLE_MASKED)
            PIVerror::handleErrorLongExt(
                PIVerror::CORRELATION_FAILED, PIVerror::ERROR_REPORT,
                "processSampleList(%u) - trouble at Pos(%d,%d)  Pt=(%d,%d)  "
                "Offset=(%d,%d)\n  %s",
                unsigned(k), s.pos.x, s.pos.y, pos.x, pos.y, s.offset.x, s.offset.y,
                PIVerror::getErrorMessage(s.error));
    } else if (!accumulate) {
        found = corr->peakDetection(&v, s.offset, autocorrelation, planeScan);
    } else {
        PIV_VECTOR more;
        found = corr->peakDetection(&more, POINT2D{0, 0}, autocorrelation, planeScan);
        v.flag = more.flag;
        v.corr = more.corr;
        v.snr = more.snr;
        for (int i = 0; i < 3; i++)
            v.peak[i] = PIV_PEAK{v.dx + more.peak[i].x, v.dy + more.peak[i].y, more.peak[i].value};
        v.dx += more.dx;
        v.dy += more.dy;
    }
    const POINT2D at = m_keepNodePositions ? s.pos : pos;
    v.ix = at.x;
    v.iy = at.y;
    return found;
}

bool PIV_Eval2D::evalSinglePass() {
    updateProgressDialog("PIV evaluation", true);
    showNewPivData();
    for (PIV_Corr2D* corr : m_corr) corr->setIntermediateProcessing(false);
    const PIVEVAL_CFG cfg = m_params->pivEvalCfg();
    const DATA_GRID4D& grid = cfg.grid;
    const int nx = grid.nodes.width, ny = grid.nodes.height;
    std::vector<CORR_SAMPLE_POS> samples;
    try {
        samples.resize(size_t(nx) * size_t(ny));
    } catch (const std::bad_alloc&) {
        m_error.setMessage("evalSinglePass() - sample list");
        m_error.handleError(PIVerror::ALLOCATION_FAILED, "evalSinglePass()");
        return false;
    }
    for (int j = 0, k = 0; j < ny; j++)
        for (int i = 0; i < nx; i++, k++) {
            CORR_SAMPLE_POS& s = samples[size_t(k)];
            s.pos =
                POINT2D{grid.first.x + i * grid.step.width, grid.first.y + j * grid.step.height};
            s.offset = POINT2D{cfg.SampleOffset.x, cfg.SampleOffset.y};
            s.enabled = true;
        }
    int good = 0;
    processSampleList(samples.data(), int(samples.size()), m_data->data(), cfg, false, m_pImgA,
                      m_pImgB, m_pImgC, m_pImgD, listMaskA(), listMaskB(), &good);
    if (cfg.SelfCorrelation_Eliminate) {
        int disabled = 0;
        PIV_VECTOR* v = m_data->data();
        for (size_t k = 0; k < samples.size(); k++)
            disabled += PIV::EliminateZeroPeak(v[k], 0.0f, 0.0f, cfg.SelfCorrelation_Radius);
        DebugPrintExt(2, "  disabled %d self-correlation vectors", disabled);
    }
    m_newValidation = true;
    return true;
}

void PIV_Eval2D::adjustSamplingWindow(int x, int y, PIV_Corr2D* correlator) {
    size_t which = 0;
    while (which < m_corr.size() && m_corr[which] != correlator) which++;
    if (which == m_corr.size()) return;
    const PIVEVAL_CFG cfg = m_params->pivEvalCfg();
    const SIZE3D full = cfg.SampleSize;
    const SIZE3D image = cfg.grid.imageSize;
    SIZE2D window{full.width, full.height};
    if (x < full.width / 2)
        window.width = 2 * x;
    else if (image.width - x < full.width / 2)
        window.width = 2 * (image.width - x);
    if (y < full.height / 2)
        window.height = 2 * y;
    else if (image.height - y < full.height / 2)
        window.height = 2 * (image.height - y);
    SIZE2D& current = m_window[which];
    if (window.width == current.width && window.height == current.height) return;
    PIVEVAL_CFG copy = cfg;
    if (window.width != full.width || window.height != full.height) {
        copy.SampleSize = SIZE3D{window.width, window.height, 1};
        copy.FFTSize = copy.SampleSize;
    }
    correlator->setPivEvalCfg(copy);
    current = window;
}

bool PIV_Eval2D::interrogateImage(bool showProgress) {
    m_showProgress = showProgress;
    m_status[0] = '\0';
    if (!isInterrogationPossible(true)) return false;
    const PIVEVAL_CFG cfg = m_params->pivEvalCfg();
    m_evaluationRunning = true;
    m_cancelled = false;
    std::snprintf(m_status, sizeof(m_status), "PIV-Evaluation in progress... (%lu Nodes) %s",
                  static_cast<unsigned long>(m_data->nodeCount()),
                  cfg.MultiCorr ? " using repeated correlation" : " ");
    showStatusMessage(m_status);
    const auto start = std::chrono::steady_clock::now();

    if (!clearData()) {
        m_error.setMessage("interrogate() - zero destination data set");
        m_error.handleError(PIVerror::DATA_IS_NULL, "interrogateImage()");
        m_evaluationRunning = false;
        return false;
    }
    m_data->setPivParameters(m_params->pivParameters());
    m_data->setAnalysisMode(m_analysisMode);
    m_data->setFlagIntermediateData(true);
    m_data->setFlagRawData(false);
    for (PIV_Corr2D* corr : m_corr) {
        corr->setIntermediateProcessing(false);
        corr->resetAutoCorrCount();
    }

    // The strategies allocate lists, levels and frames as they go; a
    // failure among them ends the run with error 7, not the caller.
    bool ok = false;
    const bool finished = PIV::Guarded(m_error, "interrogateImage()", [&] {
        if (cfg.Method == PIV::METHOD_MULTI_PASS) {
            if (cfg.ImageMapping2D.Mode == PIV::DEFORM_DISABLED)
                ok = evalMultiPass(false);
            else if (cfg.ImageMapping2D.Mode == PIV::DEFORM_FINAL_PASS)
                ok = evalMultiPass(true);
            else
                ok = evalImageDef();
        } else if (cfg.Method == PIV::METHOD_MULTI_GRID) {
            ok = evalMultiGrid();
        } else {
            ok = evalSinglePass();
        }
    });
    ok = ok && finished;
    m_data->setFlagRawData(ok && !m_cancelled);

    for (PIV_Corr2D* corr : m_corr)
        adjustSamplingWindow(cfg.SampleSize.width / 2, cfg.SampleSize.height / 2, corr);

    if (m_data->haveRawData()) {
        if (cfg.SelfCorrelation_Eliminate) {
            const int disabled = m_data->eliminateSelfCorrelationPeaks(cfg.SelfCorrelation_Radius);
            DebugPrintExt(2, "   disabled %d zero-displacment data within %gpx radius", disabled,
                          double(cfg.SelfCorrelation_Radius));
        }
        m_data->setFlagMultiplePeaks(true);
        doPostProcessing(true);
        m_processTime =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        char line[256];
        std::snprintf(line, sizeof(line), "Process time: %g seconds, %g ms/point", m_processTime,
                      1000.0 * m_processTime / std::max(m_data->nodeCount(), 1));
        showStatusMessage(line);
    } else {
        appendToLogFile(getLastError());
        for (PIV_Corr2D* corr : m_corr) corr->setPivEvalCfg(cfg);
    }
    m_data->setFlagIntermediateData(false);
    m_evaluationRunning = false;
    m_newImage = false;
    m_data->setDataType(m_data->dataType() | PIV::DATA_DISPLACEMENT | PIV::DATA_PEAKS);
    if (m_data->haveRawData()) m_data->doStatistics();
    for (PIV_Corr2D* corr : m_corr) corr->setPivEvalCfg(cfg);
    if (cfg.Type == PIV::PEAKFIT_NONLIN_GAUSS) {
        int autoCount = 0;
        for (PIV_Corr2D* corr : m_corr) autoCount += corr->autoCorrCount();
        DebugPrint("- Autocorrelation calculated %d times", autoCount);
    }
    return m_data->haveRawData();
}

bool PIV_Eval2D::applyMasks() {
    if (!m_useMask || !m_pMaskA) return false;
    return m_data->maskOutVectors(*m_pMaskA);
}

bool PIV_Eval2D::sampleAtPoint(const POINT2D& point) {
    if (!isInterrogationPossible(false)) return false;
    const PIVEVAL_CFG cfg = m_params->pivEvalCfg();
    const SIZE2D image = m_pImgA->size2D();
    if (!m_pImgA->isInside(point.x, point.y)) {
        m_error.setMessage("Sample point outside of image");
        m_error.handleError(PIVerror::SAMPLE_OUTSIDE_IMAGE, "sampleAtPoint()");
        return false;
    }
    if (cfg.SampleSize.width >= image.width || cfg.SampleSize.height >= image.height) {
        m_error.setMessage("Sample size (%d,%d) exceeds image size (%d,%d)", cfg.SampleSize.width,
                           cfg.SampleSize.height, image.width, image.height);
        m_error.handleError(PIVerror::SAMPLE_LARGER_THAN_IMAGE, "sampleAtPoint()");
        return false;
    }
    if (cfg.grid.imageSize.width != image.width || cfg.grid.imageSize.height != image.height) {
        m_error.setMessage("sampleAtPoint() - internal warning ... Image <-> Cfg size mismatch");
        m_error.handleError(PIVerror::IMAGE_SIZE_MISMATCH, "sampleAtPoint()");
        return false;
    }
    PIV_Corr2D* corr = m_corr[0];
    corr->setPivEvalCfg(cfg);
    m_window[0] = SIZE2D{cfg.SampleSize.width, cfg.SampleSize.height};
    corr->setIntermediateProcessing(false);
    POINT2D pos = point;
    return corr->fillSamples(m_pImgA, m_pImgB, &pos,
                             POINT2D{cfg.SampleOffset.x, cfg.SampleOffset.y});
}

bool PIV_Eval2D::interrogateAtPoint(const POINT2D& point, PIV_VECTOR* vector, int index) {
    const char* where = "interrogateAtPoint()";
    if (!vector) return m_error.handleError(PIVerror::INVALID_POINTER, where), false;
    if (!isInterrogationPossible(false)) return false;
    const PIVEVAL_CFG cfg = m_params->pivEvalCfg();
    const SIZE2D image = m_pImgA->size2D();
    if (!m_pImgA->isInside(point.x, point.y)) {
        m_error.setMessage("Sample point outside of image");
        m_error.handleError(PIVerror::SAMPLE_OUTSIDE_IMAGE, where);
        return false;
    }
    if (cfg.SampleSize.width >= image.width || cfg.SampleSize.height >= image.height) {
        m_error.setMessage("sample (%d,%d) > image (%d,%d)", cfg.SampleSize.width,
                           cfg.SampleSize.height, image.width, image.height);
        m_error.handleError(PIVerror::SAMPLE_LARGER_THAN_IMAGE, where);
        return false;
    }
    if (cfg.SampleSize.width < 1 || cfg.SampleSize.height < 1) {
        m_error.setMessage("(%d,%d)", cfg.SampleSize.width, cfg.SampleSize.height);
        m_error.handleError(PIVerror::BAD_SAMPLE_SIZE, where);
        return false;
    }
    if (cfg.grid.imageSize.width != image.width || cfg.grid.imageSize.height != image.height) {
        m_error.setMessage("interrogateAtPoint() - Image <-> Cfg size mismatch");
        m_error.handleError(PIVerror::IMAGE_SIZE_MISMATCH, where);
        return false;
    }
    PIV_Corr2D* corr = m_corr[0];
    corr->setPivEvalCfg(cfg);
    m_window[0] = SIZE2D{cfg.SampleSize.width, cfg.SampleSize.height};
    corr->setIntermediateProcessing(false);
    const POINT2D offset{cfg.SampleOffset.x, cfg.SampleOffset.y};
    const bool autocorrelation = m_analysisMode == PIV::ANALYSIS_AUTO_CORRELATION;
    POINT2D pos = point;
    *vector = PIV_VECTOR();
    auto place = [&](const POINT2D& at) {
        vector->ix = at.x;
        vector->iy = at.y;
        vector->x = float(at.x);
        vector->y = float(image.height - at.y);
    };

    bool ok;
    if (m_crossPairCorrelation || cfg.MultiCorr) {
        const bool sampled = m_crossPairCorrelation
                                 ? corr->sampleAndCorrelateDualPair(m_pImgA, m_pImgB, m_pImgC,
                                                                    m_pImgD, &pos, offset, true)
                                 : corr->sampleAndCorrelate(m_pImgA, m_pImgB, &pos, offset, true);
        if (!sampled) {
            if (DebugLevel() >= 3) m_error.handleError(PIVerror::CORRELATION_FAILED, where);
            vector->setFailed();
            place(pos);
            return false;
        }
        const SIZE2D size = corr->getCorrSize();
        if (!m_crossPairCorrelation && DebugLevel() >= 3)
            drawSamples(corr->getFirstCorrelation(), corr->getSecondCorrelation(), size, size,
                        size.width, index, true);
        else
            drawSamples(corr->getSample1(), corr->getSample2(), corr->sizeSample1(),
                        corr->sizeSample2(), corr->internalSampleWidth(), index, false);
        ok = corr->peakDetection(vector, offset, autocorrelation);
        place(pos);
        if (!m_crossPairCorrelation && cfg.SelfCorrelation_Eliminate)
            PIV::EliminateZeroPeak(*vector, 0.0f, 0.0f, cfg.SelfCorrelation_Radius);
    } else {
        if (!corr->fillSamples(m_pImgA, m_pImgB, &pos, offset)) {
            m_error.handleError(PIVerror::SAMPLING_FAILED, where);
            return false;
        }
        drawSamples(corr->getSample1(), corr->getSample2(), corr->sizeSample1(),
                    corr->sizeSample2(), corr->internalSampleWidth(), index, false);
        ok = corr->crossCorrelate() && corr->peakDetection(vector, offset, autocorrelation);
        if (!ok) vector->setFailed();
        place(pos);
        if (m_useMask && m_pMaskA) {
            // The vector belongs where the unmasked particles of its window are.
            const FPOINT2D c = m_pMaskA->getSampleCentroid(
                cfg.SampleSize.width, cfg.SampleSize.height, pos.x, pos.y, true);
            place(POINT2D{int(c.x + 0.5f), int(c.y + 0.5f)});
            DebugPrintExt(2, "vector at (%d,%d) %g,%g = %g,%g", pos.x, pos.y, double(c.x),
                          double(c.y), double(vector->dx), double(vector->dy));
        }
        if (cfg.SelfCorrelation_Eliminate)
            PIV::EliminateZeroPeak(*vector, 0.0f, 0.0f, cfg.SelfCorrelation_Radius);
    }
    drawCorrelation(corr->getCorrelation(), corr->getCorrSize(), *vector, index);
    m_params->convertVector(vector);
    return ok;
}
