// The bare device pipeline the library's OpenCL path is measured against:
// a 2560 x 2160 8-bit pair, 32 x 32 windows at step 16, every window of the
// frame in one batch: sampling (mean taken off), R2C of both samples, cross
// power, C2R, one maximum per window. No correlator, no weights, norms,
// fits or validation: what the device alone costs. Resident: the frames
// stay on the device and only the maxima come back; with copies: the pair
// goes up on every iteration as well.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

#include "bench_device.h"
#include "bench_frames.h"
#include "piv_opencl_context.h"
#include "piv_opencl_fft.h"

namespace {

using namespace PIV::OpenCL;

const int kWidth = 2560, kHeight = 2160, kWindow = 32, kStep = 16;
const int kCols = (kWidth - kWindow) / kStep + 1, kRows = (kHeight - kWindow) / kStep + 1;
const int kWindows = kCols * kRows;
const int kStride = 2 * (kWindow / 2 + 1);  // floats per row of the in-place transform
const size_t kGroup = 64;
// The flow of the pair; its rounded shift is where the maxima should be.
const double kDx = 3.3, kDy = -2.2;

const char* const kSource = R"CLC(
#define GROUP 64

// The sums of a work group, into part[0]; every work item calls it.
void group_sum(__local float* part, int lid) {
    barrier(CLK_LOCAL_MEM_FENCE);
    for (int s = GROUP / 2; s > 0; s >>= 1) {
        if (lid < s) part[lid] += part[lid + s];
        barrier(CLK_LOCAL_MEM_FENCE);
    }
}

// One work group per window of the grid; both samples without their mean.
__kernel __attribute__((reqd_work_group_size(GROUP, 1, 1)))
void sample(__global const uchar* fa, __global const uchar* fb, int frameWidth, int cols,
            int step, int w, int h, int stride, __global float* sa, __global float* sb) {
    const int win = get_group_id(0), lid = get_local_id(0);
    const int x0 = (win % cols) * step, y0 = (win / cols) * step;
    __global float* a = sa + (size_t)win * stride * h;
    __global float* b = sb + (size_t)win * stride * h;
    __local float partA[GROUP], partB[GROUP];
    float sumA = 0.0f, sumB = 0.0f;
    for (int c = lid; c < w * h; c += GROUP) {
        const int x = c % w, y = c / w;
        const size_t p = (size_t)(y0 + y) * frameWidth + x0 + x;
        const float va = fa[p], vb = fb[p];
        a[y * stride + x] = va;
        b[y * stride + x] = vb;
        sumA += va;
        sumB += vb;
    }
    partA[lid] = sumA;
    partB[lid] = sumB;
    group_sum(partA, lid);
    group_sum(partB, lid);
    const float meanA = partA[0] / (w * h), meanB = partB[0] / (w * h);
    for (int c = lid; c < w * h; c += GROUP) {
        const int i = (c / w) * stride + c % w;
        a[i] -= meanA;
        b[i] -= meanB;
    }
}

// conj(A) B into A: the plane's maximum sits at the shift from A to B.
__kernel void cross_power(__global float2* specA, __global const float2* specB) {
    const size_t g = get_global_id(0);
    const float2 a = specA[g], b = specB[g];
    specA[g] = (float2)(a.x * b.x + a.y * b.y, a.x * b.y - a.y * b.x);
}

// One work group per plane: its largest cell, the lowest index on a tie.
__kernel __attribute__((reqd_work_group_size(GROUP, 1, 1)))
void max_search(__global const float* planes, int w, int h, int stride, __global int2* peaks) {
    const int win = get_group_id(0), lid = get_local_id(0);
    __global const float* p = planes + (size_t)win * stride * h;
    __local float best[GROUP];
    __local int where[GROUP];
    float m = -INFINITY;
    int at = 0;
    for (int c = lid; c < w * h; c += GROUP) {
        const float v = p[(c / w) * stride + c % w];
        if (v > m) {
            m = v;
            at = c;
        }
    }
    best[lid] = m;
    where[lid] = at;
    barrier(CLK_LOCAL_MEM_FENCE);
    for (int s = GROUP / 2; s > 0; s >>= 1) {
        if (lid < s && (best[lid + s] > best[lid] ||
                        (best[lid + s] == best[lid] && where[lid + s] < where[lid]))) {
            best[lid] = best[lid + s];
            where[lid] = where[lid + s];
        }
        barrier(CLK_LOCAL_MEM_FENCE);
    }
    if (lid == 0) peaks[win] = (int2)(as_int(best[0]), where[0]);
}
)CLC";

struct ProgramRelease {
    void operator()(cl_program p) const { clReleaseProgram(p); }
};
struct KernelRelease {
    void operator()(cl_kernel k) const { clReleaseKernel(k); }
};
using Program = std::unique_ptr<std::remove_pointer<cl_program>::type, ProgramRelease>;
using Kernel = std::unique_ptr<std::remove_pointer<cl_kernel>::type, KernelRelease>;

template <typename T>
void Arg(cl_kernel k, cl_uint i, const T& v) {
    Check(clSetKernelArg(k, i, sizeof(T), &v), "clSetKernelArg");
}

// The frames, stacks, transform and kernels of the pipeline on one device.
struct Pipeline {
    std::shared_ptr<Context> ctx;
    Program program;
    Kernel sample, cross, search;
    Mem frameA, frameB, sa, sb, peaks;
    std::unique_ptr<BatchFFT> fft;
    std::vector<uint8_t> hostA, hostB;
    std::vector<cl_int2> hostPeaks;

    explicit Pipeline(std::shared_ptr<Context> context) : ctx(std::move(context)) {
        static const bench::ParticlePair pair(kWidth, kHeight, synth::UniformFlow(kDx, kDy));
        hostA.resize(size_t(kWidth) * kHeight);
        hostB.resize(hostA.size());
        for (int y = 0; y < kHeight; y++) {
            const uint8_t* ra = pair.a.scanLine<uint8_t>(uint64_t(y));
            const uint8_t* rb = pair.b.scanLine<uint8_t>(uint64_t(y));
            std::copy(ra, ra + kWidth, hostA.begin() + ptrdiff_t(y) * kWidth);
            std::copy(rb, rb + kWidth, hostB.begin() + ptrdiff_t(y) * kWidth);
        }
        cl_context c = ctx->context();
        cl_int err = CL_SUCCESS;
        const char* source = kSource;
        program.reset(clCreateProgramWithSource(c, 1, &source, nullptr, &err));
        Check(err, "clCreateProgramWithSource");
        cl_device_id device = ctx->device();
        Check(clBuildProgram(program.get(), 1, &device, "", nullptr, nullptr), "clBuildProgram");
        sample.reset(clCreateKernel(program.get(), "sample", &err));
        Check(err, "clCreateKernel");
        cross.reset(clCreateKernel(program.get(), "cross_power", &err));
        Check(err, "clCreateKernel");
        search.reset(clCreateKernel(program.get(), "max_search", &err));
        Check(err, "clCreateKernel");
        const uint64_t stack = uint64_t(kStride) * kWindow * kWindows * sizeof(float);
        frameA = MakeBuffer(c, CL_MEM_READ_ONLY, hostA.size(), hostA.data());
        frameB = MakeBuffer(c, CL_MEM_READ_ONLY, hostB.size(), hostB.data());
        sa = MakeBuffer(c, CL_MEM_READ_WRITE, stack);
        sb = MakeBuffer(c, CL_MEM_READ_WRITE, stack);
        peaks = MakeBuffer(c, CL_MEM_WRITE_ONLY, sizeof(cl_int2) * kWindows);
        hostPeaks.resize(kWindows);
        fft = std::make_unique<BatchFFT>(*ctx, kWindow, kWindow, kWindows, sa.get(), stack);
        const cl_mem fa = frameA.get(), fb = frameB.get(), a = sa.get(), b = sb.get();
        const cl_mem out = peaks.get();
        const int frameWidth = kWidth, cols = kCols, step = kStep, w = kWindow, stride = kStride;
        Arg(sample.get(), 0, fa);
        Arg(sample.get(), 1, fb);
        Arg(sample.get(), 2, frameWidth);
        Arg(sample.get(), 3, cols);
        Arg(sample.get(), 4, step);
        Arg(sample.get(), 5, w);
        Arg(sample.get(), 6, w);
        Arg(sample.get(), 7, stride);
        Arg(sample.get(), 8, a);
        Arg(sample.get(), 9, b);
        Arg(cross.get(), 0, a);
        Arg(cross.get(), 1, b);
        Arg(search.get(), 0, a);
        Arg(search.get(), 1, w);
        Arg(search.get(), 2, w);
        Arg(search.get(), 3, stride);
        Arg(search.get(), 4, out);
    }

    // One pair through the pipeline; the maxima are in hostPeaks after it.
    void run(bool upload) {
        cl_command_queue q = ctx->queue();
        if (upload) {
            Check(clEnqueueWriteBuffer(q, frameA.get(), CL_FALSE, 0, hostA.size(), hostA.data(), 0,
                                       nullptr, nullptr),
                  "clEnqueueWriteBuffer");
            Check(clEnqueueWriteBuffer(q, frameB.get(), CL_FALSE, 0, hostB.size(), hostB.data(), 0,
                                       nullptr, nullptr),
                  "clEnqueueWriteBuffer");
        }
        const size_t groups = kGroup * size_t(kWindows);
        const size_t spectrum = size_t(kWindow / 2 + 1) * kWindow * kWindows;
        Check(clEnqueueNDRangeKernel(q, sample.get(), 1, nullptr, &groups, &kGroup, 0, nullptr,
                                     nullptr),
              "clEnqueueNDRangeKernel");
        fft->forward(sa.get());
        fft->forward(sb.get());
        Check(clEnqueueNDRangeKernel(q, cross.get(), 1, nullptr, &spectrum, nullptr, 0, nullptr,
                                     nullptr),
              "clEnqueueNDRangeKernel");
        fft->inverse(sa.get());
        Check(clEnqueueNDRangeKernel(q, search.get(), 1, nullptr, &groups, &kGroup, 0, nullptr,
                                     nullptr),
              "clEnqueueNDRangeKernel");
        Check(clEnqueueReadBuffer(q, peaks.get(), CL_TRUE, 0, sizeof(cl_int2) * kWindows,
                                  hostPeaks.data(), 0, nullptr, nullptr),
              "clEnqueueReadBuffer");
    }

    // The share of windows whose maximum is the cell of the rounded shift
    // (negative shifts wrap to the far end of the plane).
    double peaksAtTheShift() const {
        const int x = (int(std::lround(kDx)) + kWindow) % kWindow;
        const int y = (int(std::lround(kDy)) + kWindow) % kWindow;
        int hits = 0;
        for (const cl_int2& p : hostPeaks) hits += p.s[1] == y * kWindow + x;
        return double(hits) / kWindows;
    }
};

// range(0): 1 uploads the pair on every iteration.
void BM_BarePipeline(benchmark::State& state) {
    const bool upload = state.range(0) == 1;
    try {
        if (!PIV::SetDevice(bench::DeviceName())) {
            state.SkipWithError("no OpenCL device");
            return;
        }
        Pipeline pipeline(CurrentContext());
        pipeline.run(upload);  // the transform's kernels compile on first use
        for (auto _ : state) pipeline.run(upload);
        state.counters["vectors/s"] =
            benchmark::Counter(kWindows, benchmark::Counter::kIsIterationInvariantRate);
        state.counters["peaks_at_shift"] = pipeline.peaksAtTheShift();
        state.SetLabel(upload ? "with copies: pair up, maxima back" : "resident: maxima back");
    } catch (const Failure& f) {
        const std::string why = f.vkfft ? "VkFFT failed" : ErrorName(f.code);
        state.SkipWithError(why.c_str());
    }
    PIV::SetDevice("cpu");
}
BENCHMARK(BM_BarePipeline)
    ->ArgName("copies")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    return bench::RunOpenCLBenchmarks(argc, argv);
}
