#include "piv_nc_header.h"

#include <netcdf.h>
#include <sys/stat.h>

#include <algorithm>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "piv_file.h"
#include "piv_file_bounds.h"

namespace {

constexpr uint32_t kDimensionTag = 0x0A, kVariableTag = 0x0B, kAttributeTag = 0x0C;
// The header is read whole; no classic header this program meets comes near it.
constexpr size_t kMaxHeaderBytes = size_t(16) << 20;
constexpr size_t kFirstRead = size_t(64) << 10;

struct Failed {
    std::string why;
};

// Big-endian fields of the header, every read checked against its end.
class HeaderReader {
public:
    HeaderReader(const std::vector<uint8_t>& bytes, bool wide) : m_bytes(bytes), m_wide(wide) {}

    uint64_t u32() {
        need(4);
        uint64_t v = 0;
        for (int i = 0; i < 4; i++) v = v << 8 | m_bytes[m_pos++];
        return v;
    }
    uint64_t u64() { return u32() << 32 | u32(); }
    // Counts and lengths: 8 bytes in the 64-bit data format, else 4.
    uint64_t count() { return m_wide ? u64() : u32(); }
    void skip(uint64_t n) {
        need(n);
        m_pos += static_cast<size_t>(n);
    }
    size_t left() const { return m_bytes.size() - m_pos; }

    // A name: its length, its bytes, padding to four.
    void name(const char* what) {
        const uint64_t n = count();
        if (n == 0 || n >= NC_MAX_NAME) {
            char text[96];
            std::snprintf(text, sizeof text, "a %s name of %" PRIu64 " characters", what, n);
            throw Failed{text};
        }
        skip((n + 3) / 4 * 4);
    }
    // A list's tag and element count; an absent list is two zeros. Every
    // element takes at least `least` bytes of what is left.
    uint64_t list(uint32_t tag, uint64_t least, const char* what) {
        const uint64_t t = u32();
        const uint64_t n = count();
        if (t == 0 && n == 0) return 0;
        if (t != tag) throw Failed{std::string("a broken list of ") + what};
        if (n > left() / least)
            throw Failed{std::string("more ") + what + " than the header holds"};
        return n;
    }

private:
    void need(uint64_t n) const {
        if (n > left()) throw Failed{"a header cut short"};
    }
    const std::vector<uint8_t>& m_bytes;
    size_t m_pos = 4;
    bool m_wide;
};

uint64_t _typeBytes(uint64_t type, bool wide) {
    switch (type) {
        case NC_BYTE:
        case NC_CHAR:
            return 1;
        case NC_SHORT:
            return 2;
        case NC_INT:
        case NC_FLOAT:
            return 4;
        case NC_DOUBLE:
            return 8;
        default:
            break;
    }
    if (!wide) return 0;
    switch (type) {
        case NC_UBYTE:
            return 1;
        case NC_USHORT:
            return 2;
        case NC_UINT:
            return 4;
        case NC_INT64:
        case NC_UINT64:
            return 8;
        default:
            return 0;
    }
}

void _attributes(HeaderReader& in, bool wide) {
    const uint64_t n = in.list(kAttributeTag, 12, "attributes");
    for (uint64_t a = 0; a < n; a++) {
        in.name("attribute");
        const uint64_t bytes = _typeBytes(in.u32(), wide);
        if (bytes == 0) throw Failed{"an attribute of unknown type"};
        const uint64_t values = in.count();
        if (values > in.left() / bytes) throw Failed{"attribute values beyond the header"};
        in.skip((values * bytes + 3) / 4 * 4);
    }
}

// Walks the header in `header` and returns the bytes of fixed-size variable
// data it declares; throws Failed at the first fault.
uint64_t _fixedDataBytes(const std::vector<uint8_t>& header, int version) {
    const bool wide = version == 5;
    if (version != 1 && version != 2 && version != 5) throw Failed{"an unknown version"};
    HeaderReader in(header, wide);
    if (wide)
        in.u64();
    else
        in.u32();  // the number of records
    const uint64_t dims = in.list(kDimensionTag, 8, "dimensions");
    std::vector<uint64_t> lengths;
    int unlimited = 0;
    for (uint64_t d = 0; d < dims; d++) {
        in.name("dimension");
        lengths.push_back(in.count());
        if (lengths.back() == 0) unlimited++;
    }
    if (unlimited > 1) throw Failed{"more than one record dimension"};
    _attributes(in, wide);
    const uint64_t vars = in.list(kVariableTag, 24, "variables");
    uint64_t fixedBytes = 0;
    for (uint64_t v = 0; v < vars; v++) {
        in.name("variable");
        const uint64_t rank = in.count();
        if (rank > NC_MAX_VAR_DIMS || rank > in.left() / 4)
            throw Failed{"a variable of too many dimensions"};
        uint64_t values = 1;
        bool record = false;
        for (uint64_t r = 0; r < rank; r++) {
            const uint64_t id = in.count();
            if (id >= lengths.size()) throw Failed{"a variable on a missing dimension"};
            if (lengths[id] == 0) {
                record = true;
                continue;
            }
            if (__builtin_mul_overflow(values, lengths[id], &values)) values = UINT64_MAX;
        }
        _attributes(in, wide);
        const uint64_t bytes = _typeBytes(in.u32(), wide);
        if (bytes == 0) throw Failed{"a variable of unknown type"};
        in.count();  // vsize: the library computes its own
        if (version == 1)
            in.u32();
        else
            in.u64();  // where its data begins
        uint64_t varBytes;
        if (__builtin_mul_overflow(values, bytes, &varBytes)) varBytes = UINT64_MAX;
        if (!record && __builtin_add_overflow(fixedBytes, varBytes, &fixedBytes))
            fixedBytes = UINT64_MAX;
    }
    return fixedBytes;
}

// netCDF-4 files are HDF5 files, which the libraries look for at the start
// and behind a user block of 512, 1024, 2048, ... bytes.
bool _isHdf5(std::FILE* file, int64_t size) {
    static const uint8_t kSignature[8] = {0x89, 'H', 'D', 'F', '\r', '\n', 0x1a, '\n'};
    for (int64_t at = 0; at + 8 <= size; at = at ? 2 * at : 512) {
        uint8_t bytes[8];
        if (std::fseek(file, static_cast<long>(at), SEEK_SET) != 0 ||
            std::fread(bytes, 1, sizeof bytes, file) != sizeof bytes)
            return false;
        if (std::memcmp(bytes, kSignature, sizeof bytes) == 0) return true;
    }
    return false;
}

}  // namespace

bool PIV::NcHeaderIsSound(const char* path, std::string* why) {
    FilePtr file = OpenFile(path, "rb");
    if (!file) {
        // The libraries report a missing file; a folder, a pipe or a device
        // under the name is refused here, since the libraries would open a
        // pipe without a writer and wait for ever.
        struct stat info;
        if (!path || ::stat(path, &info) != 0 || S_ISREG(info.st_mode)) return true;
        if (why) *why = "NetCDF - '" + std::string(path) + "' is not a regular file";
        return false;
    }
    const int64_t size = FileBounds::SizeOf(file.get());
    // The HDF5 and netCDF-4 layers trust what such a file says and, once it
    // turns out damaged, lose what they built for it: one flipped bit in its
    // metadata costs a leak, and no handle is left to release it by. This
    // program writes and reads classic files; a netCDF-4 one is refused
    // before the libraries see it.
    if (_isHdf5(file.get(), size)) {
        if (why)
            *why = "NetCDF - '" + std::string(path) +
                   "' is a netCDF-4 (HDF5) file; only classic NetCDF files are read "
                   "(convert it with 'nccopy -k classic')";
        return false;
    }
    std::rewind(file.get());
    const size_t whole =
        size < 0 ? kMaxHeaderBytes : std::min<size_t>(static_cast<size_t>(size), kMaxHeaderBytes);
    // Headers are a few kilobytes while the data behind them may be large:
    // read a little first and more only while the header runs on.
    std::vector<uint8_t> bytes;
    uint64_t fixedBytes = 0;
    for (size_t want = std::min(whole, kFirstRead);; want = std::min(whole, want * 8)) {
        const size_t had = bytes.size();
        bytes.resize(want);
        bytes.resize(had + std::fread(bytes.data() + had, 1, want - had, file.get()));
        if (bytes.size() < 4 || bytes[0] != 'C' || bytes[1] != 'D' || bytes[2] != 'F') return true;
        const bool more = bytes.size() == want && want < whole;
        try {
            fixedBytes = _fixedDataBytes(bytes, bytes[3]);
            break;
        } catch (const Failed& failed) {
            if (more) continue;
            if (why)
                *why = "NetCDF - '" + std::string(path) + "' has " + failed.why + " in its header";
            return false;
        }
    }
    file.reset();
    if (size >= 0 &&
        FileBounds::Judge(fixedBytes, static_cast<uint64_t>(size)) == FileBounds::Fit::REFUSED) {
        if (why)
            *why = FileBounds::Refusal("NetCDF", path, "variable data", fixedBytes,
                                       static_cast<uint64_t>(size));
        return false;
    }
    return true;
}
