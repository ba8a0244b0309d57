#include "gaussfit2d.h"

#include <algorithm>
#include <cmath>

GaussFit2D::GaussFit2D() : m_model(GaussFxn2D), m_start(), m_error("GaussFit2D") {
    setStartParams(1.0, 0.0, 0.0, 1.0, 1.0, 0.0);
}

void GaussFit2D::setFitType(int mask) {
    switch (mask) {
        case 63:
            m_model = GaussFxn2D_withRotation;
            break;
        case 95:
            m_model = GaussFxn2D_withOffset;
            break;
        case 25:
            m_model = GaussFxn2D_fixedPos;
            break;
        default:
            m_model = GaussFxn2D;
            break;
    }
}

int GaussFit2D::parameterCount() const {
    switch (m_model) {
        case GaussFxn2D_withRotation:
        case GaussFxn2D_withOffset:
            return 6;
        case GaussFxn2D_fixedPos:
            return 3;
        default:
            return 5;
    }
}

void GaussFit2D::setStartParams(double amplitude, double cx, double cy, double wx, double wy,
                                double offset) {
    m_start = GAUSSFIT2D_PARAMS();
    m_start.amplitude = amplitude;
    m_start.offset = offset;
    m_start.widthX = wx;
    m_start.widthY = wy;
    if (m_model == GaussFxn2D_fixedPos) {
        m_start.cx = cx;
        m_start.cy = cy;
    } else {
        m_start.cx = double(int(cx + 0.5));
        m_start.cy = double(int(cy + 0.5));
    }
}

// The free parameters of each model in the order the minimiser sees them;
// what a model does not free stays at its start value.
void GaussFit2D::unpack(const double* p, GAUSSFIT2D_PARAMS& out) const {
    out = m_start;
    out.amplitude = p[0];
    if (m_model == GaussFxn2D_fixedPos) {
        out.widthX = p[1];
        out.widthY = p[2];
        return;
    }
    out.cx = p[1];
    out.cy = p[2];
    out.widthX = p[3];
    out.widthY = p[4];
    if (m_model == GaussFxn2D_withRotation) out.rotation = p[5];
    if (m_model == GaussFxn2D_withOffset) out.offset = p[5];
}

int GaussFit2D::residuals(void* user, int m, int, const double* p, double* fvec, int) {
    const GaussFit2D& self = *static_cast<const GaussFit2D*>(user);
    GAUSSFIT2D_PARAMS q;
    self.unpack(p, q);
    const double c = std::cos(q.rotation), s = std::sin(q.rotation);
    const double ax = 0.5 / (q.widthX * q.widthX), ay = 0.5 / (q.widthY * q.widthY);
    const PIV::LmFitPoints& pts = self.m_points;
    for (int i = 0; i < m; i++) {
        const double dx = pts.x[size_t(i)] - q.cx, dy = pts.y[size_t(i)] - q.cy;
        const double u = c * dx + s * dy, v = -s * dx + c * dy;
        fvec[i] =
            q.offset + q.amplitude * std::exp(-(ax * u * u + ay * v * v)) - pts.value[size_t(i)];
    }
    return 0;
}

bool GaussFit2D::doFit(const PixelGroup& group, GAUSSFIT2D_PARAMS* result) {
    return PIV::Guarded(m_error, "doFit()", [&] {
        if (group.count < 9 || int(group.pixels.size()) < 9) {
            m_error.setMessage("doFit() - area too small: %d pixels ", group.count);
            throw PIVerror::OPERATION_FAILED;
        }
        if (group.width() < 2 || group.height() < 2) {
            m_error.setMessage("doFit() - region is a line of %dx%d pixels", group.width(),
                               group.height());
            throw PIVerror::OPERATION_FAILED;
        }
        m_points.clear();
        m_points.reserve(group.count);
        for (const PIXEL_VALUE& p : group.pixels) m_points.add(p.x, p.y, p.value, 1.0);
        // A quarter of the region's extent is about the width of a particle
        // image that fills it down to the detection level.
        const double wx = std::max(0.5, 0.25 * group.width());
        const double wy = std::max(0.5, 0.25 * group.height());
        setStartParams(group.maximum, group.cx, group.cy, wx, wy, 0.0);
        if (!doActualFit(result)) throw PIVerror::OPERATION_FAILED;
    });
}

bool GaussFit2D::doFit(const DATA_REGION& region, GAUSSFIT2D_PARAMS* result) {
    return PIV::Guarded(m_error, "doFit()", [&] {
        if (!region.values) throw PIVerror::INVALID_POINTER;
        if (region.width < 1 || region.height < 1 || region.stride < region.width) {
            m_error.setMessage("doFit() - region of %dx%d values, %d a row", region.width,
                               region.height, region.stride);
            throw PIVerror::BAD_DIMENSIONS;
        }
        if (region.width * region.height < 9) {
            m_error.setMessage("doFit() - area too small: %d pixels ",
                               region.width * region.height);
            throw PIVerror::OPERATION_FAILED;
        }
        m_points.clear();
        m_points.reserve(region.width * region.height);
        int top = 0;
        for (int j = 0; j < region.height; j++)
            for (int i = 0; i < region.width; i++) {
                const float v = region.values[size_t(j) * size_t(region.stride) + size_t(i)];
                if (m_points.count == 0 || v > m_points.value[size_t(top)]) top = m_points.count;
                m_points.add(region.x0 + i, region.y0 + j, v, 1.0);
            }
        const double wx = std::max(0.5, 0.25 * region.width),
                     wy = std::max(0.5, 0.25 * region.height);
        setStartParams(m_points.value[size_t(top)], m_points.x[size_t(top)],
                       m_points.y[size_t(top)], wx, wy, 0.0);
        if (!doActualFit(result)) throw PIVerror::OPERATION_FAILED;
    });
}

bool GaussFit2D::doFit(const BLOB_INFO* blob, GAUSSFIT2D_PARAMS* result) {
    return PIV::Guarded(m_error, "doFit()", [&] {
        if (!blob || (!blob->pixels && blob->count > 0)) throw PIVerror::INVALID_POINTER;
        if (blob->count < 9) {
            m_error.setMessage("doFit() - area too small: %d pixels ", blob->count);
            throw PIVerror::OPERATION_FAILED;
        }
        m_points.clear();
        m_points.reserve(blob->count);
        int left = blob->pixels[0].x, right = left, top = blob->pixels[0].y, bottom = top;
        for (int i = 0; i < blob->count; i++) {
            const PIXEL_VALUE& p = blob->pixels[i];
            m_points.add(p.x, p.y, p.value, 1.0);
            left = std::min(left, p.x);
            right = std::max(right, p.x);
            top = std::min(top, p.y);
            bottom = std::max(bottom, p.y);
        }
        setStartParams(blob->peak, blob->cx, blob->cy, std::max(0.5, 0.25 * (right - left + 1)),
                       std::max(0.5, 0.25 * (bottom - top + 1)), 0.0);
        if (!doActualFit(result)) throw PIVerror::OPERATION_FAILED;
    });
}

bool GaussFit2D::doFit(const float* x, const float* y, const float* values, int n,
                       GAUSSFIT2D_PARAMS* result) {
    return PIV::Guarded(m_error, "doFit()", [&] {
        if (!x || !y || !values) throw PIVerror::INVALID_POINTER;
        if (n < 9) {
            m_error.setMessage("doFit() - area too small: %d pixels ", n);
            throw PIVerror::OPERATION_FAILED;
        }
        m_points.clear();
        m_points.reserve(n);
        for (int i = 0; i < n; i++) m_points.add(x[i], y[i], values[i], 1.0);
        if (!doActualFit(result)) throw PIVerror::OPERATION_FAILED;
    });
}

bool GaussFit2D::doActualFit(GAUSSFIT2D_PARAMS* result) {
    const int n = parameterCount();
    double p[6] = {m_start.amplitude, m_start.cx, m_start.cy, m_start.widthX, m_start.widthY, 0.0};
    if (m_model == GaussFxn2D_fixedPos) {
        p[1] = m_start.widthX;
        p[2] = m_start.widthY;
    }
    if (m_model == GaussFxn2D_withRotation) p[5] = m_start.rotation;
    if (m_model == GaussFxn2D_withOffset) p[5] = m_start.offset;
    const PIV::LmResult r =
        PIV::LmMinimize(&GaussFit2D::residuals, this, m_points.count, n, p, m_work);
    GAUSSFIT2D_PARAMS out;
    unpack(p, out);
    out.widthX = std::fabs(out.widthX);
    out.widthY = std::fabs(out.widthY);
    out.error = r.error;
    out.evaluations = r.nfev;
    const bool finite = std::isfinite(out.amplitude) && std::isfinite(out.cx) &&
                        std::isfinite(out.cy) && std::isfinite(out.widthX) &&
                        std::isfinite(out.widthY) && std::isfinite(out.offset);
    if (!r.good() || !finite || out.widthX == 0.0 || out.widthY == 0.0) {
        m_error.setMessage("doFit() - no convergence (info %d)", r.info);
        return false;
    }
    if (result) *result = out;
    return true;
}
