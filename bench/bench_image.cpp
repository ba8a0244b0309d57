// Image2D hot paths on a camera-sized 16-bit frame (2560 x 2160): type
// conversion, the interrogation sampler and the statistics scan.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "bench_frames.h"
#include "image2d.h"

namespace {

constexpr int kWidth = 2560;
constexpr int kHeight = 2160;

const int64_t kPixels = int64_t(kWidth) * kHeight;

void BM_ToFloatFromFreshCopy(benchmark::State& state) {
    const Image2D frame = bench::CameraFrame(kWidth, kHeight);
    Image2D img;
    for (auto _ : state) {
        state.PauseTiming();
        img = frame;
        state.ResumeTiming();
        img.toFloat();
        benchmark::DoNotOptimize(img.bits());
    }
    state.SetItemsProcessed(state.iterations() * kPixels);
}
BENCHMARK(BM_ToFloatFromFreshCopy)->Unit(benchmark::kMillisecond);

void BM_ConvertFloatAndBack(benchmark::State& state) {
    Image2D img = bench::CameraFrame(kWidth, kHeight);
    for (auto _ : state) {
        img.convertToType(IMAGE_FLOAT);
        img.convertToType(IMAGE_UINT16);
        benchmark::DoNotOptimize(img.bits());
    }
    state.SetItemsProcessed(state.iterations() * 2 * kPixels);
}
BENCHMARK(BM_ConvertFloatAndBack)->Unit(benchmark::kMillisecond);

// 32 x 32 windows on a 16-pixel grid, as a first interrogation pass samples them.
void BM_FillSample32On16Grid(benchmark::State& state) {
    const Image2D img = bench::CameraFrame(kWidth, kHeight);
    std::vector<float> out(32 * 32);
    int64_t windows = 0;
    for (auto _ : state) {
        for (int y0 = 0; y0 + 32 <= kHeight; y0 += 16)
            for (int x0 = 0; x0 + 32 <= kWidth; x0 += 16) {
                img.fillSample(out.data(), 32, 32, x0, y0, 0);
                windows++;
            }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(windows);
    state.counters["windows/iter"] =
        static_cast<double>(windows) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_FillSample32On16Grid)->Unit(benchmark::kMillisecond);

void BM_DoStatisticsForced(benchmark::State& state) {
    Image2D img = bench::CameraFrame(kWidth, kHeight);
    for (auto _ : state) {
        img.doStatistics(true);
        benchmark::DoNotOptimize(img.mean());
    }
    state.SetItemsProcessed(state.iterations() * kPixels);
}
BENCHMARK(BM_DoStatisticsForced)->Unit(benchmark::kMillisecond);

}  // namespace
