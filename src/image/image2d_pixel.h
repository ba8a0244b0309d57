// Pixel-type machinery for the image kernels: one switch on the image type
// chooses a template instantiation, and the kernels then run on raw typed
// pointers. The store helpers give every float-to-integer conversion of the
// image classes a defined result, also for NaN and values far out of range.
#pragma once

#include <cstdint>
#include <limits>
#include <type_traits>

#include "image_types.h"
#include "piv_error.h"

namespace PIV {
namespace ImagePixel {

template <typename T>
struct Tag {
    using type = T;
};

template <typename T>
struct Traits;
template <>
struct Traits<uint8_t> {
    static constexpr ImageType type = IMAGE_UINT8;
    static constexpr int64_t top = 255;
};
template <>
struct Traits<uint16_t> {
    static constexpr ImageType type = IMAGE_UINT16;
    static constexpr int64_t top = 65535;
};
template <>
struct Traits<uint32_t> {
    static constexpr ImageType type = IMAGE_UINT32;
    // Clip limits of 32-bit images stay in the signed range.
    static constexpr int64_t top = 2147483647;
};
template <>
struct Traits<float> {
    static constexpr ImageType type = IMAGE_FLOAT;
};

// Calls f(Tag<T>{}) for the pixel type T of `type`; any other type throws
// IMAGE_TYPE_UNSUPPORTED. All instantiations of f must return the same type.
template <typename F>
decltype(auto) Dispatch(int type, F&& f) {
    switch (type) {
        case IMAGE_UINT8:
            return f(Tag<uint8_t>{});
        case IMAGE_UINT16:
            return f(Tag<uint16_t>{});
        case IMAGE_UINT32:
            return f(Tag<uint32_t>{});
        case IMAGE_FLOAT:
            return f(Tag<float>{});
        default:
            throw PIVerror::IMAGE_TYPE_UNSUPPORTED;
    }
}

// Truncation toward zero that saturates instead of invoking undefined
// behaviour; NaN gives 0. The limit of +-2^62 leaves room to add or subtract
// any pixel value (below 2^33) in int64 without overflow.
constexpr int64_t kWideLimit = int64_t(1) << 62;
inline int64_t TruncWide(double v) {
    if (!(v == v)) return 0;
    if (v >= static_cast<double>(kWideLimit)) return kWideLimit;
    if (v <= -static_cast<double>(kWideLimit)) return -kWideLimit;
    return static_cast<int64_t>(v);
}

// Truncation to a pixel coordinate; NaN and values beyond the int range
// land outside every image instead of invoking undefined behaviour.
inline int TruncCoordinate(double v) {
    if (!(v == v)) return std::numeric_limits<int>::min();
    if (v >= 2147483647.0) return std::numeric_limits<int>::max();
    if (v <= -2147483648.0) return std::numeric_limits<int>::min();
    return static_cast<int>(v);
}

// Keeps the low bits, as an integer register would.
template <typename T>
inline T Wrap(int64_t v) {
    static_assert(std::is_integral<T>::value, "integer pixels only");
    return static_cast<T>(static_cast<uint64_t>(v));
}

template <typename T>
inline T ClampTo(int64_t v, int64_t low, int64_t high) {
    return static_cast<T>(v < low ? low : (v > high ? high : v));
}

// The store rule of setPixel and fill: truncate toward zero, no clamp.
template <typename T>
inline T StoreWrapped(double v) {
    if constexpr (std::is_same<T, float>::value)
        return static_cast<float>(v);
    else
        return Wrap<T>(TruncWide(v));
}

// The store rule of putRow and putColumn: round half up, clamp 8 and 16 bits.
template <typename T>
inline T StoreRounded(float v) {
    if constexpr (std::is_same<T, float>::value) {
        return v;
    } else {
        int64_t r = TruncWide(static_cast<double>(v) + 0.5);
        if constexpr (std::is_same<T, uint32_t>::value)
            return Wrap<T>(r);
        else
            return ClampTo<T>(r, 0, Traits<T>::top);
    }
}

}  // namespace ImagePixel
}  // namespace PIV
