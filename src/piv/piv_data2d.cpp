#include "piv_data2d.h"

#include <algorithm>
#include <cstdlib>

#include "image2d.h"
#include "piv_messages.h"
#include "piv_params.h"

PIV_Data2D::PIV_Data2D() {
    m_error.setName("PIV_Data2D");
}

PIV_Data2D::PIV_Data2D(const DATA_GRID4D& grid) {
    m_error.setName("PIV_Data2D");
    initializeGrid(grid);
}

PIV_Data2D& PIV_Data2D::operator=(const PIV_Data2D& other) {
    copy(other);
    return *this;
}

uint32_t PIV_Data2D::release() {
    const uint32_t left = --m_refCount;
    if (left == 0) delete this;
    return left;
}

bool PIV_Data2D::create(const DATA_GRID4D& grid) {
    DATA_GRID4D planar = grid;
    planar.nodes.depth = 1;
    return initializeGrid(planar) != 0;
}

void PIV_Data2D::setPositionZ(double z) {
    for (unsigned long k = 0; k < m_nodeCount; k++) m_vectors[k].z = float(z);
    m_params.convert.PhysicalOrigin.z = float(z);
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
    return m_vectors[size_t(index2D(row, col, t))];
}

PIVerror::ErrorType PIV_Data2D::setVector2D(const PIV_VECTOR& vector, int row, int col, int t) {
    if (m_vectors.empty()) return PIVerror::DATA_IS_NULL;
    if (!inside(row, col, t)) return PIVerror::CANNOT_OPERATE;
    m_vectors[size_t(index2D(row, col, t))] = vector;
    return PIVerror::NO_ERROR;
}

PIV_VECTOR* PIV_Data2D::pivVector(int col, int row, int t) {
    if (isNull()) return nullptr;
    col = std::clamp(col, 0, m_grid.nodes.width - 1);
    row = std::clamp(row, 0, m_grid.nodes.height - 1);
    t = std::clamp(t, 0, m_grid.timeSteps - 1);
    return &m_vectors[size_t(index2D(row, col, t))];
}

DIFFERENTIALS PIV_Data2D::getDifferentials2D(int row, int col, int t) const {
    if (m_diff.empty() || !inside(row, col, t)) return DIFFERENTIALS();
    return m_diff[size_t(index2D(row, col, t))];
}

PIVerror::ErrorType PIV_Data2D::setDifferentials2D(const DIFFERENTIALS& d, int row, int col,
                                                   int t) {
    if (m_diff.empty()) return PIVerror::DATA_IS_NULL;
    if (!inside(row, col, t)) return PIVerror::CANNOT_OPERATE;
    m_diff[size_t(index2D(row, col, t))] = d;
    return PIVerror::NO_ERROR;
}

long PIV_Data2D::nearestVectorIndex(int x, int y, int t, bool* found) const {
    bool ok = false;
    long index = 0;
    const int nx = m_grid.nodes.width, ny = m_grid.nodes.height;
    if (!isNull() && m_nodeCount > 1 && nx > 0) {
        const PIV_VECTOR* v = m_vectors.data();
        // The spacing comes from the nodes themselves, so that a grid that
        // was scaled or translated still answers right.
        const int spacingX = v[1].ix - v[0].ix;
        const int spacingY =
            static_cast<unsigned long>(nx) < m_nodeCount ? std::abs(v[nx].iy - v[0].iy) : 0;
        if (spacingX != 0 && spacingY != 0) {
            const int col = (spacingX / 2 + (x - v[0].ix)) / spacingX;
            const int row = (spacingY / 2 + (y - v[0].iy)) / spacingY;
            if (col >= 0 && col < nx && row >= 0 && row < ny) {
                t = std::clamp(t, 0, m_grid.timeSteps - 1);
                index = col + long(row) * nx + long(t) * nx * ny;
                ok = true;
            }
        }
    }
    if (found) *found = ok;
    return index;
}

PIV_VECTOR PIV_Data2D::nearestVector(int x, int y, int t) const {
    bool found = false;
    const long k = nearestVectorIndex(x, y, t, &found);
    if (found) return m_vectors[size_t(k)];
    PIV_VECTOR none;
    none.flag = VECTOR_NO_RESULT | VECTOR_OUTLIER;
    return none;
}

DIFFERENTIALS PIV_Data2D::nearestDifferentials(int x, int y, int t) const {
    bool found = false;
    const long k = nearestVectorIndex(x, y, t, &found);
    if (!found || size_t(k) >= m_diff.size()) return DIFFERENTIALS();
    return m_diff[size_t(k)];
}

bool PIV_Data2D::postProcess(const PIV_Parameters* parameters, const Image2D* mask, bool force) {
    if (isNull()) return m_error.handleError(PIVerror::DATA_IS_NULL, "postProcess()"), false;
    if (parameters) setPivParameters(parameters->pivParameters());
    const bool conversionPending = m_needsConversion;
    const bool differentiationPending = m_needsDifferentiation;
    bool validationRan = false;
    if (m_allowPostProcess) {
        if (force || m_needsValidation || !m_validated) {
            if (!validate(m_params.outlier, true)) return false;
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
    const bool needsDifferentials =
        m_allowPostProcess ? (validationRan || conversionPending || differentiationPending)
                           : (m_needsDifferentiation || force);
    if (needsDifferentials && !differentiate()) return false;
    if (mask) maskOutVectors(*mask);
    doStatistics();
    m_dataType |= m_analysisMode == PIV::ANALYSIS_SPECKLE ? PIV::DATA_SPECKLE : PIV::DATA_VELOCITY;
    return true;
}
