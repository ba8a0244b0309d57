// The settings of an ensemble run, its list of passes and the small plane
// helpers shared by extraction, display and files.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "piv_corr2d_average.h"
#include "piv_messages.h"

void CORR_AVERAGE_PARAMS::init() {
    PIV::ZeroRecord(*this);
    peakFitMethod = 1;
    minFiles = 1;
    mode = 0;
    validateIntermediate = true;
    passCount = 2;
    startWin = SIZE2D{64, 64};
    peakRoiSize = SIZE2D{64, 64};
    imageTileSize = SIZE2D{64, 64};
    varyStride = 0;
    stride = 10;
    maxLevels = 6;
    roiScale = 1.5f;
    calcAutoCorr = true;
    saveData = true;
    progressStep = 20;
}

namespace {

int _nextPowerOfTwo(int n) {
    int p = 2;
    while (p < n && p < (1 << 29)) p *= 2;
    return p;
}

CORR_AVERAGE_PASS _pass(SIZE2D window, SIZE2D scan, SIZE2D step, int desample, int stride) {
    CORR_AVERAGE_PASS p;
    p.window = window;
    p.scan = scan;
    p.step = step;
    p.desample = desample;
    p.fileStride = stride;
    return p;
}

bool _sameSizes(const CORR_AVERAGE_PASS& a, const CORR_AVERAGE_PASS& b) {
    return a.window.width == b.window.width && a.window.height == b.window.height &&
           a.step.width == b.step.width && a.step.height == b.step.height &&
           a.scan.width == b.scan.width && a.scan.height == b.scan.height;
}

}  // namespace

std::vector<CORR_AVERAGE_PASS> PIV::BuildEnsembleCorrSteps(const CORR_AVERAGE_PARAMS& params,
                                                           const PIVEVAL_CFG& cfg) {
    const SIZE2D window{cfg.SampleSize.width, cfg.SampleSize.height};
    const SIZE2D scan{cfg.ScanRange.width, cfg.ScanRange.height};
    const SIZE2D step{cfg.grid.step.width, cfg.grid.step.height};
    const CORR_AVERAGE_PASS settings = _pass(window, scan, step, 1, 1);
    std::vector<CORR_AVERAGE_PASS> passes;
    if (params.mode == 1) {
        const int count = std::max(1, params.passCount);
        int stride = std::max(1, params.stride);
        for (int i = 0; i < count; i++) {
            CORR_AVERAGE_PASS p = settings;
            if (params.varyStride && i < count - 1) {
                p.fileStride = stride;
                stride = std::max(1, stride / 2);
            }
            passes.push_back(p);
        }
        return passes;
    }
    if (params.mode != 2) return {settings};

    SIZE2D start = params.startWin;
    if (start.width < window.width) start.width = _nextPowerOfTwo(window.width);
    if (start.height < window.height) start.height = _nextPowerOfTwo(window.height);
    const long p2w = _nextPowerOfTwo(window.width), p2h = _nextPowerOfTwo(window.height);
    const long area = long(start.width) * long(start.height);
    int levels = 2;
    while ((p2w * levels) * (p2h * levels) < area && levels < params.maxLevels) levels++;
    for (int k = levels; k >= 1; k--) {
        const SIZE2D size{int(p2w * k), int(p2h * k)};
        const int stride = params.varyStride ? std::max(2, k * k) : 1;
        passes.push_back(_pass(size, SIZE2D{scan.width * k, scan.height * k}, size, k, stride));
    }
    // Read as: a pyramid that ends on the evaluation's own sizes makes its
    // last level the final pass, on every pair; one that ends elsewhere is
    // followed by a pass with the true sizes.
    CORR_AVERAGE_PASS& last = passes.back();
    if (_sameSizes(last, settings)) {
        last.desample = 1;
        last.fileStride = 1;
    } else {
        passes.push_back(settings);
    }
    return passes;
}

void _restoreCorrData(const float* sum, float* plane, const uint8_t* mask, int cells, int count,
                      float* min, float* max, float* mean, float* rms) {
    const float n = float(std::max(count, 1));
    const uint8_t* bits = mask;
    const long packed =
        bits ? long(std::count_if(bits, bits + cells, [](uint8_t b) { return b != 0; }))
             : long(cells);
    float lo = 0.0f, hi = 0.0f;
    double s = 0.0, s2 = 0.0;
    for (long k = 0; k < packed; k++) {
        const float v = sum[k] / n;
        if (k == 0 || v < lo) lo = v;
        if (k == 0 || v > hi) hi = v;
        s += v;
        s2 += double(v) * v;
    }
    if (bits) {
        for (long c = 0, k = 0; c < cells; c++) plane[c] = bits[c] ? sum[k++] / n : lo;
    } else {
        for (long c = 0; c < cells; c++) plane[c] = sum[c] / n;
    }
    const double m = packed > 0 ? s / double(packed) : 0.0;
    const double var =
        packed < 2 ? 0.0 : (double(packed) * s2 - s * s) / (double(packed - 1) * double(packed));
    if (min) *min = lo;
    if (max) *max = hi;
    if (mean) *mean = float(m);
    if (rms) *rms = float(std::sqrt(std::max(var, 0.0)));
}

void _createCorrelationWeights(float* w, int N) {
    if (!w || N < 1) return;
    for (int i = 0; i < N; i++) {
        const double x = double(i) / double(N);
        w[i] = float(i <= N / 2 ? 1.0 / (x + 0.5) : 1.0 / (1.5 - x));
    }
}
