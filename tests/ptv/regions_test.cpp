// Connected regions and the pixel lists of their labels, on patterns small
// enough to label by hand; and the Gaussian models on a rendered particle.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "gaussfit2d.h"
#include "message_capture.h"
#include "ptv_regions.h"
#include "synthetic_images.h"

namespace {

// Rows split by '/', of '.' (0) and digits d (value 10 d), as an image; and
// labels back in that form.
Image2D Pattern(const std::string& text, ImageType type = IMAGE_UINT8) {
    const size_t w = text.find('/') == std::string::npos ? text.size() : text.find('/');
    Image2D img(int64_t(w), int64_t((text.size() + 1) / (w + 1)), type);
    for (size_t i = 0; i < text.size(); i++)
        if (text[i] != '/')
            img.setPixel(int(i % (w + 1)), int(i / (w + 1)),
                         text[i] == '.' ? 0.0f : 10.0f * (text[i] - '0'));
    return img;
}
std::string LabelRows(const Image2D& labels) {
    std::string text;
    for (int y = 0; y < int(labels.height()); y++)
        for (int x = 0; x < int(labels.width()); x++) {
            const int l = int(labels.pixel(x, y));
            text += (y && !x ? "/" : "") + std::string(1, l ? char('0' + l) : '.');
        }
    return text;
}

TEST(LabelRegions, PatternsLabelledByHand) {
    const struct {
        const char* what;
        std::string image;
        int threshold, connectivity, count;
        std::string labels;
    } cases[] = {
        {"a U: its arms meet in the last row", "9.9/9.9/999", 0, 4, 1, "1.1/1.1/111"},
        {"a merge leaves no gap in the numbers", "9.9.9/999.9", 0, 4, 2, "1.1.2/111.2"},
        {"diagonal pixels: three regions at 4", "9../.9./..9", 0, 4, 3, "1../.2./..3"},
        {"and one at 8", "9../.9./..9", 0, 8, 1, "1../.1./..1"},
        {"the upper right counts at 8", "..9.9/.9..9/9..9.", 0, 8, 2, "..1.2/.1..2/1..2."},
        {"only values above the threshold", "17.7/1..3", 30, 4, 2, ".1.2/...."},
        {"a negative threshold counts as 0", "1.07/2...", -5, 4, 2, "1..2/1..."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const Image2D src = Pattern(c.image);
        Image2D labels;
        int count = -1;
        ASSERT_TRUE(PIV::LabelRegions(&src, labels, &count, c.threshold, c.connectivity));
        EXPECT_EQ(labels.type(), IMAGE_UINT32);
        EXPECT_EQ(LabelRows(labels), c.labels);
        EXPECT_EQ(count, c.count);
    }
}

TEST(ExtractBlobs, CentroidIsWeightedByValue) {
    // Raster order makes the column region 1: 20, 20, 80 down x = 3, so
    // cy = (20 + 160) / 120 = 1.5. Region 2: 10 and 30 on row 1, cx = 30 / 40.
    const Image2D src = Pattern("...2/13.2/...8");
    Image2D labels;
    int count = 0;
    PixelGroup g[2];
    ASSERT_TRUE(PIV::LabelRegions(&src, labels, &count, 0, 4));
    ASSERT_TRUE(count == 2 && PIV::ExtractBlobs(src, &labels, g, count));
    EXPECT_EQ(std::vector<double>({g[0].cx, g[0].cy, g[1].cx, g[1].cy, g[1].mean}),
              std::vector<double>({3.0, 1.5, 0.75, 1.0, 20.0}));
    EXPECT_TRUE(g[0].count == 3 && g[0].top == 0 && g[0].bottom == 2 && g[0].maximum == 80.0f);
}

TEST(LabelRegions, RefusesWhatItCannotUse) {
    MessageCapture quiet;
    const Image2D wide = Pattern("9.9", IMAGE_UINT16);
    Image2D labels;
    int count = 0;
    PIVerror error("test");
    PixelGroup g;
    EXPECT_TRUE(!PIV::LabelRegions(&wide, labels, &count, 0, 4, &error) &&
                error.getLastErrorCode() == PIVerror::IMAGE_TYPE_UNSUPPORTED);
    EXPECT_NE(quiet.all().find("only supports 8-bit images"), std::string::npos);
    EXPECT_TRUE(!PIV::LabelRegions(nullptr, labels, &count, 0, 4, &error) &&
                error.getLastErrorCode() == PIVerror::IMAGE_IS_NULL);
    EXPECT_TRUE(!PIV::ExtractBlobs(wide, nullptr, &g, 1, &error) &&
                error.getLastErrorCode() == PIVerror::IMAGE_IS_NULL);
    // Eight pixels are too few for a Gaussian.
    for (int i = 0; i < 8; i++) g.pixels.push_back(PIXEL_VALUE{i % 3, i / 3, 1.0f});
    g.count = 8;
    g.right = g.bottom = 2;
    GaussFit2D fit;
    GAUSSFIT2D_PARAMS r;
    EXPECT_TRUE(!fit.doFit(g, &r) && fit.error().getLastErrorCode() == PIVerror::OPERATION_FAILED);
    EXPECT_NE(quiet.all().find("area too small: 8 pixels"), std::string::npos);
}

TEST(GaussFit2D, EachModelFindsTheCentre) {
    // A particle of 4 px diameter (sigma 1) at (10.3, 9.6), unquantised, on
    // a floor of 0.1, fitted over the 9 x 9 pixels around it.
    synth::SynthParams sp;
    sp.bitDepth = 0;
    const std::vector<float> img = synth::RenderParticles({{10.3, 9.6, 0.8, 4.0}}, 21, 21, sp);
    std::vector<float> x, y, v;
    for (int j = 6; j <= 14; j++)
        for (int i = 6; i <= 14; i++) {
            x.push_back(float(i));
            y.push_back(float(j));
            v.push_back(img[size_t(j) * 21 + size_t(i)] + 0.1f);
        }
    for (int mask : {31, 63, 95, 25}) {
        SCOPED_TRACE(mask);
        GaussFit2D fit;
        fit.setFitType(mask);
        // All but the fixed-position model start at the rounded centre (10, 10).
        fit.setStartParams(0.7, 10.3, 9.6, 1.5, 1.5, 0.0);
        GAUSSFIT2D_PARAMS r;
        ASSERT_TRUE(fit.doFit(x.data(), y.data(), v.data(), int(x.size()), &r));
        EXPECT_NEAR(r.cx, 10.3, mask == 25 ? 0.0 : 0.02);
        EXPECT_NEAR(r.cy, 9.6, mask == 25 ? 0.0 : 0.02);
        EXPECT_NEAR(r.offset, mask == 95 ? 0.1 : 0.0, 0.01);
    }
    // The region and blob forms start from their brightest value and centre.
    std::vector<PIXEL_VALUE> px;
    for (size_t i = 0; i < x.size(); i++) px.push_back({int(x[i]), int(y[i]), v[i] - 0.1f});
    const DATA_REGION region{6, 6, 9, 9, 21, img.data() + 6 * 21 + 6};
    const BLOB_INFO blob{10.0, 10.0, 0.8f, int(px.size()), px.data()};
    GaussFit2D fit;
    GAUSSFIT2D_PARAMS r, q;
    ASSERT_TRUE(fit.doFit(region, &r) && fit.doFit(&blob, &q));
    EXPECT_LT(std::hypot(r.cx - 10.3, r.cy - 9.6) + std::hypot(q.cx - 10.3, q.cy - 9.6), 0.02);
}

}  // namespace
