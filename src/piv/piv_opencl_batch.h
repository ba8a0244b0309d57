// The correlation of a list of windows of one size on the OpenCL device, in
// batches: sampling, weights, means, norm factors, transforms, cross power,
// Nyquist cells and normalisation; then either the peak search, whose
// records come back to the host for the fits of the CPU detector, or the
// whole planes, for what needs more of them.
#pragma once

#include <functional>
#include <string>

class Image2D;
struct PIV_PEAK_SCAN;

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
    // The peak search on the device instead of planes back: its mode
    // (PIV::PeakDetectMode), and whether it keeps to the cells within
    // searchHalf columns and rows of zero displacement.
    bool scanPeaks;
    int peakMode;
    bool localSearch;
    int searchHalfX, searchHalfY;
};

// Called per batch with the windows first .. first + n - 1: their planes
// (width x height in FFT order, one after the other) or, with scanPeaks,
// their peak records (the other is null), and norm factors (0: the window
// is empty and fails).
using DeviceBatchSink = std::function<bool(int first, int n, const float* planes,
                                           const PIV_PEAK_SCAN* scans, const float* norms)>;

// False with the reason in `why` (an OpenCL error by name, or a memory cap
// too small for one batch); nothing is then promised about what the sink
// was given. A sink that returns false ends the list early (true is
// returned: the run was cancelled, not failed).
bool CorrelateOnDevice(const DEVICE_CORR_JOB& job, const DeviceBatchSink& sink, std::string& why);

}  // namespace PIV
