// Mapping functions between the object plane and a recorded image, fitted to
// calibration points, and the plain record that carries a fitted mapping
// through files and into the resampler (Image2D_Map2D).
//
// Direction: a mapping used for dewarping takes a pixel (X, Y) of the
// dewarped image, that is the object position (object + offset) *
// magnification, to the position (x, y) in the recorded image. The fits give
// that direction with their `inverse` flag set, as CalculateProjectionMatrix
// asks; without it they fit the other way round, from image position to
// dewarped pixel, with the same forms.
#pragma once

#include <cstdint>
#include <cstdio>
#include <vector>

#include "piv_error.h"
#include "piv_lmfit.h"
#include "piv_record.h"
#include "piv_types.h"

class ASCIIParFile;

namespace PIV {

enum MappingType {
    MAPPING_POLYNOMIAL = 0,
    MAPPING_NONLINEAR1 = 1,
    MAPPING_NONLINEAR_MIX1_2 = 2,
    MAPPING_NONLINEAR_MIX2_1 = 3,
    MAPPING_NONLINEAR2 = 4,
    MAPPING_DLT = 5,
    MAPPING_TSAI = 6,
};

// Highest polynomial degree and its number of terms, (d + 1)(d + 2) / 2.
constexpr int MaxMappingOrder = 5;
constexpr int MaxMappingCoeffs = 21;
int ClipMappingOrder(int order);
inline int MappingCoeffCount(int order) {
    const int d = ClipMappingOrder(order);
    return (d + 1) * (d + 2) / 2;
}

// The first `count` terms of a polynomial with coefficients c at (x, y);
// terms by rising degree, within a degree by falling power of x: 1, x, y,
// x^2, xy, y^2, ...
double EvaluatePolynomial2D(const double* c, int count, double x, double y);

}  // namespace PIV

// One calibration point: where it was seen in the image and where it lies
// on the object.
struct POINT_PAIR {
    double x, y;     // image position, pixels
    double X, Y, Z;  // object position
    double weight;   // not used by the fits; kept with the point

    POINT_PAIR() { PIV::ZeroRecord(*this); }
    POINT_PAIR(double ix, double iy, double ox, double oy, double oz = 0.0) : POINT_PAIR() {
        x = ix;
        y = iy;
        X = ox;
        Y = oy;
        Z = oz;
    }
};
static_assert(std::is_trivially_copyable<POINT_PAIR>::value, "POINT_PAIR is a plain record");

struct MAPPING_FXN_2D {
    int32_t maptype;   // PIV::MappingType
    int32_t maporder;  // polynomial degree
    int32_t maporderY;
    double magnification;  // pixels of the dewarped image per object unit
    int32_t dest_img_width, dest_img_height;
    double obj_x_offset, obj_y_offset;  // added to object positions before scaling
    double rotation;
    // Groups of six: coefficients of X, Y, the constant, X^2, Y^2 and XY.
    double a00, a01, a03, a04, a05, a06;  // numerator of x
    double a10, a11, a13, a14, a15, a16;  // numerator of y
    double a30, a31, a33, a34, a35, a36;  // denominator
    int32_t px_order, px_count;
    double px[PIV::MaxMappingCoeffs];
    int32_t py_order, py_count;
    double py[PIV::MaxMappingCoeffs];

    // Zero-filled: a polynomial mapping with no terms, which IsValidMapping
    // refuses.
    MAPPING_FXN_2D() { PIV::ZeroRecord(*this); }

    // The image position of dewarped pixel (X, Y). A denominator of exactly
    // 0 gives the position 0.
    FPOINT2D mappedPoint(FPOINT2D p) const;
    void mappedPoint(double X, double Y, double& x, double& y) const;
    // Sets the three degree fields and both counts by the clipping rule.
    void setOrder(int order);
};
static_assert(std::is_trivially_copyable<MAPPING_FXN_2D>::value,
              "MAPPING_FXN_2D is a plain record");

struct MAPPING_PARAMS {
    int32_t type;
    int32_t order, orderX, orderY;
    double scale;  // the magnification of the dewarped image
    int32_t destWidth, destHeight, destDepth;
    double offset[3];  // object offsets
    float angle[3];
    int32_t flags;

    MAPPING_PARAMS();
};
static_assert(std::is_trivially_copyable<MAPPING_PARAMS>::value,
              "MAPPING_PARAMS is a plain record");

// Least-squares polynomial of one value over two coordinates.
class LinearLsqFit2D {
public:
    LinearLsqFit2D() : m_error("LinearLsqFit2D") {}

    // Clipped to 0..5.
    void setFitOrder(int order);
    int fitOrder() const { return m_order; }
    int coeffCount() const { return PIV::MappingCoeffCount(m_order); }
    const double* coefficients() const { return m_coeffs; }

    // Fits value(x, y); order 0 is the mean. Fewer points than terms is an
    // error. Solved by Householder QR on equilibrated columns, since the
    // monomials of pixel coordinates span many decades.
    bool fitToData(const double* x, const double* y, const double* value, int count);
    double evaluate(double x, double y) const;

    PIVerror& error() { return m_error; }

private:
    PIVerror m_error;
    int m_order = 1;
    double m_coeffs[PIV::MaxMappingCoeffs] = {};
};

class MappingFunctionBase {
public:
    MappingFunctionBase();
    virtual ~MappingFunctionBase() = default;

    // ---- calibration points --------------------------------------------
    bool alloc(int count);
    bool grow(int extra);
    bool addPoint(const POINT_PAIR& p);
    bool setCalibrationPoints(const POINT_PAIR* points, int count);
    void clearPoints();
    int pointCount() const { return static_cast<int>(m_points.size()); }
    const POINT_PAIR* points() const { return m_points.data(); }

    // 1: image y counts from the bottom, a point's y being taken as
    // source height - 1 - y.
    void setOriginMode(int mode) { m_originMode = mode; }
    int originMode() const { return m_originMode; }
    void setSourceImageSize(const SIZE2D& size) { m_sourceSize = size; }
    SIZE2D sourceImageSize() const { return m_sourceSize; }

    // Marks the fit stale only when the record really differs.
    void setMappingParams(const MAPPING_PARAMS& params);
    const MAPPING_PARAMS& mappingParams() const { return m_params; }

    bool isValid() const { return m_valid; }
    bool needsNewFit() const { return m_needsFit; }

    // At least 8 points, not all on one line of X or Y (or Z with needDepth).
    bool isCalibrationDataValid(bool needDepth);
    // All points on one object plane of constant Z.
    bool isCalibrationDataCoplanar();

    PIVerror& error() { return m_error; }

protected:
    std::vector<POINT_PAIR> m_points;
    int m_originMode;
    SIZE2D m_sourceSize;
    bool m_valid;
    bool m_needsFit;
    PIVerror m_error;
    PIV::LmWorkspace m_workspace;
    MAPPING_PARAMS m_params;
};

class MappingFunction2D : public MappingFunctionBase {
public:
    MappingFunction2D() = default;

    // Fits the mapping of `type` (0 polynomial of the orders, 1 to 4 the
    // rational forms) to the points; see the file comment for `inverse`.
    // The result is the valid flag; a failed fit leaves the earlier mapping.
    bool calculateMapping(int type, int orderX, int orderY, bool inverse);

    FPOINT2D mappedPoint2D(double X, double Y) const;
    double mappedX(double X, double Y) const;
    double mappedY(double X, double Y) const;

    const MAPPING_FXN_2D& mapping() const { return m_map; }
    void setMapping(const MAPPING_FXN_2D& map) { m_map = map; }

    // Root-mean-square and largest distance between the mapped points and
    // their fitted values, in the units of the fitted values.
    bool calculateResiduals(double& rms, double& maximum) const;

    // Magnification and offsets such that the object area seen by an image
    // of `size` fills the destination size of the parameters; the caller
    // fits again afterwards. Needs points and a valid rational or polynomial
    // type.
    bool bestFitToImage(const SIZE2D& size);

private:
    // The fitted value (u, v) and argument (X, Y) of point i.
    void pointData(int i, bool inverse, double& X, double& Y, double& u, double& v) const;
    bool doLinearFit(int orderX, int orderY, bool inverse);
    bool doZerothOrderFit(bool inverse);
    bool doNonlinearFit(bool inverse);
    bool lmFit(int type, int parameters, double* p, bool inverse);
    static int residuals(void* user, int m, int n, const double* p, double* fvec, int iflag);

    LinearLsqFit2D m_fitX, m_fitY;
    MAPPING_FXN_2D m_map;
    bool m_inverse = true;
    int m_fitType = 0;

    struct LmContext;
};

namespace PIV {

// Fits `type` to the points into `map`, taking the destination size,
// magnification and offsets from `map`; the mapping goes from dewarped
// pixels to image positions.
bool CalculateProjectionMatrix(const POINT_PAIR* points, int count, MAPPING_FXN_2D* map,
                               MappingType type, int orderX, int orderY);

// Text files of "x y X Y Z" lines; "#" and "%" start comment lines. The
// points are allocated with new[] and belong to the caller.
bool LoadCalibrationPoints(const char* fileName, POINT_PAIR** points, int* count);
bool SaveCalibrationPoints(const char* fileName, const POINT_PAIR* points, int count,
                           bool withHeader);

// The coefficient keys of a mapping, read or written by the file's mode, in
// the group given (e.g. "View0_"); reading a "maporder" sets every degree
// field. One function for both directions keeps the keys in step.
bool SerializeProjectionMatrix(ASCIIParFile& file, MAPPING_FXN_2D* map, const char* group);
bool SaveProjectionMatrix(const MAPPING_FXN_2D* map, const char* fileName,
                          const char* group = nullptr);
bool ReadProjectionMatrix(MAPPING_FXN_2D* map, const char* fileName, const char* group = nullptr);
void PrintProjectionMatrix(const MAPPING_FXN_2D* map, std::FILE* out, const char* prefix);

// False for the identity of its type (and for an empty polynomial).
bool IsValidMapping(const MAPPING_FXN_2D* map);
// result = (1 - weight) a + weight b, coefficient by coefficient; both of
// one type and order.
bool CombineProjectionMatrices(const MAPPING_FXN_2D* a, const MAPPING_FXN_2D* b,
                               MAPPING_FXN_2D* result, double weight);
// The mapping of the other direction: exact for type 1, fitted over a
// 21 x 21 sample of the destination for the others.
bool ComputeInverseProjectionMatrix(const MAPPING_FXN_2D* map, MAPPING_FXN_2D* result);

}  // namespace PIV
