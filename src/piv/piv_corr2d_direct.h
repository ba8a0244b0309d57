// The direct correlators: PIV_Corr2D_MQD (minimum quadratic difference,
// correlation mode 2) and PIV_Corr2D_Direct (direct cross-correlation and
// error correlation function, modes 3 and 4). They move the first sample
// over a scan area of the second image instead of transforming it.
//
// Neither has its scan yet: without arrays a scan returns false, so every
// window of these modes fails and keeps a vector flagged as failed.
#pragma once

#include "piv_error.h"
#include "piv_types.h"

class PIV_Corr2D_Scan {
public:
    explicit PIV_Corr2D_Scan(const char* name) : m_error(name) {}

    void setPivEvalCfg(const PIVEVAL_CFG& cfg);
    // Sizes of the sample and of the scan range (shifts -range..+range).
    bool create(const SIZE2D& sampleSize, const SIZE2D& scanRange);
    bool doScan() { return m_coeffs != nullptr; }

    const float* coeffs() const { return m_coeffs; }
    SIZE2D sizeOfSample() const { return m_sampleSize; }
    SIZE2D sizeOfCoeffs() const {
        return SIZE2D{2 * m_scanRange.width + 1, 2 * m_scanRange.height + 1};
    }
    SIZE2D sizeOfScanArea() const {
        return SIZE2D{m_sampleSize.width + 2 * m_scanRange.width + 1,
                      m_sampleSize.height + 2 * m_scanRange.height + 1};
    }
    PIVerror& error() { return m_error; }

protected:
    PIVerror m_error;
    PIVEVAL_CFG m_cfg;
    SIZE2D m_sampleSize{0, 0};
    SIZE2D m_scanRange{0, 0};
    const float* m_coeffs = nullptr;
};

class PIV_Corr2D_MQD : public PIV_Corr2D_Scan {
public:
    PIV_Corr2D_MQD() : PIV_Corr2D_Scan("PIV_Corr2D_MQD") {}
    // The fitted minimum of the plane; false without a plane.
    bool findMinimum(FPOINT2D* shift, float* value) const;
};

class PIV_Corr2D_Direct : public PIV_Corr2D_Scan {
public:
    PIV_Corr2D_Direct() : PIV_Corr2D_Scan("PIV_Corr2D_Direct") {}
    // The fitted maximum of the plane; false without a plane.
    bool findMaximum(FPOINT2D* shift, float* corr, float* snr, float* meanSquare) const;
};
