// PIV_Corr2D: one correlator of the evaluation. It places and samples the
// two interrogation windows of a node, correlates them (through FFT, or the
// direct correlators of the scan modes) and asks its peak detector for the
// displacement. An evaluation keeps one per worker thread; nothing in it is
// shared, so a worker needs no lock.
#pragma once

#include <cstdint>

#include "piv_corr2d_direct.h"
#include "piv_corr2d_fft.h"
#include "piv_enums.h"
#include "piv_error.h"
#include "piv_peak2d.h"
#include "piv_types.h"

class Image2D;

// One entry of a sample list.
struct CORR_SAMPLE_POS {
    POINT2D pos;     // the node in image pixels
    POINT2D offset;  // whole-pixel displacement between the windows of A and B
    POINT2D shift;   // spare position, zero in a single pass
    bool enabled;    // a disabled entry is skipped and its vector stays
    uint8_t pad[3];
    int32_t error;  // PIVerror::ErrorType of a failed window

    CORR_SAMPLE_POS() { PIV::ZeroRecord(*this); }
};
KELVANE_ASSERT_RECORD(CORR_SAMPLE_POS);

class PIV_Corr2D {
public:
    PIV_Corr2D();
    virtual ~PIV_Corr2D();
    PIV_Corr2D(const PIV_Corr2D&) = delete;
    PIV_Corr2D& operator=(const PIV_Corr2D&) = delete;

    uint32_t addRef() { return ++m_refCount; }
    uint32_t release();

    // Takes the settings; plans and arrays are made here. True when the
    // correlator or the peak detection changed.
    bool setPivEvalCfg(const PIVEVAL_CFG& cfg);
    const PIVEVAL_CFG& pivEvalCfg() const { return m_cfg; }
    // True: peakDetection looks for one peak only, false: for three.
    void setIntermediateProcessing(bool on) { m_intermediateProcessing = on; }

    // Samples both windows around *pos (which slides inward at the edges)
    // and correlates them. False when the window cannot be interrogated;
    // lastErrorCode() tells why.
    bool sampleAndCorrelate(const Image2D* a, const Image2D* b, POINT2D* pos, POINT2D offset,
                            bool keepSecond);
    // The same after the mask test; a null maskA skips it.
    bool sampleAndCorrelateWithMask(const Image2D* a, const Image2D* b, const Image2D* maskA,
                                    const Image2D* maskB, POINT2D* pos, POINT2D offset,
                                    bool keepSecond);
    // Two pairs correlated at the same place and merged.
    bool sampleAndCorrelateDualPair(const Image2D* a, const Image2D* b, const Image2D* c,
                                    const Image2D* d, POINT2D* pos, POINT2D offset,
                                    bool keepSecond);
    bool sampleAndCorrelateDualPairWithMask(const Image2D* a, const Image2D* b, const Image2D* c,
                                            const Image2D* d, const Image2D* maskA,
                                            const Image2D* maskB, POINT2D* pos, POINT2D offset,
                                            bool keepSecond);
    // The corners of both windows of the node *pos (which slides as in
    // sampleAndCorrelate) after the mask test; a null maskA skips it. For a
    // correlation elsewhere; false as sampleAndCorrelate fails.
    bool placeWindows(const Image2D* a, const Image2D* maskA, const Image2D* maskB, POINT2D* pos,
                      POINT2D offset, POINT2D& posA, POINT2D& posB);
    // The two halves of sampleAndCorrelate.
    bool fillSamples(const Image2D* a, const Image2D* b, POINT2D* pos, POINT2D offset);
    bool crossCorrelate();

    // Fills the vector from the correlation plane, or from a scan of it made
    // elsewhere: dx = peak x + offset.x, dy = offset.y - peak y (dy counts
    // upwards). False: flag 12, zeros.
    bool peakDetection(PIV_VECTOR* vector, POINT2D offset, bool autocorrelationMode,
                       const PIV_PEAK_SCAN* planeScan = nullptr);
    // The PIV::PeakDetectMode that peakDetection searches with.
    int peakSearchMode() const {
        return m_intermediateProcessing ? PIV::PEAK_SINGLE : PIV::PEAK_MULTIPLE;
    }

    // Upper left corners of the windows in A and B for the node *pos and the
    // offset; the node slides into the image. Throws a PIVerror::ErrorType.
    void getSamplePosition(POINT2D& pos, POINT2D& posA, POINT2D& posB, POINT2D offset,
                           const SIZE2D& imageSize) const;

    // In the scan modes: the sample, the scan area and the plane of shifts.
    float* getSample1() { return scan() ? scan()->sample() : m_fft.sample1(); }
    float* getSample2() { return scan() ? scan()->scanArea() : m_fft.sample2(); }
    float* getCorrelation() { return scan() ? scan()->coeffs() : m_fft.corr(); }
    float* getAutoCorrelation() { return m_fft.autoCorr(); }
    float* getDoubleCorrelation() { return m_fft.corr(); }
    float* getFirstCorrelation() { return m_fft.corrData(); }
    // The plane of the second position, kept by a keepSecond run.
    float* getSecondCorrelation() { return m_fft.sample2(); }
    SIZE2D getCorrSize() const;
    SIZE2D getWinSize() const;
    SIZE2D getFFTSize() const { return m_fft.size(); }
    SIZE2D sizeSample1() const;
    SIZE2D sizeSample2() const;
    int internalSampleWidth() const;
    SIZE3D getSampleSize() const { return m_cfg.SampleSize; }
    int autoCorrCount() const { return m_fft.autoCorrCount(); }
    void resetAutoCorrCount() { m_fft.resetAutoCorrCount(); }
    bool haveResult() const { return m_haveResult; }
    bool haveDoubleResult() const { return m_haveDoubleResult; }
    void keepAutoCorrelation(bool keep) { m_fft.keepAutoCorrelation(keep); }

    // The scan correlator of modes 2 to 4; null in the FFT modes.
    PIV_Corr2D_Scan* scan() {
        if (m_cfg.CorrelationMode == PIV::CORR_MQD) return &m_mqd;
        if (m_cfg.CorrelationMode > PIV::CORR_MQD) return &m_direct;
        return nullptr;
    }
    PIV_Corr2D_MQD& mqd() { return m_mqd; }
    PIV_Corr2D_Direct& direct() { return m_direct; }
    PIV_PeakDetect2D& peakDetector() { return m_peak; }
    PIV_Corr2D_FFT& fft() { return m_fft; }
    int lastErrorCode() const { return m_lastCode; }
    PIVerror& error() { return m_error; }

private:
    // The throwing cores; the public members catch and report.
    void sampleAndCrossCorrelateTwice(const Image2D* a, const Image2D* b, const Image2D* maskA,
                                      const Image2D* maskB, POINT2D* pos, POINT2D offset,
                                      bool keepSecond);
    void sampleAndCrossCorrelateOnce(const Image2D* a, const Image2D* b, const Image2D* maskA,
                                     const Image2D* maskB, POINT2D* pos, POINT2D offset);
    void testMasks(const Image2D* a, const Image2D* maskA, const Image2D* maskB, POINT2D posA,
                   POINT2D posB);
    float maskedSampleFraction(int which);
    void fillArray(const Image2D* a, const Image2D* b, POINT2D posA, POINT2D posB);
    // Places and fills sample and scan area of the scan modes.
    void fillScanWindows(const Image2D* a, const Image2D* b, POINT2D* pos, POINT2D offset);
    bool scanPeakDetection(PIV_VECTOR* vector, POINT2D offset);
    void correlateOrThrow(bool wantAutoShape);
    void getDoubleSamplePosition(POINT2D& pos, POINT2D& first, POINT2D& second, POINT2D offset,
                                 const SIZE2D& imageSize) const;
    void crossCorrelateMany(const Image2D* a, const Image2D* b, POINT2D* pos, POINT2D offset,
                            int d, int count, bool average);
    void storeCorrValues();
    void calcDoubleCorr(bool average, bool keepSecond);
    bool fail(PIVerror::ErrorType code, const char* where);

    uint32_t m_refCount = 1;
    PIVerror m_error;
    PIV_PeakDetect2D m_peak;
    PIV_Corr2D_FFT m_fft;
    PIV_Corr2D_MQD m_mqd;
    PIV_Corr2D_Direct m_direct;
    PIVEVAL_CFG m_cfg;
    bool m_intermediateProcessing = false;
    bool m_haveDoubleResult = false;
    bool m_haveResult = false;
    int m_lastCode = 0;
};
