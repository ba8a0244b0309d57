// The plot configuration file and the scalar bitmap of a field.
#include <gtest/gtest.h>
#include <cmath>

#include <cstring>
#include <string>

#include "field_grids.h"
#include "image2d.h"
#include "message_capture.h"
#include "piv_plot.h"
#include "scratch_files.h"

using namespace PIVPLOT;
using test_support::ReadBytes;
using test_support::ScratchDir;
using test_support::WriteBytes;

TEST(PlotFile, WrittenAndReadBackGivesTheSameRecordAndFile) {
    PLOT_CFG cfg;
    cfg.StackingOrder = 3;
    std::strcpy(cfg.Font, "Sans, 9");
    std::strcpy(cfg.title.Text, "Jet at 3 m/s");
    cfg.image.opacity.Opacity = 0.25;
    cfg.vector.lut.Wrap = true;
    cfg.vector.Stretch = 2.5;
    cfg.contour.lut.ValueMax = -1.75;
    std::strcpy(cfg.yAxis.PhysTitle, "y [mm]");
    cfg.colors.DataArea = 0xff102030u;
    ScratchDir dir;
    ASSERT_TRUE(SavePivPlotConfigurationASCII(dir.file("a.cfg").c_str(), &cfg));
    PLOT_CFG read;
    ASSERT_TRUE(LoadPivPlotConfigurationASCII(dir.file("a.cfg").c_str(), &read));
    EXPECT_EQ(0, std::memcmp(&cfg, &read, sizeof cfg));
    ASSERT_TRUE(SavePivPlotConfigurationASCII(dir.file("b.cfg").c_str(), &read));
    const std::string text = ReadBytes(dir.file("a.cfg"));
    EXPECT_EQ(text, ReadBytes(dir.file("b.cfg")));
    EXPECT_EQ(0u, text.find("#!PIV% 3.60\n"));
    for (const char* line :
         {"[---- Annontation: SubTitle ----]\n", "Vector_LUT_Wrap", "YAxis_PhysTitle"})
        EXPECT_NE(std::string::npos, text.find(line)) << line;
}

TEST(PlotFile, KeysAFileLacksKeepTheirValues) {
    ScratchDir dir;
    WriteBytes(dir.file("p.cfg"), "# partial\nVector_Stretch = 4.5\nContour_LUT_Levels = 12\n");
    PLOT_CFG cfg, expected;
    cfg.contour.FillValue = expected.contour.FillValue = 7.0;
    cfg.vector.lut.Levels = expected.vector.lut.Levels = 64;
    expected.vector.Stretch = 4.5;
    expected.contour.lut.Levels = 12;
    ASSERT_TRUE(LoadPivPlotConfigurationASCII(dir.file("p.cfg").c_str(), &cfg));
    EXPECT_EQ(0, std::memcmp(&cfg, &expected, sizeof cfg));
    MessageCapture quiet;
    EXPECT_FALSE(LoadPivPlotConfigurationASCII(dir.file("none.cfg").c_str(), &cfg));
}

namespace {
// 2 x 2 nodes at pixels x, y = 4 and 8 of a 12 x 12 image; dx is 0 and 8 on
// the upper image row of nodes, 16 and 24 on the lower, so inside the cell
// the value at pixel (4 + x, 4 + y) is 2x + 4y.
struct ScalarField {
    PIV_Data2D field{field_test::gridOf(2, 2, 4)};
    CONTOUR_CFG cfg;
    uint8_t bits[12 * 12];
    ScalarField() {
        const float dx[2][2] = {{0, 8}, {16, 24}};
        for (int r = 0; r < 2; r++)
            for (int c = 0; c < 2; c++) field.pivVector(c, r)->dx = dx[r][c];
        cfg.Coding = CC_X_COMPONENT;
        cfg.lut.ValueMax = 21;
        cfg.lut.PalLength = 8;  // top index 7, three units an index
        cfg.FillValue = 7;      // index 2 off the nodes
    }
    int at(int x, int y) const { return bits[y * 12 + x]; }
};
}  // namespace

TEST(ScalarBitmap, BlendsCornersIntoTableIndices) {
    for (bool wrap : {false, true}) {
        ScalarField f;
        f.cfg.lut.Wrap = wrap;
        ASSERT_TRUE(_CreateScalarBitmap(&f.field, f.bits, SIZE2D{12, 12}, 12, f.cfg));
        EXPECT_EQ(2, f.at(0, 0));  // fill
        EXPECT_EQ(3, f.at(5, 6));  // 2 + 8 = 10 -> 3
        EXPECT_EQ(6, f.at(7, 7));  // 6 + 12 = 18 -> 6
        // 24 lies above the maximum 21: the top index, or 24 / 3 = 8 = P -> 0.
        EXPECT_EQ(wrap ? 0 : 7, f.at(8, 8));
    }
}

TEST(ScalarBitmap, DataAreaImageSpansTheNodes) {
    ScalarField f;
    f.cfg.DataAreaOnly = true;
    Image2D image;
    ASSERT_TRUE(f.field.createScalarImage(&image, f.cfg));
    ASSERT_EQ(5u, image.width());                              // pixels 4 to 8
    EXPECT_EQ(3, image.bits()[2 * image.bytesPerLine() + 1]);  // pixel (5, 6) above
    EXPECT_EQ(7, image.bits()[4 * image.bytesPerLine() + 4]);
}

TEST(ScalarBitmap, RefusesWithAText) {
    struct Case {
        void (*spoil)(ScalarField&, PIV_Data2D**, int*);
        const char* text;
    };
    const Case cases[] = {
        {[](ScalarField&, PIV_Data2D** d, int*) { *d = nullptr; }, "no data available, BMP=0x"},
        {[](ScalarField& f, PIV_Data2D**, int*) { f.cfg.Coding = CC_VORTICITY; },
         "no differentials available"},
        {[](ScalarField&, PIV_Data2D**, int* b) { *b = 11; },
         "image size mismatch\nImage width=12 > 11 bytes per line"},
        {[](ScalarField& f, PIV_Data2D**, int*) { f.cfg.lut.ValueMin = 21; }, "min == maxvalue"},
        {[](ScalarField& f, PIV_Data2D**, int*) { f.cfg.lut.PalLength = 0; }, "Palette length<1"},
        {[](ScalarField& f, PIV_Data2D**, int*) { f.cfg.lut.ValueMax = NAN; },
         "value range 0 to nan is not finite"},
        {[](ScalarField& f, PIV_Data2D**, int*) { f.cfg.Coding = 23; }, "unknown coding 23"},
    };
    for (const Case& c : cases) {
        ScalarField f;
        PIV_Data2D* data = &f.field;
        int bytesPerLine = 12;
        c.spoil(f, &data, &bytesPerLine);
        DebugLevelScope level(1);
        MessageCapture capture;
        EXPECT_FALSE(_CreateScalarBitmap(data, f.bits, SIZE2D{12, 12}, bytesPerLine, f.cfg));
        EXPECT_NE(std::string::npos,
                  capture.all().find(std::string("CreateScalarBitmap() - ") + c.text))
            << capture.all();
    }
    PIV_Data2D row(field_test::gridOf(2, 1, 4));
    ScalarField f;
    DebugLevelScope level(1);
    MessageCapture capture;
    EXPECT_FALSE(_CreateScalarBitmap(&row, f.bits, SIZE2D{12, 12}, 12, f.cfg));
    EXPECT_NE(std::string::npos, capture.all().find("insufficient points in data"));
}
