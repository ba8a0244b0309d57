// The evaluator's behaviour around the windows: sample lists, edges, masks,
// threads, progress, the probe and its refusals.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <thread>
#include <vector>

#include "eval_test_support.h"
#include "message_capture.h"
#include "piv_util.h"

using namespace eval_test;
using synth::RenderPair;
using synth::UniformFlow;

namespace {

CORR_SAMPLE_POS Sample(int x, int y, POINT2D offset = POINT2D{0, 0}) {
    CORR_SAMPLE_POS s;
    s.pos = POINT2D{x, y};
    s.offset = offset;
    s.enabled = true;
    return s;
}

// Runs `samples` through the evaluator's sample list into `vectors` (grown
// to their number); the count of good vectors comes back.
int Process(PIV_Eval2D& eval, std::vector<CORR_SAMPLE_POS>& samples,
            std::vector<PIV_VECTOR>& vectors, const Image2D& a, const Image2D& b,
            const Image2D* mask = nullptr, const PIVEVAL_CFG& cfg = SinglePass(),
            bool accumulate = false) {
    vectors.resize(samples.size());
    int good = -1;
    EXPECT_TRUE(eval.processSampleList(samples.data(), int(samples.size()), vectors.data(), cfg,
                                       accumulate, &a, &b, nullptr, nullptr, mask, nullptr, &good));
    return good;
}

// Threads of the evaluation for one test.
class ThreadScope {
public:
    explicit ThreadScope(int n) { PIV::SetMaxThreads(n); }
    ~ThreadScope() { PIV::SetMaxThreads(0); }
};

// Four workers (one correlator each, made with the evaluator) over a 1 px
// shift, frame B `heightB` rows high; 16 px windows at `step`.
template <class Eval>
struct FourWorkers {
    ThreadScope threads{4};
    synth::SyntheticPair pair;
    Image2D a, b;
    Eval eval;
    FourWorkers(int size, int heightB, int step)
        : pair(RenderPair(StandardParams(size), UniformFlow(1.0, 0.0))),
          a(ToImage(pair.a, size, size)), b(ToImage(pair.b, size, heightB)) {
        eval.setPivEvalCfg(SinglePass(16, step));
        EXPECT_TRUE(eval.setPivImages(&a, heightB == size ? &b : &a));
    }
};

// The evaluator's own messages stay out of the test output.
class Eval2D : public testing::Test {
protected:
    MessageCapture quiet;
};

}  // namespace

TEST_F(Eval2D, FieldAfterASinglePass) {
    const auto pair = RenderPair(StandardParams(128), UniformFlow(2.0, -1.0));
    Evaluation e(pair, SinglePass());
    ASSERT_TRUE(e.run());
    const PIV_Data2D& f = e.field();
    // 128 px, 32 px windows, step 16: nodes from 16 to 112, 7 on each axis.
    EXPECT_EQ(std::make_pair(f.grid().nodes.width, f.grid().nodes.height), std::make_pair(7, 7));
    const PIV_VECTOR& v = f.data()[8];  // row 1, col 1
    EXPECT_EQ(std::vector<int>({v.ix, v.iy, v.flag, v.count}),
              std::vector<int>({32, 32, VECTOR_ENABLED, 1}));
    EXPECT_NEAR(v.dx, 2.0f, 0.15f);
    EXPECT_NEAR(v.dy, 1.0f, 0.15f);  // the flow moves up by 1 px: dy counts upwards
    EXPECT_EQ(f.vectorsActive(), 49u);

    // The probe at a node gives the field's vector; outside the image it is refused.
    PIV_VECTOR probe;
    ASSERT_TRUE(e.eval->interrogateAtPoint(POINT2D{48, 64}, &probe, 0));
    const PIV_VECTOR& node = f.data()[3 * 7 + 2];  // row 3, col 2, at (48, 64)
    EXPECT_EQ(std::make_tuple(probe.dx, probe.dy, probe.ix), std::make_tuple(node.dx, node.dy, 48));
    EXPECT_FALSE(e.eval->interrogateAtPoint(POINT2D{-1, 10}, &probe, 0));
}

TEST_F(Eval2D, NodesAtTheEdgeSlideInwardAndKeepTheirPositions) {
    const auto pair = RenderPair(StandardParams(128), UniformFlow(2.0, 0.0));
    Evaluation e(pair, SinglePass());
    // Nodes 3 px from the left edge and 2 px from the lower edge: their
    // windows move inward, still over the same uniform flow.
    std::vector<CORR_SAMPLE_POS> samples = {Sample(3, 64), Sample(64, 126)};
    std::vector<PIV_VECTOR> vectors;
    EXPECT_EQ(Process(*e.eval, samples, vectors, e.a, e.b), 2);
    EXPECT_EQ(std::make_pair(vectors[0].ix, vectors[1].iy), std::make_pair(3, 126));
    for (const PIV_VECTOR& v : vectors) EXPECT_NEAR(v.dx, 2.0f, 0.2f);

    // Without keeping node positions the vectors sit where the windows went:
    // the centre of a 32 px window against the edge is 16 px in.
    e.eval->setKeepNodePositions(false);
    Process(*e.eval, samples, vectors, e.a, e.b);
    EXPECT_EQ(std::make_pair(vectors[0].ix, vectors[1].iy), std::make_pair(16, 128 - 16));
}

TEST_F(Eval2D, EmptyWindowFailsAloneAndDisabledEntriesStayAsTheyWere) {
    auto pair = RenderPair(StandardParams(128), UniformFlow(1.0, 1.0));
    // A black square in both frames around (32, 32).
    for (int y = 0; y < 64; y++)
        for (int x = 0; x < 64; x++) pair.a[y * 128 + x] = pair.b[y * 128 + x] = 0.0f;
    Evaluation e(pair, SinglePass());
    std::vector<CORR_SAMPLE_POS> samples = {Sample(32, 32), Sample(96, 96), Sample(96, 32)};
    samples[2].enabled = false;
    std::vector<PIV_VECTOR> vectors(3);
    vectors[2].dx = 42.0f;
    EXPECT_EQ(Process(*e.eval, samples, vectors, e.a, e.b), 1);
    EXPECT_EQ(samples[0].error, PIVerror::CORRELATION_FAILED);
    EXPECT_EQ(std::vector<int>({vectors[0].flag, vectors[1].flag, vectors[2].flag}),
              std::vector<int>({VECTOR_NO_RESULT | VECTOR_OUTLIER, VECTOR_ENABLED, 0}));
    EXPECT_EQ(vectors[2].dx, 42.0f);
}

// Frame B holds only the upper 64 rows of frame A: every window whose rows
// reach below row 63 cannot be read from it. Four workers fail there at
// once; each failure belongs to its window, and the frame they all read
// keeps no error.
TEST_F(Eval2D, WindowsBeyondASharedFrameFailAloneAndLeaveItClean) {
    FourWorkers<PIV_Eval2D> w(128, 64, 4);
    std::vector<CORR_SAMPLE_POS> samples;
    for (int y = 8; y <= 120; y += 4)
        for (int x = 8; x <= 120; x += 4) samples.push_back(Sample(x, y));
    std::vector<PIV_VECTOR> vectors;
    EXPECT_GT(Process(w.eval, samples, vectors, w.a, w.b, nullptr, SinglePass(16, 4)), 0);
    for (size_t k = 0; k < samples.size(); k++) {
        const bool outside = samples[k].pos.y + 8 > 64;  // rows y - 8 .. y + 7
        ASSERT_EQ(samples[k].error == PIVerror::SAMPLING_FAILED, outside) << k;
        if (outside) {
            ASSERT_EQ(vectors[k].flag, VECTOR_NO_RESULT | VECTOR_OUTLIER) << k;
        }
    }
    EXPECT_EQ(w.b.error().getLastErrorCode(), PIVerror::NO_ERROR);
    EXPECT_EQ(w.a.error().getLastErrorCode(), PIVerror::NO_ERROR);
}

TEST_F(Eval2D, MaskOverTheTopRowOfAWindow) {
    const auto pair = RenderPair(StandardParams(128), UniformFlow(1.0, 0.0));
    Evaluation e(pair, SinglePass());
    // Row 48 masked: the nodes on it are marked masked after the run; those
    // whose window starts on it (node (64, 64), rows 48..79) failed.
    Image2D topRow(128, 128, IMAGE_UINT8);
    topRow.fill(0);
    for (int x = 0; x < 128; x++) topRow.setPixel(x, 48, 255);
    ASSERT_EQ(e.eval->setMaskImages(&topRow, nullptr, true), 1);
    ASSERT_TRUE(e.run());
    const PIV_VECTOR& onRow = e.field().data()[2 * 7 + 3];
    const PIV_VECTOR& below = e.field().data()[3 * 7 + 3];
    EXPECT_EQ(std::vector<int>({onRow.iy, onRow.flag, below.iy, below.flag}),
              std::vector<int>(
                  {48, VECTOR_MASKED | VECTOR_OUTLIER, 64, VECTOR_NO_RESULT | VECTOR_OUTLIER}));
    EXPECT_EQ(e.field().vectorsMasked(), 7u);
}

TEST_F(Eval2D, OneAndTwoThreadsGiveTheSameField) {
    const auto pair = RenderPair(StandardParams(256), synth::LambOseenVortex(128, 128, 400, 40));
    auto run = [&](int threads, int fit) {
        ThreadScope scope(threads);
        PIVEVAL_CFG cfg = SinglePass(32, 16, fit);
        if (fit == PIV::PEAKFIT_NONLIN_GAUSS) cfg.Size = 5;
        Evaluation e(pair, cfg);
        EXPECT_EQ(e.eval->correlatorCount(), threads);
        EXPECT_TRUE(e.run());
        return std::vector<PIV_VECTOR>(e.field().data(), e.field().data() + e.field().nodeCount());
    };
    for (int fit = PIV::PEAKFIT_GAUSS_3PT; fit <= PIV::PEAKFIT_NONLIN_GAUSS; fit++) {
        const std::vector<PIV_VECTOR> one = run(1, fit), two = run(2, fit);
        ASSERT_EQ(one.size(), two.size());
        if (fit != PIV::PEAKFIT_NONLIN_GAUSS) {
            EXPECT_EQ(std::memcmp(one.data(), two.data(), one.size() * sizeof(PIV_VECTOR)), 0)
                << "fit " << fit;
            continue;
        }
        // The 2-D Gaussian starts from the auto shape each worker fitted on
        // its own windows, so its result depends on how nodes are shared;
        // the start changes only where the minimiser stops, well inside
        // 1e-3 px (4.5e-8 px on this field).
        float worst = 0.0f;
        for (size_t k = 0; k < one.size(); k++)
            worst = std::max(
                {worst, std::fabs(one[k].dx - two[k].dx), std::fabs(one[k].dy - two[k].dy)});
        EXPECT_LE(worst, 1e-3f);
    }
}

// Cancels from a thread of its own at the first progress report, about a
// hundredth into a list of 14,641 windows.
class CancelAtFirstProgress : public PIV_Eval2D {
public:
    void showProgress(int step, int) override {
        if (step > 0 && !isCancelled()) std::thread([this] { cancel(); }).join();
    }
};

// Every worker stops at its next window: far from all nodes are evaluated
// (an evaluated node has a count or a failure; the others stay as cleared),
// and the run ends without raw data.
TEST_F(Eval2D, CancelFromAnotherThreadStopsEveryWorker) {
    FourWorkers<CancelAtFirstProgress> w(256, 256, 2);
    CancelAtFirstProgress& eval = w.eval;
    EXPECT_FALSE(eval.interrogateImage(true));
    EXPECT_TRUE(eval.isCancelled());
    EXPECT_FALSE(eval.haveRawData());
    const PIV_Data2D& f = *eval.data();
    ASSERT_EQ(f.nodeCount(), 121 * 121);
    int evaluated = 0;
    for (int k = 0; k < f.nodeCount(); k++)
        evaluated += f.data()[k].count > 0 || (f.data()[k].flag & VECTOR_NO_RESULT);
    EXPECT_GT(evaluated, 0);
    EXPECT_LT(evaluated, f.nodeCount() / 4);
}

// A region of interest lays a smaller grid at once, and the field follows.
TEST_F(Eval2D, RegionOfInterestLaysGridAndField) {
    const auto pair = RenderPair(StandardParams(128), UniformFlow(1.0, 0.0));
    Evaluation e(pair, SinglePass());
    EXPECT_TRUE(e.eval->setROI(RECT3D{32, 96, 32, 96, 0, 0}));
    const DATA_GRID4D g = e.eval->parameters()->dataGrid();
    ASSERT_LT(g.nodes.width * g.nodes.height, 49);
    EXPECT_EQ(e.field().nodeCount(), g.nodes.width * g.nodes.height);
    ASSERT_TRUE(e.run()) << e.eval->getLastError();
    for (int k = 0; k < e.field().nodeCount(); k++) {
        EXPECT_GE(e.field().data()[k].ix, 32);
        EXPECT_LE(e.field().data()[k].ix, 96);
    }
}

TEST_F(Eval2D, RefusesWithoutImagesAndMismatchedImages) {
    PIV_Eval2D eval;
    EXPECT_FALSE(eval.interrogateImage(false));
    EXPECT_EQ(eval.getLastErrorCode(), PIVerror::IMAGE_IS_NULL);
    Image2D a(64, 64, IMAGE_UINT8), b(64, 48, IMAGE_UINT8);
    EXPECT_FALSE(eval.setPivImages(&a, &b));
    EXPECT_EQ(eval.getLastErrorCode(), PIVerror::IMAGE_SIZE_MISMATCH);
}

// The scan correlators over a whole field, edge nodes included: a flow
// inside the default range of 5 px, measured at every node (dy upwards).
TEST_F(Eval2D, ScanCorrelationModesMeasureEveryWindow) {
    const auto pair = RenderPair(StandardParams(128), UniformFlow(2.6, -1.4));
    for (int mode : {PIV::CORR_MQD, PIV::CORR_DIRECT_CROSS}) {
        PIVEVAL_CFG cfg = SinglePass();
        cfg.CorrelationMode = mode;
        Evaluation e(pair, cfg);
        ASSERT_TRUE(e.run());
        for (int k = 0; k < e.field().nodeCount(); k++) {
            const PIV_VECTOR& v = e.field().data()[k];
            ASSERT_TRUE(v.flag & VECTOR_ENABLED) << "mode " << mode << " node " << k;
            EXPECT_NEAR(v.dx, 2.6, 0.3) << "mode " << mode << " node " << k;
            EXPECT_NEAR(v.dy, 1.4, 0.3) << "mode " << mode << " node " << k;
        }
    }
}

// A second pair correlated at the same places: with the pair itself as the
// second, the averaged plane is the plane itself. The product is its square,
// whose logarithm is twice the plane's; only the peak weights, which enter
// the square once rather than twice, move the three-point Gaussian (by about
// ln(N / (N - 1)) / 2 of the peak's curvature, under 0.03 px).
TEST_F(Eval2D, DualPairOfTheSamePairMeasuresTheSame) {
    const auto pair = RenderPair(StandardParams(128), UniformFlow(1.3, -0.6));
    for (bool average : {true, false}) {
        PIVEVAL_CFG cfg = SinglePass(32, 16, PIV::PEAKFIT_GAUSS_3PT);
        cfg.MultiCorr_Average = average;
        Evaluation single(pair, cfg), dual(pair, cfg);
        ASSERT_TRUE(single.run());
        dual.eval->setFlagCrossPairCorrelation(true);
        ASSERT_TRUE(dual.eval->setPivImages(&dual.a, &dual.b, &dual.a, &dual.b));
        ASSERT_TRUE(dual.run());
        const float tolerance = average ? 1e-5f : 0.03f;
        for (int k = 0; k < single.field().nodeCount(); k++) {
            ASSERT_NEAR(dual.field().data()[k].dx, single.field().data()[k].dx, tolerance) << k;
            ASSERT_NEAR(dual.field().data()[k].dy, single.field().data()[k].dy, tolerance) << k;
        }
    }
}
