// Image2D: changes of the pixel type.
//
// The converted pixels go into a new block that replaces the old one only
// when complete, so a conversion that cannot get its memory leaves the image
// untouched.
#include <type_traits>

#include "image2d.h"
#include "image2d_convert_simd.h"
#include "image2d_pixel.h"

using PIV::ImagePixel::Dispatch;
using PIV::Guarded;
using PIV::ImagePixel::TruncWide;
using PIV::ImagePixel::Wrap;

namespace {

// One pixel from type S to type D. `clip` limits to the target's range;
// without it integer targets keep the low bits.
template <typename D, typename S, bool clip>
inline D _convert(S v) {
    if constexpr (std::is_same<D, float>::value) {
        return static_cast<float>(v);
    } else if constexpr (std::is_same<S, float>::value) {
        if constexpr (std::is_same<D, uint32_t>::value) {
            if (!clip) return Wrap<D>(TruncWide(v));
            if (!(v > 0.0f)) return 0;  // negative and NaN
            if (v > 2147483648.0f) return 0x80000000u;
            return static_cast<D>(TruncWide(v));
        } else if constexpr (clip) {
            // Written as two selects so that the loop vectorises; NaN fails
            // the first test and becomes 0.
            constexpr float top = std::is_same<D, uint8_t>::value ? 255.0f : 65535.0f;
            float c = v > 0.0f ? v : 0.0f;
            c = c < top ? c : top;
            return static_cast<D>(static_cast<int32_t>(c));
        } else {
            return Wrap<D>(v > 0.0f ? TruncWide(v) : 0);
        }
    } else if constexpr (sizeof(D) >= sizeof(S)) {
        return static_cast<D>(v);  // widening is exact
    } else {
        constexpr S top = std::is_same<D, uint8_t>::value ? 255 : 65535;
        if (clip) return static_cast<D>(v > top ? top : v);
        return static_cast<D>(v);  // the low byte or word
    }
}

template <typename D, typename S, bool clip>
void _convertRows(const Image2D& src, Image2D& dst) {
    const uint64_t w = src.width();
    for (uint64_t y = 0; y < src.height(); y++) {
        const S* in = src.scanLine<S>(y);
        D* out = dst.scanLine<D>(y);
        if constexpr (std::is_same<D, float>::value &&
                      (std::is_same<S, uint8_t>::value || std::is_same<S, uint16_t>::value))
            PIV::Simd::WidenRow(in, w, out);
        else
            for (uint64_t x = 0; x < w; x++) out[x] = _convert<D, S, clip>(in[x]);
    }
}

}  // namespace

void Image2D::convertOrThrow(ImageType target, bool clip) {
    if (isNull()) throw PIVerror::IMAGE_IS_NULL;
    if (m_type == target) return;
    Image2D converted;
    converted.allocOrThrow(static_cast<int64_t>(m_width), static_cast<int64_t>(m_height), target,
                           0);
    Dispatch(m_type, [&](auto stag) {
        using S = typename decltype(stag)::type;
        Dispatch(target, [&](auto dtag) {
            using D = typename decltype(dtag)::type;
            if (clip)
                _convertRows<D, S, true>(*this, converted);
            else
                _convertRows<D, S, false>(*this, converted);
        });
    });
    swapStorage(converted);
    m_fileFormat = PIV::FORMAT_UNKNOWN;
    markChanged();
}

bool Image2D::to8Bit(bool clip) {
    if (m_type == IMAGE_UINT8) return true;
    return Guarded(m_error, "to8Bit()", [&] { convertOrThrow(IMAGE_UINT8, clip); });
}

bool Image2D::to16Bit(bool clip) {
    if (m_type == IMAGE_UINT16) return true;
    return Guarded(m_error, "to16Bit()", [&] { convertOrThrow(IMAGE_UINT16, clip); });
}

bool Image2D::to32Bit(bool clip) {
    if (m_type == IMAGE_UINT32) return true;
    return Guarded(m_error, "to32Bit()", [&] { convertOrThrow(IMAGE_UINT32, clip); });
}

bool Image2D::toFloat() {
    if (m_type == IMAGE_FLOAT) return true;
    return Guarded(m_error, "toFloat()", [&] {
        if (m_type == IMAGE_UNDEFINED) {
            m_error.setMessage("toFloat() - undefined type!!");
            throw PIVerror::IMAGE_TYPE_UNSUPPORTED;
        }
        convertOrThrow(IMAGE_FLOAT, true);
    });
}

bool Image2D::convertToType(ImageType type) {
    if (m_type == type) return true;
    if (isNull()) {
        m_error.handleError(PIVerror::IMAGE_IS_NULL, "convertToType()");
        return false;
    }
    switch (type) {
        case IMAGE_UINT8:
            return to8Bit(true);
        case IMAGE_UINT16:
            return to16Bit(true);
        case IMAGE_UINT32:
            return to32Bit(true);
        case IMAGE_FLOAT:
            return toFloat();
        default:
            m_error.setMessage("convertToType() - unsupported target type %d",
                               static_cast<int>(type));
            m_error.handleError(PIVerror::IMAGE_TYPE_UNSUPPORTED, "convertToType()");
            return false;
    }
}
