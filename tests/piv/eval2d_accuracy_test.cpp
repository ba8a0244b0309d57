// Accuracy of the single pass against synthetic pairs with a known flow:
// 2.5 px particles, 0.02 per pixel, 8 bit, no noise; 32 x 32 windows, step
// 16; errors over the interior nodes (windows wholly inside the image).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "eval_test_support.h"
#include "message_capture.h"

using namespace eval_test;
using synth::RenderPair;
using synth::UniformFlow;

namespace {

constexpr int kInterior = 16;  // a node this far in has its whole window inside

FieldErrors Measure(double flowDx, double flowDy, const PIVEVAL_CFG& cfg, int size = 256) {
    MessageCapture quiet;
    const UniformFlow flow(flowDx, flowDy);
    Evaluation e(RenderPair(StandardParams(size), flow), cfg);
    EXPECT_TRUE(e.run()) << e.eval->getLastError();
    return CompareWithFlow(e.field(), flow, kInterior);
}

}  // namespace

// 3 px right and 2 px down reads dx = 3, dy = -2; 0.4 px right and 0.3 px
// up reads dx = 0.4, dy = +0.3. At the integer shift about a tenth of the
// particles of a window lose their partner, and their chance correlations
// are the whole of the error: with the window offset set to the shift the
// same pair comes out exact. A bound of 1 px bounds nothing.
TEST(SinglePassAccuracy, ShiftsWithTheirBounds) {
    PIVEVAL_CFG offset = SinglePass(32, 16, PIV::PEAKFIT_GAUSS_3PT);
    offset.SampleOffset = POINT3D{3, -2, 0};  // dy counts upwards
    struct Case {
        double dx, dy;
        PIVEVAL_CFG cfg;
        double rms, p99, mean;
    } cases[] = {
        {3.0, 2.0, SinglePass(32, 16, PIV::PEAKFIT_GAUSS_3PT), 0.035, 0.125, 0.01},
        {3.0, 2.0, offset, 1e-4, 1.0, 1.0},
        {0.4, -0.3, SinglePass(32, 16, PIV::PEAKFIT_GAUSS_3PT), 0.04, 0.12, 1.0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.dx << ", " << c.dy << " fit " << c.cfg.Type);
        const FieldErrors f = Measure(c.dx, c.dy, c.cfg);
        EXPECT_EQ(f.nodes, 225);
        EXPECT_EQ(f.failed, 0);
        EXPECT_LE(std::max(f.x.rms, f.y.rms), c.rms);
        EXPECT_LE(std::max(f.x.p99, f.y.p99), c.p99);
        EXPECT_LE(std::max(std::fabs(f.x.mean), std::fabs(f.y.mean)), c.mean);
    }
}

// Shifts of 0.0, 0.1, ... 0.9 px on both axes. The bounds per fit:
// - three-point Gaussian, 3x3 log-paraboloid, 2-D Gaussian: RMS 0.05,
//   |mean| 0.04. Their bias is the loss of overlap at the zero cell, which
//   the peak weights leave alone by design (about -0.03 px at half a pixel);
// - Whittaker reconstruction: RMS 0.05, |mean| 0.02, nearly free of bias;
// - parabola: RMS 0.07, |mean| 0.08, a parabola is too wide for a peak of
//   about one pixel and pulls it to the nearest cell;
// - 3x3 centroid: RMS 0.2, |mean| 0.25, it sees only a third of the peak's
//   flanks and locks hard onto whole pixels.
TEST(SinglePassAccuracy, FractionalShiftSweepPerFit) {
    struct Bound {
        int fit;
        double rms, mean;
    };
    const Bound bounds[] = {
        {PIV::PEAKFIT_GAUSS_3PT, 0.05, 0.04},    {PIV::PEAKFIT_GAUSS_3X3, 0.05, 0.04},
        {PIV::PEAKFIT_PARABOLIC, 0.07, 0.08},    {PIV::PEAKFIT_CENTROID, 0.20, 0.25},
        {PIV::PEAKFIT_WHITTAKER, 0.05, 0.02},    {PIV::PEAKFIT_NONLIN_GAUSS, 0.05, 0.04},
    };
    for (const Bound& b : bounds) {
        double sumSquares = 0.0;
        int components = 0;
        for (int tenth = 0; tenth <= 9; tenth++) {
            const double s = 0.1 * tenth;
            PIVEVAL_CFG cfg = SinglePass(32, 16, b.fit);
            if (b.fit == PIV::PEAKFIT_NONLIN_GAUSS) cfg.Size = 5;  // 13 points for 6 parameters
            const FieldErrors f = Measure(s, s, cfg);
            EXPECT_EQ(f.failed, 0) << "fit " << b.fit << " shift " << s;
            EXPECT_LE(std::max(std::fabs(f.x.mean), std::fabs(f.y.mean)), b.mean)
                << "fit " << b.fit << " shift " << s;
            sumSquares += f.x.rms * f.x.rms + f.y.rms * f.y.rms;
            components += 2;
        }
        EXPECT_LE(std::sqrt(sumSquares / components), b.rms) << "fit " << b.fit;
    }
}

// A double exposure correlated with itself: the self-correlation peak at zero
// goes to the back, and either of the two equal displacement peaks leads.
// Each window holds twice the particle images for the same pairs, so the
// random part of the error is about four times that of a cross-correlation
// (RMS about 0.12 px, median 0.09 px here); the displacement carries no bias.
TEST(SinglePassAccuracy, AutocorrelationOfDoubleExposure) {
    MessageCapture quiet;
    const UniformFlow flow(4.0, 3.0);
    const auto pair = RenderPair(StandardParams(256), flow);
    std::vector<float> both(pair.a.size());
    for (size_t k = 0; k < both.size(); k++) both[k] = std::min(pair.a[k] + pair.b[k], 255.0f);
    const Image2D image = ToImage(both, pair.width, pair.height);
    PIV_Eval2D eval;
    eval.setAnalysisMode(PIV::ANALYSIS_AUTO_CORRELATION);
    eval.setPivEvalCfg(SinglePass(32, 16, PIV::PEAKFIT_GAUSS_3PT));
    ASSERT_TRUE(eval.setPivImages(&image, &image));
    ASSERT_TRUE(eval.interrogateImage(false));
    std::vector<double> ex, ey;
    for (int k = 0; k < eval.data()->nodeCount(); k++) {
        const PIV_VECTOR& v = eval.data()->data()[k];
        ASSERT_TRUE(v.flag & VECTOR_ENABLED);
        ex.push_back(std::fabs(v.dx) - 4.0);
        ey.push_back(std::fabs(v.dy) - 3.0);
    }
    const ComponentErrors x = Summarise(ex), y = Summarise(ey);
    EXPECT_LE(std::max(std::fabs(x.mean), std::fabs(y.mean)), 0.05);
    EXPECT_LE(std::max(x.rms, y.rms), 0.15);
    // Summarise leaves the magnitudes sorted: the middle one is the median.
    EXPECT_LE(std::max(ex[ex.size() / 2], ey[ey.size() / 2]), 0.1);
}
