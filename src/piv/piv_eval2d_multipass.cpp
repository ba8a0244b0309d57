// Multi-pass interrogation: the same grid again and again, each window pair
// moved by the whole pixels of the last pass's validated displacement, and
// the re-evaluation of outliers with larger windows after a multi-grid run.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "piv_enums.h"
#include "piv_eval2d.h"
#include "piv_grid.h"
#include "piv_messages.h"

namespace {

// Half away from zero: a displacement of -2.5 px moves the window by -3.
int RoundAway(double v) {
    return int(v < 0.0 ? v - 0.5 : v + 0.5);
}

}  // namespace

bool PIV_Eval2D::evalMultiPass(bool deformLastPass) {
    const char* where = "evalMultiPass()";
    const PIVEVAL_CFG cfg = m_params->pivEvalCfg();
    int passes = std::max(cfg.Passes, 1);
    DebugPrint("PIV_Eval2D::evalMultiPass() - %d passes", passes);
    std::snprintf(m_status, sizeof(m_status), "  Multiple Pass Evaluation: Pass 1 of %d", passes);
    updateProgressDialog(m_status, true);
    if (!evalSinglePass()) return false;
    m_data->setFlagRawData(true);
    if (passes == 1 && !deformLastPass) return true;
    if (deformLastPass) passes = std::max(passes - 1, 2);

    const int nodes = m_data->nodeCount();
    try {
        m_tmpData.assign(m_data->data(), m_data->data() + nodes);
        m_tmpOffset.assign(size_t(nodes), POINT2D{cfg.SampleOffset.x, cfg.SampleOffset.y});
    } catch (...) {
        std::snprintf(m_status, sizeof(m_status),
                      "PIV_Eval2D::evalMultiPass() - Trouble allocating temporary space");
        return false;
    }
    setIntermediateProcessing(false);
    const DATA_GRID4D& grid = cfg.grid;
    const DATA_GRID4D& held = m_data->grid();
    if (held.nodes.width != grid.nodes.width || held.nodes.height != grid.nodes.height) {
        m_error.setMessage("evalMultiPass()");
        m_error.handleError(PIVerror::GRID_MISMATCH, where);
        return false;
    }
    std::vector<CORR_SAMPLE_POS> samples;
    if (!buildSampleList(grid, samples, "evalMultiPass() - sample list")) return false;

    // The validation between passes must replace what it rejects, or a bad
    // vector would move its window far off; with no test switched on, the
    // normalized median stands in.
    OUTLIER_CFG between = m_params->outlierCfg();
    between.TryOtherPeaks = false;
    between.InterpolateOutliers = true;
    if (!between.CheckDisplacement && !between.CheckDifference && !between.CheckGlobalHist &&
        !between.CheckMedian && !between.CheckDynMean) {
        between.CheckNormalizedMedian = true;
        between.NormalizedMedianThreshold = 3.0f;
        between.MaxDifference = 4.0f;
    }

    for (int pass = 2; pass <= passes; pass++) {
        PIVEVAL_CFG pc = cfg;
        if (pass == passes && passes >= 3 && cfg.FinalROI) {
            pc.ROI_Size.width = std::min(pc.ROI_Size.width, cfg.FinalROI_Size.width);
            pc.ROI_Size.height = std::min(pc.ROI_Size.height, cfg.FinalROI_Size.height);
            DebugPrintExt(2, "Reducing peak search area on final pass: +/-%d px",
                          pc.ROI_Size.width);
        }
        updateCorrelator(pc);
        m_data->setFlagRawData(true);
        m_data->setFlagValidated(false);
        m_newValidation = true;
        m_data->validate(between, true);

        std::snprintf(m_status, sizeof(m_status), "  Multiple Pass Evaluation: Pass %d of %d", pass,
                      passes);
        updateProgressDialog(m_status, true);
        if (m_showProgress && pass < passes) showNewPivData();

        PIV_VECTOR* v = m_data->data();
        int needed = 0;
        for (int k = 0; k < nodes && k < int(samples.size()); k++) {
            const POINT2D offset{RoundAway(v[k].dx), RoundAway(v[k].dy)};
            CORR_SAMPLE_POS& s = samples[size_t(k)];
            s.offset = offset;
            // A window already at the right offset would give the same
            // vector: it keeps what the validation left.
            s.enabled =
                offset.x != m_tmpOffset[size_t(k)].x || offset.y != m_tmpOffset[size_t(k)].y;
            m_tmpOffset[size_t(k)] = offset;
            needed += s.enabled ? 1 : 0;
        }
        DebugPrintExt(2, "need to do %d correlations", needed);
        int good = 0;
        if (!processSampleList(samples.data(), int(samples.size()), v, pc, false, m_pImgA, m_pImgB,
                               m_pImgC, m_pImgD, listMaskA(), listMaskB(), &good)) {
            updateCorrelator(cfg);
            return false;
        }
        if (cfg.SelfCorrelation_Eliminate) {
            int disabled = 0;
            for (int k = 0; k < nodes; k++)
                if (samples[size_t(k)].enabled)
                    disabled +=
                        PIV::EliminateZeroPeak(v[k], 0.0f, 0.0f, cfg.SelfCorrelation_Radius);
            DebugPrintExt(2, "  disabled %d self-correlation vectors", disabled);
        }
        m_tmpData.assign(v, v + nodes);
        if (needed > 0 && good == 0) {
            m_error.setMessage("evalMultiPass() - no valid vector in pass %d", pass);
            m_error.handleError(PIVerror::CORRELATION_FAILED, where);
            updateCorrelator(cfg);
            return false;
        }
        if (!deformLastPass) {
            m_data->setFlagRawData(true);
            m_data->setFlagValidated(false);
            m_newValidation = true;
        }
    }

    if (deformLastPass) {
        std::snprintf(m_status, sizeof(m_status),
                      "  Multiple Pass Evaluation: Pass %d of %d (Image Deformation)", passes + 1,
                      passes + 1);
        updateProgressDialog(m_status, true);
        m_data->validate(m_params->outlierCfg(), true);
        m_data->setFlagSmoothed(false);
        m_data->smoothGauss(0.5, 0.05, false);
        m_deformA.clearSplineCoeffs();
        m_deformB.clearSplineCoeffs();
        updateCorrelator(cfg);
        if (!deformImagePair(m_data, true) || !processDeformedImages(m_data)) {
            if (!cancelRequested())
                std::snprintf(m_status, sizeof(m_status),
                              "Image Deformation failed\nReason: %.900s", getLastError());
            updateCorrelator(cfg);
            return false;
        }
    }
    updateCorrelator(cfg);
    return true;
}

int PIV_Eval2D::reevaluateDisabledVectors(const Image2D* a, const Image2D* b, PIV_Data2D* data,
                                          const PIVEVAL_CFG& cfg, const SIZE2D& size,
                                          const PIV_VECTOR* oldVectors, int nodes) {
    if (!a || !b || !data || data->isNull() || m_corr.empty()) return 0;
    PIV_VECTOR* v = data->data();
    const int n = data->nodeCount();
    int candidates = 0;
    for (int k = 0; k < n; k++)
        if (v[k].flag & (VECTOR_OUTLIER | VECTOR_INTERPOLATED)) candidates++;
    if (candidates == 0) return 0;
    PIVEVAL_CFG copy = cfg;
    copy.SampleSize = SIZE3D{size.width, size.height, 1};
    copy.FFTSize = copy.SampleSize;
    DebugPrintExt(1, "re-evaluating %d outliers with larger window: %dx%d  (window type: %d)",
                  candidates, size.width, size.height, copy.CorrFilter_WindowType);
    PIV_Corr2D* corr = m_corr[0];
    corr->setPivEvalCfg(copy);
    m_window[0] = size;
    const POINT2D offset{cfg.SampleOffset.x, cfg.SampleOffset.y};
    const bool autocorrelation = m_analysisMode == PIV::ANALYSIS_AUTO_CORRELATION;
    const int height = int(a->height());
    int count = 0;
    for (int k = 0; k < n; k++) {
        if (!(v[k].flag & (VECTOR_OUTLIER | VECTOR_INTERPOLATED))) continue;
        POINT2D pos{v[k].ix, v[k].iy};
        if (!corr->sampleAndCorrelate(a, b, &pos, offset, false)) {
            DebugPrintExt(1, "failed re-processing at %d,%d", v[k].ix, height - v[k].iy);
            continue;
        }
        PIV_VECTOR found = v[k];
        if (!corr->peakDetection(&found, offset, autocorrelation)) continue;
        if (nodes == n && oldVectors) {
            const PIV_VECTOR& o = oldVectors[k];
            found.dx += o.dx;
            found.dy += o.dy;
            for (int i = 0; i < 3; i++) {
                found.peak[i].x += o.dx;
                found.peak[i].y += o.dy;
            }
        }
        found.ix = v[k].ix;
        found.iy = v[k].iy;
        found.x = v[k].x;
        found.y = v[k].y;
        found.flag = VECTOR_ENABLED;
        v[k] = found;
        count++;
    }
    corr->setPivEvalCfg(m_params->pivEvalCfg());
    m_window[0] =
        SIZE2D{m_params->pivEvalCfg().SampleSize.width, m_params->pivEvalCfg().SampleSize.height};
    DebugPrintExt(1, "-- re-evaluated %d vectors --", count);
    return count;
}
