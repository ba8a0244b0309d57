#include "piv_corr2d_fft.h"

#include <cmath>
#include <cstring>
#include <vector>

#include "piv_corr2d_simd.h"
#include "piv_enums.h"
#include "piv_fft_window.h"
#include "piv_messages.h"

namespace {

template <typename T>
T* AllocZeroed(size_t count) {
    T* p = static_cast<T*>(fftwf_malloc(sizeof(T) * count));
    if (p) std::memset(static_cast<void*>(p), 0, sizeof(T) * count);
    return p;
}

}  // namespace

PIV_Corr2D_FFT::PIV_Corr2D_FFT() : m_error("PIV_Corr2D_FFT") {}

bool PIV_Corr2D_FFT::setPivEvalCfg(const PIVEVAL_CFG& cfg) {
    m_fitType = cfg.Type;
    m_nyquist = cfg.CorrFilter_Nyquist;
    m_correlationMode = cfg.CorrelationMode;
    m_windowType = cfg.CorrFilter_WindowType;
    if (!create(cfg.FFTSize.width, cfg.FFTSize.height)) return false;
    createWindowWeighting();
    return true;
}

bool PIV_Corr2D_FFT::create(int width, int height) {
    if (width == m_width && height == m_height && m_plans) return true;
    if (width < 1 || height < 1) {
        DebugPrint(" - something wrong with FFT size!");
        return false;
    }
    try {
        m_plans.reset();
        const int fftWidth = 2 * (width / 2 + 1);
        const size_t reals = size_t(fftWidth) * size_t(height);
        const size_t complexCount = size_t(width / 2 + 1) * size_t(height);
        PIV::FFTWFloatPtr* planes[] = {&m_sample1, &m_sample2, &m_mask1,    &m_mask2, &m_corrData,
                                       &m_autoCorrData, &m_corr, &m_autoCorr, &m_weights};
        for (PIV::FFTWFloatPtr* plane : planes) {
            plane->reset(AllocZeroed<float>(reals));
            if (!*plane) throw PIVerror::FFT_ALLOCATION;
        }
        m_crossPower.reset(AllocZeroed<fftwf_complex>(complexCount));
        m_autoPower.reset(AllocZeroed<fftwf_complex>(complexCount));
        if (!m_crossPower || !m_autoPower) throw PIVerror::FFT_ALLOCATION;
        m_width = width;
        m_height = height;
        m_fftWidth = fftWidth;
        if (!createFFTWPlans(SIZE2D{width, height}, m_optimized)) throw PIVerror::OPERATION_FAILED;
        return true;
    } catch (PIVerror::ErrorType code) {
        m_width = m_height = m_fftWidth = 0;
        m_plans.reset();
        m_error.handleError(code, "create()");
        return false;
    }
}

bool PIV_Corr2D_FFT::createFFTWPlans(const SIZE2D& size, bool optimized) {
    DebugPrintExt(2, "creating new FFTW plans (%d x %d) %s optimization", size.width, size.height,
                  optimized ? "with" : "- no");
    m_plans = PIV::GetFFTPlans2D(size.width, size.height, optimized);
    return m_plans != nullptr;
}

bool PIV_Corr2D_FFT::optimizeFFTs(bool optimized) {
    m_optimized = optimized;
    if (m_width < 1) return true;
    return createFFTWPlans(size(), optimized);
}

void PIV_Corr2D_FFT::createWindowWeighting() {
    if (!m_weights) return;
    PIV::CreateFFTWindow(m_windowType, m_width, m_height, m_fftWidth, m_weights.get());
}

bool PIV_Corr2D_FFT::autoWanted(bool wantAuto) const {
    return m_keepAutoCorrelation || (wantAuto && m_fitType == PIV::PEAKFIT_NONLIN_GAUSS);
}

float PIV_Corr2D_FFT::calcNormFactor(const float* weights) {
    const size_t w = size_t(m_width), h = size_t(m_height), stride = size_t(m_fftWidth);
    float* a = m_sample1.get();
    float* b = m_sample2.get();
    double sumA = 0.0, sumB = 0.0;
    PIV::Simd::WeightAndSumWindows(a, b, weights, w, h, stride, sumA, sumB);
    const double n = double(w) * double(h);
    float sqA = 0.0f, sqB = 0.0f;
    PIV::Simd::CenterWindows(a, b, w, h, stride, float(sumA / n), float(sumB / n), sqA, sqB);
    return std::sqrt(sqA * sqB);
}

bool PIV_Corr2D_FFT::doForward() {
    // Only the first sample is weighted: the second keeps every particle
    // that may have moved into the window.
    const float norm =
        calcNormFactor(m_windowType != PIV::FFTWINDOW_NONE ? m_weights.get() : nullptr);
    if (!(norm > 0.0f)) {
        if (DebugLevel() >= 3) {
            m_error.setMessage("doFoward() - zero valued data");
            m_error.handleError(PIVerror::CORRELATION_FAILED, "doFoward()");
        }
        return false;
    }
    m_normFactor = norm;
    fftwf_execute_dft_r2c(m_plans->forward, m_sample1.get(),
                          reinterpret_cast<fftwf_complex*>(m_sample1.get()));
    fftwf_execute_dft_r2c(m_plans->forward, m_sample2.get(),
                          reinterpret_cast<fftwf_complex*>(m_sample2.get()));
    return true;
}

void PIV_Corr2D_FFT::doCrossPower(bool wantAuto) {
    const size_t count = size_t(m_width / 2 + 1) * size_t(m_height);
    const float scale = 1.0f / (float(m_width) * float(m_height));
    const fftwf_complex* A = reinterpret_cast<const fftwf_complex*>(m_sample1.get());
    const fftwf_complex* B = reinterpret_cast<const fftwf_complex*>(m_sample2.get());
    fftwf_complex* cross = m_crossPower.get();
    fftwf_complex* autoPower = m_autoPower.get();
    const bool phaseOnly = m_correlationMode == PIV::CORR_PHASE_ONLY;
    const bool withAuto = autoWanted(wantAuto);
    if (!phaseOnly && !withAuto) {
        // The norm factor stays a division of the plane of its own: taken
        // into this scale, it moves a noisy 16 px window's peak by 1e-5 px.
        PIV::Simd::CrossPower(&A[0][0], &B[0][0], &cross[0][0], count, scale);
        return;
    }
    for (size_t k = 0; k < count; k++) {
        const float ar = A[k][0], ai = A[k][1], br = B[k][0], bi = B[k][1];
        float re = (ar * br + ai * bi) * scale;
        float im = (ar * bi - ai * br) * scale;
        if (withAuto) {
            autoPower[k][0] = std::sqrt(re * re + im * im);
            autoPower[k][1] = 0.0f;
        }
        if (phaseOnly) {
            // The power of A enters as |a|, not |a|^2: the filter has always
            // been this asymmetric and results depend on it.
            const float den = std::sqrt((br * br + bi * bi) * std::sqrt(ar * ar + ai * ai));
            if (den != 0.0f) {
                re /= den;
                im /= den;
            }
        }
        cross[k][0] = re;
        cross[k][1] = im;
    }
}

void PIV_Corr2D_FFT::applyNyquistFilter() {
    const long h = m_width / 2 + 1;
    const long k = long(m_height / 2) * h - 1;
    const long count = long(m_height) * h;
    const long cells[6] = {k, k - 1, k - h, k - h - 1, k + h, k + h - 1};
    fftwf_complex* cross = m_crossPower.get();
    for (long c : cells) {
        if (c < 0 || c >= count) continue;
        cross[c][0] = cross[c][1] = 0.0f;
    }
}

void PIV_Corr2D_FFT::normalize(float factor, bool withAuto) {
    if (factor == 0.0f) {
        m_normFactor = 1.0f;
        return;
    }
    const size_t n = size_t(m_width) * size_t(m_height);
    PIV::Simd::DivideBy(m_corr.get(), n, factor);
    if (withAuto) PIV::Simd::DivideBy(m_autoCorr.get(), n, factor);
}

bool PIV_Corr2D_FFT::crossCorrelate(bool wantAuto) {
    if (!m_plans) return false;
    if (!doForward()) return false;
    doCrossPower(wantAuto);
    if (m_nyquist) applyNyquistFilter();
    fftwf_execute_dft_c2r(m_plans->reverse, m_crossPower.get(), m_corr.get());
    const bool withAuto = autoWanted(wantAuto);
    if (withAuto) {
        m_autoCorrCount++;
        fftwf_execute_dft_c2r(m_plans->reverse, m_autoPower.get(), m_autoCorr.get());
    }
    normalize(m_normFactor, withAuto);
    return true;
}

void PIV::UnFoldFFTData(float* data, int width, int height, int rowStride) {
    if (!data || width < 1 || height < 1) return;
    if (rowStride < width) rowStride = width;
    std::vector<float> plane(size_t(width) * size_t(height));
    for (int y = 0; y < height; y++)
        std::memcpy(&plane[size_t(y) * size_t(width)], data + size_t(y) * size_t(rowStride),
                    sizeof(float) * size_t(width));
    for (int y = 0; y < height; y++) {
        float* row = data + size_t((y + height / 2) % height) * size_t(rowStride);
        const float* from = &plane[size_t(y) * size_t(width)];
        for (int x = 0; x < width; x++) row[(x + width / 2) % width] = from[x];
    }
}
