// Statistics of Image2D, worked by hand on small images.

#include <algorithm>
#include <cmath>
#include <limits>

#include "image_test_support.h"

using namespace image_test;

namespace {

std::vector<double> Moments(Image2D img) {
    return {img.mean(), img.variance(), img.minimum(), img.maximum()};
}

}  // namespace

// Pixels 0..5 of a 3x2 image: s1 = 15, s2 = 55, N = 6, so the mean is 2.5 and
// the variance (6 * 55 - 15^2) / (36 - 6) = 3.5. The row padding of the
// integer types is filled with 200 first and must not count.
TEST(Image2DStatistics, MomentsOfEveryTypeIgnorePadding) {
    for (ImageType type : {IMAGE_UINT8, IMAGE_UINT16, IMAGE_UINT32, IMAGE_FLOAT}) {
        SCOPED_TRACE(testing::Message() << "type " << type);
        Image2D img = Filled(3, 2, type, 200);
        const float values[6] = {0, 1, 2, 3, 4, 5};
        img.putRow(values, 0);
        img.putRow(values + 3, 1);
        ASSERT_TRUE(img.doStatistics(false));
        EXPECT_EQ(Moments(img), (std::vector<double>{2.5, 3.5, 0, 5}));
    }
    EXPECT_EQ(Moments(MakeImage(1, 1, IMAGE_UINT16, {9})), (std::vector<double>{9, 0, 9, 9}));
    // Nor does a border: 100 around the float pixels 1, 2, 3, 4.
    Image2D bordered;
    ASSERT_TRUE(bordered.alloc(2, 2, IMAGE_FLOAT, 1));
    std::fill_n(reinterpret_cast<float*>(bordered.baseAddr()), 16, 100.0f);
    for (int i = 0; i < 4; i++) bordered.setPixel(i % 2, i / 2, static_cast<float>(i + 1));
    EXPECT_EQ(Moments(bordered)[0], 2.5);
    EXPECT_EQ(Moments(bordered)[3], 4.0);
}

// The vector loop against sums taken here, one pixel at a time: rows of 1,
// 7, 33 and 1023 pixels leave every kind of tail. Pixels of 8 and 16 bits
// are summed exactly, so their moments match bit for bit; float sums may
// differ in order only. A NaN in the float image (not its first pixel) is
// no extreme.
TEST(Image2DStatistics, VectorLoopMatchesPixelByPixelSums) {
    uint32_t seed = 7;
    for (ImageType type : {IMAGE_UINT8, IMAGE_UINT16, IMAGE_FLOAT})
        for (int width : {1, 7, 33, 1023}) {
            SCOPED_TRACE(testing::Message() << "type " << type << ", width " << width);
            const int height = 3;
            Image2D img(width, height, type);
            long double s1 = 0, s2 = 0;
            double lo = 1e30, hi = -1e30;
            for (int y = 0; y < height; y++)
                for (int x = 0; x < width; x++) {
                    seed = seed * 1664525u + 1013904223u;
                    const double v = type == IMAGE_UINT8    ? double(seed >> 24)
                                     : type == IMAGE_UINT16 ? double(seed >> 16)
                                                            : double(seed >> 8) / 4096.0;
                    img.setPixel(x, y, float(v));
                    s1 += v, s2 += v * v, lo = std::min(lo, v), hi = std::max(hi, v);
                }
            const double n = double(width) * height;
            const double mean = double(s1) / n;
            const double variance =
                n > 1 ? (n * double(s2) - double(s1) * double(s1)) / (n * n - n) : 0.0;
            ASSERT_TRUE(img.doStatistics(true));
            EXPECT_EQ(img.minimum(), lo);
            EXPECT_EQ(img.maximum(), hi);
            if (type == IMAGE_FLOAT) {
                EXPECT_NEAR(img.mean(), mean, 1e-12 * mean);
                EXPECT_NEAR(img.variance(), variance, 1e-9 * variance + 1e-12);
                img.setPixel(width / 2, 1, std::nanf(""));
                ASSERT_TRUE(img.doStatistics(true));
                EXPECT_FALSE(std::isnan(img.minimum()) || std::isnan(img.maximum()));
            } else {
                EXPECT_EQ(img.mean(), mean);
                EXPECT_EQ(img.variance(), variance);
            }
        }
}

// binWidth = (high + 1 - low) / count in whole counts for integer images;
// high is 255 up to 15 bits, else the next power of two at or above the
// maximum, minus 1; float images use their own minimum and maximum.
TEST(Image2DStatistics, HistogramRangesAndBins) {
    struct Case {
        ImageType type;
        std::vector<float> pixels;
        int count;
        double binWidth, low, high;
        std::vector<std::pair<int, uint32_t>> filled;  // bin, expected count
        // clang-format off
    } cases[] = {
        {IMAGE_UINT8, {0, 1, 255, 255}, 256, 1, 0, 255, {{0, 1}, {1, 1}, {255, 2}}},
        {IMAGE_UINT16, {1000, 3, 0, 0}, 256, 4, 0, 1023, {{250, 1}, {0, 3}}},
        {IMAGE_FLOAT, {-1, 0, 1, 3}, 5, 1, -1, 3, {{0, 1}, {1, 1}, {2, 1}, {4, 1}}},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "type " << c.type << " bins " << c.count);
        Image2D img = MakeImage(2, 2, c.type, c.pixels);
        std::vector<uint32_t> bins(static_cast<size_t>(c.count), 99u);
        double binWidth = 0, low = 0, high = 0;
        ASSERT_TRUE(img.histogram(bins.data(), c.count, binWidth, low, high));
        EXPECT_EQ(std::vector<double>({binWidth, low, high}),
                  std::vector<double>({c.binWidth, c.low, c.high}));
        uint32_t total = 0;
        for (uint32_t b : bins) total += b;
        EXPECT_EQ(total, 4u);
        for (const auto& f : c.filled)
            EXPECT_EQ(bins[static_cast<size_t>(f.first)], f.second) << "bin " << f.first;
    }
}

TEST(Image2DStatistics, IsConstantAgainstFirstPixelOrZero) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    // Four pixels of each type, whether constant, whether zero; NaN equals nothing.
    const float U8 = IMAGE_UINT8, U16 = IMAGE_UINT16, U32 = IMAGE_UINT32, F = IMAGE_FLOAT;
    const float cases[][7] = {{U8, 7, 7, 7, 7, 1, 0},
                              {U16, 0, 0, 0, 0, 1, 1},
                              {U32, 0, 0, 0, 1, 0, 0},
                              {F, nan, nan, nan, nan, 0, 0}};
    for (const auto& c : cases) {
        const Image2D img = MakeImage(2, 2, static_cast<ImageType>(c[0]), {c[1], c[2], c[3], c[4]});
        EXPECT_EQ(img.isConstant(false), c[5] != 0) << "type " << c[0];
        EXPECT_EQ(img.isZero(), c[6] != 0) << "type " << c[0];
    }
    // Row padding is no pixel: 9s behind each 5-pixel row do not count.
    Image2D padded = Filled(5, 2, IMAGE_UINT8, 9);
    const float zeros[5] = {0, 0, 0, 0, 0};
    padded.putRow(zeros, 0);
    padded.putRow(zeros, 1);
    EXPECT_TRUE(padded.isZero());
}

// Pixels 0..5 again: mean 2.5, deviation sqrt(6 * 55 - 15^2) / 6. In a 5x5
// image of x + 10 y the 3x3 window at (2, 2) has mean 22 and variance
// (3 (1 + 1) + 3 (100 + 100)) / 8 = 75.75.
TEST(Image2DStatistics, LocalMeans) {
    const Image2D rect = MakeImage(3, 2, IMAGE_UINT16, {0, 1, 2, 3, 4, 5});
    double mean = -1, deviation = -1;
    ASSERT_TRUE(rect.localMean(0, 0, 3, 2, mean, deviation));
    EXPECT_DOUBLE_EQ(mean, 2.5);
    EXPECT_DOUBLE_EQ(deviation, std::sqrt(105.0) / 6.0);
    std::vector<float> v;
    for (int i = 0; i < 25; i++) v.push_back(static_cast<float>(i % 5 + 10 * (i / 5)));
    float variance = -1;
    bool ok = false;
    EXPECT_FLOAT_EQ(MakeImage(5, 5, IMAGE_FLOAT, v).localMean(2, 2, &variance, &ok, 3), 22.0f);
    EXPECT_FLOAT_EQ(variance, 75.75f);
    EXPECT_TRUE(ok);
}

// Weights 30 at (1, 1) and 10 at (3, 1): x = (30 + 30) / 40 = 1.5, y = 1.
// Binary: the 23 zero pixels of the 5x5 window weigh 1 each; their columns
// sum to 50 - 1 - 3 = 46 and their rows to 50 - 1 - 1 = 48.
TEST(Image2DStatistics, SampleCentroid) {
    Image2D img = Spike(5, 5, IMAGE_UINT8, 1 * 5 + 1, 30);
    img.setPixel(3, 1, 10);
    FPOINT2D p = img.getSampleCentroid(5, 5, 2, 2, false);
    EXPECT_TRUE(p.x == 1.5f && p.y == 1.0f) << p.x << "," << p.y;
    p = img.getSampleCentroid(5, 5, 2, 2, true);
    EXPECT_FLOAT_EQ(p.x, 46.0f / 23.0f);
    EXPECT_FLOAT_EQ(p.y, 48.0f / 23.0f);
    p = img.getSampleCentroid(5, 5, 3, 2, false);  // window not wholly inside
    EXPECT_TRUE(p.x == 3.0f && p.y == 2.0f);
    p = img.getSampleCentroid(1, 1, 4, 4, false);  // zero weight
    EXPECT_EQ(p.x, 4.0f);
}
