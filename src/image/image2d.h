// Image2D: the one raster type. It owns one block of pixels of one of four
// pixel types (ImageType) and offers typed access, statistics, conversion and
// pixel arithmetic. Pixels are always float at the interface.
//
// Layout: the block holds bytesPerLine() x height() bytes; row y starts at
// bits() + y * bytesPerLine(). Rows are padded to a multiple of 4 bytes, so
// 8-bit and 16-bit rows may end in up to 3 bytes of padding, kept at zero.
//
// Failures are reported through error() with the member's name as context,
// and the member returns false (or 0).
#pragma once

#include <cstdint>
#include <string>

#include "image_base.h"
#include "piv_types.h"

namespace PIV {
namespace Simd {
struct RowMoments;
}
}  // namespace PIV

class Image2D : public ImageBaseClass {
public:
    Image2D();
    // The copy constructor and operator= copy the whole image: pixels, names,
    // orientation and file format. copy() takes only the pixels, the file
    // name and the changed flag.
    Image2D(const Image2D& other);
    explicit Image2D(const char* path);
    explicit Image2D(const std::string& path);
    Image2D(const char* path, PCO_SplitMode mode);
    Image2D(int64_t width, int64_t height, ImageType type);
    ~Image2D() override;

    Image2D& operator=(const Image2D& other);

    // Deletes the object when the count goes from 1 to 0.
    uint32_t addRef() { return ++m_refCount; }
    uint32_t release();
    uint32_t referenceCount() const { return m_refCount; }

    // ---- storage -------------------------------------------------------
    // Re-allocation to the same geometry keeps the pixels; a block of the same
    // byte size is reused with its bytes; fresh pixels are uninitialised. Row
    // padding and the border are zeroed on every new geometry. On failure the
    // image keeps its old block and geometry.
    bool alloc(int64_t width, int64_t height, ImageType type, int64_t padding = 0);
    bool resize(int64_t width, int64_t height, ImageType type) {
        return alloc(width, height, type, 0);
    }
    bool resize(const SIZE2D& size, ImageType type) {
        return alloc(size.width, size.height, type, 0);
    }
    void destroy();
    bool isSameSize(const Image2D& other, bool checkType) const;
    bool isNull() const;

    // ---- geometry ------------------------------------------------------
    SIZE2D size2D() const;
    SIZE3D size3D() const;
    uint64_t numPixels() const { return m_width * m_height * m_depth; }
    uint64_t numBytes() const { return m_height * m_bytesPerLine * m_depth; }
    uint64_t bytesPerPlane() const { return m_height * m_bytesPerLine; }
    uint64_t padding() const { return m_padding; }
    bool isInside(int64_t x, int64_t y) const;
    // True if any of (x, y), (x + dx, y), (x, y + dy), (x + dx, y + dy) lies inside.
    bool isRectInside(int64_t x, int64_t y, int64_t dx, int64_t dy) const;

    uint8_t* bits() { return m_bits; }
    const uint8_t* bits() const { return m_bits; }
    uint8_t* baseAddr() { return m_block; }
    // Unchecked typed row access for kernels that know the type.
    template <typename T>
    T* scanLine(uint64_t y) {
        return reinterpret_cast<T*>(m_bits + y * m_bytesPerLine);
    }
    template <typename T>
    const T* scanLine(uint64_t y) const {
        return reinterpret_cast<const T*>(m_bits + y * m_bytesPerLine);
    }

    // ---- pixels ----------------------------------------------------------
    float pixel(int x, int y) const;
    // Truncates toward zero without clamping: on integer images the value
    // wraps by its low bits (256.0 stores 0 in an 8-bit image).
    bool setPixel(int x, int y, float value);
    // x counts bytes whatever the type.
    uint8_t* pixelAddr(int x, int y);
    bool getRow(float* out, int y) const;
    // Rounds half up and clamps to 0..255 or 0..65535; 32-bit rounds, no clamp.
    bool putRow(const float* values, int y);
    bool getColumn(float* out, int x) const;
    bool putColumn(const float* values, int x);
    // The pixel pointer for y < 0 or a null image; row `height` for y > height.
    uint8_t* line(int y);
    // Stores the truncated value everywhere, padding included, and sets the
    // statistics to the float value without a scan.
    bool fill(float value);
    bool erase();
    // Copies the w x h window at (x0, y0) as float into rows `stride` floats
    // apart (stride 0 means w), clearing columns w..stride-1. Writes nothing
    // but `out` and `why`, which receives the code of a refusal (36 outside
    // the image, 41 bad size or stride, 3 no buffer, 37 null image), so that
    // many threads may sample one image at once.
    bool fillSample(float* out, int w, int h, int x0, int y0, int stride = 0,
                    PIVerror::ErrorType* why = nullptr) const;
    // Method -1 is the nearest pixel. Every other method interpolates along
    // the row below y only (see the source); it is no general interpolator.
    float interpolatedPixel(float x, float y, int method = 0) const;

    // ---- statistics ------------------------------------------------------
    bool doStatistics(bool force) override;
    double minimum();
    double maximum();
    double mean();
    double variance();
    // The range is 0..255 for 8-bit images, 0..2^k-1 above, the actual
    // minimum and maximum for float images.
    bool histogram(uint32_t* bins, int count, double& binWidth, double& low, double& high);
    bool isConstant(bool againstZero) const;
    bool isZero() const { return isConstant(true); }
    bool localMean(int x0, int y0, int w, int h, double& mean, double& deviation) const;
    float localMean(int x, int y, float* variance, bool* ok, int size) const;
    FPOINT2D getSampleCentroid(int w, int h, int x, int y, bool binary) const;

    // ---- whole-image operations ------------------------------------------
    bool copy(const Image2D& src);
    bool copyROI(const Image2D& src, int x0, int y0, int w, int h);
    bool crop(const RECT2D& rect);
    bool crop3D(const RECT3D& rect);

    // Same size and type; these set need-stats but not the changed flag.
    bool operator+=(const Image2D& other);
    bool operator-=(const Image2D& other);
    bool operator*=(const Image2D& other);
    bool operator/=(const Image2D& other);
    bool operator+=(float offset);
    bool operator*=(float factor);

    bool bias(double offset, bool clip);
    bool subtract(double value, bool clip);
    bool subtract(const Image2D& src, bool clip);
    bool scale(double factor, bool clip);
    bool square(bool clip);
    bool squared(const Image2D& src, bool clip);
    bool gammaCorrection(double gamma, double top);
    bool clipHigh(double value);
    bool clipLow(double value);
    bool clipRange(double low, double high);
    bool scaleToRange(double low, double high);
    bool normalize(double scale);
    bool negative(double offset);
    bool minImage(const Image2D& other);
    bool maxImage(const Image2D& other);
    bool applyLUT(const float* lut, uint64_t count);
    bool applyMask(const Image2D& mask, bool inverted);
    bool getValidPixels(const Image2D& src, float low, float high);
    bool testPattern(float start, float step, int every);
    bool replicate(const float* line, int length, int count, bool alongRows);
    bool vectorMultiply(const float* a, int na, const float* b, int nb);
    void dumpContents() const;
    bool operator==(const Image2D& other) const;
    bool operator!=(const Image2D& other) const { return !(*this == other); }

    // ---- resampling (image2d_interp.cpp) -------------------------------------
    // Output pixel (i, j) samples the image at (i + dx, j + dy), so the
    // content moves by (-dx, -dy). Whole-pixel shifts copy pixels; anything
    // else interpolates with the image's interpolation method and parameter
    // and leaves a float image unless retainType.
    bool translate(double dx, double dy, bool retainType = false);
    bool translateRotate(double angle, double tx, double ty, double ox, double oy,
                         bool retainType = false);
    // A transform of translation only runs translate(TranslateX, -TranslateY):
    // the record counts y upwards.
    bool transform(const IMAGE_TRANSFORMATION_CFG& cfg, bool retainType = false);
    // Samples at (fx i, fy j); spline methods only.
    bool distortLinear(double fx, double fy, bool retainType = false);
    // Float images whose pixels are the plain sums of factor x factor cells.
    bool binning(const Image2D& src, int factor);
    // split 1 takes half of the source height, 2 a third, 3 a quarter, read
    // from row `offset` on.
    bool binnedFrom(const Image2D& src, int fx, int fy, int split, int offset);

    // ---- filters (image2d_filters.cpp, image2d_morph.cpp) --------------------
    // All work in place, report a null image as 37 and set the changed and
    // need-stats flags on success. Masks and binary images are 8-bit, a
    // non-zero pixel being masked (or set).
    //
    // Size above 3 is 5 x 5, anything else 3 x 3; the outer 1 or 2 rows and
    // columns stay as they are.
    bool medianFilter(int size);
    // The same, for pixels the mask leaves free, over their free neighbours.
    bool medianFilterWithMask(const Image2D& mask, int size, bool unused = false);
    // Box mean over the pixels really inside the box; h 0 means w, sizes
    // 1..63 (larger ones are capped), even sizes allowed. Integers truncate.
    bool smooth(int w, int h = 0);
    bool smooth2x2();
    // The image minus its box mean; integer results stop at 0.
    bool highPass(int w, int h = 0);
    bool smoothGauss(float width, bool centered, float cutOff);
    bool highPassGauss(float width, float cutOff);
    enum KernelType { KERNEL_X = 0, KERNEL_Y = 1, KERNEL_XY = 2 };
    bool convolve(float a, float b, float c, KernelType kind = KERNEL_XY);
    bool convolveX(float a, float b, float c) { return convolve(a, b, c, KERNEL_X); }
    bool convolveY(float a, float b, float c) { return convolve(a, b, c, KERNEL_Y); }
    // Cuts the fractions lo and 1 - hi of the pixels at the ends of the
    // histogram and stretches what remains.
    bool dynamicClipping(float lo, float hi);
    bool histEqual(int bins, bool keepType);
    bool localMaximum(int w, int h, bool minimum);
    bool minMaxFilter(int size, int sizeY);
    bool subtractSlidingMinimum(int w, int h);
    // Always leaves an 8-bit image: 255 where v >= level.
    bool binarize(float level, bool normalised);
    bool expand(const Image2D& src, unsigned long factor);
    // Fills masked pixels with grey values of free pixels of the same window.
    bool randomizeMaskedPixels(const Image2D& mask, const SIZE2D& window, const SIZE2D& step,
                               bool unused = false);
    bool swapMaskedPixels(Image2D& other, const Image2D& mask, bool invert);
    bool dilateBinary();
    bool erodeBinary();
    bool despeckleBinary();
    bool createBitMask(Image2D* bits) const;

    // ---- orientation (image2d_morph.cpp) ---------------------------------------
    // Brings the image from its stored rotation and flip to the given ones.
    bool rotate(int rotation, int flip, bool fromScratch);
    bool rotate90();
    bool rotate180();
    bool rotate270();
    bool flipLR();
    bool flipTB();

    // ---- pre-processing drivers (image2d_preprocess.cpp) -----------------------
    bool preProcess(const IMAGE_CFG& cfg, bool statusOn, bool noRotate, int page);
    bool preProcessUsingMaskAndBackground(const IMAGE_CFG& cfg, Image2D* mask, Image2D* background,
                                          bool statusOn, bool noRotate, int page);
    bool applyImageFilters(const IMAGE_FILTER_CFG& filter, bool statusOn);

    // ---- type change -------------------------------------------------------
    bool to8Bit(bool clip = true);
    bool to16Bit(bool clip = true);
    bool to32Bit(bool clip = true);
    bool toFloat();
    bool convertToType(ImageType type);
    bool convertDepth(ImageType type) { return convertToType(type); }

    // ---- files -----------------------------------------------------------
    // `page` selects the page of a multi-page file; for PCO and LaVision
    // files it selects the half of a double image (1 upper, 2 lower).
    bool load(const char* path, int page = 0);
    bool load(const std::string& path, int page = 0) { return load(path.c_str(), page); }
    // load() and then toFloat(), to the same pixels, statistics and state,
    // for a caller that works in float anyway. The readers of 8 and 16-bit
    // TIFF strips and of PGM rows widen each row as they read it, so the
    // frame is written once, into a float block that a frame of the same
    // size reuses from one load to the next. A load that fails leaves the
    // image as load() leaves it.
    bool loadAsFloat(const char* path, int page = 0);
    // Tries the writer of `format` (TIFF, PCO, LaVision) and otherwise falls
    // back by depth: 16 bits PCO, 8 bits TIFF, float LaVision.
    bool save(const char* path, int format = -1) const;
    static int getFileFormat(const char* path);
    // Size, type and frame count from the headers alone; false for formats
    // it cannot tell (PGM among them), with zero frames.
    static bool GetImageInfo(const char* path, int* format, ImageType* type, int* width,
                             int* height, int* frames);

    bool loadPGM(const char* path);
    // Binary P5: 8-bit images with maxval 255, 16-bit images with maxval
    // 65535 (high byte first). Written beside the target and renamed over it.
    bool savePGM(const char* path) const;

    // A negative page reads the current (first) directory.
    bool loadTIFF(const char* path, int page = 0);
    // Grey images by bits per pixel; the compression() settings choose the
    // TIFF compression.
    bool saveTIFF(const char* path) const;
    // Writes each page of a multi-page TIFF to "<base>_<first + page>.tif"
    // with `digits` (2..8) zero-padded digits; the number of pages written.
    int convertFromTIFFSequence(const char* source, const char* base, int firstNumber, int digits,
                                int format, int verbosity);

    // Always an 8-bit image; for 24-bit files `page` mod 3 picks the channel.
    bool loadBMP(const char* path, int page = 0);

    bool loadPCO(const char* path, int page = 0);
    bool savePCO(const char* path) const;
    static bool getPCOImageSizeInfo(const char* path, int& width, int& height);
    bool isSplitPCO() const { return m_pcoSplitMode != PCO_SPLIT_NONE && isPCOImage(); }
    bool isPCOImage() const { return m_fileFormat == PIV::FORMAT_PCO; }
    // The TIFF page, or 1 and 2 for the halves of a split double image.
    int currentPage() const { return m_currentPage; }
    // Frames the file of the last load holds: TIFF pages, LaVision frames,
    // 2 for a double image split in halves, else 1; 0 before a load.
    int fileFrames() const { return m_fileFrames; }

    // LaVision IMX, IMG, IM7 and VC7 images of 16-bit words or floats;
    // frames of a file stand above one another.
    bool loadLavVC7(const char* path, int page = 0);
    // A 256-byte header of version 18 (20 for float) and the pixels.
    bool saveLavImg(const char* path) const;

    bool loadRaw(const char* path, int width, int height, int depthBits, long offset);
    // A camera frame in memory; stride 0 means packed rows. Binning 2..4
    // sums blocks of 16-bit pixels.
    bool loadFromBuffer(const void* bytes, int width, int height, int depthBits, int stride,
                        bool isFloat, int binning);
    bool loadFromBufferUShort(const uint16_t* words, int width, int height, int binning);

    // ---- state of loading and orientation ----------------------------------
    PCO_SplitMode pcoSplitMode() const { return m_pcoSplitMode; }
    void setPCOSplitMode(PCO_SplitMode mode) { m_pcoSplitMode = mode; }
    bool wasSplitPCO() const { return m_wasSplit; }
    int currentRotation() const { return m_rotation; }
    bool isFlippedTB() const { return m_flipTB == 2; }
    bool isFlippedLR() const { return m_flipLR == 1; }
    void setFlipFlags(int flags) {
        m_flipTB = flags & 2;
        m_flipLR = flags & 1;
    }

protected:
    // The throwing cores of the public members: they raise a bare
    // PIVerror::ErrorType so that a caller reports under its own name.
    void allocOrThrow(int64_t width, int64_t height, ImageType type, int64_t padding);
    void copyOrThrow(const Image2D& src);
    void convertOrThrow(ImageType type, bool clip);
    void checkPixelOrThrow(int64_t x, int64_t y) const;
    void clearNonPixelBytes(uint64_t pixelBytes);
    void clearOrientation() {
        m_rotation = 0;
        m_flipTB = 0;
        m_flipLR = 0;
    }
    // Exchanges blocks and geometry, not names, flags or statistics.
    void swapStorage(Image2D& other);
    void markChanged() {
        m_needStats = true;
        m_changed = true;
    }
    bool clipLowOrThrow(double value);
    bool clipHighOrThrow(double value);
    void biasOrThrow(double offset, bool clip);
    // alloc for a loader: a size the machine cannot hold is an allocation
    // failure of the file, whatever alloc calls it.
    void allocForFileOrThrow(int64_t width, int64_t height, ImageType type);
    // Reads the current directory of an open TIFF into this image.
    bool getTIFFfromFile(struct tiff* tif, const struct TIFF_INFO& info, int page);
    // Sets the statistics from the moments of the stored pixels.
    void storeStatistics(double sum, double squares, double minimum, double maximum);
    // For a reader asked by loadAsFloat(), which allocates the float frame
    // and sets m_widenedFrom: row y of 8 or 16-bit pixels into the frame,
    // its moments added to m (row 0 starts them).
    template <typename T>
    void widenStoredRow(const T* row, uint64_t y, PIV::Simd::RowMoments& m);
    void storeWidenedStatistics(const PIV::Simd::RowMoments& m);
    // Halves a double image for `page` and the split mode and sets the
    // current page; firstRow is where the kept half starts.
    bool splitDoubleImage(uint64_t& height, uint64_t& firstRow, int page);

    uint64_t m_padding;
    PCO_SplitMode m_pcoSplitMode;
    bool m_wasSplit;
    int m_currentPage;
    int m_fileFrames;
    uint8_t* m_bits;
    uint8_t* m_block;
    uint64_t m_blockSize;
    int m_rotation;
    int m_flipTB;
    int m_flipLR;
    uint32_t m_refCount;
    // Set by loadAsFloat() for the readers: rows may be widened as read.
    bool m_readAsFloat = false;
    // The type the file stores, once a reader has widened its rows.
    ImageType m_widenedFrom = IMAGE_UNDEFINED;
};
