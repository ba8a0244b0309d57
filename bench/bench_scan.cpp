// The scan correlators (modes 2 MQD, 3 direct cross-correlation, 4 error
// function) on 32 px windows with a scan range of 8 (17 x 17 shifts): one
// window's scan alone, vector loops on and off; and whole single-pass
// evaluations of a 512 x 512 pair (step 16) on 1 and on all threads.
// Counter "scans/s": windows scanned per second.
#include <benchmark/benchmark.h>

#include "bench_frames.h"
#include "piv_corr2d.h"
#include "piv_eval2d.h"
#include "piv_messages.h"
#include "piv_simd_level.h"
#include "piv_util.h"

namespace {

PIVEVAL_CFG ScanSettings(int mode) {
    PIVEVAL_CFG cfg;
    cfg.Method = 0;
    cfg.SampleSize = SIZE3D{32, 32, 1};
    cfg.FFTSize = cfg.SampleSize;
    cfg.grid.step = SIZE3D{16, 16, 1};
    cfg.CorrelationMode = mode;
    cfg.ScanRange = SIZE3D{8, 8, 1};
    return cfg;
}

const bench::ParticlePair& TestPair() {
    static const bench::ParticlePair pair(512, synth::UniformFlow(3.3, -2.2));
    return pair;
}

// Args: mode, SIMD level (0 off, 6 on).
void BM_ScanWindow(benchmark::State& state) {
    EnableWarnings(false);
    PIV_Set_SIMD_Level(int(state.range(1)));
    PIV_Corr2D corr;
    corr.setPivEvalCfg(ScanSettings(int(state.range(0))));
    POINT2D pos{256, 256};
    corr.fillSamples(&TestPair().a, &TestPair().b, &pos, POINT2D{0, 0});
    for (auto _ : state) benchmark::DoNotOptimize(corr.crossCorrelate());
    state.counters["scans/s"] =
        benchmark::Counter(1.0, benchmark::Counter::kIsIterationInvariantRate);
    state.counters["simd"] = PIV_SIMD_Info();
    PIV_Set_SIMD_Level(6);
}
BENCHMARK(BM_ScanWindow)->ArgsProduct({{2, 3, 4}, {0, 6}});

// Args: mode, SIMD level, threads (0: all the machine has).
void BM_ScanImage(benchmark::State& state) {
    EnableWarnings(false);
    PIV_Set_SIMD_Level(int(state.range(1)));
    const int threads = state.range(2) > 0 ? int(state.range(2)) : PIV::MaxThreadsPossible();
    PIV::SetMaxThreads(threads);
    PIV_Eval2D eval;
    eval.setPivEvalCfg(ScanSettings(int(state.range(0))));
    eval.setPivImages(&TestPair().a, &TestPair().b);
    const int nodes = eval.data()->nodeCount();
    for (auto _ : state) benchmark::DoNotOptimize(eval.interrogateImage(false));
    state.counters["threads"] = threads;
    state.counters["scans/s"] =
        benchmark::Counter(double(nodes), benchmark::Counter::kIsIterationInvariantRate);
    PIV::SetMaxThreads(0);
    PIV_Set_SIMD_Level(6);
}
BENCHMARK(BM_ScanImage)
    ->ArgsProduct({{2, 3, 4}, {0, 6}, {1, 0}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
