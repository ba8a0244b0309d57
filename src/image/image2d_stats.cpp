// Image2D: statistics, histogram, local means, centroid and constancy.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <type_traits>

#include "image2d.h"
#include "image2d_pixel.h"
#include "image2d_stats_simd.h"
#include "piv_messages.h"

using PIV::ImagePixel::Dispatch;
using PIV::Guarded;

namespace {

struct Moments {
    double s1 = 0.0, s2 = 0.0, minimum = 0.0, maximum = 0.0;
};

// Pixels of 8 and 16 bits and floats go through the vectorised rows; 32-bit
// integers, rare, through the plain loop.
template <typename T>
Moments _momentsOfRows(const Image2D& img) {
    Moments m;
    const uint64_t w = img.width(), h = img.height();
    if constexpr (std::is_same<T, uint8_t>::value || std::is_same<T, uint16_t>::value) {
        PIV::Simd::RowMoments r;
        r.intMin = r.intMax = img.scanLine<T>(0)[0];
        for (uint64_t y = 0; y < h; y++) PIV::Simd::AddRow(img.scanLine<T>(y), w, r);
        m.s1 = static_cast<double>(r.intSum);
        m.s2 = static_cast<double>(r.intSquares);
        m.minimum = r.intMin;
        m.maximum = r.intMax;
    } else if constexpr (std::is_same<T, float>::value) {
        PIV::Simd::RowMoments r;
        r.floatMin = r.floatMax = img.scanLine<T>(0)[0];
        for (uint64_t y = 0; y < h; y++) PIV::Simd::AddRow(img.scanLine<T>(y), w, r);
        m.s1 = r.floatSum;
        m.s2 = r.floatSquares;
        m.minimum = static_cast<double>(r.floatMin);
        m.maximum = static_cast<double>(r.floatMax);
    } else {
        // Row by row even though 32-bit rows carry no line padding: an image
        // allocated with a border must not count the border.
        T lo = img.scanLine<T>(0)[0], hi = lo;
        double s1 = 0.0, s2 = 0.0;
        for (uint64_t y = 0; y < h; y++) {
            const T* p = img.scanLine<T>(y);
            for (uint64_t i = 0; i < w; i++) {
                const double v = static_cast<double>(p[i]);
                s1 += v;
                s2 += v * v;
                if (p[i] < lo) lo = p[i];
                if (p[i] > hi) hi = p[i];
            }
        }
        m.s1 = s1;
        m.s2 = s2;
        m.minimum = static_cast<double>(lo);
        m.maximum = static_cast<double>(hi);
    }
    return m;
}

}  // namespace

bool Image2D::doStatistics(bool force) {
    // Statistics are asked for from everywhere, often speculatively: their
    // failures are only logged.
    m_error.setOverrideErrorHandling(PIVerror::ERROR_QUIET);
    bool ok = Guarded(m_error, "doStatistics()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        if (!m_needStats && !force) return;
        const Moments m = Dispatch(
            m_type, [&](auto tag) { return _momentsOfRows<typename decltype(tag)::type>(*this); });
        storeStatistics(m.s1, m.s2, m.minimum, m.maximum);
    });
    m_error.clearOverrideErrorHandling();
    return ok;
}

void Image2D::storeStatistics(double sum, double squares, double minimum, double maximum) {
    const double n = static_cast<double>(m_width) * static_cast<double>(m_height);
    m_variance = n > 1.0 ? (n * squares - sum * sum) / (n * n - n) : 0.0;
    m_mean = sum / n;
    m_minimum = minimum;
    m_maximum = maximum;
    m_needStats = false;
}

double Image2D::minimum() {
    if (m_needStats) doStatistics(true);
    return m_minimum;
}

double Image2D::maximum() {
    if (m_needStats) doStatistics(true);
    return m_maximum;
}

double Image2D::mean() {
    if (m_needStats) doStatistics(true);
    return m_mean;
}

double Image2D::variance() {
    if (m_needStats) doStatistics(true);
    return m_variance;
}

bool Image2D::histogram(uint32_t* bins, int count, double& binWidth, double& low, double& high) {
    return Guarded(m_error, "histogram()", [&] {
        if (count < 2 || !bins) {
            m_error.setMessage("histogram() - not enough bins for computation");
            throw PIVerror::OPERATION_FAILED;
        }
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        if (m_needStats) doStatistics(true);
        std::fill_n(bins, count, 0u);
        low = 0.0;
        if (bitsPerPixel() <= 15) {
            high = 255.0;
        } else {
            double top = 2.0;
            while (top < m_maximum) top *= 2.0;
            high = top - 1.0;
        }
        if (isFloat()) {
            low = m_minimum;
            high = m_maximum;
            binWidth = (high + 1.0 - low) / count;
        } else {
            // Whole-numbered bins for integer pixels: a range narrower than the
            // bin count gets bins of one count each.
            binWidth = std::floor((high + 1.0 - low) / count);
        }
        if (!(binWidth > 0.0)) binWidth = 1.0;

        const int last = count - 1;
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            for (uint64_t y = 0; y < m_height; y++) {
                const T* row = scanLine<T>(y);
                for (uint64_t x = 0; x < m_width; x++) {
                    const double b = (static_cast<double>(row[x]) - low) / binWidth;
                    // Compared in double, so that NaN and huge values land safely.
                    int bin;
                    if (!(b >= 0.0))
                        bin = 0;
                    else if (b >= count)
                        bin = last;
                    else
                        bin = std::min(static_cast<int>(b), last);
                    bins[bin]++;
                }
            }
        });
    });
}

bool Image2D::isConstant(bool againstZero) const {
    bool constant = false;
    Guarded(m_error, "isConstant()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        constant = Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            const T reference = againstZero ? T(0) : scanLine<T>(0)[0];
            for (uint64_t y = 0; y < m_height; y++) {
                const T* row = scanLine<T>(y);
                // "!(a == b)" so that NaN counts as a difference.
                for (uint64_t x = 0; x < m_width; x++)
                    if (!(row[x] == reference)) return false;
            }
            return true;
        });
    });
    return constant;
}

bool Image2D::localMean(int x0, int y0, int w, int h, double& meanOut, double& deviation) const {
    return Guarded(m_error, "localMean()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        if (x0 < 0 || y0 < 0 || w < 0 || h < 0 ||
            static_cast<int64_t>(x0) + w > static_cast<int64_t>(m_width) ||
            static_cast<int64_t>(y0) + h > static_cast<int64_t>(m_height)) {
            m_error.setMessage("localMean() - %dx%d area at (%d,%d) outside of image", w, h, x0,
                               y0);
            throw PIVerror::OUTSIDE_IMAGE;
        }
        meanOut = 0.0;
        deviation = 0.0;
        const double n = static_cast<double>(w) * static_cast<double>(h);
        if (n == 0.0) return;
        double s1 = 0.0, s2 = 0.0;
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            for (int j = 0; j < h; j++) {
                const T* row = scanLine<T>(static_cast<uint64_t>(y0 + j)) + x0;
                for (int i = 0; i < w; i++) {
                    const double v = static_cast<double>(row[i]);
                    s1 += v;
                    s2 += v * v;
                }
            }
        });
        meanOut = s1 / n;
        deviation = std::sqrt(std::max(0.0, n * s2 - s1 * s1)) / n;
    });
}

// The window's end is exclusive and is pulled back to the last column or row
// when it reaches the edge, so a window touching the right or bottom edge
// leaves out that last column or row.
float Image2D::localMean(int x, int y, float* varianceOut, bool* ok, int size) const {
    if (varianceOut) *varianceOut = 0.0f;
    if (ok) *ok = false;
    if (isNull() || size <= 0) return 0.0f;
    const int64_t w = static_cast<int64_t>(m_width), h = static_cast<int64_t>(m_height);
    int64_t xs = static_cast<int64_t>(x) - size / 2, ys = static_cast<int64_t>(y) - size / 2;
    int64_t xe = xs + size, ye = ys + size;
    if (xs >= w || ys >= h || xe <= 0 || ye <= 0) return 0.0f;
    xs = std::max<int64_t>(xs, 0);
    ys = std::max<int64_t>(ys, 0);
    if (xe >= w) xe = w - 1;
    if (ye >= h) ye = h - 1;
    double n = 0.0, s1 = 0.0, s2 = 0.0;
    Dispatch(m_type, [&](auto tag) {
        using T = typename decltype(tag)::type;
        for (int64_t j = ys; j < ye; j++) {
            const T* row = scanLine<T>(static_cast<uint64_t>(j));
            for (int64_t i = xs; i < xe; i++) {
                const double v = static_cast<double>(row[i]);
                s1 += v;
                s2 += v * v;
                n += 1.0;
            }
        }
    });
    if (n == 0.0) return 0.0f;
    if (varianceOut && n > 1.0)
        *varianceOut = static_cast<float>((n * s2 - s1 * s1) / (n * (n - 1.0)));
    if (ok) *ok = true;
    return static_cast<float>(s1 / n);
}

FPOINT2D Image2D::getSampleCentroid(int w, int h, int x, int y, bool binary) const {
    const FPOINT2D fallback{static_cast<float>(x), static_cast<float>(y)};
    if (isNull() || w <= 0 || h <= 0) return fallback;
    const int64_t x0 = static_cast<int64_t>(x) - w / 2, y0 = static_cast<int64_t>(y) - h / 2;
    if (x0 < 0 || y0 < 0 || x0 + w > static_cast<int64_t>(m_width) ||
        y0 + h > static_cast<int64_t>(m_height))
        return fallback;
    double sw = 0.0, sx = 0.0, sy = 0.0;
    Dispatch(m_type, [&](auto tag) {
        using T = typename decltype(tag)::type;
        for (int64_t j = y0; j < y0 + h; j++) {
            const T* row = scanLine<T>(static_cast<uint64_t>(j));
            for (int64_t i = x0; i < x0 + w; i++) {
                double weight;
                if (binary)
                    weight = row[i] == T(0) ? 1.0 : 0.0;
                else
                    weight = static_cast<double>(row[i]);
                if (weight == 0.0) continue;
                sw += weight;
                sx += weight * static_cast<double>(i);
                sy += weight * static_cast<double>(j);
            }
        }
    });
    if (sw == 0.0) return fallback;
    return FPOINT2D{static_cast<float>(sx / sw), static_cast<float>(sy / sw)};
}
