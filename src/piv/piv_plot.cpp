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

namespace {

PIVPLOT::LUT_CFG colourBar(int choice, double maxValue, double increment) {
    PIVPLOT::LUT_CFG l;
    l.PalLength = 256;
    l.Index = choice;
    l.ValueMax = maxValue;
    l.ValueIncr = increment;
    l.Levels = 256;
    l.PosX = 20;
    l.PosY = 20;
    l.Orientation = 1;  // vertical
    l.Frame = true;
    l.FillBkgd = true;
    l.Color = 0xff000000;
    l.ColorBkgd = 0xffffffff;
    l.Length = 256;
    l.Width = 20;
    l.LineWidth = 1.0f;
    l.ShowTitle = true;
    l.ShowLabels = true;
    l.MinorTicks = 4;
    l.MinorTicksShow = true;
    return l;
}

PIVPLOT::AXIS_CFG axis(const char* title, const char* physTitle) {
    PIVPLOT::AXIS_CFG a;
    a.ShowTitle = true;
    PIV::CopyText(a.Title, title);
    PIV::CopyText(a.PhysTitle, physTitle);
    a.TitleSize = 12;
    a.LabelSize = 10;
    a.MinorTicks = 4;
    a.MinorTickSize = 3;
    a.MajorTickSize = 6;
    a.ShowLabels = true;
    a.PixIncr = 100;
    a.PhysIncr = 10;
    a.LineWidth = 1.0f;
    return a;
}

}  // namespace

PIVPLOT::PLOT_CFG PIVPLOT::DefaultPlotCfg() {
    PLOT_CFG c;
    PIV::CopyText(c.Font, "Sans");
    for (ANNOTATION_CFG* a : {&c.logo, &c.background, &c.overlay, &c.title, &c.subTitle}) {
        a->Size = 12;
        a->PosX = 20;
        a->PosY = 20;
    }
    c.title.Size = 16;
    c.subTitle.PosY = 44;

    c.image.Show = true;
    c.image.PalLen = 256;
    c.image.MaskOpacity = 0.5;
    c.image.lut = colourBar(0, 255, 50);
    c.image.opacity.Opacity = 1.0;

    VECTOR_CFG& v = c.vector;
    v.Show = true;
    v.ColorCode = 14;  // by validation: valid, outlier, replaced
    v.MaxVector = 1000;
    v.MaxColor = 10;
    v.Stretch = 4;
    v.SkipX = v.SkipY = 1;
    v.HeadWidth = 0.15;
    v.HeadLength = 0.3;
    v.FillArrowHead = true;
    v.LineWidth = 1.0f;
    v.UniformHeadSize = 4;
    v.UniformVectorLength = 10;
    v.UniformVectorColor = 0xff00ff00;
    v.lut = colourBar(2, 10, 2);

    REFVECTOR_CFG& r = c.refVector;
    r.PosX = r.PosY = 20;
    r.PixelShift = r.Velocity = r.PhysShift = 10;
    PIV::CopyText(r.ShiftUnit, "mm");
    PIV::CopyText(r.VelUnit, "m/s");
    r.FontSize = 10;
    r.Color = 0xff000000;
    r.ColorBkgd = 0xffffffff;
    r.Frame = r.FillBkgd = true;

    c.contour.lut = colourBar(6, 1, 0.2);
    c.contour.lut.ValueMin = -1;
    c.contour.opacity.Opacity = 1.0;

    c.xAxis = axis("x [pixel]", "x [mm]");
    c.yAxis = axis("y [pixel]", "y [mm]");

    COLOR_CFG& k = c.colors;
    k.Bkgd = 0xff808080;
    k.Valid = 0xff00ff00;
    k.Outlier = 0xffff0000;
    k.Replaced = 0xffffff00;
    k.Interpolated = 0xff00ffff;
    k.Edited = 0xff0000ff;
    k.Mask = 0xff404040;
    k.Text = 0xff000000;
    k.DataArea = 0xffffffff;
    return c;
}
