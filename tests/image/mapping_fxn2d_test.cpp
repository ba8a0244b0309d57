// Mapping functions fitted to calibration points made from known mappings;
// positions are compared, never coefficients, since several coefficient sets
// can describe one mapping.

#include <cmath>
#include <random>

#include "image_test_support.h"
#include "mapping_fxn2d.h"

using namespace image_test;
using MappingFit = ScratchFiles;
using MappingFiles = ScratchFiles;

namespace {

// A known mapping from a dewarped pixel (X, Y) to its image position.
using Truth = std::function<void(double X, double Y, double& x, double& y)>;

// Magnification and offsets of the dewarped image in these tests: object
// units of 0.5 px, object origin at pixel (20, 30).
constexpr double kMag = 2.0, kOffX = 10.0, kOffY = 15.0;

Truth Polynomial(int degree) {
    return [degree](double X, double Y, double& x, double& y) {
        x = 12.0 + 0.95 * X + 0.04 * Y;
        y = -7.0 - 0.03 * X + 1.02 * Y;
        if (degree >= 2) {
            x += 2e-4 * X * X - 1e-4 * X * Y + 5e-5 * Y * Y;
            y += -1e-4 * X * X + 2e-4 * X * Y + 1e-4 * Y * Y;
        }
        if (degree >= 3) {
            x += 3e-7 * X * X * X - 2e-7 * X * Y * Y;
            y += 2e-7 * X * X * Y + 1e-7 * Y * Y * Y;
        }
    };
}

// A camera looking at the plane at an angle: a homography.
Truth Perspective() {
    return [](double X, double Y, double& x, double& y) {
        const double d = 1.0 + 2e-4 * X - 1e-4 * Y;
        x = (1.1 * X + 0.05 * Y + 8.0) / d;
        y = (-0.02 * X + 0.9 * Y + 20.0) / d;
    };
}

// Points on a 9 x 9 grid of dewarped pixels 0..480, in object units. With
// noise, Gaussian offsets scaled so that their RMS per coordinate is exactly
// `noise` px: what a fit can reach then does not depend on the draw.
std::vector<POINT_PAIR> GridPoints(const Truth& truth, double noise = 0.0, unsigned seed = 1) {
    std::mt19937 rng(seed);
    std::normal_distribution<double> gauss(0.0, 1.0);
    std::vector<double> offsets(2 * 81);
    double sum = 0.0;
    for (double& o : offsets) {
        o = gauss(rng);
        sum += o * o;
    }
    const double scale = noise / std::sqrt(sum / offsets.size());
    std::vector<POINT_PAIR> pts;
    for (int j = 0; j < 9; j++)
        for (int i = 0; i < 9; i++) {
            const double X = 60.0 * i, Y = 60.0 * j;
            double x, y;
            truth(X, Y, x, y);
            const size_t k = 2 * pts.size();
            x += offsets[k] * scale;
            y += offsets[k + 1] * scale;
            pts.emplace_back(x, y, X / kMag - kOffX, Y / kMag - kOffY, 0.0);
        }
    return pts;
}

// The mapping of `type` fitted to the points; a failed fit fails the test.
MAPPING_FXN_2D Fit(const std::vector<POINT_PAIR>& pts, int type, int order) {
    MAPPING_FXN_2D map;
    map.magnification = kMag;
    map.obj_x_offset = kOffX;
    map.obj_y_offset = kOffY;
    map.dest_img_width = 481;
    map.dest_img_height = 481;
    EXPECT_TRUE(PIV::CalculateProjectionMatrix(pts.data(), static_cast<int>(pts.size()), &map,
                                               static_cast<PIV::MappingType>(type), order, order))
        << "type " << type << " order " << order;
    return map;
}

// Largest distance between the fit and the truth at the grid points and at
// the centres of the grid cells (30 px away from any point).
double WorstError(const MAPPING_FXN_2D& map, const Truth& truth) {
    double worst = 0.0;
    for (double X = 0; X <= 480; X += 30)
        for (double Y = 0; Y <= 480; Y += 30) {
            double x, y, tx, ty;
            map.mappedPoint(X, Y, x, y);
            truth(X, Y, tx, ty);
            worst = std::max(worst, std::hypot(x - tx, y - ty));
        }
    return worst;
}

struct FitCase {
    const char* truthName;
    Truth truth;
    int type;
    int order;
};

// A fitter holding `pts`, with the given scale and offsets when scale > 0.
MappingFunction2D Fitter(const std::vector<POINT_PAIR>& pts, double scale = 0, double offX = 0,
                         double offY = 0) {
    MappingFunction2D fit;
    if (scale > 0) {
        MAPPING_PARAMS params;
        params.scale = scale;
        params.offset[0] = offX;
        params.offset[1] = offY;
        fit.setMappingParams(params);
    }
    fit.setCalibrationPoints(pts.data(), static_cast<int>(pts.size()));
    return fit;
}

// The points of a file, or none when it does not load.
std::vector<POINT_PAIR> LoadPoints(const std::string& path) {
    POINT_PAIR* pts = nullptr;
    int n = 0;
    if (!PIV::LoadCalibrationPoints(path.c_str(), &pts, &n)) return {};
    std::vector<POINT_PAIR> v(pts, pts + n);
    delete[] pts;
    return v;
}

}  // namespace

// An affine truth is in every form, a quadratic one in the polynomials of
// degree 2 and up and in the forms with quadratic numerators (3 and 4), a
// perspective one in all rational forms.
TEST_F(MappingFit, EveryTypeThatCanExpressTheTruthReproducesIt) {
    const FitCase cases[] = {
        {"degree 1", Polynomial(1), 0, 1},    {"degree 2", Polynomial(2), 0, 2},
        {"degree 2", Polynomial(2), 3, 1},    {"degree 2", Polynomial(2), 4, 1},
        {"degree 3", Polynomial(3), 0, 3},    {"degree 3", Polynomial(3), 0, 5},
        {"perspective", Perspective(), 1, 1}, {"perspective", Perspective(), 2, 1},
        {"perspective", Perspective(), 3, 1}, {"perspective", Perspective(), 4, 1}};
    for (const FitCase& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << c.truthName << " type " << c.type << " order " << c.order);
        const MAPPING_FXN_2D map = Fit(GridPoints(c.truth), c.type, c.order);
        EXPECT_LT(WorstError(map, c.truth), 1e-3);
        EXPECT_TRUE(PIV::IsValidMapping(&map));
    }
}

TEST_F(MappingFit, NoiseOfATenthPixelLeavesAtMostATenthPixelRms) {
    // Noise of 0.1 px RMS per coordinate on 81 points: a least-squares fit
    // of p parameters absorbs part of it, leaving about 0.1 sqrt(1 - p / 162).
    const FitCase cases[] = {{"degree 3", Polynomial(3), 0, 3},
                             {"perspective", Perspective(), 1, 1}};
    for (const FitCase& c : cases) {
        SCOPED_TRACE(testing::Message() << c.truthName << " type " << c.type);
        MappingFunction2D fit = Fitter(GridPoints(c.truth, 0.1, 7), kMag, kOffX, kOffY);
        ASSERT_TRUE(fit.calculateMapping(c.type, c.order, c.order, true));
        double rms, worst;
        ASSERT_TRUE(fit.calculateResiduals(rms, worst));
        // rms is of the distance (two coordinates): per coordinate / sqrt 2.
        const double perCoordinate = rms / std::sqrt(2.0);
        EXPECT_LE(perCoordinate, 0.1);
        EXPECT_GT(perCoordinate, 0.05) << "noise went missing";
        // Between the points, and out to the corners, the fit stays within
        // twice the noise of the truth.
        EXPECT_LT(WorstError(fit.mapping(), c.truth), 0.2);
    }
}

TEST_F(MappingFit, DegenerateCalibrationData) {
    std::vector<POINT_PAIR> pts = GridPoints(Polynomial(1));
    DebugLevelScope level(1);
    std::vector<POINT_PAIR> column = pts, twoPlanes = pts, few(pts.begin(), pts.begin() + 12),
                            seven(pts.begin(), pts.begin() + 7);
    for (POINT_PAIR& p : column) p.X = 3.0;
    twoPlanes[3].Z = 1.0;
    struct Case {
        const std::vector<POINT_PAIR>& points;
        int type, order;
        const char* text;
    } cases[] = {{column, 0, 1, "calibration data constant along X"},
                 {twoPlanes, 0, 1, "data is not co-planar, use 3-D calibration"},
                 {pts, 6, 1, "invalid mapping type(6) requested"},
                 // A polynomial of degree 5 needs 21 points.
                 {few, 0, 5, "not enough points (12) for fit of degree 5"},
                 // Seven points are too few for any form.
                 {seven, 4, 1, "too few points for 2-D calibration"}};
    for (const Case& c : cases) {
        messages.lines().clear();
        MappingFunction2D fit = Fitter(c.points);
        EXPECT_FALSE(fit.calculateMapping(c.type, c.order, c.order, true) || fit.isValid());
        EXPECT_TRUE(HasText(messages.all(), c.text)) << "type " << c.type;
    }
}

TEST_F(MappingFit, ZerothOrderIsAShift) {
    // Every image point lies 3.5 px right of and 2 px above its dewarped pixel.
    const Truth shift = [](double X, double Y, double& x, double& y) {
        x = X + 3.5;
        y = Y - 2.0;
    };
    const MAPPING_FXN_2D map = Fit(GridPoints(shift), 0, -1);
    double x, y;
    map.mappedPoint(100.0, 50.0, x, y);
    EXPECT_NEAR(std::hypot(x - 103.5, y - 48.0), 0.0, 1e-9);
}

// A zero denominator gives the position 0.
TEST(MappingRecord, AZeroDenominatorGivesZero) {
    MAPPING_FXN_2D map;
    map.maptype = PIV::MAPPING_NONLINEAR1;
    map.a00 = map.a11 = 1.0;
    map.a03 = 5.0;
    map.a30 = 1.0;  // D = X - 10 + ... : zero at X = 10
    map.a33 = -10.0;
    const FPOINT2D p = map.mappedPoint(FPOINT2D{10.0f, 4.0f});
    EXPECT_TRUE(p.x == 0.0f && p.y == 0.0f);
    const FPOINT2D q = map.mappedPoint(FPOINT2D{12.0f, 4.0f});
    EXPECT_FLOAT_EQ(q.x, 17.0f / 2.0f);
}

TEST(MappingRecord, InverseOfAPerspectiveUndoesIt) {
    const MAPPING_FXN_2D map = Fit(GridPoints(Perspective()), 1, 1);
    MAPPING_FXN_2D inv, mid;
    ASSERT_TRUE(PIV::ComputeInverseProjectionMatrix(&map, &inv));
    double x, y, X, Y;
    map.mappedPoint(123.0, 77.0, x, y);
    inv.mappedPoint(x, y, X, Y);
    EXPECT_NEAR(std::hypot(X - 123.0, Y - 77.0), 0.0, 1e-6);
    // Halfway between a mapping and itself is the mapping.
    ASSERT_TRUE(PIV::CombineProjectionMatrices(&map, &map, &mid, 0.5));
    EXPECT_TRUE(PIV::SameRecord(mid, map));
}

TEST_F(MappingFiles, CalibrationPointsRoundTrip) {
    const std::string path = dir.file("points.txt");
    WriteBytes(path,
               "# x y X Y Z\n"
               "% a second kind of comment\n"
               "10.5 20.25 -1 2 0\n"
               "11 21 0 2 0\n"
               "not a point\n"
               "12 22 1 2 0.5\n");
    const std::vector<POINT_PAIR> pts = LoadPoints(path);
    ASSERT_EQ(pts.size(), 3u);
    EXPECT_TRUE(PIV::SameRecord(pts[0], POINT_PAIR(10.5, 20.25, -1, 2)));
    EXPECT_TRUE(PIV::SameRecord(pts[2], POINT_PAIR(12, 22, 1, 2, 0.5)));

    const std::string copy = dir.file("copy.txt");
    ASSERT_TRUE(PIV::SaveCalibrationPoints(copy.c_str(), pts.data(), 3, true));
    const std::vector<POINT_PAIR> again = LoadPoints(copy);
    ASSERT_EQ(again.size(), 3u);
    for (int i = 0; i < 3; i++) EXPECT_TRUE(PIV::SameRecord(pts[i], again[i]));

    EXPECT_TRUE(LoadPoints(dir.file("none.txt")).empty());

    // A comment longer than the line buffer of 1024 characters is skipped
    // whole: the numbers behind its first 1023 characters are no point.
    WriteBytes(path, "#" + std::string(1022, ' ') + "5 6 7 8\n" + "1 2 3 4 0\n" + "%" +
                         std::string(1022, '=') + "9 9 9 9 9\n");
    ASSERT_EQ(LoadPoints(path).size(), 1u);
    EXPECT_TRUE(PIV::SameRecord(LoadPoints(path)[0], POINT_PAIR(1, 2, 3, 4)));

    // Half a million points arrive in order: the store grows in proportion,
    // not by a fixed step that would copy it some 4000 times over.
    const int count = 500000;
    std::string text;
    for (int i = 0; i < count; i++) text += std::to_string(i % 10) + " 1 2 3\n";
    WriteBytes(path, text);
    const std::vector<POINT_PAIR> many = LoadPoints(path);
    ASSERT_EQ(many.size(), size_t(count));
    EXPECT_TRUE(PIV::SameRecord(many.back(), POINT_PAIR((count - 1) % 10, 1, 2, 3)));
}

TEST_F(MappingFiles, CoefficientFileRoundTrip) {
    const MAPPING_FXN_2D poly = Fit(GridPoints(Polynomial(2)), 0, 2);
    const std::string path = dir.file("poly.par");
    ASSERT_TRUE(PIV::SaveProjectionMatrix(&poly, path.c_str(), "View0_"));
    const std::string text = ReadBytes(path);
    EXPECT_TRUE(HasText(text, "View0_px05"));
    EXPECT_FALSE(HasText(text, "View0_px06"));

    MAPPING_FXN_2D back;
    ASSERT_TRUE(PIV::ReadProjectionMatrix(&back, path.c_str(), "View0_"));
    EXPECT_DOUBLE_EQ(back.magnification, kMag);
    // Six significant digits in the file: positions agree to far below a pixel.
    const Truth written = [&](double X, double Y, double& x, double& y) {
        poly.mappedPoint(X, Y, x, y);
    };
    EXPECT_LT(WorstError(back, written), 1e-3);
}

namespace {

// An affine camera: object (X, Y) seen at (20 + 2X, 30 + 2Y), for X, Y on a
// 6 x 6 grid 0..100.
std::vector<POINT_PAIR> AffinePoints(int imageHeight = 0) {
    std::vector<POINT_PAIR> pts;
    for (int j = 0; j <= 5; j++)
        for (int i = 0; i <= 5; i++) {
            const double X = 20.0 * i, Y = 20.0 * j;
            double y = 30 + 2 * Y;
            // Stored from the bottom when a height is given.
            if (imageHeight > 0) y = imageHeight - 1 - y;
            pts.emplace_back(20 + 2 * X, y, X, Y);
        }
    return pts;
}

}  // namespace

TEST_F(MappingFit, OriginAtTheBottomTurnsImageRowsRound) {
    MappingFunction2D a = Fitter(AffinePoints()), b = Fitter(AffinePoints(260));
    MappingFunction2D c = Fitter(AffinePoints(260));
    b.setOriginMode(1);
    b.setSourceImageSize(SIZE2D{240, 260});
    ASSERT_TRUE(a.calculateMapping(0, 1, 1, true));
    ASSERT_TRUE(b.calculateMapping(0, 1, 1, true));
    EXPECT_NEAR(b.mappedY(37.0, 81.0), a.mappedY(37.0, 81.0), 1e-9);
    EXPECT_NEAR(a.mappedY(37.0, 81.0), 30 + 2 * 81.0, 1e-9);
    // Without the size the fit still runs (with a warning).
    c.setOriginMode(1);
    EXPECT_TRUE(c.calculateMapping(0, 1, 1, true));
}

TEST_F(MappingFit, WithoutTheInverseFlagTheFitGoesFromImageToObject) {
    MappingFunction2D fit = Fitter(AffinePoints(), 4.0, 5.0);  // 4 px per object unit
    ASSERT_TRUE(fit.calculateMapping(1, 1, 1, false));
    // Image (60, 70) shows object (20, 20): dewarped pixel ((20 + 5) 4, 20 * 4).
    const FPOINT2D p = fit.mappedPoint2D(60.0, 70.0);
    EXPECT_NEAR(p.x, 100.0f, 1e-3);
    EXPECT_NEAR(p.y, 80.0f, 1e-3);
}

TEST_F(MappingFit, BestFitToImageFillsTheDestination) {
    MappingFunction2D fit = Fitter(AffinePoints());
    // Image corners (0, 0) and (239, 259) show objects (-10, -15) and
    // (109.5, 114.5): 129.5 units high, the tighter axis of 511 pixels.
    ASSERT_TRUE(fit.bestFitToImage(SIZE2D{240, 260}));
    EXPECT_NEAR(fit.mappingParams().scale, 511.0 / 129.5, 1e-9);
}
