// Multi-grid with image deformation on a 1024 x 1024 8-bit pair: 64 px down
// to 32 px windows at step 16, cubic B-spline warps on every level after the
// first. The whole evaluation on 1 and on all threads (final vectors per
// second), and its stages apart: the spline prefilter of a frame, the warp
// of the pair (and of a masked frame), the interrogation of the deformed pair (sampling, FFT and
// fit), and validation with the filters between levels.
#include <benchmark/benchmark.h>

#include <vector>

#include "bench_frames.h"
#include "image2d.h"
#include "image2d_deformation.h"
#include "piv_enums.h"
#include "piv_eval2d.h"
#include "piv_messages.h"
#include "piv_util.h"
#include "synthetic_images.h"

namespace {

constexpr int kSize = 1024;

using Pair = bench::ParticlePair;

const Pair& TestPair() {
    static const Pair pair(kSize, synth::SinusoidalFlow(2.0, 256.0, 0.0, -1.5));
    return pair;
}

PIVEVAL_CFG Settings(int order = 3) {
    PIVEVAL_CFG cfg;
    cfg.Method = PIV::METHOD_MULTI_GRID;
    cfg.SampleSize = SIZE3D{32, 32, 1};
    cfg.FFTSize = cfg.SampleSize;
    cfg.grid.step = SIZE3D{16, 16, 1};
    cfg.MultiGrid_SampleSize = SIZE3D{64, 64, 1};
    cfg.MultiGrid_SampleStep = SIZE3D{16, 16, 1};
    cfg.MultiGrid_Desample = 1;
    cfg.MultiGrid_FastPyramid = true;
    cfg.MultiGrid_ReevaluateBaddata = false;
    cfg.DesampleEnable = false;
    cfg.ImageMapping2D.Mode = PIV::DEFORM_ALL_PASSES;
    cfg.ImageMapping2D.Method = PIV::INTERPOLATE_BSPLINE;
    cfg.ImageMapping2D.Order = order;
    return cfg;
}

int Threads(const benchmark::State& state) {
    return state.range(0) > 0 ? int(state.range(0)) : PIV::MaxThreadsPossible();
}

// An evaluator with the pair set and one finished run, so that its field
// holds a displacement to warp with.
struct Ready {
    PIV_Eval2D eval;
    explicit Ready(int threads, int order = 3) {
        EnableWarnings(false);
        PIV::SetMaxThreads(threads);
        eval.setPivEvalCfg(Settings(order));
        eval.setPivImages(&TestPair().a, &TestPair().b);
        eval.interrogateImage(false);
    }
    ~Ready() { PIV::SetMaxThreads(0); }
};

void BM_MultiGridDeform(benchmark::State& state) {
    const int threads = Threads(state);
    Ready r(threads);
    const int nodes = r.eval.data()->nodeCount();
    for (auto _ : state) benchmark::DoNotOptimize(r.eval.interrogateImage(false));
    state.counters["threads"] = threads;
    state.counters["vectors/s"] =
        benchmark::Counter(double(nodes), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_MultiGridDeform)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

// The B-spline coefficients of one frame (made once per run and frame).
void BM_StagePrefilter(benchmark::State& state) {
    PIV::SetMaxThreads(Threads(state));
    Image2D_Interpolation interp;
    for (auto _ : state)
        benchmark::DoNotOptimize(
            interp.prepareSplineCoefficients(TestPair().a, PIV::INTERPOLATE_BSPLINE, 3));
    PIV::SetMaxThreads(0);
    state.SetItemsProcessed(state.iterations() * kSize * kSize);
}
BENCHMARK(BM_StagePrefilter)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same for the quintic spline: two poles, twice the recursions.
void BM_StagePrefilterQuintic(benchmark::State& state) {
    PIV::SetMaxThreads(Threads(state));
    Image2D_Interpolation interp;
    for (auto _ : state)
        benchmark::DoNotOptimize(
            interp.prepareSplineCoefficients(TestPair().a, PIV::INTERPOLATE_BSPLINE, 5));
    PIV::SetMaxThreads(0);
    state.SetItemsProcessed(state.iterations() * kSize * kSize);
}
BENCHMARK(BM_StagePrefilterQuintic)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

// Both frames warped by the field, coefficients already made.
void BM_StageWarpPair(benchmark::State& state) {
    Ready r(Threads(state));
    for (auto _ : state) benchmark::DoNotOptimize(r.eval.deformImagePair(r.eval.data(), true));
    state.SetItemsProcessed(state.iterations() * 2 * kSize * kSize);
}
BENCHMARK(BM_StageWarpPair)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same with the quintic spline, as the command line warps.
void BM_StageWarpPairQuintic(benchmark::State& state) {
    Ready r(Threads(state), 5);
    for (auto _ : state) benchmark::DoNotOptimize(r.eval.deformImagePair(r.eval.data(), true));
    state.SetItemsProcessed(state.iterations() * 2 * kSize * kSize);
}
BENCHMARK(BM_StageWarpPairQuintic)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

// One frame warped with a mask that holds a block of it back, as the final
// pass with masks does, coefficients already made.
void BM_StageWarpMasked(benchmark::State& state) {
    Ready r(Threads(state));
    Image2D mask, dst;
    mask.alloc(kSize, kSize, IMAGE_UINT8);
    mask.fill(0.0f);
    for (int y = 400; y < 600; y++)
        for (int x = 300; x < 700; x++) mask.setPixel(x, y, 1.0f);
    Image2D_Deformation warp;
    warp.setImageDefCfg(Settings().ImageMapping2D);
    for (auto _ : state)
        benchmark::DoNotOptimize(
            warp.deformWithMaskedPivData(TestPair().a, dst, mask, *r.eval.data(), 0.5));
    state.SetItemsProcessed(state.iterations() * kSize * kSize);
}
BENCHMARK(BM_StageWarpMasked)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

// One interrogation of the deformed pair at every node (sampling, FFT
// correlation, peak search and fit), added to a copy of the field.
void BM_StageInterrogateDeformed(benchmark::State& state) {
    Ready r(Threads(state));
    r.eval.deformImagePair(r.eval.data(), true);
    PIV_Data2D copy;
    for (auto _ : state) {
        state.PauseTiming();
        copy = *r.eval.data();
        state.ResumeTiming();
        benchmark::DoNotOptimize(r.eval.processDeformedImages(&copy));
    }
    state.counters["vectors/s"] = benchmark::Counter(double(copy.nodeCount()),
                                                     benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_StageInterrogateDeformed)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

// What runs between levels: validation with replacement, then the smoothing.
void BM_StageValidateAndFilter(benchmark::State& state) {
    Ready r(Threads(state));
    OUTLIER_CFG o;
    o.Enable = true;
    o.CheckNormalizedMedian = true;
    o.InterpolateOutliers = true;
    o.TryOtherPeaks = false;
    PIV_Data2D copy;
    for (auto _ : state) {
        state.PauseTiming();
        copy = *r.eval.data();
        copy.setFlagRawData(true);
        state.ResumeTiming();
        copy.validate(o, true);
        copy.smoothGauss(1.0, 0.05, false);
    }
}
BENCHMARK(BM_StageValidateAndFilter)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
