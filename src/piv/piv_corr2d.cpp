#include "piv_corr2d.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "image2d.h"
#include "piv_enums.h"
#include "piv_messages.h"

namespace {

// A failure inside the correlator: the code, where it arose, and whether it
// is routine enough to go unreported.
struct CorrFailure {
    PIVerror::ErrorType code;
    const char* where;
    bool silent;
};

[[noreturn]] void Raise(PIVerror::ErrorType code, const char* where, bool silent = false) {
    throw CorrFailure{code, where, silent};
}

}  // namespace

PIV_Corr2D::PIV_Corr2D() : m_error("PIV_Corr2D") {}

PIV_Corr2D::~PIV_Corr2D() = default;

uint32_t PIV_Corr2D::release() {
    const uint32_t left = --m_refCount;
    if (left == 0) delete this;
    return left;
}

bool PIV_Corr2D::setPivEvalCfg(const PIVEVAL_CFG& cfg) {
    const bool changed = cfg.SampleSize.width != m_fft.width() ||
                         cfg.SampleSize.height != m_fft.height() ||
                         cfg.CorrFilter_Nyquist != m_cfg.CorrFilter_Nyquist ||
                         cfg.CorrFilter_WindowType != m_cfg.CorrFilter_WindowType ||
                         cfg.CorrelationMode != m_cfg.CorrelationMode ||
                         cfg.ScanRange.width != m_cfg.ScanRange.width ||
                         cfg.ScanRange.height != m_cfg.ScanRange.height;
    m_cfg = cfg;
    if (cfg.CorrelationMode == PIV::CORR_MQD)
        m_mqd.setPivEvalCfg(cfg);
    else if (cfg.CorrelationMode > PIV::CORR_MQD)
        m_direct.setPivEvalCfg(cfg);
    // The transform works on the sampled window itself.
    PIVEVAL_CFG fftCfg = cfg;
    fftCfg.FFTSize.width = cfg.SampleSize.width;
    fftCfg.FFTSize.height = cfg.SampleSize.height;
    if (!m_fft.setPivEvalCfg(fftCfg))
        m_error.handleError(PIVerror::FFT_ALLOCATION, "setPivEvalCfg()");
    m_cfg.FFTSize = SIZE3D{m_fft.width(), m_fft.height(), 1};
    const bool peakChanged = m_peak.setPivEvalCfg(m_cfg);
    // The windows of a list are correlated in parallel workers, which must
    // find every buffer in place.
    m_peak.prepareFor(m_fft.size());
    return peakChanged || changed;
}

SIZE2D PIV_Corr2D::getCorrSize() const {
    if (m_cfg.CorrelationMode == PIV::CORR_MQD) return m_mqd.sizeOfCoeffs();
    if (m_cfg.CorrelationMode > PIV::CORR_MQD) return m_direct.sizeOfCoeffs();
    return m_fft.size();
}

SIZE2D PIV_Corr2D::getWinSize() const {
    if (m_cfg.CorrelationMode == PIV::CORR_MQD) return m_mqd.sizeOfSample();
    if (m_cfg.CorrelationMode > PIV::CORR_MQD) return m_direct.sizeOfSample();
    return m_fft.size();
}

SIZE2D PIV_Corr2D::sizeSample1() const {
    return getWinSize();
}

SIZE2D PIV_Corr2D::sizeSample2() const {
    if (m_cfg.CorrelationMode == PIV::CORR_MQD) return m_mqd.sizeOfScanArea();
    if (m_cfg.CorrelationMode > PIV::CORR_MQD) return m_direct.sizeOfScanArea();
    return m_fft.size();
}

int PIV_Corr2D::internalSampleWidth() const {
    if (m_cfg.CorrelationMode >= PIV::CORR_MQD) return getWinSize().width;
    return m_fft.fftWidth();
}

bool PIV_Corr2D::fail(PIVerror::ErrorType code, const char* where) {
    m_lastCode = code;
    if (code != PIVerror::SAMPLE_MASKED) m_error.handleError(code, where);
    return false;
}

void PIV_Corr2D::getSamplePosition(POINT2D& pos, POINT2D& posA, POINT2D& posB, POINT2D offset,
                                   const SIZE2D& imageSize) const {
    const char* where = "getSamplePosition()";
    const int W = imageSize.width, H = imageSize.height;
    const int w = m_fft.width(), h = m_fft.height();
    if (W < 1 || H < 1) Raise(PIVerror::BAD_IMAGE_SIZE, where);
    if (w < 1 || h < 1) Raise(PIVerror::BAD_SAMPLE_SIZE, where);
    if (pos.x < 0 || pos.y < 0 || pos.x >= W || pos.y >= H)
        Raise(PIVerror::SAMPLE_OUTSIDE_IMAGE, where);
    if (std::abs(offset.x) + w >= W || std::abs(offset.y) + h >= H)
        Raise(PIVerror::SAMPLE_LARGER_THAN_IMAGE, where);
    // An odd offset puts the larger half on one image; dy counts upwards, so
    // in y the roles of A and B swap.
    posB.x = pos.x - w / 2 + offset.x / 2;
    posA.x = posB.x - offset.x;
    posA.y = pos.y - h / 2 + offset.y / 2;
    posB.y = posA.y - offset.y;
    // Slide the node into the image rather than drop it.
    auto slide = [](int& a, int& b, int& p, int size, int limit) {
        const int under = -std::min(a, b);
        if (under > 0) {
            a += under;
            b += under;
            p += under;
        }
        const int over = std::max(a, b) + size - limit;
        if (over > 0) {
            a -= over;
            b -= over;
            p -= over;
        }
    };
    slide(posA.x, posB.x, pos.x, w, W);
    slide(posA.y, posB.y, pos.y, h, H);
}

float PIV_Corr2D::maskedSampleFraction(int which) {
    float* mask = which == 2 ? m_fft.mask2() : m_fft.mask1();
    const int w = m_fft.width(), h = m_fft.height(), stride = m_fft.fftWidth();
    // Deliberately the long-standing test: every round counts the top row of
    // the window again, and the first cell is raised by a row stride after
    // each round. The figure is how much of the top row is masked, and the
    // first cell counts as masked from the second round on. Masks drawn by
    // users have been tuned against exactly this.
    long count = 0;
    for (int j = 0; j < h; j++) {
        for (int i = 0; i < w; i++)
            if (mask[i] != 0.0f) count++;
        mask[0] += float(stride);
    }
    return float(count) / float(w * h);
}

void PIV_Corr2D::testMasks(const Image2D* a, const Image2D* maskA, const Image2D* maskB,
                           POINT2D posA, POINT2D posB) {
    const char* where = "sampleAndCrossCorrelateOnceWithMask()";
    if (maskA->numPixels() <= 9) Raise(PIVerror::BAD_IMAGE_SIZE, where);
    const SIZE2D ms = maskA->size2D(), is = a->size2D();
    if (ms.width != is.width || ms.height != is.height) Raise(PIVerror::IMAGE_SIZE_MISMATCH, where);
    const int w = m_fft.width(), h = m_fft.height(), stride = m_fft.fftWidth();
    if (!maskA->fillSample(m_fft.mask1(), w, h, posA.x, posA.y, stride))
        Raise(PIVerror::SAMPLING_FAILED, where);
    if (maskedSampleFraction(1) > 0.5f) Raise(PIVerror::SAMPLE_MASKED, where, true);
    const Image2D* second = maskB ? maskB : maskA;
    if (!second->fillSample(m_fft.mask2(), w, h, posB.x, posB.y, stride))
        Raise(PIVerror::SAMPLING_FAILED, where);
    // The second look reads the first window again, as it always has.
    if (maskedSampleFraction(1) > 0.5f) Raise(PIVerror::SAMPLE_MASKED, where, true);
}

void PIV_Corr2D::fillArray(const Image2D* a, const Image2D* b, POINT2D posA, POINT2D posB) {
    const int w = m_fft.width(), h = m_fft.height(), stride = m_fft.fftWidth();
    if (!a->fillSample(m_fft.sample1(), w, h, posA.x, posA.y, stride) ||
        !b->fillSample(m_fft.sample2(), w, h, posB.x, posB.y, stride))
        Raise(PIVerror::SAMPLING_FAILED, "fillArray()");
}

void PIV_Corr2D::fillScanWindows(const Image2D* a, const Image2D* b, POINT2D* pos, POINT2D offset) {
    PIV_Corr2D_Scan* s = scan();
    // Without arrays the settings were refused, and said so, when they came.
    if (!s->coeffs()) {
        const int code = s->error().getLastErrorCode();
        Raise(code ? PIVerror::ErrorType(code) : PIVerror::CORRELATION_UNAVAILABLE,
              "fillScanWindows()", true);
    }
    POINT2D posA{0, 0}, posB{0, 0};
    PIVerror::ErrorType why = PIVerror::NO_ERROR;
    if (!s->getSamplePosition(*pos, posA, posB, FPOINT2D{float(offset.x), float(offset.y)},
                              a->size2D(), &why))
        Raise(why, "getSamplePosition()");
    if (!s->fillSample(a, posA) || !s->fillScanArea(b, posB))
        Raise(PIVerror::SAMPLING_FAILED, m_cfg.CorrelationMode == PIV::CORR_MQD
                                             ? "fillArray() - MQD-mode"
                                             : "fillArray() - DCC-mode");
}

void PIV_Corr2D::correlateOrThrow(bool wantAutoShape) {
    if (PIV_Corr2D_Scan* s = scan()) {
        if (!s->doScan()) Raise(PIVerror::INVALID_POINTER, "crossCorrelate() - scan");
        return;
    }
    // An empty window is common (a blank image region): fail it quietly.
    if (!m_fft.crossCorrelate(wantAutoShape))
        Raise(PIVerror::CORRELATION_FAILED, "crossCorrelate()", DebugLevel() < 3);
    // Only a correlation that formed the autocorrelation plane may fit the
    // shape from it; another would read the plane of an earlier window.
    if (wantAutoShape) m_peak.calcAutoShape(m_fft.autoCorr(), m_fft.size());
}

void PIV_Corr2D::sampleAndCrossCorrelateOnce(const Image2D* a, const Image2D* b,
                                             const Image2D* maskA, const Image2D* maskB,
                                             POINT2D* pos, POINT2D offset) {
    if (scan()) {
        // The scan modes test no mask: a masked region simply matches badly.
        fillScanWindows(a, b, pos, offset);
        correlateOrThrow(false);
        m_haveResult = true;
        return;
    }
    POINT2D posA{0, 0}, posB{0, 0};
    getSamplePosition(*pos, posA, posB, offset, a->size2D());
    if (maskA) testMasks(a, maskA, maskB, posA, posB);
    fillArray(a, b, posA, posB);
    correlateOrThrow(m_peak.needAutoShape());
    m_haveResult = true;
}

void PIV_Corr2D::getDoubleSamplePosition(POINT2D& pos, POINT2D& first, POINT2D& second,
                                         POINT2D offset, const SIZE2D& imageSize) const {
    if (m_cfg.MultiCorrUseGrid) {
        const int w = m_fft.width();
        first = POINT2D{pos.x - w / 2, pos.y};
        second = POINT2D{first.x + w, pos.y};
    } else {
        const POINT2D d = m_cfg.MultiCorr_Offset;
        first = POINT2D{pos.x - d.x / 2, pos.y - d.y / 2};
        second = POINT2D{first.x + d.x, first.y + d.y};
    }
    POINT2D a{0, 0}, b{0, 0};
    try {
        getSamplePosition(first, a, b, offset, imageSize);
    } catch (const CorrFailure&) {
        Raise(PIVerror::SAMPLING_FAILED, "getDoubleSamplePosition() - 1st position");
    }
    try {
        getSamplePosition(second, a, b, offset, imageSize);
    } catch (const CorrFailure&) {
        Raise(PIVerror::SAMPLING_FAILED, "getDoubleSamplePosition() - 2nd position");
    }
    if (first.x == second.x && first.y == second.y)
        Raise(PIVerror::CORRELATION_FAILED,
              "getDoubleSamplePosition() - coincident sampling position", DebugLevel() < 3);
    pos = POINT2D{(first.x + second.x) / 2, (first.y + second.y) / 2};
}

void PIV_Corr2D::storeCorrValues() {
    const size_t n = size_t(m_fft.width()) * size_t(m_fft.height());
    std::memcpy(m_fft.corrData(), m_fft.corr(), n * sizeof(float));
}

void PIV_Corr2D::calcDoubleCorr(bool average, bool keepSecond) {
    const size_t n = size_t(m_fft.width()) * size_t(m_fft.height());
    float* corr = m_fft.corr();
    const float* first = m_fft.corrData();
    if (keepSecond) std::memcpy(m_fft.sample2(), corr, n * sizeof(float));
    if (average)
        for (size_t k = 0; k < n; k++) corr[k] = (corr[k] + first[k]) / 2.0f;
    else
        for (size_t k = 0; k < n; k++) corr[k] = corr[k] * first[k];
}

void PIV_Corr2D::crossCorrelateMany(const Image2D* a, const Image2D* b, POINT2D* pos,
                                    POINT2D offset, int d, int count, bool average) {
    if (m_cfg.CorrelationMode >= PIV::CORR_MQD)
        Raise(PIVerror::FUNCTION_NOT_AVAILABLE, "crossCorrelateMany() - MQD/DCC mode");
    if (d <= 0) Raise(PIVerror::INVALID_SAMPLE_OFFSET, "crossCorrelateMany()");
    static const int kSteps[9][2] = {{0, 0}, {1, 0},   {-1, 0}, {0, 1}, {0, -1},
                                     {1, 1}, {-1, -1}, {1, -1}, {-1, 1}};
    const size_t n = size_t(m_fft.width()) * size_t(m_fft.height());
    float* sum = m_fft.corrData();
    std::fill(sum, sum + n, average ? 0.0f : 1.0f);
    int planes = 0;
    for (int k = std::min(count, 9) - 1; k >= 0; k--) {
        POINT2D p{pos->x + kSteps[k][0] * d, pos->y + kSteps[k][1] * d};
        POINT2D posA{0, 0}, posB{0, 0};
        try {
            getSamplePosition(p, posA, posB, offset, a->size2D());
            fillArray(a, b, posA, posB);
        } catch (const CorrFailure&) {
            continue;
        }
        if (!m_fft.crossCorrelate(false)) continue;
        const float* corr = m_fft.corr();
        if (average)
            for (size_t c = 0; c < n; c++) sum[c] += corr[c];
        else
            for (size_t c = 0; c < n; c++) sum[c] *= corr[c];
        planes++;
    }
    if (planes == 0) Raise(PIVerror::CORRELATION_FAILED, "crossCorrelateMany()", DebugLevel() < 3);
    float* corr = m_fft.corr();
    for (size_t c = 0; c < n; c++) corr[c] = average ? sum[c] / float(planes) : sum[c];
}

void PIV_Corr2D::sampleAndCrossCorrelateTwice(const Image2D* a, const Image2D* b,
                                              const Image2D* maskA, const Image2D* maskB,
                                              POINT2D* pos, POINT2D offset, bool keepSecond) {
    m_haveResult = m_haveDoubleResult = false;
    if (!m_cfg.MultiCorr) {
        sampleAndCrossCorrelateOnce(a, b, maskA, maskB, pos, offset);
        return;
    }
    if (m_cfg.CorrelationMode >= PIV::CORR_MQD)
        Raise(PIVerror::FUNCTION_NOT_AVAILABLE, "sampleAndCrossCorrelateTwice() - MQD/DCC mode");
    const SIZE2D imageSize = a->size2D();
    POINT2D first{0, 0}, second{0, 0};
    getDoubleSamplePosition(*pos, first, second, offset, imageSize);
    if (m_cfg.MultiCorr_Count > 2) {
        crossCorrelateMany(a, b, pos, offset, m_cfg.MultiCorr_Offset.x, m_cfg.MultiCorr_Count,
                           m_cfg.MultiCorr_Average);
        m_haveResult = true;
        return;
    }
    POINT2D a1{0, 0}, b1{0, 0}, a2{0, 0}, b2{0, 0};
    getSamplePosition(first, a1, b1, offset, imageSize);
    getSamplePosition(second, a2, b2, offset, imageSize);
    if (maskA) {
        testMasks(a, maskA, maskB, a1, b1);
        testMasks(a, maskA, maskB, a2, b2);
    }
    fillArray(a, b, a1, b1);
    correlateOrThrow(false);
    storeCorrValues();
    fillArray(a, b, a2, b2);
    correlateOrThrow(m_peak.needAutoShape());
    calcDoubleCorr(m_cfg.MultiCorr_Average, keepSecond);
    m_haveResult = m_haveDoubleResult = true;
}

bool PIV_Corr2D::sampleAndCorrelate(const Image2D* a, const Image2D* b, POINT2D* pos,
                                    POINT2D offset, bool keepSecond) {
    return sampleAndCorrelateWithMask(a, b, nullptr, nullptr, pos, offset, keepSecond);
}

bool PIV_Corr2D::sampleAndCorrelateWithMask(const Image2D* a, const Image2D* b,
                                            const Image2D* maskA, const Image2D* maskB,
                                            POINT2D* pos, POINT2D offset, bool keepSecond) {
    try {
        if (!a || !b || !pos) Raise(PIVerror::INVALID_POINTER, "sampleAndCorrelate()");
        sampleAndCrossCorrelateTwice(a, b, maskA, maskB, pos, offset, keepSecond);
        m_lastCode = 0;
        return true;
    } catch (const CorrFailure& f) {
        m_lastCode = f.code;
        return f.silent ? false : fail(f.code, f.where);
    }
}

bool PIV_Corr2D::sampleAndCorrelateDualPair(const Image2D* a, const Image2D* b, const Image2D* c,
                                            const Image2D* d, POINT2D* pos, POINT2D offset,
                                            bool keepSecond) {
    return sampleAndCorrelateDualPairWithMask(a, b, c, d, nullptr, nullptr, pos, offset,
                                              keepSecond);
}

bool PIV_Corr2D::sampleAndCorrelateDualPairWithMask(const Image2D* a, const Image2D* b,
                                                    const Image2D* c, const Image2D* d,
                                                    const Image2D* maskA, const Image2D* maskB,
                                                    POINT2D* pos, POINT2D offset, bool keepSecond) {
    if (!c || !d) return sampleAndCorrelateWithMask(a, b, maskA, maskB, pos, offset, keepSecond);
    try {
        if (!a || !b || !pos) Raise(PIVerror::INVALID_POINTER, "sampleAndCorrelate()");
        if (m_cfg.CorrelationMode == PIV::CORR_MQD)
            Raise(PIVerror::FUNCTION_NOT_AVAILABLE, "sampleAndCorrelate() - MQD mode");
        if (m_cfg.CorrelationMode > PIV::CORR_MQD)
            Raise(PIVerror::FUNCTION_NOT_AVAILABLE, "sampleAndCorrelate() - DCC mode");
        m_haveResult = m_haveDoubleResult = false;
        POINT2D posA{0, 0}, posB{0, 0};
        getSamplePosition(*pos, posA, posB, offset, a->size2D());
        if (maskA) testMasks(a, maskA, maskB, posA, posB);
        fillArray(a, b, posA, posB);
        correlateOrThrow(false);
        storeCorrValues();
        fillArray(c, d, posA, posB);
        correlateOrThrow(m_peak.needAutoShape());
        calcDoubleCorr(m_cfg.MultiCorr_Average, keepSecond);
        m_haveResult = m_haveDoubleResult = true;
        m_lastCode = 0;
        return true;
    } catch (const CorrFailure& f) {
        m_lastCode = f.code;
        return f.silent ? false : fail(f.code, f.where);
    }
}

bool PIV_Corr2D::fillSamples(const Image2D* a, const Image2D* b, POINT2D* pos, POINT2D offset) {
    try {
        if (!a || !b || !pos) Raise(PIVerror::INVALID_POINTER, "fillSamples()");
        if (scan()) {
            fillScanWindows(a, b, pos, offset);
            return true;
        }
        POINT2D posA{0, 0}, posB{0, 0};
        getSamplePosition(*pos, posA, posB, offset, a->size2D());
        fillArray(a, b, posA, posB);
        return true;
    } catch (const CorrFailure& f) {
        return fail(f.code, f.where);
    }
}

bool PIV_Corr2D::crossCorrelate() {
    try {
        correlateOrThrow(m_peak.needAutoShape());
        m_haveResult = true;
        return true;
    } catch (const CorrFailure& f) {
        m_lastCode = f.code;
        return f.silent ? false : fail(f.code, f.where);
    }
}

bool PIV_Corr2D::placeWindows(const Image2D* a, const Image2D* maskA, const Image2D* maskB,
                              POINT2D* pos, POINT2D offset, POINT2D& posA, POINT2D& posB) {
    try {
        if (!a || !pos) Raise(PIVerror::INVALID_POINTER, "sampleAndCorrelate()");
        getSamplePosition(*pos, posA, posB, offset, a->size2D());
        if (maskA) testMasks(a, maskA, maskB, posA, posB);
        m_lastCode = 0;
        return true;
    } catch (const CorrFailure& f) {
        m_lastCode = f.code;
        return f.silent ? false : fail(f.code, f.where);
    }
}

bool PIV_Corr2D::peakDetection(PIV_VECTOR* vector, POINT2D offset, bool autocorrelationMode,
                               const PIV_PEAK_SCAN* planeScan) {
    if (!vector) return fail(PIVerror::INVALID_POINTER, "peakDetection()");
    if (scan()) return scanPeakDetection(vector, offset);
    const CORR_PEAK_DATA* peaks = m_peak.peaks();
    const int mode = peakSearchMode();
    const bool ok =
        planeScan ? m_peak.findScannedPeaks(*planeScan, m_fft.size(), mode, autocorrelationMode)
                  : m_peak.findPeaks(m_fft.corr(), m_fft.size(), mode, autocorrelationMode);
    vector->meanSquaredCorr = m_peak.meanSquaredCorrelation();
    vector->corr = peaks[0].height;
    if (ok) {
        vector->dx = peaks[0].x + float(offset.x);
        vector->dy = float(offset.y) - peaks[0].y;
        vector->dz = 0.0f;
        vector->snr = peaks[0].snr;
        const int valid = m_peak.validPeakCount();
        for (int i = 0; i < 3; i++) {
            if (i < valid)
                vector->peak[i] = PIV_PEAK{float(offset.x) + peaks[i].x,
                                           float(offset.y) - peaks[i].y, peaks[i].snr};
            else
                vector->peak[i] = PIV_PEAK{0.0f, 0.0f, 0.0f};
        }
        vector->flag = VECTOR_ENABLED;
        vector->count = 1;
        return true;
    }
    vector->setFailed();
    if (DebugLevel() >= 3) {
        m_error.setMessage("%s", m_peak.getLastError());
        m_error.handleError(PIVerror::CORRELATION_FAILED, "peakDetection()");
    }
    return false;
}

bool PIV_Corr2D::scanPeakDetection(PIV_VECTOR* vector, POINT2D offset) {
    if (!scan()->coeffs()) {
        vector->setFailed();
        return fail(PIVerror::INVALID_POINTER, "peakDetection()");
    }
    FPOINT2D shift{0.0f, 0.0f};
    float height = 0.0f, snr = 0.0f, mean = 0.0f;
    int flag = 0;
    bool ok = false;
    if (m_cfg.CorrelationMode == PIV::CORR_MQD) {
        ok = m_mqd.findMinimum(&shift, &height, &mean, &flag);
        // The plane's mean over its minimum tells how far the match stands
        // out; an exact match (a minimum of 0) counts as 1e6.
        snr = height > 0.0f ? std::min(mean / height, 1e6f) : (mean > 0.0f ? 1e6f : 0.0f);
    } else {
        // The error correlation function is smallest at a match, yet it has
        // always gone to the maximum search, like the cross-correlation.
        ok = m_direct.findMaximum(&shift, &height, &snr, &mean, &flag);
    }
    if (!ok) {
        vector->setFailed();
        m_lastCode = PIVerror::CORRELATION_FAILED;
        if (DebugLevel() >= 3) m_error.handleError(PIVerror::CORRELATION_FAILED, "peakDetection()");
        return false;
    }
    vector->dx = shift.x + float(offset.x);
    vector->dy = float(offset.y) - shift.y;
    vector->dz = 0.0f;
    vector->corr = height;
    vector->snr = snr;
    vector->meanSquaredCorr = mean;
    for (PIV_PEAK& p : vector->peak) p = PIV_PEAK{vector->dx, vector->dy, snr};
    vector->flag = VECTOR_ENABLED;
    vector->count = 1;
    return true;
}
