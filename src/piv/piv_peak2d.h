// PIV_PeakDetect2D: finds the highest peaks of a correlation plane and fits
// their position to sub-pixel accuracy.
//
// The plane is in FFT order: zero displacement at index 0, negative
// displacements at the far end of each axis, both axes periodic. Before the
// fit a peak's x and y are plane indices; after it they are signed
// displacements in plane cells (x along the columns, y down the rows).
#pragma once

#include <cstdint>
#include <vector>

#include "piv_enums.h"
#include "piv_error.h"
#include "piv_lmfit.h"
#include "piv_types.h"

namespace PIV {
// 1 looks for up to three peaks, any other value for one.
enum PeakDetectMode { PEAK_SINGLE = 0, PEAK_MULTIPLE = 1 };

// Status of a peak; the same values as PIV_VECTOR::flag.
enum PeakStatus : uint8_t { PEAK_GOOD = 1, PEAK_NOT_FITTED = 4, PEAK_FIT_FAILED = 12 };
}  // namespace PIV

// One peak: thirty 32-bit words.
struct CORR_PEAK_DATA {
    // The plane around the peak: centre, (row-1, col), (row+1, col),
    // (row, col+1), (row, col-1), (row-1, col-1), (row+1, col-1),
    // (row-1, col+1), (row+1, col+1).
    float value[9];
    float weight[9];
    bool nonPositive;  // an edge neighbour is 0 or below
    bool weighted;
    uint8_t pad0[2];
    float height;
    float snr;
    float x, y;
    float subX, subY;
    uint8_t status;
    uint8_t pad1[3];
    int32_t fitPoints;  // 3: all nine values usable; 2: only the cross
    float shapeX, shapeY;
    float shapeExtra;  // orientation of the non-linear fit; determinant of the 3x3 fit

    CORR_PEAK_DATA() { clear(); }
    void clear() {
        PIV::ZeroRecord(*this);
        status = PIV::PEAK_NOT_FITTED;
        for (float& w : weight) w = 1.0f;
    }
};
static_assert(sizeof(CORR_PEAK_DATA) == 30 * 4, "CORR_PEAK_DATA is thirty 32-bit words");
KELVANE_ASSERT_RECORD(CORR_PEAK_DATA);

// What the fits of types 0 to 2 need of a plane, found by a scan of it
// here or on the correlation device: its statistics and up to three
// candidates, best first, each with its 3x3 neighbourhood in the order of
// CORR_PEAK_DATA::value (value[i][0] is the candidate's height). The device
// kernel writes the same layout: thirty-seven 32-bit words.
struct PIV_PEAK_SCAN {
    float min, max, meanSquare;
    int32_t count;  // candidates found, 0 to 3
    int32_t row[3], col[3];
    float value[3][9];

    PIV_PEAK_SCAN() { PIV::ZeroRecord(*this); }
};
static_assert(sizeof(PIV_PEAK_SCAN) == 37 * 4, "PIV_PEAK_SCAN is thirty-seven 32-bit words");
KELVANE_ASSERT_RECORD(PIV_PEAK_SCAN);

namespace PIV {
// The half sizes of the region a local search covers in planes of `size`:
// the cells within hx columns and hy rows of zero displacement, periodically.
SIZE2D PeakSearchHalf(const PIVEVAL_CFG& cfg, const SIZE2D& size);
// Fit types whose fits read more of the plane than a scan keeps.
bool PeakFitNeedsPlane(int fitType);
}  // namespace PIV

class PIV_PeakDetect2D {
public:
    PIV_PeakDetect2D();

    // Copies the record; rebuilds search mask and weights when the peak
    // detection block or the window changed. True when it changed.
    bool setPivEvalCfg(const PIVEVAL_CFG& cfg);
    const PIVEVAL_CFG& pivEvalCfg() const { return m_cfg; }

    // Allocates the scratch of planes of this size (search mask, weights,
    // candidate row, fit points, minimiser): searches and fits then run in
    // the evaluation's parallel workers without allocating. False (error 7)
    // when memory runs out.
    bool prepareFor(const SIZE2D& size);
    // Scans the plane into a PIV_PEAK_SCAN, then fits it as findScannedPeaks.
    bool findPeaks(const float* plane, const SIZE2D& size, int mode, bool autocorrelationMode);
    // The fits, retries and self-correlation step on a scan of a plane of
    // `size` made for `mode` (fit types 0 to 2 only: the others need the plane).
    bool findScannedPeaks(const PIV_PEAK_SCAN& scan, const SIZE2D& size, int mode,
                          bool autocorrelationMode);
    // findPeaks with `offset` in place of SampleOffset for this call.
    bool findOffsetPeaks(const float* plane, const SIZE2D& size, POINT2D offset, int mode,
                         bool autocorrelationMode);

    const CORR_PEAK_DATA* peaks() const { return m_peaks; }
    int validPeakCount() const { return m_count; }
    float minCorrelation() const { return m_min; }
    float maxCorrelation() const { return m_max; }
    float meanSquaredCorrelation() const { return m_meanSquare; }
    const char* getLastError() const { return m_error.getLastError(); }
    int getLastErrorCode() const { return m_error.getLastErrorCode(); }

    // Fit type 5 without a valid auto shape.
    bool needAutoShape() const;
    // Fits the shape of the autocorrelation peak that starts the 2-D Gaussian fits.
    bool calcAutoShape(const float* autoPlane, const SIZE2D& size);
    bool haveAutoShape() const { return m_haveAutoShape; }
    FPOINT3D autoShape() const { return m_autoShape; }
    void setPeakWeightingEnabled(bool enable) { m_peakWeightingEnabled = enable; }
    void clearNonlinearFit() { m_haveAutoShape = false; }
    int fitSize() const { return m_fitSize; }

    PIVerror& error() { return m_error; }

private:
    friend struct PeakFitAccess;  // lets the tests drive single fits

    bool findPeaksOrThrow(const float* plane, const SIZE2D& size, int mode, bool autocorrelation);
    // The entry shared by both: m_plane is the plane or null.
    void fitScan(const SIZE2D& size, int mode, bool autocorrelation);
    void rebuildMaskAndWeights(const SIZE2D& size);
    bool inMask(int row, int col) const { return m_mask[size_t(row) * m_size.width + col] != 0; }

    // Minimum, maximum and mean square of the plane.
    void scanPlane();
    // Searches of m_plane; both fill m_scan.
    void findSinglePeak(bool local);
    void findMultiplePeaks(bool local);
    // The 3x3 values around the candidates of m_scan.
    void storeNeighbourhoods();

    bool doSubPixelFit();
    // The neighbourhood of candidate `index` of the scan, at plane cell (row, col).
    void getPeakNeighbors3x3(int index, int row, int col, CORR_PEAK_DATA& p) const;
    float planeAt(int row, int col) const;
    float weightAt(int row, int col) const;
    int signedIndex(int index, int n) const { return index >= n / 2 ? index - n : index; }

    // The shared start and end of the fits on the five cells of the cross:
    // the peak cleared and its neighbours read; the signed position stored
    // when it lies inside half the plane.
    bool beginCrossFit(int index, int row, int col);
    bool finishCrossFit(int row, int col, float dx, float dy, CORR_PEAK_DATA& p);
    // The fits; each works on peak `index` at plane cell (row, col).
    bool stdGaussPeakFit(int row, int col, int index);
    bool parabolicPeakFit(int row, int col, int index);
    bool lsq3x3PeakFit(int row, int col, int index);
    bool centroidPeakFit(int row, int col, int index);
    bool whittakerFit(int row, int col, int index);
    bool nonLinearFit(int row, int col, int index);
    bool checkPeakShape(const CORR_PEAK_DATA& peak, float tolerance) const;
    // Gathers the cells within the fit radius around (row, col) into m_fitPoints.
    int collectFitPoints(const float* plane, int row, int col, int radius, float& lo, float& hi);
    // False, with the reason printed under `who`, when the collected points
    // cannot carry a 2-D Gaussian.
    bool fitPointsUsable(const char* who, int count, float lo, float hi) const;
    // Maximum of the reconstruction through `n` samples near `start`,
    // searched within +-`reach`; false when it lies beyond half the line.
    bool whittakerLine(int n, int index, double start, double reach, float& position, float& sub,
                       float& height);
    int fitRadiusFor(const SIZE2D& size) const;
    static constexpr int kMaxFitRadius = 8;  // the largest disc a fit gathers

    bool findSelfCorrelation();
    bool doPeakSwap(float y, float x, float radius);

    PIVerror m_error;
    PIVEVAL_CFG m_cfg;
    const float* m_plane = nullptr;
    SIZE2D m_size{0, 0};
    POINT2D m_offset{0, 0};
    CORR_PEAK_DATA m_peaks[3];
    PIV_PEAK_SCAN m_scan;
    std::vector<uint8_t> m_mask;
    std::vector<uint64_t> m_candidates;  // one row of the multiple search, a bit a cell
    SIZE2D m_maskSize{0, 0};
    SIZE2D m_maskHalf{0, 0};
    std::vector<float> m_colWeights, m_rowWeights;
    bool m_peakWeightingEnabled = true;
    int m_index = 0;
    int m_count = 0;
    float m_min = 0.0f, m_max = 0.0f, m_meanSquare = 0.0f;
    int m_fitSize = 3;
    int m_fitRadius = 1;
    PIV::LmFitPoints m_fitPoints;
    std::vector<double> m_line;  // a row or column of the plane for the Whittaker fit
    FPOINT3D m_autoShape{0.0f, 0.0f, 0.0f};
    bool m_haveAutoShape = false;
    PIV::LmWorkspace m_lm;
};
