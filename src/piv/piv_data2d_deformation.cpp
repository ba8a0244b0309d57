#include "piv_data2d_deformation.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "image_spline.h"
#include "image_types.h"
#include "piv_data2d_deformation_simd.h"
#include "piv_database.h"
#include "piv_messages.h"

namespace {

// A displacement summed in double from node values near float's limits may
// lie beyond them; it saturates instead of overflowing the conversion. NaN
// stays NaN, which the warp reads as a position outside the image.
float _toFloat(double v) {
    constexpr double limit = std::numeric_limits<float>::max();
    return float(std::clamp(v, -limit, limit));
}

// Rows, then columns, through the prefilter of the interpolating cubic
// B-spline (pole sqrt(3) - 2).
void NodePlaneToCubicCoefficients(float* plane, int nx, int ny) {
    const double pole = std::sqrt(3.0) - 2.0;
    std::vector<double> line(size_t(std::max(nx, ny)));
    for (int j = 0; j < ny; j++) {
        float* row = plane + size_t(j) * size_t(nx);
        for (int i = 0; i < nx; i++) line[size_t(i)] = row[i];
        ConvertToInterpolationCoefficients(line.data(), nx, &pole, 1, 1e-9);
        for (int i = 0; i < nx; i++) row[i] = _toFloat(line[size_t(i)]);
    }
    for (int i = 0; i < nx; i++) {
        for (int j = 0; j < ny; j++) line[size_t(j)] = plane[size_t(j) * size_t(nx) + size_t(i)];
        ConvertToInterpolationCoefficients(line.data(), ny, &pole, 1, 1e-9);
        for (int j = 0; j < ny; j++)
            plane[size_t(j) * size_t(nx) + size_t(i)] = _toFloat(line[size_t(j)]);
    }
}

}  // namespace

PIV_Data2D_Deformation::PIV_Data2D_Deformation() {
    m_error.setName("PIV_Data2D_Deformation");
}

PIV_Data2D_Deformation::PIV_Data2D_Deformation(const PIV_DataBase* field, int timeStep)
    : PIV_Data2D_Deformation() {
    setData(field, timeStep);
}

void PIV_Data2D_Deformation::setMethod(int method, int order) {
    if (method != m_method || order != m_order) m_ready = false, m_colWidth = 0;
    m_method = method;
    m_order = order;
}

bool PIV_Data2D_Deformation::setData(const PIV_DataBase* field, int timeStep) {
    m_ready = false;
    m_colWidth = 0;
    m_nx = m_ny = 0;
    if (!field || field->isNull()) {
        m_error.handleError(PIVerror::DATA_IS_NULL, "setData()");
        return false;
    }
    const DATA_GRID4D& g = field->grid();
    const int nx = std::max(g.nodes.width, 1), ny = std::max(g.nodes.height, 1);
    const PIV_VECTOR* v = const_cast<PIV_DataBase*>(field)->dataAtTime(timeStep);
    if (!v || long(nx) * ny > long(field->nodeCount())) {
        m_error.handleError(PIVerror::GRID_MISMATCH, "setData()");
        return false;
    }
    const size_t n = size_t(nx) * size_t(ny);
    try {
        m_dx.resize(n);
        m_dy.resize(n);
    } catch (...) {
        m_error.handleError(PIVerror::ALLOCATION_FAILED, "setData()");
        return false;
    }
    for (size_t k = 0; k < n; k++) {
        m_dx[k] = v[k].dx;
        m_dy[k] = v[k].dy;
    }
    m_nx = nx;
    m_ny = ny;
    m_firstX = g.first.x;
    m_firstY = g.first.y;
    m_stepX = g.step.width > 0 ? g.step.width : 1;
    m_stepY = g.step.height > 0 ? g.step.height : 1;
    return true;
}

bool PIV_Data2D_Deformation::isZero() const {
    for (size_t k = 0; k < m_dx.size(); k++)
        if (m_dx[k] != 0.0f || m_dy[k] != 0.0f) return false;
    return true;
}

bool PIV_Data2D_Deformation::prepareSplineCoefficients() {
    if (isNull()) {
        m_error.handleError(PIVerror::DATA_IS_NULL, "prepareSplineCoefficients()");
        return false;
    }
    if (m_method != PIV::INTERPOLATE_BSPLINE || m_order < 2) {
        m_ready = true;  // the bilinear path reads the node values directly
        return true;
    }
    m_coefX = m_dx;
    m_coefY = m_dy;
    const int degree = std::min(m_order, 9);
    if (degree == 3) {
        // The field must come back exactly at its nodes, or every pass would
        // warp by a little more than the field it was given: the cubic takes
        // the pole of the interpolating cubic B-spline.
        NodePlaneToCubicCoefficients(m_coefX.data(), m_nx, m_ny);
        NodePlaneToCubicCoefficients(m_coefY.data(), m_nx, m_ny);
    } else if (Image2DToSplineCoefficients(m_coefX.data(), m_nx, m_ny, degree) != 0 ||
               Image2DToSplineCoefficients(m_coefY.data(), m_nx, m_ny, degree) != 0) {
        m_error.handleError(PIVerror::OPERATION_FAILED, "prepareSplineCoefficients()");
        return false;
    }
    m_ready = true;
    return true;
}

double PIV_Data2D_Deformation::gridX(double x) const {
    return std::clamp((x - m_firstX) / m_stepX, 0.0, double(m_nx - 1));
}

double PIV_Data2D_Deformation::gridY(double y) const {
    return std::clamp((y - m_firstY) / m_stepY, 0.0, double(m_ny - 1));
}

namespace {

// Bilinear value of a node plane at clamped grid coordinates.
double Bilinear(const std::vector<float>& p, int nx, int ny, double gx, double gy) {
    const int i0 = std::min(int(gx), std::max(nx - 2, 0));
    const int j0 = std::min(int(gy), std::max(ny - 2, 0));
    const int i1 = std::min(i0 + 1, nx - 1), j1 = std::min(j0 + 1, ny - 1);
    const double tx = gx - i0, ty = gy - j0;
    const float* r0 = p.data() + size_t(j0) * nx;
    const float* r1 = p.data() + size_t(j1) * nx;
    const double top = r0[i0] + (double(r0[i1]) - r0[i0]) * tx;
    const double bottom = r1[i0] + (double(r1[i1]) - r1[i0]) * tx;
    return top + (bottom - top) * ty;
}

}  // namespace

bool PIV_Data2D_Deformation::interpolateDisplacement(double x, double y, double* dx, double* dy) {
    if (isNull() || !dx || !dy || !std::isfinite(x) || !std::isfinite(y)) {
        PrintWarning("PIV_Data2D_Deformation::interpolateDisplacement( x0=%g, y0=%g) - failed!", x,
                     y);
        return false;
    }
    if (!m_ready && !prepareSplineCoefficients()) return false;
    const double gx = gridX(x), gy = gridY(y);
    if (m_method == PIV::INTERPOLATE_BSPLINE && m_order >= 2) {
        const int degree = std::min(m_order, 9);
        *dx = InterpolatedSplineValue2D(m_coefX.data(), m_nx, m_ny, gx, gy, degree);
        *dy = InterpolatedSplineValue2D(m_coefY.data(), m_nx, m_ny, gx, gy, degree);
    } else {
        *dx = Bilinear(m_dx, m_nx, m_ny, gx, gy);
        *dy = Bilinear(m_dy, m_nx, m_ny, gx, gy);
    }
    return true;
}

bool PIV_Data2D_Deformation::mapData(int row, int width, float* dx, float* dy,
                                     double* scratch) const {
    if (isNull() || !m_ready || !dx || !dy || width < 1 || !scratch) return false;
    const double gy = gridY(row);
    if (m_method != PIV::INTERPOLATE_BSPLINE || m_order < 2) {
        for (int i = 0; i < width; i++) {
            const double gx = gridX(i);
            dx[i] = _toFloat(Bilinear(m_dx, m_nx, m_ny, gx, gy));
            dy[i] = _toFloat(Bilinear(m_dy, m_nx, m_ny, gx, gy));
        }
        return true;
    }
    using PIV::Spline::Mirror;
    const int degree = std::min(m_order, 9);
    double wy[10], wx[10];
    const int64_t j0 = PIV::Spline::Weights(gy, degree, wy);
    // The row of the field through this image row, reduced along y once;
    // each pixel then needs only the x weights.
    double* lineX = scratch;
    double* lineY = scratch + m_nx;
    std::fill(lineX, lineX + 2 * size_t(m_nx), 0.0);
    for (int l = 0; l <= degree; l++) {
        const size_t base = size_t(Mirror(j0 + l, m_ny)) * size_t(m_nx);
        for (int i = 0; i < m_nx; i++) {
            lineX[size_t(i)] += wy[l] * m_coefX[base + size_t(i)];
            lineY[size_t(i)] += wy[l] * m_coefY[base + size_t(i)];
        }
    }
    if (m_colWidth == width && degree == 3) {
        PIV::MapFieldColumns(lineX, lineY, m_nx, m_runStart.data(), m_colFraction.data(), width, dx,
                             dy);
        return true;
    }
    for (int i = 0; i < width; i++) {
        const int64_t i0 = PIV::Spline::Weights(gridX(i), degree, wx);
        double sx = 0.0, sy = 0.0;
        for (int m = 0; m <= degree; m++) {
            const size_t k = size_t(Mirror(i0 + m, m_nx));
            sx += wx[m] * lineX[k];
            sy += wx[m] * lineY[k];
        }
        dx[i] = _toFloat(sx);
        dy[i] = _toFloat(sy);
    }
    return true;
}

bool PIV_Data2D_Deformation::prepareColumns(int width) {
    m_colWidth = 0;
    if (isNull() || width < 1 || m_method != PIV::INTERPOLATE_BSPLINE || std::min(m_order, 9) != 3)
        return false;
    try {
        m_colFraction.resize(size_t(width));
        m_runStart.resize(size_t(m_nx) + 1);
    } catch (...) {
        return false;
    }
    // Grid coordinates grow with the column, so the columns of an interval
    // follow each other; those off the hull sit at its ends.
    int j = 0;
    m_runStart[0] = 0;
    for (int i = 0; i < width; i++) {
        const double g = gridX(i), base = std::floor(g);
        m_colFraction[size_t(i)] = g - base;
        for (; j < int(base); j++) m_runStart[size_t(j) + 1] = i;
    }
    for (; j < m_nx; j++) m_runStart[size_t(j) + 1] = width;
    m_colWidth = width;
    return true;
}
