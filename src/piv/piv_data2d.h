// PIV_Data2D: the vector field the evaluation fills and the application
// shows. On top of PIV_DataBase it adds reference counting, access by row,
// column and time step, the nearest node to an image point and the fixed
// post-processing chain.
#pragma once

#include <cstdint>

#include "piv_database.h"

namespace PIVPLOT {
struct CONTOUR_CFG;
}

namespace PIV {
// The complementary error function of the Chauvenet test: a series below
// 2.2, a continued fraction above, both to 1e-12.
double erfc(double x);
}  // namespace PIV

// What a line or a closed shape gathers from the field. Lengths and areas
// are in grid units (pixels in pixel mode), the y axis points up, and
// closed paths are taken counter-clockwise in that frame.
struct INTEGRATION_DATA {
    double length;       // the line, or the perimeter
    double area;         // 0 for a line
    double circulation;  // the integral of u . dl along the path
    double entrainment;  // the net flux out of a shape; across a line, to its right
    int samples;         // path points that found enabled nodes
    int misses;          // path points with none near
};

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

    // ---- validation and outlier replacement ----------------------------------
    // Tags are one byte per node: 0 good or untested, 4 interpolated in this
    // pass, above 7 rejected. Tests return the number of vectors they reject.

    // Stores cfg as the field's record and validates; with `force` every
    // vector not edited by hand starts over from its first peak. A field
    // without raw data gives false.
    bool validate(const OUTLIER_CFG& cfg, bool force);
    // The pass loop: tests, lower peaks, interpolation, until nothing
    // changes. Returns the number of vectors left outlier, interpolated or
    // taken from a lower peak; -1 when out of memory.
    int validatePivData(const OUTLIER_CFG& cfg);
    // One round of every switched-on test; pass counts from 1.
    int detectOutliers(unsigned char* tags, int pass);
    int checkZeroLength(unsigned char* tags);
    int checkMagnitude(unsigned char* tags);
    int checkGradient(unsigned char* tags);
    int doChauvenetTest(unsigned char* tags);
    int doZScoreTest(unsigned char* tags);
    int checkMedian(unsigned char* tags);
    int checkNormalizedMedian(unsigned char* tags);
    int checkDynMean(unsigned char* tags);
    int checkGlobalHist(unsigned char* tags);
    int checkSNR(unsigned char* tags);
    int checkPeakRatio(unsigned char* tags, int pass);
    int checkMinCorrelation(unsigned char* tags, int pass);
    int check3CResiduals(unsigned char* tags, int pass);
    // Replaces the rejected nodes (tagged, or outside a validation the ones
    // flagged VECTOR_OUTLIER, with `editedOnly` also VECTOR_EDITED) by the
    // mean of their good neighbours or a Gaussian-weighted mean of the nodes
    // within four; returns how many, -1 when out of memory.
    int interpolateOutliers(bool editedOnly);
    int interpolateAllDisabled() { return interpolateOutliers(true); }
    // Fills disabled zero vectors of the first plane, as a mask leaves them,
    // from the enabled nodes of the 5 by 5 block around; returns how many.
    int interpolateMaskedVectors();
    // Disables enabled vectors farther than factor standard deviations from
    // the mean of a series in x or y; returns how many, -1 on error.
    int validateAgainstMean(const PIV_DataBase* mean, const PIV_DataBase* stdDev, float factor);
    const OUTLIER_CFG& outlierCfg() const { return m_params.outlier; }

    // ---- filters and differentials --------------------------------------------
    // The nine gradients of u, v (sx, sy for speckle data) by line integrals
    // around each interior node, in physical units; edges and outliers hold zeros.
    bool differentiate();
    // An 8-bit image of colour-table indices of the record's coding, over the
    // whole image or, with DataAreaOnly, the span of the nodes (piv_plot.h).
    bool createScalarImage(Image2D* image, const PIVPLOT::CONTOUR_CFG& cfg);
    // Median of the 3x3 (kernel below 4) or 5x5 neighbourhood of every
    // enabled vector; disabled vectors feed the medians but keep their
    // values. Once per field; the last argument has no effect.
    bool medianFilter(int kernel, bool unused = false);
    // Box mean of half-size kernel / 2, clipped at the edges; once per field.
    // Disabled vectors take part in the sums only with `useDisabled`; only
    // enabled vectors take the result.
    bool smooth(int kernel, bool useDisabled = false);
    // Gaussian of the given width in nodes, cut where the weight falls to
    // cutOff (0 < cutOff <= 1); once per field, as is smooth, with the same
    // rule for disabled vectors.
    bool smoothGauss(double width, double cutOff, bool useDisabled = false);
    // ---- between grids (piv_data2d_interp.cpp) -----------------------------
    // The displacement at image point (x, y) of step t, bilinear between the
    // four surrounding nodes by the grid's first node and step. Disabled
    // nodes (without VECTOR_ENABLED) are left out and the weights of the
    // others renormalised; false when none of the four is enabled, or for a
    // null field. Outside the grid the point is moved onto the nearest edge
    // of the node hull, so the outermost nodes extend as constants.
    bool interpolateVector(double x, double y, int t, double* dx, double* dy) const;
    // Takes the displacements of `source` at this field's nodes: node by
    // node on the same grid, otherwise interpolated with `method` (a
    // PIV::InterpolationMethod; 2 B-spline, others bilinear). With `add`
    // they are added to what the nodes hold. Every peak takes the new
    // displacement with snr as value. Error 14 when this field has more time
    // steps than a multi-step source.
    bool updateShift(const PIV_DataBase& source, bool add, int method);

    // ---- integrals over shapes (piv_data2d_integrate.cpp) ------------------
    // Shapes are given in image pixels, origin at the top left. `physical`
    // uses u, v and the length conversion; otherwise dx, dy and pixels. The
    // velocity on the path is bilinear between the enabled nodes around each
    // point. False, with error 14, on a null field or a shape of no extent.
    bool integrateLine(int t, FPOINT2D p1, FPOINT2D p2, INTEGRATION_DATA& out,
                       bool physical = true);
    bool integrateRect(int t, float left, float top, float width, float height,
                       INTEGRATION_DATA& out, bool physical = true);
    // The ellipse inside the rectangle.
    bool integrateEllipse(int t, float left, float top, float width, float height,
                          INTEGRATION_DATA& out, bool physical = true);
    // The closed polygon through the points, in either direction.
    bool integratePolygon(int t, const FPOINT2D* points, int count, INTEGRATION_DATA& out,
                          bool physical = true);

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
    bool readEUROPIV(PIV_NcFile& file, PIV_PARAMETERS& params, SIZE3D& imageSize, bool sizeKnown);
    bool readPIVNET2(PIV_NcFile& file, PIV_PARAMETERS& params, SIZE3D& imageSize, bool sizeKnown);

private:
    bool inside(int row, int col, int t) const;
    // The path integral over a polyline; `closed` joins the last point to
    // the first and fills in area and flux.
    bool integratePath(int t, const FPOINT2D* points, int count, bool closed, INTEGRATION_DATA& out,
                       bool physical, const char* name);
    // The field bilinear at an image point; false when no enabled node is near.
    bool velocityAt(double x, double y, int t, bool physical, double* u, double* v) const;
    // The tags array of validation, sized to the nodes; false when out of memory.
    bool allocTags();

    uint32_t m_refCount = 1;
};
