// The correlation of a list of windows of one size on the OpenCL device, in
// batches: sampling, weights, means, norm factors, transforms, cross power,
// Nyquist cells and normalisation. The planes come back to the host, where
// the peak search of the CPU correlator reads them.
#pragma once

#include <functional>
#include <string>

class Image2D;

namespace PIV {

struct DEVICE_CORR_JOB {
    const Image2D* a;
    const Image2D* b;
    int width, height;    // the window
    int correlationMode;  // 0 or 1
    bool nyquist;
    const float* weights;  // rows of 2 * (width / 2 + 1) floats; null: none
    const int* corners;    // per window ax, ay, bx, by
    int count;
};

// Called per batch with the windows first .. first + n - 1: their planes
// (width x height in FFT order, one after the other) and norm factors (0:
// the window is empty and fails).
using DeviceBatchSink =
    std::function<bool(int first, int n, const float* planes, const float* norms)>;

// False with the reason in `why` (an OpenCL error by name, or a memory cap
// too small for one batch); nothing is then promised about what the sink
// was given. A sink that returns false ends the list early (true is
// returned: the run was cancelled, not failed).
bool CorrelateOnDevice(const DEVICE_CORR_JOB& job, const DeviceBatchSink& sink, std::string& why);

}  // namespace PIV
