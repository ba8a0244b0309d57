// Image2D: construction, storage, pixel access, copies, crops and comparison.
#include "image2d.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <new>
#include <type_traits>

#include "image2d_convert_simd.h"
#include "image2d_pixel.h"
#include "piv_messages.h"
#include "piv_util.h"

using PIV::ImagePixel::Dispatch;
using PIV::Guarded;
using PIV::ImagePixel::TruncCoordinate;

namespace {

// Coordinates are int throughout the library, so no side may exceed that.
constexpr int64_t kMaxSide = 0x7fffffff;

// A frame of a few megabytes, first touched one 4 kB page at a time, costs
// thousands of page faults, more than reading it. Blocks from this size on
// start on a huge-page boundary and ask for huge pages, so that touching
// them faults once per 2 MB; the advice is ignored where the system has none.
// The heap block around one is 2 MB larger, its start kept just before the
// frame: freed, it leaves a hole of just the size the next frame of the same
// size asks for, which the heap hands out again with its pages (see
// PIV::KeepFreedFramesInHeap). An aligned allocation would ask for more than
// the hole and take fresh memory every time.
constexpr uint64_t kHugePageBytes = uint64_t(2) << 20;
constexpr uint64_t kHugeBlockBytes = uint64_t(4) << 20;
constexpr uint64_t kBlockHeader = 16;

uint8_t* _allocBlock(uint64_t size) {
    if (size < kHugeBlockBytes) return new (std::nothrow) uint8_t[size];
    uint8_t* heap =
        static_cast<uint8_t*>(::operator new(size + kHugePageBytes + kBlockHeader, std::nothrow));
    if (!heap) return nullptr;
    const uintptr_t at = (reinterpret_cast<uintptr_t>(heap) + kBlockHeader + kHugePageBytes - 1) &
                         ~uintptr_t(kHugePageBytes - 1);
    uint8_t* block = reinterpret_cast<uint8_t*>(at);
    std::memcpy(block - sizeof heap, &heap, sizeof heap);
#ifdef MADV_HUGEPAGE
    ::madvise(block, size, MADV_HUGEPAGE);
#endif
    return block;
}

void _freeBlock(uint8_t* block, uint64_t size) {
    if (!block) return;
    if (size < kHugeBlockBytes) {
        delete[] block;
        return;
    }
    uint8_t* heap = nullptr;
    std::memcpy(&heap, block - sizeof heap, sizeof heap);
    ::operator delete(heap);
}

int _bitsOfType(ImageType type) {
    switch (type) {
        case IMAGE_UINT8:
            return 8;
        case IMAGE_UINT16:
            return 16;
        case IMAGE_UINT32:
        case IMAGE_FLOAT:
            return 32;
        default:
            return 0;
    }
}

}  // namespace

// ---------------------------------------------------------------------------
// construction

Image2D::Image2D()
    : ImageBaseClass(),
      m_padding(0),
      m_pcoSplitMode(PCO_SPLIT_NONE),
      m_wasSplit(false),
      m_currentPage(0),
      m_fileFrames(0),
      m_bits(nullptr),
      m_block(nullptr),
      m_blockSize(0),
      m_rotation(0),
      m_flipTB(0),
      m_flipLR(0),
      m_refCount(1) {
    m_error.setName("Image2D");
}

// The whole state comes across, not only what copy() takes: a copy of a
// rotated PCO frame is still a rotated PCO frame.
Image2D::Image2D(const Image2D& other)
    : ImageBaseClass(other),
      m_padding(0),
      m_bits(nullptr),
      m_block(nullptr),
      m_blockSize(0),
      m_refCount(1) {
    m_error.setName("Image2D");
    m_pcoSplitMode = other.m_pcoSplitMode;
    m_wasSplit = other.m_wasSplit;
    m_currentPage = other.m_currentPage;
    m_fileFrames = other.m_fileFrames;
    m_rotation = other.m_rotation;
    m_flipTB = other.m_flipTB;
    m_flipLR = other.m_flipLR;
    if (!other.isNull() && copy(other)) m_fileFormat = other.m_fileFormat;
}

Image2D::Image2D(const char* path) : Image2D() {
    load(path, 0);
}

Image2D::Image2D(const std::string& path) : Image2D() {
    load(path.c_str(), 0);
}

Image2D::Image2D(const char* path, PCO_SplitMode mode) : Image2D() {
    m_pcoSplitMode = mode;
    load(path, static_cast<int>(mode));
}

Image2D::Image2D(int64_t width, int64_t height, ImageType type) : Image2D() {
    alloc(width, height, type, 0);
}

Image2D::~Image2D() {
    _freeBlock(m_block, m_blockSize);
}

Image2D& Image2D::operator=(const Image2D& other) {
    if (this == &other) {
        m_error.handleError(PIVerror::OVERWRITE_OWN_DATA, "operator(=)  cannot make copy of self");
        return *this;
    }
    if (other.isNull()) {
        m_error.handleError(PIVerror::IMAGE_IS_NULL, "operator(=)  null source image");
        return *this;
    }
    if (!copy(other)) {
        m_error.handleError(PIVerror::OPERATION_FAILED, "operator(=)  copy failed");
        return *this;
    }
    ImageBaseClass::operator=(other);
    m_fileFormat = other.m_fileFormat;
    m_pcoSplitMode = other.m_pcoSplitMode;
    m_wasSplit = other.m_wasSplit;
    m_currentPage = other.m_currentPage;
    m_fileFrames = other.m_fileFrames;
    m_rotation = other.m_rotation;
    m_flipTB = other.m_flipTB;
    m_flipLR = other.m_flipLR;
    return *this;
}

uint32_t Image2D::release() {
    if (m_refCount == 0) return 0;
    if (--m_refCount == 0) {
        delete this;
        return 0;
    }
    return m_refCount;
}

// ---------------------------------------------------------------------------
// storage

void Image2D::allocOrThrow(int64_t width, int64_t height, ImageType type, int64_t padding) {
    const int bits = _bitsOfType(type);
    if (bits == 0) {
        m_error.setMessage("alloc() - unsupported image type %d", static_cast<int>(type));
        throw PIVerror::IMAGE_TYPE_UNSUPPORTED;
    }
    // Checked while still signed: a negative int must not become a huge size.
    if (width <= 0 || height <= 0 || padding < 0) {
        m_error.setMessage("alloc() - bad image size (%" PRId64 "x%" PRId64 ", padding %" PRId64
                           ")",
                           width, height, padding);
        throw PIVerror::BAD_IMAGE_SIZE;
    }
    if (width > kMaxSide || height > kMaxSide || padding > kMaxSide) {
        m_error.setMessage("alloc() - image too large (%" PRId64 "x%" PRId64 ")", width, height);
        throw PIVerror::DATA_TOO_LARGE;
    }
    if (m_bits && static_cast<uint64_t>(width) == m_width &&
        static_cast<uint64_t>(height) == m_height && type == m_type &&
        static_cast<uint64_t>(padding) == m_padding) {
        m_fileFormat = PIV::FORMAT_UNKNOWN;
        return;
    }

    // Sides below 2^31 keep every product below 2^66 / 8, so only the block
    // size itself needs the overflow test.
    const uint64_t columns = static_cast<uint64_t>(width) + 2 * static_cast<uint64_t>(padding);
    uint64_t stride = bits * columns / 8;
    if (stride % 4 != 0) {
        uint64_t aligned = (stride + 3) & ~uint64_t(3);
        DebugPrintExt(2, "alloc() - doing 4-byte alignment: w=%d  %dbpp --> bpl=%d (pad=%d)",
                      static_cast<int>(width), bits, static_cast<int>(aligned),
                      static_cast<int>(padding));
        stride = aligned;
    }
    const uint64_t rows = static_cast<uint64_t>(height) + 2 * static_cast<uint64_t>(padding);
    uint64_t size = 0;
    // A block larger than the machine's memory cannot be used even where the
    // system would hand out the address space, so it is refused up front.
    if (__builtin_mul_overflow(rows, stride, &size) || size > static_cast<uint64_t>(PTRDIFF_MAX) ||
        size > PIV::PhysicalMemoryBytes()) {
        m_error.setMessage("alloc() - %" PRId64 "x%" PRId64
                           " image of %d bits is too large for this machine",
                           width, height, bits);
        throw PIVerror::DATA_TOO_LARGE;
    }

    // The old block goes only once the new one exists, so a failure leaves
    // the image as it was. The pixels of a fresh block stay uninitialised, as
    // zeroing every fresh frame would cost a pass over it.
    uint8_t* block = m_block;
    if (!m_block || size != m_blockSize) {
        block = _allocBlock(size);
        if (!block) {
            m_error.setMessage("alloc() - cannot allocate %" PRIu64 " bytes for %" PRId64
                               "x%" PRId64 " pixels of %d bits",
                               size, width, height, bits);
            throw PIVerror::ALLOCATION_FAILED;
        }
        _freeBlock(m_block, m_blockSize);
    }
    m_block = block;
    m_blockSize = size;
    // With a border the pixel pointer sits on the first inner pixel.
    m_bits = m_block + stride * static_cast<uint64_t>(padding) +
             static_cast<uint64_t>(bits / 8) * static_cast<uint64_t>(padding);
    m_type = type;
    m_bytesPerLine = stride;
    m_pixelsPerLine = stride / static_cast<uint64_t>(bits / 8);
    m_width = static_cast<uint64_t>(width);
    m_height = static_cast<uint64_t>(height);
    m_depth = 1;
    m_padding = static_cast<uint64_t>(padding);
    m_needStats = true;
    m_fileFormat = PIV::FORMAT_UNKNOWN;
    clearNonPixelBytes(static_cast<uint64_t>(bits / 8));
}

// operator== and the savers see whole rows and the border, so every byte of
// the block that is no pixel is zeroed: two images with equal pixels must
// compare equal however their blocks were used before. A reused block may
// hold pixels of its former geometry in what is now border or row padding.
void Image2D::clearNonPixelBytes(uint64_t pixelBytes) {
    const uint64_t used = m_width * pixelBytes;
    const uint64_t gap = m_bytesPerLine - used;
    if (gap == 0 && m_padding == 0) return;
    // Top border and the left border of row 0; then each gap between the
    // pixels of one row and those of the next (right border, row padding,
    // left border); then the bottom border.
    std::memset(m_block, 0, static_cast<uint64_t>(m_bits - m_block));
    for (uint64_t y = 0; y < m_height; y++) std::memset(m_bits + y * m_bytesPerLine + used, 0, gap);
    uint8_t* end = m_bits + m_height * m_bytesPerLine;
    std::memset(end, 0, static_cast<uint64_t>(m_block + m_blockSize - end));
}

void Image2D::allocForFileOrThrow(int64_t width, int64_t height, ImageType type) {
    try {
        allocOrThrow(width, height, type, 0);
    } catch (PIVerror::ErrorType code) {
        throw code == PIVerror::DATA_TOO_LARGE ? PIVerror::ALLOCATION_FAILED : code;
    }
}

bool Image2D::alloc(int64_t width, int64_t height, ImageType type, int64_t padding) {
    return Guarded(m_error, "alloc()", [&] { allocOrThrow(width, height, type, padding); });
}

void Image2D::destroy() {
    _freeBlock(m_block, m_blockSize);
    m_block = nullptr;
    m_bits = nullptr;
    m_blockSize = 0;
    m_padding = 0;
    m_pcoSplitMode = PCO_SPLIT_NONE;
    m_wasSplit = false;
    m_currentPage = 0;
    m_fileFrames = 0;
    clearOrientation();
    m_width = m_height = 0;
    m_depth = 1;
    m_bytesPerLine = m_pixelsPerLine = 0;
    m_type = IMAGE_UNDEFINED;
}

void Image2D::swapStorage(Image2D& other) {
    std::swap(m_block, other.m_block);
    std::swap(m_bits, other.m_bits);
    std::swap(m_blockSize, other.m_blockSize);
    std::swap(m_padding, other.m_padding);
    std::swap(m_width, other.m_width);
    std::swap(m_height, other.m_height);
    std::swap(m_depth, other.m_depth);
    std::swap(m_bytesPerLine, other.m_bytesPerLine);
    std::swap(m_pixelsPerLine, other.m_pixelsPerLine);
    std::swap(m_type, other.m_type);
}

bool Image2D::isSameSize(const Image2D& other, bool checkType) const {
    if (m_width != other.m_width || m_height != other.m_height) return false;
    return !checkType || m_type == other.m_type;
}

bool Image2D::isNull() const {
    return m_width == 0 || m_height == 0 || bitsPerPixel() == 0 || m_bytesPerLine == 0 || !m_bits;
}

// ---------------------------------------------------------------------------
// geometry

SIZE2D Image2D::size2D() const {
    return SIZE2D{static_cast<int32_t>(m_width), static_cast<int32_t>(m_height)};
}

SIZE3D Image2D::size3D() const {
    return SIZE3D{static_cast<int32_t>(m_width), static_cast<int32_t>(m_height),
                  static_cast<int32_t>(m_depth)};
}

bool Image2D::isInside(int64_t x, int64_t y) const {
    return x >= 0 && y >= 0 && x < static_cast<int64_t>(m_width) &&
           y < static_cast<int64_t>(m_height);
}

bool Image2D::isRectInside(int64_t x, int64_t y, int64_t dx, int64_t dy) const {
    return isInside(x, y) || isInside(x + dx, y) || isInside(x, y + dy) || isInside(x + dx, y + dy);
}

// ---------------------------------------------------------------------------
// pixels

void Image2D::checkPixelOrThrow(int64_t x, int64_t y) const {
    if (isNull()) throw PIVerror::IMAGE_IS_NULL;
    if (!isInside(x, y)) {
        m_error.setMessage("pixel (%" PRId64 ",%" PRId64 ") outside of %" PRIu64 "x%" PRIu64
                           " image",
                           x, y, m_width, m_height);
        throw PIVerror::OUTSIDE_IMAGE;
    }
}

float Image2D::pixel(int x, int y) const {
    float value = 0.0f;
    Guarded(m_error, "pixel()", [&] {
        checkPixelOrThrow(x, y);
        value = Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            return static_cast<float>(scanLine<T>(static_cast<uint64_t>(y))[x]);
        });
    });
    return value;
}

bool Image2D::setPixel(int x, int y, float value) {
    try {
        checkPixelOrThrow(x, y);
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            scanLine<T>(static_cast<uint64_t>(y))[x] = PIV::ImagePixel::StoreWrapped<T>(value);
        });
        markChanged();
        return true;
    } catch (PIVerror::ErrorType code) {
        // Quiet below level 3: callers probe freely near the borders.
        if (DebugLevel() >= 3) m_error.handleError(code, "setPixel()");
        return false;
    }
}

uint8_t* Image2D::pixelAddr(int x, int y) {
    uint8_t* address = nullptr;
    Guarded(m_error, "pixelAddr()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        if (y < 0 || static_cast<uint64_t>(y) >= m_height || x < 0 ||
            static_cast<uint64_t>(x) >= m_bytesPerLine)
            throw PIVerror::OUTSIDE_IMAGE;
        address = m_bits + static_cast<uint64_t>(y) * m_bytesPerLine + static_cast<uint64_t>(x);
    });
    return address;
}

bool Image2D::getRow(float* out, int y) const {
    return Guarded(m_error, "getRow()", [&] {
        checkPixelOrThrow(0, y);
        if (!out) throw PIVerror::INVALID_POINTER;
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            const T* row = scanLine<T>(static_cast<uint64_t>(y));
            for (uint64_t x = 0; x < m_width; x++) out[x] = static_cast<float>(row[x]);
        });
    });
}

bool Image2D::putRow(const float* values, int y) {
    return Guarded(m_error, "putRow()", [&] {
        checkPixelOrThrow(0, y);
        if (!values) throw PIVerror::INVALID_POINTER;
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            T* row = scanLine<T>(static_cast<uint64_t>(y));
            for (uint64_t x = 0; x < m_width; x++)
                row[x] = PIV::ImagePixel::StoreRounded<T>(values[x]);
        });
        markChanged();
    });
}

bool Image2D::getColumn(float* out, int x) const {
    return Guarded(m_error, "getColumn()", [&] {
        checkPixelOrThrow(x, 0);
        if (!out) throw PIVerror::INVALID_POINTER;
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            for (uint64_t y = 0; y < m_height; y++) out[y] = static_cast<float>(scanLine<T>(y)[x]);
        });
    });
}

bool Image2D::putColumn(const float* values, int x) {
    return Guarded(m_error, "putColumn()", [&] {
        checkPixelOrThrow(x, 0);
        if (!values) throw PIVerror::INVALID_POINTER;
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            for (uint64_t y = 0; y < m_height; y++)
                scanLine<T>(y)[x] = PIV::ImagePixel::StoreRounded<T>(values[y]);
        });
        markChanged();
    });
}

uint8_t* Image2D::line(int y) {
    if (y < 0 || isNull()) return m_bits;
    if (static_cast<uint64_t>(y) > m_height) return m_bits + m_height * m_bytesPerLine;
    return m_bits + static_cast<uint64_t>(y) * m_bytesPerLine;
}

bool Image2D::fill(float value) {
    return Guarded(m_error, "fill()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        const uint64_t n = m_pixelsPerLine * m_height;
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            const T v = PIV::ImagePixel::StoreWrapped<T>(value);
            if constexpr (sizeof(T) == 1)
                std::memset(m_bits, v, n);
            else
                std::fill_n(reinterpret_cast<T*>(m_bits), n, v);
        });
        // The statistics of a constant image are known without a scan; they
        // keep the value asked for, not the truncated one that was stored.
        m_needStats = false;
        m_variance = 0.0;
        m_mean = m_minimum = m_maximum = value;
        m_changed = true;
    });
}

bool Image2D::erase() {
    m_description[0] = '\0';
    return fill(0.0f);
}

bool Image2D::fillSample(float* out, int w, int h, int x0, int y0, int stride,
                         PIVerror::ErrorType* why) const {
    // Every worker of an evaluation samples the same frames and masks at
    // once: a failure goes to the caller alone, never into m_error.
    auto refuse = [why](PIVerror::ErrorType code) {
        if (why) *why = code;
        return false;
    };
    if (isNull()) return refuse(PIVerror::IMAGE_IS_NULL);
    if (x0 < 0 || y0 < 0 || static_cast<int64_t>(x0) + w > static_cast<int64_t>(m_width) ||
        static_cast<int64_t>(y0) + h > static_cast<int64_t>(m_height))
        return refuse(PIVerror::OUTSIDE_IMAGE);
    if (w < 0 || h < 0 || stride < 0 || (stride != 0 && stride < w))
        return refuse(PIVerror::BAD_SAMPLE_SIZE);
    if (!out) return refuse(PIVerror::INVALID_POINTER);
    const int rowStride = stride != 0 ? stride : w;
    try {
        Dispatch(m_type, [&](auto tag) {
            using T = typename decltype(tag)::type;
            for (int j = 0; j < h; j++) {
                const T* src = scanLine<T>(static_cast<uint64_t>(y0 + j)) + x0;
                float* dst = out + static_cast<int64_t>(j) * rowStride;
                // Every window of an evaluation comes through here, twice.
                if constexpr (std::is_same<T, float>::value)
                    std::memcpy(dst, src, sizeof(float) * size_t(w));
                else if constexpr (std::is_same<T, uint8_t>::value ||
                                   std::is_same<T, uint16_t>::value)
                    PIV::Simd::WidenRow(src, size_t(w), dst);
                else
                    for (int i = 0; i < w; i++) dst[i] = static_cast<float>(src[i]);
                for (int i = w; i < rowStride; i++) dst[i] = 0.0f;
            }
        });
    } catch (PIVerror::ErrorType code) {
        return refuse(code);
    }
    if (why) *why = PIVerror::NO_ERROR;
    return true;
}

// Interpolates along the row below y only: row y0 and the vertical fraction
// do not enter. Its one caller mirrors pixels across a line and relies on
// exactly this; general interpolation lives with the interpolation kernels.
float Image2D::interpolatedPixel(float x, float y, int method) const {
    if (isNull()) {
        m_error.handleError(PIVerror::IMAGE_IS_NULL, "interpolatedPixel()");
        return 0.0f;
    }
    if (method == -1)
        return pixel(TruncCoordinate(static_cast<double>(x) + 0.5),
                     TruncCoordinate(static_cast<double>(y) + 0.5));
    const int lastX = static_cast<int>(m_width) - 1;
    const int lastY = static_cast<int>(m_height) - 1;
    // Far-out coordinates clamp to the border below, so saturate before the
    // +1 rather than let it overflow.
    int x0 = std::clamp(TruncCoordinate(x), -1, lastX + 1);
    int y0 = std::clamp(TruncCoordinate(y), -1, lastY + 1);
    int x1 = x0 + 1, y1 = y0 + 1;
    x0 = std::clamp(x0, 0, lastX);
    x1 = std::clamp(x1, 0, lastX);
    y0 = std::clamp(y0, 0, lastY);
    y1 = std::clamp(y1, 0, lastY);
    if (x0 == x1 && y0 == y1) return pixel(x0, y0);
    const float fx = std::clamp(x - static_cast<float>(x0), 0.0f, 1.0f);
    const float p0 = pixel(x0, y1);
    const float p1 = pixel(x1, y1);
    return p0 + (p1 - p0) * fx;
}

// ---------------------------------------------------------------------------
// copies

void Image2D::copyOrThrow(const Image2D& src) {
    if (src.isNull()) {
        m_error.setMessage("copy() - source image contains no data");
        throw PIVerror::IMAGE_IS_NULL;
    }
    if (&src == this || src.m_block == m_block) throw PIVerror::OVERWRITE_OWN_DATA;
    allocOrThrow(static_cast<int64_t>(src.m_width), static_cast<int64_t>(src.m_height), src.m_type,
                 static_cast<int64_t>(src.m_padding));
    std::memcpy(m_block, src.m_block, src.m_blockSize);
    setFileName(src.m_fileName);
    m_changed = src.m_changed;
    m_needStats = true;
}

bool Image2D::copy(const Image2D& src) {
    return Guarded(m_error, "copy()", [&] { copyOrThrow(src); });
}

bool Image2D::copyROI(const Image2D& src, int x0, int y0, int w, int h) {
    return Guarded(m_error, "copyROI()", [&] {
        if (src.isNull()) throw PIVerror::IMAGE_IS_NULL;
        // Built aside, so that the source may be this image itself.
        Image2D roi;
        roi.allocOrThrow(w, h, src.m_type, 0);
        std::memset(roi.m_bits, 0, roi.m_blockSize);
        const int64_t srcW = static_cast<int64_t>(src.m_width);
        int64_t n = w - std::max<int64_t>(0, static_cast<int64_t>(x0) + w - srcW);
        if (x0 < 0) n -= -static_cast<int64_t>(x0);
        const int64_t firstColumn = std::max(x0, 0);
        const uint64_t bpp = static_cast<uint64_t>(src.bytesPerPixel());
        if (n > 0) {
            for (int j = 0; j < h; j++) {
                const int64_t sy = static_cast<int64_t>(y0) + j;
                if (sy < 0 || sy >= static_cast<int64_t>(src.m_height)) continue;
                std::memcpy(roi.line(j),
                            src.scanLine<uint8_t>(static_cast<uint64_t>(sy)) + firstColumn * bpp,
                            static_cast<uint64_t>(n) * bpp);
            }
        }
        swapStorage(roi);
        m_fileFormat = PIV::FORMAT_UNKNOWN;
        markChanged();
    });
}

bool Image2D::crop(const RECT2D& rect) {
    return Guarded(m_error, "crop()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        // The corners may come in either order.
        int64_t x0 = std::min(rect.left, rect.right), x1 = std::max(rect.left, rect.right);
        int64_t y0 = std::min(rect.top, rect.bottom), y1 = std::max(rect.top, rect.bottom);
        x1 = std::min<int64_t>(x1, static_cast<int64_t>(m_width));
        y1 = std::min<int64_t>(y1, static_cast<int64_t>(m_height));
        x0 = std::max<int64_t>(x0, 0);
        y0 = std::max<int64_t>(y0, 0);
        const int64_t w = x1 - x0, h = y1 - y0;
        if (w < 2 || h < 2) {
            m_error.setMessage("crop() - bad sampling size (%dx%d)", static_cast<int>(w),
                               static_cast<int>(h));
            throw PIVerror::BAD_IMAGE_SIZE;
        }
        showStatusFormatted("  Cropping image from (%d,%d) to (%d,%d)", static_cast<int>(x0),
                            static_cast<int>(y0), static_cast<int>(x1), static_cast<int>(y1));
        Image2D cropped;
        cropped.allocOrThrow(w, h, m_type, 0);
        const uint64_t bpp = static_cast<uint64_t>(bytesPerPixel());
        for (int64_t j = 0; j < h; j++)
            std::memcpy(
                cropped.scanLine<uint8_t>(static_cast<uint64_t>(j)),
                scanLine<uint8_t>(static_cast<uint64_t>(y0 + j)) + static_cast<uint64_t>(x0) * bpp,
                static_cast<uint64_t>(w) * bpp);
        swapStorage(cropped);
        m_fileFormat = PIV::FORMAT_UNKNOWN;
        markChanged();
    });
}

bool Image2D::crop3D(const RECT3D& rect) {
    return crop(RECT2D{rect.left, rect.right, rect.top, rect.bottom});
}

// ---------------------------------------------------------------------------
// comparison and dump

bool Image2D::operator==(const Image2D& other) const {
    if (isNull() || other.isNull()) return false;
    if (m_type != other.m_type || m_width != other.m_width || m_height != other.m_height ||
        m_bytesPerLine != other.m_bytesPerLine)
        return false;
    const uint64_t n = numBytes();
    if (std::memcmp(m_bits, other.m_bits, n) == 0) return true;
    if (DebugLevel() > 0) {
        uint64_t i = 0;
        while (i < n && m_bits[i] == other.m_bits[i]) i++;
        DebugPrint("Image2D::operator(==) - images different at byte %i (%d vs %d)",
                   static_cast<int>(i), m_bits[i], other.m_bits[i]);
    }
    return false;
}

void Image2D::dumpContents() const {
    std::printf("w=%" PRIu64 " h=%" PRIu64 " %d-bits/pixel\n", m_width, m_height, bitsPerPixel());
    if (isNull()) return;
    for (uint64_t y = 0; y < m_height; y++) {
        std::printf("r=%" PRIu64 " -", y);
        for (uint64_t x = 0; x < m_width; x++)
            std::printf("  %g",
                        static_cast<double>(pixel(static_cast<int>(x), static_cast<int>(y))));
        std::printf("\n");
    }
    std::fflush(stdout);
}
