// Whole evaluations of a 2560 x 2160 8-bit particle pair, 32 x 32 windows at
// step 16: single pass, and multi-grid 64 -> 32 with the deformation of
// every pass; on the CPU (all cores) and on an OpenCL device
// (--device=opencl[:N]), 20 pairs after a first one that makes plans and
// kernels. The device twice: "resident", the same pair each time, whose
// frames the device keeps from one evaluation to the next; and "with host
// copies", two pairs in turn, whose frames go up every time. Either way only
// the peak records of the windows come back (fit 0). The deformation's
// frames differ from pass to pass and go up in both. bench_opencl_bare is
// the device alone.
#include <benchmark/benchmark.h>

#include <string>

#include "bench_device.h"
#include "bench_frames.h"
#include "image2d.h"
#include "piv_eval2d.h"
#include "piv_messages.h"
#include "piv_opencl.h"
#include "piv_util.h"

namespace {

const bench::ParticlePair& Pair(int which = 0) {
    static const bench::ParticlePair pairs[2] = {{2560, 2160, synth::UniformFlow(3.3, -2.2)},
                                                 {2560, 2160, synth::UniformFlow(3.3, -2.2), 4}};
    return pairs[which];
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

// range(0): 0 the CPU, 1 OpenCL resident, 2 OpenCL with host copies;
// range(1): 1 multi-grid.
void BM_Evaluate(benchmark::State& state) {
    EnableWarnings(false);
    const bool device = state.range(0) > 0, alternate = state.range(0) == 2;
    if (!PIV::SetDevice(device ? bench::DeviceName() : "cpu")) {
        state.SkipWithError("no OpenCL device");
        return;
    }
    PIV::SetMaxThreads(0);
    PIV_Eval2D eval;
    eval.setPivEvalCfg(Settings(state.range(1) == 1));
    eval.setPivImages(&Pair().a, &Pair().b);
    const int nodes = eval.data()->nodeCount();
    eval.interrogateImage(false);  // plans and kernels are made once
    int turn = 0;
    for (auto _ : state) {
        const bench::ParticlePair& pair = Pair(alternate ? ++turn % 2 : 0);
        eval.setPivImages(&pair.a, &pair.b);
        benchmark::DoNotOptimize(eval.interrogateImage(false));
    }
    if (device && !PIV::DeviceIsOpenCL()) state.SkipWithError("the device failed");
    const int cores = PIV::MaxThreadsPossible();
    if (!device && PIV::MaxThreads() != cores)
        state.SkipWithError("the CPU row is not on all cores");
    state.SetLabel(!device ? "CPU, " + std::to_string(PIV::MaxThreads()) + " of " +
                                 std::to_string(cores) + " threads"
                   : alternate ? "with host copies: two pairs in turn, frames up each time"
                               : "resident: the same pair, its frames stay on the device");
    state.counters["vectors/s"] =
        benchmark::Counter(double(nodes), benchmark::Counter::kIsIterationInvariantRate);
    PIV::SetDevice("cpu");
}
BENCHMARK(BM_Evaluate)
    ->ArgNames({"opencl", "multigrid"})
    ->Args({0, 0})
    ->Args({1, 0})
    ->Args({2, 0})
    ->Args({0, 1})
    ->Args({1, 1})
    ->Args({2, 1})
    ->Iterations(20)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    return bench::RunOpenCLBenchmarks(argc, argv);
}
