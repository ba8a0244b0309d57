#include "piv_corr2d_direct.h"

#include <algorithm>
#include <cmath>

#include "image2d.h"
#include "piv_corr2d_scan_simd.h"
#include "piv_enums.h"
#include "piv_peak2d_lsq.h"
#include "piv_simd_level.h"

namespace {

// A scan range beyond this asks for planes of millions of cells, each a
// pass over the whole sample: a typing error, refused before allocating.
constexpr int kMaxScanRange = 1024;
constexpr int kMaxSampleSize = 8192;

// The whole offset: half away from zero.
int RoundOffset(float v) {
    return int(std::lround(v));
}

}  // namespace

bool PIV_Corr2D_Scan::setPivEvalCfg(const PIVEVAL_CFG& cfg) {
    m_cfg = cfg;
    return create(SIZE2D{cfg.SampleSize.width, cfg.SampleSize.height},
                  SIZE2D{cfg.ScanRange.width, cfg.ScanRange.height});
}

bool PIV_Corr2D_Scan::create(const SIZE2D& sampleSize, const SIZE2D& scanRange) {
    if (!m_coeffs.empty() && sampleSize.width == m_sampleSize.width &&
        sampleSize.height == m_sampleSize.height && scanRange.width == m_scanRange.width &&
        scanRange.height == m_scanRange.height)
        return true;
    // A failed create leaves no arrays, so that every scan fails after it.
    m_sample.clear();
    m_scanArea.clear();
    m_coeffs.clear();
    m_means.clear();
    m_sampleSize = m_scanRange = m_scanSize = m_planeSize = SIZE2D{0, 0};
    return PIV::Guarded(m_error, "create()", [&] {
        if (scanRange.width < 0 || scanRange.height < 0) throw PIVerror::BAD_PARAMETERS;
        if (sampleSize.width < 1 || sampleSize.height < 1) throw PIVerror::BAD_SAMPLE_SIZE;
        if (scanRange.width > kMaxScanRange || scanRange.height > kMaxScanRange ||
            sampleSize.width > kMaxSampleSize || sampleSize.height > kMaxSampleSize)
            throw PIVerror::ALLOCATION_FAILED;
        const SIZE2D plane{2 * scanRange.width + 1, 2 * scanRange.height + 1};
        const SIZE2D area{sampleSize.width + plane.width, sampleSize.height + plane.height};
        const size_t planeCells = size_t(plane.width) * size_t(plane.height);
        m_sample.assign(size_t(sampleSize.width) * size_t(sampleSize.height), 0.0f);
        m_scanArea.assign(size_t(area.width) * size_t(area.height), 0.0f);
        m_coeffs.assign(planeCells, 0.0f);
        m_means.assign(planeCells, 0.0f);
        m_sampleSize = sampleSize;
        m_scanRange = scanRange;
        m_scanSize = area;
        m_planeSize = plane;
    });
}

bool PIV_Corr2D_Scan::getSamplePosition(POINT2D& pos, POINT2D& posA, POINT2D& posB, FPOINT2D offset,
                                        const SIZE2D& imageSize, PIVerror::ErrorType* why) const {
    auto refuse = [why](PIVerror::ErrorType code) {
        if (why) *why = code;
        return false;
    };
    const int W = imageSize.width, H = imageSize.height;
    const int w = m_sampleSize.width, h = m_sampleSize.height;
    const int rx = m_scanRange.width, ry = m_scanRange.height;
    if (W < 1 || H < 1) return refuse(PIVerror::BAD_IMAGE_SIZE);
    if (w < 1 || h < 1) return refuse(PIVerror::BAD_SAMPLE_SIZE);
    if (!(std::fabs(offset.x) < float(W)) || !(std::fabs(offset.y) < float(H)))
        return refuse(PIVerror::SAMPLE_LARGER_THAN_IMAGE);
    const int tx = RoundOffset(offset.x), ty = RoundOffset(offset.y);
    // Sample and scan area side by side, relative to the sample's corner;
    // wider than the image, no sliding could bring both inside.
    const int areaX = tx - rx, areaY = -ty - ry;
    if (std::max(w, areaX + m_scanSize.width) - std::min(0, areaX) > W ||
        std::max(h, areaY + m_scanSize.height) - std::min(0, areaY) > H)
        return refuse(PIVerror::SAMPLE_LARGER_THAN_IMAGE);
    // dy counts upwards: the second window lies ty rows above the first.
    posA.x = pos.x - w / 2 - tx / 2;
    posB.x = posA.x + tx;
    posA.y = pos.y - h / 2 - (-ty) / 2;
    posB.y = posA.y - ty;
    auto slide = [](int& a, int& b, int& p, int aSize, int areaStart, int areaSize, int limit) {
        const int under = -std::min(a, b + areaStart);
        if (under > 0) {
            a += under;
            b += under;
            p += under;
        }
        const int over = std::max(a + aSize, b + areaStart + areaSize) - limit;
        if (over > 0) {
            a -= over;
            b -= over;
            p -= over;
        }
    };
    slide(posA.x, posB.x, pos.x, w, -rx, m_scanSize.width, W);
    slide(posA.y, posB.y, pos.y, h, -ry, m_scanSize.height, H);
    return true;
}

bool PIV_Corr2D_Scan::fillSample(const Image2D* image, POINT2D corner) {
    return image && !m_sample.empty() &&
           image->fillSample(m_sample.data(), m_sampleSize.width, m_sampleSize.height, corner.x,
                             corner.y);
}

bool PIV_Corr2D_Scan::fillScanArea(const Image2D* image, POINT2D corner) {
    return image && !m_scanArea.empty() &&
           image->fillSample(m_scanArea.data(), m_scanSize.width, m_scanSize.height,
                             corner.x - m_scanRange.width, corner.y - m_scanRange.height);
}

bool PIV_Corr2D_Scan::sampleAndScan(const Image2D* a, const Image2D* b, POINT2D cornerA,
                                    POINT2D cornerB) {
    return PIV::Guarded(m_error, "sampleAndScan()", [&] {
        if (!fillSample(a, cornerA) || !fillScanArea(b, cornerB)) throw PIVerror::SAMPLING_FAILED;
        if (!doScan()) throw PIVerror::INVALID_POINTER;
    });
}

void PIV_Corr2D_Scan::dumpCoeffs(FILE* f) const {
    if (!f || m_coeffs.empty()) return;
    for (int j = 0; j < m_planeSize.height; j++) {
        for (int i = 0; i < m_planeSize.width; i++)
            std::fprintf(f, "%s%g", i ? " " : "",
                         double(m_coeffs[size_t(j) * m_planeSize.width + i]));
        std::fputc('\n', f);
    }
}

int PIV_Corr2D_Scan::bestCell(bool largest) const {
    int best = 0;
    for (int k = 1; k < int(m_coeffs.size()); k++)
        if (largest ? m_coeffs[k] > m_coeffs[best] : m_coeffs[k] < m_coeffs[best]) best = k;
    return best;
}

bool PIV_Corr2D_Scan::fitExtremum(bool largest, FPOINT2D* shift, int* flag) const {
    *flag = VECTOR_NO_RESULT | VECTOR_OUTLIER;
    if (m_coeffs.empty()) return false;
    const int pw = m_planeSize.width, ph = m_planeSize.height;
    const int best = bestCell(largest), col = best % pw, row = best / pw;
    *shift = FPOINT2D{float(col - m_scanRange.width), float(row - m_scanRange.height)};
    if (col == 0 || row == 0 || col == pw - 1 || row == ph - 1) return false;
    auto at = [&](int dr, int dc) {
        return PIV::SafeLog(double(m_coeffs[size_t(row + dr) * pw + (col + dc)]));
    };
    const double v[9] = {at(0, 0),   at(-1, 0), at(1, 0),  at(0, 1), at(0, -1),
                         at(-1, -1), at(1, -1), at(-1, 1), at(1, 1)};
    double sx = 0.0, sy = 0.0;
    // A vertex outside the 3x3 block is no refinement of this cell.
    if (PIV::Lsq3x3Paraboloid(v, sx, sy) == 0.0 || !(std::fabs(sx) <= 1.0) ||
        !(std::fabs(sy) <= 1.0))
        return false;
    shift->x += float(sx);
    shift->y += float(sy);
    *flag = VECTOR_ENABLED;
    return true;
}

bool PIV_Corr2D_MQD::doScan() {
    if (m_coeffs.empty()) return false;
    const PIV::Scan::Windows s{m_sample.data(),   m_sampleSize.width, m_sampleSize.height,
                               m_scanArea.data(), m_scanSize.width,   m_planeSize.width,
                               m_planeSize.height};
    if (PIV_SIMD_Info() > 0)
        PIV::Scan::Mqd(s, m_coeffs.data());
    else
        PIV::Scan::MqdPlain(s, m_coeffs.data());
    return true;
}

bool PIV_Corr2D_MQD::findMinimum(FPOINT2D* shift, float* value, float* mean, int* flag) const {
    FPOINT2D s{0.0f, 0.0f};
    int f = 0;
    const bool ok = fitExtremum(false, &s, &f);
    if (shift) *shift = s;
    if (flag) *flag = f;
    if (m_coeffs.empty()) return false;
    double sum = 0.0;
    for (float c : m_coeffs) sum += c;
    if (value) *value = *std::min_element(m_coeffs.begin(), m_coeffs.end());
    if (mean) *mean = float(sum / double(m_coeffs.size()));
    return ok;
}

bool PIV_Corr2D_Direct::setPivEvalCfg(const PIVEVAL_CFG& cfg) {
    m_mode = cfg.CorrelationMode == PIV::CORR_ERROR_FUNCTION ? PIV::CORR_ERROR_FUNCTION
                                                             : PIV::CORR_DIRECT_CROSS;
    return PIV_Corr2D_Scan::setPivEvalCfg(cfg);
}

bool PIV_Corr2D_Direct::fillSample(const Image2D* image, POINT2D corner) {
    if (!PIV_Corr2D_Scan::fillSample(image, corner)) return false;
    double sum = 0.0;
    for (float v : m_sample) sum += v;
    m_sampleMean = float(sum / double(m_sample.size()));
    return true;
}

bool PIV_Corr2D_Direct::doScan() {
    if (m_coeffs.empty()) return false;
    const PIV::Scan::Windows s{m_sample.data(),   m_sampleSize.width, m_sampleSize.height,
                               m_scanArea.data(), m_scanSize.width,   m_planeSize.width,
                               m_planeSize.height};
    const bool simd = PIV_SIMD_Info() > 0;
    if (m_mode == PIV::CORR_ERROR_FUNCTION)
        (simd ? PIV::Scan::ErrorFunction : PIV::Scan::ErrorFunctionPlain)(s, m_coeffs.data());
    else
        (simd ? PIV::Scan::Cross : PIV::Scan::CrossPlain)(s, m_sampleMean, m_means.data(),
                                                          m_coeffs.data());
    return true;
}

bool PIV_Corr2D_Direct::findMaximum(FPOINT2D* shift, float* corr, float* snr, float* meanSquare,
                                    int* flag) const {
    FPOINT2D s{0.0f, 0.0f};
    int f = 0;
    const bool ok = fitExtremum(true, &s, &f);
    if (shift) *shift = s;
    if (flag) *flag = f;
    if (m_coeffs.empty()) return false;
    double squares = 0.0;
    for (float c : m_coeffs) squares += double(c) * double(c);
    const float ms = float(squares / double(m_coeffs.size()));
    const float height = *std::max_element(m_coeffs.begin(), m_coeffs.end());
    if (corr) *corr = height;
    if (meanSquare) *meanSquare = ms;
    if (snr) *snr = ms != 0.0f ? height * height / ms : 0.0f;
    return ok;
}
