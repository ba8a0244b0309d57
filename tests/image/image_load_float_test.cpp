// Frames read straight into float against frames read as stored and made
// float afterwards: the same pixels to the bit, statistics and state.
#include <cstring>
#include <tuple>

#include "hwy/targets.h"
#include "image2d_convert_simd.h"
#include "image_test_support.h"

using namespace image_test;

// Rows that end inside, on and after a vector, on every target the CPU has;
// the float one past each row stays untouched.
TEST(WidenRow, EveryTargetAgreesWithThePlainLoop) {
    for (size_t n : {1, 7, 33, 1023}) {
        std::vector<uint8_t> a(n);
        std::vector<uint16_t> b(n);
        for (size_t i = 0; i < n; i++) a[i] = uint8_t(255 - i), b[i] = uint16_t(65535 - 97 * i);
        std::vector<float> plain(2 * n + 2, -1.0f);
        PIV::Simd::WidenRowPlain(a.data(), n, &plain[0]);
        PIV::Simd::WidenRowPlain(b.data(), n, &plain[n + 1]);
        for (int64_t target : hwy::SupportedAndGeneratedTargets()) {
            SCOPED_TRACE(testing::Message() << n << " pixels, " << hwy::TargetName(target));
            hwy::SetSupportedTargetsForTest(target);
            std::vector<float> got(2 * n + 2, -1.0f);
            PIV::Simd::WidenRow(a.data(), n, &got[0]);
            PIV::Simd::WidenRow(b.data(), n, &got[n + 1]);
            EXPECT_EQ(got, plain);
        }
        hwy::SetSupportedTargetsForTest(0);
    }
}

namespace {

// The flags before the statistics, which clear the need for them.
auto State(Image2D& img) {
    const auto flags = std::make_tuple(Shape(img), img.fileFormat(), std::string(img.fileName()),
                                       img.needsStatistics(), img.isChanged(), img.fileFrames(),
                                       img.currentPage());
    return std::tuple_cat(
        flags, std::make_tuple(img.mean(), img.variance(), img.minimum(), img.maximum()));
}

}  // namespace

// 8 and 16-bit TIFF and PGM files and 16-bit PCO files (of 128 bytes at
// least, what the reader takes for the header) of odd widths, holding 0 and
// the top of the range; the mean is the exact mean of the pixels written.
TEST(LoadAsFloat, SameFrameAsLoadThenToFloat) {
    ScratchDir dir;
    const std::pair<int, const char*> formats[] = {
        {PIV::FORMAT_TIFF, ".tif"}, {PIV::FORMAT_PGM, ".pgm"}, {PIV::FORMAT_PCO, ".b16"}};
    for (ImageType type : {IMAGE_UINT8, IMAGE_UINT16})
        for (const auto& [format, extension] : formats)
            for (int w : {1, 7, 33, 1023}) {
                if (format == PIV::FORMAT_PCO && (type == IMAGE_UINT8 || w < 33)) continue;
                const int h = 3, top = type == IMAGE_UINT8 ? 255 : 65535;
                Image2D src(w, h, type);
                double sum = 0.0;
                for (int y = 0; y < h; y++)
                    for (int x = 0; x < w; x++) {
                        const int v = (x + y) % 2 ? top : (97 * x + 31 * y) % top;
                        src.setPixel(x, y, float(v));
                        sum += v;
                    }
                const std::string path =
                    dir.file("f" + std::to_string(w) + "_" + std::to_string(type) + extension);
                SCOPED_TRACE(path);
                ASSERT_TRUE(src.save(path.c_str(), format));
                Image2D old, fresh;
                ASSERT_TRUE(old.load(path) && old.toFloat());
                ASSERT_TRUE(fresh.loadAsFloat(path.c_str()));
                for (int y = 0; y < h; y++)
                    EXPECT_EQ(0, std::memcmp(old.scanLine<float>(y), fresh.scanLine<float>(y),
                                             4 * size_t(w)));
                EXPECT_EQ(State(fresh), State(old));
                EXPECT_EQ(fresh.mean(), sum / (w * h));
            }
}

// A series of frames of one size: the second load writes over the first.
TEST(LoadAsFloat, FramesOfOneSizeKeepTheirBlock) {
    ScratchDir dir;
    const std::string a = dir.file("a.tif"), b = dir.file("b.tif");
    ASSERT_TRUE(Filled(1024, 1024, IMAGE_UINT8, 3).saveTIFF(a.c_str()));
    ASSERT_TRUE(Filled(1024, 1024, IMAGE_UINT8, 7).saveTIFF(b.c_str()));
    Image2D frame;
    ASSERT_TRUE(frame.loadAsFloat(a.c_str()));
    const uint8_t* block = frame.bits();
    ASSERT_TRUE(frame.loadAsFloat(b.c_str()));
    EXPECT_EQ(block, frame.bits());
    EXPECT_EQ(7.0f, frame.pixel(1023, 1023));
}

// A Deflate strip whose stream is broken fails after the frame is
// allocated: both ways give the same code and leave an 8-bit frame.
TEST(LoadAsFloat, BrokenStripFailsAsLoadDoes) {
    ScratchDir dir;
    const std::string path = dir.file("broken.tif");
    Image2D src = Filled(64, 64, IMAGE_UINT8, 9);
    src.setFlagCompressionEnabled(true);
    ASSERT_TRUE(src.saveTIFF(path.c_str()));
    std::string bytes = ReadBytes(path);
    bytes.replace(8, 4, "\xff\xff\xff\xff");  // the first strip follows the header
    WriteBytes(path, bytes);
    Image2D old, fresh;
    ASSERT_FALSE(old.load(path));
    ASSERT_FALSE(fresh.loadAsFloat(path.c_str()));
    EXPECT_EQ(LastCode(fresh), LastCode(old));
    EXPECT_EQ(Shape(fresh), Shape(old));
    EXPECT_EQ(Shape(64, 64, IMAGE_UINT8), Shape(fresh));
}
