// Storage of Image2D: re-allocation, refused sizes, copies, crops and
// release through the base class.

#include <cstring>

#include "image_test_support.h"

using namespace image_test;

namespace {

// A w x h 8-bit image with pixel (x, y) = 10 y + x: every value names its place.
Image2D Numbered(int w, int h) {
    std::vector<float> v;
    for (int y = 0; y < h; y++)
        for (int x = 0; x < w; x++) v.push_back(static_cast<float>(10 * y + x));
    return MakeImage(w, h, IMAGE_UINT8, v);
}

}  // namespace

// operator== reads the border and row padding too, so blocks dirtied by an
// earlier use must not make equal pixels compare unequal: b gets its block
// back through an 8-bit geometry of the same byte size filled with 0xAB.
TEST(Image2DStorage, EqualPixelsCompareEqualWhateverTheBorderHeldBefore) {
    // width, height, type, padding: border only (72-byte rows need no
    // padding), border and row padding, row padding only, float
    const int cases[][4] = {{64, 64, IMAGE_UINT8, 4},
                            {5, 3, IMAGE_UINT8, 1},
                            {5, 3, IMAGE_UINT16, 0},
                            {7, 2, IMAGE_FLOAT, 2}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c[0] << "x" << c[1] << " type " << c[2]);
        const ImageType type = static_cast<ImageType>(c[2]);
        Image2D a, b;
        ASSERT_TRUE(b.alloc(c[0], c[1], type, c[3]));
        const int64_t stride = static_cast<int64_t>(b.bytesPerLine()), rows = c[1] + 2 * c[3];
        ASSERT_TRUE(b.alloc(stride, rows, IMAGE_UINT8, 0));
        std::memset(b.bits(), 0xAB, static_cast<size_t>(stride * rows));
        ASSERT_TRUE(a.alloc(c[0], c[1], type, c[3]) && b.alloc(c[0], c[1], type, c[3]));
        for (int y = 0; y < c[1]; y++)
            for (int x = 0; x < c[0]; x++) {
                a.setPixel(x, y, static_cast<float>(x + 3 * y));
                b.setPixel(x, y, static_cast<float>(x + 3 * y));
            }
        EXPECT_TRUE(a == b);
    }
}

// 200000 x 200000 floats are 160 GB: more than this machine or any test
// machine holds; that may fail in the allocation or in the size check.
TEST(Image2DStorage, RefusedSizesAndTypesLeaveTheImageAsItWas) {
    const int64_t kHuge = int64_t(1) << 33, kAny = -2;
    // width, height, type, padding, code
    const int64_t cases[][5] = {
        {0, 5, 8, 0, PIVerror::BAD_IMAGE_SIZE},          {5, 0, 8, 0, PIVerror::BAD_IMAGE_SIZE},
        {5, -3, 33, 0, PIVerror::BAD_IMAGE_SIZE},        {5, 5, 8, -1, PIVerror::BAD_IMAGE_SIZE},
        {5, 5, 12, 0, PIVerror::IMAGE_TYPE_UNSUPPORTED}, {kHuge, 1, 8, 0, PIVerror::DATA_TOO_LARGE},
        {200000, 200000, IMAGE_FLOAT, 0, kAny}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c[0] << "x" << c[1] << " type " << c[2]);
        Image2D img = MakeImage(2, 1, IMAGE_UINT8, {7, 9});
        const uint8_t* block = img.bits();
        const int code = FailCode(img, img.alloc(c[0], c[1], static_cast<ImageType>(c[2]), c[3]));
        if (c[4] == kAny)
            EXPECT_TRUE(code == PIVerror::ALLOCATION_FAILED || code == PIVerror::DATA_TOO_LARGE);
        else
            EXPECT_EQ(code, c[4]);
        EXPECT_EQ(img.bits(), block);
        EXPECT_EQ(Pixels(img), (std::vector<float>{7, 9}));
        EXPECT_TRUE(img.fill(5.0f));  // the image stays usable
    }
}

TEST(Image2DStorage, CopiesAreDeepAndRefusedOnesReportTheirReason) {
    Image2D a = MakeImage(3, 1, IMAGE_UINT16, {1, 2, 3});
    Image2D b(a), c, nullImage;
    c = a;
    b.setPixel(0, 0, 100);
    c.setPixel(1, 0, 200);
    EXPECT_EQ(Pixels(a), (std::vector<float>{1, 2, 3}));
    EXPECT_EQ(Pixels(b), (std::vector<float>{100, 2, 3}));
    EXPECT_EQ(Pixels(c), (std::vector<float>{1, 200, 3}));
    EXPECT_TRUE(Image2D(nullImage).isNull());  // a null image copies into a null image, quietly

    Image2D& alias = a;
    a = alias;
    EXPECT_EQ(LastCode(a), PIVerror::OVERWRITE_OWN_DATA);
    a = Image2D();
    EXPECT_EQ(LastCode(a), PIVerror::IMAGE_IS_NULL);
    EXPECT_EQ(Pixels(a), (std::vector<float>{1, 2, 3}));
    EXPECT_EQ(FailCode(a, a.copy(a)), PIVerror::OVERWRITE_OWN_DATA);
    EXPECT_EQ(FailCode(a, a.copy(Image2D())), PIVerror::IMAGE_IS_NULL);
}

// Released through the base pointer, a derived image is freed whole. A
// rectangle is inside when any corner is: (-3, -3, 4, 4) reaches (1, 1).
TEST(Image2DStorage, ReleaseThroughTheBaseAndRectangles) {
    ImageBaseClass* base = new Image2D(4, 4, IMAGE_FLOAT);
    EXPECT_EQ(base->release(), 0u);
    EXPECT_TRUE(Image2D(6, 4, IMAGE_UINT8).isRectInside(-3, -3, 4, 4));
}

// Corners in either order; edges beyond the image are limited to it, a
// negative one moves to 0; below two pixels a crop is refused.
TEST(Image2DStorage, CropTakesCornersInEitherOrderAndClipsToTheImage) {
    struct Case {
        RECT2D rect;
        std::vector<float> pixels;
    } cases[] = {{{1, 3, 1, 3}, {11, 12, 21, 22}},
                 {{3, 1, 3, 1}, {11, 12, 21, 22}},
                 {{2, 10, 2, 10}, {22, 23, 32, 33}},
                 {{-5, 2, 0, 2}, {0, 1, 10, 11}}};
    for (const Case& c : cases) {
        Image2D img = Numbered(4, 4);
        ASSERT_TRUE(img.crop(c.rect));
        EXPECT_EQ(Shape(img), Shape(2, 2, IMAGE_UINT8));
        EXPECT_EQ(Pixels(img), c.pixels);
    }
    Image2D img = Numbered(4, 4);
    EXPECT_EQ(FailCode(img, img.crop(RECT2D{0, 1, 0, 4})), PIVerror::BAD_IMAGE_SIZE);
    EXPECT_TRUE(HasText(LastText(img), "crop() - bad sampling size (1x4)"));
    EXPECT_EQ(img.width(), 4u);
}

// The copied part of each row starts at source column max(x0, 0) and always
// lands at destination column 0, also for a negative x0.
TEST(Image2DStorage, CopyROIZeroFillsWhatLiesOutsideTheSource) {
    struct Case {
        int x0, y0, w, h;
        std::vector<float> pixels;
    } cases[] = {{-1, 0, 3, 2, {0, 1, 0, 10, 11, 0}}, {0, 2, 2, 3, {20, 21, 0, 0, 0, 0}}};
    const Image2D src = Numbered(4, 3);
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "x0=" << c.x0 << " y0=" << c.y0);
        Image2D roi;
        ASSERT_TRUE(roi.copyROI(src, c.x0, c.y0, c.w, c.h));
        EXPECT_EQ(roi.width(), static_cast<uint64_t>(c.w));
        EXPECT_EQ(Pixels(roi), c.pixels);
    }
    Image2D self = Numbered(4, 3);
    ASSERT_TRUE(self.copyROI(self, 1, 1, 2, 2));
    EXPECT_EQ(Pixels(self), (std::vector<float>{11, 12, 21, 22}));
}
