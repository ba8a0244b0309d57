// Vector maps, colour bar and axes painted offscreen; pixels checked at places
// worked out by hand.
#include <gtest/gtest.h>

#include <QImage>
#include <QPainter>
#include <QStyleOptionGraphicsItem>
#include <cmath>
#include <functional>

#include "offscreen_app.h"
#include "piv_data2d.h"
#include "pivvectormapitem.h"
#include "randompivvectormapitem.h"

namespace {

constexpr QRgb kWhite = 0xffffffff, kGreen = 0xff00ff00, kRed = 0xffff0000;

class Items : public ::testing::Test {
protected:
    static void SetUpTestSuite() { EnsureOffscreenApplication(); }
};

QImage paintItem(QGraphicsItem& item, int w, int h) {
    QImage image(w, h, QImage::Format_ARGB32);
    image.fill(kWhite);
    QPainter p(&image);
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
    UniformField(int nx, int ny, float dx, float dy) {
        DATA_GRID4D g;
        g.nodes = SIZE3D{nx, ny, 1};
        g.timeSteps = 1;
        g.first = POINT3D{16, 16, 0};
        g.step = SIZE3D{16, 16, 1};
        g.imageSize = SIZE3D{(nx + 1) * 16, (ny + 1) * 16, 1};
        field.create(g);
        for (int k = 0; k < field.nodeCount(); k++) {
            field.data()[k].dx = dx;
            field.data()[k].dy = dy;
            field.data()[k].flag = VECTOR_ENABLED;
        }
    }
};

PIVPLOT::VECTOR_CFG arrows(int colorCode) {
    PIVPLOT::VECTOR_CFG cfg;
    cfg.ColorCode = colorCode;
    cfg.Stretch = 4;
    cfg.HeadLength = 0.3;
    cfg.HeadWidth = 0.2;
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
        int changed = 0;
        for (int y = 0; y < image.height(); y++)
            for (int x = 0; x < image.width(); x++) {
                if (image.pixel(x, y) == kWhite) continue;
                changed++;
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
        EXPECT_GT(changed, 300 * 10);
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
        colors.Outlier = kRed;
        item.setColorCfg(colors);
        item.setVectorCfg(cfg);
        item.setData(&f.field);
        const QImage image = paintItem(item, 80, 64);
        for (QPointF node : {QPointF(32, 32), QPointF(48, 48)}) {
            const QPointF mid = node + QPointF(6, -4), corner = node + QPointF(3, 3);
            EXPECT_EQ(c.arrow, countNear(image, mid.x(), mid.y(), 1.5, kGreen) > 0) << c.display;
            EXPECT_EQ(c.cross, countNear(image, corner.x(), corner.y(), 1, kRed) > 0) << c.display;
        }
        EXPECT_GT(countNear(image, 22, 12, 1.5, kGreen), 0) << "a good vector stays";
    }
}

// Magnitude coloured between 0 and 10 through "Grayscale + Red": |(4, 3)| = 5
// is entry trunc(256 · 0.5) = 128, grey; |(8, 6)| = 10 the last entry, red.
TEST_F(Items, ProbedVectorsTakeTheirMagnitudeColourUntilCleared) {
    RandomPIVVectorMapItem item;
    PIVPLOT::VECTOR_CFG cfg = arrows(VCC_MAGNITUDE);
    cfg.Stretch = 2;
    cfg.MaxColor = 10;
    item.setVectorCfg(cfg);
    BitmapLUT lut;
    lut.setLUT(LUT_GRAYSCALE_RED);
    item.setLUT(lut);
    PIV_VECTOR a, b;
    a.ix = 10, a.iy = 40, a.dx = 4, a.dy = 3, a.flag = VECTOR_ENABLED;
    b.ix = 40, b.iy = 40, b.dx = 8, b.dy = 6, b.flag = VECTOR_ENABLED;
    item.addVector(a);
    item.addVector(b);
    QImage image = paintItem(item, 64, 48);
    // Shaft midpoints: (10, 40) + (8, -6) / 2 and (40, 40) + (16, -12) / 2.
    EXPECT_GT(countNear(image, 14, 37, 1, 0xff808080), 0);
    EXPECT_GT(countNear(image, 48, 34, 1, kRed), 0);
    item.clearVectors();
    image = paintItem(item, 64, 48);
    EXPECT_EQ(countNear(image, 14, 37, 3, 0xff808080), 0);
}

TEST_F(Items, ValidationColourFollowsTheStatusBits) {
    PIVPLOT::COLOR_CFG colors;
    colors.Valid = 1, colors.Outlier = 2, colors.Replaced = 3, colors.Interpolated = 4;
    colors.Edited = 5;
    struct Case {
        int flags;
        QRgb colour;
    };
    const Case cases[] = {
        {VECTOR_ENABLED, 1},
        {VECTOR_ENABLED | VECTOR_INTERPOLATED, 4},
        {VECTOR_ENABLED | VECTOR_LOWER_PEAK, 3},
        {VECTOR_ENABLED | VECTOR_EDITED, 1},  // kept by hand: valid
        {VECTOR_ENABLED | VECTOR_OUTLIER, 2},
        {0, 2},
        {VECTOR_NO_RESULT | VECTOR_OUTLIER, 2},
        {VECTOR_EDITED, 5},
        {VECTOR_OUTLIER | VECTOR_EDITED, 5},
    };
    PIVVectorMapItem item;
    item.setColorCfg(colors);
    for (const Case& c : cases)
        EXPECT_EQ(c.colour, item.GetValidationColor(uint8_t(c.flags))) << c.flags;
}
