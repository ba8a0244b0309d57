// The scan correlators of modes 2 to 4 (minimum quadratic difference, direct
// cross-correlation, error correlation function): window placement, planes
// of hand-made windows, shifts of synthetic particle pairs, the extremum
// search, the vector loops against the plain ones, and bad settings.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
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

// Mean measured displacement and largest error over the windows of a 160 px
// pair of 3 px particles moving by (dx, dy) down the rows: 32 px windows,
// range 8, nodes every 24 px inside. The vector counts dy upwards.
struct Measured {
    double dx = 0.0, dy = 0.0, worst = 0.0;
    int failed = 0;
};
Measured MeasureShift(int mode, double dx, double dy, unsigned seed = 3) {
    synth::SynthParams p = eval_test::StandardParams(160, seed);
    p.particleDiameter = 3.0;
    const auto pair = synth::RenderPair(p, synth::UniformFlow(dx, dy));
    const Image2D a = ToImage(pair.a, 160, 160), b = ToImage(pair.b, 160, 160);
    PIV_Corr2D corr;
    corr.setPivEvalCfg(ScanCfg(mode, 32, 8));
    Measured m;
    int n = 0;
    for (int y = 40; y <= 120; y += 24)
        for (int x = 40; x <= 120; x += 24) {
            POINT2D pos{x, y};
            PIV_VECTOR v{};
            if (!corr.sampleAndCorrelate(&a, &b, &pos, POINT2D{0, 0}, false) ||
                !corr.peakDetection(&v, POINT2D{0, 0}, false)) {
                m.failed++;
                continue;
            }
            m.dx += v.dx;
            m.dy += v.dy;
            m.worst = std::max({m.worst, std::fabs(v.dx - dx), std::fabs(v.dy + dy)});
            n++;
        }
    if (n) m.dx /= n, m.dy /= n;
    return m;
}

std::vector<float> Noise(size_t n, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> u(0.0f, 255.0f);
    std::vector<float> v(n);
    for (float& x : v) x = u(rng);
    return v;
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
        EXPECT_EQ(std::make_pair(pos.x, pos.y), std::make_pair(c.movedPos.x, c.movedPos.y));
        EXPECT_EQ(std::make_pair(posA.x, posA.y), std::make_pair(c.posA.x, c.posA.y));
        EXPECT_EQ(std::make_pair(posB.x, posB.y), std::make_pair(c.posB.x, c.posB.y));
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

// A 2 x 2 sample [1 2; 3 4] over a 5 x 5 scan area that holds it at zero
// shift (1, 1), zeros elsewhere. Worked by hand: at plane cell (0, 0) the
// window is [0 0; 0 1], at (2, 1) [2 0; 4 0], at (2, 2) [4 0; 0 0].
TEST(ScanCorr, PlanesOfHandMadeWindows) {
    const std::vector<float> a = {0, 0, 0, 0, 0, 0, 1, 2, 0, 0, 0, 3, 4,
                                  0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    const std::vector<float> b = {0, 0, 0, 0, 0, 0, 1, 2, 0, 0, 0, 3, 4,
                                  0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    const Image2D imgA = ToImage(a, 5, 5, IMAGE_FLOAT), imgB = ToImage(b, 5, 5, IMAGE_FLOAT);
    const struct {
        int mode, i, j;
        double value;
    } cases[] = {
        // sum (a - b)^2
        {PIV::CORR_MQD, 1, 1, 0.0},
        {PIV::CORR_MQD, 0, 0, 1 + 4 + 9 + 9},
        {PIV::CORR_MQD, 2, 1, 1 + 4 + 1 + 16},
        // sum |a - b| / sum (a + b)
        {PIV::CORR_ERROR_FUNCTION, 1, 1, 0.0},
        {PIV::CORR_ERROR_FUNCTION, 0, 0, 9.0 / 11.0},
        {PIV::CORR_ERROR_FUNCTION, 2, 1, 8.0 / 16.0},
        // Means 2.5 and 0.25, 1.5, 1: sum of products over the root of
        // 5 * (0.75, 11, 12).
        {PIV::CORR_DIRECT_CROSS, 1, 1, 1.0},
        {PIV::CORR_DIRECT_CROSS, 0, 0, 1.5 / std::sqrt(3.75)},
        {PIV::CORR_DIRECT_CROSS, 2, 1, -1.0 / std::sqrt(55.0)},
        {PIV::CORR_DIRECT_CROSS, 2, 2, -6.0 / std::sqrt(60.0)},
    };
    PIV_Corr2D_MQD mqd;
    PIV_Corr2D_Direct direct;
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "mode " << c.mode << " cell " << c.i << "," << c.j);
        PIV_Corr2D_Scan* scan = &direct;
        if (c.mode == PIV::CORR_MQD) scan = &mqd;
        direct.setMode(c.mode);
        ASSERT_TRUE(scan->create(SIZE2D{2, 2}, SIZE2D{1, 1}));
        ASSERT_TRUE(scan->sampleAndScan(&imgA, &imgB, POINT2D{1, 1}, POINT2D{1, 1}));
        EXPECT_NEAR(scan->coeffs()[c.j * 3 + c.i], c.value, 1e-6);
    }
    EXPECT_EQ(direct.sampleMean(), 2.5f);
    EXPECT_EQ(direct.windowMeans()[0], 0.25f);
}

// 3 px particles, shifts inside the range of 8: the direct cross-correlation
// finds them to 0.05 px, with dy counting upwards, and its whole-pixel peak
// is the one of the FFT correlation.
TEST(ScanCorr, DirectCrossCorrelationFindsShifts) {
    const double shifts[][2] = {{2.3, -1.6}, {0.5, 3.2}, {-3.7, 0.4}, {-4.4, 3.6}};
    for (const auto& s : shifts) {
        const Measured m = MeasureShift(PIV::CORR_DIRECT_CROSS, s[0], s[1]);
        EXPECT_EQ(m.failed, 0);
        EXPECT_LT(m.worst, 0.05) << s[0] << "," << s[1];
    }
    synth::SynthParams p = eval_test::StandardParams(96, 5);
    p.particleDiameter = 3.0;
    const auto pair = synth::RenderPair(p, synth::UniformFlow(2.3, -1.6));
    const Image2D a = ToImage(pair.a, 96, 96), b = ToImage(pair.b, 96, 96);
    PIV_Corr2D scan, fft;
    scan.setPivEvalCfg(ScanCfg(PIV::CORR_DIRECT_CROSS, 32, 8));
    fft.setPivEvalCfg(eval_test::SinglePass(32));
    POINT2D pos{48, 48}, same{48, 48};
    PIV_VECTOR v{};
    ASSERT_TRUE(scan.sampleAndCorrelate(&a, &b, &pos, POINT2D{0, 0}, false));
    ASSERT_TRUE(fft.sampleAndCorrelate(&a, &b, &same, POINT2D{0, 0}, false));
    ASSERT_TRUE(fft.peakDetection(&v, POINT2D{0, 0}, false));
    const float* plane = scan.getCorrelation();
    const long best = std::max_element(plane, plane + 17 * 17) - plane;
    const CORR_PEAK_DATA& peak = fft.peakDetector().peaks()[0];
    EXPECT_EQ(best % 17 - 8, std::lround(peak.x - peak.subX));
    EXPECT_EQ(best / 17 - 8, std::lround(peak.y - peak.subY));
}

// The minimum quadratic difference: whole shifts to 0.05 px; between them
// the log-paraboloid pulls the result towards the whole pixel, but the mean
// error stays below 0.25 px and the result still grows with the shift.
TEST(ScanCorr, MinimumQuadraticDifferenceFindsShifts) {
    for (const auto& s : {std::make_pair(2.0, 1.0), {-3.0, -1.0}, {0.0, 4.0}}) {
        const Measured m = MeasureShift(PIV::CORR_MQD, s.first, s.second);
        EXPECT_LT(m.worst, 0.05) << s.first << "," << s.second;
    }
    double previous = -1.0;
    for (int tenth = 1; tenth <= 9; tenth++) {
        const Measured m = MeasureShift(PIV::CORR_MQD, tenth / 10.0, 0.0);
        EXPECT_LT(std::fabs(m.dx - tenth / 10.0), 0.25) << tenth;
        EXPECT_GT(m.dx, previous) << tenth;
        previous = m.dx;
    }
}

// The error correlation function is smallest at the match, yet the
// correlator looks for its largest value: the plane's minimum lies at the
// shift (2, 1), the vector elsewhere.
TEST(ScanCorr, ErrorFunctionReportsItsLargestValue) {
    MessageCapture quiet;
    synth::SynthParams p = eval_test::StandardParams(96, 5);
    p.particleDiameter = 3.0;
    const auto pair = synth::RenderPair(p, synth::UniformFlow(2.0, 1.0));
    const Image2D a = ToImage(pair.a, 96, 96), b = ToImage(pair.b, 96, 96);
    PIV_Corr2D corr;
    corr.setPivEvalCfg(ScanCfg(PIV::CORR_ERROR_FUNCTION, 32, 8));
    POINT2D pos{48, 48};
    ASSERT_TRUE(corr.sampleAndCorrelate(&a, &b, &pos, POINT2D{0, 0}, false));
    const float* plane = corr.getCorrelation();
    const long least = std::min_element(plane, plane + 17 * 17) - plane;
    EXPECT_EQ(least, (1 + 8) * 17 + (2 + 8));
    PIV_VECTOR v{};
    if (corr.peakDetection(&v, POINT2D{0, 0}, false)) {
        EXPECT_GT(std::hypot(v.dx - 2.0, v.dy + 1.0), 1.0);
    }
}

// The extremum search on planes written by hand, range 2 (5 x 5 cells, zero
// shift in the middle): a best cell on the border has no neighbours to fit
// and fails; of equal best cells the first in row order wins; a range of 0
// leaves one cell and no fit.
TEST(ScanCorr, ExtremumOnTheBorderOrTied) {
    const struct {
        int range;
        std::vector<int> bestCells;
        bool found;
        FPOINT2D shift;
    } cases[] = {
        {2, {2 * 5 + 4}, false, {2.0f, 0.0f}},
        {2, {1 * 5 + 1, 3 * 5 + 3}, true, {-1.0f, -1.0f}},
        {2, {3 * 5 + 3, 1 * 5 + 1}, true, {-1.0f, -1.0f}},
        {2, {2 * 5 + 3}, true, {1.0f, 0.0f}},
        {0, {0}, false, {0.0f, 0.0f}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "range " << c.range << " best " << c.bestCells[0]);
        PIV_Corr2D_Direct direct;
        PIV_Corr2D_MQD mqd;
        ASSERT_TRUE(direct.create(SIZE2D{4, 4}, SIZE2D{c.range, c.range}));
        ASSERT_TRUE(mqd.create(SIZE2D{4, 4}, SIZE2D{c.range, c.range}));
        const int cells = (2 * c.range + 1) * (2 * c.range + 1);
        for (int k = 0; k < cells; k++) direct.coeffs()[k] = 0.1f, mqd.coeffs()[k] = 5.0f;
        for (int k : c.bestCells) direct.coeffs()[k] = 0.9f, mqd.coeffs()[k] = 1.0f;
        FPOINT2D shift{9.0f, 9.0f}, low{9.0f, 9.0f};
        float corr = 0.0f, snr = 0.0f, ms = 0.0f, value = 0.0f, mean = 0.0f;
        int flag = 0, lowFlag = 0;
        EXPECT_EQ(direct.findMaximum(&shift, &corr, &snr, &ms, &flag), c.found);
        EXPECT_EQ(mqd.findMinimum(&low, &value, &mean, &lowFlag), c.found);
        EXPECT_EQ(flag, c.found ? 1 : 12);
        EXPECT_EQ(lowFlag, flag);
        EXPECT_EQ(corr, 0.9f);
        EXPECT_EQ(value, 1.0f);
        // Symmetric neighbours leave the vertex on the cell.
        for (const FPOINT2D& f : {shift, low}) {
            EXPECT_NEAR(f.x, c.shift.x, 1e-6);
            EXPECT_NEAR(f.y, c.shift.y, 1e-6);
        }
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
                const Image2D a = ToImage(Noise(size_t(w) * 3, w), w, 3, IMAGE_FLOAT);
                const Image2D b = ToImage(Noise(size_t(aw) * ah, r), aw, ah, IMAGE_FLOAT);
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
// refusal with its code, none hanging. The scan modes test no mask.
TEST(ScanCorr, RefusalsAndMasks) {
    MessageCapture quiet;
    const auto pair = synth::RenderPair(eval_test::StandardParams(64, 5), synth::UniformFlow(1, 0));
    const Image2D a = ToImage(pair.a, 64, 64), b = ToImage(pair.b, 64, 64);
    const Image2D mask = ToImage(std::vector<float>(64 * 64, 255.0f), 64, 64);
    const struct {
        int mode, range;
        bool multiCorr;
        int code;
    } cases[] = {
        {PIV::CORR_MQD, -1, false, PIVerror::BAD_PARAMETERS},
        {PIV::CORR_DIRECT_CROSS, 5000, false, PIVerror::ALLOCATION_FAILED},
        {PIV::CORR_ERROR_FUNCTION, 20, false, PIVerror::SAMPLE_LARGER_THAN_IMAGE},
        {PIV::CORR_MQD, 4, true, PIVerror::FUNCTION_NOT_AVAILABLE},
        {PIV::CORR_MQD, 4, false, 0},
        {PIV::CORR_DIRECT_CROSS, 4, false, 0},
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
        if (c.code == 0) {
            EXPECT_TRUE(corr.peakDetection(&v, POINT2D{0, 0}, false));
        }
    }
    // A range of 0 scans one shift: a plane of one value and no vector.
    PIV_Corr2D corr;
    corr.setPivEvalCfg(ScanCfg(PIV::CORR_MQD, 32, 0));
    POINT2D pos{32, 32};
    ASSERT_TRUE(corr.sampleAndCorrelate(&a, &b, &pos, POINT2D{0, 0}, false));
    EXPECT_EQ(corr.getCorrSize().width * corr.getCorrSize().height, 1);
    PIV_VECTOR v{};
    EXPECT_FALSE(corr.peakDetection(&v, POINT2D{0, 0}, false));
    EXPECT_EQ(v.flag, 12);
}
