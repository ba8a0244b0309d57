// Parameter files as a whole: saving and reading all records of one view,
// recognising a parameter file, and the file operations of PIV_Parameters.
#include <sys/stat.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>

#include "asciiparfile.h"
#include "image_format.h"
#include "piv_file.h"
#include "piv_messages.h"
#include "piv_ncfile.h"
#include "piv_params.h"
#include "piv_params_io.h"
#include "piv_record.h"
#include "piv_units.h"

namespace {

bool _fileExists(const char* fileName) {
    struct stat info;
    return fileName && ::stat(fileName, &info) == 0;
}

bool _nameTooLong(const char* fileName) {
    return fileName && ::strnlen(fileName, PIV::MaxPathLength + 1) > PIV::MaxPathLength;
}

bool _isNetCDF(const char* fileName) {
    return PIV::GetFileFormat(fileName) == PIV::FORMAT_NETCDF;
}

void _viewGroup(char (&group)[32], int view) {
    std::snprintf(group, sizeof(group), "View%d_", view);
}

// A comment line naming both "piv" and "parameters" (after its comment
// character, any case) marks a parameter file.
bool _isParameterComment(const char* line) {
    while (*line == ' ') line++;
    if (*line == '\0' || !std::strchr("#[%", *line)) return false;
    std::string text(line + 1);
    for (char& ch : text) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    int hits = 0;
    std::size_t pos = 0;
    while (pos < text.size()) {
        const std::size_t end = text.find_first_of(" ,;=\r\n", pos);
        const std::string token = text.substr(pos, end == std::string::npos ? end : end - pos);
        if (token == "piv" || token == "parameters") hits++;
        if (end == std::string::npos) break;
        pos = end + 1;
    }
    return hits > 1;
}

// 0 when refused (name, records), 1 when written, -1 when the file could
// not be written.
int _saveASCII(const char* fileName, const PIV_PARAMETERS* params, const IMAGE_CFG* image,
               const POSTPROCESS_CFG* post, int view) {
    using namespace PIV;
    if (_nameTooLong(fileName)) {
        PIVerror::handleErrorExt(PIVerror::BAD_FILE_NAME, "SaveParametersASCII()", true);
        return 0;
    }
    if (!params || !image || !post) {
        PIVerror::handleErrorExt(PIVerror::INVALID_POINTER, "SaveParametersASCII()", true);
        return 0;
    }
    const bool console = !fileName || !*fileName;
    DebugPrintExt(1, "PIV::SaveParametersASCII() - writing configuration to '%s'",
                  console ? "console" : fileName);

    // Serialising may mend derived fields; the caller's records stay as they are.
    PIV_PARAMETERS p = *params;
    IMAGE_CFG i = *image;
    POSTPROCESS_CFG pp = *post;
    char group[32];
    _viewGroup(group, view);

    ASCIIParFile file(console ? "" : fileName, ASCIIParFile::WRITE);
    file.addComment(ParameterFileMagic);
    file.beginGroup(group);
    SerializeImageCfg(&file, &i, true);
    file.addComment("[ PIV Processing Parameters ]");
    SerializePivParameters(&file, &p, true);
    SerializePostProcessCfg(&file, &pp, true);
    file.endGroup();
    return file.close() ? 1 : -1;
}

}  // namespace

int PIV::SaveParametersASCII(const char* fileName, const PIV_PARAMETERS* params,
                             const IMAGE_CFG* image, const POSTPROCESS_CFG* post, int view) {
    // A failed write is reported by the file object; callers of this function
    // have always been told 1, and the library keeps it that way.
    return _saveASCII(fileName, params, image, post, view) != 0 ? 1 : 0;
}

int PIV::ReadParametersASCII(const char* fileName, PIV_PARAMETERS* params, IMAGE_CFG* image,
                             POSTPROCESS_CFG* post, int view) {
    if (!params || !image || !post) {
        PIVerror::handleErrorExt(PIVerror::INVALID_POINTER, "ReadParametersASCII()", true);
        return 0;
    }
    DebugPrintExt(2, "PIV::ReadParametersASCII() - reading configuration from '%s' (view=%d)",
                  fileName ? fileName : "", view);
    ASCIIParFile file(fileName, ASCIIParFile::READ);
    if (file.isEmpty()) return 0;
    char group[32];
    _viewGroup(group, view);
    file.beginGroup(group);
    SerializeImageCfg(&file, image, false);
    SerializePivParameters(&file, params, false);
    SerializePostProcessCfg(&file, post, false);
    file.endGroup();
    return 1;
}

int PIV::IsParameterFile(const char* fileName) {
    if (!_fileExists(fileName)) return 0;
    if (_isNetCDF(fileName)) {
        PIV_NcFile file(fileName);
        if (file.is_valid()) return file.isParameterFile() ? 1 : 0;
    }
    FilePtr file = OpenFile(fileName, "rb");
    if (!file) {
        DebugPrint("PIV::IsParameterFile() - failed opening file '%s'", fileName);
        return 0;
    }
    char line[2048];
    for (int i = 0; i < 4 && std::fgets(line, sizeof(line), file.get()); i++) {
        if (std::strlen(line) > 1024) break;
        if (_isParameterComment(line)) return 1;
    }
    return 0;
}

int PIV::ReadImageCfg(const char* fileName, IMAGE_CFG* cfg, int view) {
    DebugPrintExt(2, "ReadImageCfg(%s)", fileName ? fileName : "");
    if (!cfg) return 0;
    if (_fileExists(fileName) && _isNetCDF(fileName) && IsParameterFile(fileName))
        return ReadImageCfgNetCDF(fileName, cfg, view);
    PIV_PARAMETERS scratch;
    POSTPROCESS_CFG scratchPost;
    return ReadParametersASCII(fileName, &scratch, cfg, &scratchPost, view);
}

int PIV::ReadPostProcessCfg(const char* fileName, POSTPROCESS_CFG* cfg, int view) {
    DebugPrintExt(2, "ReadPostPrcessCfg(%s)", fileName ? fileName : "");
    if (!cfg) return 0;
    if (_fileExists(fileName) && _isNetCDF(fileName) && IsParameterFile(fileName))
        return ReadPostProcessCfgNetCDF(fileName, cfg, view);
    PIV_PARAMETERS scratch;
    IMAGE_CFG scratchImage;
    return ReadParametersASCII(fileName, &scratch, &scratchImage, cfg, view);
}

PIV_Parameters::PIV_Parameters(const char* fileName) : PIV_Parameters() {
    read(fileName, 0);
}

bool PIV_Parameters::read(const char* fileName, int view) {
    if (!fileName || !*fileName || _nameTooLong(fileName)) {
        m_error.handleError(PIVerror::BAD_FILE_NAME, "read()");
        return false;
    }
    if (!_fileExists(fileName)) {
        m_error.setMessage("read() - no such parameter file: '%s'", fileName);
        m_error.handleError(PIVerror::FILE_NOT_FOUND, "read()");
        return false;
    }
    if (_isNetCDF(fileName) && PIV::IsParameterFile(fileName)) {
        if (PIV::ReadParameters(fileName, &m_params, view)) {
            PIV::UpdateConversionFactors(&m_params.convert);
            if (PIV::ReadImageCfg(fileName, &m_imageCfg, view) &&
                PIV::ReadPostProcessCfg(fileName, &m_postProcessCfg, view))
                return true;
        }
    }
    if (readASCII(fileName, view)) return true;
    m_error.setMessage("read() - failure reading params from file: %s", fileName);
    m_error.handleError(PIVerror::FILE_READ_FAILED, "read()");
    return false;
}

bool PIV_Parameters::readASCII(const char* fileName, int view) {
    if (fileName && _fileExists(fileName) && _isNetCDF(fileName)) {
        DebugPrint("File actually is netCDF: '%s'", fileName);
        // Scratch copies: a file that fails half-way leaves the records alone.
        PIV_PARAMETERS params = m_params;
        IMAGE_CFG image = m_imageCfg;
        if (!PIV::ReadParameters(fileName, &params, view) ||
            !PIV::ReadImageCfg(fileName, &image, view))
            return false;
        PIV::UpdateConversionFactors(&params.convert);
        m_params = params;
        m_imageCfg = image;
        return true;
    }
    if (!PIV::ReadParametersASCII(fileName, &m_params, &m_imageCfg, &m_postProcessCfg, view)) {
        DebugPrint("Failed reading parameters from: '%s'", fileName ? fileName : "");
        return false;
    }
    return true;
}

bool PIV_Parameters::save(const char* fileName, int view) {
    if (!fileName || !*fileName || _nameTooLong(fileName)) {
        m_error.handleError(PIVerror::BAD_FILE_NAME, "save()");
        return false;
    }
    if (PIV::SaveParameterRecords(fileName, &m_params, &m_imageCfg, &m_postProcessCfg, view))
        return true;
    m_error.setMessage("save() - cannot write '%s'", fileName);
    m_error.handleError(PIVerror::FILE_WRITE_FAILED, "save()");
    return false;
}

bool PIV_Parameters::saveASCII(const char* fileName, int view, bool unused) {
    (void)unused;
    return _saveASCII(fileName, &m_params, &m_imageCfg, &m_postProcessCfg, view) == 1;
}
