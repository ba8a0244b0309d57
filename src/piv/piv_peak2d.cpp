// The peak detector: search mask and weights, the peak searches and their
// ranking, the fit chain and the three-point fits. The further fits live in
// piv_peak2d_fits.cpp.
#include "piv_peak2d.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "piv_messages.h"
#include "piv_peak2d_lsq.h"
#include "piv_peak2d_simd.h"

namespace {

// The words of candidate bits of a row, one bit a column.
size_t CandidateWords(int width) {
    return (size_t(std::max(width, 0)) + 63) / 64;
}

// The block of PIVEVAL_CFG from ROI_Size to ROI that decides the search.
bool SamePeakSettings(const PIVEVAL_CFG& a, const PIVEVAL_CFG& b) {
    const size_t begin = offsetof(PIVEVAL_CFG, ROI_Size);
    const size_t end = offsetof(PIVEVAL_CFG, ROI) + sizeof(bool);
    return std::memcmp(reinterpret_cast<const char*>(&a) + begin,
                       reinterpret_cast<const char*>(&b) + begin, end - begin) == 0;
}

// The vertex of the parabola through (-1, a), (0, b), (1, c), as an offset
// from the middle point. False when no vertex exists.
inline bool Parabolic3PtFit(float a, float b, float c, float& result) {
    if (a == c) {
        result = 0.0f;
        return a != b;
    }
    const float d = a - 2.0f * b + c;
    if (d == 0.0f) {
        result = 0.0f;
        return false;
    }
    result = (a - c) / (2.0f * d);
    return true;
}

// The cells of a 3x3 neighbourhood in the order of CORR_PEAK_DATA::value.
const int kNeighbourRow[9] = {0, -1, 1, 0, 0, -1, 1, -1, 1};
const int kNeighbourCol[9] = {0, 0, 0, 1, -1, -1, -1, 1, 1};

}  // namespace

SIZE2D PIV::PeakSearchHalf(const PIVEVAL_CFG& cfg, const SIZE2D& size) {
    int hx = std::max(cfg.ROI_Size.width, 0), hy = std::max(cfg.ROI_Size.height, 0);
    if (2 * hx > size.width) hx = size.width / 2;
    if (2 * hy > size.height) hy = size.height / 2;
    return SIZE2D{hx, hy};
}

bool PIV::PeakFitNeedsPlane(int fitType) {
    return fitType == PEAKFIT_CENTROID || fitType == PEAKFIT_WHITTAKER ||
           fitType == PEAKFIT_NONLIN_GAUSS;
}

PIV_PeakDetect2D::PIV_PeakDetect2D() : m_error("PIV_PeakDetect2D") {
    if (PIV::MaxCorrelationPeaks() != 3)
        DebugPrint(
            "Possible internal problem with correlation peak detector (File: '%s' Line '%d')",
            __FILE__, __LINE__);
    m_fitSize = std::clamp(m_cfg.Size, 3, 20);
    m_fitRadius = (m_fitSize - 1) / 2;
}

bool PIV_PeakDetect2D::setPivEvalCfg(const PIVEVAL_CFG& cfg) {
    const bool changed = !SamePeakSettings(cfg, m_cfg) || cfg.Size != m_cfg.Size ||
                         cfg.FFTSize.width != m_cfg.FFTSize.width ||
                         cfg.FFTSize.height != m_cfg.FFTSize.height;
    m_cfg = cfg;
    int size = std::min(cfg.Size, 20);
    if (size < 3) {
        m_error.setMessage("setPivEvalCfg() - invalid peak fit size: %d", size);
        m_error.handleError(PIVerror::INVALID_PEAKFIT_PARAMETER, "setPivEvalCfg()");
        size = 3;
    }
    m_fitSize = size;
    m_fitRadius = (m_fitSize - 1) / 2;
    // The mask of the size last prepared or searched, which the next search
    // of that size takes without looking at the settings again.
    if (changed && m_maskSize.width > 0 && m_maskSize.height > 0) rebuildMaskAndWeights(m_maskSize);
    return changed;
}

bool PIV_PeakDetect2D::needAutoShape() const {
    return m_cfg.Type == PIV::PEAKFIT_NONLIN_GAUSS && !m_haveAutoShape;
}

bool PIV_PeakDetect2D::prepareFor(const SIZE2D& size) {
    if (size.width < 1 || size.height < 1) return true;
    try {
        if (size.width != m_maskSize.width || size.height != m_maskSize.height)
            rebuildMaskAndWeights(size);
        const size_t longest = size_t(std::max(size.width, size.height));
        const size_t words = CandidateWords(size.width);
        if (m_candidates.size() < words) m_candidates.assign(words, 0);
        if (m_line.size() < longest) m_line.resize(longest);
        // The largest fit gathers a disc of radius kMaxFitRadius.
        constexpr int kMaxFitPoints = (2 * kMaxFitRadius + 1) * (2 * kMaxFitRadius + 1);
        m_fitPoints.reserve(kMaxFitPoints);
        m_lm.reserve(kMaxFitPoints, 6);
        return true;
    } catch (const std::bad_alloc&) {
        m_error.setMessage("prepareFor() - scratch of %dx%d planes", size.width, size.height);
        m_error.handleError(PIVerror::ALLOCATION_FAILED, "prepareFor()");
        return false;
    }
}

void PIV_PeakDetect2D::rebuildMaskAndWeights(const SIZE2D& size) {
    const int w = size.width, h = size.height;
    const SIZE2D half = PIV::PeakSearchHalf(m_cfg, size);
    const int hx = half.width, hy = half.height;
    m_mask.assign(size_t(w) * size_t(h), 0);
    for (int row = 0; row < h; row++) {
        const bool rowIn = row <= hy || row >= h - hy;
        if (!rowIn) continue;
        for (int col = 0; col < w; col++)
            m_mask[size_t(row) * w + col] = (col <= hx || col >= w - hx) ? 1 : 0;
    }
    m_maskSize = size;
    m_maskHalf = SIZE2D{hx, hy};

    // The overlap of two windows shifted by i cells is (N - i) / N: the
    // weights undo that loss so that a displaced peak is not pulled inward.
    auto weights = [](std::vector<float>& table, int n) {
        table.assign(size_t(n), 1.0f);
        for (int i = 0; i <= n / 2 && i < n; i++) table[i] = float(n) / float(n - i);
        for (int i = n - 1; i >= n - n / 2 + 1; i--) table[i] = float(n) / float(i);
    };
    weights(m_colWeights, w);
    weights(m_rowWeights, h);
}

float PIV_PeakDetect2D::planeAt(int row, int col) const {
    const int w = m_size.width, h = m_size.height;
    row %= h;
    if (row < 0) row += h;
    col %= w;
    if (col < 0) col += w;
    return m_plane[size_t(row) * w + col];
}

float PIV_PeakDetect2D::weightAt(int row, int col) const {
    const int w = m_size.width, h = m_size.height;
    row %= h;
    if (row < 0) row += h;
    col %= w;
    if (col < 0) col += w;
    return m_rowWeights[row] * m_colWeights[col];
}

bool PIV_PeakDetect2D::findOffsetPeaks(const float* plane, const SIZE2D& size, POINT2D offset,
                                       int mode, bool autocorrelationMode) {
    const POINT2D saved = m_offset;
    m_offset = offset;
    const bool ok = findPeaksOrThrow(plane, size, mode, autocorrelationMode);
    m_offset = saved;
    return ok;
}

bool PIV_PeakDetect2D::findPeaks(const float* plane, const SIZE2D& size, int mode,
                                 bool autocorrelationMode) {
    m_offset = POINT2D{m_cfg.SampleOffset.x, m_cfg.SampleOffset.y};
    return findPeaksOrThrow(plane, size, mode, autocorrelationMode);
}

bool PIV_PeakDetect2D::findScannedPeaks(const PIV_PEAK_SCAN& scan, const SIZE2D& size, int mode,
                                        bool autocorrelationMode) {
    m_offset = POINT2D{m_cfg.SampleOffset.x, m_cfg.SampleOffset.y};
    try {
        if (size.width < 4 || size.height < 4) throw PIVerror::BAD_SAMPLE_SIZE;
        if (PIV::PeakFitNeedsPlane(m_cfg.Type)) throw PIVerror::INVALID_PEAKFIT_PARAMETER;
        if (scan.count < 0 || scan.count > 3) throw PIVerror::PEAKFIT_FAILED;
        for (int i = 0; i < scan.count; i++)
            if (scan.row[i] < 0 || scan.row[i] >= size.height || scan.col[i] < 0 ||
                scan.col[i] >= size.width)
                throw PIVerror::PEAKFIT_FAILED;
        m_plane = nullptr;
        m_scan = scan;
        fitScan(size, mode, autocorrelationMode);
        return true;
    } catch (PIVerror::ErrorType code) {
        if (DebugLevel() >= 3) m_error.handleError(code, "findScannedPeaks()");
        return false;
    } catch (const std::bad_alloc&) {
        m_error.handleError(PIVerror::ALLOCATION_FAILED, "findScannedPeaks()");
        return false;
    }
}

bool PIV_PeakDetect2D::findPeaksOrThrow(const float* plane, const SIZE2D& size, int mode,
                                        bool autocorrelationMode) {
    try {
        if (!plane) throw PIVerror::INVALID_POINTER;
        if (size.width < 4 || size.height < 4) throw PIVerror::BAD_SAMPLE_SIZE;
        m_plane = plane;
        if (size.width != m_maskSize.width || size.height != m_maskSize.height)
            rebuildMaskAndWeights(size);
        m_size = size;
        if (mode == PIV::PEAK_MULTIPLE)
            findMultiplePeaks(m_cfg.ROI);
        else
            findSinglePeak(m_cfg.ROI);
        fitScan(size, mode, autocorrelationMode);
        return true;
    } catch (PIVerror::ErrorType code) {
        // A failed window is routine in an evaluation; it is news only when
        // somebody is looking for it.
        if (DebugLevel() >= 3) m_error.handleError(code, "findPeaks()");
        return false;
    } catch (const std::bad_alloc&) {
        // The scratch of a new window size or fit; this worker's own error.
        m_error.handleError(PIVerror::ALLOCATION_FAILED, "findPeaks()");
        return false;
    }
}

void PIV_PeakDetect2D::fitScan(const SIZE2D& size, int mode, bool autocorrelationMode) {
    if (size.width != m_maskSize.width || size.height != m_maskSize.height)
        rebuildMaskAndWeights(size);
    m_size = size;
    m_index = 0;
    m_min = m_scan.min;
    m_max = m_scan.max;
    m_meanSquare = m_scan.meanSquare;
    for (CORR_PEAK_DATA& p : m_peaks) p.clear();
    const bool multiple = mode == PIV::PEAK_MULTIPLE;
    // The single search always has its cell.
    m_count = multiple ? m_scan.count : 1;
    for (int i = 0; i < m_count; i++) {
        CORR_PEAK_DATA& p = m_peaks[i];
        p.height = m_scan.value[i][0];
        p.y = float(m_scan.row[i]);
        p.x = float(m_scan.col[i]);
    }
    if (m_meanSquare != 0.0f) {
        for (int i = 0; i < 3; i++) {
            CORR_PEAK_DATA& p = m_peaks[i];
            // The peaks the single search leaves empty carry its height.
            if (!multiple) p.height = m_peaks[0].height;
            p.snr = p.height * p.height / m_meanSquare;
        }
    }
    if (multiple && DebugLevel() >= 4 && m_min == m_max) {
        DebugPrint("PIV_PeakDetect2D::findMultiplePeaks() - contant value correlation plane!");
        throw PIVerror::PEAKFIT_FAILED;
    }
    if (!doSubPixelFit()) throw PIVerror::PEAKFIT_FAILED;
    if (autocorrelationMode && !findSelfCorrelation()) throw PIVerror::OPERATION_FAILED;
}

void PIV_PeakDetect2D::scanPlane() {
    const size_t n = size_t(m_size.width) * size_t(m_size.height);
    double sum = 0.0;
    PIV::Simd::ScanPlane(m_plane, n, m_scan.min, m_scan.max, sum);
    m_scan.meanSquare = float(sum / double(n));
}

void PIV_PeakDetect2D::findSinglePeak(bool local) {
    scanPlane();
    const int w = m_size.width, h = m_size.height;
    const float* plane = m_plane;
    float best = plane[0];
    int bestRow = 0, bestCol = 0;
    // The first cell in row order that holds the greatest value: a stretch
    // of a row is swept for its greatest value, and only a stretch that beats
    // the best so far is searched for the cell. The search region of a local
    // search is the four corners of the periodic plane, the stretches
    // [0, hx] and [w - hx, w) of the rows within hy of row 0.
    auto sweep = [&](int row, int from, int to) {
        if (to <= from) return;
        const float* line = plane + size_t(row) * w;
        const float top = PIV::Simd::GreatestOf(line + from, size_t(to - from), best);
        if (!(top > best)) return;
        int col = from;
        while (!(line[col] == top)) col++;
        best = line[col];
        bestRow = row;
        bestCol = col;
    };
    const int hx = m_maskHalf.width, hy = m_maskHalf.height;
    for (int row = 0; row < h; row++) {
        if (!local) {
            sweep(row, 0, w);
        } else if (row <= hy || row >= h - hy) {
            sweep(row, 0, std::min(hx + 1, w));
            sweep(row, std::max(w - hx, hx + 1), w);
        }
    }
    m_scan.count = 1;
    m_scan.row[0] = bestRow;
    m_scan.col[0] = bestCol;
    storeNeighbourhoods();
}

void PIV_PeakDetect2D::findMultiplePeaks(bool local) {
    scanPlane();
    const int w = m_size.width, h = m_size.height;
    const float* plane = m_plane;
    const size_t words = CandidateWords(w);
    if (m_candidates.size() < words) m_candidates.assign(words, 0);
    uint64_t* candidate = m_candidates.data();
    float height[3] = {0.0f, 0.0f, 0.0f};
    int count = 0;
    for (int row = 0; row < h; row++) {
        const float* line = plane + size_t(row) * w;
        const float* up = plane + size_t(row == 0 ? h - 1 : row - 1) * w;
        const float* down = plane + size_t(row == h - 1 ? 0 : row + 1) * w;
        // A candidate is strictly above its four neighbours, the plane being
        // periodic; the test runs without branches over the row, the ranking
        // only over the few cells that pass it, taken from the row's bits in
        // column order. Once three peaks are held, only a cell above the
        // third can change them: the row's test leaves out the rest.
        const float floor = count == 3 ? height[2] : -HUGE_VALF;
        PIV::Simd::PeakCandidates(line, up, down, size_t(w), floor, candidate);
        if (line[0] > line[w - 1] && line[0] > line[1] && line[0] > up[0] && line[0] > down[0])
            candidate[0] |= 1;
        if (line[w - 1] > line[w - 2] && line[w - 1] > line[0] && line[w - 1] > up[w - 1] &&
            line[w - 1] > down[w - 1])
            candidate[(w - 1) / 64] |= uint64_t(1) << ((w - 1) % 64);
        for (size_t word = 0; word < words; word++) {
            for (uint64_t bits = candidate[word]; bits != 0; bits &= bits - 1) {
                const int col = int(word * 64) + __builtin_ctzll(bits);
                const float v = line[col];
                // Rank: a candidate takes the place of the first peak it
                // strictly exceeds, so of equal peaks the one found first
                // stays ahead.
                if (count == 3 && !(v > height[2])) continue;
                if (local && !inMask(row, col)) continue;
                int place = 0;
                while (place < count && !(v > height[place])) place++;
                for (int k = std::min(count, 2); k > place; k--) {
                    height[k] = height[k - 1];
                    m_scan.row[k] = m_scan.row[k - 1];
                    m_scan.col[k] = m_scan.col[k - 1];
                }
                height[place] = v;
                m_scan.row[place] = row;
                m_scan.col[place] = col;
                count = std::min(count + 1, 3);
            }
        }
    }
    m_scan.count = count;
    storeNeighbourhoods();
}

void PIV_PeakDetect2D::storeNeighbourhoods() {
    for (int i = 0; i < 3; i++)
        for (int k = 0; k < 9; k++)
            m_scan.value[i][k] = i < m_scan.count ? planeAt(m_scan.row[i] + kNeighbourRow[k],
                                                            m_scan.col[i] + kNeighbourCol[k])
                                                  : 0.0f;
}

void PIV_PeakDetect2D::getPeakNeighbors3x3(int index, int row, int col, CORR_PEAK_DATA& p) const {
    for (int k = 0; k < 9; k++) {
        p.value[k] = m_scan.value[index][k];
        p.weight[k] = weightAt(row + kNeighbourRow[k], col + kNeighbourCol[k]);
    }
    // The zero-displacement cell has full overlap: weighting it would only
    // tilt its neighbours.
    p.weighted = m_peakWeightingEnabled && !(row == 0 && col == 0);
    const float* v = p.value;
    p.nonPositive = v[1] <= 0.0f || v[2] <= 0.0f || v[3] <= 0.0f || v[4] <= 0.0f;
    if (p.fitPoints == 3) {
        // nw (5) lies between n (1) and w (4), sw (6) between s (2) and w,
        // ne (7) between n and e (3), se (8) between s and e.
        const bool badCorner = v[5] <= 0.0f || v[6] <= 0.0f || v[7] <= 0.0f || v[8] <= 0.0f ||
                               (v[5] > v[1] && v[5] > v[4]) || (v[6] > v[2] && v[6] > v[4]) ||
                               (v[7] > v[1] && v[7] > v[3]) || (v[8] > v[2] && v[8] > v[3]);
        if (badCorner) p.fitPoints = 2;
    }
}

bool PIV_PeakDetect2D::doSubPixelFit() {
    if (m_count == 0) return false;
    const int w = m_size.width, h = m_size.height;
    for (int i = 0; i < m_count; i++) {
        CORR_PEAK_DATA& p = m_peaks[i];
        m_index = i;
        m_peakWeightingEnabled = true;
        const int row = int(p.y + 0.001f);
        const int col = int(p.x + 0.001f);
        p.subX = p.subY = 0.0f;

        bool ok;
        switch (m_cfg.Type) {
            case PIV::PEAKFIT_GAUSS_3X3:
                ok = lsq3x3PeakFit(row, col, i);
                break;
            case PIV::PEAKFIT_PARABOLIC:
                ok = parabolicPeakFit(row, col, i);
                break;
            case PIV::PEAKFIT_CENTROID:
                ok = centroidPeakFit(row, col, i);
                break;
            case PIV::PEAKFIT_WHITTAKER:
                ok = i == 0 ? (whittakerFit(row, col, i) || lsq3x3PeakFit(row, col, i))
                            : lsq3x3PeakFit(row, col, i);
                break;
            case PIV::PEAKFIT_NONLIN_GAUSS:
                if (i != 0) {
                    ok = lsq3x3PeakFit(row, col, i);
                } else if (nonLinearFit(row, col, i)) {
                    ok = true;
                } else if (whittakerFit(row, col, i)) {
                    // A Whittaker fit after a failed Gaussian is not trusted on
                    // its own: the retry below decides.
                    ok = false;
                } else {
                    ok = lsq3x3PeakFit(row, col, i);
                }
                break;
            default:
                ok = stdGaussPeakFit(row, col, i);
                break;
        }
        p.status = ok ? PIV::PEAK_GOOD : PIV::PEAK_FIT_FAILED;
        if (ok && std::hypot(p.subX, p.subY) <= 3.0f) continue;

        p.weighted = false;
        switch (m_cfg.Type) {
            case PIV::PEAKFIT_PARABOLIC:
                ok = parabolicPeakFit(row, col, i);
                break;
            case PIV::PEAKFIT_CENTROID:
                ok = centroidPeakFit(row, col, i);
                break;
            case PIV::PEAKFIT_GAUSS_3PT:
                ok = stdGaussPeakFit(row, col, i);
                break;
            default:
                ok = lsq3x3PeakFit(row, col, i);
                break;
        }
        p.status = ok ? PIV::PEAK_GOOD : PIV::PEAK_FIT_FAILED;
        const bool runaway = std::hypot(p.subX, p.subY) > 3.0f;
        if (runaway)
            DebugPrintExt(3,
                          "   Peak %d not converged - (c,r)=(%d,%d)  (cx,cy)=(%6.3f,%6.3f) "
                          "corr=%4.2f  SNR=%5.1f",
                          i, col, row, p.subX, p.subY, p.height, p.snr);
        if (runaway) {
            p.status = PIV::PEAK_FIT_FAILED;
            p.subX = p.subY = 0.0f;
            p.x = float(signedIndex(col, w));
            p.y = float(signedIndex(row, h));
        }
    }
    for (int k = m_count + 1; k < 3; k++) m_peaks[k] = m_peaks[m_count];
    return m_peaks[0].status == PIV::PEAK_GOOD;
}

bool PIV_PeakDetect2D::beginCrossFit(int index, int row, int col) {
    CORR_PEAK_DATA& p = m_peaks[index];
    p.status = PIV::PEAK_NOT_FITTED;
    // A fit that fails leaves the integer peak, never a position of zero
    // that a lower peak would pass on as a displacement.
    p.x = float(signedIndex(col, m_size.width));
    p.y = float(signedIndex(row, m_size.height));
    p.height = 0.0f;
    p.subX = p.subY = 0.0f;
    p.fitPoints = 2;
    if (m_min == m_max) return false;
    getPeakNeighbors3x3(index, row, col, p);
    p.height = p.value[0];
    return true;
}

bool PIV_PeakDetect2D::finishCrossFit(int row, int col, float dx, float dy, CORR_PEAK_DATA& p) {
    const float y = float(signedIndex(row, m_size.height)) + dy;
    const float x = float(signedIndex(col, m_size.width)) + dx;
    p.subX = dx;
    p.subY = dy;
    if (std::fabs(x) >= 0.5f * float(m_size.width) || std::fabs(y) >= 0.5f * float(m_size.height)) {
        p.status = PIV::PEAK_FIT_FAILED;
        return false;
    }
    p.x = x;
    p.y = y;
    p.status = PIV::PEAK_GOOD;
    return true;
}

bool PIV_PeakDetect2D::parabolicPeakFit(int row, int col, int index) {
    if (!beginCrossFit(index, row, col)) return false;
    CORR_PEAK_DATA& p = m_peaks[index];
    float v[5];
    for (int k = 0; k < 5; k++)
        v[k] = m_peakWeightingEnabled ? p.value[k] * p.weight[k] : p.value[k];
    float dy = 0.0f, dx = 0.0f;
    bool ok = Parabolic3PtFit(v[1], v[0], v[2], dy);
    ok = Parabolic3PtFit(v[4], v[0], v[3], dx) && ok;
    if (!finishCrossFit(row, col, dx, dy, p)) return false;
    if (!ok) p.status = PIV::PEAK_FIT_FAILED;
    return ok;
}

bool PIV_PeakDetect2D::stdGaussPeakFit(int row, int col, int index) {
    if (!beginCrossFit(index, row, col)) return false;
    CORR_PEAK_DATA& p = m_peaks[index];
    float c = p.value[0], n = p.value[1], s = p.value[2], e = p.value[3], w = p.value[4];
    if (p.weighted) {
        const float wc = c * p.weight[0], wn = n * p.weight[1], ws = s * p.weight[2],
                    we = e * p.weight[3], ww = w * p.weight[4];
        if (!(wn > wc || ws > wc || we > wc || ww > wc)) {
            c = wc;
            n = wn;
            s = ws;
            e = we;
            w = ww;
        }
    }
    // One axis: the Gaussian through three points, or the one-sided rules
    // where a neighbour has no logarithm. Only a two-sided fit counts as good.
    auto axis = [c](float lower, float higher, float& shift) {
        if (lower > 0.0f && higher > 0.0f)
            return Parabolic3PtFit(PIV::SafeLog(lower), PIV::SafeLog(c), PIV::SafeLog(higher),
                                   shift);
        if (lower > 0.0f)
            shift = -lower / (lower + c);
        else if (higher > 0.0f)
            shift = higher / (c + higher);
        else
            shift = 0.0f;
        return false;
    };
    float dy = 0.0f, dx = 0.0f;
    axis(n, s, dy);
    const bool ok = axis(w, e, dx);
    if (DebugLevel() > 3) {
        if (std::fabs(dx) > 1.0f) DebugPrint("Warning - Subpixel shift for X > 1");
        if (std::fabs(dy) > 1.0f) DebugPrint("Warning - Subpixel shift for Y > 1");
    }
    // The position counts even when the x axis took a one-sided rule; only
    // the result says the fit was not a proper one.
    return finishCrossFit(row, col, dx, dy, p) && ok;
}
