#include "piv_multigrid_levels.h"

#include <algorithm>
#include <cstring>

#include "piv_enums.h"

MULTIGRID_LEVEL::MULTIGRID_LEVEL() {
    std::memset(static_cast<void*>(this), 0, sizeof(*this));
}

namespace PIV {

const int MultiGridWindows[kMaxMultiGridLevels] = {512, 320, 256, 192, 128, 96, 64, 48,
                                                   32,  24,  16,  12,  8,   4,  4};
const int MultiGridWindowsFast32[kMaxMultiGridLevels] = {512, 320, 256, 192, 128, 96, 64, 32,
                                                         16,  8,   4,   4,   4,   4,  4};
const int MultiGridWindowsFast64[kMaxMultiGridLevels] = {512, 320, 256, 192, 128, 64, 32, 16,
                                                         8,   4,   4,   4,   4,   4,  4};

namespace {

// Index of the smallest entry not below `size`, counted from the small end;
// the largest entry when none is.
int StartIndex(const int* table, int size) {
    for (int k = kMaxMultiGridLevels - 1; k >= 0; k--)
        if (table[k] >= size) return k;
    return 0;
}

}  // namespace

PIVerror::ErrorType BuildMultiGridLevels(const PIVEVAL_CFG& cfg,
                                         std::vector<MULTIGRID_LEVEL>& levels) {
    levels.clear();
    const int* table = !cfg.MultiGrid_FastPyramid             ? MultiGridWindows
                       : cfg.MultiGrid_SampleSize.width == 64 ? MultiGridWindowsFast64
                                                              : MultiGridWindowsFast32;
    const int desample = std::max(cfg.MultiGrid_Desample, 1);
    const SIZE2D mg{std::max(cfg.MultiGrid_SampleSize.width, 1),
                    std::max(cfg.MultiGrid_SampleSize.height, 1)};
    const SIZE2D fin{std::max(cfg.SampleSize.width, 1), std::max(cfg.SampleSize.height, 1)};
    const SIZE2D finStep{std::max(cfg.grid.step.width, 1), std::max(cfg.grid.step.height, 1)};
    const double ratio =
        cfg.MultiGrid_SampleSize.width > 0
            ? double(cfg.MultiGrid_SampleStep.width) / cfg.MultiGrid_SampleSize.width
            : 0.5;
    const int fitType =
        (cfg.SpeedOptimization & 0x1000) ? int(PIV::PEAKFIT_GAUSS_3X3) : std::min(cfg.Type, 4);
    const bool deformAll = cfg.ImageMapping2D.Mode == PIV::DEFORM_ALL_PASSES;
    const bool deformFinal = cfg.ImageMapping2D.Mode != PIV::DEFORM_DISABLED;
    auto finish = [&](MULTIGRID_LEVEL& L) {
        L.window.width = std::max(L.window.width, 1);
        L.window.height = std::max(L.window.height, 1);
        L.sample = L.window;
        L.step.width = std::max(L.step.width, 1);
        L.step.height = std::max(L.step.height, 1);
        const double overlap = std::max(1.0 - double(L.step.width) / L.sample.width,
                                        1.0 - double(L.step.height) / L.sample.height);
        // No median filter between levels: the validation before it has
        // already replaced the outliers, and a median flattens the crests of
        // a curved flow, an error the next level cannot see. A 3 x 3 median
        // here took a Lamb-Oseen vortex of 6 px (core 48 px) from 0.018 to
        // 0.022 px RMS on the ladder from 128 px, and a sine of 4 px over
        // 192 px from 0.053 to 0.079.
        L.medianSize = 0;
        L.smoothWidth = float(0.5 + std::max(overlap, 0.0));
    };

    int ix = StartIndex(table, mg.width * desample);
    int iy = StartIndex(table, mg.height * desample);
    // The walk stops at the level where both axes reach the final window;
    // that level is kept, so the final window is scanned once as an
    // intermediate level before the final scans.
    for (int guard = 0; guard <= kMaxMultiGridLevels; guard++, ix++, iy++) {
        const int ex = ix < kMaxMultiGridLevels ? table[ix] : 0;
        const int ey = iy < kMaxMultiGridLevels ? table[iy] : 0;
        const bool doneX = ex <= fin.width, doneY = ey <= fin.height;
        MULTIGRID_LEVEL L;
        L.window = SIZE2D{doneX ? fin.width : ex, doneY ? fin.height : ey};
        L.step = SIZE2D{doneX ? finStep.width : std::max(int(ex * ratio), finStep.width),
                        doneY ? finStep.height : std::max(int(ey * ratio), finStep.height)};
        L.search = SIZE2D{cfg.ROI_Size.width * L.window.width / fin.width,
                          cfg.ROI_Size.height * L.window.height / fin.height};
        L.fullSample = L.window;
        L.binning = 1;
        const int qx = L.window.width / mg.width, qy = L.window.height / mg.height;
        if (cfg.DesampleEnable && qx >= 2 && qy >= 2) {
            L.binning = std::max(qx, qy);
            L.window = mg;
            L.step =
                SIZE2D{std::max(int(mg.width * ratio), 1), std::max(int(mg.height * ratio), 1)};
        }
        L.fitType = fitType;
        L.deform = deformAll && !levels.empty();
        L.final = false;
        finish(L);
        L.fullStep = SIZE2D{L.step.width * L.binning, L.step.height * L.binning};
        levels.push_back(L);
        if (doneX && doneY) break;
    }
    for (int s = 0; s < cfg.MultiGrid_FinalScans; s++) {
        MULTIGRID_LEVEL L;
        L.window = fin;
        L.step = finStep;
        L.search = SIZE2D{cfg.ROI_Size.width, cfg.ROI_Size.height};
        L.binning = 1;
        L.fitType = cfg.Type;
        L.deform = deformAll ? !levels.empty() : deformFinal;
        L.final = true;
        finish(L);
        L.fullSample = L.sample;
        L.fullStep = L.step;
        levels.push_back(L);
        if (int(levels.size()) > kMaxMultiGridLevels) break;
    }
    if (levels.empty() || int(levels.size()) > kMaxMultiGridLevels)
        return PIVerror::OPERATION_FAILED;
    return PIVerror::NO_ERROR;
}

SIZE2D MultiGridReevaluationWindow(const SIZE3D& final) {
    const int* t = MultiGridWindows;
    auto above = [&](int size) {
        for (int k = kMaxMultiGridLevels - 1; k >= 0; k--)
            if (t[k] > size) return k;
        return 0;
    };
    const int fw = std::max(final.width, 1), fh = std::max(final.height, 1);
    int ix = above(fw), iy = above(fh);
    while (double(t[ix]) / fw * double(t[iy]) / fh < 2.0) {
        const bool growX = double(t[ix]) / fw <= double(t[iy]) / fh;
        if (growX && ix > 0)
            ix--;
        else if (!growX && iy > 0)
            iy--;
        else if (ix > 0)
            ix--;
        else if (iy > 0)
            iy--;
        else
            break;
    }
    return SIZE2D{t[ix], t[iy]};
}

}  // namespace PIV
