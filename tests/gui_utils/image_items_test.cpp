// The bitmap items: pixel values to table indices, the intensity range, the
// colour table, and a vortex field as a vorticity map.
#include <gtest/gtest.h>

#include <QByteArray>
#include <QPainter>
#include <cmath>

#include "image2d.h"
#include "image2ditem.h"
#include "imagepairitem.h"
#include "maskitem.h"
#include "message_capture.h"
#include "offscreen_app.h"
#include "piv_data2d.h"
#include "pivscalarmapitem.h"

namespace {

// A one-row image of the given values; the item holds a reference.
Image2D* Row(ImageType type, std::initializer_list<float> values) {
    Image2D* image = new Image2D(int64_t(values.size()), 1, type);
    int x = 0;
    for (float v : values) image->setPixel(x++, 0, v);
    return image;
}

// What a painter makes of the item: white paper, the item at the origin.
QImage Painted(QGraphicsItem& item, int w, int h) {
    QImage paper(w, h, QImage::Format_ARGB32);
    paper.fill(Qt::white);
    QPainter painter(&paper);
    item.paint(&painter, nullptr);
    return paper;
}

}  // namespace

// Range 0..1020 over 256 entries: index = v * 255 / 1020 = v / 4 in integers.
// 1024 is one step past the top: 256 wraps to 0 unless clipped to 255;
// 1500 gives 375, which wraps to 119.
TEST(ImageItem, PixelsBecomeIndicesWrappingOrClipped) {
    EnsureOffscreenApplication();
    for (ImageType type : {IMAGE_UINT16, IMAGE_FLOAT}) {
        for (bool clip : {false, true}) {
            Image2D* image = Row(type, {0, 3, 4, 510, 1020, 1024, 1500});
            Image2DItem item;
            item.setClipping(clip);
            item.setIntensityRange(1020, 0);
            item.updateImage2D(image);
            image->release();
            const int expected[] = {0, 0, 1, 127, 255, clip ? 255 : 0, clip ? 255 : 119};
            for (int x = 0; x < 7; x++)
                EXPECT_EQ(expected[x], item.indexImage().pixelIndex(x, 0))
                    << "type " << type << " clip " << clip << " x " << x;
        }
    }
    // Equal limits: no picture, and the code says why.
    Image2D* image = Row(IMAGE_UINT16, {7});
    Image2DItem item;
    item.setIntensityRange(500, 500.5);  // both 500 as integers
    item.updateImage2D(image);
    image->release();
    EXPECT_EQ(ImageItem::EQUAL_LIMITS, item.lastError());
    EXPECT_TRUE(item.indexImage().isNull());
    // Absurd limits are held to +-2^40: 7 then lies in the middle, index 127.
    item.setIntensityRange(-1e30, 1e30);
    EXPECT_EQ(127, item.indexImage().pixelIndex(0, 0));
}

TEST(ImageItem, AutoScaleBrighterDarkerMoveTheTop) {
    EnsureOffscreenApplication();
    enum Op { AUTO, BRIGHTER, DARKER };
    struct Case {
        Op op;
        float dataMax;
        bool scaling;
        double bottom, top;
        double newBottom, newTop;
    } cases[] = {
        {AUTO, 1000, true, 5, 9, 0, 1023},         // next 2^k - 1 above the data
        {AUTO, 2, true, 5, 9, 0, 1},               // 0..2 shows as 0..1
        {BRIGHTER, 9, true, 0, 1023, 0, 511},      // 511.5 floored
        {BRIGHTER, 9, true, 100, 1000, 100, 550},  // half way up from the bottom
        {BRIGHTER, 9, false, 0, 1023, 0, 511},     // (1023 + 1) / 2 - 1
        {BRIGHTER, 9, false, 0, 3, 0, 3},          // below 4: no change
        {DARKER, 9, true, 0, 511, 0, 1023},        // 2 * 511 + 1
        {DARKER, 9, true, 100, 550, 100, 1001},    // 2 * 450 + 100 + 1
        {DARKER, 9, true, 0, 2, 0, 4},             // 4 is not above 4
        {DARKER, 9, false, 0, 511, 0, 1023},       // 2 * 512 - 1
    };
    for (const Case& c : cases) {
        Image2D* image = Row(IMAGE_UINT16, {0, c.dataMax});
        Image2DItem item;
        item.setIntensityScaling(c.scaling);
        item.setIntensityRange(c.bottom, c.top);
        item.updateImage2D(image);
        image->release();
        c.op == AUTO ? item.autoScale() : c.op == BRIGHTER ? item.brighter() : item.darker();
        EXPECT_EQ(c.newBottom, item.minimum()) << c.op << " " << c.top;
        EXPECT_EQ(c.newTop, item.maximum()) << c.op << " " << c.top;
    }
}

// An 8-bit ramp v = 16 y + x over 0..255 is its own index image. Painting
// gives each pixel the table colour of its index; a new table changes the
// painted colours but not one index byte.
TEST(ImageItem, ColourChangeRewritesTheTableOnly) {
    EnsureOffscreenApplication();
    Image2D* ramp = new Image2D(16, 16, IMAGE_UINT8);
    for (int y = 0; y < 16; y++)
        for (int x = 0; x < 16; x++) ramp->setPixel(x, y, float(16 * y + x));
    Image2DItem item;
    item.setIntensityRange(0, 255);
    item.updateImage2D(ramp);
    ramp->release();
    auto bytes = [&item] {
        const QImage& i = item.indexImage();
        return QByteArray(reinterpret_cast<const char*>(i.constBits()), int(i.sizeInBytes()));
    };
    const QByteArray before = bytes();
    EXPECT_EQ(qRgb(83, 83, 83), Painted(item, 16, 16).pixel(3, 5));  // gray entry 83

    item.setLUTChoice(LUT_SHORT_RAINBOW);
    EXPECT_EQ(before, bytes());
    // Entry 83 of the short rainbow: k = 332, (0, 255, 512 - 332 = 180).
    EXPECT_EQ(qRgb(0, 255, 180), Painted(item, 16, 16).pixel(3, 5));
}

// Frames a = {100, 50, 0}, b = {50, 100, 0} over the range 0..100 (R = 100).
// Difference: (a - b + R) 255 / 2R; quotient: a / b 255 / 2, 0 / 0 in the
// middle; blend: 16 a' + b' with a' = a 15 / 100. Shifting b one pixel right
// makes it {0, 50, 100}; a background of 30 makes a {70, 20, 0}.
TEST(ImagePairItem, FramesCombineByMode) {
    EnsureOffscreenApplication();
    struct Case {
        int mode, shift;
        bool background;
        int index[3];
    } cases[] = {
        {ImagePairItem::SHOW_DIFFERENCE, 0, false, {191, 63, 127}},
        {ImagePairItem::SHOW_DIFFERENCE, 1, false, {255, 127, 0}},
        {ImagePairItem::SHOW_DIFFERENCE, 0, true, {153, 25, 127}},
        {ImagePairItem::SHOW_QUOTIENT, 0, false, {255, 63, 127}},
        {ImagePairItem::SHOW_QUOTIENT, 0, true, {178, 25, 127}},  // 1.4, 0.2
        {ImagePairItem::SHOW_PAIR_COLOR, 0, false, {247, 127, 0}},
        {ImagePairItem::SHOW_SECOND, 0, true, {127, 255, 0}},  // b alone, 0..100
    };
    for (const Case& c : cases) {
        Image2D *a = Row(IMAGE_UINT8, {100, 50, 0}), *b = Row(IMAGE_UINT8, {50, 100, 0});
        Image2D* bg = Row(IMAGE_UINT8, {30, 30, 30});
        ImagePairItem item;
        item.setIntensityRange(0, 100);
        item.setImageOffset(c.shift, 0);
        item.setBackgrounds(c.background ? bg : nullptr, nullptr);
        item.updateImages(a, b);
        item.setCombineMode(c.mode);
        for (Image2D* image : {a, b, bg}) image->release();
        for (int x = 0; x < 3; x++)
            EXPECT_EQ(c.index[x], item.indexImage().pixelIndex(x, 0)) << c.mode << " " << x;
    }
}

// A mask keeps its two colours whatever table the image uses: masked pixels
// are half-transparent red over the paper, the others leave it white.
TEST(MaskItem, MaskedPixelsTakeTheMaskColourAtItsOpacity) {
    EnsureOffscreenApplication();
    Image2D* mask = Row(IMAGE_UINT8, {0, 3});
    MaskItem item;
    item.setMaskOpacity(0.5);
    item.updateImage2D(mask);
    mask->release();
    item.setLUTChoice(LUT_SHORT_RAINBOW);
    const QImage paper = Painted(item, 2, 1);
    EXPECT_EQ(qRgb(255, 255, 255), paper.pixel(0, 0));
    EXPECT_EQ(255, qRed(paper.pixel(1, 0)));
    EXPECT_NEAR(128, qGreen(paper.pixel(1, 0)), 1);
}

namespace {
// A Lamb-Oseen vortex of circulation 2 pi and core radius 24 px centred on
// node (10, 10) of 21 x 21 nodes 8 px apart (pixel 88, 88). Its vorticity
// 2 / 24^2 exp(-r^2 / 24^2) peaks at the centre; positions count in mm and
// velocities in m/s, so the field's vorticity is 1000 times that, 3.47 1/s.
struct VortexField {
    PIV_Data2D field;
    explicit VortexField(int rows) {
        DATA_GRID4D g;
        g.nodes = SIZE3D{21, rows, 1};
        g.timeSteps = 1;
        g.first = POINT3D{8, 8, 0};
        g.step = SIZE3D{8, 8, 1};
        g.imageSize = SIZE3D{22 * 8, (rows + 1) * 8, 1};
        field.create(g);
        for (int r = 0; r < rows; r++)
            for (int c = 0; c < 21; c++) {
                PIV_VECTOR* v = field.pivVector(c, r);
                const double x = v->ix - 88.0, y = 88.0 - v->iy, r2 = x * x + y * y;  // y up
                const double k = r2 > 0 ? (1 - std::exp(-r2 / 576.0)) / r2 : 0.0;     // u_t / r
                v->u = float(-k * y);
                v->v = float(k * x);
                v->flag = VECTOR_ENABLED;
            }
        field.setFlagRawData(true);
    }
};
}  // namespace

// The vortex maps with its highest index at the centre; then one row of
// nodes, which has no gradient across it, fails and hides the map.
TEST(PIVScalarMapItem, VorticityPeaksAtTheVortexCentreAndALineOfNodesHides) {
    EnsureOffscreenApplication();
    VortexField vortex(21), line(1);
    PIVPLOT::CONTOUR_CFG cfg;
    cfg.Show = true;
    cfg.Coding = PIVPLOT::CC_VORTICITY;
    cfg.lut.PalLength = 256;
    cfg.lut.ValueMax = 5.0;  // above the peak, so nothing clips
    PIVScalarMapItem item;
    item.setContourCfg(cfg);
    item.updateData(&vortex.field);
    ASSERT_TRUE(item.isVisible());
    const QImage& map = item.indexImage();
    ASSERT_EQ(QSize(176, 176), map.size());
    int best = -1, bx = 0, by = 0;
    for (int y = 0; y < map.height(); y++)
        for (int x = 0; x < map.width(); x++)
            if (map.pixelIndex(x, y) > best) best = map.pixelIndex(x, y), bx = x, by = y;
    EXPECT_TRUE(std::abs(bx - 88) <= 8 && std::abs(by - 88) <= 8) << bx << ", " << by;
    // 3.47 of 5 would be index 177; the line integrals over +-8 px average
    // the core a little lower.
    EXPECT_TRUE(best >= 150 && best <= 177) << best;

    DebugLevelScope level(1);
    MessageCapture capture;
    item.updateData(&line.field);
    EXPECT_FALSE(item.isVisible());
    EXPECT_TRUE(HasText(capture.all(), "ContourMap::calculateNewContours() - Failed"));
}
