// Pixel arithmetic of Image2D: each case is two or three pixels whose
// results follow from the saturation or wrap rule of their type.

#include <cmath>

#include "image_test_support.h"

using namespace image_test;

namespace {

const ImageType U8 = IMAGE_UINT8, U16 = IMAGE_UINT16, U32 = IMAGE_UINT32, F = IMAGE_FLOAT;

using BinOp = bool (*)(Image2D&, const Image2D&);

// The operation against a one-row image of `type` and `other` pixels.
std::function<bool(Image2D&)> With(ImageType type, std::vector<float> other, BinOp op) {
    return [=](Image2D& img) {
        const Image2D b = MakeImage(static_cast<int>(other.size()), 1, type, other);
        return op(img, b);
    };
}

const BinOp Add = [](Image2D& a, const Image2D& b) { return a += b; };
const BinOp Sub = [](Image2D& a, const Image2D& b) { return a -= b; };
const BinOp Mul = [](Image2D& a, const Image2D& b) { return a *= b; };
const BinOp Div = [](Image2D& a, const Image2D& b) { return a /= b; };
const BinOp SubClip = [](Image2D& a, const Image2D& b) { return a.subtract(b, true); };
const BinOp SubWrap = [](Image2D& a, const Image2D& b) { return a.subtract(b, false); };
const BinOp MinOp = [](Image2D& a, const Image2D& b) { return a.minImage(b); };
const BinOp MaxOp = [](Image2D& a, const Image2D& b) { return a.maxImage(b); };
const BinOp Mask = [](Image2D& a, const Image2D& b) { return a.applyMask(b, false); };
const BinOp InvertedMask = [](Image2D& a, const Image2D& b) { return a.applyMask(b, true); };
const BinOp Valid = [](Image2D& a, const Image2D& b) { return a.getValidPixels(b, 9.9f, 15.7f); };

}  // namespace

// 8 and 16 bits saturate and stop at 0; 32 bits wrap when adding and
// multiplying (2^32 - 256 + 512 = 256) but stop at 0 when subtracting;
// division by 0 gives 0. A float source is truncated first (2.9 -> 2).
TEST(Image2DArithmetic, OperatorsBetweenImages) {
    // clang-format off
    RunOpCases({
        {"8-bit +", U8, {200, 10}, With(U8, {100, 20}, Add), {255, 30}},
        {"8-bit -", U8, {10, 30}, With(U8, {20, 10}, Sub), {0, 20}},
        {"8-bit *", U8, {20, 3}, With(U8, {20, 4}, Mul), {255, 12}},
        {"8-bit /", U8, {7, 7}, With(U8, {2, 0}, Div), {3, 0}},
        {"32-bit +", U32, {4294967040.0f, 5}, With(U32, {512, 1}, Add), {256, 6}},
        {"32-bit *", U32, {65536, 3}, With(U32, {65536, 3}, Mul), {0, 9}},
        {"float /", F, {1.5f, 1}, With(F, {0, 4}, Div), {0, 0.25f}},
        {"8-bit - 16-bit clip", U8, {10, 200}, With(U16, {20, 100}, SubClip), {0, 100}},
        {"8-bit - 16-bit wrap", U8, {10, 200}, With(U16, {20, 100}, SubWrap), {246, 100}},
        {"16-bit - float", U16, {5, 1000}, With(F, {2.9f, 1000.5f}, SubClip), {3, 0}},
        {"8-bit - negative float", U8, {1, 2}, With(F, {-1.5f, 0}, SubClip), {2, 2}},
        {"32-bit - 8-bit wrap", U32, {5, 100}, With(U8, {10, 1}, SubWrap), {0, 99}},
        {"minimum", U16, {1, 5}, With(U16, {3, 2}, MinOp), {1, 2}},
        {"maximum", U16, {1, 5}, With(U16, {3, 2}, MaxOp), {3, 5}},
        // A mask clears the pixels under 255, or inverted under 0.
        {"mask", U16, {1, 2, 3}, With(U8, {255, 0, 7}, Mask), {0, 2, 3}},
        {"inverted mask", U16, {1, 2, 3}, With(U8, {255, 0, 7}, InvertedMask), {1, 0, 3}},
        // An existing mask of the right size is narrowed, not replaced.
        {"valid pixels", U8, {255, 0, 255, 255}, With(U16, {5, 10, 15, 20}, Valid), {0, 0, 255, 0}},
        // 5 - (-inf) clips at the top; NaN truncates to 0, so 9 stays 9.
        {"16-bit - infinite float", U16, {5, 9}, With(F, {-INFINITY, NAN}, SubClip), {65535, 9}},
    });
    // clang-format on
}

TEST(Image2DArithmetic, OperatorsRefuseMismatchedImages) {
    Image2D a = MakeImage(2, 1, IMAGE_UINT8, {1, 2});
    EXPECT_EQ(FailCode(a, a += Image2D(3, 1, IMAGE_UINT8)), PIVerror::IMAGE_SIZE_MISMATCH);
    EXPECT_EQ(FailCode(a, a += Image2D(2, 1, IMAGE_UINT16)), PIVerror::IMAGE_SIZE_MISMATCH);
    EXPECT_EQ(FailCode(a, a += Image2D()), PIVerror::IMAGE_IS_NULL);
    EXPECT_EQ(FailCode(a, a *= a), PIVerror::OVERWRITE_OWN_DATA);
    EXPECT_EQ(Pixels(a), (std::vector<float>{1, 2}));
}

// Each operation on a row of pixels of one type.
TEST(Image2DArithmetic, OperationsOnOneImage) {
    // clang-format off
    RunOpCases({
        // operator*= works in float, truncates and clamps; 32 bits only at 0.
        {"8-bit *= 3", U8, {100, 2}, [](Image2D& i) { return i *= 3.0f; }, {255, 6}},
        {"32-bit *= -1", U32, {10, 0}, [](Image2D& i) { return i *= -1.0f; }, {0, 0}},
        // operator+= truncates the offset, clamps 8 and 16 bits, wraps 32.
        {"8-bit += 10.9", U8, {250, 1}, [](Image2D& i) { return i += 10.9f; }, {255, 11}},
        {"16-bit += -10", U16, {5, 65530}, [](Image2D& i) { return i += -10.0f; }, {0, 65520}},
        {"32-bit += -1", U32, {0, 5}, [](Image2D& i) { return i += -1.0f; }, {4294967295.0f, 4}},
        // bias without clip keeps the low bits: 260 & 255 = 4.
        {"8-bit bias wrap", U8, {250, 5}, [](Image2D& i) { return i.bias(10, false); }, {4, 15}},
        // Offsets of 1e20 are truncated to the widest integer the kernels
        // use; with clipping the result is the top or bottom of the type.
        {"8-bit bias 1e20", U8, {5, 200}, [](Image2D& i) { return i.bias(1e20, true); }, {255, 255}},
        {"16-bit += 1e20", U16, {5, 7}, [](Image2D& i) { return i += 1e20f; }, {65535, 65535}},
        // scale: 300 & 255 = 44; square: 32 bits wrap even with clip: 70000^2 - 2^32 = 605032704.
        {"8-bit scale wrap", U8, {100, 1}, [](Image2D& i) { return i.scale(3, false); }, {44, 3}},
        {"32-bit square", U32, {70000, 3}, [](Image2D& i) { return i.square(true); }, {605032704, 9}},
        // clipHigh on 8-bit images tests its limit against 65535, so 300
        // becomes its low byte 44; clipLow has no such quirk.
        {"8-bit clipHigh 300", U8, {10, 100, 250}, [](Image2D& i) { return i.clipHigh(300); }, {10, 44, 44}},
        {"8-bit clipHigh 70000", U8, {10, 100, 250}, [](Image2D& i) { return i.clipHigh(70000); }, {10, 100, 250}},
        {"8-bit clipLow 300", U8, {10, 100, 250}, [](Image2D& i) { return i.clipLow(300); }, {255, 255, 255}},
        {"32-bit clipHigh 3e9", U32, {3e9f, 5, 0}, [](Image2D& i) { return i.clipHigh(3e9); }, {2147483647.0f, 5, 0}},
        {"float clipRange", F, {-1, 0.5f, 2}, [](Image2D& i) { return i.clipRange(-0.5, 1.5); }, {-0.5f, 0.5f, 1.5f}},
        // sf = (high - low) / (max - min): 255 / 3 = 85 for 0..3.
        {"8-bit scaleToRange", U8, {0, 1, 2, 3}, [](Image2D& i) { return i.scaleToRange(0, 255); }, {0, 85, 170, 255}},
        // Integer negatives are (offset AND top, or the top for 0) - v,
        // wrapping: 300 AND 255 = 44 and 44 - 100 wraps to 200.
        {"8-bit negative", U8, {0, 100}, [](Image2D& i) { return i.negative(0); }, {255, 155}},
        {"8-bit negative 300", U8, {0, 100}, [](Image2D& i) { return i.negative(300); }, {44, 200}},
        {"32-bit negative", U32, {0, 1}, [](Image2D& i) { return i.negative(0); }, {2147483647.0f, 2147483646.0f}},
        {"32-bit negative 3", U32, {5, 1}, [](Image2D& i) { return i.negative(3); }, {4294967294.0f, 2}},
        {"float negative", F, {0.5f, 2}, [](Image2D& i) { return i.negative(1.5); }, {1, -0.5f}},
        // top * (clamp(v) / top)^(1/gamma) with top 100 and gamma 2: 25 -> 50.
        {"gamma", F, {0, 25, 100, 150, -5}, [](Image2D& i) { return i.gammaCorrection(2, 100); }, {0, 50, 100, 100, 0}},
        // normalize gives (v - 2) / (6 - 2) times its factor, as floats.
        {"normalize", U8, {2, 4, 6}, [](Image2D& i) { return i.normalize(0) && i.type() == IMAGE_FLOAT; }, {0, 0.5f, 1}},
        // A value beyond the table takes its last entry, as a float.
        {"table", U8, {0, 2, 255}, [](Image2D& i) { const float t[3] = {10, 20, 30}; return i.applyLUT(t, 3) && i.type() == IMAGE_FLOAT; }, {10, 30, 30}},
    });
    // clang-format on
}

// 0xFFFFFFFF / 1 would be 4294967295; the clip limit of 32-bit images is
// 2^31 - 1. A negative of a huge offset wraps, but is defined.
TEST(Image2DArithmetic, ThirtyTwoBitExtremes) {
    Image2D a(1, 1, IMAGE_UINT32), one(1, 1, IMAGE_UINT32);
    a.scanLine<uint32_t>(0)[0] = 0xFFFFFFFFu;
    one.scanLine<uint32_t>(0)[0] = 1;
    ASSERT_TRUE(a /= one);
    EXPECT_EQ(a.scanLine<uint32_t>(0)[0], 2147483647u);
    EXPECT_TRUE(a.negative(-1e20));
}

TEST(Image2DArithmetic, SquaredSizesANullDestinationFromTheSource) {
    Image2D dst;
    ASSERT_TRUE(dst.squared(MakeImage(2, 1, IMAGE_UINT8, {3, 20}), true));
    EXPECT_EQ(Pixels(dst), (std::vector<float>{9, 255}));
}

// A null destination becomes zeros of the source's size and type; with clip
// that is the result, without it the source is then subtracted and wraps.
TEST(Image2DArithmetic, SubtractIntoANullImage) {
    const Image2D src = MakeImage(2, 1, IMAGE_UINT8, {1, 0});
    Image2D clipped, wrapped;
    ASSERT_TRUE(clipped.subtract(src, true));
    EXPECT_EQ(Pixels(clipped), (std::vector<float>{0, 0}));
    ASSERT_TRUE(wrapped.subtract(src, false));
    EXPECT_EQ(Pixels(wrapped), (std::vector<float>{255, 0}));

    EXPECT_EQ(FailCode(wrapped, wrapped.subtract(Image2D(), true)), PIVerror::IMAGE_IS_NULL);
    EXPECT_EQ(FailCode(wrapped, wrapped.subtract(Image2D(3, 1, IMAGE_UINT8), true)),
              PIVerror::IMAGE_SIZE_MISMATCH);
}

// A null target becomes a valid-pixel mask (limits 9.9 and 15.7 truncate to
// 9 and 15: of 5, 10, 15, 20 the middle two stay valid). A mask of another
// size is refused.
TEST(Image2DArithmetic, NewImagesAndRefusals) {
    Image2D valid, word(2, 1, IMAGE_UINT16);
    ASSERT_TRUE(valid.getValidPixels(MakeImage(4, 1, IMAGE_UINT16, {5, 10, 15, 20}), 9.9f, 15.7f));
    EXPECT_EQ(Pixels(valid), (std::vector<float>{0, 255, 255, 0}));
    EXPECT_EQ(FailCode(word, word.applyMask(Image2D(3, 1, IMAGE_UINT8), false)),
              PIVerror::IMAGE_SIZE_MISMATCH);
}
