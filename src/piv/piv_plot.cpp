// Names of the plot codings and the values they take at one node.
#include "piv_plot.h"

#include <cmath>

namespace {
const char* const kCodingNames[PIVPLOT::CC_COUNT] = {
    "Magnitude",
    "Signal-to-Noise Ratio",
    "Correlation Coefficient",
    "Vorticity (dv/dx - du/dy)",
    "Shear Strain (dv/dx + du/dy)",
    "Normal Strain (du/dx + dv/dy)",
    "Enstrophy (Vorticity^2)",
    "Discriminant of gradient tensor",
    "(du/dx)^2 + (du/dy . dv/dx)",
    "X-Component",
    "Y-Component",
    "Z-Component (Out-of-Plane)",
    "Vector Count (Avg.Files only)",
    "3-C Vector Residuals",
    "Gradient du/dx",
    "Gradient du/dy",
    "Gradient dv/dx",
    "Gradient dv/dy",
    "Gradient du/dz",
    "Gradient dv/dz",
    "Gradient dw/dx",
    "Gradient dw/dy",
    "Gradient dw/dz",
};
}  // namespace

const char* PIVPLOT::ColorCodingName(int coding) {
    return coding >= 0 && coding < CC_COUNT ? kCodingNames[coding] : "";
}

bool PIVPLOT::NeedsDifferentials(int coding) {
    return (coding >= CC_VORTICITY && coding <= CC_SECOND_INVARIANT) ||
           (coding >= CC_DUDX && coding < CC_COUNT);
}

float _GetCornerVector(const PIV_VECTOR& v, int coding, int mode) {
    using namespace PIVPLOT;
    const bool shift = mode == CONVERT_SHIFT, velocity = mode == CONVERT_VELOCITY;
    const float x[3] = {shift      ? v.sx
                        : velocity ? v.u
                                   : v.dx,
                        shift      ? v.sy
                        : velocity ? v.v
                                   : v.dy,
                        shift      ? v.sz
                        : velocity ? v.w
                                   : v.dz};
    switch (coding) {
        case CC_MAGNITUDE:
            return std::sqrt(x[0] * x[0] + x[1] * x[1]);
        case CC_SNR:
            return v.snr;
        case CC_CORRELATION:
            return v.corr;
        case CC_X_COMPONENT:
            return x[0];
        case CC_Y_COMPONENT:
            return x[1];
        case CC_Z_COMPONENT:
            return x[2];
        case CC_VECTOR_COUNT:
            return static_cast<float>(v.count);
        case CC_RESIDUALS:
            return v.residual;
        default:
            return 0.0f;
    }
}

float _GetCornerDifferential(const DIFFERENTIALS& d, int coding) {
    using namespace PIVPLOT;
    const float vorticity = d.dvdx - d.dudy;
    const float divergence = d.dudx + d.dvdy;
    switch (coding) {
        case CC_VORTICITY:
            return vorticity;
        case CC_SHEAR_STRAIN:
            return d.dvdx + d.dudy;
        case CC_NORMAL_STRAIN:
            return divergence;
        case CC_ENSTROPHY:
            return vorticity * vorticity;
        // Of the characteristic equation of the 2x2 tensor: complex roots, a
        // swirl, where it is negative.
        case CC_DISCRIMINANT:
            return divergence * divergence - 4.0f * (d.dudx * d.dvdy - d.dudy * d.dvdx);
        case CC_SECOND_INVARIANT:
            return d.dudx * d.dudx + d.dudy * d.dvdx;
        case CC_DUDX:
            return d.dudx;
        case CC_DUDY:
            return d.dudy;
        case CC_DVDX:
            return d.dvdx;
        case CC_DVDY:
            return d.dvdy;
        case CC_DUDZ:
            return d.dudz;
        case CC_DVDZ:
            return d.dvdz;
        case CC_DWDX:
            return d.dwdx;
        case CC_DWDY:
            return d.dwdy;
        case CC_DWDZ:
            return d.dwdz;
        default:
            return 0.0f;
    }
}
