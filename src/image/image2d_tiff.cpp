// Image2D: TIFF files through libtiff. Grey pages of 1, 4, 8, 12, 16 and 32
// bits and float are read strip by strip, palette pages through a grey
// table; images are written with the compression settings of the image; a
// multi-page file can be split into one file per page.
#include <tiffio.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>
#include <vector>

#include "image2d.h"
#include "image2d_files.h"
#include "image2d_pixel.h"
#include "image2d_stats_simd.h"
#include "piv_file.h"
#include "piv_file_bounds.h"
#include "piv_messages.h"
#include "piv_record.h"

using PIV::Guarded;

namespace {

struct TiffCloser {
    void operator()(TIFF* tif) const {
        if (tif) TIFFClose(tif);
    }
};
using TiffPtr = std::unique_ptr<TIFF, TiffCloser>;

// libtiff's own words about a damaged file go into the error we report and
// the debug log, not straight to stderr, where a batch of thousands of
// files would bury them and a window would never show them.
thread_local char t_tiffError[400];

void _keepTiffError(const char* module, const char* format, va_list args) {
    std::vsnprintf(t_tiffError, sizeof t_tiffError, format, args);
    DebugPrintExt(2, "libtiff %s: %s", module ? module : "", t_tiffError);
}

// Files are read through a descriptor of ours, so that libtiff never opens
// a named pipe or a device by itself; it closes the descriptor with the file.
TiffPtr _open(const char* path, const char* mode) {
    static std::once_flag once;
    std::call_once(once, [] { TIFFSetErrorHandler(_keepTiffError); });
    t_tiffError[0] = '\0';
    if (!path || !*path) return nullptr;
    if (mode[0] != 'r') return TiffPtr(TIFFOpen(path, mode));
    const int fd = PIV::OpenRegularFile(path);
    if (fd < 0) return nullptr;
    TIFF* tif = TIFFFdOpen(fd, path, mode);
    if (!tif) ::close(fd);
    return TiffPtr(tif);
}

// "" or " (<libtiff's last complaint>)", to end a message with.
std::string _tiffReason() {
    return t_tiffError[0] ? std::string(" (") + t_tiffError + ")" : std::string();
}

ImageType _typeOfSamples(int bits, int sampleFormat) {
    switch (bits) {
        case 1:
        case 4:
        case 8:
            return IMAGE_UINT8;
        case 12:
        case 16:
            return IMAGE_UINT16;
        case 32:
            if (sampleFormat == SAMPLEFORMAT_UINT) return IMAGE_UINT32;
            if (sampleFormat == SAMPLEFORMAT_IEEEFP) return IMAGE_FLOAT;
            return IMAGE_UNDEFINED;
        default:
            return IMAGE_UNDEFINED;
    }
}

// The tags of the current directory.
void _readTags(TIFF* tif, TIFF_INFO& info) {
    uint32_t width = 0, height = 0, rowsPerStrip = 0;
    uint16_t samples = 1, bits = 1, photometric = 0, sampleFormat = SAMPLEFORMAT_UINT;
    TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &height);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &rowsPerStrip);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLEFORMAT, &sampleFormat);
    TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &photometric);
    info.width = width;
    info.height = height;
    info.samplesPerPixel = samples;
    info.bitsPerSample = bits;
    info.rowsPerStrip = rowsPerStrip;
    info.photometric = photometric;
    info.type = _typeOfSamples(bits, sampleFormat);
    info.scanlineSize = static_cast<uint32_t>(TIFFScanlineSize64(tif));
    info.stripCount = TIFFNumberOfStrips(tif);
    info.stripSize = static_cast<uint32_t>(TIFFStripSize64(tif));
}

// Counts the pages, goes to `page` unless it is negative and reads the tags.
// A page that cannot be reached is reported, and the first page is read.
void _getTIFFImageInfo(TIFF* tif, const char* path, TIFF_INFO& info, int page, PIVerror& error) {
    std::memset(&info, 0, sizeof info);
    PIV::CopyText(info.fileName, path);
    info.pages = TIFFNumberOfDirectories(tif);
    if (info.pages > 1 && page >= 0 && !TIFFSetDirectory(tif, static_cast<tdir_t>(page))) {
        error.setMessage("Page %d in TIFF image cannot be accessed - defaulting to 0", page);
        error.handleError(PIVerror::FILE_ACCESS_ERROR, "loadTIFF()");
        TIFFSetDirectory(tif, 0);
    }
    _readTags(tif, info);
}

// Palette entries are 16-bit by the standard, but some writers store 8-bit
// values; a table without any entry above 255 is taken as such.
std::vector<uint16_t> _greyTable(TIFF* tif, int bits) {
    uint16_t *red = nullptr, *green = nullptr, *blue = nullptr;
    if (bits > 16 || !TIFFGetField(tif, TIFFTAG_COLORMAP, &red, &green, &blue)) return {};
    const size_t n = size_t(1) << bits;
    bool sixteenBit = false;
    for (size_t i = 0; i < n; i++)
        if (red[i] > 255 || green[i] > 255 || blue[i] > 255) sixteenBit = true;
    if (!sixteenBit) TIFFWarning(TIFFFileName(tif), "Assuming 8-bit colormap");
    const unsigned divisor = sixteenBit ? 257 : 1;
    std::vector<uint16_t> grey(n);
    for (size_t i = 0; i < n; i++)
        grey[i] =
            static_cast<uint16_t>((red[i] / divisor + green[i] / divisor + blue[i] / divisor) / 3);
    return grey;
}

// One file row into one image row. 12-bit samples come in three bytes per
// two pixels; 1 and 4-bit rows expand over whole bytes only, so the last
// pixels of a width that does not fill its last byte stay 0.
template <typename T>
void _unpackRow(const uint8_t* in, uint64_t inBytes, int bits, uint64_t width, T* out) {
    if (bits == 12) {
        for (uint64_t x = 0, i = 0; x < width && i < inBytes; x += 2, i += 3) {
            const unsigned a = in[i];
            const unsigned b = i + 1 < inBytes ? in[i + 1] : 0;
            const unsigned c = i + 2 < inBytes ? in[i + 2] : 0;
            out[x] = static_cast<T>((a << 4) | (b >> 4));
            if (x + 1 < width) out[x + 1] = static_cast<T>(((b & 15) << 8) | c);
        }
        return;
    }
    if (bits == 4) {
        std::fill(out, out + width, T(0));
        for (uint64_t i = 0; i < width / 2 && i < inBytes; i++) {
            out[2 * i] = static_cast<T>(in[i] >> 4);
            out[2 * i + 1] = static_cast<T>(in[i] & 15);
        }
        return;
    }
    if (bits == 1) {
        // A clear bit is white.
        std::fill(out, out + width, T(0));
        for (uint64_t i = 0; i < width / 8 && i < inBytes; i++)
            for (int k = 0; k < 8; k++) out[8 * i + k] = (in[i] & (0x80u >> k)) ? T(0) : T(255);
        return;
    }
    std::memcpy(out, in, std::min<uint64_t>(inBytes, width * sizeof(T)));
}

// libtiff trusts the directory for the image size; the file has to be
// able to hold the page before it is allocated. A page cut short fails in
// the strip reads anyway, so uncompressed pages need all their bytes and
// compressed ones may not claim more than the largest ratio expands to;
// the page may not pass the pixel limit, and no compressed strip may
// expand beyond that ratio either, which the page's bound alone would let
// one strip do.
void _checkTiffPage(TIFF* tif, const TIFF_INFO& info, PIVerror& error) {
    const char* path = TIFFFileName(tif);
    const int64_t size = PIV::FileBounds::SizeOf(path);
    if (size < 0 || info.width == 0 || info.height == 0) return;
    uint16_t compression = COMPRESSION_NONE;
    TIFFGetFieldDefaulted(tif, TIFFTAG_COMPRESSION, &compression);
    const uint64_t rowBytes =
        (static_cast<uint64_t>(info.width) * info.bitsPerSample * info.samplesPerPixel + 7) / 8;
    const uint64_t declared = rowBytes * info.height;
    if (compression == COMPRESSION_NONE)
        PIV::FileBounds::RequireOrThrow(error, "loadTIFF()", path, "pixel data", declared,
                                        static_cast<uint64_t>(size), false);
    else
        PIV::FileBounds::RequireCompressedOrThrow(error, "loadTIFF()", path, "pixel data", declared,
                                                  static_cast<uint64_t>(size));
    PIV::FileBounds::RequirePixelsOrThrow(error, "loadTIFF()", path, info.width, info.height);
    if (compression == COMPRESSION_NONE || TIFFIsTiled(tif)) return;
    const uint64_t rowsPerStrip = info.rowsPerStrip ? info.rowsPerStrip : info.height;
    for (uint32_t s = 0; static_cast<uint64_t>(s) * rowsPerStrip < info.height; s++) {
        const uint64_t rows = std::min<uint64_t>(rowsPerStrip, info.height - s * rowsPerStrip);
        char what[48];
        std::snprintf(what, sizeof what, "pixel data in strip %u", s);
        PIV::FileBounds::RequireCompressedOrThrow(error, "loadTIFF()", path, what, rows * rowBytes,
                                                  TIFFGetStrileByteCount(tif, s));
    }
}

}  // namespace

bool Image2D::getTIFFfromFile(TIFF* tif, const TIFF_INFO& info, int page) {
    return Guarded(m_error, "getTIFFfromFile()", [&] {
        if (info.samplesPerPixel > 1) {
            m_error.setMessage("Multisample (color) TIFF-images not supported!");
            throw PIVerror::IMAGE_TYPE_UNSUPPORTED;
        }
        if (info.type == IMAGE_UNDEFINED) {
            m_error.setMessage("getTIFFfromFile() - %d bits per sample not supported",
                               info.bitsPerSample);
            throw PIVerror::IMAGE_TYPE_UNSUPPORTED;
        }
        if (TIFFIsTiled(tif)) {
            m_error.setMessage("getTIFFfromFile() - tiled TIFF-images not supported");
            throw PIVerror::IMAGE_TYPE_UNSUPPORTED;
        }
        _checkTiffPage(tif, info, m_error);
        const uint64_t scanline = std::max<uint64_t>(info.scanlineSize, 1);
        const int bits = info.bitsPerSample;
        // Grey rows of 8 and 16 bits, when float is asked for, are widened
        // from the strip buffer into the float frame.
        const bool widen = m_readAsFloat && (bits == 8 || bits == 16) &&
                           info.photometric != PHOTOMETRIC_PALETTE &&
                           scanline >= uint64_t(info.width) * (bits / 8);
        allocForFileOrThrow(info.width, info.height, widen ? IMAGE_FLOAT : info.type);
        if (widen) m_widenedFrom = info.type;
        DebugPrintExt(2, "getTIFFfromFile() - page %d: %ux%u, %d bits, %u strips", page, info.width,
                      info.height, info.bitsPerSample, info.stripCount);

        // Whole-byte samples in rows without padding are decoded straight
        // into the image, a strip at a time; others go through a buffer.
        const bool direct =
            !widen && (bits == 8 || bits == 16 || bits == 32) && scanline == m_bytesPerLine;
        // Words, so that 16-bit rows can be widened from it as what they are.
        std::vector<uint16_t> words(
            direct ? 0 : (std::max<uint64_t>(info.stripSize, scanline) + 1) / 2);
        uint8_t* const strip = reinterpret_cast<uint8_t*>(words.data());
        PIV::Simd::RowMoments moments;
        uint64_t y = 0;
        for (uint32_t s = 0; s < info.stripCount && y < m_height; s++) {
            uint8_t* target = direct ? scanLine<uint8_t>(y) : strip;
            const uint64_t room = direct ? (m_height - y) * scanline : 2 * words.size();
            const tmsize_t got = TIFFReadEncodedStrip(tif, s, target, static_cast<tmsize_t>(room));
            if (got < 0) {
                m_error.setMessage("getTIFFfromFile() - failed reading strip %u of %u%s", s,
                                   info.stripCount, _tiffReason().c_str());
                throw PIVerror::FILE_READ_FAILED;
            }
            // The last strip may hold fewer rows than rows per strip.
            const uint64_t rows =
                std::min<uint64_t>(static_cast<uint64_t>(got) / scanline, m_height - y);
            if (direct) {
                y += rows;
                continue;
            }
            for (uint64_t r = 0; r < rows; r++, y++) {
                const uint8_t* in = strip + r * scanline;
                if (widen && bits == 8) {
                    widenStoredRow(in, y, moments);
                    continue;
                }
                if (widen) {
                    widenStoredRow(words.data() + r * scanline / 2, y, moments);
                    continue;
                }
                PIV::ImagePixel::Dispatch(m_type, [&](auto tag) {
                    using T = typename decltype(tag)::type;
                    _unpackRow<T>(in, scanline, bits, m_width, scanLine<T>(y));
                });
            }
        }
        if (y < m_height) {
            m_error.setMessage("getTIFFfromFile() - the strips hold %d of %d rows",
                               static_cast<int>(y), static_cast<int>(m_height));
            throw PIVerror::FILE_READ_FAILED;
        }

        if (info.photometric == PHOTOMETRIC_PALETTE) {
            const std::vector<uint16_t> grey = _greyTable(tif, bits);
            if (grey.empty()) {
                m_error.setMessage("getTIFFfromFile() - palette image without a colour map");
                throw PIVerror::INVALID_FILE_CONTENT;
            }
            // 1-bit pixels are 0 and 255 by now; only values inside the
            // table are looked up.
            PIV::ImagePixel::Dispatch(m_type, [&](auto tag) {
                using T = typename decltype(tag)::type;
                if constexpr (std::is_integral<T>::value) {
                    for (uint64_t row = 0; row < m_height; row++) {
                        T* p = scanLine<T>(row);
                        for (uint64_t x = 0; x < m_width; x++)
                            if (p[x] < grey.size()) p[x] = static_cast<T>(grey[p[x]]);
                    }
                }
            });
        }
        markChanged();
        if (widen) storeWidenedStatistics(moments);
    });
}

bool Image2D::loadTIFF(const char* path, int page) {
    m_fileName[0] = '\0';
    return Guarded(m_error, "loadTIFF()", [&] {
        TiffPtr tif = _open(path, "r");
        if (!tif) {
            m_error.setMessage("loadTIFF() - trouble opening file '%s'%s", path ? path : "",
                               _tiffReason().c_str());
            throw PIVerror::FILE_OPEN_FAILED;
        }
        TIFF_INFO info;
        _getTIFFImageInfo(tif.get(), path, info, page, m_error);
        // Checked here too, so that a refusal reaches the caller as such.
        _checkTiffPage(tif.get(), info, m_error);
        if (!getTIFFfromFile(tif.get(), info, page)) throw PIVerror::OPERATION_FAILED;
        // The page read: one that could not be reached was replaced by the first.
        m_currentPage = TIFFCurrentDirectory(tif.get());
        m_fileFrames = static_cast<int>(info.pages);
        tif.reset();
        m_fileFormat = PIV::FORMAT_TIFF;
        clearOrientation();
        // Widened rows were counted as they were read, in the stored type.
        if (m_widenedFrom == IMAGE_UNDEFINED) doStatistics(true);
        setFileName(path);
    });
}

bool Image2D::saveTIFF(const char* path) const {
    return Guarded(m_error, "saveTIFF()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        DebugPrintExt(2, "Image2D::saveTIFF( %s )", path ? path : "");
        if (!path || !*path) throw PIVerror::BAD_FILE_NAME;
        // libtiff writes by name: the temporary is reopened through it.
        PIV::TempFile temp(path);
        TiffPtr tif;
        if (temp.file() && temp.closeStream()) tif = _open(temp.path().c_str(), "w");
        if (!tif) {
            m_error.setMessage("Trouble creating TIFF-image: %s", path);
            throw PIVerror::FILE_CREATE_FAILED;
        }
        TIFF* t = tif.get();
        TIFFSetField(t, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(m_width));
        TIFFSetField(t, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(m_height));
        TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, static_cast<uint16_t>(bitsPerPixel()));
        if (m_type == IMAGE_UINT32) TIFFSetField(t, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
        if (m_type == IMAGE_FLOAT) TIFFSetField(t, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_IEEEFP);
        TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(t, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
        TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        const IMAGE_COMPRESSION& c = m_compression;
        switch (c.mode) {
            case 1:
                TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_CCITTRLE);
                break;
            case 2:
                TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_JPEG);
                // libtiff takes 1..100; the default -1 leaves its own.
                if (c.jpegQuality > 0 && c.jpegQuality <= 100)
                    TIFFSetField(t, TIFFTAG_JPEGQUALITY, c.jpegQuality);
                break;
            case 3:
                TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_DEFLATE);
                if (c.predictor != 0) TIFFSetField(t, TIFFTAG_PREDICTOR, c.predictor);
                if (c.deflateLevel > 0) TIFFSetField(t, TIFFTAG_ZIPQUALITY, c.deflateLevel);
                break;
            case 4:
                TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
                if (c.predictor != 0) TIFFSetField(t, TIFFTAG_PREDICTOR, c.predictor);
                break;
            case 5:
                TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_PACKBITS);
                break;
            default:
                break;
        }
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(t, 0));

        // The encoders may work in the buffer they are given (predictors do),
        // so each row goes through a copy.
        const uint64_t rowBytes = m_width * static_cast<uint64_t>(bytesPerPixel());
        std::vector<uint8_t> scanline(rowBytes);
        for (uint64_t y = 0; y < m_height; y++) {
            std::memcpy(scanline.data(), scanLine<uint8_t>(y), rowBytes);
            if (TIFFWriteScanline(t, scanline.data(), static_cast<uint32_t>(y), 0) < 0) {
                // The encoder has said why through libtiff's handlers.
                DebugPrintExt(1, "saveTIFF() - writing stopped at row %d of %d",
                              static_cast<int>(y), static_cast<int>(m_height));
                break;
            }
        }
        // TIFFClose cannot tell of a failed last write; the flush before it can.
        const bool flushed = TIFFFlush(t) == 1;
        tif.reset();
        if (!flushed || !temp.commit(path)) {
            m_error.setMessage("saveTIFF() - failed writing to file '%s'", path);
            throw PIVerror::FILE_WRITE_FAILED;
        }
    });
}

int Image2D::convertFromTIFFSequence(const char* source, const char* base, int firstNumber,
                                     int digits, int format, int verbosity) {
    int done = 0;
    Guarded(m_error, "convertFromTIFFSequence()", [&] {
        TiffPtr tif = _open(source, "r");
        if (!tif) {
            m_error.setMessage("convertFromTIFFSequence() - trouble opening file '%s'%s",
                               source ? source : "", _tiffReason().c_str());
            throw PIVerror::FILE_OPEN_FAILED;
        }
        const int pages = TIFFNumberOfDirectories(tif.get());
        if (pages < 2) {
            m_error.setMessage("convertFromTIFFSequence() - '%s' holds a single page", source);
            throw PIVerror::OPERATION_FAILED;
        }
        if (format != PIV::FORMAT_TIFF) throw PIVerror::IMAGE_TYPE_UNSUPPORTED;
        const char* stem = base ? base : "";
        for (int page = 0; page < pages; page++) {
            if (!TIFFSetDirectory(tif.get(), static_cast<tdir_t>(page))) {
                m_error.setMessage("Page %d in TIFF image cannot be accessed - defaulting to 0",
                                   page);
                throw PIVerror::BAD_PARAMETERS;
            }
            TIFF_INFO info;
            std::memset(&info, 0, sizeof info);
            PIV::CopyText(info.fileName, source);
            info.pages = static_cast<uint32_t>(pages);
            _readTags(tif.get(), info);
            if (!getTIFFfromFile(tif.get(), info, page)) {
                m_error.setMessage("Page %d in TIFF image cannot be loaded", page);
                throw PIVerror::OPERATION_FAILED;
            }
            char name[4096];
            const int number = firstNumber + page;
            if (digits >= 2 && digits <= 8)
                std::snprintf(name, sizeof name, "%s_%0*d.%s", stem, digits, number, "tif");
            else
                std::snprintf(name, sizeof name, "%s_%d.%s", stem, number, "tif");
            if (!saveTIFF(name)) throw PIVerror::FILE_WRITE_FAILED;
            done++;
            if (verbosity == 1) {
                std::printf(".");
                if (done % 76 == 0) std::printf("\n");
            } else if (verbosity == 2) {
                std::printf("  %s\n", name);
            }
        }
        if (verbosity == 1) std::printf("\n");
        std::fflush(stdout);
    });
    return done;
}

bool PIV::ImageFiles::TiffInfo(const char* path, ImageType* type, int* width, int* height,
                               int* frames) {
    TiffPtr tif = _open(path, "r");
    if (!tif) return false;
    TIFF_INFO info;
    PIVerror quiet("Image2D::GetImageInfo()");
    _getTIFFImageInfo(tif.get(), path, info, -1, quiet);
    *frames = static_cast<int>(info.pages);
    *width = static_cast<int>(info.width);
    *height = static_cast<int>(info.height);
    *type = info.type;
    return true;
}

void PIV::ImageFiles::QuietTiffWarnings() {
    TIFFSetWarningHandler(nullptr);
}
