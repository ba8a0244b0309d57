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

// Rows of '.' (0) and digits d (value 10 d) as an 8-bit image.
Image2D Pattern(const std::vector<std::string>& rows, ImageType type = IMAGE_UINT8) {
    Image2D img(int64_t(rows[0].size()), int64_t(rows.size()), type);
    for (size_t y = 0; y < rows.size(); y++)
        for (size_t x = 0; x < rows[y].size(); x++)
            img.setPixel(int(x), int(y), rows[y][x] == '.' ? 0.0f : 10.0f * (rows[y][x] - '0'));
    return img;
}

std::vector<std::string> LabelRows(const Image2D& labels) {
    std::vector<std::string> rows;
    for (int y = 0; y < int(labels.height()); y++) {
        std::string r;
        for (int x = 0; x < int(labels.width()); x++) {
            const int l = int(labels.pixel(x, y));
            r += l == 0 ? '.' : char('0' + l);
        }
        rows.push_back(r);
    }
    return rows;
}

TEST(LabelRegions, PatternsLabelledByHand) {
    const struct {
        const char* what;
        std::vector<std::string> image;
        int threshold, connectivity;
        std::vector<std::string> labels;
    } cases[] = {
        {"a U: its arms meet only in the last row",
         {"9.9", "9.9", "999"},
         0,
         4,
         {"1.1", "1.1", "111"}},
        {"a merge leaves no gap in the numbering", {"9.9.9", "999.9"}, 0, 4, {"1.1.2", "111.2"}},
        {"diagonal pixels are three regions at 4",
         {"9..", ".9.", "..9"},
         0,
         4,
         {"1..", ".2.", "..3"}},
        {"and one at 8", {"9..", ".9.", "..9"}, 0, 8, {"1..", ".1.", "..1"}},
        {"the upper right neighbour counts at 8",
         {"..9.9", ".9..9", "9..9."},
         0,
         8,
         {"..1.2", ".1..2", "1..2."}},
        {"only values above the threshold", {"17.7", "1..3"}, 30, 4, {".1.2", "...."}},
        {"a negative threshold counts as 0", {"1.07", "2..."}, -5, 4, {"1..2", "1..."}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const Image2D src = Pattern(c.image);
        Image2D labels;
        int count = -1;
        ASSERT_TRUE(PIV::LabelRegions(&src, labels, &count, c.threshold, c.connectivity));
        EXPECT_EQ(labels.type(), IMAGE_UINT32);
        EXPECT_EQ(LabelRows(labels), c.labels);
        int highest = 0;
        for (const std::string& r : c.labels)
            for (char ch : r) highest = std::max(highest, ch == '.' ? 0 : ch - '0');
        EXPECT_EQ(count, highest);
    }
}

TEST(ExtractBlobs, CentroidIsWeightedByValue) {
    // Raster order makes the column the first region: 20, 20 and 80 down
    // column 3, cy = (20 + 160) / 120 = 1.5. The second: 10 at x=0 and 30 at
    // x=1 of row 1, cx = 30 / 40 = 0.75.
    const Image2D src = Pattern({"...2", "13.2", "...8"});
    Image2D labels;
    int count = 0;
    ASSERT_TRUE(PIV::LabelRegions(&src, labels, &count, 0, 4));
    ASSERT_EQ(count, 2);
    PixelGroup g[2];
    ASSERT_TRUE(PIV::ExtractBlobs(src, &labels, g, count));
    EXPECT_DOUBLE_EQ(g[0].cx, 3.0);
    EXPECT_DOUBLE_EQ(g[0].cy, 1.5);
    EXPECT_EQ(g[0].count, 3);
    EXPECT_EQ(g[0].top, 0);
    EXPECT_EQ(g[0].bottom, 2);
    EXPECT_EQ(g[0].maximum, 80.0f);
    EXPECT_DOUBLE_EQ(g[1].cx, 0.75);
    EXPECT_DOUBLE_EQ(g[1].cy, 1.0);
    EXPECT_DOUBLE_EQ(g[1].mean, 20.0);
}

TEST(LabelRegions, RefusesWhatItCannotLabel) {
    MessageCapture quiet;
    const Image2D wide = Pattern({"9.9"}, IMAGE_UINT16);
    Image2D labels;
    int count = 0;
    PIVerror error("test");
    EXPECT_FALSE(PIV::LabelRegions(&wide, labels, &count, 0, 4, &error));
    EXPECT_EQ(error.getLastErrorCode(), PIVerror::IMAGE_TYPE_UNSUPPORTED);
    EXPECT_NE(quiet.all().find("only supports 8-bit images"), std::string::npos);
    EXPECT_FALSE(PIV::LabelRegions(nullptr, labels, &count, 0, 4, &error));
    EXPECT_EQ(error.getLastErrorCode(), PIVerror::IMAGE_IS_NULL);
    PixelGroup g;
    EXPECT_FALSE(PIV::ExtractBlobs(wide, nullptr, &g, 1, &error));
    EXPECT_EQ(error.getLastErrorCode(), PIVerror::IMAGE_IS_NULL);
}

// A particle of 4 px diameter (sigma 1) at (10.3, 9.6) on a 21 x 21 field,
// unquantised, over a floor of 0.1 for the model with offset.
struct Blob {
    std::vector<float> x, y, v;
    Blob() {
        synth::SynthParams p;
        p.bitDepth = 0;
        const std::vector<float> img = synth::RenderParticles({{10.3, 9.6, 0.8, 4.0}}, 21, 21, p);
        for (int j = 6; j <= 14; j++)
            for (int i = 6; i <= 14; i++) {
                x.push_back(float(i));
                y.push_back(float(j));
                v.push_back(img[size_t(j) * 21 + size_t(i)] + 0.1f);
            }
    }
};

TEST(GaussFit2D, EachModelFindsTheCentre) {
    const Blob blob;
    const int n = int(blob.x.size());
    for (int mask : {31, 63, 95, 25}) {
        SCOPED_TRACE(mask);
        GaussFit2D fit;
        fit.setFitType(mask);
        // The start is 0.4 px off; all but the fixed model begin at the
        // rounded centre (10, 10) and must find the true one.
        fit.setStartParams(0.7, 10.3, 9.6, 1.5, 1.5, 0.0);
        GAUSSFIT2D_PARAMS r;
        ASSERT_TRUE(fit.doFit(blob.x.data(), blob.y.data(), blob.v.data(), n, &r));
        EXPECT_NEAR(r.cx, 10.3, mask == 25 ? 0.0 : 0.02);
        EXPECT_NEAR(r.cy, 9.6, mask == 25 ? 0.0 : 0.02);
        if (mask == 95) {
            EXPECT_NEAR(r.offset, 0.1, 0.01);
        }
    }
}

TEST(GaussFit2D, GroupOfFewerThanNinePixelsIsRefused) {
    MessageCapture quiet;
    PixelGroup g;
    for (int i = 0; i < 8; i++) g.pixels.push_back(PIXEL_VALUE{i % 3, i / 3, 1.0f});
    g.count = 8;
    g.right = g.bottom = 2;
    GaussFit2D fit;
    GAUSSFIT2D_PARAMS r;
    EXPECT_FALSE(fit.doFit(g, &r));
    EXPECT_EQ(fit.error().getLastErrorCode(), PIVerror::OPERATION_FAILED);
    EXPECT_NE(quiet.all().find("area too small: 8 pixels"), std::string::npos);
}

}  // namespace
