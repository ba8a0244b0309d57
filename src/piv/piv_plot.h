// The records that configure a plot of a vector field, and the quantities a
// plot can colour by. Plain zero-filled structures: the plot dialog compares
// them bytewise to see whether anything changed.
#pragma once

#include <cstdint>

#include "piv_database.h"
#include "piv_types.h"

namespace PIVPLOT {

enum ColorCoding {
    CC_MAGNITUDE = 0,
    CC_SNR = 1,
    CC_CORRELATION = 2,
    CC_VORTICITY = 3,
    CC_SHEAR_STRAIN = 4,
    CC_NORMAL_STRAIN = 5,
    CC_ENSTROPHY = 6,
    CC_DISCRIMINANT = 7,
    CC_SECOND_INVARIANT = 8,
    CC_X_COMPONENT = 9,
    CC_Y_COMPONENT = 10,
    CC_Z_COMPONENT = 11,
    CC_VECTOR_COUNT = 12,
    CC_RESIDUALS = 13,
    CC_DUDX = 14,
    CC_DUDY = 15,
    CC_DVDX = 16,
    CC_DVDY = 17,
    CC_DUDZ = 18,
    CC_DVDZ = 19,
    CC_DWDX = 20,
    CC_DWDY = 21,
    CC_DWDZ = 22,
    CC_COUNT = 23,
};

enum ConversionMode { CONVERT_PIXELS = 0, CONVERT_VELOCITY = 1, CONVERT_SHIFT = 2 };

// The name of a coding as the lists show it; "" outside the table.
const char* ColorCodingName(int coding);
// Whether the coding is computed from the field's gradients.
bool NeedsDifferentials(int coding);

constexpr int TextLength = 256;

struct LUT_CFG {
    bool Show;
    int32_t PalLength;
    int32_t Index;  // a BitmapLUTChoice
    double ValueMin, ValueMax, ValueIncr;
    bool UseDiscreteLevels;
    int32_t Levels;
    bool Reversed;
    bool Wrap;
    int32_t PosX, PosY;
    int32_t Orientation;
    bool Frame;
    bool FillBkgd;
    uint32_t Color, ColorBkgd;
    int32_t Length, Width;
    float LineWidth;
    bool ShowTitle, ShowLabels;
    int32_t MinorTicks;
    bool MinorTicksShow, MinorTicksLabelShow;
    int32_t MinorTicksLabelSkip;

    LUT_CFG() { PIV::ZeroRecord(*this); }
};

struct OPACITY_CFG {
    int32_t Mode;
    double Opacity;
    uint32_t ColorTrans;
    bool ColorTransEnable;

    OPACITY_CFG() { PIV::ZeroRecord(*this); }
};

struct AXIS_CFG {
    bool Show, UsePhysUnit, ShowTitle;
    char Title[TextLength];
    char PhysTitle[TextLength];
    int32_t TitleSize, LabelSize, Skip, MinorTicks;
    int32_t MinorTickSize, MajorTickSize;
    bool ShowLabels;
    double PixAnchor, PixIncr, PhysAnchor, PhysIncr;
    float LineWidth;
    int32_t Transparency;

    AXIS_CFG() { PIV::ZeroRecord(*this); }
};

struct VECTOR_CFG {
    bool Show;
    int32_t ColorCode;  // a ColorCoding
    double MaxVector, MinColor, MaxColor, Stretch;
    int32_t SkipX, SkipY;
    int32_t OffsetType;
    double OffsetX, OffsetY;
    int32_t OutlierDisplay;
    double HeadWidth, HeadLength;
    bool FillArrowHead;
    float LineWidth;
    bool MidPointAnchor, UniformHead;
    double UniformHeadSize;
    bool UniformVectors;
    double UniformVectorLength;
    uint32_t UniformVectorColor;
    LUT_CFG lut;

    VECTOR_CFG() { PIV::ZeroRecord(*this); }
};

struct CONTOUR_CFG {
    bool Show;
    int32_t Coding;       // a ColorCoding
    int32_t ConvertMode;  // a ConversionMode
    bool FillBkgd;
    double FillValue;
    bool DataAreaOnly;
    LUT_CFG lut;
    OPACITY_CFG opacity;

    CONTOUR_CFG() { PIV::ZeroRecord(*this); }
};

struct COLOR_CFG {
    uint32_t Bkgd, Valid, Outlier, Replaced, Interpolated, Edited, Mask, Text, DataArea;

    COLOR_CFG() { PIV::ZeroRecord(*this); }
};

struct REFVECTOR_CFG {
    bool Show;
    int32_t PosX, PosY;
    double PixelShift, Velocity;
    bool VelocityInPixels;
    double PhysShift;
    bool PhysShiftInPixels;
    char ShiftUnit[TextLength];
    char VelUnit[TextLength];
    int32_t DisplayMode, FontSize;
    uint32_t Color, ColorBkgd;
    bool Frame, FillBkgd;

    REFVECTOR_CFG() { PIV::ZeroRecord(*this); }
};

struct ANNOTATION_CFG {
    bool Show;
    char Text[TextLength];
    int32_t Size;
    int32_t PosX, PosY;

    ANNOTATION_CFG() { PIV::ZeroRecord(*this); }
};

struct BITMAP_CFG {
    bool Show;
    int32_t PalLen;
    double MaskOpacity;
    LUT_CFG lut;
    OPACITY_CFG opacity;

    BITMAP_CFG() { PIV::ZeroRecord(*this); }
};

struct PLOT_CFG {
    int32_t StackingOrder;
    int32_t PlotPosX, PlotPosY;
    bool ShowOrigin;
    char Font[TextLength];
    ANNOTATION_CFG logo, background, overlay, title, subTitle;
    BITMAP_CFG image;
    VECTOR_CFG vector;
    REFVECTOR_CFG refVector;
    CONTOUR_CFG contour;
    AXIS_CFG xAxis, yAxis;
    COLOR_CFG colors;

    PLOT_CFG() { PIV::ZeroRecord(*this); }
};

KELVANE_ASSERT_RECORD(LUT_CFG);
KELVANE_ASSERT_RECORD(OPACITY_CFG);
KELVANE_ASSERT_RECORD(AXIS_CFG);
KELVANE_ASSERT_RECORD(VECTOR_CFG);
KELVANE_ASSERT_RECORD(CONTOUR_CFG);
KELVANE_ASSERT_RECORD(COLOR_CFG);
KELVANE_ASSERT_RECORD(REFVECTOR_CFG);
KELVANE_ASSERT_RECORD(ANNOTATION_CFG);
KELVANE_ASSERT_RECORD(BITMAP_CFG);
KELVANE_ASSERT_RECORD(PLOT_CFG);

// What a first start shows: the image in grey, vectors coloured by their
// validation over it, the rest hidden but set up so that switching it on
// gives a readable plot.
PLOT_CFG DefaultPlotCfg();

// Reads a whole plot file over `cfg`; keys the file lacks keep their values.
// False when the file is missing or holds nothing.
bool LoadPivPlotConfigurationASCII(const char* fileName, PLOT_CFG* cfg);
// True when the file could be written.
bool SavePivPlotConfigurationASCII(const char* fileName, const PLOT_CFG* cfg);

}  // namespace PIVPLOT

class ASCIIParFile;
class PIV_Data2D;

// The value a plain vector coding takes at a node; mode is a ConversionMode.
float _GetCornerVector(const PIV_VECTOR& vector, int coding, int mode);
// The value a gradient coding takes at a node.
float _GetCornerDifferential(const DIFFERENTIALS& d, int coding);
// One function both writes and reads the plot file (see ASCIIParFile).
void _serializePlotCfg(PIVPLOT::PLOT_CFG* cfg, ASCIIParFile* file);
// Fills an 8-bit bitmap of `size` pixels with the colour-table indices of the
// field's coding (see CONTOUR_CFG). False, with a debug text, on refusal.
bool _CreateScalarBitmap(const PIV_Data2D* data, uint8_t* bits, SIZE2D size, int bytesPerLine,
                         const PIVPLOT::CONTOUR_CFG& cfg);
