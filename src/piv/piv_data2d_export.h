// What the Tecplot, text and Challenge writers share: the kind of data a
// field holds, the status number files carry, the derived quantities of a
// node, the composed title and the description of each named variable.
#pragma once

#include <string>

#include "piv_database.h"

namespace PIV {
namespace Export {

// The three kinds of data a file can carry, and its dimensionality. `isRaw`
// and `isVelocity` follow the data type bits unless StoreRawData forces raw
// pixel displacements; speckle data is neither raw nor velocity.
struct DataKind {
    bool isRaw = false;
    bool isVelocity = false;
    bool isRMS = false;
    bool is3D = false;
    bool is3C = false;
};
DataKind GetDataKind(const PIV_DataBase& data, const OUTPUT_CFG& cfg);

// Status number of a node: 0 disabled, 1 no result, 2 outlier, 3 valid,
// 4 other peak, 5 interpolated (2 when `interpolatedAsOutlier`).
int _convertFlag(const PIV_VECTOR& v, bool interpolatedAsOutlier);

// A node the skipping writers leave out: masked, without result, outlier,
// or no displacement at all.
bool IsSkippedNode(const PIV_VECTOR& v);

// Vorticity, shear and the other values computed from the gradients; the
// discriminant and lambda2 are kept as the NetCDF writer computes them.
struct DerivedValues {
    float vort[3];
    float vortMag;
    float shear[3];
    float nstrain;
    float enstrophy;
    float discriminant;
    float lambda2;
};
DerivedValues Derive(const DIFFERENTIALS& d);

// What a writer can put into a file for one node. The numbers are those of
// the binary Tecplot writer's runs; each writer names its own variables and
// takes their values from NodeValue, so a quantity is computed one way in
// every file.
enum PIV_VECTOR_VAR {
    VV_COLUMN = 0,
    VV_ROW,
    VV_DEPTH,
    VV_X,
    VV_Y,
    VV_Z,
    VV_TIME,
    VV_FLAG,
    VV_COUNT,
    VV_DX,  // dx, dy, dz and the magnitude; then u, v, w and theirs; sx...
    VV_DY,
    VV_DZ,
    VV_DMAG,
    VV_U,
    VV_V,
    VV_W,
    VV_VMAG,
    VV_SX,
    VV_SY,
    VV_SZ,
    VV_SMAG,
    VV_SNR,
    VV_CORR,
    VV_RESIDUAL,
    VV_VORT_X,
    VV_VORT_Y,
    VV_VORT_Z,
    VV_SHEAR_X,
    VV_SHEAR_Y,
    VV_SHEAR_Z,
    VV_NSTRAIN,
    VV_ENSTROPHY,
    VV_DISCRIMINANT,
    VV_LAMBDA2,
    VV_DUDX,  // to VV_DUDX + 8, in the order of DIFFERENTIALS
};

// The value of `var` at a node, as stored: column, row and depth are the
// node's image position, `corr` is not scaled, and time, flag and count,
// which no node holds as a float, give 0.
double NodeValue(int var, const PIV_VECTOR& p, const DIFFERENTIALS& d = DIFFERENTIALS());

// The file title: the configured one when longer than one character, else
// the composed text for the kind of data, with " : baseName" when given.
std::string _TecplotFileTitle(const OUTPUT_CFG& cfg, const char* baseName, bool isRaw,
                              bool isVelocity, bool isRMS);

// The file name without folder and extension.
std::string BaseName(const char* path);

struct DATA_VARIABLE_INFO {
    int32_t type;
    char name[2048];
    char unit[16];
    char description[160];
};
// Name and description of one PIV::DataVariableType; quantities with a
// unit read "<description> in [<unit>]".
void _getVarInfo(DATA_VARIABLE_INFO& info, int type, const char* unit);

// Planes, rows and columns a writer visits, each axis at its own step.
struct Walk {
    int nx, ny, nz;
    int sx, sy, sz;
    int visitedX() const { return (nx + sx - 1) / sx; }
    int visitedY() const { return (ny + sy - 1) / sy; }
    int visitedZ() const { return (nz + sz - 1) / sz; }
};
Walk MakeWalk(const DATA_GRID4D& grid, const OUTPUT_CFG& cfg);

// A requested time step as a writer uses it: beyond the last gives the
// last, a negative one the first.
int ClampStep(int step, int steps);

}  // namespace Export
}  // namespace PIV
