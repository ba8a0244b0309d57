#include "piv_opencl_context.h"
#include "piv_opencl.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <mutex>

namespace {

std::mutex g_lock;
int g_device = -1;  // -1: the CPU; else the index in ListDevices()
unsigned long long g_memoryCap = 512ull << 20;

// "opencl" is device 0, "opencl:N" device N, "cpu" -1; -2 for anything else.
int ParseDevice(const std::string& name) {
    if (name == "cpu") return -1;
    if (name == "opencl") return 0;
    const std::string prefix = "opencl:";
    if (name.compare(0, prefix.size(), prefix) != 0 || name.size() == prefix.size()) return -2;
    char* end = nullptr;
    const long n = std::strtol(name.c_str() + prefix.size(), &end, 10);
    if (*end != '\0' || n < 0 || n > 1000) return -2;
    return int(n);
}

// Checked calls left before the injected failure; negative: none injected.
std::atomic<int> g_callsBeforeFailure{-1};
std::atomic<int> g_injectedError{0};

}  // namespace

void PIV::detail::InjectDeviceFailure(int afterCalls, int clError) {
    g_injectedError = clError;
    g_callsBeforeFailure = afterCalls;
}

int PIV::detail::InjectedDeviceFailure() {
    int left = g_callsBeforeFailure.load(std::memory_order_relaxed);
    while (left > 0 && !g_callsBeforeFailure.compare_exchange_weak(left, left - 1)) {
    }
    return left == 0 ? g_injectedError.load() : 0;
}

#if defined(KELVANE_HAVE_OPENCL)

#include <vector>

namespace PIV {
namespace OpenCL {
namespace {

struct DeviceRef {
    cl_platform_id platform;
    cl_device_id device;
    std::string line;
};

std::string InfoString(cl_platform_id p, cl_device_id d, cl_uint what) {
    size_t size = 0;
    if ((p ? clGetPlatformInfo(p, what, 0, nullptr, &size)
           : clGetDeviceInfo(d, what, 0, nullptr, &size)) != CL_SUCCESS)
        return "?";
    std::string s(size, '\0');
    if (p)
        clGetPlatformInfo(p, what, size, &s[0], nullptr);
    else
        clGetDeviceInfo(d, what, size, &s[0], nullptr);
    while (!s.empty() && s.back() == '\0') s.pop_back();
    return s;
}

std::vector<DeviceRef> Devices() {
    std::vector<DeviceRef> out;
    cl_uint np = 0;
    // No ICD loader platform at all answers with an error, not with zero.
    if (clGetPlatformIDs(0, nullptr, &np) != CL_SUCCESS || np == 0) return out;
    std::vector<cl_platform_id> platforms(np);
    clGetPlatformIDs(np, platforms.data(), nullptr);
    for (cl_platform_id p : platforms) {
        cl_uint nd = 0;
        if (clGetDeviceIDs(p, CL_DEVICE_TYPE_ALL, 0, nullptr, &nd) != CL_SUCCESS || nd == 0)
            continue;
        std::vector<cl_device_id> devices(nd);
        clGetDeviceIDs(p, CL_DEVICE_TYPE_ALL, nd, devices.data(), nullptr);
        for (cl_device_id d : devices) {
            const std::string line = "opencl:" + std::to_string(out.size()) + "  " +
                                     InfoString(p, nullptr, CL_PLATFORM_NAME) + ": " +
                                     InfoString(nullptr, d, CL_DEVICE_NAME);
            out.push_back(DeviceRef{p, d, line});
        }
    }
    return out;
}

std::shared_ptr<Context> g_context;
int g_contextDevice = -1;

}  // namespace

std::string ErrorName(cl_int code) {
    switch (code) {
#define KELVANE_CL_NAME(c) \
    case c:                \
        return #c;
        KELVANE_CL_NAME(CL_SUCCESS)
        KELVANE_CL_NAME(CL_DEVICE_NOT_FOUND)
        KELVANE_CL_NAME(CL_DEVICE_NOT_AVAILABLE)
        KELVANE_CL_NAME(CL_COMPILER_NOT_AVAILABLE)
        KELVANE_CL_NAME(CL_MEM_OBJECT_ALLOCATION_FAILURE)
        KELVANE_CL_NAME(CL_OUT_OF_RESOURCES)
        KELVANE_CL_NAME(CL_OUT_OF_HOST_MEMORY)
        KELVANE_CL_NAME(CL_EXEC_STATUS_ERROR_FOR_EVENTS_IN_WAIT_LIST)
        KELVANE_CL_NAME(CL_BUILD_PROGRAM_FAILURE)
        KELVANE_CL_NAME(CL_INVALID_VALUE)
        KELVANE_CL_NAME(CL_INVALID_DEVICE)
        KELVANE_CL_NAME(CL_INVALID_CONTEXT)
        KELVANE_CL_NAME(CL_INVALID_COMMAND_QUEUE)
        KELVANE_CL_NAME(CL_INVALID_HOST_PTR)
        KELVANE_CL_NAME(CL_INVALID_MEM_OBJECT)
        KELVANE_CL_NAME(CL_INVALID_PROGRAM)
        KELVANE_CL_NAME(CL_INVALID_PROGRAM_EXECUTABLE)
        KELVANE_CL_NAME(CL_INVALID_KERNEL_NAME)
        KELVANE_CL_NAME(CL_INVALID_KERNEL)
        KELVANE_CL_NAME(CL_INVALID_ARG_INDEX)
        KELVANE_CL_NAME(CL_INVALID_ARG_VALUE)
        KELVANE_CL_NAME(CL_INVALID_ARG_SIZE)
        KELVANE_CL_NAME(CL_INVALID_KERNEL_ARGS)
        KELVANE_CL_NAME(CL_INVALID_WORK_GROUP_SIZE)
        KELVANE_CL_NAME(CL_INVALID_WORK_ITEM_SIZE)
        KELVANE_CL_NAME(CL_INVALID_GLOBAL_WORK_SIZE)
        KELVANE_CL_NAME(CL_INVALID_BUFFER_SIZE)
        KELVANE_CL_NAME(CL_INVALID_OPERATION)
        KELVANE_CL_NAME(CL_INVALID_PLATFORM)
#undef KELVANE_CL_NAME
        default:
            return "unknown error code " + std::to_string(code);
    }
}

Mem MakeBuffer(cl_context context, cl_mem_flags flags, size_t bytes, const void* host) {
    cl_int err = CL_SUCCESS;
    cl_mem m = clCreateBuffer(context, flags | (host ? CL_MEM_COPY_HOST_PTR : 0), bytes,
                              const_cast<void*>(host), &err);
    Mem held(m);  // a buffer made before the check fails is not lost
    Check(err, "clCreateBuffer");
    return held;
}

Context::Context(cl_platform_id platform, cl_device_id device) : m_device(device) {
    cl_int err = CL_SUCCESS;
    const cl_context_properties props[] = {CL_CONTEXT_PLATFORM, cl_context_properties(platform), 0};
    m_context = clCreateContext(props, 1, &device, nullptr, nullptr, &err);
    try {
        Check(err, "clCreateContext");
        m_queue = clCreateCommandQueue(m_context, device, 0, &err);
        Check(err, "clCreateCommandQueue");
        cl_ulong maxAlloc = 0;
        Check(clGetDeviceInfo(device, CL_DEVICE_MAX_MEM_ALLOC_SIZE, sizeof maxAlloc, &maxAlloc,
                              nullptr),
              "clGetDeviceInfo");
        m_maxAlloc = maxAlloc;
        buildKernels();
    } catch (...) {
        releaseAll();
        throw;
    }
}

Context::~Context() {
    releaseAll();
}

void Context::releaseAll() {
    frames.reset();
    plans.clear();
    for (cl_kernel k : {m_kernels.sample, m_kernels.crossPower, m_kernels.normalize,
                        m_kernels.hermitian, m_kernels.peakScan})
        if (k) clReleaseKernel(k);
    m_kernels = Kernels{};
    if (m_program) clReleaseProgram(m_program);
    if (m_queue) clReleaseCommandQueue(m_queue);
    if (m_context) clReleaseContext(m_context);
    m_program = nullptr;
    m_queue = nullptr;
    m_context = nullptr;
}

void Context::buildKernels() {
    cl_int err = CL_SUCCESS;
    const char* source = kKernelSource;
    m_program = clCreateProgramWithSource(m_context, 1, &source, nullptr, &err);
    Check(err, "clCreateProgramWithSource");
    err = clBuildProgram(m_program, 1, &m_device, "", nullptr, nullptr);
    if (err != CL_SUCCESS) {
        // The compiler's first lines say what the device lacks.
        size_t size = 0;
        std::string log;
        if (clGetProgramBuildInfo(m_program, m_device, CL_PROGRAM_BUILD_LOG, 0, nullptr, &size) ==
                CL_SUCCESS &&
            size > 1) {
            log.resize(size);
            clGetProgramBuildInfo(m_program, m_device, CL_PROGRAM_BUILD_LOG, size, &log[0],
                                  nullptr);
            log.resize(std::min(log.find('\0'), size_t(600)));
        }
        throw Failure{err, "clBuildProgram", 0, log};
    }
    m_kernels.sample = clCreateKernel(m_program, "sample_windows", &err);
    Check(err, "clCreateKernel");
    m_kernels.crossPower = clCreateKernel(m_program, "cross_power", &err);
    Check(err, "clCreateKernel");
    m_kernels.normalize = clCreateKernel(m_program, "normalize_planes", &err);
    Check(err, "clCreateKernel");
    m_kernels.hermitian = clCreateKernel(m_program, "hermitian_column", &err);
    Check(err, "clCreateKernel");
    m_kernels.peakScan = clCreateKernel(m_program, "peak_scan_planes", &err);
    Check(err, "clCreateKernel");
}

std::shared_ptr<Context> CurrentContext() {
    std::lock_guard<std::mutex> hold(g_lock);
    if (g_device < 0) return nullptr;
    if (!g_context || g_contextDevice != g_device) {
        g_context.reset();
        const std::vector<DeviceRef> devices = Devices();
        if (size_t(g_device) >= devices.size()) throw Failure{CL_DEVICE_NOT_FOUND, "device", 0};
        const DeviceRef& d = devices[size_t(g_device)];
        g_context = std::make_shared<Context>(d.platform, d.device);
        g_contextDevice = g_device;
    }
    return g_context;
}

void FallBackToCPU() {
    std::shared_ptr<Context> gone;  // released outside the lock
    std::lock_guard<std::mutex> hold(g_lock);
    g_device = -1;
    gone.swap(g_context);
    g_contextDevice = -1;
}

// Why device `n` cannot correlate, or nothing: the means and sums of the
// windows are taken in double precision.
std::string DeviceRefusal(size_t n) {
    const std::vector<DeviceRef> devices = Devices();
    if (n >= devices.size()) return "there is no OpenCL device " + std::to_string(n);
    const std::string extensions =
        " " + InfoString(nullptr, devices[n].device, CL_DEVICE_EXTENSIONS) + " ";
    if (extensions.find(" cl_khr_fp64 ") == std::string::npos)
        return "OpenCL device " + std::to_string(n) + " (" +
               InfoString(nullptr, devices[n].device, CL_DEVICE_NAME) +
               ") has no double precision (cl_khr_fp64), which the correlation needs";
    return {};
}

}  // namespace OpenCL

std::vector<std::string> ListDevices() {
    std::vector<std::string> lines;
    for (const OpenCL::DeviceRef& d : OpenCL::Devices()) lines.push_back(d.line);
    return lines;
}

}  // namespace PIV

#else

std::vector<std::string> PIV::ListDevices() {
    return {};
}

namespace PIV {
namespace OpenCL {
std::string DeviceRefusal(size_t) {
    return {};
}
}  // namespace OpenCL
}  // namespace PIV

void PIV::OpenCL::FallBackToCPU() {
    std::lock_guard<std::mutex> hold(g_lock);
    g_device = -1;
}

#endif

namespace PIV {

bool SetDevice(const std::string& name, std::string* why) {
    const int n = ParseDevice(name);
    if (n == -2) {
        if (why) *why = "unknown device \"" + name + "\": cpu, opencl or opencl:N";
        return false;
    }
    if (n >= 0) {
        const size_t count = ListDevices().size();
        if (size_t(n) >= count) {
            if (why)
                *why = count == 0 ? "no OpenCL device is available"
                                  : "there is no OpenCL device " + std::to_string(n);
            return false;
        }
        const std::string refusal = OpenCL::DeviceRefusal(size_t(n));
        if (!refusal.empty()) {
            if (why) *why = refusal;
            return false;
        }
    }
    std::lock_guard<std::mutex> hold(g_lock);
    g_device = n;
    return true;
}

std::string CurrentDevice() {
    std::lock_guard<std::mutex> hold(g_lock);
    return g_device < 0 ? std::string("cpu") : "opencl:" + std::to_string(g_device);
}

bool DeviceIsOpenCL() {
    std::lock_guard<std::mutex> hold(g_lock);
    return g_device >= 0;
}

void SetDeviceMemoryCap(unsigned long long bytes) {
    std::lock_guard<std::mutex> hold(g_lock);
    g_memoryCap = bytes;
}

unsigned long long DeviceMemoryCap() {
    std::lock_guard<std::mutex> hold(g_lock);
    return g_memoryCap;
}

}  // namespace PIV
