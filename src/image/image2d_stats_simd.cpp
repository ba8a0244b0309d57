// The moments of image rows (sum, sum of squares, minimum, maximum), the
// loop behind Image2D::doStatistics, vectorised with Highway: the best of
// SSE4, AVX2 and AVX-512 that the machine has is chosen at run time.
//
// Pixels of 8 and 16 bits are summed exactly in 64-bit integer lanes, so
// the result does not depend on the order: it equals the plain loop bit
// for bit. Float pixels are summed in double lanes; only the order of the
// additions differs from the plain loop (the squares are exact in double).
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "image2d_stats_simd.cpp"
#include "image2d_stats_simd.h"
#include "hwy/foreach_target.h"  // must come before highway.h
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace PIV {
namespace Simd {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

template <typename T>
void IntegerRow(const T* HWY_RESTRICT p, size_t n, RowMoments& m) {
    uint64_t sum = 0, squares = 0;
    uint32_t least = m.intMin, most = m.intMax;
    size_t i = 0;
#if HWY_TARGET != HWY_SCALAR
    const hn::ScalableTag<uint32_t> d32;
    const hn::Rebind<T, decltype(d32)> dT;
    const hn::Repartition<uint64_t, decltype(d32)> d64;
    const size_t lanes = hn::Lanes(d32);
    const auto low32 = hn::Set(d64, 0xFFFFFFFFull);
    auto lo = hn::Set(d32, uint32_t(m.intMin)), hi = hn::Set(d32, uint32_t(m.intMax));
    auto s1 = hn::Zero(d64), s2 = hn::Zero(d64);
    for (; i + lanes <= n; i += lanes) {
        const auto v = hn::PromoteTo(d32, hn::LoadU(dT, p + i));
        lo = hn::Min(lo, v);
        hi = hn::Max(hi, v);
        // Even and odd 32-bit lanes widened to 64 bits, then squared there:
        // a 16-bit value squared fills 32 bits, and 2^32 of them 64.
        const auto wide = hn::BitCast(d64, v);
        const auto odd = hn::ShiftRight<32>(wide);
        s1 = hn::Add(s1, hn::Add(hn::And(wide, low32), odd));
        s2 = hn::Add(s2, hn::MulEven(v, v));
        const auto oddAs32 = hn::BitCast(d32, odd);
        s2 = hn::Add(s2, hn::MulEven(oddAs32, oddAs32));
    }
    sum = hn::GetLane(hn::SumOfLanes(d64, s1));
    squares = hn::GetLane(hn::SumOfLanes(d64, s2));
    least = hn::GetLane(hn::MinOfLanes(d32, lo));
    most = hn::GetLane(hn::MaxOfLanes(d32, hi));
#endif
    for (; i < n; i++) {
        const uint32_t v = p[i];
        sum += v;
        squares += uint64_t(v) * v;
        least = v < least ? v : least;
        most = v > most ? v : most;
    }
    m.intSum += sum;
    m.intSquares += squares;
    m.intMin = least;
    m.intMax = most;
}

void U8Row(const uint8_t* p, size_t n, RowMoments& m) {
    IntegerRow(p, n, m);
}
void U16Row(const uint16_t* p, size_t n, RowMoments& m) {
    IntegerRow(p, n, m);
}

void FloatRow(const float* HWY_RESTRICT p, size_t n, RowMoments& m) {
    const hn::ScalableTag<double> dd;
    const hn::Rebind<float, decltype(dd)> df;
    const size_t lanes = hn::Lanes(dd);
    // "Take v when below": a NaN never replaces the running extreme, as in
    // the plain loop.
    auto lo = hn::Set(df, m.floatMin), hi = hn::Set(df, m.floatMax);
    auto s1 = hn::Zero(dd), s2 = hn::Zero(dd);
    size_t i = 0;
    for (; i + lanes <= n; i += lanes) {
        const auto f = hn::LoadU(df, p + i);
        lo = hn::IfThenElse(hn::Lt(f, lo), f, lo);
        hi = hn::IfThenElse(hn::Gt(f, hi), f, hi);
        const auto v = hn::PromoteTo(dd, f);
        s1 = hn::Add(s1, v);
        s2 = hn::MulAdd(v, v, s2);
    }
    double sum = hn::GetLane(hn::SumOfLanes(dd, s1));
    double squares = hn::GetLane(hn::SumOfLanes(dd, s2));
    float least = m.floatMin, most = m.floatMax;
    HWY_ALIGN float los[hn::MaxLanes(df)], his[hn::MaxLanes(df)];
    hn::Store(lo, df, los);
    hn::Store(hi, df, his);
    for (size_t k = 0; k < lanes; k++) {
        if (los[k] < least) least = los[k];
        if (his[k] > most) most = his[k];
    }
    for (; i < n; i++) {
        const double v = p[i];
        sum += v;
        squares += v * v;
        if (p[i] < least) least = p[i];
        if (p[i] > most) most = p[i];
    }
    m.floatSum += sum;
    m.floatSquares += squares;
    m.floatMin = least;
    m.floatMax = most;
}

}  // namespace HWY_NAMESPACE
}  // namespace Simd
}  // namespace PIV
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace PIV {
namespace Simd {

HWY_EXPORT(U8Row);
HWY_EXPORT(U16Row);
HWY_EXPORT(FloatRow);

void AddRow(const uint8_t* row, size_t n, RowMoments& m) {
    HWY_DYNAMIC_DISPATCH(U8Row)(row, n, m);
}
void AddRow(const uint16_t* row, size_t n, RowMoments& m) {
    HWY_DYNAMIC_DISPATCH(U16Row)(row, n, m);
}
void AddRow(const float* row, size_t n, RowMoments& m) {
    HWY_DYNAMIC_DISPATCH(FloatRow)(row, n, m);
}

}  // namespace Simd
}  // namespace PIV
#endif
