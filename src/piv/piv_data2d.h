// PIV_Data2D: the vector field the evaluation fills and the application
// shows. On top of PIV_DataBase it adds reference counting, access by row,
// column and time step, the nearest node to an image point and the fixed
// post-processing chain.
#pragma once

#include <cstdint>

#include "piv_database.h"

class PIV_Data2D : public PIV_DataBase {
public:
    PIV_Data2D();
    // Nodes laid on the grid, all disabled (see initializeGrid).
    explicit PIV_Data2D(const DATA_GRID4D& grid);
    // Loads the file (see load); a failure leaves the field empty.
    explicit PIV_Data2D(const char* fileName);
    PIV_Data2D(const PIV_Data2D&) = delete;
    // PIV_DataBase::copy; the reference count stays this object's own.
    PIV_Data2D& operator=(const PIV_Data2D& other);
    ~PIV_Data2D() override = default;

    uint32_t addRef() { return ++m_refCount; }
    // Deletes the object when the last reference goes; returns the count left.
    uint32_t release();

    // initializeGrid with one plane: a PIV_Data2D is planar.
    bool create(const DATA_GRID4D& grid);
    // The physical z of every node and the z origin of the conversion.
    void setPositionZ(double z);

    // A row is a y index, a col an x index; a negative t counts as 0.
    // Outside the grid the object's null vector comes back.
    PIV_VECTOR getVector2D(int row, int col, int t = 0) const;
    // 14 without data, 18 outside the grid, 0 on success.
    PIVerror::ErrorType setVector2D(const PIV_VECTOR& vector, int row, int col, int t = 0);
    // The node itself, with the indices clamped into the grid; null on a
    // null field. Note the argument order: column first.
    PIV_VECTOR* pivVector(int col, int row, int t = 0);
    // Like the vector accessors; an all-zero record outside the grid or
    // without differentials.
    DIFFERENTIALS getDifferentials2D(int row, int col, int t = 0) const;
    PIVerror::ErrorType setDifferentials2D(const DIFFERENTIALS& d, int row, int col, int t = 0);

    // Array index of a node. Time planes are nx*nx apart, not nx*ny: that is
    // the layout of the store, and it shows only for t above 0.
    long index2D(int row, int col, int t) const;

    // Index of the node whose cell holds the image point (x, y) at step t,
    // by the node spacing read from the data; 0 and *found false when the
    // point lies off the grid or the grid has no spacing.
    long nearestVectorIndex(int x, int y, int t, bool* found) const;
    // The node there, or a zero vector with flag 12.
    PIV_VECTOR nearestVector(int x, int y, int t = 0) const;
    // The differentials there, or zeros.
    DIFFERENTIALS nearestDifferentials(int x, int y, int t = 0) const;

    // The fixed chain after an evaluation: validation, conversion,
    // differentiation, mask, statistics.
    bool postProcess(const PIV_Parameters* parameters, const Image2D* mask, bool force);

    // ---- files ------------------------------------------------------------
    // By cfg.OutputFormat: 0 and 1 Tecplot text, 2 Tecplot binary (point
    // form when skipping outliers or asked for), 3 native NetCDF, 4 PIVNET2;
    // anything else fails (error 24).
    bool save(const char* fileName, int timeStep, const OUTPUT_CFG& cfg);
    // The steps first to last (inclusive) as zones of one Tecplot binary
    // file in block form.
    bool saveSequenceTecplotBinary(const char* fileName, int first, int last);
    // A Tecplot macro that loads `dataFile` and shows it as vectors over
    // contours; `name` only labels the debug output.
    bool saveTecPlotLayout(const char* layoutFile, const char* dataFile, const char* name,
                           const OUTPUT_CFG& cfg);
    // A NetCDF data file of either layout, with the parameters it holds.
    bool load(const char* fileName);
    bool read(const char* fileName) { return load(fileName); }
    // The vector quantities of a native-layout file; -1 reads all steps.
    bool readVectorData(PIV_NcFile& file, int timeStep);
    bool readEUROPIV(PIV_NcFile& file, PIV_PARAMETERS& params, SIZE3D& imageSize,
                     bool sizeKnown);
    bool readPIVNET2(PIV_NcFile& file, PIV_PARAMETERS& params, SIZE3D& imageSize,
                     bool sizeKnown);

private:
    bool inside(int row, int col, int t) const;

    uint32_t m_refCount = 1;
};
