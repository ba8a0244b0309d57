// The per-window loops of the FFT correlator, vectorised with Highway. A
// window of 32 x 32 cells goes through each loop once or twice, so the
// loops are short: each takes whole rows in vectors and the few cells left
// in a row one by one.
//
// The weighting, the cross power and the division do what the plain loops
// do, cell by cell, and so give the same bits. The sums of the window means
// and of the squares are added in another order than row by row.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "piv_corr2d_simd.cpp"
#include "piv_corr2d_simd.h"
#include "hwy/foreach_target.h"  // must come before highway.h
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace PIV {
namespace Simd {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

void WeightAndSumImpl(float* HWY_RESTRICT a, float* HWY_RESTRICT b,
                      const float* HWY_RESTRICT weights, size_t w, size_t h, size_t stride,
                      double& sumA, double& sumB) {
    const hn::ScalableTag<double> dd;
    const hn::Rebind<float, decltype(dd)> df;
    const size_t lanes = hn::Lanes(dd);
    auto sa = hn::Zero(dd), sb = hn::Zero(dd);
    double ta = 0.0, tb = 0.0;
    for (size_t j = 0; j < h; j++) {
        float* ra = a + j * stride;
        const float* rb = b + j * stride;
        const float* rw = weights ? weights + j * stride : nullptr;
        size_t i = 0;
        for (; i + lanes <= w; i += lanes) {
            auto va = hn::LoadU(df, ra + i);
            if (rw) {
                va = hn::Mul(va, hn::LoadU(df, rw + i));
                hn::StoreU(va, df, ra + i);
            }
            sa = hn::Add(sa, hn::PromoteTo(dd, va));
            sb = hn::Add(sb, hn::PromoteTo(dd, hn::LoadU(df, rb + i)));
        }
        for (; i < w; i++) {
            if (rw) ra[i] *= rw[i];
            ta += ra[i];
            tb += rb[i];
        }
    }
    sumA = hn::GetLane(hn::SumOfLanes(dd, sa)) + ta;
    sumB = hn::GetLane(hn::SumOfLanes(dd, sb)) + tb;
}

void CenterImpl(float* HWY_RESTRICT a, float* HWY_RESTRICT b, size_t w, size_t h, size_t stride,
                float meanA, float meanB, float& squaresA, float& squaresB) {
    const hn::ScalableTag<float> df;
    const size_t lanes = hn::Lanes(df);
    const auto ma = hn::Set(df, meanA), mb = hn::Set(df, meanB);
    auto qa = hn::Zero(df), qb = hn::Zero(df);
    float ta = 0.0f, tb = 0.0f;
    for (size_t j = 0; j < h; j++) {
        float* ra = a + j * stride;
        float* rb = b + j * stride;
        size_t i = 0;
        for (; i + lanes <= w; i += lanes) {
            const auto va = hn::Sub(hn::LoadU(df, ra + i), ma);
            const auto vb = hn::Sub(hn::LoadU(df, rb + i), mb);
            hn::StoreU(va, df, ra + i);
            hn::StoreU(vb, df, rb + i);
            qa = hn::MulAdd(va, va, qa);
            qb = hn::MulAdd(vb, vb, qb);
        }
        for (; i < w; i++) {
            ra[i] -= meanA;
            rb[i] -= meanB;
            ta += ra[i] * ra[i];
            tb += rb[i] * rb[i];
        }
    }
    squaresA = hn::GetLane(hn::SumOfLanes(df, qa)) + ta;
    squaresB = hn::GetLane(hn::SumOfLanes(df, qb)) + tb;
}

void CrossPowerImpl(const float* HWY_RESTRICT a, const float* HWY_RESTRICT b,
                    float* HWY_RESTRICT cross, size_t count, float scale) {
    const size_t n = 2 * count;
    size_t k = 0;
#if HWY_TARGET != HWY_SCALAR
    const hn::ScalableTag<float> df;
    const size_t lanes = hn::Lanes(df);
    const auto s = hn::Set(df, scale);
    // Lanes hold (re, im) pairs. With b's pairs swapped, the products give
    // ar*br, ai*bi in one vector and ar*bi, ai*br in the other; each pair's
    // sum and difference are formed in the order of the plain loop.
    for (; k + lanes <= n; k += lanes) {
        const auto va = hn::LoadU(df, a + k), vb = hn::LoadU(df, b + k);
        const auto p = hn::Mul(va, vb);
        const auto q = hn::Mul(va, hn::Shuffle2301(vb));
        const auto re = hn::Add(p, hn::Shuffle2301(p));
        const auto im = hn::Sub(hn::Shuffle2301(q), q);
        hn::StoreU(hn::Mul(hn::OddEven(im, re), s), df, cross + k);
    }
#endif
    for (; k < n; k += 2) {
        const float ar = a[k], ai = a[k + 1], br = b[k], bi = b[k + 1];
        cross[k] = (ar * br + ai * bi) * scale;
        cross[k + 1] = (ar * bi - ai * br) * scale;
    }
}

void DivideImpl(float* HWY_RESTRICT p, size_t n, float factor) {
    const hn::ScalableTag<float> df;
    const size_t lanes = hn::Lanes(df);
    const auto f = hn::Set(df, factor);
    size_t k = 0;
    for (; k + lanes <= n; k += lanes) hn::StoreU(hn::Div(hn::LoadU(df, p + k), f), df, p + k);
    for (; k < n; k++) p[k] /= factor;
}

}  // namespace HWY_NAMESPACE
}  // namespace Simd
}  // namespace PIV
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace PIV {
namespace Simd {

HWY_EXPORT(WeightAndSumImpl);
HWY_EXPORT(CenterImpl);
HWY_EXPORT(CrossPowerImpl);
HWY_EXPORT(DivideImpl);

void WeightAndSumWindows(float* a, float* b, const float* weights, size_t w, size_t h,
                         size_t stride, double& sumA, double& sumB) {
    HWY_DYNAMIC_DISPATCH(WeightAndSumImpl)(a, b, weights, w, h, stride, sumA, sumB);
}
void CenterWindows(float* a, float* b, size_t w, size_t h, size_t stride, float meanA, float meanB,
                   float& squaresA, float& squaresB) {
    HWY_DYNAMIC_DISPATCH(CenterImpl)(a, b, w, h, stride, meanA, meanB, squaresA, squaresB);
}
void CrossPower(const float* a, const float* b, float* cross, size_t count, float scale) {
    HWY_DYNAMIC_DISPATCH(CrossPowerImpl)(a, b, cross, count, scale);
}
void DivideBy(float* p, size_t n, float factor) {
    HWY_DYNAMIC_DISPATCH(DivideImpl)(p, n, factor);
}

}  // namespace Simd
}  // namespace PIV
#endif
