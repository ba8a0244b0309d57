// The small vector field: node addressing, including its time-plane layout.
#include <gtest/gtest.h>

#include <cmath>

#include "image2d.h"
#include "message_capture.h"
#include "piv_data2d.h"
#include "piv_enums.h"
#include "piv_params.h"

namespace {

DATA_GRID4D grid(int nx, int ny, int steps) {
    DATA_GRID4D g;
    g.nodes = SIZE3D{nx, ny, 1};
    g.timeSteps = steps;
    return g;
}

PIV_VECTOR marked(float dx) {
    PIV_VECTOR v;
    v.dx = dx;
    v.setSuccess();
    return v;
}

}  // namespace

TEST(PIV_Data2D, RowIsYAndColIsX) {
    PIV_Data2D field(grid(4, 3, 1));
    EXPECT_EQ(field.nodeCount(), 12);
    ASSERT_EQ(field.setVector2D(marked(7.0f), 2, 1), PIVerror::NO_ERROR);
    // Node order runs along x first: row 2, col 1 is element 1 + 4*2 = 9.
    EXPECT_FLOAT_EQ(field.data()[9].dx, 7.0f);
    EXPECT_FLOAT_EQ(field.getVector2D(2, 1).dx, 7.0f);
}

TEST(PIV_Data2D, TimePlanesAreNxSquaredApart) {
    // With 4 x 2 nodes the planes are 4*4 = 16 apart, not 4*2 = 8: the store
    // keeps that layout, so (row 0, col 0, t 1) is element 16.
    PIV_Data2D field(grid(4, 2, 2));
    ASSERT_EQ(field.setVector2D(marked(1.0f), 0, 0, 1), PIVerror::NO_ERROR);
    EXPECT_EQ(field.index2D(0, 0, 1), 16);
    EXPECT_FLOAT_EQ(field.data()[16].dx, 1.0f);
    // The last node of the last plane still lies inside the block.
    ASSERT_EQ(field.setVector2D(marked(2.0f), 1, 3, 1), PIVerror::NO_ERROR);
    EXPECT_FLOAT_EQ(field.getVector2D(1, 3, 1).dx, 2.0f);
    // A negative time step counts as 0.
    EXPECT_EQ(field.index2D(1, 1, -3), field.index2D(1, 1, 0));
}

TEST(PIV_Data2D, OutsideTheGridAndWithoutData) {
    PIV_Data2D field(grid(4, 3, 1));
    EXPECT_EQ(field.setVector2D(marked(1.0f), 3, 0), PIVerror::CANNOT_OPERATE);
    EXPECT_EQ(field.setVector2D(marked(1.0f), 0, -1), PIVerror::CANNOT_OPERATE);
    EXPECT_EQ(field.getVector2D(5, 5).flag, 0);  // the null vector

    PIV_Data2D empty(grid(0, 0, 1));
    EXPECT_EQ(empty.data(), nullptr);
    EXPECT_EQ(empty.setVector2D(marked(1.0f), 0, 0), PIVerror::DATA_IS_NULL);
}

namespace {

// A 3 x 2 field over a 100 x 80 image: nodes at x 10, 30, 50 and y 20, 45.
DATA_GRID4D smallGrid() {
    DATA_GRID4D g;
    g.nodes = SIZE3D{3, 2, 1};
    g.first = POINT3D{10, 20, 0};
    g.step = SIZE3D{20, 25, 1};
    g.imageSize = SIZE3D{100, 80, 1};
    return g;
}

}  // namespace

TEST(PIV_Data2D, GridPositionsCountTheYAxisUp) {
    PIV_Data2D field(smallGrid());
    const PIV_VECTOR& v = field.data()[4];  // row 1, col 1
    EXPECT_EQ(v.ix, 30);
    EXPECT_EQ(v.iy, 45);
    EXPECT_FLOAT_EQ(v.x, 30.0f);
    EXPECT_FLOAT_EQ(v.y, 80.0f - 45.0f);
    // Every node starts disabled, and counts as such.
    EXPECT_EQ(v.flag, VECTOR_OUTLIER);
    EXPECT_EQ(field.vectorsDisabled(), 6u);
}

TEST(PIV_Data2D, ClearKeepsPositionsOnly) {
    PIV_Data2D field(smallGrid());
    PIV_VECTOR& v = field.data()[2];
    v.dx = 3.0f;
    v.corr = 0.9f;
    v.peak[1] = PIV_PEAK{1.0f, 2.0f, 3.0f};
    v.flag = VECTOR_ENABLED;
    v.count = 1;
    field.setFlagRawData(true);
    field.setFlagValidated(true);
    field.clear();
    EXPECT_EQ(v.ix, 50);
    EXPECT_FLOAT_EQ(v.y, 60.0f);
    EXPECT_EQ(v.dx, 0.0f);
    EXPECT_EQ(v.corr, 0.0f);
    EXPECT_EQ(v.peak[1].value, 0.0f);
    EXPECT_EQ(v.flag, VECTOR_OUTLIER);
    EXPECT_EQ(v.count, 0);
    EXPECT_FALSE(field.haveRawData());
    EXPECT_FALSE(field.isValidated());
    EXPECT_TRUE(field.needsValidation());
    EXPECT_TRUE(field.needsConversion());
    EXPECT_TRUE(field.needsDifferentiation());
}

TEST(PIV_Data2D, StatisticsOverEnabledVectors) {
    MessageCapture quiet;
    PIV_Data2D field(smallGrid());
    EXPECT_FALSE(field.doStatistics());  // no raw data yet
    EXPECT_EQ(field.error().getLastErrorCode(), PIVerror::DATA_IS_NULL);
    field.setFlagRawData(true);
    EXPECT_FALSE(field.doStatistics());  // nothing enabled
    EXPECT_EQ(field.error().getLastErrorCode(), PIVerror::OPERATION_FAILED);

    // dx 1, 2, 3 on enabled nodes; the disabled node's 100 must not count.
    const float dx[] = {1.0f, 2.0f, 3.0f};
    for (int k = 0; k < 3; k++) {
        field.data()[k].dx = dx[k];
        field.data()[k].flag = VECTOR_ENABLED;
        field.data()[k].count = 1;
    }
    field.data()[3].dx = 100.0f;
    field.data()[4].flag = VECTOR_MASKED | VECTOR_OUTLIER;
    field.data()[5].flag = VECTOR_ENABLED | VECTOR_INTERPOLATED;
    field.data()[5].dx = 2.0f;
    ASSERT_TRUE(field.doStatistics());
    // Over 1, 2, 3, 2: mean 2, population deviation sqrt(2/4).
    EXPECT_FLOAT_EQ(field.vectorMean().dx, 2.0f);
    EXPECT_FLOAT_EQ(field.vectorStdDev().dx, std::sqrt(0.5f));
    EXPECT_FLOAT_EQ(field.vectorMinimum().dx, 1.0f);
    EXPECT_FLOAT_EQ(field.vectorMaximum().dx, 3.0f);
    EXPECT_EQ(field.vectorsActive(), 4u);
    EXPECT_EQ(field.vectorsMasked(), 1u);
    EXPECT_EQ(field.vectorsInterpolated(), 1u);
    EXPECT_EQ(field.vectorsDisabled(), 2u);  // node 3 (still flag 8) and node 4
}

TEST(PIV_Data2D, SelfCorrelationPeaksMoveToTheBack) {
    MessageCapture quiet;
    PIV_Data2D field(smallGrid());
    EXPECT_EQ(field.eliminateSelfCorrelationPeaks(1.0f), 0);
    EXPECT_EQ(field.error().getLastErrorCode(), PIVerror::DATA_IS_NULL);
    field.setFlagRawData(true);
    for (int k = 0; k < field.nodeCount(); k++) field.data()[k].flag = VECTOR_ENABLED;
    PIV_VECTOR& v = field.data()[0];
    v.peak[0] = PIV_PEAK{0.3f, -0.4f, 9.0f};  // 0.5 from zero
    v.peak[1] = PIV_PEAK{4.0f, 1.0f, 5.0f};
    v.peak[2] = PIV_PEAK{-2.0f, 0.0f, 2.0f};
    field.data()[1].peak[0] = PIV_PEAK{3.0f, 0.0f, 8.0f};
    // Four nodes have all-zero peaks: with a result they lie at zero and
    // count at any radius. Node 0 lies 0.5 out: the radius must exceed that.
    EXPECT_EQ(field.eliminateSelfCorrelationPeaks(0.5f), 4);
    EXPECT_FLOAT_EQ(v.peak[0].x, 0.3f);
    EXPECT_EQ(field.eliminateSelfCorrelationPeaks(0.6f), 5);
    EXPECT_FLOAT_EQ(v.dx, 4.0f);
    EXPECT_FLOAT_EQ(v.dy, 1.0f);
    EXPECT_FLOAT_EQ(v.snr, 5.0f);
    EXPECT_FLOAT_EQ(v.peak[2].x, 0.3f);
    EXPECT_FLOAT_EQ(v.peak[2].value, 0.0f);
    EXPECT_FLOAT_EQ(field.data()[1].peak[0].x, 3.0f);
}

TEST(PIV_Data2D, MaskOutVectorsByTheirPixel) {
    MessageCapture quiet;
    PIV_Data2D field(smallGrid());
    for (int k = 0; k < field.nodeCount(); k++) {
        field.data()[k].flag = VECTOR_ENABLED;
        field.data()[k].dx = 1.0f;
    }
    Image2D mask(100, 80, IMAGE_UINT8);
    mask.fill(0);
    mask.setPixel(30, 45, 1);  // node row 1, col 1
    ASSERT_TRUE(field.maskOutVectors(mask));
    EXPECT_EQ(field.data()[4].flag, VECTOR_MASKED | VECTOR_OUTLIER);
    EXPECT_EQ(field.data()[4].dx, 0.0f);
    EXPECT_EQ(field.data()[4].ix, 30);
    EXPECT_EQ(field.data()[3].flag, VECTOR_ENABLED);
    EXPECT_EQ(field.vectorsMasked(), 1u);

    Image2D other(64, 64, IMAGE_UINT8);
    other.fill(1);
    EXPECT_FALSE(field.maskOutVectors(other));
    EXPECT_EQ(field.error().getLastErrorCode(), PIVerror::IMAGE_SIZE_MISMATCH);
    EXPECT_EQ(field.data()[3].flag, VECTOR_ENABLED) << "a refused mask changes nothing";
}

TEST(PIV_Data2D, PostProcessConvertsAndMarksTheDataType) {
    MessageCapture quiet;
    for (int mode : {PIV::ANALYSIS_CROSS_CORRELATION, PIV::ANALYSIS_SPECKLE}) {
        PIV_Data2D field(smallGrid());
        field.setAnalysisMode(mode);
        field.setFlagRawData(true);
        field.setFlagAllowPostProcess(true);
        for (int k = 0; k < field.nodeCount(); k++) {
            field.data()[k].flag = VECTOR_ENABLED;
            field.data()[k].dx = 2.0f;
        }
        PIV_Parameters params;
        PIVCONVERT_CFG conversion = params.pivConvertCfg();
        conversion.LengthConversion[0] = conversion.LengthConversion[1] = 10.0;  // px per mm
        conversion.PulseDelay = 100.0;                                           // us
        params.setPivConvertCfg(conversion);
        ASSERT_TRUE(field.postProcess(&params, nullptr, false));
        EXPECT_TRUE(field.isConverted());
        EXPECT_FALSE(field.needsConversion());
        // 2 px at 10 px/mm in 100 us: 0.2 mm in 1e-4 s, 2 m/s.
        EXPECT_NEAR(field.data()[0].u, 2.0f, 1e-5f);
        EXPECT_EQ(field.dataType(), mode == PIV::ANALYSIS_SPECKLE ? PIV::DATA_SPECKLE
                                                                  : PIV::DATA_VELOCITY);
        EXPECT_EQ(field.vectorsActive(), 6u);
    }
}
