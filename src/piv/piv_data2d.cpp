#include "piv_data2d.h"

#include <algorithm>
#include <cmath>

#include "image2d.h"
#include "piv_enums.h"
#include "piv_messages.h"
#include "piv_params.h"
#include "piv_units.h"

PIV_Data2D::PIV_Data2D() : m_error("PIV_Data2D") {}

PIV_Data2D::PIV_Data2D(const DATA_GRID4D& grid) : m_error("PIV_Data2D") {
    initializeGrid(grid);
}

uint32_t PIV_Data2D::release() {
    const uint32_t left = --m_refCount;
    if (left == 0) delete this;
    return left;
}

bool PIV_Data2D::alloc(const DATA_GRID4D& grid) {
    m_grid = grid;
    if (m_grid.timeSteps < 1) m_grid.timeSteps = 1;
    m_vectors.clear();
    if (nodeCount() <= 0) return false;
    const long nx = m_grid.nodes.width, ny = m_grid.nodes.height;
    // The time planes overlap or leave gaps when nx differs from ny; the block
    // is sized so that the last plane's last node still lies inside it.
    const long lastPlaneEnd = nx * (ny + (m_grid.timeSteps - 1) * nx);
    try {
        m_vectors.resize(size_t(std::max<long>(nodeCount(), lastPlaneEnd)));
    } catch (const std::bad_alloc&) {
        m_vectors.clear();
        m_error.handleError(PIVerror::ALLOCATION_FAILED, "alloc");
        return false;
    }
    return true;
}

bool PIV_Data2D::initializeGrid(const DATA_GRID4D& grid) {
    if (!alloc(grid)) return false;
    m_params.eval.grid = m_grid;
    const DATA_GRID4D& g = m_grid;
    const int nz = std::max(g.nodes.depth, 1);
    for (int t = 0; t < g.timeSteps; t++) {
        PIV_VECTOR* plane = m_vectors.data() + size_t(t) * size_t(g.nodes.width) * g.nodes.height * nz;
        size_t k = 0;
        for (int z = 0; z < nz; z++)
            for (int j = 0; j < g.nodes.height; j++)
                for (int i = 0; i < g.nodes.width; i++, k++) {
                    PIV_VECTOR& v = plane[k];
                    v.ix = g.first.x + i * g.step.width;
                    v.iy = g.first.y + j * g.step.height;
                    v.iz = g.first.z + z * g.step.depth;
                    v.x = float(v.ix);
                    v.y = float(g.imageSize.height - v.iy);
                    v.z = float(v.iz);
                    v.flag = VECTOR_OUTLIER;
                }
    }
    clear();
    return true;
}

bool PIV_Data2D::create(const DATA_GRID4D& grid) {
    DATA_GRID4D planar = grid;
    planar.nodes.depth = 1;
    return initializeGrid(planar);
}

void PIV_Data2D::clear() {
    m_fileData = m_rawData = m_converted = m_validated = m_skipValidation = false;
    m_differentiated = m_intermediateData = false;
    m_needsConversion = m_needsValidation = m_needsDifferentiation = true;
    m_numberOfPeaks = PIV::MaxCorrelationPeaks();
    m_multiplePeaks = m_numberOfPeaks > 1;
    for (PIV_VECTOR& s : m_stats) s = PIV_VECTOR();
    m_active = m_interpolated = m_replaced = m_masked = 0;
    m_disabled = isNull() ? 0 : static_cast<unsigned long>(nodeCount());
    for (PIV_VECTOR& v : m_vectors) {
        PIV_VECTOR cleared;
        cleared.ix = v.ix;
        cleared.iy = v.iy;
        cleared.iz = v.iz;
        cleared.x = v.x;
        cleared.y = v.y;
        cleared.z = v.z;
        cleared.flag = VECTOR_OUTLIER;
        v = cleared;
    }
}

int PIV_Data2D::nodeCount() const {
    const long n = long(std::max(m_grid.nodes.width, 0)) * std::max(m_grid.nodes.height, 0) *
                   std::max(m_grid.nodes.depth, 1) * std::max(m_grid.timeSteps, 1);
    return static_cast<int>(n);
}

long PIV_Data2D::index2D(int row, int col, int t) const {
    if (t < 0) t = 0;
    const long nx = m_grid.nodes.width;
    return col + nx * (row + long(t) * nx);
}

bool PIV_Data2D::inside(int row, int col, int t) const {
    if (t < 0) t = 0;
    return row >= 0 && col >= 0 && row < m_grid.nodes.height && col < m_grid.nodes.width &&
           t < m_grid.timeSteps;
}

PIV_VECTOR PIV_Data2D::getVector2D(int row, int col, int t) const {
    if (m_vectors.empty() || !inside(row, col, t)) return m_null;
    return m_vectors[index2D(row, col, t)];
}

PIVerror::ErrorType PIV_Data2D::setVector2D(const PIV_VECTOR& vector, int row, int col, int t) {
    if (m_vectors.empty()) return PIVerror::DATA_IS_NULL;
    if (!inside(row, col, t)) return PIVerror::CANNOT_OPERATE;
    m_vectors[index2D(row, col, t)] = vector;
    return PIVerror::NO_ERROR;
}

void PIV_Data2D::setAnalysisMode(int mode) {
    m_analysisMode = PIV::ToAnalysisMode(mode);
}

void PIV_Data2D::setPivParameters(const PIV_PARAMETERS& params) {
    m_params = params;
    m_params.eval.grid = m_grid;
}

int PIV_Data2D::eliminateSelfCorrelationPeaks(float radius) {
    if (!haveRawData()) {
        m_error.handleError(PIVerror::DATA_IS_NULL, "eliminateSelfCorrelationPeaks()");
        return 0;
    }
    int changed = 0;
    for (int k = 0, n = nodeCount(); k < n; k++) {
        PIV_VECTOR& v = m_vectors[size_t(k)];
        if (v.flag & VECTOR_NO_RESULT) continue;
        if (!(radius > std::hypot(v.peak[0].x, v.peak[0].y))) continue;
        const PIV_PEAK self{v.peak[0].x, v.peak[0].y, 0.0f};
        v.peak[0] = v.peak[1];
        v.peak[1] = v.peak[2];
        v.peak[2] = self;
        v.dx = v.peak[0].x;
        v.dy = v.peak[0].y;
        v.snr = v.peak[0].value;
        changed++;
    }
    return changed;
}

bool PIV_Data2D::maskOutVectors(const Image2D& mask) {
    const char* where = "maskOutVectors()";
    if (isNull()) return m_error.handleError(PIVerror::DATA_IS_NULL, where), false;
    if (mask.isNull()) return m_error.handleError(PIVerror::IMAGE_IS_NULL, where), false;
    const SIZE2D ms = mask.size2D();
    if (ms.width != m_grid.imageSize.width || ms.height != m_grid.imageSize.height)
        return m_error.handleError(PIVerror::IMAGE_SIZE_MISMATCH, where), false;
    unsigned long masked = 0;
    const int n = nodeCount();
    for (int k = 0; k < n; k++) {
        PIV_VECTOR& v = m_vectors[size_t(k)];
        if (!mask.isInside(v.ix, v.iy) || mask.pixel(v.ix, v.iy) == 0.0f) continue;
        PIV_VECTOR cleared;
        cleared.ix = v.ix;
        cleared.iy = v.iy;
        cleared.iz = v.iz;
        cleared.x = v.x;
        cleared.y = v.y;
        cleared.z = v.z;
        cleared.flag = VECTOR_MASKED | VECTOR_OUTLIER;
        v = cleared;
        masked++;
    }
    DebugPrintExt(2, "PIV_DataBase::maskOutVectors() - masked %lu of %d vectors", masked, n);
    m_masked = masked;
    return true;
}

bool PIV_Data2D::convert(const PIV_Parameters* parameters) {
    if (isNull()) return m_error.handleError(PIVerror::CORRUPT_DATA, "convert()"), false;
    const PIVCONVERT_CFG cfg = parameters ? parameters->pivConvertCfg() : m_params.convert;
    for (int k = 0, n = nodeCount(); k < n; k++) PIV::ConvertVector(&m_vectors[size_t(k)], cfg);
    m_converted = true;
    return true;
}

bool PIV_Data2D::postProcess(const PIV_Parameters* parameters, const Image2D* mask, bool force) {
    if (isNull()) return m_error.handleError(PIVerror::DATA_IS_NULL, "postProcess()"), false;
    if (parameters) setPivParameters(parameters->pivParameters());
    const bool conversionPending = m_needsConversion;
    const bool differentiationPending = m_needsDifferentiation;
    bool validationRan = false;
    if (m_allowPostProcess) {
        if (force || m_needsValidation || !m_validated) {
            if (m_params.outlier.Enable) {
                // Outlier detection is not in the library yet: a field that
                // asks for it must not pass as validated.
                m_error.setMessage("postProcess() - outlier validation is not available");
                m_error.handleError(PIVerror::FUNCTION_NOT_AVAILABLE, "postProcess()");
                return false;
            }
            validationRan = true;
            m_needsValidation = false;
            m_needsConversion = true;
        }
        if (validationRan || m_needsConversion) {
            if (!convert(parameters)) return false;
            m_needsConversion = false;
            m_needsDifferentiation = true;
        }
    } else {
        m_needsConversion = false;
        m_needsValidation = false;
    }
    const bool differentiate = m_allowPostProcess
                                   ? (validationRan || conversionPending || differentiationPending)
                                   : (m_needsDifferentiation || force);
    if (differentiate)
        PrintWarning("postProcess() - differentials are not available; the field has none");
    if (mask) maskOutVectors(*mask);
    doStatistics();
    m_dataType |= m_analysisMode == PIV::ANALYSIS_SPECKLE ? PIV::DATA_SPECKLE : PIV::DATA_VELOCITY;
    return true;
}
