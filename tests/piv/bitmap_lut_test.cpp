// Colour tables against entries worked out by hand from each table's rule.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "bitmap_lut.h"

namespace {

struct Entry {
    int choice, index, r, g, b;
};

// Entries 0, 127, 128 and 255 of every built-in table, with the arithmetic
// behind the less obvious ones.
// clang-format off
const Entry kEntries[] = {
    {0, 0, 0, 0, 0}, {0, 127, 127, 127, 127}, {0, 128, 128, 128, 128}, {0, 255, 255, 255, 255},
    {1, 0, 0, 0, 0}, {1, 127, 127, 127, 127}, {1, 128, 128, 128, 128}, {1, 255, 255, 0, 0},
    // k = 4i: (0, k, 512 - k) then (k - 512, 1024 - k, 0)
    {2, 0, 0, 0, 255}, {2, 127, 0, 255, 4}, {2, 128, 0, 255, 0}, {2, 255, 255, 4, 0},
    // c = 768 - 6i; entry 0 fades (255, 0, 255) by 1 - 64 / 80, a double just
    // under 0.2, so 50; above 220 blue = -552 - c
    {3, 0, 50, 0, 50}, {3, 127, 0, 255, 6}, {3, 128, 0, 255, 0}, {3, 255, 255, 0, 210},
    // 6.8919 * 16 = 110.3, 6.8919 * 17 = 117.2, 6.8919 * 37 = 255
    {4, 0, 0, 0, 0}, {4, 127, 110, 255, 0}, {4, 128, 117, 255, 0}, {4, 255, 255, 255, 255},
    // 4 * 127 / 3 = 169.3; above 191, j = 63 gives 252
    {5, 0, 0, 0, 0}, {5, 127, 0, 169, 0}, {5, 128, 0, 170, 0}, {5, 255, 252, 255, 252},
    {6, 0, 0, 0, 255}, {6, 127, 254, 254, 255}, {6, 128, 255, 255, 255}, {6, 255, 255, 2, 2},
    {7, 0, 0, 0, 255}, {7, 127, 0, 0, 1}, {7, 128, 1, 0, 0}, {7, 255, 255, 0, 0},
    // 5.9765625 * 41 = 245.04 (third segment), 5.9765625 * 42 = 251.02 (last)
    {8, 0, 255, 0, 255}, {8, 127, 245, 255, 255}, {8, 128, 255, 255, 255}, {8, 255, 255, 3, 0},
    // 127 starts the fourth segment; 128 is 6.375 into it; 5115 - 20 * 255 = 15
    {9, 0, 115, 0, 115}, {9, 127, 255, 255, 255}, {9, 128, 248, 255, 248}, {9, 255, 15, 0, 0},
    // 255 sin(pi / 128) = 6.26
    {10, 0, 0, 0, 0}, {10, 127, 0, 6, 255}, {10, 128, 0, 0, 255}, {10, 255, 255, 0, 6},
    // 127 and 128 are 17 and 18 into the ramp from 110; 255 is 36 into the last
    {11, 0, 111, 36, 111}, {11, 127, 18, 183, 18}, {11, 128, 17, 187, 17}, {11, 255, 255, 0, 0},
};
// clang-format on

TEST(BitmapLutTest, EntriesOfEveryBuiltInTable) {
    BitmapLUT lut;
    for (const Entry& e : kEntries) {
        lut.setLUT(e.choice);
        const uint32_t want = 0xff000000u | (e.r << 16) | (e.g << 8) | e.b;
        EXPECT_EQ(lut.rgbValue(e.index), want) << "choice " << e.choice << " entry " << e.index;
        unsigned char r[256], g[256], b[256];
        ASSERT_TRUE(CreateBitmapLUT(e.choice, r, g, b, true));
        EXPECT_EQ(r[255 - e.index], e.r) << "choice " << e.choice << " reversed " << e.index;
    }
}

TEST(BitmapLutTest, ChoiceLevelsGammaAndOpacityRanges) {
    BitmapLUT lut;
    lut.setLUT(13);
    EXPECT_EQ(lut.currentLUT(), 0);
    lut.setLUT(-1);
    EXPECT_EQ(lut.currentLUT(), 12);
    lut.setLUT(11);
    lut.incrementLUT();  // wraps past the user table
    EXPECT_EQ(lut.currentLUT(), 0);
    lut.decrementLUT();
    EXPECT_EQ(lut.currentLUT(), 11);

    lut.setDiscreteLevels(1);
    EXPECT_EQ(lut.currentLevels(), 2);
    lut.setDiscreteLevels(200);
    EXPECT_EQ(lut.currentLevels(), 256);

    // Two bands of 128 on the grayscale: entry 0, and entry 128 + 64 = 192.
    // Reversed, the bands swap ends and stay 128 wide.
    lut.setLUT(0, 2, true);
    EXPECT_EQ(lut.red(0), 192);
    EXPECT_EQ(lut.red(127), 192);
    EXPECT_EQ(lut.red(128), 0);
    EXPECT_EQ(lut.red(255), 0);
    EXPECT_EQ(lut.red(300), 0);  // index clamped

    lut.setLUT(0, 256, false);
    EXPECT_EQ(lut.vectorColor(1.0), 0xffffffffu);
    EXPECT_EQ(lut.vectorColor(0.5), 0xff808080u);  // trunc(256 * 0.5) = 128
    EXPECT_EQ(lut.vectorColor(-0.1), 0xff000000u);

    // Gamma 2 multiplies by x = i / 255, which is 1 at the top.
    lut.setLUT(6);
    EXPECT_TRUE(lut.setGamma(2.0));
    EXPECT_EQ(lut.rgbValue(255), 0xffff0202u);
    EXPECT_FALSE(lut.setGamma(10.0));
    EXPECT_FALSE(lut.setGamma(0.01));
    EXPECT_EQ(lut.currentGamma(), 2.0);

    // Constant 0.5: trunc(127.5); the ramp climbs 0 to 255; the double ramp
    // is opaque at both ends.
    lut.setOpacity({OPACITY_CONSTANT, 0.5, 0, 0});
    EXPECT_EQ(lut.alpha(10), 127);
    lut.setOpacity({OPACITY_RAMP, 1.0, 0, 0});
    EXPECT_EQ(lut.alpha(0), 0);
    EXPECT_EQ(lut.alpha(255), 255);
    lut.setOpacity({OPACITY_DOUBLE_RAMP, 1.0, 0, 0});
    EXPECT_EQ(lut.alpha(0), 255);
    EXPECT_EQ(lut.alpha(255), 255);
    EXPECT_FALSE(lut.setOpacity({4, 1.0, 0, 0}));

    unsigned int argb[256] = {0x80102030u};
    lut.setGamma(1.0);
    lut.setOpacity({OPACITY_NONE, 1.0, 0, 0});
    lut.setUserLUT(argb);
    EXPECT_EQ(lut.currentLUT(), 12);
    EXPECT_EQ(lut.red(0), 0x10);
    EXPECT_EQ(lut.blue(0), 0x30);
    EXPECT_EQ(lut.alpha(0), 0x80);

    unsigned char t[256];
    EXPECT_FALSE(PIVPLOT::CreateBitmapLUTExtra(13, t, t, t, false, 256, 1.0, 0.0));
    EXPECT_FALSE(PIVPLOT::CreateBitmapLUTExtra(0, nullptr, t, t, false, 256, 1.0, 0.0));
}

std::string readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

TEST(BitmapLutTest, UserFileRoundTripAndBadFiles) {
    const std::string dir = ::testing::TempDir();
    const std::string a = dir + "lut_a.txt", b = dir + "lut_b.txt", bad = dir + "lut_bad.txt";
    std::ostringstream text;
    text << "# Bitmap pseudocolor lookup table\n# Length = 256\n"
            "# Format: red green blue\n# Color range: 0-255\n";
    char row[32];
    for (int i = 0; i < 256; ++i) {
        std::snprintf(row, sizeof(row), "%3d %3d %3d\n", i, 255 - i, (7 * i) % 256);
        text << row;
    }
    std::ofstream(a, std::ios::binary) << text.str();

    BitmapLUT lut;
    ASSERT_TRUE(lut.load(a.c_str()));
    EXPECT_EQ(lut.currentLUT(), 12);
    EXPECT_EQ(lut.rgbValue(3), 0xff03fc15u);
    ASSERT_TRUE(lut.save(b.c_str()));
    EXPECT_EQ(readAll(b), text.str());

    const std::string missing = dir + "no_such_lut.txt";
    EXPECT_FALSE(lut.load(missing.c_str()));
    EXPECT_NE(std::string(lut.error().getLastError())
                  .find("BitmapLUT::load() - failed opening file: '" + missing + "'"),
              std::string::npos);

    std::string many;
    for (int i = 0; i < 300; ++i) many += "1,2;3\n";
    for (const auto& [content, reason] :
         {std::pair<std::string, std::string>{"10 20 30\nred green blue\n", "bad row 2"},
          {many, "more than 256 rows"}}) {
        std::ofstream(bad) << content;
        EXPECT_FALSE(lut.load(bad.c_str()));
        EXPECT_EQ(lut.error().getLastErrorCode(), PIVerror::INVALID_FILE_CONTENT);
        EXPECT_NE(std::string(lut.error().getLastError())
                      .find("BitmapLUT::load() - failed opening file: '" + bad + "'\n" + reason),
                  std::string::npos)
            << lut.error().getLastError();
        EXPECT_EQ(lut.rgbValue(3), 0xff03fc15u);  // the table survives each failure
    }

    EXPECT_FALSE(lut.save((dir + "no_dir/lut.txt").c_str()));
    std::remove(a.c_str());
    std::remove(b.c_str());
    std::remove(bad.c_str());
}

}  // namespace
