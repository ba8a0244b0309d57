// Parameters as attributes of NetCDF files: one serialising function per
// record serves both directions, the access mode of the file decides.
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

#include "piv_file.h"
#include "piv_messages.h"
#include "piv_ncfile.h"
#include "piv_params.h"
#include "piv_units.h"
#include "piv_util.h"

namespace {

bool _exists(const char* fileName) {
    struct stat st;
    return fileName && ::stat(fileName, &st) == 0;
}

// The files keep y offsets with the other sign. A damaged file may hold the
// one int whose negation does not exist; it becomes the largest.
int _flipped(int v) {
    return v == std::numeric_limits<int>::min() ? std::numeric_limits<int>::max() : -v;
}

bool _contains(const char* text, const char* what) {
    std::string s(text);
    for (char& c : s) c = char(std::tolower(static_cast<unsigned char>(c)));
    return s.find(what) != std::string::npos;
}

const char* _peakFitText(int type) {
    switch (type) {
        case 0:
            return "3-point Gaussian";
        case 2:
            return "3-point parabolic";
        case 3:
            return "3-point centroid";
        case 4:
            return "whittaker reconstruction";
        case 5:
            return "nonlinear Gaussian";
        default:
            return "3x3 least-squares Gaussian";
    }
}

// A text written from the record and parsed back into it on reading.
bool _text(MyNcFile& f, const char* name, const char* written, char* buffer, int size) {
    if (f.isWriting()) {
        std::snprintf(buffer, size_t(size), "%s", written);
        return f.serializeString(name, buffer, size);
    }
    return f.serializeString(name, buffer, size);
}

void _xyz(MyNcFile& f, const char* base, int* x, int* y, int* z, int var = -1) {
    char name[128];
    std::snprintf(name, sizeof(name), "%s_x", base);
    f.serializeInt(name, x, var);
    std::snprintf(name, sizeof(name), "%s_y", base);
    f.serializeInt(name, y, var);
    if (z) {
        std::snprintf(name, sizeof(name), "%s_z", base);
        f.serializeInt(name, z, var);
    }
}

void _imageDef(MyNcFile& f, const char* base, IMAGEDEF_CFG& d) {
    char name[128];
    const auto key = [&](const char* suffix) {
        std::snprintf(name, sizeof(name), "%s_%s", base, suffix);
        return name;
    };
    f.serializeInt(key("when"), &d.Mode);
    f.serializeInt(key("method"), &d.Method);
    f.serializeInt(key("dof"), &d.Order);
    f.serializeInt(key("passes"), &d.Passes);
    f.serializeFloat(key("mindev"), &d.MinDeviation);
}

void _serializeEvalCfg(MyNcFile& f, PIVEVAL_CFG& c) {
    char text[256];
    _text(f, "image_coordinates", "Image(0,0) is lower-left", text, sizeof(text));
    f.serializeInt("image_cols", &c.grid.imageSize.width);
    f.serializeInt("image_rows", &c.grid.imageSize.height);
    f.serializeInt("image_depth", &c.grid.imageSize.depth);
    f.serializeInt("corr_mode", &c.CorrelationMode);
    _xyz(f, "ev_IS_size", &c.SampleSize.width, &c.SampleSize.height, &c.SampleSize.depth);
    _xyz(f, "ev_IS_grid_distance", &c.grid.step.width, &c.grid.step.height, &c.grid.step.depth);
    if (!f.isWriting()) {
        if (c.grid.step.width < 1) c.grid.step.width = 16;
        if (c.grid.step.height < 1) c.grid.step.height = 16;
        if (c.grid.step.depth < 1) c.grid.step.depth = 1;
    }
    // The file counts the y offset upwards.
    int offY = _flipped(c.SampleOffset.y);
    f.serializeInt("ev_IS_offset_x", &c.SampleOffset.x);
    if (f.serializeInt("ev_IS_offset_y", &offY) && !f.isWriting())
        c.SampleOffset.y = _flipped(offY);
    f.serializeInt("ev_IS_offset_z", &c.SampleOffset.z);
    float distortion = 1;
    f.serializeFloat("ev_IS_xy_distortion", &distortion);
    _xyz(f, "ev_IS_scan", &c.ScanRange.width, &c.ScanRange.height, &c.ScanRange.depth);
    bool bottom = false;
    if (!f.isWriting() && f.serializeBool("ev_grid_align_bottom", &bottom) && bottom)
        c.grid.align = 1;
    f.serializeInt("ev_grid_align", &c.grid.align);
    _xyz(f, "ev_grid_anchor", &c.grid.anchor.x, &c.grid.anchor.y, &c.grid.anchor.z);
    f.serializeBool("image_ROI_enable", &c.grid.roiEnabled);
    RECT3D& r = c.grid.roi;
    f.serializeInt("image_ROI_left", &r.left);
    f.serializeInt("image_ROI_right", &r.right);
    f.serializeInt("image_ROI_top", &r.top);
    f.serializeInt("image_ROI_bottom", &r.bottom);
    f.serializeInt("image_ROI_front", &r.front);
    f.serializeInt("image_ROI_back", &r.back);
    if (!f.isWriting()) {
        if (r.left > r.right) std::swap(r.left, r.right);
        if (r.top > r.bottom) std::swap(r.top, r.bottom);
        if (r.front < r.back) std::swap(r.front, r.back);
    }
    f.serializeInt("ev_num_passes", &c.Passes);
    if (_text(f, "ev_method", PIV::MethodDescription(c), text, sizeof(text)) && !f.isWriting()) {
        c.Method = _contains(text, "multigrid") ? 2 : _contains(text, "multiple-pass") ? 1 : 0;
        if (_contains(text, "image-def")) c.ImageMapping2D.Mode = 1;
    }
    _xyz(f, "ev_multigrid_win", &c.MultiGrid_SampleSize.width, &c.MultiGrid_SampleSize.height,
         nullptr);
    _xyz(f, "ev_multigrid_step", &c.MultiGrid_SampleStep.width, &c.MultiGrid_SampleStep.height,
         nullptr);
    f.serializeInt("ev_multigrid_desample", &c.MultiGrid_Desample);
    f.serializeBool("ev_multigrid_reevaluate_baddata", &c.MultiGrid_ReevaluateBaddata);
    f.serializeInt("ev_multigrid_finalscans", &c.MultiGrid_FinalScans);
    f.serializeBool("ev_multigrid_fastpyramid", &c.MultiGrid_FastPyramid);
    f.serializeBool("ev_multigrid_dcc_on_final_pass", &c.MultiGrid_DCConFinalPass);
    _imageDef(f, "ev_image_deform", c.ImageMapping2D);
    _imageDef(f, "ev_volume_deform", c.VolumeDeform);
    f.serializeInt("corr_filter_window_type", &c.CorrFilter_WindowType);
    f.serializeBool("corr_filter_nyquist", &c.CorrFilter_Nyquist);
    if (_text(f, "corr_method", c.MultiCorr ? "repeated CCF using FFTs" : "standard CCF using FFTs",
              text, sizeof(text)) &&
        !f.isWriting())
        c.MultiCorr =
            _contains(text, "hart") || _contains(text, "double") || _contains(text, "repeated");
    int mcY = _flipped(c.MultiCorr_Offset.y);
    if (!f.isWriting()) {
        int oldY = 0;
        f.serializeInt("ev_hartcorr_offset_x", &c.MultiCorr_Offset.x);
        if (f.serializeInt("ev_hartcorr_offset_y", &oldY)) c.MultiCorr_Offset.y = _flipped(oldY);
        f.serializeInt("ev_doublecorr_offset_x", &c.MultiCorr_Offset.x);
        if (f.serializeInt("ev_doublecorr_offset_y", &oldY)) c.MultiCorr_Offset.y = _flipped(oldY);
    }
    f.serializeInt("ev_multicorr_offset_x", &c.MultiCorr_Offset.x);
    if (f.serializeInt("ev_multicorr_offset_y", &mcY) && !f.isWriting())
        c.MultiCorr_Offset.y = _flipped(mcY);
    f.serializeBool("ev_multicorr_summingmode", &c.MultiCorr_Average);
    f.serializeInt("ev_multicorr_count", &c.MultiCorr_Count);
    _text(f, "pd_algorithm", "multiple peak search with peak fit", text, sizeof(text));
    f.serializeInt("pd_peak_fit_type", &c.Type);
    if (_text(f, "pd_peak_fit", _peakFitText(c.Type), text, sizeof(text)) && !f.isWriting()) {
        c.Type = _contains(text, "nonlinear")       ? 5
                 : _contains(text, "least-squares") ? 1
                 : _contains(text, "whittaker")     ? 4
                 : _contains(text, "parabolic")     ? 2
                 : _contains(text, "centroid")      ? 3
                                                    : 0;
    }
    f.serializeInt("pd_peak_fit_size", &c.Size);
    f.serializeInt("pd_max_iter", &c.MaxIter);
    f.serializeDouble("pd_cut_off", &c.CutOff);
    f.serializeBool("pd_use_ROI", &c.ROI);
    if (c.ROI) {
        _xyz(f, "pd_ROI", &c.ROI_Size.width, &c.ROI_Size.height, nullptr);
        c.ROI_Size.width = std::max(2, c.ROI_Size.width);
        c.ROI_Size.height = std::max(2, c.ROI_Size.height);
    }
    f.serializeBool("pd_use_ROI_final", &c.FinalROI);
    if (c.FinalROI) {
        _xyz(f, "pd_ROI_final", &c.FinalROI_Size.width, &c.FinalROI_Size.height, nullptr);
        c.FinalROI_Size.width = std::max(2, c.FinalROI_Size.width);
        c.FinalROI_Size.height = std::max(2, c.FinalROI_Size.height);
    }
    f.serializeBool("pd_zeropeak_elim", &c.SelfCorrelation_Eliminate);
    if (c.SelfCorrelation_Eliminate)
        f.serializeFloat("pd_zeropeak_dist", &c.SelfCorrelation_Radius);
    f.serializeInt("piv_eval_optimize_speed", &c.SpeedOptimization);
}

void _serializeConvertCfg(MyNcFile& f, PIVCONVERT_CFG& c, SIZE3D& image) {
    f.serializeInt("image_cols", &image.width);
    f.serializeInt("image_rows", &image.height);
    f.serializeInt("image_depth", &image.depth);
    f.serializeDouble("laser_pulse_delay", &c.PulseDelay);
    f.serializeString("laser_pulse_delay_units", c.PulseDelayUnits, sizeof(c.PulseDelayUnits));
    f.serializeDouble("length_conversion", &c.LengthConversion[0]);
    f.serializeDouble("length_conversion_y", &c.LengthConversion[1]);
    f.serializeDouble("length_conversion_z", &c.LengthConversion[2]);
    f.serializeString("length_conversion_units", c.LengthConversionUnits,
                      sizeof(c.LengthConversionUnits));
    f.serializeString("velocity_units", c.VelocityUnits, sizeof(c.VelocityUnits));
    double ratio = 1;
    if (f.isWriting() && c.LengthConversion[1] != 0 &&
        c.LengthConversion[0] != c.LengthConversion[1])
        ratio = c.LengthConversion[0] / c.LengthConversion[1];
    const bool haveRatio = f.serializeDouble("squareness_ratio", &ratio);
    double distortion = ratio;
    f.serializeDouble("ev_CF_xy_distortion", &distortion);
    float originRow = float(image.height - c.ImageOrigin.y - 1);
    float col = float(c.ImageOrigin.x), depth = float(c.ImageOrigin.z);
    f.serializeFloat("origin_in_image_col", &col);
    f.serializeFloat("origin_in_image_row", &originRow);
    f.serializeFloat("origin_in_image_depth", &depth);
    f.serializeFloat("origin_offset_x", &c.PhysicalOrigin.x);
    f.serializeFloat("origin_offset_y", &c.PhysicalOrigin.y);
    f.serializeFloat("origin_offset_z", &c.PhysicalOrigin.z);
    if (f.isWriting()) return;
    c.ImageOrigin.x = int(std::lround(col));
    c.ImageOrigin.y = int(std::lround(image.height - originRow - 1));
    c.ImageOrigin.z = int(std::lround(depth));
    double& mag = c.LengthConversion[0];
    if (mag == 0 || std::fabs(mag) > 1e12) {
        DebugPrint("invalid magnification factor: %g   defaulting to mag=1", mag);
        mag = 1;
    }
    c.LengthConversion[1] = c.LengthConversion[2] = mag;
    if (haveRatio && ratio != 1 && ratio != 0) c.LengthConversion[1] = mag / ratio;
}

void _serializeOutlierCfg(MyNcFile& f, OUTLIER_CFG& c, int var) {
    f.serializeBool("outlier_check", &c.Enable, var);
    f.serializeInt("outlier_validation_passes", &c.NumberOfPasses, var);
    f.serializeBool("outlier_check_displ", &c.CheckDisplacement, var);
    f.serializeFloat("outlier_max_displ", &c.MaxDisplacement, var);
    f.serializeBool("outlier_check_diff", &c.CheckDifference, var);
    f.serializeFloat("outlier_max_diff", &c.MaxDifference, var);
    f.serializeBool("outlier_check_chauvenet", &c.CheckChauvenet, var);
    f.serializeFloat("outlier_chauvenet_threshold", &c.ChauvenetThreshold, var);
    f.serializeBool("outlier_check_zscore", &c.CheckZScore, var);
    f.serializeFloat("outlier_zscore_threshold", &c.ZScoreThreshold, var);
    bool hist = c.CheckGlobalHist;
    if (f.serializeBool("outlier_global_hist", &hist, var) || f.isWriting())
        c.CheckGlobalHist = hist;
    if (hist) {
        for (int n = 0; n < 3; n++) {
            GLOBALHIST_ROI& h = c.GlobalHist[n];
            char name[64];
            int types[2] = {h.type1, h.type2};
            std::snprintf(name, sizeof(name), "outlier_global_hist_type%d", n);
            if (f.serializeArrayInt(name, types, 2, var)) {
                h.type1 = types[0] != 0;
                h.type2 = types[1] != 0;
            }
            float xs[2] = {h.xMin, h.xMax}, ys[2] = {h.yMin, h.yMax};
            std::snprintf(name, sizeof(name), "outlier_global_hist_x%d", n);
            if (f.serializeArrayFloat(name, xs, 2, var)) h.xMin = xs[0], h.xMax = xs[1];
            std::snprintf(name, sizeof(name), "outlier_global_hist_y%d", n);
            if (f.serializeArrayFloat(name, ys, 2, var)) h.yMin = ys[0], h.yMax = ys[1];
        }
    }
    f.serializeBool("outlier_check_median", &c.CheckMedian, var);
    f.serializeFloat("outlier_median_thresh", &c.MedianThreshold, var);
    if (!f.isWriting()) {
        // Old files know only the plain median: it carries over.
        c.CheckNormalizedMedian = c.CheckMedian;
        c.NormalizedMedianThreshold = c.MedianThreshold;
    }
    f.serializeBool("outlier_check_normalized_median", &c.CheckNormalizedMedian, var);
    f.serializeFloat("outlier_normalized_median_thresh", &c.NormalizedMedianThreshold, var);
    f.serializeFloat("outlier_noise_floor", &c.NormalizedMedianNoiseFloor, var);
    f.serializeBool("outlier_check_dynmean", &c.CheckDynMean, var);
    f.serializeFloat("outlier_dynmean_c1", &c.DynMeanC1, var);
    f.serializeFloat("outlier_dynmean_c2", &c.DynMeanC2, var);
    f.serializeBool("outlier_check_correlation", &c.CheckCorrelation, var);
    f.serializeFloat("outlier_min_correlation", &c.MinCorrelation, var);
    f.serializeBool("outlier_check_peakratio", &c.CheckPeakRatio, var);
    f.serializeFloat("outlier_min_peakratio", &c.MinPeakRatio, var);
    f.serializeBool("outlier_check_snr", &c.CheckSNR, var);
    f.serializeFloat("outlier_min_snr", &c.MinSNR, var);
    f.serializeBool("outlier_check_residuals", &c.CheckResiduals, var);
    f.serializeFloat("outlier_max_residuals", &c.MaxResiduals, var);
    f.serializeBool("outlier_try_other_peak", &c.TryOtherPeaks, var);
    f.serializeBool("outlier_interpolate", &c.InterpolateOutliers, var);
}

void _serializeDiffCfg(MyNcFile& f, DIFFERENTIATE_CFG& c) {
    f.serializeBool("fdiff_calc_spacing", &c.CalculateSpacing);
    f.serializeInt("fdiff_spacing_x", &c.Spacing.width);
    f.serializeInt("fdiff_spacing_y", &c.Spacing.height);
}

// The variable that holds a view's records in a stereo project; -1 for
// global attributes.
int _getViewVariable(MyNcFile& f, int view) {
    if (view < 1 || view > 9) return -1;
    char name[8];
    std::snprintf(name, sizeof(name), "view%c", char('a' + view - 1));
    NcVar* var = f.get_var(name);
    if (!var) return -1;
    DebugPrintExt(2, "_getViewVariable(%s)- apparently have stereo project", name);
    for (int i = 0; i < f.num_vars(); i++)
        if (f.get_var(i) == var) return i;
    return -1;
}

// Adds to `fileName` through a copy beside it, renamed over it when the
// attributes are in; a new file is created the same way.
template <class Fn>
int _writeAtomic(const char* fileName, Fn write) {
    if (!fileName || !*fileName) return 0;
    PIV::TempFile tmp(fileName);
    if (tmp.path().empty() || !tmp.file()) return 0;
    const bool existing = _exists(fileName);
    if (existing) {
        PIV::FilePtr in = PIV::OpenFile(fileName, "rb");
        if (!in) return 0;
        char buffer[65536];
        std::size_t n;
        while ((n = std::fread(buffer, 1, sizeof(buffer), in.get())) > 0)
            if (std::fwrite(buffer, 1, n, tmp.file()) != n) return 0;
        if (std::ferror(in.get())) return 0;
    }
    if (!tmp.closeStream()) return 0;
    {
        MyNcFile file(tmp.path().c_str(), MyNcFile::WRITE,
                      existing ? NcFile::Write : NcFile::Replace);
        if (!file.is_valid()) return 0;
        if (!write(file)) return 0;
        if (!file.close()) return 0;
    }
    return tmp.commit(fileName) ? 1 : 0;
}

void _addContent(MyNcFile& f) {
    char text[8];
    NcAtt* att = f.get_att("file_content");
    if (att) {
        delete att;
        return;
    }
    (void)text;
    f.add_att("file_content", "DPIV process parameters");
}

void _fileName(MyNcFile& f, const char* name, char* text, int size, bool* enable) {
    if (f.isWriting()) {
        PIV::ReplaceBackslashes(text);
        if (std::strlen(text) > 1) f.serializeString(name, text, size);
        return;
    }
    if (!f.serializeString(name, text, size)) {
        text[0] = '\0';
        if (enable) *enable = false;
    } else {
        PIV::ReplaceBackslashes(text);
    }
}

void _transform(MyNcFile& f, const char* base, IMAGE_TRANSFORMATION_CFG& t, int var) {
    char name[128];
    const auto key = [&](const char* suffix) {
        std::snprintf(name, sizeof(name), "%s_%s", base, suffix);
        return name;
    };
    f.serializeDouble(key("shift_x"), &t.TranslateX, var);
    f.serializeDouble(key("shift_y"), &t.TranslateY, var);
    f.serializeDouble(key("rotate"), &t.Rotate, var);
    f.serializeDouble(key("origin_x"), &t.OriginX, var);
    f.serializeDouble(key("origin_y"), &t.OriginY, var);
    f.serializeDouble(key("stretch_x"), &t.StretchX, var);
    f.serializeDouble(key("stretch_y"), &t.StretchY, var);
    f.serializeDouble(key("skew_x"), &t.SkewX, var);
    f.serializeDouble(key("skew_y"), &t.SkewY, var);
}

}  // namespace

bool PIV::SerializeParametersNc(MyNcFile& f, PIV_PARAMETERS* p, int view) {
    const int var = _getViewVariable(f, view);
    if (!f.isWriting()) p->eval.grid.imageSize = {512, 512, 1};
    _serializeEvalCfg(f, p->eval);
    _serializeConvertCfg(f, p->convert, p->eval.grid.imageSize);
    if (!f.isWriting()) UpdateConversionFactors(&p->convert);
    _serializeOutlierCfg(f, p->outlier, var);
    _serializeDiffCfg(f, p->differentiate);
    return true;
}

bool PIV::SerializeImageCfgNc(MyNcFile& f, IMAGE_CFG* c, int view) {
    const int var = _getViewVariable(f, view);
    f.serializeInt("image_rotation", &c->Rotation);
    f.serializeInt("image_flip", &c->Flip);
    f.serializeInt("image_interpolation_method", &c->InterpolationMethod);
    f.serializeInt("image_interpolation_degree", &c->InterpolationDegree);
    f.serializeBool("image_bkgd_subtr", &c->BkgdSubtract, var);
    f.serializeBool("image_bkgd_subtr2", &c->Bkgd2Subtract, var);
    f.serializeInt("image_bkgd_subtr_method", &c->BkgdSubtractMethod, var);
    f.serializeFloat("image_bkgd_subtr_scalefactor", &c->BkgdSubtractScaleFactor, var);
    // The first background name has room for 1023 characters only.
    _fileName(f, "image_bkgd_file", c->Bkgd, 1024, &c->BkgdSubtract);
    _fileName(f, "image_bkgd2_file", c->Bkgd2, sizeof(c->Bkgd2), &c->Bkgd2Subtract);
    f.serializeBool("image_mask_apply", &c->MaskEnable, var);
    f.serializeBool("image_mask2_apply", &c->Mask2Enable, var);
    f.serializeBool("image_mask_invert", &c->MaskInvert, var);
    f.serializeBool("image_mask_randomize", &c->MaskRandomize, var);
    _fileName(f, "image_mask_file", c->Mask, sizeof(c->Mask), &c->MaskEnable);
    _fileName(f, "image_mask2_file", c->Mask2, sizeof(c->Mask2), &c->Mask2Enable);
    IMAGE_TRANSFORMATION_CFG& t = c->transformation;
    f.serializeBool("image_transform_apply", &t.Enable, var);
    if (t.Enable) {
        f.serializeBool("image_transform_image2", &t.SecondImageOnly, var);
        _transform(f, "image_transform", t, var);
    }
    IMAGE_FILTER_CFG& k = c->filters;
    f.serializeBool("image_minmax_apply", &k.MinMax, var);
    if (k.MinMax) f.serializeInt("image_minmax_kernel", &k.MinMaxKernel, var);
    f.serializeBool("image_crop", &c->Crop, var);
    if (c->Crop) {
        RECT3D& r = c->CropRect;
        int x = r.left, y = r.top, z = r.back, w = r.right - r.left, h = r.bottom - r.top,
            d = r.front - r.back;
        f.serializeInt("image_crop_x", &x, var);
        f.serializeInt("image_crop_y", &y, var);
        f.serializeInt("image_crop_z", &z, var);
        f.serializeInt("image_crop_width", &w, var);
        f.serializeInt("image_crop_height", &h, var);
        f.serializeInt("image_crop_depth", &d, var);
        if (!f.isWriting()) r = {x, x + w, y, y + h, z + d, z};
    }
    f.serializeBool("image_split_pco", &c->SplitPCO, var);
    if (!f.isWriting()) {
        f.serializeBool("image_invert", &k.Invert, var);
        f.serializeBool("image_clip_negative", &k.HighpassClipNegative, var);
        f.serializeBool("image_binarize", &k.ThresholdBinarize, var);
        f.serializeFloat("image_binarize_thresh", &k.ThresholdLevel, var);
        f.serializeBool("image_antialias", &k.Lowpass, var);
        f.serializeFloat("image_antialias_cutoff", &k.LowpassCutOff, var);
        f.serializeBool("image_anitalias_gauss", &k.LowpassUseGauss, var);
        f.serializeBool("image_dynhistequal", &k.HistEqual, var);
    }
    f.serializeBool("image_negative", &k.Invert, var);
    f.serializeBool("image_convert_float", &k.UseFloat, var);
    f.serializeBool("image_median", &k.Median, var);
    f.serializeInt("image_median_filter", &k.MedianSize, var);
    f.serializeBool("image_highpass", &k.Highpass, var);
    f.serializeFloat("image_highpass_cutoff", &k.HighpassCutOff, var);
    f.serializeBool("image_highpass_gauss", &k.HighpassUseGauss, var);
    f.serializeBool("image_highpass_clip_negative", &k.HighpassClipNegative, var);
    f.serializeBool("image_threshold", &k.Threshold, var);
    f.serializeFloat("image_threshold_level", &k.ThresholdLevel, var);
    f.serializeBool("image_threshold_binarize", &k.ThresholdBinarize, var);
    f.serializeBool("image_lowpass", &k.Lowpass, var);
    f.serializeBool("image_lowpass_gauss", &k.LowpassUseGauss, var);
    f.serializeFloat("image_lowpass_cutoff", &k.LowpassCutOff, var);
    f.serializeBool("image_dynhistclip", &k.HistEqual, var);
    f.serializeFloat("image_dynhistmin", &k.HistMin, var);
    f.serializeFloat("image_dynhistmax", &k.HistMax, var);
    if (var >= 0) return true;
    f.serializeBool("image_dewarping", &c->Dewarp);
    f.serializeInt("image_dewarping_view", &c->DewarpView);
    f.serializeBool("image_dewarping_calibration", &c->DewarpCalibrate);
    _fileName(f, "image_dewarping_file", c->DewarpFile, sizeof(c->DewarpFile), nullptr);
    return true;
}

bool PIV::SerializePostProcessCfgNc(MyNcFile& f, POSTPROCESS_CFG* c, int view) {
    const int var = _getViewVariable(f, view);
    DATACOMBINE_CFG& d = c->combine;
    f.serializeBool("postprocess_datacombine_apply", &d.Apply, var);
    if (d.Apply) {
        f.serializeInt("postprocess_datacombine_mode", &d.Mode, var);
        _fileName(f, "postprocess_datacombine_file", d.File, sizeof(d.File), nullptr);
        f.serializeBool("postprocess_datacombine_fit_apply", &d.FitApply, var);
        f.serializeInt("postprocess_datacombine_fit_order_x", &d.FitOrderX, var);
        f.serializeInt("postprocess_datacombine_fit_order_y", &d.FitOrderY, var);
        f.serializeBool("postprocess_datacombine_interpolate", &d.Interpolate, var);
        f.serializeDouble("postprocess_datacombine_interploate_radius", &d.InterpolateRadius, var);
    }
    f.serializeBool("postprocess_transform_apply", &c->transformation.Enable, var);
    if (c->transformation.Enable) _transform(f, "postprocess_transform", c->transformation, var);
    f.serializeBool("postprocess_mask_apply", &c->MaskEnable);
    f.serializeBool("postprocess_mask_invert", &c->MaskInvert, var);
    _fileName(f, "postprocess_mask_file", c->MaskFile, sizeof(c->MaskFile), &c->MaskEnable);
    f.serializeBool("postprocess_interpolate_disabled", &c->InterpolateDisabledVectors);
    f.serializeBool("postprocess_filter_median_apply", &c->MedianApply, var);
    f.serializeInt("postprocess_filter_median_size", &c->MedianSize, var);
    f.serializeBool("postprocess_filter_smooth_apply", &c->SmoothApply, var);
    f.serializeFloat("postprocess_filter_smooth_kernel", &c->SmoothKernel, var);
    return true;
}

int PIV::SaveParameters(const char* fileName, const PIV_PARAMETERS* params, int view) {
    if (!params) return 0;
    PIV_PARAMETERS p = *params;
    return _writeAtomic(fileName, [&](MyNcFile& f) {
        _addContent(f);
        return SerializeParametersNc(f, &p, view);
    });
}

int PIV::SaveImageCfg(const char* fileName, const IMAGE_CFG* cfg, int view) {
    if (!cfg) return 0;
    IMAGE_CFG c = *cfg;
    return _writeAtomic(fileName, [&](MyNcFile& f) {
        _addContent(f);
        return SerializeImageCfgNc(f, &c, view);
    });
}

int PIV::SavePostProcessCfg(const char* fileName, const POSTPROCESS_CFG* cfg, int view) {
    if (!cfg) return 0;
    POSTPROCESS_CFG c = *cfg;
    return _writeAtomic(fileName, [&](MyNcFile& f) {
        _addContent(f);
        return SerializePostProcessCfgNc(f, &c, view);
    });
}

int PIV::SaveParameterRecords(const char* fileName, const PIV_PARAMETERS* params,
                              const IMAGE_CFG* image, const POSTPROCESS_CFG* post, int view) {
    if (!params || !image || !post) return 0;
    PIV_PARAMETERS p = *params;
    IMAGE_CFG i = *image;
    POSTPROCESS_CFG pp = *post;
    return _writeAtomic(fileName, [&](MyNcFile& f) {
        _addContent(f);
        return SerializeParametersNc(f, &p, view) && SerializeImageCfgNc(f, &i, view) &&
               SerializePostProcessCfgNc(f, &pp, view);
    });
}

int PIV::ReadParameters(const char* fileName, PIV_PARAMETERS* params, int view) {
    if (!params || !_exists(fileName)) return 0;
    MyNcFile f(fileName, MyNcFile::READ, NcFile::ReadOnly);
    if (!f.is_valid()) return 0;
    return SerializeParametersNc(f, params, view) ? 1 : 0;
}

int PIV::ReadImageCfgNetCDF(const char* fileName, IMAGE_CFG* cfg, int view) {
    if (!cfg || !_exists(fileName)) return 0;
    MyNcFile f(fileName, MyNcFile::READ, NcFile::ReadOnly);
    return f.is_valid() && SerializeImageCfgNc(f, cfg, view) ? 1 : 0;
}

int PIV::ReadPostProcessCfgNetCDF(const char* fileName, POSTPROCESS_CFG* cfg, int view) {
    if (!cfg || !_exists(fileName)) return 0;
    MyNcFile f(fileName, MyNcFile::READ, NcFile::ReadOnly);
    return f.is_valid() && SerializePostProcessCfgNc(f, cfg, view) ? 1 : 0;
}
