// Whole evaluations of a 2560 x 2160 8-bit particle pair, 32 x 32 windows at
// step 16: single pass, and multi-grid 64 -> 32 with the deformation of
// every pass; on the CPU (all cores) and on the first OpenCL device. The
// device figure includes the frames going up and the planes coming back for
// every list (nothing stays on the device between lists yet).
#include <benchmark/benchmark.h>

#include <string>

#include "image2d.h"
#include "piv_eval2d.h"
#include "piv_messages.h"
#include "piv_opencl.h"
#include "piv_util.h"
#include "synthetic_images.h"

namespace {

struct Frames {
    Image2D a, b;
    Frames() {
        synth::SynthParams p;
        p.width = 2560;
        p.height = 2160;
        p.particleDiameter = 2.5;
        p.particleDensity = 0.02;
        p.seed = 3;
        const auto pair = synth::RenderPair(p, synth::UniformFlow(3.3, -2.2));
        for (Image2D* img : {&a, &b}) img->alloc(p.width, p.height, IMAGE_UINT8);
        for (int y = 0; y < p.height; y++) {
            a.putRow(pair.a.data() + size_t(y) * size_t(p.width), y);
            b.putRow(pair.b.data() + size_t(y) * size_t(p.width), y);
        }
    }
};

const Frames& Pair() {
    static const Frames frames;
    return frames;
}

PIVEVAL_CFG Settings(bool multiGrid) {
    PIVEVAL_CFG cfg;
    cfg.Method = multiGrid ? PIV::METHOD_MULTI_GRID : PIV::METHOD_SINGLE_PASS;
    cfg.SampleSize = SIZE3D{32, 32, 1};
    cfg.FFTSize = cfg.SampleSize;
    cfg.grid.step = SIZE3D{16, 16, 1};
    if (multiGrid) {
        cfg.ImageMapping2D.Mode = PIV::DEFORM_ALL_PASSES;
        cfg.MultiGrid_SampleSize = SIZE3D{64, 64, 1};
        cfg.MultiGrid_SampleStep = SIZE3D{16, 16, 1};
        cfg.MultiGrid_Desample = 1;
        cfg.MultiGrid_FastPyramid = true;
        cfg.DesampleEnable = false;
    }
    return cfg;
}

// range(0): 0 the CPU, 1 OpenCL; range(1): 1 multi-grid.
void BM_Evaluate(benchmark::State& state) {
    EnableWarnings(false);
    const bool device = state.range(0) == 1;
    if (!PIV::SetDevice(device ? "opencl" : "cpu")) {
        state.SkipWithError("no OpenCL device");
        return;
    }
    PIV::SetMaxThreads(0);
    PIV_Eval2D eval;
    eval.setPivEvalCfg(Settings(state.range(1) == 1));
    eval.setPivImages(&Pair().a, &Pair().b);
    const int nodes = eval.data()->nodeCount();
    eval.interrogateImage(false);  // plans and kernels are made once
    for (auto _ : state) benchmark::DoNotOptimize(eval.interrogateImage(false));
    if (device && !PIV::DeviceIsOpenCL()) state.SkipWithError("the device failed");
    state.counters["vectors/s"] =
        benchmark::Counter(double(nodes), benchmark::Counter::kIsIterationInvariantRate);
    PIV::SetDevice("cpu");
}
BENCHMARK(BM_Evaluate)
    ->ArgNames({"opencl", "multigrid"})
    ->Args({0, 0})
    ->Args({1, 0})
    ->Args({0, 1})
    ->Args({1, 1})
    ->Iterations(20)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
