// Arithmetic on whole fields, statistics, status bits, masks, the nearest
// node and the post-processing chain.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "field_grids.h"
#include "image2d.h"
#include "message_capture.h"
#include "piv_data2d.h"
#include "piv_params.h"

using field_test::grid3x2;
using field_test::numberNodes;

namespace {

PIV_VECTOR withPeaks(float dx, float dy) {
    PIV_VECTOR v;
    v.dx = dx;
    v.dy = dy;
    v.u = 10.0f * dx;
    v.sy = 100.0f * dy;
    v.peak[0] = PIV_PEAK{dx, dy, 9.0f};
    v.peak[1] = PIV_PEAK{1.0f, 1.0f, 5.0f};
    v.peak[2] = PIV_PEAK{0.0f, 0.0f, 0.0f};
    v.setSuccess();
    return v;
}

// What the arithmetic moves: dx, dy, u, sy, the three peaks' x and y, and
// the first peak's value, which must stay.
std::vector<float> moved(const PIV_VECTOR& v) {
    return {v.dx,        v.dy,        v.u,         v.sy,        v.peak[0].x,    v.peak[0].y,
            v.peak[1].x, v.peak[1].y, v.peak[2].x, v.peak[2].y, v.peak[0].value};
}

}  // namespace

TEST(PIV_DataBase, SubtractAndAddMovePeaksByTheOtherDisplacement) {
    MessageCapture quiet;
    PIV_Data2D a(grid3x2()), b(grid3x2());
    a.data()[4] = withPeaks(3.0f, 4.0f);
    b.data()[4] = withPeaks(1.0f, 2.0f);
    b.data()[4].peak[0] = PIV_PEAK{50.0f, 60.0f, 1.0f};  // b's own peaks play no part
    ASSERT_TRUE(a.subtractData(b));
    const PIV_VECTOR& v = a.data()[4];
    // Every peak moves by b's (1, 2), even an empty one.
    EXPECT_EQ(moved(v), (std::vector<float>{2, 2, 20, 200, 2, 2, 0, -1, -1, -2, 9}));
    ASSERT_TRUE(a.addData(b));
    EXPECT_EQ(moved(v), moved(withPeaks(3.0f, 4.0f)));

    const PIV_VECTOR before = v;
    PIV_Data2D other(grid3x2(2)), empty;
    struct Case {
        const PIV_DataBase* with;
        int error;
    } cases[] = {{&a, PIVerror::OVERWRITE_OWN_DATA},
                 {&empty, PIVerror::DATA_IS_NULL},
                 {&other, PIVerror::GRID_MISMATCH}};
    for (const Case& c : cases) {
        EXPECT_FALSE(a.subtractData(*c.with));
        EXPECT_EQ(a.error().getLastErrorCode(), c.error);
    }
    EXPECT_TRUE(PIV::SameRecord(before, v));
}

TEST(PIV_DataBase, ScaleDataScalesDisplacementsAndPeaks) {
    PIV_Data2D f(grid3x2());
    f.data()[1] = withPeaks(3.0f, -2.0f);
    ASSERT_TRUE(f.scaleData(0.5f));
    EXPECT_EQ(moved(f.data()[1]),
              (std::vector<float>{1.5f, -1, 15, -100, 1.5f, -1, 0.5f, 0.5f, 0, 0, 9}));
}

TEST(PIV_DataBase, ScaleGridAndDataRoundsPositions) {
    PIV_Data2D f(grid3x2());
    f.data()[4] = withPeaks(2.0f, 1.0f);
    f.data()[4].ix = 30;
    f.data()[4].iy = 45;
    f.data()[4].y = 35.0f;
    EXPECT_FALSE(f.scaleGridAndData(0.0f));
    EXPECT_FALSE(f.scaleGridAndData(-2.0f));
    ASSERT_TRUE(f.scaleGridAndData(1.5f));
    const PIV_VECTOR& v = f.data()[4];
    EXPECT_EQ(v.ix, 45);
    EXPECT_EQ(v.iy, 68);  // 67.5 rounds up
    // Displacements and peaks scale; velocities, shifts and physical positions do not.
    EXPECT_EQ(moved(v), (std::vector<float>{3, 1.5f, 20, 100, 3, 1.5f, 1.5f, 1.5f, 0, 0, 9}));
    EXPECT_FLOAT_EQ(v.y, 35.0f);
    const DATA_GRID4D& g = f.grid();
    EXPECT_EQ((std::vector<int>{g.step.width, g.step.height, g.first.x, g.imageSize.height}),
              (std::vector<int>{30, 37, 15, 120}));
}

TEST(PIV_DataBase, TranslateGridMovesRowsAgainstY) {
    PIV_Data2D f(grid3x2());
    PIV_PARAMETERS p = f.pivParameters();
    p.convert.LengthConversion[0] = p.convert.LengthConversion[1] = 2.0;  // px per unit
    f.setPivParameters(p);
    ASSERT_TRUE(f.translateGrid(1.0f, 3.0f, 0.0f));
    // Up by 3 units is 6 pixels towards the top row.
    EXPECT_EQ(std::vector<int>({f.data()[4].ix, f.data()[4].iy}), std::vector<int>({32, 39}));
}

TEST(PIV_DataBase, InitShiftAndAddShift) {
    PIV_Data2D f(grid3x2());
    ASSERT_TRUE(f.initShift(2.0f, -1.0f, 0.0f));
    const PIV_VECTOR& v = f.data()[5];
    EXPECT_EQ(v.flag, VECTOR_ENABLED);
    EXPECT_EQ(v.count, 1);
    EXPECT_EQ(moved(v), (std::vector<float>{2, -1, 0, 0, 2, -1, 2, -1, 2, -1, 0}));
    f.data()[5].peak[0].value = 4.0f;
    ASSERT_TRUE(f.addShift(0.5f, 1.0f, 0.0f));
    // A peak with a value moves, one of value 0 stays.
    EXPECT_EQ(moved(v), (std::vector<float>{2.5f, 0, 0, 0, 2.5f, 0, 2, -1, 2, -1, 4}));
}

TEST(PIV_Data2D, StatisticsOverEnabledVectors) {
    MessageCapture quiet;
    PIV_Data2D field(grid3x2());
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
    }
    field.data()[3].dx = 100.0f;
    field.data()[4].flag = VECTOR_MASKED | VECTOR_OUTLIER;
    field.data()[5].flag = VECTOR_ENABLED | VECTOR_INTERPOLATED;
    field.data()[5].dx = 2.0f;
    ASSERT_TRUE(field.doStatistics());
    // Over 1, 2, 3, 2: mean 2, population deviation sqrt(2/4).
    EXPECT_FLOAT_EQ(field.vectorMean().dx, 2.0f);
    EXPECT_FLOAT_EQ(field.vectorStdDev().dx, std::sqrt(0.5f));
    // Active, masked, interpolated, and disabled: node 3 (still flag 8) and node 4.
    EXPECT_EQ(std::vector<unsigned long>({field.vectorsActive(), field.vectorsMasked(),
                                          field.vectorsInterpolated(), field.vectorsDisabled()}),
              std::vector<unsigned long>({4, 1, 1, 2}));

    // Differentiated data bring their own statistics: over dudy 2, 4, 0 and
    // the interpolated node's 0 (the disabled node's 100 left out).
    field.setFlagDifferentiated(true);
    EXPECT_FALSE(field.doStatistics()) << "differentiated without differentials";
    ASSERT_TRUE(field.allocDifferentials());
    field.diffData()[0].dudy = 2.0f;
    field.diffData()[1].dudy = 4.0f;
    field.diffData()[3].dudy = 100.0f;
    ASSERT_TRUE(field.doStatistics());
    EXPECT_FLOAT_EQ(field.diffMean().dudy, 1.5f);
}

TEST(PIV_Data2D, SelfCorrelationPeaksMoveToTheBack) {
    MessageCapture quiet;
    PIV_Data2D field(grid3x2());
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
    // The second peak leads; the self peak goes last with no value.
    EXPECT_EQ(std::vector<float>({v.dx, v.dy, v.snr, v.peak[2].x, v.peak[2].value}),
              std::vector<float>({4, 1, 5, 0.3f, 0}));
    EXPECT_FLOAT_EQ(field.data()[1].peak[0].x, 3.0f);
}

TEST(PIV_DataBase, StatusBits) {
    PIV_Data2D f(grid3x2());
    f.data()[0] = withPeaks(0.0f, 0.0f);
    f.data()[1] = withPeaks(0.0f, 1.0f);
    f.data()[2] = withPeaks(0.0f, 0.0f);
    f.data()[2].flag = VECTOR_ENABLED | VECTOR_EDITED | VECTOR_INTERPOLATED;
    f.data()[3] = withPeaks(1.0f, 0.0f);
    f.data()[3].flag = VECTOR_ENABLED | VECTOR_EDITED;
    f.data()[4].flag = VECTOR_OUTLIER | VECTOR_EDITED;
    // Despite its name this undoes the manual edits and nothing else.
    EXPECT_EQ(f.clearAllDisabled(), 3);
    EXPECT_EQ(f.data()[2].flag, VECTOR_ENABLED | VECTOR_INTERPOLATED);
    EXPECT_EQ(f.data()[4].flag, VECTOR_OUTLIER);
    f.clearFlags(VECTOR_INTERPOLATED | VECTOR_MASKED);
    EXPECT_EQ(f.data()[2].flag, VECTOR_ENABLED);
    // Nodes 0, 2, 4 and 5 have dx = dy = 0; node 1 has dy 1, node 3 dx 1.
    EXPECT_EQ(f.disableNullVectors(), 4);
}

TEST(PIV_DataBase, MaskOutVectorsClearsNodeAndDifferentials) {
    MessageCapture quiet;
    PIV_Data2D f(grid3x2(2));
    ASSERT_TRUE(f.allocDifferentials());
    for (int k = 0; k < f.nodeCount(); k++) {
        f.data()[k].setSuccess();
        f.data()[k].corr = f.data()[k].peak[1].value = 0.8f;
        f.diffData()[k].dudx = 1.0f;
    }
    Image2D mask(100, 80, IMAGE_UINT8);
    mask.fill(0);
    mask.setPixel(30, 45, 255);
    ASSERT_TRUE(f.maskOutVectors(mask));
    EXPECT_EQ(f.vectorsMasked(), 2u);  // the node in both time steps
    for (int k : {4, 10}) {
        const PIV_VECTOR& v = f.data()[k];
        EXPECT_EQ((std::vector<int>{v.flag, v.count, v.ix}),
                  (std::vector<int>{VECTOR_MASKED | VECTOR_OUTLIER, 0, 30}));
        EXPECT_EQ(v.corr + v.peak[1].value + f.diffData()[k].dudx, 0.0f);
    }
    EXPECT_EQ(f.data()[3].flag, VECTOR_ENABLED);
    EXPECT_EQ(f.diffData()[3].dudx, 1.0f);

    Image2D wrong(100, 81, IMAGE_UINT8);
    wrong.fill(1);
    EXPECT_FALSE(f.maskOutVectors(wrong));
    EXPECT_EQ(f.error().getLastErrorCode(), PIVerror::IMAGE_SIZE_MISMATCH);
    EXPECT_EQ(f.vectorsMasked(), 2u);
    EXPECT_FALSE(f.maskOutVectors(Image2D()));
    EXPECT_EQ(f.error().getLastErrorCode(), PIVerror::IMAGE_IS_NULL);
}

TEST(PIV_Data2D, NearestVectorIndexByCell) {
    PIV_Data2D f(grid3x2(2));
    struct Case {
        int x, y, t;
        bool found;
        long index;
    } cases[] = {
        {30, 45, 0, true, 4},   // on a node
        {40, 45, 0, true, 5},   // the cell border belongs to the next node
        {10, 20, 9, true, 6},   // t clamps to 1
        {-19, 20, 0, true, 0},  // 29 px left of node 0: the division truncates
        {-20, 20, 0, false, 0}, {60, 20, 0, false, 0},  // beyond the last column
        {30, 70, 0, false, 0},                          // below the last row
    };
    for (const Case& c : cases) {
        bool found = !c.found;
        EXPECT_EQ(f.nearestVectorIndex(c.x, c.y, c.t, &found), c.index) << c.x << "," << c.y;
        EXPECT_EQ(found, c.found) << c.x << "," << c.y;
    }
    // One column: nodes 0 and 1 share ix, so there is no spacing.
    DATA_GRID4D column = grid3x2();
    column.nodes.width = 1;
    PIV_Data2D narrow(column);
    bool found = true;
    EXPECT_EQ(narrow.nearestVectorIndex(10, 20, 0, &found), 0);
    EXPECT_FALSE(found);
}

// A field of enabled 1 px vectors, post-processed with validation on or off.
void configure(PIV_Parameters& params, bool validate) {
    OUTLIER_CFG outlier = params.outlierCfg();
    outlier.Enable = validate;
    params.setOutlierCfg(outlier);
    PIVCONVERT_CFG conversion = params.pivConvertCfg();
    conversion.LengthConversion[0] = conversion.LengthConversion[1] = 10.0;  // px per mm
    conversion.PulseDelay = 100.0;                                           // us
    params.setPivConvertCfg(conversion);
}

struct Processed : PIV_Data2D {
    Processed(bool validate, bool allowed, int mode = PIV::ANALYSIS_CROSS_CORRELATION)
        : PIV_Data2D(grid3x2()) {
        PIV_Parameters params;
        configure(params, validate);
        setAnalysisMode(mode);
        for (int k = 0; k < nodeCount(); k++) data()[k] = withPeaks(1.0f, 0.0f);
        setFlagRawData(true);
        setFlagAllowPostProcess(allowed);
        EXPECT_TRUE(postProcess(&params, nullptr, false));
    }
};

TEST(PIV_Data2D, PostProcessRunsTheStagesThatAreDue) {
    MessageCapture quiet;
    // A fresh field needs validation: it is validated, converted and
    // differentiated. 1 px at 10 px/mm in 100 us: 0.1 mm in 1e-4 s, 1 m/s.
    for (int mode : {PIV::ANALYSIS_CROSS_CORRELATION, PIV::ANALYSIS_SPECKLE}) {
        Processed f(true, true, mode);
        EXPECT_TRUE(f.isValidated() && f.isConverted() && f.isDifferentiated());
        EXPECT_FALSE(f.needsDifferentiation());
        EXPECT_NEAR(f.data()[0].u, 1.0f, 1e-5f);
        EXPECT_EQ(f.dataType(),
                  mode == PIV::ANALYSIS_SPECKLE ? PIV::DATA_SPECKLE : PIV::DATA_VELOCITY);
    }
    Processed plain(false, true);
    EXPECT_FALSE(plain.needsValidation() || plain.needsConversion());
    // Validated and nothing pending: no stage is due, unless forced.
    PIV_Parameters checking;
    configure(checking, true);
    plain.setFlagValidated(true);
    EXPECT_TRUE(plain.postProcess(&checking, nullptr, false));
    EXPECT_TRUE(plain.postProcess(&checking, nullptr, true));
    // Post-processing not allowed: the stages are dropped, the field is not
    // converted, but differentials, statistics and the data type still follow.
    Processed barred(true, false);
    EXPECT_FALSE(barred.needsValidation() || barred.needsConversion() || barred.isConverted());
    EXPECT_TRUE(barred.isDifferentiated());
    EXPECT_EQ(barred.vectorsActive(), 6u);
    EXPECT_EQ(barred.dataType() & PIV::DATA_VELOCITY, PIV::DATA_VELOCITY);
}
