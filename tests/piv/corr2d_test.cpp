// Tests of the correlator: window placement, the FFT correlation against
// known shifts, the sign of the result, window weighting, the mask test and
// the double correlation.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "eval_test_support.h"
#include "message_capture.h"
#include "piv_corr2d.h"
#include "piv_enums.h"
#include "piv_fft_window.h"

using eval_test::ToImage;

namespace {

// Particle images whose content moves by (dx, dy), y down the rows.
synth::SyntheticPair ParticlePair(int size, double dx, double dy) {
    return synth::RenderPair(eval_test::StandardParams(size, 11),
                                    synth::UniformFlow(dx, dy));
}


}  // namespace

// An image whose pixels hold x + 1000 y tells where each window was cut.
TEST(Corr2D, SamplePositions) {
    MessageCapture quiet;
    const int W = 64;
    std::vector<float> coords(size_t(W) * W);
    for (int y = 0; y < W; y++)
        for (int x = 0; x < W; x++) coords[size_t(y) * W + x] = float(x + 1000 * y);
    const Image2D img = ToImage(coords, W, W, IMAGE_FLOAT);
    struct Case {
        POINT2D pos, offset;
        int code;
        POINT2D movedPos, posA, posB;
    } cases[] = {
        // Window 16, so base = pos - 8.
        {{32, 32}, {0, 0}, 0, {32, 32}, {24, 24}, {24, 24}},
        // Odd x offset: the larger half goes to A, B gets base + 1.
        {{32, 32}, {3, 0}, 0, {32, 32}, {22, 24}, {25, 24}},
        // dy counts upwards: in y the roles swap, A gets base + 1.
        {{32, 32}, {0, 3}, 0, {32, 32}, {24, 25}, {24, 22}},
        // Near each edge both windows and the node slide inward.
        {{3, 32}, {0, 0}, 0, {8, 32}, {0, 24}, {0, 24}},
        {{3, 32}, {4, 0}, 0, {10, 32}, {0, 24}, {4, 24}},
        {{62, 32}, {0, 0}, 0, {56, 32}, {48, 24}, {48, 24}},
        {{32, 63}, {0, 4}, 0, {32, 54}, {24, 48}, {24, 44}},
        // |offset| + window just below the image still fits.
        {{32, 32}, {47, 0}, 0, {32, 32}, {0, 24}, {47, 24}},
        {{64, 10}, {0, 0}, PIVerror::SAMPLE_OUTSIDE_IMAGE, {}, {}, {}},
        {{-1, 10}, {0, 0}, PIVerror::SAMPLE_OUTSIDE_IMAGE, {}, {}, {}},
        {{32, 32}, {48, 0}, PIVerror::SAMPLE_LARGER_THAN_IMAGE, {}, {}, {}},
    };
    PIV_Corr2D corr;
    corr.setPivEvalCfg(eval_test::SinglePass(16));
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "pos " << c.pos.x << "," << c.pos.y << " offset "
                                        << c.offset.x << "," << c.offset.y);
        POINT2D pos = c.pos;
        const bool ok = corr.fillSamples(&img, &img, &pos, c.offset);
        EXPECT_EQ(ok, c.code == 0);
        EXPECT_EQ(corr.lastErrorCode(), c.code);
        if (!ok) continue;
        EXPECT_EQ(std::make_pair(pos.x, pos.y), std::make_pair(c.movedPos.x, c.movedPos.y));
        EXPECT_EQ(corr.getSample1()[0], float(c.posA.x + 1000 * c.posA.y));
        EXPECT_EQ(corr.getSample2()[0], float(c.posB.x + 1000 * c.posB.y));
    }
    Image2D empty;
    POINT2D pos{0, 0};
    EXPECT_FALSE(corr.fillSamples(&empty, &empty, &pos, POINT2D{0, 0}));
    EXPECT_EQ(corr.lastErrorCode(), PIVerror::BAD_IMAGE_SIZE);
}

// Sample 2 a circular shift of sample 1 by (dx, dy): the correlation
// coefficient reaches exactly 1 at (dx, dy) in FFT order.
TEST(Corr2D, FFTCorrelationOfCircularShift) {
    const int n = 32;
    const std::vector<float> a = eval_test::RandomValues(size_t(n) * n, 5);
    const struct {
        int dx, dy, mode;
    } cases[] = {{5, 3, PIV::CORR_CROSS}, {-4, 7, PIV::CORR_CROSS}, {0, -9, PIV::CORR_CROSS},
                 {5, 3, PIV::CORR_PHASE_ONLY}, {-11, -2, PIV::CORR_PHASE_ONLY}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.dx << "," << c.dy << " mode " << c.mode);
        PIVEVAL_CFG cfg = eval_test::SinglePass(n);
        cfg.CorrelationMode = c.mode;
        PIV_Corr2D corr;
        corr.setPivEvalCfg(cfg);
        const int stride = corr.internalSampleWidth();
        ASSERT_EQ(stride, 2 * (n / 2 + 1));
        for (int y = 0; y < n; y++)
            for (int x = 0; x < n; x++) {
                corr.getSample1()[y * stride + x] = a[size_t(y) * n + x];
                corr.getSample2()[y * stride + x] =
                    a[size_t((y - c.dy + n) % n) * n + (x - c.dx + n) % n];
            }
        ASSERT_TRUE(corr.crossCorrelate());
        const float* plane = corr.getCorrelation();
        const long best = std::max_element(plane, plane + n * n) - plane;
        EXPECT_EQ(best, ((c.dy + n) % n) * n + (c.dx + n) % n);
        if (c.mode == PIV::CORR_CROSS) {
            EXPECT_NEAR(plane[best], 1.0f, 1e-5);
        }
    }
}

// Both windows empty, or a constant one against particles.
TEST(Corr2D, EmptyOrConstantWindowDoesNotCorrelate) {
    const int n = 16;
    const std::vector<float> noise = eval_test::RandomValues(size_t(n) * n, 9);
    for (const float level : {0.0f, 7.0f}) {
        PIV_Corr2D corr;
        corr.setPivEvalCfg(eval_test::SinglePass(n));
        const int stride = corr.internalSampleWidth();
        for (int y = 0; y < n; y++)
            for (int x = 0; x < n; x++) {
                corr.getSample1()[y * stride + x] = level;
                corr.getSample2()[y * stride + x] = level == 0.0f ? 0.0f : noise[y * n + x];
            }
        EXPECT_FALSE(corr.crossCorrelate()) << level;
    }
}

TEST(FFTWindow, OneDimensionalWeights) {
    const struct {
        int type, i, n;
        double w;
    } cases[] = {
        // clang-format off
        {PIV::FFTWINDOW_HANN, 0, 8, 0.0},          {PIV::FFTWINDOW_HANN, 3, 8, 0.9504844},
        {PIV::FFTWINDOW_HANN, 7, 8, 0.0},          {PIV::FFTWINDOW_HAMMING, 0, 8, 0.08},
        {PIV::FFTWINDOW_HAMMING, 3, 8, 0.9544457}, {PIV::FFTWINDOW_BLACKMAN, 0, 8, 0.0},
        {PIV::FFTWINDOW_BLACKMAN, 2, 8, 0.4591830}, {PIV::FFTWINDOW_COSINE, 0, 8, 0.0},
        {PIV::FFTWINDOW_COSINE, 1, 8, 0.4338837},  {PIV::FFTWINDOW_GAUSS, 0, 8, 0.0439369},
        {PIV::FFTWINDOW_GAUSS, 3, 8, 0.9382156},
        // Tukey, N = 16: a raised cosine over the first and last quarter.
        {PIV::FFTWINDOW_TUKEY, 0, 16, 0.0},        {PIV::FFTWINDOW_TUKEY, 2, 16, 0.5},
        {PIV::FFTWINDOW_TUKEY, 4, 16, 1.0},        {PIV::FFTWINDOW_TUKEY, 14, 16, 0.1464466},
        {PIV::FFTWINDOW_NONE, 0, 8, 1.0},
        // clang-format on
    };
    for (const auto& c : cases)
        EXPECT_NEAR(PIV::FFTWindowWeight1D(c.type, c.i, c.n), c.w, 1e-6)
            << "type " << c.type << " i " << c.i << " n " << c.n;
}

TEST(FFTWindow, TwoDimensionalWindows) {
    const int w = 16, h = 12, stride = 18;
    for (int type = PIV::FFTWINDOW_TUKEY; type <= PIV::FFTWINDOW_LFC3; type++) {
        SCOPED_TRACE(type);
        std::vector<float> win(size_t(stride) * h, -1.0f);
        PIV::CreateFFTWindow(type, w, h, stride, win.data());
        float largest = 0.0f;
        for (int j = 0; j < h; j++) {
            for (int i = 0; i < w; i++) largest = std::max(largest, win[j * stride + i]);
            EXPECT_EQ(win[j * stride + w], 0.0f);
            EXPECT_EQ(win[j * stride + w + 1], 0.0f);
        }
        EXPECT_NEAR(largest, 1.0f, 1e-6);
    }
    // LFC1 at the centre row: 9 (2x - 1)^2 with x = |i - 8| / 16, over its centre value 9.
    std::vector<float> lfc(size_t(16) * 16);
    PIV::CreateFFTWindow(PIV::FFTWINDOW_LFC1, 16, 16, 16, lfc.data());
    EXPECT_NEAR(lfc[8 * 16 + 4], 0.25f, 1e-6);
    EXPECT_NEAR(lfc[8 * 16 + 0], 0.0f, 1e-6);
    // LFC2 vanishes from radius 0.5 of the width on.
    PIV::CreateFFTWindow(PIV::FFTWINDOW_LFC2, 16, 16, 16, lfc.data());
    for (int j = 0; j < 16; j++)
        for (int i = 0; i < 16; i++) {
            const double r = std::hypot(i - 8, j - 8) / 16.0;
            if (r >= 0.5) {
                EXPECT_EQ(lfc[j * 16 + i], 0.0f) << i << "," << j;
            } else {
                EXPECT_GT(lfc[j * 16 + i], 0.0f) << i << "," << j;
            }
        }
}

// The mask test looks at the window's top row only, counting it once per row
// of the window, and from the second round on the first cell counts as
// masked whatever the mask holds. Window 16 at (32, 32): top row y = 24,
// x = 24..39; fraction = (masked cells counted) / 256, failing above 0.5.
TEST(Corr2D, MaskTestReadsTopRow) {
    MessageCapture quiet;
    const auto pair = ParticlePair(64, 2.0, 1.0);
    const Image2D a = ToImage(pair.a, 64, 64), b = ToImage(pair.b, 64, 64);
    const struct {
        int x0, x1, y0, y1;  // masked rectangle, inclusive
        bool pass;
    } cases[] = {
        {24, 32, 24, 24, false},  // 9 of 16 cells of the top row: 144 / 256
        {25, 32, 24, 24, false},  // 8 cells, first one free: 8 + 15 * 9 = 143 / 256
        {24, 31, 24, 24, true},   // 8 cells with the first: 128 / 256, not above half
        {24, 39, 25, 39, true},   // all but the top row: 15 / 256
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.x0 << ".." << c.x1 << " x " << c.y0 << ".." << c.y1);
        std::vector<float> m(64 * 64, 0.0f);
        for (int y = c.y0; y <= c.y1; y++)
            for (int x = c.x0; x <= c.x1; x++) m[y * 64 + x] = 255.0f;
        const Image2D mask = ToImage(m, 64, 64, IMAGE_UINT8);
        PIV_Corr2D corr;
        corr.setPivEvalCfg(eval_test::SinglePass(16));
        POINT2D pos{32, 32};
        EXPECT_EQ(corr.sampleAndCorrelateWithMask(&a, &b, &mask, nullptr, &pos, POINT2D{0, 0}, false),
                  c.pass);
        EXPECT_EQ(corr.lastErrorCode(), c.pass ? 0 : int(PIVerror::SAMPLE_MASKED));
        EXPECT_EQ(corr.error().getLastErrorCode(), 0);  // a masked window fails silently
    }
}

// Two windows side by side on the node's row give their product plane; with
// neither the grid nor an offset there is no second window. With the 2-D
// Gaussian fit the second window of a double correlation forms the
// autocorrelation whenever the auto shape is missing; the first one never
// does and does not look for a shape either: after the shape is dropped, the
// next double correlation counts one more autocorrelation.
// NOTE: the correlator currently fits the shape after the first window too,
// from the previous node's stale autocorrelation plane, and then skips it.
TEST(Corr2D, MultiCorr) {
    MessageCapture quiet;
    const auto pair = ParticlePair(128, 3.0, 2.0);
    const Image2D a = ToImage(pair.a, 128, 128), b = ToImage(pair.b, 128, 128);
    PIVEVAL_CFG cfg = eval_test::SinglePass(32);
    cfg.MultiCorr = true;
    PIV_Corr2D corr;
    corr.setPivEvalCfg(cfg);
    POINT2D pos{64, 64};
    ASSERT_TRUE(corr.sampleAndCorrelate(&a, &b, &pos, POINT2D{0, 0}, false));
    EXPECT_TRUE(corr.haveDoubleResult());
    EXPECT_EQ(pos.x, 64);
    PIV_VECTOR v{};
    ASSERT_TRUE(corr.peakDetection(&v, POINT2D{0, 0}, false));
    EXPECT_NEAR(v.dx, 3.0, 0.1);
    EXPECT_NEAR(v.dy, -2.0, 0.1);

    PIVEVAL_CFG alone = cfg;
    alone.MultiCorrUseGrid = false;
    alone.MultiCorr_Offset = POINT2D{0, 0};
    PIV_Corr2D single;
    single.setPivEvalCfg(alone);
    pos = POINT2D{64, 64};
    EXPECT_FALSE(single.sampleAndCorrelate(&a, &b, &pos, POINT2D{0, 0}, false));

    cfg.Type = PIV::PEAKFIT_NONLIN_GAUSS;
    cfg.Size = 5;
    PIV_Corr2D gauss;
    gauss.setPivEvalCfg(cfg);
    pos = POINT2D{64, 64};
    ASSERT_TRUE(gauss.sampleAndCorrelate(&a, &b, &pos, POINT2D{0, 0}, false));
    EXPECT_EQ(gauss.autoCorrCount(), 1);
    gauss.peakDetector().clearNonlinearFit();
    pos = POINT2D{48, 80};
    ASSERT_TRUE(gauss.sampleAndCorrelate(&a, &b, &pos, POINT2D{0, 0}, false));
    EXPECT_EQ(gauss.autoCorrCount(), 2);
    EXPECT_TRUE(gauss.peakDetector().haveAutoShape());
}
