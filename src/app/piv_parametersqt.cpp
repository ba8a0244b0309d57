#include "piv_parametersqt.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <utility>

#include "piv_params.h"
#include "piv_record.h"

namespace {

// Components of s below `below` become `value`; the depth only with withDepth.
void _mend(SIZE3D& s, int below, int value, bool withDepth) {
    for (int32_t* n : {&s.width, &s.height, &s.depth})
        if ((withDepth || n != &s.depth) && *n < below) *n = value;
}

int _span(int32_t a, int32_t b) {
    return int(std::min<int64_t>(INT_MAX, std::abs(int64_t(b) - int64_t(a))));
}

}  // namespace

PIV_ParametersQT::PIV_ParametersQT(PIV_Parameters* params, MySettings* settings)
    : m_params(params), m_settings(settings) {}

void PIV_ParametersQT::registryIO(MySettings::AccessMode mode) {
    if (!m_params || !m_settings) return;
    MySettings& s = *m_settings;
    const bool read = mode == MySettings::READ;
    PIV_PARAMETERS p = m_params->pivParameters();
    POSTPROCESS_CFG post = m_params->postProcessCfg();
    PIVEVAL_CFG& e = p.eval;
    PIVCONVERT_CFG& c = p.convert;
    OUTLIER_CFG& o = p.outlier;

    s.serializeSize3D(mode, "/PIV/SampleSize", &e.SampleSize);
    s.serializePoint3D(mode, "/PIV/SampleOffset", &e.SampleOffset);
    s.serializeSize3D(mode, "/PIV/SampleStep", &e.grid.step);
    if (read) {
        _mend(e.SampleSize, 4, 32, true);
        _mend(e.grid.step, 1, 16, true);
    }
    s.serializeInt(mode, "/PIV/GridAlignment", &e.grid.align);
    s.serializePoint3D(mode, "/PIV/GridAnchorPoint", &e.grid.anchor);
    s.serializeBool(mode, "/PIV/ROIEnable", &e.grid.roiEnabled);
    s.serializeRect3D(mode, "/PIV/ROIRect", &e.grid.roi);

    s.serializeBool(mode, "/PIV/MultiCorrEnable", &e.MultiCorr);
    s.serializeBool(mode, "/PIV/MultiCorrUseGrid", &e.MultiCorrUseGrid);
    POINT3D offset{e.MultiCorr_Offset.x, e.MultiCorr_Offset.y, 0};
    s.serializePoint3D(mode, "/PIV/MultiCorrOffset", &offset);
    e.MultiCorr_Offset = POINT2D{offset.x, offset.y};
    s.serializeInt(mode, "/PIV/MultiCorrRepeat", &e.MultiCorr_Count);
    s.serializeBool(mode, "/PIV/MultiCorrAverage", &e.MultiCorr_Average);

    s.serializeInt(mode, "/PIV/CorrFilterWindowType", &e.CorrFilter_WindowType);
    s.serializeInt(mode, "/PIV/CorrMode", &e.CorrelationMode);
    s.serializeBool(mode, "/PIV/CorrFilterNyquist", &e.CorrFilter_Nyquist);
    s.serializeInt(mode, "/PIV/Peak/FitType", &e.Type);
    s.serializeInt(mode, "/PIV/Peak/FitSize", &e.Size);
    // A store that has a window size but no peak region yet searches half the
    // window; an empty store keeps the record as it is.
    if (read && !s.contains("/PIV/Peak/ROISize") && s.contains("/PIV/SampleSize"))
        e.ROI_Size =
            SIZE3D{e.SampleSize.width / 2, e.SampleSize.height / 2, e.SampleSize.depth / 2};
    s.serializeBool(mode, "/PIV/Peak/ROIEnable", &e.ROI);
    s.serializeSize3D(mode, "/PIV/Peak/ROISize", &e.ROI_Size);
    s.serializeBool(mode, "/PIV/Peak/ROIFinalEnable", &e.FinalROI);
    s.serializeSize3D(mode, "/PIV/Peak/ROIFinalSize", &e.FinalROI_Size);
    s.serializeBool(mode, "/PIV/Peak/ZeroPeakEliminate", &e.SelfCorrelation_Eliminate);
    s.serializeFloat(mode, "/PIV/Peak/ZeroPeakRadius", &e.SelfCorrelation_Radius);

    s.serializeBool(mode, "/PIV/ShowIntermediate", &e.ShowIntermediate);
    s.serializeInt(mode, "/PIV/Method", &e.Method);
    s.serializeInt(mode, "/PIV/SpeedOptimization", &e.SpeedOptimization);
    s.serializeInt(mode, "/PIV/MultiPassCount", &e.Passes);
    s.serializeBool(mode, "/PIV/MultiGrid/DesampleEnable", &e.DesampleEnable);
    s.serializeInt(mode, "/PIV/MultiGrid/DesampleFactor", &e.MultiGrid_Desample);
    s.serializeSize3D(mode, "/PIV/MultiGrid/SampleSize", &e.MultiGrid_SampleSize);
    s.serializeSize3D(mode, "/PIV/MultiGrid/SampleStep", &e.MultiGrid_SampleStep);
    s.serializeBool(mode, "/PIV/MultiGrid/ReEvaluateOutliers", &e.MultiGrid_ReevaluateBaddata);
    s.serializeInt(mode, "/PIV/MultiGrid/FinalScans", &e.MultiGrid_FinalScans);
    s.serializeBool(mode, "/PIV/MultiGrid/UseFastPyramid", &e.MultiGrid_FastPyramid);
    s.serializeBool(mode, "/PIV/MultiGrid/DCConFinalPass", &e.MultiGrid_DCConFinalPass);
    s.serializeInt(mode, "/PIV/ImageDef/WhenToApply", &e.ImageMapping2D.Mode);
    s.serializeInt(mode, "/PIV/ImageDef/Method", &e.ImageMapping2D.Method);
    s.serializeInt(mode, "/PIV/ImageDef/DeformOrder", &e.ImageMapping2D.Order);

    // The store holds unit texts of at most seven characters, whatever the field holds.
    auto unit = [&](const char* key, char(&field)[sizeof c.VelocityUnits]) {
        char text[8];
        PIV::CopyText(text, field);
        s.serializeCharString(mode, key, text, int(sizeof text));
        if (read && s.contains(key)) PIV::CopyText(field, text);
    };
    unit("/Conversion/GridUnit", c.LengthConversionUnits);
    unit("/Conversion/VelUnit", c.VelocityUnits);
    unit("/Conversion/DispUnit", c.DisplacementUnits);
    s.serializeDouble(mode, "/Conversion/PulseDelay", &c.PulseDelay);
    s.serializeDouble(mode, "/Conversion/MagX", &c.LengthConversion[0]);
    // Without keys of their own, Y and Z follow X: square pixels.
    if (read && s.contains("/Conversion/MagX"))
        c.LengthConversion[1] = c.LengthConversion[2] = c.LengthConversion[0];
    s.serializeDouble(mode, "/Conversion/MagY", &c.LengthConversion[1]);
    s.serializeDouble(mode, "/Conversion/MagZ", &c.LengthConversion[2]);
    float physical[3] = {c.PhysicalOrigin.x, c.PhysicalOrigin.y, c.PhysicalOrigin.z};
    s.serializeFloats(mode, "/Conversion/OriginOffsetPhys", physical, 3);
    c.PhysicalOrigin = FPOINT3D{physical[0], physical[1], physical[2]};
    s.serializePoint3D(mode, "/Conversion/OriginImage", &c.ImageOrigin);

    s.serializeBool(mode, "/Outliers/OutlierCheck", &o.Enable);
    s.serializeInt(mode, "/Outliers/ValidationPasses", &o.NumberOfPasses);
    s.serializeBool(mode, "/Outliers/TryOtherPeaks", &o.TryOtherPeaks);
    s.serializeBool(mode, "/Outliers/Interpolate", &o.InterpolateOutliers);
    s.serializeBool(mode, "/Outliers/MaxDisplCheck", &o.CheckDisplacement);
    s.serializeFloat(mode, "/Outliers/MaxDisplValue", &o.MaxDisplacement);
    s.serializeBool(mode, "/Outliers/MaxDiffCheck", &o.CheckDifference);
    s.serializeFloat(mode, "/Outliers/MaxDiffValue", &o.MaxDifference);
    s.serializeBool(mode, "/Outliers/MedianCheck", &o.CheckMedian);
    s.serializeFloat(mode, "/Outliers/MedianValue", &o.MedianThreshold);
    s.serializeFloat(mode, "/Outliers/MedianNoiseFloor", &o.NormalizedMedianNoiseFloor);
    s.serializeBool(mode, "/Outliers/NormalizedMedianCheck", &o.CheckNormalizedMedian);
    s.serializeFloat(mode, "/Outliers/NormalizedMedianValue", &o.NormalizedMedianThreshold);
    s.serializeBool(mode, "/Outliers/DynMeanCheck", &o.CheckDynMean);
    s.serializeFloat(mode, "/Outliers/DynMeanC1", &o.DynMeanC1);
    s.serializeFloat(mode, "/Outliers/DynMeanC2", &o.DynMeanC2);
    s.serializeBool(mode, "/Outliers/MinCorrCheck", &o.CheckCorrelation);
    s.serializeFloat(mode, "/Outliers/MinCorrValue", &o.MinCorrelation);
    s.serializeBool(mode, "/Outliers/PeakRatioCheck", &o.CheckPeakRatio);
    s.serializeFloat(mode, "/Outliers/PeakRatioValue", &o.MinPeakRatio);
    s.serializeBool(mode, "/Outliers/SNRCheck", &o.CheckSNR);
    s.serializeFloat(mode, "/Outliers/SNRValue", &o.MinSNR);
    s.serializeBool(mode, "/Outliers/ResidualsCheck", &o.CheckResiduals);
    s.serializeFloat(mode, "/Outliers/ResidualsValue", &o.MaxResiduals);
    s.serializeBool(mode, "/Outliers/GlobalHistCheck", &o.CheckGlobalHist);
    // The window shapes travel in parameter files; the store keeps the limits.
    for (int i = 0; i < PIV::MaxGlobalHistROI(); ++i) {
        GLOBALHIST_ROI& h = o.GlobalHist[i];
        float limits[4] = {h.xMin, h.xMax, h.yMin, h.yMax};
        s.serializeFloats(mode, QStringLiteral("/Outliers/GlobalHistROI%1").arg(i), limits, 4);
        h.xMin = std::min(limits[0], limits[1]);
        h.xMax = std::max(limits[0], limits[1]);
        h.yMin = std::min(limits[2], limits[3]);
        h.yMax = std::max(limits[2], limits[3]);
    }

    // The differentiation cell is square in the plane.
    int calculate = p.differentiate.CalculateSpacing ? 1 : 0;
    s.serializeInt(mode, "/PIV/PostProc/DiffCellCalc", &calculate);
    p.differentiate.CalculateSpacing = calculate != 0;
    int cell = p.differentiate.Spacing.width;
    s.serializeInt(mode, "/PIV/PostProc/DiffCellSize", &cell);
    p.differentiate.Spacing.width = p.differentiate.Spacing.height = cell;

    s.beginGroup("/PostProcess");
    DATACOMBINE_CFG& m = post.combine;
    s.serializeBool(mode, "CombineData/Apply", &m.Apply);
    s.serializeCharString(mode, "CombineData/DataFile", m.File, int(sizeof m.File));
    s.serializeInt(mode, "CombineData/CombineMode", &m.Mode);
    s.serializeBool(mode, "CombineData/FitApply", &m.FitApply);
    s.serializeInt(mode, "CombineData/FitOrderX", &m.FitOrderX);
    s.serializeInt(mode, "CombineData/FitOrderY", &m.FitOrderY);
    s.serializeBool(mode, "CombineData/Interpolate", &m.Interpolate);
    s.serializeDouble(mode, "CombineData/InterpolateRadius", &m.InterpolateRadius);
    s.serializeBool(mode, "InterpolateDisabledVectors", &post.InterpolateDisabledVectors);
    s.serializeBool(mode, "Filter/MedianApply", &post.MedianApply);
    s.serializeInt(mode, "Filter/MedianKernelSize", &post.MedianSize);
    s.serializeBool(mode, "Filter/SmoothApply", &post.SmoothApply);
    s.serializeFloat(mode, "Filter/SmoothKernelSize", &post.SmoothKernel);
    IMAGE_TRANSFORMATION_CFG& t = post.transformation;
    s.serializeBool(mode, "Transform/Apply", &t.Enable);
    s.serializeDouble(mode, "Transform/Rotate", &t.Rotate);
    s.serializeDouble(mode, "Transform/OriginX", &t.OriginX);
    s.serializeDouble(mode, "Transform/OriginY", &t.OriginY);
    s.serializeDouble(mode, "Transform/SkewX", &t.SkewX);
    s.serializeDouble(mode, "Transform/SkewY", &t.SkewY);
    s.serializeDouble(mode, "Transform/StretchX", &t.StretchX);
    s.serializeDouble(mode, "Transform/StretchY", &t.StretchY);
    s.serializeDouble(mode, "Transform/TranslateX", &t.TranslateX);
    s.serializeDouble(mode, "Transform/TranslateY", &t.TranslateY);
    s.serializeBool(mode, "Mask/Apply", &post.MaskEnable);
    s.serializeBool(mode, "Mask/Invert", &post.MaskInvert);
    s.serializeCharString(mode, "Mask/File", post.MaskFile, int(sizeof post.MaskFile));
    s.endGroup();

    if (!read) return;
    // Peak fits need a 3 x 3 neighbourhood; the final pass searches at least 2 x 2.
    _mend(e.ROI_Size, 3, 3, false);
    _mend(e.FinalROI_Size, 2, 2, false);
    c.ImageOrigin.x = std::max(c.ImageOrigin.x, 0);
    c.ImageOrigin.y = std::max(c.ImageOrigin.y, 0);
    m_params->setPivParameters(p);
    m_params->setPostProcessCfg(post);
    m_params->updateConversionFactors();
}

QRect PIV_ParametersQT::ROI() const {
    if (!m_params) return QRect();
    const RECT3D r = m_params->dataGrid().roi;
    return QRect(std::min(r.left, r.right), std::min(r.top, r.bottom), _span(r.left, r.right),
                 _span(r.top, r.bottom));
}
