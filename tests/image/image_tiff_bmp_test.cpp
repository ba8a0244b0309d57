// TIFF and BMP files. The files under tests/data/image were written by
// libtiff-tools and netpbm from sources whose pixels follow the formulas in
// the README there; the expected values below come from those formulas.

#include "image_file_builders.h"
#include "image_format.h"
#include "image_test_support.h"

using namespace image_test;
using TiffFiles = ScratchFiles;

namespace {

// Format, type, width, height and frame count of a file under tests/data.
std::vector<int> Info(const char* file) {
    int format = 0, w = 0, h = 0, frames = 0;
    ImageType type = IMAGE_UNDEFINED;
    EXPECT_TRUE(Image2D::GetImageInfo(DataFile(file).c_str(), &format, &type, &w, &h, &frames));
    return {format, type, w, h, frames};
}

template <typename F>
std::vector<float> Expected(int w, int h, F f) {
    std::vector<float> v;
    for (int y = 0; y < h; y++)
        for (int x = 0; x < w; x++) v.push_back(static_cast<float>(f(x, y)));
    return v;
}

}  // namespace

TEST_F(TiffFiles, WrittenByIndependentTools) {
    struct Case {
        const char* file;
        int page;
        ImageType type;
        int w, h;
        std::function<int(int, int)> pixel;
    } cases[] = {
        // clang-format off
        {"gray8_strips.tif", 0, IMAGE_UINT8, 8, 4, [](int x, int y) { return 30 * y + 3 * x + 1; }},
        {"gray16_lzw.tif", 0, IMAGE_UINT16, 8, 4, [](int x, int y) { return 4000 * y + 300 * x + 7; }},
        {"gray8_gray16_pages.tif", 1, IMAGE_UINT16, 8, 4, [](int x, int y) { return 4000 * y + 300 * x + 7; }},
        {"gray4.tif", 0, IMAGE_UINT8, 8, 4, [](int x, int y) { return (x + 2 * y) % 16; }},
        // 12 bits end as a 16-bit image with values below 4096.
        {"gray12.tif", 0, IMAGE_UINT16, 8, 4, [](int x, int y) { return 500 * y + 120 * x + 5; }},
        // A clear bit is white (255) whatever the photometric tag says.
        {"bits16x3.tif", 0, IMAGE_UINT8, 16, 3, [](int x, int y) { return (x + y) % 3 == 0 ? 0 : 255; }},
        // Palette: (r + g + b) / 3 of the 16-bit entries divided by 257.
        {"palette8.tif", 0, IMAGE_UINT8, 8, 4, [](int x, int y) { return ((10 * x + 5) + (100 + 20 * y) + (200 + x + y)) / 3; }},
        // clang-format on
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        Image2D img;
        ASSERT_TRUE(img.load(DataFile(c.file), c.page)) << LastText(img);
        EXPECT_EQ(Shape(img), Shape(c.w, c.h, c.type));
        EXPECT_EQ(Pixels(img), Expected(c.w, c.h, c.pixel));
    }
}

// A page beyond the last is reported and the first one read; the pages
// split into numbered files.
TEST_F(TiffFiles, PagesImageInfoAndSequences) {
    Image2D first, missing;
    ASSERT_TRUE(first.load(DataFile("gray8_gray16_pages.tif"), 0));
    EXPECT_EQ(first.type(), IMAGE_UINT8);
    ASSERT_TRUE(missing.loadTIFF(DataFile("gray8_gray16_pages.tif").c_str(), 5));
    EXPECT_EQ(LastCode(missing), PIVerror::FILE_ACCESS_ERROR);
    EXPECT_TRUE(
        HasText(LastText(missing), "Page 5 in TIFF image cannot be accessed - defaulting to 0"));
    EXPECT_EQ(Pixels(missing), Pixels(first));
    EXPECT_EQ(Info("gray8_gray16_pages.tif"),
              (std::vector<int>{PIV::FORMAT_TIFF, IMAGE_UINT8, 8, 4, 2}));
    Image2D img;
    const std::string base = dir.file("seq");
    EXPECT_EQ(img.convertFromTIFFSequence(DataFile("gray8_gray16_pages.tif").c_str(), base.c_str(),
                                          7, 3, PIV::FORMAT_TIFF, 0),
              2);
    EXPECT_EQ(Pixels(Image2D(base + "_007.tif")),
              Expected(8, 4, [](int x, int y) { return 30 * y + 3 * x + 1; }));
}

// Colour and 2-bit files are refused as a failed operation of loadTIFF().
TEST_F(TiffFiles, RefusedKinds) {
    for (const auto& c :
         {std::make_pair("rgb8x4.tif", "Multisample (color) TIFF-images not supported!"),
          std::make_pair("gray2.tif", "2 bits per sample not supported")}) {
        SCOPED_TRACE(c.first);
        Image2D img;
        messages.lines().clear();
        EXPECT_EQ(FailCode(img, img.load(DataFile(c.first))), PIVerror::OPERATION_FAILED);
        EXPECT_TRUE(HasText(messages.all(), c.second));
    }
}

// libtiff's complaint about a file that is no TIFF ends our message in
// brackets instead of reaching stderr as a line nobody can tie to a file.
TEST_F(TiffFiles, LibtiffsReasonEndsTheMessageInsteadOfGoingToStderr) {
    WriteBytes(dir.file("fake.tif"), std::string("PNG is not TIFF at all"));
    Image2D img;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(img.loadTIFF(dir.file("fake.tif").c_str(), 0));
    const std::string printed = testing::internal::GetCapturedStderr();
    EXPECT_EQ(LastCode(img), PIVerror::FILE_OPEN_FAILED);
    EXPECT_TRUE(HasText(messages.all(), "trouble opening file '" + dir.file("fake.tif") + "' ("));
    EXPECT_TRUE(HasText(messages.all(), "magic number"));
    EXPECT_FALSE(HasText(printed, "magic number"));
}

// Every depth and compression comes back as written, without a temporary
// left behind; JPEG and CCITT are the exceptions.
TEST_F(TiffFiles, RoundTripsAtEveryDepthAndCompression) {
    struct Case {
        ImageType type;
        int mode, predictor;
    } cases[] = {
        {IMAGE_UINT8, 0, 1},  {IMAGE_UINT8, 3, 2}, {IMAGE_UINT8, 5, 1}, {IMAGE_UINT16, 4, 2},
        {IMAGE_UINT32, 3, 1}, {IMAGE_FLOAT, 0, 1}, {IMAGE_FLOAT, 3, 3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << "type " << c.type << " mode " << c.mode << " predictor " << c.predictor);
        // 37 columns: rows with padding, and more rows than one strip.
        Image2D img(37, 300, c.type);
        img.testPattern(c.type == IMAGE_FLOAT ? -3.25f : 1.0f, 3, 7);
        IMAGE_COMPRESSION compression;
        compression.mode = c.mode;
        compression.predictor = c.predictor;
        compression.deflateLevel = 6;
        img.setCompression(compression);
        const std::string path = dir.file("rt.tif");
        ASSERT_TRUE(img.saveTIFF(path.c_str())) << LastText(img);
        EXPECT_TRUE(Image2D(path) == img);
    }
    EXPECT_EQ(CountEntries(dir.path()), 1);

    // JPEG is lossy: a smooth 8-bit image comes back close, not equal.
    Image2D img =
        MakeImage(64, 64, IMAGE_UINT8, Expected(64, 64, [](int x, int y) { return 2 * x + y; }));
    IMAGE_COMPRESSION jpeg;
    jpeg.mode = 2;
    jpeg.jpegQuality = 95;
    img.setCompression(jpeg);
    ASSERT_TRUE(img.saveTIFF(dir.file("j.tif").c_str()));
    Image2D back(dir.file("j.tif"));
    ASSERT_EQ(back.width(), 64u);
    for (int y = 0; y < 64; y++)
        for (int x = 0; x < 64; x++) EXPECT_NEAR(back.pixel(x, y), img.pixel(x, y), 4.0f);

    // CCITT RLE encodes only 1-bit samples. libtiff refuses the first row of
    // an 8-bit image, the writer stops without an error, and the file it
    // leaves holds no pixel data: its one strip of 64 x 64 bytes has none.
    IMAGE_COMPRESSION ccitt;
    ccitt.mode = 1;
    img.setCompression(ccitt);
    EXPECT_TRUE(img.saveTIFF(dir.file("c.tif").c_str()));
    EXPECT_EQ(FailCode(back, back.load(dir.file("c.tif"))), PIVerror::FILE_READ_FAILED);
    EXPECT_TRUE(
        HasText(LastText(back), "declares 4096 bytes of pixel data in strip 0 but holds 0"));
}

TEST(BmpFiles, WrittenByNetpbm) {
    const auto blue = [](int x, int y) { return 200 + x + y; };
    const auto red = [](int x, int) { return 10 * x + 5; };
    struct Case {
        const char* file;
        int page;
        int w, h;
        std::vector<float> pixels;
    } cases[] = {
        // The table says black, white: a set bit is white.
        {"bits32x3.bmp", 0, 32, 3,
         Expected(32, 3, [](int x, int y) { return (x + y) % 3 == 0 ? 0 : 255; })},
        // 24 bits: page mod 3 picks blue, green or red (5: red).
        {"rgb8x4.bmp", 0, 8, 4, Expected(8, 4, blue)},
        {"rgb8x4.bmp", 5, 8, 4, Expected(8, 4, red)},
        // Rows of 9 bytes padded to 12 are read as if unpadded: the rows
        // slide, and the padding of the bottom row becomes the first pixel.
        {"rgb3x2.bmp", 0, 3, 2, {0, 200, 201, 201, 202, 203}},
        // The 4-bit rows are stored bottom row first and turned twice: the
        // picture ends upside down. Table entries are the greys 17v.
        {"gray4.bmp", 0, 16, 8,
         Expected(16, 8, [](int x, int y) { return 17 * ((x + 2 * (7 - y)) % 16); })},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.file << " page " << c.page);
        Image2D img;
        ASSERT_TRUE(img.load(DataFile(c.file), c.page)) << LastText(img);
        EXPECT_EQ(Shape(img), Shape(c.w, c.h, IMAGE_UINT8));
        EXPECT_EQ(Pixels(img), c.pixels);
    }
}

// 8-bit pixels are the table indices, not the greys the table gives them.
TEST(BmpFiles, EightBitPixelsAreTheIndices) {
    Image2D img;
    ASSERT_TRUE(img.load(DataFile("gray8.bmp")));
    const std::string bytes = ReadBytes(DataFile("gray8.bmp"));
    bool anyDiffers = false;
    for (int y = 0; y < 27; y++)
        for (int x = 0; x < 40; x++) {
            const int index = static_cast<int>(img.pixel(x, y));
            // Entry `index` of the table at byte 54: blue, green, red, 0.
            const int grey = static_cast<unsigned char>(bytes[54 + 4 * index]);
            EXPECT_EQ(grey, (7 * y + 3 * x + 1) % 256) << x << "," << y;
            anyDiffers |= index != grey;
        }
    EXPECT_TRUE(anyDiffers);
    EXPECT_EQ(Info("gray8.bmp"), (std::vector<int>{PIV::FORMAT_BMP, IMAGE_UINT8, 40, 27, 1}));
}

namespace {

// A BMP from the format tables: "BM", file size, two reserved words, data
// offset; then a 40-byte header (or the 12-byte old one), the colour table
// of 4-byte entries (blue, green, red, 0) and the rows as given.
struct Bmp {
    int32_t width = 8, height = 2;
    uint16_t bits = 8;
    uint32_t compression = 0, sizeImage = 0, colorsUsed = 0;
    int64_t dataOffset = -1;  // -1: right behind the table
    bool oldHeader = false;
    std::vector<uint32_t> table;  // 0x00RRGGBB
    std::string rows;

    std::string bytes() const {
        const uint32_t headerSize = oldHeader ? 12 : 40;
        std::string s(14 + headerSize, '\0');
        s[0] = 'B';
        s[1] = 'M';
        Put32(s, 14, headerSize);
        if (oldHeader) {
            Put16(s, 18, static_cast<uint16_t>(width));
            Put16(s, 20, static_cast<uint16_t>(height));
            Put16(s, 22, 1);
            Put16(s, 24, bits);
        } else {
            Put32(s, 18, static_cast<uint32_t>(width));
            Put32(s, 22, static_cast<uint32_t>(height));
            Put16(s, 26, 1);
            Put16(s, 28, bits);
            Put32(s, 30, compression);
            Put32(s, 34, sizeImage);
            Put32(s, 46, colorsUsed);
        }
        for (uint32_t c : table) {
            s += std::string(4, '\0');
            Put32(s, s.size() - 4, c);
        }
        Put32(s, 10, static_cast<uint32_t>(dataOffset < 0 ? s.size() : dataOffset));
        s += rows;
        Put32(s, 2, static_cast<uint32_t>(s.size()));
        return s;
    }
};

// Bytes 1, 2, ..., n.
std::string Ramp(int n) {
    std::string s;
    for (int i = 1; i <= n; i++) s.push_back(static_cast<char>(i));
    return s;
}
std::vector<float> Floats(const std::string& bytes) {
    std::vector<float> v;
    for (char c : bytes) v.push_back(static_cast<float>(static_cast<unsigned char>(c)));
    return v;
}

}  // namespace

TEST(BmpFiles, RulesOfTheHeaderAndTable) {
    ScratchDir dir;
    const std::vector<uint32_t> whiteBlack = {0xFFFFFF, 0x000000};
    std::vector<uint32_t> greys(256);
    for (int i = 0; i < 256; i++) greys[i] = 0x010101u * static_cast<uint32_t>(255 - i);
    // 1-bit: file row 0 (0x80 .. 0x01) is the bottom row, file row 1 (0xFF)
    // the top one; set bits are black.
    std::vector<float> oneBit(64, 255.0f);
    for (int x = 0; x < 8; x++) oneBit[x] = 0;
    oneBit[32] = oneBit[63] = 0;
    const std::vector<float> bottomUp =
        Floats(Ramp(24).substr(16) + Ramp(24).substr(8, 8) + Ramp(24).substr(0, 8));
    struct Case {
        const char* what;
        Bmp bmp;
        int code;  // NO_ERROR: loads to `pixels`
        std::vector<float> pixels;
        int w, h;
    } cases[] = {
        // clang-format off
        // White, black: the first entry is not darker, so a set bit is black.
        {"1-bit, white first", {32, 2, 1, 0, 0, 0, -1, false, whiteBlack, Bytes({0x80, 0, 0, 1, 0xFF, 0, 0, 0})}, PIVerror::NO_ERROR, oneBit, 32, 2},
        // A negative height is a top-down file: no flip.
        {"8-bit top-down", {8, -3, 8, 0, 0, 1, -1, false, {0}, Ramp(24)}, PIVerror::NO_ERROR, Floats(Ramp(24)), 8, 3},
        {"8-bit bottom-up", {8, 3, 8, 0, 0, 1, -1, false, {0}, Ramp(24)}, PIVerror::NO_ERROR, bottomUp, 8, 3},
        // The old 12-byte header: 16-bit sizes, then planes and depth.
        {"old header, 24-bit", {2, 1, 24, 0, 0, 0, -1, true, {}, Bytes({10, 20, 30, 40, 50, 60})}, PIVerror::NO_ERROR, {10, 40}, 2, 1},
        {"16-bit", {2, 2, 16, 0, 0, 0, -1, false, {}, std::string(8, '\1')}, PIVerror::IMAGE_TYPE_UNSUPPORTED, {}, 0, 0},
        {"RLE", {2, 2, 8, 1, 0, 0, -1, false, greys, std::string(8, '\1')}, PIVerror::IMAGE_TYPE_UNSUPPORTED, {}, 0, 0},
        // A data offset beyond w x h + header size: the pixels are taken
        // from byte 54, here the first table entries (blue bytes 255, 254).
        {"offset too far", {4, 1, 8, 0, 0, 0, 5000, false, greys, Bytes({1, 2, 3, 4})}, PIVerror::NO_ERROR, {255, 255, 255, 0}, 4, 1},
        // clang-format on
    };
    for (Case& c : cases) {
        SCOPED_TRACE(c.what);
        WriteBytes(dir.file("x.bmp"), c.bmp.bytes());
        Image2D img;
        const bool ok = img.load(dir.file("x.bmp"));
        EXPECT_EQ(ok, c.code == PIVerror::NO_ERROR) << LastText(img);
        EXPECT_EQ(LastCode(img), c.code);
        if (!ok) continue;
        EXPECT_EQ(Shape(img), Shape(c.w, c.h, IMAGE_UINT8));
        EXPECT_EQ(Pixels(img), c.pixels);
    }
}
