#include "asciiparfile.h"

#include <algorithm>
#include <cerrno>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "piv_file.h"
#include "piv_messages.h"
#include "piv_record.h"

// One line of the file. The values of a line sit one after the other in a
// pool of NUL-terminated texts; a comment keeps its whole line as the name.
struct ASCIIParFile::Entry {
    char name[TextSize];
    char text[TextSize];
    int offset[MaxValues];
    int type;
    int count;
    int used;

    void init(int entryType) {
        name[0] = '\0';
        text[0] = '\0';
        type = entryType;
        count = 0;
        used = 0;
    }
    const char* value(int i) const { return i >= 0 && i < count ? text + offset[i] : ""; }
    bool addValue(const char* v, std::size_t n) {
        if (count >= MaxValues || used + n + 1 > sizeof(text)) return false;
        std::memcpy(text + used, v, n);
        text[used + n] = '\0';
        offset[count++] = used;
        used += static_cast<int>(n) + 1;
        return true;
    }
};

namespace {

constexpr const char* kSeparators = " =;,\n";
constexpr const char* kDefaultCommentChars = "#[%";
constexpr std::size_t kMaxStringValue = ASCIIParFile::LineSize - 1;

// Copies at most size-1 characters of `src` and terminates; returns the length copied.
std::size_t _copyBounded(char* dst, std::size_t size, const char* src, std::size_t n) {
    n = std::min(n, size - 1);
    std::memcpy(dst, src, n);
    dst[n] = '\0';
    return n;
}

// Values are written with %d and %g only, so a file written here reads back
// the same elsewhere; %g keeps six significant digits.
struct ValueText {
    char s[40];
};
ValueText _format(long long v) {
    ValueText t;
    std::snprintf(t.s, sizeof(t.s), "%lld", v);
    return t;
}
ValueText _format(int v) {
    ValueText t;
    std::snprintf(t.s, sizeof(t.s), "%d", v);
    return t;
}
ValueText _format(unsigned int v) {
    ValueText t;
    std::snprintf(t.s, sizeof(t.s), "%u", v);
    return t;
}
ValueText _format(unsigned char v) {
    return _format(static_cast<int>(v));
}
ValueText _format(bool v) {
    return _format(v ? 1 : 0);
}
ValueText _format(double v) {
    ValueText t;
    std::snprintf(t.s, sizeof(t.s), "%g", v);
    return t;
}
ValueText _format(float v) {
    return _format(static_cast<double>(v));
}

// Text that does not parse reads as 0; a number beyond the range of the
// field is held at the nearest value the field can take.
long long _parseInteger(const char* text) {
    char* end = nullptr;
    errno = 0;
    const long long v = std::strtoll(text, &end, 10);
    return end == text ? 0 : v;
}

double _parseDouble(const char* text) {
    char* end = nullptr;
    errno = 0;
    double v = std::strtod(text, &end);
    if (end == text) return 0.0;
    if (errno == ERANGE && std::isinf(v)) v = std::copysign(DBL_MAX, v);
    return v;
}

template <typename T>
T _saturate(long long v) {
    const long long lo = static_cast<long long>(std::numeric_limits<T>::min());
    const long long hi = static_cast<long long>(std::numeric_limits<T>::max());
    return static_cast<T>(std::clamp(v, lo, hi));
}

template <typename T>
T _fromText(const char* text);
template <>
int _fromText<int>(const char* text) {
    return _saturate<int>(_parseInteger(text));
}
template <>
unsigned int _fromText<unsigned int>(const char* text) {
    return _saturate<unsigned int>(_parseInteger(text));
}
template <>
unsigned char _fromText<unsigned char>(const char* text) {
    return _saturate<unsigned char>(_parseInteger(text));
}
template <>
bool _fromText<bool>(const char* text) {
    return _parseInteger(text) != 0;
}
template <>
long long _fromText<long long>(const char* text) {
    return _parseInteger(text);
}
template <>
double _fromText<double>(const char* text) {
    return _parseDouble(text);
}
template <>
float _fromText<float>(const char* text) {
    const double v = _parseDouble(text);
    if (std::isfinite(v) && std::fabs(v) > FLT_MAX) return std::copysign(FLT_MAX, v);
    return static_cast<float>(v);
}

// How a typed read marks the entry: unsigned reads count as int.
int _claimedType(int type) {
    return type == ASCIIParFile::TYPE_UINT || type == ASCIIParFile::TYPE_UCHAR
               ? ASCIIParFile::TYPE_INT
               : type;
}

// Reads one line of at most LineSize-1 characters into `line` (already
// zeroed). False at the end of the file, for a line that the end of the file
// cut short, and for a longer line: reading stops there.
bool _readLine(std::FILE* file, char* line) {
    std::size_t n = 0;
    int c;
    while ((c = std::fgetc(file)) != EOF) {
        if (c == '\n') return true;
        if (n == ASCIIParFile::LineSize - 1) return false;
        line[n++] = static_cast<char>(c);
    }
    return false;
}

int32_t _clampToInt32(long long v) {
    return _saturate<int32_t>(v);
}

}  // namespace

ASCIIParFile::ASCIIParFile(const char* fileName, AccessMode mode, bool append,
                           const char* commentChars)
    : m_error("ASCIIParFile"),
      m_depth(0),
      m_list(nullptr),
      m_capacity(0),
      m_count(0),
      m_mode(mode),
      m_append(mode == WRITE && append) {
    std::memset(m_groups, 0, sizeof(m_groups));
    m_groupName[0] = m_varName[0] = m_fileName[0] = '\0';
    const char* chars = commentChars ? commentChars : kDefaultCommentChars;
    _copyBounded(m_commentChars, sizeof(m_commentChars), chars, std::strlen(chars));
    m_list = new (std::nothrow) Entry[ListStep];
    if (m_list) m_capacity = ListStep;

    if (mode == READ) {
        readList(fileName);
    } else if (fileName) {
        _copyBounded(m_fileName, sizeof(m_fileName), fileName, std::strlen(fileName));
    }
}

ASCIIParFile::~ASCIIParFile() {
    delete[] m_list;
}

int ASCIIParFile::create(const char* fileName) {
    const char* name = fileName ? fileName : "";
    _copyBounded(m_fileName, sizeof(m_fileName), name, std::strlen(name));
    m_mode = WRITE;
    return 1;
}

int ASCIIParFile::beginGroup(const char* text) {
    if (!text || m_depth >= MaxGroupDepth) return 0;
    _copyBounded(m_groups[m_depth], TextSize, text, std::strlen(text));
    m_depth++;
    rebuildGroupName();
    return 1;
}

int ASCIIParFile::endGroup() {
    if (m_depth <= 0) return 0;
    m_depth--;
    m_groups[m_depth][0] = '\0';
    rebuildGroupName();
    return 1;
}

void ASCIIParFile::rebuildGroupName() {
    std::size_t n = 0;
    m_groupName[0] = '\0';
    for (int i = 0; i < m_depth && n < TextSize - 1; i++)
        n += _copyBounded(m_groupName + n, TextSize - n, m_groups[i], std::strlen(m_groups[i]));
}

const char* ASCIIParFile::compose(const char* key) {
    const std::size_t n = _copyBounded(m_varName, TextSize, m_groupName, std::strlen(m_groupName));
    _copyBounded(m_varName + n, TextSize - n, key, std::strlen(key));
    return m_varName;
}

// Doubling keeps the copies linear in the length of the list.
bool ASCIIParFile::grow() {
    if (m_capacity > MaxEntries) return false;
    const int capacity = std::min(2 * std::max(m_capacity, int(ListStep)), MaxEntries + 1);
    Entry* bigger = new (std::nothrow) Entry[capacity];
    if (!bigger) return false;
    if (m_count > 0) std::memcpy(static_cast<void*>(bigger), m_list, m_count * sizeof(Entry));
    delete[] m_list;
    m_list = bigger;
    m_capacity = capacity;
    return true;
}

bool ASCIIParFile::append(const Entry& entry) {
    if (m_count + 1 >= m_capacity && !grow()) return false;
    std::memcpy(static_cast<void*>(&m_list[m_count]), &entry, sizeof(Entry));
    m_count++;
    return true;
}

int ASCIIParFile::addComment(const char* text) {
    if (m_mode != WRITE || !text) return 0;
    Entry entry;
    entry.init(TYPE_COMMENT);
    _copyBounded(entry.name, sizeof(entry.name), text, std::strlen(text));
    return append(entry) ? 1 : 0;
}

// Lookup is a plain scan from the top, so of two lines with one key the
// first one counts.
ASCIIParFile::Entry* ASCIIParFile::find(const char* name) {
    for (int i = 0; i < m_count; i++)
        if (m_list[i].type != TYPE_COMMENT && std::strcmp(m_list[i].name, name) == 0)
            return &m_list[i];
    return nullptr;
}

ASCIIParFile::Entry* ASCIIParFile::lookup(const char* key, int type) {
    Entry* entry = find(compose(key));
    if (entry) entry->type = _claimedType(type);
    return entry;
}

int ASCIIParFile::writeValues(const char* key, int type, const char* const* texts, int count) {
    Entry entry;
    entry.init(type);
    const char* name = compose(key);
    _copyBounded(entry.name, sizeof(entry.name), name, std::strlen(name));
    for (int i = 0; i < count; i++)
        if (!entry.addValue(texts[i], std::strlen(texts[i]))) return 0;
    return append(entry) ? 1 : 0;
}

template <typename T>
int ASCIIParFile::serializeNumbers(const char* key, int type, T* values, int count,
                                   bool wholeLine) {
    if (!key || !values || count < 1) return 0;
    if (m_mode == WRITE) {
        ValueText texts[MaxValues];
        const char* pointers[MaxValues];
        for (int i = 0; i < count; i++) {
            texts[i] = _format(values[i]);
            pointers[i] = texts[i].s;
        }
        return writeValues(key, type, pointers, count);
    }
    const Entry* entry = lookup(key, type);
    if (!entry) return 0;
    const int n = wholeLine ? count : std::min(count, entry->count);
    for (int i = 0; i < n; i++) values[i] = _fromText<T>(entry->value(i));
    return 1;
}

int ASCIIParFile::serialize(const char* key, int* value) {
    return serializeNumbers(key, TYPE_INT, value, 1);
}
int ASCIIParFile::serialize(const char* key, unsigned int* value) {
    return serializeNumbers(key, TYPE_UINT, value, 1);
}
int ASCIIParFile::serialize(const char* key, unsigned char* value) {
    return serializeNumbers(key, TYPE_UCHAR, value, 1);
}
int ASCIIParFile::serialize(const char* key, bool* value) {
    return serializeNumbers(key, TYPE_BOOL, value, 1);
}
int ASCIIParFile::serialize(const char* key, float* value) {
    return serializeNumbers(key, TYPE_FLOAT, value, 1);
}
int ASCIIParFile::serialize(const char* key, double* value) {
    return serializeNumbers(key, TYPE_DOUBLE, value, 1);
}

// The compound records go through a local array: their members are not an
// array, whatever their layout.
int ASCIIParFile::serialize(const char* key, SIZE2D* value) {
    if (!value) return 0;
    int v[2] = {value->width, value->height};
    const int ok = serializeNumbers(key, TYPE_SIZE2D, v, 2);
    if (ok && m_mode == READ) *value = SIZE2D{v[0], v[1]};
    return ok;
}

int ASCIIParFile::serialize(const char* key, SIZE3D* value) {
    if (!value) return 0;
    int v[3] = {value->width, value->height, value->depth};
    const int ok = serializeNumbers(key, TYPE_SIZE3D, v, 3);
    if (ok && m_mode == READ) *value = SIZE3D{v[0], v[1], v[2]};
    return ok;
}

int ASCIIParFile::serialize(const char* key, FSIZE2D* value) {
    if (!value) return 0;
    float v[2] = {value->width, value->height};
    const int ok = serializeNumbers(key, TYPE_FSIZE2D, v, 2);
    if (ok && m_mode == READ) *value = FSIZE2D{v[0], v[1]};
    return ok;
}

int ASCIIParFile::serialize(const char* key, POINT2D* value) {
    if (!value) return 0;
    int v[2] = {value->x, value->y};
    const int ok = serializeNumbers(key, TYPE_POINT2D, v, 2);
    if (ok && m_mode == READ) *value = POINT2D{v[0], v[1]};
    return ok;
}

int ASCIIParFile::serialize(const char* key, POINT3D* value) {
    if (!value) return 0;
    int v[3] = {value->x, value->y, value->z};
    const int ok = serializeNumbers(key, TYPE_POINT3D, v, 3);
    if (ok && m_mode == READ) *value = POINT3D{v[0], v[1], v[2]};
    return ok;
}

int ASCIIParFile::serialize(const char* key, FPOINT2D* value) {
    if (!value) return 0;
    float v[2] = {value->x, value->y};
    const int ok = serializeNumbers(key, TYPE_FPOINT2D, v, 2);
    if (ok && m_mode == READ) *value = FPOINT2D{v[0], v[1]};
    return ok;
}

int ASCIIParFile::serialize(const char* key, FPOINT3D* value) {
    if (!value) return 0;
    float v[3] = {value->x, value->y, value->z};
    const int ok = serializeNumbers(key, TYPE_FPOINT3D, v, 3);
    if (ok && m_mode == READ) *value = FPOINT3D{v[0], v[1], v[2]};
    return ok;
}

// `edges` holds (start, end) pairs, x then y then z. The file holds the x and
// y starts, their extents, then the z start and extent: left, top, width,
// height, front, depth. Extents are taken in 64 bits so that no pair of edges
// can overflow them.
template <typename T>
int ASCIIParFile::serializeRect(const char* key, int type, T* edges, int pairs) {
    static const int startAt[3] = {0, 1, 4};
    static const int extentAt[3] = {2, 3, 5};
    long long v[6];
    for (int i = 0; i < pairs; i++) {
        v[startAt[i]] = edges[2 * i];
        v[extentAt[i]] = std::llabs(static_cast<long long>(edges[2 * i + 1]) - edges[2 * i]);
    }
    const int ok = serializeNumbers(key, type, v, 2 * pairs);
    if (ok && m_mode == READ) {
        for (int i = 0; i < pairs; i++) {
            const int32_t start = _clampToInt32(v[startAt[i]]);
            const long long extent = std::clamp(v[extentAt[i]], -(1LL << 40), 1LL << 40);
            edges[2 * i] = start;
            edges[2 * i + 1] = _clampToInt32(start + extent);
        }
    }
    return ok;
}

int ASCIIParFile::serialize(const char* key, RECT2D* value) {
    if (!value) return 0;
    int32_t edges[4] = {value->left, value->right, value->top, value->bottom};
    const int ok = serializeRect(key, TYPE_RECT2D, edges, 2);
    if (ok && m_mode == READ) *value = RECT2D{edges[0], edges[1], edges[2], edges[3]};
    return ok;
}

int ASCIIParFile::serialize(const char* key, RECT3D* value) {
    if (!value) return 0;
    int32_t edges[6] = {value->left,   value->right, value->top,
                        value->bottom, value->front, value->back};
    const int ok = serializeRect(key, TYPE_RECT3D, edges, 3);
    if (ok && m_mode == READ)
        *value = RECT3D{edges[0], edges[1], edges[2], edges[3], edges[4], edges[5]};
    return ok;
}

int ASCIIParFile::serializeString(const char* key, char* buffer, int size) {
    if (!key || !buffer || size < 1) return 0;
    size = std::min(size, static_cast<int>(TextSize));
    if (m_mode == WRITE) {
        const std::size_t n = ::strnlen(buffer, size);
        if (n >= static_cast<std::size_t>(size)) {
            DebugPrint("String too long for: %s", compose(key));
            return 0;
        }
        const char* texts[1] = {buffer};
        return writeValues(key, TYPE_STRING, texts, 1);
    }
    const Entry* entry = lookup(key, TYPE_STRING);
    if (!entry) return 0;
    PIV::CopyText(buffer, static_cast<std::size_t>(size), entry->value(0));
    return 1;
}

// Unlike the compounds, an array keeps the values a short line does not reach.
int ASCIIParFile::serializeArray(const char* key, int* values, int count) {
    return serializeNumbers(key, TYPE_INT, values, std::min(count, int(MaxValues)), false);
}
int ASCIIParFile::serializeArray(const char* key, float* values, int count) {
    return serializeNumbers(key, TYPE_FLOAT, values, std::min(count, int(MaxValues)), false);
}
int ASCIIParFile::serializeArray(const char* key, double* values, int count) {
    return serializeNumbers(key, TYPE_DOUBLE, values, std::min(count, int(MaxValues)), false);
}

template <typename T>
int ASCIIParFile::serializeValsList(const char* key, T* const* pointers) {
    if (!pointers[0]) return 0;
    int n = 0;
    while (n < MaxValues && pointers[n]) n++;
    // Start from the variables' own values: a short line leaves the rest as they were.
    T local[MaxValues];
    for (int i = 0; i < n; i++) local[i] = *pointers[i];
    const int ok = serializeArray(key, local, n);
    if (ok && m_mode == READ)
        for (int i = 0; i < n; i++) *pointers[i] = local[i];
    return ok;
}

template int ASCIIParFile::serializeValsList<int>(const char*, int* const*);
template int ASCIIParFile::serializeValsList<float>(const char*, float* const*);
template int ASCIIParFile::serializeValsList<double>(const char*, double* const*);

int ASCIIParFile::readList(const char* fileName) {
    const char* name = fileName ? fileName : "";
    PIV::FilePtr file = PIV::OpenFile(fileName, "rb");
    if (!file) {
        m_error.setMessage("readList() - failed opening file: '%s'", name);
        m_error.handleError(PIVerror::FILE_OPEN_FAILED, "readList()");
        return 0;
    }
    _copyBounded(m_fileName, sizeof(m_fileName), name, std::strlen(name));
    // Write mode while reading lets addComment keep the file's comments.
    m_mode = WRITE;

    char line[LineSize];
    int lines = 0;
    int variables = 0;
    Entry entry;
    for (;;) {
        std::memset(line, 0, sizeof(line));
        if (!_readLine(file.get(), line)) break;
        lines++;
        if (m_count >= MaxEntries) {
            m_error.setMessage(
                "readList() - '%s' holds more than %d lines; no parameter file is "
                "that long",
                name, int(MaxEntries));
            m_error.handleError(PIVerror::FILE_READ_FAILED, "readList()");
            m_count = 0;
            m_mode = READ;
            return 0;
        }
        const char* p = line;
        while (*p == ' ') p++;
        if (*p == '\0') continue;
        if (std::strchr(m_commentChars, *p)) {
            addComment(line);
            continue;
        }

        entry.init(TYPE_UNCLAIMED);
        bool haveName = false;
        const std::size_t length = std::strlen(line);
        std::size_t pos = 0;
        while (pos < length && entry.count < MaxValues) {
            const char* token = line + pos;
            const std::size_t run = std::strcspn(token, kSeparators);
            if (run == 0) {
                pos++;
                continue;
            }
            if (!haveName) {
                _copyBounded(entry.name, sizeof(entry.name), token, run);
                haveName = true;
                pos += run;
                continue;
            }
            if (token[0] != '"') {
                entry.addValue(token, run);
                pos += run;
                continue;
            }
            const char* close = std::strchr(token + 1, '"');
            const std::size_t closeIndex = close ? static_cast<std::size_t>(close - line) : length;
            entry.addValue(token + 1, std::min(closeIndex - pos - 1, kMaxStringValue));
            entry.type = TYPE_STRING;
            // Resumes behind the closing quote by the length of the string's
            // first run: a value behind a string on its line may be skipped.
            // Files in use rely on exactly this reading, so it stays.
            pos = closeIndex + run + 1;
        }
        if (std::strlen(entry.name) < 2) continue;
        if (append(entry)) variables++;
    }
    DebugPrintExt(2, "read %d variables in %d lines", variables, lines);
    m_mode = READ;
    return 1;
}

int ASCIIParFile::dumpList(std::FILE* stream) const {
    if (!stream) return 0;
    for (int i = 0; i < m_count; i++) {
        const Entry& e = m_list[i];
        if (e.type == TYPE_COMMENT) {
            std::fprintf(stream, "%s\n", e.name);
            continue;
        }
        std::fprintf(stream, "%s =", e.name);
        for (int v = 0; v < e.count; v++) {
            std::fputc(v == 0 ? ' ' : ',', stream);
            if (e.type == TYPE_STRING)
                std::fprintf(stream, "\"%s\"", e.value(v));
            else
                std::fputs(e.value(v), stream);
        }
        std::fputc('\n', stream);
    }
    return std::ferror(stream) ? 0 : 1;
}

int ASCIIParFile::saveList() {
    if (m_fileName[0] == '\0') {
        dumpList(stdout);
        std::fclose(stdout);
        return 1;
    }
    PIV::TempFile temp(m_fileName);
    if (!temp.file()) {
        m_error.setMessage("saveList() - failed creating file: '%s'", m_fileName);
        m_error.handleError(PIVerror::FILE_CREATE_FAILED, "saveList()");
        return 0;
    }
    bool ok = true;
    if (m_append) {
        // Appending copies what the target holds first, so the target is
        // still replaced only by a complete file.
        PIV::FilePtr old = PIV::OpenFile(m_fileName, "rb");
        char block[8192];
        std::size_t n;
        while (ok && old && (n = std::fread(block, 1, sizeof(block), old.get())) > 0)
            ok = std::fwrite(block, 1, n, temp.file()) == n;
        if (old && std::ferror(old.get())) ok = false;
    }
    if (!ok || !dumpList(temp.file()) || !temp.commit(m_fileName)) {
        m_error.setMessage("saveList() - failed writing file: '%s'", m_fileName);
        m_error.handleError(PIVerror::FILE_WRITE_FAILED, "saveList()");
        return 0;
    }
    return 1;
}

int ASCIIParFile::close() {
    return m_mode == WRITE ? saveList() : 0;
}
