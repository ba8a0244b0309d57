#include "piv_opencl_fft.h"

#if defined(KELVANE_HAVE_OPENCL)

#define VKFFT_BACKEND 3
#include <vkFFT.h>

namespace PIV {
namespace OpenCL {

// VkFFT keeps pointers to what it was planned with: they live here.
struct BatchFFT::App {
    VkFFTApplication app = {};
    uint64_t bytes = 0;
    cl_device_id device = nullptr;
    cl_context context = nullptr;
    cl_command_queue queue = nullptr;
    cl_mem buffer = nullptr;
    ~App() { deleteVkFFT(&app); }
};

BatchFFT::BatchFFT(Context& ctx, int width, int height, int batch, cl_mem buffer, uint64_t bytes)
    : m_queue(ctx.queue()) {
    auto app = std::make_unique<App>();
    app->bytes = bytes;
    app->device = ctx.device();
    app->context = ctx.context();
    app->queue = ctx.queue();
    app->buffer = buffer;
    VkFFTConfiguration cfg = {};
    cfg.FFTdim = 2;
    cfg.size[0] = uint64_t(width);
    cfg.size[1] = uint64_t(height);
    cfg.performR2C = 1;
    cfg.numberBatches = uint64_t(batch);
    cfg.device = &app->device;
    cfg.context = &app->context;
    cfg.commandQueue = &app->queue;
    cfg.buffer = &app->buffer;
    cfg.bufferSize = &app->bytes;
    const VkFFTResult r = initializeVkFFT(&app->app, cfg);
    if (r != VKFFT_SUCCESS) {
        // A failed plan has cleaned up after itself.
        app->app = VkFFTApplication{};
        throw Failure{CL_SUCCESS, "initializeVkFFT", int(r)};
    }
    m_app = std::move(app);
}

BatchFFT::~BatchFFT() = default;

void BatchFFT::forward(cl_mem buffer) {
    run(buffer, -1);
}

void BatchFFT::inverse(cl_mem buffer) {
    run(buffer, 1);
}

void BatchFFT::run(cl_mem buffer, int direction) {
    VkFFTLaunchParams launch = {};
    launch.commandQueue = &m_queue;
    launch.buffer = &buffer;
    const VkFFTResult r = VkFFTAppend(&m_app->app, direction, &launch);
    if (r != VKFFT_SUCCESS) throw Failure{CL_SUCCESS, "VkFFTAppend", int(r)};
}

}  // namespace OpenCL
}  // namespace PIV

#endif
