// The pieces under the iterative evaluations: the multi-grid ladder, field
// values between nodes, the transfer between grids and the image warp.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <utility>
#include <vector>

#include "field_grids.h"
#include "hwy/targets.h"
#include "image2d.h"
#include "image2d_deformation.h"
#include "piv_data2d.h"
#include "piv_data2d_deformation.h"
#include "piv_enums.h"
#include "piv_multigrid_levels.h"

namespace {

PIVEVAL_CFG LadderCfg(int start, int final, bool fast, int desample = 1, bool binning = false) {
    PIVEVAL_CFG cfg;
    cfg.Method = PIV::METHOD_MULTI_GRID;
    cfg.SampleSize = SIZE3D{final, final, 1};
    cfg.grid.step = SIZE3D{final / 2, final / 2, 1};
    cfg.MultiGrid_SampleSize = SIZE3D{start, start, 1};
    cfg.MultiGrid_SampleStep = SIZE3D{start / 2, start / 2, 1};
    cfg.MultiGrid_Desample = desample;
    cfg.MultiGrid_FastPyramid = fast;
    cfg.DesampleEnable = binning;
    cfg.MultiGrid_FinalScans = 1;
    cfg.ROI_Size = SIZE3D{10, 10, 0};
    return cfg;
}

// One figure of every level.
template <class Figure>
std::vector<int> Each(const std::vector<MULTIGRID_LEVEL>& levels, Figure figure) {
    std::vector<int> v;
    for (const MULTIGRID_LEVEL& L : levels) v.push_back(int(figure(L)));
    return v;
}
std::vector<int> Windows(const std::vector<MULTIGRID_LEVEL>& levels) {
    return Each(levels, [](const MULTIGRID_LEVEL& L) { return L.fullSample.width; });
}

// A field on a 9 x 7 grid, step 16 from (first, first), every node enabled
// with dx = 0.25 x - 0.5 y + 3 and dy = 0.125 x + 0.75 y - 2 at its pixel.
void MakeLinearField(PIV_Data2D& f, int first = 16) {
    DATA_GRID4D g = field_test::gridOf(9, 7);
    g.first = POINT3D{first, first, 0};
    ASSERT_TRUE(f.create(g));
    for (int k = 0; k < f.nodeCount(); k++) {
        PIV_VECTOR& v = f.data()[k];
        v.dx = float(0.25 * v.ix - 0.5 * v.iy + 3.0);
        v.dy = float(0.125 * v.ix + 0.75 * v.iy - 2.0);
        v.flag = VECTOR_ENABLED;
    }
    f.setFlagRawData(true);
}

// A float image with smooth structure and a known range.
Image2D Pattern(int w, int h) {
    Image2D img;
    img.alloc(w, h, IMAGE_FLOAT);
    for (int y = 0; y < h; y++)
        for (int x = 0; x < w; x++)
            img.setPixel(x, y, float(100.0 + 60.0 * std::sin(0.37 * x) * std::cos(0.23 * y)));
    // One dark pixel: the source's range starts at 0, as in a camera frame,
    // so that the clip to that range keeps the 0 of points outside.
    img.setPixel(w - 1, 0, 0.0f);
    return img;
}

}  // namespace

// Which windows each ladder visits, with one final scan of the final window.
TEST(MultiGridLadder, LevelListsByLadder) {
    struct Case {
        const char* name;
        PIVEVAL_CFG cfg;
        std::vector<int> windows;
    } cases[] = {
        {"full ladder from 128", LadderCfg(128, 32, false), {128, 96, 64, 48, 32, 32}},
        {"Fast32 from 128", LadderCfg(128, 32, true), {128, 96, 64, 32, 32}},
        {"Fast64 from 64", LadderCfg(64, 32, true), {64, 32, 32}},
        {"start above 512 takes 512", LadderCfg(600, 256, false), {512, 320, 256, 256}},
        {"start between entries rounds up", LadderCfg(40, 32, false), {48, 32, 32}},
    };
    for (const Case& c : cases) {
        std::vector<MULTIGRID_LEVEL> levels;
        ASSERT_EQ(PIV::BuildMultiGridLevels(c.cfg, levels), PIVerror::NO_ERROR) << c.name;
        EXPECT_EQ(Windows(levels), c.windows) << c.name;
        for (size_t i = 0; i < levels.size(); i++)
            EXPECT_EQ(levels[i].final, i + 1 == levels.size()) << c.name << " level " << i;
    }
    // More than fifteen levels are refused: 5 levels and 11 scans.
    PIVEVAL_CFG cfg = LadderCfg(128, 32, false);
    cfg.MultiGrid_FinalScans = 11;
    std::vector<MULTIGRID_LEVEL> levels;
    EXPECT_EQ(PIV::BuildMultiGridLevels(cfg, levels), PIVerror::OPERATION_FAILED);
    cfg.MultiGrid_FinalScans = 10;
    EXPECT_EQ(PIV::BuildMultiGridLevels(cfg, levels), PIVerror::NO_ERROR);
    EXPECT_EQ(levels.size(), 15u);
}

// Step: the entry times MultiGrid_SampleStep / MultiGrid_SampleSize, never
// below the final step; the search region grows with the window.
TEST(MultiGridLadder, StepsSearchAndFitPerLevel) {
    PIVEVAL_CFG cfg = LadderCfg(128, 32, false);
    cfg.MultiGrid_SampleStep = SIZE3D{32, 32, 1};  // ratio 0.25
    cfg.Type = PIV::PEAKFIT_WHITTAKER + 1;          // capped at 4 before the final scans
    std::vector<MULTIGRID_LEVEL> levels;
    ASSERT_EQ(PIV::BuildMultiGridLevels(cfg, levels), PIVerror::NO_ERROR);
    EXPECT_EQ(Each(levels, [](const MULTIGRID_LEVEL& L) { return L.step.width; }),
              (std::vector<int>{32, 24, 16, 16, 16, 16}));
    EXPECT_EQ(Each(levels, [](const MULTIGRID_LEVEL& L) { return L.search.width; }),
              (std::vector<int>{40, 30, 20, 15, 10, 10}));
    EXPECT_EQ(Each(levels, [](const MULTIGRID_LEVEL& L) { return L.fitType; }),
              (std::vector<int>{4, 4, 4, 4, 4, cfg.Type}));
    cfg.SpeedOptimization = 0x1000;
    ASSERT_EQ(PIV::BuildMultiGridLevels(cfg, levels), PIVerror::NO_ERROR);
    EXPECT_EQ(levels[0].fitType, int(PIV::PEAKFIT_GAUSS_3X3));
}

// Start 64 x 3 = 192: while the ladder entry is at least twice the
// multi-grid window, the level works on images binned by the quotient with
// the multi-grid window itself.
TEST(MultiGridLadder, BinningWithDesampleThree) {
    const PIVEVAL_CFG cfg = LadderCfg(64, 32, false, 3, true);
    std::vector<MULTIGRID_LEVEL> levels;
    ASSERT_EQ(PIV::BuildMultiGridLevels(cfg, levels), PIVerror::NO_ERROR);
    EXPECT_EQ(Windows(levels), (std::vector<int>{192, 128, 96, 64, 48, 32, 32}));
    EXPECT_EQ(Each(levels, [](const MULTIGRID_LEVEL& L) { return L.binning; }),
              (std::vector<int>{3, 2, 1, 1, 1, 1, 1}));
    // The binned levels: 64 px windows at step 64 x 0.5.
    for (size_t i = 0; i < 2; i++)
        EXPECT_EQ(std::make_pair(levels[i].window.width, levels[i].step.width),
                  std::make_pair(64, 32));
}

TEST(MultiGridLadder, ReevaluationWindowDoublesTheArea) {
    // 32: next entry above is 48 (ratio 1.5 x 1.5 = 2.25 >= 2).
    EXPECT_EQ(PIV::MultiGridReevaluationWindow(SIZE3D{32, 32, 1}).width, 48);
    // 64 x 48: 96 / 64 = 1.5 and 64 / 48 = 1.33 make 2.0.
    const SIZE2D s = PIV::MultiGridReevaluationWindow(SIZE3D{64, 48, 1});
    EXPECT_EQ(std::make_pair(s.width, s.height), std::make_pair(96, 64));
}

// Bilinear between nodes reproduces a linear field anywhere inside the
// grid; disabled nodes are left out.
TEST(FieldBetweenNodes, LinearFieldHullAndDisabledNodes) {
    PIV_Data2D f;
    MakeLinearField(f);
    std::mt19937 rng(3);
    std::uniform_real_distribution<double> ux(16.0, 144.0), uy(16.0, 112.0);
    for (int i = 0; i < 200; i++) {
        const double x = ux(rng), y = uy(rng);
        double dx = 0, dy = 0;
        ASSERT_TRUE(f.interpolateVector(x, y, 0, &dx, &dy));
        EXPECT_NEAR(dx, 0.25 * x - 0.5 * y + 3.0, 1e-5);
        EXPECT_NEAR(dy, 0.125 * x + 0.75 * y - 2.0, 1e-5);
    }
    double dx = 0, dy = 0;
    // Outside, the nearest edge of the hull: (0, 0) reads the corner node.
    ASSERT_TRUE(f.interpolateVector(-50.0, 0.0, 0, &dx, &dy));
    EXPECT_FLOAT_EQ(float(dx), f.data()[0].dx);
    // Node (2, 2) at (48, 48) disabled and set wild: at its position the
    // enabled neighbours stand in, and halfway to (64, 48) only (64, 48) counts.
    PIV_VECTOR& bad = f.data()[2 * 9 + 2];
    bad.flag = VECTOR_OUTLIER;
    bad.dx = 999.0f;
    ASSERT_TRUE(f.interpolateVector(48.0, 48.0, 0, &dx, &dy));
    EXPECT_LT(std::fabs(dx), 100.0);
    ASSERT_TRUE(f.interpolateVector(56.0, 48.0, 0, &dx, &dy));
    EXPECT_FLOAT_EQ(float(dx), f.data()[2 * 9 + 3].dx);
    // All four around a point disabled: nothing found.
    for (int k : {0, 1, 9, 10}) f.data()[k].flag = VECTOR_OUTLIER;
    EXPECT_FALSE(f.interpolateVector(20.0, 20.0, 0, &dx, &dy));
    PIV_Data2D empty;
    EXPECT_FALSE(empty.interpolateVector(20.0, 20.0, 0, &dx, &dy));
}

// Another grid: each node takes the source's value at its pixel; a linear
// field crosses bilinearly without loss. With `add` the values sum, and
// every peak follows the vector.
TEST(FieldBetweenNodes, UpdateShiftAcrossGrids) {
    PIV_Data2D coarse;
    MakeLinearField(coarse);
    PIV_Data2D fine;
    DATA_GRID4D g = coarse.grid();
    g.step = SIZE3D{8, 8, 1};
    g.first = POINT3D{20, 24, 0};
    g.nodes = SIZE3D{15, 11, 1};
    ASSERT_TRUE(fine.create(g));
    fine.initShift(1.0f, -1.0f, 0.0f);
    ASSERT_TRUE(fine.updateShift(coarse, true, PIV::INTERPOLATE_BILINEAR));
    for (int k = 0; k < fine.nodeCount(); k++) {
        const PIV_VECTOR& v = fine.data()[k];
        EXPECT_NEAR(v.dx, 1.0 + 0.25 * v.ix - 0.5 * v.iy + 3.0, 1e-4) << k;
        EXPECT_NEAR(v.dy, -1.0 + 0.125 * v.ix + 0.75 * v.iy - 2.0, 1e-4) << k;
        EXPECT_EQ(v.peak[2].x, v.dx);
    }
}

// The spline of the displacement field returns its node values at the
// nodes: a warp must move by the field it is given, not a filtered one.
TEST(FieldBetweenNodes, SplineOfTheFieldHitsItsNodes) {
    PIV_Data2D f;
    MakeLinearField(f);
    for (int k = 0; k < f.nodeCount(); k++) f.data()[k].dx = float(std::sin(0.9 * k));
    PIV_Data2D_Deformation map(&f);
    map.setMethod(PIV::INTERPOLATE_BSPLINE, 3);
    std::vector<float> dx(160), dy(160);
    ASSERT_TRUE(map.prepareSplineCoefficients());
    std::vector<double> scratch(map.mapScratchSize());
    ASSERT_TRUE(map.mapData(48, 160, dx.data(), dy.data(), scratch.data()));
    for (int i = 0; i < 9; i++) EXPECT_NEAR(dx[size_t(16 + 16 * i)], f.data()[2 * 9 + i].dx, 2e-5);
    // Columns tabulated once take the vector loop, on every instruction set
    // at hand, past the grid's ends as well and with nodes on and off the
    // vectors' bounds: the same figures as the weights made pixel by pixel.
    for (int64_t target : hwy::SupportedAndGeneratedTargets())
        for (int first : {16, 13}) {
            hwy::SetSupportedTargetsForTest(target);
            MakeLinearField(f, first);
            PIV_Data2D_Deformation tabulated(&f), plain(&f);
            for (PIV_Data2D_Deformation* m : {&tabulated, &plain}) {
                m->setMethod(PIV::INTERPOLATE_BSPLINE, 3);
                ASSERT_TRUE(m->prepareSplineCoefficients());
            }
            for (size_t width : {1, 7, 33, 1023}) {
                std::vector<float> tx(width), ty(width), px(width), py(width);
                ASSERT_TRUE(tabulated.prepareColumns(int(width)));
                ASSERT_TRUE(
                    tabulated.mapData(70, int(width), tx.data(), ty.data(), scratch.data()));
                ASSERT_TRUE(plain.mapData(70, int(width), px.data(), py.data(), scratch.data()));
                for (size_t i = 0; i < width; i++) {
                    EXPECT_NEAR(tx[i], px[i], 1e-5)
                        << hwy::TargetName(target) << " " << first << " " << i;
                    EXPECT_NEAR(ty[i], py[i], 1e-5)
                        << hwy::TargetName(target) << " " << first << " " << i;
                }
            }
        }
    hwy::SetSupportedTargetsForTest(0);
}

TEST(ImageWarp, ShiftsMasksAndRefusals) {
    const Image2D src = Pattern(160, 128);
    PIV_Data2D f;
    MakeLinearField(f);
    Image2D_Deformation warp;
    IMAGEDEF_CFG cfg;
    cfg.Method = PIV::INTERPOLATE_BSPLINE;
    cfg.Order = 3;
    warp.setImageDefCfg(cfg);
    Image2D dst;
    f.initShift(0.0f, 0.0f, 0.0f);
    ASSERT_TRUE(warp.deformWithPivData(src, dst, f, 0.5));
    EXPECT_TRUE(dst == src);
    // dx = 4, dy = 2 (up): factor 0.5 reads x - 2, y + 1, so the content
    // moves right by 2 and up by 1.
    f.initShift(4.0f, 2.0f, 0.0f);
    ASSERT_TRUE(warp.deformWithPivData(src, dst, f, 0.5));
    Image2D& s = const_cast<Image2D&>(src);
    for (int y = 10; y < 100; y += 7)
        for (int x = 10; x < 140; x += 11)
            EXPECT_NEAR(dst.pixel(x, y), s.pixel(x - 2, y + 1), 0.5) << x << "," << y;
    // A source point beyond the image gives 0; nothing leaves the source's range.
    EXPECT_EQ(dst.pixel(0, 64), 0.0f);
    EXPECT_EQ(dst.pixel(80, 127), 0.0f);
    EXPECT_GE(dst.minimum(), 0.0);
    EXPECT_LE(dst.maximum(), s.maximum());

    // Masked pixels keep their value under the default warp; bad input is refused.
    MakeLinearField(f);
    warp.setImageDefCfg(IMAGEDEF_CFG());
    Image2D mask;
    mask.alloc(160, 128, IMAGE_UINT8);
    mask.fill(0.0f);
    for (int y = 40; y < 60; y++)
        for (int x = 40; x < 60; x++) mask.setPixel(x, y, 255.0f);
    ASSERT_TRUE(warp.deformWithMaskedPivData(src, dst, mask, f, 0.5));
    EXPECT_EQ(dst.pixel(50, 50), src.pixel(50, 50));
    Image2D empty, zero;
    zero.alloc(160, 128, IMAGE_FLOAT);
    zero.fill(0.0f);
    EXPECT_FALSE(warp.deformWithPivData(empty, dst, f, 0.5));
    EXPECT_FALSE(warp.deformWithPivData(zero, dst, f, 0.5));
    PIV_Data2D noData;
    EXPECT_FALSE(warp.deformWithPivData(src, dst, noData, 0.5));
    Image2D small;
    small.alloc(10, 10, IMAGE_UINT8);
    EXPECT_FALSE(warp.deformWithMaskedPivData(src, dst, small, f, 0.5));
}

// The vector loop against the per-pixel evaluation, on every instruction
// set at hand: the field's gradient and displacements of up to some 70 px
// send many points past the border, where both must give the clipped 0,
// odd widths leave a partial vector at the end of each row, and an image of
// two rows has no interior at all. Float sums against double ones: 1e-4
// counts.
TEST(ImageWarp, VectorLoopMatchesThePlainEvaluation) {
    PIV_Data2D f;
    MakeLinearField(f);
    // The largest difference between the two warps of a width x height image.
    const auto gap = [&](int order, int width, int height, bool masked, double factor) {
        const Image2D src = Pattern(width, height);
        Image2D mask, fast, plain;
        mask.alloc(width, height, IMAGE_UINT8);
        mask.fill(0.0f);
        mask.setPixel(width / 2, height / 2, 1.0f);
        IMAGEDEF_CFG cfg;
        cfg.Method = PIV::INTERPOLATE_BSPLINE;
        cfg.Order = order;
        Image2D_Deformation warp;
        warp.setImageDefCfg(cfg);
        for (Image2D* dst : {&fast, &plain}) {
            warp.setFlagVectorised(dst == &fast);
            EXPECT_TRUE(masked ? warp.deformWithMaskedPivData(src, *dst, mask, f, factor)
                               : warp.deformWithPivData(src, *dst, f, factor));
        }
        float worst = 0.0f;
        for (int y = 0; y < height; y++)
            for (int x = 0; x < width; x++)
                worst = std::max(worst, std::fabs(fast.pixel(x, y) - plain.pixel(x, y)));
        return worst;
    };
    const std::pair<int, int> sizes[] = {{1, 37}, {7, 2}, {33, 37}, {1023, 37}};
    for (int64_t target : hwy::SupportedAndGeneratedTargets()) {
        hwy::SetSupportedTargetsForTest(target);
        for (int order : {3, 5})
            for (auto [width, height] : sizes)
                for (bool masked : {false, true})
                    for (double factor : {0.5, -2.0})
                        EXPECT_LE(gap(order, width, height, masked, factor), 1e-4f)
                            << hwy::TargetName(target) << " " << order << " " << width << " "
                            << masked << " " << factor;
    }
    hwy::SetSupportedTargetsForTest(0);
}

// Both frames of a pair in one pass, which samples the field once for the
// two, give what each frame's warp alone gives, bit for bit: here a cubic
// frame A and a quintic, masked frame B with a brighter spot. A pair that
// shares its deformer, or writes the source of its other frame, is refused.
TEST(ImageWarp, PairInOnePassEqualsEachFrameAlone) {
    PIV_Data2D f;
    MakeLinearField(f);
    const Image2D srcA = Pattern(161, 77);
    Image2D srcB = Pattern(161, 77), mask;
    srcB.setPixel(80, 40, 500.0f);
    mask.alloc(161, 77, IMAGE_UINT8);
    mask.fill(0.0f);
    for (int x = 30; x < 50; x++) mask.setPixel(x, 20, 1.0f);
    Image2D_Deformation warpA, warpB;
    IMAGEDEF_CFG cfg;
    cfg.Method = PIV::INTERPOLATE_BSPLINE;
    cfg.Order = 3;
    warpA.setImageDefCfg(cfg);
    cfg.Order = 5;
    warpB.setImageDefCfg(cfg);
    Image2D pairA, pairB, aloneA, aloneB;
    ASSERT_TRUE(warpA.deformPairWithPivData(DEFORM_FRAME{&srcA, &pairA, nullptr, 0.5}, warpB,
                                            DEFORM_FRAME{&srcB, &pairB, &mask, -0.5}, f));
    ASSERT_TRUE(warpA.deformWithPivData(srcA, aloneA, f, 0.5));
    ASSERT_TRUE(warpB.deformWithMaskedPivData(srcB, aloneB, mask, f, -0.5));
    EXPECT_TRUE(pairA == aloneA);
    EXPECT_TRUE(pairB == aloneB);
    EXPECT_FALSE(warpA.deformPairWithPivData(DEFORM_FRAME{&srcA, &pairA, nullptr, 0.5}, warpA,
                                             DEFORM_FRAME{&srcB, &pairB, nullptr, -0.5}, f));
    EXPECT_FALSE(warpA.deformPairWithPivData(DEFORM_FRAME{&srcA, &pairA, nullptr, 0.5}, warpB,
                                             DEFORM_FRAME{&pairA, &pairB, nullptr, -0.5}, f));
}
