// Multi-pass, multi-grid and image deformation against synthetic pairs with
// a known flow: 512 x 512, 2.5 px particles, 0.02 per pixel, 8 bit. Errors
// are taken over interior nodes, 32 px or more from every edge.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "eval_test_support.h"
#include "message_capture.h"
#include "piv_enums.h"
#include "scratch_files.h"
#include "synthetic_flows.h"

using eval_test::CompareWithFlow;
using eval_test::Evaluation;
using eval_test::FieldErrors;
using eval_test::StandardParams;
using synth::Flow;
using synth::RenderPair;

namespace {

constexpr int kSize = 512;
constexpr int kMargin = 32;

// Window 32 px at step 16; `deformMode` 0 none, 1 the last pass, 2 every
// pass (the deformation iteration), with the cubic B-spline.
PIVEVAL_CFG Iterative(int method, int deformMode) {
    PIVEVAL_CFG cfg = eval_test::SinglePass(32, 16, 1);
    cfg.Method = method;
    cfg.ImageMapping2D.Mode = deformMode;
    cfg.ImageMapping2D.Method = PIV::INTERPOLATE_BSPLINE;
    cfg.ImageMapping2D.Order = 3;
    return cfg;
}

// Multi-grid from 64 px to the final 32 px windows, unbinned.
PIVEVAL_CFG MultiGrid(bool fastPyramid, int deformMode) {
    PIVEVAL_CFG cfg = Iterative(PIV::METHOD_MULTI_GRID, deformMode);
    cfg.MultiGrid_SampleSize = SIZE3D{64, 64, 1};
    cfg.MultiGrid_SampleStep = SIZE3D{16, 16, 1};
    cfg.MultiGrid_Desample = 1;
    cfg.MultiGrid_FastPyramid = fastPyramid;
    cfg.MultiGrid_ReevaluateBaddata = false;
    cfg.DesampleEnable = false;
    return cfg;
}

PIVEVAL_CFG MultiPass(int passes, int deformMode) {
    PIVEVAL_CFG cfg = Iterative(PIV::METHOD_MULTI_PASS, deformMode);
    cfg.Passes = passes;
    return cfg;
}

FieldErrors Evaluate(const Flow& flow, const PIVEVAL_CFG& cfg, unsigned seed = 11) {
    const auto pair = RenderPair(StandardParams(kSize, seed), flow);
    Evaluation e(pair, cfg);
    EXPECT_TRUE(e.run()) << e.eval->getLastError();
    return CompareWithFlow(e.field(), flow, kMargin);
}

// RMS over both components of every interior node.
double Rms(const FieldErrors& f) {
    return std::sqrt(0.5 * (f.x.rms * f.x.rms + f.y.rms * f.y.rms));
}

// Share of interior vectors within `tolerance` px of the truth in both axes.
double ShareWithin(const PIV_Data2D& field, const Flow& flow, double tolerance) {
    int inside = 0, all = 0;
    for (int k = 0; k < field.nodeCount(); k++) {
        const PIV_VECTOR& v = field.data()[k];
        if (std::min({v.ix, v.iy, kSize - v.ix, kSize - v.iy}) < kMargin) continue;
        double dx, dy;
        synth::ExactDisplacement(flow, v.ix, v.iy, dx, dy);
        all++;
        inside += (v.flag & VECTOR_ENABLED) && std::fabs(v.dx - dx) <= tolerance &&
                  std::fabs(v.dy + dy) <= tolerance;
    }
    return all ? double(inside) / all : 0.0;
}

// Lamb-Oseen circulation for a given peak displacement: the peak lies at
// r = 1.12091 rc, where 1 - exp(-r^2/rc^2) = 0.71533.
double VortexGamma(double peak, double core) {
    const double r = 1.12091 * core;
    return peak * 2.0 * M_PI * r / (1.0 - std::exp(-(r * r) / (core * core)));
}

// Frame B of `pair` with square patches of `side` px, their corners at
// every combination of `corners` in x and y, holding unrelated particles.
Image2D DamagedB(const synth::SyntheticPair& pair, std::initializer_list<int> corners, int side,
                 unsigned seed) {
    const auto other = RenderPair(StandardParams(pair.width, seed), synth::UniformFlow(0, 0));
    std::vector<float> b = pair.b;
    for (int py : corners)
        for (int px : corners)
            for (int y = py; y < py + side; y++)
                for (int x = px; x < px + side; x++)
                    b[size_t(y) * pair.width + x] = other.b[size_t(y) * pair.width + x];
    return eval_test::ToImage(b, pair.width, pair.height);
}

}  // namespace

// A 20 px shift is beyond what a 32 px window can follow alone (the
// particles leave it), but the 64 px level finds it and hands the offset on.
TEST(MultiGridAccuracy, TwentyPixelShiftNeedsTheCoarseLevel) {
    const synth::UniformFlow flow(20.0, 0.0);
    const auto pair = RenderPair(StandardParams(kSize, 5), flow);
    struct Case {
        const char* name;
        PIVEVAL_CFG cfg;
        bool follows;
    } cases[] = {{"multi-grid Fast64 (64, 32)", MultiGrid(true, PIV::DEFORM_DISABLED), true},
                 {"multi-grid full (64, 48, 32)", MultiGrid(false, PIV::DEFORM_DISABLED), true},
                 {"single pass 32 px", eval_test::SinglePass(32, 16, 1), false}};
    for (const Case& c : cases) {
        Evaluation e(pair, c.cfg);
        ASSERT_TRUE(e.run()) << e.eval->getLastError();
        const double share = ShareWithin(e.field(), flow, 0.1);
        EXPECT_TRUE(c.follows ? share >= 0.98 : share < 0.5) << c.name << ": " << share;
    }
}

// What remains of a uniform shift of fractional half-displacements is the
// bias of the image interpolation, which reads frame A at a fraction f and
// frame B at 1 - f of a pixel (3.65 px each way here). The cubic B-spline
// leaves about -0.018 px in x and -0.021 px in y (0.0204 px RMS); the
// quintic shows that the iteration itself converges to the truth. In
// dx = 2 sin(2 pi y / 256) a 32 px window spans an eighth of the wave, so
// without deformation the window averages the curvature away.
TEST(DeformationAccuracy, KnownFlows) {
    const synth::UniformFlow uniform(7.3, -5.6);
    const synth::SinusoidalFlow sine(2.0, 256.0);
    const synth::LambOseenVortex vortex(256.0, 256.0, VortexGamma(6.0, 96.0), 96.0);
    const int all = PIV::DEFORM_ALL_PASSES, last = PIV::DEFORM_FINAL_PASS;
    PIVEVAL_CFG quintic = MultiPass(3, all);
    quintic.ImageMapping2D.Order = 5;
    struct Case {
        const char* name;
        const Flow& flow;
        PIVEVAL_CFG cfg;
        double bound;
    } cases[] = {
        {"uniform (7.3,-5.6) multi-grid Fast64 + deform", uniform, MultiGrid(true, all), 0.021},
        {"uniform (7.3,-5.6) evalImageDef, 3 passes", uniform, MultiPass(3, all), 0.021},
        {"uniform (7.3,-5.6) multi-pass + deformed last", uniform, MultiPass(3, last), 0.023},
        {"uniform (7.3,-5.6) evalImageDef, quintic", uniform, quintic, 0.006},
        {"sine, multi-grid full + deform", sine, MultiGrid(false, all), 0.02},
        {"sine, multi-grid Fast64 + deform", sine, MultiGrid(true, all), 0.02},
        {"Lamb-Oseen rc 96, 6 px, multi-grid + deform", vortex, MultiGrid(true, all), 0.05},
    };
    double sineFast = 0.0;
    for (const Case& c : cases) {
        const FieldErrors f = Evaluate(c.flow, c.cfg);
        EXPECT_LE(Rms(f), c.bound) << c.name;
        EXPECT_EQ(f.failed, 0) << c.name;
        if (&c == &cases[5]) sineFast = Rms(f);
    }
    EXPECT_GT(Rms(Evaluate(sine, MultiGrid(true, PIV::DEFORM_DISABLED))), 2.0 * sineFast);
}

// Captures the field each time the evaluator shows intermediate data, and
// the status lines.
class CapturingEval : public PIV_Eval2D {
public:
    std::vector<std::vector<PIV_VECTOR>> shown;
    std::vector<std::string> status;
    void showNewPivData() override {
        if (data() && !data()->isNull())
            shown.emplace_back(data()->data(), data()->data() + data()->nodeCount());
    }
    void updateProgressDialog(const char* text, bool) override { status.push_back(text); }
};

// Between passes the field is validated with outliers replaced, whatever
// the user's validation says: with every check off, the normalized median
// stands in. A window of frame B filled with unrelated particles gives a
// wild vector in pass 1; the field shown before pass 2 holds it replaced.
TEST(MultiPassOverrides, WildVectorIsReplacedBetweenPasses) {
    const synth::UniformFlow flow(5.2, -3.1);
    const auto pair = RenderPair(StandardParams(kSize, 21), flow);
    Image2D a = eval_test::ToImage(pair.a, kSize, kSize), imgB = DamagedB(pair, {240}, 32, 99);
    CapturingEval eval;
    eval.setPivEvalCfg(MultiPass(3, PIV::DEFORM_DISABLED));
    OUTLIER_CFG off;
    off.TryOtherPeaks = false;
    eval.setOutlierCfg(off);
    ASSERT_TRUE(eval.setPivImages(&a, &imgB));
    ASSERT_TRUE(eval.interrogateImage(true));
    // The first capture is the empty field before pass 1; the second comes
    // after pass 1 and its validation.
    ASSERT_GE(eval.shown.size(), 2u);
    const std::vector<PIV_VECTOR>& afterPass1 = eval.shown[1];
    const DATA_GRID4D& g = eval.data()->grid();
    const int col = (256 - g.first.x) / g.step.width, row = (256 - g.first.y) / g.step.height;
    const PIV_VECTOR& v = afterPass1[size_t(row * g.nodes.width + col)];
    ASSERT_EQ(v.ix, 256);
    ASSERT_EQ(v.iy, 256);
    EXPECT_TRUE(v.flag & VECTOR_INTERPOLATED) << "flag " << v.flag;
    EXPECT_NEAR(v.dx, 5.2, 0.5);
    EXPECT_NEAR(v.dy, 3.1, 0.5);
}

// One pass is the single pass itself, without validation inside. With an
// integer shift, pass 2 moves every window by it, and pass 3 finds the same
// offsets, correlates nothing and leaves pass 2's field as it stands.
TEST(MultiPassEdges, PassesThatChangeNothing) {
    const auto pair = RenderPair(StandardParams(256, 3), synth::UniformFlow(2.3, 1.4));
    const synth::UniformFlow integer(6.0, -4.0);
    const auto shifted = RenderPair(StandardParams(256, 4), integer);
    Evaluation cases[][2] = {
        {{pair, MultiPass(1, PIV::DEFORM_DISABLED)}, {pair, eval_test::SinglePass(32, 16, 1)}},
        {{shifted, MultiPass(2, PIV::DEFORM_DISABLED)},
         {shifted, MultiPass(3, PIV::DEFORM_DISABLED)}},
    };
    for (auto& c : cases) {
        ASSERT_TRUE(c[0].run() && c[1].run());
        ASSERT_EQ(c[0].field().nodeCount(), c[1].field().nodeCount());
        for (int k = 0; k < c[0].field().nodeCount(); k++) {
            EXPECT_EQ(c[0].field().data()[k].dx, c[1].field().data()[k].dx) << k;
            EXPECT_EQ(c[0].field().data()[k].dy, c[1].field().data()[k].dy) << k;
        }
    }
    EXPECT_LT(Rms(CompareWithFlow(cases[1][1].field(), integer, kMargin)), 0.01);
}

// Speckle images keep their reference frame: only frame B is warped.
TEST(DeformationEdges, SpeckleKeepsFrameA) {
    const auto pair = RenderPair(StandardParams(256, 5), synth::UniformFlow(1.5, 0.5));
    Evaluation e(pair, MultiPass(1, PIV::DEFORM_ALL_PASSES));
    ASSERT_TRUE(e.run()) << e.eval->getLastError();
    PIV_Data2D& f = e.field();
    f.initShift(2.0f, 0.0f, 0.0f);
    e.eval->setAnalysisMode(PIV::ANALYSIS_SPECKLE);
    ASSERT_TRUE(e.eval->deformImagePair(&f, true));
    for (int x = 0; x < 256; x += 3)
        ASSERT_EQ(e.eval->deformedImageA().pixel(x, 100), e.a.pixel(x, 100));
}

TEST(IterativeBadInput, RefusedWithTheirErrors) {
    const auto pair = RenderPair(StandardParams(256, 6), synth::UniformFlow(1.0, 1.0));
    Evaluation autocorrelation(pair, MultiGrid(true, PIV::DEFORM_ALL_PASSES));
    autocorrelation.eval->setAnalysisMode(PIV::ANALYSIS_AUTO_CORRELATION);
    EXPECT_FALSE(autocorrelation.run());
    EXPECT_EQ(autocorrelation.eval->getLastErrorCode(), PIVerror::OPERATION_NOT_POSSIBLE);
    EXPECT_PRED_FORMAT2(testing::IsSubstring, "double-exposed",
                        autocorrelation.eval->getLastError());
    // A ladder whose first window is the final one has no coarse level.
    PIVEVAL_CFG cfg = MultiGrid(true, PIV::DEFORM_ALL_PASSES);
    cfg.MultiGrid_SampleSize = SIZE3D{32, 32, 1};
    Evaluation oneLevel(pair, cfg);
    EXPECT_FALSE(oneLevel.run());
    EXPECT_EQ(oneLevel.eval->getLastErrorCode(), PIVerror::BAD_SAMPLE_SIZE);
    // A mask of nothing but zeros cannot stand behind a deformation.
    Evaluation masked(pair, MultiPass(2, PIV::DEFORM_ALL_PASSES));
    Image2D mask(256, 256, IMAGE_UINT8);
    mask.fill(0.0f);
    ASSERT_EQ(masked.eval->setMaskImages(&mask, nullptr, true), 1);
    EXPECT_FALSE(masked.run());
    EXPECT_EQ(masked.eval->getLastErrorCode(), PIVerror::IMAGE_IS_NULL);
}

// After a multi-grid run, nodes the validation replaced are correlated
// again with the next larger window (48 px for 32 px), which reaches past a
// small damaged patch of frame B and finds the flow again.
TEST(MultiGridCleanUp, ReplacedVectorsAreReevaluatedWithLargerWindows) {
    const synth::UniformFlow flow(4.4, -2.7);
    const auto pair = RenderPair(StandardParams(256, 31), flow);
    Image2D a = eval_test::ToImage(pair.a, 256, 256), imgB = DamagedB(pair, {113}, 30, 77);
    PIVEVAL_CFG cfg = MultiGrid(true, PIV::DEFORM_ALL_PASSES);
    cfg.MultiGrid_ReevaluateBaddata = true;
    PIV_Eval2D eval;
    eval.setPivEvalCfg(cfg);
    OUTLIER_CFG o;
    o.Enable = true;
    o.CheckNormalizedMedian = true;
    o.InterpolateOutliers = true;
    o.TryOtherPeaks = false;
    eval.setOutlierCfg(o);
    ASSERT_TRUE(eval.setPivImages(&a, &imgB));
    MessageCapture capture;
    DebugLevelScope level(1);
    ASSERT_TRUE(eval.interrogateImage(false)) << eval.getLastError();
    const std::string said = capture.all();
    const size_t at = said.find("Re-evaluated ");
    ASSERT_NE(at, std::string::npos);
    EXPECT_GT(std::atoi(said.c_str() + at + 13), 0) << said.substr(at, 60);
    const FieldErrors f = CompareWithFlow(*eval.data(), flow, kMargin);
    // No wild vector survives; the damaged node itself is within a few
    // tenths (its larger window still holds a third of unrelated particles).
    EXPECT_LE(f.x.p99, 0.5);
    EXPECT_LE(f.y.p99, 0.5);
    EXPECT_LE(Rms(f), 0.05);
}

// Deformed pairs stored on every pass: "<prefix>_<pass>_1.tif" and "_2.tif",
// in the depth the input needs, readable again at the frames' size.
TEST(DeformationEdges, StoredDeformedImages) {
    test_support::ScratchDir dir;
    const auto pair = RenderPair(StandardParams(128, 8), synth::UniformFlow(2.5, 1.0));
    PIVEVAL_CFG cfg = MultiPass(2, PIV::DEFORM_ALL_PASSES);
    cfg.ImageMapping2D.StoreAll = true;
    const std::string prefix = dir.file("warped");
    std::snprintf(cfg.ImageMapping2D.FilePrefix, sizeof(cfg.ImageMapping2D.FilePrefix), "%s",
                  prefix.c_str());
    Evaluation e(pair, cfg);
    ASSERT_TRUE(e.run()) << e.eval->getLastError();
    for (int pass = 1; pass <= 2; pass++)
        for (int frame = 1; frame <= 2; frame++) {
            const std::string name =
                prefix + "_" + std::to_string(pass) + "_" + std::to_string(frame) + ".tif";
            Image2D img;
            ASSERT_TRUE(img.load(name.c_str())) << name;
            EXPECT_EQ(img.width(), 128u);
            EXPECT_EQ(img.type(), IMAGE_UINT8);
        }
}

// dx = (y - 512) * 1.5 / 80, in x only: slower than the 1.35 px radius
// within 72 px of the lower edge and nowhere else. Multi-grid from 128 px
// windows on the frames binned by 4, 3 and 2, deformed from the second
// level on: each level may take away self-correlation peaks only in that
// band, whatever its binning. (A binned level's vectors are in binned pixels
// and, on deformed frames, hold the remainder beyond the field there.)
TEST(MultiGridBinned, SelfCorrelationOnlyWhereTheFlowIsSlowerThanTheRadius) {
    const synth::ShearFlow flow(0.0, 1.5 / 80.0, 512.0);
    const auto pair = RenderPair(StandardParams(kSize, 13), flow);
    PIVEVAL_CFG cfg = MultiGrid(false, PIV::DEFORM_ALL_PASSES);
    cfg.MultiGrid_SampleSize = SIZE3D{32, 32, 1};
    cfg.MultiGrid_Desample = 4;
    cfg.DesampleEnable = true;
    cfg.SelfCorrelation_Eliminate = true;
    cfg.SelfCorrelation_Radius = 1.35f;
    Image2D a = eval_test::ToImage(pair.a, kSize, kSize),
            b = eval_test::ToImage(pair.b, kSize, kSize);
    CapturingEval eval;
    eval.setPivEvalCfg(cfg);
    ASSERT_TRUE(eval.setPivImages(&a, &b));
    MessageCapture capture;
    DebugLevelScope level(2);
    ASSERT_TRUE(eval.interrogateImage(false)) << eval.getLastError();
    std::vector<int> disabled;  // per level: 128 (binned 4), 96 (3), 64 (2), 48, 32, final 32
    for (const std::string& line : capture.lines())
        if (line.rfind("  disabled ", 0) == 0) disabled.push_back(std::atoi(line.c_str() + 11));
    ASSERT_EQ(disabled.size(), 6u);
    for (int n : disabled) EXPECT_GT(n, 0);
    // The first level lays 7 x 7 nodes over the 128 px binned frames, image
    // rows 64 to 448: only its last row lies in the band.
    EXPECT_LE(disabled[0], 7);
    // The final level: the nodes in the band, rows 448 and below, give or
    // take a few of the rows at its edge (row 432 is 0.15 px outside), where
    // the peaks taken away above leave their noise.
    const PIV_Data2D& f = *eval.data();
    int slow = 0;
    for (int k = 0; k < f.nodeCount(); k++) {
        double dx, dy;
        synth::ExactDisplacement(flow, f.data()[k].ix, f.data()[k].iy, dx, dy);
        slow += std::hypot(dx, dy) < cfg.SelfCorrelation_Radius;
    }
    EXPECT_NEAR(disabled.back(), slow, slow / 10);
    // The status of a deformed level names the interpolation.
    EXPECT_EQ(eval.status[1],
              "MultiGrid-PIV Pass 2 of 6 - Image deformation ( B-Spline, Degree=3 )");
}

// The multi-grid run departs from the plain scheme in four places, each held
// here or elsewhere by a case that fails without it. Accumulating on the
// deformed final levels: DeformationAccuracy.KnownFlows (without
// it the field keeps only the last remainder, 6.5 px off). The cubic spline
// between levels and no median there: a vortex carried across the coarse
// grids of the ladder from 128 px (steps 64 to 24 px) keeps its core, 0.0178
// px RMS here, against 0.034 px with bilinear transfer and 0.022 px with a
// 3 x 3 median.
TEST(MultiGridChoices, VortexCoreSurvivesTheCoarseGrids) {
    const synth::LambOseenVortex flow(256.0, 256.0, VortexGamma(6.0, 48.0), 48.0);
    PIVEVAL_CFG cfg = MultiGrid(false, PIV::DEFORM_ALL_PASSES);
    cfg.MultiGrid_SampleSize = SIZE3D{128, 128, 1};
    cfg.MultiGrid_SampleStep = SIZE3D{64, 64, 1};
    EXPECT_LE(Rms(Evaluate(flow, cfg, 14)), 0.0198);
}

// Its own validation between levels: four 40 px patches of frame B hold
// unrelated particles, and the user asks for no validation. The levels
// still reject and fill wild vectors, so none steers the windows around it:
// 5 of 225 vectors end more than 0.5 px off, the patches' own, against 21
// when each level hands on what it measured.
TEST(MultiGridChoices, WildCoarseVectorsDoNotSpread) {
    const auto pair = RenderPair(StandardParams(256, 34), synth::UniformFlow(4.4, -2.7));
    Image2D a = eval_test::ToImage(pair.a, 256, 256), b = DamagedB(pair, {60, 150}, 40, 84);
    PIV_Eval2D eval;
    eval.setPivEvalCfg(MultiGrid(false, PIV::DEFORM_ALL_PASSES));
    ASSERT_TRUE(eval.setPivImages(&a, &b));
    ASSERT_TRUE(eval.interrogateImage(false)) << eval.getLastError();
    const PIV_Data2D& f = *eval.data();
    int off = 0;
    for (int k = 0; k < f.nodeCount(); k++)
        off += std::hypot(f.data()[k].dx - 4.4, f.data()[k].dy - 2.7) > 0.5;
    EXPECT_LE(off, 12);
}
