// Resampling and filtering of a camera-sized 16-bit frame (2560 x 2160):
// the B-spline prefilter plus a sub-pixel translate, and the 5 x 5 median,
// each on one thread and on all of them (the argument; 0 means all).
#include <benchmark/benchmark.h>

#include <cstdint>

#include "image2d.h"
#include "piv_util.h"

namespace {

constexpr int kWidth = 2560;
constexpr int kHeight = 2160;
const int64_t kPixels = int64_t(kWidth) * kHeight;

// 12-bit noise from a fixed linear congruential sequence, like a camera frame.
Image2D CameraFrame() {
    Image2D img(kWidth, kHeight, IMAGE_UINT16);
    uint32_t s = 12345u;
    for (int y = 0; y < kHeight; y++) {
        uint16_t* row = img.scanLine<uint16_t>(static_cast<uint64_t>(y));
        for (int x = 0; x < kWidth; x++) {
            s = s * 1664525u + 1013904223u;
            row[x] = static_cast<uint16_t>(s >> 20);
        }
    }
    return img;
}

// Every translate builds its own coefficients: the prefilter is in the figure.
void BM_BSplineTranslate(benchmark::State& state) {
    PIV::SetMaxThreads(static_cast<int>(state.range(0)));
    const Image2D frame = CameraFrame();
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

void BM_Median5x5(benchmark::State& state) {
    PIV::SetMaxThreads(static_cast<int>(state.range(0)));
    const Image2D frame = CameraFrame();
    Image2D img;
    for (auto _ : state) {
        state.PauseTiming();
        img = frame;
        state.ResumeTiming();
        img.medianFilter(5);
        benchmark::DoNotOptimize(img.bits());
    }
    state.SetItemsProcessed(state.iterations() * kPixels);
    state.counters["threads"] = PIV::MaxThreads();
}
BENCHMARK(BM_Median5x5)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
