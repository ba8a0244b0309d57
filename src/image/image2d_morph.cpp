// Image2D: local extreme filters, binary morphology, masked-pixel
// randomising and swapping, rotation and flips.
#include <omp.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "image2d.h"
#include "image2d_pixel.h"
#include "piv_messages.h"
#include "piv_util.h"

using PIV::ImagePixel::Dispatch;
using PIV::Guarded;

namespace {

// Running extreme over windows i - (k - 1) / 2 .. i + k / 2 of one line, by a
// monotonic queue of indices: the cost does not depend on k.
template <typename T, bool minimum>
void _extremeLine(const T* in, uint64_t step, int64_t n, int k, T* out, int64_t* queue) {
    const int64_t before = (k - 1) / 2, after = k / 2;
    int64_t head = 0, tail = 0, next = 0;
    auto better = [](T a, T b) { return minimum ? a <= b : a >= b; };
    for (int64_t i = 0; i < n; i++) {
        const int64_t last = std::min(n - 1, i + after);
        for (; next <= last; next++) {
            const T v = in[next * step];
            while (tail > head && better(v, in[queue[tail - 1] * step])) tail--;
            queue[tail++] = next;
        }
        while (queue[head] < i - before) head++;
        out[i] = in[queue[head] * step];
    }
}

template <typename T, bool minimum>
void _extremePass(Image2D& img, bool alongRows, int k) {
    const int64_t w = static_cast<int64_t>(img.width()), h = static_cast<int64_t>(img.height());
    const int64_t lines = alongRows ? h : w, length = alongRows ? w : h;
    const int threads = PIV::MaxThreads();
    std::vector<T> values(static_cast<size_t>(threads * length));
    std::vector<int64_t> queues(static_cast<size_t>(threads * length));
    const uint64_t stride = img.bytesPerLine() / sizeof(T);
    T* base = img.scanLine<T>(0);
#pragma omp parallel for num_threads(threads) schedule(static)
    for (int64_t l = 0; l < lines; l++) {
        const size_t slot = static_cast<size_t>(omp_get_thread_num() * length);
        T* p = alongRows ? base + l * stride : base + l;
        const uint64_t step = alongRows ? 1 : stride;
        _extremeLine<T, minimum>(p, step, length, k, values.data() + slot, queues.data() + slot);
        for (int64_t i = 0; i < length; i++) p[i * step] = values[slot + i];
    }
}

bool _binaryCheck(const Image2D& img) {
    if (img.isNull()) throw PIVerror::IMAGE_IS_NULL;
    return img.type() == IMAGE_UINT8;
}

}  // namespace

bool Image2D::localMaximum(int w, int h, bool minimum) {
    return Guarded(m_error, "localMaximum()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        if (h == 0) h = w;
        if (w < 1 || h < 1) {
            m_error.setMessage("Invalid kernel size: %d x %d ", w, h);
            throw PIVerror::BAD_KERNEL_SIZE;
        }
        w = std::min(w, 63);
        h = std::min(h, 63);
        DebugPrint("Image2D::localMaximum( %d x %d ) type=%d", w, h, static_cast<int>(m_type));
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            if (h > 2) {
                if (minimum)
                    _extremePass<T, true>(*this, false, h);
                else
                    _extremePass<T, false>(*this, false, h);
            }
            if (w > 2) {
                if (minimum)
                    _extremePass<T, true>(*this, true, w);
                else
                    _extremePass<T, false>(*this, true, w);
            }
        });
        markChanged();
    });
}

bool Image2D::minMaxFilter(int size, int sizeY) {
    if (size < 3) size = 3;
    if (sizeY < 3) sizeY = size;
    return Guarded(m_error, "minMaxFilter()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        showStatusFormatted("  MinMax filtering (%dx%d)", size, sizeY);
        DebugPrint("Image2D::minMaxFilter() - size=%d x %d", size, sizeY);
        Image2D top, bottom;
        top.copyOrThrow(*this);
        bottom.copyOrThrow(*this);
        top.enableStatusMessages(false);
        bottom.enableStatusMessages(false);
        if (!top.localMaximum(size, sizeY, false) || !top.toFloat() || !top.smooth(5, 0) ||
            !bottom.localMaximum(size, sizeY, true) || !bottom.toFloat() || !bottom.smooth(5, 0))
            throw PIVerror::OPERATION_FAILED;
        convertOrThrow(IMAGE_FLOAT, false);
        for (uint64_t y = 0; y < m_height; y++) {
            float* r = scanLine<float>(y);
            const float* a = top.scanLine<float>(y);
            const float* b = bottom.scanLine<float>(y);
            for (uint64_t x = 0; x < m_width; x++)
                r[x] = a[x] == b[x] ? 0.0f : (r[x] - b[x]) / ((a[x] - b[x]) / 255.0f);
        }
        markChanged();
    });
}

bool Image2D::subtractSlidingMinimum(int w, int h) {
    if (w < 3) w = 3;
    if (h < 3) h = w;
    return Guarded(m_error, "subtractSlidingMinimum()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        showStatusFormatted("  Subtract sliding minimum (%dx%d)", w, h);
        DebugPrint("Image2D::subtractSlidingMinimum() - size=%d x %d", w, h);
        Image2D floor;
        floor.copyOrThrow(*this);
        floor.enableStatusMessages(false);
        if (!floor.localMaximum(w, h, true) || !floor.toFloat() || !floor.smooth(w - 2, h - 2))
            throw PIVerror::OPERATION_FAILED;
        convertOrThrow(IMAGE_FLOAT, false);
        for (uint64_t y = 0; y < m_height; y++) {
            float* r = scanLine<float>(y);
            const float* f = floor.scanLine<float>(y);
            for (uint64_t x = 0; x < m_width; x++) r[x] -= f[x];
        }
        markChanged();
    });
}

// ---------------------------------------------------------------------------
// binary images

namespace {

// Whether any pixel of the 3 x 3 neighbourhood of (x, y) equals (want
// non-zero) or is zero.
bool _anyAround(const Image2D& img, uint64_t x, uint64_t y, bool setPixel) {
    for (uint64_t j = y - 1; j <= y + 1; j++) {
        const uint8_t* r = img.scanLine<uint8_t>(j);
        for (uint64_t i = x - 1; i <= x + 1; i++)
            if ((r[i] != 0) == setPixel) return true;
    }
    return false;
}

// Clears the pixels that the scratch copy selects; the outer ring stays.
template <typename Select>
void _clearSelected(Image2D& img, const Image2D& scratch, Select&& select) {
    if (img.width() < 3 || img.height() < 3) return;
    for (uint64_t y = 1; y + 1 < img.height(); y++) {
        uint8_t* out = img.scanLine<uint8_t>(y);
        for (uint64_t x = 1; x + 1 < img.width(); x++)
            if (select(scratch, x, y)) out[x] = 0;
    }
}

}  // namespace

bool Image2D::erodeBinary() {
    return Guarded(m_error, "erode()", [&] {
        if (!_binaryCheck(*this)) throw PIVerror::IMAGE_TYPE_UNSUPPORTED;
        Image2D scratch;
        scratch.copyOrThrow(*this);
        _clearSelected(*this, scratch, [](const Image2D& s, uint64_t x, uint64_t y) {
            return _anyAround(s, x, y, false);
        });
        markChanged();
    });
}

bool Image2D::dilateBinary() {
    return Guarded(m_error, "dilate()", [&] {
        if (!_binaryCheck(*this)) throw PIVerror::IMAGE_TYPE_UNSUPPORTED;
        // Selects the pixels with no set pixel around them and clears those,
        // which are clear already: the image stays as it is, and so it has
        // always been.
        Image2D scratch;
        scratch.copyOrThrow(*this);
        _clearSelected(*this, scratch, [](const Image2D& s, uint64_t x, uint64_t y) {
            return !_anyAround(s, x, y, true);
        });
        markChanged();
    });
}

bool Image2D::despeckleBinary() {
    return Guarded(m_error, "despeckle()", [&] {
        if (!_binaryCheck(*this)) throw PIVerror::IMAGE_TYPE_UNSUPPORTED;
        if (m_width < 3 || m_height < 3) return;
        // In place and in scan order: a cleared pixel counts as clear for the
        // pixels after it.
        for (uint64_t y = 1; y + 1 < m_height; y++) {
            uint8_t* r = scanLine<uint8_t>(y);
            for (uint64_t x = 1; x + 1 < m_width; x++) {
                if (r[x] == 0) continue;
                int neighbours = 0;
                for (uint64_t j = y - 1; j <= y + 1; j++) {
                    const uint8_t* n = scanLine<uint8_t>(j);
                    for (uint64_t i = x - 1; i <= x + 1; i++)
                        if ((i != x || j != y) && n[i] != 0) neighbours++;
                }
                if (neighbours == 0) r[x] = 0;
            }
        }
        markChanged();
    });
}

bool Image2D::createBitMask(Image2D* bits) const {
    return Guarded(m_error, "createBitMask()", [&] {
        if (!bits) throw PIVerror::INVALID_POINTER;
        if (!_binaryCheck(*this)) throw PIVerror::IMAGE_TYPE_UNSUPPORTED;
        const int64_t words = static_cast<int64_t>((m_width + 31) / 32);
        if (!bits->alloc(words, static_cast<int64_t>(m_height), IMAGE_UINT32))
            throw static_cast<PIVerror::ErrorType>(bits->error().getLastErrorCode());
        for (uint64_t y = 0; y < m_height; y++) {
            const uint8_t* in = scanLine<uint8_t>(y);
            uint8_t* out = reinterpret_cast<uint8_t*>(bits->scanLine<uint32_t>(y));
            std::memset(out, 0, static_cast<size_t>(words) * 4);
            // Eight pixels to a byte, the first in the lowest bit; bytes past
            // the row's padding count as clear.
            for (uint64_t x = 0; x < static_cast<uint64_t>(words) * 32; x++) {
                const bool set = x < m_bytesPerLine && in[x] != 0;
                if (set) out[x / 8] |= static_cast<uint8_t>(1u << (x % 8));
            }
        }
        bits->setFlagChanged(true);
        bits->setFlagNeedStatistics(true);
    });
}

// ---------------------------------------------------------------------------
// masked pixels

bool Image2D::randomizeMaskedPixels(const Image2D& mask, const SIZE2D& window, const SIZE2D& step,
                                    bool) {
    return Guarded(m_error, "randomizeMaskedPixels()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        if (mask.isNull() || !isSameSize(mask, false) || mask.type() != IMAGE_UINT8)
            throw PIVerror::IMAGE_SIZE_MISMATCH;
        if (window.width < 1 || window.height < 1 || step.width < 1 || step.height < 1)
            throw PIVerror::BAD_PARAMETERS;
        DebugPrint("Image2D::randomizeMaskedPixels(): Win=%dx%d", window.width, window.height);
        const int64_t ww = window.width, wh = window.height;
        const int64_t w = static_cast<int64_t>(m_width), h = static_cast<int64_t>(m_height);
        // 16-bit Fibonacci shift register, taps 16, 14, 13, 11; the same
        // sequence on every call, running on from window to window.
        uint32_t s = 44257;
        auto nextState = [&s] {
            const uint32_t bit = (s ^ (s >> 2) ^ (s >> 3) ^ (s >> 5)) & 1u;
            s = ((bit << 15) | (s >> 1)) & 0xFFFFu;
            return s;
        };
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            std::vector<T> values(static_cast<size_t>(ww * wh)), list(values.size());
            std::vector<uint8_t> masked(values.size());
            for (int64_t y0 = 0; y0 < h - wh; y0 += step.height) {
                for (int64_t x0 = 0; x0 < w - ww; x0 += step.width) {
                    size_t n = 0, free = 0, nMasked = 0;
                    for (int64_t y = 0; y < wh; y++) {
                        const T* r = scanLine<T>(static_cast<uint64_t>(y0 + y)) + x0;
                        const uint8_t* m =
                            mask.scanLine<uint8_t>(static_cast<uint64_t>(y0 + y)) + x0;
                        for (int64_t x = 0; x < ww; x++, n++) {
                            values[n] = r[x];
                            masked[n] = m[x] != 0;
                            if (masked[n])
                                nMasked++;
                            else
                                list[free++] = r[x];
                        }
                    }
                    if (nMasked == 0) continue;
                    if (free == 0) {
                        // All masked: the window's own pixels, shuffled with repeats.
                        std::copy(values.begin(), values.end(), list.begin());
                        const size_t count = values.size();
                        for (size_t k = 0; k < count; k++) values[k] = list[nextState() % count];
                    } else if (free < 3) {
                        continue;
                    } else {
                        for (size_t k = 0; k < n; k++)
                            if (masked[k]) values[k] = list[nextState() % free];
                    }
                    n = 0;
                    for (int64_t y = 0; y < wh; y++) {
                        T* r = scanLine<T>(static_cast<uint64_t>(y0 + y)) + x0;
                        for (int64_t x = 0; x < ww; x++) r[x] = values[n++];
                    }
                }
            }
        });
        markChanged();
    });
}

bool Image2D::swapMaskedPixels(Image2D& other, const Image2D& mask, bool invert) {
    return Guarded(m_error, "applyMask()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        if (other.isNull() || mask.isNull() || !isSameSize(other, true) ||
            !isSameSize(mask, false) || mask.type() != IMAGE_UINT8)
            throw PIVerror::IMAGE_SIZE_MISMATCH;
        const uint8_t selected = invert ? 0 : 255;
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            for (uint64_t y = 0; y < m_height; y++) {
                T* a = scanLine<T>(y);
                T* b = other.scanLine<T>(y);
                const uint8_t* m = mask.scanLine<uint8_t>(y);
                for (uint64_t x = 0; x < m_width; x++)
                    if (m[x] == selected) std::swap(a[x], b[x]);
            }
        });
        markChanged();
        other.setFlagChanged(true);
        other.setFlagNeedStatistics(true);
    });
}

// ---------------------------------------------------------------------------
// orientation

namespace {

// Rebuilds the image as out(x, y) = in(f(x, y)) on the given size.
template <typename F>
void _remap(Image2D& img, const Image2D& src, F&& f) {
    Dispatch(img.type(), [&](auto tag) {
        using T = typename decltype(tag)::type;
        for (uint64_t y = 0; y < img.height(); y++) {
            T* out = img.scanLine<T>(y);
            for (uint64_t x = 0; x < img.width(); x++) {
                uint64_t sx, sy;
                f(x, y, sx, sy);
                out[x] = src.scanLine<T>(sy)[sx];
            }
        }
    });
}

}  // namespace

bool Image2D::rotate90() {
    return Guarded(m_error, "rotate90()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        Image2D src;
        src.copyOrThrow(*this);
        const uint64_t h = m_height;
        allocOrThrow(static_cast<int64_t>(m_height), static_cast<int64_t>(m_width), m_type, 0);
        // Clockwise: the bottom-left corner comes to the top left.
        _remap(*this, src, [h](uint64_t x, uint64_t y, uint64_t& sx, uint64_t& sy) {
            sx = y;
            sy = h - 1 - x;
        });
        markChanged();
    });
}

bool Image2D::rotate270() {
    return Guarded(m_error, "rotate270()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        Image2D src;
        src.copyOrThrow(*this);
        const uint64_t w = m_width;
        allocOrThrow(static_cast<int64_t>(m_height), static_cast<int64_t>(m_width), m_type, 0);
        _remap(*this, src, [w](uint64_t x, uint64_t y, uint64_t& sx, uint64_t& sy) {
            sx = w - 1 - y;
            sy = x;
        });
        markChanged();
    });
}

bool Image2D::rotate180() {
    return Guarded(m_error, "rotate180()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        Image2D src;
        src.copyOrThrow(*this);
        const uint64_t w = m_width, h = m_height;
        _remap(*this, src, [w, h](uint64_t x, uint64_t y, uint64_t& sx, uint64_t& sy) {
            sx = w - 1 - x;
            sy = h - 1 - y;
        });
        markChanged();
    });
}

bool Image2D::flipLR() {
    return Guarded(m_error, "flipLR()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        Image2D src;
        src.copyOrThrow(*this);
        const uint64_t w = m_width;
        _remap(*this, src, [w](uint64_t x, uint64_t y, uint64_t& sx, uint64_t& sy) {
            sx = w - 1 - x;
            sy = y;
        });
        markChanged();
    });
}

bool Image2D::flipTB() {
    return Guarded(m_error, "flipTB()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        Image2D src;
        src.copyOrThrow(*this);
        const uint64_t h = m_height;
        _remap(*this, src, [h](uint64_t x, uint64_t y, uint64_t& sx, uint64_t& sy) {
            sx = x;
            sy = h - 1 - y;
        });
        markChanged();
    });
}

bool Image2D::rotate(int rotation, int flip, bool fromScratch) {
    static const char* const kFlipNames[] = {"No Flip", "Flip L-R", "Flip T-B", "Flip L-R&T-B"};
    showStatusFormatted("   Image rotation: %d  (%s)", rotation, kFlipNames[flip & 3]);
    if (isNull()) {
        m_error.handleError(PIVerror::IMAGE_IS_NULL, "rotate()");
        return false;
    }
    if (fromScratch) clearOrientation();
    const int stored = m_flipTB | m_flipLR;
    const bool straight = m_rotation % 180 == 0;
    bool ok = true;
    if ((flip & 2) != (stored & 2)) ok = ok && (straight ? flipTB() : flipLR());
    if ((flip & 1) != (stored & 1)) ok = ok && (straight ? flipLR() : flipTB());
    setFlipFlags(flip);
    int delta = m_rotation - rotation;
    if (delta < 0) delta += 360;
    if (delta == 180) ok = ok && rotate180();
    if (delta == 270) ok = ok && rotate270();
    if (delta == 90) ok = ok && rotate90();
    m_rotation = rotation;
    return ok;
}
