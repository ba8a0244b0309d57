// The sweeps of the peak search, vectorised with Highway. The comparisons
// are those of the plain loops, lane by lane: "take v when above" keeps a
// NaN out as the plain `v > best` does. Only the sum of squares is added in
// another order.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "piv_peak2d_simd.cpp"
#include "piv_peak2d_simd.h"
#include "hwy/foreach_target.h"  // must come before highway.h
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace PIV {
namespace Simd {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

// The lanes of v folded into one, by the same rule as the sweep.
template <class D, class V, class Keep>
float Fold(D d, V v, float start, Keep keep) {
    HWY_ALIGN float lanes[hn::MaxLanes(d)];
    hn::Store(v, d, lanes);
    float r = start;
    for (size_t k = 0; k < hn::Lanes(d); k++)
        if (keep(lanes[k], r)) r = lanes[k];
    return r;
}

void ScanPlaneImpl(const float* HWY_RESTRICT p, size_t n, float& least, float& greatest,
                   double& squares) {
    const hn::ScalableTag<double> dd;
    const hn::Rebind<float, decltype(dd)> df;
    const size_t lanes = hn::Lanes(dd);
    const float first = n ? p[0] : 0.0f;
    auto lo = hn::Set(df, first), hi = lo;
    auto s = hn::Zero(dd);
    size_t k = 0;
    for (; k + lanes <= n; k += lanes) {
        const auto f = hn::LoadU(df, p + k);
        lo = hn::IfThenElse(hn::Lt(f, lo), f, lo);
        hi = hn::IfThenElse(hn::Gt(f, hi), f, hi);
        const auto v = hn::PromoteTo(dd, f);
        s = hn::MulAdd(v, v, s);
    }
    float l = Fold(df, lo, first, [](float v, float r) { return v < r; });
    float g = Fold(df, hi, first, [](float v, float r) { return v > r; });
    double sum = hn::GetLane(hn::SumOfLanes(dd, s));
    for (; k < n; k++) {
        if (p[k] < l) l = p[k];
        if (p[k] > g) g = p[k];
        sum += double(p[k]) * double(p[k]);
    }
    least = l;
    greatest = g;
    squares = sum;
}

float GreatestImpl(const float* HWY_RESTRICT p, size_t n, float start) {
    const hn::ScalableTag<float> df;
    const size_t lanes = hn::Lanes(df);
    size_t k = 0;
    float g = start;
    if (n >= lanes) {
        auto hi = hn::Set(df, start);
        for (; k + lanes <= n; k += lanes) {
            const auto f = hn::LoadU(df, p + k);
            hi = hn::IfThenElse(hn::Gt(f, hi), f, hi);
        }
        g = Fold(df, hi, start, [](float v, float r) { return v > r; });
    }
    for (; k < n; k++)
        if (p[k] > g) g = p[k];
    return g;
}

// Sets the bits of cells [at, at + count) from the low bits of chunk.
inline void SetBits(uint64_t* words, size_t at, uint64_t chunk, size_t count) {
    if (count < 64) chunk &= (uint64_t(1) << count) - 1;
    const size_t word = at / 64, shift = at % 64;
    words[word] |= chunk << shift;
    if (shift != 0 && shift + count > 64) words[word + 1] |= chunk >> (64 - shift);
}

void CandidatesImpl(const float* HWY_RESTRICT line, const float* HWY_RESTRICT up,
                    const float* HWY_RESTRICT down, size_t n, float floor,
                    uint64_t* HWY_RESTRICT bits) {
    for (size_t k = 0; k < (n + 63) / 64; k++) bits[k] = 0;
    size_t i = 1;
#if HWY_TARGET != HWY_SCALAR
    const hn::ScalableTag<float> df;
    const size_t lanes = hn::Lanes(df);
    const auto lowest = hn::Set(df, floor);
    auto bitsAt = [&](size_t at) {
        const auto v = hn::LoadU(df, line + at);
        auto m = hn::And(hn::Gt(v, hn::LoadU(df, line + at - 1)),
                         hn::Gt(v, hn::LoadU(df, line + at + 1)));
        m = hn::And(
            m, hn::And(hn::Gt(v, hn::LoadU(df, up + at)), hn::Gt(v, hn::LoadU(df, down + at))));
        m = hn::And(m, hn::Gt(v, lowest));
        if (hn::AllFalse(df, m)) return;
        uint8_t packed[8] = {0, 0, 0, 0, 0, 0, 0, 0};
        hn::StoreMaskBits(df, m, packed);
        uint64_t chunk = 0;
        for (size_t k = 0; k < 8; k++) chunk |= uint64_t(packed[k]) << (8 * k);
        SetBits(bits, at, chunk, lanes);
    };
    if (lanes <= 64 && n >= lanes + 2) {
        for (; i + lanes + 1 <= n; i += lanes) bitsAt(i);
        // The rest of the row as one more vector that overlaps the last:
        // the bits of the cells taken twice come out the same.
        if (i + 1 < n) bitsAt(n - 1 - lanes);
        return;
    }
#endif
    for (; i + 1 < n; i++) {
        const float v = line[i];
        if ((v > line[i - 1]) & (v > line[i + 1]) & (v > up[i]) & (v > down[i]) & (v > floor))
            bits[i / 64] |= uint64_t(1) << (i % 64);
    }
}

}  // namespace HWY_NAMESPACE
}  // namespace Simd
}  // namespace PIV
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace PIV {
namespace Simd {

HWY_EXPORT(ScanPlaneImpl);
HWY_EXPORT(GreatestImpl);
HWY_EXPORT(CandidatesImpl);

void ScanPlane(const float* p, size_t n, float& least, float& greatest, double& squares) {
    HWY_DYNAMIC_DISPATCH(ScanPlaneImpl)(p, n, least, greatest, squares);
}
float GreatestOf(const float* p, size_t n, float start) {
    return HWY_DYNAMIC_DISPATCH(GreatestImpl)(p, n, start);
}
void PeakCandidates(const float* line, const float* up, const float* down, size_t n, float floor,
                    uint64_t* bits) {
    HWY_DYNAMIC_DISPATCH(CandidatesImpl)(line, up, down, n, floor, bits);
}

}  // namespace Simd
}  // namespace PIV
#endif
