#include "piv_corr2d_average.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "piv_data2d.h"
#include "piv_enums.h"
#include "piv_messages.h"
#include "piv_params.h"
#include "piv_util.h"

PIV_Corr2D_Average::PIV_Corr2D_Average(PIV_Data2D* data, PIV_Parameters* parameters)
    : m_params(parameters), m_data(data), m_error("PIV_Corr2D_Average") {
    if (m_data)
        m_data->addRef();
    else
        m_data = new PIV_Data2D();
    if (m_params)
        m_params->addRef();
    else
        m_params = new PIV_Parameters();
    createCorrelators();
}

PIV_Corr2D_Average::~PIV_Corr2D_Average() {
    for (PIV_Corr2D* c : m_corr) c->release();
    if (m_offsetData) m_offsetData->release();
    m_data->release();
    m_params->release();
}

uint32_t PIV_Corr2D_Average::release() {
    const uint32_t left = --m_refCount;
    if (left == 0) delete this;
    return left;
}

void PIV_Corr2D_Average::createCorrelators() {
    const int n = std::max(1, PIV::MaxThreads());
    for (int i = 0; i < n; i++) m_corr.push_back(new PIV_Corr2D());
}

// ---- hooks ----------------------------------------------------------------------

void PIV_Corr2D_Average::showErrorMessage(const char* text) {
    if (text && text[0]) PrintWarning("%s", text);
}

void PIV_Corr2D_Average::showProgressMessage(const char* text, bool) {
    if (text && text[0]) DebugPrintExt(2, "%s", text);
}

void PIV_Corr2D_Average::showProgressMessage2(const char* text) {
    if (text && text[0]) DebugPrintExt(2, "%s", text);
}

bool PIV_Corr2D_Average::wasCancelled() {
    return false;
}

void PIV_Corr2D_Average::showProgress(int, int) {}

void PIV_Corr2D_Average::showProgressSeries(int, int) {}

void PIV_Corr2D_Average::showStatusMessage(const char* text) {
    if (text && text[0]) DebugPrintExt(1, "%s", text);
}

// ---- settings ---------------------------------------------------------------------

bool PIV_Corr2D_Average::fail(PIVerror::ErrorType code, const char* where) {
    m_error.handleError(code, where);
    showErrorMessage(m_error.getLastError());
    return false;
}

void PIV_Corr2D_Average::setPivParameters(const PIV_PARAMETERS& params) {
    m_params->setPivParameters(params);
}

void PIV_Corr2D_Average::setPostProcessCfg(const POSTPROCESS_CFG& cfg) {
    m_params->setPostProcessCfg(cfg);
}

bool PIV_Corr2D_Average::setMaskImage(const char* path, bool enable) {
    m_mask.destroy();
    if (!enable || !path || !path[0]) return true;
    if (!m_mask.load(path)) {
        m_error.setMessage("mask image could not be read: '%s'", path);
        return fail(PIVerror::FILE_READ_FAILED, "setMaskImage()");
    }
    return true;
}

bool PIV_Corr2D_Average::preProcessImages(Image2D* a, Image2D* b) {
    if (!a || !b || a->isNull() || b->isNull())
        return fail(PIVerror::IMAGE_IS_NULL, "preProcessImages()");
    if (m_mask.isNull()) return true;
    for (Image2D* frame : {a, b}) {
        if (frame->width() != m_mask.width() || frame->height() != m_mask.height()) {
            m_error.setMessage("mask of %dx%d on a frame of %dx%d", int(m_mask.width()),
                               int(m_mask.height()), int(frame->width()), int(frame->height()));
            return fail(PIVerror::IMAGE_SIZE_MISMATCH, "preProcessImages()");
        }
        for (int y = 0; y < int(m_mask.height()); y++)
            for (int x = 0; x < int(m_mask.width()); x++)
                if (m_mask.pixel(x, y) != 0.0f) frame->setPixel(x, y, 0.0f);
    }
    return true;
}

void PIV_Corr2D_Average::setOffsetData(PIV_Data2D* field) {
    if (field == m_offsetData) return;
    if (field) field->addRef();
    if (m_offsetData) m_offsetData->release();
    m_offsetData = field;
}

bool PIV_Corr2D_Average::buildEnsembleCorrSteps(bool print) {
    m_passes = PIV::BuildEnsembleCorrSteps(m_avg, m_params->pivEvalCfg());
    if (!print && DebugLevel() < 2) return true;
    std::printf(" Processing sequence:\n");
    for (size_t i = 0; i < m_passes.size(); i++) {
        const CORR_AVERAGE_PASS& p = m_passes[i];
        std::printf("  Pass %d :  win=%dx%d  scan=%dx%d  step=%dx%d  desample=%d  file stride=%d\n",
                    int(i) + 1, p.window.width, p.window.height, p.scan.width, p.scan.height,
                    p.step.width, p.step.height, p.desample, p.fileStride);
    }
    std::fflush(stdout);
    return true;
}

// ---- planes ---------------------------------------------------------------------

void PIV_Corr2D_Average::clearCorrPlanes() {
    std::vector<CORR_PLANE_DATA>().swap(m_planes);
    m_imagesProcessed = 0;
    m_haveAuto = false;
}

void PIV_Corr2D_Average::clear() {
    clearCorrPlanes();
    m_peakRoi.clear();
    m_roiCells = 0;
    m_roiBox = SIZE2D{0, 0};
    m_planeSize = SIZE2D{0, 0};
    m_sampledOffGrid = false;
    m_totalTime = 0.0;
}

int PIV_Corr2D_Average::planeCells() const {
    return m_roiCells > 0 ? m_roiCells : m_planeSize.width * m_planeSize.height;
}

SIZE2D PIV_Corr2D_Average::peakRoiBox(const SIZE2D& roiSize, const SIZE2D& planeSize) {
    const int bw = std::min(roiSize.width, planeSize.width);
    const int bh = std::min(roiSize.height, planeSize.height);
    if (bw < 3 || bh < 3 || (bw == planeSize.width && bh == planeSize.height)) return SIZE2D{0, 0};
    return SIZE2D{bw, bh};
}

void PIV_Corr2D_Average::buildPeakRoi(const SIZE2D& planeSize) {
    m_peakRoi.clear();
    m_roiCells = 0;
    m_roiBox = SIZE2D{0, 0};
    if (!m_avg.peakRoiEnable) return;
    const SIZE2D box = peakRoiBox(m_avg.peakRoiSize, planeSize);
    const int bw = box.width, bh = box.height;
    if (bw == 0) return;
    // The planes are in transform order: zero displacement at cell 0, the
    // box wraps round the far ends of both axes.
    m_peakRoi.assign(size_t(planeSize.width) * size_t(planeSize.height), 0);
    for (int j = -(bh / 2); j < bh - bh / 2; j++)
        for (int i = -(bw / 2); i < bw - bw / 2; i++) {
            const int x = (i + planeSize.width) % planeSize.width;
            const int y = (j + planeSize.height) % planeSize.height;
            m_peakRoi[size_t(y) * size_t(planeSize.width) + size_t(x)] = 1;
        }
    m_roiCells = bw * bh;
    m_roiBox = SIZE2D{bw, bh};
    DebugPrint("PIV_Corr2D_Average() - peak ROI active, disabled complex peak interpolation");
}

void PIV_Corr2D_Average::addPlane(const float* plane, float* sum) const {
    const long cells = long(m_planeSize.width) * m_planeSize.height;
    if (m_roiCells > 0) {
        const uint8_t* mask = m_peakRoi.data();
        for (long c = 0, k = 0; c < cells; c++)
            if (mask[c]) sum[k++] += plane[c];
        return;
    }
    for (long c = 0; c < cells; c++) sum[c] += plane[c];
}

bool PIV_Corr2D_Average::initializeGrid(int width, int height) {
    const char* where = "initializeGrid()";
    clearCorrPlanes();
    if (width < 1 || height < 1 || width > 20000 || height > 20000) {
        m_error.setMessage("invalid image size %dx%d", width, height);
        return fail(PIVerror::BAD_IMAGE_SIZE, where);
    }
    m_params->setImageSize(width, height, 1, true);
    const PIVEVAL_CFG cfg = m_params->pivEvalCfg();
    const DATA_GRID4D& grid = cfg.grid;
    const long nodes = long(grid.nodes.width) * long(grid.nodes.height);
    if (nodes <= 0) {
        m_error.setMessage("no nodes in the grid of a %dx%d image", width, height);
        return fail(PIVerror::BAD_GRID_DIMENSION, where);
    }
    for (PIV_Corr2D* c : m_corr) {
        c->setPivEvalCfg(cfg);
        c->setIntermediateProcessing(!m_finalPass);
    }
    m_planeSize = m_corr[0]->getCorrSize();
    if (m_planeSize.width < 1 || m_planeSize.height < 1) {
        m_error.setMessage("the correlator has no plane for these settings");
        return fail(PIVerror::CORRELATION_UNAVAILABLE, where);
    }
    const bool fftMode = cfg.CorrelationMode < PIV::CORR_MQD;
    m_haveAuto = m_autoCorrEnabled && fftMode;
    for (PIV_Corr2D* c : m_corr) c->keepAutoCorrelation(m_haveAuto);
    buildPeakRoi(fftMode ? m_planeSize : SIZE2D{0, 0});
    // Refused before anything is allocated: the sums must fit the machine.
    const double bytes =
        double(nodes) * double(planeCells()) * sizeof(float) * (m_haveAuto ? 2 : 1);
    if (bytes > double(PIV::PhysicalMemoryBytes())) {
        m_error.setMessage(
            "correlation planes of %.0f bytes (%ld nodes of %dx%d) exceed the "
            "memory of this machine (%.0f bytes)",
            bytes, nodes, m_planeSize.width, m_planeSize.height,
            double(PIV::PhysicalMemoryBytes()));
        clear();
        return fail(PIVerror::ALLOCATION_FAILED, where);
    }
    if (!m_data->create(grid)) {
        m_error.setMessage("%s", m_data->getLastError());
        clear();
        return fail(PIVerror::ALLOCATION_FAILED, where);
    }
    m_data->setPivParameters(m_params->pivParameters());
    m_data->setAnalysisMode(m_analysisMode);
    const bool offsets = m_offsetData && !m_offsetData->isNull();
    if (offsets) DebugPrintExt(2, " using offset data");
    const SIZE3D packed = m_roiCells > 0 ? SIZE3D{m_roiCells, 1, 1}
                                         : SIZE3D{m_planeSize.width, m_planeSize.height, 1};
    try {
        m_planes.resize(size_t(nodes));
        for (long k = 0; k < nodes; k++) {
            CORR_PLANE_DATA& p = m_planes[size_t(k)];
            const PIV_VECTOR& v = m_data->data()[k];
            p.pos = POINT2D{v.ix, v.iy};
            p.offset = POINT2D{cfg.SampleOffset.x, cfg.SampleOffset.y};
            if (offsets) {
                double dx = 0.0, dy = 0.0;
                if (m_offsetData->interpolateVector(v.ix, v.iy, 0, &dx, &dy))
                    p.offset = POINT2D{int(std::lround(dx)), int(std::lround(dy))};
                DebugPrintExt(3, "r=%3d c=%d  offset: %d %d", int(k / grid.nodes.width),
                              int(k % grid.nodes.width), p.offset.x, p.offset.y);
            }
            p.size = packed;
            p.corrSum.assign(size_t(planeCells()), 0.0f);
            if (m_haveAuto) p.autoSum.assign(size_t(planeCells()), 0.0f);
        }
    } catch (const std::bad_alloc&) {
        clear();
        m_error.setMessage("correlation planes of %.0f bytes", bytes);
        return fail(PIVerror::ALLOCATION_FAILED, where);
    }
    m_sampledOffGrid = false;
    DebugPrintExt(2, "PIV_Corr2D_Average::initializeGrid(w=%d,h=%d)\n\tGrid: %d x %d = %d nodes",
                  width, height, grid.nodes.width, grid.nodes.height, int(nodes));
    return true;
}

bool PIV_Corr2D_Average::processImagePair(const Image2D* a, const Image2D* b) {
    const char* where = "processImagePair()";
    if (!a || !b || a->isNull() || b->isNull()) return fail(PIVerror::IMAGE_IS_NULL, where);
    if (m_planes.empty()) {
        m_error.setMessage("no grid: initializeGrid() first");
        return fail(PIVerror::DATA_IS_NULL, where);
    }
    const SIZE3D image = m_params->dataGrid().imageSize;
    for (const Image2D* f : {a, b})
        if (int(f->width()) != image.width || int(f->height()) != image.height) {
            m_error.setMessage("image of %dx%d, the grid was laid for %dx%d", int(f->width()),
                               int(f->height()), image.width, image.height);
            return fail(PIVerror::IMAGE_SIZE_MISMATCH, where);
        }
    const int count = int(m_planes.size());
    const int workers = std::max(1, std::min(int(m_corr.size()), PIV::MaxThreads()));
    const int stepSize = std::max(1, m_avg.progressStep);
    const bool first = m_imagesProcessed == 0;
    // A worker writes only its own nodes' planes and codes; the calling
    // thread reports afterwards, as message functions are not reentrant.
    std::vector<int> codes(size_t(count), 0);
    int moved = 0;
#pragma omp parallel for num_threads(workers) schedule(static, 1) reduction(+ : moved)
    for (int w = 0; w < workers; w++) {
        PIV_Corr2D* corr = m_corr[size_t(w)];
        for (int k = w; k < count; k += workers) {
            if (w == 0 && m_progressEnabled && k % stepSize == 0) showProgress(k, count);
            CORR_PLANE_DATA& p = m_planes[size_t(k)];
            POINT2D pos = p.pos;
            const bool ok =
                corr->sampleAndCorrelateDualPair(a, b, nullptr, nullptr, &pos, p.offset, false);
            if (pos.x != p.pos.x || pos.y != p.pos.y) moved++;
            if (first) {
                std::fill(p.corrSum.begin(), p.corrSum.end(), 0.0f);
                std::fill(p.autoSum.begin(), p.autoSum.end(), 0.0f);
            }
            if (ok) {
                addPlane(corr->getCorrelation(), p.corrSum.data());
                if (!p.autoSum.empty())
                    addPlane(corr->getAutoCorrelation(), p.autoSum.data());
            } else {
                codes[size_t(k)] =
                    corr->lastErrorCode() ? corr->lastErrorCode() : PIVerror::CORRELATION_FAILED;
            }
            p.count++;
        }
    }
    if (m_progressEnabled) showProgress(-1, count);
    if (moved > 0) m_sampledOffGrid = true;
    if (DebugLevel() >= 1)
        for (int k = 0; k < count; k++)
            if (codes[size_t(k)] && codes[size_t(k)] != PIVerror::SAMPLE_MASKED)
                PIVerror::handleErrorLongExt(PIVerror::CORRELATION_FAILED, PIVerror::ERROR_REPORT,
                                             "processImagePair() - trouble at Pos (x=%d y=%d) - %s",
                                             m_planes[size_t(k)].pos.x, m_planes[size_t(k)].pos.y,
                                             PIVerror::getErrorMessage(codes[size_t(k)]));
    m_imagesProcessed++;
    return true;
}

// ---- extraction -----------------------------------------------------------------

int PIV_Corr2D_Average::computePivVector(int index, PIV_VECTOR* vector, int correlator) {
    if (!vector || index < 0 || index >= m_data->nodeCount() || index >= int(m_planes.size()) ||
        correlator < 0 || correlator >= int(m_corr.size()))
        return 0;
    *vector = m_data->data()[index];
    CORR_PLANE_DATA& p = m_planes[size_t(index)];
    PIV_Corr2D* corr = m_corr[size_t(correlator)];
    float* plane = corr->getCorrelation();
    if (p.corrSum.empty() || !plane) {
        m_error.setMessage("computePivVector(%d)", index);
        m_error.handleError(PIVerror::INVALID_POINTER, "computePivVector()");
        return 0;
    }
    const int cells = m_planeSize.width * m_planeSize.height;
    const uint8_t* mask = m_roiCells > 0 ? m_peakRoi.data() : nullptr;
    _restoreCorrData(p.corrSum.data(), plane, mask, cells, p.count, nullptr, nullptr, nullptr,
                     nullptr);
    float* autoPlane = corr->getAutoCorrelation();
    if (!p.autoSum.empty() && autoPlane) {
        _restoreCorrData(p.autoSum.data(), autoPlane, mask, cells, p.count, nullptr, nullptr,
                         nullptr, nullptr);
        if (corr->peakDetector().needAutoShape())
            corr->peakDetector().calcAutoShape(autoPlane, m_planeSize);
    }
    const bool ok =
        corr->peakDetection(vector, p.offset, m_analysisMode == PIV::ANALYSIS_AUTO_CORRELATION);
    p.corr = vector->corr;
    p.rms = std::sqrt(std::max(vector->meanSquaredCorr, 0.0f));
    p.snr = vector->snr;
    vector->ix = p.pos.x;
    vector->iy = p.pos.y;
    return ok ? 1 : 0;
}

bool PIV_Corr2D_Average::computePivData(int fit, bool intermediate) {
    const char* where = "computePivData()";
    if (m_planes.empty() || m_data->isNull()) {
        m_error.setMessage("computePivData() - no correlation data available");
        return fail(PIVerror::DATA_IS_NULL, where);
    }
    DebugPrintExt(
        2, "PIV_Corr2D_Average::computePivData() - image mask in correlation planes is%s enabled",
        m_roiCells > 0 ? "" : "_NOT_");
    const int count = std::min(int(m_planes.size()), m_data->nodeCount());
    DebugPrintExt(2, " Extracting %d peaks", count);
    PIVEVAL_CFG cfg = m_params->pivEvalCfg();
    cfg.Type = fit;
    for (PIV_Corr2D* c : m_corr) {
        c->setPivEvalCfg(cfg);
        c->setIntermediateProcessing(intermediate);
    }
    const int workers = std::max(1, std::min(int(m_corr.size()), PIV::MaxThreads()));
    PIV_VECTOR* field = m_data->data();
    int good = 0, shaped = 0;
    const bool shapeFit = m_haveAuto && m_corr[0]->peakDetector().needAutoShape();
#pragma omp parallel for num_threads(workers) schedule(static, 1) reduction(+ : good, shaped)
    for (int w = 0; w < workers; w++)
        for (int k = w; k < count; k += workers) {
            PIV_VECTOR v;
            const int found = computePivVector(k, &v, w);
            field[k] = v;
            good += found;
            if (shapeFit && found) shaped++;
        }
    DebugPrintExt(2, "   used 5x5 fit %d times ", shaped);
    DebugPrintExt(2, "PIV_Corr2D_Average::computePivData() - %d vectors", good);
    PIV_PARAMETERS held = m_params->pivParameters();
    held.eval.Type = fit;
    m_data->setPivParameters(held);
    m_data->setAnalysisMode(m_analysisMode);
    m_data->setDataType(m_data->dataType() | PIV::DATA_DISPLACEMENT | PIV::DATA_PEAKS);
    m_data->setFlagRawData(true);
    m_data->setFlagValidated(false);
    m_data->setFlagSampledOffGrid(m_sampledOffGrid);
    return good > 0;
}

// ---- access ------------------------------------------------------------------------

const CORR_PLANE_DATA* PIV_Corr2D_Average::correlationData(int index) const {
    if (index < 0 || index >= int(m_planes.size())) return nullptr;
    return &m_planes[size_t(index)];
}

float* PIV_Corr2D_Average::restoreCorrelationPlane(int index, bool autoCorr) {
    if (index < 0 || index >= int(m_planes.size()) || m_corr.empty()) return nullptr;
    const CORR_PLANE_DATA& p = m_planes[size_t(index)];
    const std::vector<float>& sum = autoCorr ? p.autoSum : p.corrSum;
    float* plane = autoCorr ? m_corr[0]->getAutoCorrelation() : m_corr[0]->getCorrelation();
    if (sum.empty() || !plane) return nullptr;
    const int cells = m_planeSize.width * m_planeSize.height;
    _restoreCorrData(sum.data(), plane, m_roiCells > 0 ? m_peakRoi.data() : nullptr, cells, p.count,
                     nullptr, nullptr, nullptr, nullptr);
    if (m_params->pivEvalCfg().CorrelationMode < PIV::CORR_MQD)
        PIV::UnFoldFFTData(plane, m_planeSize.width, m_planeSize.height);
    return plane;
}

int PIV_Corr2D_Average::nearestCorrPlaneIndex(int x, int y, bool onlyValid) const {
    int best = -1;
    long bestDistance = 0;
    for (size_t k = 0; k < m_planes.size(); k++) {
        const CORR_PLANE_DATA& p = m_planes[k];
        if (onlyValid && (p.corrSum.empty() || p.count == 0)) continue;
        const long dx = p.pos.x - x, dy = p.pos.y - y;
        const long d = dx * dx + dy * dy;
        if (best < 0 || d < bestDistance) {
            best = int(k);
            bestDistance = d;
        }
    }
    return best;
}
