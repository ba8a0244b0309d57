#include "piv_opencl_batch.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "image2d.h"
#include "piv_opencl.h"
#include "piv_opencl_context.h"
#include "piv_peak2d.h"

#if defined(KELVANE_HAVE_OPENCL)

#include "piv_opencl_fft.h"

namespace PIV {
namespace OpenCL {

// The workspace of one batch shape: the two padded sample stacks
// (transformed in place), the norm factors, corners and compact planes,
// and the transform over the stacks.
struct Context::FFTPlan {
    int width = 0, height = 0, batch = 0;
    unsigned long long footprint = 0;  // device memory of all its buffers
    Mem sa, sb, norms, corners, planes, scans;
    std::unique_ptr<BatchFFT> fft;  // released before the buffers
};

// Per frame slot (0: A, 1: B) the pixels as they went up, and their copy
// on the device in floats. A list whose frame holds the same pixels uses the
// copy: the passes and levels of a pair correlate the same frames again.
// Pixels, not addresses, decide, as the deformation rewrites its frames in
// place from pass to pass.
struct Context::FrameCache {
    struct Slot {
        SIZE2D size{0, 0};
        int type = -1;
        std::vector<uint8_t> bytes;
        Mem buffer;
    };
    Slot slot[2];
};

namespace {

const size_t kGroup = 64;

std::shared_ptr<Context::FFTPlan> MakePlan(Context& ctx, int w, int h, int batch) {
    auto plan = std::make_shared<Context::FFTPlan>();
    plan->width = w;
    plan->height = h;
    plan->batch = batch;
    const size_t stride = size_t(2 * (w / 2 + 1));
    const uint64_t bytes = uint64_t(stride) * uint64_t(h) * uint64_t(batch) * sizeof(float);
    cl_context c = ctx.context();
    plan->sa = MakeBuffer(c, CL_MEM_READ_WRITE, bytes);
    plan->sb = MakeBuffer(c, CL_MEM_READ_WRITE, bytes);
    plan->norms = MakeBuffer(c, CL_MEM_READ_WRITE, sizeof(float) * size_t(batch));
    plan->corners = MakeBuffer(c, CL_MEM_READ_ONLY, 4 * sizeof(int) * size_t(batch));
    plan->planes =
        MakeBuffer(c, CL_MEM_READ_WRITE, sizeof(float) * size_t(w) * size_t(h) * size_t(batch));
    plan->scans = MakeBuffer(c, CL_MEM_WRITE_ONLY, sizeof(PIV_PEAK_SCAN) * size_t(batch));
    plan->fft = std::make_unique<BatchFFT>(ctx, w, h, batch, plan->sa.get(), bytes);
    return plan;
}

template <typename T>
void Arg(cl_kernel k, cl_uint i, const T& v) {
    Check(clSetKernelArg(k, i, sizeof(T), &v), "clSetKernelArg");
}

// The device copy of `img` in frame slot `which`, uploaded unless the slot
// holds the same pixels already.
cl_mem DeviceFrame(Context& ctx, const Image2D* img, int which) {
    if (!ctx.frames) ctx.frames = std::make_shared<Context::FrameCache>();
    Context::FrameCache::Slot& slot = ctx.frames->slot[which];
    const SIZE2D s = img->size2D();
    const uint8_t* bits = img->bits();
    const size_t bytes = size_t(img->bytesPerPlane());
    if (slot.buffer && slot.size.width == s.width && slot.size.height == s.height &&
        slot.type == int(img->type()) && slot.bytes.size() == bytes &&
        std::memcmp(slot.bytes.data(), bits, bytes) == 0)
        return slot.buffer.get();
    slot = Context::FrameCache::Slot{};
    std::vector<float> host(size_t(s.width) * size_t(s.height));
    if (!img->fillSample(host.data(), s.width, s.height, 0, 0, s.width))
        throw Failure{CL_INVALID_VALUE, "frame", 0};
    Mem buffer =
        MakeBuffer(ctx.context(), CL_MEM_READ_ONLY, host.size() * sizeof(float), host.data());
    slot.bytes.assign(bits, bits + bytes);
    slot.size = s;
    slot.type = int(img->type());
    slot.buffer = std::move(buffer);
    return slot.buffer.get();
}

}  // namespace
}  // namespace OpenCL

bool CorrelateOnDevice(const DEVICE_CORR_JOB& job, const DeviceBatchSink& sink, std::string& why) {
    using namespace OpenCL;
    const int w = job.width, h = job.height;
    const size_t stride = size_t(2 * (w / 2 + 1));
    const SIZE2D frame = job.a->size2D();
    const unsigned long long frames =
        2ull * sizeof(float) * unsigned(frame.width) * unsigned(frame.height) +
        sizeof(float) * stride * size_t(h);
    const unsigned long long perWindow = 2ull * sizeof(float) * stride * size_t(h) +
                                         sizeof(float) * size_t(w) * size_t(h) + 5 * sizeof(float) +
                                         sizeof(PIV_PEAK_SCAN);
    const unsigned long long cap = DeviceMemoryCap();
    if (cap < frames + perWindow) {
        char text[200];
        std::snprintf(text, sizeof text,
                      "the device memory cap of %llu bytes holds no batch of %dx%d windows (%llu "
                      "bytes at least)",
                      cap, w, h, frames + perWindow);
        why = text;
        return false;
    }
    // Batches of a power of two, at most 4096 windows: a few plans serve lists
    // of any length, and a plan is costly to make (VkFFT compiles its kernels).
    int batch = 1;
    while (batch < job.count && batch < (1 << 12)) batch *= 2;
    while (batch > 1 && frames + perWindow * unsigned(batch) > cap) batch /= 2;
    try {
        std::shared_ptr<Context> ctx = CurrentContext();
        if (!ctx) {
            why = "no OpenCL device is chosen";
            return false;
        }
        // Each buffer within the device's largest allocation too: the sample
        // stacks are the largest of a batch.
        const unsigned long long maxAlloc = ctx->maxAlloc();
        const unsigned long long stack = sizeof(float) * stride * size_t(h);
        const unsigned long long frameBytes =
            sizeof(float) * unsigned(frame.width) * unsigned(frame.height);
        if (stack > maxAlloc || frameBytes > maxAlloc) {
            why = "the device allocates at most " + std::to_string(maxAlloc) +
                  " bytes at once, less than a frame or a window needs";
            return false;
        }
        while (batch > 1 && stack * unsigned(batch) > maxAlloc) batch /= 2;
        std::lock_guard<std::mutex> hold(ctx->running);
        std::shared_ptr<Context::FFTPlan> plan;
        for (const auto& p : ctx->plans)
            if (p->width == w && p->height == h && p->batch == batch) plan = p;
        if (!plan) {
            // The kept workspaces and the new one stay within the cap too.
            const size_t kKeep = 4;
            const unsigned long long need = frames + perWindow * unsigned(batch);
            auto kept = [&] {
                unsigned long long sum = 0;
                for (const auto& p : ctx->plans) sum += p->footprint;
                return sum;
            };
            while (!ctx->plans.empty() && (ctx->plans.size() >= kKeep || kept() + need > cap))
                ctx->plans.erase(ctx->plans.begin());
            plan = MakePlan(*ctx, w, h, batch);
            plan->footprint = perWindow * unsigned(batch);
            ctx->plans.push_back(plan);
        }
        cl_context c = ctx->context();
        cl_command_queue q = ctx->queue();
        const cl_mem ia = DeviceFrame(*ctx, job.a, 0), ib = DeviceFrame(*ctx, job.b, 1);
        std::vector<float> weightHost(stride * size_t(h), 1.0f);
        if (job.weights)
            std::copy(job.weights, job.weights + weightHost.size(), weightHost.begin());
        Mem weights =
            MakeBuffer(c, CL_MEM_READ_ONLY, weightHost.size() * sizeof(float), weightHost.data());

        const Kernels& k = ctx->kernels();
        const cl_mem sa = plan->sa.get(), sb = plan->sb.get(), norms = plan->norms.get();
        const cl_mem corners = plan->corners.get(), planes = plan->planes.get();
        const cl_mem wm = weights.get();
        const int useWeights = job.weights ? 1 : 0, iStride = int(stride), width = frame.width;
        Arg(k.sample, 0, ia);
        Arg(k.sample, 1, ib);
        Arg(k.sample, 2, width);
        Arg(k.sample, 3, corners);
        Arg(k.sample, 4, wm);
        Arg(k.sample, 5, useWeights);
        Arg(k.sample, 6, w);
        Arg(k.sample, 7, h);
        Arg(k.sample, 8, iStride);
        Arg(k.sample, 9, sa);
        Arg(k.sample, 10, sb);
        Arg(k.sample, 11, norms);
        const float scale = 1.0f / (float(w) * float(h));
        const int phaseOnly = job.correlationMode == 1 ? 1 : 0, nyquist = job.nyquist ? 1 : 0;
        Arg(k.crossPower, 0, sa);
        Arg(k.crossPower, 1, sb);
        Arg(k.crossPower, 2, w);
        Arg(k.crossPower, 3, h);
        Arg(k.crossPower, 4, scale);
        Arg(k.crossPower, 5, phaseOnly);
        Arg(k.crossPower, 6, nyquist);
        Arg(k.hermitian, 0, sa);
        Arg(k.hermitian, 1, w);
        Arg(k.hermitian, 2, h);
        Arg(k.normalize, 0, sa);
        Arg(k.normalize, 1, norms);
        Arg(k.normalize, 2, w);
        Arg(k.normalize, 3, h);
        Arg(k.normalize, 4, iStride);
        Arg(k.normalize, 5, planes);
        const cl_mem scans = plan->scans.get();
        const int multiple = job.peakMode == PEAK_MULTIPLE ? 1 : 0, local = job.localSearch ? 1 : 0;
        Arg(k.peakScan, 0, planes);
        Arg(k.peakScan, 1, w);
        Arg(k.peakScan, 2, h);
        Arg(k.peakScan, 3, multiple);
        Arg(k.peakScan, 4, local);
        Arg(k.peakScan, 5, job.searchHalfX);
        Arg(k.peakScan, 6, job.searchHalfY);
        Arg(k.peakScan, 7, batch);
        Arg(k.peakScan, 8, scans);

        const size_t planeCells = size_t(w) * size_t(h);
        std::vector<int> cornerHost(4 * size_t(batch), 0);
        std::vector<float> planeHost(job.scanPeaks ? 0 : planeCells * size_t(batch));
        std::vector<PIV_PEAK_SCAN> scanHost(job.scanPeaks ? size_t(batch) : 0);
        std::vector<float> normHost(static_cast<size_t>(batch));
        const QueueFinish drained(q);
        for (int first = 0; first < job.count; first += batch) {
            const int n = std::min(batch, job.count - first);
            // The slots past the list's end sample the corner of the frame.
            std::fill(cornerHost.begin(), cornerHost.end(), 0);
            std::copy(job.corners + 4 * size_t(first), job.corners + 4 * size_t(first + n),
                      cornerHost.begin());
            Check(clEnqueueWriteBuffer(q, corners, CL_FALSE, 0, cornerHost.size() * sizeof(int),
                                       cornerHost.data(), 0, nullptr, nullptr),
                  "clEnqueueWriteBuffer");
            const size_t sampleGlobal = kGroup * size_t(batch);
            Check(clEnqueueNDRangeKernel(q, k.sample, 1, nullptr, &sampleGlobal, &kGroup, 0,
                                         nullptr, nullptr),
                  "clEnqueueNDRangeKernel");
            plan->fft->forward(sa);
            plan->fft->forward(sb);
            const size_t spectrum = size_t(w / 2 + 1) * size_t(h) * size_t(batch);
            Check(clEnqueueNDRangeKernel(q, k.crossPower, 1, nullptr, &spectrum, nullptr, 0,
                                         nullptr, nullptr),
                  "clEnqueueNDRangeKernel");
            const size_t windows = size_t(batch);
            // Only an even width has a column of its own conjugates to restore.
            if (job.nyquist && w % 2 == 0)
                Check(clEnqueueNDRangeKernel(q, k.hermitian, 1, nullptr, &windows, nullptr, 0,
                                             nullptr, nullptr),
                      "clEnqueueNDRangeKernel");
            plan->fft->inverse(sa);
            const size_t cells = planeCells * size_t(batch);
            Check(clEnqueueNDRangeKernel(q, k.normalize, 1, nullptr, &cells, nullptr, 0, nullptr,
                                         nullptr),
                  "clEnqueueNDRangeKernel");
            if (job.scanPeaks) {
                const size_t items = (size_t(batch) + kGroup - 1) / kGroup * kGroup;
                Check(clEnqueueNDRangeKernel(q, k.peakScan, 1, nullptr, &items, nullptr, 0, nullptr,
                                             nullptr),
                      "clEnqueueNDRangeKernel");
                Check(clEnqueueReadBuffer(q, scans, CL_FALSE, 0, sizeof(PIV_PEAK_SCAN) * size_t(n),
                                          scanHost.data(), 0, nullptr, nullptr),
                      "clEnqueueReadBuffer");
            } else {
                Check(clEnqueueReadBuffer(q, planes, CL_FALSE, 0, planeCells * size_t(n) * 4,
                                          planeHost.data(), 0, nullptr, nullptr),
                      "clEnqueueReadBuffer");
            }
            Check(clEnqueueReadBuffer(q, norms, CL_TRUE, 0, size_t(n) * sizeof(float),
                                      normHost.data(), 0, nullptr, nullptr),
                  "clEnqueueReadBuffer");
            if (!sink(first, n, job.scanPeaks ? nullptr : planeHost.data(),
                      job.scanPeaks ? scanHost.data() : nullptr, normHost.data()))
                break;
        }
        return true;
    } catch (const Failure& f) {
        why = std::string(f.where) + " failed: " +
              (f.vkfft ? "VkFFT error " + std::to_string(f.vkfft) : ErrorName(f.code)) +
              (f.detail.empty() ? "" : ": " + f.detail);
        return false;
    } catch (const std::bad_alloc&) {
        why = "host memory for a batch ran out";
        return false;
    }
}

}  // namespace PIV

#else

bool PIV::CorrelateOnDevice(const DEVICE_CORR_JOB&, const DeviceBatchSink&, std::string& why) {
    why = "this build has no OpenCL";
    return false;
}

#endif
