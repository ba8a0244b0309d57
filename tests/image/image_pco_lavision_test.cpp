// PCO b16 and LaVision files, raw files and camera buffers. No installed tool
// writes PCO or LaVision files: each is built from the formats' header tables.
#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>

#include "image2d.h"
#include "image_file_builders.h"
#include "image_format.h"
#include "image_test_support.h"
#include "lavision_reader.h"

using namespace image_test;

namespace {

std::string Words(const std::vector<int>& values) {
    std::string s(2 * values.size(), '\0');
    for (size_t i = 0; i < values.size(); i++) Put16(s, 2 * i, static_cast<unsigned>(values[i]));
    return s;
}
std::string Floats(const std::vector<float>& values) {
    std::string s(4 * values.size(), '\0');
    std::memcpy(&s[0], values.data(), s.size());
    return s;
}
std::vector<int> Ramp(int n, int start, int step) {
    std::vector<int> v;
    for (int i = 0; i < n; i++) v.push_back((start + i * step) & 0xffff);
    return v;
}
std::vector<float> AsFloats(const std::vector<int>& v) {
    return std::vector<float>(v.begin(), v.end());
}

std::string Pco(int w, int h, const std::vector<int>& pixels) {
    return PcoHeader(static_cast<uint32_t>(24 + 2 * w * h), 24, w, h) + Words(pixels);
}

// The header of versions 18 to 23 with the frame count at 18 and the
// sub-version byte at 33; the 32-bit sizes stand at 228 and 232, the depth at 236.
std::string ImxHeader(int version, int w, int h, int sub = 0, int frames = 0) {
    std::string s = Imx(version, w, h, "");
    Put16(s, 18, static_cast<unsigned>(frames));
    s[33] = static_cast<char>(sub);
    return s;
}
// The newer header: version, pack type, buffer format, 0, sizes x, y, z, frames.
std::string Im7Header(int pack, int format, int nx, int ny, int nz, int nf) {
    std::string s = Im7(pack, "", nx, ny);
    Put16(s, 4, static_cast<unsigned>(format));
    Put32(s, 16, static_cast<uint32_t>(nz));
    Put32(s, 20, static_cast<uint32_t>(nf));
    return s;
}
std::string Attribute(int type, const std::string& text) {
    std::string s(8, '\0');
    Put32(s, 0, static_cast<uint32_t>(type));
    Put32(s, 4, static_cast<uint32_t>(text.size()));
    return s + text;
}

// What GetImageInfo tells of a file: its answer, format, type, frames, width, height.
std::vector<int> Info(const std::string& path) {
    int format = -1, w = -1, h = -1, frames = -1;
    ImageType type = IMAGE_UINT8;
    const bool ok = Image2D::GetImageInfo(path.c_str(), &format, &type, &w, &h, &frames);
    return {ok, format, type, frames, w, h};
}

// The packed stream and the values it decodes to, step by step: plain
// signed byte steps, a single word (0x80), a run of two words (0x7F 2),
// a nibble pair (0x81), nibble steps read from the following bytes, and
// the nibble 8 that hands the next byte to the byte decoder.
const std::string kPacked =
    std::string("\x00\x00", 2) + std::string(
                                     "\x05\xFE\x80\x34\x12\x7F\x02\x00\x01\x00\x02"
                                     "\x81\x3A\x7C\xF8\x10",
                                     16);
const std::vector<int> kUnpacked = {5,     3,     0x1234, 0x100, 0x200, 0x203,
                                    0x1FD, 0x204, 0x200,  0x1FF, 0x20F};

using PcoFiles = ScratchFiles;
using LaVisionFiles = ScratchFiles;
using RawFiles = ScratchFiles;
using CameraBuffers = ScratchFiles;

}  // namespace

TEST_F(PcoFiles, BuiltFromTheHeaderTableAndTold) {
    const std::vector<int> pixels = Ramp(60, 100, 997);
    const std::string file = dir.file("a.b16"), cut = dir.file("short.b16");
    WriteBytes(file, Pco(10, 6, pixels));
    Image2D img;
    ASSERT_TRUE(img.load(file)) << LastText(img);
    EXPECT_EQ(img.type(), IMAGE_UINT16);
    EXPECT_EQ(Pixels(img), AsFloats(pixels));
    EXPECT_EQ(Info(file), (std::vector<int>{true, PIV::FORMAT_PCO, IMAGE_UINT16, 1, 10, 6}));

    // A PCO header that cannot be read still answers true, with no size.
    WriteBytes(cut, "PCO-");
    EXPECT_EQ(Info(cut), (std::vector<int>{true, PIV::FORMAT_PCO, IMAGE_UNDEFINED, 1, 0, 0}));

    // Writers disagree on the header size: when the fields do not add up the
    // pixels are the last 2wh bytes of the stated file size; an extended
    // header drops `header size` bytes behind byte 128.
    const std::vector<int> grid = Ramp(64, 9, 1000);
    for (uint32_t extended : {0, 1}) {
        WriteBytes(file, PcoHeader(24 + 40 + 128, 24, 8, 8, extended) + std::string(40, '\x7f') +
                             Words(grid));
        ASSERT_TRUE(img.load(file));
        EXPECT_EQ(Pixels(img), AsFloats(grid));
    }
    // A PGM file is not told about.
    std::vector<int> pgm = Info(DataFile("ramp8.pgm"));
    pgm.resize(4);
    EXPECT_EQ(pgm, (std::vector<int>{false, PIV::FORMAT_PGM, IMAGE_UNDEFINED, 0}));
}

TEST_F(PcoFiles, SaveWritesTheTableAndLoadsBack) {
    Image2D img = MakeImage(7, 20, IMAGE_UINT16, AsFloats(Ramp(140, 3, 467)));
    ASSERT_TRUE(img.savePCO(dir.file("s.b16").c_str()));
    const std::string bytes = ReadBytes(dir.file("s.b16"));
    EXPECT_EQ(bytes, Pco(7, 20, Ramp(140, 3, 467)));

    Image2D bytesImage(4, 4, IMAGE_UINT8);
    EXPECT_EQ(FailCode(bytesImage, bytesImage.savePCO(dir.file("b.b16").c_str())),
              PIVerror::IMAGE_IS_NULL);
    EXPECT_EQ(FailCode(img, img.savePCO(nullptr)), PIVerror::BAD_FILE_NAME);
}

// The upper half of a double image is the first frame.
TEST_F(PcoFiles, DoubleImagesSplitByPageOrMode) {
    const std::vector<int> pixels = Ramp(2 * 2048, 0, 1);
    WriteBytes(dir.file("d.b16"), Pco(2, 2048, pixels));
    const std::vector<int> upper(pixels.begin(), pixels.begin() + 2048);
    const std::vector<int> lower(pixels.begin() + 2048, pixels.end());

    Image2D second;
    ASSERT_TRUE(second.load(dir.file("d.b16"), 2));
    EXPECT_EQ(Pixels(second), AsFloats(lower));
    EXPECT_EQ(second.currentPage(), 2);

    Image2D first(dir.file("d.b16").c_str(), PCO_SPLIT_FIRST);
    EXPECT_EQ(Pixels(first), AsFloats(upper));

    WriteBytes(dir.file("odd.b16"), Pco(2, 1023, Ramp(2046, 0, 1)));
    Image2D odd(dir.file("odd.b16").c_str(), PCO_SPLIT_FIRST);
    EXPECT_EQ(LastCode(odd), PIVerror::BAD_DIMENSIONS);
    EXPECT_PRED_FORMAT2(testing::IsSubstring, "Image can not be split since height is odd (h=1023)",
                        LastText(odd));
    EXPECT_FALSE(odd.isChanged());
}

TEST_F(LaVisionFiles, OldHeaderWordsFloatsAndPackedWords) {
    const std::vector<int> words = Ramp(15, 40000, 1111);
    const std::vector<float> floats = {-1.5f, 0, 2.25f, 1e6f, 3, 4};
    const struct {
        std::string file;
        ImageType type;
        std::vector<float> pixels;
    } cases[] = {{ImxHeader(18, 5, 3) + Words(words), IMAGE_UINT16, AsFloats(words)},
                 {ImxHeader(20, 3, 2) + Floats(floats), IMAGE_FLOAT, floats},
                 {ImxHeader(19, 11, 1) + kPacked, IMAGE_UINT16, AsFloats(kUnpacked)}};
    Image2D img;
    for (const auto& c : cases) {
        WriteBytes(dir.file("w.imx"), c.file);
        ASSERT_TRUE(img.load(dir.file("w.imx"))) << LastText(img);
        EXPECT_EQ(img.type(), c.type);
        EXPECT_EQ(Pixels(img), c.pixels);
    }

    // Sizes of 32768 and more are 0xFFFF in the 16-bit fields and stand in
    // the 32-bit ones; sub-versions 54..99 give the frame count at 18.
    std::string big = ImxHeader(18, 0xFFFF, 2, 54, 2);
    Put32(big, 228, 2);
    Put32(big, 232, 40000);
    WriteBytes(dir.file("big.imx"), big + std::string(2 * 40000 * 2, '\x01'));
    ASSERT_TRUE(img.load(dir.file("big.imx"), 2));
    EXPECT_EQ(Shape(img), Shape(40000, 1, IMAGE_UINT16));
    EXPECT_EQ(img.pixel(39999, 0), 257.0f);
    EXPECT_EQ(Info(dir.file("big.imx")),
              (std::vector<int>{true, PIV::FORMAT_LAVISION_0, IMAGE_UNDEFINED, 2, 40000, 2}));

    for (int refused : {21, 22}) {
        WriteBytes(dir.file("r.imx"), ImxHeader(refused, 2, 2) + Words({1, 2, 3, 4}));
        EXPECT_EQ(FailCode(img, img.load(dir.file("r.imx"))), PIVerror::FILE_READ_FAILED);
    }
}

TEST_F(LaVisionFiles, NewHeaderInEveryPackType) {
    const std::vector<int> words = Ramp(24, 7, 170);  // 4 x 3, two frames
    // 12-bit: three bytes a b c for the pixel pair v0, v1.
    std::string packed12;
    for (size_t i = 0; i < words.size(); i += 2) {
        const int v0 = words[i] & 0xfff, v1 = words[i + 1] & 0xfff;
        packed12 += static_cast<char>(v0 & 255);
        packed12 += static_cast<char>((v0 >> 8) | ((v1 & 15) << 4));
        packed12 += static_cast<char>(v1 >> 4);
    }
    std::vector<int> words12;
    for (int v : words) words12.push_back(v & 0xfff);
    // Deflate: a 64-bit length, then zlib's stream.
    const std::string raw = Words(words);
    std::string deflated(compressBound(raw.size()), '\0');
    uLongf deflatedSize = deflated.size();
    ASSERT_EQ(compress(reinterpret_cast<Bytef*>(&deflated[0]), &deflatedSize,
                       reinterpret_cast<const Bytef*>(raw.data()), raw.size()),
              Z_OK);
    deflated.resize(deflatedSize);
    std::string length(8, '\0');
    Put32(length, 0, static_cast<uint32_t>(deflatedSize));

    struct Case {
        const char* what;
        int pack;
        std::string data;
        std::vector<int> pixels;
        int detected;
    } cases[] = {
        {"uncompressed", 0, raw, words, PIV::FORMAT_LAVISION_0},
        {"deflate", 2, length + deflated, words, PIV::FORMAT_LAVISION_2},
        {"12-bit", 3, packed12, words12, PIV::FORMAT_LAVISION_0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const std::string path = dir.file("n.im7");
        WriteBytes(path, Im7Header(c.pack, BUFFER_FORMAT_WORD, 4, 3, 1, 2) + c.data);
        EXPECT_EQ(PIV::GetFileFormat(path.c_str()), c.detected);
        Image2D img;
        ASSERT_TRUE(img.load(path)) << LastText(img);
        EXPECT_EQ(img.height(), 6u);  // the two frames one above the other
        EXPECT_EQ(Pixels(img), AsFloats(c.pixels));
    }

    WriteBytes(dir.file("p.im7"), Im7Header(1, BUFFER_FORMAT_WORD, 11, 1, 1, 1) + kPacked);
    EXPECT_EQ(PIV::GetFileFormat(dir.file("p.im7").c_str()), PIV::FORMAT_LAVISION_1);
    Image2D packed(dir.file("p.im7"));
    EXPECT_EQ(Pixels(packed), AsFloats(kUnpacked));

    const std::vector<float> floats = {0.5f, -2, 7, 1e-3f};
    WriteBytes(dir.file("f.im7"), Im7Header(0, BUFFER_FORMAT_FLOAT, 2, 2, 1, 1) + Floats(floats));
    Image2D f(dir.file("f.im7"));
    EXPECT_EQ(f.type(), IMAGE_FLOAT);
    EXPECT_EQ(Pixels(f), floats);

    // Vector buffers and other non-image formats are no error, just no image.
    messages.lines().clear();
    WriteBytes(dir.file("v.vc7"), Im7Header(0, 2, 2, 1, 1, 1) + std::string(2 * 2 * 4, '\0'));
    EXPECT_EQ(FailCode(f, f.loadLavVC7(dir.file("v.vc7").c_str(), 0)), PIVerror::NO_ERROR);
    EXPECT_PRED_FORMAT2(testing::IsNotSubstring, "ERROR", messages.all());
}

TEST_F(LaVisionFiles, AttributesAndScales) {
    std::string scaleX = "0.5\n10\nmm\nposition x";
    scaleX[3] = '\0';  // NUL bytes inside a scale become line feeds
    const std::string file =
        Im7Header(0, BUFFER_FORMAT_WORD, 2, 1, 1, 1) + Words({1, 2}) + Attribute(1, scaleX) +
        Attribute(4, "2 -1 counts light") + Attribute(5, std::string("first run\0", 10)) +
        Attribute(6, "Exposure=12 us") + Attribute(99, "skipped") + Attribute(12, "2026-11-23");
    WriteBytes(dir.file("a.im7"), file);
    IMX_BUFFER_TYPE buffer;
    AttributeList list;
    ASSERT_EQ(ReadIM7(dir.file("a.im7").c_str(), &buffer, &list), IMREAD_ERR_NO);
    EXPECT_EQ(buffer.scaleX.factor, 0.5f);
    EXPECT_STREQ(buffer.scaleX.unit, "mm");
    EXPECT_EQ(buffer.scaleI.factor, 2.0f);
    DestroyBuffer(&buffer);
    EXPECT_EQ(std::vector<std::string>(
                  {*list.find("_SCALE_X"), *list.find("_COMMENT"), *list.find("Exposure")}),
              std::vector<std::string>({"0.5\n10\nmm\nposition x", "first run", "12 us"}));
    EXPECT_EQ(list.items().size(), 5u);

    // The old header carries its scales in fixed fields.
    std::string old = ImxHeader(18, 2, 1);
    const float factor = 0.25f;
    std::memcpy(&old[52], &factor, 4);
    std::memcpy(&old[71], "mm", 2);
    WriteBytes(dir.file("o.imx"), old + Words({5, 6}));
    ASSERT_EQ(ReadIM7(dir.file("o.imx").c_str(), &buffer, nullptr), IMREAD_ERR_NO);
    EXPECT_EQ(buffer.scaleX.factor, 0.25f);
    EXPECT_STREQ(buffer.scaleX.unit, "mm");
    DestroyBuffer(&buffer);
}

TEST_F(LaVisionFiles, SaveWritesAnImgHeader) {
    Image2D words = MakeImage(5, 3, IMAGE_UINT16, AsFloats(Ramp(15, 1, 4321)));
    ASSERT_TRUE(words.saveLavImg(dir.file("w.img").c_str()));
    std::string header = ImxHeader(18, 5, 3);
    header.replace(20, 3, "img");
    Put32(header, 228, 3);
    Put32(header, 232, 5);
    Put32(header, 236, 1);
    EXPECT_EQ(ReadBytes(dir.file("w.img")), header + Words(Ramp(15, 1, 4321)));
    Image2D floats = MakeImage(3, 2, IMAGE_FLOAT, {-1, 0.5f, 2, 3, 4, 1e9f});
    ASSERT_TRUE(floats.save(dir.file("f.img").c_str(), PIV::FORMAT_LAVISION_3));
    EXPECT_TRUE(Image2D(dir.file("f.img")) == floats);
}

TEST_F(RawFiles, ReadStraightIntoTheImage) {
    const std::vector<int> pixels = Ramp(12, 500, 333);
    WriteBytes(dir.file("r.raw"), std::string(10, 'h') + Words(pixels));
    Image2D img;
    ASSERT_TRUE(img.loadRaw(dir.file("r.raw").c_str(), 3, 4, 16, 10));
    EXPECT_EQ(Pixels(img), AsFloats(pixels));
    // Too large for the file; long enough, but not behind the offset.
    EXPECT_EQ(FailCode(img, img.loadRaw(dir.file("r.raw").c_str(), 30, 4, 16, 0)),
              PIVerror::FILE_SIZE_INVALID);
    EXPECT_EQ(FailCode(img, img.loadRaw(dir.file("r.raw").c_str(), 3, 4, 16, 20)),
              PIVerror::FILE_READ_FAILED);
}

TEST_F(CameraBuffers, CopiesAndBinning) {
    // 3 x 2 bytes in rows of 5: the stride's extra bytes are left behind.
    const uint8_t bytes[] = {1, 2, 3, 99, 99, 4, 5, 6, 99, 99};
    Image2D img;
    ASSERT_TRUE(img.loadFromBuffer(bytes, 3, 2, 8, 5, false, 1));
    EXPECT_EQ(Pixels(img), (std::vector<float>{1, 2, 3, 4, 5, 6}));

    const float floats[] = {0.5f, 1.5f, 2.5f, 3.5f};
    ASSERT_TRUE(img.loadFromBuffer(floats, 2, 2, 32, 0, true, 0));
    EXPECT_EQ(img.type(), IMAGE_FLOAT);
    EXPECT_EQ(Pixels(img), (std::vector<float>{0.5f, 1.5f, 2.5f, 3.5f}));

    // 4 x 4 words binned by 2: sums of 2 x 2, no division, wrapping at 16 bits.
    const uint16_t words[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 65535, 1, 15, 16};
    ASSERT_TRUE(img.loadFromBuffer(words, 4, 4, 16, 0, false, 2));
    EXPECT_EQ(Pixels(img), (std::vector<float>{1 + 2 + 5 + 6, 3 + 4 + 7 + 8,
                                               (9 + 10 + 65535 + 1) & 0xffff, 11 + 12 + 15 + 16}));

    // 8 x 3 by 2 is 4 x 1, which needs a factor of 3 in y: no whole blocks.
    const uint16_t wide[24] = {};
    const std::vector<int> codes = {
        FailCode(img, img.loadFromBuffer(bytes, 3, 2, 8, 0, false, 2)),
        FailCode(img, img.loadFromBuffer(nullptr, 3, 2, 8, 0, false, 0)),
        FailCode(img, img.loadFromBufferUShort(wide, 8, 3, 2))};
    EXPECT_EQ(codes, (std::vector<int>{PIVerror::IMAGE_TYPE_UNSUPPORTED, PIVerror::BAD_IMAGE_SIZE,
                                       PIVerror::IMAGE_SIZE_MISMATCH}));
}
