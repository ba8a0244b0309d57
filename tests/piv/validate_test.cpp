// Validation of vector fields: the single tests on small hand-made fields,
// the retry with the lower correlation peaks, the replacement of outliers,
// and the recovery of a smooth flow from a field with planted outliers.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <set>
#include <string>
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

// Every node (1, 0.5) but what the case changes.
void uniform(PIV_Data2D& f) {
    for (int k = 0; k < f.nodeCount(); k++) setResult(f.data()[k], 1.0f, 0.5f);
    f.setFlagRawData(true);
}

// Validation on, nothing else: each test switches on what it exercises.
OUTLIER_CFG onlyEnable() {
    OUTLIER_CFG c;
    c.Enable = true;
    c.TryOtherPeaks = false;
    c.InterpolateOutliers = false;
    c.NumberOfPasses = 1;
    return c;
}

bool isOutlier(const PIV_VECTOR& v) {
    return (v.flag & VECTOR_OUTLIER) && !(v.flag & VECTOR_ENABLED);
}

}  // namespace

TEST(Erfc, AgreesWithTheLibraryFunctionOnBothSidesOfTheSeriesLimit) {
    for (double x : {-4.0, -2.5, -2.2, -1.0, -0.3, 0.0, 0.1, 0.5, 1.0, 1.5, 2.0, 2.19, 2.2, 2.5,
                     3.0, 4.0, 5.5}) {
        const double expected = std::erfc(x);
        EXPECT_NEAR(PIV::erfc(x), expected, 1e-10 * expected) << "x = " << x;
    }
}

// One odd node in the middle of a uniform 5 x 5 field; each test, switched
// on alone, must reject that node and no other.
struct SingleTestCase {
    const char* name;
    void (*configure)(OUTLIER_CFG&);
    void (*spoil)(PIV_VECTOR&);
};

TEST(Validation, EachTestRejectsTheOddNodeAndNothingElse) {
    const SingleTestCase cases[] = {
        // 30 px is beyond the 20 px allowed.
        {"magnitude", [](OUTLIER_CFG& c) { c.CheckDisplacement = true; },
         [](PIV_VECTOR& v) { v.dx = 30.0f; }},
        // Nine px away from all eight neighbours, 5 allowed.
        {"gradient", [](OUTLIER_CFG& c) { c.CheckDifference = true; },
         [](PIV_VECTOR& v) { v.dx = 10.0f; }},
        // Median of the neighbours 1, the node 5: off by 4 > 3.
        {"median", [](OUTLIER_CFG& c) { c.CheckMedian = true; },
         [](PIV_VECTOR& v) { v.dx = 5.0f; }},
        // Off by 2 with no spread around: 2 / (0 + 0.2) = 10 > 3.
        {"normalized median", [](OUTLIER_CFG& c) { c.CheckNormalizedMedian = true; },
         [](PIV_VECTOR& v) { v.dx = 3.0f; }},
        // Neighbours all of length 1.118 with no spread: 4.0 more is beyond 0 * 1 + 2.
        {"dynamic mean", [](OUTLIER_CFG& c) { c.CheckDynMean = true; },
         [](PIV_VECTOR& v) { v.dx = 5.0f; }},
        // 24 ones and one 11: mean 1.4, deviation 1.96, z = 4.9 > 4.
        {"z-score", [](OUTLIER_CFG& c) { c.CheckZScore = true; },
         [](PIV_VECTOR& v) { v.dx = 11.0f; }},
        // The same node: 25 erfc(4.9) is far below 0.5, 25 erfc(0.2) far above.
        {"Chauvenet", [](OUTLIER_CFG& c) { c.CheckChauvenet = true; },
         [](PIV_VECTOR& v) { v.dx = 11.0f; }},
        {"global histogram",
         [](OUTLIER_CFG& c) {
             c.CheckGlobalHist = true;
             c.GlobalHist[0] = GLOBALHIST_ROI{-2.0f, 2.0f, 2.0f, -2.0f, false, false};
         },
         [](PIV_VECTOR& v) { v.dy = -2.5f; }},
        {"histogram ellipse",
         [](OUTLIER_CFG& c) {
             c.CheckGlobalHist = true;
             c.GlobalHist[0] = GLOBALHIST_ROI{-2.0f, 2.0f, -1.0f, 1.0f, true, false};
         },
         // (1.5, 0.8): (0.75)^2 + (0.8)^2 > 1, outside although inside the box.
         [](PIV_VECTOR& v) { v.dx = 1.5f, v.dy = 0.8f; }},
        {"SNR", [](OUTLIER_CFG& c) { c.CheckSNR = true; }, [](PIV_VECTOR& v) { v.snr = 4.0f; }},
        // Ratio 2 squared is 4: a second peak above a quarter of the first fails.
        {"peak ratio", [](OUTLIER_CFG& c) { c.CheckPeakRatio = true; },
         [](PIV_VECTOR& v) { v.peak[1].value = 0.3f; }},
        // snr * meanSquaredCorr = 0.02 below 0.2 squared.
        {"correlation", [](OUTLIER_CFG& c) { c.CheckCorrelation = true; },
         [](PIV_VECTOR& v) { v.meanSquaredCorr = 0.002f; }},
    };
    for (const SingleTestCase& tc : cases) {
        MessageCapture quiet;
        PIV_Data2D f(gridOf(5, 5));
        uniform(f);
        tc.spoil(f.data()[12]);
        OUTLIER_CFG c = onlyEnable();
        tc.configure(c);
        EXPECT_EQ(f.validatePivData(c), 1) << tc.name;
        EXPECT_TRUE(isOutlier(f.data()[12])) << tc.name;
        for (int k = 0; k < f.nodeCount(); k++)
            if (k != 12) {
                EXPECT_EQ(f.data()[k].flag, VECTOR_ENABLED) << tc.name << " node " << k;
            }
    }
}

TEST(Validation, ZeroLengthVectorsAreFoundOnlyWithTheMagnitudeTest) {
    MessageCapture quiet;
    PIV_Data2D f(gridOf(5, 5));
    uniform(f);
    f.data()[7].dx = f.data()[7].dy = 0.0f;
    OUTLIER_CFG c = onlyEnable();
    EXPECT_EQ(f.validatePivData(c), 0);
    c.CheckDisplacement = true;
    EXPECT_EQ(f.validatePivData(c), 1);
    // No result rather than an outlier: flag 12.
    EXPECT_EQ(f.data()[7].flag, VECTOR_NO_RESULT | VECTOR_OUTLIER);
}

TEST(Validation, VectorsEditedByHandAreLeftAlone) {
    MessageCapture quiet;
    PIV_Data2D f(gridOf(5, 5));
    uniform(f);
    f.data()[12].dx = 30.0f;
    f.data()[12].flag |= VECTOR_EDITED;
    OUTLIER_CFG c = onlyEnable();
    c.CheckDisplacement = c.CheckNormalizedMedian = true;
    EXPECT_EQ(f.validatePivData(c), 0);
    EXPECT_EQ(f.data()[12].flag, VECTOR_ENABLED | VECTOR_EDITED);
}

TEST(Validation, PeakRatioOnlyInTheFirstPass) {
    MessageCapture quiet;
    PIV_Data2D f(gridOf(5, 5));
    uniform(f);
    f.data()[3].peak[1].value = 0.9f;
    OUTLIER_CFG c = onlyEnable();
    c.CheckPeakRatio = true;
    std::vector<unsigned char> tags(size_t(f.nodeCount()));
    f.validate(c, false);
    EXPECT_EQ(f.checkPeakRatio(tags.data(), 2), 0);
    EXPECT_EQ(f.checkPeakRatio(tags.data(), 1), 1);
}

TEST(Validation, WithEnableOffTheFieldIsMarkedValidatedAndUnchanged) {
    PIV_Data2D f(gridOf(4, 4));
    uniform(f);
    f.data()[5].dx = 100.0f;
    OUTLIER_CFG c;
    c.CheckDisplacement = true;
    ASSERT_TRUE(f.validate(c, true));
    EXPECT_TRUE(f.isValidated());
    EXPECT_EQ(f.data()[5].flag, VECTOR_ENABLED);
    EXPECT_EQ(f.data()[5].dx, 100.0f);
}

TEST(Validation, ForcedValidationStartsOverFromTheFirstPeak) {
    MessageCapture quiet;
    PIV_Data2D f(gridOf(4, 4));
    uniform(f);
    // An earlier validation had replaced node 5; a first peak of (0, 0) means no result.
    f.data()[5].dx = 9.0f;
    f.data()[5].flag = VECTOR_ENABLED | VECTOR_INTERPOLATED;
    f.data()[6].peak[0] = PIV_PEAK{0.0f, 0.0f, 0.0f};
    ASSERT_TRUE(f.validate(onlyEnable(), true));
    EXPECT_EQ(f.data()[5].dx, 1.0f);
    EXPECT_EQ(f.data()[5].flag, VECTOR_ENABLED);
    EXPECT_EQ(f.data()[6].flag, VECTOR_OUTLIER);
    EXPECT_EQ(f.data()[6].count, 0);
}

TEST(Validation, NarrowGridsRefuseTheNeighbourTestsButRunTheOthers) {
    MessageCapture quiet;
    PIV_Data2D f(gridOf(2, 6));
    uniform(f);
    f.data()[4].dx = 30.0f;
    OUTLIER_CFG c = onlyEnable();
    c.CheckDisplacement = true;
    c.CheckNormalizedMedian = c.CheckDifference = c.CheckDynMean = true;
    // The whole chain still finds the long vector by its magnitude.
    EXPECT_EQ(f.validatePivData(c), 1);
    EXPECT_TRUE(isOutlier(f.data()[4]));
    std::vector<unsigned char> tags(size_t(f.nodeCount()));
    EXPECT_EQ(f.checkNormalizedMedian(tags.data()), 0);
    EXPECT_EQ(f.error().getLastErrorCode(), PIVerror::BAD_GRID_DIMENSION);
    EXPECT_EQ(f.checkDynMean(tags.data()), 0);
    EXPECT_EQ(f.error().getLastErrorCode(), PIVerror::BAD_GRID_DIMENSION);
    EXPECT_EQ(f.checkGradient(tags.data()), 0);
    EXPECT_EQ(f.error().getLastErrorCode(), PIVerror::CORRUPT_DATA);
}

TEST(Validation, TheFirstHistogramWindowDecides) {
    MessageCapture quiet;
    PIV_Data2D f(gridOf(3, 3));
    uniform(f);
    f.data()[0].dx = 5.0f;  // outside the first window, inside the second
    OUTLIER_CFG c = onlyEnable();
    c.CheckGlobalHist = true;
    c.GlobalHist[0] = GLOBALHIST_ROI{-2.0f, 2.0f, -2.0f, 2.0f, false, false};
    c.GlobalHist[1] = GLOBALHIST_ROI{4.0f, 6.0f, -2.0f, 2.0f, false, false};
    c.GlobalHist[2] = GLOBALHIST_ROI{4.0f, 6.0f, -2.0f, 2.0f, false, false};
    EXPECT_EQ(f.validatePivData(c), 1);
    EXPECT_TRUE(isOutlier(f.data()[0]));
}

// The evaluation kept three peaks per node. Node 12's first peak is wrong and
// its second is right; node 6's first two are wrong and its third is right.
TEST(Validation, LowerPeaksAreTriedPassByPass) {
    MessageCapture quiet;
    PIV_Data2D f(gridOf(5, 5));
    uniform(f);
    PIV_VECTOR& a = f.data()[12];
    a.peak[0] = PIV_PEAK{8.0f, -3.0f, 1.0f};
    a.peak[1] = PIV_PEAK{1.0f, 0.5f, 0.9f};
    a.dx = 8.0f;
    a.dy = -3.0f;
    PIV_VECTOR& b = f.data()[6];
    b.peak[0] = PIV_PEAK{-6.0f, 4.0f, 1.0f};
    b.peak[1] = PIV_PEAK{7.0f, 7.0f, 0.9f};
    b.peak[2] = PIV_PEAK{1.0f, 0.5f, 0.8f};
    b.dx = -6.0f;
    b.dy = 4.0f;
    OUTLIER_CFG c = onlyEnable();
    c.CheckNormalizedMedian = true;
    c.TryOtherPeaks = true;
    c.NumberOfPasses = 3;
    EXPECT_EQ(f.validatePivData(c), 2);
    for (const PIV_VECTOR* v : {&a, &b}) {
        EXPECT_EQ(v->flag, VECTOR_ENABLED | VECTOR_LOWER_PEAK);
        EXPECT_EQ(v->dx, 1.0f);
        EXPECT_EQ(v->dy, 0.5f);
    }
    // With one pass the lower peaks are never tried.
    PIV_Data2D g(gridOf(5, 5));
    uniform(g);
    g.data()[12] = a;
    g.data()[12].dx = 8.0f;
    g.data()[12].flag = VECTOR_ENABLED;
    c.NumberOfPasses = 1;
    EXPECT_EQ(g.validatePivData(c), 1);
    EXPECT_TRUE(isOutlier(g.data()[12]));
    EXPECT_EQ(g.data()[12].dx, 8.0f);
}

TEST(Validation, AnEmptyLowerPeakDisablesTheVector) {
    MessageCapture quiet;
    PIV_Data2D f(gridOf(5, 5));
    uniform(f);
    PIV_VECTOR& a = f.data()[12];
    a.dx = a.peak[0].x = 9.0f;
    a.peak[1] = PIV_PEAK{0.0f, 0.0f, 0.0f};
    OUTLIER_CFG c = onlyEnable();
    c.CheckNormalizedMedian = true;
    c.TryOtherPeaks = true;
    c.NumberOfPasses = 2;
    f.validatePivData(c);
    EXPECT_EQ(a.flag, VECTOR_OUTLIER);
    EXPECT_EQ(a.count, 0);
}

TEST(Interpolation, AWellSurroundedNodeTakesThePlainMean) {
    MessageCapture quiet;
    PIV_Data2D f(gridOf(5, 5));
    uniform(f);
    // Neighbours of node 12 (2, 2): make them differ so the mean is telling.
    const int around[8] = {6, 7, 8, 11, 13, 16, 17, 18};
    for (int i = 0; i < 8; i++) f.data()[around[i]].dx = float(i);  // mean 3.5
    f.data()[12].flag = VECTOR_OUTLIER;
    EXPECT_EQ(f.interpolateOutliers(false), 1);
    EXPECT_FLOAT_EQ(f.data()[12].dx, 3.5f);
    EXPECT_FLOAT_EQ(f.data()[12].dy, 0.5f);
    EXPECT_EQ(f.data()[12].flag, VECTOR_ENABLED | VECTOR_INTERPOLATED);
}

TEST(Interpolation, FiveGoodNeighboursGoToTheGaussianWeights) {
    MessageCapture quiet;
    PIV_Data2D f(gridOf(3, 3));
    uniform(f);
    // The centre and three neighbours are rejected: five good ones stay, the
    // corners at distance sqrt(2) and two edge nodes at distance 1.
    for (int k : {4, 1, 3, 5}) f.data()[k].flag = VECTOR_OUTLIER;
    f.data()[7].dx = 4.0f;  // below, distance 1
    // The border goes first: nodes 1, 3, 5 from their own neighbourhoods.
    ASSERT_EQ(f.interpolateOutliers(false), 4);
    // Then the centre: tag-4 (just replaced) nodes do not count, so its
    // sources are the corners (weight e^-1, dx 1) and node 7 (weight e^-0.5, dx 4).
    const double wc = std::exp(-1.0), w7 = std::exp(-0.5);
    EXPECT_NEAR(f.data()[4].dx, (4 * wc * 1.0 + w7 * 4.0) / (4 * wc + w7), 1e-6);
    EXPECT_EQ(f.data()[4].flag, VECTOR_ENABLED | VECTOR_INTERPOLATED);
}

TEST(Interpolation, ANodeWithNothingInReachHasNoResult) {
    MessageCapture quiet;
    PIV_Data2D f(gridOf(12, 1));
    uniform(f);
    for (int k = 0; k < 5; k++) f.data()[k].flag = VECTOR_OUTLIER;
    f.interpolateOutliers(false);
    // Node 0 is five nodes from the first good one; node 1 is four away.
    EXPECT_EQ(f.data()[0].flag, 0);
    EXPECT_EQ(f.data()[1].flag, VECTOR_ENABLED | VECTOR_INTERPOLATED);
}

TEST(Interpolation, MaskedHolesAreFilledFromTheNearestRing) {
    MessageCapture quiet;
    PIV_Data2D f(gridOf(5, 5));
    uniform(f);
    PIV_VECTOR& hole = f.data()[12];
    hole.dx = hole.dy = 0.0f;
    hole.flag = VECTOR_MASKED | VECTOR_OUTLIER;
    EXPECT_EQ(f.interpolateMaskedVectors(), 1);
    EXPECT_FLOAT_EQ(hole.dx, 1.0f);
    EXPECT_FLOAT_EQ(hole.dy, 0.5f);
    EXPECT_EQ(hole.flag, VECTOR_ENABLED | VECTOR_INTERPOLATED);
    EXPECT_EQ(hole.ix, 48);
    EXPECT_FLOAT_EQ(hole.peak[2].x, 1.0f);
    EXPECT_FLOAT_EQ(hole.peak[2].value, 1.0f);
}

TEST(Validation, AgainstTheMeanOfASeries) {
    MessageCapture quiet;
    PIV_Data2D f(gridOf(3, 3)), mean(gridOf(3, 3)), dev(gridOf(3, 3));
    uniform(f);
    uniform(mean);
    uniform(dev);
    for (int k = 0; k < 9; k++) dev.data()[k].dx = dev.data()[k].dy = 0.5f;
    f.data()[2].dx = 2.6f;   // 3.2 deviations off: disabled at factor 3
    f.data()[4].dy = -0.9f;  // 2.8 deviations: kept
    EXPECT_EQ(f.validateAgainstMean(&mean, &dev, 3.0f), 1);
    EXPECT_EQ(f.data()[2].flag, VECTOR_OUTLIER);
    EXPECT_EQ(f.data()[4].flag, VECTOR_ENABLED);
    PIV_Data2D other(gridOf(4, 3));
    uniform(other);
    EXPECT_EQ(f.validateAgainstMean(&other, &dev, 3.0f), -1);
    EXPECT_EQ(f.error().getLastErrorCode(), PIVerror::GRID_MISMATCH);
    EXPECT_EQ(f.validateAgainstMean(nullptr, &dev, 3.0f), -1);
    EXPECT_EQ(f.error().getLastErrorCode(), PIVerror::DATA_IS_NULL);
}

// A smooth flow with planted outliers: dx = 2 sin(2 pi y / 32), dy = 2 sin(2
// pi x / 32) in node units, 5% of the nodes replaced by errors of 2 to 10 px,
// some of them next to each other.
TEST(Validation, RecoversASmoothFlowFromPlantedOutliers) {
    MessageCapture quiet;
    const int n = 64;
    PIV_Data2D f(gridOf(n, n));
    auto truth = [](int i, int j, float* dx, float* dy) {
        const double k = 2.0 * kPi / 32.0;
        *dx = float(2.0 * std::sin(k * j));
        *dy = float(2.0 * std::sin(k * i));
    };
    for (int j = 0; j < n; j++)
        for (int i = 0; i < n; i++) {
            float dx, dy;
            truth(i, j, &dx, &dy);
            setResult(f.data()[j * n + i], dx, dy);
        }
    f.setFlagRawData(true);
    std::mt19937 rng(1234);
    std::uniform_int_distribution<int> node(0, n * n - 1);
    std::uniform_real_distribution<double> length(2.0, 10.0), angle(0.0, 2.0 * kPi);
    std::set<int> bad;
    const int target = n * n * 5 / 100;
    while (int(bad.size()) < target) {
        const int k = node(rng);
        bad.insert(k);
        // Every fifth outlier brings a neighbour to the right with it.
        if (bad.size() % 5 == 0 && k % n < n - 1) bad.insert(k + 1);
    }
    for (int k : bad) {
        const double l = length(rng), a = angle(rng);
        PIV_VECTOR& v = f.data()[k];
        v.dx += float(l * std::cos(a));
        v.dy += float(l * std::sin(a));
        v.peak[0].x = v.dx;
        v.peak[0].y = v.dy;
    }
    OUTLIER_CFG c = onlyEnable();
    c.NumberOfPasses = 5;
    c.CheckNormalizedMedian = true;
    c.NormalizedMedianThreshold = 3.0f;
    c.NormalizedMedianNoiseFloor = 0.2f;
    c.InterpolateOutliers = true;
    ASSERT_TRUE(f.validate(c, false));
    int caught = 0, falseAlarms = 0;
    double squared = 0.0;
    for (int j = 0; j < n; j++)
        for (int i = 0; i < n; i++) {
            const int k = j * n + i;
            const PIV_VECTOR& v = f.data()[k];
            const bool flagged = (v.flag & (VECTOR_OUTLIER | VECTOR_INTERPOLATED)) != 0;
            if (bad.count(k))
                caught += flagged;
            else
                falseAlarms += flagged;
            float dx, dy;
            truth(i, j, &dx, &dy);
            squared += (v.dx - dx) * (v.dx - dx) + (v.dy - dy) * (v.dy - dy);
        }
    const double caughtShare = double(caught) / double(bad.size());
    const double falseShare = double(falseAlarms) / double(n * n - int(bad.size()));
    const double rms = std::sqrt(squared / (n * n));
    RecordProperty("outliers", int(bad.size()));
    RecordProperty("caught", caught);
    RecordProperty("falseAlarms", falseAlarms);
    std::printf("  planted %zu outliers: caught %.1f%%, false alarms %.2f%%, rms error %.4f px\n",
                bad.size(), 100.0 * caughtShare, 100.0 * falseShare, rms);
    EXPECT_GE(caughtShare, 0.95);
    EXPECT_LE(falseShare, 0.01);
    EXPECT_LT(rms, 0.05);
}

TEST(Validation, ABorderNodeWithTooFewNeighboursPassesTheMedianTest) {
    MessageCapture quiet;
    PIV_Data2D f(gridOf(5, 5));
    uniform(f);
    f.data()[2].dx = 9.0f;  // top row; its neighbours are 1, 3, 6, 7, 8
    for (int k : {1, 3, 6, 7}) f.data()[k].flag = VECTOR_OUTLIER;
    OUTLIER_CFG c = onlyEnable();
    c.CheckNormalizedMedian = true;
    EXPECT_EQ(f.validatePivData(c), 4) << "only the four disabled before";
    EXPECT_EQ(f.data()[2].flag, VECTOR_ENABLED);
}

TEST(Validation, WithoutReplacementTheLoopRunsEveryPass) {
    MessageCapture capture;
    DebugLevelScope level(1);
    PIV_Data2D f(gridOf(5, 5));
    uniform(f);
    f.data()[12].dx = 9.0f;
    OUTLIER_CFG c = onlyEnable();
    c.CheckNormalizedMedian = true;
    c.NumberOfPasses = 4;
    EXPECT_EQ(f.validatePivData(c), 1);
    EXPECT_EQ(f.data()[12].dx, 9.0f);
    EXPECT_TRUE(isOutlier(f.data()[12]));
    int passes = 0, deactivated = 0;
    for (const std::string& l : capture.lines()) {
        passes += l.find("of 4 : validatePivData()") != std::string::npos;
        deactivated += l.find("---> 1 deactivated (4.0%)") != std::string::npos;
    }
    EXPECT_EQ(passes, 4);
    EXPECT_EQ(deactivated, 4);
}

TEST(Interpolation, OnlyTheUsersOwnDisabledVectorsWhenAsked) {
    MessageCapture quiet;
    PIV_Data2D f(gridOf(5, 5));
    uniform(f);
    f.data()[12].flag = VECTOR_OUTLIER | VECTOR_EDITED;
    f.data()[12].dx = 7.0f;
    f.data()[6].flag = VECTOR_OUTLIER;
    f.data()[6].dx = 7.0f;
    EXPECT_EQ(f.interpolateAllDisabled(), 1);
    EXPECT_EQ(f.data()[12].flag, VECTOR_ENABLED | VECTOR_INTERPOLATED);
    // Node 6 is not marked for replacement, so it counts as a source with
    // its 7: (7 * 1 + 7) / 8.
    EXPECT_FLOAT_EQ(f.data()[12].dx, 1.75f);
    EXPECT_EQ(f.data()[6].flag, VECTOR_OUTLIER);
}

TEST(Validation, ResidualsOfThreeComponentFieldsOnly) {
    MessageCapture quiet;
    PIV_Data2D f(gridOf(4, 4));
    uniform(f);
    f.data()[5].residual = 0.8f;  // above the 0.5 allowed
    OUTLIER_CFG c = onlyEnable();
    c.CheckResiduals = true;
    EXPECT_EQ(f.validatePivData(c), 0) << "a planar two-component field has no residuals";
    f.setFlag3C(true);
    EXPECT_EQ(f.validatePivData(c), 1);
    EXPECT_TRUE(isOutlier(f.data()[5]));
}

// The chain after an evaluation validates with the field's own settings
// and replaces what it rejects before converting and differentiating.
TEST(Validation, PostProcessingValidatesAndReplaces) {
    MessageCapture quiet;
    PIV_Data2D f(gridOf(6, 6));
    uniform(f);
    f.data()[14].dx = f.data()[14].peak[0].x = 8.0f;
    PIV_PARAMETERS p = f.pivParameters();
    p.outlier = onlyEnable();
    p.outlier.CheckNormalizedMedian = true;
    p.outlier.InterpolateOutliers = true;
    f.setPivParameters(p);
    f.setFlagAllowPostProcess(true);
    ASSERT_TRUE(f.postProcess(nullptr, nullptr, false));
    EXPECT_TRUE(f.isValidated());
    EXPECT_TRUE(f.isConverted());
    EXPECT_TRUE(f.isDifferentiated());
    EXPECT_EQ(f.data()[14].flag, VECTOR_ENABLED | VECTOR_INTERPOLATED);
    EXPECT_FLOAT_EQ(f.data()[14].dx, 1.0f);
    EXPECT_EQ(f.vectorsInterpolated(), 1u);
}

// An evaluation that validated between its own passes asks the next
// validation to be skipped once; a forced one runs anyway.
TEST(Validation, SkipValidationIsOneShot) {
    MessageCapture quiet;
    PIV_Data2D f(gridOf(5, 5));
    uniform(f);
    f.data()[12].dx = f.data()[12].peak[0].x = 9.0f;
    OUTLIER_CFG c = onlyEnable();
    c.CheckNormalizedMedian = true;
    f.setFlagSkipValidation(true);
    ASSERT_TRUE(f.validate(c, false));
    EXPECT_TRUE(f.isValidated());
    EXPECT_FALSE(f.skipValidation());
    EXPECT_EQ(f.data()[12].flag, VECTOR_ENABLED);
    f.setFlagSkipValidation(true);
    ASSERT_TRUE(f.validate(c, true));
    EXPECT_FALSE(f.skipValidation());
    EXPECT_TRUE(isOutlier(f.data()[12]));
}
