#include "lavision_reader.h"

#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "image_file_bytes.h"
#include "piv_file.h"
#include "piv_messages.h"
#include "piv_util.h"

using namespace PIV::ImageFile;

namespace {

constexpr size_t kHeaderBytes = 256;
constexpr int kMaxAttributes = 127;
constexpr size_t kPageBytes = 2048;

// Text fields of fixed width, copied with a terminator.
void _copyField(char (&dst)[16], const char* src, size_t n) {
    const size_t len = std::min(::strnlen(src, n), sizeof dst - 1);
    std::memcpy(dst, src, len);
    std::memset(dst + len, 0, sizeof dst - len);
}


// Values of a buffer of these sizes; 0 if any is not positive.
uint64_t _count(int64_t nx, int64_t ny, int64_t nz, int64_t nf) {
    if (nx < 1 || ny < 1 || nz < 1 || nf < 1) return 0;
    uint64_t n = static_cast<uint64_t>(nx);
    for (int64_t f : {ny, nz, nf})
        if (__builtin_mul_overflow(n, static_cast<uint64_t>(f), &n)) return UINT64_MAX / 4;
    return n;
}

uint64_t _valueBytes(const IMX_BUFFER_TYPE* b) {
    return b->isFloat ? 4 : 2;
}

uint64_t _bufferBytes(const IMX_BUFFER_TYPE* b) {
    return static_cast<uint64_t>(b->nx) * static_cast<uint64_t>(b->totalLines) * _valueBytes(b);
}

// Pixel data of `values` values of `valueBytes` each against the bytes
// behind the header. Plain and 12-bit data need all of theirs; the old packed
// form gives at most two values per byte; Deflate at most kMaxExpansion
// bytes per byte. False, with the reason, when the file cannot hold it.
enum class Packing { PLAIN, OLD_PACKED, DEFLATE };
bool _fits(const char* path, uint64_t declared, uint64_t available, Packing packing,
           std::string* refusal) {
    using namespace PIV::FileBounds;
    bool ok;
    switch (packing) {
        case Packing::PLAIN:
            ok = declared <= available;
            break;
        case Packing::OLD_PACKED:
            // Bytes of two-byte values: four per byte of the file at most.
            ok = declared / 4 <= available;
            break;
        default:
            ok = Judge(declared, available, true) != Fit::REFUSED;
            break;
    }
    if (!ok && refusal)
        *refusal = Refusal("ReadIM7()", path, "pixel data", declared, available,
                           packing == Packing::DEFLATE);
    return ok;
}

// Every frame and plane of the file is decoded at once: all of them count
// against the pixel limit. Sizes that are not positive are refused later.
bool _withinPixelLimit(const char* path, int64_t nx, int64_t ny, int64_t nz, int64_t nf,
                       std::string* refusal) {
    if (nx < 1 || ny < 1 || nz < 1 || nf < 1) return true;
    const std::string why = PIV::FileBounds::PixelRefusal(
        "ReadIM7()", path, static_cast<uint64_t>(nx),
        static_cast<uint64_t>(ny) * static_cast<uint64_t>(nz), static_cast<uint64_t>(nf));
    if (!why.empty() && refusal) *refusal = why;
    return why.empty();
}

// Stores the running value of a decoder in the buffer's own type.
void _store(IMX_BUFFER_TYPE* b, uint64_t i, uint16_t v) {
    if (b->isFloat)
        static_cast<float*>(b->pixels)[i] = v;
    else
        static_cast<uint16_t*>(b->pixels)[i] = v;
}

// The old packed form is read in pages of 2048 bytes; the decoder does not
// see where a page ends.
class PageReader {
public:
    explicit PageReader(std::FILE* file) : m_file(file), m_start(std::ftell(file)) {}
    // Raises IMREAD_ERR_DATA past the end of the file.
    uint8_t next() {
        if (m_pos == m_size) {
            m_used += m_size;
            m_size = std::fread(m_page, 1, kPageBytes, m_file);
            m_pos = 0;
            if (m_size == 0) throw static_cast<int>(IMREAD_ERR_DATA);
        }
        return m_page[m_pos++];
    }
    uint16_t word() {
        const unsigned lo = next();
        return static_cast<uint16_t>(lo | (next() << 8));
    }
    // Leaves the file behind the last byte used.
    void finish() { std::fseek(m_file, m_start + static_cast<long>(m_used + m_pos), SEEK_SET); }

private:
    std::FILE* m_file;
    long m_start;
    uint8_t m_page[kPageBytes];
    size_t m_size = 0, m_pos = 0;
    uint64_t m_used = 0;
};

// One value per call. Small steps are bytes, pairs of nibble steps share a
// byte, and runs of plain 16-bit words are announced by 0x80 (one) or 0x7F
// (a count).
class OldImxDecoder {
public:
    explicit OldImxDecoder(PageReader& in) : m_in(in) {}
    uint16_t nextValue() {
        switch (m_state) {
            case 0:
                stateZero(m_in.next());
                break;
            case 1: {
                const uint8_t b = m_in.next();
                m_value = static_cast<uint16_t>(m_value + (static_cast<int8_t>(b) >> 4));
                m_last = b;
                m_state = 2;
                break;
            }
            case 2:
                if ((m_last & 15) == 8) {
                    stateZero(m_in.next());
                } else {
                    const int nibble = m_last & 15;
                    m_value = static_cast<uint16_t>(m_value + (nibble >= 8 ? nibble - 16 : nibble));
                    m_state = 1;
                }
                break;
            default:
                readWord();
                break;
        }
        return m_value;
    }

private:
    void stateZero(uint8_t b) {
        if (b == 0x81) {
            const uint8_t c = m_in.next();
            m_value = static_cast<uint16_t>(m_value + (static_cast<int8_t>(c) >> 4));
            m_last = c;
            m_state = 2;
        } else if (b == 0x80) {
            m_run = 1;
            readWord();
        } else if (b == 0x7F) {
            m_run = m_in.next();
            readWord();
        } else {
            m_value = static_cast<uint16_t>(m_value + static_cast<int8_t>(b));
            m_state = 0;
        }
    }
    void readWord() {
        m_value = m_in.word();
        m_run--;
        m_state = m_run != 0 ? 3 : 0;
    }

    PageReader& m_in;
    int m_state = 0;
    int m_run = 0;
    uint8_t m_last = 0;
    uint16_t m_value = 0;
};

// A scale of the old header: f32 factor, f32 offset, char[11] description,
// char[11] unit.
void _scaleFromHeader(const uint8_t* field, IMX_BUFFER_SCALE_TYPE* scale) {
    scale->factor = GetLEFloat(field);
    scale->offset = GetLEFloat(field + 4);
    _copyField(scale->description, reinterpret_cast<const char*>(field + 8), 11);
    _copyField(scale->unit, reinterpret_cast<const char*>(field + 19), 11);
}

const char* _attributeKey(int type) {
    switch (type) {
        case 1:
            return "_SCALE_X";
        case 2:
            return "_SCALE_Y";
        case 3:
            return "_SCALE_Z";
        case 4:
            return "_SCALE_I";
        case 7:
            return "_SCALE_F";
        case 5:
            return "_COMMENT";
        case 11:
            return "_TIME";
        case 12:
            return "_DATE";
        default:
            return nullptr;
    }
}

void _scaleFromAttributes(const AttributeList& list, IMX_BUFFER_TYPE* b) {
    const struct {
        const char* key;
        IMX_BUFFER_SCALE_TYPE* scale;
    } scales[] = {{"_SCALE_X", &b->scaleX},
                  {"_SCALE_Y", &b->scaleY},
                  {"_SCALE_Z", &b->scaleZ},
                  {"_SCALE_I", &b->scaleI}};
    for (const auto& s : scales)
        if (const std::string* text = list.find(s.key)) Scale_Read(text->c_str(), s.scale);
}

}  // namespace

const std::string* AttributeList::find(const std::string& key) const {
    for (const auto& item : m_items)
        if (item.first == key) return &item.second;
    return nullptr;
}

void SetBufferScale(IMX_BUFFER_SCALE_TYPE* scale, float factor, float offset,
                    const char* description, const char* unit) {
    if (!scale) return;
    scale->factor = factor;
    scale->offset = offset;
    _copyField(scale->description, description ? description : "", 15);
    _copyField(scale->unit, unit ? unit : "", 15);
}

bool CreateBuffer(IMX_BUFFER_TYPE* b, int nx, int ny, int nz, int nf, bool isFloat) {
    if (!b) return false;
    std::memset(b, 0, sizeof *b);
    b->isFloat = isFloat ? 1 : 0;
    b->nx = nx;
    b->ny = ny;
    b->nz = nz;
    b->nf = nf;
    SetBufferScale(&b->scaleX, 1, 0, "", "pixel");
    SetBufferScale(&b->scaleY, 1, 0, "", "pixel");
    SetBufferScale(&b->scaleZ, 1, 0, "", "pixel");
    SetBufferScale(&b->scaleI, 1, 0, "", "counts");
    if (nx < 1 || ny < 1 || nz < 1 || nf < 1) return false;
    const uint64_t lines =
        static_cast<uint64_t>(ny) * static_cast<uint64_t>(nz) * static_cast<uint64_t>(nf);
    if (lines > 0x7fffffff) return false;
    b->totalLines = static_cast<int32_t>(lines);
    // A header that asks for more than the machine holds is refused before
    // any allocation is tried.
    const uint64_t bytes = _bufferBytes(b);
    if (bytes / _valueBytes(b) / lines != static_cast<uint64_t>(nx) ||
        bytes > PIV::PhysicalMemoryBytes())
        return false;
    b->pixels = std::calloc(bytes, 1);
    return b->pixels != nullptr;
}

void DestroyBuffer(IMX_BUFFER_TYPE* b) {
    if (!b) return;
    std::free(b->pixels);
    b->pixels = nullptr;
}

void* Buffer_GetRowAddrAndSize(IMX_BUFFER_TYPE* b, int line, uint64_t* bytes) {
    if (!b || !b->pixels || line < 0 || line >= b->totalLines) return nullptr;
    const uint64_t rowBytes = static_cast<uint64_t>(b->nx) * _valueBytes(b);
    if (bytes) *bytes = rowBytes;
    return static_cast<uint8_t*>(b->pixels) + static_cast<uint64_t>(line) * rowBytes;
}

void Scale_Read(const char* text, IMX_BUFFER_SCALE_TYPE* scale) {
    if (!text || !scale) return;
    char* end = nullptr;
    scale->factor = std::strtof(text, &end);
    const char* p = end;
    scale->offset = std::strtof(p, &end);
    p = end;
    auto skipBlanks = [&] {
        while (*p == ' ' || *p == '\n' || *p == '\r' || *p == '\t') p++;
    };
    skipBlanks();
    const char* unit = p;
    while (*p && *p != ' ' && *p != '\n' && *p != '\r' && *p != '\t') p++;
    _copyField(scale->unit, unit, std::min<size_t>(static_cast<size_t>(p - unit), 15));
    skipBlanks();
    const char* description = p;
    while (*p && *p != '\n' && *p != '\r') p++;
    _copyField(scale->description, description,
               std::min<size_t>(static_cast<size_t>(p - description), 15));
}

int ReadImgExtHeader(std::FILE* file, AttributeList* attributes) {
    for (int n = 0; n < kMaxAttributes; n++) {
        uint8_t head[8];
        if (std::fread(head, 1, sizeof head, file) != sizeof head) break;
        const int type = GetLE32s(head);
        const int32_t size = GetLE32s(head + 4);
        const int64_t here = std::ftell(file);
        if (size < 0 || static_cast<uint64_t>(size) > BytesFrom(file, here)) break;
        std::string text(static_cast<size_t>(size), '\0');
        if (size > 0 && std::fread(&text[0], 1, text.size(), file) != text.size()) break;
        if (!attributes) continue;
        if (type == 6) {
            // "name=value", terminated by a NUL within the record.
            text.resize(::strnlen(text.c_str(), text.size()));
            const size_t eq = text.find('=');
            if (eq == std::string::npos)
                attributes->add(text, "");
            else
                attributes->add(text.substr(0, eq), text.substr(eq + 1));
            continue;
        }
        const char* key = _attributeKey(type);
        if (!key) continue;
        if (type <= 4 || type == 7) {
            std::replace(text.begin(), text.end(), '\0', '\n');
        } else {
            text.resize(::strnlen(text.c_str(), text.size()));
        }
        attributes->add(key, text);
    }
    return IMREAD_ERR_NO;
}

int SCPackUncompressed_Read(std::FILE* file, IMX_BUFFER_TYPE* b) {
    const uint64_t bytes = _bufferBytes(b);
    if (bytes > BytesFrom(file, std::ftell(file))) return IMREAD_ERR_DATA;
    return std::fread(b->pixels, 1, bytes, file) == bytes ? IMREAD_ERR_NO : IMREAD_ERR_DATA;
}

int SCPackOldIMX_Read(std::FILE* file, IMX_BUFFER_TYPE* b) {
    uint8_t nm[2];
    if (std::fread(nm, 1, 2, file) != 2) return IMREAD_ERR_DATA;
    if (std::fseek(file, static_cast<long>(nm[0]) * nm[1], SEEK_CUR) != 0) return IMREAD_ERR_DATA;
    PageReader in(file);
    OldImxDecoder decoder(in);
    const uint64_t n = static_cast<uint64_t>(b->nx) * static_cast<uint64_t>(b->totalLines);
    try {
        for (uint64_t i = 0; i < n; i++) _store(b, i, decoder.nextValue());
    } catch (int code) {
        return code;
    }
    in.finish();
    return IMREAD_ERR_NO;
}

int SCPackZlib_Read(std::FILE* file, IMX_BUFFER_TYPE* b, uint64_t* produced) {
    if (produced) *produced = 0;
    uint8_t len[8];
    if (std::fread(len, 1, sizeof len, file) != sizeof len) return IMREAD_ERR_DATA;
    const uint64_t packed = GetLE64(len);
    if (packed > BytesFrom(file, std::ftell(file))) return IMREAD_ERR_DATA;
    std::vector<uint8_t> data(packed);
    if (std::fread(data.data(), 1, packed, file) != packed) return IMREAD_ERR_DATA;
    uLongf outBytes = static_cast<uLongf>(_bufferBytes(b));
    const int rc = uncompress(static_cast<Bytef*>(b->pixels), &outBytes, data.data(),
                              static_cast<uLong>(packed));
    switch (rc) {
        case Z_OK:
            if (produced) *produced = outBytes;
            return IMREAD_ERR_NO;
        case Z_MEM_ERROR:
            DebugPrintExt(1, "ZLIB memory error!\n");
            return IMREAD_ERR_MEMORY;
        case Z_BUF_ERROR:
            DebugPrintExt(1, "Output buffer too small for uncompressed data!\n");
            return IMREAD_ERR_MEMORY;
        default:
            DebugPrintExt(1, "Compressed data is corrupt!\n");
            return IMREAD_ERR_DATA;
    }
}

int SCPack_ReadCompressed12bit(std::FILE* file, IMX_BUFFER_TYPE* b) {
    const uint64_t nx = static_cast<uint64_t>(b->nx);
    const uint64_t rowBytes = 3 * nx / 2;
    if (rowBytes * static_cast<uint64_t>(b->totalLines) > BytesFrom(file, std::ftell(file)))
        return IMREAD_ERR_DATA;
    std::vector<uint8_t> row;
    try {
        row.resize(rowBytes + 2);
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "SCPack_ReadCompressed12bit() - temp buffer allocation failure\n");
        return IMREAD_ERR_MEMORY;
    }
    for (uint64_t line = 0; line < static_cast<uint64_t>(b->totalLines); line++) {
        if (std::fread(row.data(), 1, rowBytes, file) != rowBytes) return IMREAD_ERR_DATA;
        row[rowBytes] = row[rowBytes + 1] = 0;
        const uint64_t base = line * nx;
        for (uint64_t x = 0, i = 0; x < nx; x += 2, i += 3) {
            const unsigned a = row[i], bb = row[i + 1], c = row[i + 2];
            _store(b, base + x, static_cast<uint16_t>(((bb & 15) << 8) + a));
            if (x + 1 < nx) _store(b, base + x + 1, static_cast<uint16_t>((bb >> 4) + 16 * c));
        }
    }
    return IMREAD_ERR_NO;
}

int ReadIMX(const char* path, IMX_BUFFER_TYPE* b, AttributeList* attributes, std::string* refusal) {
    std::memset(b, 0, sizeof *b);
    PIV::FilePtr file = PIV::OpenFile(path, "rb");
    if (!file) return IMREAD_ERR_FILEOPEN;
    uint8_t h[kHeaderBytes];
    if (std::fread(h, 1, sizeof h, file.get()) != sizeof h) return IMREAD_ERR_HEADER;
    const int version = GetLE16s(h);
    if (version == 40 || version == 21 || version == 22) return IMREAD_ERR_FORMAT;
    const int sub = h[33];
    int width, height;
    if (sub >= 100 && sub <= 209) {
        // Files of this family carry no usable geometry.
        width = 384;
        height = 286;
        for (int at : {2, 4, 146, 186}) h[at] = h[at + 1] = 0;
    } else {
        height = GetLE16s(h + 10);
        width = GetLE16s(h + 12);
        if (height < 0) height = GetLE32s(h + 228);
        if (width < 0) width = GetLE32s(h + 232);
    }
    int frames = sub >= 54 && sub <= 99 ? GetLE16s(h + 18) : 1;
    if (frames < 1) frames = 1;
    const bool isFloat = version == 20;
    const bool withDepth = sub >= 55 && sub <= 99;
    const int depth = withDepth ? GetLE32s(h + 236) : 1;
    // The pixels must all be in the file before the buffer is made.
    const uint64_t values = _count(width, height, depth, withDepth ? frames : 1);
    if (!_fits(path, values * (isFloat ? 4 : 2), BytesFrom(file.get(), kHeaderBytes),
               version == 19 ? Packing::OLD_PACKED : Packing::PLAIN, refusal))
        return IMREAD_ERR_DATA;
    if (!_withinPixelLimit(path, width, height, depth, withDepth ? frames : 1, refusal))
        return IMREAD_ERR_MEMORY;
    bool ok;
    if (withDepth)
        ok = CreateBuffer(b, width, height, depth, frames, isFloat);
    else
        ok = CreateBuffer(b, width, height / frames, 1, frames, isFloat);
    if (!ok) return b->nx < 1 || b->ny < 1 || b->nz < 1 ? IMREAD_ERR_FORMAT : IMREAD_ERR_MEMORY;
    b->vectorGrid = GetLE16s(h + 20);
    b->format = GetLE16s(h + 14);
    // Factor, offset and the 11-character description and unit of x, y
    // and intensity; z gets the intensity's texts.
    _scaleFromHeader(h + 52, &b->scaleX);
    _scaleFromHeader(h + 84, &b->scaleY);
    _scaleFromHeader(h + 116, &b->scaleI);
    b->scaleZ = b->scaleI;
    b->scaleZ.factor = 0;
    b->scaleZ.offset = 0;

    const int rc =
        version == 19 ? SCPackOldIMX_Read(file.get(), b) : SCPackUncompressed_Read(file.get(), b);
    if (rc != IMREAD_ERR_NO) return rc;
    if (attributes) ReadImgExtHeader(file.get(), attributes);
    if (version == 18 || version == 19) b->format = BUFFER_FORMAT_WORD;
    if (version == 20) b->format = BUFFER_FORMAT_FLOAT;
    return IMREAD_ERR_NO;
}

int ReadIM7(const char* path, IMX_BUFFER_TYPE* b, AttributeList* attributes, std::string* refusal) {
    std::memset(b, 0, sizeof *b);
    PIV::FilePtr file = PIV::OpenFile(path, "rb");
    if (!file) return IMREAD_ERR_FILEOPEN;
    uint8_t h[kHeaderBytes];
    if (std::fread(h, 1, sizeof h, file.get()) != sizeof h) return IMREAD_ERR_HEADER;
    const int version = GetLE16s(h);
    if (version >= 18 && version <= 23) {
        file.reset();
        return ReadIMX(path, b, attributes, refusal);
    }
    if (GetLE16s(h + 6) != 0) return IMREAD_ERR_FORMAT;
    const int pack = GetLE16s(h + 2);
    const int format = GetLE16s(h + 4);
    int64_t rows = GetLE32s(h + 12);
    // Vector buffers hold several planes of values per row of vectors.
    static const int kPlanes[] = {9, 2, 10, 3, 14};
    if (format >= 1 && format <= 5) rows *= kPlanes[format - 1];
    if (rows > INT32_MAX) return IMREAD_ERR_FORMAT;
    const int ny = static_cast<int>(rows);
    // An unknown pack type and a header that asks for more than the file
    // can hold are refused before the buffer is made.
    if (pack < 0 || pack > 3) return IMREAD_ERR_FORMAT;
    {
        const uint64_t values = _count(GetLE32s(h + 8), ny, GetLE32s(h + 16), GetLE32s(h + 20));
        const uint64_t bytes = values * (format == BUFFER_FORMAT_WORD ? 2 : 4);
        const Packing packing = pack == 1   ? Packing::OLD_PACKED
                                : pack == 2 ? Packing::DEFLATE
                                            : Packing::PLAIN;
        if (!_fits(path, pack == 3 ? values / 2 * 3 : bytes, BytesFrom(file.get(), kHeaderBytes),
                   packing, refusal))
            return IMREAD_ERR_DATA;
        if (!_withinPixelLimit(path, GetLE32s(h + 8), ny, GetLE32s(h + 16), GetLE32s(h + 20),
                               refusal))
            return IMREAD_ERR_MEMORY;
    }
    if (!CreateBuffer(b, GetLE32s(h + 8), ny, GetLE32s(h + 16), GetLE32s(h + 20),
                      format != BUFFER_FORMAT_WORD))
        return b->nx < 1 || b->ny < 1 || b->nz < 1 || b->nf < 1 ? IMREAD_ERR_FORMAT
                                                                : IMREAD_ERR_MEMORY;
    b->format = format;
    b->vectorGrid = GetLE16s(h + 26);
    int rc;
    switch (pack) {
        case 0:
            rc = SCPackUncompressed_Read(file.get(), b);
            break;
        case 1:
            rc = SCPackOldIMX_Read(file.get(), b);
            break;
        case 2: {
            // A whole stream of fewer bytes than the frame is a frame cut
            // short: half of it loads with a warning, less is refused.
            uint64_t produced = 0;
            rc = SCPackZlib_Read(file.get(), b, &produced);
            const uint64_t declared = _bufferBytes(b);
            const PIV::FileBounds::Fit fit = PIV::FileBounds::Judge(declared, produced);
            if (rc == IMREAD_ERR_NO && fit == PIV::FileBounds::Fit::REFUSED) {
                if (refusal)
                    *refusal = PIV::FileBounds::Refusal("ReadIM7()", path, "pixel data", declared,
                                                        produced);
                rc = IMREAD_ERR_DATA;
            } else if (rc == IMREAD_ERR_NO && fit == PIV::FileBounds::Fit::SHORT) {
                PrintWarning(
                    "ReadIM7() - '%s' holds %llu of %llu bytes of pixel data; the rest "
                    "reads as 0",
                    path, static_cast<unsigned long long>(produced),
                    static_cast<unsigned long long>(declared));
            }
            break;
        }
        case 3:
            rc = SCPack_ReadCompressed12bit(file.get(), b);
            break;
        default:
            rc = IMREAD_ERR_FORMAT;
            break;
    }
    if (rc != IMREAD_ERR_NO) return rc;
    // The scale records are read whether or not the caller wants the list.
    AttributeList own;
    AttributeList* list = attributes ? attributes : &own;
    ReadImgExtHeader(file.get(), list);
    _scaleFromAttributes(*list, b);
    return IMREAD_ERR_NO;
}
