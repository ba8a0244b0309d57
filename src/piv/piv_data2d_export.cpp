#include "piv_data2d_export.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "piv_messages.h"

namespace PIV {
namespace Export {

DataKind GetDataKind(const PIV_DataBase& data, const OUTPUT_CFG& cfg) {
    DataKind k;
    const int type = data.dataType();
    k.isRMS = (type & DATA_RMS) != 0;
    k.isVelocity = (type & DATA_VELOCITY) != 0;
    k.isRaw = (type & (DATA_VELOCITY | DATA_SPECKLE)) == 0;
    if (cfg.StoreRawData) {
        k.isRaw = true;
        k.isVelocity = false;
        DebugPrint("\tstoring raw data");
    }
    k.is3D = data.grid().nodes.depth > 1 || cfg.StoreZCoords;
    k.is3C = data.is3C();
    return k;
}

int _convertFlag(const PIV_VECTOR& v, bool interpolatedAsOutlier) {
    if (v.dx == 0.0f && v.dy == 0.0f) return 0;
    if (v.flag & VECTOR_MASKED) return 0;
    if (v.flag & VECTOR_NO_RESULT) return 1;
    if (v.flag & VECTOR_OUTLIER) return 2;
    if (v.flag & VECTOR_LOWER_PEAK) return 4;
    if (v.flag & VECTOR_INTERPOLATED) return interpolatedAsOutlier ? 2 : 5;
    if (v.flag & VECTOR_ENABLED) return 3;
    return 0;
}

bool IsSkippedNode(const PIV_VECTOR& v) {
    return (v.flag & (VECTOR_MASKED | VECTOR_NO_RESULT | VECTOR_OUTLIER)) != 0 ||
           (v.dx == 0.0f && v.dy == 0.0f);
}

DerivedValues Derive(const DIFFERENTIALS& d) {
    DerivedValues r;
    r.vort[0] = d.dwdy - d.dvdz;
    r.vort[1] = d.dudz - d.dwdx;
    r.vort[2] = d.dvdx - d.dudy;
    r.vortMag = std::sqrt(r.vort[0] * r.vort[0] + r.vort[1] * r.vort[1] + r.vort[2] * r.vort[2]);
    r.shear[0] = d.dvdz + d.dwdy;
    r.shear[1] = d.dudz + d.dwdx;
    r.shear[2] = d.dudy + d.dvdx;
    r.nstrain = d.dudx + d.dvdy + d.dwdz;
    r.enstrophy = 0.5f * (r.vort[0] * r.vort[0] + r.vort[1] * r.vort[1] + r.vort[2] * r.vort[2]);
    // Not the textbook invariants; files written before keep these values.
    const float a = d.dudx * d.dvdy;
    const float b = d.dudy * d.dvdx;
    r.discriminant = a * a - 4.0f * (a - b);
    r.lambda2 = d.dudx * d.dudy + d.dudy * d.dvdx;
    return r;
}

double NodeValue(int var, const PIV_VECTOR& p, const DIFFERENTIALS& d) {
    if (var >= VV_DUDX && var < VV_DUDX + 9) return Gradient(d, var - VV_DUDX);
    if (var >= VV_DX && var <= VV_SMAG) {
        const int triple = (var - VV_DX) / 4, c = (var - VV_DX) % 4;
        if (c < 3) return Component(p, triple, c);
        double sum = 0.0;
        for (int i = 0; i < 3; i++)
            sum += double(Component(p, triple, i)) * Component(p, triple, i);
        return std::sqrt(sum);
    }
    if (var >= VV_VORT_X) {
        const DerivedValues r = Derive(d);
        if (var <= VV_VORT_Z) return r.vort[var - VV_VORT_X];
        if (var <= VV_SHEAR_Z) return r.shear[var - VV_SHEAR_X];
        switch (var) {
            case VV_NSTRAIN:
                return r.nstrain;
            case VV_ENSTROPHY:
                return r.enstrophy;
            case VV_DISCRIMINANT:
                return r.discriminant;
            case VV_LAMBDA2:
                return r.lambda2;
            default:
                return 0.0;
        }
    }
    switch (var) {
        case VV_COLUMN:
            return p.ix;
        case VV_ROW:
            return p.iy;
        case VV_DEPTH:
            return p.iz;
        case VV_X:
            return p.x;
        case VV_Y:
            return p.y;
        case VV_Z:
            return p.z;
        case VV_SNR:
            return p.snr;
        case VV_CORR:
            return p.corr;
        case VV_RESIDUAL:
            return p.residual;
        default:
            return 0.0;
    }
}

std::string _TecplotFileTitle(const OUTPUT_CFG& cfg, const char* baseName, bool isRaw,
                              bool isVelocity, bool isRMS) {
    if (std::strlen(cfg.Title) > 1) return cfg.Title;
    std::string title;
    if (isVelocity)
        title = isRMS ? "PIV RMS-Velocity Data" : "PIV Velocity Data";
    else if (isRaw)
        title = isRMS ? "PIV RMS-Displacement Data" : "PIV Displacement Data";
    else
        title = isRMS ? "RMS Speckle Displacement Data" : "Speckle Displacement Data";
    if (baseName && *baseName) title += std::string(" : ") + baseName;
    return title;
}

std::string BaseName(const char* path) {
    std::string name = path ? path : "";
    const std::size_t slash = name.find_last_of("/\\");
    if (slash != std::string::npos) name = name.substr(slash + 1);
    const std::size_t dot = name.find_last_of('.');
    if (dot != std::string::npos && dot > 0) name = name.substr(0, dot);
    return name;
}

namespace {

struct Description {
    int type;
    const char* text;
    bool withUnit;
};

// "conponent", "displcement" and "voritcity" are what readers of earlier
// files search for; they stay as they are.
const Description kDescriptions[] = {
    {VAR_FLAG,
     "status flag: 0=Disabled, 1=NoResult, 2=Outlier, 3=ValidData, 4=OtherPeak, 5=Interpolated",
     false},
    {VAR_CORR, "correlation coefficient", false},
    {VAR_SNR, "signal-to-noise ratio", false},
    {VAR_COUNT, "number of valid data at node", false},
    {VAR_VALID, "validation_rate between 0 and 1", false},
    {VAR_TIME, "time", true},
    {VAR_IX, "image coordinate X", true},
    {VAR_IY, "image coordinate Y", true},
    {VAR_IZ, "image coordinate Z", true},
    {VAR_X, "physical coordinate X", true},
    {VAR_Y, "physical coordinate Y", true},
    {VAR_Z, "physical coordinate Z", true},
    {VAR_DX, "displacement conponent X", true},
    {VAR_DY, "displacement conponent Y", true},
    {VAR_DZ, "displacement conponent Z", true},
    {VAR_MAG, "displcement magnitude", true},
    {VAR_U, "velocity conponent X", true},
    {VAR_V, "velocity conponent Y", true},
    {VAR_W, "velocity conponent Z", true},
    {VAR_VELMAG, "velocity magnitude", true},
    {VAR_SX, "displacement conponent X", true},
    {VAR_SY, "displacement conponent Y", true},
    {VAR_SZ, "displacement conponent Z", true},
    {VAR_SMAG, "displacement magnitude", true},
    {VAR_DUDX, "velocity gradient du/dx", true},
    {VAR_DUDY, "velocity gradient du/dy", true},
    {VAR_DUDZ, "velocity gradient du/dz", true},
    {VAR_DVDX, "velocity gradient dv/dx", true},
    {VAR_DVDY, "velocity gradient dv/dy", true},
    {VAR_DVDZ, "velocity gradient dv/dz", true},
    {VAR_DWDX, "velocity gradient dw/dx", true},
    {VAR_DWDY, "velocity gradient dw/dy", true},
    {VAR_DWDZ, "velocity gradient dw/dz", true},
    {VAR_VORT_X, "voritcity component X", false},
    {VAR_VORT_Y, "voritcity component Y", false},
    {VAR_VORT_Z, "voritcity component Z", false},
    {VAR_VORT_MAG, "voritcity magnitude", false},
    {VAR_SHEAR_X, "shear strain component X", false},
    {VAR_SHEAR_Y, "shear strain component y", false},
    {VAR_SHEAR_Z, "shear strain component z", false},
    {VAR_NSTRAIN, "normal strain", false},
};

}  // namespace

void _getVarInfo(DATA_VARIABLE_INFO& info, int type, const char* unit) {
    std::memset(&info, 0, sizeof(info));
    info.type = type;
    std::snprintf(info.name, sizeof(info.name), "%s", GetVariableNameFromType(type));
    std::snprintf(info.unit, sizeof(info.unit), "%s", unit ? unit : "");
    const auto it = std::find_if(std::begin(kDescriptions), std::end(kDescriptions),
                                 [type](const Description& d) { return d.type == type; });
    if (it == std::end(kDescriptions)) {
        std::snprintf(info.description, sizeof(info.description), "none");
        return;
    }
    if (it->withUnit)
        std::snprintf(info.description, sizeof(info.description), "%s in [%s]", it->text,
                      info.unit);
    else
        std::snprintf(info.description, sizeof(info.description), "%s", it->text);
}

Walk MakeWalk(const DATA_GRID4D& grid, const OUTPUT_CFG& cfg) {
    Walk w;
    w.nx = std::max(1, grid.nodes.width);
    w.ny = std::max(1, grid.nodes.height);
    w.nz = std::max(1, grid.nodes.depth);
    w.sx = std::max(1, int(cfg.DesampleX));
    w.sy = std::max(1, int(cfg.DesampleY));
    w.sz = std::max(1, int(cfg.DesampleZ));
    return w;
}

int ClampStep(int step, int steps) {
    return std::max(0, std::min(step, steps - 1));
}

}  // namespace Export
}  // namespace PIV
