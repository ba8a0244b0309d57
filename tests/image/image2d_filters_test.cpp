// The pre-processing filters of Image2D against small hand-computed images.

#include <algorithm>
#include <cmath>
#include <cstring>

#include "hwy/targets.h"
#include "image2d_median_simd.h"
#include "image_test_support.h"
#include "piv_util.h"
#include "synthetic_images.h"

using namespace image_test;

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

// Sizes 3 and 4 (a 5x5 window from 4 on) against a sorted window, on noise
// with many ties; the border the window does not fit keeps its pixels.
TEST(Median, MatchesASortedWindowOnNoiseAndKeepsTheBorder) {
    std::vector<float> v(19 * 13);
    uint32_t s = 99u;
    for (float& x : v) {
        s = s * 1664525u + 1013904223u;
        x = static_cast<float>((s >> 20) % 37);
    }
    for (ImageType type : kAllTypes)
        for (int size : {3, 4}) {
            SCOPED_TRACE(testing::Message() << "type " << type << " size " << size);
            const Image2D src = MakeImage(19, 13, type, v);
            Image2D img(src);
            ASSERT_TRUE(img.medianFilter(size));
            const int r = size / 2;
            for (int y = 0; y < 13; y++)
                for (int x = 0; x < 19; x++) {
                    const bool inside = x >= r && y >= r && x < 19 - r && y < 13 - r;
                    std::vector<float> w;
                    for (int j = -r; inside && j <= r; j++)
                        for (int i = -r; i <= r; i++) w.push_back(src.pixel(x + i, y + j));
                    std::sort(w.begin(), w.end());
                    EXPECT_EQ(img.pixel(x, y), inside ? w[w.size() / 2] : src.pixel(x, y))
                        << x << "," << y;
                }
        }
}

TEST(Median, WithMaskSkipsMaskedPixelsAndNeighbours) {
    Image2D img = MakeImage(5, 5, IMAGE_FLOAT, kSpiky);
    // The spike is masked: it stays and is left out, so (2, 1) takes the upper
    // middle of 2 3 4 8 9 12 13 14, 9.
    ASSERT_TRUE(img.medianFilterWithMask(Spike(5, 5, IMAGE_UINT8, 6, 255), 3));
    EXPECT_EQ(std::vector<float>({img.pixel(1, 1), img.pixel(2, 1)}), std::vector<float>({90, 9}));
}

// The vector rows against the per-pixel selection, bit for bit: widths
// below, across and above a vector, values from seven levels so that windows
// are full of ties, and a mask on one pixel in eight of the left third and
// one in 128 of the rest (clean runs between lone masked pixels). Float images end in three rows of
// -0, +0 and NaN, where only the per-pixel order counts.
TEST(Median, VectorRowsEqualThePerPixelSelection) {
    const float kLevels[7] = {0, 1, 2, 3, 250, 40000, 65535};
    const float kOdd[3] = {-0.0f, 0.0f, NAN};
    const int h = 9;
    for (ImageType type : kAllTypes)
        for (int width : {1, 7, 33, 1023}) {
            std::vector<float> v(static_cast<size_t>(width) * h), m(v.size());
            uint32_t s = 7u;
            for (size_t i = 0; i < v.size(); i++) {
                s = s * 1664525u + 1013904223u;
                const bool odd = type == IMAGE_FLOAT && i >= static_cast<size_t>(width) * (h - 3);
                v[i] =
                    odd ? kOdd[(s >> 8) % 3]
                        : std::min(kLevels[(s >> 20) % 7], type == IMAGE_UINT8 ? 255.0f : 65535.0f);
                m[i] =
                    (s >> 12) % (static_cast<int>(i) % width < width / 3 ? 8 : 128) == 0 ? 255 : 0;
            }
            const Image2D src = MakeImage(width, h, type, v),
                          mask = MakeImage(width, h, IMAGE_UINT8, m);
            for (int size : {3, 5})
                for (bool masked : {false, true}) {
                    SCOPED_TRACE(testing::Message() << "type " << type << " width " << width
                                                    << " size " << size << " masked " << masked);
                    const auto filtered = [&](Image2D img) {
                        EXPECT_TRUE(masked ? img.medianFilterWithMask(mask, size)
                                           : img.medianFilter(size));
                        return img;
                    };
                    PIV::MedianRows::SetEnabled(false);
                    const Image2D reference = filtered(src);
                    PIV::MedianRows::SetEnabled(true);
                    for (int64_t target : hwy::SupportedAndGeneratedTargets()) {
                        hwy::SetSupportedTargetsForTest(target);
                        EXPECT_EQ(
                            0, std::memcmp(reference.bits(), filtered(src).bits(), src.numBytes()))
                            << hwy::TargetName(target);
                    }
                    hwy::SetSupportedTargetsForTest(0);
                }
        }
}

// Box means are divided by the pixels inside the image and truncated on
// integers (rows 10/2 = 5, 10/3 -> 3, then columns); high pass subtracts the
// mean and stops integers at 0; a [1 2 1] kernel uses the taps that exist.
TEST(Box, HandComputedSmallImages) {
    const ImageType U8 = IMAGE_UINT8, F = IMAGE_FLOAT;
    // clang-format off
    RunOpCases({
        {"box 3, corner", F, {36, 0, 0, 0, 0, 0, 0, 0, 0}, [](Image2D& i) { return i.smooth(3, 0); }, {9, 6, 0, 6, 4, 0, 0, 0, 0}, 3},
        {"box 3, bytes", U8, {10, 0, 0, 0, 0, 0, 0, 0, 0}, [](Image2D& i) { return i.smooth(3, 3); }, {2, 1, 0, 1, 1, 0, 0, 0, 0}, 3},
        {"box 4", F, {0, 0, 9, 0, 0}, [](Image2D& i) { return i.smooth(4, 1); }, {3, 2.25f, 2.25f, 3, 0}},
        {"high pass, bytes", U8, {9, 0, 3}, [](Image2D& i) { return i.highPass(3, 1); }, {5, 0, 2}},
        {"high pass, float", F, {9, 0, 3}, [](Image2D& i) { return i.highPass(3, 1); }, {4.5f, -4, 1.5f}},
        {"2x2", U8, {2, 4, 7, 6, 8, 1}, [](Image2D& i) { return i.smooth2x2(); }, {5, 4, 4, 7, 4, 1}, 3},
        {"1 2 1", F, {3, 6, 9, 12}, [](Image2D& i) { return i.convolveX(1, 2, 1); }, {4, 6, 9, 11}},
        // A 3x3 local maximum grows a spike into a block; with the minimum
        // flag a dark corner spreads.
        {"local maximum", U8, {0, 0, 7, 0, 0, 0, 0, 0, 0, 0}, [](Image2D& i) { return i.localMaximum(3, 0, false); }, {0, 7, 7, 7, 0, 0, 7, 7, 7, 0}, 5},
        {"local minimum", F, {1, 9, 9, 9, 9, 9}, [](Image2D& i) { return i.localMaximum(3, 3, true); }, {1, 1, 9, 1, 1, 9}, 3},
        {"binarize", IMAGE_UINT16, {0, 99, 100, 4000}, [](Image2D& i) { return i.binarize(100.7f, false) && i.type() == IMAGE_UINT8; }, {0, 0, 255, 255}},
        {"rotate 90", U8, {1, 2, 3, 4, 5, 6}, [](Image2D& i) { return i.rotate90() && i.width() == 2; }, {4, 1, 5, 2, 6, 3}, 3},
        {"rotate 270", U8, {4, 1, 5, 2, 6, 3}, [](Image2D& i) { return i.rotate270(); }, {1, 2, 3, 4, 5, 6}, 2},
        {"flip", U8, {1, 2, 3, 4, 5, 6}, [](Image2D& i) { return i.rotate(0, 1, true) && i.isFlippedLR(); }, {3, 2, 1, 6, 5, 4}, 3},
        // Min-max and the sliding minimum leave nothing of a flat image.
        {"min-max", IMAGE_UINT16, {50, 50, 50, 50}, [](Image2D& i) { return i.minMaxFilter(3, 0) && i.type() == F; }, {0, 0, 0, 0}, 2},
        {"sliding minimum", U8, {50, 50, 50, 50}, [](Image2D& i) { return i.subtractSlidingMinimum(5, 0); }, {0, 0, 0, 0}, 2},
        // Clipping negatives runs without a high pass.
        {"clip low", F, {-5, 0, 5}, [](Image2D& i) { IMAGE_FILTER_CFG f; f.UseFloat = false; f.HighpassClipNegative = true; return i.applyImageFilters(f, false); }, {0, 0, 5}},
        {"expand", U8, {1, 2}, [](Image2D& i) { const Image2D src(i); return i.expand(src, 2); }, {1, 1, 2, 2, 1, 1, 2, 2}},
    });
    // clang-format on
}

// Bad widths and cut-offs are refused and leave the image; a flat image
// stays flat and an impulse spreads symmetrically.
TEST(Gauss, KernelChecksAndSymmetry) {
    Image2D img = MakeImage(5, 5, IMAGE_FLOAT, Ramp(25));
    EXPECT_EQ(FailCode(img, img.smoothGauss(0.0f, true, 0.05f)), 50);
    EXPECT_EQ(FailCode(img, img.smoothGauss(0.3f, false, 0.05f)), 50);
    EXPECT_TRUE(HasText(LastText(img), "for non-centered filter, must be >0.5"));
    EXPECT_EQ(FailCode(img, img.smoothGauss(1.0f, true, 0.0f)), 5);
    EXPECT_EQ(Pixels(img), Ramp(25));
    EXPECT_TRUE(img.smoothGauss(0.3f, true, 0.05f));
    Image2D flat = Filled(9, 7, IMAGE_FLOAT, 40.0f);
    ASSERT_TRUE(flat.smoothGauss(1.5f, true, 0.05f));
    for (float v : Pixels(flat)) EXPECT_NEAR(v, 40.0f, 1e-4);
    Image2D spike = Spike(7, 7, IMAGE_FLOAT, 24, 100);
    ASSERT_TRUE(spike.smoothGauss(1.0f, true, 0.05f));
    EXPECT_NEAR(spike.pixel(2, 3), spike.pixel(4, 3), 1e-5);
    EXPECT_NEAR(spike.pixel(3, 2), spike.pixel(3, 4), 1e-5);
    EXPECT_LT(spike.pixel(3, 3), 100.0f);
    // Non-centred: the kernel is symmetric about -1/2, so an impulse spreads
    // half a pixel to the right: columns 5 and 6 weigh alike, as do 4 and 7.
    Image2D off = Spike(11, 11, IMAGE_FLOAT, 5 * 11 + 5, 100);
    ASSERT_TRUE(off.smoothGauss(1.0f, false, 0.05f));
    EXPECT_NEAR(off.pixel(5, 5), off.pixel(6, 6), 1e-4);
    EXPECT_NEAR(off.pixel(4, 5), off.pixel(7, 5), 1e-4);
    EXPECT_GT(off.pixel(6, 5), off.pixel(4, 5));
}

// Sizes below 1 are refused with 50 and leave the image; sizes above 63 are
// capped, so a 100 box over 5 pixels is the mean of all of them.
TEST(KernelSizes, BelowOneFailsAboveSixtyThreeIsCapped) {
    Image2D img = MakeImage(5, 5, IMAGE_UINT8, kSpiky), big(img);
    const std::vector<int> codes = {FailCode(img, img.smooth(-1, 3)),
                                    FailCode(img, img.localMaximum(3, -3, true))};
    EXPECT_EQ(codes, std::vector<int>(2, PIVerror::BAD_KERNEL_SIZE));
    EXPECT_EQ(Pixels(img), kSpiky);
    EXPECT_TRUE(img.smooth(4, 2) && big.highPass(64, 0) && big.localMaximum(90, 0, false));
    Image2D ramp = MakeImage(5, 5, IMAGE_FLOAT, Ramp(25));
    ASSERT_TRUE(ramp.smooth(100, 0));
    for (float v : Pixels(ramp)) EXPECT_NEAR(v, 12.0f, 1e-4);
}

TEST(Refusals, NullImagesAndMasksOfAnotherSize) {
    const Image2D mask(4, 4, IMAGE_UINT8);
    Image2D n;
    // A braced list runs its calls in order, each code read right after its call.
    const std::vector<int> codes = {FailCode(n, n.medianFilter(3)),
                                    FailCode(n, n.smoothGauss(1, true, 0.05f)),
                                    FailCode(n, n.binarize(1, false)), FailCode(n, n.erodeBinary()),
                                    FailCode(n, n.applyImageFilters(IMAGE_FILTER_CFG(), false))};
    EXPECT_EQ(codes, std::vector<int>(codes.size(), PIVerror::IMAGE_IS_NULL));
    // A mask of another size reports 34 and changes nothing.
    Image2D img = MakeImage(5, 5, IMAGE_UINT8, kSpiky);
    Image2D other = MakeImage(5, 5, IMAGE_UINT8, kSpiky);
    EXPECT_EQ(FailCode(img, img.randomizeMaskedPixels(mask, {2, 2}, {2, 2})),
              PIVerror::IMAGE_SIZE_MISMATCH);
    EXPECT_EQ(FailCode(img, img.swapMaskedPixels(other, mask, false)),
              PIVerror::IMAGE_SIZE_MISMATCH);
    EXPECT_EQ(Pixels(img), kSpiky);
    EXPECT_EQ(Pixels(other), kSpiky);
}

// One case each: a 3 x 3 block erodes to its centre and does not grow (as it
// has always behaved); a lone pixel is despeckled away; a bit mask packs the
// lowest bit first.
TEST(Binary, ErodeDilateDespeckleAndBitMasks) {
    const std::vector<float> block = {0,   0, 0, 0,   0,   0,   255, 255, 255, 0, 0, 255, 255,
                                      255, 0, 0, 255, 255, 255, 0,   0,   0,   0, 0, 0};
    Image2D eroded = MakeImage(5, 5, IMAGE_UINT8, block), dilated(eroded);
    Image2D speckled = Spike(5, 5, IMAGE_UINT8, 6, 255), bits;
    ASSERT_TRUE(eroded.erodeBinary() && dilated.dilateBinary() && speckled.despeckleBinary());
    EXPECT_EQ(Pixels(eroded), Pixels(Spike(5, 5, IMAGE_UINT8, 12, 255)));
    EXPECT_EQ(Pixels(dilated), block);
    EXPECT_EQ(Pixels(speckled), std::vector<float>(25, 0.0f));
    ASSERT_TRUE(Spike(40, 1, IMAGE_UINT8, 39, 1).createBitMask(&bits));
    EXPECT_EQ(bits.scanLine<uint32_t>(0)[1], 0x80u);
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
    // Bad ranges and constant images are refused.
    Image2D img = MakeImage(10, 10, IMAGE_UINT8, Ramp(100));
    EXPECT_EQ(FailCode(img, img.dynamicClipping(0.0f, 1.0f)), PIVerror::BAD_RANGE);
    EXPECT_EQ(FailCode(img, img.dynamicClipping(0.6f, 0.4f)), PIVerror::BAD_RANGE);
    EXPECT_EQ(Pixels(img), Ramp(100));
    EXPECT_TRUE(img.dynamicClipping(0.0f, 0.95f));
    Image2D flat = Filled(4, 4, IMAGE_UINT8, 3);
    EXPECT_FALSE(flat.dynamicClipping(0.1f, 0.9f));
}

// A ramp maps to its cumulative count, as floats.
TEST(HistEqual, RampMapsToItsCumulativeCount) {
    Image2D img = MakeImage(16, 16, IMAGE_UINT8, Ramp(256));
    ASSERT_TRUE(img.histEqual(0, false));
    EXPECT_EQ(Pixels(img), Ramp(256, 1));
}

// 9 x 9 with distinct values y * 9 + x; 4 x 4 windows every 4 pixels start at
// 0 and 4 (x < 9 - 4), so row and column 8 are never touched. Window (0, 0)
// is masked whole, window (4, 0) but for two pixels.
TEST(Randomize, MaskedPixelsTakeValuesOfTheirWindow) {
    Image2D img = MakeImage(9, 9, IMAGE_UINT8, Ramp(81));
    Image2D mask = Filled(9, 9, IMAGE_UINT8, 0);
    for (int y = 0; y < 4; y++)
        for (int x = 0; x < 8; x++) mask.setPixel(x, y, x == 4 || x == 5 ? 255 * (y > 0) : 255);
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
    for (int y = 0; y < 9; y++)
        for (int x = 0; x < 9; x++) {
            const float v = first.pixel(x, y);
            if (x >= 4 || y >= 4) {
                EXPECT_EQ(v, img.pixel(x, y)) << x << "," << y;
                continue;
            }
            // drawn from the window itself
            EXPECT_TRUE(static_cast<int>(v) % 9 < 4 && static_cast<int>(v) / 9 < 4) << v;
            changed = changed || v != img.pixel(x, y);
        }
    EXPECT_TRUE(changed);
    // Masked (1, 1) and (2, 2), values 10 and 20, take values of the free pixels
    // of their window.
    Image2D floats = MakeImage(9, 9, IMAGE_FLOAT, Ramp(81));
    Image2D some = Spike(9, 9, IMAGE_UINT8, 10, 255);
    some.setPixel(2, 2, 255);
    ASSERT_TRUE(floats.randomizeMaskedPixels(some, {4, 4}, {4, 4}));
    for (int p : {1, 2}) {
        const int v = static_cast<int>(floats.pixel(p, p));
        EXPECT_TRUE(v % 9 < 4 && v / 9 < 4 && v != 10 && v != 20) << v;
    }
}

// ---------------------------------------------------------------------------
// drivers

// The low-pass weights of both drivers; invert comes after the median in
// applyImageFilters; a failed clipping ends the chain.
TEST(Drivers, LowPassWeightsOrderAndFailures) {
    IMAGE_CFG cfg;
    cfg.filters.Lowpass = true;
    Image2D img = Spike(5, 5, IMAGE_FLOAT, 12, 100), pre(img);
    ASSERT_TRUE(img.applyImageFilters(cfg.filters, false));
    EXPECT_NEAR(img.pixel(2, 2), 100 * 0.85f * 0.85f, 1e-3);
    EXPECT_NEAR(img.pixel(1, 2), 100 * 0.075f * 0.85f, 1e-3);
    ASSERT_TRUE(pre.preProcessUsingMaskAndBackground(cfg, nullptr, nullptr, false, true, 0));
    EXPECT_NEAR(pre.pixel(2, 2), 100 * 0.6f * 0.6f, 1e-3);
    EXPECT_NEAR(pre.pixel(1, 2), 100 * 0.2f * 0.6f, 1e-3);
    IMAGE_FILTER_CFG f;
    f.UseFloat = f.Median = f.Invert = true;
    Image2D spiky = MakeImage(5, 5, IMAGE_FLOAT, kSpiky), ref(spiky);
    ASSERT_TRUE(spiky.applyImageFilters(f, false));
    ref.medianFilter(3);
    ref.negative(0);
    EXPECT_TRUE(spiky == ref);
    cfg.filters.HistEqual = true;
    Image2D flat = Filled(5, 5, IMAGE_FLOAT, 7);
    EXPECT_FALSE(flat.applyImageFilters(cfg.filters, false));
    EXPECT_FALSE(flat.preProcessUsingMaskAndBackground(cfg, nullptr, nullptr, false, true, 0));
}

TEST(Threads, OneAndAllGiveTheSameBytes) {
    synth::SynthParams params;
    params.width = 131;
    params.height = 97;
    params.bitDepth = 16;
    const synth::SyntheticPair pair = synth::RenderPair(params, synth::UniformFlow(1.5, -0.5));
    Image2D src(params.width, params.height, IMAGE_UINT16);
    for (int y = 0; y < params.height; y++)
        for (int x = 0; x < params.width; x++) src.setPixel(x, y, pair.pixelA(x, y));
    auto run = [&](int threads) {
        PIV::SetMaxThreads(threads);
        Image2D img(src);
        EXPECT_TRUE(img.medianFilter(5) && img.smooth(7, 5) && img.localMaximum(5, 3, false));
        EXPECT_TRUE(img.dynamicClipping(0.02f, 0.98f) && img.toFloat());
        EXPECT_TRUE(img.smoothGauss(1.3f, false, 0.05f) && img.convolve(0.2f, 0.6f, 0.2f));
        EXPECT_TRUE(img.highPass(9, 9));
        img.setInterpolationMethod(PIV::INTERPOLATE_BSPLINE, 5);
        EXPECT_TRUE(img.translate(0.3, -0.7));
        return img;
    };
    const Image2D one = run(1);
    const Image2D all = run(0);
    EXPECT_TRUE(one == all);
}
