// FFTW plans shared by every correlator of one window size.
//
// FFTW's planner is not thread-safe, its execution is: so plans are made
// (and destroyed) under one mutex, outside any parallel region, and the
// workers run them on their own buffers with the new-array execute calls.
// Sharing one plan also gives every worker the same algorithm, so a field
// comes out the same whatever the number of threads.
#pragma once

#include <fftw3.h>

#include <memory>
#include <mutex>

namespace PIV {

// The one lock around FFTW's planner.
std::mutex& FFTWPlannerMutex();

// Plans of a width x height real 2-D transform:
// - forward: in place, real rows padded to 2 * (width / 2 + 1) floats;
// - reverse: out of place, height * (width / 2 + 1) complex values into
//   height * width reals.
// The buffers they run on must come from fftwf_malloc (FFTW's alignment).
struct FFTPlans2D {
    int width = 0, height = 0;
    bool optimized = false;
    fftwf_plan forward = nullptr;
    fftwf_plan reverse = nullptr;
    ~FFTPlans2D();
};

// Plans for the size, shared while anybody holds them; null when FFTW
// cannot plan it. Measured plans (FFTW_MEASURE) when optimized, else
// estimated ones. Call it outside parallel regions.
std::shared_ptr<const FFTPlans2D> GetFFTPlans2D(int width, int height, bool optimized);

// Measured plans may differ from one process to the next, and with them the
// last bits of a result. Switched off, every plan is estimated: two runs of
// a program give identical fields. On by default.
void SetMeasuredFFTPlans(bool allowed);

// Owns one block from fftwf_malloc.
struct FFTWFree {
    void operator()(void* p) const { fftwf_free(p); }
};
using FFTWFloatPtr = std::unique_ptr<float, FFTWFree>;
using FFTWComplexPtr = std::unique_ptr<fftwf_complex, FFTWFree>;

}  // namespace PIV
