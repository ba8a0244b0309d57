#include "piv_fft_plans.h"

#include <atomic>
#include <map>
#include <tuple>

std::mutex& PIV::FFTWPlannerMutex() {
    static std::mutex mutex;
    return mutex;
}

PIV::FFTPlans2D::~FFTPlans2D() {
    std::lock_guard<std::mutex> lock(FFTWPlannerMutex());
    if (forward) fftwf_destroy_plan(forward);
    if (reverse) fftwf_destroy_plan(reverse);
}

namespace {
std::atomic<bool> g_measuredPlans{true};
}  // namespace

void PIV::SetMeasuredFFTPlans(bool allowed) { g_measuredPlans = allowed; }

std::shared_ptr<const PIV::FFTPlans2D> PIV::GetFFTPlans2D(int width, int height, bool optimized) {
    if (width < 1 || height < 1) return nullptr;
    optimized = optimized && g_measuredPlans;
    using Key = std::tuple<int, int, bool>;
    static std::mutex cacheMutex;
    static std::map<Key, std::weak_ptr<const FFTPlans2D>> cache;

    std::lock_guard<std::mutex> cacheLock(cacheMutex);
    const Key key{width, height, optimized};
    auto found = cache.find(key);
    if (found != cache.end())
        if (auto held = found->second.lock()) return held;

    auto plans = std::make_shared<FFTPlans2D>();
    plans->width = width;
    plans->height = height;
    plans->optimized = optimized;
    const size_t half = size_t(width / 2 + 1);
    const size_t complexCount = size_t(height) * half;
    // Scratch arrays of the same layout as the correlators' buffers: measuring
    // overwrites them.
    FFTWFloatPtr real(static_cast<float*>(fftwf_malloc(sizeof(float) * 2 * complexCount)));
    FFTWComplexPtr spectrum(
        static_cast<fftwf_complex*>(fftwf_malloc(sizeof(fftwf_complex) * complexCount)));
    FFTWFloatPtr out(static_cast<float*>(fftwf_malloc(sizeof(float) * size_t(width) * height)));
    if (!real || !spectrum || !out) return nullptr;
    {
        std::lock_guard<std::mutex> lock(FFTWPlannerMutex());
        const unsigned forwardFlags = optimized ? (FFTW_MEASURE | FFTW_DESTROY_INPUT)
                                                : (FFTW_ESTIMATE | FFTW_DESTROY_INPUT);
        const unsigned reverseFlags = optimized ? FFTW_MEASURE : FFTW_ESTIMATE;
        plans->forward = fftwf_plan_dft_r2c_2d(height, width, real.get(),
                                               reinterpret_cast<fftwf_complex*>(real.get()),
                                               forwardFlags);
        plans->reverse = fftwf_plan_dft_c2r_2d(height, width, spectrum.get(), out.get(), reverseFlags);
    }
    if (!plans->forward || !plans->reverse) return nullptr;
    cache[key] = plans;
    return plans;
}
