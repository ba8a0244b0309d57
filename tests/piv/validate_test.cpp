// Validation of vector fields: the single tests on small hand-made fields,
// the retry with the lower correlation peaks, the replacement of outliers,
// and the recovery of a smooth flow from a field with planted outliers.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "field_grids.h"
#include "message_capture.h"
#include "piv_data2d.h"

using field_test::gridOf;

namespace {

constexpr double kPi = 3.14159265358979323846;

// A good result of the evaluation: three peaks, the first one taken.
void setResult(PIV_VECTOR& v, float dx, float dy) {
    v.dx = dx;
    v.dy = dy;
    v.peak[0] = PIV_PEAK{dx, dy, 1.0f};
    v.peak[1] = PIV_PEAK{dx + 7.0f, dy - 5.0f, 0.2f};
    v.peak[2] = PIV_PEAK{dx - 6.0f, dy + 4.0f, 0.2f};
    v.snr = 10.0f;
    v.meanSquaredCorr = 0.5f;
    v.setSuccess();
}

// An nx x ny field with every node (1, 0.5) but what the case changes.
struct Uniform : PIV_Data2D {
    Uniform(int nx, int ny) : PIV_Data2D(gridOf(nx, ny)) {
        for (int k = 0; k < nodeCount(); k++) setResult(data()[k], 1.0f, 0.5f);
        setFlagRawData(true);
    }
    PIV_VECTOR& operator[](int k) { return data()[k]; }
};

// Validation on, nothing else: each test switches on what it exercises.
OUTLIER_CFG onlyEnable() {
    OUTLIER_CFG c;
    c.Enable = true;
    c.TryOtherPeaks = c.InterpolateOutliers = false;
    c.NumberOfPasses = 1;
    return c;
}

bool isOutlier(const PIV_VECTOR& v) {
    return (v.flag & VECTOR_OUTLIER) && !(v.flag & VECTOR_ENABLED);
}

// Expected complaints stay out of the test output.
class Validation : public ::testing::Test {
    MessageCapture m_quiet;
};
using Interpolation = Validation;

}  // namespace

TEST(Erfc, AgreesWithTheLibraryFunctionOnBothSidesOfTheSeriesLimit) {
    for (double x : {-4.0, -2.2, -0.3, 0.0, 0.5, 1.5, 2.19, 2.2, 3.0, 5.5})
        EXPECT_NEAR(PIV::erfc(x), std::erfc(x), 1e-10 * std::erfc(x)) << "x = " << x;
}

// One odd node in a uniform 5 x 5 field, the tests of the row switched on:
// the row's node (12 unless said) ends with the row's flag and the row's
// count is found, every other node keeps its flag.
TEST_F(Validation, EachTestRejectsTheOddNodeAndNothingElse) {
    using Cfg = OUTLIER_CFG;
    struct Case {
        const char* name;
        void (*spoil)(Cfg&, Uniform&);
        int node = 12, found = 1, flag = VECTOR_OUTLIER;
    };
    const Case cases[] = {
        // 30 px is beyond the 20 px allowed.
        {"magnitude", [](Cfg& c, Uniform& f) { c.CheckDisplacement = true, f[12].dx = 30; }},
        // Nine px away from all eight neighbours, 5 allowed.
        {"gradient", [](Cfg& c, Uniform& f) { c.CheckDifference = true, f[12].dx = 10; }},
        // Median of the neighbours 1, the node 5: off by 4 > 3.
        {"median", [](Cfg& c, Uniform& f) { c.CheckMedian = true, f[12].dx = 5; }},
        // Off by 2 with no spread around: 2 / (0 + 0.2) = 10 > 3.
        {"normalized median",
         [](Cfg& c, Uniform& f) { c.CheckNormalizedMedian = true, f[12].dx = 3; }},
        // A top-row node whose neighbours are 1, 3, 6, 7, 8: with four of them
        // disabled it has too few to be judged, and only those four count.
        {"normalized median, border",
         [](Cfg& c, Uniform& f) {
             c.CheckNormalizedMedian = true, f[2].dx = 9;
             for (int k : {1, 3, 6, 7}) f[k].flag = VECTOR_OUTLIER;
         },
         2, 4, VECTOR_ENABLED},
        // Neighbours all of length 1.118 with no spread: 4.0 more is beyond 0 * 1 + 2.
        {"dynamic mean", [](Cfg& c, Uniform& f) { c.CheckDynMean = true, f[12].dx = 5; }},
        // 24 ones and one 11: mean 1.4, deviation 1.96, z = 4.9 > 4.
        {"z-score", [](Cfg& c, Uniform& f) { c.CheckZScore = true, f[12].dx = 11; }},
        // The same node: 25 erfc(4.9) is far below 0.5, 25 erfc(0.2) far above.
        {"Chauvenet", [](Cfg& c, Uniform& f) { c.CheckChauvenet = true, f[12].dx = 11; }},
        {"global histogram",
         [](Cfg& c, Uniform& f) {
             c.CheckGlobalHist = true, f[12].dy = -2.5f;
             c.GlobalHist[0] = GLOBALHIST_ROI{-2, 2, 2, -2, false, false};
         }},
        // Outside the first window, inside the second and third: the first decides.
        {"first histogram window",
         [](Cfg& c, Uniform& f) {
             c.CheckGlobalHist = true, f[12].dx = 5;
             c.GlobalHist[0] = GLOBALHIST_ROI{-2, 2, -2, 2, false, false};
             c.GlobalHist[1] = c.GlobalHist[2] = GLOBALHIST_ROI{4, 6, -2, 2, false, false};
         }},
        // (1.5, 0.8): (0.75)^2 + (0.8)^2 > 1, outside although inside the box.
        {"histogram ellipse",
         [](Cfg& c, Uniform& f) {
             c.CheckGlobalHist = true, f[12].dx = 1.5f, f[12].dy = 0.8f;
             c.GlobalHist[0] = GLOBALHIST_ROI{-2, 2, -1, 1, true, false};
         }},
        {"SNR", [](Cfg& c, Uniform& f) { c.CheckSNR = true, f[12].snr = 4; }},
        // Ratio 2 squared is 4: a second peak above a quarter of the first fails.
        {"peak ratio",
         [](Cfg& c, Uniform& f) { c.CheckPeakRatio = true, f[12].peak[1].value = 0.3f; }},
        // snr * meanSquaredCorr = 0.02 below 0.2 squared.
        {"correlation",
         [](Cfg& c, Uniform& f) { c.CheckCorrelation = true, f[12].meanSquaredCorr = 0.002f; }},
        // Residuals above the 0.5 allowed: a planar two-component field has none.
        {"residuals, 2C",
         [](Cfg& c, Uniform& f) { c.CheckResiduals = true, f[12].residual = 0.8f; }, 12, 0,
         VECTOR_ENABLED},
        {"residuals, 3C",
         [](Cfg& c, Uniform& f) {
             c.CheckResiduals = true, f[12].residual = 0.8f, f.setFlag3C(true);
         }},
        // A zero-length vector is found by the magnitude test alone, as no result.
        {"zero length, no test", [](Cfg&, Uniform& f) { f[12].dx = f[12].dy = 0; }, 12, 0,
         VECTOR_ENABLED},
        {"zero length",
         [](Cfg& c, Uniform& f) { c.CheckDisplacement = true, f[12].dx = f[12].dy = 0; }, 12, 1,
         VECTOR_NO_RESULT | VECTOR_OUTLIER},
        // Vectors edited by hand are left alone.
        {"edited",
         [](Cfg& c, Uniform& f) {
             c.CheckDisplacement = c.CheckNormalizedMedian = true, f[12].dx = 30;
             f[12].flag |= VECTOR_EDITED;
         },
         12, 0, VECTOR_ENABLED | VECTOR_EDITED},
    };
    for (const Case& tc : cases) {
        SCOPED_TRACE(tc.name);
        Uniform f(5, 5);
        OUTLIER_CFG c = onlyEnable();
        tc.spoil(c, f);
        std::vector<int> before;
        for (int k = 0; k < f.nodeCount(); k++) before.push_back(f[k].flag);
        EXPECT_EQ(f.validatePivData(c), tc.found);
        for (int k = 0; k < f.nodeCount(); k++)
            EXPECT_EQ(f[k].flag, k == tc.node ? tc.flag : before[size_t(k)]) << "node " << k;
    }
}

TEST_F(Validation, PeakRatioOnlyInTheFirstPass) {
    Uniform f(5, 5);
    f[3].peak[1].value = 0.9f;
    OUTLIER_CFG c = onlyEnable();
    c.CheckPeakRatio = true;
    std::vector<unsigned char> tags(size_t(f.nodeCount()));
    f.validate(c, false);
    EXPECT_EQ(f.checkPeakRatio(tags.data(), 2), 0);
    EXPECT_EQ(f.checkPeakRatio(tags.data(), 1), 1);
}

TEST_F(Validation, ForcedValidationStartsOverFromTheFirstPeak) {
    Uniform f(4, 4);
    // An earlier validation had replaced node 5; a first peak of (0, 0) means no result.
    f[5].dx = 9.0f;
    f[5].flag = VECTOR_ENABLED | VECTOR_INTERPOLATED;
    f[6].peak[0] = PIV_PEAK{0.0f, 0.0f, 0.0f};
    ASSERT_TRUE(f.validate(onlyEnable(), true));
    EXPECT_EQ(f[5].dx, 1.0f);
    EXPECT_EQ(std::vector<int>({f[5].flag, f[6].flag, f[6].count}),
              std::vector<int>({VECTOR_ENABLED, VECTOR_OUTLIER, 0}));
}

TEST_F(Validation, NarrowGridsRefuseTheNeighbourTestsButRunTheOthers) {
    Uniform f(2, 6);
    f[4].dx = 30.0f;
    OUTLIER_CFG c = onlyEnable();
    c.CheckDisplacement = c.CheckNormalizedMedian = c.CheckDifference = c.CheckDynMean = true;
    // The whole chain still finds the long vector by its magnitude.
    EXPECT_EQ(f.validatePivData(c), 1);
    EXPECT_TRUE(isOutlier(f[4]));
    std::vector<unsigned char> tags(size_t(f.nodeCount()));
    for (const auto& [check, code] :
         {std::pair{&PIV_Data2D::checkNormalizedMedian, int(PIVerror::BAD_GRID_DIMENSION)},
          {&PIV_Data2D::checkDynMean, PIVerror::BAD_GRID_DIMENSION},
          {&PIV_Data2D::checkGradient, PIVerror::CORRUPT_DATA}}) {
        EXPECT_EQ((f.*check)(tags.data()), 0);
        EXPECT_EQ(f.error().getLastErrorCode(), code);
    }
}

// The evaluation kept three peaks per node. Node 12's first peak is wrong and
// its second is right; node 6's first two are wrong and its third is right.
TEST_F(Validation, LowerPeaksAreTriedPassByPass) {
    OUTLIER_CFG c = onlyEnable();
    c.CheckNormalizedMedian = c.TryOtherPeaks = true;
    for (int passes : {3, 1}) {
        Uniform f(5, 5);
        PIV_VECTOR &a = f[12], &b = f[6];
        a.peak[0] = PIV_PEAK{8.0f, -3.0f, 1.0f}, a.peak[1] = PIV_PEAK{1.0f, 0.5f, 0.9f};
        a.dx = 8.0f, a.dy = -3.0f;
        b.peak[0] = PIV_PEAK{-6.0f, 4.0f, 1.0f}, b.peak[1] = PIV_PEAK{7.0f, 7.0f, 0.9f};
        b.peak[2] = PIV_PEAK{1.0f, 0.5f, 0.8f};
        b.dx = -6.0f, b.dy = 4.0f;
        c.NumberOfPasses = passes;
        EXPECT_EQ(f.validatePivData(c), 2);
        for (const PIV_VECTOR* v : {&a, &b}) {
            if (passes == 1) {  // the lower peaks are never tried
                EXPECT_TRUE(isOutlier(*v));
                EXPECT_EQ(v->dx, v->peak[0].x);
                continue;
            }
            EXPECT_EQ(v->flag, VECTOR_ENABLED | VECTOR_LOWER_PEAK);
            EXPECT_EQ(v->dx, 1.0f);
            EXPECT_EQ(v->dy, 0.5f);
        }
    }
}

TEST_F(Validation, AnEmptyLowerPeakDisablesTheVector) {
    Uniform f(5, 5);
    PIV_VECTOR& a = f[12];
    a.dx = a.peak[0].x = 9.0f;
    a.peak[1] = PIV_PEAK{0.0f, 0.0f, 0.0f};
    OUTLIER_CFG c = onlyEnable();
    c.CheckNormalizedMedian = c.TryOtherPeaks = true;
    c.NumberOfPasses = 2;
    f.validatePivData(c);
    EXPECT_EQ(a.flag, VECTOR_OUTLIER);
    EXPECT_EQ(a.count, 0);
}

TEST_F(Interpolation, FiveGoodNeighboursGoToTheGaussianWeights) {
    Uniform f(3, 3);
    // The centre and three neighbours are rejected: five good ones stay, the
    // corners at distance sqrt(2) and node 7 below at distance 1.
    for (int k : {4, 1, 3, 5}) f[k].flag = VECTOR_OUTLIER;
    f[7].dx = 4.0f;
    // The border goes first: nodes 1, 3, 5 from their own neighbourhoods.
    ASSERT_EQ(f.interpolateOutliers(false), 4);
    // Then the centre: just replaced nodes do not count, so its sources are
    // the corners (weight e^-1, dx 1) and node 7 (weight e^-0.5, dx 4).
    const double wc = std::exp(-1.0), w7 = std::exp(-0.5);
    EXPECT_NEAR(f[4].dx, (4 * wc * 1.0 + w7 * 4.0) / (4 * wc + w7), 1e-6);
    EXPECT_EQ(f[4].flag, VECTOR_ENABLED | VECTOR_INTERPOLATED);
}

TEST_F(Interpolation, ANodeWithNothingInReachHasNoResult) {
    Uniform f(12, 1);
    for (int k = 0; k < 5; k++) f[k].flag = VECTOR_OUTLIER;
    f.interpolateOutliers(false);
    // Node 0 is five nodes from the first good one; node 1 is four away.
    EXPECT_EQ(f[0].flag, 0);
    EXPECT_EQ(f[1].flag, VECTOR_ENABLED | VECTOR_INTERPOLATED);
}

TEST_F(Interpolation, MaskedHolesAreFilledFromTheNearestRing) {
    Uniform f(5, 5);
    PIV_VECTOR& hole = f[12];
    hole.dx = hole.dy = 0.0f;
    hole.flag = VECTOR_MASKED | VECTOR_OUTLIER;
    EXPECT_EQ(f.interpolateMaskedVectors(), 1);
    EXPECT_FLOAT_EQ(hole.dx, 1.0f);
    EXPECT_FLOAT_EQ(hole.dy, 0.5f);
    EXPECT_EQ(hole.flag, VECTOR_ENABLED | VECTOR_INTERPOLATED);
}

TEST_F(Interpolation, OnlyTheUsersOwnDisabledVectorsWhenAsked) {
    Uniform f(5, 5);
    f[12].flag = VECTOR_OUTLIER | VECTOR_EDITED;
    f[6].flag = VECTOR_OUTLIER;
    f[12].dx = f[6].dx = 7.0f;
    EXPECT_EQ(f.interpolateAllDisabled(), 1);
    // A well-surrounded node takes the plain mean of its eight neighbours.
    // Node 6 is not marked for replacement, so it counts as a source with
    // its 7: (7 * 1 + 7) / 8.
    EXPECT_FLOAT_EQ(f[12].dx, 1.75f);
}

TEST_F(Validation, AgainstTheMeanOfASeries) {
    Uniform f(3, 3), mean(3, 3), dev(3, 3), other(4, 3);
    for (int k = 0; k < 9; k++) dev[k].dx = dev[k].dy = 0.5f;
    f[2].dx = 2.6f;   // 3.2 deviations off: disabled at factor 3
    f[4].dy = -0.9f;  // 2.8 deviations: kept
    EXPECT_EQ(f.validateAgainstMean(&mean, &dev, 3.0f), 1);
    EXPECT_EQ(f[2].flag, VECTOR_OUTLIER);
    EXPECT_EQ(f[4].flag, VECTOR_ENABLED);
    EXPECT_EQ(f.validateAgainstMean(&other, &dev, 3.0f), -1);
    EXPECT_EQ(f.error().getLastErrorCode(), PIVerror::GRID_MISMATCH);
    EXPECT_EQ(f.validateAgainstMean(nullptr, &dev, 3.0f), -1);
    EXPECT_EQ(f.error().getLastErrorCode(), PIVerror::DATA_IS_NULL);
}

// A smooth flow with planted outliers: dx = 2 sin(2 pi y / 32), dy = 2 sin(2
// pi x / 32) in node units, 5% of the nodes replaced by errors of 2 to 10 px,
// some of them next to each other.
TEST_F(Validation, RecoversASmoothFlowFromPlantedOutliers) {
    const int n = 64;
    PIV_Data2D f(gridOf(n, n));
    auto truth = [](int k, float* dx, float* dy) {
        *dx = float(2.0 * std::sin(2.0 * kPi / 32.0 * (k / n)));
        *dy = float(2.0 * std::sin(2.0 * kPi / 32.0 * (k % n)));
    };
    float dx, dy;
    for (int k = 0; k < n * n; k++) truth(k, &dx, &dy), setResult(f.data()[k], dx, dy);
    f.setFlagRawData(true);
    std::mt19937 rng(1234);
    std::uniform_int_distribution<int> node(0, n * n - 1);
    std::uniform_real_distribution<double> length(2.0, 10.0), angle(0.0, 2.0 * kPi);
    std::set<int> bad;
    while (int(bad.size()) < n * n * 5 / 100) {
        const int k = node(rng);
        bad.insert(k);
        // Every fifth outlier brings a neighbour to the right with it.
        if (bad.size() % 5 == 0 && k % n < n - 1) bad.insert(k + 1);
    }
    for (int k : bad) {
        const double l = length(rng), a = angle(rng);
        PIV_VECTOR& v = f.data()[k];
        v.peak[0].x = v.dx += float(l * std::cos(a));
        v.peak[0].y = v.dy += float(l * std::sin(a));
    }
    OUTLIER_CFG c = onlyEnable();
    c.NumberOfPasses = 5;
    c.CheckNormalizedMedian = c.InterpolateOutliers = true;
    c.NormalizedMedianThreshold = 3.0f;
    c.NormalizedMedianNoiseFloor = 0.2f;
    ASSERT_TRUE(f.validate(c, false));
    int caught = 0, falseAlarms = 0;
    double squared = 0.0;
    for (int k = 0; k < n * n; k++) {
        const PIV_VECTOR& v = f.data()[k];
        const bool flagged = (v.flag & (VECTOR_OUTLIER | VECTOR_INTERPOLATED)) != 0;
        (bad.count(k) ? caught : falseAlarms) += flagged;
        truth(k, &dx, &dy);
        squared += (v.dx - dx) * (v.dx - dx) + (v.dy - dy) * (v.dy - dy);
    }
    const double caughtShare = double(caught) / double(bad.size());
    const double falseShare = double(falseAlarms) / double(n * n - int(bad.size()));
    const double rms = std::sqrt(squared / (n * n));
    EXPECT_GE(caughtShare, 0.95);
    EXPECT_LE(falseShare, 0.01);
    EXPECT_LT(rms, 0.05);
}

// An evaluation that validated between its own passes asks the next
// validation to be skipped once; a forced one runs anyway.
TEST_F(Validation, SkipValidationIsOneShot) {
    Uniform f(5, 5);
    f[12].dx = f[12].peak[0].x = 9.0f;
    OUTLIER_CFG c = onlyEnable();
    c.CheckNormalizedMedian = true;
    for (bool force : {false, true}) {
        f.setFlagSkipValidation(true);
        ASSERT_TRUE(f.validate(c, force));
        EXPECT_FALSE(f.skipValidation());
        EXPECT_EQ(isOutlier(f[12]), force);
    }
}
