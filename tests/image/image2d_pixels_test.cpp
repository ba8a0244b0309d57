// Pixel access of Image2D: the store rules, bounds, fill, sampling,
// the lower-row interpolation, generated images, dump and comparison.

#include <cmath>

#include "image_test_support.h"

using namespace image_test;

// setPixel truncates toward zero and keeps the low bits; putRow rounds half
// up and clamps 8 and 16 bits, while 32 bits wrap (int(-1.7) = -1).
TEST(Image2DPixels, StoreRulesOfSetPixelAndPutRow) {
    const float U8 = IMAGE_UINT8, U16 = IMAGE_UINT16, U32 = IMAGE_UINT32, F = IMAGE_FLOAT;
    // type, value, via setPixel, via putRow
    const float cases[][4] = {
        {U8, 256.0f, 0, 255},        {U8, 255.6f, 255, 255},
        {U8, 254.5f, 254, 255},      {U8, 254.4f, 254, 254},
        {U8, -1.0f, 255, 0},         {U16, 70000.0f, 4464, 65535},
        {U16, 1.5f, 1, 2},           {U32, 2.5f, 2, 3},
        {F, -3.75f, -3.75f, -3.75f}, {U32, -1.7f, 4294967295.0f, 4294967295.0f}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "type " << c[0] << " value " << c[1]);
        Image2D img(1, 1, static_cast<ImageType>(c[0]));
        ASSERT_TRUE(img.setPixel(0, 0, c[1]));
        EXPECT_EQ(img.pixel(0, 0), c[2]);
        ASSERT_TRUE(img.putRow(&c[1], 0));
        EXPECT_EQ(img.pixel(0, 0), c[3]);
    }
    // 4294967295 is no float: read the word itself to see the wrap exactly.
    Image2D word(1, 1, IMAGE_UINT32);
    ASSERT_TRUE(word.setPixel(0, 0, -1.7f));
    EXPECT_EQ(word.scanLine<uint32_t>(0)[0], 0xFFFFFFFFu);
}

// Writes near the borders are probed freely, so setPixel reports only from
// debug level 3 on.
TEST(Image2DPixels, RowsAndColumnsTravelAsFloatWithinTheImage) {
    Image2D img = MakeImage(3, 2, IMAGE_UINT16, {1, 2, 3, 4, 5, 6}), empty;
    float row[3], column[2];
    const float newColumn[2] = {70, 80};
    ASSERT_TRUE(img.getRow(row, 1) && img.getColumn(column, 2));
    EXPECT_EQ(std::vector<float>(row, row + 3), (std::vector<float>{4, 5, 6}));
    EXPECT_EQ(std::vector<float>(column, column + 2), (std::vector<float>{3, 6}));
    ASSERT_TRUE(img.putColumn(newColumn, 0));
    EXPECT_EQ(Pixels(img), (std::vector<float>{70, 2, 3, 80, 5, 6}));

    EXPECT_EQ(img.pixel(3, 0), 0.0f);
    EXPECT_EQ(LastCode(img), PIVerror::OUTSIDE_IMAGE);
    EXPECT_EQ(empty.pixel(0, 0), 0.0f);
    EXPECT_EQ(LastCode(empty), PIVerror::IMAGE_IS_NULL);
    EXPECT_EQ(FailCode(img, img.getRow(row, 2)), PIVerror::OUTSIDE_IMAGE);
    EXPECT_EQ(FailCode(img, img.getColumn(column, -1)), PIVerror::OUTSIDE_IMAGE);
    EXPECT_EQ(FailCode(img, img.getRow(nullptr, 0)), PIVerror::INVALID_POINTER);
    Image2D fresh(2, 2, IMAGE_UINT8);
    EXPECT_EQ(FailCode(fresh, fresh.setPixel(2, 0, 1.0f)), PIVerror::NO_ERROR);
    DebugLevelScope level(3);
    EXPECT_EQ(FailCode(fresh, fresh.setPixel(2, 0, 1.0f)), PIVerror::OUTSIDE_IMAGE);
}

// fill stores the truncated value but keeps the asked-for one as the
// statistics until a pixel changes.
TEST(Image2DPixels, FillTruncatesAndSetsTheStatistics) {
    Image2D img(5, 2, IMAGE_UINT8);
    ASSERT_TRUE(img.fill(3.7f));
    EXPECT_EQ(img.pixel(4, 1), 3.0f);
    EXPECT_DOUBLE_EQ(img.mean(), 3.7f);
    for (int i = 0; i < 8; i++) EXPECT_EQ(img.bits()[i], 3) << "byte " << i << ", padding included";
    img.setPixel(0, 0, 3.0f);
    EXPECT_DOUBLE_EQ(img.mean(), 3.0);

    img.fill(300.0f);  // 300 keeps its low byte, 44
    EXPECT_EQ(img.pixel(0, 0), 44.0f);
    img.erase();
    EXPECT_EQ(img.pixel(2, 1), 0.0f);
}

// Pixel (x, y) = 10 y + x; a 2x2 window at (1, 1) holds 11, 12, 21, 22.
// Windows outside, negative sizes and short strides are refused untouched.
TEST(Image2DPixels, FillSampleWritesRowsStrideApartAndClearsTheRest) {
    Image2D img = MakeImage(4, 3, IMAGE_UINT16, {0, 1, 2, 3, 10, 11, 12, 13, 20, 21, 22, 23});
    std::vector<float> out(8, -1.0f);
    ASSERT_TRUE(img.fillSample(out.data(), 2, 2, 1, 1, 4));
    EXPECT_EQ(out, (std::vector<float>{11, 12, 0, 0, 21, 22, 0, 0}));
    std::fill(out.begin(), out.end(), -1.0f);
    ASSERT_TRUE(img.fillSample(out.data(), 2, 2, 1, 1, 0));
    EXPECT_EQ(out, (std::vector<float>{11, 12, 21, 22, -1, -1, -1, -1}));

    // x0, y0, w, h, stride, code
    const int cases[][6] = {
        {-1, 0, 2, 2, 0, PIVerror::OUTSIDE_IMAGE},   {3, 0, 2, 2, 0, PIVerror::OUTSIDE_IMAGE},
        {0, 2, 2, 2, 0, PIVerror::OUTSIDE_IMAGE},    {0, 0, -3, 2, 4, PIVerror::BAD_SAMPLE_SIZE},
        {0, 0, 2, -1, 0, PIVerror::BAD_SAMPLE_SIZE}, {0, 0, 2, 2, -4, PIVerror::BAD_SAMPLE_SIZE},
        {0, 0, 3, 2, 2, PIVerror::BAD_SAMPLE_SIZE}};
    std::fill(out.begin(), out.end(), -7.0f);
    // The refusal goes to the caller; the image itself stays clean.
    for (const auto& c : cases) {
        PIVerror::ErrorType why = PIVerror::NO_ERROR;
        EXPECT_FALSE(img.fillSample(out.data(), c[2], c[3], c[0], c[1], c[4], &why));
        EXPECT_EQ(why, c[5]) << c[0] << " " << c[1] << " " << c[2] << " " << c[3] << " " << c[4];
    }
    EXPECT_EQ(out, std::vector<float>(8, -7.0f));
    PIVerror::ErrorType why = PIVerror::NO_ERROR;
    EXPECT_FALSE(img.fillSample(nullptr, 2, 2, 0, 0, 0, &why));
    EXPECT_EQ(why, PIVerror::INVALID_POINTER);
    EXPECT_EQ(LastCode(img), PIVerror::NO_ERROR);
}

// Image [[10, 20], [30, 50]]. The value comes from the lower row y0 + 1
// alone, interpolated in x: at (0.5, 0.5) that is (30 + 50) / 2 = 40, where a
// bilinear interpolation would give 27.5. Far and NaN coordinates stay defined.
TEST(Image2DPixels, InterpolatedPixelUsesOnlyTheLowerRow) {
    const Image2D img = MakeImage(2, 2, IMAGE_FLOAT, {10, 20, 30, 50});
    // x, y, method, value: (0.5, 0.5) in the lower row; 30 + 20 * 0.25; the last
    // pixel has no neighbour and gives itself; points outside are clamped into
    // the image; nearest takes pixel(int(0.9), int(1.1)).
    const float cases[][4] = {{0.5f, 0.5f, 0, 40.0f},   {0.25f, 0.9f, 1, 35.0f},
                              {1.0f, 1.0f, 0, 50.0f},   {3e10f, 0.5f, 0, 50.0f},
                              {-3e10f, 0.5f, 0, 30.0f}, {0.4f, 0.6f, -1, 30.0f}};
    for (const auto& c : cases)
        EXPECT_FLOAT_EQ(img.interpolatedPixel(c[0], c[1], static_cast<int>(c[2])), c[3])
            << "(" << c[0] << "," << c[1] << ") method " << c[2];
    EXPECT_EQ(img.interpolatedPixel(3e10f, 0.0f, -1), 0.0f);  // nearest pixel is outside
    EXPECT_EQ(LastCode(img), PIVerror::OUTSIDE_IMAGE);
    EXPECT_TRUE(std::isnan(img.interpolatedPixel(std::nanf(""), 0.5f, 0)));
}

TEST(Image2DPixels, ReplicateAndVectorMultiply) {
    const float line[3] = {1, 2, 3};
    const float b[2] = {10, 100};
    Image2D rows, outer;
    ASSERT_TRUE(rows.replicate(line, 3, 2, true) && outer.vectorMultiply(line, 3, b, 2));
    EXPECT_EQ(Pixels(rows), (std::vector<float>{1, 2, 3, 1, 2, 3}));
    EXPECT_EQ(Pixels(outer), (std::vector<float>{10, 20, 30, 100, 200, 300}));
}

// Comparison is bytewise, padding included.
TEST(Image2DPixels, EqualityComparesTypeSizeAndBytes) {
    Image2D a = Filled(3, 2, IMAGE_UINT8, 7), b(a);
    EXPECT_TRUE(a == b);
    b.setPixel(1, 1, 9);
    EXPECT_TRUE(a != b);
    EXPECT_FALSE(a == Filled(4, 2, IMAGE_UINT8, 7));
    EXPECT_FALSE(a == Image2D(3, 2, IMAGE_UINT16));
    EXPECT_FALSE(Image2D() == Image2D());
}
