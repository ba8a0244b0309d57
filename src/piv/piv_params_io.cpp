// The keys of the settings records in a parameter file. One function per
// record; each runs the same calls for reading and for writing, so the order
// of the written keys and the keys looked up on reading cannot drift apart.
#include "piv_params_io.h"

#include <cstdio>

#include "asciiparfile.h"
#include "piv_params.h"
#include "piv_record.h"

namespace {

// In write mode the record is the source and must stay as it is; in read
// mode the temporaries go back into the record.

// An enable flag and a value on one line. The flag goes as a number and
// reads back as set when that number is above zero.
void _intPair(ASCIIParFile& f, const char* key, bool& enable, int32_t& value) {
    int v[2] = {enable ? 1 : 0, value};
    if (f.serializeVals(key, &v[0], &v[1]) && f.readMode()) {
        enable = v[0] > 0;
        value = v[1];
    }
}

void _intTriple(ASCIIParFile& f, const char* key, bool& enable, int32_t& a, int32_t& b) {
    int v[3] = {enable ? 1 : 0, a, b};
    if (f.serializeVals(key, &v[0], &v[1], &v[2]) && f.readMode()) {
        enable = v[0] > 0;
        a = v[1];
        b = v[2];
    }
}

void _floatPair(ASCIIParFile& f, const char* key, bool& enable, float& value) {
    float v[2] = {enable ? 1.0f : 0.0f, value};
    if (f.serializeVals(key, &v[0], &v[1]) && f.readMode()) {
        enable = v[0] > 0.0f;
        value = v[1];
    }
}

void _floatTriple(ASCIIParFile& f, const char* key, bool& enable, float& a, float& b) {
    float v[3] = {enable ? 1.0f : 0.0f, a, b};
    if (f.serializeVals(key, &v[0], &v[1], &v[2]) && f.readMode()) {
        enable = v[0] > 0.0f;
        a = v[1];
        b = v[2];
    }
}

void _doublePair(ASCIIParFile& f, const char* key, double& a, double& b) {
    f.serializeVals(key, &a, &b);
}

template <std::size_t N>
void _string(ASCIIParFile& f, const char* key, char (&text)[N]) {
    f.serializeString(key, text, static_cast<int>(N));
}

void _comment(ASCIIParFile& f, bool comments, const char* text) {
    if (comments) f.addComment(text);
}

void _serializeImageCfg(ASCIIParFile& f, IMAGE_CFG& c, bool comments) {
    IMAGE_FILTER_CFG& filt = c.filters;
    IMAGE_TRANSFORMATION_CFG& t = c.transformation;

    _comment(f, comments, "[---- PIV image pre-processing parameters ----]");
    f.beginGroup("PIV_Image_");
    f.serialize("Rotation", &c.Rotation);
    f.serialize("Flip", &c.Flip);
    f.serialize("SplitPCO", &c.SplitPCO);
    f.serialize("SplitMode", &c.SplitMode);
    f.serialize("ZDirection", &c.ZDirection);
    f.serialize("InterpolationMethod", &c.InterpolationMethod);
    f.serialize("InterpolationDegree", &c.InterpolationDegree);
    f.serialize("UseFloat", &filt.UseFloat);
    f.serialize("BkgdSubtract", &c.BkgdSubtract);
    _string(f, "Bkgd", c.Bkgd);
    f.serialize("Bkgd2Subtract", &c.Bkgd2Subtract);
    _string(f, "Bkgd2", c.Bkgd2);
    f.serialize("BkgdSubtractMethod", &c.BkgdSubtractMethod);
    f.serialize("BkgdSubtractScaleFactor", &c.BkgdSubtractScaleFactor);
    f.serialize("MaskEnable", &c.MaskEnable);
    f.serialize("MaskInvert", &c.MaskInvert);
    f.serialize("MaskRandomize", &c.MaskRandomize);
    _string(f, "Mask", c.Mask);
    f.serialize("Mask2Enable", &c.Mask2Enable);
    _string(f, "Mask2", c.Mask2);
    f.serialize("Crop", &c.Crop);
    f.serialize("CropRect", &c.CropRect);
    f.serialize("Transform_Enable", &t.Enable);
    f.serialize("Transform_SecondImageOnly", &t.SecondImageOnly);
    _doublePair(f, "Transform_Translate", t.TranslateX, t.TranslateY);
    f.serializeVals("Transform_Rotate", &t.Rotate, &t.OriginX, &t.OriginY);
    _doublePair(f, "Transform_Skew", t.SkewX, t.SkewY);
    _doublePair(f, "Transform_Stretch", t.StretchX, t.StretchY);
    f.serialize("Invert", &filt.Invert);
    f.serialize("HistEqual", &filt.HistEqual);
    _intPair(f, "Median", filt.Median, filt.MedianSize);
    // The third value is written for readers that expect it; it means nothing here.
    float highpassUnused = 0.02f;
    _floatTriple(f, "Highpass", filt.Highpass, filt.HighpassCutOff, highpassUnused);
    f.serialize("HighpassUseGauss", &filt.HighpassUseGauss);
    f.serialize("HighpassClipNegative", &filt.HighpassClipNegative);
    _floatPair(f, "Threshold", filt.Threshold, filt.ThresholdLevel);
    f.serialize("ThresholdBinarize", &filt.ThresholdBinarize);
    _floatPair(f, "Lowpass", filt.Lowpass, filt.LowpassCutOff);
    f.serialize("LowpassUseGauss", &filt.LowpassUseGauss);
    // The clipped histogram is the equalisation's: its flag is HistEqual
    // again, and being read later it decides when the two lines disagree.
    _floatTriple(f, "DynHistClip", filt.HistEqual, filt.HistMin, filt.HistMax);
    _intPair(f, "MinMax", filt.MinMax, filt.MinMaxKernel);
    f.serialize("Dewarp", &c.Dewarp);
    f.serialize("DewarpView", &c.DewarpView);
    _string(f, "DewarpFile", c.DewarpFile);
    f.serialize("DewarpCalibrate", &c.DewarpCalibrate);
    f.endGroup();
}

// `name` is the group without its underscore, as the comments spell it.
void _serializeImageDef(ASCIIParFile& f, const char* name, IMAGEDEF_CFG& d, bool comments) {
    char text[160];
    std::snprintf(text, sizeof(text), "%s_", name);
    f.beginGroup(text);
    std::snprintf(text, sizeof(text), "# Eval_%s_Mode: (0)=Disabled  (1)=FinalPass  (2)=AllPasses",
                  name);
    _comment(f, comments, text);
    f.serialize("Mode", &d.Mode);
    std::snprintf(text, sizeof(text),
                  "# Eval_%s_Method: (0)=ShiftedLinear  (1)=Gauss  (2)=BSpline  (3)=Bilinear  "
                  "(4)=Polynomial",
                  name);
    _comment(f, comments, text);
    f.serialize("Method", &d.Method);
    f.serialize("Order", &d.Order);
    f.serialize("Passes", &d.Passes);
    f.endGroup();
}

void _serializeEvalCfg(ASCIIParFile& f, PIVEVAL_CFG& c, bool comments) {
    DATA_GRID4D& g = c.grid;

    _comment(f, comments, "[---- PIV processing parameters ----]");
    f.beginGroup("PIV_");
    f.serialize("Image_Size", &g.imageSize);
    f.serialize("Image_ROI", &g.roiEnabled);
    f.serializeVals("Image_ROI_X", &g.roi.left, &g.roi.right);
    f.serializeVals("Image_ROI_Y", &g.roi.top, &g.roi.bottom);
    f.serializeVals("Image_ROI_Z", &g.roi.front, &g.roi.back);

    f.beginGroup("Eval_");
    _comment(f, comments,
             "# Eval_CorrelationMode: (0)=CrossCorr  (1)=PhaseOnlyCorr  (2)=MQD  "
             "(3)=DirectCrossCorr  (4)=ErrorCorrFunction=4");
    f.serialize("CorrelationMode", &c.CorrelationMode);
    f.serialize("SampleSize", &c.SampleSize);
    if (c.SampleSize.depth < 1) c.SampleSize.depth = 1;
    f.serialize("SampleStep", &g.step);
    if (g.step.depth < 1) g.step.depth = 1;
    f.serialize("SampleOffset", &c.SampleOffset);
    f.serialize("ScanRange", &c.ScanRange);
    _comment(f, comments, "# Eval_GridAlign: (0)=Top  (1)=Bottom  (2)=AtPoint");
    f.serialize("GridAlign", &g.align);
    f.serialize("GridAnchor", &g.anchor);
    _comment(f, comments, "# Eval_Method: (0)=SinglePass  (1)=MultiPass  (2)=MultiGrid");
    f.serialize("Method", &c.Method);
    // Derived from Method for a human reader; what a file says here is dropped.
    char description[64];
    PIV::CopyText(description, PIV::MethodDescription(c));
    _string(f, "MethodDescription", description);
    f.serialize("Passes", &c.Passes);

    f.beginGroup("MultiGrid_");
    f.serialize("SampleSize", &c.MultiGrid_SampleSize);
    f.serialize("SampleStep", &c.MultiGrid_SampleStep);
    f.serialize("Desample", &c.MultiGrid_Desample);
    f.serialize("ReevaluateBaddata", &c.MultiGrid_ReevaluateBaddata);
    f.serialize("FinalScans", &c.MultiGrid_FinalScans);
    f.serialize("FastPyramid", &c.MultiGrid_FastPyramid);
    f.serialize("DCConFinalPass", &c.MultiGrid_DCConFinalPass);
    f.endGroup();

    _serializeImageDef(f, "ImageMapping2D", c.ImageMapping2D, comments);
    _serializeImageDef(f, "VolumeDeform", c.VolumeDeform, comments);

    _comment(f, comments,
             "# Eval_CorrFilter_WindowType: (0)=None  (1)=Tukey  (2)=Blackman  (3)=Hann  "
             "(4)=Hamming");
    _comment(f, comments, "#   (5)=Cosine  (6)=Gauss  (7)=LFC1  (8)=LFC2  (9)=LFC3");
    f.serialize("CorrFilter_WindowType", &c.CorrFilter_WindowType);
    f.serialize("CorrFilter_Nyquist", &c.CorrFilter_Nyquist);
    f.serialize("MultiCorr", &c.MultiCorr);
    f.serialize("MultiCorr_Offset", &c.MultiCorr_Offset);
    f.serialize("MultiCorr_Count", &c.MultiCorr_Count);
    f.serialize("MultiCorr_Average", &c.MultiCorr_Average);

    f.beginGroup("PeakFit_");
    // Files in use carry this text, CentroidBinarized=6 and all.
    _comment(f, comments, "# PeakFit_Type: Gauss3pt=0  Gauss3x3=1  Parabolic=2  Centroid=3");
    _comment(f, comments,
             "#   Whittaker=4  NonLinGauss=5  FitBlob=6  FitRect=7  CentroidBinarized=6");
    f.serialize("Type", &c.Type);
    f.serialize("Size", &c.Size);
    f.serialize("ROI", &c.ROI);
    f.serialize("ROI_Size", &c.ROI_Size);
    f.serialize("FinalROI", &c.FinalROI);
    f.serialize("FinalROI_Size", &c.FinalROI_Size);
    f.serialize("MaxIter", &c.MaxIter);
    f.serialize("CutOff", &c.CutOff);
    f.endGroup();

    f.serialize("SelfCorrelation_Eliminate", &c.SelfCorrelation_Eliminate);
    f.serialize("SelfCorrelation_Radius", &c.SelfCorrelation_Radius);
    f.serialize("SpeedOptimization", &c.SpeedOptimization);
    f.endGroup();
    f.endGroup();
}

void _serializeOutlierCfg(ASCIIParFile& f, OUTLIER_CFG& c, bool comments) {
    _comment(f, comments, "[---- PIV validation parameters ----]");
    f.beginGroup("PIV_Validation_");
    f.serialize("Enable", &c.Enable);
    f.serialize("NumberOfPasses", &c.NumberOfPasses);
    f.serialize("TryOtherPeaks", &c.TryOtherPeaks);
    f.serialize("InterpolateOutliers", &c.InterpolateOutliers);
    _floatPair(f, "Magnitude", c.CheckDisplacement, c.MaxDisplacement);
    _floatPair(f, "Gradient", c.CheckDifference, c.MaxDifference);
    _floatPair(f, "Chauvenet", c.CheckChauvenet, c.ChauvenetThreshold);
    _floatPair(f, "ZScore", c.CheckZScore, c.ZScoreThreshold);
    _floatPair(f, "Median", c.CheckMedian, c.MedianThreshold);
    _floatPair(f, "NormalizedMedian", c.CheckNormalizedMedian, c.NormalizedMedianThreshold);
    f.serialize("NormalizedMedianNoiseFloor", &c.NormalizedMedianNoiseFloor);
    _floatTriple(f, "DynMean", c.CheckDynMean, c.DynMeanC1, c.DynMeanC2);
    _floatPair(f, "MinCorrelation", c.CheckCorrelation, c.MinCorrelation);
    _floatPair(f, "MinPeakRatio", c.CheckPeakRatio, c.MinPeakRatio);
    _floatPair(f, "MinSNR", c.CheckSNR, c.MinSNR);
    _floatPair(f, "Max3CResiduals", c.CheckResiduals, c.MaxResiduals);
    f.serialize("GlobalHist", &c.CheckGlobalHist);
    for (int i = 0; i < PIV::MaxGlobalHistROI(); i++) {
        GLOBALHIST_ROI& h = c.GlobalHist[i];
        char group[32];
        std::snprintf(group, sizeof(group), "GlobalHist_%d_", i);
        f.beginGroup(group);
        int flags[2] = {h.type1 ? 1 : 0, h.type2 ? 1 : 0};
        if (f.serializeVals("Flags", &flags[0], &flags[1]) && f.readMode()) {
            h.type1 = flags[0] > 0;
            h.type2 = flags[1] > 0;
        }
        f.serializeVals("RangeX", &h.xMin, &h.xMax);
        f.serializeVals("RangeY", &h.yMin, &h.yMax);
        f.endGroup();
    }
    f.endGroup();
}

// The file has one length factor and the ratio of x to y; y and z follow
// from them in both directions.
void _serializeConvertCfg(ASCIIParFile& f, PIVCONVERT_CFG& c, bool comments) {
    double* factor = c.LengthConversion;

    _comment(f, comments, "[---- PIV conversion parameters ----]");
    f.beginGroup("PIV_Conv_");
    f.serialize("PulseDelay", &c.PulseDelay);
    // Always microseconds; a file's own text is dropped.
    char delayUnits[16];
    PIV::CopyText(delayUnits, "microseconds");
    _string(f, "PulseDelayUnits", delayUnits);
    f.serialize("LengthConversion", &factor[0]);
    _string(f, "LengthConversionUnits", c.LengthConversionUnits);
    _string(f, "VelocityUnits", c.VelocityUnits);
    double ratio = factor[1] != 0.0 ? factor[0] / factor[1] : 1.0;
    f.serialize("SquarenessRatio", &ratio);
    factor[1] = ratio != 0.0 ? factor[0] / ratio : factor[0];
    factor[2] = factor[0];
    f.serialize("ImageOrigin", &c.ImageOrigin);
    f.serialize("PhysicalOrigin", &c.PhysicalOrigin);
    f.endGroup();
}

void _serializePostProcessCfg(ASCIIParFile& f, POSTPROCESS_CFG& c, bool comments) {
    DATACOMBINE_CFG& d = c.combine;
    IMAGE_TRANSFORMATION_CFG& t = c.transformation;

    _comment(f, comments, "[---- PIV post-processing parameters ----]");
    f.beginGroup("PostProcess_");
    f.serialize("CombineData_Apply", &d.Apply);
    _string(f, "CombineData_File", d.File);
    f.serialize("CombineData_Mode", &d.Mode);
    _intTriple(f, "CombineData_PolyFit", d.FitApply, d.FitOrderX, d.FitOrderY);
    // A float on the line although the record holds a double.
    float radius = static_cast<float>(d.InterpolateRadius);
    bool interpolate = d.Interpolate;
    _floatPair(f, "CombineData_Interpolate", interpolate, radius);
    if (f.readMode()) {
        d.Interpolate = interpolate;
        d.InterpolateRadius = radius;
    }
    f.serialize("Transform_Apply", &t.Enable);
    _doublePair(f, "Transform_Shift", t.TranslateX, t.TranslateY);
    f.serializeVals("Transform_Rotate", &t.Rotate, &t.OriginX, &t.OriginY);
    _doublePair(f, "Transform_Skew", t.SkewX, t.SkewY);
    _doublePair(f, "Transform_Stretch", t.StretchX, t.StretchY);
    f.serialize("InterpolateDisabledVectors", &c.InterpolateDisabledVectors);
    _intPair(f, "Filter_Median", c.MedianApply, c.MedianSize);
    _floatPair(f, "Filter_Smooth", c.SmoothApply, c.SmoothKernel);
    f.serialize("Mask_Enable", &c.MaskEnable);
    _string(f, "Mask_File", c.MaskFile);
    f.serialize("Mask_Invert", &c.MaskInvert);
    f.endGroup();
}

}  // namespace

const char* PIV::MethodDescription(const PIVEVAL_CFG& c) {
    const bool deform = c.ImageMapping2D.Mode != 0;
    switch (c.Method) {
        case 1:
            return deform ? "multiple-pass with image-deformation"
                          : "multiple-pass cross-correlation";
        case 2:
            return deform ? "multigrid with image-deformation" : "multigrid cross-correlation";
        default:
            return "single-pass cross-correlation";
    }
}

int PIV::SerializePivParameters(ASCIIParFile* file, PIV_PARAMETERS* params, bool comments) {
    if (!file || !params) return 0;
    _serializeEvalCfg(*file, params->eval, comments);
    _serializeOutlierCfg(*file, params->outlier, comments);
    _serializeConvertCfg(*file, params->convert, comments);
    return 1;
}

int PIV::SerializeImageCfg(ASCIIParFile* file, IMAGE_CFG* cfg, bool comments) {
    if (!file || !cfg) return 0;
    _serializeImageCfg(*file, *cfg, comments);
    return 1;
}

int PIV::SerializePostProcessCfg(ASCIIParFile* file, POSTPROCESS_CFG* cfg, bool comments) {
    if (!file || !cfg) return 0;
    _serializePostProcessCfg(*file, *cfg, comments);
    return 1;
}
