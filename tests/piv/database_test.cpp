// The vector field store: layout over x, y, z and time, allocation, copies,
// time steps and the node accessors with their out-of-range answers.
#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "field_grids.h"
#include "message_capture.h"
#include "piv_data2d.h"

using field_test::grid3x2;
using field_test::numberNodes;

namespace {

// The time of each step.
std::vector<double> times(const PIV_DataBase& f) {
    std::vector<double> t;
    for (int k = 0; k < f.timeSteps(); k++) t.push_back(f.timeAt(k));
    return t;
}

}  // namespace

TEST(PIV_DataBase, FourDimensionalNodeOrder) {
    // 2 x 3 x 2 nodes, 2 steps: node (i, j, z, t) is i + 2 (j + 3 (z + 2 t)).
    DATA_GRID4D g;
    g.nodes = SIZE3D{2, 3, 2};
    g.timeSteps = 2;
    g.first = POINT3D{4, 6, 1};
    g.step = SIZE3D{8, 10, 3};
    g.imageSize = SIZE3D{64, 50, 8};
    PIV_DataBase f;
    ASSERT_EQ(f.initializeGrid(g), 1);
    ASSERT_EQ(f.nodeCount(), 24);
    EXPECT_FALSE(f.isPlanar());
    const PIV_VECTOR& v = f.data()[1 + 2 * (2 + 3 * 1)];  // i 1, j 2, z 1, t 0
    EXPECT_EQ((std::vector<int>{v.ix, v.iy, v.iz}), (std::vector<int>{12, 26, 4}));
    EXPECT_FLOAT_EQ(v.y, 24.0f);  // rows count up from the bottom of the image
    EXPECT_EQ(v.flag, VECTOR_OUTLIER) << "a new node starts disabled";
    // Step 1 starts 2*3*2 nodes on and repeats the positions; steps off the
    // axis give the first and no time.
    EXPECT_EQ(std::vector<const PIV_VECTOR*>({f.dataAtTime(1), f.dataAtTime(-1), f.dataAtTime(2)}),
              std::vector<const PIV_VECTOR*>({f.data() + 12, f.data(), f.data()}));
    EXPECT_EQ(f.dataAtTime(1)[1 + 2 * (2 + 3 * 1)].iz, 4);
    EXPECT_EQ(times(f), (std::vector<double>{0, 1}));
    EXPECT_EQ(f.timeAt(2), 0.0);
}

TEST(PIV_DataBase, GridBeyondTwoToThe30PixelsIsRefused) {
    // Positions are ints: a grid from a damaged file or parameter set whose
    // nodes run past 2^30 pixels is refused before any position is formed.
    // The last node of 3 at step 16 from 2^30 - 32 lies exactly on 2^30.
    DATA_GRID4D g = grid3x2();
    g.first.x = (1 << 30) - 32;
    g.step.width = 16;
    PIV_DataBase edge;
    EXPECT_EQ(edge.initializeGrid(g), 1);
    EXPECT_EQ(edge.data()[2].ix, 1 << 30);

    g.first.x += 1;
    PIV_DataBase beyond;
    EXPECT_EQ(beyond.initializeGrid(g), 0);
    EXPECT_EQ(beyond.error().getLastErrorCode(), PIVerror::BAD_GRID_DIMENSION);
    EXPECT_TRUE(beyond.isNull());

    DATA_GRID4D tall = grid3x2();
    tall.imageSize.height = std::numeric_limits<int>::max();
    EXPECT_EQ(PIV_DataBase().initializeGrid(tall), 0);
}

TEST(PIV_Data2D, RowColumnAccessorsDifferFromDataAtTimeAndClampOutOfRange) {
    PIV_Data2D f(grid3x2(2));
    numberNodes(f);
    // At t = 0 both layouts agree: row 1, col 2 is node 5.
    EXPECT_FLOAT_EQ(f.getVector2D(1, 2, 0).dx, 5.0f);
    EXPECT_FLOAT_EQ(f.dataAtTime(0)[5].dx, 5.0f);
    // At t = 1 the row and column accessors put the plane 3*3 = 9 nodes on,
    // dataAtTime 3*2 = 6: row 0, col 1 is node 10 for one and 7 for the other.
    EXPECT_FLOAT_EQ(f.getVector2D(0, 1, 1).dx, 10.0f);
    EXPECT_FLOAT_EQ(f.dataAtTime(1)[1].dx, 7.0f);
    // Row 1, col 2 at t = 1 is element 14, in padding only these accessors see.
    PIV_VECTOR marked;
    marked.dx = -1.0f;
    ASSERT_EQ(f.setVector2D(marked, 1, 2, 1), PIVerror::NO_ERROR);
    EXPECT_FLOAT_EQ(f.getVector2D(1, 2, 1).dx, -1.0f);
    EXPECT_EQ(f.getVector(14).dx, 0.0f);
    ASSERT_NE(f.pivVector(2, 1, 1), nullptr);
    EXPECT_FLOAT_EQ(f.pivVector(2, 1, 1)->dx, -1.0f);

    // Out of range is no error: an empty vector, nothing set, or clamped.
    EXPECT_EQ(f.getVector(-1).flag, 0);
    EXPECT_FLOAT_EQ(f.getVector(11).dx, 11.0f);
    PIV_VECTOR v;
    v.dx = 99.0f;
    EXPECT_EQ(f.setVector(12, v) + f.setVector(-1, v), 0);
    EXPECT_EQ(f.setVector2D(v, 2, 0), PIVerror::CANNOT_OPERATE);
    // Clamped into the grid: col -1 -> 0, row 7 -> 1, t 5 -> 1.
    EXPECT_EQ(f.pivVector(-1, 7, 5), f.data() + f.index2D(1, 0, 1));
}

TEST(PIV_DataBase, AllocKeepsAnArrayOfTheSameLength) {
    MessageCapture quiet;
    PIV_DataBase f;
    ASSERT_TRUE(f.alloc(4, 3, 1, 1));
    numberNodes(f);
    f.setFlagValidated(true);
    f.setFlagRawData(true);
    // 2 x 6 and 3 x 2 x 2 hold twelve nodes as well: the data stays.
    ASSERT_TRUE(f.alloc(2, 6, 1, 1));
    EXPECT_EQ(f.grid().nodes.height, 6);
    EXPECT_FLOAT_EQ(f.data()[7].dx, 7.0f);
    EXPECT_TRUE(f.isValidated());
    ASSERT_TRUE(f.alloc(3, 2, 2, 1));
    EXPECT_FLOAT_EQ(f.data()[11].dx, 11.0f);
    // Same length in two time steps: a longer time axis, the data kept.
    f.setTime(5.0, 0.5);
    ASSERT_TRUE(f.alloc(6, 1, 1, 2));
    EXPECT_FLOAT_EQ(f.data()[11].dx, 11.0f);
    EXPECT_EQ(times(f), (std::vector<double>{5, 0}));
    // ... and a time axis of the same length is kept as it is.
    f.setTime(5.0, 0.5);
    ASSERT_TRUE(f.alloc(3, 2, 1, 2));
    EXPECT_EQ(times(f), (std::vector<double>{5, 5.5}));

    // Another length starts over.
    ASSERT_TRUE(f.alloc(5, 1, 1, 1));
    EXPECT_EQ(f.nodeCount(), 5);
    EXPECT_EQ(f.data()[1].dx, 0.0f);
    EXPECT_FALSE(f.isValidated());
    EXPECT_TRUE(f.haveRawData()) << "raw data is not one of the flags alloc resets";

    // A zero dimension is error 7 and changes nothing.
    f.data()[1].dx = 3.0f;
    for (int zero = 0; zero < 4; zero++) {
        int dims[4] = {2, 2, 2, 2};
        dims[zero] = 0;
        EXPECT_FALSE(f.alloc(dims[0], dims[1], dims[2], dims[3]));
        EXPECT_EQ(f.error().getLastErrorCode(), PIVerror::ALLOCATION_FAILED);
    }
    EXPECT_EQ(f.grid().nodes.width, 5);
    EXPECT_FLOAT_EQ(f.data()[1].dx, 3.0f);
}

TEST(PIV_DataBase, Create2CountsNodesBetweenTheCorners) {
    MessageCapture quiet;
    PIV_DataBase f;
    // (55 - 10) / 20 + 1 = 3 columns, (70 - 20) / 25 + 1 = 3 rows.
    ASSERT_TRUE(f.create2(SIZE3D{100, 80, 0}, SIZE3D{20, 25, 1}, POINT3D{10, 20, 0},
                          POINT3D{55, 70, 0}, 0));
    EXPECT_EQ((std::vector<int>{f.grid().nodes.width, f.grid().nodes.height,
                                f.grid().imageSize.depth, f.timeSteps()}),
              (std::vector<int>{3, 3, 1, 1}));
    EXPECT_EQ((std::vector<int>{f.data()[8].ix, f.data()[8].iy}), (std::vector<int>{50, 70}));
    // A zero step is refused and the grid stays.
    EXPECT_FALSE(
        f.create2(SIZE3D{100, 80, 1}, SIZE3D{20, 0, 1}, POINT3D{10, 20, 0}, POINT3D{55, 70, 0}, 1));
    EXPECT_EQ(f.error().getLastErrorCode(), PIVerror::BAD_GRID_DIMENSION);
    EXPECT_EQ(f.nodeCount(), 9);

    ASSERT_TRUE(f.createZeroData(SIZE3D{100, 80, 1}, SIZE3D{20, 25, 1}, POINT3D{10, 20, 0},
                                 POINT3D{50, 20, 0}, 1));
    EXPECT_EQ(f.nodeCount(), 3);
}

TEST(PIV_Data2D, CopyOfAnOddGrid) {
    MessageCapture quiet;
    // 5 x 3 nodes in two steps: the block reaches past the nodes.
    DATA_GRID4D g = grid3x2(2);
    g.nodes = SIZE3D{5, 3, 1};
    PIV_Data2D source(g);
    numberNodes(source);
    PIV_VECTOR far;
    far.dx = 77.0f;
    ASSERT_EQ(source.setVector2D(far, 2, 4, 1), PIVerror::NO_ERROR);  // element 39
    source.setTime(2.0, 0.25);
    source.setFlagDifferentiated(true);  // differentials travel only then
    ASSERT_TRUE(source.allocDifferentials());
    source.diffData()[29].dwdz = 4.0f;

    PIV_Data2D copy(grid3x2(1));
    copy = source;
    EXPECT_EQ(std::vector<double>({copy.data()[29].dx, copy.getVector2D(2, 4, 1).dx, copy.timeAt(1),
                                   copy.getDifferentials(29).dwdz}),
              std::vector<double>({29, 77, 2.25, 4}));

    EXPECT_FALSE(copy.copy(copy));
    EXPECT_EQ(copy.error().getLastErrorCode(), PIVerror::OVERWRITE_OWN_DATA);
    EXPECT_FLOAT_EQ(copy.data()[29].dx, 29.0f);
    PIV_Data2D empty;
    EXPECT_FALSE(copy.copy(empty));
    EXPECT_EQ(copy.nodeCount(), 30);
}

TEST(PIV_DataBase, PutTimeStepShiftsTimesAndSteps) {
    MessageCapture quiet;
    PIV_Data2D target(grid3x2(3));
    PIV_Data2D source(grid3x2(2));
    numberNodes(source);
    source.setTime(10.0, 0.5);
    source.setFlagRawData(true);
    ASSERT_TRUE(target.putTimeStep(source, 1, 100.0));
    EXPECT_EQ(times(target), (std::vector<double>{0, 100, 100.5}));
    EXPECT_FLOAT_EQ(target.dataAtTime(2)[4].dx, 10.0f);
    // Steps that would run past the end of the target are refused.
    EXPECT_FALSE(target.putTimeStep(source, 2, 0.0));
}
