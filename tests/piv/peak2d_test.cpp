// Tests of PIV_PeakDetect2D on correlation planes built by hand in FFT order:
// zero displacement at index 0, negative displacements at the far end, both
// axes periodic. x runs along the columns, y down the rows.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "message_capture.h"
#include "piv_peak2d.h"

namespace {

constexpr int kN = 32;

int Signed(int i, int n) { return i >= n / 2 ? i - n : i; }

double Wrap(double d, int n) {
    while (d >= n / 2.0) d -= n;
    while (d < -n / 2.0) d += n;
    return d;
}

// The particle-image profile exp(-8 r^2 / D^2), D the e^-2 diameter.
double Profile(double r2, double diameter) { return std::exp(-8.0 * r2 / (diameter * diameter)); }

// A Gaussian peak centred on the displacement (px, py). With `overlap` each
// cell is multiplied by the window overlap (N - |s|) / N of its displacement
// s, the loss the detector's peak weights undo: after weighting the fit sees
// the pure Gaussian.
std::vector<float> GaussPlane(double px, double py, double diameter, bool overlap, int n = kN) {
    std::vector<float> p(size_t(n) * n);
    for (int row = 0; row < n; row++)
        for (int col = 0; col < n; col++) {
            const int sx = Signed(col, n), sy = Signed(row, n);
            const double dx = Wrap(sx - px, n), dy = Wrap(sy - py, n);
            double v = Profile(dx * dx + dy * dy, diameter);
            if (overlap) v *= double(n - std::abs(sx)) / n * double(n - std::abs(sy)) / n;
            p[size_t(row) * n + col] = float(v);
        }
    return p;
}

float& At(std::vector<float>& p, int x, int y, int n = kN) {
    return p[size_t((y + n) % n) * n + (x + n) % n];
}

PIVEVAL_CFG PeakCfg(int type, int size = 3) {
    PIVEVAL_CFG cfg;
    cfg.Type = type;
    cfg.Size = size;
    return cfg;
}

const SIZE2D kSize{kN, kN};
constexpr double kDiameter = 4.0;  // sigma 1 cell

// Position and sub-pixel shift of a peak: x, y, subX, subY.
std::vector<float> where(const CORR_PEAK_DATA& p) {
    return {p.x, p.y, p.subX, p.subY};
}

// Vertex of the parabola through (-1, a), (0, b), (1, c).
double Vertex(double a, double b, double c) { return (a - c) / (2.0 * (a - 2.0 * b + c)); }

}  // namespace

// Every fit type on a peak at (5.3, -2.7) and on one near the origin at
// (0.3, -0.2). Three-point Gaussian and 3x3 log-paraboloid see an exact
// paraboloid in the logarithms; the 2-D Gaussian fits the model exactly. The
// other fits have a known bias on a sampled Gaussian, worked out below.
TEST(PeakDetect2D, FitTypesRecoverKnownDisplacement) {
    MessageCapture quiet;
    for (const bool atOrigin : {false, true}) {
        const double px = atOrigin ? 0.3 : 5.3, py = atOrigin ? -0.2 : -2.7;
        const double fx = px - std::round(px), fy = py - std::round(py);
        const std::vector<float> plane = GaussPlane(px, py, kDiameter, !atOrigin);
        auto g = [](double d) { return Profile(d * d, kDiameter); };
        // Parabolic fit on the three samples; it weights even the origin peak,
        // whose neighbours at +-1 then carry N / (N - 1).
        const double k = atOrigin ? double(kN) / (kN - 1) : 1.0;
        auto parabola = [&](double f) { return Vertex(k * g(-1 - f), g(-f), k * g(1 - f)); };
        // Centroid over the 3x3 square: sum d g(d - f) / sum g(d - f).
        auto centroid = [&](double f) {
            return (g(1 - f) - g(-1 - f)) / (g(-1 - f) + g(-f) + g(1 - f));
        };
        struct Case {
            int type;
            double ex, ey, tol;
        } cases[] = {
            {0, px, py, 2e-5},
            {1, px, py, 2e-5},
            // f = 0.3 gives 0.252 (bias -0.048), f = -0.2 gives -0.175.
            {2, std::round(px) + parabola(fx), std::round(py) + parabola(fy), 1e-4},
            // f = 0.3 gives 0.163; the 3x3 centroid is pulled hard to the integer.
            {3, std::round(px) + centroid(fx), std::round(py) + centroid(fy), 1e-4},
            // The cardinal series of a sigma-1 Gaussian (Fourier transform e^-4.9 at
            // Nyquist) puts the maximum within 0.005 of the truth. Near the
            // origin the weights N / (N - i) on the reconstructed line tilt it
            // outwards by up to sigma^2 / N = 0.03.
            {4, px, py, atOrigin ? 0.03 : 0.008},
            {5, px, py, 1e-4},
        };
        for (const Case& c : cases) {
            SCOPED_TRACE(testing::Message() << "type " << c.type << (atOrigin ? " origin" : ""));
            PIV_PeakDetect2D det;
            PIVEVAL_CFG cfg = PeakCfg(c.type, c.type == 5 ? 5 : 3);
            cfg.CutOff = 1e-6;
            cfg.MaxIter = 100;
            det.setPivEvalCfg(cfg);
            ASSERT_TRUE(det.findPeaks(plane.data(), kSize, PIV::PEAK_MULTIPLE, false));
            const CORR_PEAK_DATA& p = det.peaks()[0];
            EXPECT_EQ(p.status, PIV::PEAK_GOOD);
            EXPECT_NEAR(p.x, c.ex, c.tol);
            EXPECT_NEAR(p.y, c.ey, c.tol);
            EXPECT_EQ(det.validPeakCount(), 1);
        }
    }
}

// A scan record written by hand: the cell (5, -3) of the peak at (5.3, -2.7)
// and its nine values give fits 0 and 1 the exact position. Records no plane
// of the size gives, and fits that need the whole plane, are refused.
TEST(PeakDetect2D, ScannedPeaksFitLikeThePlane) {
    MessageCapture quiet;
    std::vector<float> plane = GaussPlane(5.3, -2.7, kDiameter, true);
    PIV_PEAK_SCAN scan;
    scan.max = At(plane, 5, -3);
    scan.count = 1;
    scan.row[0] = kN - 3, scan.col[0] = 5;
    const int dx[9] = {0, 0, 0, 1, -1, -1, -1, 1, 1}, dy[9] = {0, -1, 1, 0, 0, -1, 1, -1, 1};
    for (int k = 0; k < 9; k++) scan.value[0][k] = At(plane, 5 + dx[k], -3 + dy[k]);
    for (const int type : {0, 1}) {
        PIV_PeakDetect2D det;
        det.setPivEvalCfg(PeakCfg(type));
        ASSERT_TRUE(det.findScannedPeaks(scan, kSize, PIV::PEAK_MULTIPLE, false)) << type;
        EXPECT_NEAR(det.peaks()[0].x, 5.3, 2e-5);
        EXPECT_NEAR(det.peaks()[0].y, -2.7, 2e-5);
    }
    PIV_PeakDetect2D det;
    PIV_PEAK_SCAN tooMany = scan, outside = scan;
    tooMany.count = 4;
    outside.row[0] = kN;
    EXPECT_FALSE(det.findScannedPeaks(tooMany, kSize, PIV::PEAK_MULTIPLE, false));
    EXPECT_FALSE(det.findScannedPeaks(outside, kSize, PIV::PEAK_MULTIPLE, false));
    det.setPivEvalCfg(PeakCfg(PIV::PEAKFIT_WHITTAKER));
    EXPECT_FALSE(det.findScannedPeaks(scan, kSize, PIV::PEAK_MULTIPLE, false));
}

// The 2-D Gaussian starts from the shape of the autocorrelation peak. A
// particle of diameter D correlates with itself into a peak of D sqrt(2).
TEST(PeakDetect2D, AutoShapeFromAutocorrelationPlane) {
    MessageCapture quiet;
    PIV_PeakDetect2D det;
    det.setPivEvalCfg(PeakCfg(PIV::PEAKFIT_NONLIN_GAUSS, 5));
    const double autoD = kDiameter * std::sqrt(2.0);
    const std::vector<float> autoPlane = GaussPlane(0.0, 0.0, autoD, false);
    ASSERT_TRUE(det.calcAutoShape(autoPlane.data(), kSize));
    EXPECT_FALSE(det.needAutoShape());
    EXPECT_NEAR(det.autoShape().x, autoD, 1e-3);
    EXPECT_NEAR(det.autoShape().y, autoD, 1e-3);
    EXPECT_NEAR(det.autoShape().z, 0.0, 1e-3);

    // A peak of the same shape keeps it.
    const std::vector<float> same = GaussPlane(5.3, -2.7, autoD, true);
    ASSERT_TRUE(det.findPeaks(same.data(), kSize, PIV::PEAK_MULTIPLE, false));
    EXPECT_NEAR(det.peaks()[0].shapeX, autoD, 1e-3);
    EXPECT_FALSE(det.needAutoShape());
    // A peak of D departs by 29 % (> 20 %): the auto shape must be made again.
    const std::vector<float> narrow = GaussPlane(5.3, -2.7, kDiameter, true);
    ASSERT_TRUE(det.findPeaks(narrow.data(), kSize, PIV::PEAK_MULTIPLE, false));
    EXPECT_NEAR(det.peaks()[0].shapeX, kDiameter, 1e-3);
    EXPECT_TRUE(det.needAutoShape());
}

// Refused at every debug level; the error is kept only above level 0.
TEST(PeakDetect2D, ThreeRowPlaneRefused) {
    MessageCapture quiet;
    const std::vector<float> plane(3 * kN, 1.0f);
    for (const auto& [level, code] : {std::pair{3, int(PIVerror::BAD_SAMPLE_SIZE)}, {0, 0}}) {
        PIV_PeakDetect2D det;
        DebugLevelScope scope(level);
        EXPECT_FALSE(det.findPeaks(plane.data(), SIZE2D{kN, 3}, PIV::PEAK_MULTIPLE, false));
        EXPECT_EQ(det.getLastErrorCode(), code);
    }
}

// A peak on row H / 2 is the displacement -H / 2. The three-point fits need
// |y| < H / 2; the 3x3 fit only limits its own shift.
TEST(PeakDetect2D, PeakAtHalfPlane) {
    MessageCapture quiet;
    const int n = 16;
    const std::vector<float> plane = GaussPlane(3.0, -8.0, kDiameter, true, n);
    const struct {
        int type;
        bool good;
    } cases[] = {{PIV::PEAKFIT_GAUSS_3PT, false}, {PIV::PEAKFIT_PARABOLIC, false},
                 {PIV::PEAKFIT_GAUSS_3X3, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.type);
        PIV_PeakDetect2D det;
        det.setPivEvalCfg(PeakCfg(c.type));
        EXPECT_EQ(det.findPeaks(plane.data(), SIZE2D{n, n}, PIV::PEAK_MULTIPLE, false), c.good);
        EXPECT_EQ(det.peaks()[0].status, c.good ? PIV::PEAK_GOOD : PIV::PEAK_FIT_FAILED);
        EXPECT_NEAR(det.peaks()[0].y, -8.0, 1e-5);
    }
}

// Cells alone on a zero plane: every logarithm around them is -1000, n
// equals s but not c, so the cross gives no sub-pixel shift at all.
TEST(PeakDetect2D, LoneCellsKeepScanOrderWithoutSubPixelShift) {
    std::vector<float> plane(size_t(kN) * kN, 0.0f);
    At(plane, 5, 3) = 0.8f;    // first in scan order
    At(plane, 2, 10) = 0.8f;   // equal, later
    At(plane, 12, 6) = 0.5f;   // lower, between them in scan order
    PIV_PeakDetect2D det;
    det.setPivEvalCfg(PeakCfg(PIV::PEAKFIT_GAUSS_3X3));
    ASSERT_TRUE(det.findPeaks(plane.data(), kSize, PIV::PEAK_MULTIPLE, false));
    ASSERT_EQ(det.validPeakCount(), 3);
    EXPECT_EQ(det.peaks()[0].status, PIV::PEAK_GOOD);
    EXPECT_EQ(where(det.peaks()[0]), (std::vector<float>{5, 3, 0, 0}));
    EXPECT_EQ(where(det.peaks()[1]), (std::vector<float>{2, 10, 0, 0}));
    EXPECT_FLOAT_EQ(det.peaks()[2].height, 0.5f);
    // The single search keeps the first of equal cells too; searching only
    // within 4 cells of zero displacement, it finds (-3, 2) on the last
    // columns, ahead of its equal (1, -2) on the last rows.
    ASSERT_TRUE(det.findPeaks(plane.data(), kSize, PIV::PEAK_SINGLE, false));
    EXPECT_EQ(where(det.peaks()[0]), (std::vector<float>{5, 3, 0, 0}));
    At(plane, -3, 2) = 0.3f;
    At(plane, 1, -2) = 0.3f;
    PIVEVAL_CFG roi = PeakCfg(PIV::PEAKFIT_GAUSS_3X3);
    roi.ROI = true;
    roi.ROI_Size = SIZE3D{4, 4, 1};
    det.setPivEvalCfg(roi);
    ASSERT_TRUE(det.findPeaks(plane.data(), kSize, PIV::PEAK_SINGLE, false));
    EXPECT_EQ(where(det.peaks()[0]), (std::vector<float>{-3, 2, 0, 0}));
}

// The search region follows the settings even after the detector was
// prepared for the plane size under others (a correlator prepares it with
// every setting): a region of 4 cells leaves out a taller peak 8 cells out,
// inside the default 10.
TEST(PeakDetect2D, SearchRegionFollowsSettingsAfterPrepare) {
    std::vector<float> plane(size_t(kN) * kN, 0.0f);
    At(plane, 8, 0) = 0.9f;
    At(plane, 2, 1) = 0.5f;
    PIV_PeakDetect2D det;
    ASSERT_TRUE(det.prepareFor(kSize));
    PIVEVAL_CFG roi = PeakCfg(PIV::PEAKFIT_GAUSS_3X3);
    roi.ROI = true;
    roi.ROI_Size = SIZE3D{4, 4, 1};
    det.setPivEvalCfg(roi);
    for (const int mode : {PIV::PEAK_SINGLE, PIV::PEAK_MULTIPLE}) {
        ASSERT_TRUE(det.findPeaks(plane.data(), kSize, mode, false));
        EXPECT_EQ(where(det.peaks()[0]), (std::vector<float>{2, 1, 0, 0})) << "mode " << mode;
    }
}

// A nearly degenerate paraboloid at the origin (never weighted): all nine
// values positive, no corner above both its edge neighbours, so the 3x3 fit
// runs and shifts by about 4.6 px. More than 3 px is thrown out.
TEST(PeakDetect2D, RunawayLsqFitFallsBackToIntegerPeak) {
    MessageCapture quiet;
    const double c = 0, n = -1, s = -1, e = -0.5, w = -0.5;
    const double nw = -1, sw = -1, ne = -0.5, se = -0.6;
    // The least-squares paraboloid through the nine logarithms.
    const double B = (sw - se - nw + ne) / 4, M = (c + n + s + e + w + nw + sw + ne + se) / 3;
    const double Axx = (se + sw + w + e + nw + ne) / 2 - M, Ayy = (sw + s + se + nw + n + ne) / 2 - M;
    const double D = B * B - 4 * Axx * Ayy;
    const double Dx = (se - sw - w + e - nw + ne) / 6, Dy = (-sw - s - se + nw + n + ne) / 6;
    const double subX = (2 * Ayy * Dx - B * Dy) / D, subY = (B * Dx - 2 * Axx * Dy) / D;
    ASSERT_GT(std::hypot(subX, subY), 3.0);
    ASSERT_LE(std::fabs(subX), kN / 2);

    std::vector<float> plane(size_t(kN) * kN, 0.0f);
    const double logs[3][3] = {{nw, n, ne}, {w, c, e}, {sw, s, se}};  // [row + 1][col + 1]
    for (int dy = -1; dy <= 1; dy++)
        for (int dx = -1; dx <= 1; dx++) At(plane, dx, dy) = float(std::exp(logs[dy + 1][dx + 1]));
    PIV_PeakDetect2D det;
    det.setPivEvalCfg(PeakCfg(PIV::PEAKFIT_GAUSS_3X3));
    EXPECT_FALSE(det.findPeaks(plane.data(), kSize, PIV::PEAK_MULTIPLE, false));
    const CORR_PEAK_DATA& p = det.peaks()[0];
    EXPECT_EQ(p.status, PIV::PEAK_FIT_FAILED);
    EXPECT_EQ(where(p), (std::vector<float>{0, 0, 0, 0}));
    EXPECT_NEAR(p.shapeExtra, D, 1e-4);  // the fit did see all nine points
}

namespace {
// An origin peak whose west neighbour is 0: the three-point Gaussian can only
// take the one-sided rule on x. Corners 0, so the 3x3 fit uses the cross.
std::vector<float> WestlessPlane() {
    std::vector<float> plane(size_t(kN) * kN, 0.0f);
    At(plane, 0, 0) = 1.0f;
    At(plane, 0, -1) = 0.5f;
    At(plane, 0, 1) = 0.7f;
    At(plane, 1, 0) = 0.6f;
    return plane;
}
}  // namespace

TEST(PeakDetect2D, TypesAboveFiveRetryWithLsqFit) {
    const std::vector<float> plane = WestlessPlane();
    // The cross on the logarithms: (lo - hi) / (2 (lo - 2 c + hi)), ln 1 = 0.
    const double ey = (std::log(0.5) - std::log(0.7)) / (2 * (std::log(0.5) + std::log(0.7)));
    const double ex = (-1000 - std::log(0.6)) / (2 * (-1000 + std::log(0.6)));
    PIV_PeakDetect2D lsq;
    lsq.setPivEvalCfg(PeakCfg(PIV::PEAKFIT_GAUSS_3X3));
    ASSERT_TRUE(lsq.findPeaks(plane.data(), kSize, PIV::PEAK_MULTIPLE, false));
    const CORR_PEAK_DATA& ref = lsq.peaks()[0];
    EXPECT_NEAR(ref.x, ex, 1e-5);
    EXPECT_NEAR(ref.y, ey, 1e-5);
    for (const int type : {PIV::PEAKFIT_FIT_BLOB, PIV::PEAKFIT_FIT_RECT}) {
        SCOPED_TRACE(type);
        PIV_PeakDetect2D det;
        det.setPivEvalCfg(PeakCfg(type));
        EXPECT_TRUE(det.findPeaks(plane.data(), kSize, PIV::PEAK_MULTIPLE, false));
        EXPECT_EQ(det.peaks()[0].status, PIV::PEAK_GOOD);
        EXPECT_EQ(where(det.peaks()[0]), where(ref));
    }
}

// Type 0 retries with the three-point Gaussian, which fails again through the
// one-sided rule on x. Only a runaway shift (above 3 px) falls back to the
// integer peak; this failed fit keeps its position: x = e / (c + e) = 0.375.
TEST(PeakDetect2D, FailedRetryKeepsOneSidedPosition) {
    const std::vector<float> plane = WestlessPlane();
    PIV_PeakDetect2D det;
    det.setPivEvalCfg(PeakCfg(PIV::PEAKFIT_GAUSS_3PT));
    EXPECT_FALSE(det.findPeaks(plane.data(), kSize, PIV::PEAK_MULTIPLE, false));
    const CORR_PEAK_DATA& p = det.peaks()[0];
    EXPECT_EQ(p.status, PIV::PEAK_FIT_FAILED);
    EXPECT_NEAR(p.x, 0.6 / 1.6, 1e-6);
    EXPECT_NEAR(p.y, (std::log(0.5) - std::log(0.7)) / (2 * (std::log(0.5) + std::log(0.7))), 1e-5);
}

// Autocorrelation of a double exposure: the self peak (highest) sits where the
// image meets itself, at (-ox, oy) folded into the plane, the particle pair at
// +-d around it. The self peak must end up last.
TEST(PeakDetect2D, SelfCorrelationPeakGoesLast) {
    MessageCapture quiet;
    const struct {
        int ox, oy, tx, ty;
    } cases[] = {{0, 0, 0, 0}, {4, 2, -4, 2}, {20, 0, 12, 0}, {0, -20, 0, 12}, {-3, 20, 3, -12}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "offset " << c.ox << "," << c.oy);
        std::vector<float> plane(size_t(kN) * kN, 0.0f);
        At(plane, c.tx, c.ty) = 1.0f;
        At(plane, c.tx + 5, c.ty + 3) = 0.5f;
        At(plane, c.tx - 5, c.ty - 3) = 0.5f;
        PIVEVAL_CFG cfg = PeakCfg(PIV::PEAKFIT_GAUSS_3X3);
        cfg.SampleOffset = POINT3D{c.ox, c.oy, 0};
        PIV_PeakDetect2D det;
        det.setPivEvalCfg(cfg);
        ASSERT_TRUE(det.findPeaks(plane.data(), kSize, PIV::PEAK_MULTIPLE, true));
        const CORR_PEAK_DATA* p = det.peaks();
        EXPECT_FLOAT_EQ(p[2].x, float(c.tx));
        EXPECT_FLOAT_EQ(p[2].y, float(c.ty));
        EXPECT_FLOAT_EQ(p[0].height, 0.5f);
        EXPECT_FLOAT_EQ(std::fabs(float(Wrap(p[0].x - c.tx, kN))), 5.0f);
        EXPECT_FLOAT_EQ(std::fabs(float(Wrap(p[0].y - c.ty, kN))), 3.0f);
    }
}

TEST(PeakDetect2D, FitSizeBelowThreeRefused) {
    MessageCapture quiet;
    PIV_PeakDetect2D det;
    det.setPivEvalCfg(PeakCfg(PIV::PEAKFIT_GAUSS_3X3, 2));
    EXPECT_EQ(det.getLastErrorCode(), PIVerror::INVALID_PEAKFIT_PARAMETER);
}
