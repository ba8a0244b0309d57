// Image2D: the PGM and PBM reader (P1, P2, P4, P5) and a binary PGM writer.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "image2d.h"
#include "image2d_pixel.h"
#include "image2d_stats_simd.h"
#include "piv_file.h"
#include "piv_file_bounds.h"
#include "piv_messages.h"

using PIV::Guarded;

namespace {

using PIV::FilePtr;

constexpr unsigned kPgmMaxval = 65535;

// Header fields and plain samples. A '#' starts a comment that runs to CR or
// LF; the end of the file reads as character 0, so a truncated file yields
// zeros instead of failing.
class PgmTextReader {
public:
    explicit PgmTextReader(std::FILE* file) : m_file(file) {}

    int getChar() {
        int c = std::fgetc(m_file);
        if (c == '#') {
            do {
                c = std::fgetc(m_file);
            } while (c != EOF && c != '\n' && c != '\r');
        }
        return c == EOF ? 0 : c;
    }

    // 0 when the first character after the blanks is no digit, and 0 when the
    // value would pass the largest 32-bit signed integer.
    unsigned getNumber() {
        int c;
        do {
            c = getChar();
        } while (isBlank(c));
        if (!isDigit(c)) return 0;
        uint64_t value = 0;
        bool overflow = false;
        while (isDigit(c)) {
            if (!overflow) {
                value = value * 10 + static_cast<uint64_t>(c - '0');
                if (value > 0x7fffffffu) overflow = true;
            }
            c = getChar();
        }
        return overflow ? 0u : static_cast<unsigned>(value);
    }

    // Next character that is no blank; 0 at the end of the file.
    int getNonBlank() {
        int c;
        do {
            c = getChar();
        } while (isBlank(c));
        return c;
    }

private:
    static bool isBlank(int c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
    static bool isDigit(int c) { return c >= '0' && c <= '9'; }
    std::FILE* m_file;
};

// Bytes of pixel data the header promises. Plain samples need at least one
// character each, and grey ones a separator between them; 64-bit products
// cannot overflow on 31-bit sizes.
uint64_t _declaredBytes(char kind, unsigned maxval, uint64_t width, uint64_t height) {
    switch (kind) {
        case '1':
            return width * height;
        case '2':
            return width * height == 0 ? 0 : 2 * width * height - 1;
        case '4':
            return (width + 7) / 8 * height;
        default:
            return width * height * (maxval > 255 ? 2 : 1);
    }
}

// A file shorter than its header promises still loads, the missing samples
// as 0, as long as it holds at least half of them: a frame cut off while
// being written. The user has to hear of it: it gives wrong vectors in the
// lower part. Less than half means the header itself is damaged, and an
// allocation of its size could cost gigabytes for a file of a few bytes.
void _checkSize(PIVerror& error, std::FILE* file, const char* path, char kind, unsigned maxval,
                uint64_t width, uint64_t height) {
    const long here = std::ftell(file);
    if (here < 0) return;
    const uint64_t needed = _declaredBytes(kind, maxval, width, height);
    const uint64_t held = PIV::FileBounds::BytesFrom(file, here);
    const PIV::FileBounds::Fit fit =
        PIV::FileBounds::RequireOrThrow(error, "loadPGM()", path, "pixel data", needed, held, true);
    if (fit == PIV::FileBounds::Fit::SHORT && (kind == '4' || kind == '5'))
        PrintWarning("loadPGM() - '%s' holds %llu of %llu bytes of pixel data; the rest reads as 0",
                     path, static_cast<unsigned long long>(held),
                     static_cast<unsigned long long>(needed));
}

// Reads up to n bytes; whatever the file no longer holds reads as 0.
void _readOrZero(std::FILE* file, uint8_t* buffer, std::size_t n) {
    std::size_t got = std::fread(buffer, 1, n, file);
    if (got < n) std::memset(buffer + got, 0, n - got);
}

}  // namespace

bool Image2D::loadPGM(const char* path) {
    return Guarded(m_error, "loadPGM()", [&] {
        FilePtr file = PIV::OpenFile(path, "rb");
        if (!file) {
            m_error.setMessage("loadPGM() - trouble opening file '%s'", path ? path : "");
            throw PIVerror::FILE_OPEN_FAILED;
        }
        unsigned char magic[2];
        if (std::fread(magic, 1, 2, file.get()) != 2) {
            m_error.setMessage("Bad magic number on image '%s' - Not a PGM-image!", path);
            throw PIVerror::INVALID_FILE_CONTENT;
        }
        if (magic[0] != 'P' ||
            !(magic[1] == '1' || magic[1] == '2' || magic[1] == '4' || magic[1] == '5')) {
            m_error.setMessage("bad magic number - not a PGM or PBM file");
            throw PIVerror::INVALID_FILE_CONTENT;
        }
        const char kind = static_cast<char>(magic[1]);
        const bool bitmap = kind == '1' || kind == '4';

        PgmTextReader reader(file.get());
        const unsigned width = reader.getNumber();
        const unsigned height = reader.getNumber();
        unsigned maxval = 255;
        if (!bitmap) {
            maxval = reader.getNumber();
            if (maxval > kPgmMaxval) {
                m_error.setMessage(
                    "maxval of input image (%u) is too large.  The maximum allowed by PGM is %u.",
                    maxval, kPgmMaxval);
                throw PIVerror::INVALID_FILE_CONTENT;
            }
            if (maxval == 0) {
                m_error.setMessage("maxval of input image is zero.");
                throw PIVerror::INVALID_FILE_CONTENT;
            }
        }
        DebugPrintExt(2, "PGM image size: w=%d h=%d maxval=%d", static_cast<int>(width),
                      static_cast<int>(height), static_cast<int>(maxval));
        _checkSize(m_error, file.get(), path, kind, maxval, width, height);
        PIV::FileBounds::RequirePixelsOrThrow(m_error, "loadPGM()", path, width, height);
        // Asked for float, each row is decoded into words and widened from
        // there; otherwise into the 16-bit frame.
        const bool widen = m_readAsFloat;
        const bool eightBit = maxval < 256 || bitmap;
        allocOrThrow(width, height, widen ? IMAGE_FLOAT : IMAGE_UINT16, 0);
        if (widen) m_widenedFrom = eightBit ? IMAGE_UINT8 : IMAGE_UINT16;
        std::vector<uint16_t> words(widen ? m_width : 0);
        PIV::Simd::RowMoments moments;

        std::vector<uint8_t> buffer;
        for (uint64_t y = 0; y < m_height; y++) {
            uint16_t* row = widen ? words.data() : scanLine<uint16_t>(y);
            switch (kind) {
                case '2':
                    // Samples above maxval are not checked; they keep their low 16 bits.
                    for (uint64_t x = 0; x < m_width; x++)
                        row[x] = static_cast<uint16_t>(reader.getNumber());
                    break;
                case '5':
                    if (maxval <= 255) {
                        buffer.resize(m_width);
                        _readOrZero(file.get(), buffer.data(), buffer.size());
                        for (uint64_t x = 0; x < m_width; x++) row[x] = buffer[x];
                    } else {
                        buffer.resize(2 * m_width);
                        _readOrZero(file.get(), buffer.data(), buffer.size());
                        for (uint64_t x = 0; x < m_width; x++)
                            row[x] =
                                static_cast<uint16_t>((buffer[2 * x] << 8) | buffer[2 * x + 1]);
                    }
                    break;
                case '1':
                    // A set bit is black: pixel 0; a clear bit is white: maxval.
                    for (uint64_t x = 0; x < m_width; x++)
                        row[x] = reader.getNonBlank() == '1' ? 0 : static_cast<uint16_t>(maxval);
                    break;
                default:  // '4': each row starts on a new byte, highest bit first
                    buffer.resize((m_width + 7) / 8);
                    _readOrZero(file.get(), buffer.data(), buffer.size());
                    for (uint64_t x = 0; x < m_width; x++) {
                        const bool set = (buffer[x / 8] & (0x80u >> (x % 8))) != 0;
                        row[x] = set ? 0 : static_cast<uint16_t>(maxval);
                    }
                    break;
            }
            if (widen) {
                // As the conversion to 8 bits below clips.
                if (eightBit)
                    for (uint64_t x = 0; x < m_width; x++) row[x] = std::min<uint16_t>(row[x], 255);
                widenStoredRow(row, y, moments);
            }
        }
        file.reset();

        if (eightBit && !widen) convertOrThrow(IMAGE_UINT8, true);
        clearOrientation();
        m_fileFormat = PIV::FORMAT_PGM;
        markChanged();
        if (widen) storeWidenedStatistics(moments);
    });
}

// 16-bit images are written with maxval 65535 whatever their content, so a
// round trip gives back the same numbers.
bool Image2D::savePGM(const char* path) const {
    return Guarded(m_error, "savePGM()", [&] {
        if (isNull()) throw PIVerror::IMAGE_IS_NULL;
        if (m_type != IMAGE_UINT8 && m_type != IMAGE_UINT16) {
            m_error.setMessage("savePGM() - %d-bit images cannot be stored as PGM", bitsPerPixel());
            throw PIVerror::IMAGE_TYPE_UNSUPPORTED;
        }
        if (!path || !*path) throw PIVerror::BAD_FILE_NAME;
        PIV::TempFile temp(path);
        if (!temp.file()) {
            m_error.setMessage("savePGM() - failed creating file '%s'", path);
            throw PIVerror::FILE_CREATE_FAILED;
        }
        // A blank behind the magic: format detection recognises no other form.
        const unsigned maxval = m_type == IMAGE_UINT8 ? 255u : 65535u;
        bool ok = std::fprintf(temp.file(), "P5 %llu %llu\n%u\n",
                               static_cast<unsigned long long>(m_width),
                               static_cast<unsigned long long>(m_height), maxval) > 0;
        std::vector<uint8_t> buffer(m_type == IMAGE_UINT8 ? 0 : 2 * m_width);
        for (uint64_t y = 0; ok && y < m_height; y++) {
            if (m_type == IMAGE_UINT8) {
                ok = std::fwrite(scanLine<uint8_t>(y), 1, m_width, temp.file()) == m_width;
            } else {
                const uint16_t* row = scanLine<uint16_t>(y);
                for (uint64_t x = 0; x < m_width; x++) {
                    buffer[2 * x] = static_cast<uint8_t>(row[x] >> 8);
                    buffer[2 * x + 1] = static_cast<uint8_t>(row[x] & 0xff);
                }
                ok = std::fwrite(buffer.data(), 1, buffer.size(), temp.file()) == buffer.size();
            }
        }
        if (!ok || !temp.commit(path)) {
            m_error.setMessage("savePGM() - failed writing to file '%s'", path);
            throw PIVerror::FILE_WRITE_FAILED;
        }
    });
}
