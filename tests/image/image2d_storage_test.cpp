// Storage of Image2D: row strides, re-allocation, refused sizes, copies,
// crops and reference counting.
#include <gtest/gtest.h>

#include <cstring>

#include "image2d.h"
#include "image_test_support.h"

using namespace image_test;

// Rows are padded to 4 bytes: a 5-pixel row needs 5, 10 or 20 bytes and is
// stored in 8, 12 or 20.
TEST(Image2DStorage, RowStrideAndPixelsPerLineFollowTheFourByteRule) {
    struct Case {
        int width;
        ImageType type;
        uint64_t stride, pixelsPerLine;
        // clang-format off
    } cases[] = {
        {5, IMAGE_UINT8, 8, 8},   {5, IMAGE_UINT16, 12, 6}, {5, IMAGE_UINT32, 20, 5},
        {5, IMAGE_FLOAT, 20, 5},  {1, IMAGE_UINT8, 4, 4},   {1, IMAGE_UINT16, 4, 2},
        {4, IMAGE_UINT8, 4, 4},   {6, IMAGE_UINT16, 12, 6},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "width " << c.width << " type " << c.type);
        Image2D img;
        ASSERT_TRUE(img.alloc(c.width, 3, c.type));
        EXPECT_EQ(img.bytesPerLine(), c.stride);
        EXPECT_EQ(img.pixelsPerLine(), c.pixelsPerLine);
        EXPECT_EQ(img.numBytes(), 3 * c.stride);
    }
}

// The same geometry keeps block and pixels; 32-bit and float blocks of one
// size are the same bytes: 0x3F800000 read as an IEEE single is 1.0.
TEST(Image2DStorage, BlockOfTheSameSizeIsKeptWithItsBytes) {
    Image2D img = MakeImage(5, 2, IMAGE_UINT16, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
    const uint8_t* block = img.bits();
    ASSERT_TRUE(img.resize(5, 2, IMAGE_UINT16));
    EXPECT_EQ(img.bits(), block);
    EXPECT_EQ(Pixels(img), (std::vector<float>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));

    Image2D word(3, 2, IMAGE_UINT32);
    word.scanLine<uint32_t>(0)[0] = 0x3F800000u;
    block = word.bits();
    ASSERT_TRUE(word.alloc(3, 2, IMAGE_FLOAT));
    EXPECT_EQ(word.bits(), block);
    EXPECT_EQ(word.pixel(0, 0), 1.0f);
}

// operator== compares whole rows from the first pixel on, so it reads the
// border and the row padding. Blocks dirtied by an earlier use must not make
// equal pixels compare unequal.
TEST(Image2DStorage, EqualPixelsCompareEqualWhateverTheBorderHeldBefore) {
    struct Case {
        int w, h;
        ImageType type;
        int padding;
        // clang-format off
    } cases[] = {
        {64, 64, IMAGE_UINT8, 4},   // border only: 72-byte rows need no padding
        {5, 3, IMAGE_UINT8, 1},     // border and row padding
        {5, 3, IMAGE_UINT16, 0},    // row padding only
        {7, 2, IMAGE_FLOAT, 2},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << c.w << "x" << c.h << " type " << c.type << " pad " << c.padding);
        Image2D a, b;
        // b gets its block back through an 8-bit geometry of the same byte
        // size that was filled with 0xAB.
        ASSERT_TRUE(b.alloc(c.w, c.h, c.type, c.padding));
        const int64_t stride = static_cast<int64_t>(b.bytesPerLine()), rows = c.h + 2 * c.padding;
        ASSERT_TRUE(b.alloc(stride, rows, IMAGE_UINT8, 0));
        std::memset(b.bits(), 0xAB, static_cast<size_t>(stride * rows));
        ASSERT_TRUE(a.alloc(c.w, c.h, c.type, c.padding));
        ASSERT_TRUE(b.alloc(c.w, c.h, c.type, c.padding));
        for (int y = 0; y < c.h; y++)
            for (int x = 0; x < c.w; x++) {
                a.setPixel(x, y, static_cast<float>(x + 3 * y));
                b.setPixel(x, y, static_cast<float>(x + 3 * y));
            }
        EXPECT_TRUE(a == b);
    }
}

TEST(Image2DStorage, RefusedSizesAndTypesLeaveTheImageAsItWas) {
    struct Case {
        int64_t w, h;
        int type;
        int64_t padding;
        int code;
        // clang-format off
    } cases[] = {
        {0, 5, 8, 0, PIVerror::BAD_IMAGE_SIZE},
        {5, 0, 8, 0, PIVerror::BAD_IMAGE_SIZE},
        {-1, 5, 16, 0, PIVerror::BAD_IMAGE_SIZE},
        {5, -3, 33, 0, PIVerror::BAD_IMAGE_SIZE},
        {5, 5, 8, -1, PIVerror::BAD_IMAGE_SIZE},
        {5, 5, 12, 0, PIVerror::IMAGE_TYPE_UNSUPPORTED},
        {5, 5, 0, 0, PIVerror::IMAGE_TYPE_UNSUPPORTED},
        {int64_t(1) << 33, 1, 8, 0, PIVerror::DATA_TOO_LARGE},
    };
    // clang-format on
    Messages quiet;
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.w << "x" << c.h << " type " << c.type);
        Image2D img = MakeImage(2, 1, IMAGE_UINT8, {7, 9});
        const uint8_t* block = img.bits();
        EXPECT_FALSE(img.alloc(c.w, c.h, static_cast<ImageType>(c.type), c.padding));
        EXPECT_EQ(LastCode(img), c.code);
        EXPECT_EQ(img.bits(), block);
        EXPECT_EQ(Pixels(img), (std::vector<float>{7, 9}));
    }
}

// 200000 x 200000 floats are 160 GB: more than this machine or any test
// machine holds.
TEST(Image2DStorage, AllocationBeyondTheMachineFailsCleanly) {
    Messages quiet;
    Image2D img = MakeImage(2, 2, IMAGE_FLOAT, {1, 2, 3, 4});
    EXPECT_FALSE(img.alloc(200000, 200000, IMAGE_FLOAT));
    const int code = LastCode(img);
    EXPECT_TRUE(code == PIVerror::ALLOCATION_FAILED || code == PIVerror::DATA_TOO_LARGE) << code;
    EXPECT_EQ(Pixels(img), (std::vector<float>{1, 2, 3, 4}));
    EXPECT_TRUE(img.fill(5.0f));  // the image stays usable
}

TEST(Image2DStorage, CopiesAreDeep) {
    Image2D a = MakeImage(3, 1, IMAGE_UINT16, {1, 2, 3});
    a.setFileName("frame_a.pgm");
    Image2D b(a);
    Image2D c;
    c = a;
    b.setPixel(0, 0, 100);
    c.setPixel(1, 0, 200);
    EXPECT_EQ(Pixels(a), (std::vector<float>{1, 2, 3}));
    EXPECT_EQ(Pixels(b), (std::vector<float>{100, 2, 3}));
    EXPECT_EQ(Pixels(c), (std::vector<float>{1, 200, 3}));
    EXPECT_STREQ(c.fileName(), "frame_a.pgm");

    Image2D nullImage;
    Image2D fromNull(nullImage);  // a null image copies into a null image, quietly
    EXPECT_TRUE(fromNull.isNull());
}

TEST(Image2DStorage, RefusedCopiesReportTheirReason) {
    Messages messages;
    Image2D a = MakeImage(2, 1, IMAGE_UINT8, {1, 2});
    Image2D& alias = a;
    a = alias;
    EXPECT_EQ(LastCode(a), PIVerror::OVERWRITE_OWN_DATA);
    EXPECT_TRUE(Holds(LastText(a), "operator(=)  cannot make copy of self"));

    a = Image2D();
    EXPECT_EQ(LastCode(a), PIVerror::IMAGE_IS_NULL);
    EXPECT_TRUE(Holds(LastText(a), "operator(=)  null source image"));
    EXPECT_EQ(Pixels(a), (std::vector<float>{1, 2}));

    EXPECT_EQ(FailCode(a, a.copy(a)), PIVerror::OVERWRITE_OWN_DATA);
    EXPECT_EQ(FailCode(a, a.copy(Image2D())), PIVerror::IMAGE_IS_NULL);
}

// Released through the base pointer, a derived image must still be freed
// whole; the sanitizer reports a mismatch otherwise.
TEST(Image2DStorage, ReferenceCountDeletesAtZero) {
    Image2D* img = new Image2D(4, 4, IMAGE_UINT8);
    EXPECT_EQ(img->addRef(), 2u);
    EXPECT_EQ(img->release(), 1u);
    EXPECT_EQ(img->release(), 0u);
    ImageBaseClass* base = new Image2D(4, 4, IMAGE_FLOAT);
    EXPECT_EQ(base->release(), 0u);
}

TEST(Image2DStorage, DestroyMakesTheImageNull) {
    Messages quiet;
    Image2D img(4, 3, IMAGE_UINT16);
    img.destroy();
    EXPECT_TRUE(img.isNull());
    EXPECT_EQ(img.pixel(0, 0), 0.0f);
    EXPECT_EQ(LastCode(img), PIVerror::IMAGE_IS_NULL);
    // A rectangle counts as inside when any corner is.
    Image2D other(6, 4, IMAGE_UINT8);
    EXPECT_TRUE(other.isRectInside(-3, -3, 4, 4));  // corner (1, 1) lies inside
    EXPECT_FALSE(other.isRectInside(-10, -10, 5, 5));
}

// 4x4 image with pixel (x, y) = 10 y + x, so every value names its place.
static Image2D Numbered(int w, int h) {
    std::vector<float> v;
    for (int y = 0; y < h; y++)
        for (int x = 0; x < w; x++) v.push_back(static_cast<float>(10 * y + x));
    return MakeImage(w, h, IMAGE_UINT8, v);
}

TEST(Image2DStorage, CropTakesCornersInEitherOrderAndClipsToTheImage) {
    struct Case {
        RECT2D rect;
        int w, h;
        std::vector<float> pixels;
        // clang-format off
    } cases[] = {
        {{1, 3, 1, 3}, 2, 2, {11, 12, 21, 22}},
        {{3, 1, 3, 1}, 2, 2, {11, 12, 21, 22}},
        {{2, 10, 2, 10}, 2, 2, {22, 23, 32, 33}},   // right and bottom edges limited
        {{-5, 2, 0, 2}, 2, 2, {0, 1, 10, 11}},      // a negative edge moves to 0
    };
    // clang-format on
    for (const Case& c : cases) {
        Image2D img = Numbered(4, 4);
        ASSERT_TRUE(img.crop(c.rect));
        EXPECT_EQ(img.width(), static_cast<uint64_t>(c.w));
        EXPECT_EQ(img.height(), static_cast<uint64_t>(c.h));
        EXPECT_EQ(Pixels(img), c.pixels);
    }
    Image2D img = Numbered(4, 4);
    RECT3D r3{1, 3, 1, 3, 0, 0};
    ASSERT_TRUE(img.crop3D(r3));
    EXPECT_EQ(Pixels(img), (std::vector<float>{11, 12, 21, 22}));
}

TEST(Image2DStorage, CropBelowTwoPixelsIsRefused) {
    Messages messages;
    Image2D img = Numbered(4, 4);
    EXPECT_EQ(FailCode(img, img.crop(RECT2D{0, 1, 0, 4})), PIVerror::BAD_IMAGE_SIZE);
    EXPECT_TRUE(Holds(LastText(img), "crop() - bad sampling size (1x4)"));
    EXPECT_EQ(img.width(), 4u);
}

// The copied part of each row starts at source column max(x0, 0) and always
// lands at destination column 0, also for a negative x0.
TEST(Image2DStorage, CopyROIZeroFillsWhatLiesOutsideTheSource) {
    struct Case {
        int x0, y0, w, h;
        std::vector<float> pixels;
        // clang-format off
    } cases[] = {
        {1, 1, 2, 2, {11, 12, 21, 22}},
        {-1, 0, 3, 2, {0, 1, 0, 10, 11, 0}},
        {3, 0, 3, 1, {3, 0, 0}},
        {0, 2, 2, 3, {20, 21, 0, 0, 0, 0}},
        {1, -1, 1, 2, {0, 1}},
    };
    // clang-format on
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
