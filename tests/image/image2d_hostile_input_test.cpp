// Values and arguments far outside what a camera delivers: each must give a
// defined result or a reported error, never undefined behaviour.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <limits>
#include <vector>

#include "image2d.h"
#include "image_test_support.h"

using namespace image_test;

TEST(Image2DHostileInput, HugeOffsetsSaturateInsteadOfOverflowing) {
    // Offsets of 1e20 are truncated to the widest integer the kernels use;
    // with clipping the result is simply the top (or bottom) of the type.
    Image2D a = MakeImage(2, 1, IMAGE_UINT8, {5, 200});
    ASSERT_TRUE(a.bias(1e20, true));
    EXPECT_EQ(Pixels(a), (std::vector<float>{255, 255}));
    ASSERT_TRUE(a.subtract(1e20, true));
    EXPECT_EQ(Pixels(a), (std::vector<float>{0, 0}));

    Image2D b = MakeImage(2, 1, IMAGE_UINT16, {5, 7});
    ASSERT_TRUE(b += 1e20f);
    EXPECT_EQ(Pixels(b), (std::vector<float>{65535, 65535}));

    Image2D c = MakeImage(1, 1, IMAGE_UINT32, {5});
    ASSERT_TRUE(c.negative(-1e20));  // wraps, but defined

    // A float background with -inf in it, taken from a 16-bit frame.
    Image2D frame = MakeImage(2, 1, IMAGE_UINT16, {5, 9});
    Image2D background = MakeImage(2, 1, IMAGE_FLOAT, {0, 0});
    background.setPixel(0, 0, -std::numeric_limits<float>::infinity());
    background.setPixel(1, 0, std::numeric_limits<float>::quiet_NaN());
    ASSERT_TRUE(frame.subtract(background, true));
    // 5 - (-inf) clips at the top; NaN truncates to 0, so 9 stays 9.
    EXPECT_EQ(Pixels(frame), (std::vector<float>{65535, 9}));
}

TEST(Image2DHostileInput, ThirtyTwoBitDivisionStopsAtTheTopOfTheType) {
    // 0xFFFFFFFF / 1 would be 4294967295; the clip limit of 32-bit images is 2^31-1.
    Image2D a(1, 1, IMAGE_UINT32), one(1, 1, IMAGE_UINT32);
    a.scanLine<uint32_t>(0)[0] = 0xFFFFFFFFu;
    one.scanLine<uint32_t>(0)[0] = 1;
    ASSERT_TRUE(a /= one);
    EXPECT_EQ(a.scanLine<uint32_t>(0)[0], 2147483647u);
}

TEST(Image2DHostileInput, FillSampleRefusesNegativeSizesAndShortStrides) {
    Image2D img = MakeImage(4, 4, IMAGE_UINT8, std::vector<float>(16, 1.0f));
    std::vector<float> out(32, -7.0f);
    Messages messages;
    struct Case {
        int w, h, stride;
    } cases[] = {{-3, 2, 4}, {2, -1, 0}, {2, 2, -4}, {3, 2, 2}};
    for (const Case& c : cases) {
        EXPECT_EQ(FailCode(img, img.fillSample(out.data() + 8, c.w, c.h, 0, 0, c.stride)),
                  PIVerror::BAD_SAMPLE_SIZE);
    }
    EXPECT_EQ(out, std::vector<float>(32, -7.0f));  // nothing written anywhere
}

TEST(Image2DHostileInput, InterpolatedPixelSurvivesNanAndFarCoordinates) {
    Image2D img = MakeImage(2, 2, IMAGE_FLOAT, {10, 20, 30, 50});
    // Far beyond the right edge: clamped to the last column of the lower row.
    EXPECT_EQ(img.interpolatedPixel(3e10f, 0.5f, 0), 50.0f);
    EXPECT_EQ(img.interpolatedPixel(-3e10f, 0.5f, 0), 30.0f);
    Messages messages;
    EXPECT_EQ(img.interpolatedPixel(3e10f, 0.0f, -1), 0.0f);  // nearest pixel is outside
    EXPECT_EQ(LastCode(img), PIVerror::OUTSIDE_IMAGE);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_TRUE(std::isnan(img.interpolatedPixel(nan, 0.5f, 0)));
}

TEST(Image2DHostileInput, StatisticsLeaveOutABorder) {
    // A 2x2 float image with a one-pixel border: the border holds 100 and
    // must not count; the mean of 1, 2, 3, 4 is 2.5.
    Image2D img;
    ASSERT_TRUE(img.alloc(2, 2, IMAGE_FLOAT, 1));
    float* block = reinterpret_cast<float*>(img.baseAddr());
    for (int i = 0; i < 16; i++) block[i] = 100.0f;
    const float inner[] = {1, 2, 3, 4};
    for (int i = 0; i < 4; i++) img.setPixel(i % 2, i / 2, inner[i]);
    EXPECT_DOUBLE_EQ(img.mean(), 2.5);
    EXPECT_DOUBLE_EQ(img.maximum(), 4.0);
}

TEST(Image2DHostileInput, SavingOverAFileKeepsItsMode) {
    ScratchDir dir;
    const std::string path = dir.file("kept.pgm");
    WriteBytes(path, "old");
    ASSERT_EQ(::chmod(path.c_str(), 0600), 0);
    Image2D img = MakeImage(2, 2, IMAGE_UINT8, {1, 2, 3, 4});
    ASSERT_TRUE(img.savePGM(path.c_str()));
    struct stat info;
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
}
