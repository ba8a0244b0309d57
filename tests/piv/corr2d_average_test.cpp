// Ensemble correlation: worked pass lists, accuracy against a known flow on
// sparse synthetic pairs, the plane file, and the run's failures.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "eval_test_support.h"
#include "message_capture.h"
#include "piv_corr2d_average.h"
#include "piv_data2d.h"
#include "piv_filelist.h"
#include "piv_params.h"

using namespace eval_test;

namespace {

// The sparse case: 0.002 particles per pixel, 3 px, no noise.
synth::SynthParams Sparse(unsigned seed) {
    synth::SynthParams p = StandardParams(256, seed);
    p.particleDensity = 0.002;
    p.particleDiameter = 3.0;
    return p;
}

// An ensemble of 32 px windows, step 16, over the pairs seeded 1..n.
struct Ensemble {
    PIV_Corr2D_Average avg;
    explicit Ensemble(int fit = PIV::PEAKFIT_GAUSS_3PT, int mode = 0) {
        PIV_PARAMETERS p;
        p.eval = SinglePass(32, 16, fit);
        p.eval.CorrelationMode = mode;
        p.eval.ScanRange = SIZE3D{6, 6, 0};
        avg.setPivParameters(p);
    }
    void add(const synth::SyntheticPair& pair) {
        const Image2D a = ToImage(pair.a, pair.width, pair.height);
        const Image2D b = ToImage(pair.b, pair.width, pair.height);
        if (avg.corrPlaneCount() == 0) {
            ASSERT_TRUE(avg.initializeGrid(pair.width, pair.height));
        }
        ASSERT_TRUE(avg.processImagePair(&a, &b));
    }
    void run(int n, const synth::Flow& flow) {
        for (int i = 1; i <= n; i++) add(RenderPair(Sparse(unsigned(i)), flow));
        ASSERT_TRUE(avg.computePivData(avg.pivParameters()->pivEvalCfg().Type, false));
    }
    PIV_Data2D& field() { return *avg.pivData(); }
};

std::string Passes(const CORR_AVERAGE_PARAMS& params, int window, int scan, int step) {
    PIVEVAL_CFG cfg = SinglePass(window, step);
    cfg.ScanRange = SIZE3D{scan, scan, 0};
    std::string s;
    for (const CORR_AVERAGE_PASS& p : PIV::BuildEnsembleCorrSteps(params, cfg))
        s += std::to_string(p.window.width) + "/" + std::to_string(p.scan.width) + "/" +
             std::to_string(p.step.width) + " d" + std::to_string(p.desample) + " s" +
             std::to_string(p.fileStride) + "; ";
    return s;
}

[[maybe_unused]] std::string TempPath(const std::string& name) {
    return testing::TempDir() + "ens_" + name;
}

[[maybe_unused]] std::string ReadText(const std::string& path) {
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

}  // namespace

// window/scan/step, desample and file stride per pass.
// Mode 2 reads the last sentence of its rule as: a pyramid whose finest
// level has the evaluation's window, step and scan becomes the final pass
// (desample 1, every pair); otherwise a pass with the true sizes follows.
TEST(EnsembleSteps, PassListsWorkedByHand) {
    struct Case {
        int mode, passes, vary, stride, start, window, scan, step;
        const char* expected;
    } cases[] = {
        {0, 2, 1, 10, 64, 32, 0, 16, "32/0/16 d1 s1; "},
        {1, 1, 1, 10, 64, 32, 0, 16, "32/0/16 d1 s1; "},
        // 10, halved to 5, the last pass on every pair.
        {1, 3, 1, 10, 64, 32, 0, 16, "32/0/16 d1 s10; 32/0/16 d1 s5; 32/0/16 d1 s1; "},
        // 24 rounds up to 32; the start 16 is below the window and becomes
        // 32; k = 2 already covers 32 x 32 (64 x 64 >= 1024). The finest
        // level (32, step 32) is not the evaluation's, so 24/4/12 follows.
        {2, 2, 0, 10, 16, 24, 4, 12, "64/8/64 d2 s1; 32/4/32 d1 s1; 24/4/12 d1 s1; "},
        // Start 128: k = 4 (128 x 128 reaches 128 x 128); strides k^2, and
        // the finest level is the evaluation's own, so it runs every pair.
        {2, 2, 1, 10, 128, 32, 2, 32,
         "128/8/128 d4 s16; 96/6/96 d3 s9; 64/4/64 d2 s4; 32/2/32 d1 s1; "},
    };
    for (const Case& c : cases) {
        CORR_AVERAGE_PARAMS params;
        params.mode = c.mode;
        params.passCount = c.passes;
        params.varyStride = c.vary;
        params.stride = c.stride;
        params.startWin = SIZE2D{c.start, c.start};
        EXPECT_EQ(Passes(params, c.window, c.scan, c.step), c.expected) << "mode " << c.mode;
    }
}

// 50 sparse pairs, about two particles per window: a single pair mostly
// finds noise, their sum the flow (2.3, -1.6), which reads dx 2.3, dy +1.6.
TEST(EnsembleAccuracy, SparsePairsGiveTheFlowWhereSinglePairsFail) {
    MessageCapture quiet;
    const synth::UniformFlow flow(2.3, -1.6);
    Ensemble e;
    e.run(50, flow);
    const FieldErrors ens = CompareWithFlow(e.field(), flow, 16);
    EXPECT_EQ(ens.failed, 0);
    EXPECT_LE(std::max(ens.x.rms, ens.y.rms), 0.05);
    int nodes = 0, outliers = 0;
    for (int i = 1; i <= 50; i++) {
        Evaluation single(RenderPair(Sparse(unsigned(i)), flow), SinglePass(32, 16, 0));
        ASSERT_TRUE(single.run());
        for (int k = 0; k < single.field().nodeCount(); k++) {
            const PIV_VECTOR& v = single.field().data()[k];
            if (v.ix < 16 || v.iy < 16 || v.ix > 240 || v.iy > 240) continue;
            nodes++;
            if (!(v.flag & VECTOR_ENABLED) || std::hypot(v.dx - 2.3, v.dy - 1.6) > 0.5) outliers++;
        }
    }
    EXPECT_GT(outliers * 10, nodes);
    std::printf("ensemble RMS %.4f / %.4f px; single pairs %d of %d outliers\n", ens.x.rms,
                ens.y.rms, outliers, nodes);
}
