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
    size_t i = 0;
    for (; i + n <= w; i += n) {
        auto k = hn::LoadU(di, index + i);
        auto c = hn::LoadU(d, weight + i);
        auto sx = hn::Mul(c, hn::GatherIndex(d, lineX, k));
        auto sy = hn::Mul(c, hn::GatherIndex(d, lineY, k));
        for (int m = 1; m < taps; m++) {
            k = hn::LoadU(di, index + size_t(m) * w + i);
            c = hn::LoadU(d, weight + size_t(m) * w + i);
            sx = hn::Add(sx, hn::Mul(c, hn::GatherIndex(d, lineX, k)));
            sy = hn::Add(sy, hn::Mul(c, hn::GatherIndex(d, lineY, k)));
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
