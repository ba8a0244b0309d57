// Format detection, the PGM/PBM reader and writer, the load and save
// dispatch of Image2D and Image2DPair. The files under tests/data/image were
// written by netpbm (see the README there).
#include <sys/stat.h>

#include "image2d_pair.h"
#include "image_format.h"
#include "image_test_support.h"

using namespace image_test;
using ImageFormat = ScratchFiles;
using ImageLoad = ScratchFiles;
using ImageSave = ScratchFiles;
using ImagePair = ScratchFiles;

namespace {

// A LaVision-style header: version at 0, pack type at 2, the word at 6.
std::string LaVision(int version, int packType, int word6) {
    std::string s(16, '\0');
    s[0] = static_cast<char>(version & 0xff);
    s[1] = static_cast<char>(version >> 8);
    s[2] = static_cast<char>(packType);
    s[6] = static_cast<char>(word6);
    return s;
}

}  // namespace

TEST_F(ImageFormat, DetectionByFirstBytes) {
    struct Case {
        std::string what, bytes;
        int format;
    };
    std::vector<Case> cases = {{"parameter file", "#!PIV 1.0\n", PIV::FORMAT_PARFILE},
                               {"Tecplot binary", "#!TDV112", PIV::FORMAT_TECPLOT},
                               {"PCO", "PCO-\x10\0\0\0", PIV::FORMAT_PCO},
                               {"B32", "B32-", PIV::FORMAT_B32},
                               {"TIFF by two bytes", "MMxy", PIV::FORMAT_TIFF},
                               {"netCDF", Bytes({'C', 'D', 'F', 0x01}), PIV::FORMAT_NETCDF},
                               {"JPEG", Bytes({0xFF, 0xD8, 0xFF, 0xE0}), PIV::FORMAT_JPEG},
                               {"PNG", Bytes({0x89, 0x50, 0x4E, 0x47}), PIV::FORMAT_PNG},
                               {"P5", "P5 2 2\n", PIV::FORMAT_PGM},
                               {"BMP", "BM\0\0", PIV::FORMAT_BMP},
                               {"LaVision word 6", LaVision(0, 0, 1), PIV::FORMAT_LAVISION_7},
                               // Anything else reads as a LaVision header: "P3 " has the version
                               // 0x3350 and the pack type 0x0020, which no rule knows.
                               {"P3", "P3 ", PIV::FORMAT_UNKNOWN},
                               {"empty file", "", PIV::FORMAT_LAVISION_0}};
    // LaVision header versions 18 to 23, then pack types 0 to 4 of a later one.
    const int byVersion[] = {PIV::FORMAT_LAVISION_0, PIV::FORMAT_LAVISION_1,
                             PIV::FORMAT_LAVISION_3, PIV::FORMAT_LAVISION_4,
                             PIV::FORMAT_LAVISION_5, PIV::FORMAT_LAVISION_6};
    const int byPack[] = {PIV::FORMAT_LAVISION_0, PIV::FORMAT_LAVISION_1, PIV::FORMAT_LAVISION_2,
                          PIV::FORMAT_LAVISION_0, PIV::FORMAT_UNKNOWN};
    for (int v = 0; v < 6; v++)
        cases.push_back(
            {"version " + std::to_string(18 + v), LaVision(18 + v, 0, 0), byVersion[v]});
    for (int p = 0; p < 5; p++)
        cases.push_back({"pack " + std::to_string(p), LaVision(300, p, 0), byPack[p]});
    for (const Case& c : cases) {
        const std::string path = dir.file("probe");
        WriteBytes(path, c.bytes);
        EXPECT_EQ(PIV::GetFileFormat(path.c_str()), c.format) << c.what;
    }
    EXPECT_EQ(PIV::GetFileFormat(dir.file("missing").c_str()), PIV::FORMAT_NOT_FOUND);
    EXPECT_EQ(PIV::GetFileFormat(nullptr), PIV::FORMAT_NOT_FOUND);
}

// netpbm writes "P5" and a line feed; detection wants a blank as third byte,
// so the file is not a PGM to the program and fails to load.
TEST_F(ImageLoad, NetpbmFileWithLineFeedAfterMagicIsRefused) {
    const std::string path = DataFile("ramp8_lf.pgm");
    Image2D img;
    // "P5\n256 2\n" read as a LaVision header has a non-zero word at 6,
    // which the LaVision reader refuses.
    EXPECT_EQ(PIV::GetFileFormat(path.c_str()), PIV::FORMAT_LAVISION_7);
    EXPECT_EQ(FailCode(img, img.load(path.c_str())), PIVerror::FILE_READ_FAILED);
    EXPECT_FALSE(img.isChanged());
}

// pgmramp -lr -maxval 255 256 2: pixel (x, y) = x. pgmramp -lr -maxval 65535
// 4 2: 65535 x / 3. pbmmake -gray 10 3: a checkerboard whose set bits (black,
// pixel 0) lie where x + y is odd; 10 columns make each row start on a new byte.
TEST_F(ImageLoad, FilesWrittenByNetpbm) {
    Image2D ramp8(DataFile("ramp8.pgm"));
    EXPECT_EQ(Shape(ramp8), Shape(256, 2, IMAGE_UINT8));
    for (int x : {0, 1, 127, 255}) EXPECT_EQ(ramp8.pixel(x, 1), static_cast<float>(x));
    EXPECT_DOUBLE_EQ(ramp8.mean(), 127.5);

    Image2D ramp16(DataFile("ramp16.pgm").c_str());
    EXPECT_EQ(Shape(ramp16), Shape(4, 2, IMAGE_UINT16));
    EXPECT_EQ(Pixels(ramp16), (std::vector<float>{0, 21845, 43690, 65535, 0, 21845, 43690, 65535}));

    Image2D gray(DataFile("gray10x3.pbm").c_str(), PCO_SPLIT_FIRST);
    ASSERT_EQ(Shape(gray), Shape(10, 3, IMAGE_UINT8));
    for (int y = 0; y < 3; y++)
        for (int x = 0; x < 10; x++)
            EXPECT_EQ(gray.pixel(x, y), (x + y) % 2 ? 0.0f : 255.0f) << x << "," << y;
}

// Samples are kept as written (no scaling by maxval); maxval above 255 makes
// a 16-bit image. A set PBM bit is black, pixel 0, and a clear one 255.
TEST_F(ImageLoad, HandWrittenPgmAndPbmFiles) {
    struct Case {
        const char* what;
        std::string bytes;
        int w, h;
        ImageType type;
        std::vector<float> pixels;
        // clang-format off
    } cases[] = {
        {"P2 with comments", "P2 # by hand\n3 2\n# maxval next\n10\n0 5 10\n10 5 0\n", 3, 2, IMAGE_UINT8, {0, 5, 10, 10, 5, 0}},
        {"P2 16-bit", "P2 2 1 1000\n999 1000\n", 2, 1, IMAGE_UINT16, {999, 1000}},
        {"P5 two-byte samples", "P5 2 1 300\n" + Bytes({0x01, 0x2C, 0x00, 0x05}), 2, 1, IMAGE_UINT16, {300, 5}},
        {"P1 with and without blanks", "P1 4 2\n1 0 1 1\n0001\n", 4, 2, IMAGE_UINT8, {0, 255, 0, 0, 255, 255, 255, 0}},
        {"P4 rows start on a byte", "P4 3 2\n" + Bytes({0xA0, 0x40}), 3, 2, IMAGE_UINT8, {0, 255, 0, 255, 0, 255}},
        // Missing bits read as clear while the file holds at least half of them.
        {"P4 truncated", "P4 3 2\n" + Bytes({0xE0}), 3, 2, IMAGE_UINT8, {0, 0, 0, 255, 255, 255}},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const std::string path = dir.file("hand.pgm");
        WriteBytes(path, c.bytes);
        Image2D img;
        ASSERT_TRUE(img.load(path.c_str())) << LastText(img);
        EXPECT_EQ(Shape(img), Shape(c.w, c.h, c.type));
        EXPECT_EQ(Pixels(img), c.pixels);
    }
}

TEST_F(ImageLoad, MalformedPgmHeadersAreRefused) {
    struct Case {
        const char* what;
        std::string bytes;
        int code;
        const char* text;
        // clang-format off
    } cases[] = {
        {"width without digits", "P5 x 2 255\n", PIVerror::BAD_IMAGE_SIZE, ""},
        {"width beyond 2^31", "P5 99999999999 1 255\n", PIVerror::BAD_IMAGE_SIZE, ""},
        {"nothing but magic", "P5 ", PIVerror::INVALID_FILE_CONTENT, "maxval of input image is zero."},
        {"maxval 0", "P5 2 2 0\n", PIVerror::INVALID_FILE_CONTENT, "maxval of input image is zero."},
        {"maxval 70000", "P2 2 2 70000\n", PIVerror::INVALID_FILE_CONTENT,
         "maxval of input image (70000) is too large.  The maximum allowed by PGM is 65535."},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const std::string path = dir.file("bad.pgm");
        WriteBytes(path, c.bytes);
        Image2D img;
        EXPECT_EQ(FailCode(img, img.load(path.c_str())), c.code);
        EXPECT_TRUE(HasText(LastText(img), c.text));
        EXPECT_FALSE(img.isChanged());
        EXPECT_STREQ(img.fileName(), "");
    }
}

TEST_F(ImageLoad, MissingAndUnreadableFiles) {
    Image2D img;
    EXPECT_EQ(FailCode(img, img.load(dir.file("missing.pgm").c_str())), PIVerror::FILE_NOT_FOUND);
    // Recognised formats whose reader refuses the file: libtiff cannot read
    // a bare TIFF magic, a bare "BM" has no depth, a LaVision header alone
    // has no pixels, and JPEG has no reader at all.
    struct Case {
        std::string bytes;
        int code;
    } cases[] = {
        {Bytes({0x49, 0x49, 0x2A, 0x00}), PIVerror::FILE_OPEN_FAILED},
        {"BM", PIVerror::IMAGE_TYPE_UNSUPPORTED},
        {LaVision(18, 0, 0), PIVerror::FILE_READ_FAILED},
        {Bytes({0xFF, 0xD8, 0xFF, 0xE0}), PIVerror::IMAGE_TYPE_UNSUPPORTED},
    };
    for (const Case& c : cases) {
        WriteBytes(dir.file("other"), c.bytes);
        EXPECT_EQ(FailCode(img, img.load(dir.file("other").c_str())), c.code);
        EXPECT_FALSE(img.isChanged());
    }
    // Called directly, the PGM reader checks the magic itself.
    WriteBytes(dir.file("one"), "P");
    EXPECT_EQ(FailCode(img, img.loadPGM(dir.file("one").c_str())), PIVerror::INVALID_FILE_CONTENT);
    EXPECT_TRUE(HasText(LastText(img),
                        "Bad magic number on image '" + dir.file("one") + "' - Not a PGM-image!"));
    WriteBytes(dir.file("p3"), "P3 1 1 255\n0 0 0\n");
    EXPECT_EQ(FailCode(img, img.loadPGM(dir.file("p3").c_str())), PIVerror::INVALID_FILE_CONTENT);
    EXPECT_EQ(FailCode(img, img.loadPGM(dir.file("missing").c_str())), PIVerror::FILE_OPEN_FAILED);
}

// The writer puts "P5 " in front (a blank, for the detection), then the
// size, maxval and the samples, 16-bit ones high byte first.
TEST_F(ImageSave, PgmRoundTripAt8And16Bits) {
    Image2D byte(5, 3, IMAGE_UINT8);
    byte.testPattern(0, 1, 1);
    ASSERT_TRUE(byte.savePGM(dir.file("b.pgm").c_str()));
    EXPECT_EQ(ReadBytes(dir.file("b.pgm")).substr(0, 12), "P5 5 3\n255\n" + Bytes({0}));
    EXPECT_TRUE(Image2D(dir.file("b.pgm")) == byte);

    const Image2D word = MakeImage(3, 2, IMAGE_UINT16, {0, 255, 256, 0x1234, 65535, 7});
    ASSERT_TRUE(word.save(dir.file("w.pgm").c_str(), PIV::FORMAT_PGM));
    const std::string bytes = ReadBytes(dir.file("w.pgm"));
    EXPECT_EQ(bytes.substr(0, 13), "P5 3 2\n65535\n");
    EXPECT_EQ(bytes.substr(13 + 6, 2), Bytes({0x12, 0x34}));
    EXPECT_TRUE(Image2D(dir.file("w.pgm")) == word);

    // Nothing is left beside the targets.
    EXPECT_EQ(CountEntries(dir.path()), 2);
    // Saving over a file keeps its mode.
    ASSERT_EQ(::chmod(dir.file("b.pgm").c_str(), 0600), 0);
    ASSERT_TRUE(byte.savePGM(dir.file("b.pgm").c_str()));
    struct stat info;
    ASSERT_EQ(::stat(dir.file("b.pgm").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
}

// A failed save leaves an existing file as it was and no temporary behind.
TEST_F(ImageSave, FailedPgmSaveKeepsTheTarget) {
    const std::string target = dir.file("good.pgm");
    WriteBytes(target, "P5 1 1 255\n" + Bytes({42}));
    Image2D floats(1, 1, IMAGE_FLOAT);
    EXPECT_EQ(FailCode(floats, floats.savePGM(target.c_str())), PIVerror::IMAGE_TYPE_UNSUPPORTED);
    EXPECT_EQ(ReadBytes(target), "P5 1 1 255\n" + Bytes({42}));

    // A directory in the way: the temporary is written, the rename fails.
    std::filesystem::create_directory(dir.file("sub"));
    Image2D img = Filled(2, 2, IMAGE_UINT8, 1);
    EXPECT_EQ(FailCode(img, img.savePGM(dir.file("sub").c_str())), PIVerror::FILE_WRITE_FAILED);
    EXPECT_TRUE(std::filesystem::is_directory(dir.file("sub")));
    EXPECT_EQ(FailCode(img, img.savePGM(dir.file("nowhere/x.pgm").c_str())),
              PIVerror::FILE_CREATE_FAILED);
    EXPECT_EQ(CountEntries(dir.path()), 2);  // good.pgm and sub
}

// A requested writer is tried first; when it fails, or for any other
// format, the depth decides: 16 bits PCO, 8 bits TIFF, float LaVision.
TEST_F(ImageSave, DispatchByFormatAndDepth) {
    const int U8 = IMAGE_UINT8, U16 = IMAGE_UINT16, U32 = IMAGE_UINT32, F = IMAGE_FLOAT;
    const int PCO = PIV::FORMAT_PCO, TIF = PIV::FORMAT_TIFF, LV0 = PIV::FORMAT_LAVISION_0,
              LV3 = PIV::FORMAT_LAVISION_3, BMP = PIV::FORMAT_BMP, PGM = PIV::FORMAT_PGM,
              REFUSED = -PIVerror::IMAGE_TYPE_UNSUPPORTED;
    // Type, format asked for, the format of the file or minus the error code;
    // the PCO writer refuses bytes.
    const int cases[][3] = {
        {U16, -1, PCO},     {U16, TIF, TIF},     {U16, LV0, LV0},  {U16, BMP, PCO}, {U8, -1, TIF},
        {U8, PCO, TIF},     {F, -1, LV3},        {F, LV3, LV3},    {F, TIF, TIF},   {U32, TIF, TIF},
        {U32, -1, REFUSED}, {U32, PCO, REFUSED}, {F, PGM, REFUSED}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "type " << c[0] << " format " << c[1]);
        Image2D img = Filled(4, 4, static_cast<ImageType>(c[0]), 3);
        const std::string path = dir.file("out");
        std::filesystem::remove(path);
        const int code = FailCode(img, img.save(path.c_str(), c[1]));
        EXPECT_EQ(code < 0 ? PIV::GetFileFormat(path.c_str()) : -code, c[2]);
    }
    Image2D empty;
    EXPECT_EQ(FailCode(empty, empty.save(dir.file("out").c_str(), -1)), PIVerror::IMAGE_IS_NULL);
}

TEST_F(ImagePair, ValidityAndSave) {
    Image2D a16(4, 3, IMAGE_UINT16), b16(4, 3, IMAGE_UINT16), b8(4, 3, IMAGE_UINT8),
        small(4, 2, IMAGE_UINT16), empty;
    // Frames, the code of isValid() (-1: valid) and of a PCO save.
    struct Case {
        Image2D *a, *b;
        int validCode, saveCode;
    } cases[] = {
        {&a16, nullptr, PIVerror::INVALID_POINTER, PIVerror::IMAGE_IS_NULL},
        {&empty, &b16, PIVerror::IMAGE_IS_NULL, PIVerror::IMAGE_IS_NULL},
        {&a16, &small, PIVerror::IMAGE_SIZE_MISMATCH, PIVerror::IMAGE_SIZE_MISMATCH},
        {&a16, &b8, -1, PIVerror::IMAGE_TYPE_UNSUPPORTED},
    };
    for (const Case& c : cases) {
        Image2DPair pair(c.a, c.b);
        EXPECT_EQ(FailCode(pair, pair.isValid()), c.validCode);
        EXPECT_EQ(FailCode(pair, pair.save(dir.file("pair.b16").c_str(), PIV::FORMAT_PCO)),
                  c.saveCode);
    }
    EXPECT_EQ(CountEntries(dir.path()), 0);
}

// Both frames in one double-height 16-bit file, A above B: a PCO file for
// every format but TIFF.
TEST_F(ImagePair, SaveWritesADoubleImage) {
    Image2D a(8, 8, IMAGE_UINT16), b(8, 8, IMAGE_UINT16);
    a.testPattern(1, 1, 1);
    b.testPattern(500, 3, 2);
    Image2DPair pair(&a, &b);
    for (int format : {int(PIV::FORMAT_PCO), -1, int(PIV::FORMAT_TIFF)}) {
        SCOPED_TRACE(format);
        const std::string path = dir.file("pair" + std::to_string(format));
        ASSERT_TRUE(pair.save(path.c_str(), format));
        EXPECT_EQ(PIV::GetFileFormat(path.c_str()),
                  format == PIV::FORMAT_TIFF ? PIV::FORMAT_TIFF : PIV::FORMAT_PCO);
        const Image2D both(path);
        ASSERT_EQ(both.height(), 16u);
        Image2D top, bottom;
        top.copyROI(both, 0, 0, 8, 8);
        bottom.copyROI(both, 0, 8, 8, 8);
        EXPECT_TRUE(Pixels(top) == Pixels(a) && Pixels(bottom) == Pixels(b));
    }
}
