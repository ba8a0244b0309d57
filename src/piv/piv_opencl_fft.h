// A batched 2-D real transform on the OpenCL device (VkFFT), in place over
// rows padded to 2 * (width / 2 + 1) floats, the layout of the CPU
// correlator's FFTW plans; unnormalised both ways, as FFTW's.
#pragma once

#if defined(KELVANE_HAVE_OPENCL)

#include <cstdint>
#include <memory>

#include "piv_opencl_context.h"

namespace PIV {
namespace OpenCL {

class BatchFFT {
public:
    // For `batch` planes of width x height in `buffer` (`bytes` long).
    // Throws Failure.
    BatchFFT(Context& ctx, int width, int height, int batch, cl_mem buffer, uint64_t bytes);
    ~BatchFFT();
    BatchFFT(const BatchFFT&) = delete;
    BatchFFT& operator=(const BatchFFT&) = delete;

    // Enqueued on the context's queue; `buffer` is laid out as the one planned.
    void forward(cl_mem buffer);
    void inverse(cl_mem buffer);

private:
    void run(cl_mem buffer, int direction);

    struct App;
    std::unique_ptr<App> m_app;
    cl_command_queue m_queue;
};

}  // namespace OpenCL
}  // namespace PIV

#endif
