// The small vector field: node addressing, including its time-plane layout.
#include <gtest/gtest.h>

#include "piv_data2d.h"

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
