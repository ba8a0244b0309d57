// The OpenCL device of the library: the chosen device, its context, queue
// and compiled kernels, RAII handles, and the names of OpenCL's errors.
#pragma once

namespace PIV {
namespace detail {
// For tests of the fallback: the OpenCL calls the library checks fail with
// `clError` once `afterCalls` more have passed, every one of them (a lost
// device stays lost). A negative count heals the device. Does nothing in a
// build without OpenCL.
void InjectDeviceFailure(int afterCalls, int clError);
// The error injected for the call being checked: CL_SUCCESS (0) until the
// count runs out.
int InjectedDeviceFailure();
}  // namespace detail
namespace OpenCL {
// After a failure: the setting goes back to the CPU for the rest of the
// process, and the device's context, workspaces and frames are released.
void FallBackToCPU();
}  // namespace OpenCL
}  // namespace PIV

#if defined(KELVANE_HAVE_OPENCL)

#define CL_TARGET_OPENCL_VERSION 120
#include <CL/cl.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace PIV {
namespace OpenCL {

// A failed OpenCL call, thrown by Check; or a failed transform, whose
// VkFFT result is then in vkfft. `detail`: what the device said, if anything.
struct Failure {
    cl_int code;
    const char* where;
    int vkfft;
    std::string detail = {};
};
// The name of an error of cl.h, or its number for a code it lacks.
std::string ErrorName(cl_int code);
inline void Check(cl_int code, const char* where) {
    if (code == CL_SUCCESS) code = detail::InjectedDeviceFailure();
    if (code != CL_SUCCESS) throw Failure{code, where, 0};
}

struct MemRelease {
    void operator()(cl_mem m) const { clReleaseMemObject(m); }
};
using Mem = std::unique_ptr<std::remove_pointer<cl_mem>::type, MemRelease>;
Mem MakeBuffer(cl_context context, cl_mem_flags flags, size_t bytes, const void* host = nullptr);

// Waits for the queue when it goes. Declared after the host memory that
// queued copies read or fill: a call failing between enqueues unwinds past
// that memory, and the commands before it still run.
class QueueFinish {
public:
    explicit QueueFinish(cl_command_queue queue) : m_queue(queue) {}
    ~QueueFinish() { clFinish(m_queue); }
    QueueFinish(const QueueFinish&) = delete;
    QueueFinish& operator=(const QueueFinish&) = delete;

private:
    cl_command_queue m_queue;
};

// The kernels of the batch, built once per context.
struct Kernels {
    cl_kernel sample = nullptr;
    cl_kernel crossPower = nullptr;
    cl_kernel normalize = nullptr;
    cl_kernel hermitian = nullptr;
    cl_kernel peakScan = nullptr;
};

class Context {
public:
    Context(cl_platform_id platform, cl_device_id device);
    ~Context();
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    cl_device_id device() const { return m_device; }
    cl_context context() const { return m_context; }
    cl_command_queue queue() const { return m_queue; }
    const Kernels& kernels() const { return m_kernels; }
    // The largest single buffer the device allows.
    unsigned long long maxAlloc() const { return m_maxAlloc; }
    // The transform workspaces of the last few batch shapes, kept for the
    // next lists (planning compiles kernels and costs far more than a
    // batch; a multi-grid run goes back and forth between its sizes).
    struct FFTPlan;
    std::vector<std::shared_ptr<FFTPlan>> plans;
    // The frames of the last list, for the lists of the same pair.
    struct FrameCache;
    std::shared_ptr<FrameCache> frames;
    // Held by a list for its whole run: kernel arguments and plans are
    // shared by every evaluation of the process.
    std::mutex running;

private:
    void buildKernels();
    void releaseAll();

    cl_device_id m_device = nullptr;
    cl_context m_context = nullptr;
    cl_command_queue m_queue = nullptr;
    cl_program m_program = nullptr;
    Kernels m_kernels;
    unsigned long long m_maxAlloc = 0;
};

// The context of the chosen device; null while the CPU is chosen. Made on
// first use; throws Failure when it cannot be made.
std::shared_ptr<Context> CurrentContext();

// The program text of the kernels (piv_opencl_kernels.cpp).
extern const char* const kKernelSource;

}  // namespace OpenCL
}  // namespace PIV

#endif
