// 8 and 16-bit pixels widened to float with Highway: the best of SSE4, AVX2
// and AVX-512 that the machine has is chosen at run time. The integers go
// through 32-bit lanes, whose conversion to float is exact below 2^24.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "image2d_convert_simd.cpp"
#include "image2d_convert_simd.h"
#include "hwy/foreach_target.h"  // must come before highway.h
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace PIV {
namespace Simd {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

template <typename T>
void WidenRowT(const T* HWY_RESTRICT in, size_t n, float* HWY_RESTRICT out) {
    const hn::ScalableTag<float> df;
    const hn::Rebind<int32_t, decltype(df)> di;
    const hn::Rebind<T, decltype(df)> dT;
    const size_t lanes = hn::Lanes(df);
    size_t i = 0;
    for (; i + lanes <= n; i += lanes)
        hn::StoreU(hn::ConvertTo(df, hn::PromoteTo(di, hn::LoadU(dT, in + i))), df, out + i);
    for (; i < n; i++) out[i] = static_cast<float>(in[i]);
}

void U8Widen(const uint8_t* in, size_t n, float* out) {
    WidenRowT(in, n, out);
}
void U16Widen(const uint16_t* in, size_t n, float* out) {
    WidenRowT(in, n, out);
}

}  // namespace HWY_NAMESPACE
}  // namespace Simd
}  // namespace PIV
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace PIV {
namespace Simd {

HWY_EXPORT(U8Widen);
HWY_EXPORT(U16Widen);

void WidenRow(const uint8_t* in, size_t n, float* out) {
    HWY_DYNAMIC_DISPATCH(U8Widen)(in, n, out);
}
void WidenRow(const uint16_t* in, size_t n, float* out) {
    HWY_DYNAMIC_DISPATCH(U16Widen)(in, n, out);
}

}  // namespace Simd
}  // namespace PIV
#endif
