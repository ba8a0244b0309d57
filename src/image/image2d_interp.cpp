// The interpolation kernels, Image2D_Interpolation and the resampling front
// ends of Image2D (translate, rotate, transform, stretch, binning).
#include "image2d_interp.h"

#include <omp.h>

#include <cmath>
#include <cstdio>
#include <cstring>

#include "image2d_pixel.h"
#include "piv_messages.h"
#include "piv_util.h"

using PIV::ImagePixel::Dispatch;
using PIV::Guarded;
using PIV::ImagePixel::TruncCoordinate;

namespace {

// Raw typed view of an image for the kernels.
template <typename T>
struct PixelView {
    const uint8_t* bits;
    uint64_t bytesPerLine;
    int width, height;

    explicit PixelView(const Image2D& img)
        : bits(img.bits()),
          bytesPerLine(img.bytesPerLine()),
          width(static_cast<int>(img.width())),
          height(static_cast<int>(img.height())) {}
    const T* row(int j) const {
        return reinterpret_cast<const T*>(bits + static_cast<uint64_t>(j) * bytesPerLine);
    }
    float at(int i, int j) const { return static_cast<float>(row(j)[i]); }
};

// Round half away from zero, NaN and huge values landing far outside.
inline int _roundCoordinate(float v) {
    return TruncCoordinate(std::round(static_cast<double>(v)));
}

template <typename T>
float _pixel2x2(const PixelView<T>& p, float x, float y) {
    if (x + 1.0f >= static_cast<float>(p.width) || y + 1.0f >= static_cast<float>(p.height))
        return 0.0f;
    const int i = TruncCoordinate(x), j = TruncCoordinate(y);
    if (i < 0 || j < 0) return 0.0f;
    const float fx = x - static_cast<float>(i), fy = y - static_cast<float>(j);
    const T* r0 = p.row(j);
    const T* r1 = p.row(j + 1);
    const float a = static_cast<float>(r0[i]), b = static_cast<float>(r1[i]);
    const float t = a + (static_cast<float>(r0[i + 1]) - a) * fx;
    const float u = b + (static_cast<float>(r1[i + 1]) - b) * fx;
    return t + (u - t) * fy;
}

// The parabola through a, b, c at -1, 0, 1.
inline float _polyfit3(float a, float b, float c, float t) {
    return b + (c / 2 - a / 2 + (a / 2 - b + c / 2) * t) * t;
}

// The cubic through a, b, c, d at -1, 0, 1, 2.
inline float _polyfit4(float a, float b, float c, float d, float t) {
    return (((-a / 6 + b / 2 - c / 2 + d / 6) * t + (a / 2 - b + c / 2)) * t +
            (-a / 3 - b / 2 + c - d / 6)) *
               t +
           b;
}

// The quartic through a..e at -2..2.
inline float _polyfit5(float a, float b, float c, float d, float e, float t) {
    return ((((a / 24 - b / 6 + c / 4 - d / 6 + e / 24) * t + (-a / 12 + b / 6 - d / 6 + e / 12)) *
                 t +
             (-a / 24 + 2 * b / 3 - 5 * c / 4 + 2 * d / 3 - e / 24)) *
                t +
            (a / 12 - 2 * b / 3 + 2 * d / 3 - e / 12)) *
               t +
           c;
}

template <typename T>
float _pixel3x3(const PixelView<T>& p, float x, float y) {
    const int i = _roundCoordinate(x), j = _roundCoordinate(y);
    if (i < 1 || j < 1 || i + 1 >= p.width || j + 1 >= p.height) return 0.0f;
    const float fx = x - static_cast<float>(i), fy = y - static_cast<float>(j);
    float r[3];
    for (int l = 0; l < 3; l++) {
        const T* row = p.row(j - 1 + l);
        r[l] = _polyfit3(static_cast<float>(row[i - 1]), static_cast<float>(row[i]),
                         static_cast<float>(row[i + 1]), fx);
    }
    return _polyfit3(r[0], r[1], r[2], fy);
}

template <typename T>
float _pixel4x4(const PixelView<T>& p, float x, float y) {
    const int i = _roundCoordinate(x), j = _roundCoordinate(y);
    if (!(i >= 1 && j >= 1 && i + 2 < p.width && j + 2 < p.height)) return 0.0f;
    const float fx = x - static_cast<float>(i), fy = y - static_cast<float>(j);
    float r[4];
    for (int l = 0; l < 4; l++) {
        const T* row = p.row(j - 1 + l);
        r[l] = _polyfit4(static_cast<float>(row[i - 1]), static_cast<float>(row[i]),
                         static_cast<float>(row[i + 1]), static_cast<float>(row[i + 2]), fx);
    }
    return _polyfit4(r[0], r[1], r[2], r[3], fy);
}

template <typename T>
float _pixel5x5(const PixelView<T>& p, float x, float y) {
    const int i = _roundCoordinate(x), j = _roundCoordinate(y);
    if (!(i >= 2 && j >= 2 && i + 2 < p.width && j + 2 < p.height)) return 0.0f;
    const float fx = x - static_cast<float>(i), fy = y - static_cast<float>(j);
    float r[5];
    for (int l = 0; l < 5; l++) {
        const T* row = p.row(j - 2 + l);
        r[l] = _polyfit5(static_cast<float>(row[i - 2]), static_cast<float>(row[i - 1]),
                         static_cast<float>(row[i]), static_cast<float>(row[i + 1]),
                         static_cast<float>(row[i + 2]), fx);
    }
    return _polyfit5(r[0], r[1], r[2], r[3], r[4], fy);
}

template <typename T>
float _gaussian3x3(const PixelView<T>& p, float x, float y) {
    const int i = _roundCoordinate(x), j = _roundCoordinate(y);
    if (i < 1 || j < 1 || i + 1 >= p.width || j + 1 >= p.height) return 0.0f;
    const double u = i - static_cast<double>(x), v = j - static_cast<double>(y);
    double wx[3], wy[3];
    for (int k = -1; k <= 1; k++) {
        wx[k + 1] = (u + k) * (u + k);
        wy[k + 1] = (v + k) * (v + k);
    }
    double sum = 0.0;
    for (int l = -1; l <= 1; l++) {
        const T* row = p.row(j + l);
        for (int k = -1; k <= 1; k++)
            sum += std::exp(-2.0 * (wx[k + 1] + wy[l + 1])) * static_cast<double>(row[i + k]);
    }
    return static_cast<float>(sum);
}

inline double _sinc(double d) {
    const double a = M_PI * d + 1e-20;
    return std::sin(a) / a;
}

template <typename T>
float _sincNxN(const PixelView<T>& p, float x, float y, int n) {
    if (n < 2) n = 2;
    const double fi = std::floor(static_cast<double>(x)), fj = std::floor(static_cast<double>(y));
    if (!(std::fabs(fi) < 1e9 && std::fabs(fj) < 1e9)) return 0.0f;
    const int i = static_cast<int>(fi), j = static_cast<int>(fj);
    const double fx = x - fi, fy = y - fj;
    double sum = 0.0;
    for (int l = -n; l <= n; l++) {
        int jj = j + l;
        // The image counts as periodic: an index off one side wraps once.
        if (jj < 0) jj += p.height;
        if (jj >= p.height) jj -= p.height;
        if (jj < 0 || jj >= p.height) continue;
        const double sy = _sinc(fy - l);
        const T* row = p.row(jj);
        for (int k = -n; k <= n; k++) {
            int ii = i + k;
            if (ii < 0) ii += p.width;
            if (ii >= p.width) ii -= p.width;
            if (ii < 0 || ii >= p.width) continue;
            sum += _sinc(fx - k) * sy * static_cast<double>(row[ii]);
        }
    }
    return static_cast<float>(sum);
}

template <typename F>
float _dispatchKernel(const Image2D* image, F&& f) {
    if (!image || image->isNull()) return 0.0f;
    switch (image->type()) {
        case IMAGE_UINT8:
            return f(PixelView<uint8_t>(*image));
        case IMAGE_UINT16:
            return f(PixelView<uint16_t>(*image));
        case IMAGE_UINT32:
            return f(PixelView<uint32_t>(*image));
        case IMAGE_FLOAT:
            return f(PixelView<float>(*image));
        default:
            return 0.0f;
    }
}

bool _isOutside(float x, float y, const Image2D& img) {
    return x <= -0.5f || x >= static_cast<float>(img.width()) - 0.5f || y <= -0.5f ||
           y >= static_cast<float>(img.height()) - 0.5f;
}

}  // namespace

float _InterpolatePixel2x2(float x, float y, const Image2D* image) {
    return _dispatchKernel(image, [&](const auto& p) { return _pixel2x2(p, x, y); });
}
float _InterpolatePixel3x3(float x, float y, const Image2D* image) {
    return _dispatchKernel(image, [&](const auto& p) { return _pixel3x3(p, x, y); });
}
float _InterpolatePixel4x4(float x, float y, const Image2D* image) {
    return _dispatchKernel(image, [&](const auto& p) { return _pixel4x4(p, x, y); });
}
float _InterpolatePixel5x5(float x, float y, const Image2D* image) {
    return _dispatchKernel(image, [&](const auto& p) { return _pixel5x5(p, x, y); });
}
float _InterpolateGaussian3x3(float x, float y, const Image2D* image) {
    return _dispatchKernel(image, [&](const auto& p) { return _gaussian3x3(p, x, y); });
}
float _InterpolateSincNxN(float x, float y, const Image2D* image, int n) {
    return _dispatchKernel(image, [&](const auto& p) { return _sincNxN(p, x, y, n); });
}

// ---------------------------------------------------------------------------
// Image2D_Interpolation

Image2D_Interpolation::Image2D_Interpolation()
    : m_refCount(1),
      m_error("Image2D_Interpolation"),
      m_coeffsReady(false),
      m_coeffWidth(0),
      m_coeffHeight(0),
      m_mirroring(false),
      m_preserveIntensity(true),
      m_degree(3),
      m_method(PIV::INTERPOLATE_BSPLINE),
      m_progress(false) {}

Image2D_Interpolation::~Image2D_Interpolation() = default;

uint32_t Image2D_Interpolation::release() {
    if (m_refCount <= 1) {
        delete this;
        return 0;
    }
    return --m_refCount;
}

bool Image2D_Interpolation::prepareSplineCoefficients(const Image2D& image, int method, int order) {
    if (method != PIV::INTERPOLATE_SHIFTED_LINEAR && method != PIV::INTERPOLATE_BSPLINE) {
        m_coeffsReady = false;
        return false;
    }
    const int degree = method == PIV::INTERPOLATE_SHIFTED_LINEAR ? 1 : order;
    return Guarded(m_error, "prepareSplineCoefficients()", [&] {
        m_coeffsReady = false;
        if (image.isNull()) throw PIVerror::IMAGE_IS_NULL;
        DebugPrintExt(1, "Image2D_Interpolation::prepareSplineCoefficients(%d)", degree);
        const int w = static_cast<int>(image.width()), h = static_cast<int>(image.height());
        if (w != m_coeffWidth || h != m_coeffHeight || m_coeffs.empty()) {
            try {
                m_coeffs.assign(static_cast<size_t>(w) * static_cast<size_t>(h), 0.0f);
            } catch (...) {
                throw PIVerror::ALLOCATION_FAILED;
            }
            m_coeffWidth = w;
            m_coeffHeight = h;
            DebugPrintExt(2, "  allocated coefficients: %d x %d", w, h);
        }
        Dispatch(image.type(), [&](auto tag) {
            using T = typename decltype(tag)::type;
            for (int j = 0; j < h; j++) {
                const T* row = image.scanLine<T>(static_cast<uint64_t>(j));
                float* out = m_coeffs.data() + static_cast<size_t>(j) * w;
                for (int i = 0; i < w; i++) out[i] = static_cast<float>(row[i]);
            }
        });
        const int ret = Image2DToSplineCoefficients(m_coeffs.data(), w, h, degree);
        DebugPrintExt(1, "   finished creating spline coeffs (ret=%d)", ret);
        if (ret != 0) {
            // A failed preparation never stops a resampling: it goes on bilinear.
            m_method = PIV::INTERPOLATE_BILINEAR;
            m_degree = 2;
            if (m_progress)
                ShowStatus(
                    "Trouble creating spline coefficients - will use bilinear "
                    "interpolation\n");
            m_error.setMessage("prepareSplineCoefficients() - trouble calculating coeffs!");
            throw PIVerror::OPERATION_FAILED;
        }
        m_coeffsReady = true;
    });
}

float Image2D_Interpolation::kernelValue(const Image2D& source, float x, float y) const {
    switch (m_method) {
        case PIV::INTERPOLATE_GAUSS:
            return _InterpolateGaussian3x3(x, y, &source);
        case PIV::INTERPOLATE_SHIFTED_LINEAR:
            return static_cast<float>(
                InterpolatedSplineValue2D(m_coeffs.data(), m_coeffWidth, m_coeffHeight, x, y, 1));
        case PIV::INTERPOLATE_BSPLINE:
            return static_cast<float>(
                InterpolatedSplineValue2D(m_coeffs.data(), m_coeffWidth, m_coeffHeight, x, y,
                                          getDeformOrder(m_degree, m_method)));
        case PIV::INTERPOLATE_POLYNOMIAL:
            if (m_degree == 3) return _InterpolatePixel3x3(x, y, &source);
            if (m_degree == 4) return _InterpolatePixel4x4(x, y, &source);
            if (m_degree == 5) return _InterpolatePixel5x5(x, y, &source);
            return 0.0f;
        default:
            if (x < 0.0f || y < 0.0f) return 0.0f;
            return _InterpolatePixel2x2(x, y, &source);
    }
}

float Image2D_Interpolation::interpolatedPixel(const Image2D& image, float x, float y, bool white) {
    if (image.isNull()) return 0.0f;
    if (!m_coeffsReady) prepareSplineCoefficients(image, m_method, m_degree);
    if (!m_mirroring && _isOutside(x, y, image)) return white ? 255.0f : 0.0f;
    const bool spline =
        m_method == PIV::INTERPOLATE_SHIFTED_LINEAR || m_method == PIV::INTERPOLATE_BSPLINE;
    if (spline && !m_coeffsReady) return 0.0f;
    return kernelValue(image, x, y);
}

template <typename Map>
bool Image2D_Interpolation::resample(Image2D& image, Map&& map, bool retainType, bool mask,
                                     const char* what, const char* context, const char* emptyText,
                                     char progressChar) {
    if (image.isNull() || (!mask && image.isZero())) {
        m_error.setMessage("%s", emptyText);
        m_error.handleError(PIVerror::IMAGE_IS_NULL, context);
        return false;
    }
    DebugPrint("%s on (%s) - scheme=%d order=%d mask=%d mirror=%d", what, image.fileName(),
               m_method, m_degree, mask ? 1 : 0, m_mirroring ? 1 : 0);
    const ImageType oldType = image.type();
    const double oldMin = image.minimum();
    if (!m_coeffsReady)
        prepareSplineCoefficients(image, m_method, getDeformOrder(m_degree, m_method));
    const bool spline =
        m_method == PIV::INTERPOLATE_SHIFTED_LINEAR || m_method == PIV::INTERPOLATE_BSPLINE;
    Image2D copy;
    if (!spline && !copy.copy(image)) {
        m_error.handleError(copy.error().getLastErrorCode(), context);
        return false;
    }
    return Guarded(m_error, context, [&] {
        if (!image.fill(0.0f) || !image.convertToType(IMAGE_FLOAT))
            throw static_cast<PIVerror::ErrorType>(image.error().getLastErrorCode());
        const int w = static_cast<int>(image.width()), h = static_cast<int>(image.height());
        const float outsideValue = mask ? 255.0f : 0.0f;
        const int every = h <= 64 ? 1 : h / 64;
        const int threads = PIV::MaxThreads();
        for (int j = 0; j < h; j++) {
            float* out = image.scanLine<float>(static_cast<uint64_t>(j));
#pragma omp parallel for num_threads(threads) schedule(static)
            for (int i = 0; i < w; i++) {
                double sx, sy;
                map(i, j, sx, sy);
                const float x = static_cast<float>(sx), y = static_cast<float>(sy);
                if (!m_mirroring && _isOutside(x, y, image))
                    out[i] = outsideValue;
                else
                    out[i] = kernelValue(copy, x, y);
            }
            if (m_progress && j % every == 0) {
                std::putchar(progressChar);
                std::fflush(stdout);
            }
        }
        image.doStatistics(true);
        // Overshoot of the higher kernels must not reach below the input.
        if (oldMin > image.minimum()) image.clipLow(oldMin);
        if (retainType) {
            if (oldType == IMAGE_UINT8) {
                image.clipRange(0, 255);
                image.convertToType(IMAGE_UINT8);
            } else if (oldType == IMAGE_UINT16) {
                image.clipRange(0, 65535);
                image.convertToType(IMAGE_UINT16);
            }
        }
        image.doStatistics(true);
        image.setFlagChanged(true);
    });
}

bool Image2D_Interpolation::translateImage(Image2D& image, double dx, double dy, bool retainType,
                                           bool mask) {
    auto map = [dx, dy](int i, int j, double& x, double& y) {
        x = i + dx;
        y = j + dy;
    };
    return resample(image, map, retainType, mask, "translateImage()", "translateImage()",
                    "translateImage() - no data in source image", '.');
}

bool Image2D_Interpolation::translateRotateImage(Image2D& image, double angle, double tx, double ty,
                                                 double ox, double oy, bool retainType, bool mask) {
    const double a = angle * M_PI / 180.0;
    const double c = std::cos(a), s = std::sin(a);
    const double x0 = ox - (c * (tx + ox) - s * (ty + oy));
    const double y0 = oy - (s * (tx + ox) + c * (ty + oy));
    auto map = [=](int i, int j, double& x, double& y) {
        x = c * i - s * j + x0;
        y = s * i + c * j + y0;
    };
    return resample(image, map, retainType, mask, "translateRotateImage()",
                    "translateRotateImage()", "translateRotateImage() - no data in source image",
                    '.');
}

bool Image2D_Interpolation::transformImage(Image2D& image, const IMAGE_TRANSFORMATION_CFG& cfg,
                                           bool retainType, bool mask) {
    if (image.isNull() || (!mask && image.isZero())) {
        m_error.setMessage("transfromImage() - no data in source image");
        m_error.handleError(PIVerror::IMAGE_IS_NULL, "transformImage()");
        return false;
    }
    if (!cfg.Enable) return false;
    if (cfg.Rotate == 0 && cfg.SkewX == 0 && cfg.SkewY == 0 && cfg.StretchX == 0 &&
        cfg.StretchY == 0 && cfg.TranslateX == 0 && cfg.TranslateY == 0)
        return false;
    const double deg = M_PI / 180.0;
    const double c = std::cos(cfg.Rotate * deg), s = std::sin(cfg.Rotate * deg);
    const double kx = std::sin(cfg.SkewX * deg), ky = std::sin(cfg.SkewY * deg);
    const double A = (ky * s + c) * cfg.StretchX, B = (ky * c - s) * cfg.StretchY;
    const double C = (kx * c + s) * cfg.StretchX, D = (c - kx * s) * cfg.StretchY;
    const double a = cfg.TranslateX + cfg.OriginX, b = cfg.TranslateY + cfg.OriginY;
    const double x0 = cfg.OriginX - (A * a + B * b), y0 = cfg.OriginY - (C * a + D * b);
    auto map = [=](int i, int j, double& x, double& y) {
        x = A * i + B * j + x0;
        y = C * i + D * j + y0;
    };
    return resample(image, map, retainType, mask, "transformImage()", "transformImage()",
                    "transfromImage() - no data in source image", '+');
}

bool Image2D_Interpolation::stretchImage(Image2D& image, double fx, double fy, bool retainType) {
    auto map = [fx, fy](int i, int j, double& x, double& y) {
        x = fx * i;
        y = fy * j;
    };
    return resample(image, map, retainType, false, "distortLinear()", "distortLinear()",
                    "distortLinear() - no data in source image", '.');
}

// ---------------------------------------------------------------------------
// Image2D front ends

namespace {

// Whole-pixel shift: output (i, j) takes source (i + sx, j + sy), 0 where
// that falls outside.
template <typename T>
void _shiftWhole(Image2D& img, const Image2D& src, int64_t sx, int64_t sy) {
    const int64_t w = static_cast<int64_t>(img.width()), h = static_cast<int64_t>(img.height());
    for (int64_t j = 0; j < h; j++) {
        T* out = img.scanLine<T>(static_cast<uint64_t>(j));
        std::memset(static_cast<void*>(out), 0, sizeof(T) * static_cast<size_t>(w));
        const int64_t sj = j + sy;
        if (sj < 0 || sj >= h) continue;
        const T* in = src.scanLine<T>(static_cast<uint64_t>(sj));
        const int64_t lo = sx < 0 ? -sx : 0, hi = sx > 0 ? w - sx : w;
        if (hi > lo)
            std::memcpy(static_cast<void*>(out + lo), in + lo + sx,
                        sizeof(T) * static_cast<size_t>(hi - lo));
    }
}

void _configure(Image2D_Interpolation& interp, const Image2D& img) {
    interp.setInterpolationMethod(img.interpolationMethod(), img.interpolationParameter());
}

}  // namespace

bool Image2D::translate(double dx, double dy, bool retainType) {
    DebugPrint("Image2D::translate( %g,%g)", dx, dy);
    if (isNull()) {
        m_error.handleError(PIVerror::IMAGE_IS_NULL, "translate()");
        return false;
    }
    showStatusFormatted("  Translating (X=%g,Y=%g)", dx, dy);
    const double wx = std::round(dx), wy = std::round(dy);
    if (std::fabs(dx - wx) <= 0.001 && std::fabs(dy - wy) <= 0.001) {
        if (!(std::fabs(wx) < 1e12 && std::fabs(wy) < 1e12)) {
            m_error.handleError(PIVerror::BAD_PARAMETERS, "translate()");
            return false;
        }
        return Guarded(m_error, "translate()", [&] {
            Image2D src;
            src.copyOrThrow(*this);
            Dispatch(m_type, [&](auto tag) {
                using T = typename decltype(tag)::type;
                _shiftWhole<T>(*this, src, static_cast<int64_t>(wx), static_cast<int64_t>(wy));
            });
            markChanged();
        });
    }
    Image2D_Interpolation interp;
    _configure(interp, *this);
    if (interp.translateImage(*this, dx, dy, retainType, false)) return true;
    m_error.handleError(interp.error().getLastErrorCode(), "translate()");
    return false;
}

bool Image2D::translateRotate(double angle, double tx, double ty, double ox, double oy,
                              bool retainType) {
    if (isNull()) {
        m_error.handleError(PIVerror::IMAGE_IS_NULL, "translateRotate()");
        return false;
    }
    Image2D_Interpolation interp;
    _configure(interp, *this);
    if (interp.translateRotateImage(*this, angle, tx, ty, ox, oy, retainType, false)) return true;
    m_error.handleError(interp.error().getLastErrorCode(), "translateRotate()");
    return false;
}

bool Image2D::transform(const IMAGE_TRANSFORMATION_CFG& cfg, bool retainType) {
    if (!cfg.Enable) return true;
    if (isNull()) {
        m_error.handleError(PIVerror::IMAGE_IS_NULL, "transform()");
        return false;
    }
    const bool noTranslation = cfg.TranslateX == 0 && cfg.TranslateY == 0;
    const bool noSkew = cfg.SkewX == 0 && cfg.SkewY == 0;
    const bool unitStretch = cfg.StretchX == 1 && cfg.StretchY == 1;
    const bool allZero =
        noTranslation && noSkew && cfg.Rotate == 0 && cfg.StretchX == 0 && cfg.StretchY == 0;
    if (!allZero && noSkew && cfg.Rotate == 0 && unitStretch)
        return translate(cfg.TranslateX, -cfg.TranslateY, retainType);
    if (!allZero && noSkew && cfg.Rotate == 0 && noTranslation)
        return distortLinear(cfg.StretchX, cfg.StretchY, retainType);
    if (!allZero && noSkew && unitStretch)
        return translateRotate(cfg.Rotate, cfg.TranslateX, cfg.TranslateY, cfg.OriginX, cfg.OriginY,
                               retainType);
    Image2D_Interpolation interp;
    _configure(interp, *this);
    if (interp.transformImage(*this, cfg, retainType, false)) return true;
    if (interp.error().getLastErrorCode() != 0)
        m_error.handleError(interp.error().getLastErrorCode(), "transform()");
    return false;
}

bool Image2D::distortLinear(double fx, double fy, bool retainType) {
    const int method = interpolationMethod();
    if (method != PIV::INTERPOLATE_BSPLINE && method != PIV::INTERPOLATE_SHIFTED_LINEAR) {
        m_error.setMessage("distortLinear() - only spport B-spline interpolation");
        m_error.handleError(PIVerror::BAD_PARAMETERS, "distortLinear()");
        return false;
    }
    if (isNull()) {
        m_error.handleError(PIVerror::IMAGE_IS_NULL, "distortLinear()");
        return false;
    }
    Image2D_Interpolation interp;
    _configure(interp, *this);
    if (interp.stretchImage(*this, fx, fy, retainType)) return true;
    m_error.handleError(interp.error().getLastErrorCode(), "distortLinear()");
    return false;
}

namespace {

// Sums cells of fx x fy source pixels (rows first..first+rows-1) into a float
// image of ceil(w / fx) x ceil(rows / fy).
template <typename T>
void _sumCells(float* out, int64_t outW, int64_t outH, const Image2D& src, int64_t fx, int64_t fy,
               int64_t first, int64_t rows, int64_t cutW, int64_t cutH) {
    const int64_t w = static_cast<int64_t>(src.width());
    std::fill(out, out + outW * outH, 0.0f);
    for (int64_t r = 0; r < rows && r / fy < cutH; r++) {
        const T* in = src.scanLine<T>(static_cast<uint64_t>(first + r));
        float* o = out + (r / fy) * outW;
        for (int64_t x = 0; x < w && x / fx < cutW; x++) o[x / fx] += static_cast<float>(in[x]);
    }
}

}  // namespace

bool Image2D::binning(const Image2D& src, int factor) {
    return Guarded(m_error, "binning()", [&] {
        if (src.isNull()) {
            m_error.setMessage("binning() - Source image contains no data");
            throw PIVerror::IMAGE_IS_NULL;
        }
        if (factor > 16) {
            m_error.setMessage("binning() - invalid binning factor: %d", factor);
            throw PIVerror::BAD_PARAMETERS;
        }
        showStatusFormatted("  Image %lu x %lu binning", static_cast<unsigned long>(factor),
                            static_cast<unsigned long>(factor));
        if (factor < 2) {
            if (&src != this) copyOrThrow(src);
            return;
        }
        const int64_t w = static_cast<int64_t>(src.width()), h = static_cast<int64_t>(src.height());
        const int64_t ow = w / factor, oh = h / factor;
        if (ow < 16 && oh < 16) {
            m_error.setMessage(
                "binning() - resulting image too samll: (%dx%d)\nOriginal: (%dx%d) - (binning "
                "factor: %d)",
                static_cast<int>(ow), static_cast<int>(oh), static_cast<int>(w),
                static_cast<int>(h), factor);
            throw PIVerror::BAD_IMAGE_SIZE;
        }
        std::vector<float> sums(static_cast<size_t>(ow * oh));
        Dispatch(src.type(), [&](auto tag) {
            using T = typename decltype(tag)::type;
            _sumCells<T>(sums.data(), ow, oh, src, factor, factor, 0, oh * factor, ow, oh);
        });
        allocOrThrow(ow, oh, IMAGE_FLOAT, 0);
        for (int64_t j = 0; j < oh; j++)
            std::memcpy(scanLine<float>(static_cast<uint64_t>(j)), sums.data() + j * ow,
                        sizeof(float) * static_cast<size_t>(ow));
        markChanged();
    });
}

bool Image2D::binnedFrom(const Image2D& src, int fx, int fy, int split, int offset) {
    return Guarded(m_error, "binnedFrom()", [&] {
        if (src.isNull()) {
            m_error.setMessage("binnedFrom() - Source image contains no data");
            throw PIVerror::IMAGE_IS_NULL;
        }
        if (fx < 1) fx = 1;
        if (fy < 1) fy = 1;
        showStatusFormatted("  Image %lu x %lu binning", static_cast<unsigned long>(fx),
                            static_cast<unsigned long>(fy));
        const int64_t w = static_cast<int64_t>(src.width()), h = static_cast<int64_t>(src.height());
        int64_t part = h;
        if (split == 1) part = h / 2;
        if (split == 2) part = h / 3;
        if (split == 3) part = h / 4;
        const int64_t first = offset < 0 ? 0 : (offset > h ? h : offset);
        if (part > h - first) part = h - first;
        const int64_t ow = (w + fx - 1) / fx, oh = (part + fy - 1) / fy;
        if (ow < 1 || oh < 1) throw PIVerror::BAD_IMAGE_SIZE;
        std::vector<float> sums(static_cast<size_t>(ow * oh));
        Dispatch(src.type(), [&](auto tag) {
            using T = typename decltype(tag)::type;
            _sumCells<T>(sums.data(), ow, oh, src, fx, fy, first, part, ow, oh);
        });
        allocOrThrow(ow, oh, IMAGE_FLOAT, 0);
        for (int64_t j = 0; j < oh; j++)
            std::memcpy(scanLine<float>(static_cast<uint64_t>(j)), sums.data() + j * ow,
                        sizeof(float) * static_cast<size_t>(ow));
        markChanged();
    });
}
