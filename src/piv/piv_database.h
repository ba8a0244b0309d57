// PIV_DataBase: one vector field on a four-dimensional grid (x, y, z, time):
// the vectors, their optional differentials, the time axis, the parameters the
// field was made with, the flags of the post-processing pipeline and the
// summary statistics. PIV_Data2D adds row and column access on top.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "piv_enums.h"
#include "piv_error.h"
#include "piv_types.h"

class NcDim;

class Image2D;
class PIV_Parameters;
class PIV_NcFile;

// The nine velocity gradients of a node.
struct DIFFERENTIALS {
    float dudx, dudy, dudz;
    float dvdx, dvdy, dvdz;
    float dwdx, dwdy, dwdz;

    DIFFERENTIALS() { PIV::ZeroRecord(*this); }
};
KELVANE_ASSERT_RECORD(DIFFERENTIALS);
static_assert(sizeof(DIFFERENTIALS) == 9 * sizeof(float), "DIFFERENTIALS is nine floats");

namespace PIV {
inline constexpr float DIFFERENTIALS::*kGradientMembers[9] = {
    &DIFFERENTIALS::dudx, &DIFFERENTIALS::dudy, &DIFFERENTIALS::dudz,
    &DIFFERENTIALS::dvdx, &DIFFERENTIALS::dvdy, &DIFFERENTIALS::dvdz,
    &DIFFERENTIALS::dwdx, &DIFFERENTIALS::dwdy, &DIFFERENTIALS::dwdz,
};
// Gradient i (0 to 8) in the order of the record.
inline float& Gradient(DIFFERENTIALS& d, int i) {
    return d.*kGradientMembers[i];
}
inline float Gradient(const DIFFERENTIALS& d, int i) {
    return d.*kGradientMembers[i];
}
}  // namespace PIV

namespace PIV {
// Data type bits of a field; files keep the same bits.
enum DataTypeBits {
    DATA_DISPLACEMENT = 0x100,
    DATA_FLAGS = 0x200,
    DATA_PEAKS = 0x400,
    DATA_VELOCITY = 0x800,
    DATA_SPECKLE = 0x1000,
    DATA_PARAMETERS = 0x2000,
    DATA_COUNTS = 0x4000,
    DATA_RMS = 0x8000,
    DATA_STEREO_PROJECT = 0x10000,
    DATA_CORRELATION = 0x40000,
    DATA_3C_RESIDUALS = 0x100000,
    DATA_ENSEMBLE = 0x200000,
    DATA_PIXEL_COORDINATES = 0x400000,
    DATA_PHYSICAL_COORDINATES = 0x800000,
    DATA_PTV = 0x2000000,
};

// Moves a first peak nearer than `radius` to the displacement (-refX, -refY)
// to the last place, the next peak taking over dx, dy and snr; 1 when it
// did. A vector without a result is left alone.
int EliminateZeroPeak(PIV_VECTOR& vector, float refX, float refY, float radius);
}  // namespace PIV

// Global text attributes of a native file beyond its own: name, text.
using FileAttributes = std::vector<std::pair<std::string, std::string>>;

class PIV_DataBase {
public:
    PIV_DataBase();
    // Only remembers the grid; initializeGrid lays the nodes.
    explicit PIV_DataBase(const DATA_GRID4D& grid);
    PIV_DataBase(const PIV_DataBase&) = delete;
    PIV_DataBase& operator=(const PIV_DataBase&) = delete;
    virtual ~PIV_DataBase() = default;

    // Every member back to its default, arrays released.
    void init();
    // Room for nx*ny*nz*timeSteps nodes. An array of that length already is
    // kept with its data, only the axes are renamed; anything else starts
    // over with zeroed vectors. 7 for a zero dimension or a failed allocation.
    bool alloc(int nx, int ny, int nz, int timeSteps);
    // Empties results and statistics: each vector keeps its positions and
    // becomes VECTOR_OUTLIER; the pipeline flags ask for every stage again.
    // The file attributes go with the results they described.
    // Returns the number of nodes.
    unsigned long clear();
    // Allocates for the grid's nodes and writes their positions:
    // ix = first.x + i step.x, iy likewise, x = ix, y = imageSize.y - iy,
    // time[t] = t, flag 8; then clear(). 0 on failure.
    int initializeGrid(const DATA_GRID4D& grid);
    // A grid from its corner nodes: (last - first) / step + 1 nodes per axis.
    bool create2(const SIZE3D& imageSize, const SIZE3D& step, const POINT3D& first,
                 const POINT3D& last, int timeSteps);
    // create2, marked as validated raw displacement data of zero.
    bool createZeroData(const SIZE3D& imageSize, const SIZE3D& step, const POINT3D& first,
                        const POINT3D& last, int timeSteps);
    // Deep copy of the arrays, the flags, the parameters, the name and the
    // file attributes.
    bool copy(const PIV_DataBase& source);
    // Copies every step of `source` into this field from `firstStep` on; the
    // times keep their spacing and start at `startTime`.
    bool putTimeStep(const PIV_DataBase& source, int firstStep, double startTime);

    // ---- plain accessors --------------------------------------------------
    bool isNull() const { return m_vectors.empty() || m_nodeCount == 0; }
    // Nodes of all planes and time steps.
    int nodeCount() const { return static_cast<int>(m_nodeCount); }
    unsigned long diffCount() const { return m_diffCount; }
    const DATA_GRID4D& grid() const { return m_grid; }
    // The vectors in node order; null without nodes.
    PIV_VECTOR* data() { return m_vectors.empty() ? nullptr : m_vectors.data(); }
    const PIV_VECTOR* data() const { return m_vectors.empty() ? nullptr : m_vectors.data(); }
    DIFFERENTIALS* diffData() { return m_diff.empty() ? nullptr : m_diff.data(); }
    const DIFFERENTIALS* diffData() const { return m_diff.empty() ? nullptr : m_diff.data(); }
    const double* timeData() const { return m_time.empty() ? nullptr : m_time.data(); }
    int timeSteps() const { return m_grid.timeSteps; }
    int dataType() const { return m_dataType; }
    void setDataType(int type) { m_dataType = type; }
    int analysisMode() const { return m_analysisMode; }
    // Every value but 2 and 3 means cross-correlation (1).
    void setAnalysisMode(int mode);
    int numberOfPeaks() const { return m_numberOfPeaks; }
    const char* name() const { return m_name; }
    void setName(const char* name);
    const char* gridUnit() const { return m_params.convert.LengthConversionUnits; }
    const char* velocityUnit() const { return m_params.convert.VelocityUnits; }
    const char* shiftUnit() const { return m_params.convert.DisplacementUnits; }
    const char* formattedStats() const { return m_formattedStats; }
    const PIV_PARAMETERS& pivParameters() const { return m_params; }
    // Stores the record with this field's grid inside it.
    void setPivParameters(const PIV_PARAMETERS& params);
    const OUTPUT_CFG& outputCfg() const { return m_outputCfg; }
    void setOutputCfg(const OUTPUT_CFG& cfg) { m_outputCfg = cfg; }
    int desamplingFactor() const { return m_desamplingFactor; }
    void setDesamplingFactor(int factor) { m_desamplingFactor = factor; }
    bool isPlanar() const { return m_grid.nodes.depth == 1; }

    // ---- flags ------------------------------------------------------------
    void setFlagRawData(bool on) { m_rawData = on; }
    void setFlagMultiplePeaks(bool on) { m_multiplePeaks = on; }
    void setFlagFileData(bool on) { m_fileData = on; }
    void setFlagIntermediateData(bool on) { m_intermediateData = on; }
    void setFlagSampledOffGrid(bool on) { m_sampledOffGrid = on; }
    void setFlagConverted(bool on) { m_converted = on; }
    void setFlagValidated(bool on) { m_validated = on; }
    void setFlagDifferentiated(bool on) { m_differentiated = on; }
    void setFlag3C(bool on) { m_3C = on; }
    void setFlag3CResiduals(bool on) { m_3CResiduals = on; }
    void setFlagStatisticsData(bool on) { m_statisticsData = on; }
    void setFlagAllowPostProcess(bool on) { m_allowPostProcess = on; }
    void setFlagSkipValidation(bool on) { m_skipValidation = on; }
    void setFlagSmoothed(bool on) { m_smoothed = on; }
    void setFlagMedianFiltered(bool on) { m_medianFiltered = on; }
    bool haveRawData() const { return !isNull() && m_rawData; }
    bool haveMultiplePeaks() const { return !isNull() && m_multiplePeaks; }
    bool isFileData() const { return !isNull() && m_fileData; }
    bool isConverted() const { return !isNull() && m_converted; }
    bool isValidated() const { return !isNull() && m_validated; }
    bool isDifferentiated() const { return !isNull() && m_differentiated; }
    bool is3C() const { return !isNull() && m_3C; }
    bool have3CResiduals() const { return !isNull() && m_3CResiduals; }
    bool isStatisticsData() const { return m_statisticsData; }
    bool isSmoothed() const { return m_smoothed; }
    bool isMedianFiltered() const { return m_medianFiltered; }
    bool isIntermediateData() const { return m_intermediateData; }
    bool isSampledOffGrid() const { return m_sampledOffGrid; }
    bool isPostProcessAllowed() const { return m_allowPostProcess; }
    bool skipValidation() const { return m_skipValidation; }
    bool needsValidation() const { return m_needsValidation; }
    bool needsConversion() const { return m_needsConversion; }
    bool needsDifferentiation() const { return m_needsDifferentiation; }

    // ---- nodes by array index ----------------------------------------------
    // Beyond the nodes a read gives the null vector and a write returns 0.
    PIV_VECTOR getVector(long index) const;
    int setVector(long index, const PIV_VECTOR& vector);
    // First node of a time step, nx*ny*nz nodes apart; a step outside the
    // axis gives step 0.
    PIV_VECTOR* dataAtTime(int t);
    DIFFERENTIALS* diffDataAtTime(int t);
    // 0 outside the axis.
    double timeAt(int t) const;
    // time[i] = i * step + start.
    void setTime(double start, double step);
    // Like getVector and setVector; zeros (and 0) without differentials.
    DIFFERENTIALS getDifferentials(long index) const;
    int setDifferentials(long index, const DIFFERENTIALS& d);
    // One zeroed record per node; 14 on a null field.
    bool allocDifferentials();

    // ---- arithmetic on the whole field --------------------------------------
    // Node by node, displacements, velocities and shifts; the peaks move by the
    // other field's dx, dy. 8 for this field itself, 14 for a null field,
    // 16 for another node count.
    bool subtractData(const PIV_DataBase& other);
    bool addData(const PIV_DataBase& other);
    // Factor 0 is reported as error 4, and the field is still multiplied.
    bool scaleData(float factor);
    // Grid and pixel positions (rounded) and displacements; a factor at or
    // below 0 does nothing and returns false.
    bool scaleGridAndData(float factor);
    // Physical shift; the pixel positions move by it times the magnification,
    // iy against the physical y.
    bool translateGrid(float dx, float dy, float dz);
    // Every node becomes an enabled result of exactly this displacement.
    bool initShift(float dx, float dy, float dz);
    // Adds to every displacement and to every peak that holds a value.
    bool addShift(float dx, float dy, float dz);
    // Physical values of every node under the parameters' conversion record.
    bool convert(const PIV_Parameters* parameters);

    // ---- status -------------------------------------------------------------
    // Clears these status bits in every vector.
    void clearFlags(unsigned char mask);
    // Disables every vector whose dx and dy are exactly 0; returns how many.
    int disableNullVectors();
    // Clears VECTOR_EDITED wherever it is set; returns how many.
    int clearAllDisabled();
    // Disables every node whose mask pixel at (ix, iy) is not 0.
    bool maskOutVectors(const Image2D& mask);
    // Moves a first peak nearer to zero displacement than `radius` to the
    // last place; the result is the number of nodes changed (14 without raw data).
    int eliminateSelfCorrelationPeaks(float radius);

    // ---- statistics -----------------------------------------------------------
    // Minimum, maximum, mean and standard deviation over the enabled nodes,
    // the counts by status and the formatted summary. False (error 9) when no
    // vector is enabled.
    bool doStatistics();
    bool doDiffStatistics();
    const PIV_VECTOR& vectorMinimum() const { return m_stats[0]; }
    const PIV_VECTOR& vectorMaximum() const { return m_stats[1]; }
    const PIV_VECTOR& vectorMean() const { return m_stats[2]; }
    const PIV_VECTOR& vectorStdDev() const { return m_stats[3]; }
    const DIFFERENTIALS& diffMinimum() const { return m_diffStats[0]; }
    const DIFFERENTIALS& diffMaximum() const { return m_diffStats[1]; }
    const DIFFERENTIALS& diffMean() const { return m_diffStats[2]; }
    const DIFFERENTIALS& diffStdDev() const { return m_diffStats[3]; }
    unsigned long vectorsActive() const { return m_active; }
    unsigned long vectorsInterpolated() const { return m_interpolated; }
    unsigned long vectorsReplaced() const { return m_replaced; }
    unsigned long vectorsDisabled() const { return m_disabled; }
    unsigned long vectorsMasked() const { return m_masked; }

    // ---- NetCDF files --------------------------------------------------------
    // The native layout with every parameter, or PIVNET2. A negative step
    // saves all time steps, any other the one step (clamped). Written to a
    // temporary beside the target and renamed over it when complete, so a
    // failed save leaves an earlier file as it was.
    bool saveNetCDF(const char* fileName, int timeStep = -1);
    bool saveNetCDF_PIVNET2(const char* fileName, int timeStep = -1);
    // Where the field came from (the command line, the image files), written
    // by saveNetCDF as global texts after the file's own attributes; a name
    // the file already uses keeps the file's value. Not read back.
    void setFileAttributes(FileAttributes attributes) { m_fileAttributes = std::move(attributes); }
    const FileAttributes& fileAttributes() const { return m_fileAttributes; }

    // ---- Tecplot and text exports -------------------------------------------
    // The step is clamped into the time axis. Each file is written beside
    // its target and renamed over it when complete.
    // Tecplot text; the flag is kept for callers and has no effect.
    bool saveASCII(const char* fileName, int timeStep, bool unused);
    bool saveASCII_new(const char* fileName, int timeStep);
    // Tecplot binary (7.5) in block or point form; false (error 31) for
    // velocity or speckle data without differentials.
    bool saveTecplotBinary(const char* fileName, int timeStep, bool block);
    // One line a node: position, displacement or velocity, status.
    bool savePivChallengeData(const char* fileName, int timeStep);
    // Fields that average several data sets (statistics) say so in their
    // text exports; the "valid" column is count divided by it.
    int dataSetCount() const { return m_dataSets; }
    void setDataSetCount(int count) { m_dataSets = count < 1 ? 1 : count; }

    // Standard output when `stream` is null.
    void printGridInfo(const char* title, FILE* stream = nullptr) const;
    void printDataInfo(const char* title, FILE* stream = nullptr) const;

    PIVerror& error() { return m_error; }
    const char* getLastError() const { return m_error.getLastError(); }

protected:
    // Length of the vector block: the node count, or more when the 2-D
    // accessors' nx*nx time stride reaches further.
    static unsigned long blockLength(int nx, int ny, int nz, int timeSteps);
    // Zeroes all but the positions of a node, and its differentials.
    void clearNode(unsigned long k, uint8_t flag);
    bool combine(const PIV_DataBase& other, float sign, const char* where);
    // What copy and putTimeStep take over besides the nodes: flags, data
    // type, analysis mode, parameters and name.
    void takeFlags(const PIV_DataBase& source);
    void formatStatistics();
    // The writers on an open file; `longName` is the name the file will have.
    void writeNetCDF(PIV_NcFile& file, const char* longName, int timeStep);
    void writePIVNET2(PIV_NcFile& file, const char* longName, int timeStep);
    void writeDifferentials(PIV_NcFile& file, const NcDim* const* dims, int ndims, int t0,
                            int t1);

    std::vector<PIV_VECTOR> m_vectors;
    std::vector<DIFFERENTIALS> m_diff;
    std::vector<double> m_time;
    char m_name[2048];
    DATA_GRID4D m_grid;
    PIV_PARAMETERS m_params;
    OUTPUT_CFG m_outputCfg;
    FileAttributes m_fileAttributes;
    unsigned long m_nodeCount = 0;
    unsigned long m_diffCount = 0;
    int m_dataType = 0;
    int m_analysisMode = PIV::ANALYSIS_CROSS_CORRELATION;
    bool m_fileData = false;
    bool m_rawData = false;
    bool m_multiplePeaks = true;
    bool m_converted = false;
    bool m_needsConversion = true;
    bool m_validated = false;
    bool m_needsValidation = true;
    bool m_skipValidation = false;
    bool m_allowPostProcess = false;
    bool m_differentiated = false;
    bool m_needsDifferentiation = true;
    bool m_3C = false;
    bool m_3CResiduals = false;
    bool m_statisticsData = false;
    bool m_smoothed = false;
    bool m_medianFiltered = false;
    bool m_sampledOffGrid = false;
    bool m_intermediateData = false;
    PIV_VECTOR m_null;
    PIV_VECTOR m_stats[4];
    DIFFERENTIALS m_diffStats[4];
    int m_numberOfPeaks = PIV::MaxCorrelationPeaks();
    unsigned long m_active = 0, m_interpolated = 0, m_replaced = 0, m_disabled = 0, m_masked = 0;
    std::vector<unsigned char> m_validationTags;
    int m_desamplingFactor = 1;
    int m_dataSets = 1;
    PIVerror m_error;
    char m_formattedStats[4096];
};
