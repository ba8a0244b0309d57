// The peak fits beyond the three-point ones: the 3x3 least-squares
// paraboloid, the centroid, the Whittaker reconstruction, the 2-D Gaussian
// with its auto shape; and the search for the self-correlation peak of
// double-exposed images.
#include <algorithm>
#include <cmath>

#include "piv_messages.h"
#include "piv_peak2d.h"
#include "piv_peak2d_lsq.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

// The negated value at t of the periodic band-limited reconstruction of
// values[0..n): minimising it finds the maximum between the samples.
double WhittakerFxn(double t, const double* values, int n) {
    const double nearest = std::round(t);
    if (std::fabs(t - nearest) < 0.0001) {
        int i = int(std::fmod(nearest, double(n)));
        if (i < 0) i += n;
        return -values[i];
    }
    // sin(pi (t - i)) = (-1)^i sin(pi t): one sine for the whole sum.
    const double s = std::sin(kPi * t);
    double sum = 0.0;
    for (int i = 0; i < n; i++) {
        const double term = values[i] / std::tan(kPi * (t - i) / n);
        sum += (i & 1) ? -term : term;
    }
    return -s * sum / n;
}

// Brent's minimisation of WhittakerFxn between a and c, started at b: golden
// sections where parabolic steps do not help. It does no bracketing of its
// own; the caller's interval is trusted.
double Brent2(double a, double b, double c, double& xmin, const double* values, int n, double tol,
              int maxIter) {
    const double golden = 0.381966, zeps = 1.0e-10;
    double lo = std::min(a, c), hi = std::max(a, c);
    double x = b, w = b, v = b;
    double fx = WhittakerFxn(x, values, n), fw = fx, fv = fx;
    double d = 0.0, e = 0.0;
    for (int iter = 0; iter < maxIter; iter++) {
        const double xm = 0.5 * (lo + hi);
        const double tol1 = tol * std::fabs(x) + zeps, tol2 = 2.0 * tol1;
        if (std::fabs(x - xm) <= tol2 - 0.5 * (hi - lo)) break;
        bool golden_step = true;
        if (std::fabs(e) > tol1) {
            double r = (x - w) * (fx - fv);
            double q = (x - v) * (fx - fw);
            double p = (x - v) * q - (x - w) * r;
            q = 2.0 * (q - r);
            if (q > 0.0) p = -p;
            q = std::fabs(q);
            const double eOld = e;
            e = d;
            if (!(std::fabs(p) >= std::fabs(0.5 * q * eOld) || p <= q * (lo - x) ||
                  p >= q * (hi - x))) {
                d = p / q;
                const double u = x + d;
                if (u - lo < tol2 || hi - u < tol2) d = std::copysign(tol1, xm - x);
                golden_step = false;
            }
        }
        if (golden_step) {
            e = x >= xm ? lo - x : hi - x;
            d = golden * e;
        }
        const double u = std::fabs(d) >= tol1 ? x + d : x + std::copysign(tol1, d);
        const double fu = WhittakerFxn(u, values, n);
        if (fu <= fx) {
            (u >= x ? lo : hi) = x;
            v = w;
            fv = fw;
            w = x;
            fw = fx;
            x = u;
            fx = fu;
        } else {
            (u < x ? lo : hi) = u;
            if (fu <= fw || w == x) {
                v = w;
                fv = fw;
                w = u;
                fw = fu;
            } else if (fu <= fv || v == x || v == w) {
                v = u;
                fv = fu;
            }
        }
    }
    xmin = x;
    return fx;
}

// The 2-D Gaussian of the peak fits:
// p5 exp(-8 dx^2 / p2^2 - 8 dy^2 / p3^2 + p4 / |p2 p3| dx dy), dx = x - p0, dy = y - p1.
inline double Gauss2D(double dx, double dy, double wx, double wy, double orient, double height) {
    return height * std::exp(-8.0 * dx * dx / (wx * wx) - 8.0 * dy * dy / (wy * wy) +
                             orient / std::fabs(wx * wy) * dx * dy);
}

int GaussResiduals(void* user, int m, int, const double* p, double* fvec, int) {
    const PIV::LmFitPoints& pts = *static_cast<const PIV::LmFitPoints*>(user);
    if (p[2] == 0.0 || p[3] == 0.0) return -1;
    for (int k = 0; k < m; k++) {
        fvec[k] = pts.value[k] * pts.weight[k] -
                  Gauss2D(pts.x[k] - p[0], pts.y[k] - p[1], p[2], p[3], p[4], p[5]);
        if (!std::isfinite(fvec[k])) return -1;
    }
    return 0;
}

// The same model centred on the origin: width x, width y, orientation, height.
int GaussResidualsNoOffset(void* user, int m, int, const double* p, double* fvec, int) {
    const PIV::LmFitPoints& pts = *static_cast<const PIV::LmFitPoints*>(user);
    if (p[0] == 0.0 || p[1] == 0.0) return -1;
    for (int k = 0; k < m; k++) {
        fvec[k] =
            pts.value[k] * pts.weight[k] - Gauss2D(pts.x[k], pts.y[k], p[0], p[1], p[2], p[3]);
        if (!std::isfinite(fvec[k])) return -1;
    }
    return 0;
}

}  // namespace

bool PIV_PeakDetect2D::lsq3x3PeakFit(int row, int col, int index) {
    CORR_PEAK_DATA& p = m_peaks[index];
    const int w = m_size.width, h = m_size.height;
    p.status = PIV::PEAK_NOT_FITTED;
    p.fitPoints = 3;
    p.subX = p.subY = 0.0f;
    p.x = float(signedIndex(col, w));
    p.y = float(signedIndex(row, h));
    getPeakNeighbors3x3(index, row, col, p);

    float v[9];
    bool useWeights = p.weighted;
    if (useWeights) {
        const float centre = p.value[0] * p.weight[0];
        for (int k = 1; k < 9 && useWeights; k++)
            if (p.value[k] * p.weight[k] > centre) useWeights = false;
    }
    for (int k = 0; k < 9; k++)
        v[k] = PIV::SafeLog(useWeights ? p.value[k] * p.weight[k] : p.value[k]);
    const float c = v[0], n = v[1], s = v[2], e = v[3], wv = v[4];

    if (p.fitPoints == 3) {
        float sx = 0.0f, sy = 0.0f;
        const float D = PIV::Lsq3x3Paraboloid(v, sx, sy);
        p.shapeExtra = D;
        if (D != 0.0f && std::fabs(sx) <= 0.5f * float(w) && std::fabs(sy) <= 0.5f * float(h)) {
            p.subX = sx;
            p.subY = sy;
            p.x += sx;
            p.y += sy;
            p.status = PIV::PEAK_GOOD;
            return true;
        }
    }
    // The cross alone: a three-point Gaussian on each axis.
    auto axis = [c](float lower, float higher, float& shift) {
        if (lower == higher) {
            shift = 0.0f;
            return c != lower;
        }
        const float den = 2.0f * (lower - 2.0f * c + higher);
        if (den == 0.0f) return false;
        shift = (lower - higher) / den;
        return true;
    };
    float sx = 0.0f, sy = 0.0f;
    if (!axis(n, s, sy) || !axis(wv, e, sx)) {
        p.status = PIV::PEAK_FIT_FAILED;
        return false;
    }
    p.subX = sx;
    p.subY = sy;
    if (std::fabs(sx) > 0.5f * float(w) || std::fabs(sy) > 0.5f * float(h)) {
        // Kept as a usable result; the caller sees the runaway shift.
        p.status = PIV::PEAK_FIT_FAILED;
        return true;
    }
    p.x += sx;
    p.y += sy;
    p.status = PIV::PEAK_GOOD;
    return true;
}

bool PIV_PeakDetect2D::centroidPeakFit(int row, int col, int index) {
    CORR_PEAK_DATA& p = m_peaks[index];
    const int w = m_size.width, h = m_size.height;
    p.status = PIV::PEAK_NOT_FITTED;
    p.subX = p.subY = 0.0f;
    int n = std::min(m_fitSize, 21);
    if (n >= std::min(w, h)) n = std::min(w, h) - 1;
    const int lo = -(n - 1) / 2, hi = n / 2;
    const bool weighted = m_peakWeightingEnabled && !(row == 0 && col == 0);
    p.weighted = weighted;
    const float centre = planeAt(row, col);
    double s0 = 0.0, s1 = 0.0, s2 = 0.0;
    for (int dy = lo; dy <= hi; dy++) {
        for (int dx = lo; dx <= hi; dx++) {
            const float v = planeAt(row + dy, col + dx);
            if (!(v > 0.0f) || v > centre) continue;
            const double vw = double(v) * (weighted ? weightAt(row + dy, col + dx) : 1.0f);
            s0 += vw;
            s1 += vw * dx;
            s2 += vw * dy;
        }
    }
    if (s0 == 0.0) {
        p.status = PIV::PEAK_FIT_FAILED;
        return false;
    }
    p.subX = float(s1 / s0);
    p.subY = float(s2 / s0);
    p.x = float(signedIndex(col, w)) + p.subX;
    p.y = float(signedIndex(row, h)) + p.subY;
    p.status = PIV::PEAK_GOOD;
    return true;
}

bool PIV_PeakDetect2D::whittakerFit(int row, int col, int index) {
    CORR_PEAK_DATA& p = m_peaks[index];
    if (!m_plane) {
        DebugPrintExt(2, "whittakerFit() - no data");
        p.status = PIV::PEAK_FIT_FAILED;
        return false;
    }
    if (m_min == m_max) {
        DebugPrintExt(2, "whittakerFit() - constant value data");
        p.status = PIV::PEAK_FIT_FAILED;
        return false;
    }
    m_peakWeightingEnabled = true;
    const int w = m_size.width, h = m_size.height;
    if (w % 2 == 0 && h % 2 == 0)
        stdGaussPeakFit(row, col, index);
    else
        lsq3x3PeakFit(row, col, index);

    bool good = true;
    m_line.resize(size_t(std::max(w, h)));
    if (w % 2 == 0) {
        const float* line = m_plane + size_t(row) * w;
        for (int i = 0; i < w; i++) m_line[i] = double(line[i]) * m_colWeights[i];
        good = whittakerLine(w, col, col + p.subX, 0.5, p.x, p.subX, p.height) && good;
    }
    if (h % 2 == 0) {
        for (int j = 0; j < h; j++)
            m_line[j] = double(m_plane[size_t(j) * w + col]) * m_rowWeights[j];
        // Twice the interval of the x axis, as the detector has always searched.
        good = whittakerLine(h, row, row + p.subY, 1.0, p.y, p.subY, p.height) && good;
    }
    p.status = good ? PIV::PEAK_GOOD : PIV::PEAK_FIT_FAILED;
    return good;
}

bool PIV_PeakDetect2D::whittakerLine(int n, int index, double start, double reach, float& position,
                                     float& sub, float& height) {
    double best = start;
    const double f = Brent2(start - reach, start, start + reach, best, m_line.data(), n,
                            m_cfg.CutOff, std::max(m_cfg.MaxIter, 1));
    const double signedBest = index >= n / 2 ? best - n : best;
    if (!(std::fabs(signedBest) < 0.5 * n)) return false;
    position = float(signedBest);
    sub = float(best - index);
    height = float(-f);
    return true;
}

bool PIV_PeakDetect2D::fitPointsUsable(const char* who, int count, float lo, float hi) const {
    if (double(hi) - double(lo) < 1e-18) {
        DebugPrintExt(2, "%s - no fit possible (constant correlation values)", who);
        return false;
    }
    if (count < 9) {
        DebugPrintExt(2, "%s - not enough points (%d) for fit", who, count);
        return false;
    }
    if (lo < 0.0f) {
        DebugPrintExt(2, "%s - minimum correlation < 0", who);
        return false;
    }
    return true;
}

int PIV_PeakDetect2D::fitRadiusFor(const SIZE2D& size) const {
    int radius = std::clamp(m_fitRadius, 1, kMaxFitRadius);
    radius = std::min(radius, std::min(size.width, size.height) / 2);
    return std::max(radius, 1);
}

int PIV_PeakDetect2D::collectFitPoints(const float* plane, int row, int col, int radius, float& lo,
                                       float& hi) {
    const int w = m_size.width, h = m_size.height;
    const bool weighted = plane == m_plane && m_peakWeightingEnabled && !(row == 0 && col == 0);
    m_fitPoints.clear();
    lo = hi = plane[size_t(row) * w + col];
    for (int dy = -radius; dy <= radius; dy++) {
        for (int dx = -radius; dx <= radius; dx++) {
            if (std::hypot(double(dx), double(dy)) > radius) continue;
            int r = (row + dy) % h, c = (col + dx) % w;
            if (r < 0) r += h;
            if (c < 0) c += w;
            const float v = plane[size_t(r) * w + c];
            lo = std::min(lo, v);
            hi = std::max(hi, v);
            m_fitPoints.add(col + dx, row + dy, v,
                            weighted ? m_rowWeights[r] * m_colWeights[c] : 1.0);
        }
    }
    return m_fitPoints.count;
}

bool PIV_PeakDetect2D::nonLinearFit(int row, int col, int index) {
    CORR_PEAK_DATA& p = m_peaks[index];
    const int w = m_size.width, h = m_size.height;
    p.status = PIV::PEAK_NOT_FITTED;
    const int radius = fitRadiusFor(m_size);
    m_fitRadius = radius;
    float lo = 0.0f, hi = 0.0f;
    const int n = collectFitPoints(m_plane, row, col, radius, lo, hi);
    if (!fitPointsUsable("nonLinearFit()", n, lo, hi)) {
        p.status = PIV::PEAK_FIT_FAILED;
        return false;
    }
    DebugPrintExt(4, "nonLinearFit() - Using %d points (radius=%d, peakfitsize=%d)", n, radius,
                  m_fitSize);

    double param[6] = {double(col), double(row), 2.0, 2.0, 0.0, double(planeAt(row, col))};
    if (m_haveAutoShape) {
        param[2] = m_autoShape.x;
        param[3] = m_autoShape.y;
        param[4] = m_autoShape.z;
    }
    const PIV::LmResult fit = PIV::LmMinimize(GaussResiduals, &m_fitPoints, n, 6, param, m_lm);
    const double xs = col >= w / 2 ? param[0] - w : param[0];
    const double ys = row >= h / 2 ? param[1] - h : param[1];
    if (!fit.good() || !(std::fabs(xs) < 0.5 * w) || !(std::fabs(ys) < 0.5 * h)) {
        DebugPrintExt(2, "nonLinearFit() - for peak %d failed", index);
        p.status = PIV::PEAK_FIT_FAILED;
        return false;
    }
    p.x = float(xs);
    p.y = float(ys);
    p.subX = float(param[0] - col);
    p.subY = float(param[1] - row);
    p.shapeX = float(std::fabs(param[2]));
    p.shapeY = float(std::fabs(param[3]));
    p.shapeExtra = float(param[4]);
    p.height = float(param[5]);
    DebugPrintExt(3,
                  "  peak%d: xdim=%g ydim=%g corr=%g  autoShape: xdim=%g ydim=%g  pedestal=%g  "
                  "iter=%2d  info=%2d",
                  index, p.shapeX, p.shapeY, p.height, m_autoShape.x, m_autoShape.y, fit.error,
                  fit.nfev, fit.info);
    if (index == 0 && !checkPeakShape(p, 0.2f)) {
        DebugPrintExt(4,
                      "Need shape recalculation!  Peak%d: xdim=%.3f ydim=%.3f  AutoPeak: "
                      "xdim=%.3f ydim=%.3f",
                      index, p.shapeX, p.shapeY, m_autoShape.x, m_autoShape.y);
        m_haveAutoShape = false;
    }
    p.status = PIV::PEAK_GOOD;
    return true;
}

bool PIV_PeakDetect2D::checkPeakShape(const CORR_PEAK_DATA& peak, float tolerance) const {
    if (tolerance <= 0.0f || m_autoShape.x == 0.0f || m_autoShape.y == 0.0f) return false;
    return std::fabs(1.0f - peak.shapeX / m_autoShape.x) <= tolerance &&
           std::fabs(1.0f - peak.shapeY / m_autoShape.y) <= tolerance;
}

bool PIV_PeakDetect2D::calcAutoShape(const float* autoPlane, const SIZE2D& size) {
    if (m_cfg.Type != PIV::PEAKFIT_NONLIN_GAUSS || m_haveAutoShape) return true;
    DebugPrintExt(3, " PIV_PeakDetect2D::calcAutoShape() - recalculating");
    if (!autoPlane || size.width < 3 || size.height < 3) {
        m_error.setMessage("calcAutoShape() - no autocorrelation data!");
        m_error.handleError(PIVerror::OPERATION_FAILED, "calcAutoShape()");
        return false;
    }
    if (size.width != m_maskSize.width || size.height != m_maskSize.height)
        rebuildMaskAndWeights(size);
    m_size = size;
    const int radius = fitRadiusFor(size);
    float lo = 0.0f, hi = 0.0f;
    const int n = collectFitPoints(autoPlane, 0, 0, radius, lo, hi);
    if (!fitPointsUsable("calcAutoShape()", n, lo, hi)) return false;

    double param[4] = {2.0, 2.0, 0.0, 1.0};
    const PIV::LmResult fit =
        PIV::LmMinimize(GaussResidualsNoOffset, &m_fitPoints, n, 4, param, m_lm);
    if (!fit.good()) return false;
    m_autoShape = FPOINT3D{float(std::fabs(param[0])), float(std::fabs(param[1])), float(param[2])};
    m_haveAutoShape = true;
    return true;
}

bool PIV_PeakDetect2D::doPeakSwap(float y, float x, float radius) {
    if (radius <= 0.0f) radius = 0.5f;
    for (int i = 0; i < 3; i++) {
        if (std::hypot(m_peaks[i].y - y, m_peaks[i].x - x) < radius) {
            const CORR_PEAK_DATA self = m_peaks[i];
            for (int k = i; k < 2; k++) m_peaks[k] = m_peaks[k + 1];
            m_peaks[2] = self;
            return true;
        }
    }
    return false;
}

bool PIV_PeakDetect2D::findSelfCorrelation() {
    const int ox = m_offset.x, oy = m_offset.y;
    const int W = m_size.width, H = m_size.height;
    const float r = m_cfg.SelfCorrelation_Radius;
    if (m_cfg.ROI && m_cfg.ROI_Size.width > 0 && m_cfg.ROI_Size.height > 0 &&
        (std::abs(ox) > m_cfg.ROI_Size.width || std::abs(oy) > m_cfg.ROI_Size.height)) {
        m_error.setMessage("findSelfCorrelation() - self-correlation peak outside of ROI");
        m_error.handleError(PIVerror::OPERATION_FAILED, "findSelfCorrelation()");
        return false;
    }
    if (std::abs(oy) >= H || std::abs(ox) >= W) {
        m_error.setMessage("findSelfCorrelation() - no overlap, no self-correlation peak possible");
        m_error.handleError(PIVerror::OPERATION_FAILED, "findSelfCorrelation()");
        return false;
    }
    // Where the image meets itself: at minus the window offset, folded into
    // the periodic plane.
    int tx = -ox;
    if (ox > W / 2)
        tx = W - ox;
    else if (ox < -W / 2)
        tx = -W - ox;
    int ty = oy;
    if (-oy > H / 2)
        ty = H + oy;
    else if (-oy < -H / 2)
        ty = -H + oy;

    const bool halfX = std::abs(ox) == W / 2, halfY = std::abs(oy) == H / 2;
    const float hx = float(W / 2), ay = float(std::abs(oy));
    if (halfX && !halfY) {
        DebugPrintExt(3, " - Peak is split across the left and right edges");
        if (!doPeakSwap(float(ty), hx, r)) doPeakSwap(float(ty), -hx, r);
    } else if (halfY && !halfX) {
        DebugPrintExt(3, " - Peak is split across the top and bottom edges");
        if (!doPeakSwap(ay, float(tx), r)) doPeakSwap(-ay, float(tx), r);
    } else if (halfX && halfY) {
        DebugPrintExt(3, "findSelfCorrelation() - Peak is split at the corners");
        if (!doPeakSwap(ay, hx, r) && !doPeakSwap(-ay, hx, r) && !doPeakSwap(ay, -hx, r))
            doPeakSwap(-ay, -hx, r);
    } else {
        if (std::abs(oy) > H / 2 || std::abs(ox) > W / 2)
            DebugPrintExt(3,
                          " - Self-correlation peak is aliased\n - Peaks at (%g,%g),(%g,%g)  "
                          "Should be at (%g,%g)",
                          m_peaks[0].x, m_peaks[0].y, m_peaks[1].x, m_peaks[1].y, double(tx),
                          double(ty));
        else
            DebugPrintExt(
                3, " - Self-correlation peak is shifted normally - Peak should be at (%g,%g)",
                double(tx), double(ty));
        doPeakSwap(float(ty), float(tx), r);
    }
    return true;
}
