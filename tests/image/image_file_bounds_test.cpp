// Headers that claim more than their file holds: a file holding at least
// half of its declared pixel data loads with the rest as 0; anything less is
// refused with error 30 and a message naming the file and both sizes.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <string>

#include "image2d.h"
#include "image_file_builders.h"
#include "image_test_support.h"
#include "piv_file_bounds.h"

using namespace image_test;
using PIV::FileBounds::Fit;
using testing::IsSubstring;

namespace {

// Peak resident size of this process so far, in MB.
long PeakRssMb() {
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;
}

using FileBounds = ScratchFiles;
using PixelLimit = ScratchFiles;

}  // namespace

TEST_F(FileBounds, HalfOfTheDeclaredBytesIsTheLine) {
    struct Case {
        uint64_t declared, available;
        bool compressed;
        Fit fit;
    } cases[] = {
        {100, 50, false, Fit::SHORT},
        {100, 49, false, Fit::REFUSED},
        {101, 50, false, Fit::REFUSED},  // half rounds up
        {0, 0, false, Fit::WHOLE},
        // Compressed data may expand 1:1000, no more.
        {1000, 1, true, Fit::WHOLE},
        {1001, 1, true, Fit::REFUSED},
        {UINT64_MAX, UINT64_MAX / 2, true, Fit::WHOLE},  // no overflow in the product
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.declared << " of " << c.available);
        EXPECT_EQ(PIV::FileBounds::Judge(c.declared, c.available, c.compressed), c.fit);
    }
}

// 10 x 10 bytes of which the file holds 60: rows 6 to 9 read as 0. Text
// samples need a character and a separator each: 2 x 3 x 3 - 1 = 17
// characters at the least for 3 x 3 grey samples.
TEST_F(FileBounds, PgmHoldingHalfLoadsWithItsWarning) {
    const std::string path = dir.file("cut.pgm");
    WriteBytes(path, "P5 10 10\n255\n" + std::string(60, '\x07'));
    Image2D img;
    ASSERT_TRUE(img.load(path.c_str())) << LastText(img);
    EXPECT_EQ(Shape(img), Shape(10, 10, IMAGE_UINT8));
    EXPECT_EQ(std::vector<float>({img.pixel(9, 5), img.pixel(0, 6)}), std::vector<float>({7, 0}));
    EXPECT_PRED_FORMAT2(IsSubstring, "holds 60 of 100 bytes of pixel data; the rest reads as 0",
                        messages.all());
    WriteBytes(path, "P2 3 3 255\n1 2 3 4 5");  // 9 characters: more than half
    ASSERT_TRUE(img.load(path.c_str())) << LastText(img);
    EXPECT_EQ(std::vector<float>({img.pixel(1, 1), img.pixel(2, 2)}), std::vector<float>({5, 0}));
    WriteBytes(path, "P2 3 3 255\n1 2 3");  // 5 characters
    EXPECT_FALSE(img.load(path.c_str()));
    EXPECT_PRED_FORMAT2(IsSubstring, "declares 17 bytes of pixel data but holds 5", LastText(img));
}

// A small valid file of each reader whose header claims far more: before the
// check such files loaded after seconds with gigabytes resident.
TEST_F(FileBounds, InflatedHeadersOfEveryFormatAreRefused) {
    std::string bmp = ReadBytes(DataFile("rgb8x4.bmp"));
    Put32(bmp, 18, 30000);  // width and height of the info header
    Put32(bmp, 22, 30000);
    // Found by fuzzing: a 1-bit file whose header gives no image size took
    // its size from width and height alone; 32 pixels a row are 4 bytes.
    std::string bits = ReadBytes(DataFile("bits32x3.bmp"));
    Put32(bits, 22, 956302343);
    Put32(bits, 34, 0);
    std::string pco = Pco(8, 8);             // the reader wants 128 header bytes
    Put32(pco, 4, 24 + 2 * 30000 * 30000u);  // a consistent file size field
    Put32(pco, 12, 30000);
    Put32(pco, 16, 30000);
    std::string tif = ReadBytes(DataFile("gray8_strips.tif"));
    SetTiffSize(tif, 40000, 40000);
    std::string lzw = ReadBytes(DataFile("gray16_lzw.tif"));
    SetTiffSize(lzw, 40000, 40000);
    // The old packed form gives at most two values per byte, Deflate at
    // most 1000 bytes per byte.
    const std::string words(64, '\x01');
    struct Case {
        const char* what;
        std::string bytes;
        const char* text;
    } cases[] = {
        // 65536 x 65536 samples of two bytes (maxval above 255).
        {"pgm 16-bit", "P5 65536 65536\n65535\n\x01\x02",
         "declares 8589934592 bytes of pixel data but holds 2"},
        {"pgm 8-bit", "P5 30000 30000\n255\nab",
         "declares 900000000 bytes of pixel data but holds 2"},
        {"bmp 24-bit", bmp, "declares 2700000000 bytes of pixel data but holds 96"},
        {"bmp 1-bit", bits, "declares 3825209372 bytes of pixel data"},
        {"pco", pco, "declares 1800000000 bytes of pixel data but holds 128"},
        {"tiff plain", tif, "declares 1600000000 bytes of pixel data"},
        {"tiff lzw", lzw, "declares 3200000000 bytes of pixel data"},
        {"im7 plain", Im7(0, words, 30000, 30000),
         "declares 1800000000 bytes of pixel data but holds 64"},
        {"im7 deflate", Im7(2, words, 30000, 30000),
         "declares 1800000000 bytes of pixel data but holds 64 (compressed"},
        {"im7 12-bit", Im7(3, words, 30000, 30000),
         "declares 1350000000 bytes of pixel data but holds 64"},
        {"imx old packed", Imx(19, 30000, 30000, words),
         "declares 1800000000 bytes of pixel data but holds 64"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const std::string path = dir.file("inflated");
        const long before = PeakRssMb();
        WriteBytes(path, c.bytes);
        Image2D img;
        EXPECT_EQ(FailCode(img, img.load(path.c_str())), PIVerror::FILE_READ_FAILED);
        EXPECT_PRED_FORMAT2(IsSubstring, c.text, LastText(img));
        EXPECT_PRED_FORMAT2(IsSubstring, path, LastText(img));
        EXPECT_TRUE(img.isNull());
        EXPECT_LT(PeakRssMb() - before, 64);
    }
}

// A Deflate stream that expands to less than the header declares follows
// the rule of a short file. The streams are zlib.compress of the words
// 1, 2, 3, ... of a frame of 3 x 4 words: 24 bytes declared.
TEST_F(FileBounds, DeflateStreamsShorterThanTheFrame) {
    const std::string path = dir.file("short.im7");
    struct Case {
        const char* what;
        std::string stream;
        int code;            // NO_ERROR: the load succeeds
        float lastRowFirst;  // pixel (0, 3) when it loads
        bool warned;
    } cases[] = {
        {"24 bytes: the whole frame",
         std::string("\x78\x9c\x05\xc1\x87\x01\x00\x20\x08\x00\x20\x9a\x56\xfa\xff\xbd\x41\xd3"
                     "\x0d\xd3\xb2\x85\xe3\x7a\x52\xf9\x02\xf0\x00\x4f",
                     30),
         PIVerror::NO_ERROR, 10.0f, false},
        {"12 bytes: half of it",
         std::string("\x78\x9c\x63\x64\x60\x62\x60\x66\x60\x61\x60\x65\x60\x63\x00\x00\x00\x7c"
                     "\x00\x16",
                     20),
         PIVerror::NO_ERROR, 0.0f, true},
        {"6 bytes: a quarter",
         std::string("\x78\x9c\x63\x64\x60\x62\x60\x66\x00\x00\x00\x1a\x00\x07", 14),
         PIVerror::FILE_READ_FAILED, 0.0f, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::string length(8, '\0');
        Put32(length, 0, static_cast<uint32_t>(c.stream.size()));
        WriteBytes(path, Im7(2, length + c.stream, 3, 4));
        messages.lines().clear();
        Image2D img;
        EXPECT_EQ(img.load(path), c.code == PIVerror::NO_ERROR) << LastText(img);
        EXPECT_EQ(LastCode(img), c.code);
        const std::string said = messages.all();
        EXPECT_EQ(said.find("holds 12 of 24 bytes of pixel data") != std::string::npos, c.warned)
            << said;
        if (c.code != PIVerror::NO_ERROR) {
            EXPECT_PRED_FORMAT2(IsSubstring, "declares 24 bytes of pixel data but holds 6",
                                LastText(img));
            continue;
        }
        ASSERT_EQ(Shape(img), Shape(3, 4, IMAGE_UINT16));
        EXPECT_EQ(std::vector<float>({img.pixel(0, 0), img.pixel(2, 1), img.pixel(0, 3)}),
                  std::vector<float>({1, 6, c.lastRowFirst}));
    }
}

namespace {

// The library's pixel limit for a scope; the default comes back at its end.
struct PixelLimitScope {
    explicit PixelLimitScope(uint64_t pixels) { PIV::SetMaxImagePixels(pixels); }
    ~PixelLimitScope() { PIV::SetMaxImagePixels(0); }
};

}  // namespace

// Every reader weighs the pixels its header declares (all frames decoded at
// once) against the library's limit before it allocates: each file loads
// under a limit of its own size and is refused one pixel below it.
TEST_F(PixelLimit, EveryReaderAsksBeforeDecoding) {
    std::string im7 = Im7(0, std::string(24, '\x01'), 3, 2);
    Put32(im7, 20, 2);  // two frames of 3 x 2 words
    struct Case {
        std::string what, bytes;
        uint64_t pixels;
        std::string size;
    } cases[] = {
        {"pgm", ReadBytes(DataFile("ramp8.pgm")), 512, "256 x 2"},
        {"bmp", ReadBytes(DataFile("gray8.bmp")), 1080, "40 x 27"},
        {"tiff", ReadBytes(DataFile("gray16_lzw.tif")), 32, "8 x 4"},
        {"pco", Pco(8, 8), 64, "8 x 8"},
        {"im7", im7, 12, "2 frames of 3 x 2"},
        {"imx", Imx(18, 4, 3, std::string(24, '\x01')), 12, "4 x 3"},
        {"raw", std::string(12, '\x01'), 12, "4 x 3"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const std::string path = dir.file(c.what);
        WriteBytes(path, c.bytes);
        auto load = [&](Image2D& img) {
            return c.what == "raw" ? img.loadRaw(path.c_str(), 4, 3, 8, 0) : img.load(path);
        };
        Image2D fits;
        {
            PixelLimitScope limit(c.pixels);
            EXPECT_TRUE(load(fits)) << LastText(fits);
        }
        PixelLimitScope limit(c.pixels - 1);
        Image2D refused;
        EXPECT_EQ(FailCode(refused, load(refused)), PIVerror::DATA_TOO_LARGE);
        const std::string text = "'" + path + "' declares " + c.size +
                                 " pixels, more than the limit of " + std::to_string(c.pixels - 1) +
                                 " pixels";
        EXPECT_PRED_FORMAT2(IsSubstring, text, LastText(refused));
        EXPECT_TRUE(refused.isNull());
    }
}

// Under the default limit of 2^28 pixels: a TIFF page of 20000 x 20000 in a
// sparse file of 400 MB or in 500 KB of Deflate data is refused before it is
// decoded; a strip of 4000 x 4000 bytes from the dozen bytes of a 16 x 16
// frame is refused by the 1:1000 rule on the strip.
TEST_F(PixelLimit, HugeTiffPagesAndStripsAreRefusedBeforeDecoding) {
    Image2D small(16, 16, IMAGE_UINT8);
    small.fill(7);
    IMAGE_COMPRESSION deflate;
    deflate.mode = 3;
    small.setCompression(deflate);
    ASSERT_TRUE(small.saveTIFF(dir.file("small.tif").c_str()));
    const std::string packed = ReadBytes(dir.file("small.tif"));
    const char* huge = "declares 20000 x 20000 pixels, more than the limit of 268435456 pixels";
    struct Case {
        const char* what;
        std::string bytes;
        uint32_t side, rowsPerStrip;
        uint64_t fileBytes;
        int code;
        const char* text;
    } cases[] = {
        {"sparse", ReadBytes(DataFile("gray8_strips.tif")), 20000, 3, 400001000,
         PIVerror::DATA_TOO_LARGE, huge},
        {"deflate page", packed, 20000, 20000, 500000, PIVerror::DATA_TOO_LARGE, huge},
        {"deflate strip", packed, 4000, 4000, 20000, PIVerror::FILE_READ_FAILED,
         "declares 16000000 bytes of pixel data in strip 0 but holds"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::string bytes = c.bytes;
        SetTiffSize(bytes, c.side, c.side);
        SetTiffField(bytes, 278, c.rowsPerStrip);
        const std::string path = dir.file("huge.tif");
        WriteBytes(path, bytes);
        std::filesystem::resize_file(path, c.fileBytes);
        Image2D img;
        EXPECT_EQ(FailCode(img, img.load(path)), c.code);
        EXPECT_PRED_FORMAT2(IsSubstring, c.text, LastText(img));
        EXPECT_TRUE(img.isNull());
    }
}
