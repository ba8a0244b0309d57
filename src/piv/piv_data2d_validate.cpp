// PIV_Data2D: validation of a vector field. The entry point, the pass loop
// with its retry of the lower correlation peaks, and the tests that look at
// one node at a time; the neighbourhood tests and the replacement of outliers
// are in piv_data2d_outliers.cpp.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "piv_data2d.h"
#include "piv_data2d_outliers.h"
#include "piv_messages.h"

using PIV::Outliers::Reject;

double PIV::erfc(double x) {
    constexpr double kTwoOverSqrtPi = 1.1283791670955126;
    constexpr double kOneOverSqrtPi = 0.5641895835477563;
    constexpr double kLimit = 2.2;
    constexpr double kEps = 1e-12;
    if (x <= -kLimit) return 2.0 - PIV::erfc(-x);
    if (std::fabs(x) < kLimit) {
        // Maclaurin series of erf, two terms (one positive, one negative) a step.
        const double x2 = x * x;
        double power = x;  // x^(2n+1) / n!
        double sum = 0.0;
        for (int n = 0; n < 200; n += 2) {
            const double plus = power / (2 * n + 1);
            power *= x2 / (n + 1);
            const double minus = power / (2 * n + 3);
            power *= x2 / (n + 2);
            const double term = plus - minus;
            sum += term;
            if (std::fabs(term) < kEps * std::fabs(sum)) break;
        }
        return 1.0 - kTwoOverSqrtPi * sum;
    }
    // Continued fraction 1/(x + (1/2)/(x + 1/(x + (3/2)/(x + ...)))) by Lentz's
    // method, which converges fast in the tail where the series cannot.
    constexpr double kTiny = 1e-300;
    double f = x, c = x, d = 0.0;
    for (int k = 1; k < 1000; k++) {
        const double a = 0.5 * k;
        d = x + a * d;
        if (d == 0.0) d = kTiny;
        c = x + a / c;
        if (c == 0.0) c = kTiny;
        d = 1.0 / d;
        const double delta = c * d;
        f *= delta;
        if (std::fabs(delta - 1.0) < kEps) break;
    }
    return std::exp(-x * x) * kOneOverSqrtPi / f;
}

bool PIV_Data2D::allocTags() {
    try {
        m_validationTags.assign(m_nodeCount, 0);
    } catch (const std::bad_alloc&) {
        m_validationTags.clear();
        return false;
    }
    return true;
}

bool PIV_Data2D::validate(const OUTLIER_CFG& cfg, bool force) {
    m_params.outlier = cfg;
    if (isNull()) return m_error.handleError(PIVerror::DATA_IS_NULL, "validate()"), false;
    if (!m_rawData) return false;
    if (!force && m_skipValidation) {
        // The caller validated this field already (e.g. between passes).
        m_validated = true;
        m_needsValidation = m_skipValidation = false;
        return true;
    }
    if (force) m_skipValidation = false;
    m_validated = true;
    m_needsConversion = true;
    m_converted = false;
    if (!cfg.Enable) return true;
    if (force) {
        // Start over from the raw result so that validation can be repeated
        // with other settings; the user's own edits stand.
        for (unsigned long k = 0; k < m_nodeCount; k++) {
            PIV_VECTOR& v = m_vectors[k];
            if (v.flag & VECTOR_EDITED) continue;
            v.dx = v.peak[0].x;
            v.dy = v.peak[0].y;
            if (v.peak[0].x == 0.0f && v.peak[0].y == 0.0f) {
                v.flag = VECTOR_OUTLIER;
                v.count = 0;
            } else {
                v.flag = VECTOR_ENABLED;
            }
        }
    }
    const int outliers = validatePivData(cfg);
    if (DebugLevel() >= 3) {
        auto mark = [](bool on) { return on ? "[on] " : "[off]"; };
        DebugPrintExt(3,
                      "PIV_Data2D::validatePivData()\n  %s  Z-score < %g \n  %s  Chauvenet "
                      "criterion < %g \n  %s  Displacement < %g\n  %s  Difference < %g\n  %s  "
                      "Median < %g\n  %s  Normalized median < %g (noise %g)\n  %s  Dynamic mean "
                      "%g, %g\n  %s  Correlation > %g\n  %s  SNR > %g\n  %s  Peak ratio > %g\n  "
                      "%s  Global histogram\n  %s  Other peaks\n  %s  Interpolation",
                      mark(cfg.CheckZScore), double(cfg.ZScoreThreshold), mark(cfg.CheckChauvenet),
                      double(cfg.ChauvenetThreshold), mark(cfg.CheckDisplacement),
                      double(cfg.MaxDisplacement), mark(cfg.CheckDifference),
                      double(cfg.MaxDifference), mark(cfg.CheckMedian), double(cfg.MedianThreshold),
                      mark(cfg.CheckNormalizedMedian), double(cfg.NormalizedMedianThreshold),
                      double(cfg.NormalizedMedianNoiseFloor), mark(cfg.CheckDynMean),
                      double(cfg.DynMeanC1), double(cfg.DynMeanC2), mark(cfg.CheckCorrelation),
                      double(cfg.MinCorrelation), mark(cfg.CheckSNR), double(cfg.MinSNR),
                      mark(cfg.CheckPeakRatio), double(cfg.MinPeakRatio), mark(cfg.CheckGlobalHist),
                      mark(cfg.TryOtherPeaks), mark(cfg.InterpolateOutliers));
        for (int h = 0; h < PIV::MaxGlobalHistROI(); h++) {
            const GLOBALHIST_ROI& r = cfg.GlobalHist[h];
            if (r.type2)
                DebugPrintExt(3, "       Hist%d %g < X < %g  %g < Y < %g", h + 1, double(r.xMin),
                              double(r.xMax), double(r.yMin), double(r.yMax));
        }
        if (m_3C)
            DebugPrintExt(3, "  %s  3C-Residuals < %g", mark(cfg.CheckResiduals),
                          double(cfg.MaxResiduals));
        DebugPrintExt(3, " ===> detected %d outliers\n", outliers);
    }
    m_validated = true;
    m_needsValidation = false;
    m_needsConversion = true;
    return true;
}

int PIV_Data2D::validatePivData(const OUTLIER_CFG& cfg) {
    m_params.outlier = cfg;
    if (!cfg.Enable) return 0;
    if (isNull()) return m_error.handleError(PIVerror::DATA_IS_NULL, "validatePivData()"), 0;
    if (!allocTags()) {
        m_error.handleError(PIVerror::ALLOCATION_FAILED, "validatePivData()");
        return -1;
    }
    unsigned char* tags = m_validationTags.data();
    doStatistics();
    const double percent = 100.0 / double(m_nodeCount);
    int lastReplaced = -1, lastInterpolated = -1, lastRejected = -1;
    for (int pass = 1;; pass++) {
        DebugPrintExt(1, "Pass%d of %d : validatePivData()", pass, cfg.NumberOfPasses);
        const int n = detectOutliers(tags, pass);
        int replaced = 0, interpolated = 0;
        if (n > 0) {
            const bool otherPeaks = cfg.TryOtherPeaks && pass < cfg.NumberOfPasses &&
                                    m_multiplePeaks && pass < m_numberOfPeaks &&
                                    pass < PIV::MaxCorrelationPeaks();
            if (otherPeaks) {
                for (unsigned long k = 0; k < m_nodeCount; k++) {
                    if (tags[k] <= 7) continue;
                    PIV_VECTOR& v = m_vectors[k];
                    const PIV_PEAK& p = v.peak[pass];
                    tags[k] = 0;
                    if (p.x == 0.0f && p.y == 0.0f) {
                        v.flag = VECTOR_OUTLIER;
                        v.count = 0;
                        continue;
                    }
                    v.dx = p.x;
                    v.dy = p.y;
                    v.dz = 0.0f;
                    v.flag = VECTOR_ENABLED | VECTOR_LOWER_PEAK;
                    v.count = 1;
                    replaced++;
                }
                DebugPrintExt(2, "  TryOtherPeak(%d) --> %d replaced", pass + 1, replaced);
                DebugPrintExt(1, "  ---> %d other peaks (%.1f%%)", replaced, replaced * percent);
            }
            if (cfg.InterpolateOutliers) {
                interpolated = std::max(interpolateOutliers(false), 0);
                DebugPrintExt(1, "  ---> %d interpolated (%.1f%%)", interpolated,
                              interpolated * percent);
            }
            if (!cfg.TryOtherPeaks && !cfg.InterpolateOutliers)
                DebugPrintExt(1, "  ---> %d deactivated (%.1f%%)", n, n * percent);
        }
        if (n == 0) break;
        if (replaced == lastReplaced && interpolated == lastInterpolated && n == lastRejected &&
            pass > m_numberOfPeaks)
            break;
        lastReplaced = replaced;
        lastInterpolated = interpolated;
        lastRejected = n;
        // The next pass tests against the corrected field.
        doStatistics();
        if (pass >= cfg.NumberOfPasses) break;
    }
    DebugPrintExt(1, "validatePivData() ---> All done");
    m_validationTags.clear();
    m_validationTags.shrink_to_fit();
    int count = 0;
    for (unsigned long k = 0; k < m_nodeCount; k++)
        if (m_vectors[k].flag & (VECTOR_OUTLIER | VECTOR_INTERPOLATED | VECTOR_LOWER_PEAK)) count++;
    return count;
}

int PIV_Data2D::detectOutliers(unsigned char* tags, int pass) {
    const OUTLIER_CFG& cfg = m_params.outlier;
    if (m_grid.nodes.width < 1 || m_grid.nodes.height < 1 || !cfg.Enable) return 0;
    if (isNull()) return m_error.handleError(PIVerror::DATA_IS_NULL, "detectOutliers()"), 0;
    if (!tags) {
        m_error.setMessage("detectOutliers() - no tags area");
        return m_error.handleError(PIVerror::OPERATION_FAILED, "detectOutliers()"), 0;
    }
    std::memset(tags, 0, m_nodeCount);
    checkZeroLength(tags);
    checkGradient(tags);
    doChauvenetTest(tags);
    doZScoreTest(tags);
    if (cfg.CheckNormalizedMedian)
        checkNormalizedMedian(tags);
    else if (cfg.CheckMedian)
        checkMedian(tags);
    checkDynMean(tags);
    checkGlobalHist(tags);
    checkSNR(tags);
    checkMagnitude(tags);
    checkPeakRatio(tags, pass);
    checkMinCorrelation(tags, pass);
    if (m_3C) check3CResiduals(tags, pass);
    int count = 0;
    for (unsigned long k = 0; k < m_nodeCount; k++) {
        if (tags[k] <= 7) continue;
        Reject(m_vectors[k]);
        count++;
    }
    DebugPrintExt(2, "  detectOutliers() - %d questionable vectors", count);
    return count;
}

namespace {

// The shared frame of the tests that look at one node at a time: the guard
// for a missing tags array, the rejection and the line of the log.
template <typename Test>
int RunNodeTest(PIV_VECTOR* vectors, unsigned long nodes, unsigned char* tags, PIVerror& error,
                const char* name, Test&& rejects) {
    if (!tags) {
        error.setMessage("%s - no tags area", name);
        error.handleError(PIVerror::OPERATION_FAILED, name);
        return 0;
    }
    int count = 0;
    for (unsigned long k = 0; k < nodes; k++) {
        if (!rejects(vectors[k])) continue;
        tags[k] = PIV::Outliers::kRejected;
        Reject(vectors[k]);
        count++;
    }
    return count;
}

bool Edited(const PIV_VECTOR& v) {
    return (v.flag & VECTOR_EDITED) != 0;
}

}  // namespace

int PIV_Data2D::checkZeroLength(unsigned char* tags) {
    const OUTLIER_CFG& cfg = m_params.outlier;
    if (!cfg.CheckDisplacement || !(cfg.MaxDisplacement > 0.0f) || isNull()) return 0;
    if (!tags) {
        m_error.setMessage("checkZeroLength() - no tags area");
        return m_error.handleError(PIVerror::OPERATION_FAILED, "checkZeroLength()"), 0;
    }
    int count = 0;
    for (unsigned long k = 0; k < m_nodeCount; k++) {
        PIV_VECTOR& v = m_vectors[k];
        if (Edited(v) || v.dx * v.dx + v.dy * v.dy >= 1e-7f) continue;
        // A vector of no length is most likely a window without particles.
        v.flag = uint8_t((v.flag & ~13) | 12);
        tags[k] = PIV::Outliers::kRejected;
        count++;
    }
    DebugPrintExt(2, "  checkZeroVectors() %d diabled vectors", count);
    return count;
}

int PIV_Data2D::checkMagnitude(unsigned char* tags) {
    const OUTLIER_CFG& cfg = m_params.outlier;
    const float t = cfg.MaxDisplacement;
    if (!cfg.CheckDisplacement || !(t > 0.0f) || isNull()) return 0;
    const int count = RunNodeTest(
        m_vectors.data(), m_nodeCount, tags, m_error, "checkMagnitude()",
        [t](const PIV_VECTOR& v) { return !Edited(v) && v.dx * v.dx + v.dy * v.dy > t * t; });
    DebugPrintExt(2, "  checkMagnitude(%g) %d bad vectors", double(t), count);
    return count;
}

int PIV_Data2D::doZScoreTest(unsigned char* tags) {
    const OUTLIER_CFG& cfg = m_params.outlier;
    const float t = cfg.ZScoreThreshold;
    if (!cfg.CheckZScore || !(t > 0.0f) || isNull()) return 0;
    const PIV_VECTOR mean = m_stats[2], dev = m_stats[3];
    const int count = RunNodeTest(
        m_vectors.data(), m_nodeCount, tags, m_error, "doZScoreTest()", [&](const PIV_VECTOR& v) {
            if (Edited(v)) return false;
            return (dev.dx > 0.0f && std::fabs(v.dx - mean.dx) / dev.dx > t) ||
                   (dev.dy > 0.0f && std::fabs(v.dy - mean.dy) / dev.dy > t);
        });
    DebugPrintExt(2, "  doZScoreTest(%g) %d bad vectors", double(t), count);
    return count;
}

int PIV_Data2D::doChauvenetTest(unsigned char* tags) {
    const OUTLIER_CFG& cfg = m_params.outlier;
    const double t = cfg.ChauvenetThreshold;
    if (!cfg.CheckChauvenet || !(t > 0.0) || isNull()) return 0;
    const PIV_VECTOR mean = m_stats[2], dev = m_stats[3];
    // Expected number of nodes at least this far out in a normal sample.
    const double n = double(m_nodeCount);
    auto improbable = [&](float value, float mu, float sigma) {
        return sigma > 0.0f && t > n * PIV::erfc(std::fabs(double(value) - mu) / sigma);
    };
    const int count = RunNodeTest(m_vectors.data(), m_nodeCount, tags, m_error, "doChauvenetTest()",
                                  [&](const PIV_VECTOR& v) {
                                      return !Edited(v) && (improbable(v.dx, mean.dx, dev.dx) ||
                                                            improbable(v.dy, mean.dy, dev.dy));
                                  });
    DebugPrintExt(2, "  doChauvenetTest(%g) %d bad vectors", t, count);
    return count;
}

int PIV_Data2D::checkSNR(unsigned char* tags) {
    const OUTLIER_CFG& cfg = m_params.outlier;
    const float t = cfg.MinSNR;
    if (!cfg.CheckSNR || !(t > 0.0f) || isNull()) return 0;
    if (m_numberOfPeaks < 2) return m_error.handleError(PIVerror::CORRUPT_DATA, "checkSNR()"), 0;
    const int count = RunNodeTest(m_vectors.data(), m_nodeCount, tags, m_error, "checkSNR()",
                                  [t](const PIV_VECTOR& v) { return v.snr < t; });
    DebugPrintExt(2, "  checkSNR(%g) %d bad vectors", double(t), count);
    return count;
}

int PIV_Data2D::checkPeakRatio(unsigned char* tags, int pass) {
    const OUTLIER_CFG& cfg = m_params.outlier;
    const float t = cfg.MinPeakRatio;
    if (!cfg.CheckPeakRatio || !(t > 0.0f) || pass != 1) return 0;
    if (isNull()) return m_error.handleError(PIVerror::DATA_IS_NULL, "checkDynMean()"), 0;
    if (m_numberOfPeaks < 2)
        return m_error.handleError(PIVerror::CORRUPT_DATA, "checkPeakRatio()"), 0;
    const float t2 = t * t;
    const int count =
        RunNodeTest(m_vectors.data(), m_nodeCount, tags, m_error, "checkPeakRatio()",
                    [t2](const PIV_VECTOR& v) { return v.peak[1].value * t2 > v.peak[0].value; });
    DebugPrintExt(2, "  checkPeakRatio(%g) %d bad vectors", double(t2), count);
    return count;
}

int PIV_Data2D::checkMinCorrelation(unsigned char* tags, int pass) {
    const OUTLIER_CFG& cfg = m_params.outlier;
    const float t = cfg.MinCorrelation;
    if (!cfg.CheckCorrelation || !(t > 0.0f) || pass > m_numberOfPeaks || isNull()) return 0;
    if (m_numberOfPeaks < 2)
        return m_error.handleError(PIVerror::CORRUPT_DATA, "checkMinCorrelation()"), 0;
    const int count = RunNodeTest(m_vectors.data(), m_nodeCount, tags, m_error,
                                  "checkMinCorrelation()", [t](const PIV_VECTOR& v) {
                                      return v.snr > 0.0f && (v.flag & VECTOR_ENABLED) &&
                                             t * t > v.snr * v.meanSquaredCorr;
                                  });
    DebugPrintExt(2, "  checkMinCorrelation(%g) %d bad vectors", double(t), count);
    return count;
}

int PIV_Data2D::check3CResiduals(unsigned char* tags, int pass) {
    const OUTLIER_CFG& cfg = m_params.outlier;
    const float t = cfg.MaxResiduals;
    if (!cfg.CheckResiduals || !(t > 0.0f) || pass > m_numberOfPeaks || isNull()) return 0;
    const int count = RunNodeTest(
        m_vectors.data(), m_nodeCount, tags, m_error, "check3CResiduals()",
        [t](const PIV_VECTOR& v) { return (v.flag & VECTOR_ENABLED) && v.residual > t; });
    DebugPrintExt(2, "  check3CResiduals(%g) %d bad vectors", double(t), count);
    return count;
}

int PIV_Data2D::checkGlobalHist(unsigned char* tags) {
    const OUTLIER_CFG& cfg = m_params.outlier;
    if (!cfg.CheckGlobalHist || isNull()) return 0;
    if (!tags) {
        m_error.setMessage("checkGlobalHist() - no tags area");
        return m_error.handleError(PIVerror::OPERATION_FAILED, "checkGlobalHist()"), 0;
    }
    // The windows are drawn about the displacement the evaluation expects.
    const float offX = float(m_params.eval.SampleOffset.x);
    const float offY = float(m_params.eval.SampleOffset.y);
    for (int h = 0; h < PIV::MaxGlobalHistROI(); h++) {
        const GLOBALHIST_ROI& r = cfg.GlobalHist[h];
        const float xmin = std::min(r.xMin, r.xMax), xmax = std::max(r.xMin, r.xMax);
        const float ymin = std::min(r.yMin, r.yMax), ymax = std::max(r.yMin, r.yMax);
        if (!r.type1) {
            for (unsigned long k = 0; k < m_nodeCount; k++) {
                if (tags[k] & 1) continue;
                const PIV_VECTOR& v = m_vectors[k];
                const bool inside = v.dx >= xmin + offX && v.dx <= xmax + offX &&
                                    v.dy >= ymin + offY && v.dy <= ymax + offY;
                // A node the first window rejected stays rejected, whatever
                // the later windows say.
                if (inside)
                    tags[k] |= 1;
                else
                    tags[k] = PIV::Outliers::kRejected;
            }
        } else {
            const float a = (xmax - xmin) / 2, b = (ymax - ymin) / 2;
            if (a == 0.0f || b == 0.0f) continue;
            const float cx = xmin + a + offX, cy = ymin + b + offY;
            for (unsigned long k = 0; k < m_nodeCount; k++) {
                const PIV_VECTOR& v = m_vectors[k];
                if ((tags[k] & 1) || Edited(v)) continue;
                if (std::hypot((v.dx - cx) / a, (v.dy - cy) / b) > 1.0f)
                    tags[k] = PIV::Outliers::kRejected;
                else
                    tags[k] |= 1;
            }
        }
    }
    int count = 0;
    for (unsigned long k = 0; k < m_nodeCount; k++) {
        if (tags[k] <= 7) continue;
        Reject(m_vectors[k]);
        count++;
    }
    DebugPrintExt(2, "  GlobalHist() %d bad vectors", count);
    return count;
}

int PIV_Data2D::validateAgainstMean(const PIV_DataBase* mean, const PIV_DataBase* stdDev,
                                    float factor) {
    if (!haveRawData())
        return m_error.handleError(PIVerror::CORRUPT_DATA, "validateAgainstMean()"), -1;
    if (!mean || mean->isNull()) {
        m_error.setMessage("validateAgainstMean() - mean data");
        return m_error.handleError(PIVerror::DATA_IS_NULL, "validateAgainstMean()"), -1;
    }
    if (!stdDev || stdDev->isNull()) {
        m_error.setMessage("validateAgainstMean() - std.dev. data");
        return m_error.handleError(PIVerror::DATA_IS_NULL, "validateAgainstMean()"), -1;
    }
    const SIZE3D& n = m_grid.nodes;
    auto same = [&n](const PIV_DataBase* o) {
        const SIZE3D& m = o->grid().nodes;
        return m.width == n.width && m.height == n.height && m.depth == n.depth;
    };
    const unsigned long plane = static_cast<unsigned long>(n.width) * n.height;
    if (!same(mean) || !same(stdDev) || mean->nodeCount() < long(plane) ||
        stdDev->nodeCount() < long(plane) || m_nodeCount < plane)
        return m_error.handleError(PIVerror::GRID_MISMATCH, "validateAgainstMean()"), -1;
    const PIV_VECTOR* mu = mean->data();
    const PIV_VECTOR* sd = stdDev->data();
    unsigned long count = 0;
    for (unsigned long k = 0; k < plane; k++) {
        PIV_VECTOR& v = m_vectors[k];
        if (!(v.flag & VECTOR_ENABLED)) continue;
        const bool far = (sd[k].dx > 0.0f && std::fabs(v.dx - mu[k].dx) / sd[k].dx > factor) ||
                         (sd[k].dy > 0.0f && std::fabs(v.dy - mu[k].dy) / sd[k].dy > factor);
        if (!far) continue;
        v.flag = uint8_t((v.flag | VECTOR_OUTLIER) & ~VECTOR_ENABLED);
        count++;
    }
    DebugPrintExt(1, "PIV_Data2D::validateAgainstMean() - disabled %lu vectors", count);
    return int(count);
}
