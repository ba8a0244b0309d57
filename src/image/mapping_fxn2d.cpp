#include "mapping_fxn2d.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <string>

#include "asciiparfile.h"
#include "piv_file.h"
#include "piv_messages.h"

// ---------------------------------------------------------------------------
// Polynomials and the record

int PIV::ClipMappingOrder(int order) {
    return std::clamp(order, 0, MaxMappingOrder);
}

double PIV::EvaluatePolynomial2D(const double* c, int count, double x, double y) {
    if (count < 1) return 0.0;
    count = std::min(count, MaxMappingCoeffs);
    // Dewarped images put many pixels on the axes: there only the pure
    // powers survive.
    if (x == 0.0 && y == 0.0) return c[0];
    double xp[MaxMappingOrder + 1], yp[MaxMappingOrder + 1];
    xp[0] = yp[0] = 1.0;
    for (int d = 1; d <= MaxMappingOrder; d++) {
        xp[d] = xp[d - 1] * x;
        yp[d] = yp[d - 1] * y;
    }
    double sum = c[0];
    int k = 1;
    for (int d = 1; k < count; d++) {
        if (y == 0.0) {
            sum += c[k] * xp[d];
        } else if (x == 0.0) {
            if (k + d < count) sum += c[k + d] * yp[d];
        } else {
            for (int j = 0; j <= d && k + j < count; j++) sum += c[k + j] * xp[d - j] * yp[j];
        }
        k += d + 1;
    }
    return sum;
}

void MAPPING_FXN_2D::setOrder(int order) {
    const int d = PIV::ClipMappingOrder(order);
    maporder = maporderY = px_order = py_order = d;
    px_count = py_count = PIV::MappingCoeffCount(d);
}

void MAPPING_FXN_2D::mappedPoint(double X, double Y, double& x, double& y) const {
    if (maptype == PIV::MAPPING_POLYNOMIAL) {
        const int nx = std::clamp(px_count, 0, PIV::MaxMappingCoeffs);
        const int ny = std::clamp(py_count, 0, PIV::MaxMappingCoeffs);
        // A mapping of degree 0 is a pure shift.
        if (nx == 1 && ny == 1) {
            x = X + px[0];
            y = Y + py[0];
            return;
        }
        x = PIV::EvaluatePolynomial2D(px, nx, X, Y);
        y = PIV::EvaluatePolynomial2D(py, ny, X, Y);
        return;
    }
    const bool quadraticNumerator =
        maptype == PIV::MAPPING_NONLINEAR_MIX2_1 || maptype == PIV::MAPPING_NONLINEAR2;
    const bool quadraticDenominator =
        maptype == PIV::MAPPING_NONLINEAR_MIX1_2 || maptype == PIV::MAPPING_NONLINEAR2;
    double nx = a00 * X + a01 * Y + a03;
    double ny = a10 * X + a11 * Y + a13;
    if (quadraticNumerator) {
        nx += (a04 * X + a06 * Y) * X + a05 * Y * Y;
        ny += (a14 * X + a16 * Y) * X + a15 * Y * Y;
    }
    double d = a30 * X + a31 * Y + a33;
    if (quadraticDenominator) d += (a34 * X + a36 * Y) * X + a35 * Y * Y;
    if (d == 0.0) {
        x = y = 0.0;
        return;
    }
    x = nx / d;
    y = ny / d;
}

FPOINT2D MAPPING_FXN_2D::mappedPoint(FPOINT2D p) const {
    double x, y;
    mappedPoint(p.x, p.y, x, y);
    return FPOINT2D{static_cast<float>(x), static_cast<float>(y)};
}

MAPPING_PARAMS::MAPPING_PARAMS() {
    PIV::ZeroRecord(*this);
    order = orderX = orderY = 2;
    scale = 1.0;
    destWidth = destHeight = 512;
    destDepth = 1;
}

namespace {

// The rational forms: parameter count and least number of points.
struct NonlinearForm {
    const char* name;
    int parameters;
    int minPoints;
};

const NonlinearForm* _form(int type) {
    static const NonlinearForm forms[] = {
        {"Mapping_NonlinearOrder1", 8, 4},
        {"Mapping_NonlinearMix1_2", 11, 8},
        {"Mapping_NonlinearMix2_1", 14, 8},
        {"Mapping_NonlinearOrder2", 17, 8},
    };
    if (type < PIV::MAPPING_NONLINEAR1 || type > PIV::MAPPING_NONLINEAR2) return nullptr;
    return &forms[type - 1];
}

// Parameters of the minimiser into the record's coefficients and back; the
// constant of the denominator is fixed at 1.
void _paramsToMap(int type, const double* p, MAPPING_FXN_2D& m) {
    m.a00 = p[0];
    m.a01 = p[1];
    m.a03 = p[2];
    m.a10 = p[3];
    m.a11 = p[4];
    m.a13 = p[5];
    m.a30 = p[6];
    m.a31 = p[7];
    m.a33 = 1.0;
    m.a04 = m.a05 = m.a06 = m.a14 = m.a15 = m.a16 = 0.0;
    m.a34 = m.a35 = m.a36 = 0.0;
    if (type == PIV::MAPPING_NONLINEAR_MIX1_2) {
        m.a34 = p[8];
        m.a35 = p[9];
        m.a36 = p[10];
    }
    if (type == PIV::MAPPING_NONLINEAR_MIX2_1 || type == PIV::MAPPING_NONLINEAR2) {
        m.a04 = p[8];
        m.a05 = p[9];
        m.a06 = p[10];
        m.a14 = p[11];
        m.a15 = p[12];
        m.a16 = p[13];
    }
    if (type == PIV::MAPPING_NONLINEAR2) {
        m.a34 = p[14];
        m.a35 = p[15];
        m.a36 = p[16];
    }
    m.maptype = type;
}

// The terms 1, x, y, x^2, xy, y^2, ... of degree up to `order`.
void _monomials(double x, double y, int order, double* out) {
    double xp[PIV::MaxMappingOrder + 1], yp[PIV::MaxMappingOrder + 1];
    xp[0] = yp[0] = 1.0;
    for (int d = 1; d <= PIV::MaxMappingOrder; d++) {
        xp[d] = xp[d - 1] * x;
        yp[d] = yp[d - 1] * y;
    }
    int k = 0;
    for (int d = 0; d <= order; d++)
        for (int j = 0; j <= d; j++) out[k++] = xp[d - j] * yp[j];
}

}  // namespace

// ---------------------------------------------------------------------------
// LinearLsqFit2D

void LinearLsqFit2D::setFitOrder(int order) {
    m_order = PIV::ClipMappingOrder(order);
}

double LinearLsqFit2D::evaluate(double x, double y) const {
    return PIV::EvaluatePolynomial2D(m_coeffs, coeffCount(), x, y);
}

bool LinearLsqFit2D::fitToData(const double* x, const double* y, const double* value, int count) {
    const int n = coeffCount();
    if (!x || !y || !value || count < n || count < 1) {
        m_error.setMessage("fitToData() - not enough points (%d) for fit of degree %d", count,
                           m_order);
        m_error.handleError(PIVerror::OPERATION_FAILED, "fitToData()");
        return false;
    }
    std::fill(std::begin(m_coeffs), std::end(m_coeffs), 0.0);
    if (m_order < 1) {
        double sum = 0.0;
        for (int i = 0; i < count; i++) sum += value[i];
        m_coeffs[0] = sum / count;
        DebugPrintExt(3, "shift-only fit = %g", m_coeffs[0]);
        return true;
    }
    // Design matrix, column-major, each column scaled to unit largest entry.
    const size_t m = static_cast<size_t>(count);
    std::vector<double> a, b, scale;
    if (!PIV::Guarded(m_error, "fitToData()", [&] {
            a.resize(m * n);
            b.assign(value, value + count);
            scale.assign(size_t(n), 1.0);
        }))
        return false;
    for (size_t i = 0; i < m; i++) {
        double terms[PIV::MaxMappingCoeffs];
        _monomials(x[i], y[i], m_order, terms);
        for (int k = 0; k < n; k++) a[k * m + i] = terms[k];
    }
    for (int k = 0; k < n; k++) {
        double big = 0.0;
        for (size_t i = 0; i < m; i++) big = std::max(big, std::fabs(a[k * m + i]));
        if (big > 0.0) {
            scale[k] = big;
            for (size_t i = 0; i < m; i++) a[k * m + i] /= big;
        }
    }
    // Householder QR, applying each reflection to b as well.
    std::vector<double> diag(n);
    for (int k = 0; k < n; k++) {
        double* col = &a[k * m];
        double norm = 0.0;
        for (size_t i = k; i < m; i++) norm += col[i] * col[i];
        norm = std::sqrt(norm);
        if (norm < 1e-12) {
            m_error.setMessage("fitToData() - points do not determine a fit of degree %d", m_order);
            m_error.handleError(PIVerror::OPERATION_FAILED, "fitToData()");
            return false;
        }
        const double alpha = col[k] > 0 ? -norm : norm;
        col[k] -= alpha;
        double vnorm = 0.0;
        for (size_t i = k; i < m; i++) vnorm += col[i] * col[i];
        for (int j = k + 1; j < n; j++) {
            double* cj = &a[j * m];
            double dot = 0.0;
            for (size_t i = k; i < m; i++) dot += col[i] * cj[i];
            const double f = 2.0 * dot / vnorm;
            for (size_t i = k; i < m; i++) cj[i] -= f * col[i];
        }
        double dot = 0.0;
        for (size_t i = k; i < m; i++) dot += col[i] * b[i];
        const double f = 2.0 * dot / vnorm;
        for (size_t i = k; i < m; i++) b[i] -= f * col[i];
        diag[k] = alpha;
    }
    for (int k = n - 1; k >= 0; k--) {
        double s = b[k];
        for (int j = k + 1; j < n; j++) s -= a[j * m + k] * m_coeffs[j];
        m_coeffs[k] = s / diag[k];
    }
    for (int k = 0; k < n; k++) m_coeffs[k] /= scale[k];
    return true;
}

// ---------------------------------------------------------------------------
// MappingFunctionBase

MappingFunctionBase::MappingFunctionBase()
    : m_originMode(0),
      m_sourceSize{0, 0},
      m_valid(false),
      m_needsFit(true),
      m_error("MappingFunctionBase") {}

bool MappingFunctionBase::alloc(int count) {
    if (count < 0) return false;
    try {
        m_points.reserve(static_cast<size_t>(count));
    } catch (...) {
        m_error.handleError(PIVerror::ALLOCATION_FAILED, "alloc()");
        return false;
    }
    return true;
}

bool MappingFunctionBase::grow(int extra) {
    return alloc(pointCount() + std::max(extra, 0));
}

bool MappingFunctionBase::addPoint(const POINT_PAIR& p) {
    if (m_points.size() == m_points.capacity() && !grow(128)) return false;
    m_points.push_back(p);
    m_needsFit = true;
    return true;
}

bool MappingFunctionBase::setCalibrationPoints(const POINT_PAIR* points, int count) {
    clearPoints();
    if (!points || count < 0) return false;
    if (!alloc(count)) return false;
    m_points.assign(points, points + count);
    return true;
}

void MappingFunctionBase::clearPoints() {
    m_points.clear();
    m_needsFit = true;
}

void MappingFunctionBase::setMappingParams(const MAPPING_PARAMS& params) {
    if (PIV::SameRecord(params, m_params)) return;
    m_params = params;
    m_needsFit = true;
}

// A failed check names itself in the detail of the function's error; the
// caller (calculateMapping) reports the failure under its own name, so the
// check only prints at debug level 1.
bool MappingFunctionBase::isCalibrationDataValid(bool needDepth) {
    const char* dims = needDepth ? "3-D" : "2-D";
    auto fail = [&](const char* format, const char* arg = "") {
        m_error.setMessage(format, arg);
        throw PIVerror::BAD_PARAMETERS;
    };
    try {
        if (m_points.empty()) fail("no calibration points for %s calibration", dims);
        if (m_points.size() < 8) fail("too few points for %s calibration", dims);
        auto constant = [&](double POINT_PAIR::*field) {
            return std::all_of(m_points.begin(), m_points.end(),
                               [&](const POINT_PAIR& p) { return p.*field == m_points[0].*field; });
        };
        if (constant(&POINT_PAIR::X)) fail("calibration data constant along X");
        if (constant(&POINT_PAIR::Y)) fail("calibration data constant along Y");
        if (needDepth && constant(&POINT_PAIR::Z))
            fail("calibration data constant along Z (planar)");
    } catch (PIVerror::ErrorType) {
        DebugPrintExt(1, "isCalibrationDataValid() - %s", m_error.message());
        return false;
    }
    return true;
}

bool MappingFunctionBase::isCalibrationDataCoplanar() {
    auto fail = [&](const char* why) {
        m_error.setMessage("%s", why);
        throw PIVerror::BAD_PARAMETERS;
    };
    try {
        if (m_points.empty()) fail("no calibration points");
        double zmin = m_points[0].Z, zmax = zmin;
        for (const POINT_PAIR& p : m_points) {
            if (!std::isfinite(p.Z)) fail("invalid Z coordinate");
            zmin = std::min(zmin, p.Z);
            zmax = std::max(zmax, p.Z);
        }
        if (zmax - zmin > 1e-9 * (1.0 + std::max(std::fabs(zmin), std::fabs(zmax))))
            fail("points lie on more than one plane of Z");
    } catch (PIVerror::ErrorType) {
        DebugPrintExt(1, "isCalibrationDataCoplanar() - %s", m_error.message());
        return false;
    }
    return true;
}

// ---------------------------------------------------------------------------
// MappingFunction2D

struct MappingFunction2D::LmContext {
    const MappingFunction2D* self;
    int type;
    bool inverse;
};

void MappingFunction2D::pointData(int i, bool inverse, double& X, double& Y, double& u,
                                  double& v) const {
    const POINT_PAIR& p = m_points[static_cast<size_t>(i)];
    double ix = p.x, iy = p.y;
    if (m_originMode == 1) iy = m_sourceSize.height - 1 - iy;
    // A magnification of 0 (a zero-filled record) would put every point on
    // one spot; it stands for 1.
    const double s = m_params.scale > 0.0 ? m_params.scale : 1.0;
    const double ox = (p.X + m_params.offset[0]) * s, oy = (p.Y + m_params.offset[1]) * s;
    if (inverse) {
        X = ox;
        Y = oy;
        u = ix;
        v = iy;
    } else {
        X = ix;
        Y = iy;
        u = ox;
        v = oy;
    }
}

bool MappingFunction2D::calculateMapping(int type, int orderX, int orderY, bool inverse) {
    m_valid = false;
    if (!isCalibrationDataValid(false)) {
        m_error.setMessage("calculateMapping() - too few points for 2-D calibration");
        m_error.handleError(PIVerror::OPERATION_FAILED, "calculateMapping()");
        return false;
    }
    if (!isCalibrationDataCoplanar()) {
        m_error.setMessage("calculateMapping() - data is not co-planar, use 3-D calibration");
        m_error.handleError(PIVerror::OPERATION_FAILED, "calculateMapping()");
        return false;
    }
    if (m_originMode == 1 && m_sourceSize.height <= 0)
        PrintWarning(
            "MappingFunction2D::calculateMapping) - Source image size not specified: image y "
            "counted from the bottom of an image of height 0");
    m_inverse = inverse;
    m_fitType = type;
    // The fits' work arrays grow with the number of points.
    if (!PIV::Guarded(m_error, "calculateMapping()", [&] {
            if (type < 1)
                doLinearFit(orderX, orderY, inverse);
            else
                doNonlinearFit(inverse);
        }))
        m_valid = false;
    if (m_valid) {
        m_map.magnification = m_params.scale > 0.0 ? m_params.scale : 1.0;
        m_map.obj_x_offset = m_params.offset[0];
        m_map.obj_y_offset = m_params.offset[1];
        m_map.dest_img_width = m_params.destWidth;
        m_map.dest_img_height = m_params.destHeight;
        m_needsFit = false;
    }
    return m_valid;
}

bool MappingFunction2D::doZerothOrderFit(bool inverse) {
    const int n = pointCount();
    double sx = 0.0, sy = 0.0;
    for (int i = 0; i < n; i++) {
        double X, Y, u, v;
        pointData(i, inverse, X, Y, u, v);
        sx += X - u;
        sy += Y - v;
    }
    MAPPING_FXN_2D next = m_map;
    std::memset(next.px, 0, sizeof(next.px));
    std::memset(next.py, 0, sizeof(next.py));
    next.maptype = PIV::MAPPING_POLYNOMIAL;
    next.setOrder(0);
    next.px[0] = -sx / n;
    next.py[0] = -sy / n;
    m_map = next;
    m_valid = true;
    return true;
}

bool MappingFunction2D::doLinearFit(int orderX, int orderY, bool inverse) {
    DebugPrintExt(3, "doLinearFit() - degree=%d,%d", orderX, orderY);
    if (orderX < 1 || orderY < 1) return doZerothOrderFit(inverse);
    const int n = pointCount();
    std::vector<double> X(n), Y(n), u(n), v(n);
    for (int i = 0; i < n; i++) pointData(i, inverse, X[i], Y[i], u[i], v[i]);
    m_fitX.setFitOrder(orderX);
    m_fitY.setFitOrder(orderY);
    if (!m_fitX.fitToData(X.data(), Y.data(), u.data(), n) ||
        !m_fitY.fitToData(X.data(), Y.data(), v.data(), n))
        return false;
    MAPPING_FXN_2D next = m_map;
    next.maptype = PIV::MAPPING_POLYNOMIAL;
    next.maporder = std::max(m_fitX.fitOrder(), m_fitY.fitOrder());
    next.maporderY = m_fitY.fitOrder();
    next.px_order = m_fitX.fitOrder();
    next.px_count = m_fitX.coeffCount();
    next.py_order = m_fitY.fitOrder();
    next.py_count = m_fitY.coeffCount();
    std::memset(next.px, 0, sizeof(next.px));
    std::memset(next.py, 0, sizeof(next.py));
    std::copy(m_fitX.coefficients(), m_fitX.coefficients() + next.px_count, next.px);
    std::copy(m_fitY.coefficients(), m_fitY.coefficients() + next.py_count, next.py);
    // The affine part, for readers that know only the rational forms.
    next.a00 = next.px[1];
    next.a01 = next.px[2];
    next.a03 = next.px[0];
    next.a10 = next.py[1];
    next.a11 = next.py[2];
    next.a13 = next.py[0];
    next.a30 = next.a31 = 0.0;
    next.a33 = 1.0;
    m_map = next;
    m_valid = true;
    return true;
}

int MappingFunction2D::residuals(void* user, int m, int, const double* p, double* fvec, int) {
    const LmContext& c = *static_cast<const LmContext*>(user);
    MAPPING_FXN_2D model;
    _paramsToMap(c.type, p, model);
    for (int i = 0; 2 * i + 1 < m; i++) {
        double X, Y, u, v, x, y;
        c.self->pointData(i, c.inverse, X, Y, u, v);
        model.mappedPoint(X, Y, x, y);
        fvec[2 * i] = u - x;
        fvec[2 * i + 1] = v - y;
    }
    return 0;
}

bool MappingFunction2D::lmFit(int type, int parameters, double* p, bool inverse) {
    LmContext context{this, type, inverse};
    std::vector<double> start(p, p + parameters);
    const PIV::LmResult r = PIV::LmMinimize(&MappingFunction2D::residuals, &context,
                                            2 * pointCount(), parameters, p, m_workspace);
    // lmdif only ever accepts steps that lower the residuals, so running out
    // of evaluations (an over-complete form has flat directions and rarely
    // meets the tolerances on noisy points) or tolerances too tight to reach
    // still leave the best parameters found. Only bad input, a stop or a
    // non-finite result count as failure.
    const bool finite = std::isfinite(r.error) &&
                        std::all_of(p, p + parameters, [](double v) { return std::isfinite(v); });
    if (r.info < 1 || !finite) {
        std::copy(start.begin(), start.end(), p);
        DebugPrintExt(2, "lmFit() failed: keeping previous result");
        return false;
    }
    DebugPrintExt(1, "\t(after %d iterations)", r.nfev);
    return true;
}

bool MappingFunction2D::doNonlinearFit(bool inverse) {
    const NonlinearForm* form = _form(m_fitType);
    if (!form) {
        m_error.setMessage("doNonlinearFit() - invalid mapping type(%d) requested", m_fitType);
        m_error.handleError(PIVerror::BAD_PARAMETERS, "doNonlinearFit()");
        return false;
    }
    DebugPrintExt(1, "doNonlinearFit() - %s", form->name);
    if (pointCount() < form->minPoints || 2 * pointCount() < form->parameters) {
        m_error.setMessage("doNonlinearFit() - not enough points for mapping (have %d - need %d)",
                           pointCount(), std::max(form->minPoints, (form->parameters + 1) / 2));
        m_error.handleError(PIVerror::OPERATION_FAILED, "doNonlinearFit()");
        return false;
    }
    // From the identity: the rational form of degree 1 first, whose result
    // starts the full form.
    double p[17] = {};
    p[0] = 1.0;
    p[4] = 1.0;
    if (!lmFit(PIV::MAPPING_NONLINEAR1, 8, p, inverse)) return false;
    // A failed second stage keeps the first one's mapping, which the fuller
    // form contains.
    if (m_fitType != PIV::MAPPING_NONLINEAR1) lmFit(m_fitType, form->parameters, p, inverse);
    MAPPING_FXN_2D next = m_map;
    _paramsToMap(m_fitType, p, next);
    next.setOrder(m_fitType == PIV::MAPPING_NONLINEAR1 ? 1 : 2);
    std::memset(next.px, 0, sizeof(next.px));
    std::memset(next.py, 0, sizeof(next.py));
    m_map = next;
    m_valid = true;
    return true;
}

FPOINT2D MappingFunction2D::mappedPoint2D(double X, double Y) const {
    double x, y;
    m_map.mappedPoint(X, Y, x, y);
    return FPOINT2D{static_cast<float>(x), static_cast<float>(y)};
}

double MappingFunction2D::mappedX(double X, double Y) const {
    double x, y;
    m_map.mappedPoint(X, Y, x, y);
    return x;
}

double MappingFunction2D::mappedY(double X, double Y) const {
    double x, y;
    m_map.mappedPoint(X, Y, x, y);
    return y;
}

bool MappingFunction2D::calculateResiduals(double& rms, double& maximum) const {
    rms = maximum = 0.0;
    if (!m_valid || m_points.empty()) return false;
    double sum = 0.0;
    for (int i = 0; i < pointCount(); i++) {
        double X, Y, u, v, x, y;
        pointData(i, m_inverse, X, Y, u, v);
        m_map.mappedPoint(X, Y, x, y);
        const double d2 = (u - x) * (u - x) + (v - y) * (v - y);
        sum += d2;
        maximum = std::max(maximum, std::sqrt(d2));
    }
    rms = std::sqrt(sum / pointCount());
    return true;
}

bool MappingFunction2D::bestFitToImage(const SIZE2D& size) {
    if (size.width < 2 || size.height < 2) return false;
    // The corners of the image in object units: a fit of the same form in
    // the other direction, on unscaled object positions.
    MappingFunction2D back;
    back.setCalibrationPoints(points(), pointCount());
    back.setOriginMode(m_originMode);
    back.setSourceImageSize(m_sourceSize);
    MAPPING_PARAMS plain = m_params;
    plain.scale = 1.0;
    plain.offset[0] = plain.offset[1] = plain.offset[2] = 0.0;
    back.setMappingParams(plain);
    const int type = m_fitType;
    const int order = std::max(1, m_map.maporder);
    if (!back.calculateMapping(type, order, order, false)) return false;
    const double w = size.width - 1, h = size.height - 1;
    const double cx[4] = {0, w, 0, w}, cy[4] = {0, 0, h, h};
    double ox[4], oy[4];
    for (int i = 0; i < 4; i++) {
        const double iy = m_originMode == 1 ? m_sourceSize.height - 1 - cy[i] : cy[i];
        back.mapping().mappedPoint(cx[i], iy, ox[i], oy[i]);
    }
    DebugPrintExt(1,
                  "MappingFunction2D::bestFitToImage()\n left-top  -> %g,%g\n right-top -> "
                  "%g,%g\n left-bot  -> %g,%g\n right-bot -> %g,%g",
                  ox[0], oy[0], ox[1], oy[1], ox[2], oy[2], ox[3], oy[3]);
    const double xmin = *std::min_element(ox, ox + 4), xmax = *std::max_element(ox, ox + 4);
    const double ymin = *std::min_element(oy, oy + 4), ymax = *std::max_element(oy, oy + 4);
    if (!(xmax > xmin) || !std::isfinite(xmax - xmin)) {
        DebugPrint("bestFitToImage() - invalid rangeX = (%g, %g)", xmin, xmax);
        return false;
    }
    if (!(ymax > ymin) || !std::isfinite(ymax - ymin)) {
        DebugPrint("bestFitToImage() - invalid rangeY = (%g, %g)", ymin, ymax);
        return false;
    }
    MAPPING_PARAMS params = m_params;
    params.scale =
        std::min((params.destWidth - 1) / (xmax - xmin), (params.destHeight - 1) / (ymax - ymin));
    params.offset[0] = -xmin;
    params.offset[1] = -ymin;
    setMappingParams(params);
    return true;
}

// ---------------------------------------------------------------------------
// Free functions

bool PIV::CalculateProjectionMatrix(const POINT_PAIR* points, int count, MAPPING_FXN_2D* map,
                                    MappingType type, int orderX, int orderY) {
    if (!points || count < 1 || !map) return false;
    MappingFunction2D fit;
    MAPPING_PARAMS params;
    params.type = type;
    params.order = params.orderX = ClipMappingOrder(orderX);
    params.orderY = ClipMappingOrder(orderY);
    params.scale = map->magnification > 0.0 ? map->magnification : 1.0;
    if (map->dest_img_width > 0) params.destWidth = map->dest_img_width;
    if (map->dest_img_height > 0) params.destHeight = map->dest_img_height;
    params.offset[0] = map->obj_x_offset;
    params.offset[1] = map->obj_y_offset;
    fit.setMappingParams(params);
    fit.setOriginMode(0);
    fit.setCalibrationPoints(points, count);
    fit.setMapping(*map);
    if (!fit.calculateMapping(type, orderX, orderY, true)) return false;
    *map = fit.mapping();
    return true;
}

bool PIV::LoadCalibrationPoints(const char* fileName, POINT_PAIR** points, int* count) {
    if (!points || !count) return false;
    *points = nullptr;
    *count = 0;
    FilePtr f = OpenFile(fileName, "r");
    if (!f) {
        DebugPrintExt(1, "Cannot open '%s' for input", fileName ? fileName : "");
        return false;
    }
    std::vector<POINT_PAIR> list;
    char line[1024];
    while (std::fgets(line, sizeof(line), f.get())) {
        // The rest of a line longer than the buffer is no line of its own:
        // the tail of a long comment may hold numbers.
        if (!std::strchr(line, '\n')) {
            int c;
            do {
                c = std::fgetc(f.get());
            } while (c != EOF && c != '\n');
        }
        if (line[0] == '#' || line[0] == '%') continue;
        POINT_PAIR p;
        if (std::sscanf(line, "%lf %lf %lf %lf %lf", &p.x, &p.y, &p.X, &p.Y, &p.Z) < 4) continue;
        // 128 points at first, then in proportion: a fixed step would copy a
        // file of millions of points thousands of times over.
        try {
            if (list.size() == list.capacity())
                list.reserve(list.size() + std::max<size_t>(128, list.size()));
        } catch (const std::bad_alloc&) {
            PIVerror::handleErrorExt(PIVerror::ALLOCATION_FAILED, "PIV::LoadCalibrationPoints()",
                                     true);
            return false;
        }
        list.push_back(p);
        if (list.size() >= size_t(INT_MAX)) break;  // the count is an int
    }
    DebugPrintExt(2, "LoadCalibrationPoints('%s') - Read %d points", fileName,
                  static_cast<int>(list.size()));
    if (list.empty()) return false;
    *points = new (std::nothrow) POINT_PAIR[list.size()];
    if (!*points) {
        PIVerror::handleErrorExt(PIVerror::ALLOCATION_FAILED, "PIV::LoadCalibrationPoints()", true);
        return false;
    }
    std::copy(list.begin(), list.end(), *points);
    *count = static_cast<int>(list.size());
    return true;
}

bool PIV::SaveCalibrationPoints(const char* fileName, const POINT_PAIR* points, int count,
                                bool withHeader) {
    if (!fileName || !fileName[0] || (!points && count > 0)) return false;
    TempFile out(fileName);
    if (!out.file()) return false;
    if (withHeader) std::fprintf(out.file(), "# image x, image y, object X, object Y, object Z\n");
    for (int i = 0; i < count; i++)
        std::fprintf(out.file(), "%.10g %.10g %.10g %.10g %.10g\n", points[i].x, points[i].y,
                     points[i].X, points[i].Y, points[i].Z);
    return out.commit(fileName);
}

namespace {

struct CoeffKey {
    const char* key;
    double MAPPING_FXN_2D::*field;
};

}  // namespace

bool PIV::SerializeProjectionMatrix(ASCIIParFile& file, MAPPING_FXN_2D* map, const char* group) {
    if (!map) return false;
    if (group && group[0]) file.beginGroup(group);
    const bool writing = file.writeMode();
    file.addComment("# Projection matrix data for image dewarping");
    const int found = file.serialize("maptype", &map->maptype);
    int order = map->maporder;
    if (file.serialize("maporder", &order) && !writing) map->setOrder(order);
    const int type = map->maptype;
    char text[128];
    if (type != MAPPING_POLYNOMIAL) {
        file.addComment("# -- non-linear mapping coefficients --");
        const bool quadNum = type == MAPPING_NONLINEAR_MIX2_1 || type == MAPPING_NONLINEAR2;
        const bool quadDen = type == MAPPING_NONLINEAR_MIX1_2 || type == MAPPING_NONLINEAR2;
        const CoeffKey keys[] = {{"a00", &MAPPING_FXN_2D::a00}, {"a01", &MAPPING_FXN_2D::a01},
                                 {"a03", &MAPPING_FXN_2D::a03}, {"a04", &MAPPING_FXN_2D::a04},
                                 {"a05", &MAPPING_FXN_2D::a05}, {"a06", &MAPPING_FXN_2D::a06},
                                 {"a10", &MAPPING_FXN_2D::a10}, {"a11", &MAPPING_FXN_2D::a11},
                                 {"a13", &MAPPING_FXN_2D::a13}, {"a14", &MAPPING_FXN_2D::a14},
                                 {"a15", &MAPPING_FXN_2D::a15}, {"a16", &MAPPING_FXN_2D::a16},
                                 {"a30", &MAPPING_FXN_2D::a30}, {"a31", &MAPPING_FXN_2D::a31},
                                 {"a33", &MAPPING_FXN_2D::a33}, {"a34", &MAPPING_FXN_2D::a34},
                                 {"a35", &MAPPING_FXN_2D::a35}, {"a36", &MAPPING_FXN_2D::a36}};
        for (int i = 0; i < 18; i++) {
            const bool secondHalf = i % 6 >= 3;
            if (secondHalf && i < 12 && !quadNum) continue;
            if (secondHalf && i >= 12 && !quadDen) continue;
            file.serialize(keys[i].key, &(map->*keys[i].field));
        }
    } else {
        std::snprintf(text, sizeof(text), "# using linear (polynominal) mapping of degree %d",
                      map->maporder);
        file.addComment(text);
        file.addComment("# -- coefficients for mapping onto Ox --");
        const int nx = std::clamp(map->px_count, 0, MaxMappingCoeffs);
        const int ny = std::clamp(map->py_count, 0, MaxMappingCoeffs);
        for (int i = 0; i < nx; i++) {
            std::snprintf(text, sizeof(text), "px%02d", i);
            file.serialize(text, &map->px[i]);
        }
        file.addComment("# -- coefficients for mapping onto Oy --");
        for (int i = 0; i < ny; i++) {
            std::snprintf(text, sizeof(text), "py%02d", i);
            file.serialize(text, &map->py[i]);
        }
    }
    file.serialize("magnification", &map->magnification);
    file.serialize("rotation", &map->rotation);
    file.serialize("obj_x_offset", &map->obj_x_offset);
    file.serialize("obj_y_offset", &map->obj_y_offset);
    file.serialize("dest_img_width", &map->dest_img_width);
    file.serialize("dest_img_height", &map->dest_img_height);
    if (group && group[0]) file.endGroup();
    return writing || found;
}

bool PIV::SaveProjectionMatrix(const MAPPING_FXN_2D* map, const char* fileName, const char* group) {
    if (!map || !fileName || !fileName[0]) return false;
    ASCIIParFile file(fileName, ASCIIParFile::WRITE);
    if (!file.isValid()) {
        DebugPrint("Trouble creating coefficient file '%s'", fileName);
        return false;
    }
    MAPPING_FXN_2D copy = *map;
    SerializeProjectionMatrix(file, &copy, group);
    if (file.close() == 0) {
        DebugPrint("Trouble creating coefficient file '%s'", fileName);
        return false;
    }
    return true;
}

bool PIV::ReadProjectionMatrix(MAPPING_FXN_2D* map, const char* fileName, const char* group) {
    if (!map || !fileName || !fileName[0]) return false;
    ASCIIParFile file(fileName, ASCIIParFile::READ);
    if (!file.isValid()) return false;
    return SerializeProjectionMatrix(file, map, group);
}

void PIV::PrintProjectionMatrix(const MAPPING_FXN_2D* map, std::FILE* out, const char* prefix) {
    if (!map || !out) return;
    if (!prefix) prefix = "";
    auto line = [&](const char* key, double v) {
        std::fprintf(out, "\t%s%s = %g\n", prefix, key, v);
    };
    line("maptype", map->maptype);
    line("maporder", map->maporder);
    if (map->maptype != MAPPING_POLYNOMIAL) {
        const double v[18] = {map->a00, map->a01, map->a03, map->a04, map->a05, map->a06,
                              map->a10, map->a11, map->a13, map->a14, map->a15, map->a16,
                              map->a30, map->a31, map->a33, map->a34, map->a35, map->a36};
        const char* names[18] = {"a00", "a01", "a03", "a04", "a05", "a06", "a10", "a11", "a13",
                                 "a14", "a15", "a16", "a30", "a31", "a33", "a34", "a35", "a36"};
        for (int i = 0; i < 18; i++) line(names[i], v[i]);
    } else {
        char key[16];
        for (int i = 0; i < std::clamp(map->px_count, 0, MaxMappingCoeffs); i++) {
            std::snprintf(key, sizeof(key), "px%02d", i);
            line(key, map->px[i]);
        }
        for (int i = 0; i < std::clamp(map->py_count, 0, MaxMappingCoeffs); i++) {
            std::snprintf(key, sizeof(key), "py%02d", i);
            line(key, map->py[i]);
        }
    }
    line("magnification", map->magnification);
    line("rotation", map->rotation);
    line("obj_x_offset", map->obj_x_offset);
    line("obj_y_offset", map->obj_y_offset);
    line("dest_img_width", map->dest_img_width);
    line("dest_img_height", map->dest_img_height);
    line("im_x_offset", map->obj_x_offset * map->magnification);
    line("im_y_offset", map->obj_y_offset * map->magnification);
}

bool PIV::IsValidMapping(const MAPPING_FXN_2D* map) {
    if (!map) return false;
    // Written as !(a == b) so that NaN counts as differing.
    auto differs = [](double v, double from) { return !(v == from); };
    if (map->maptype != MAPPING_POLYNOMIAL) {
        if (differs(map->a00, 1.0) || differs(map->a11, 1.0)) return true;
        const double zeros[] = {map->a01, map->a03, map->a04, map->a05, map->a06,
                                map->a10, map->a13, map->a14, map->a15, map->a16};
        return std::any_of(std::begin(zeros), std::end(zeros),
                           [&](double v) { return differs(v, 0.0); });
    }
    const int n = std::min(map->px_count, MaxMappingCoeffs);
    if (n < 1) return false;
    for (int i = 0; i < n; i++)
        if (differs(map->px[i], 0.0) || differs(map->py[i], 0.0)) return true;
    return false;
}

bool PIV::CombineProjectionMatrices(const MAPPING_FXN_2D* a, const MAPPING_FXN_2D* b,
                                    MAPPING_FXN_2D* result, double weight) {
    if (!a || !b || !result || a->maptype != b->maptype || a->px_count != b->px_count ||
        a->py_count != b->py_count)
        return false;
    MAPPING_FXN_2D r = *a;
    auto mix = [weight](double u, double v) { return (1.0 - weight) * u + weight * v; };
    double MAPPING_FXN_2D::*fields[] = {
        &MAPPING_FXN_2D::a00, &MAPPING_FXN_2D::a01, &MAPPING_FXN_2D::a03, &MAPPING_FXN_2D::a04,
        &MAPPING_FXN_2D::a05, &MAPPING_FXN_2D::a06, &MAPPING_FXN_2D::a10, &MAPPING_FXN_2D::a11,
        &MAPPING_FXN_2D::a13, &MAPPING_FXN_2D::a14, &MAPPING_FXN_2D::a15, &MAPPING_FXN_2D::a16,
        &MAPPING_FXN_2D::a30, &MAPPING_FXN_2D::a31, &MAPPING_FXN_2D::a33, &MAPPING_FXN_2D::a34,
        &MAPPING_FXN_2D::a35, &MAPPING_FXN_2D::a36};
    for (auto f : fields) r.*f = mix(a->*f, b->*f);
    for (int i = 0; i < MaxMappingCoeffs; i++) {
        r.px[i] = mix(a->px[i], b->px[i]);
        r.py[i] = mix(a->py[i], b->py[i]);
    }
    *result = r;
    return true;
}

bool PIV::ComputeInverseProjectionMatrix(const MAPPING_FXN_2D* map, MAPPING_FXN_2D* result) {
    if (!map || !result) return false;
    MAPPING_FXN_2D r = *map;
    if (map->maptype == MAPPING_NONLINEAR1) {
        // A homography: the inverse of its 3 x 3 matrix, scaled to a33 = 1.
        const double h[3][3] = {{map->a00, map->a01, map->a03},
                                {map->a10, map->a11, map->a13},
                                {map->a30, map->a31, map->a33}};
        double inv[3][3];
        for (int i = 0; i < 3; i++)
            for (int j = 0; j < 3; j++) {
                const int i1 = (j + 1) % 3, i2 = (j + 2) % 3, j1 = (i + 1) % 3, j2 = (i + 2) % 3;
                inv[i][j] = h[i1][j1] * h[i2][j2] - h[i1][j2] * h[i2][j1];
            }
        const double det = h[0][0] * inv[0][0] + h[0][1] * inv[1][0] + h[0][2] * inv[2][0];
        if (det == 0.0 || inv[2][2] == 0.0 || !std::isfinite(det)) return false;
        const double s = inv[2][2];
        r.a00 = inv[0][0] / s;
        r.a01 = inv[0][1] / s;
        r.a03 = inv[0][2] / s;
        r.a10 = inv[1][0] / s;
        r.a11 = inv[1][1] / s;
        r.a13 = inv[1][2] / s;
        r.a30 = inv[2][0] / s;
        r.a31 = inv[2][1] / s;
        r.a33 = 1.0;
        *result = r;
        return true;
    }
    // Any other form: a polynomial fitted to a grid of its own samples.
    const int w = map->dest_img_width > 1 ? map->dest_img_width : 512;
    const int h = map->dest_img_height > 1 ? map->dest_img_height : 512;
    const int order = map->maptype == MAPPING_POLYNOMIAL ? std::max(1, map->maporder) : 3;
    std::vector<double> x, y, X, Y;
    for (int j = 0; j <= 20; j++)
        for (int i = 0; i <= 20; i++) {
            const double u = (w - 1) * i / 20.0, v = (h - 1) * j / 20.0;
            double mx, my;
            map->mappedPoint(u, v, mx, my);
            x.push_back(mx);
            y.push_back(my);
            X.push_back(u);
            Y.push_back(v);
        }
    LinearLsqFit2D fx, fy;
    fx.setFitOrder(order);
    fy.setFitOrder(order);
    const int n = static_cast<int>(x.size());
    if (!fx.fitToData(x.data(), y.data(), X.data(), n) ||
        !fy.fitToData(x.data(), y.data(), Y.data(), n))
        return false;
    r.maptype = MAPPING_POLYNOMIAL;
    r.setOrder(order);
    std::memset(r.px, 0, sizeof(r.px));
    std::memset(r.py, 0, sizeof(r.py));
    std::copy(fx.coefficients(), fx.coefficients() + r.px_count, r.px);
    std::copy(fy.coefficients(), fy.coefficients() + r.py_count, r.py);
    *result = r;
    return true;
}
