// Image2D: pixel arithmetic, clipping, scaling, negative, gamma, look-up
// tables, masks, minimum and maximum images and the generated images.
//
// Loops that need no per-row work run flat over pixelsPerLine x height
// values, padding included; what lands in the padding is never read as a pixel.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <type_traits>

#include "image2d.h"
#include "image2d_pixel.h"
#include "piv_messages.h"

using PIV::ImagePixel::ClampTo;
using PIV::ImagePixel::Dispatch;
using PIV::Guarded;
using PIV::ImagePixel::StoreWrapped;
using PIV::ImagePixel::Traits;
using PIV::ImagePixel::TruncWide;
using PIV::ImagePixel::Wrap;

namespace {

template <typename T>
constexpr bool kIsFloat = std::is_same<T, float>::value;

template <typename T>
T* _flat(Image2D& img) {
    return img.scanLine<T>(0);
}
template <typename T>
const T* _flat(const Image2D& img) {
    return img.scanLine<T>(0);
}

uint64_t _flatCount(const Image2D& img) {
    return img.pixelsPerLine() * img.height();
}

}  // namespace

// ---------------------------------------------------------------------------
// arithmetic between images of one size and type

namespace {

enum class ImageOp { Add, Subtract, Multiply, Divide };

template <typename T, ImageOp op>
void _combine(T* a, const T* b, uint64_t n) {
    for (uint64_t i = 0; i < n; i++) {
        if constexpr (kIsFloat<T>) {
            if constexpr (op == ImageOp::Add) a[i] += b[i];
            if constexpr (op == ImageOp::Subtract) a[i] -= b[i];
            if constexpr (op == ImageOp::Multiply) a[i] *= b[i];
            if constexpr (op == ImageOp::Divide) a[i] = b[i] == 0.0f ? 0.0f : a[i] / b[i];
        } else {
            const uint64_t va = a[i], vb = b[i];
            if constexpr (op == ImageOp::Subtract) {
                a[i] = static_cast<T>(va > vb ? va - vb : 0);
            } else if constexpr (op == ImageOp::Divide) {
                const uint64_t q = vb == 0 ? 0 : va / vb;
                a[i] = static_cast<T>(std::min<uint64_t>(q, Traits<T>::top));
            } else {
                const uint64_t r = op == ImageOp::Add ? va + vb : va * vb;
                // 8 and 16 bits saturate, 32 bits wrap.
                if constexpr (sizeof(T) < 4)
                    a[i] = static_cast<T>(std::min<uint64_t>(r, Traits<T>::top));
                else
                    a[i] = static_cast<T>(r);
            }
        }
    }
}

template <ImageOp op>
bool _imageOperation(Image2D& self, const Image2D& other, PIVerror& error, const char* where) {
    return Guarded(error, where, [&] {
        if (other.isNull()) throw PIVerror::IMAGE_IS_NULL;
        if (&other == &self || other.bits() == self.bits()) throw PIVerror::OVERWRITE_OWN_DATA;
        if (!self.isSameSize(other, true) || self.pixelsPerLine() != other.pixelsPerLine())
            throw PIVerror::IMAGE_SIZE_MISMATCH;
        Dispatch(self.type(), [&](auto tag) {
            using T = typename decltype(tag)::type;
            _combine<T, op>(_flat<T>(self), _flat<T>(other), _flatCount(self));
        });
        self.setFlagNeedStatistics(true);
    });
}

}  // namespace

bool Image2D::operator+=(const Image2D& other) {
    return _imageOperation<ImageOp::Add>(*this, other, m_error, "operator(+=)");
}
bool Image2D::operator-=(const Image2D& other) {
    return _imageOperation<ImageOp::Subtract>(*this, other, m_error, "operator(-=)");
}
bool Image2D::operator*=(const Image2D& other) {
    return _imageOperation<ImageOp::Multiply>(*this, other, m_error, "operator(*=)");
}
bool Image2D::operator/=(const Image2D& other) {
    return _imageOperation<ImageOp::Divide>(*this, other, m_error, "operator(/=)");
}

bool Image2D::operator+=(float offset) {
    return Guarded(m_error, "operator(+=)", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        const int64_t k = TruncWide(offset);
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            T* p = _flat<T>(*this);
            const uint64_t n = _flatCount(*this);
            for (uint64_t i = 0; i < n; i++) {
                if constexpr (kIsFloat<T>)
                    p[i] += offset;
                else if constexpr (sizeof(T) == 4)
                    p[i] = Wrap<T>(static_cast<int64_t>(p[i]) + k);
                else
                    p[i] = ClampTo<T>(static_cast<int64_t>(p[i]) + k, 0, Traits<T>::top);
            }
        });
        markChanged();
    });
}

bool Image2D::operator*=(float factor) {
    return Guarded(m_error, "operator(*=)", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            T* p = _flat<T>(*this);
            const uint64_t n = _flatCount(*this);
            for (uint64_t i = 0; i < n; i++) {
                if constexpr (kIsFloat<T>) {
                    p[i] *= factor;
                } else {
                    const int64_t r = TruncWide(static_cast<float>(p[i]) * factor);
                    if constexpr (sizeof(T) == 4)
                        p[i] = r < 0 ? T(0) : Wrap<T>(r);
                    else
                        p[i] = ClampTo<T>(r, 0, Traits<T>::top);
                }
            }
        });
        markChanged();
    });
}

// ---------------------------------------------------------------------------
// offset, scale and square

namespace {

// One pass of a pointwise rule over every stored value. Float images take
// `inFloat` as it is; 32-bit images compute in float, truncate, and with
// `clip` stop at 0; 8 and 16-bit images take `wide` (an int64 result) and
// with `clip` limit it to the type's range, else keep its low bits.
template <typename T, typename InFloat, typename Wide>
void _pointwise(T* p, uint64_t n, bool clip, InFloat inFloat, Wide wide) {
    if constexpr (kIsFloat<T>) {
        for (uint64_t i = 0; i < n; i++) p[i] = inFloat(p[i]);
    } else if constexpr (sizeof(T) == 4) {
        for (uint64_t i = 0; i < n; i++) {
            const int64_t r = TruncWide(inFloat(static_cast<float>(p[i])));
            p[i] = clip && r < 0 ? T(0) : Wrap<T>(r);
        }
    } else {
        for (uint64_t i = 0; i < n; i++) {
            const int64_t r = wide(p[i]);
            p[i] = clip ? ClampTo<T>(r, 0, Traits<T>::top) : Wrap<T>(r);
        }
    }
}

}  // namespace

void Image2D::biasOrThrow(double offset, bool clip) {
    if (isNull()) throw PIVerror::IMAGE_IS_NULL;
    const float f = static_cast<float>(offset);
    // 8 and 16 bits add the offset truncated to an integer.
    const int64_t k = TruncWide(offset);
    Dispatch(m_type, [&](auto tag) {
        using T = typename decltype(tag)::type;
        _pointwise<T>(
            _flat<T>(*this), _flatCount(*this), clip, [f](float v) { return v + f; },
            [k](T v) { return static_cast<int64_t>(v) + k; });
    });
    markChanged();
}

bool Image2D::bias(double offset, bool clip) {
    return Guarded(m_error, "bias()", [&] { biasOrThrow(offset, clip); });
}

bool Image2D::subtract(double value, bool clip) {
    return Guarded(m_error, "subtract()", [&] {
        biasOrThrow(-value, clip);
        if (clip) clipLowOrThrow(0.0);
        markChanged();
    });
}

bool Image2D::scale(double factor, bool clip) {
    return Guarded(m_error, "scale()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        const float f = static_cast<float>(factor);
        // 8 and 16 bits multiply in double.
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            _pointwise<T>(
                _flat<T>(*this), _flatCount(*this), clip, [f](float v) { return v * f; },
                [factor](T v) { return TruncWide(static_cast<double>(v) * factor); });
        });
        markChanged();
    });
}

namespace {

template <typename T>
void _squareInto(T* dst, const T* src, uint64_t n, bool clip) {
    for (uint64_t i = 0; i < n; i++) {
        if constexpr (kIsFloat<T>) {
            dst[i] = src[i] * src[i];
        } else {
            const uint64_t v = src[i];
            const uint64_t r = v * v;
            // 32 bits are never limited.
            if (clip && sizeof(T) < 4)
                dst[i] =
                    static_cast<T>(std::min<uint64_t>(r, static_cast<uint64_t>(Traits<T>::top)));
            else
                dst[i] = static_cast<T>(r);
        }
    }
}

}  // namespace

bool Image2D::square(bool clip) {
    return Guarded(m_error, "square()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            _squareInto<T>(_flat<T>(*this), _flat<T>(*this), _flatCount(*this), clip);
        });
        markChanged();
    });
}

bool Image2D::squared(const Image2D& src, bool clip) {
    return Guarded(m_error, "squared()", [&] {
        if (src.isNull()) throw PIVerror::IMAGE_IS_NULL;
        if (isNull()) {
            allocOrThrow(static_cast<int64_t>(src.width()), static_cast<int64_t>(src.height()),
                         src.type(), 0);
            std::memset(m_bits, 0, numBytes());
        }
        if (!isSameSize(src, true)) throw PIVerror::IMAGE_SIZE_MISMATCH;
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            for (uint64_t y = 0; y < m_height; y++)
                _squareInto<T>(scanLine<T>(y), src.scanLine<T>(y), m_width, clip);
        });
        markChanged();
    });
}

// ---------------------------------------------------------------------------
// difference of images of any two types

namespace {

template <typename D, typename S>
void _subtractRow(D* d, const S* s, uint64_t n, bool clip) {
    for (uint64_t i = 0; i < n; i++) {
        if constexpr (kIsFloat<D>) {
            d[i] = d[i] - static_cast<float>(s[i]);
        } else {
            // A float source is truncated before it is subtracted.
            int64_t sv;
            if constexpr (kIsFloat<S>)
                sv = TruncWide(s[i]);
            else
                sv = static_cast<int64_t>(s[i]);
            int64_t r = static_cast<int64_t>(d[i]) - sv;
            if constexpr (sizeof(D) == 4) {
                // 32-bit destinations always stop at 0.
                d[i] = r < 0 ? D(0) : Wrap<D>(r);
            } else {
                d[i] = clip ? ClampTo<D>(r, 0, Traits<D>::top) : Wrap<D>(r);
            }
        }
    }
}

}  // namespace

bool Image2D::subtract(const Image2D& src, bool clip) {
    return Guarded(m_error, "subtract()", [&] {
        if (src.isNull()) {
            m_error.setMessage("subtract() - Source image contains no data");
            throw PIVerror::IMAGE_IS_NULL;
        }
        if (std::strlen(src.fileName()) > 1)
            showStatusFormatted("  Subtracting image '%s'", src.fileName());
        else
            showStatusFormatted("  Subtracting image");
        if (isNull()) {
            allocOrThrow(static_cast<int64_t>(src.width()), static_cast<int64_t>(src.height()),
                         src.type(), 0);
            std::memset(m_bits, 0, numBytes());
            markChanged();
            if (clip) return;
        }
        if (!isSameSize(src, false)) throw PIVerror::IMAGE_SIZE_MISMATCH;
        Dispatch(m_type, [&](auto dtag) {
            using D = typename decltype(dtag)::type;
            Dispatch(src.type(), [&](auto stag) {
                using S = typename decltype(stag)::type;
                for (uint64_t y = 0; y < m_height; y++)
                    _subtractRow<D, S>(scanLine<D>(y), src.scanLine<S>(y), m_width, clip);
            });
        });
        markChanged();
    });
}

// ---------------------------------------------------------------------------
// clipping

namespace {

// The limit in the image's type: negative becomes 0 on integer images, above
// the top becomes the top.
template <typename T>
T _integerLimit(double value, double topTest) {
    if (value < 0.0) return T(0);
    if (value > topTest) return static_cast<T>(Traits<T>::top);
    return Wrap<T>(TruncWide(value));
}

}  // namespace

bool Image2D::clipHighOrThrow(double value) {
    if (isNull()) throw PIVerror::IMAGE_IS_NULL;
    showStatusFormatted("  Clipping image at %g", value);
    Dispatch(m_type, [&](auto tag) {
        using T = typename decltype(tag)::type;
        T* p = _flat<T>(*this);
        const uint64_t n = _flatCount(*this);
        if constexpr (kIsFloat<T>) {
            const float limit = static_cast<float>(value);
            for (uint64_t i = 0; i < n; i++)
                if (static_cast<double>(p[i]) > value) p[i] = limit;
        } else {
            // 8-bit limits are tested against the 16-bit top, so a limit of
            // 256..65535 keeps only its low byte. Callers depend on that.
            const double topTest = sizeof(T) == 1 ? 65535.0 : static_cast<double>(Traits<T>::top);
            const T limit = _integerLimit<T>(value, topTest);
            for (uint64_t i = 0; i < n; i++)
                if (p[i] > limit) p[i] = limit;
        }
    });
    markChanged();
    return true;
}

bool Image2D::clipLowOrThrow(double value) {
    if (isNull()) throw PIVerror::IMAGE_IS_NULL;
    Dispatch(m_type, [&](auto tag) {
        using T = typename decltype(tag)::type;
        T* p = _flat<T>(*this);
        const uint64_t n = _flatCount(*this);
        if constexpr (kIsFloat<T>) {
            const float limit = static_cast<float>(value);
            for (uint64_t i = 0; i < n; i++)
                if (static_cast<double>(p[i]) < value) p[i] = limit;
        } else {
            const T limit = _integerLimit<T>(value, static_cast<double>(Traits<T>::top));
            for (uint64_t i = 0; i < n; i++)
                if (p[i] < limit) p[i] = limit;
        }
    });
    markChanged();
    return true;
}

bool Image2D::clipHigh(double value) {
    return Guarded(m_error, "clipHigh()", [&] { clipHighOrThrow(value); });
}

bool Image2D::clipLow(double value) {
    return Guarded(m_error, "clipLow()", [&] { clipLowOrThrow(value); });
}

bool Image2D::clipRange(double low, double high) {
    return Guarded(m_error, "clipRange()", [&] {
        clipLowOrThrow(low);
        clipHighOrThrow(high);
    });
}

// ---------------------------------------------------------------------------
// range scaling, normalisation, negative, gamma

bool Image2D::scaleToRange(double low, double high) {
    if (low >= high) {
        m_error.setMessage("scaleToRange() - bad range (%g,%g)", low, high);
        m_error.handleError(PIVerror::BAD_RANGE, "scaleToRange()");
        return false;
    }
    // The one failure left is an image without a pixel type, reported under
    // this name.
    return Guarded(m_error, "sclaeToRange()", [&] {
        if (isNull()) throw PIVerror::IMAGE_TYPE_UNSUPPORTED;
        doStatistics(true);
        if (m_minimum == m_maximum) {
            fill(static_cast<float>(low));
            return;
        }
        const float sf = static_cast<float>((high - low) / (m_maximum - m_minimum));
        const float fmin = static_cast<float>(m_minimum), flow = static_cast<float>(low);
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            T* p = _flat<T>(*this);
            const uint64_t n = _flatCount(*this);
            for (uint64_t i = 0; i < n; i++) {
                const float v = (static_cast<float>(p[i]) - fmin) * sf + flow;
                if constexpr (kIsFloat<T>) {
                    p[i] = v;
                } else {
                    const int64_t top = sizeof(T) == 4 ? int64_t(2147483648) : Traits<T>::top;
                    p[i] = ClampTo<T>(TruncWide(v), 0, top);
                }
            }
        });
        markChanged();
    });
}

bool Image2D::normalize(double scaleValue) {
    return Guarded(m_error, "normalize()", [&] {
        convertOrThrow(IMAGE_FLOAT, true);
        doStatistics(true);
        if (m_minimum == m_maximum) {
            fill(0.0f);
            return;
        }
        // The flags stay as they are: the cached statistics keep describing
        // the image before normalisation.
        const double f = (scaleValue == 0.0 ? 1.0 : scaleValue) / (m_maximum - m_minimum);
        float* p = _flat<float>(*this);
        const uint64_t n = _flatCount(*this);
        for (uint64_t i = 0; i < n; i++)
            p[i] = static_cast<float>((static_cast<double>(p[i]) - m_minimum) * f);
    });
}

bool Image2D::negative(double offset) {
    return Guarded(m_error, "negative()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        showStatusFormatted("  Negative (offset=%g)", offset);
        const int64_t k = TruncWide(offset);
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            T* p = _flat<T>(*this);
            const uint64_t n = _flatCount(*this);
            if constexpr (kIsFloat<T>) {
                const float f = static_cast<float>(offset);
                for (uint64_t i = 0; i < n; i++) p[i] = f - p[i];
            } else {
                int64_t base;
                if constexpr (sizeof(T) == 4)
                    base = k != 0 ? k : 0x7fffffff;
                else
                    base = k != 0 ? (k & Traits<T>::top) : Traits<T>::top;
                for (uint64_t i = 0; i < n; i++) p[i] = Wrap<T>(base - static_cast<int64_t>(p[i]));
            }
        });
        markChanged();
    });
}

bool Image2D::gammaCorrection(double gamma, double top) {
    return Guarded(m_error, "gammaCorrection()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        if (m_type != IMAGE_FLOAT) throw PIVerror::IMAGE_TYPE_UNSUPPORTED;
        // A top of 0 would turn every pixel into NaN.
        if (!(top > 0.0) || gamma == 0.0) {
            m_error.setMessage("gammaCorrection() - bad range (gamma=%g, top=%g)", gamma, top);
            throw PIVerror::BAD_RANGE;
        }
        const double exponent = 1.0 / gamma;
        float* p = _flat<float>(*this);
        const uint64_t n = _flatCount(*this);
        for (uint64_t i = 0; i < n; i++) {
            const double v = std::clamp(static_cast<double>(p[i]), 0.0, top);
            p[i] = static_cast<float>(top * std::pow(v / top, exponent));
        }
        markChanged();
    });
}

// ---------------------------------------------------------------------------
// look-up table and masks

bool Image2D::applyLUT(const float* lut, uint64_t count) {
    return Guarded(m_error, "applyLUT()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        if (m_type == IMAGE_FLOAT) throw PIVerror::IMAGE_TYPE_UNSUPPORTED;
        if (!lut) throw PIVerror::INVALID_POINTER;
        if (count == 0) throw PIVerror::BAD_DIMENSIONS;
        Image2D result;
        result.allocOrThrow(static_cast<int64_t>(m_width), static_cast<int64_t>(m_height),
                            IMAGE_FLOAT, 0);
        // Every type takes the last entry for a value beyond the table, so a
        // short table is never read past its end.
        const float last = lut[count - 1];
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            for (uint64_t y = 0; y < m_height; y++) {
                const T* src = scanLine<T>(y);
                float* dst = result.scanLine<float>(y);
                for (uint64_t x = 0; x < m_width; x++) {
                    const uint64_t index = static_cast<uint64_t>(src[x]);
                    dst[x] = index < count ? lut[index] : last;
                }
            }
        });
        swapStorage(result);
        m_fileFormat = PIV::FORMAT_UNKNOWN;
        markChanged();
    });
}

bool Image2D::applyMask(const Image2D& mask, bool inverted) {
    return Guarded(m_error, "applyMask()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        if (mask.isNull() || !isSameSize(mask, false) || mask.bitsPerPixel() != 8)
            throw PIVerror::IMAGE_SIZE_MISMATCH;
        const uint8_t masked = inverted ? 0 : 255;
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            for (uint64_t y = 0; y < m_height; y++) {
                const uint8_t* m = mask.scanLine<uint8_t>(y);
                T* p = scanLine<T>(y);
                for (uint64_t x = 0; x < m_width; x++)
                    if (m[x] == masked) p[x] = T(0);
            }
        });
        markChanged();
    });
}

bool Image2D::getValidPixels(const Image2D& src, float low, float high) {
    return Guarded(m_error, "getValidPixels()", [&] {
        if (src.isNull()) throw PIVerror::IMAGE_IS_NULL;
        if (low > high) {
            m_error.setMessage("getValidPixels() - Bad range: %g to %g", static_cast<double>(low),
                               static_cast<double>(high));
            throw PIVerror::BAD_RANGE;
        }
        Image2D sourceCopy;
        const Image2D* s = &src;
        if (&src == this) {
            sourceCopy.copyOrThrow(src);
            s = &sourceCopy;
        }
        // An existing 8-bit image of the right size is narrowed further; a
        // freshly sized one starts with every pixel set.
        const bool fresh =
            !(m_type == IMAGE_UINT8 && isSameSize(*s, false) && !isNull() && m_padding == 0);
        allocOrThrow(static_cast<int64_t>(s->width()), static_cast<int64_t>(s->height()),
                     IMAGE_UINT8, 0);
        if (fresh) std::memset(m_bits, 255, numBytes());
        const double lo = static_cast<double>(TruncWide(low));
        const double hi = static_cast<double>(TruncWide(high));
        Dispatch(s->type(), [&](auto tag) {
            using S = typename decltype(tag)::type;
            for (uint64_t y = 0; y < m_height; y++) {
                const S* row = s->scanLine<S>(y);
                uint8_t* out = scanLine<uint8_t>(y);
                for (uint64_t x = 0; x < m_width; x++) {
                    const double v = static_cast<double>(row[x]);
                    if (v < lo || v > hi) out[x] = 0;
                }
            }
        });
        markChanged();
    });
}

// ---------------------------------------------------------------------------
// minimum and maximum images

namespace {

template <bool takeMaximum>
bool _extremeImage(Image2D& self, const Image2D& other, PIVerror& error, const char* where,
                   const char* identicalText) {
    return Guarded(error, where, [&] {
        if (other.isNull()) throw PIVerror::IMAGE_IS_NULL;
        if (self.isNull()) {
            if (!self.copy(other)) throw PIVerror::OPERATION_FAILED;
            return;
        }
        if (other.bits() == self.bits()) {
            error.setMessage("%s", identicalText);
            throw PIVerror::OVERWRITE_OWN_DATA;
        }
        if (!self.isSameSize(other, true)) throw PIVerror::IMAGE_SIZE_MISMATCH;
        Dispatch(self.type(), [&](auto tag) {
            using T = typename decltype(tag)::type;
            for (uint64_t y = 0; y < self.height(); y++) {
                T* a = self.scanLine<T>(y);
                const T* b = other.scanLine<T>(y);
                for (uint64_t x = 0; x < self.width(); x++) {
                    if constexpr (takeMaximum) {
                        if (b[x] > a[x]) a[x] = b[x];
                    } else {
                        if (b[x] < a[x]) a[x] = b[x];
                    }
                }
            }
        });
        self.setFlagNeedStatistics(true);
        self.setFlagChanged(true);
    });
}

}  // namespace

bool Image2D::minImage(const Image2D& other) {
    return _extremeImage<false>(*this, other, m_error, "minImage()",
                                "minImage() - Source image identical to destination");
}

bool Image2D::maxImage(const Image2D& other) {
    return _extremeImage<true>(*this, other, m_error, "maxImage()",
                               "maxImage() - Source image identical to destination");
}

// ---------------------------------------------------------------------------
// generated images

bool Image2D::testPattern(float start, float step, int every) {
    return Guarded(m_error, "testPattern()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            float s = step;
            for (uint64_t y = 0; y < m_height; y++) {
                if (every > 0 && (y + 1) % static_cast<uint64_t>(every) == 0) s += 1.0f;
                T* row = scanLine<T>(y);
                for (uint64_t x = 0; x < m_width; x++)
                    row[x] = StoreWrapped<T>(start + static_cast<float>(x) * s);
            }
        });
        markChanged();
    });
}

bool Image2D::replicate(const float* lineData, int length, int count, bool alongRows) {
    return Guarded(m_error, "replicate()", [&] {
        if (!lineData) {
            m_error.setMessage("Bad line data");
            throw PIVerror::INVALID_POINTER;
        }
        if (alongRows) {
            allocOrThrow(length, count, IMAGE_FLOAT, 0);
            for (uint64_t y = 0; y < m_height; y++)
                std::memcpy(scanLine<float>(y), lineData, m_width * sizeof(float));
        } else {
            allocOrThrow(count, length, IMAGE_FLOAT, 0);
            for (uint64_t y = 0; y < m_height; y++)
                std::fill_n(scanLine<float>(y), m_width, lineData[y]);
        }
        markChanged();
    });
}

bool Image2D::vectorMultiply(const float* a, int na, const float* b, int nb) {
    return Guarded(m_error, "vectorMultiply()", [&] {
        if (!a || !b) throw PIVerror::INVALID_POINTER;
        allocOrThrow(na, nb, IMAGE_FLOAT, 0);
        for (uint64_t y = 0; y < m_height; y++) {
            float* row = scanLine<float>(y);
            for (uint64_t x = 0; x < m_width; x++) row[x] = a[x] * b[y];
        }
        markChanged();
    });
}
