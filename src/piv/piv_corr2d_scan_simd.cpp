// The scan loops, plain and vectorised with Highway. A vector holds the
// coefficients of neighbouring shifts of one plane row: each lane sums its
// own shift in the plain loop's order, and what is done once a coefficient
// (the window mean, the quotient, the root) is done by the plain code on
// every lane. The last block of a row overlaps the one before rather than
// leaving a rest; its lanes compute the same values again.
//
// Both are compiled without contraction of products and sums (see
// src/CMakeLists.txt): a fused multiply-add would round differently.
#ifndef PIV_CORR2D_SCAN_PLAIN_ONCE
#define PIV_CORR2D_SCAN_PLAIN_ONCE
#include <algorithm>
#include <cmath>
#include <cstddef>

#include "piv_corr2d_scan_simd.h"

namespace PIV {
namespace Scan {
namespace {

inline const float* WindowAt(const Windows& s, int i, int j) {
    return s.area + size_t(j) * size_t(s.areaWidth) + size_t(i);
}

inline float MqdAt(const Windows& s, int i, int j) {
    const float* b = WindowAt(s, i, j);
    float sum = 0.0f;
    for (int y = 0; y < s.height; y++) {
        const float* ra = s.sample + size_t(y) * size_t(s.width);
        const float* rb = b + size_t(y) * size_t(s.areaWidth);
        for (int x = 0; x < s.width; x++) {
            const float d = rb[x] - ra[x];
            sum += d * d;
        }
    }
    return sum;
}

inline float FinishError(double sumAbs, double sumSum) {
    return sumSum != 0.0 ? float(sumAbs / sumSum) : 0.0f;
}

inline float ErrorAt(const Windows& s, int i, int j) {
    const float* b = WindowAt(s, i, j);
    double sumAbs = 0.0, sumSum = 0.0;
    for (int y = 0; y < s.height; y++) {
        const float* ra = s.sample + size_t(y) * size_t(s.width);
        const float* rb = b + size_t(y) * size_t(s.areaWidth);
        for (int x = 0; x < s.width; x++) {
            const double av = ra[x], bv = rb[x];
            sumAbs += std::fabs(bv - av);
            sumSum += av + bv;
        }
    }
    return FinishError(sumAbs, sumSum);
}

inline float FinishMean(double sum, const Windows& s) {
    const double n = double(s.width) * double(s.height);
    return n > 0.0 ? float(sum / n) : 0.0f;
}

inline float FinishCross(double sumAB, double sumBB, double sumAA) {
    const double den = sumAA * sumBB;
    return den > 0.0 ? float(sumAB / std::sqrt(den)) : 0.0f;
}

// The sample's sum of squares about its mean, the same for every shift.
inline double SampleSquares(const Windows& s, float mean) {
    double sum = 0.0;
    for (int y = 0; y < s.height; y++)
        for (int x = 0; x < s.width; x++) {
            const double da = double(s.sample[size_t(y) * size_t(s.width) + x]) - double(mean);
            sum += da * da;
        }
    return sum;
}

inline float WindowMeanAt(const Windows& s, int i, int j) {
    const float* b = WindowAt(s, i, j);
    double sum = 0.0;
    for (int y = 0; y < s.height; y++)
        for (int x = 0; x < s.width; x++) sum += b[size_t(y) * size_t(s.areaWidth) + x];
    return FinishMean(sum, s);
}

inline float CrossAt(const Windows& s, int i, int j, float meanA, float meanB, double sumAA) {
    const float* b = WindowAt(s, i, j);
    double sumAB = 0.0, sumBB = 0.0;
    for (int y = 0; y < s.height; y++) {
        const float* ra = s.sample + size_t(y) * size_t(s.width);
        const float* rb = b + size_t(y) * size_t(s.areaWidth);
        for (int x = 0; x < s.width; x++) {
            const double da = double(ra[x]) - double(meanA);
            const double db = double(rb[x]) - double(meanB);
            sumAB += da * db;
            sumBB += db * db;
        }
    }
    return FinishCross(sumAB, sumBB, sumAA);
}

}  // namespace
}  // namespace Scan
}  // namespace PIV
#endif  // PIV_CORR2D_SCAN_PLAIN_ONCE

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "piv_corr2d_scan_simd.cpp"
#include "hwy/foreach_target.h"  // must come before highway.h
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace PIV {
namespace Scan {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

// Calls block(start) for blocks of `lanes` shifts covering a row of the
// plane, the last one moved back to end at the row's end; false when the
// row is narrower than a vector.
template <class Block>
HWY_INLINE bool ForBlocks(int planeWidth, size_t lanes, const Block& block) {
    const size_t pw = size_t(planeWidth);
    if (pw < lanes) return false;
    for (size_t i = 0; i < pw; i += lanes) block(std::min(i, pw - lanes));
    return true;
}

void MqdImpl(const Windows& s, float* HWY_RESTRICT coeffs) {
    const hn::ScalableTag<float> df;
    const size_t lanes = hn::Lanes(df);
    for (int j = 0; j < s.planeHeight; j++) {
        float* row = coeffs + size_t(j) * size_t(s.planeWidth);
        const bool done = ForBlocks(s.planeWidth, lanes, [&](size_t i0) {
            auto sum = hn::Zero(df);
            for (int y = 0; y < s.height; y++) {
                const float* ra = s.sample + size_t(y) * size_t(s.width);
                const float* rb = WindowAt(s, int(i0), j) + size_t(y) * size_t(s.areaWidth);
                for (int x = 0; x < s.width; x++) {
                    const auto d = hn::Sub(hn::LoadU(df, rb + x), hn::Set(df, ra[x]));
                    sum = hn::Add(sum, hn::Mul(d, d));
                }
            }
            hn::StoreU(sum, df, row + i0);
        });
        if (!done)
            for (int i = 0; i < s.planeWidth; i++) row[i] = MqdAt(s, i, j);
    }
}

void ErrorFunctionImpl(const Windows& s, float* HWY_RESTRICT coeffs) {
    const hn::ScalableTag<double> dd;
    const hn::Rebind<float, decltype(dd)> df;
    const size_t lanes = hn::Lanes(dd);
    HWY_ALIGN double abs[hn::MaxLanes(dd)], sums[hn::MaxLanes(dd)];
    for (int j = 0; j < s.planeHeight; j++) {
        float* row = coeffs + size_t(j) * size_t(s.planeWidth);
        const bool done = ForBlocks(s.planeWidth, lanes, [&](size_t i0) {
            auto sumAbs = hn::Zero(dd), sumSum = hn::Zero(dd);
            for (int y = 0; y < s.height; y++) {
                const float* ra = s.sample + size_t(y) * size_t(s.width);
                const float* rb = WindowAt(s, int(i0), j) + size_t(y) * size_t(s.areaWidth);
                for (int x = 0; x < s.width; x++) {
                    const auto av = hn::Set(dd, double(ra[x]));
                    const auto bv = hn::PromoteTo(dd, hn::LoadU(df, rb + x));
                    sumAbs = hn::Add(sumAbs, hn::Abs(hn::Sub(bv, av)));
                    sumSum = hn::Add(sumSum, hn::Add(av, bv));
                }
            }
            hn::Store(sumAbs, dd, abs);
            hn::Store(sumSum, dd, sums);
            for (size_t l = 0; l < lanes; l++) row[i0 + l] = FinishError(abs[l], sums[l]);
        });
        if (!done)
            for (int i = 0; i < s.planeWidth; i++) row[i] = ErrorAt(s, i, j);
    }
}

void CrossImpl(const Windows& s, float sampleMean, float* HWY_RESTRICT means,
               float* HWY_RESTRICT coeffs) {
    const hn::ScalableTag<double> dd;
    const hn::Rebind<float, decltype(dd)> df;
    const size_t lanes = hn::Lanes(dd);
    HWY_ALIGN double ab[hn::MaxLanes(dd)], bb[hn::MaxLanes(dd)];
    const double sumAA = SampleSquares(s, sampleMean);
    for (int j = 0; j < s.planeHeight; j++) {
        const size_t cell = size_t(j) * size_t(s.planeWidth);
        const bool done = ForBlocks(s.planeWidth, lanes, [&](size_t i0) {
            auto sumB = hn::Zero(dd);
            for (int y = 0; y < s.height; y++) {
                const float* rb = WindowAt(s, int(i0), j) + size_t(y) * size_t(s.areaWidth);
                for (int x = 0; x < s.width; x++)
                    sumB = hn::Add(sumB, hn::PromoteTo(dd, hn::LoadU(df, rb + x)));
            }
            hn::Store(sumB, dd, ab);
            for (size_t l = 0; l < lanes; l++) means[cell + i0 + l] = FinishMean(ab[l], s);
            const auto meanB = hn::PromoteTo(dd, hn::LoadU(df, means + cell + i0));
            auto sumAB = hn::Zero(dd), sumBB = hn::Zero(dd);
            for (int y = 0; y < s.height; y++) {
                const float* ra = s.sample + size_t(y) * size_t(s.width);
                const float* rb = WindowAt(s, int(i0), j) + size_t(y) * size_t(s.areaWidth);
                for (int x = 0; x < s.width; x++) {
                    const auto da = hn::Set(dd, double(ra[x]) - double(sampleMean));
                    const auto db = hn::Sub(hn::PromoteTo(dd, hn::LoadU(df, rb + x)), meanB);
                    sumAB = hn::Add(sumAB, hn::Mul(da, db));
                    sumBB = hn::Add(sumBB, hn::Mul(db, db));
                }
            }
            hn::Store(sumAB, dd, ab);
            hn::Store(sumBB, dd, bb);
            for (size_t l = 0; l < lanes; l++)
                coeffs[cell + i0 + l] = FinishCross(ab[l], bb[l], sumAA);
        });
        if (!done)
            for (int i = 0; i < s.planeWidth; i++) {
                means[cell + i] = WindowMeanAt(s, i, j);
                coeffs[cell + i] = CrossAt(s, i, j, sampleMean, means[cell + i], sumAA);
            }
    }
}

}  // namespace HWY_NAMESPACE
}  // namespace Scan
}  // namespace PIV
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace PIV {
namespace Scan {

HWY_EXPORT(MqdImpl);
HWY_EXPORT(ErrorFunctionImpl);
HWY_EXPORT(CrossImpl);

void Mqd(const Windows& s, float* coeffs) {
    HWY_DYNAMIC_DISPATCH(MqdImpl)(s, coeffs);
}
void ErrorFunction(const Windows& s, float* coeffs) {
    HWY_DYNAMIC_DISPATCH(ErrorFunctionImpl)(s, coeffs);
}
void Cross(const Windows& s, float sampleMean, float* means, float* coeffs) {
    HWY_DYNAMIC_DISPATCH(CrossImpl)(s, sampleMean, means, coeffs);
}

void MqdPlain(const Windows& s, float* coeffs) {
    for (int j = 0; j < s.planeHeight; j++)
        for (int i = 0; i < s.planeWidth; i++)
            coeffs[size_t(j) * size_t(s.planeWidth) + i] = MqdAt(s, i, j);
}
void ErrorFunctionPlain(const Windows& s, float* coeffs) {
    for (int j = 0; j < s.planeHeight; j++)
        for (int i = 0; i < s.planeWidth; i++)
            coeffs[size_t(j) * size_t(s.planeWidth) + i] = ErrorAt(s, i, j);
}
void CrossPlain(const Windows& s, float sampleMean, float* means, float* coeffs) {
    const double sumAA = SampleSquares(s, sampleMean);
    for (int j = 0; j < s.planeHeight; j++)
        for (int i = 0; i < s.planeWidth; i++) {
            const size_t cell = size_t(j) * size_t(s.planeWidth) + i;
            means[cell] = WindowMeanAt(s, i, j);
            coeffs[cell] = CrossAt(s, i, j, sampleMean, means[cell], sumAA);
        }
}

}  // namespace Scan
}  // namespace PIV
#endif
