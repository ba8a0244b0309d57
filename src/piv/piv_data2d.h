// PIV_Data2D: a field of PIV_VECTOR nodes on a DATA_GRID4D, with the flags
// of the post-processing pipeline, the parameters it was made with and its
// one-field statistics.
#pragma once

#include <cstdint>
#include <vector>

#include "piv_error.h"
#include "piv_types.h"

class Image2D;
class PIV_Parameters;

namespace PIV {
// Data type bits of a field.
enum DataTypeBits {
    DATA_DISPLACEMENT = 0x100,
    DATA_FLAGS = 0x200,
    DATA_PEAKS = 0x400,
    DATA_VELOCITY = 0x800,
    DATA_SPECKLE = 0x1000,
    DATA_PARAMETERS = 0x2000,
    DATA_COUNTS = 0x4000,
    DATA_RMS = 0x8000,
    DATA_CORRELATION = 0x40000,
};
}  // namespace PIV

class PIV_Data2D {
public:
    PIV_Data2D();
    // Nodes laid on the grid, all disabled (see initializeGrid).
    explicit PIV_Data2D(const DATA_GRID4D& grid);
    PIV_Data2D(const PIV_Data2D&) = delete;
    PIV_Data2D& operator=(const PIV_Data2D&) = delete;
    virtual ~PIV_Data2D() = default;

    uint32_t addRef() { return ++m_refCount; }
    // Deletes the object when the last reference goes; returns the count left.
    uint32_t release();

    // Allocates for the grid's nodes and writes their positions:
    // ix = first.x + i step.x, iy likewise, x = ix, y = imageSize.y - iy,
    // flag 8; then clear(). 7 for an empty grid.
    bool initializeGrid(const DATA_GRID4D& grid);
    // initializeGrid with one plane: a PIV_Data2D is planar.
    bool create(const DATA_GRID4D& grid);
    // Empties results and statistics: each vector keeps its positions and
    // becomes VECTOR_OUTLIER; the pipeline flags ask for every stage again.
    void clear();

    const DATA_GRID4D& grid() const { return m_grid; }
    // Nodes of all planes and time steps.
    int nodeCount() const;
    bool isNull() const { return m_vectors.empty() || nodeCount() <= 0; }
    // The vectors in node order.
    PIV_VECTOR* data() { return m_vectors.empty() ? nullptr : m_vectors.data(); }
    const PIV_VECTOR* data() const { return m_vectors.empty() ? nullptr : m_vectors.data(); }

    // A row is a y index, a col an x index; a negative t counts as 0.
    // Outside the grid the object's null vector comes back.
    PIV_VECTOR getVector2D(int row, int col, int t = 0) const;
    // 14 without data, 18 outside the grid, 0 on success.
    PIVerror::ErrorType setVector2D(const PIV_VECTOR& vector, int row, int col, int t = 0);

    // Array index of a node. Time planes are nx*nx apart, not nx*ny: that is
    // the layout of the store, and it shows only for t above 0.
    long index2D(int row, int col, int t) const;

    // ---- what the field holds ---------------------------------------------
    int dataType() const { return m_dataType; }
    void setDataType(int type) { m_dataType = type; }
    int analysisMode() const { return m_analysisMode; }
    // Every value but 2 and 3 means cross-correlation (1).
    void setAnalysisMode(int mode);
    int numberOfPeaks() const { return m_numberOfPeaks; }
    const PIV_PARAMETERS& pivParameters() const { return m_params; }
    // Stores the record with this field's grid inside it.
    void setPivParameters(const PIV_PARAMETERS& params);

    void setFlagRawData(bool on) { m_rawData = on; }
    void setFlagMultiplePeaks(bool on) { m_multiplePeaks = on; }
    void setFlagFileData(bool on) { m_fileData = on; }
    void setFlagIntermediateData(bool on) { m_intermediateData = on; }
    void setFlagConverted(bool on) { m_converted = on; }
    void setFlagValidated(bool on) { m_validated = on; }
    void setFlagDifferentiated(bool on) { m_differentiated = on; }
    void setFlagAllowPostProcess(bool on) { m_allowPostProcess = on; }
    void setFlagSkipValidation(bool on) { m_skipValidation = on; }
    bool haveRawData() const { return !isNull() && m_rawData; }
    bool haveMultiplePeaks() const { return !isNull() && m_multiplePeaks; }
    bool isFileData() const { return !isNull() && m_fileData; }
    bool isConverted() const { return !isNull() && m_converted; }
    bool isValidated() const { return !isNull() && m_validated; }
    bool isDifferentiated() const { return !isNull() && m_differentiated; }
    bool isIntermediateData() const { return m_intermediateData; }
    bool isPostProcessAllowed() const { return m_allowPostProcess; }
    bool needsValidation() const { return m_needsValidation; }
    bool needsConversion() const { return m_needsConversion; }
    bool needsDifferentiation() const { return m_needsDifferentiation; }

    // ---- operations -------------------------------------------------------
    // Moves a first peak nearer to zero displacement than `radius` to the
    // last place; the result is the number of nodes changed (14 without raw data).
    int eliminateSelfCorrelationPeaks(float radius);
    // Disables every node whose mask pixel at (ix, iy) is not 0.
    bool maskOutVectors(const Image2D& mask);
    // Physical values of every node under the parameters' conversion record.
    bool convert(const PIV_Parameters* parameters);
    // The fixed chain after an evaluation: validation, conversion,
    // differentiation, mask, statistics.
    bool postProcess(const PIV_Parameters* parameters, const Image2D* mask, bool force);

    // Minimum, maximum, mean and standard deviation over the enabled nodes,
    // and the counts by status. False (error 9) when no vector is enabled.
    bool doStatistics();
    const PIV_VECTOR& vectorMinimum() const { return m_stats[0]; }
    const PIV_VECTOR& vectorMaximum() const { return m_stats[1]; }
    const PIV_VECTOR& vectorMean() const { return m_stats[2]; }
    const PIV_VECTOR& vectorStdDev() const { return m_stats[3]; }
    unsigned long vectorsActive() const { return m_active; }
    unsigned long vectorsInterpolated() const { return m_interpolated; }
    unsigned long vectorsReplaced() const { return m_replaced; }
    unsigned long vectorsDisabled() const { return m_disabled; }
    unsigned long vectorsMasked() const { return m_masked; }

    PIVerror& error() { return m_error; }
    const char* getLastError() const { return m_error.getLastError(); }

private:
    bool inside(int row, int col, int t) const;
    bool alloc(const DATA_GRID4D& grid);

    DATA_GRID4D m_grid;
    std::vector<PIV_VECTOR> m_vectors;
    PIV_VECTOR m_null;
    PIV_PARAMETERS m_params;
    PIVerror m_error;
    uint32_t m_refCount = 1;
    int m_dataType = 0;
    int m_analysisMode = 1;
    int m_numberOfPeaks = 3;
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
    bool m_intermediateData = false;
    PIV_VECTOR m_stats[4];
    unsigned long m_active = 0, m_interpolated = 0, m_replaced = 0, m_disabled = 0, m_masked = 0;
};
