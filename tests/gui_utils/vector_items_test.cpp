// Vector maps, colour bar and axes painted offscreen; pixels checked at places
// worked out by hand.
#include <gtest/gtest.h>

#include <QImage>
#include <QPainter>
#include <QStyleOptionGraphicsItem>
#include <cmath>
#include <cstring>
#include <vector>

#include "axisscaleitem.h"
#include "lutitem.h"
#include "offscreen_app.h"
#include "piv_data2d.h"
#include "pivvectormapitem.h"
#include "ptv_data2d.h"
#include "ptvvectormapitem.h"
#include "randompivvectormapitem.h"
#include "refvectoritem.h"

namespace {

constexpr QRgb kWhite = 0xffffffff, kGreen = 0xff00ff00, kRed = 0xffff0000;

class Items : public ::testing::Test {
protected:
    static void SetUpTestSuite() { EnsureOffscreenApplication(); }
};

// The item's origin at (at, at) of a white image.
QImage paintItem(QGraphicsItem& item, int w, int h, int at = 0) {
    QImage image(w, h, QImage::Format_ARGB32);
    image.fill(kWhite);
    QPainter p(&image);
    p.translate(at, at);
    QStyleOptionGraphicsItem option;
    item.paint(&p, &option, nullptr);
    return image;
}

// Pixels of colour `rgb` within `radius` of (x, y).
int countNear(const QImage& image, double x, double y, double radius, QRgb rgb) {
    int n = 0;
    for (int j = int(y - radius); j <= int(y + radius) + 1; j++)
        for (int i = int(x - radius); i <= int(x + radius) + 1; i++)
            if (image.valid(i, j) && std::hypot(i - x, j - y) <= radius && image.pixel(i, j) == rgb)
                n++;
    return n;
}

// nx x ny enabled nodes 16 px apart from (16, 16), every vector (dx, dy).
struct UniformField {
    PIV_Data2D field;
    UniformField(int nx, int ny, float dx, float dy, bool roi = false) {
        DATA_GRID4D g;
        g.roiEnabled = roi, g.roi = RECT3D{4, 76, 4, 60, 0, 0};
        g.nodes = SIZE3D{nx, ny, 1}, g.timeSteps = 1;
        g.first = POINT3D{16, 16, 0}, g.step = SIZE3D{16, 16, 1};
        g.imageSize = SIZE3D{(nx + 1) * 16, (ny + 1) * 16, 1};
        field.create(g);
        for (int k = 0; k < field.nodeCount(); k++)
            field.data()[k].dx = dx, field.data()[k].dy = dy, field.data()[k].flag = VECTOR_ENABLED;
    }
};

PIVPLOT::VECTOR_CFG arrows(int colorCode) {
    PIVPLOT::VECTOR_CFG cfg;
    cfg.ColorCode = colorCode;
    cfg.Stretch = 4, cfg.HeadLength = 0.3, cfg.HeadWidth = 0.2;
    return cfg;
}

}  // namespace

// Every vector (3, 2) px at stretch 4: arrows of 4·√13 = 14.4 px pointing
// right and up (dy counts upwards), heads 4.3 long and 2.9 wide.
TEST_F(Items, UniformShiftDrawsGreenArrowsAtEveryNode) {
    for (bool filled : {false, true}) {
        UniformField f(20, 15, 3, 2);
        PIVVectorMapItem item;
        PIVPLOT::VECTOR_CFG cfg = arrows(VCC_GREEN);
        cfg.FillArrowHead = filled;
        item.setVectorCfg(cfg);
        item.setData(&f.field);
        const QImage image = paintItem(item, 336, 256);
        const double reach = 4 * std::sqrt(13.0) * (1 + 0.2) + 1;
        for (int y = 0; y < image.height(); y++)
            for (int x = 0; x < image.width(); x++) {
                if (image.pixel(x, y) == kWhite) continue;
                ASSERT_EQ(image.pixel(x, y), kGreen) << x << "," << y;
                // The nearest node the arrow can start from lies left and below.
                const double nx = 16 * std::floor(x / 16.0), ny = 16 * std::ceil(y / 16.0);
                EXPECT_LE(std::hypot(x - nx, y - ny), reach) << x << "," << y;
            }
        int drawn = 0;
        for (int r = 0; r < 15; r++)
            for (int c = 0; c < 20; c++)
                drawn += countNear(image, 16 * (c + 1) + 6, 16 * (r + 1) - 4, 1.5, kGreen) > 0;
        EXPECT_GE(drawn, 285) << "filled " << filled;
    }
}

// Two outliers among 4 x 3 nodes: shown as arrows, crossed in the outlier
// colour (half-size 4, a quarter of the step) or left out.
TEST_F(Items, OutliersAreShownCrossedOrHidden) {
    struct Case {
        int display;
        bool arrow, cross;
    };
    const Case cases[] = {{OUTLIERS_SHOW, true, false},
                          {OUTLIERS_MARK_X, false, true},
                          {OUTLIERS_HIDE, false, false}};
    for (const Case& c : cases) {
        UniformField f(4, 3, 3, 2);
        f.field.pivVector(1, 1)->flag = VECTOR_OUTLIER;
        f.field.pivVector(2, 2)->flag = VECTOR_OUTLIER | VECTOR_ENABLED;
        PIVVectorMapItem item;
        PIVPLOT::VECTOR_CFG cfg = arrows(VCC_GREEN);
        cfg.OutlierDisplay = c.display;
        PIVPLOT::COLOR_CFG colors;
        colors.Outlier = 0xff0000;  // as the settings store keeps it: opaque red
        item.setColorCfg(colors);
        item.setVectorCfg(cfg);
        item.setData(&f.field);
        const QImage image = paintItem(item, 80, 64);
        for (QPointF node : {QPointF(32, 32), QPointF(48, 48)}) {
            const QPointF mid = node + QPointF(6, -4), corner = node + QPointF(3, 3);
            EXPECT_EQ(c.arrow, countNear(image, mid.x(), mid.y(), 1.5, kGreen) > 0) << c.display;
            EXPECT_EQ(c.cross, countNear(image, corner.x(), corner.y(), 1, kRed) > 0) << c.display;
        }
    }
}

// Grid mode, 4 x 3 nodes 16 px apart: arms of half the step reach the next
// node, so the crosses join into lines at y = 16, 32, 48 from x = 8 to 72 and
// at x = 16 ... 64 from y = 8 to 56; the region of interest (4, 4)-(76, 60)
// is framed. All in the valid colour, black.
TEST_F(Items, GridModeDrawsNodeCrossesAndTheRegionOfInterest) {
    UniformField f(4, 3, 3, 2, true);
    PIVVectorMapItem item;
    item.setData(&f.field);
    item.setFlagShowGrid(true);
    const QImage image = paintItem(item, 80, 64);
    for (QPoint p : {QPoint(8, 32), QPoint(72, 16), QPoint(64, 8), QPoint(48, 56), QPoint(4, 30)})
        EXPECT_EQ(image.pixel(p), 0xff000000u) << p.x() << "," << p.y();
    for (QPoint p : {QPoint(24, 24), QPoint(6, 32), QPoint(2, 30), QPoint(48, 58)})
        EXPECT_EQ(image.pixel(p), kWhite) << p.x() << "," << p.y();
}

// Magnitude coloured between 0 and 10 through "Grayscale + Red": |(4, 3)| = 5
// is entry trunc(256 · 0.5) = 128, grey; |(8, 6)| = 10 the last entry, red.
TEST_F(Items, ProbedVectorsTakeTheirMagnitudeColourUntilCleared) {
    RandomPIVVectorMapItem item;
    PIVPLOT::VECTOR_CFG cfg = arrows(VCC_MAGNITUDE);
    cfg.Stretch = 2, cfg.MaxColor = 10;
    item.setVectorCfg(cfg);
    BitmapLUT lut;
    lut.setLUT(LUT_GRAYSCALE_RED);
    item.setLUT(lut);
    PIV_VECTOR a, b;
    a.ix = 10, a.iy = 40, a.dx = 4, a.dy = 3, a.flag = VECTOR_ENABLED;
    b.ix = 40, b.iy = 40, b.dx = 8, b.dy = 6, b.flag = VECTOR_ENABLED;
    for (const PIV_VECTOR& v : {a, b}) item.addVector(v);
    const QImage image = paintItem(item, 64, 48);
    // Shaft midpoints: (10, 40) + (8, -6) / 2 and (40, 40) + (16, -12) / 2.
    EXPECT_GT(countNear(image, 14, 37, 1, 0xff808080), 0);
    EXPECT_GT(countNear(image, 48, 34, 1, kRed), 0);
    // A transparent table draws nothing; clearing leaves nothing to draw.
    lut.setOpacity(BITMAP_OPACITY_CFG{OPACITY_CONSTANT, 0.0, 0, 0});
    item.setLUT(lut);
    EXPECT_EQ(countNear(paintItem(item, 64, 48), 48, 34, 3, kRed), 0);
    item.clearVectors();
    EXPECT_EQ(countNear(paintItem(item, 64, 48), 14, 37, 3, 0xff808080), 0);
}

// At stretch 4 a valid pair at (10.5, 20.5) moved (4, -2) has its shaft
// through (18.5, 24.5); one beyond the valid radius at (40, 10) is crossed
// in red; a particle without partner draws nothing.
TEST_F(Items, TracksDrawValidPairsAsArrowsAndCrossTheRest) {
    auto tracks = std::make_shared<PTV_Data2D>();
    ASSERT_TRUE(tracks->resize(3));
    const float rows[3][5] = {{10.5f, 20.5f, 4, -2, 1}, {40, 10, 3, 0, 0}, {40, 36, 0, 0, 0}};
    for (int k = 0; k < 3; k++) {
        PTV_PAIR& p = *tracks->pairData(k);
        p.first.id = k, p.second.id = k < 2 ? k : -1;
        p.first.x = rows[k][0], p.first.y = rows[k][1], p.dx = rows[k][2], p.dy = rows[k][3];
        p.valid = int32_t(rows[k][4]);
    }
    PTVVectorMapItem item;
    PIVPLOT::VECTOR_CFG cfg = arrows(VCC_GREEN);
    cfg.OutlierDisplay = OUTLIERS_MARK_X;
    PIVPLOT::COLOR_CFG colors;
    colors.Outlier = 0xff0000;
    item.setColorCfg(colors), item.setVectorCfg(cfg), item.setData(tracks);
    const QImage image = paintItem(item, 64, 48);
    EXPECT_GT(countNear(image, 18.5, 24.5, 1, kGreen), 0);
    EXPECT_GT(countNear(image, 43, 13, 1, kRed), 0);
    EXPECT_EQ(countNear(image, 46, 10, 1.5, kGreen) + countNear(image, 40, 36, 5, kRed), 0);
}

TEST_F(Items, ValidationColourFollowsTheStatusBits) {
    PIVPLOT::COLOR_CFG colors;
    colors.Valid = 1, colors.Outlier = 2, colors.Replaced = 3, colors.Interpolated = 4;
    colors.Edited = 5;
    struct Case {
        int flags;
        QRgb colour;
    };
    const Case cases[] = {{VECTOR_ENABLED, 1},
                          {VECTOR_ENABLED | VECTOR_INTERPOLATED, 4},
                          {VECTOR_ENABLED | VECTOR_LOWER_PEAK, 3},
                          {VECTOR_ENABLED | VECTOR_EDITED, 1},  // kept by hand: valid
                          {VECTOR_ENABLED | VECTOR_OUTLIER, 2},
                          {0, 2},
                          {VECTOR_NO_RESULT | VECTOR_OUTLIER, 2},
                          {VECTOR_EDITED, 5},
                          {VECTOR_OUTLIER | VECTOR_EDITED, 5}};
    PIVVectorMapItem item;
    item.setColorCfg(colors);
    for (const Case& c : cases)
        EXPECT_EQ(c.colour, item.GetValidationColor(uint8_t(c.flags))) << c.flags;
}

// "Short Rainbow" entry 0 is (0, 0, 512) clamped, blue; entry 255 is
// (4 · 255 - 512, 1024 - 4 · 255, 0) = (508, 4, 0) clamped.
TEST_F(Items, ColourBarEndsShowTheFirstAndLastEntry) {
    for (int orientation : {LutItem::Horizontal, LutItem::Vertical}) {
        LutItem item;
        PIVPLOT::LUT_CFG cfg;
        cfg.Frame = cfg.ShowLabels = true;
        cfg.Orientation = orientation, cfg.Length = 100, cfg.Width = 10;
        cfg.ValueMax = 2, cfg.ValueIncr = 0.5;
        item.setConfig(cfg);
        BitmapLUT lut;
        lut.setLUT(LUT_SHORT_RAINBOW);
        item.setLUT(lut);
        const QImage image = paintItem(item, 200, 200, 40);
        const QRect bar = item.barRect().toRect().translated(40, 40);
        const QPoint first = orientation == LutItem::Horizontal ? bar.topLeft() : bar.bottomLeft();
        const QPoint last = orientation == LutItem::Horizontal ? bar.topRight() : bar.topLeft();
        EXPECT_EQ(image.pixel(first), 0xff0000ffu) << orientation;
        EXPECT_EQ(image.pixel(last), 0xffff0400u) << orientation;
        cfg.Length = cfg.Width = 1 << 20;  // refused, drawn without a bar
        item.setConfig(cfg);
        EXPECT_EQ(paintItem(item, 20, 20, -40).pixel(10, 10), kWhite);
    }
}

// A 200 px scale. In pixels, ticks every 50 from 5; a vertical scale counts
// from the bottom unless the origin is on top. In units, (p - 100) · 0.5 + 10
// puts the ticks of 0 + 20k at p = 80 + 2 · 20k: 0, 40, ... 200.
TEST_F(Items, AxisTicksLieAtTheAnchorPlusIncrements) {
    struct Case {
        Qt::Orientation orientation;
        bool onTop, phys;
        int minor, depth;  // minor ticks per interval, how deep the scan looks
        std::vector<int> ticks;
    };
    const Case cases[] = {
        {Qt::Horizontal, false, false, 0, 4, {5, 55, 105, 155}},
        {Qt::Horizontal, false, false, 1, 2, {5, 30, 55, 80, 105, 130, 155, 180}},
        {Qt::Vertical, false, false, 0, 4, {45, 95, 145, 195}},
        {Qt::Vertical, true, false, 0, 4, {5, 55, 105, 155}},
        {Qt::Horizontal, false, true, 0, 4, {0, 40, 80, 120, 160, 200}},
        {Qt::Vertical, true, true, 0, 4, {0, 40, 80, 120, 160, 200}},
    };
    for (const Case& c : cases) {
        AxisScaleItem item(c.orientation);
        PIVPLOT::AXIS_CFG cfg;
        cfg.UsePhysUnit = c.phys;
        cfg.PixAnchor = 5, cfg.PixIncr = 50, cfg.PhysAnchor = 0, cfg.PhysIncr = 20;
        cfg.MajorTickSize = 6, cfg.MinorTickSize = 3, cfg.MinorTicks = c.minor;
        item.setConfig(cfg);
        item.setLength(200);
        item.setPhysicalScaling(0.5, 100, 10);
        item.setImageOriginOnTop(c.onTop);
        const QImage image = paintItem(item, 260, 260, 30);
        std::vector<int> found;
        for (int k = 0; k < 260; k++) {
            const bool h = c.orientation == Qt::Horizontal;
            if (image.pixel(h ? k : 30 - c.depth, h ? 30 + c.depth : k) != kWhite)
                found.push_back(k - 30);
        }
        EXPECT_EQ(found, c.ticks) << c.orientation << c.onTop << c.phys << c.minor;
    }
}

// 8 px at the map's stretch 4 is a 32 px arrow; the label names what it
// stands for.
TEST_F(Items, ReferenceArrowLabelFollowsTheDisplayMode) {
    struct Case {
        int mode;
        const char* label;
    };
    const Case cases[] = {
        {REFVECTOR_PIXELS, "8 px"}, {REFVECTOR_VELOCITY, "2.5 m/s"}, {REFVECTOR_SHIFT, "0.125 mm"}};
    for (const Case& c : cases) {
        PIVPLOT::REFVECTOR_CFG cfg;
        cfg.PixelShift = 8, cfg.Velocity = 2.5, cfg.PhysShift = 0.125;
        std::strcpy(cfg.VelUnit, "m/s");
        std::strcpy(cfg.ShiftUnit, "mm");
        cfg.DisplayMode = c.mode, cfg.Color = kRed;
        RefVectorItem item;
        item.setConfig(cfg, 4);
        EXPECT_EQ(item.label(), QString(c.label));
        const QImage image = paintItem(item, 200, 100);
        const int row = int(item.arrow().y1());
        int left = 200, right = -1;
        for (int x = 0; x < 200; x++)
            if (image.pixel(x, row) == kRed) left = std::min(left, x), right = std::max(right, x);
        EXPECT_NEAR(right - left, 32, 1) << c.label;
    }
}
