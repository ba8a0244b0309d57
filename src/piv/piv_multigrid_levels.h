// The ladder of a multi-grid evaluation: from large windows on a coarse grid
// (and, when allowed, on binned images) down to the final window, one level
// record per pass.
#pragma once

#include <type_traits>
#include <vector>

#include "piv_error.h"
#include "piv_types.h"

// One pass of a multi-grid run. `window`, `sample` and `step` are in the
// pixels of the image the level works on (binned when binning > 1);
// `fullSample` and `fullStep` are the same in image pixels.
struct MULTIGRID_LEVEL {
    SIZE2D window;      // transform size
    SIZE2D sample;
    SIZE2D step;
    SIZE2D fullSample;
    SIZE2D fullStep;
    SIZE2D search;      // peak search region, +/- pixels
    int32_t binning;
    int32_t fitType;
    int32_t medianSize;  // 0: none
    float smoothWidth;   // Gaussian width in nodes: 0.5 plus the window overlap
    bool deform;
    bool final;

    MULTIGRID_LEVEL();
};
static_assert(std::is_trivially_copyable<MULTIGRID_LEVEL>::value, "plain record");

namespace PIV {

// At most this many levels, final scans included.
constexpr int kMaxMultiGridLevels = 15;

// The three ladders of window sizes, large to small, kMaxMultiGridLevels each.
extern const int MultiGridWindows[kMaxMultiGridLevels];
extern const int MultiGridWindowsFast32[kMaxMultiGridLevels];
extern const int MultiGridWindowsFast64[kMaxMultiGridLevels];

// Builds the levels for `cfg`. Returns NO_ERROR, or OPERATION_FAILED (9)
// when the list would be empty or longer than kMaxMultiGridLevels; `levels`
// then holds what was built.
PIVerror::ErrorType BuildMultiGridLevels(const PIVEVAL_CFG& cfg,
                                         std::vector<MULTIGRID_LEVEL>& levels);

// The window for re-evaluating outliers after a multi-grid run: in each axis
// the next ladder entry above `final`, grown along the axis with the smaller
// ratio until the two ratios multiply to at least 2.
SIZE2D MultiGridReevaluationWindow(const SIZE3D& final);

}  // namespace PIV
