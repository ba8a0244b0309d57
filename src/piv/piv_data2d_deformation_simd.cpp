// The field's cubic spline along an image row with Highway, picked at run
// time for the vector units present: each lane is an image column. The
// columns of one node interval share its four nodes, which are broadcast
// once for the run; only the fractions differ from lane to lane.
#include "piv_data2d_deformation_simd.h"

#include <cstdint>
#include <limits>

#include "image_spline.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "piv_data2d_deformation_simd.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace PIV {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

void MapFieldColumnsImpl(const double* lineX, const double* lineY, int nodes, const int* runStart,
                         const double* t, int width, float* dx, float* dy) {
    const hn::ScalableTag<double> d;
    const hn::Rebind<float, decltype(d)> df;
    using V = hn::Vec<decltype(d)>;
    const int n = int(hn::Lanes(d));
    constexpr double kLimit = std::numeric_limits<float>::max();
    const V high = hn::Set(d, kLimit), low = hn::Set(d, -kLimit);
    // Comparisons rather than Min and Max, which would not keep NaN.
    const auto saturate = [&](V v) {
        return hn::IfThenElse(hn::Gt(v, high), high, hn::IfThenElse(hn::Lt(v, low), low, v));
    };
    const auto clip = [](double v) {
        return float(v > kLimit ? kLimit : v < -kLimit ? -kLimit : v);
    };
    for (int j = 0; j < nodes; j++) {
        int col = runStart[j];
        const int end = runStart[j + 1];
        if (col >= end) continue;
        double x[4], y[4];
        const bool inner = j >= 1 && j + 2 < nodes;
        for (int m = 0; m < 4; m++) {
            const int64_t k = inner ? j - 1 + m : Spline::Mirror(int64_t(j) - 1 + m, nodes);
            x[m] = lineX[k];
            y[m] = lineY[k];
        }
        // The weights as the scalar spline makes them (with a product for
        // its division by 6), summed in its order.
        // A vector may run past the interval: the next interval writes
        // those columns again.
        for (; col < end && col + n <= width; col += n) {
            const V u = hn::LoadU(d, t + col);
            const V u2 = hn::Mul(u, u);
            const V w3 = hn::Mul(hn::Mul(u2, u), hn::Set(d, 1.0 / 6.0));
            const V w0 = hn::Sub(
                hn::Add(hn::Set(d, 1.0 / 6.0), hn::Mul(hn::Sub(u2, u), hn::Set(d, 0.5))), w3);
            const V w2 = hn::Sub(hn::Add(u, w0), hn::Add(w3, w3));
            const V w1 = hn::Sub(hn::Sub(hn::Sub(hn::Set(d, 1.0), w0), w2), w3);
            const V w[4] = {w0, w1, w2, w3};
            V sx = hn::Zero(d), sy = hn::Zero(d);
            for (int m = 0; m < 4; m++) {
                sx = hn::Add(sx, hn::Mul(w[m], hn::Set(d, x[m])));
                sy = hn::Add(sy, hn::Mul(w[m], hn::Set(d, y[m])));
            }
            hn::StoreU(hn::DemoteTo(df, saturate(sx)), df, dx + col);
            hn::StoreU(hn::DemoteTo(df, saturate(sy)), df, dy + col);
        }
        for (; col < end; col++) {
            double w[4];
            Spline::Weights(t[col], 3, w);
            double sx = 0.0, sy = 0.0;
            for (int m = 0; m < 4; m++) {
                sx += w[m] * x[m];
                sy += w[m] * y[m];
            }
            dx[col] = clip(sx);
            dy[col] = clip(sy);
        }
    }
}

}  // namespace HWY_NAMESPACE
}  // namespace PIV
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace PIV {

HWY_EXPORT(MapFieldColumnsImpl);

void MapFieldColumns(const double* lineX, const double* lineY, int nodes, const int* runStart,
                     const double* t, int width, float* dx, float* dy) {
    HWY_DYNAMIC_DISPATCH(MapFieldColumnsImpl)(lineX, lineY, nodes, runStart, t, width, dx, dy);
}

}  // namespace PIV
#endif  // HWY_ONCE
