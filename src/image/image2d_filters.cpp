// Image2D: median, box, Gaussian and 3-tap filters, dynamic clipping,
// histogram equalisation, binarising and expansion.
//
// Line filters copy each row or column into a float buffer of their thread
// and write it back; the buffers are made once per call, PIV::MaxThreads()
// of them, so nothing is allocated per pixel or per line.
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <vector>

#include "image2d.h"
#include "image2d_median_simd.h"
#include "image2d_pixel.h"
#include "piv_messages.h"
#include "piv_util.h"

using PIV::ImagePixel::ClampTo;
using PIV::ImagePixel::Dispatch;
using PIV::Guarded;
using PIV::ImagePixel::StoreRounded;
using PIV::ImagePixel::Traits;
using PIV::ImagePixel::TruncWide;

namespace {

template <typename T>
constexpr bool kIsFloat = std::is_same<T, float>::value;

// Float to pixel by truncation, integer types clamped to their range.
template <typename T>
inline T _storeTruncated(float v) {
    if constexpr (kIsFloat<T>)
        return v;
    else
        return ClampTo<T>(TruncWide(v), 0, Traits<T>::top);
}

enum class StoreRule { Truncate, Round };

// Runs fn(buffer, length, scratch) over every row (alongRows) or column of
// the image, in parallel over lines. `scratch` is a second buffer of the
// same length for filters that need one.
template <typename F>
void _forEachLine(Image2D& img, bool alongRows, StoreRule rule, F&& fn) {
    const int64_t w = static_cast<int64_t>(img.width()), h = static_cast<int64_t>(img.height());
    const int64_t lines = alongRows ? h : w, length = alongRows ? w : h;
    const int threads = PIV::MaxThreads();
    std::vector<float> buffers(static_cast<size_t>(threads) * static_cast<size_t>(2 * length));
    Dispatch(img.type(), [&](auto tag) {
        using T = typename decltype(tag)::type;
        const uint64_t stride = img.bytesPerLine() / sizeof(T);
        T* base = img.scanLine<T>(0);
#pragma omp parallel for num_threads(threads) schedule(static)
        for (int64_t l = 0; l < lines; l++) {
            float* buf = buffers.data() + static_cast<size_t>(omp_get_thread_num()) * 2 * length;
            float* scratch = buf + length;
            T* p = alongRows ? base + l * stride : base + l;
            const uint64_t step = alongRows ? 1 : stride;
            for (int64_t k = 0; k < length; k++) buf[k] = static_cast<float>(p[k * step]);
            fn(buf, length, scratch);
            if (rule == StoreRule::Round)
                for (int64_t k = 0; k < length; k++) p[k * step] = StoreRounded<T>(buf[k]);
            else
                for (int64_t k = 0; k < length; k++) p[k * step] = _storeTruncated<T>(buf[k]);
        }
    });
}

// ---- median ------------------------------------------------------------------

// The k-th smallest of v[0..n) by Wirth's partitioning, which on these few
// values beats the general-purpose selection severalfold. Exact: the value
// returned is an element of v.
template <typename T>
inline T _select(T* v, int n, int k) {
    int l = 0, m = n - 1;
    while (l < m) {
        const T x = v[k];
        int i = l, j = m;
        do {
            while (v[i] < x) i++;
            while (x < v[j]) j--;
            if (i <= j) {
                std::swap(v[i], v[j]);
                i++;
                j--;
            }
        } while (i <= j);
        if (j < k) l = i;
        if (k < i) m = j;
    }
    return v[k];
}

template <typename T, int N>
inline T _middle(T* v) {
    return _select(v, N, N / 2);
}

// Floats that the Min/Max network and the per-pixel selection may order
// differently: NaN compares false both ways, and -0 == +0 but is another bit
// pattern. A row holding either keeps every window over it per pixel. Empty
// for integer images, whose selection is exact in any order.
template <typename T>
std::vector<uint8_t> _rowsOffNetwork(const Image2D& src) {
    if constexpr (!kIsFloat<T>) {
        return {};
    } else {
        const int64_t w = static_cast<int64_t>(src.width()), h = static_cast<int64_t>(src.height());
        std::vector<uint8_t> off(static_cast<size_t>(h));
#pragma omp parallel for num_threads(PIV::MaxThreads()) schedule(static)
        for (int64_t y = 0; y < h; y++) {
            const float* row = src.scanLine<float>(static_cast<uint64_t>(y));
            bool odd = false;
            for (int64_t x = 0; x < w; x++)
                odd |= row[x] != row[x] || (row[x] == 0.0f && std::signbit(row[x]));
            off[static_cast<size_t>(y)] = odd;
        }
        return off;
    }
}

// True when the vector rows may take output row y of a window of radius R.
template <int R>
bool _networkRow(const std::vector<uint8_t>& off, int64_t y) {
    if (!PIV::MedianRows::Enabled()) return false;
    for (int64_t j = y - R; !off.empty() && j <= y + R; j++)
        if (off[static_cast<size_t>(j)]) return false;
    return true;
}

template <typename T, int R>
void _median(Image2D& img, const Image2D& src) {
    constexpr int K = 2 * R + 1, N = K * K;
    const int64_t w = static_cast<int64_t>(img.width()), h = static_cast<int64_t>(img.height());
    const std::vector<uint8_t> off = _rowsOffNetwork<T>(src);
#pragma omp parallel for num_threads(PIV::MaxThreads()) schedule(static)
    for (int64_t y = R; y < h - R; y++) {
        T* out = img.scanLine<T>(static_cast<uint64_t>(y));
        const T* rows[K];
        for (int j = 0; j < K; j++) rows[j] = src.scanLine<T>(static_cast<uint64_t>(y - R + j));
        if (_networkRow<R>(off, y) && PIV::MedianRows::Median(rows, out, R, w - R, R)) continue;
        T v[N];
        for (int64_t x = R; x < w - R; x++) {
            int n = 0;
            for (int j = 0; j < K; j++)
                for (int64_t dx = -R; dx <= R; dx++) v[n++] = rows[j][x + dx];
            out[x] = _middle<T, N>(v);
        }
    }
}

// A pixel whose window holds no masked pixel has the full window's median,
// so runs of them go to the vector rows; the others, and a run narrower than
// a vector, are selected one by one from their unmasked neighbours. Each
// thread ORs the window's mask rows into its own line of `scratch`.
template <typename T, int R>
void _medianMasked(Image2D& img, const Image2D& src, const Image2D& mask) {
    constexpr int K = 2 * R + 1, N = K * K;
    const int64_t w = static_cast<int64_t>(img.width()), h = static_cast<int64_t>(img.height());
    const std::vector<uint8_t> off = _rowsOffNetwork<T>(src);
    const int threads = PIV::MaxThreads();
    std::vector<uint8_t> scratch(static_cast<size_t>(threads) * static_cast<size_t>(w));
#pragma omp parallel for num_threads(threads) schedule(static)
    for (int64_t y = R; y < h - R; y++) {
        T* out = img.scanLine<T>(static_cast<uint64_t>(y));
        const uint8_t* m = mask.scanLine<uint8_t>(static_cast<uint64_t>(y));
        const T* rows[K];
        const uint8_t* masks[K];
        for (int j = 0; j < K; j++) {
            rows[j] = src.scanLine<T>(static_cast<uint64_t>(y - R + j));
            masks[j] = mask.scanLine<uint8_t>(static_cast<uint64_t>(y - R + j));
        }
        uint8_t* column =
            scratch.data() + static_cast<size_t>(omp_get_thread_num()) * static_cast<size_t>(w);
        for (int64_t x = 0; x < w; x++) {
            uint8_t any = 0;
            for (int j = 0; j < K; j++) any |= masks[j][x];
            column[x] = any;
        }
        const auto clean = [&](int64_t x) {
            uint8_t any = 0;
            for (int64_t dx = -R; dx <= R; dx++) any |= column[x + dx];
            return any == 0;
        };
        const bool network = _networkRow<R>(off, y);
        T v[N];
        for (int64_t x = R; x < w - R;) {
            int64_t end = x;
            while (network && end < w - R && clean(end)) end++;
            if (end > x && PIV::MedianRows::Median(rows, out, x, end, R)) {
                x = end;
                continue;
            }
            for (end = std::max(end, x + 1); x < end; x++) {
                if (m[x] != 0) continue;
                int n = 0;
                for (int j = 0; j < K; j++)
                    for (int64_t dx = -R; dx <= R; dx++)
                        if (masks[j][x + dx] == 0) v[n++] = rows[j][x + dx];
                out[x] = _select(v, n, n / 2);
            }
        }
    }
}

// ---- box -----------------------------------------------------------------------

// Running box sum of size k over one line: the box of position i covers
// i - (k - 1) / 2 .. i + k / 2, and each sum is divided by the number of its
// pixels that exist.
void _boxLine(float* v, int64_t n, float* out, int k) {
    const int64_t before = (k - 1) / 2, after = k / 2;
    float sum = 0.0f;
    for (int64_t i = 0; i <= after && i < n; i++) sum += v[i];
    for (int64_t i = 0; i < n; i++) {
        const int64_t lo = std::max<int64_t>(0, i - before),
                      hi = std::min<int64_t>(n - 1, i + after);
        out[i] = sum;
        out[i] /= static_cast<float>(hi - lo + 1);
        if (i + after + 1 < n) sum += v[i + after + 1];
        if (i - before >= 0) sum -= v[i - before];
    }
    std::memcpy(v, out, sizeof(float) * static_cast<size_t>(n));
}

bool _checkKernel(PIVerror& error, int& w, int& h) {
    if (h == 0) h = w;
    if (w < 1 || h < 1) {
        error.setMessage("Invalid kernel size: %d x %d ", w, h);
        return false;
    }
    w = std::min(w, 63);
    h = std::min(h, 63);
    return true;
}

void _smoothBox(Image2D& img, int w, int h) {
    if (w >= 3)
        _forEachLine(img, true, StoreRule::Truncate,
                     [w](float* v, int64_t n, float* s) { _boxLine(v, n, s, w); });
    if (h >= 3)
        _forEachLine(img, false, StoreRule::Truncate,
                     [h](float* v, int64_t n, float* s) { _boxLine(v, n, s, h); });
}

// ---- 3-tap -------------------------------------------------------------------

void _convolveLine(float* v, int64_t n, float* out, float a, float b, float c) {
    if (n < 2) return;
    float s = a + b + c;
    if (s == 0.0f) s = 1.0f;
    for (int64_t i = 1; i < n - 1; i++) out[i] = (a * v[i - 1] + b * v[i] + c * v[i + 1]) / s;
    const float first = b + c, last = a + b;
    out[0] = first == 0.0f ? 0.0f : (b * v[0] + c * v[1]) / first;
    out[n - 1] = last == 0.0f ? 0.0f : (a * v[n - 2] + b * v[n - 1]) / last;
    std::memcpy(v, out, sizeof(float) * static_cast<size_t>(n));
}

}  // namespace

bool Image2D::medianFilter(int size) {
    DebugPrint("Image2D::medianFilter() - size=%d", size);
    return Guarded(m_error, "mediaFilter()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        const unsigned long k = size > 3 ? 5 : 3;
        showStatusFormatted("  Median filtering (%lux%lu)", k, k);
        Image2D src;
        src.copyOrThrow(*this);
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            if (k == 5)
                _median<T, 2>(*this, src);
            else
                _median<T, 1>(*this, src);
        });
        markChanged();
    });
}

bool Image2D::medianFilterWithMask(const Image2D& mask, int size, bool) {
    DebugPrint("Image2D::medianFilterWithMask() - size=%d", size);
    return Guarded(m_error, "medianFilterWithMask()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        if (mask.isNull() || !isSameSize(mask, false)) throw PIVerror::IMAGE_SIZE_MISMATCH;
        if (mask.type() != IMAGE_UINT8) {
            m_error.setMessage("medianFilterWithMask() - invalid mask depth");
            throw PIVerror::IMAGE_SIZE_MISMATCH;
        }
        const unsigned long k = size > 3 ? 5 : 3;
        showStatusFormatted("  Median filtering (%lux%lu)", k, k);
        Image2D src;
        src.copyOrThrow(*this);
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            if (k == 5)
                _medianMasked<T, 2>(*this, src, mask);
            else
                _medianMasked<T, 1>(*this, src, mask);
        });
        markChanged();
    });
}

bool Image2D::smooth(int w, int h) {
    return Guarded(m_error, "smooth()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        if (!_checkKernel(m_error, w, h)) throw PIVerror::BAD_KERNEL_SIZE;
        showStatusFormatted("  Smoothing with %dx%d", w, h);
        _smoothBox(*this, w, h);
        markChanged();
    });
}

bool Image2D::smooth2x2() {
    return Guarded(m_error, "smooth2x2()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        showStatusFormatted("  2x2 smoothing filter");
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            auto half = [](T a, T b) -> T {
                if constexpr (kIsFloat<T>)
                    return (a + b) / 2;
                else
                    return static_cast<T>((static_cast<uint64_t>(a) + b) >> 1);
            };
            const int64_t w = static_cast<int64_t>(m_width), h = static_cast<int64_t>(m_height);
#pragma omp parallel for num_threads(PIV::MaxThreads()) schedule(static)
            for (int64_t y = 0; y < h; y++) {
                T* r = scanLine<T>(static_cast<uint64_t>(y));
                for (int64_t x = 0; x + 1 < w; x++) r[x] = half(r[x], r[x + 1]);
            }
            for (int64_t y = 0; y + 1 < h; y++) {
                T* r = scanLine<T>(static_cast<uint64_t>(y));
                const T* n = scanLine<T>(static_cast<uint64_t>(y + 1));
#pragma omp parallel for num_threads(PIV::MaxThreads()) schedule(static)
                for (int64_t x = 0; x < w; x++) r[x] = half(r[x], n[x]);
            }
        });
        markChanged();
    });
}

bool Image2D::highPass(int w, int h) {
    return Guarded(m_error, "highPass()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        if (!_checkKernel(m_error, w, h)) throw PIVerror::BAD_KERNEL_SIZE;
        showStatusFormatted("  Highpass filter with %dx%d", w, h);
        Image2D smoothed;
        smoothed.copyOrThrow(*this);
        _smoothBox(smoothed, w, h);
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            const int64_t wd = static_cast<int64_t>(m_width), ht = static_cast<int64_t>(m_height);
#pragma omp parallel for num_threads(PIV::MaxThreads()) schedule(static)
            for (int64_t y = 0; y < ht; y++) {
                T* r = scanLine<T>(static_cast<uint64_t>(y));
                const T* s = smoothed.scanLine<T>(static_cast<uint64_t>(y));
                for (int64_t x = 0; x < wd; x++) {
                    if constexpr (kIsFloat<T>)
                        r[x] = r[x] - s[x];
                    else
                        r[x] = r[x] <= s[x] ? T(0) : static_cast<T>(r[x] - s[x]);
                }
            }
        });
        markChanged();
    });
}

bool Image2D::smoothGauss(float width, bool centered, float cutOff) {
    return Guarded(m_error, "smoothGauss()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        const double wd = static_cast<double>(width);
        if (!(width > 0.0f)) {
            m_error.setMessage("smoothGauss() failed - bad kernel width: %g", wd);
            throw PIVerror::BAD_KERNEL_SIZE;
        }
        if (!centered && width < 0.5f) {
            m_error.setMessage(
                "smoothGauss() failed - bad kernel width: %g for non-centered filter, must be >0.5",
                wd);
            throw PIVerror::BAD_KERNEL_SIZE;
        }
        if (!(cutOff > 0.0f) || cutOff > 1.0f) {
            m_error.setMessage("smoothGauss() failed - bad cut-off value: %g",
                               static_cast<double>(cutOff));
            throw PIVerror::BAD_RANGE;
        }
        showStatusFormatted("  Gaussian smoothing (width=%g)", wd);
        const float den = 2.0f * width * width;
        double t = centered ? 0.0 : 0.5;
        int n = 0;
        do {
            t += 1.0;
            n++;
        } while (std::exp(-t * t / den) > cutOff && n < 4096);
        if (n == 1) n = 2;
        DebugPrintExt(1, "  smoothGauss() - width2sigma=%g  w=%d  cutOff=%g", wd, n,
                      static_cast<double>(cutOff));
        std::vector<double> taps(static_cast<size_t>(2 * n + 1));
        taps[n] = 1.0;
        if (centered) {
            for (int i = 1; i <= n; i++) taps[n + i] = taps[n - i] = std::exp(-i * i / den);
        } else {
            // Mirrored about the centre with the mirror one tap over: the
            // kernel sits half a pixel off.
            for (int i = 0; i <= n; i++) taps[n + i] = std::exp(-(i + 0.5) * (i + 0.5) / den);
            for (int i = 0; i < n; i++) taps[n - 1 - i] = taps[n + i];
        }
        double sum = 0.0;
        for (double v : taps) sum += v;
        if (sum == 0.0) sum = 1.0;
        DebugPrintExt(2, "  normalizing with %g", sum);
        for (int i = 0; i <= 2 * n; i++) {
            taps[i] /= sum;
            DebugPrintExt(3, "  weight %2d:  %g", i - n, taps[i]);
        }
        auto filter = [&](float* v, int64_t len, float* out) {
            for (int64_t i = 0; i < len; i++) {
                double acc = 0.0, weight = 0.0;
                const int64_t lo = std::max<int64_t>(-n, -i),
                              hi = std::min<int64_t>(n, len - 1 - i);
                for (int64_t k = lo; k <= hi; k++) {
                    acc += taps[k + n] * v[i + k];
                    weight += taps[k + n];
                }
                out[i] = static_cast<float>(weight == 0.0 ? 0.0 : acc / weight);
            }
            std::memcpy(v, out, sizeof(float) * static_cast<size_t>(len));
        };
        _forEachLine(*this, true, StoreRule::Round, filter);
        _forEachLine(*this, false, StoreRule::Round, filter);
        markChanged();
    });
}

bool Image2D::highPassGauss(float width, float cutOff) {
    return Guarded(m_error, "highPassGauss()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        showStatusFormatted("  Gaussian highpass filtering (width=%g)", static_cast<double>(width));
        Image2D smoothed;
        smoothed.copyOrThrow(*this);
        smoothed.enableStatusMessages(false);
        if (!smoothed.smoothGauss(width, true, cutOff))
            throw static_cast<PIVerror::ErrorType>(smoothed.error().getLastErrorCode());
        const bool status = statusMessagesEnabled();
        enableStatusMessages(false);
        const bool ok = subtract(smoothed, !isFloat());
        enableStatusMessages(status);
        if (!ok) throw static_cast<PIVerror::ErrorType>(m_error.getLastErrorCode());
        markChanged();
    });
}

bool Image2D::convolve(float a, float b, float c, KernelType kind) {
    DebugPrint("Image2D::convolve( %g  %g  %g )", static_cast<double>(a), static_cast<double>(b),
               static_cast<double>(c));
    return Guarded(m_error, "convolve()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        auto line = [=](float* v, int64_t n, float* out) { _convolveLine(v, n, out, a, b, c); };
        if (kind != KERNEL_Y) _forEachLine(*this, true, StoreRule::Truncate, line);
        if (kind != KERNEL_X) _forEachLine(*this, false, StoreRule::Truncate, line);
        markChanged();
    });
}

// ---------------------------------------------------------------------------
// dynamic clipping

namespace {

// The clip bins: from the bottom until nLow pixels are reached (at most
// bins - 2), from the top until nHigh are (down to 1 at least).
void _clipBins(const std::vector<uint64_t>& hist, double nLow, double nHigh, int64_t& low,
               int64_t& high) {
    const int64_t bins = static_cast<int64_t>(hist.size());
    double sum = 0.0;
    for (low = 0; low < bins - 2; low++) {
        sum += static_cast<double>(hist[static_cast<size_t>(low)]);
        if (sum >= nLow) break;
    }
    sum = 0.0;
    for (high = bins - 1; high > 1; high--) {
        sum += static_cast<double>(hist[static_cast<size_t>(high)]);
        if (sum >= nHigh) break;
    }
}

template <typename T, typename F>
void _mapPixels(Image2D& img, F&& f) {
    const int64_t w = static_cast<int64_t>(img.width()), h = static_cast<int64_t>(img.height());
#pragma omp parallel for num_threads(PIV::MaxThreads()) schedule(static)
    for (int64_t y = 0; y < h; y++) {
        T* r = img.scanLine<T>(static_cast<uint64_t>(y));
        for (int64_t x = 0; x < w; x++) r[x] = f(r[x]);
    }
}

template <typename T>
std::vector<uint64_t> _integerHistogram(const Image2D& img, int64_t bins) {
    std::vector<uint64_t> hist;
    try {
        hist.assign(static_cast<size_t>(bins), 0);
    } catch (const std::bad_alloc&) {
        throw PIVerror::ALLOCATION_FAILED;
    }
    for (uint64_t y = 0; y < img.height(); y++) {
        const T* r = img.scanLine<T>(y);
        for (uint64_t x = 0; x < img.width(); x++) {
            const int64_t v = static_cast<int64_t>(r[x]);
            hist[static_cast<size_t>(std::min(v, bins - 1))]++;
        }
    }
    return hist;
}

}  // namespace

bool Image2D::dynamicClipping(float lo, float hi) {
    bool result = false;
    const bool ran = Guarded(m_error, "dynamicClipping()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        if (lo > hi) throw PIVerror::BAD_RANGE;
        if (lo < 0.001f && hi > 0.9999f) {
            m_error.setMessage("dynamicClipping() failed - invalid clip range! (lo=%g hi=%g)",
                               static_cast<double>(lo), static_cast<double>(hi));
            throw PIVerror::BAD_RANGE;
        }
        doStatistics(true);
        const double minimum = m_minimum, maximum = m_maximum;
        if (minimum == maximum) {
            m_error.setMessage("dynamicClipping() failed - constant intensity image!");
            throw PIVerror::BAD_RANGE;
        }
        showStatusFormatted("  Dynamic range clipping (%g, %g)", static_cast<double>(lo),
                            static_cast<double>(hi));
        const double count = static_cast<double>(m_width) * static_cast<double>(m_height);
        const double nLow = static_cast<double>(lo) * count;
        const double nHigh = (1.0 - static_cast<double>(hi)) * count;
        int64_t low = 0, high = 0;
        if (m_type == IMAGE_UINT8) {
            _clipBins(_integerHistogram<uint8_t>(*this, 256), nLow, nHigh, low, high);
            DebugPrint("DynamicHistEqual8bit(%g,%g) - low=%d high=%d", static_cast<double>(lo),
                       static_cast<double>(hi), static_cast<int>(low), static_cast<int>(high));
        } else if (m_type == IMAGE_UINT16 || m_type == IMAGE_UINT32) {
            const int64_t top = static_cast<int64_t>(maximum);
            if (m_type == IMAGE_UINT16)
                _clipBins(_integerHistogram<uint16_t>(*this, top + 1), nLow, nHigh, low, high);
            else
                _clipBins(_integerHistogram<uint32_t>(*this, top + 1), nLow, nHigh, low, high);
            if (m_type == IMAGE_UINT16) {
                low = std::max(low, static_cast<int64_t>(minimum));
                high = std::min(high, top);
                DebugPrint("DynamicHistEqual16bit(%g,%g) - low=%d high=%d  min=%d max=%d",
                           static_cast<double>(lo), static_cast<double>(hi), static_cast<int>(low),
                           static_cast<int>(high), static_cast<int>(minimum),
                           static_cast<int>(maximum));
            }
        }
        if (m_type == IMAGE_FLOAT) {
            const double range = maximum - minimum;
            std::vector<uint64_t> hist(16384, 0);
            for (uint64_t y = 0; y < m_height; y++) {
                const float* r = scanLine<float>(y);
                for (uint64_t x = 0; x < m_width; x++) {
                    const double b = (r[x] - minimum) * 16384.0 / range;
                    const int64_t bin = b >= 0.0 ? std::min<int64_t>(TruncWide(b), 16383) : 0;
                    hist[static_cast<size_t>(bin)]++;
                }
            }
            _clipBins(hist, nLow, nHigh, low, high);
            const float fLow = static_cast<float>(low * range / 16384.0 + minimum);
            const float fHigh = static_cast<float>(high * range / 16384.0 + minimum);
            if (fLow > fHigh) {
                PrintWarning("dynamicClipping() failed - minClip=%g > maxClip=%g",
                             static_cast<double>(fLow), static_cast<double>(fHigh));
                return;
            }
            const float span = fHigh - fLow;
            _mapPixels<float>(*this,
                              [=](float v) { return std::min(std::max(v - fLow, 0.0f), span); });
            result = fLow < fHigh;
            markChanged();
            return;
        }
        if (low > high) {
            PrintWarning("dynamicClipping() failed - minClip=%d > maxClip=%d",
                         static_cast<int>(low), static_cast<int>(high));
            return;
        }
        const int64_t range = high - low;
        if (m_type == IMAGE_UINT8 || m_type == IMAGE_UINT16) {
            const int64_t target = m_type == IMAGE_UINT8 ? 127 : 255;
            int64_t scale = 1;
            while (range > 0 && range * scale < target) scale *= 2;
            Dispatch(m_type, [&](auto tag) {
                using T = typename decltype(tag)::type;
                if constexpr (!kIsFloat<T>)
                    _mapPixels<T>(*this, [=](T v) {
                        const int64_t d = std::min(std::max<int64_t>(v - low, 0), range);
                        return ClampTo<T>(d * scale, 0, Traits<T>::top);
                    });
            });
        } else {
            double scale = range > 0 ? 255.0 / static_cast<double>(range) : 0.0;
            if (!(scale > 0.0) || range >= 129) scale = 1.0;
            std::vector<uint32_t> table;
            try {
                table.resize(static_cast<size_t>(static_cast<int64_t>(maximum) + 1));
            } catch (const std::bad_alloc&) {
                throw PIVerror::ALLOCATION_FAILED;
            }
            for (int64_t v = 0; v < static_cast<int64_t>(table.size()); v++) {
                if (v <= low)
                    table[static_cast<size_t>(v)] = 0;
                else if (v < high)
                    table[static_cast<size_t>(v)] = static_cast<uint32_t>((v - low) * scale);
                else
                    table[static_cast<size_t>(v)] = static_cast<uint32_t>(range * scale);
            }
            _mapPixels<uint32_t>(*this, [&](uint32_t v) { return table[v]; });
        }
        result = low < high;
        markChanged();
    });
    return ran && result;
}

bool Image2D::histEqual(int bins, bool keepType) {
    return Guarded(m_error, "histEqual()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        if (isFloat()) {
            m_error.setMessage("histEqual()- not supported for float images");
            throw PIVerror::IMAGE_TYPE_UNSUPPORTED;
        }
        doStatistics(true);
        if (bins == 0) {
            bins = 2;
            while (bins < m_maximum && bins < (1 << 30)) bins *= 2;
        }
        if (bins < 2) {
            m_error.setMessage("histogram() - not enough bins for computation");
            throw PIVerror::OPERATION_FAILED;
        }
        std::vector<uint32_t> hist(static_cast<size_t>(bins));
        double binWidth = 0, low = 0, high = 0;
        if (!histogram(hist.data(), bins, binWidth, low, high))
            throw static_cast<PIVerror::ErrorType>(m_error.getLastErrorCode());
        std::vector<float> map(static_cast<size_t>(bins));
        double total = 0.0;
        for (uint32_t h : hist) total += h;
        if (total == 0.0) total = 1.0;
        double sum = 0.0;
        for (int i = 0; i < bins; i++) {
            sum += hist[static_cast<size_t>(i)];
            map[static_cast<size_t>(i)] = static_cast<float>(sum / total * bins);
        }
        const ImageType oldType = m_type;
        Image2D src;
        src.copyOrThrow(*this);
        allocOrThrow(static_cast<int64_t>(m_width), static_cast<int64_t>(m_height), IMAGE_FLOAT, 0);
        Dispatch(oldType, [&](auto tag) {
            using T = typename decltype(tag)::type;
            for (uint64_t y = 0; y < m_height; y++) {
                const T* in = src.scanLine<T>(y);
                float* out = scanLine<float>(y);
                for (uint64_t x = 0; x < m_width; x++) {
                    const uint64_t v = static_cast<uint64_t>(in[x]);
                    out[x] = map[static_cast<size_t>(std::min<uint64_t>(v, bins - 1))];
                }
            }
        });
        markChanged();
        if (keepType) {
            bool ok = true;
            if (oldType == IMAGE_UINT8) ok = to8Bit(true);
            if (oldType == IMAGE_UINT16) ok = to16Bit(true);
            if (oldType == IMAGE_UINT32) ok = to32Bit(true);
            if (!ok) throw static_cast<PIVerror::ErrorType>(m_error.getLastErrorCode());
        }
    });
}

bool Image2D::binarize(float level, bool normalised) {
    return Guarded(m_error, "binarize()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        showStatusFormatted("  Binarizing image at %g", static_cast<double>(level));
        double cut = 0.0;
        if (m_type == IMAGE_UINT8) {
            cut = normalised ? level * 255.0 : static_cast<double>(TruncWide(level));
        } else if (m_type == IMAGE_FLOAT) {
            doStatistics(true);
            cut = level;
            if (normalised) {
                cut = m_minimum + (m_maximum - m_minimum) * level;
                DebugPrint("min=%g max=%g -> cufOFF=%g", m_minimum, m_maximum, cut);
            }
            DebugPrint("  Binarizing float image at %g", cut);
        } else {
            cut = normalised ? level * 65535.0 : static_cast<double>(TruncWide(level));
        }
        Image2D src;
        src.copyOrThrow(*this);
        allocOrThrow(static_cast<int64_t>(m_width), static_cast<int64_t>(m_height), IMAGE_UINT8, 0);
        Dispatch(src.type(), [&](auto tag) {
            using T = typename decltype(tag)::type;
            for (uint64_t y = 0; y < m_height; y++) {
                const T* in = src.scanLine<T>(y);
                uint8_t* out = scanLine<uint8_t>(y);
                for (uint64_t x = 0; x < m_width; x++)
                    out[x] = static_cast<double>(in[x]) >= cut ? 255 : 0;
            }
        });
        markChanged();
    });
}

bool Image2D::expand(const Image2D& src, unsigned long factor) {
    return Guarded(m_error, "expand()", [&] {
        if (factor < 1) {
            m_error.setMessage("expand() - invalid resizing factor: %d", static_cast<int>(factor));
            throw PIVerror::BAD_PARAMETERS;
        }
        if (src.isNull()) {
            m_error.setMessage("expand() - Source image contains no data");
            throw PIVerror::IMAGE_IS_NULL;
        }
        if (factor == 1) {
            if (&src != this) copyOrThrow(src);
            return;
        }
        showStatusFormatted("  Image expansion by %lux", factor);
        Image2D copy;
        const Image2D* s = &src;
        if (&src == this) {
            copy.copyOrThrow(src);
            s = &copy;
        }
        const uint64_t f = factor;
        allocOrThrow(static_cast<int64_t>(s->width() * f), static_cast<int64_t>(s->height() * f),
                     s->type(), 0);
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            for (uint64_t y = 0; y < m_height; y++) {
                const T* in = s->scanLine<T>(y / f);
                T* out = scanLine<T>(y);
                for (uint64_t x = 0; x < m_width; x++) out[x] = in[x / f];
            }
        });
        markChanged();
    });
}
