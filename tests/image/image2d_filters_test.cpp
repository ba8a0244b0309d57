// The pre-processing filters of Image2D against small hand-computed images.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "image_test_support.h"
#include "piv_util.h"
#include "synthetic_images.h"

using image_test::LastCode;
using image_test::LastText;
using image_test::MakeImage;
using image_test::Messages;
using image_test::Pixels;

namespace {

const ImageType kAllTypes[] = {IMAGE_UINT8, IMAGE_UINT16, IMAGE_UINT32, IMAGE_FLOAT};

std::vector<float> Ramp(int n, float start = 0.0f) {
    std::vector<float> v(static_cast<size_t>(n));
    for (int i = 0; i < n; i++) v[static_cast<size_t>(i)] = start + static_cast<float>(i);
    return v;
}

const std::vector<float> kSpiky = {1,  2,  3,  4,  5,  6, 90, 8,  9,  10, 11, 12, 13,
                                   14, 15, 16, 17, 18, 0, 20, 21, 22, 23, 24, 25};

}  // namespace

TEST(Median, ThreeByThreeKeepsTheBorderOnEveryType) {
    const std::vector<float> expected = {1,  2,  3,  4,  5,  6,  8,  9,  9,  10, 11, 13, 13,
                                         13, 15, 16, 17, 17, 18, 20, 21, 22, 23, 24, 25};
    for (ImageType type : kAllTypes) {
        SCOPED_TRACE(type);
        Image2D img = MakeImage(5, 5, type, kSpiky);
        ASSERT_TRUE(img.medianFilter(2));
        EXPECT_EQ(Pixels(img), expected);
        EXPECT_TRUE(img.isChanged());
    }
}

TEST(Median, SizeFourIsFiveByFive) {
    std::vector<float> v = kSpiky;
    v[12] = 99;
    Image2D img = MakeImage(5, 5, IMAGE_UINT16, v);
    ASSERT_TRUE(img.medianFilter(4));
    // The 25 values without 7, 13 and 19 but with 0, 90 and 99: the 13th is 14.
    std::vector<float> expected = v;
    expected[12] = 14;
    EXPECT_EQ(Pixels(img), expected);
}

TEST(Median, WithMaskSkipsMaskedPixelsAndNeighbours) {
    Messages quiet;
    Image2D img = MakeImage(5, 5, IMAGE_FLOAT, kSpiky);
    Image2D mask(5, 5, IMAGE_UINT8);
    mask.fill(0);
    mask.setPixel(1, 1, 255);  // the spike is masked: it stays and is left out
    ASSERT_TRUE(img.medianFilterWithMask(mask, 3));
    EXPECT_EQ(img.pixel(1, 1), 90.0f);
    // (2, 1) over 2 3 4 8 9 12 13 14: the upper middle, 9.
    EXPECT_EQ(img.pixel(2, 1), 9.0f);
    Image2D small(4, 4, IMAGE_UINT8);
    EXPECT_FALSE(img.medianFilterWithMask(small, 3));
    EXPECT_EQ(LastCode(img), PIVerror::IMAGE_SIZE_MISMATCH);
}

TEST(Box, CornerImpulseIsDividedByThePixelsInside) {
    std::vector<float> v(25, 0.0f);
    v[0] = 36;
    Image2D img = MakeImage(5, 5, IMAGE_FLOAT, v);
    ASSERT_TRUE(img.smooth(3, 0));
    std::vector<float> expected(25, 0.0f);
    expected[0] = 9, expected[1] = 6, expected[5] = 6, expected[6] = 4;
    EXPECT_EQ(Pixels(img), expected);
}

TEST(Box, IntegerPassesTruncate) {
    std::vector<float> v(25, 0.0f);
    v[0] = 10;
    Image2D img = MakeImage(5, 5, IMAGE_UINT8, v);
    ASSERT_TRUE(img.smooth(3, 3));
    // Rows: 10/2 = 5, 10/3 -> 3; columns: 5/2 -> 2, 5/3 -> 1, 3/2 -> 1, 3/3 = 1.
    std::vector<float> expected(25, 0.0f);
    expected[0] = 2, expected[1] = 1, expected[5] = 1, expected[6] = 1;
    EXPECT_EQ(Pixels(img), expected);
}

TEST(Box, EvenSizeReachesOneFurtherRight) {
    Image2D img = MakeImage(5, 1, IMAGE_FLOAT, {0, 0, 8, 0, 0});
    ASSERT_TRUE(img.smooth(4, 1));
    const std::vector<float> got = Pixels(img);
    const std::vector<float> want = {8.0f / 3, 2, 2, 8.0f / 3, 0};
    for (size_t i = 0; i < 5; i++) EXPECT_FLOAT_EQ(got[i], want[i]);
}

TEST(Box, HighPassStopsIntegersAtZero) {
    Image2D img = MakeImage(3, 1, IMAGE_UINT8, {9, 0, 3});
    ASSERT_TRUE(img.highPass(3, 1));
    // Means 4.5 -> 4, 4, 1.5 -> 1.
    EXPECT_EQ(Pixels(img), (std::vector<float>{5, 0, 2}));
    Image2D f = MakeImage(3, 1, IMAGE_FLOAT, {9, 0, 3});
    ASSERT_TRUE(f.highPass(3, 1));
    EXPECT_EQ(Pixels(f), (std::vector<float>{4.5f, -4, 1.5f}));
}

TEST(Box, TwoByTwoAveragesToTheRightAndDown) {
    Image2D img = MakeImage(3, 2, IMAGE_UINT8, {2, 4, 7, 6, 8, 1});
    ASSERT_TRUE(img.smooth2x2());
    // Rows: 3 5 7 / 7 4 1; columns: 5 4 4 / 7 4 1.
    EXPECT_EQ(Pixels(img), (std::vector<float>{5, 4, 4, 7, 4, 1}));
}

TEST(Convolve, EndsUseTheTwoTapsThatExist) {
    Image2D img = MakeImage(4, 1, IMAGE_FLOAT, {3, 6, 9, 12});
    ASSERT_TRUE(img.convolveX(1, 2, 1));
    EXPECT_EQ(Pixels(img), (std::vector<float>{4, 6, 9, 11}));
    Image2D zero = MakeImage(3, 3, IMAGE_FLOAT, Ramp(9, 1));
    ASSERT_TRUE(zero.convolve(0, 0, 0, Image2D::KERNEL_XY));
    EXPECT_EQ(Pixels(zero), std::vector<float>(9, 0.0f));
}

TEST(Gauss, KernelChecksAndSmallWidths) {
    Messages quiet;
    Image2D img = MakeImage(5, 5, IMAGE_FLOAT, Ramp(25));
    const std::vector<float> before = Pixels(img);
    struct Row {
        float width;
        bool centered;
        float cutOff;
        int code;
        const char* text;
    } rows[] = {{0.0f, true, 0.05f, 50, "bad kernel width: 0"},
                {-1.0f, true, 0.05f, 50, "bad kernel width"},
                {0.3f, false, 0.05f, 50, "for non-centered filter, must be >0.5"},
                {1.0f, true, 0.0f, 5, "bad cut-off value: 0"},
                {1.0f, true, 1.5f, 5, "bad cut-off value: 1.5"}};
    for (const Row& r : rows) {
        SCOPED_TRACE(r.text);
        EXPECT_FALSE(img.smoothGauss(r.width, r.centered, r.cutOff));
        EXPECT_EQ(LastCode(img), r.code);
        EXPECT_NE(LastText(img).find(r.text), std::string::npos) << LastText(img);
        EXPECT_EQ(Pixels(img), before);
    }
    EXPECT_TRUE(img.smoothGauss(0.3f, true, 0.05f));
}

TEST(Gauss, FlatImageStaysFlatAndAnImpulseSpreadsSymmetrically) {
    Image2D flat(9, 7, IMAGE_FLOAT);
    flat.fill(40.0f);
    ASSERT_TRUE(flat.smoothGauss(1.5f, true, 0.05f));
    for (float v : Pixels(flat)) EXPECT_NEAR(v, 40.0f, 1e-4);
    std::vector<float> v(49, 0.0f);
    v[24] = 100;
    Image2D img = MakeImage(7, 7, IMAGE_FLOAT, v);
    ASSERT_TRUE(img.smoothGauss(1.0f, true, 0.05f));
    EXPECT_NEAR(img.pixel(2, 3), img.pixel(4, 3), 1e-5);
    EXPECT_NEAR(img.pixel(3, 2), img.pixel(3, 4), 1e-5);
    EXPECT_LT(img.pixel(3, 3), 100.0f);
    // Non-centred: the kernel is symmetric about -1/2, so an impulse spreads
    // half a pixel to the right: columns 5 and 6 weigh alike, as do 4 and 7.
    std::vector<float> u(121, 0.0f);
    u[5 * 11 + 5] = 100;
    Image2D off = MakeImage(11, 11, IMAGE_FLOAT, u);
    ASSERT_TRUE(off.smoothGauss(1.0f, false, 0.05f));
    EXPECT_NEAR(off.pixel(5, 5), off.pixel(6, 6), 1e-4);
    EXPECT_NEAR(off.pixel(4, 5), off.pixel(7, 5), 1e-4);
    EXPECT_GT(off.pixel(6, 5), off.pixel(4, 5));
}

TEST(Extremes, LocalMaximumAndMinimum) {
    std::vector<float> v(25, 0.0f);
    v[12] = 7;
    Image2D img = MakeImage(5, 5, IMAGE_UINT8, v);
    ASSERT_TRUE(img.localMaximum(3, 0, false));
    std::vector<float> block(25, 0.0f);
    for (int y = 1; y <= 3; y++)
        for (int x = 1; x <= 3; x++) block[static_cast<size_t>(y * 5 + x)] = 7;
    EXPECT_EQ(Pixels(img), block);
    std::vector<float> w(25, 9.0f);
    w[0] = 1;
    Image2D low = MakeImage(5, 5, IMAGE_FLOAT, w);
    ASSERT_TRUE(low.localMaximum(3, 3, true));
    std::vector<float> expected(25, 9.0f);
    expected[0] = expected[1] = expected[5] = expected[6] = 1;
    EXPECT_EQ(Pixels(low), expected);
}

TEST(Extremes, MinMaxAndSlidingMinimumOfAFlatImageAreZero) {
    Image2D img(8, 8, IMAGE_UINT16);
    img.fill(50);
    ASSERT_TRUE(img.minMaxFilter(3, 0));
    EXPECT_EQ(img.type(), IMAGE_FLOAT);
    EXPECT_EQ(Pixels(img), std::vector<float>(64, 0.0f));
    Image2D flat(8, 8, IMAGE_UINT8);
    flat.fill(50);
    ASSERT_TRUE(flat.subtractSlidingMinimum(5, 0));
    EXPECT_EQ(Pixels(flat), std::vector<float>(64, 0.0f));
}

TEST(KernelSizes, BelowOneFailsAboveSixtyThreeIsCapped) {
    Messages quiet;
    using Op = std::function<bool(Image2D&)>;
    struct Row {
        const char* name;
        Op op;
        int code;
    } rows[] = {
        {"smooth 0", [](Image2D& i) { return i.smooth(0, 0); }, 50},
        {"smooth -1x3", [](Image2D& i) { return i.smooth(-1, 3); }, 50},
        {"smooth 3x-2", [](Image2D& i) { return i.smooth(3, -2); }, 50},
        {"highPass 0", [](Image2D& i) { return i.highPass(0, 0); }, 50},
        {"localMaximum 0", [](Image2D& i) { return i.localMaximum(0, 0, false); }, 50},
        {"localMaximum -3", [](Image2D& i) { return i.localMaximum(3, -3, true); }, 50},
        {"smooth 100", [](Image2D& i) { return i.smooth(100, 0); }, 0},
        {"smooth 4x2", [](Image2D& i) { return i.smooth(4, 2); }, 0},
        {"highPass 64", [](Image2D& i) { return i.highPass(64, 0); }, 0},
        {"localMaximum 90", [](Image2D& i) { return i.localMaximum(90, 0, false); }, 0},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        Image2D img = MakeImage(5, 5, IMAGE_UINT8, kSpiky);
        const bool ok = r.op(img);
        EXPECT_EQ(ok, r.code == 0);
        if (r.code) {
            EXPECT_EQ(LastCode(img), r.code);
            EXPECT_NE(LastText(img).find("Invalid kernel size"), std::string::npos);
            EXPECT_EQ(Pixels(img), kSpiky);
        }
    }
    // Capped at 63 both ways: a 100 box over 5 pixels is the mean of all.
    Image2D img = MakeImage(5, 5, IMAGE_FLOAT, Ramp(25));
    ASSERT_TRUE(img.smooth(100, 0));
    for (float v : Pixels(img)) EXPECT_NEAR(v, 12.0f, 1e-4);
}

TEST(NullImages, EveryFilterReports37) {
    Messages quiet;
    using Op = std::function<bool(Image2D&)>;
    Image2D mask(4, 4, IMAGE_UINT8);
    const Op ops[] = {
        [](Image2D& i) { return i.medianFilter(3); },
        [](Image2D& i) { return i.smooth(3, 3); },
        [](Image2D& i) { return i.smooth2x2(); },
        [](Image2D& i) { return i.highPass(3, 3); },
        [](Image2D& i) { return i.smoothGauss(1, true, 0.05f); },
        [](Image2D& i) { return i.highPassGauss(1, 0.05f); },
        [](Image2D& i) { return i.convolve(1, 2, 1); },
        [](Image2D& i) { return i.dynamicClipping(0.1f, 0.9f); },
        [](Image2D& i) { return i.histEqual(0, false); },
        [](Image2D& i) { return i.localMaximum(3, 3, false); },
        [](Image2D& i) { return i.minMaxFilter(3, 3); },
        [](Image2D& i) { return i.subtractSlidingMinimum(3, 3); },
        [](Image2D& i) { return i.binarize(1, false); },
        [&](Image2D& i) {
            return i.randomizeMaskedPixels(mask, {2, 2}, {2, 2});
        },
        [](Image2D& i) { return i.erodeBinary(); },
        [](Image2D& i) { return i.dilateBinary(); },
        [](Image2D& i) { return i.despeckleBinary(); },
        [](Image2D& i) { return i.rotate90(); },
        [](Image2D& i) { return i.applyImageFilters(IMAGE_FILTER_CFG(), false); },
    };
    int k = 0;
    for (const Op& op : ops) {
        SCOPED_TRACE(k++);
        Image2D img;
        EXPECT_FALSE(op(img));
        EXPECT_EQ(LastCode(img), PIVerror::IMAGE_IS_NULL);
    }
    Image2D img;
    img.medianFilter(3);
    EXPECT_NE(LastText(img).find("mediaFilter()"), std::string::npos);
}

TEST(MaskSize, AnotherSizeReports34) {
    Messages quiet;
    Image2D img = MakeImage(5, 5, IMAGE_UINT8, kSpiky);
    Image2D other = MakeImage(5, 5, IMAGE_UINT8, kSpiky);
    Image2D mask(4, 5, IMAGE_UINT8);
    mask.fill(255);
    EXPECT_FALSE(img.randomizeMaskedPixels(mask, {2, 2}, {2, 2}));
    EXPECT_EQ(LastCode(img), PIVerror::IMAGE_SIZE_MISMATCH);
    EXPECT_FALSE(img.swapMaskedPixels(other, mask, false));
    EXPECT_EQ(LastCode(img), PIVerror::IMAGE_SIZE_MISMATCH);
    EXPECT_NE(LastText(img).find("applyMask()"), std::string::npos);
    EXPECT_EQ(Pixels(img), kSpiky);
    EXPECT_EQ(Pixels(other), kSpiky);
}

TEST(Binary, ErodeDilateDespeckle) {
    Messages quiet;
    std::vector<float> v(36, 0.0f);
    for (int y = 1; y <= 3; y++)
        for (int x = 1; x <= 3; x++) v[static_cast<size_t>(y * 6 + x)] = 255;
    Image2D eroded = MakeImage(6, 6, IMAGE_UINT8, v);
    ASSERT_TRUE(eroded.erodeBinary());
    std::vector<float> centre(36, 0.0f);
    centre[2 * 6 + 2] = 255;
    EXPECT_EQ(Pixels(eroded), centre);

    Image2D dilated = MakeImage(6, 6, IMAGE_UINT8, v);
    ASSERT_TRUE(dilated.dilateBinary());
    EXPECT_EQ(Pixels(dilated), v);  // kept as it has always behaved: no growth

    std::vector<float> s(36, 0.0f);
    s[1 * 6 + 1] = 255;                 // alone: cleared
    s[3 * 6 + 3] = s[3 * 6 + 4] = 255;  // a pair: kept
    s[0 * 6 + 5] = 255;                 // outer ring: untouched
    Image2D speckled = MakeImage(6, 6, IMAGE_UINT8, s);
    ASSERT_TRUE(speckled.despeckleBinary());
    std::vector<float> want = s;
    want[1 * 6 + 1] = 0;
    EXPECT_EQ(Pixels(speckled), want);

    Image2D wide = MakeImage(6, 6, IMAGE_UINT16, v);
    EXPECT_FALSE(wide.erodeBinary());
    EXPECT_EQ(LastCode(wide), PIVerror::IMAGE_TYPE_UNSUPPORTED);
}

TEST(Binary, BitMaskPacksTheLowestBitFirst) {
    std::vector<float> v(40, 0.0f);
    v[0] = v[9] = v[39] = 1;
    const Image2D img = MakeImage(40, 1, IMAGE_UINT8, v);
    Image2D bits;
    ASSERT_TRUE(img.createBitMask(&bits));
    EXPECT_EQ(bits.width(), 2u);
    EXPECT_EQ(bits.type(), IMAGE_UINT32);
    const uint8_t* b = reinterpret_cast<const uint8_t*>(bits.scanLine<uint32_t>(0));
    EXPECT_EQ(b[0], 0x01);
    EXPECT_EQ(b[1], 0x02);
    EXPECT_EQ(b[4], 0x80);
}

TEST(Clipping, EachTypeOnARamp) {
    // 0..63 on 8 x 8; an eighth at each end: the 8th value from the bottom is
    // 7, from the top 56, so the span is 49.
    const std::vector<float> ramp = Ramp(64);
    struct Row {
        ImageType type;
        std::function<float(float)> expected;
    } rows[] = {
        // 49 is doubled twice to reach 127.
        {IMAGE_UINT8, [](float v) { return std::min(std::max(v - 7, 0.0f), 49.0f) * 4; }},
        // Three times to reach 255.
        {IMAGE_UINT16, [](float v) { return std::min(std::max(v - 7, 0.0f), 49.0f) * 8; }},
        // A table: 0 up to 7, (v - 7) 255/49 truncated below 56, 49 255/49 above.
        {IMAGE_UINT32,
         [](float v) {
             if (v <= 7) return 0.0f;
             if (v < 56) return std::floor((v - 7) * (255.0f / 49.0f));
             return 255.0f;
         }},
        // 16384 bins over 0..63: 7 and 56 fall in bins 1820 and 14563, whose
        // lower edges are the clip points.
        {IMAGE_FLOAT,
         [](float v) {
             const float lo = static_cast<float>(1820 * 63.0 / 16384.0);
             const float hi = static_cast<float>(14563 * 63.0 / 16384.0);
             return std::min(std::max(v - lo, 0.0f), hi - lo);
         }},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.type);
        Image2D img = MakeImage(8, 8, r.type, ramp);
        ASSERT_TRUE(img.dynamicClipping(0.125f, 0.875f));
        const std::vector<float> got = Pixels(img);
        for (size_t i = 0; i < ramp.size(); i++) EXPECT_NEAR(got[i], r.expected(ramp[i]), 1e-4);
    }
}

TEST(Clipping, BadRangesAndConstantImages) {
    Messages quiet;
    Image2D img = MakeImage(10, 10, IMAGE_UINT8, Ramp(100));
    EXPECT_FALSE(img.dynamicClipping(0.0f, 1.0f));
    EXPECT_EQ(LastCode(img), PIVerror::BAD_RANGE);
    EXPECT_NE(LastText(img).find("invalid clip range"), std::string::npos);
    EXPECT_FALSE(img.dynamicClipping(0.6f, 0.4f));
    EXPECT_EQ(LastCode(img), PIVerror::BAD_RANGE);
    EXPECT_EQ(Pixels(img), Ramp(100));
    EXPECT_TRUE(img.dynamicClipping(0.0f, 0.95f));
    Image2D flat(4, 4, IMAGE_UINT8);
    flat.fill(3);
    EXPECT_FALSE(flat.dynamicClipping(0.1f, 0.9f));
    EXPECT_NE(LastText(flat).find("constant intensity image"), std::string::npos);
}

TEST(HistEqual, RampMapsToItsCumulativeCount) {
    Messages quiet;
    Image2D img = MakeImage(16, 16, IMAGE_UINT8, Ramp(256));
    ASSERT_TRUE(img.histEqual(0, false));
    EXPECT_EQ(img.type(), IMAGE_FLOAT);
    EXPECT_EQ(Pixels(img), Ramp(256, 1));
    Image2D f = MakeImage(2, 2, IMAGE_FLOAT, {1, 2, 3, 4});
    EXPECT_FALSE(f.histEqual(0, false));
    EXPECT_EQ(LastCode(f), PIVerror::IMAGE_TYPE_UNSUPPORTED);
}

TEST(Binarize, SixteenBitsBecomeEightBits) {
    Image2D img = MakeImage(4, 1, IMAGE_UINT16, {0, 99, 100, 4000});
    ASSERT_TRUE(img.binarize(100.7f, false));
    EXPECT_EQ(img.type(), IMAGE_UINT8);
    EXPECT_EQ(Pixels(img), (std::vector<float>{0, 0, 255, 255}));
}

TEST(Expand, ReplicatesPixels) {
    const Image2D src = MakeImage(2, 1, IMAGE_UINT8, {1, 2});
    Image2D img;
    ASSERT_TRUE(img.expand(src, 2));
    EXPECT_EQ(Pixels(img), (std::vector<float>{1, 1, 2, 2, 1, 1, 2, 2}));
}

TEST(Orientation, RotationsAndFlips) {
    Image2D img = MakeImage(3, 2, IMAGE_UINT8, {1, 2, 3, 4, 5, 6});
    ASSERT_TRUE(img.rotate90());
    EXPECT_EQ(img.width(), 2u);
    EXPECT_EQ(Pixels(img), (std::vector<float>{4, 1, 5, 2, 6, 3}));
    ASSERT_TRUE(img.rotate270());
    EXPECT_EQ(Pixels(img), (std::vector<float>{1, 2, 3, 4, 5, 6}));
    ASSERT_TRUE(img.rotate(0, 1, true));
    EXPECT_EQ(Pixels(img), (std::vector<float>{3, 2, 1, 6, 5, 4}));
    EXPECT_TRUE(img.isFlippedLR());
}

// ---------------------------------------------------------------------------
// randomizing masked pixels

TEST(Randomize, FullWindowShuffledTwoFreePixelsLeftAlone) {
    // 9 x 9 with distinct values y * 9 + x; 4 x 4 windows every 4 pixels start
    // at 0 and 4 (x < 9 - 4), so row and column 8 are never touched.
    Image2D img = MakeImage(9, 9, IMAGE_UINT8, Ramp(81));
    Image2D mask(9, 9, IMAGE_UINT8);
    mask.fill(0);
    for (int y = 0; y < 4; y++)
        for (int x = 0; x < 4; x++) mask.setPixel(x, y, 255);  // window (0, 0): all masked
    for (int y = 0; y < 4; y++)
        for (int x = 4; x < 8; x++) mask.setPixel(x, y, 255);
    mask.setPixel(4, 0, 0);  // window (4, 0): two free pixels
    mask.setPixel(5, 0, 0);
    mask.setPixel(8, 8, 255);  // outside every window
    Image2D first(img), second(img);
    ASSERT_TRUE(first.randomizeMaskedPixels(mask, {4, 4}, {4, 4}));
    ASSERT_TRUE(second.randomizeMaskedPixels(mask, {4, 4}, {4, 4}));
    EXPECT_TRUE(first == second);  // the register restarts with every call

    // The register from 44257 (0xACE1) gives 22128 (index 0 of 16), then
    // 43832 (index 8: the window's pixel (0, 2), value 18).
    EXPECT_EQ(first.pixel(0, 0), 0.0f);
    EXPECT_EQ(first.pixel(1, 0), 18.0f);
    bool changed = false;
    for (int y = 0; y < 4; y++)
        for (int x = 0; x < 4; x++) {
            const float v = first.pixel(x, y);
            const int vx = static_cast<int>(v) % 9, vy = static_cast<int>(v) / 9;
            EXPECT_TRUE(vx < 4 && vy < 4) << v;  // drawn from the window itself
            changed = changed || v != img.pixel(x, y);
        }
    EXPECT_TRUE(changed);
    for (int y = 0; y < 9; y++)
        for (int x = 0; x < 9; x++)
            if (x >= 4 || y >= 4) {
                EXPECT_EQ(first.pixel(x, y), img.pixel(x, y)) << x << "," << y;
            }
}

TEST(Randomize, MaskedPixelsTakeFreeValuesOfTheirWindow) {
    Image2D img = MakeImage(9, 9, IMAGE_FLOAT, Ramp(81));
    Image2D mask(9, 9, IMAGE_UINT8);
    mask.fill(0);
    mask.setPixel(1, 1, 255);
    mask.setPixel(2, 2, 255);
    ASSERT_TRUE(img.randomizeMaskedPixels(mask, {4, 4}, {4, 4}));
    for (const auto& p : {std::make_pair(1, 1), std::make_pair(2, 2)}) {
        const int v = static_cast<int>(img.pixel(p.first, p.second));
        EXPECT_LT(v % 9, 4);
        EXPECT_LT(v / 9, 4);
        EXPECT_NE(v, 10);
        EXPECT_NE(v, 20);
    }
}

// ---------------------------------------------------------------------------
// drivers

namespace {

Image2D Impulse(ImageType type) {
    std::vector<float> v(25, 0.0f);
    v[12] = 100;
    return MakeImage(5, 5, type, v);
}

}  // namespace

TEST(Drivers, ApplyImageFiltersLowPassWeights) {
    IMAGE_FILTER_CFG f;
    f.Lowpass = true;
    Image2D img = Impulse(IMAGE_FLOAT);
    ASSERT_TRUE(img.applyImageFilters(f, false));
    EXPECT_NEAR(img.pixel(2, 2), 100 * 0.85f * 0.85f, 1e-3);
    EXPECT_NEAR(img.pixel(1, 2), 100 * 0.075f * 0.85f, 1e-3);
}

TEST(Drivers, PreProcessLowPassWeights) {
    IMAGE_CFG cfg;
    cfg.filters.Lowpass = true;
    Image2D img = Impulse(IMAGE_FLOAT);
    ASSERT_TRUE(img.preProcessUsingMaskAndBackground(cfg, nullptr, nullptr, false, true, 0));
    EXPECT_NEAR(img.pixel(2, 2), 100 * 0.6f * 0.6f, 1e-3);
    EXPECT_NEAR(img.pixel(1, 2), 100 * 0.2f * 0.6f, 1e-3);
    Image2D again = Impulse(IMAGE_FLOAT);
    ASSERT_TRUE(again.preProcess(cfg, false, true, 0));
    EXPECT_TRUE(again == img);
}

TEST(Drivers, ClipLowRunsWithoutHighPass) {
    IMAGE_FILTER_CFG f;
    f.UseFloat = false;
    f.HighpassClipNegative = true;
    Image2D img = MakeImage(3, 1, IMAGE_FLOAT, {-5, 0, 5});
    ASSERT_TRUE(img.applyImageFilters(f, false));
    EXPECT_EQ(Pixels(img), (std::vector<float>{0, 0, 5}));
    f.HighpassClipNegative = false;
    Image2D kept = MakeImage(3, 1, IMAGE_FLOAT, {-5, 0, 5});
    ASSERT_TRUE(kept.applyImageFilters(f, false));
    EXPECT_EQ(Pixels(kept), (std::vector<float>{-5, 0, 5}));
}

TEST(Drivers, InvertComesAfterMedianInApplyImageFilters) {
    IMAGE_FILTER_CFG f;
    f.UseFloat = true;
    f.Median = true;
    f.Invert = true;
    Image2D img = MakeImage(5, 5, IMAGE_FLOAT, kSpiky);
    ASSERT_TRUE(img.applyImageFilters(f, false));
    Image2D ref = MakeImage(5, 5, IMAGE_FLOAT, kSpiky);
    ref.medianFilter(3);
    ref.negative(0);
    EXPECT_TRUE(img == ref);
}

TEST(Drivers, FailedClippingEndsTheChain) {
    Messages quiet;
    IMAGE_FILTER_CFG f;
    f.HistEqual = true;
    f.Lowpass = true;
    Image2D img(5, 5, IMAGE_FLOAT);
    img.fill(7);
    EXPECT_FALSE(img.applyImageFilters(f, false));
    IMAGE_CFG cfg;
    cfg.filters = f;
    EXPECT_FALSE(img.preProcessUsingMaskAndBackground(cfg, nullptr, nullptr, false, true, 0));
}

TEST(Threads, OneAndAllGiveTheSameBytes) {
    synth::SynthParams params;
    params.width = 131;
    params.height = 97;
    params.bitDepth = 16;
    const synth::SyntheticPair pair =
        synth::RenderPair(params, synth::UniformFlow(1.5, -0.5));
    Image2D src(params.width, params.height, IMAGE_UINT16);
    for (int y = 0; y < params.height; y++)
        for (int x = 0; x < params.width; x++) src.setPixel(x, y, pair.pixelA(x, y));
    auto run = [&](int threads) {
        PIV::SetMaxThreads(threads);
        Image2D img(src);
        EXPECT_TRUE(img.medianFilter(5));
        EXPECT_TRUE(img.smooth(7, 5));
        EXPECT_TRUE(img.localMaximum(5, 3, false));
        EXPECT_TRUE(img.dynamicClipping(0.02f, 0.98f));
        EXPECT_TRUE(img.toFloat());
        EXPECT_TRUE(img.smoothGauss(1.3f, false, 0.05f));
        EXPECT_TRUE(img.convolve(0.2f, 0.6f, 0.2f));
        EXPECT_TRUE(img.highPass(9, 9));
        img.setInterpolationMethod(PIV::INTERPOLATE_BSPLINE, 5);
        EXPECT_TRUE(img.translate(0.3, -0.7));
        return img;
    };
    const Image2D one = run(1);
    const Image2D all = run(0);
    EXPECT_TRUE(one == all);
}

TEST(Median, MatchesASortedWindowOnNoise) {
    for (ImageType type : kAllTypes) {
        SCOPED_TRACE(type);
        std::vector<float> v(19 * 13);
        uint32_t s = 99u;
        for (float& x : v) {
            s = s * 1664525u + 1013904223u;
            x = static_cast<float>((s >> 20) % 37);  // many ties
        }
        const Image2D src = MakeImage(19, 13, type, v);
        for (int r : {1, 2}) {
            Image2D img(src);
            ASSERT_TRUE(img.medianFilter(r == 2 ? 5 : 3));
            for (int y = r; y < 13 - r; y++)
                for (int x = r; x < 19 - r; x++) {
                    std::vector<float> w;
                    for (int j = -r; j <= r; j++)
                        for (int i = -r; i <= r; i++) w.push_back(src.pixel(x + i, y + j));
                    std::sort(w.begin(), w.end());
                    EXPECT_EQ(img.pixel(x, y), w[w.size() / 2]) << x << "," << y;
                }
        }
    }
}

TEST(HistEqual, KeepTypeConvertsBackWithClipping) {
    Image2D img = MakeImage(16, 16, IMAGE_UINT8, Ramp(256));
    ASSERT_TRUE(img.histEqual(0, true));
    EXPECT_EQ(img.type(), IMAGE_UINT8);
    EXPECT_EQ(img.pixel(0, 0), 1.0f);
    EXPECT_EQ(img.pixel(15, 15), 255.0f);  // 256 clipped
}
