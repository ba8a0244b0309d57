// Displacements of a field at points off its nodes, and the transfer of a
// field onto another grid: what the iterative evaluations and particle
// tracking read between grids.
#include <algorithm>
#include <cmath>

#include "image_types.h"
#include "piv_data2d.h"
#include "piv_data2d_deformation.h"
#include "piv_messages.h"

bool PIV_Data2D::interpolateVector(double x, double y, int t, double* dx, double* dy) const {
    if (isNull() || !dx || !dy || !std::isfinite(x) || !std::isfinite(y)) return false;
    const DATA_GRID4D& g = m_grid;
    const int nx = std::max(g.nodes.width, 1), ny = std::max(g.nodes.height, 1);
    const double sx = g.step.width > 0 ? g.step.width : 1, sy = g.step.height > 0 ? g.step.height : 1;
    const double gx = std::clamp((x - g.first.x) / sx, 0.0, double(nx - 1));
    const double gy = std::clamp((y - g.first.y) / sy, 0.0, double(ny - 1));
    const int i0 = std::min(int(gx), std::max(nx - 2, 0));
    const int j0 = std::min(int(gy), std::max(ny - 2, 0));
    const double tx = gx - i0, ty = gy - j0;
    const PIV_VECTOR* v = const_cast<PIV_Data2D*>(this)->dataAtTime(t);
    if (!v) return false;
    double wsum = 0.0, sumX = 0.0, sumY = 0.0;
    for (int b = 0; b < 2; b++) {
        const int j = std::min(j0 + b, ny - 1);
        const double wy = b ? ty : 1.0 - ty;
        for (int a = 0; a < 2; a++) {
            const int i = std::min(i0 + a, nx - 1);
            const double w = wy * (a ? tx : 1.0 - tx);
            const PIV_VECTOR& n = v[size_t(j) * size_t(nx) + size_t(i)];
            if (w <= 0.0 || !(n.flag & VECTOR_ENABLED)) continue;
            wsum += w;
            sumX += w * n.dx;
            sumY += w * n.dy;
        }
    }
    if (wsum <= 0.0) {
        // On a node line the far nodes have no weight, and the near ones
        // are disabled: the enabled ones of the four stand in equally.
        for (int b = 0; b < 2; b++)
            for (int a = 0; a < 2; a++) {
                const int j = std::min(j0 + b, ny - 1), i = std::min(i0 + a, nx - 1);
                const PIV_VECTOR& n = v[size_t(j) * size_t(nx) + size_t(i)];
                if (!(n.flag & VECTOR_ENABLED)) continue;
                wsum += 1.0;
                sumX += n.dx;
                sumY += n.dy;
            }
        if (wsum <= 0.0) return false;
    }
    *dx = sumX / wsum;
    *dy = sumY / wsum;
    return true;
}

bool PIV_Data2D::updateShift(const PIV_DataBase& source, bool add, int method) {
    if (isNull() || source.isNull()) return false;
    if (source.timeSteps() > 1 && timeSteps() > source.timeSteps()) {
        m_error.setMessage(
            "interpolateFromData() - timeSteps of source data does not match current data "
            "set\nupdateShift() - timeSteps of source data does not match current data set");
        m_error.handleError(PIVerror::DATA_IS_NULL, "updateShift()");
        return false;
    }
    const DATA_GRID4D& a = m_grid;
    const DATA_GRID4D& b = source.grid();
    const bool sameGrid = a.nodes.width == b.nodes.width && a.nodes.height == b.nodes.height &&
                          a.step.width == b.step.width && a.step.height == b.step.height &&
                          a.first.x == b.first.x && a.first.y == b.first.y &&
                          source.nodeCount() >= nodeCount();
    auto take = [add](PIV_VECTOR& v, double dx, double dy) {
        v.dx = float(add ? v.dx + dx : dx);
        v.dy = float(add ? v.dy + dy : dy);
        for (PIV_PEAK& p : v.peak) p = PIV_PEAK{v.dx, v.dy, v.snr};
    };
    PIV_VECTOR* v = data();
    const int nodesPerStep = std::max(1, nodeCount() / std::max(timeSteps(), 1));
    if (sameGrid) {
        const PIV_VECTOR* s = source.data();
        for (int k = 0; k < nodeCount(); k++) take(v[k], s[k].dx, s[k].dy);
        return true;
    }
    DebugPrintExt(2, "PIV_Data2D::updateShift() - interpolating data with method=%d", method);
    int failed = 0;
    for (int t = 0; t < std::max(timeSteps(), 1); t++) {
        PIV_Data2D_Deformation map(&source, source.timeSteps() > 1 ? t : 0);
        map.setMethod(method, 3);
        PIV_VECTOR* step = v + size_t(t) * size_t(nodesPerStep);
        for (int k = 0; k < nodesPerStep; k++) {
            double dx = 0.0, dy = 0.0;
            if (!map.interpolateDisplacement(step[k].ix, step[k].iy, &dx, &dy)) {
                failed++;
                continue;
            }
            take(step[k], dx, dy);
        }
    }
    DebugPrintExt(2, "   - failed %d out of %d times ", failed, nodeCount());
    return failed == 0;
}
