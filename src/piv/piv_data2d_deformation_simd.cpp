// The field's spline along an image row with Highway, picked at run time
// for the vector units present: each lane is an image column, whose folded
// node indices and weights were tabulated tap by tap.
#include "piv_data2d_deformation_simd.h"

#include <limits>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "piv_data2d_deformation_simd.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace PIV {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

void MapFieldColumnsImpl(const double* lineX, const double* lineY, const int64_t* index,
                         const double* weight, int taps, int width, float* dx, float* dy) {
    const hn::ScalableTag<double> d;
    const hn::RebindToSigned<decltype(d)> di;
    const hn::Rebind<float, decltype(d)> df;
    const size_t n = hn::Lanes(d), w = size_t(width);
    constexpr double kLimit = std::numeric_limits<float>::max();
    const auto high = hn::Set(d, kLimit), low = hn::Set(d, -kLimit);
    // Comparisons rather than Min and Max, which would not keep NaN.
    const auto saturate = [&](hn::Vec<decltype(d)> v) {
        return hn::IfThenElse(hn::Gt(v, high), high, hn::IfThenElse(hn::Lt(v, low), low, v));
    };
    // The nodes of a tap over a vector of columns: with nodes farther apart
    // than a vector is wide, the columns reach at most two neighbouring
    // nodes, which two broadcasts and a blend fetch faster than a gather.
    // Folding at the grid's ends breaks that order; the gather takes those.
    using V = hn::Vec<decltype(d)>;
    // Adds tap weight c times the nodes at `at` to both sums.
    const auto tap = [&](const int64_t* at, V c, V& sx, V& sy) {
        const auto k = hn::LoadU(di, at);
        const int64_t k0 = at[0];
        const auto same = hn::Eq(k, hn::Set(di, k0));
        V x, y;
        if (hn::AllTrue(di, same)) {
            x = hn::Set(d, lineX[k0]);
            y = hn::Set(d, lineY[k0]);
        } else if (at[n - 1] == k0 + 1 &&
                   hn::AllTrue(di, hn::Or(same, hn::Eq(k, hn::Set(di, k0 + 1))))) {
            const auto left = hn::RebindMask(d, same);
            x = hn::IfThenElse(left, hn::Set(d, lineX[k0]), hn::Set(d, lineX[k0 + 1]));
            y = hn::IfThenElse(left, hn::Set(d, lineY[k0]), hn::Set(d, lineY[k0 + 1]));
        } else {
            x = hn::GatherIndex(d, lineX, k);
            y = hn::GatherIndex(d, lineY, k);
        }
        sx = hn::Add(sx, hn::Mul(c, x));
        sy = hn::Add(sy, hn::Mul(c, y));
    };
    size_t i = 0;
    for (; i + n <= w; i += n) {
        V sx = hn::Zero(d), sy = hn::Zero(d);
        for (int m = 0; m < taps; m++) {
            const size_t t = size_t(m) * w + i;
            tap(index + t, hn::LoadU(d, weight + t), sx, sy);
        }
        hn::StoreU(hn::DemoteTo(df, saturate(sx)), df, dx + i);
        hn::StoreU(hn::DemoteTo(df, saturate(sy)), df, dy + i);
    }
    for (; i < w; i++) {
        double sx = 0.0, sy = 0.0;
        for (int m = 0; m < taps; m++) {
            const size_t t = size_t(m) * w + i;
            sx += weight[t] * lineX[index[t]];
            sy += weight[t] * lineY[index[t]];
        }
        dx[i] = float(sx > kLimit ? kLimit : sx < -kLimit ? -kLimit : sx);
        dy[i] = float(sy > kLimit ? kLimit : sy < -kLimit ? -kLimit : sy);
    }
}

}  // namespace HWY_NAMESPACE
}  // namespace PIV
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace PIV {

HWY_EXPORT(MapFieldColumnsImpl);

void MapFieldColumns(const double* lineX, const double* lineY, const int64_t* index,
                     const double* weight, int taps, int width, float* dx, float* dy) {
    HWY_DYNAMIC_DISPATCH(MapFieldColumnsImpl)(lineX, lineY, index, weight, taps, width, dx, dy);
}

}  // namespace PIV
#endif  // HWY_ONCE
