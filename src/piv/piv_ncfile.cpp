#include "piv_ncfile.h"

#include <netcdf.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>

#include "image_format.h"
#include "piv_messages.h"
#include "piv_nc_header.h"
#include "piv_params_io.h"

NcQuietOptions::NcQuietOptions() {
    ncopts = 0;
}

namespace {

// An existing file is only handed to the libraries once its header has been
// looked at; an empty name makes the open fail like that of a missing file.
const char* _openable(const char* fileName, NcFile::FileMode mode) {
    if (!fileName) return "";
    if (mode != NcFile::ReadOnly && mode != NcFile::Write) return fileName;
    std::string why;
    if (PIV::NcHeaderIsSound(fileName, &why)) return fileName;
    PrintWarning("%s", why.c_str());
    return "";
}

}  // namespace

MyNcFile::MyNcFile(const char* fileName, int accessMode, NcFile::FileMode fileMode)
    : NcQuietOptions(), NcFile(_openable(fileName, fileMode), fileMode), m_accessMode(accessMode) {
    PIV::CopyText(m_fileName, fileName ? fileName : "");
}

MyNcFile::~MyNcFile() {
    if (is_valid()) close();
}

void* MyNcFile::allocTmpData(long count, NcType type) {
    if (count < 1) return nullptr;
    std::size_t one = 4;
    if (type == ncByte || type == ncChar) one = 1;
    if (type == ncShort) one = 2;
    if (type == ncDouble) one = 8;
    const std::size_t bytes = std::size_t(count) * one;
    try {
        if (m_tmp.size() < bytes) m_tmp.resize(bytes);
    } catch (...) {
        return nullptr;
    }
    return m_tmp.data();
}

namespace {
template <class T>
NcBool _add(NcFile& f, NcVar* v, const char* name, int count, const T* values) {
    return v ? v->add_att(name, count, values) : f.add_att(name, count, values);
}
// netCDF keeps no unsigned byte attribute in the classic format.
NcBool _add(NcFile& f, NcVar* v, const char* name, int count, const unsigned char* values) {
    const ncbyte* bytes = reinterpret_cast<const ncbyte*>(values);
    return v ? v->add_att(name, count, bytes) : f.add_att(name, count, bytes);
}
}  // namespace

template <class T>
bool MyNcFile::putAtt(const char* name, int count, const T* values, int varId) {
    if (!is_valid()) return false;
    return _add(*this, target(varId), name, count, values) != 0;
}

template <class T>
bool MyNcFile::getAtt(const char* name, T* values, int count, int varId) {
    const std::vector<double> v = attValues(name, varId);
    if (v.empty()) return false;
    for (int i = 0; i < count && i < int(v.size()); i++) {
        double x = v[size_t(i)];
        // A damaged file may hold any double; integer targets keep to their
        // range, NaN counting as 0.
        if constexpr (std::is_integral<T>::value)
            x = x == x ? std::clamp(x, double(std::numeric_limits<T>::lowest()),
                                    double(std::numeric_limits<T>::max()))
                       : 0.0;
        values[i] = static_cast<T>(x);
    }
    return true;
}

std::vector<double> MyNcFile::attValues(const char* name, int varId) const {
    if (!is_valid()) return {};
    if (varId >= 0) return attValues(get_var(varId), name);
    std::unique_ptr<NcAtt> att(get_att(name));
    std::vector<double> out;
    if (!att || !att->is_valid() || att->type() == ncChar) return out;
    std::unique_ptr<NcValues> values(att->values());
    if (!values) return out;
    for (long i = 0; i < att->num_vals(); i++) out.push_back(values->as_double(i));
    return out;
}

std::vector<double> MyNcFile::attValues(NcVar* var, const char* name) const {
    std::vector<double> out;
    if (!var) return out;
    std::unique_ptr<NcAtt> att(var->get_att(name));
    if (!att || !att->is_valid() || att->type() == ncChar) return out;
    std::unique_ptr<NcValues> values(att->values());
    if (!values) return out;
    for (long i = 0; i < att->num_vals(); i++) out.push_back(values->as_double(i));
    return out;
}

namespace {
bool _text(NcAtt* raw, char* text, int size) {
    std::unique_ptr<NcAtt> att(raw);
    if (!att || !att->is_valid() || att->type() != ncChar || size < 1) return false;
    const long n = att->num_vals();
    if (n >= size) return false;
    std::unique_ptr<NcValues> values(att->values());
    if (!values) return false;
    std::memcpy(text, values->base(), size_t(n));
    text[n] = '\0';
    return true;
}
}  // namespace

bool MyNcFile::attText(const char* name, char* text, int size, int varId) const {
    if (!is_valid()) return false;
    if (varId >= 0) return attText(get_var(varId), name, text, size);
    return _text(get_att(name), text, size);
}

bool MyNcFile::attText(NcVar* var, const char* name, char* text, int size) const {
    return var && _text(var->get_att(name), text, size);
}

bool MyNcFile::serializeBool(const char* name, bool* value, int varId) {
    if (isWriting()) {
        const int v = *value ? 1 : 0;
        return putAtt(name, 1, &v, varId);
    }
    const std::vector<double> v = attValues(name, varId);
    if (v.empty()) return false;
    *value = v[0] != 0;
    return true;
}

#define KELVANE_NC_SCALAR(Fn, T)                                               \
    bool MyNcFile::Fn(const char* name, T* value, int varId) {                 \
        return isWriting() ? putAtt(name, 1, value, varId)                     \
                           : getAtt(name, value, 1, varId);                    \
    }
KELVANE_NC_SCALAR(serializeInt, int)
KELVANE_NC_SCALAR(serializeFloat, float)
KELVANE_NC_SCALAR(serializeDouble, double)
KELVANE_NC_SCALAR(serializeShort, short)
KELVANE_NC_SCALAR(serializeByte, unsigned char)
#undef KELVANE_NC_SCALAR

#define KELVANE_NC_ARRAY(Fn, T)                                                \
    bool MyNcFile::Fn(const char* name, T* values, int count, int varId) {     \
        return isWriting() ? putAtt(name, count, values, varId)                \
                           : getAtt(name, values, count, varId);               \
    }
KELVANE_NC_ARRAY(serializeArrayInt, int)
KELVANE_NC_ARRAY(serializeArrayFloat, float)
KELVANE_NC_ARRAY(serializeArrayDouble, double)
KELVANE_NC_ARRAY(serializeArrayShort, short)
KELVANE_NC_ARRAY(serializeArrayByte, unsigned char)
#undef KELVANE_NC_ARRAY

bool MyNcFile::serializeString(const char* name, char* text, int size, int varId) {
    if (isWriting()) {
        if (!text || !*text || !is_valid()) return false;
        NcVar* v = target(varId);
        return (v ? v->add_att(name, text) : add_att(name, text)) != 0;
    }
    return attText(name, text, size, varId);
}

// ---------------------------------------------------------------------------

PIV_NcFile::PIV_NcFile(const char* fileName, int accessMode, NcFile::FileMode fileMode)
    : MyNcFile(fileName, accessMode, fileMode), m_error("PIV_NcFile") {
    if (accessMode == READ && is_valid()) {
        getContent();
        getDimensions();
        getVariables();
    }
}

void PIV_NcFile::getContent() {
    m_content = 0;
    char text[1024] = {0};
    if (!attText("Conventions", text, sizeof(text)) &&
        !attText("file_content", text, sizeof(text)))
        return;
    DebugPrintExt(2, "file content = %s", text);
    std::string s(text);
    for (char& c : s) c = char(std::tolower(static_cast<unsigned char>(c)));
    const auto has = [&s](const char* what) { return s.find(what) != std::string::npos; };
    if (has("pivnet2")) {
        m_format = FORMAT_PIVNET2;
        m_content = 0x2000;
    } else if (has("dpiv proc") || has("kelvane data")) {
        m_content = 0x2000;
    } else if (has("kelvane ptv-data")) {
        m_content = 0x2000000;
    } else if (has("stereopiv")) {
        m_content = 0x12000;
    } else if (has("ensemble correlation")) {
        m_content = 0x200000;
    }
}

void PIV_NcFile::getDimensions() {
    bool haveTime = false, haveZ = false;
    for (int i = 0; i < num_dims(); i++) {
        NcDim* d = get_dim(i);
        if (!d || !d->is_valid()) continue;
        const std::string name = d->name();
        const int size = int(d->size());
        if (name == "data_array_time" || name == "data_dim_time") {
            m_nt = size;
            haveTime = true;
        } else if (name == "data_array_depth" || name == "data_dim_z") {
            m_nz = size;
            haveZ = true;
        } else if (name == "data_array_height" || name == "data_dim_y") {
            m_ny = size;
        } else if (name == "data_array_width" || name == "data_dim_x") {
            m_nx = size;
        } else if (name == "data_vector_index" || name == "vec_dims") {
            m_nvec = size;
        } else if (name == "data_array_peakcomps") {
            m_npeak = size;
        } else if (name == "coords_pixel") {
            m_ncoords = size;
        }
    }
    if (!haveTime) m_nt = 1;
    if (!haveZ) m_nz = 1;
}

namespace {
long _values(NcVar* v) {
    if (!v) return 0;
    std::unique_ptr<long[]> edges(v->edges());
    long n = 1;
    for (int i = 0; i < v->num_dims(); i++) n *= edges[size_t(i)];
    return n;
}

NcVar* _known(PIV_NcFile& f, const char* name, int bit, int& content) {
    NcVar* v = f.get_var(name);
    if (!v || !v->is_valid()) return nullptr;
    content |= bit;
    DebugPrintExt(2, " have %s: %ld values", name, _values(v));
    return v;
}
}  // namespace

void PIV_NcFile::getVariables() {
    if (m_format == FORMAT_PIVNET2) {
        int displacement = 0, velocity = 0;
        for (int i = 0; i < num_vars(); i++) {
            NcVar* v = get_var(i);
            if (!v) continue;
            const std::string n = v->name();
            if (n == "dx" || n == "dy" || n == "dz") {
                displacement++;
                m_content |= 0x100;
            } else if (n == "vx" || n == "vy" || n == "vz") {
                velocity++;
                m_content |= 0x800;
            } else if (n == "flag") {
                m_content |= 0x200;
            } else if (n == "count") {
                m_content |= 0x4000;
            } else if (n == "piv3c_residuals") {
                m_content |= 0x100000;
            } else if (n == "corr" || n == "corr_avg" || n == "corr_rms") {
                m_content |= 0x40000;
            } else if (n == "grid_x" || n == "grid_y" || n == "grid_z") {
                m_content |= 0x400000;
            }
        }
        if (displacement == 0 && velocity == 0)
            DebugPrint(" Warning: no displacement or velocity data found");
        else if (displacement && velocity && displacement != velocity)
            DebugPrint(" Warning: mismatch between displacement and velocity data");
        return;
    }
    pivData = _known(*this, "piv_data", 0x100, m_content);
    coordsPixel = _known(*this, "coords_pixel", 0x400000, m_content);
    coordsPhys = _known(*this, "coords_phys", 0x800000, m_content);
    pivFlags = _known(*this, "piv_flags", 0x200, m_content);
    int none = 0;
    snrData = _known(*this, "piv_snr_data", 0, none);
    corrCoeff = _known(*this, "piv_correlation_coeff", 0, none);
    velocity = _known(*this, "velocity", 0x800, m_content);
    speckleShifts = _known(*this, "speckle_shifts", 0x1000, m_content);
    vectorCount = _known(*this, "vector_count", 0x4000, m_content);
    residuals = _known(*this, "piv_3c_residuals", 0x100000, m_content);
    for (int p = 0; p < 3; p++) {
        char name[32];
        std::snprintf(name, sizeof(name), "piv_peak%d", p + 1);
        peaks[p] = _known(*this, name, 0x400, m_content);
    }
}

// ---------------------------------------------------------------------------

bool PIV::GetFileInformation(const char* fileName, FILE_INFO& info) {
    info = FILE_INFO();
    if (!fileName) {
        info.errorCode = PIVerror::BAD_FILE_NAME;
        return false;
    }
    struct stat st;
    if (::stat(fileName, &st) != 0) {
        info.errorCode = PIVerror::FILE_NOT_FOUND;
        return false;
    }
    {
        PIV_NcFile file(fileName);
        if (file.is_valid()) {
            info.format = FORMAT_NETCDF;
            info.content = file.content();
            info.timeSteps = file.timeSteps();
            info.nx = file.nx();
            info.ny = file.ny();
            info.nz = file.nz();
            info.vectorComponents = file.vectorComponents();
            if (info.content & 0x400) {
                const std::vector<double> n = file.attValues("number_of_peaks");
                info.peakComponents = n.empty() ? 0 : std::clamp(int(n[0]), 0, 3);
            }
            return true;
        }
    }
    const int format = GetFileFormat(fileName);
    if (format == FORMAT_UNKNOWN || format == FORMAT_NOT_FOUND) {
        info.errorCode = PIVerror::FILE_FORMAT_UNSUPPORTED;
        return false;
    }
    info.format = format;
    if (IsParameterFile(fileName)) {
        DebugPrint("PIV::FileInfo(%s) - is parameter file", fileName);
        info.format = FORMAT_PARFILE;
        info.content = 0x2000;
    }
    return true;
}

bool PIV::FileInfo(const char* fileName, int* format, int* timeSteps, int* nx, int* ny, int* nz,
                   int* vectorComponents, int* content, int* peakComponents, int* errorCode) {
    FILE_INFO info;
    const bool ok = GetFileInformation(fileName, info);
    if (format) *format = info.format;
    if (timeSteps) *timeSteps = info.timeSteps;
    if (nx) *nx = info.nx;
    if (ny) *ny = info.ny;
    if (nz) *nz = info.nz;
    if (vectorComponents) *vectorComponents = info.vectorComponents;
    if (content) *content = info.content;
    if (peakComponents) *peakComponents = info.peakComponents;
    if (errorCode) *errorCode = info.errorCode;
    return ok;
}
