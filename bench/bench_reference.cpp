// A deliberately plain reference evaluator, the yardstick the single pass is
// held against: one thread, every 32 x 32 window pair of a 1024 x 1024 8-bit
// pair (step 16, the nodes of the evaluation grid) cut out and freed of its
// mean, all windows in one batched FFTW plan, the conjugate product, one
// batched inverse, the integer maximum of each plane and a three-point
// Gaussian fit in x and y. No window weighting, no validation, no second
// peak, no bookkeeping: whatever the library does beyond this must be paid
// for by its threads. It shares nothing with the library's correlator.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <vector>

#include "bench_frames.h"
#include "image2d.h"
#include "piv_fft_plans.h"
#include "piv_grid.h"
#include "piv_messages.h"
#include "piv_types.h"
#include "synthetic_images.h"

namespace {

constexpr int kSize = 1024;
constexpr int kWindow = 32;
constexpr int kStep = 16;
constexpr double kFlowDx = 3.3, kFlowDy = -2.2;  // image pixels, y down the rows

constexpr int kPixels = kWindow * kWindow;
constexpr int kSpectrum = kWindow * (kWindow / 2 + 1);  // complex values of one r2c output

const bench::ParticlePair& TestPair() {
    static const bench::ParticlePair pair(kSize, synth::UniformFlow(kFlowDx, kFlowDy));
    return pair;
}

// Sub-pixel offset of a peak from its three samples along one axis. A
// sample at or below zero has no logarithm: the integer position stands.
inline float Gauss3(float left, float centre, float right) {
    if (left <= 0.0f || centre <= 0.0f || right <= 0.0f) return 0.0f;
    const float l = std::log(left), c = std::log(centre), r = std::log(right);
    const float den = 2.0f * (l - 2.0f * c + r);
    return den < 0.0f ? (l - r) / den : 0.0f;
}

class Reference {
public:
    Reference() {
        // The nodes kelvane-eval lays over the image: from half a window in,
        // step 16, so 63 x 63 of them on 1024 px.
        DATA_GRID4D grid;
        grid.imageSize = SIZE3D{kSize, kSize, 1};
        grid.step = SIZE3D{kStep, kStep, 1};
        grid.roiEnabled = false;
        if (!PIV::CreateDataGrid4D(grid, SIZE3D{kWindow, kWindow, 1})) return;
        for (int row = 0; row < grid.nodes.height; row++)
            for (int col = 0; col < grid.nodes.width; col++) {
                const POINT3D p = PIV::GridNodePosition(grid, col, row);
                nodes_.push_back(POINT2D{p.x, p.y});
            }
        const int n = int(nodes_.size());
        windows_.reset(fftwf_alloc_real(size_t(2 * n) * kPixels));
        spectra_.reset(fftwf_alloc_complex(size_t(2 * n) * kSpectrum));
        planes_.reset(fftwf_alloc_real(size_t(n) * kPixels));
        dx_.assign(size_t(n), 0.0f);
        dy_.assign(size_t(n), 0.0f);
        if (!windows_ || !spectra_ || !planes_) return;
        const int dims[2] = {kWindow, kWindow};
        std::lock_guard<std::mutex> lock(PIV::FFTWPlannerMutex());
        // All A windows, then all B windows, in one forward batch; the
        // products land on the A spectra and go back in one inverse batch.
        forward_ = fftwf_plan_many_dft_r2c(2, dims, 2 * n, windows_.get(), nullptr, 1, kPixels,
                                           spectra_.get(), nullptr, 1, kSpectrum, FFTW_ESTIMATE);
        inverse_ = fftwf_plan_many_dft_c2r(2, dims, n, spectra_.get(), nullptr, 1, kSpectrum,
                                           planes_.get(), nullptr, 1, kPixels, FFTW_ESTIMATE);
    }
    ~Reference() {
        std::lock_guard<std::mutex> lock(PIV::FFTWPlannerMutex());
        if (forward_) fftwf_destroy_plan(forward_);
        if (inverse_) fftwf_destroy_plan(inverse_);
    }
    Reference(const Reference&) = delete;
    Reference& operator=(const Reference&) = delete;

    bool ready() const { return forward_ && inverse_; }
    int count() const { return int(nodes_.size()); }

    void run(const Image2D& a, const Image2D& b) {
        const size_t n = nodes_.size();
        for (size_t k = 0; k < n; k++) {
            cut(a, nodes_[k], windows_.get() + k * kPixels);
            cut(b, nodes_[k], windows_.get() + (n + k) * kPixels);
        }
        fftwf_execute(forward_);
        fftwf_complex* fa = spectra_.get();
        const fftwf_complex* fb = spectra_.get() + n * kSpectrum;
        for (size_t i = 0; i < n * kSpectrum; i++) {
            // conj(A) * B: the peak sits at the shift of B against A.
            const float re = fa[i][0] * fb[i][0] + fa[i][1] * fb[i][1];
            const float im = fa[i][0] * fb[i][1] - fa[i][1] * fb[i][0];
            fa[i][0] = re;
            fa[i][1] = im;
        }
        fftwf_execute(inverse_);
        for (size_t k = 0; k < n; k++) peak(planes_.get() + k * kPixels, dx_[k], dy_[k]);
    }

    double meanDx() const { return Mean(dx_); }
    double meanDy() const { return Mean(dy_); }

private:
    static double Mean(const std::vector<float>& v) {
        double s = 0.0;
        for (float f : v) s += f;
        return v.empty() ? 0.0 : s / double(v.size());
    }

    static void cut(const Image2D& img, POINT2D centre, float* out) {
        const int x0 = centre.x - kWindow / 2, y0 = centre.y - kWindow / 2;
        float sum = 0.0f;
        for (int y = 0; y < kWindow; y++) {
            const uint8_t* row = img.scanLine<uint8_t>(uint64_t(y0 + y)) + x0;
            for (int x = 0; x < kWindow; x++) sum += (out[y * kWindow + x] = float(row[x]));
        }
        const float mean = sum / float(kPixels);
        for (int i = 0; i < kPixels; i++) out[i] -= mean;
    }

    // The plane is circular: index i stands for shift i below half a window
    // and i - 32 from there on.
    static void peak(const float* plane, float& dx, float& dy) {
        int best = 0;
        for (int i = 1; i < kPixels; i++)
            if (plane[i] > plane[best]) best = i;
        const int ix = best % kWindow, iy = best / kWindow;
        const int xl = (ix + kWindow - 1) % kWindow, xr = (ix + 1) % kWindow;
        const int yu = (iy + kWindow - 1) % kWindow, yd = (iy + 1) % kWindow;
        const float c = plane[best];
        const float fx = Gauss3(plane[iy * kWindow + xl], c, plane[iy * kWindow + xr]);
        const float fy = Gauss3(plane[yu * kWindow + ix], c, plane[yd * kWindow + ix]);
        dx = float(ix < kWindow / 2 ? ix : ix - kWindow) + fx;
        dy = float(iy < kWindow / 2 ? iy : iy - kWindow) + fy;
    }

    std::vector<POINT2D> nodes_;
    PIV::FFTWFloatPtr windows_, planes_;
    PIV::FFTWComplexPtr spectra_;
    fftwf_plan forward_ = nullptr, inverse_ = nullptr;
    std::vector<float> dx_, dy_;
};

void BM_ReferenceSinglePass(benchmark::State& state) {
    EnableWarnings(false);
    const bench::ParticlePair& pair = TestPair();
    Reference ref;
    if (!ref.ready()) {
        state.SkipWithError("no grid or no FFTW plans for the reference");
        return;
    }
    // One untimed run first: a yardstick that measured nothing would flatter
    // whatever is held against it.
    ref.run(pair.a, pair.b);
    const double dx = ref.meanDx(), dy = ref.meanDy();
    if (std::fabs(dx - kFlowDx) > 0.1 || std::fabs(dy - kFlowDy) > 0.1) {
        char why[160];
        std::snprintf(why, sizeof why, "reference measured (%.3f, %.3f) px for a (%.1f, %.1f) flow",
                      dx, dy, kFlowDx, kFlowDy);
        state.SkipWithError(why);
        return;
    }
    for (auto _ : state) {
        ref.run(pair.a, pair.b);
        benchmark::ClobberMemory();
    }
    state.counters["mean dx"] = dx;
    state.counters["mean dy"] = dy;
    state.counters["vectors/s"] =
        benchmark::Counter(double(ref.count()), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_ReferenceSinglePass)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
