#include "par_records.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <sstream>
#include <utility>

#include "piv_record.h"

namespace par_test {
namespace {

enum class Kind { Int, PositiveInt, Bool, Float, Double, PositiveDouble, Text };

struct Field {
    const char* name;
    Kind kind;
    void* (*at)(ParRecords&);
    std::size_t size;  // of the text array
};

#define PAR_FIELD(kind, path)                                                             \
    Field {                                                                               \
#path, kind,                                                                      \
            [](ParRecords &                                                               \
               r) -> void* { return &r.path; }, sizeof(std::declval <ParRecords&>().path) \
    }
#define I(path) PAR_FIELD(Kind::Int, path)
#define B(path) PAR_FIELD(Kind::Bool, path)
#define F(path) PAR_FIELD(Kind::Float, path)
#define D(path) PAR_FIELD(Kind::Double, path)
#define T(path) PAR_FIELD(Kind::Text, path)

// Written from the tables of keys: every field that some key carries. The
// rectangle the file stores by extent, and the y and z length factors, are
// handled apart below.
const std::vector<Field>& carriedFields() {
    // clang-format off
    static const std::vector<Field> fields = {
        // IMAGE_CFG
        I(image.Rotation), I(image.Flip), B(image.SplitPCO), I(image.SplitMode),
        I(image.ZDirection), I(image.InterpolationMethod), I(image.InterpolationDegree),
        B(image.filters.UseFloat), B(image.BkgdSubtract), T(image.Bkgd), B(image.Bkgd2Subtract),
        T(image.Bkgd2), I(image.BkgdSubtractMethod), F(image.BkgdSubtractScaleFactor),
        B(image.MaskEnable), B(image.MaskInvert), B(image.MaskRandomize), T(image.Mask),
        B(image.Mask2Enable), T(image.Mask2), B(image.Crop), B(image.transformation.Enable),
        B(image.transformation.SecondImageOnly), D(image.transformation.TranslateX),
        D(image.transformation.TranslateY), D(image.transformation.Rotate),
        D(image.transformation.OriginX), D(image.transformation.OriginY),
        D(image.transformation.SkewX), D(image.transformation.SkewY),
        D(image.transformation.StretchX), D(image.transformation.StretchY), B(image.filters.Invert),
        B(image.filters.HistEqual), B(image.filters.Median), I(image.filters.MedianSize),
        B(image.filters.Highpass), F(image.filters.HighpassCutOff),
        B(image.filters.HighpassUseGauss), B(image.filters.HighpassClipNegative),
        B(image.filters.Threshold), F(image.filters.ThresholdLevel),
        B(image.filters.ThresholdBinarize), B(image.filters.Lowpass),
        F(image.filters.LowpassCutOff), B(image.filters.LowpassUseGauss), F(image.filters.HistMin),
        F(image.filters.HistMax), B(image.filters.MinMax), I(image.filters.MinMaxKernel),
        B(image.Dewarp), I(image.DewarpView), T(image.DewarpFile), B(image.DewarpCalibrate),
        // PIVEVAL_CFG
        I(params.eval.grid.imageSize.width), I(params.eval.grid.imageSize.height),
        I(params.eval.grid.imageSize.depth), B(params.eval.grid.roiEnabled),
        I(params.eval.grid.roi.left), I(params.eval.grid.roi.right), I(params.eval.grid.roi.top),
        I(params.eval.grid.roi.bottom), I(params.eval.grid.roi.front), I(params.eval.grid.roi.back),
        I(params.eval.CorrelationMode), I(params.eval.SampleSize.width),
        I(params.eval.SampleSize.height),
        PAR_FIELD(Kind::PositiveInt, params.eval.SampleSize.depth), I(params.eval.grid.step.width),
        I(params.eval.grid.step.height), PAR_FIELD(Kind::PositiveInt, params.eval.grid.step.depth),
        I(params.eval.SampleOffset.x), I(params.eval.SampleOffset.y), I(params.eval.SampleOffset.z),
        I(params.eval.ScanRange.width), I(params.eval.ScanRange.height),
        I(params.eval.ScanRange.depth), I(params.eval.grid.align), I(params.eval.grid.anchor.x),
        I(params.eval.grid.anchor.y), I(params.eval.grid.anchor.z), I(params.eval.Method),
        I(params.eval.Passes), I(params.eval.MultiGrid_SampleSize.width),
        I(params.eval.MultiGrid_SampleSize.height), I(params.eval.MultiGrid_SampleSize.depth),
        I(params.eval.MultiGrid_SampleStep.width), I(params.eval.MultiGrid_SampleStep.height),
        I(params.eval.MultiGrid_SampleStep.depth), I(params.eval.MultiGrid_Desample),
        B(params.eval.MultiGrid_ReevaluateBaddata), I(params.eval.MultiGrid_FinalScans),
        B(params.eval.MultiGrid_FastPyramid), B(params.eval.MultiGrid_DCConFinalPass),
        I(params.eval.ImageMapping2D.Mode), I(params.eval.ImageMapping2D.Method),
        I(params.eval.ImageMapping2D.Order), I(params.eval.ImageMapping2D.Passes),
        I(params.eval.VolumeDeform.Mode), I(params.eval.VolumeDeform.Method),
        I(params.eval.VolumeDeform.Order), I(params.eval.VolumeDeform.Passes),
        I(params.eval.CorrFilter_WindowType), B(params.eval.CorrFilter_Nyquist),
        B(params.eval.MultiCorr), I(params.eval.MultiCorr_Offset.x),
        I(params.eval.MultiCorr_Offset.y), I(params.eval.MultiCorr_Count),
        B(params.eval.MultiCorr_Average), I(params.eval.Type), I(params.eval.Size),
        B(params.eval.ROI), I(params.eval.ROI_Size.width), I(params.eval.ROI_Size.height),
        I(params.eval.ROI_Size.depth), B(params.eval.FinalROI), I(params.eval.FinalROI_Size.width),
        I(params.eval.FinalROI_Size.height), I(params.eval.FinalROI_Size.depth),
        I(params.eval.MaxIter), D(params.eval.CutOff), B(params.eval.SelfCorrelation_Eliminate),
        F(params.eval.SelfCorrelation_Radius), I(params.eval.SpeedOptimization),
        // OUTLIER_CFG
        B(params.outlier.Enable), I(params.outlier.NumberOfPasses), B(params.outlier.TryOtherPeaks),
        B(params.outlier.InterpolateOutliers), B(params.outlier.CheckDisplacement),
        F(params.outlier.MaxDisplacement), B(params.outlier.CheckDifference),
        F(params.outlier.MaxDifference), B(params.outlier.CheckChauvenet),
        F(params.outlier.ChauvenetThreshold), B(params.outlier.CheckZScore),
        F(params.outlier.ZScoreThreshold), B(params.outlier.CheckMedian),
        F(params.outlier.MedianThreshold), B(params.outlier.CheckNormalizedMedian),
        F(params.outlier.NormalizedMedianThreshold), F(params.outlier.NormalizedMedianNoiseFloor),
        B(params.outlier.CheckDynMean), F(params.outlier.DynMeanC1), F(params.outlier.DynMeanC2),
        B(params.outlier.CheckCorrelation), F(params.outlier.MinCorrelation),
        B(params.outlier.CheckPeakRatio), F(params.outlier.MinPeakRatio),
        B(params.outlier.CheckSNR), F(params.outlier.MinSNR), B(params.outlier.CheckResiduals),
        F(params.outlier.MaxResiduals), B(params.outlier.CheckGlobalHist),
        B(params.outlier.GlobalHist[0].type1), B(params.outlier.GlobalHist[0].type2),
        F(params.outlier.GlobalHist[0].xMin), F(params.outlier.GlobalHist[0].xMax),
        F(params.outlier.GlobalHist[0].yMin), F(params.outlier.GlobalHist[0].yMax),
        B(params.outlier.GlobalHist[1].type1), B(params.outlier.GlobalHist[1].type2),
        F(params.outlier.GlobalHist[1].xMin), F(params.outlier.GlobalHist[1].xMax),
        F(params.outlier.GlobalHist[1].yMin), F(params.outlier.GlobalHist[1].yMax),
        B(params.outlier.GlobalHist[2].type1), B(params.outlier.GlobalHist[2].type2),
        F(params.outlier.GlobalHist[2].xMin), F(params.outlier.GlobalHist[2].xMax),
        F(params.outlier.GlobalHist[2].yMin), F(params.outlier.GlobalHist[2].yMax),
        // PIVCONVERT_CFG
        D(params.convert.PulseDelay),
        PAR_FIELD(Kind::PositiveDouble, params.convert.LengthConversion[0]),
        T(params.convert.LengthConversionUnits), T(params.convert.VelocityUnits),
        I(params.convert.ImageOrigin.x), I(params.convert.ImageOrigin.y),
        I(params.convert.ImageOrigin.z), F(params.convert.PhysicalOrigin.x),
        F(params.convert.PhysicalOrigin.y), F(params.convert.PhysicalOrigin.z),
        // POSTPROCESS_CFG
        B(post.combine.Apply), T(post.combine.File), I(post.combine.Mode), B(post.combine.FitApply),
        I(post.combine.FitOrderX), I(post.combine.FitOrderY), B(post.combine.Interpolate),
        PAR_FIELD(Kind::Float, post.combine.InterpolateRadius), B(post.transformation.Enable),
        D(post.transformation.TranslateX), D(post.transformation.TranslateY),
        D(post.transformation.Rotate), D(post.transformation.OriginX),
        D(post.transformation.OriginY), D(post.transformation.SkewX), D(post.transformation.SkewY),
        D(post.transformation.StretchX), D(post.transformation.StretchY),
        B(post.InterpolateDisabledVectors), B(post.MedianApply), I(post.MedianSize),
        B(post.SmoothApply), F(post.SmoothKernel), B(post.MaskEnable), T(post.MaskFile),
        B(post.MaskInvert),
    };
    // clang-format on
    return fields;
}

#undef I
#undef B
#undef F
#undef D
#undef T

// Floats and doubles alike, told apart by the field's size.
double number(const Field& f, ParRecords& r) {
    void* p = f.at(r);
    return f.size == sizeof(float) ? *static_cast<float*>(p) : *static_cast<double*>(p);
}

void setNumber(const Field& f, ParRecords& r, double v) {
    void* p = f.at(r);
    if (f.size == sizeof(float)) *static_cast<float*>(p) = static_cast<float>(v);
    if (f.size == sizeof(double)) *static_cast<double*>(p) = v;
}

// Six significant digits: %g rounds within half a unit of the sixth digit.
bool closeEnough(double a, double b, double relative) {
    return a == b || std::fabs(a - b) <= relative * std::max(std::fabs(a), std::fabs(b));
}

double randomMagnitude(std::mt19937& rng, int minExp, int maxExp) {
    return std::uniform_real_distribution<double>(1.0, 10.0)(rng) *
           std::pow(10.0, std::uniform_int_distribution<int>(minExp, maxExp)(rng));
}

// Printable characters, blanks and separators included, no double quote.
std::string randomText(std::mt19937& rng, std::size_t maxLength) {
    static const std::string alphabet =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789 =;,._-/\\#[%!()";
    std::string s(std::uniform_int_distribution<std::size_t>(0, maxLength)(rng), ' ');
    for (char& c : s)
        c = alphabet[std::uniform_int_distribution<std::size_t>(0, alphabet.size() - 1)(rng)];
    return s;
}

// Mostly moderate, now and then the extremes and zero.
int randomInt(std::mt19937& rng) {
    const int extremes[3] = {INT_MAX, INT_MIN, 0};
    const int choice = std::uniform_int_distribution<int>(0, 19)(rng);
    return choice < 3 ? extremes[choice] : std::uniform_int_distribution<int>(-100000, 100000)(rng);
}

std::string show(double v) {
    std::ostringstream s;
    s.precision(9);
    s << v;
    return s.str();
}

}  // namespace

void FillRandom(ParRecords& r, std::mt19937& rng) {
    std::bernoulli_distribution coin(0.5);
    for (const Field& f : carriedFields()) {
        void* p = f.at(r);
        if (f.kind == Kind::Int) *static_cast<int32_t*>(p) = randomInt(rng);
        if (f.kind == Kind::PositiveInt)
            *static_cast<int32_t*>(p) = std::uniform_int_distribution<int>(1, 4096)(rng);
        if (f.kind == Kind::Bool) *static_cast<bool*>(p) = coin(rng);
        if (f.kind == Kind::Float || f.kind == Kind::Double) {
            const double v = coin(rng) ? randomMagnitude(rng, -6, 6) : 0.0;
            setNumber(f, r, coin(rng) ? -v : v);
        }
        if (f.kind == Kind::PositiveDouble) setNumber(f, r, randomMagnitude(rng, -3, 3));
        if (f.kind == Kind::Text) {
            const std::string s = randomText(rng, std::min<std::size_t>(f.size - 1, 200));
            PIV::CopyText(static_cast<char*>(p), f.size, s.c_str());
        }
    }
    r.params.convert.LengthConversion[1] = randomMagnitude(rng, -3, 3);
    r.params.convert.LengthConversion[2] = r.params.convert.LengthConversion[0];

    // Edges in order, as the file's extents bring them back.
    std::uniform_int_distribution<int> edge(-100000, 100000), extent(0, 100000);
    RECT3D& crop = r.image.CropRect;
    crop.left = edge(rng);
    crop.right = crop.left + extent(rng);
    crop.top = edge(rng);
    crop.bottom = crop.top + extent(rng);
    crop.front = edge(rng);
    crop.back = crop.front + extent(rng);
}

std::vector<std::string> CarriedDifferences(const ParRecords& expected, const ParRecords& actual) {
    // The accessors hand out non-const pointers; nothing below writes through them.
    ParRecords& e = const_cast<ParRecords&>(expected);
    ParRecords& a = const_cast<ParRecords&>(actual);
    std::vector<std::string> out;
    auto report = [&out](const std::string& name, const std::string& want, const std::string& got) {
        out.push_back(name + ": expected " + want + ", got " + got);
    };
    for (const Field& f : carriedFields()) {
        const void* pe = f.at(e);
        const void* pa = f.at(a);
        if (f.kind == Kind::Int || f.kind == Kind::PositiveInt || f.kind == Kind::Bool) {
            const auto get = [&f](const void* p) -> int64_t {
                return f.kind == Kind::Bool ? *static_cast<const bool*>(p)
                                            : *static_cast<const int32_t*>(p);
            };
            if (get(pe) != get(pa))
                report(f.name, std::to_string(get(pe)), std::to_string(get(pa)));
        } else if (f.kind == Kind::Text) {
            // Whole arrays: the tail behind the text must be cleared too.
            if (std::memcmp(pe, pa, f.size) != 0)
                report(f.name, static_cast<const char*>(pe), static_cast<const char*>(pa));
        } else if (!closeEnough(number(f, e), number(f, a), 1e-5)) {
            report(f.name, show(number(f, e)), show(number(f, a)));
        }
    }
    if (!e.image.CropRect.isIdentical(a.image.CropRect)) report("image.CropRect", "", "other");
    // y from the squareness ratio, both rounded to six digits; z is x.
    const double* fe = e.params.convert.LengthConversion;
    const double* fa = a.params.convert.LengthConversion;
    if (!closeEnough(fe[1], fa[1], 2e-5)) report("LengthConversion[1]", show(fe[1]), show(fa[1]));
    if (!closeEnough(fe[0], fa[2], 1e-5)) report("LengthConversion[2]", show(fe[0]), show(fa[2]));
    return out;
}

int CarriedFieldCount() {
    return static_cast<int>(carriedFields().size()) + 3;
}

}  // namespace par_test
