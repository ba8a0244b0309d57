// Where the nodes of a field lie, checked against positions worked out by hand.
#include <gtest/gtest.h>

#include <vector>

#include "message_capture.h"
#include "piv_error.h"
#include "piv_grid.h"
#include "piv_params.h"

namespace {

DATA_GRID4D gridFor(int w, int h, int step) {
    DATA_GRID4D g;
    g.imageSize = SIZE3D{w, h, 1};
    g.step = SIZE3D{step, step, step};
    return g;
}

// First node and node count on x and y.
std::vector<int> layout(const DATA_GRID4D& g) {
    return {g.first.x, g.first.y, g.nodes.width, g.nodes.height};
}

const SIZE3D kWindow32{32, 32, 32};

}  // namespace

TEST(CreateDataGrid4D, Image256Window32Step16Has15x15NodesFrom16) {
    // Windows of 32 need 16 pixels on either side of a node: nodes run from
    // 16 to 256-16 = 240 in steps of 16, i.e. 16, 32, ..., 240 = 15 nodes.
    DATA_GRID4D g = gridFor(256, 256, 16);
    g.timeSteps = 0;  // below one: one
    ASSERT_TRUE(PIV::CreateDataGrid4D(g, kWindow32));
    EXPECT_EQ(layout(g), (std::vector<int>{16, 16, 15, 15}));
    EXPECT_EQ(g.timeSteps, 1);
    const POINT3D last = PIV::GridNodePosition(g, 14, 14);
    EXPECT_EQ(last.x, 240);
    EXPECT_EQ(last.y, 240);
    int first = -1;
    EXPECT_EQ(PIV::GetAnchoredAxis(0, 10, 5, 4, first), 0);  // empty range
}

// Image 250 x 250, windows 32, step 16: the usable range on each axis is
// 16..234 (250 - 16). 218 pixels do not divide by 16, so the alignment
// decides where the spare 10 pixels go.
TEST(CreateDataGrid4D, AlignmentLaysNodesFromTheAnchor) {
    const struct {
        const char* name;
        int align;
        POINT3D anchor;
        std::vector<int> layout;
    } cases[] = {
        // Top: from 16 on, the last node 16 + 13*16 = 224 stays below 234.
        {"top", 0, {0, 0, 0}, {16, 16, 14, 14}},
        // Bottom: the last row lies on the end, 234; going down by 16 the
        // first row is 234 - 13*16 = 26. x is still laid from the start.
        {"bottom", 1, {0, 0, 0}, {16, 26, 14, 14}},
        // At a point: the grid runs through (100, 57): 100 - 5*16 = 20, and
        // 57 - 2*16 = 25; the last nodes are 20 + 13*16 = 228 and 25 + 13*16 = 233.
        {"at a point", 2, {100, 57, 0}, {20, 25, 14, 14}},
        // An anchor before the start walks up: -40 + 4*16 = 24.
        {"anchor before the start", 2, {-40, 16, 0}, {24, 16, 14, 14}},
    };
    for (const auto& c : cases) {
        DATA_GRID4D g = gridFor(250, 250, 16);
        g.align = c.align;
        g.anchor = c.anchor;
        ASSERT_TRUE(PIV::CreateDataGrid4D(g, kWindow32)) << c.name;
        EXPECT_EQ(layout(g), c.layout) << c.name;
    }
}

TEST(CreateDataGrid4D, RoiAndMarginNarrowTheRange) {
    // ROI given right-to-left and bottom-to-top, and reaching past the image:
    // x becomes 40..256, y 0..100. Nodes: x from 56 to 240 (12 nodes),
    // y from 16 to 84 (5 nodes).
    DATA_GRID4D g = gridFor(256, 256, 16);
    g.roiEnabled = true;
    g.roi = RECT3D{300, 40, 100, -20, 0, 0};
    ASSERT_TRUE(PIV::CreateDataGrid4D(g, kWindow32));
    EXPECT_EQ(layout(g), (std::vector<int>{56, 16, 12, 5}));
    // A margin of 8 narrows 16..240 to 24..232: 24, 40, ..., 232 = 14 nodes.
    g = gridFor(256, 256, 16);
    g.margin = SIZE3D{8, 8, 0};
    ASSERT_TRUE(PIV::CreateDataGrid4D(g, kWindow32));
    EXPECT_EQ(layout(g), (std::vector<int>{24, 24, 14, 14}));
}

TEST(CreateDataGrid4D, FailuresReportTheCodeAndLeaveNodesAlone) {
    const struct {
        const char* name;
        int width, height, step;
        SIZE3D window;
        int code;
    } cases[] = {
        // A 64-pixel window in a 40-pixel image: start 32 lies beyond end 8.
        {"window larger than image", 40, 40, 16, {64, 64, 1}, PIVerror::BAD_GRID_DIMENSION},
        {"zero window", 256, 256, 16, {0, 32, 1}, PIVerror::BAD_SAMPLE_SIZE},
        {"zero image", 0, 256, 16, {32, 32, 1}, PIVerror::BAD_IMAGE_SIZE},
        {"zero step", 256, 256, 0, {32, 32, 1}, PIVerror::BAD_PARAMETERS},
    };
    DebugLevelScope debug(1);  // failures are printed only above level 0
    for (const auto& c : cases) {
        MessageCapture capture;
        DATA_GRID4D g = gridFor(c.width, c.height, c.step);
        g.nodes = SIZE3D{7, 8, 9};
        g.first = POINT3D{1, 2, 3};
        EXPECT_FALSE(PIV::CreateDataGrid4D(g, c.window)) << c.name;
        EXPECT_EQ(layout(g), (std::vector<int>{1, 2, 7, 8})) << c.name;
        const std::string expected = std::string("ERROR in 'PIV::CreateDataGrid4D()' : ") +
                                     PIVerror::getErrorMessage(c.code);
        EXPECT_TRUE(HasText(capture.all(), expected));
    }
}
