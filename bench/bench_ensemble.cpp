// Ensemble correlation of 1024 x 1024 8-bit pairs, 32 x 32 windows, step 16
// (3969 nodes, planes and autocorrelation planes summed): pairs added per
// second on 1 and on all threads.
#include <benchmark/benchmark.h>

#include "bench_frames.h"
#include "piv_corr2d_average.h"
#include "piv_messages.h"
#include "piv_params.h"
#include "piv_util.h"

namespace {

void BM_EnsemblePair(benchmark::State& state) {
    EnableWarnings(false);
    const int threads = state.range(0) > 0 ? int(state.range(0)) : PIV::MaxThreadsPossible();
    PIV::SetMaxThreads(threads);
    static const bench::ParticlePair pair(1024, synth::UniformFlow(3.3, -2.2));
    // The correlators are made with the object: after the thread count.
    PIV_Corr2D_Average avg;
    PIV_PARAMETERS params;
    params.eval.Method = 0;
    params.eval.SampleSize = SIZE3D{32, 32, 1};
    params.eval.FFTSize = params.eval.SampleSize;
    params.eval.grid.step = SIZE3D{16, 16, 1};
    avg.setPivParameters(params);
    avg.setFlagProgressEnabled(false);
    if (!avg.initializeGrid(1024, 1024)) state.SkipWithError(avg.getLastError());
    for (auto _ : state) benchmark::DoNotOptimize(avg.processImagePair(&pair.a, &pair.b));
    state.counters["threads"] = threads;
    state.counters["pairs/s"] =
        benchmark::Counter(1.0, benchmark::Counter::kIsIterationInvariantRate);
    PIV::SetMaxThreads(0);
}
// 1 thread, then all the machine has.
BENCHMARK(BM_EnsemblePair)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
