// Differentials and the three field smoothers, on linear flows whose
// gradients are known and on small fields computed by hand.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <vector>

#include "field_grids.h"
#include "message_capture.h"
#include "piv_data2d.h"

using field_test::gridOf;

namespace {

// 2 px per mm, velocities in m/s: the node spacing of 16 px is 8 mm.
void setUnits(PIV_Data2D& f) {
    PIV_PARAMETERS p = f.pivParameters();
    p.convert.LengthConversion[0] = p.convert.LengthConversion[1] = 2.0;
    p.convert.LengthConversion[2] = 1.0;
    std::snprintf(p.convert.LengthConversionUnits, sizeof(p.convert.LengthConversionUnits), "mm");
    std::snprintf(p.convert.VelocityUnits, sizeof(p.convert.VelocityUnits), "m/s");
    f.setPivParameters(p);
}

// Physical position of a node in mm, y pointing up.
double xOf(const PIV_VECTOR& v) {
    return v.ix / 2.0;
}
double yOf(const PIV_VECTOR& v) {
    return -v.iy / 2.0;
}

// Sets dx of a 3 x 3 field row by row.
void setDx(PIV_Data2D& f, const std::vector<float>& values) {
    for (size_t k = 0; k < values.size(); k++) {
        PIV_VECTOR& v = f.data()[k];
        v.dx = values[k];
        v.dy = 0.0f;
        v.setSuccess();
    }
    f.setFlagRawData(true);
}

std::vector<float> dxOf(const PIV_Data2D& f) {
    std::vector<float> out;
    for (int k = 0; k < f.nodeCount(); k++) out.push_back(f.data()[k].dx);
    return out;
}

}  // namespace

// Solid-body rotation at omega: u = -omega y, v = omega x; the vorticity
// dv/dx - du/dy is twice the angular rate, the strains are zero. Border
// nodes and a disabled node get no differentials; its neighbours, in a
// linear field, lose nothing by differencing around it.
TEST(Differentiate, SolidBodyRotationHasTwiceItsRateAsVorticity) {
    MessageCapture quiet;
    const double omega = 20.0;  // rad/s
    for (bool speckle : {false, true}) {
        PIV_Data2D f(gridOf(7, 6));
        setUnits(f);
        if (speckle) f.setAnalysisMode(PIV::ANALYSIS_SPECKLE);
        for (int k = 0; k < f.nodeCount(); k++) {
            PIV_VECTOR& v = f.data()[k];
            v.setSuccess();
            // Speckle data are differentiated from their shifts; mm to m.
            (speckle ? v.sx : v.u) = float(-omega * (yOf(v) + 25.0) * 1e-3);
            (speckle ? v.sy : v.v) = float(omega * (xOf(v) - 30.0) * 1e-3);
        }
        f.data()[10].flag = VECTOR_OUTLIER;  // row 1, col 3
        ASSERT_TRUE(f.differentiate());
        for (int row = 0; row < 6; row++)
            for (int col = 0; col < 7; col++) {
                SCOPED_TRACE(testing::Message() << row << "," << col);
                const DIFFERENTIALS d = f.getDifferentials2D(row, col);
                const bool zero =
                    row == 0 || row == 5 || col == 0 || col == 6 || (row == 1 && col == 3);
                EXPECT_NEAR(d.dudy, zero ? 0 : -omega, 1e-5 * omega);
                EXPECT_NEAR(d.dvdx, zero ? 0 : omega, 1e-5 * omega);
                EXPECT_NEAR(d.dudx, 0.0, 1e-5 * omega);
                EXPECT_NEAR(d.dvdy, 0.0, 1e-5 * omega);
                EXPECT_EQ(d.dwdz, 0.0f);
            }
    }
}

// 3 x 3 neighbourhoods: a full one at the centre, six cells on an edge and
// four in a corner; an even count takes the mean of the middle two.
TEST(MedianFilter, HandComputedThreeByThree) {
    MessageCapture quiet;
    PIV_Data2D f(gridOf(3, 3));
    setDx(f, {1, 2, 3, 4, 100, 6, 7, 8, 9});
    // Node 8 is disabled: it keeps its 9 but still feeds its neighbours.
    f.data()[8].flag = VECTOR_OUTLIER;
    ASSERT_TRUE(f.medianFilter(3, false));
    // Centre of 1 2 3 4 6 7 8 9 100: 6. Corner 0: 1 2 4 100, 3. Edge 1: 1 2 3
    // 4 6 100, 3.5. Corner 2: 2 3 6 100, 4.5. Edge 3: 1 2 4 7 8 100, 5.5.
    // Edge 5: 2 3 6 8 9 100, 7. Corner 6: 4 7 8 100, 7.5. Edge 7: 4 6 7 8 9 100, 7.5.
    const std::vector<float> out = dxOf(f);
    EXPECT_EQ(out, (std::vector<float>{3, 3.5f, 4.5f, 5.5f, 6, 7, 7.5f, 7.5f, 9}));
    EXPECT_EQ(f.data()[4].flag, VECTOR_ENABLED | VECTOR_FILTERED);
    EXPECT_EQ(f.data()[8].flag, VECTOR_OUTLIER);

    // Once is enough: a second call is refused and changes nothing.
    EXPECT_FALSE(f.medianFilter(3, false));
    EXPECT_EQ(f.error().getLastErrorCode(), PIVerror::OPERATION_FAILED);
    EXPECT_EQ(dxOf(f), out);
}

TEST(MedianFilter, FiveByFiveTakesTheMedianOfTwentyFive) {
    PIV_Data2D f(gridOf(5, 5));
    std::vector<float> values(25);
    for (int k = 0; k < 25; k++) values[size_t(k)] = float(k);
    values[12] = 1000.0f;  // 0..11, 13..24 and 1000: the thirteenth is 13
    setDx(f, values);
    ASSERT_TRUE(f.medianFilter(5, false));
    EXPECT_FLOAT_EQ(f.data()[12].dx, 13.0f);
    // The corner sees the 3 x 3 block clipped from the 5 x 5: 0 1 2 5 6 7 10 11 1000.
    EXPECT_FLOAT_EQ(f.data()[0].dx, 6.0f);
}

TEST(MedianFilter, SmallGrids) {
    MessageCapture quiet;
    PIV_Data2D narrow(gridOf(2, 9));
    setDx(narrow, std::vector<float>(18, 1.0f));
    EXPECT_FALSE(narrow.medianFilter(3, false));
    EXPECT_EQ(narrow.error().getLastErrorCode(), PIVerror::BAD_GRID_DIMENSION);

    // Four columns cannot hold a kernel of five: it filters with three.
    std::vector<float> values;
    for (int k = 0; k < 16; k++) values.push_back(float((k * 7) % 11));
    PIV_Data2D a(gridOf(4, 4)), b(gridOf(4, 4));
    setDx(a, values);
    setDx(b, values);
    ASSERT_TRUE(a.medianFilter(5, false));
    ASSERT_TRUE(b.medianFilter(3, false));
    EXPECT_EQ(dxOf(a), dxOf(b));
}

TEST(Smooth, BoxMeanClippedAtTheEdges) {
    MessageCapture quiet;
    PIV_Data2D f(gridOf(3, 3));
    setDx(f, {1, 2, 3, 4, 100, 6, 7, 8, 9});
    ASSERT_TRUE(f.smooth(3, false));
    EXPECT_FLOAT_EQ(f.data()[4].dx, 140.0f / 9.0f);
    EXPECT_FLOAT_EQ(f.data()[0].dx, (1 + 2 + 4 + 100) / 4.0f);
    EXPECT_FLOAT_EQ(f.data()[1].dx, (1 + 2 + 3 + 4 + 100 + 6) / 6.0f);
    EXPECT_FALSE(f.smooth(3, false));
    EXPECT_EQ(f.error().getLastErrorCode(), PIVerror::OPERATION_NOT_POSSIBLE);

    // A disabled vector stays out of the sums unless asked, and keeps its value.
    PIV_Data2D g(gridOf(3, 3)), h(gridOf(3, 3));
    for (PIV_Data2D* x : {&g, &h}) {
        setDx(*x, {1, 2, 3, 4, 100, 6, 7, 8, 9});
        x->data()[8].flag = VECTOR_OUTLIER;
    }
    ASSERT_TRUE(g.smooth(3, false));
    ASSERT_TRUE(h.smooth(3, true));
    EXPECT_FLOAT_EQ(g.data()[4].dx, 131.0f / 8.0f);
    EXPECT_FLOAT_EQ(h.data()[4].dx, 140.0f / 9.0f);
    EXPECT_FLOAT_EQ(g.data()[8].dx, 9.0f);
    EXPECT_EQ(g.data()[8].flag, VECTOR_OUTLIER);
}

// An impulse of 1 in the middle of a 9 x 9 field shows the kernel itself:
// width 1 and cut-off 0.05 reach three nodes (exp(-4.5) = 0.011 is the first
// weight at or below 0.05).
TEST(SmoothGauss, ImpulseResponse) {
    MessageCapture quiet;
    PIV_Data2D f(gridOf(9, 9));
    std::vector<float> impulse(81, 0.0f);
    impulse[4 * 9 + 4] = 1.0f;
    setDx(f, impulse);
    ASSERT_TRUE(f.smoothGauss(1.0, 0.05, false));
    auto w = [](int i) { return std::exp(-i * i / 2.0); };
    double s = 0.0;
    for (int i = -3; i <= 3; i++) s += w(i);
    EXPECT_NEAR(f.getVector2D(4, 4).dx, 1.0 / (s * s), 1e-6);
    EXPECT_NEAR(f.getVector2D(5, 4).dx, w(1) / (s * s), 1e-6);
    EXPECT_NEAR(f.getVector2D(4, 0).dx, 0.0, 1e-9);  // four nodes away: outside
    // Row 1 reaches rows 0 to 4 only: normalised by the weights inside.
    const double rows = w(1) + w(0) + w(1) + w(2) + w(3);
    EXPECT_NEAR(f.getVector2D(1, 4).dx, w(3) / (s * rows), 1e-6);
    EXPECT_EQ(f.getVector2D(1, 4).flag, VECTOR_ENABLED | VECTOR_FILTERED);

    // Smoothed once: neither smoother runs again.
    const float before = f.getVector2D(4, 4).dx;
    EXPECT_FALSE(f.smoothGauss(1.0, 0.05, false));
    EXPECT_FALSE(f.smooth(3, false));
    EXPECT_EQ(f.error().getLastErrorCode(), PIVerror::OPERATION_NOT_POSSIBLE);
    EXPECT_EQ(f.getVector2D(4, 4).dx, before);
}

TEST(SmoothGauss, ACutOffOfOneKeepsTheValuesAndBadArgumentsAreRefused) {
    MessageCapture quiet;
    PIV_Data2D f(gridOf(3, 3));
    setDx(f, {1, 2, 3, 4, 100, 6, 7, 8, 9});
    EXPECT_FALSE(f.smoothGauss(0.0, 0.05, false));
    EXPECT_EQ(f.error().getLastErrorCode(), PIVerror::BAD_KERNEL_SIZE);
    EXPECT_FALSE(f.smoothGauss(1.0, 0.0, false));
    EXPECT_EQ(f.error().getLastErrorCode(), PIVerror::BAD_PARAMETERS);
    EXPECT_FALSE(f.smoothGauss(1.0, 1.5, false));
    EXPECT_EQ(f.error().getLastErrorCode(), PIVerror::BAD_PARAMETERS);
    EXPECT_FALSE(f.isSmoothed());
    // exp(0) already is 1: the kernel is the node alone.
    ASSERT_TRUE(f.smoothGauss(1.0, 1.0, false));
    EXPECT_EQ(dxOf(f), (std::vector<float>{1, 2, 3, 4, 100, 6, 7, 8, 9}));
}
