// PIV_Data2D: the validation tests that compare a node with its neighbours
// (gradient, median, dynamic mean) and the replacement of rejected vectors.
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "piv_data2d.h"
#include "piv_data2d_outliers.h"
#include "piv_messages.h"

using PIV::Outliers::kInterpolated;
using PIV::Outliers::kRejected;
using PIV::Outliers::Reject;

namespace {

// Which corners a neighbourhood test looks at: three direct neighbours, five
// reaching two nodes along each edge, or none at all.
enum class Corners { Three, Five, None };

// Visits every node of the planes of the first z, one per time step, with the
// offsets of its neighbours: interior, then the edges (top, bottom, left,
// right), then the corners; with `cornersFirst` the corners lead.
template <typename Visit>
void VisitNeighbourhoods(int nx, int ny, int nz, int steps, Corners corners, bool cornersFirst,
                         Visit&& visit) {
    const long w = nx;
    const long interior[8] = {-w - 1, -w, -w + 1, -1, 1, w - 1, w, w + 1};
    const long top[5] = {-1, 1, w - 1, w, w + 1};
    const long bottom[5] = {-w - 1, -w, -w + 1, -1, 1};
    const long left[5] = {-w, -w + 1, 1, w, w + 1};
    const long right[5] = {-w - 1, -w, -1, w - 1, w};
    const long three[4][3] = {{1, w, w + 1}, {-1, w - 1, w}, {-w, -w + 1, 1}, {-w - 1, -w, -1}};
    const long five[4][5] = {{1, 2, w, w + 1, 2 * w},
                             {-1, -2, w, w - 1, 2 * w},
                             {1, 2, -w, 1 - w, -2 * w},
                             {-1, -2, -w, -w - 1, -2 * w}};
    for (int t = 0; t < steps; t++) {
        const long base = long(t) * w * ny * nz;
        const long cornerIndex[4] = {base, base + w - 1, base + (ny - 1) * w,
                                     base + (ny - 1) * w + w - 1};
        auto visitCorners = [&] {
            for (int c = 0; c < 4; c++) {
                if (corners == Corners::Three) visit(cornerIndex[c], three[c], 3);
                if (corners == Corners::Five) visit(cornerIndex[c], five[c], 5);
            }
        };
        if (cornersFirst) visitCorners();
        for (int j = 1; j < ny - 1; j++)
            for (int i = 1; i < nx - 1; i++) visit(base + j * w + i, interior, 8);
        for (int i = 1; i < nx - 1; i++) visit(base + i, top, 5);
        for (int i = 1; i < nx - 1; i++) visit(base + (ny - 1) * w + i, bottom, 5);
        for (int j = 1; j < ny - 1; j++) visit(base + j * w, left, 5);
        for (int j = 1; j < ny - 1; j++) visit(base + j * w + w - 1, right, 5);
        if (!cornersFirst) visitCorners();
    }
}

// The median test of one node against its enabled neighbours, for dx, dy
// and the length in turn; true when the node is to be rejected.
bool MedianRejects(const PIV_VECTOR* v, long node, const long* offsets, int n, bool normalized,
                   float threshold, float noiseFloor, int minNeighbours) {
    float xs[8], ys[8], ms[8];
    int count = 0;
    for (int i = 0; i < n; i++) {
        const PIV_VECTOR& o = v[node + offsets[i]];
        if (!(o.flag & VECTOR_ENABLED)) continue;
        xs[count] = o.dx;
        ys[count] = o.dy;
        ms[count] = std::hypot(o.dx, o.dy);
        count++;
    }
    if (count < minNeighbours) return false;
    const PIV_VECTOR& c = v[node];
    const float own[3] = {c.dx, c.dy, std::hypot(c.dx, c.dy)};
    float* lists[3] = {xs, ys, ms};
    for (int q = 0; q < 3; q++) {
        float work[8];
        std::copy(lists[q], lists[q] + count, work);
        const float m = PIV::Outliers::Median(work, count);
        float e = m - own[q];
        if (normalized) e /= PIV::Outliers::ResidualMedian(lists[q], count, m) + noiseFloor;
        if (std::fabs(e) > threshold) return true;
    }
    return false;
}

bool Edited(const PIV_VECTOR& v) {
    return (v.flag & VECTOR_EDITED) != 0;
}

}  // namespace

int PIV_Data2D::checkGradient(unsigned char* tags) {
    const OUTLIER_CFG& cfg = m_params.outlier;
    const float t = cfg.MaxDifference;
    if (!cfg.CheckDifference || !(t > 0.0f) || isNull()) return 0;
    if (!tags) {
        m_error.setMessage("checkGradient() - no tags area");
        return m_error.handleError(PIVerror::OPERATION_FAILED, "checkGradient()"), 0;
    }
    const int nx = m_grid.nodes.width, ny = m_grid.nodes.height;
    if (nx < 3 || ny < 3) {
        m_error.setMessage("checkGradient() - insufficient nodes (%dx%d)", nx, ny);
        return m_error.handleError(PIVerror::CORRUPT_DATA, "checkGradient()"), 0;
    }
    PIV_VECTOR* v = m_vectors.data();
    int count = 0;
    VisitNeighbourhoods(
        nx, ny, m_grid.nodes.depth, m_grid.timeSteps, Corners::Three, true,
        [&](long k, const long* offsets, int n) {
            PIV_VECTOR& c = v[k];
            if (Edited(c)) return;
            int steep = 0;
            for (int i = 0; i < n; i++) {
                const PIV_VECTOR& o = v[k + offsets[i]];
                if ((o.flag & VECTOR_ENABLED) && std::hypot(o.dx - c.dx, o.dy - c.dy) > t) steep++;
            }
            if (steep < n / 2) return;
            tags[k] = kRejected;
            Reject(c);
            count++;
        });
    DebugPrintExt(2, "  checkGradient(%g) %d bad vectors", double(t), count);
    return count;
}

int PIV_Data2D::checkMedian(unsigned char* tags) {
    const OUTLIER_CFG& cfg = m_params.outlier;
    const float t = cfg.MedianThreshold;
    if (!cfg.CheckMedian || !(t > 0.0f) || isNull()) return 0;
    if (!tags) {
        m_error.setMessage("checkMedian() - no tags area");
        return m_error.handleError(PIVerror::OPERATION_FAILED, "checkMedian()"), 0;
    }
    const int nx = m_grid.nodes.width, ny = m_grid.nodes.height;
    if (nx < 3 || ny < 3) {
        m_error.setMessage("checkMedian() - insufficient nodes (%dx%d)", nx, ny);
        return m_error.handleError(PIVerror::BAD_GRID_DIMENSION, "checkMedian()"), 0;
    }
    PIV_VECTOR* v = m_vectors.data();
    int count = 0;
    VisitNeighbourhoods(nx, ny, m_grid.nodes.depth, m_grid.timeSteps, Corners::Five, false,
                        [&](long k, const long* offsets, int n) {
                            if (Edited(v[k])) return;
                            if (!MedianRejects(v, k, offsets, n, false, t, 0.0f, n == 8 ? 5 : 3))
                                return;
                            tags[k] = kRejected;
                            Reject(v[k]);
                            count++;
                        });
    DebugPrintExt(2, "  checkMedian(%g) - %d bad vectors", double(t), count);
    return count;
}

int PIV_Data2D::checkNormalizedMedian(unsigned char* tags) {
    const OUTLIER_CFG& cfg = m_params.outlier;
    const float t = cfg.NormalizedMedianThreshold;
    if (!cfg.CheckNormalizedMedian || !(t > 0.0f)) return 0;
    if (isNull()) return m_error.handleError(PIVerror::DATA_IS_NULL, "checNormalizedkMedian()"), 0;
    if (!tags) {
        m_error.setMessage("checkNormalizedMedian() - no tags area");
        return m_error.handleError(PIVerror::OPERATION_FAILED, "checkNormalizedMedian()"), 0;
    }
    const int nx = m_grid.nodes.width, ny = m_grid.nodes.height;
    if (nx < 3 || ny < 3) {
        m_error.setMessage("checkNormalizedMedian() - insufficient nodes (%dx%d)", nx, ny);
        return m_error.handleError(PIVerror::BAD_GRID_DIMENSION, "checkNormalizedMedian()"), 0;
    }
    const float noise = cfg.NormalizedMedianNoiseFloor;
    PIV_VECTOR* v = m_vectors.data();
    int count = 0;
    VisitNeighbourhoods(nx, ny, m_grid.nodes.depth, m_grid.timeSteps, Corners::Five, false,
                        [&](long k, const long* offsets, int n) {
                            if (Edited(v[k])) return;
                            if (!MedianRejects(v, k, offsets, n, true, t, noise, n == 8 ? 5 : 3))
                                return;
                            tags[k] = kRejected;
                            Reject(v[k]);
                            count++;
                        });
    DebugPrintExt(2, "  checkNormalizedMedian(%g) - %d bad vectors", double(t), count);
    return count;
}

int PIV_Data2D::checkDynMean(unsigned char* tags) {
    const OUTLIER_CFG& cfg = m_params.outlier;
    const float c1 = cfg.DynMeanC1, c2 = cfg.DynMeanC2;
    if (!cfg.CheckDynMean || !(c2 > 0.0f) || c1 < 0.0f || isNull()) return 0;
    if (!tags) {
        m_error.setMessage("checkDynMean() - no tags area");
        return m_error.handleError(PIVerror::OPERATION_FAILED, "checkDynMean()"), 0;
    }
    const int nx = m_grid.nodes.width, ny = m_grid.nodes.height;
    if (nx < 3 || ny < 3) {
        m_error.setMessage("checkDynMean() - insufficient nodes (%dx%d)", nx, ny);
        return m_error.handleError(PIVerror::BAD_GRID_DIMENSION, "checkDynMean()"), 0;
    }
    PIV_VECTOR* v = m_vectors.data();
    int count = 0;
    VisitNeighbourhoods(
        nx, ny, m_grid.nodes.depth, m_grid.timeSteps, Corners::None, false,
        [&](long k, const long* offsets, int n) {
            PIV_VECTOR& c = v[k];
            if (Edited(c)) return;
            double lengths[8];
            int m = 0;
            for (int i = 0; i < n; i++) {
                const PIV_VECTOR& o = v[k + offsets[i]];
                if ((o.flag & VECTOR_ENABLED) && tags[k + offsets[i]] != kRejected)
                    lengths[m++] = std::hypot(double(o.dx), double(o.dy));
            }
            if (m < n / 2 || m == 0) return;
            double mu = 0.0;
            for (int i = 0; i < m; i++) mu += lengths[i];
            mu /= m;
            double var = 0.0;
            for (int i = 0; i < m; i++) var += (lengths[i] - mu) * (lengths[i] - mu);
            const double sigma = std::sqrt(var / m);
            if (std::fabs(mu - std::hypot(double(c.dx), double(c.dy))) <= sigma * c2 + c1) return;
            tags[k] = kRejected;
            Reject(c);
            count++;
        });
    DebugPrintExt(2, "  checkDynMean(%g,%g) %d bad vectors", double(c1), double(c2), count);
    return count;
}

namespace {

// Gaussian-weighted mean of the usable nodes within four nodes; false when
// none is in reach.
bool InterpolateGaussSpecial(PIV_VECTOR* v, unsigned char* tags, int nx, int ny, long node,
                             bool activeOnly) {
    const int col = int(node % nx), row = int(node / nx);
    double sx = 0.0, sy = 0.0, sw = 0.0;
    for (int j = std::max(row - 4, 0); j <= std::min(row + 4, ny - 1); j++)
        for (int i = std::max(col - 4, 0); i <= std::min(col + 4, nx - 1); i++) {
            const long k = long(j) * nx + i;
            if (tags[k] >= kInterpolated) continue;
            const uint8_t f = v[k].flag;
            if (activeOnly ? !(f & VECTOR_ENABLED)
                           : (f & (VECTOR_ENABLED | VECTOR_INTERPOLATED)) == VECTOR_INTERPOLATED)
                continue;
            const double d = std::hypot(double(i - col), double(j - row));
            const double w = std::exp(-d * d / 2.0);
            sx += w * v[k].dx;
            sy += w * v[k].dy;
            sw += w;
        }
    if (!(sw > 0.0)) return false;
    v[node].dx = float(sx / sw);
    v[node].dy = float(sy / sw);
    v[node].flag = VECTOR_ENABLED | VECTOR_INTERPOLATED;
    tags[node] = kInterpolated;
    return true;
}

int InterpolateGauss(PIV_VECTOR* v, unsigned char* tags, int nx, int ny, long node) {
    if (InterpolateGaussSpecial(v, tags, nx, ny, node, false) ||
        InterpolateGaussSpecial(v, tags, nx, ny, node, true))
        return 1;
    // Nothing in reach: the node has no result at all.
    v[node].flag = 0;
    return 0;
}

}  // namespace

int PIV_Data2D::interpolateOutliers(bool editedOnly) {
    if (isNull()) return m_error.handleError(PIVerror::DATA_IS_NULL, "interpolateOutliers()"), 0;
    // Outside a validation the status bits say what is to be replaced.
    const bool ownTags = m_validationTags.size() != m_nodeCount;
    if (ownTags) {
        if (!allocTags()) {
            m_error.handleError(PIVerror::ALLOCATION_FAILED, "interpolateOutliers()");
            return -1;
        }
        const uint8_t mask = editedOnly ? VECTOR_OUTLIER | VECTOR_EDITED : VECTOR_OUTLIER;
        for (unsigned long k = 0; k < m_nodeCount; k++)
            if ((m_vectors[k].flag & mask) == mask) m_validationTags[k] = kRejected;
    }
    unsigned char* tags = m_validationTags.data();
    PIV_VECTOR* v = m_vectors.data();
    const int nx = m_grid.nodes.width, ny = m_grid.nodes.height;
    int count = 0;
    // The border first, so that the interior sweep works inward from it.
    auto border = [&](long k) {
        if (tags[k] > 7) count += InterpolateGauss(v, tags, nx, ny, k);
    };
    for (int t = 0; t < m_grid.timeSteps; t++) {
        for (int i = 0; i < nx; i++) border(i);
        for (int i = 0; i < nx; i++) border(long(ny - 1) * nx + i);
        for (int j = 0; j < ny; j++) border(long(j) * nx);
        for (int j = 0; j < ny; j++) border(long(j) * nx + nx - 1);
        for (int j = 1; j < ny - 1; j++)
            for (int i = 1; i < nx - 1; i++) {
                const long k = long(j) * nx + i;
                if (tags[k] <= 7) continue;
                double sx = 0.0, sy = 0.0;
                int good = 0;
                for (int dj = -1; dj <= 1; dj++)
                    for (int di = -1; di <= 1; di++) {
                        const long o = k + long(dj) * nx + di;
                        if ((di == 0 && dj == 0) || tags[o] >= 3) continue;
                        sx += v[o].dx;
                        sy += v[o].dy;
                        good++;
                    }
                if (good > 5) {
                    v[k].dx = float(sx / good);
                    v[k].dy = float(sy / good);
                    v[k].flag = VECTOR_ENABLED | VECTOR_INTERPOLATED;
                    tags[k] = kInterpolated;
                    count++;
                } else {
                    count += InterpolateGauss(v, tags, nx, ny, k);
                }
            }
    }
    DebugPrintExt(2, "  Interpolated %d vectors", count);
    if (ownTags) {
        m_validationTags.clear();
        m_validationTags.shrink_to_fit();
    }
    return count;
}

int PIV_Data2D::interpolateMaskedVectors() {
    if (isNull())
        return m_error.handleError(PIVerror::DATA_IS_NULL, "interpolateMaskedVectors()"), 0;
    const int nx = m_grid.nodes.width, ny = m_grid.nodes.height;
    const int stepX = m_grid.step.width, stepY = m_grid.step.height;
    if (stepX == 0 || stepY == 0) return 0;
    const double spread = -double(stepX) * double(stepY);
    PIV_VECTOR* v = m_vectors.data();
    int count = 0;
    for (long k = 0; k < long(nx) * ny; k++) {
        PIV_VECTOR& c = v[k];
        if ((c.flag & VECTOR_ENABLED) || c.dx != 0.0f || c.dy != 0.0f) continue;
        const int col = int(std::lround(double(c.ix - m_grid.first.x) / stepX));
        const int row = int(std::lround(double(c.iy - m_grid.first.y) / stepY));
        double sx = 0.0, sy = 0.0, sw = 0.0;
        int found = 0;
        // Nearest ring first; the outer ring only when it is too thin.
        for (int rank = 1; rank <= 2 && found < 2; rank++)
            for (int j = row - 2; j <= row + 2; j++)
                for (int i = col - 2; i <= col + 2; i++) {
                    if (i < 0 || j < 0 || i >= nx || j >= ny) continue;
                    const int r = std::max(std::abs(i - col), std::abs(j - row));
                    if ((rank == 1) != (r <= 1)) continue;
                    const PIV_VECTOR& o = v[long(j) * nx + i];
                    if (!(o.flag & VECTOR_ENABLED)) continue;
                    const double ddx = o.ix - c.ix, ddy = o.iy - c.iy;
                    const double w = std::exp((ddx * ddx + ddy * ddy) / spread);
                    sx += w * o.dx;
                    sy += w * o.dy;
                    sw += w;
                    found++;
                }
        // The node keeps where it is; everything it held is replaced.
        PIV_VECTOR n;
        n.ix = c.ix;
        n.iy = c.iy;
        n.iz = c.iz;
        n.x = c.x;
        n.y = c.y;
        n.z = c.z;
        if (sw > 0.0) {
            n.dx = float(sx / sw);
            n.dy = float(sy / sw);
            n.corr = n.snr = 1.0f;
            for (PIV_PEAK& p : n.peak) p = PIV_PEAK{n.dx, n.dy, 1.0f};
            n.flag = VECTOR_ENABLED | VECTOR_INTERPOLATED;
            count++;
        }
        c = n;
    }
    DebugPrintExt(2, "PIV_Data2D::interpolateMaskedVectors() - interpolated %d vectors!", count);
    return count;
}

namespace PIV {
namespace Outliers {

float Median(float* values, int n) {
    if (n < 3 || n > 8) return 0.0f;
    if (n == 8) {
        // The full neighbourhood, the common case, through a fixed network
        // of 19 exchanges: no branch to mispredict on noisy values.
        for (const auto& p : kSortEight) {
            const float a = values[p[0]], b = values[p[1]];
            values[p[0]] = std::min(a, b);
            values[p[1]] = std::max(a, b);
        }
        return 0.5f * (values[3] + values[4]);
    }
    for (int i = 1; i < n; i++)
        for (int j = i; j > 0 && values[j - 1] > values[j]; j--)
            std::swap(values[j - 1], values[j]);
    return (n & 1) ? values[n / 2] : 0.5f * (values[n / 2 - 1] + values[n / 2]);
}

float ResidualMedian(const float* values, int n, float m) {
    float r[8];
    for (int i = 0; i < n; i++) r[i] = std::fabs(values[i] - m);
    return Median(r, n);
}

}  // namespace Outliers
}  // namespace PIV
