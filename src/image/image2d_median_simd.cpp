// Vector rows of the 3x3 and 5x5 median: Highway picks SSE4, AVX2 or AVX-512
// at run time. Every lane is one output pixel, so the window's neighbours are
// plain unaligned loads and no value crosses lanes. Integer images stay in
// their own lane type (32 bytes a vector on AVX2), which keeps the selection
// exact without any conversion.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "image2d_median_simd.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
// clang-format off
#include "hwy/highway.h"
// clang-format on

#include <atomic>
#include <utility>

#include "image2d_median_simd.h"

HWY_BEFORE_NAMESPACE();
namespace PIV {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Selection networks: each pair (a, b) leaves the smaller value on a and the
// larger on b, and the median ends on the middle wire. Both were checked on
// every 0-1 input (2^9 and 2^25 of them), which by the 0-1 principle holds
// for any values. The compiler drops the halves of exchanges that never
// reach the middle.
constexpr unsigned char kMedian9[19][2] = {{1, 2}, {4, 5}, {7, 8}, {0, 1}, {3, 4}, {6, 7}, {1, 2},
                                           {4, 5}, {7, 8}, {0, 3}, {5, 8}, {4, 7}, {3, 6}, {1, 4},
                                           {2, 5}, {4, 7}, {4, 2}, {6, 4}, {4, 2}};
constexpr unsigned char kMedian25[99][2] = {
    {0, 1},   {3, 4},   {2, 4},   {2, 3},   {6, 7},   {5, 7},   {5, 6},   {9, 10},  {8, 10},
    {8, 9},   {12, 13}, {11, 13}, {11, 12}, {15, 16}, {14, 16}, {14, 15}, {18, 19}, {17, 19},
    {17, 18}, {21, 22}, {20, 22}, {20, 21}, {23, 24}, {2, 5},   {3, 6},   {0, 6},   {0, 3},
    {4, 7},   {1, 7},   {1, 4},   {11, 14}, {8, 14},  {8, 11},  {12, 15}, {9, 15},  {9, 12},
    {13, 16}, {10, 16}, {10, 13}, {20, 23}, {17, 23}, {17, 20}, {21, 24}, {18, 24}, {18, 21},
    {19, 22}, {8, 17},  {9, 18},  {0, 18},  {0, 9},   {10, 19}, {1, 19},  {1, 10},  {11, 20},
    {2, 20},  {2, 11},  {12, 21}, {3, 21},  {3, 12},  {13, 22}, {4, 22},  {4, 13},  {14, 23},
    {5, 23},  {5, 14},  {15, 24}, {6, 24},  {6, 15},  {7, 16},  {7, 19},  {13, 21}, {15, 23},
    {7, 13},  {7, 15},  {1, 9},   {3, 11},  {5, 17},  {11, 17}, {9, 17},  {4, 10},  {6, 12},
    {7, 14},  {4, 6},   {4, 7},   {12, 14}, {10, 14}, {6, 7},   {10, 12}, {6, 10},  {6, 17},
    {12, 17}, {7, 17},  {7, 10},  {12, 18}, {7, 12},  {10, 18}, {12, 20}, {10, 20}, {10, 12}};

template <class V>
HWY_INLINE void Exchange(V& a, V& b) {
    const V lo = hn::Min(a, b);
    b = hn::Max(a, b);
    a = lo;
}

// Unrolled at compile time, so every wire is a register, not a stack slot.
template <int R, class V, size_t... I>
HWY_INLINE V Select(V* p, std::index_sequence<I...>) {
    if constexpr (R == 1) {
        (Exchange(p[kMedian9[I][0]], p[kMedian9[I][1]]), ...);
        return p[4];
    } else {
        (Exchange(p[kMedian25[I][0]], p[kMedian25[I][1]]), ...);
        return p[12];
    }
}

template <typename T, int R>
HWY_INLINE bool MedianRow(const T* const* rows, T* out, int64_t x0, int64_t x1) {
    constexpr int K = 2 * R + 1;
    const hn::ScalableTag<T> d;
    using V = decltype(hn::Zero(d));
    const int64_t n = static_cast<int64_t>(hn::Lanes(d));
    if (x1 - x0 < n) return false;
    for (int64_t x = x0;; x += n) {
        // The last vector steps back to end on x1: it recomputes a few
        // medians of the previous one, to the same values.
        if (x > x1 - n) x = x1 - n;
        V v[K * K];
        for (int dy = 0; dy < K; dy++)
            for (int dx = 0; dx < K; dx++) v[dy * K + dx] = hn::LoadU(d, rows[dy] + x - R + dx);
        hn::StoreU(Select<R>(v, std::make_index_sequence < R == 1 ? 19 : 99 > ()), d, out + x);
        if (x == x1 - n) return true;
    }
}

template <typename T>
HWY_NOINLINE bool MedianAnyRadius(const T* const* rows, T* out, int64_t x0, int64_t x1, int r) {
    return r == 2 ? MedianRow<T, 2>(rows, out, x0, x1) : MedianRow<T, 1>(rows, out, x0, x1);
}

bool MedianU8(const uint8_t* const* rows, uint8_t* out, int64_t x0, int64_t x1, int r) {
    return MedianAnyRadius(rows, out, x0, x1, r);
}
bool MedianU16(const uint16_t* const* rows, uint16_t* out, int64_t x0, int64_t x1, int r) {
    return MedianAnyRadius(rows, out, x0, x1, r);
}
bool MedianU32(const uint32_t* const* rows, uint32_t* out, int64_t x0, int64_t x1, int r) {
    return MedianAnyRadius(rows, out, x0, x1, r);
}
bool MedianF32(const float* const* rows, float* out, int64_t x0, int64_t x1, int r) {
    return MedianAnyRadius(rows, out, x0, x1, r);
}

}  // namespace HWY_NAMESPACE
}  // namespace PIV
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace PIV {
HWY_EXPORT(MedianU8);
HWY_EXPORT(MedianU16);
HWY_EXPORT(MedianU32);
HWY_EXPORT(MedianF32);

namespace MedianRows {

namespace {
std::atomic<bool> g_enabled{true};
}

bool Median(const uint8_t* const* rows, uint8_t* out, int64_t x0, int64_t x1, int r) {
    return HWY_DYNAMIC_DISPATCH(MedianU8)(rows, out, x0, x1, r);
}
bool Median(const uint16_t* const* rows, uint16_t* out, int64_t x0, int64_t x1, int r) {
    return HWY_DYNAMIC_DISPATCH(MedianU16)(rows, out, x0, x1, r);
}
bool Median(const uint32_t* const* rows, uint32_t* out, int64_t x0, int64_t x1, int r) {
    return HWY_DYNAMIC_DISPATCH(MedianU32)(rows, out, x0, x1, r);
}
bool Median(const float* const* rows, float* out, int64_t x0, int64_t x1, int r) {
    return HWY_DYNAMIC_DISPATCH(MedianF32)(rows, out, x0, x1, r);
}

void SetEnabled(bool on) {
    g_enabled.store(on, std::memory_order_relaxed);
}
bool Enabled() {
    return g_enabled.load(std::memory_order_relaxed);
}

}  // namespace MedianRows
}  // namespace PIV
#endif  // HWY_ONCE
