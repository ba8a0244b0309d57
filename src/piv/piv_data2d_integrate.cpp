// Line and area integrals of the field over the measuring shapes.
#include <cmath>
#include <vector>

#include "piv_data2d.h"

namespace {

// Path pieces are at most this many pixels long.
const double kPieceLength = 0.5;

}  // namespace

bool PIV_Data2D::velocityAt(double x, double y, int t, bool physical, double* u, double* v) const {
    const int nx = m_grid.nodes.width, ny = m_grid.nodes.height;
    const PIV_VECTOR* base = m_vectors.data();
    const double x0 = base[0].ix, y0 = base[0].iy;
    const double sx = nx > 1 ? base[1].ix - x0 : 1.0;
    const double sy = ny > 1 ? base[nx].iy - y0 : 1.0;
    if (sx == 0.0 || sy == 0.0) return false;
    // Outside the nodes the outermost ones reach on as constants.
    const double fi = std::fmin(std::fmax((x - x0) / sx, 0.0), nx - 1.0);
    const double fj = std::fmin(std::fmax((y - y0) / sy, 0.0), ny - 1.0);
    const int i0 = std::min(static_cast<int>(fi), std::max(nx - 2, 0));
    const int j0 = std::min(static_cast<int>(fj), std::max(ny - 2, 0));
    const double ax = fi - i0, ay = fj - j0;
    double weight = 0.0, su = 0.0, sv = 0.0;
    for (int dj = 0; dj <= 1; ++dj)
        for (int di = 0; di <= 1; ++di) {
            const int i = std::min(i0 + di, nx - 1), j = std::min(j0 + dj, ny - 1);
            const double w = (di ? ax : 1.0 - ax) * (dj ? ay : 1.0 - ay);
            const PIV_VECTOR& n = base[index2D(j, i, t)];
            if (w <= 0.0 || !(n.flag & VECTOR_ENABLED)) continue;
            weight += w;
            su += w * (physical ? n.u : n.dx);
            sv += w * (physical ? n.v : n.dy);
        }
    if (weight <= 0.0) return false;
    *u = su / weight;
    *v = sv / weight;
    return true;
}

bool PIV_Data2D::integratePath(int t, const FPOINT2D* points, int count, bool closed,
                               INTEGRATION_DATA& out, bool physical, const char* name) {
    out = INTEGRATION_DATA{};
    try {
        if (isNull()) throw PIVerror::DATA_IS_NULL;
        if (!points || count < (closed ? 3 : 2)) throw PIVerror::BAD_PARAMETERS;
        if (t < 0 || t >= std::max(m_grid.timeSteps, 1)) throw PIVerror::BAD_PARAMETERS;
        // Physical frame: grid units per pixel, y up.
        const PIVCONVERT_CFG& cv = m_params.convert;
        const double mx = physical && cv.LengthConversion[0] != 0.0 ? cv.LengthConversion[0] : 1.0;
        const double my = physical && cv.LengthConversion[1] != 0.0 ? cv.LengthConversion[1] : 1.0;
        double area2 = 0.0;
        const int segments = closed ? count : count - 1;
        for (int s = 0; s < segments; ++s) {
            const FPOINT2D p = points[s], q = points[(s + 1) % count];
            const double X0 = p.x / mx, Y0 = -p.y / my, X1 = q.x / mx, Y1 = -q.y / my;
            area2 += X0 * Y1 - X1 * Y0;
            const double pixels = std::hypot(q.x - p.x, q.y - p.y);
            const int pieces = std::max(1, static_cast<int>(std::ceil(pixels / kPieceLength)));
            const double dX = (X1 - X0) / pieces, dY = (Y1 - Y0) / pieces;
            for (int k = 0; k < pieces; ++k) {
                const double f = (k + 0.5) / pieces;
                double u, v;
                out.length += std::hypot(dX, dY);
                if (!velocityAt(p.x + f * (q.x - p.x), p.y + f * (q.y - p.y), t, physical, &u,
                                &v)) {
                    out.misses++;
                    continue;
                }
                out.samples++;
                out.circulation += u * dX + v * dY;
                out.entrainment += u * dY - v * dX;
            }
        }
        if (out.length <= 0.0) throw PIVerror::BAD_PARAMETERS;
        if (out.samples == 0) throw PIVerror::DATA_IS_NULL;
        if (closed) {
            // Counter-clockwise in the y-up frame: (dY, -dX) points out.
            if (area2 < 0.0) {
                out.circulation = -out.circulation;
                out.entrainment = -out.entrainment;
            }
            out.area = 0.5 * std::fabs(area2);
        }
    } catch (PIVerror::ErrorType code) {
        out = INTEGRATION_DATA{};
        m_error.handleError(code, name);
        return false;
    }
    return true;
}

bool PIV_Data2D::integrateLine(int t, FPOINT2D p1, FPOINT2D p2, INTEGRATION_DATA& out,
                               bool physical) {
    const FPOINT2D points[] = {p1, p2};
    return integratePath(t, points, 2, false, out, physical, "integrateLine()");
}

bool PIV_Data2D::integrateRect(int t, float left, float top, float width, float height,
                               INTEGRATION_DATA& out, bool physical) {
    const FPOINT2D points[] = {
        {left, top}, {left + width, top}, {left + width, top + height}, {left, top + height}};
    return integratePath(t, points, 4, true, out, physical, "integrateRect()");
}

bool PIV_Data2D::integrateEllipse(int t, float left, float top, float width, float height,
                                  INTEGRATION_DATA& out, bool physical) {
    const double a = 0.5 * width, b = 0.5 * height;
    const double cx = left + a, cy = top + b;
    // Corners about two pixels apart, at least 64: the chords lose far
    // less than a percent of the area.
    const int n =
        std::max(64, static_cast<int>(2.0 * M_PI * std::fmax(std::fabs(a), std::fabs(b)) / 2.0));
    std::vector<FPOINT2D> points(static_cast<size_t>(n));
    for (int k = 0; k < n; ++k) {
        const double phi = 2.0 * M_PI * k / n;
        points[size_t(k)] = {static_cast<float>(cx + a * std::cos(phi)),
                             static_cast<float>(cy + b * std::sin(phi))};
    }
    if (!integratePath(t, points.data(), n, true, out, physical, "integrateEllipse()"))
        return false;
    // The area of the ellipse itself, not of its polygon.
    const PIVCONVERT_CFG& cv = m_params.convert;
    const double mx = physical && cv.LengthConversion[0] != 0.0 ? cv.LengthConversion[0] : 1.0;
    const double my = physical && cv.LengthConversion[1] != 0.0 ? cv.LengthConversion[1] : 1.0;
    out.area = M_PI * std::fabs(a * b) / (mx * my);
    return true;
}

bool PIV_Data2D::integratePolygon(int t, const FPOINT2D* points, int count, INTEGRATION_DATA& out,
                                  bool physical) {
    return integratePath(t, points, count, true, out, physical, "integratePolygon()");
}
