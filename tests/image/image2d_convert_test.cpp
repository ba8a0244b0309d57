// Type changes of Image2D, one pixel per case of the conversion table.

#include "image_test_support.h"

using namespace image_test;

namespace {

const ImageType U8 = IMAGE_UINT8, U16 = IMAGE_UINT16, U32 = IMAGE_UINT32, F = IMAGE_FLOAT;

bool ConvertTo(Image2D& img, ImageType type, bool clip) {
    switch (type) {
        case IMAGE_UINT8:
            return img.to8Bit(clip);
        case IMAGE_UINT16:
            return img.to16Bit(clip);
        case IMAGE_UINT32:
            return img.to32Bit(clip);
        default:
            return img.toFloat();
    }
}

// Sets a 32-bit pixel exactly; floats cannot carry every 32-bit value.
Image2D OnePixel(ImageType type, double value) {
    Image2D img(1, 1, type);
    if (type == IMAGE_UINT32)
        img.scanLine<uint32_t>(0)[0] = static_cast<uint32_t>(value);
    else
        img.setPixel(0, 0, static_cast<float>(value));
    return img;
}

}  // namespace

// Without clip integer targets keep the low bits: 300 -> 44 (300 - 256),
// 70000 -> 112 (0x11170 AND 0xFF) or 4464 (70000 - 65536),
// 5e9 -> 705032704 (5e9 - 2^32), -3 -> 2^32 - 3.
TEST(Image2DConvert, ConversionTable) {
    struct Case {
        ImageType from;
        double value;
        ImageType to;
        bool clip;
        double expected;
        // clang-format off
    } cases[] = {
        {U16, 300, U8, true, 255},           {U16, 300, U8, false, 44},
        {F, -5.5, U8, true, 0},              {F, -5.5, U8, false, 0},
        {F, 3.9, U8, true, 3},               {F, 300.5, U8, true, 255},
        {F, 300.5, U8, false, 44},           {U8, 200, U16, false, 200},
        {F, 70000.7, U16, true, 65535},      {U32, 70000, U16, false, 4464},
        {F, -3, U32, true, 0},               {F, 3e9, U32, true, 2147483648.0},
        {F, 5e9, U32, false, 705032704},     {F, -3, U32, false, 4294967293.0},
        {U32, 70000, U8, false, 112},
        {U32, 4294967295.0, F, true, 4294967296.0},  // the nearest float
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.from << " " << c.value << " -> " << c.to
                                        << (c.clip ? " clip" : " no clip"));
        Image2D img = OnePixel(c.from, c.value);
        ASSERT_TRUE(ConvertTo(img, c.to, c.clip));
        ASSERT_EQ(img.type(), c.to);
        if (c.to == IMAGE_UINT32)
            EXPECT_EQ(img.scanLine<uint32_t>(0)[0], static_cast<uint32_t>(c.expected));
        else
            EXPECT_EQ(img.pixel(0, 0), static_cast<float>(c.expected));
    }
}

TEST(Image2DConvert, ConversionKeepsGeometryAndSetsTheFlagsOrIsRefused) {
    Image2D img = MakeImage(5, 2, IMAGE_UINT8, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
    img.doStatistics(true);
    img.setFlagChanged(false);
    ASSERT_TRUE(img.convertToType(IMAGE_FLOAT));
    EXPECT_EQ(Shape(img), Shape(5, 2, IMAGE_FLOAT));
    EXPECT_TRUE(img.needsStatistics() && img.isChanged());
    ASSERT_TRUE(img.convertDepth(IMAGE_UINT16));
    EXPECT_EQ(Pixels(img), (std::vector<float>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));

    Image2D empty;
    EXPECT_EQ(FailCode(empty, empty.toFloat()), PIVerror::IMAGE_TYPE_UNSUPPORTED);
    EXPECT_EQ(FailCode(empty, empty.to8Bit(true)), PIVerror::IMAGE_IS_NULL);
    EXPECT_EQ(FailCode(empty, empty.convertToType(IMAGE_UINT16)), PIVerror::IMAGE_IS_NULL);
    EXPECT_EQ(FailCode(img, img.convertToType(static_cast<ImageType>(12))),
              PIVerror::IMAGE_TYPE_UNSUPPORTED);
    EXPECT_EQ(img.type(), IMAGE_UINT16);
}
