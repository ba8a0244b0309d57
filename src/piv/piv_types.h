// The core records of the library: geometry, the vector node, the grid and
// every settings record. All are plain, trivially copyable structures with
// fixed character arrays; each default constructor zero-fills the whole record
// (padding included) and then sets the documented defaults, so that records
// can be compared with PIV::SameRecord.
#pragma once

#include <cstdint>
#include <type_traits>

#include "piv_record.h"

struct SIZE2D {
    int32_t width, height;
};

struct SIZE3D {
    int32_t width, height, depth;
};

struct FSIZE2D {
    float width, height;
};

struct POINT2D {
    int32_t x, y;
};

struct POINT3D {
    int32_t x, y, z;
};

struct FPOINT2D {
    float x, y;
};

struct FPOINT3D {
    float x, y, z;
};

// Two corners; the edges may be stored in either order.
struct RECT2D {
    int32_t left, right, top, bottom;
};

struct RECT3D {
    int32_t left, right, top, bottom, front, back;
    bool isIdentical(const RECT3D& o) const {
        return left == o.left && right == o.right && top == o.top && bottom == o.bottom &&
               front == o.front && back == o.back;
    }
};

// A block of floats handed from the evaluation to a display without copying.
// The block belongs to the sender and is reused after the call returns.
struct FLOAT_ARRAY {
    float* data;
    int32_t width, height, depth;
};

// Status bits of PIV_VECTOR::flag.
enum PIV_VectorFlagBits : uint8_t {
    VECTOR_ENABLED = 0x01,
    VECTOR_MASKED = 0x02,
    VECTOR_NO_RESULT = 0x04,
    VECTOR_OUTLIER = 0x08,
    VECTOR_FILTERED = 0x10,
    VECTOR_INTERPOLATED = 0x20,
    VECTOR_LOWER_PEAK = 0x40,
    VECTOR_EDITED = 0x80,
};

struct PIV_PEAK {
    float x, y, value;
};

namespace PIV {
constexpr int MaxCorrelationPeaks() {
    return 3;
}
constexpr int MaxGlobalHistROI() {
    return 3;
}
}  // namespace PIV

// One node of a vector field: thirty 32-bit words.
struct PIV_VECTOR {
    int32_t ix, iy, iz;
    float x, y, z;
    float dx, dy, dz;  // pixels; dy counts upwards, against the image rows
    float u, v, w;
    float sx, sy, sz;
    float corr;
    float snr;
    float meanSquaredCorr;
    float residual;
    PIV_PEAK peak[3];
    uint8_t flag;
    uint8_t flagPad[3];
    int32_t count;

    PIV_VECTOR() { PIV::ZeroRecord(*this); }

    // A window that could not be interrogated.
    void setFailed() {
        flag = VECTOR_NO_RESULT | VECTOR_OUTLIER;
        count = 0;
        dx = dy = dz = 0.0f;
        corr = snr = meanSquaredCorr = 0.0f;
    }
    void setSuccess() {
        flag = VECTOR_ENABLED;
        count = 1;
    }
};
static_assert(sizeof(PIV_VECTOR) == 30 * 4, "PIV_VECTOR is thirty 32-bit words");

namespace PIV {
// The three-component quantities of a vector by number, for code that walks
// their components in a loop: members are reached by name, never by
// counting on from the address of another.
enum VectorTriple { TRIPLE_DISPLACEMENT = 0, TRIPLE_VELOCITY = 1, TRIPLE_SHIFT = 2 };

// The nine float components of the three triples, triple by triple: the
// members a field filter or a series statistic treats alike.
inline constexpr int kTripleComponents = 9;
inline constexpr float PIV_VECTOR::*kTripleMembers[kTripleComponents] = {
    &PIV_VECTOR::dx, &PIV_VECTOR::dy, &PIV_VECTOR::dz, &PIV_VECTOR::u,  &PIV_VECTOR::v,
    &PIV_VECTOR::w,  &PIV_VECTOR::sx, &PIV_VECTOR::sy, &PIV_VECTOR::sz,
};
inline constexpr float PIV_PEAK::*kPeakMembers[3] = {&PIV_PEAK::x, &PIV_PEAK::y, &PIV_PEAK::value};

// Component c (0 x, 1 y, 2 z) of a triple.
inline float& Component(PIV_VECTOR& v, int triple, int c) {
    return v.*kTripleMembers[3 * triple + c];
}
inline float Component(const PIV_VECTOR& v, int triple, int c) {
    return v.*kTripleMembers[3 * triple + c];
}
// Component c of a peak: 0 x, 1 y, 2 value.
inline float& PeakComponent(PIV_PEAK& p, int c) {
    return p.*kPeakMembers[c];
}
inline float PeakComponent(const PIV_PEAK& p, int c) {
    return p.*kPeakMembers[c];
}
}  // namespace PIV

namespace PIV {
// Selects one quantity of an array of PIV_VECTOR.
enum VectorFlag {
    VF_DISPLACEMENT = 0,
    VF_VELOCITY = 1,
    VF_SHIFT = 2,
    VF_POSITION = 3,
    VF_PEAK = 4,
    VF_CORR = 5,
    VF_SNR = 6,
    VF_FLAG = 7,
    VF_COUNT = 8,
    VF_RESIDUAL = 9,
};

// Text shown for the status bits of a vector, e.g. "Vector is enabled\n- masked".
const char* VectorFlagText(uint8_t flag);

enum GridAlign { GRID_ALIGN_TOP = 0, GRID_ALIGN_BOTTOM = 1, GRID_ALIGN_AT_POINT = 2 };
}  // namespace PIV

struct DATA_GRID4D {
    SIZE3D nodes;
    int32_t timeSteps;
    SIZE3D step;
    SIZE3D imageSize;
    SIZE3D margin;
    POINT3D first;
    POINT3D anchor;
    RECT3D roi;
    bool roiEnabled;
    int32_t align;

    DATA_GRID4D();
};

struct IMAGEDEF_CFG {
    int32_t Mode;    // 0 Disabled, 1 FinalPass, 2 AllPasses
    // A PIV::InterpolationMethod, passed on unchanged: 0 ShiftedLinear, 1 Gauss,
    // 2 BSpline, 3 Bilinear, 4 Sinc, 5 Polynomial.
    int32_t Method;
    int32_t Order;
    int32_t Passes;
    float MinDeviation;
    char FilePrefix[2048];
    bool StoreFinal;
    bool StoreAll;

    IMAGEDEF_CFG();
};

struct PIVEVAL_CFG {
    int32_t Method;  // 0 SinglePass, 1 MultiPass, 2 MultiGrid
    int32_t
        CorrelationMode;  // 0 CrossCorr, 1 PhaseOnly, 2 MQD, 3 DirectCrossCorr, 4 ErrorCorrFunction
    SIZE3D SampleSize;
    SIZE3D FFTSize;
    SIZE3D ScanRange;
    POINT3D SampleOffset;
    DATA_GRID4D grid;
    SIZE3D ROI_Size;
    SIZE3D FinalROI_Size;
    // Peak detection block, compared as a whole: Type ... ROI.
    int32_t Type;
    int32_t Size;
    float SelfCorrelation_Radius;
    double CutOff;
    int32_t MaxIter;
    bool FinalROI;
    bool SelfCorrelation_Eliminate;
    bool ROI;
    // End of the peak detection block.
    int32_t Passes;
    POINT2D MultiCorr_Offset;
    int32_t MultiCorr_Count;
    bool MultiCorr;
    bool MultiCorrUseGrid;
    bool MultiCorr_Average;
    SIZE3D MultiGrid_SampleSize;
    SIZE3D MultiGrid_SampleStep;
    int32_t MultiGrid_Desample;
    int32_t MultiGrid_FinalScans;
    bool DesampleEnable;
    bool MultiGrid_FastPyramid;
    bool MultiGrid_ReevaluateBaddata;
    bool MultiGrid_DCConFinalPass;
    IMAGEDEF_CFG ImageMapping2D;
    IMAGEDEF_CFG VolumeDeform;
    int32_t SpeedOptimization;
    int32_t CorrFilter_WindowType;
    bool CorrFilter_Nyquist;
    bool ShowIntermediate;

    PIVEVAL_CFG();
};

struct PIVCONVERT_CFG {
    double PulseDelay;  // microseconds
    double LengthConversion[3];
    double velocityFactor;
    double displacementFactor;
    POINT3D ImageOrigin;
    FPOINT3D PhysicalOrigin;
    char LengthConversionUnits[16];
    char DisplacementUnits[16];
    char VelocityUnits[16];
    char PulseDelayUnits[16];

    PIVCONVERT_CFG();
};

struct GLOBALHIST_ROI {
    float xMin, xMax, yMin, yMax;
    bool type1;
    bool type2;
};

struct OUTLIER_CFG {
    int32_t NumberOfPasses;
    float MaxDisplacement;
    float MaxDifference;
    float MedianThreshold;
    float NormalizedMedianThreshold;
    float NormalizedMedianNoiseFloor;
    float DynMeanC1;
    float DynMeanC2;
    float MinCorrelation;
    float MinSNR;
    float MinPeakRatio;
    float MaxResiduals;
    float ZScoreThreshold;
    float ChauvenetThreshold;
    GLOBALHIST_ROI GlobalHist[3];
    bool Enable;
    bool CheckDisplacement;
    bool CheckDifference;
    bool CheckChauvenet;
    bool CheckZScore;
    bool CheckGlobalHist;
    bool CheckMedian;
    bool CheckNormalizedMedian;
    bool CheckDynMean;
    bool CheckCorrelation;
    bool CheckSNR;
    bool CheckPeakRatio;
    bool CheckResiduals;
    bool TryOtherPeaks;
    bool InterpolateOutliers;

    OUTLIER_CFG();
};

struct DIFFERENTIATE_CFG {
    bool CalculateSpacing;
    SIZE3D Spacing;

    DIFFERENTIATE_CFG();
};

struct PIV_PARAMETERS {
    PIVEVAL_CFG eval;
    PIVCONVERT_CFG convert;
    OUTLIER_CFG outlier;
    DIFFERENTIATE_CFG differentiate;

    PIV_PARAMETERS();
};

struct IMAGE_FILTER_CFG {
    bool UseFloat;
    bool Invert;
    bool Median;
    int32_t MedianSize;
    bool HistEqual;
    float HistMin;
    float HistMax;
    bool MinMax;
    int32_t MinMaxKernel;
    bool Highpass;
    bool HighpassUseGauss;
    bool HighpassClipNegative;
    float HighpassCutOff;
    float ThresholdLevel;
    bool Threshold;
    bool ThresholdBinarize;
    bool Lowpass;
    bool LowpassUseGauss;
    bool CenteredGauss;
    float LowpassCutOff;

    IMAGE_FILTER_CFG();
};

struct IMAGE_TRANSFORMATION_CFG {
    bool Enable;
    double TranslateX, TranslateY;
    double StretchX, StretchY;
    double SkewX, SkewY;
    double Rotate;
    double OriginX, OriginY;
    bool SecondImageOnly;

    IMAGE_TRANSFORMATION_CFG();
};

struct IMAGE_CFG {
    bool SplitPCO;
    int32_t SplitMode;
    int32_t ZDirection;
    int32_t InterpolationMethod;
    int32_t InterpolationDegree;
    int32_t Rotation;
    int32_t Flip;
    bool Crop;
    RECT3D CropRect;
    bool BkgdSubtract;
    bool Bkgd2Subtract;
    int32_t BkgdSubtractMethod;
    float BkgdSubtractScaleFactor;
    char Bkgd[2048];
    char Bkgd2[2048];
    bool MaskEnable;
    bool Mask2Enable;
    bool MaskInvert;
    bool MaskRandomize;
    char Mask[2048];
    char Mask2[2048];
    bool Dewarp;
    bool DewarpCalibrate;
    int32_t DewarpView;
    char DewarpFile[2048];
    IMAGE_FILTER_CFG filters;
    IMAGE_TRANSFORMATION_CFG transformation;

    IMAGE_CFG();
};

struct DATACOMBINE_CFG {
    bool Apply;
    char File[2048];
    int32_t Mode;
    bool FitApply;
    int32_t FitOrderX;
    int32_t FitOrderY;
    bool Interpolate;
    double InterpolateRadius;

    DATACOMBINE_CFG();
};

struct POSTPROCESS_CFG {
    DATACOMBINE_CFG combine;
    IMAGE_TRANSFORMATION_CFG transformation;
    bool SmoothApply;
    float SmoothKernel;
    bool MedianApply;
    int32_t MedianSize;
    bool InterpolateDisabledVectors;
    bool MaskEnable;
    bool MaskInvert;
    char MaskFile[2048];

    POSTPROCESS_CFG();
};

struct OUTPUT_CFG {
    int32_t OutputFormat;  // 0, 1 Tecplot ASCII, 2 Tecplot binary, 3 NetCDF, 4 PIVNET2
    int32_t DesampleX, DesampleY, DesampleZ;
    char Title[2048];
    char Comment[2048];
    bool OutputSkipOutliers;
    bool OutputPointFormat;
    bool StoreIntermediate;
    bool StoreTimeVar;
    bool StoreRawData;
    bool StoreVelocity;
    bool StoreAllPeaks;
    bool StoreMagnitude;
    bool StoreDifferentials;
    bool StoreVorticity;
    bool StoreShear;
    bool StoreNStrain;
    bool StoreLambda2;
    bool StoreDiscriminant;
    bool StoreEnstrophy;
    bool StoreCorrCoeff;
    bool StoreSNRData;
    bool StoreZCoords;
    bool StoreResiduals;
    bool KeepRowOrder;
    double CoordinateShift;

    OUTPUT_CFG();
};

#define KELVANE_ASSERT_RECORD(T)                                                           \
    static_assert(std::is_trivially_copyable<T>::value, #T " must be trivially copyable"); \
    static_assert(std::is_standard_layout<T>::value, #T " must be standard layout")

KELVANE_ASSERT_RECORD(SIZE2D);
KELVANE_ASSERT_RECORD(SIZE3D);
KELVANE_ASSERT_RECORD(FSIZE2D);
KELVANE_ASSERT_RECORD(POINT2D);
KELVANE_ASSERT_RECORD(POINT3D);
KELVANE_ASSERT_RECORD(FPOINT2D);
KELVANE_ASSERT_RECORD(FPOINT3D);
KELVANE_ASSERT_RECORD(RECT2D);
KELVANE_ASSERT_RECORD(RECT3D);
KELVANE_ASSERT_RECORD(FLOAT_ARRAY);
KELVANE_ASSERT_RECORD(PIV_VECTOR);
KELVANE_ASSERT_RECORD(DATA_GRID4D);
KELVANE_ASSERT_RECORD(IMAGEDEF_CFG);
KELVANE_ASSERT_RECORD(PIVEVAL_CFG);
KELVANE_ASSERT_RECORD(PIVCONVERT_CFG);
KELVANE_ASSERT_RECORD(OUTLIER_CFG);
KELVANE_ASSERT_RECORD(DIFFERENTIATE_CFG);
KELVANE_ASSERT_RECORD(PIV_PARAMETERS);
KELVANE_ASSERT_RECORD(IMAGE_FILTER_CFG);
KELVANE_ASSERT_RECORD(IMAGE_TRANSFORMATION_CFG);
KELVANE_ASSERT_RECORD(IMAGE_CFG);
KELVANE_ASSERT_RECORD(DATACOMBINE_CFG);
KELVANE_ASSERT_RECORD(POSTPROCESS_CFG);
KELVANE_ASSERT_RECORD(OUTPUT_CFG);
