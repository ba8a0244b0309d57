// Resampling and filtering of a camera-sized 16-bit frame (2560 x 2160):
// the B-spline prefilter plus a sub-pixel translate, and the 5 x 5 and 3 x 3 medians,
// each on one thread and on all of them (the argument; 0 means all).
#include <benchmark/benchmark.h>

#include <cstdint>

#include "bench_frames.h"
#include "image2d.h"
#include "piv_util.h"

namespace {

constexpr int kWidth = 2560;
constexpr int kHeight = 2160;
const int64_t kPixels = int64_t(kWidth) * kHeight;

// Every translate builds its own coefficients: the prefilter is in the figure.
void BM_BSplineTranslate(benchmark::State& state) {
    PIV::SetMaxThreads(static_cast<int>(state.range(0)));
    const Image2D frame = bench::CameraFrame(kWidth, kHeight);
    Image2D img;
    for (auto _ : state) {
        state.PauseTiming();
        img = frame;
        img.setInterpolationMethod(PIV::INTERPOLATE_BSPLINE, 3);
        state.ResumeTiming();
        img.translate(0.3, -0.7, true);
        benchmark::DoNotOptimize(img.bits());
    }
    state.SetItemsProcessed(state.iterations() * kPixels);
    state.counters["threads"] = PIV::MaxThreads();
}
BENCHMARK(BM_BSplineTranslate)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

// The window of the median filter: 3 x 3 or 5 x 5.
void RunMedian(benchmark::State& state, int size) {
    PIV::SetMaxThreads(static_cast<int>(state.range(0)));
    const Image2D frame = bench::CameraFrame(kWidth, kHeight);
    Image2D img;
    for (auto _ : state) {
        state.PauseTiming();
        img = frame;
        state.ResumeTiming();
        img.medianFilter(size);
        benchmark::DoNotOptimize(img.bits());
    }
    state.SetItemsProcessed(state.iterations() * kPixels);
    state.counters["threads"] = PIV::MaxThreads();
}

void BM_Median5x5(benchmark::State& state) {
    RunMedian(state, 5);
}
BENCHMARK(BM_Median5x5)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_Median3x3(benchmark::State& state) {
    RunMedian(state, 3);
}
BENCHMARK(BM_Median3x3)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
