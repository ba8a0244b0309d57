// Single-pass interrogation of a 1024 x 1024 8-bit pair, 32 x 32 windows,
// step 16, default peak fit: whole evaluations on 1 and on all threads, and
// the stages of one window (sampling, FFT correlation, peak search and fit).
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "bench_frames.h"
#include "image2d.h"
#include "piv_eval2d.h"
#include "piv_messages.h"
#include "piv_util.h"
#include "synthetic_images.h"

namespace {

constexpr int kSize = 1024;

using Pair = bench::ParticlePair;

const Pair& TestPair() {
    static const Pair pair(kSize, synth::UniformFlow(3.3, -2.2));
    return pair;
}

PIVEVAL_CFG Settings() {
    PIVEVAL_CFG cfg;
    cfg.Method = 0;
    cfg.SampleSize = SIZE3D{32, 32, 1};
    cfg.FFTSize = cfg.SampleSize;
    cfg.grid.step = SIZE3D{16, 16, 1};
    return cfg;
}

void BM_InterrogateImage(benchmark::State& state) {
    EnableWarnings(false);
    const int threads = state.range(0) > 0 ? int(state.range(0)) : PIV::MaxThreadsPossible();
    PIV::SetMaxThreads(threads);
    const Pair& pair = TestPair();
    PIV_Eval2D eval;
    eval.setPivEvalCfg(Settings());
    eval.setPivImages(&pair.a, &pair.b);
    const int nodes = eval.data()->nodeCount();
    for (auto _ : state) benchmark::DoNotOptimize(eval.interrogateImage(false));
    state.counters["threads"] = threads;
    state.counters["vectors/s"] =
        benchmark::Counter(double(nodes), benchmark::Counter::kIsIterationInvariantRate);
    PIV::SetMaxThreads(0);
}
// 1 thread, then all the machine has.
BENCHMARK(BM_InterrogateImage)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

// One correlator walking the nodes of the grid, for the stages in isolation.
struct Walk {
    PIV_Corr2D corr;
    std::vector<POINT2D> nodes;
    Walk() {
        corr.setPivEvalCfg(Settings());
        for (int y = 16; y <= kSize - 16; y += 16)
            for (int x = 16; x <= kSize - 16; x += 16) nodes.push_back(POINT2D{x, y});
    }
};

void BM_StageSampling(benchmark::State& state) {
    Walk walk;
    const Pair& pair = TestPair();
    size_t k = 0;
    for (auto _ : state) {
        POINT2D pos = walk.nodes[k++ % walk.nodes.size()];
        benchmark::DoNotOptimize(walk.corr.fillSamples(&pair.a, &pair.b, &pos, POINT2D{0, 0}));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_StageSampling);

void BM_StageSamplingAndFFT(benchmark::State& state) {
    Walk walk;
    const Pair& pair = TestPair();
    size_t k = 0;
    for (auto _ : state) {
        POINT2D pos = walk.nodes[k++ % walk.nodes.size()];
        walk.corr.fillSamples(&pair.a, &pair.b, &pos, POINT2D{0, 0});
        benchmark::DoNotOptimize(walk.corr.crossCorrelate());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_StageSamplingAndFFT);

void BM_StagePeakSearchAndFit(benchmark::State& state) {
    Walk walk;
    const Pair& pair = TestPair();
    POINT2D pos = walk.nodes[walk.nodes.size() / 2];
    walk.corr.fillSamples(&pair.a, &pair.b, &pos, POINT2D{0, 0});
    walk.corr.crossCorrelate();
    PIV_VECTOR v;
    for (auto _ : state) benchmark::DoNotOptimize(walk.corr.peakDetection(&v, POINT2D{0, 0}, false));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_StagePeakSearchAndFit);

}  // namespace
