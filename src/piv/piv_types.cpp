#include "piv_types.h"

#include <string>

namespace {

void setSize(SIZE3D& s, int w, int h, int d) {
    s.width = w;
    s.height = h;
    s.depth = d;
}

void setPoint(POINT3D& p, int x, int y, int z) {
    p.x = x;
    p.y = y;
    p.z = z;
}

}  // namespace

const char* PIV::VectorFlagText(uint8_t flag) {
    static thread_local std::string text;
    text = (flag & VECTOR_ENABLED) ? "Vector is enabled" : "Vector is disabled";
    if (flag & VECTOR_MASKED) text += "\n- masked";
    if (flag & VECTOR_NO_RESULT) text += "\n- no result";
    if (flag & VECTOR_FILTERED) text += "\n- filtered";
    if (flag & VECTOR_INTERPOLATED) text += "\n- interpolated";
    if (flag & VECTOR_LOWER_PEAK) text += "\n- lower corr. peak";
    if (flag & VECTOR_EDITED) text += "\n- manually editted";
    return text.c_str();
}

DATA_GRID4D::DATA_GRID4D() {
    PIV::ZeroRecord(*this);
    timeSteps = 1;
    setSize(step, 16, 16, 16);
    setPoint(first, 16, 16, 16);
    roi = RECT3D{0, 1024, 0, 1024, 0, 1024};
}

IMAGEDEF_CFG::IMAGEDEF_CFG() {
    PIV::ZeroRecord(*this);
    Method = 2;
    Order = 3;
    Passes = 1;
    MinDeviation = 0.1f;
    PIV::CopyText(FilePrefix, "deform_");
}

PIVEVAL_CFG::PIVEVAL_CFG() {
    PIV::ZeroRecord(*this);
    grid = DATA_GRID4D();
    ImageMapping2D = IMAGEDEF_CFG();
    VolumeDeform = IMAGEDEF_CFG();

    Method = 1;
    setSize(SampleSize, 32, 32, 32);
    setSize(FFTSize, 32, 32, 32);
    setSize(ScanRange, 5, 5, 5);
    setSize(ROI_Size, 10, 10, 0);
    setSize(FinalROI_Size, 5, 5, 0);
    Type = 1;
    Size = 3;
    SelfCorrelation_Radius = 1.0f;
    CutOff = 0.001;
    MaxIter = 20;
    FinalROI = true;
    Passes = 3;
    MultiCorr_Offset = POINT2D{8, 0};
    MultiCorr_Count = 2;
    MultiCorrUseGrid = true;
    setSize(MultiGrid_SampleSize, 32, 32, 32);
    setSize(MultiGrid_SampleStep, 16, 16, 16);
    MultiGrid_Desample = 3;
    MultiGrid_FinalScans = 1;
    DesampleEnable = true;
    MultiGrid_FastPyramid = true;
    MultiGrid_ReevaluateBaddata = true;
    ShowIntermediate = true;
}

PIVCONVERT_CFG::PIVCONVERT_CFG() {
    PIV::ZeroRecord(*this);
    PulseDelay = 1000.0;
    LengthConversion[0] = LengthConversion[1] = LengthConversion[2] = 1.0;
    PIV::CopyText(LengthConversionUnits, "mm");
    PIV::CopyText(DisplacementUnits, "um");
    PIV::CopyText(VelocityUnits, "m/s");
    PIV::CopyText(PulseDelayUnits, "us");
    // mm grid, m/s velocity, um displacement
    velocityFactor = 1.0 / 1000.0;
    displacementFactor = 1.0 / 0.001;
}

OUTLIER_CFG::OUTLIER_CFG() {
    PIV::ZeroRecord(*this);
    NumberOfPasses = 5;
    MaxDisplacement = 20.0f;
    MaxDifference = 5.0f;
    MedianThreshold = 3.0f;
    NormalizedMedianThreshold = 3.0f;
    NormalizedMedianNoiseFloor = 0.2f;
    DynMeanC1 = 2.0f;
    DynMeanC2 = 1.0f;
    MinCorrelation = 0.2f;
    MinSNR = 5.0f;
    MinPeakRatio = 2.0f;
    MaxResiduals = 0.5f;
    ZScoreThreshold = 4.0f;
    ChauvenetThreshold = 0.5f;
    for (GLOBALHIST_ROI& h : GlobalHist) {
        h.xMin = -10.0f;
        h.xMax = 10.0f;
        h.yMin = -10.0f;
        h.yMax = 10.0f;
    }
    GlobalHist[0].type2 = true;
    TryOtherPeaks = true;
}

DIFFERENTIATE_CFG::DIFFERENTIATE_CFG() {
    PIV::ZeroRecord(*this);
    setSize(Spacing, 3, 3, 3);
}

PIV_PARAMETERS::PIV_PARAMETERS() {
    PIV::ZeroRecord(*this);
    eval = PIVEVAL_CFG();
    convert = PIVCONVERT_CFG();
    outlier = OUTLIER_CFG();
    differentiate = DIFFERENTIATE_CFG();
}

IMAGE_FILTER_CFG::IMAGE_FILTER_CFG() {
    PIV::ZeroRecord(*this);
    UseFloat = true;
    MedianSize = 3;
    HistMax = 0.95f;
    MinMaxKernel = 11;
    HighpassUseGauss = true;
    HighpassCutOff = 7.0f;
    ThresholdLevel = 10.0f;
    LowpassCutOff = 0.5f;
}

IMAGE_TRANSFORMATION_CFG::IMAGE_TRANSFORMATION_CFG() {
    PIV::ZeroRecord(*this);
    StretchX = StretchY = 1.0;
}

IMAGE_CFG::IMAGE_CFG() {
    PIV::ZeroRecord(*this);
    filters = IMAGE_FILTER_CFG();
    transformation = IMAGE_TRANSFORMATION_CFG();
    SplitPCO = true;
    InterpolationMethod = 2;
    InterpolationDegree = 4;
    CropRect = RECT3D{128, 640, 128, 640, 1, 257};
    BkgdSubtractScaleFactor = 100.0f;
    MaskRandomize = true;
    DewarpView = 1;
}

DATACOMBINE_CFG::DATACOMBINE_CFG() {
    PIV::ZeroRecord(*this);
    FitOrderX = 1;
    FitOrderY = 1;
    InterpolateRadius = 5.0;
}

POSTPROCESS_CFG::POSTPROCESS_CFG() {
    PIV::ZeroRecord(*this);
    combine = DATACOMBINE_CFG();
    transformation = IMAGE_TRANSFORMATION_CFG();
    SmoothKernel = 1.0f;
    MedianSize = 3;
}

OUTPUT_CFG::OUTPUT_CFG() {
    PIV::ZeroRecord(*this);
    DesampleX = DesampleY = DesampleZ = 1;
}
