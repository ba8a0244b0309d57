// The scan correlators of modes 2 to 4 (minimum quadratic difference, direct
// cross-correlation, error correlation function): window placement, planes
// of hand-made windows, shifts of synthetic particle pairs, the extremum
// search, the vector loops against the plain ones, and bad settings.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "eval_test_support.h"
#include "hwy/targets.h"
#include "message_capture.h"
#include "piv_corr2d.h"
#include "piv_simd_level.h"

using eval_test::ToImage;

namespace {

PIVEVAL_CFG ScanCfg(int mode, int window, int range) {
    PIVEVAL_CFG cfg = eval_test::SinglePass(window);
    cfg.CorrelationMode = mode;
    cfg.ScanRange = SIZE3D{range, range, 1};
    return cfg;
}

// Mean measured displacement and largest error (infinite when a window
// fails) over the windows of a 160 px pair of 3 px particles moving by
// (dx, dy) down the rows: 32 px windows, range 8, nodes every 24 px inside.
// The vector counts dy upwards.
struct Measured {
    double dx = 0.0, dy = 0.0, worst = 0.0;
};
Measured MeasureShift(int mode, double dx, double dy) {
    synth::SynthParams p = eval_test::StandardParams(160, 3);
    p.particleDiameter = 3.0;
    const auto pair = synth::RenderPair(p, synth::UniformFlow(dx, dy));
    const Image2D a = ToImage(pair.a, 160, 160), b = ToImage(pair.b, 160, 160);
    PIV_Corr2D corr;
    corr.setPivEvalCfg(ScanCfg(mode, 32, 8));
    Measured m;
    for (int k = 0; k < 25; k++) {
        POINT2D pos{40 + 24 * (k % 5), 40 + 24 * (k / 5)};
        PIV_VECTOR v{};
        if (!corr.sampleAndCorrelate(&a, &b, &pos, POINT2D{0, 0}, false) ||
            !corr.peakDetection(&v, POINT2D{0, 0}, false))
            v.dx = 1e9f;
        m.dx += v.dx / 25.0;
        m.dy += v.dy / 25.0;
        m.worst = std::max({m.worst, std::fabs(v.dx - dx), std::fabs(v.dy + dy)});
    }
    return m;
}


}  // namespace

// Sample 16, range 4: a scan area of 25 px in an image of 64. The offset is
// rounded half away from zero; the sample takes the smaller half of an odd
// offset in x, and in y (where dy counts upwards) the roles swap.
TEST(ScanCorr, SamplePositions) {
    const struct {
        int range;
        POINT2D pos;
        FPOINT2D offset;
        int code;
        POINT2D movedPos, posA, posB;
    } cases[] = {
        {4, {32, 32}, {0.0f, 0.0f}, 0, {32, 32}, {24, 24}, {24, 24}},
        {4, {32, 32}, {2.5f, 0.0f}, 0, {32, 32}, {23, 24}, {26, 24}},
        {4, {32, 32}, {-2.5f, 0.0f}, 0, {32, 32}, {25, 24}, {22, 24}},
        {4, {32, 32}, {1.4f, 0.0f}, 0, {32, 32}, {24, 24}, {25, 24}},
        {4, {32, 32}, {0.0f, 2.5f}, 0, {32, 32}, {24, 25}, {24, 22}},
        {4, {32, 32}, {0.0f, -3.0f}, 0, {32, 32}, {24, 23}, {24, 26}},
        // At each edge both corners and the node move until the sample and
        // the scan area (4 px before the second corner) are inside.
        {4, {3, 32}, {5.0f, 0.0f}, 0, {10, 32}, {0, 24}, {5, 24}},
        {4, {62, 32}, {0.0f, 0.0f}, 0, {51, 32}, {43, 24}, {43, 24}},
        {4, {32, 1}, {0.0f, 0.0f}, 0, {32, 12}, {24, 4}, {24, 4}},
        {4, {32, 63}, {0.0f, -2.0f}, 0, {32, 50}, {24, 41}, {24, 43}},
        // Sample and scan area cannot both fit: refused, not slid for ever.
        {4, {32, 32}, {44.0f, 0.0f}, PIVerror::SAMPLE_LARGER_THAN_IMAGE, {}, {}, {}},
        {30, {32, 32}, {0.0f, 0.0f}, PIVerror::SAMPLE_LARGER_THAN_IMAGE, {}, {}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.pos.x << "," << c.pos.y << " offset " << c.offset.x
                                        << "," << c.offset.y << " range " << c.range);
        PIV_Corr2D_Direct scan;
        ASSERT_TRUE(scan.create(SIZE2D{16, 16}, SIZE2D{c.range, c.range}));
        POINT2D pos = c.pos, posA{-1, -1}, posB{-1, -1};
        PIVerror::ErrorType why = PIVerror::NO_ERROR;
        EXPECT_EQ(scan.getSamplePosition(pos, posA, posB, c.offset, SIZE2D{64, 64}, &why),
                  c.code == 0);
        EXPECT_EQ(int(why), c.code);
        if (c.code) continue;
        EXPECT_EQ(
            std::vector<int>({pos.x, pos.y, posA.x, posA.y, posB.x, posB.y}),
            std::vector<int>({c.movedPos.x, c.movedPos.y, c.posA.x, c.posA.y, c.posB.x, c.posB.y}));
    }
    // The correlator cuts its windows there: in an image of x + 1000 y the
    // first cells tell the corners of the sample and of the scan area.
    std::vector<float> coords(64 * 64);
    for (int k = 0; k < 64 * 64; k++) coords[k] = float(k % 64 + 1000 * (k / 64));
    const Image2D img = ToImage(coords, 64, 64, IMAGE_FLOAT);
    PIV_Corr2D corr;
    corr.setPivEvalCfg(ScanCfg(PIV::CORR_DIRECT_CROSS, 16, 4));
    POINT2D pos{3, 32};
    ASSERT_TRUE(corr.fillSamples(&img, &img, &pos, POINT2D{5, 0}));
    EXPECT_EQ(corr.getSample1()[0], 0.0f + 24000.0f);
    EXPECT_EQ(corr.getSample2()[0], 1.0f + 20000.0f);
}

// A 2 x 2 sample [1 2; 3 4] cut from an image that, as the 5 x 5 scan area,
// holds it at zero shift (1, 1) and zeros elsewhere. Worked by hand: at plane
// cell (0, 0) the window is [0 0; 0 1], at (2, 1) [2 0; 4 0], at (2, 2)
// [4 0; 0 0].
TEST(ScanCorr, PlanesOfHandMadeWindows) {
    const std::vector<float> a = {0, 0, 0, 0, 0, 0, 1, 2, 0, 0, 0, 3, 4,
                                  0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    const Image2D img = ToImage(a, 5, 5, IMAGE_FLOAT);
    // Cells (0, 0), (2, 1), (1, 1), (2, 2). The direct cross-correlation:
    // window means 0.25, 1.5, 2.5, 1 and sums of squares 0.75, 11, 5, 12
    // against the sample's 2.5 and 5.
    const struct {
        int mode;
        double value[4];
    } cases[] = {
        {PIV::CORR_MQD, {1 + 4 + 9 + 9, 1 + 4 + 1 + 16, 0, 9 + 4 + 9 + 16}},
        {PIV::CORR_ERROR_FUNCTION, {9 / 11.0, 8 / 16.0, 0, 12 / 14.0}},
        {PIV::CORR_DIRECT_CROSS,
         {1.5 / std::sqrt(3.75), -1 / std::sqrt(55.0), 1, -6 / std::sqrt(60.0)}},
    };
    const int cells[4] = {0, 5, 4, 8};
    PIV_Corr2D_MQD mqd;
    PIV_Corr2D_Direct direct;
    for (const auto& c : cases) {
        PIV_Corr2D_Scan* scan =
            c.mode == PIV::CORR_MQD ? static_cast<PIV_Corr2D_Scan*>(&mqd) : &direct;
        direct.setMode(c.mode);
        ASSERT_TRUE(scan->create(SIZE2D{2, 2}, SIZE2D{1, 1}));
        ASSERT_TRUE(scan->sampleAndScan(&img, &img, POINT2D{1, 1}, POINT2D{1, 1}));
        for (int k = 0; k < 4; k++)
            EXPECT_NEAR(scan->coeffs()[cells[k]], c.value[k], 1e-6) << c.mode << " " << k;
    }
    EXPECT_EQ(direct.sampleMean(), 2.5f);
    EXPECT_EQ(direct.windowMeans()[0], 0.25f);
}

// 3 px particles, shifts inside the range of 8: the direct cross-correlation
// finds them to 0.05 px, with dy counting upwards.
TEST(ScanCorr, DirectCrossCorrelationFindsShifts) {
    const double shifts[][2] = {{2.3, -1.6}, {0.5, 3.2}, {-3.7, 0.4}, {-4.4, 3.6}};
    for (const auto& s : shifts)
        EXPECT_LT(MeasureShift(PIV::CORR_DIRECT_CROSS, s[0], s[1]).worst, 0.05) << s[0] << s[1];
}

// The minimum quadratic difference: whole shifts to 0.05 px; between them
// the log-paraboloid pulls the result towards the whole pixel, but the mean
// error stays below 0.25 px and the result still grows with the shift.
TEST(ScanCorr, MinimumQuadraticDifferenceFindsShifts) {
    for (const auto& s : {std::make_pair(2.0, 1.0), {-3.0, -1.0}, {0.0, 4.0}})
        EXPECT_LT(MeasureShift(PIV::CORR_MQD, s.first, s.second).worst, 0.05) << s.first;
    double previous = -1.0;
    for (int tenth = 1; tenth <= 9; tenth++) {
        const Measured m = MeasureShift(PIV::CORR_MQD, tenth / 10.0, 0.0);
        EXPECT_LT(std::fabs(m.dx - tenth / 10.0), 0.25) << tenth;
        EXPECT_GT(m.dx, previous) << tenth;
        previous = m.dx;
    }
}

// One window of a flow of (2.3, 1.6) px down the rows, nearest whole shift
// (2, 2): the direct cross-correlation has its largest cell there, as the
// FFT correlation has its peak; the error correlation function has its
// smallest cell there, yet the correlator reports its largest one.
TEST(ScanCorr, WholeShiftOfEachMode) {
    MessageCapture quiet;
    synth::SynthParams p = eval_test::StandardParams(96, 5);
    p.particleDiameter = 3.0;
    const auto pair = synth::RenderPair(p, synth::UniformFlow(2.3, 1.6));
    const Image2D a = ToImage(pair.a, 96, 96), b = ToImage(pair.b, 96, 96);
    PIV_Corr2D fft, cross, error;
    fft.setPivEvalCfg(eval_test::SinglePass(32));
    cross.setPivEvalCfg(ScanCfg(PIV::CORR_DIRECT_CROSS, 32, 8));
    error.setPivEvalCfg(ScanCfg(PIV::CORR_ERROR_FUNCTION, 32, 8));
    PIV_VECTOR v{};
    for (PIV_Corr2D* c : {&fft, &cross, &error}) {
        POINT2D pos{48, 48};
        ASSERT_TRUE(c->sampleAndCorrelate(&a, &b, &pos, POINT2D{0, 0}, false));
    }
    ASSERT_TRUE(fft.peakDetection(&v, POINT2D{0, 0}, false));
    const CORR_PEAK_DATA& peak = fft.peakDetector().peaks()[0];
    EXPECT_EQ(std::lround(peak.x - peak.subX), 2);
    EXPECT_EQ(std::lround(peak.y - peak.subY), 2);
    const float *planeC = cross.getCorrelation(), *planeE = error.getCorrelation();
    const long match = (2 + 8) * 17 + (2 + 8);
    EXPECT_EQ(std::max_element(planeC, planeC + 17 * 17) - planeC, match);
    EXPECT_EQ(std::min_element(planeE, planeE + 17 * 17) - planeE, match);
    if (error.peakDetection(&v, POINT2D{0, 0}, false)) {
        EXPECT_GT(std::hypot(v.dx - 2.3, v.dy + 1.6), 1.0);
    }
}

// The maximum search on planes written by hand, range 2 (5 x 5 cells, zero
// shift in the middle), 0.9 in the cells named and 0.1 elsewhere: a best
// cell on the border has no neighbours to fit and fails; of equal best cells
// the first in row order wins; symmetric neighbours keep the vertex on the
// cell.
TEST(ScanCorr, MaximumOnTheBorderOrTied) {
    const struct {
        std::vector<int> bestCells;
        bool found;
        FPOINT2D shift;
    } cases[] = {
        {{2 * 5 + 4}, false, {2.0f, 0.0f}},
        {{1 * 5 + 1, 3 * 5 + 3}, true, {-1.0f, -1.0f}},
        {{2 * 5 + 3}, true, {1.0f, 0.0f}},
    };
    for (const auto& c : cases) {
        PIV_Corr2D_Direct direct;
        ASSERT_TRUE(direct.create(SIZE2D{4, 4}, SIZE2D{2, 2}));
        for (int k = 0; k < 25; k++) direct.coeffs()[k] = 0.1f;
        for (int k : c.bestCells) direct.coeffs()[k] = 0.9f;
        FPOINT2D shift{9.0f, 9.0f};
        float corr = 0.0f, snr = 0.0f, ms = 0.0f;
        int flag = 0;
        EXPECT_EQ(direct.findMaximum(&shift, &corr, &snr, &ms, &flag), c.found);
        EXPECT_EQ(flag, c.found ? 1 : 12);
        EXPECT_NEAR(shift.x, c.shift.x, 1e-6) << c.bestCells[0];
        EXPECT_NEAR(shift.y, c.shift.y, 1e-6) << c.bestCells[0];
    }
}

// The vector loops against the plain ones on every instruction set the
// machine has: samples 1, 7 and 33 px wide, planes of 1, 7 and 17 cells a
// row (narrower than a vector, part of one, more than one). Switching the
// level gives the same bits.
TEST(ScanCorr, VectorLoopsGiveThePlainBits) {
    for (int64_t target : hwy::SupportedAndGeneratedTargets()) {
        hwy::SetSupportedTargetsForTest(target);
        SCOPED_TRACE(hwy::TargetName(target));
        for (int w : {1, 7, 33})
            for (int r : {0, 3, 8}) {
                const int aw = w + 2 * r + 1, ah = 3 + 2 * (1 + r) + 1;
                const Image2D a = ToImage(eval_test::RandomValues(size_t(w) * 3, w, 0.0f, 255.0f), w, 3, IMAGE_FLOAT);
                const Image2D b = ToImage(eval_test::RandomValues(size_t(aw) * ah, r, 0.0f, 255.0f), aw, ah, IMAGE_FLOAT);
                for (int mode : {2, 3, 4}) {
                    SCOPED_TRACE(testing::Message() << "w " << w << " r " << r << " mode " << mode);
                    PIV_Corr2D_MQD mqd;
                    PIV_Corr2D_Direct direct;
                    direct.setMode(mode);
                    PIV_Corr2D_Scan* scan = &direct;
                    if (mode == 2) scan = &mqd;
                    ASSERT_TRUE(scan->create(SIZE2D{w, 3}, SIZE2D{r, 1 + r}));
                    std::vector<float> planes[2];
                    for (int level : {0, 6}) {
                        PIV_Set_SIMD_Level(level);
                        ASSERT_TRUE(scan->sampleAndScan(&a, &b, POINT2D{0, 0}, POINT2D{r, 1 + r}));
                        planes[level > 0].assign(scan->coeffs(),
                                                 scan->coeffs() + (2 * r + 1) * (2 * r + 3));
                    }
                    EXPECT_EQ(std::memcmp(planes[0].data(), planes[1].data(),
                                          planes[0].size() * sizeof(float)),
                              0);
                }
            }
    }
    hwy::SetSupportedTargetsForTest(0);
    PIV_Set_SIMD_Level(6);
}

// Settings a scan cannot work with, and windows it must not refuse: each
// refusal with its code, none hanging; without a plane the peak search
// fails with error 3. The scan modes test no mask.
TEST(ScanCorr, RefusalsAndMasks) {
    MessageCapture quiet;
    const auto pair = synth::RenderPair(eval_test::StandardParams(64, 5), synth::UniformFlow(1, 0));
    const Image2D a = ToImage(pair.a, 64, 64), b = ToImage(pair.b, 64, 64);
    const Image2D mask = ToImage(std::vector<float>(64 * 64, 255.0f), 64, 64);
    const struct {
        int mode, range;
        bool multiCorr;
        int code;
        bool vector;
    } cases[] = {
        {PIV::CORR_MQD, -1, false, PIVerror::BAD_PARAMETERS, false},
        {PIV::CORR_DIRECT_CROSS, 5000, false, PIVerror::ALLOCATION_FAILED, false},
        {PIV::CORR_ERROR_FUNCTION, 20, false, PIVerror::SAMPLE_LARGER_THAN_IMAGE, false},
        {PIV::CORR_MQD, 4, true, PIVerror::FUNCTION_NOT_AVAILABLE, false},
        {PIV::CORR_MQD, 4, false, 0, true},
        {PIV::CORR_DIRECT_CROSS, 4, false, 0, true},
        // A range of 0 scans one shift: a plane of one value and no fit.
        {PIV::CORR_MQD, 0, false, 0, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "mode " << c.mode << " range " << c.range);
        PIVEVAL_CFG cfg = ScanCfg(c.mode, 32, c.range);
        cfg.MultiCorr = c.multiCorr;
        PIV_Corr2D corr;
        corr.setPivEvalCfg(cfg);
        POINT2D pos{32, 32};
        EXPECT_EQ(
            corr.sampleAndCorrelateWithMask(&a, &b, &mask, nullptr, &pos, POINT2D{0, 0}, false),
            c.code == 0);
        EXPECT_EQ(corr.lastErrorCode(), c.code);
        PIV_VECTOR v{};
        EXPECT_EQ(corr.peakDetection(&v, POINT2D{0, 0}, false), c.vector);
        EXPECT_EQ(v.flag, c.vector ? 1 : 12);
        if (!corr.getCorrelation()) {
            EXPECT_EQ(corr.lastErrorCode(), PIVerror::INVALID_POINTER);
        }
    }
}
