// Damaged image files: every loader over copies cut short and over copies
// with flipped header bytes. Nothing may crash or leak, every failure is
// reported, and a failed load leaves a valid image.
#include <gtest/gtest.h>

#include "image2d.h"
#include "image_file_builders.h"
#include "image_format.h"
#include "image_test_support.h"

using namespace image_test;

namespace {

// Valid: either null, or a consistent geometry whose corner pixels can be
// read and written (sampled: damaged headers may leave images of gigabytes).
void ExpectValid(Image2D& img) {
    if (img.isNull()) return;
    EXPECT_GE(img.bytesPerLine(), img.width() * static_cast<uint64_t>(img.bytesPerPixel()));
    EXPECT_EQ(img.numBytes(), img.bytesPerLine() * img.height());
    const int right = static_cast<int>(img.width() - 1),
              bottom = static_cast<int>(img.height() - 1);
    for (auto [x, y] : {std::pair{0, 0}, {right, 0}, {0, bottom}, {right, bottom}}) {
        img.pixel(x, y);
        EXPECT_TRUE(img.setPixel(x, y, 1.0f));
    }
    if (img.numBytes() < (1u << 20)) {
        Image2D copy;
        EXPECT_TRUE(copy.copy(img));
    }
}

// The sources of the sweeps: files of every reader.
std::vector<std::pair<std::string, std::string>> Sources() {
    std::vector<std::pair<std::string, std::string>> files;
    for (const char* name :
         {"gray8_strips.tif", "gray16_lzw.tif", "gray8_gray16_pages.tif", "gray12.tif", "gray4.tif",
          "bits16x3.tif", "palette8.tif", "bits32x3.bmp", "gray4.bmp", "gray8.bmp", "rgb8x4.bmp",
          "rgb3x2.bmp", "ramp16.pgm"})
        files.emplace_back(name, ReadBytes(DataFile(name)));
    files.emplace_back("pco", Pco(12, 10));
    files.emplace_back("im7 plain", Im7(0, std::string(2 * 6 * 4, '\x21'), 6, 4));
    files.emplace_back("im7 12-bit", Im7(3, std::string(9 * 4, '\x21'), 6, 4));
    files.emplace_back("im7 packed", Im7(1,
                                         std::string("\0\0\x05\x80\x01\x02\x7F\x03\x01\x02"
                                                     "\x03\x04\x05\x06\x81\x3A\x10\x20",
                                                     18),
                                         4, 3));
    files.emplace_back(
        "im7 deflate",
        Im7(2, std::string("\x0c\0\0\0\0\0\0\0", 8) + std::string(12, '\x78'), 3, 2));
    files.emplace_back("imx", Imx(18, 5, 4, std::string(40, '\x11')));
    files.emplace_back("imx packed", Imx(19, 4, 3, std::string("\0\0\x01\x02\x03\x7F", 6)));
    return files;
}

using DamagedFiles = ScratchFiles;

}  // namespace

TEST_F(DamagedFiles, CutShortAnywhere) {
    const std::string path = dir.file("cut");
    for (const auto& [name, bytes] : Sources()) {
        const size_t n = bytes.size();
        for (size_t cut : {size_t(0), size_t(1), size_t(2), size_t(4), size_t(8), size_t(14),
                           size_t(30), size_t(54), size_t(128), size_t(200), size_t(256),
                           size_t(260), n / 2, n - 8, n - 1}) {
            if (cut >= n) continue;
            SCOPED_TRACE(testing::Message() << name << " cut at " << cut);
            WriteBytes(path, bytes.substr(0, cut));
            for (int page : {0, 1, 2}) {
                Image2D img;
                if (!img.load(path, page) &&
                    PIV::GetFileFormat(path.c_str()) < PIV::FORMAT_LAVISION_0) {
                    EXPECT_NE(LastCode(img), PIVerror::NO_ERROR);
                }
                ExpectValid(img);
            }
            // The readers called directly, whatever the content, into one image.
            Image2D direct;
            for (auto load :
                 {&Image2D::loadTIFF, &Image2D::loadBMP, &Image2D::loadPCO, &Image2D::loadLavVC7}) {
                (direct.*load)(path.c_str(), load == &Image2D::loadPCO);
                ExpectValid(direct);
            }
        }
    }
}

TEST_F(DamagedFiles, FlippedHeaderBytes) {
    const std::string path = dir.file("flip");
    for (const auto& [name, bytes] : Sources()) {
        const size_t header = std::min<size_t>(bytes.size(), 300);
        for (size_t at = 0; at < header; at += (at < 64 ? 1 : 7)) {
            SCOPED_TRACE(testing::Message() << name << " byte " << at);
            std::string copy = bytes;
            copy[at] = static_cast<char>(copy[at] ^ 0xFF);
            WriteBytes(path, copy);
            Image2D img;
            // LaVision buffers that are no image are declined without an error.
            if (!img.load(path, 1) && PIV::GetFileFormat(path.c_str()) < PIV::FORMAT_LAVISION_0) {
                EXPECT_NE(LastCode(img), PIVerror::NO_ERROR);
            }
            ExpectValid(img);
        }
    }
}

// What a cut gives per BMP path: 8-bit data read line by line and 24-bit
// data load while at least half is there; 1 and 4-bit data, the colour table
// and 8-bit data read in one go give 30, as does any file holding less.
TEST_F(DamagedFiles, WhatACutGivesPerReader) {
    const std::string path = dir.file("cut");
    struct Case {
        const char* what;
        const char* file;
        size_t kept;  // header and data bytes
        int code;     // NO_ERROR: the load succeeds
    } cases[] = {
        // 8 x 4 pixels of 3 bytes: 48 of 96 bytes are half, 40 are less.
        {"24-bit data, half", "rgb8x4.bmp", 54 + 48, PIVerror::NO_ERROR},
        {"24-bit data, less than half", "rgb8x4.bmp", 54 + 40, PIVerror::FILE_READ_FAILED},
        {"1-bit data", "bits32x3.bmp", 62 + 5, PIVerror::FILE_READ_FAILED},
        {"4-bit data", "gray4.bmp", 118 + 20, PIVerror::FILE_READ_FAILED},
        {"colour table", "gray8.bmp", 54 + 100, PIVerror::FILE_READ_FAILED},
        {"8-bit data in one go", "gray8.bmp", 1078 + 500, PIVerror::FILE_READ_FAILED},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        WriteBytes(path, ReadBytes(DataFile(c.file)).substr(0, c.kept));
        Image2D img;
        EXPECT_EQ(img.load(path), c.code == PIVerror::NO_ERROR);
        EXPECT_EQ(LastCode(img), c.code);
        ExpectValid(img);
    }

    // 8-bit rows of 38 pixels are stored in 40 bytes, so the image size of
    // 38 x 30 differs from 30 rows of 40 and the rows are read one by one.
    std::string lines = ReadBytes(DataFile("gray8.bmp")).substr(0, 1078);
    Put32(lines, 18, 38);
    Put32(lines, 22, 30);
    // 20 of the 30 rows are there.
    WriteBytes(path, lines + std::string(38 * 20, '\x05'));
    Image2D img;
    EXPECT_TRUE(img.load(path)) << LastText(img);
    EXPECT_EQ(img.height(), 30u);
    EXPECT_EQ(img.pixel(0, 29), 5.0f);  // the first file row, flipped to the bottom
    EXPECT_EQ(img.pixel(0, 0), 0.0f);   // rows the file does not hold
}

// Directory chains that loop back are counted and read once per page. The
// two directories of gray8_gray16_pages.tif (11 entries, at 40 and 270) link
// to the next at 40 + 2 + 132 = 174 and 270 + 2 + 132 = 404.
TEST_F(DamagedFiles, TiffDirectoryLoops) {
    const std::string path = dir.file("loop.tif");
    const std::string pages = ReadBytes(DataFile("gray8_gray16_pages.tif"));
    ASSERT_EQ(pages.size(), 432u);
    struct Case {
        const char* what;
        size_t link;
        int frames;
    } cases[] = {
        {"the second page links back to the first", 404, 2},
        {"the first page links to itself", 174, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::string bytes = pages;
        Put32(bytes, c.link, 40);
        WriteBytes(path, bytes);
        int frames = 0;
        EXPECT_TRUE(
            Image2D::GetImageInfo(path.c_str(), nullptr, nullptr, nullptr, nullptr, &frames));
        EXPECT_EQ(frames, c.frames);
        Image2D img;
        EXPECT_TRUE(img.load(path, 0)) << LastText(img);
        EXPECT_EQ(img.type(), IMAGE_UINT8);
        if (c.frames == 2) {
            EXPECT_TRUE(img.load(path, 1)) << LastText(img);
            EXPECT_EQ(img.type(), IMAGE_UINT16);
        }
    }
}
