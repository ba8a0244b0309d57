// Dewarping a synthetic calibration target: after resampling through the
// mapping that made it, every dot must sit on its grid node.

#include <cmath>

#include "dot_grid.h"
#include "image2d_map2d.h"
#include "image_test_support.h"

using namespace image_test;

constexpr int kDest = 320, kSource = 360;

TEST(Image2D_Map2D, DotsLandOnTheirNodes) {
    const std::vector<FPOINT2D> nodes = dot_grid::GridNodes(kDest);
    struct Case {
        const char* name;
        MAPPING_FXN_2D map;
        int method, degree;
    };
    // B-spline 4 on both maps runs through the loader in the dewarp tests.
    const Case cases[] = {{"perspective, B-spline 3", dot_grid::Perspective(kDest, kDest), 2, 3},
                          {"barrel, bilinear", dot_grid::Barrel(kDest, kDest), 3, 2}};
    for (const Case& c : cases) {
        const Image2D recorded = dot_grid::Render(kSource, kSource, c.map, nodes);
        Image2D_Map2D mapper;
        mapper.setMappingFunction(c.map);
        mapper.setInterpolationMethod(c.method, c.degree);
        Image2D dewarped;
        ASSERT_TRUE(mapper.mapImage(recorded, dewarped, false, false)) << c.name;
        EXPECT_EQ(Shape(dewarped), Shape(kDest, kDest, IMAGE_FLOAT));
        const double worst = dot_grid::WorstCentroidError(dewarped, nodes);
        // Bilinear interpolation blurs a little but keeps the dot symmetric.
        EXPECT_LT(worst, 0.05) << c.name;
    }
}

TEST(Image2D_Map2D, OutsideTheSourceIsDarkOrMaskedAndBadInputIsRefused) {
    // A pure shift by 100 px: the right part of the destination sees nothing.
    MAPPING_FXN_2D shift;
    shift.setOrder(0);
    shift.px[0] = 100.0;
    shift.dest_img_width = 64;
    shift.dest_img_height = 8;
    const Image2D source = Filled(128, 8, IMAGE_UINT8, 50);
    Image2D_Map2D mapper;
    mapper.setMappingFunction(shift);
    mapper.setInterpolationMethod(3, 2);
    Image2D dest, mask;
    ASSERT_TRUE(mapper.mapImageAndCreateMask(source, dest, mask, false));
    // Pixel 27 reads source column 127 (inside), 28 reads 128 (outside).
    EXPECT_FLOAT_EQ(dest.pixel(20, 4), 50.0f);
    EXPECT_FLOAT_EQ(dest.pixel(30, 4), 0.0f);
    EXPECT_EQ(std::vector<float>({mask.pixel(27, 4), mask.pixel(28, 4)}),
              std::vector<float>({0, 255}));
    ASSERT_TRUE(mapper.mapImage(source, dest, true, false));
    EXPECT_FLOAT_EQ(dest.pixel(40, 4), 255.0f);
    ASSERT_TRUE(mapper.createMask(mask, source.size2D(), true));
    EXPECT_EQ(std::vector<float>({mask.pixel(27, 4), mask.pixel(28, 4)}),
              std::vector<float>({255, 0}));
    Messages messages;
    EXPECT_EQ(FailCode(mapper, mapper.mapImage(Image2D(), dest, false, false)),
              PIVerror::IMAGE_IS_NULL);
    EXPECT_TRUE(HasText(messages.all(), "mapImage() - no data in source image"));
    shift.dest_img_width = 0;
    mapper.setMappingFunction(shift);
    EXPECT_EQ(FailCode(mapper, mapper.mapImage(source, dest, false, false)),
              PIVerror::ALLOCATION_FAILED);
}
