#include "eval_validation.h"

#include <cmath>
#include <vector>

#include "piv_data2d.h"
#include "piv_data2d_outliers.h"
#include "piv_outliers_simd.h"

namespace eval_tool {

namespace {

// The median of the neighbours of one node and the median of their
// deviations from it, per component.
struct Neighbourhood {
    float median[2] = {0.0f, 0.0f};
    float residual[2] = {0.0f, 0.0f};
    bool usable = false;
};

// The 3x3 neighbours of a node. Beyond the edge of the field a neighbour
// is the value a straight line through the nodes inward from it gives: on a
// gradient, a node at the edge would otherwise only see neighbours on one
// side, all larger or all smaller than itself, and be rejected for it.
Neighbourhood Around(const PIV_VECTOR* v, int nx, int ny, int col, int row) {
    auto usable = [&](int i, int j) {
        if (i < 0 || j < 0 || i >= nx || j >= ny || (i == col && j == row)) return false;
        const uint8_t f = v[long(j) * nx + i].flag;
        return (f & VECTOR_ENABLED) && !(f & VECTOR_MASKED);
    };
    float xs[8], ys[8];
    int n = 0;
    for (int dj = -1; dj <= 1; dj++)
        for (int di = -1; di <= 1; di++) {
            if (di == 0 && dj == 0) continue;
            const int i = col + di, j = row + dj;
            if (i >= 0 && j >= 0 && i < nx && j < ny) {
                if (!usable(i, j)) continue;
                xs[n] = v[long(j) * nx + i].dx;
                ys[n] = v[long(j) * nx + i].dy;
                n++;
                continue;
            }
            // Inward along the axes that left the field, past the node itself.
            const int si = i < 0 ? 1 : i >= nx ? -1 : 0, sj = j < 0 ? 1 : j >= ny ? -1 : 0;
            int steps = 1;
            if (i + si == col && j + sj == row) steps = 2;
            const int i1 = i + steps * si, j1 = j + steps * sj;
            if (!usable(i1, j1) || !usable(i1 + si, j1 + sj)) continue;
            const PIV_VECTOR &a = v[long(j1) * nx + i1], &b = v[long(j1 + sj) * nx + i1 + si];
            xs[n] = a.dx + float(steps) * (a.dx - b.dx);
            ys[n] = a.dy + float(steps) * (a.dy - b.dy);
            n++;
        }
    Neighbourhood h;
    if (n < 5) return h;
    float* lists[2] = {xs, ys};
    for (int q = 0; q < 2; q++) {
        float work[8];
        for (int i = 0; i < n; i++) work[i] = lists[q][i];
        h.median[q] = PIV::Outliers::Median(work, n);
        h.residual[q] = PIV::Outliers::ResidualMedian(lists[q], n, h.median[q]);
    }
    h.usable = true;
    return h;
}

// The inner nodes of one row whose eight neighbours are all usable, the
// common case, have their medians taken together, in vector lanes; the
// neighbours in the order Around takes them.
class InnerRow {
public:
    explicit InnerRow(int nx)
        : m_n(nx > 2 ? size_t(nx - 2) : 0), m_lists(16 * m_n), m_results(4 * m_n), m_full(m_n) {}

    void take(const PIV_VECTOR* v, int nx, int row) {
        const float* lists[16];
        for (int q = 0; q < 16; q++) lists[q] = &m_lists[q * m_n];
        for (size_t i = 0; i < m_n; i++) {
            const int col = int(i) + 1;
            bool full = true;
            int k = 0;
            for (int dj = -1; dj <= 1; dj++)
                for (int di = -1; di <= 1; di++) {
                    if (di == 0 && dj == 0) continue;
                    const PIV_VECTOR& u = v[long(row + dj) * nx + col + di];
                    full = full && (u.flag & VECTOR_ENABLED) && !(u.flag & VECTOR_MASKED);
                    m_lists[size_t(k) * m_n + i] = u.dx;
                    m_lists[size_t(k + 8) * m_n + i] = u.dy;
                    k++;
                }
            m_full[i] = full;
        }
        for (int q = 0; q < 2; q++)
            PIV::Outliers::MediansOfEight(lists + 8 * q, m_n, &m_results[2 * q * m_n],
                                          &m_results[(2 * q + 1) * m_n]);
    }

    // The neighbourhood of column col, if it is an inner one with all eight.
    bool get(int col, Neighbourhood& h) const {
        const size_t i = size_t(col - 1);
        if (col < 1 || i >= m_n || !m_full[i]) return false;
        for (int q = 0; q < 2; q++) {
            h.median[q] = m_results[2 * q * m_n + i];
            h.residual[q] = m_results[(2 * q + 1) * m_n + i];
        }
        h.usable = true;
        return true;
    }

private:
    size_t m_n;
    std::vector<float> m_lists, m_results;
    std::vector<unsigned char> m_full;
};

bool Passes(const Neighbourhood& h, float dx, float dy, const OUTLIER_CFG& cfg) {
    const float own[2] = {dx, dy};
    for (int q = 0; q < 2; q++)
        if (std::fabs(own[q] - h.median[q]) >
            cfg.NormalizedMedianThreshold * (h.residual[q] + cfg.NormalizedMedianNoiseFloor))
            return false;
    return true;
}

}  // namespace

OUTLIER_CFG DuringEvaluation(const OUTLIER_CFG& wanted) {
    // The record's own defaults for the rest: the iterative methods fall
    // back on them between their passes when no neighbour test is chosen.
    OUTLIER_CFG cfg;
    cfg.Enable = wanted.Enable;
    cfg.NumberOfPasses = wanted.NumberOfPasses;
    cfg.CheckSNR = wanted.CheckSNR, cfg.MinSNR = wanted.MinSNR;
    cfg.CheckPeakRatio = wanted.CheckPeakRatio, cfg.MinPeakRatio = wanted.MinPeakRatio;
    cfg.CheckDisplacement = wanted.CheckDisplacement, cfg.MaxDisplacement = wanted.MaxDisplacement;
    cfg.CheckCorrelation = wanted.CheckCorrelation, cfg.MinCorrelation = wanted.MinCorrelation;
    cfg.TryOtherPeaks = cfg.InterpolateOutliers = false;
    return cfg;
}

void ValidateField(PIV_Data2D& field, const OUTLIER_CFG& cfg) {
    const int nx = field.grid().nodes.width, ny = field.grid().nodes.height;
    PIV_VECTOR* v = field.data();
    if (!v || nx < 1 || ny < 1 || !cfg.Enable) return;
    const int peaks = field.haveMultiplePeaks() ? field.numberOfPeaks() : 1;
    const size_t count = size_t(nx) * size_t(ny);
    std::vector<unsigned char> judged(count), out(count);
    bool anyOut = false;
    InnerRow inner(nx);
    for (int pass = 0; cfg.CheckNormalizedMedian && pass < std::max(cfg.NumberOfPasses, 1);
         pass++) {
        int found = 0;
        for (int row = 0; row < ny; row++) {
            const bool innerRow = row > 0 && row < ny - 1;
            if (innerRow) inner.take(v, nx, row);
            for (int col = 0; col < nx; col++) {
                const size_t k = size_t(row) * nx + col;
                const PIV_VECTOR& c = v[k];
                judged[k] = 0;
                // Measured vectors only: a replacement or another peak stands.
                if (out[k] || !(c.flag & VECTOR_ENABLED) ||
                    (c.flag & (VECTOR_EDITED | VECTOR_MASKED | VECTOR_LOWER_PEAK)))
                    continue;
                Neighbourhood h;
                if (!innerRow || !inner.get(col, h)) h = Around(v, nx, ny, col, row);
                if (h.usable && !Passes(h, c.dx, c.dy, cfg)) judged[k] = 1, found++;
            }
        }
        if (found == 0) break;
        for (size_t k = 0; k < count; k++)
            if (judged[k]) PIV::Outliers::Reject(v[k]), out[k] = 1, anyOut = true;
        // Without replacement a rejected vector leaves a hole, and the next
        // pass would judge its neighbours without it: one pass only.
        if (!cfg.InterpolateOutliers) break;
        // A stand-in for the next pass, so that a block of outliers is
        // judged against filled neighbours rather than against one another.
        field.interpolateOutliers(false);
    }
    // Other peaks are judged once the rejected neighbours hold stand-ins: a
    // block of outliers would accept almost anything from one another.
    for (int row = 0; row < ny && anyOut && cfg.TryOtherPeaks; row++)
        for (int col = 0; col < nx; col++) {
            const size_t k = size_t(row) * nx + col;
            if (!out[k]) continue;
            PIV_VECTOR& c = v[k];
            const Neighbourhood h = Around(v, nx, ny, col, row);
            for (int p = 1; p < peaks && h.usable; p++) {
                const PIV_PEAK& other = c.peak[p];
                if ((other.x == 0.0f && other.y == 0.0f) || !Passes(h, other.x, other.y, cfg))
                    continue;
                c.dx = other.x;
                c.dy = other.y;
                c.flag = VECTOR_ENABLED | VECTOR_LOWER_PEAK;
                out[k] = 0;
                break;
            }
        }
    if (anyOut && cfg.InterpolateOutliers) {
        // The final values from measured vectors alone: every rejected node
        // again at once, the stand-ins of the passes forgotten.
        for (size_t k = 0; k < count; k++)
            if (out[k]) PIV::Outliers::Reject(v[k]), v[k].flag &= uint8_t(~VECTOR_INTERPOLATED);
        field.interpolateOutliers(false);
    }
    PIV_PARAMETERS record = field.pivParameters();
    record.outlier = cfg;
    field.setPivParameters(record);
}

}  // namespace eval_tool
