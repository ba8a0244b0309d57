// NetCDF classic files of the library: MyNcFile wraps the netCDF C++
// interface with one serialising call per attribute type, PIV_NcFile knows
// the vector data layouts (native and PIVNET2), and the file-information
// helpers tell what a data file holds without loading it.
#pragma once

#include <netcdfcpp.h>

#include <vector>

#include "piv_error.h"
#include "piv_types.h"

// Makes the library quiet and non-fatal before any call of the C++
// interface, for as long as the file lives: a failing call must return an
// error, never print or end the process.
struct NcQuietOptions {
    NcQuietOptions();
    NcError quiet{NcError::silent_nonfatal};
};

class MyNcFile : private NcQuietOptions, public NcFile {
public:
    enum AccessMode { READ = 0, WRITE = 1 };

    // accessMode decides what the serialize calls do; fileMode is NcFile's.
    MyNcFile(const char* fileName, int accessMode, NcFile::FileMode fileMode);
    ~MyNcFile() override;
    MyNcFile(const MyNcFile&) = delete;
    MyNcFile& operator=(const MyNcFile&) = delete;

    int accessMode() const { return m_accessMode; }
    bool isWriting() const { return m_accessMode == WRITE; }
    const char* fileName() const { return m_fileName; }

    // The scratch buffer holds one variable at a time; null on failure.
    void* allocTmpData(long count, NcType type);
    void* tmpData() { return m_tmp.empty() ? nullptr : m_tmp.data(); }
    std::size_t tmpSize() const { return m_tmp.size(); }

    // One call for both directions. Writing adds the attribute (to the
    // variable varId, or globally for -1); reading converts any numeric type
    // and returns false, leaving the target alone, when it is absent.
    bool serializeBool(const char* name, bool* value, int varId = -1);
    bool serializeInt(const char* name, int* value, int varId = -1);
    bool serializeFloat(const char* name, float* value, int varId = -1);
    bool serializeDouble(const char* name, double* value, int varId = -1);
    bool serializeShort(const char* name, short* value, int varId = -1);
    bool serializeByte(const char* name, unsigned char* value, int varId = -1);
    // Writing skips an empty text; reading takes only a text attribute
    // shorter than the buffer.
    bool serializeString(const char* name, char* text, int size, int varId = -1);
    bool serializeArrayInt(const char* name, int* values, int count, int varId = -1);
    bool serializeArrayFloat(const char* name, float* values, int count, int varId = -1);
    bool serializeArrayDouble(const char* name, double* values, int count, int varId = -1);
    bool serializeArrayShort(const char* name, short* values, int count, int varId = -1);
    bool serializeArrayByte(const char* name, unsigned char* values, int count, int varId = -1);

    // Numeric attribute values as doubles; empty when absent or a text.
    std::vector<double> attValues(const char* name, int varId = -1) const;
    std::vector<double> attValues(NcVar* var, const char* name) const;
    // A text attribute; false when absent or not a text.
    bool attText(const char* name, char* text, int size, int varId = -1) const;
    bool attText(NcVar* var, const char* name, char* text, int size) const;

private:
    NcVar* target(int varId) const { return varId >= 0 ? get_var(varId) : nullptr; }
    template <class T>
    bool putAtt(const char* name, int count, const T* values, int varId);
    template <class T>
    bool getAtt(const char* name, T* values, int count, int varId);

    int m_accessMode;
    char m_fileName[2048];
    std::vector<unsigned char> m_tmp;
};

class PIV_NcFile : public MyNcFile {
public:
    enum { FORMAT_NATIVE = 3, FORMAT_PIVNET2 = 4 };

    // Reading runs getContent, getDimensions and getVariables.
    PIV_NcFile(const char* fileName, int accessMode = READ,
               NcFile::FileMode fileMode = NcFile::ReadOnly);

    void getContent();
    void getDimensions();
    void getVariables();

    bool isParameterFile() const { return (m_content & 0x12000) != 0; }
    bool isPivData() const { return (m_content & 0x100) != 0; }
    bool isPTVData() const { return (m_content & 0x2000000) != 0; }
    int format() const { return m_format; }
    void setFormat(int format) { m_format = format; }
    int content() const { return m_content; }

    int timeSteps() const { return m_nt; }
    int nx() const { return m_nx; }
    int ny() const { return m_ny; }
    int nz() const { return m_nz; }
    int vectorComponents() const { return m_nvec; }
    int peakComponents() const { return m_npeak; }
    int pixelCoordComponents() const { return m_ncoords; }

    // Known variables of the native layout; null when absent.
    NcVar* pivData = nullptr;
    NcVar* coordsPixel = nullptr;
    NcVar* coordsPhys = nullptr;
    NcVar* pivFlags = nullptr;
    NcVar* snrData = nullptr;
    NcVar* corrCoeff = nullptr;
    NcVar* velocity = nullptr;
    NcVar* speckleShifts = nullptr;
    NcVar* vectorCount = nullptr;
    NcVar* residuals = nullptr;
    NcVar* peaks[3] = {nullptr, nullptr, nullptr};

    PIVerror& error() { return m_error; }

private:
    PIVerror m_error;
    int m_format = FORMAT_NATIVE;
    int m_content = 0;
    int m_nt = 1, m_nz = 1, m_ny = 0, m_nx = 0;
    int m_nvec = 0, m_npeak = 0, m_ncoords = 0;
};

namespace PIV {

struct FILE_INFO {
    int format;
    int timeSteps;
    int nx, ny, nz;
    int vectorComponents;
    int content;
    int peakComponents;
    int errorCode;

    FILE_INFO() { ZeroRecord(*this); }
};

// What a file holds, without loading it. False with info.errorCode 23 (no
// name), 28 (missing file) or 24 (unknown format).
bool GetFileInformation(const char* fileName, FILE_INFO& info);
// The same through pointers; any of them may be null.
bool FileInfo(const char* fileName, int* format, int* timeSteps, int* nx, int* ny, int* nz,
              int* vectorComponents, int* content, int* peakComponents, int* errorCode = nullptr);

// Parameters as attributes of a NetCDF file. Saving adds to an existing file
// (through a copy renamed over it when complete) or creates one; per-view
// records go to a variable "viewa".. when the file has it. 0 on failure.
int SaveParameters(const char* fileName, const PIV_PARAMETERS* params, int view = 0);
int ReadParameters(const char* fileName, PIV_PARAMETERS* params, int view = 0);
int SaveImageCfg(const char* fileName, const IMAGE_CFG* cfg, int view = 0);
int SavePostProcessCfg(const char* fileName, const POSTPROCESS_CFG* cfg, int view = 0);
// All three records in one replacement of the file: all of them or none.
int SaveParameterRecords(const char* fileName, const PIV_PARAMETERS* params, const IMAGE_CFG* image,
                         const POSTPROCESS_CFG* post, int view = 0);
// The image and post-processing records from a NetCDF file only.
int ReadImageCfgNetCDF(const char* fileName, IMAGE_CFG* cfg, int view = 0);
int ReadPostProcessCfgNetCDF(const char* fileName, POSTPROCESS_CFG* cfg, int view = 0);

// The same on an open file, for writers that already hold one.
bool SerializeParametersNc(MyNcFile& file, PIV_PARAMETERS* params, int view);
bool SerializeImageCfgNc(MyNcFile& file, IMAGE_CFG* cfg, int view);
bool SerializePostProcessCfgNc(MyNcFile& file, POSTPROCESS_CFG* cfg, int view);

}  // namespace PIV
