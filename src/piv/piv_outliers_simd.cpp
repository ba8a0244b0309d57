// The median and residual median of eight neighbours with Highway, one node
// per lane; the best of SSE4, AVX2 and AVX-512 the machine has is chosen at
// run time. The exchanges of the network are written as the selections
// std::min and std::max make, so that NaN and signed zeros come out as in
// the plain network.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "piv_outliers_simd.cpp"
#include "piv_outliers_simd.h"
#include "hwy/foreach_target.h"  // must come before highway.h
#include "hwy/highway.h"
#include "piv_data2d_outliers.h"

HWY_BEFORE_NAMESPACE();
namespace PIV {
namespace Outliers {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

template <class V>
HWY_INLINE V MiddleOfEight(V* w, V half) {
    for (const auto& p : kSortEight) {
        const V a = w[p[0]], b = w[p[1]];
        w[p[0]] = hn::IfThenElse(hn::Lt(b, a), b, a);  // std::min(a, b)
        w[p[1]] = hn::IfThenElse(hn::Lt(a, b), b, a);  // std::max(a, b)
    }
    return hn::Mul(half, hn::Add(w[3], w[4]));
}

void EightRows(const float* const* values, size_t n, float* median, float* residual) {
    const hn::ScalableTag<float> d;
    using V = hn::Vec<decltype(d)>;
    const size_t lanes = hn::Lanes(d);
    const V half = hn::Set(d, 0.5f);
    size_t i = 0;
    for (; i + lanes <= n; i += lanes) {
        V x[8], w[8];
        for (int k = 0; k < 8; k++) w[k] = x[k] = hn::LoadU(d, values[k] + i);
        const V m = MiddleOfEight(w, half);
        for (int k = 0; k < 8; k++) w[k] = hn::Abs(hn::Sub(x[k], m));
        hn::StoreU(m, d, median + i);
        hn::StoreU(MiddleOfEight(w, half), d, residual + i);
    }
    for (; i < n; i++) {
        float x[8], w[8];
        for (int k = 0; k < 8; k++) w[k] = x[k] = values[k][i];
        median[i] = Median(w, 8);
        residual[i] = ResidualMedian(x, 8, median[i]);
    }
}

}  // namespace HWY_NAMESPACE
}  // namespace Outliers
}  // namespace PIV
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace PIV {
namespace Outliers {

HWY_EXPORT(EightRows);

void MediansOfEight(const float* const* values, size_t n, float* median, float* residual) {
    HWY_DYNAMIC_DISPATCH(EightRows)(values, n, median, residual);
}

}  // namespace Outliers
}  // namespace PIV
#endif
