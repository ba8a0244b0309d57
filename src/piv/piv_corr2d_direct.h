// The scan correlators: PIV_Corr2D_MQD (minimum quadratic difference,
// correlation mode 2) and PIV_Corr2D_Direct (direct cross-correlation, mode
// 3, and the error correlation function, mode 4). They move the first sample
// over a scan area of the second image and evaluate every whole-pixel shift
// from -range to +range directly: no transform, so no wrap-around, and a
// plane of (2 range + 1) cells per axis whose centre is zero shift.
//
// Plane cell (i + range.width, j + range.height) holds shift (i, j): the
// sample against the second image's window moved i columns right and j rows
// down.
#pragma once

#include <cstdio>
#include <vector>

#include "piv_error.h"
#include "piv_types.h"

class Image2D;

class PIV_Corr2D_Scan {
public:
    explicit PIV_Corr2D_Scan(const char* name) : m_error(name) {}
    virtual ~PIV_Corr2D_Scan() = default;

    // Takes SampleSize and ScanRange; false (reported) when create fails.
    bool setPivEvalCfg(const PIVEVAL_CFG& cfg);
    // Allocates the arrays; nothing happens when the sizes are unchanged. A
    // negative range is error 4, a sample below 1 px error 41, a range or
    // sample too large to scan error 7, all before anything is allocated.
    bool create(const SIZE2D& sampleSize, const SIZE2D& scanRange);

    // Upper left corners of the sample in the first image (posA) and of the
    // zero-shift window in the second (posB) for the node pos and the offset
    // (rounded half away from zero; dy counts upwards). Near an edge both
    // corners and pos slide inward until the sample and the scan area lie
    // inside. False, with the code in *why, when the image is empty (35) or
    // sample and scan area cannot fit side by side (45). Writes nothing else.
    bool getSamplePosition(POINT2D& pos, POINT2D& posA, POINT2D& posB, FPOINT2D offset,
                           const SIZE2D& imageSize, PIVerror::ErrorType* why = nullptr) const;
    // The sample at corner; the scan area `range` pixels before corner.
    virtual bool fillSample(const Image2D* image, POINT2D corner);
    bool fillScanArea(const Image2D* image, POINT2D corner);
    // One plane from the current sample and scan area; false without arrays.
    virtual bool doScan() = 0;
    // Fills both and scans; failures are reported as error 46.
    bool sampleAndScan(const Image2D* a, const Image2D* b, POINT2D cornerA, POINT2D cornerB);

    float* sample() { return m_sample.empty() ? nullptr : m_sample.data(); }
    float* scanArea() { return m_scanArea.empty() ? nullptr : m_scanArea.data(); }
    float* coeffs() { return m_coeffs.empty() ? nullptr : m_coeffs.data(); }
    const float* coeffs() const { return m_coeffs.empty() ? nullptr : m_coeffs.data(); }
    SIZE2D sizeOfSample() const { return m_sampleSize; }
    SIZE2D sizeOfCoeffs() const { return m_planeSize; }
    SIZE2D sizeOfScanArea() const { return m_scanSize; }
    SIZE2D scanRange() const { return m_scanRange; }
    // The plane as text, one row a line.
    void dumpCoeffs(FILE* f) const;
    PIVerror& error() { return m_error; }

protected:
    // The best cell of the plane (first in row order among equals) and, when
    // it has all eight neighbours, the 3x3 log-paraboloid around it. Shift
    // is the fitted shift, or the whole one when the fit is impossible; flag
    // 1 for a fit, 12 otherwise. False with flag 12 for a cell on the border
    // of the plane, whose true extremum may lie outside the range.
    bool fitExtremum(bool largest, FPOINT2D* shift, int* flag) const;
    int bestCell(bool largest) const;

    PIVerror m_error;
    PIVEVAL_CFG m_cfg;
    SIZE2D m_sampleSize{0, 0};
    SIZE2D m_scanRange{0, 0};
    SIZE2D m_scanSize{0, 0};
    SIZE2D m_planeSize{0, 0};
    // The windows' means of the direct cross-correlation, a plane cell each.
    std::vector<float> m_sample, m_scanArea, m_coeffs, m_means;
};

class PIV_Corr2D_MQD : public PIV_Corr2D_Scan {
public:
    PIV_Corr2D_MQD() : PIV_Corr2D_Scan("PIV_Corr2D_MQD") {}
    // Per shift the sum of (a - b)^2 over the sample, in single precision.
    bool doScan() override;
    // The fitted minimum: shift, the smallest coefficient and the plane's
    // mean. False without a plane, with a one-cell plane (scan range 0) and
    // when the minimum lies on the plane's border.
    bool findMinimum(FPOINT2D* shift, float* value, float* mean, int* flag) const;
};

class PIV_Corr2D_Direct : public PIV_Corr2D_Scan {
public:
    PIV_Corr2D_Direct() : PIV_Corr2D_Scan("PIV_Corr2D_Direct") {}
    // 3 direct cross-correlation, 4 error correlation function.
    void setMode(int mode) { m_mode = mode; }
    int mode() const { return m_mode; }
    bool setPivEvalCfg(const PIVEVAL_CFG& cfg);
    bool fillSample(const Image2D* image, POINT2D corner) override;
    // Mode 3: the correlation coefficient of the sample and the window, each
    // less its mean. Mode 4: sum |a - b| / sum (a + b), smallest at a match.
    bool doScan() override;
    // The fitted maximum: shift, the largest coefficient, its square over
    // the plane's mean square, the mean square. False as findMinimum.
    bool findMaximum(FPOINT2D* shift, float* corr, float* snr, float* meanSquare, int* flag) const;
    float sampleMean() const { return m_sampleMean; }
    const float* windowMeans() const { return m_means.empty() ? nullptr : m_means.data(); }

private:
    int m_mode = 3;
    float m_sampleMean = 0.0f;
};
