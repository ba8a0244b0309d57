// PIV_Corr2D_FFT: the transform workspace of one correlator. It correlates
// two sampled windows through FFTW in single precision and keeps the plane
// as a correlation coefficient.
//
// The samples are real arrays of fftWidth() x height() floats, rows padded
// to 2 * (width / 2 + 1) so that the spectra fit in place. The result plane
// corr() holds width x height values in FFT order: zero displacement at
// index 0, negative displacements at the far end of each axis.
#pragma once

#include <memory>

#include "piv_error.h"
#include "piv_fft_plans.h"
#include "piv_types.h"

class PIV_Corr2D_FFT {
public:
    PIV_Corr2D_FFT();
    PIV_Corr2D_FFT(const PIV_Corr2D_FFT&) = delete;
    PIV_Corr2D_FFT& operator=(const PIV_Corr2D_FFT&) = delete;

    // Takes fit type, Nyquist filter, correlation mode and window type;
    // creates the workspace for FFTSize and its weighting. Plans are made
    // here, never during a correlation. False when the workspace cannot be made.
    bool setPivEvalCfg(const PIVEVAL_CFG& cfg);
    // Returns at once when the size is unchanged.
    bool create(int width, int height);
    bool createFFTWPlans(const SIZE2D& size, bool optimized);
    // Makes the plans anew, measured or estimated.
    bool optimizeFFTs(bool optimized);
    void createWindowWeighting();

    // Correlates sample1 with sample2 (which are destroyed). With wantAuto
    // and fit type 5, or while autocorrelations are kept, also forms the
    // autocorrelation plane. False for an empty (all-equal) sample.
    bool crossCorrelate(bool wantAuto);

    float* sample1() { return m_sample1.get(); }
    float* sample2() { return m_sample2.get(); }
    float* mask1() { return m_mask1.get(); }
    float* mask2() { return m_mask2.get(); }
    float* corr() { return m_corr.get(); }
    float* autoCorr() { return m_autoCorr.get(); }
    float* corrData() { return m_corrData.get(); }
    float* autoCorrData() { return m_autoCorrData.get(); }
    const float* weights() const { return m_weights.get(); }

    int width() const { return m_width; }
    int height() const { return m_height; }
    int fftWidth() const { return m_fftWidth; }
    SIZE2D size() const { return SIZE2D{m_width, m_height}; }
    float normFactor() const { return m_normFactor; }

    void keepAutoCorrelation(bool keep) { m_keepAutoCorrelation = keep; }
    bool keepsAutoCorrelation() const { return m_keepAutoCorrelation; }
    int autoCorrCount() const { return m_autoCorrCount; }
    void resetAutoCorrCount() { m_autoCorrCount = 0; }

    PIVerror& error() { return m_error; }

private:
    bool doForward();
    // Weights the first sample when weights is given, takes the mean off
    // both samples and returns the product of their lengths.
    float calcNormFactor(const float* weights);
    void doCrossPower(bool wantAuto);
    void applyNyquistFilter();
    void normalize(float factor, bool withAuto);
    bool autoWanted(bool wantAuto) const;

    PIVerror m_error;
    int m_width = 0, m_height = 0, m_fftWidth = 0;
    PIV::FFTWFloatPtr m_sample1, m_sample2, m_mask1, m_mask2;
    PIV::FFTWFloatPtr m_corrData, m_autoCorrData, m_corr, m_autoCorr, m_weights;
    PIV::FFTWComplexPtr m_crossPower, m_autoPower;
    std::shared_ptr<const PIV::FFTPlans2D> m_plans;
    bool m_optimized = true;
    bool m_keepAutoCorrelation = false;
    bool m_nyquist = false;
    int m_correlationMode = 0;
    int m_fitType = 1;
    int m_windowType = 0;
    float m_normFactor = 1.0f;
    int m_autoCorrCount = 0;
};

namespace PIV {
// Moves a plane in FFT order (zero displacement at index 0, negative
// displacements at the far end of each axis) so that zero displacement lies
// at (width / 2, height / 2), as a display shows it. Rows are `rowStride`
// floats apart (width when 0); the padding of a row stays untouched.
void UnFoldFFTData(float* data, int width, int height, int rowStride = 0);
}  // namespace PIV
