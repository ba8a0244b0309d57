// Frames and pairs loaded from files: companions found by name, the load steps
// against the same steps run by hand, double-frame files, modes and bad input.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include "image2d_pair.h"
#include "image_file_builders.h"
#include "image_test_support.h"
#include "piv_enums.h"
#include "piv_imagepair.h"

using namespace image_test;

namespace {

// A frame whose pixels tell where they are: 10 x + 3 y + base.
Image2D Ramp(int w, int h, ImageType type, float base) {
    Image2D img(w, h, type);
    for (int y = 0; y < h; y++)
        for (int x = 0; x < w; x++) img.setPixel(x, y, base + 10.0f * x + 3.0f * y);
    return img;
}

void Save(const Image2D& img, const std::string& path) {
    ASSERT_TRUE(img.saveTIFF(path.c_str())) << path;
}

// Same geometry, type and bytes of every row.
bool SameBytes(const Image2D& a, const Image2D& b) {
    if (!a.isSameSize(b, true)) return false;
    const size_t rowBytes = a.width() * static_cast<size_t>(a.bytesPerPixel());
    for (uint64_t y = 0; y < a.height(); y++)
        if (std::memcmp(a.scanLine<uint8_t>(y), b.scanLine<uint8_t>(y), rowBytes) != 0)
            return false;
    return true;
}

// Runs a test body in another current directory and comes back.
class InDirectory {
public:
    explicit InDirectory(const std::string& dir) : m_old(std::filesystem::current_path()) {
        std::filesystem::current_path(dir);
    }
    ~InDirectory() { std::filesystem::current_path(m_old); }

private:
    std::filesystem::path m_old;
};

using PivImagePair = ScratchFiles;
using PivImage2D = PivImagePair;

}  // namespace

TEST_F(PivImage2D, LookForFileTriesPathAltDirAndBareName) {
    std::filesystem::create_directory(dir.file("alt"));
    std::filesystem::create_directory(dir.file("work"));
    WriteBytes(dir.file("frame.tif"), "x");
    WriteBytes(dir.file("alt/mask_a.tif"), "x");
    WriteBytes(dir.file("alt/my mask.v2_a.tif"), "x");
    WriteBytes(dir.file("work/bkgd.tif"), "x");
    PIV_Image2D img;
    img.setAltDir(dir.file("alt").c_str());
    InDirectory inWork(dir.file("work"));
    struct Case {
        std::string path, expected;
    };
    const Case cases[] = {
        {dir.file("frame.tif"), dir.file("frame.tif")},
        // Moved since the configuration was written: found in the alternate
        // directory, then under the bare name in the current one.
        {"/old/mask_a.tif", dir.file("alt") + "/mask_a.tif"},
        {"c:\\old dir\\my mask.v2_a.tif", dir.file("alt") + "/my mask.v2_a.tif"},
        {"/old/bkgd.tif", "bkgd.tif"},
        {"/old/none.tif", ""},
        {"", ""},
    };
    for (const Case& c : cases) EXPECT_EQ(img.lookForFile(c.path.c_str()), c.expected) << c.path;
    EXPECT_EQ(img.lookForFile(nullptr), "");
}

TEST_F(PivImagePair, LoadedPairEqualsTheStepsRunByHand) {
    Save(Ramp(16, 12, IMAGE_UINT8, 20.0f), dir.file("img0001.tif"));
    Save(Ramp(16, 12, IMAGE_UINT8, 25.0f), dir.file("img0002.tif"));
    Image2D mask = Filled(16, 12, IMAGE_UINT8, 0.0f);
    for (int y = 2; y < 6; y++)
        for (int x = 3; x < 9; x++) mask.setPixel(x, y, 255.0f);
    Save(mask, dir.file("mask.tif"));
    Save(Filled(16, 12, IMAGE_UINT8, 7.0f), dir.file("bkgd.tif"));

    IMAGE_CFG cfg;
    cfg.MaskEnable = true;
    cfg.MaskRandomize = false;  // masked pixels go dark rather than random
    PIV::CopyText(cfg.Mask, dir.file("mask.tif").c_str());
    cfg.BkgdSubtract = true;
    PIV::CopyText(cfg.Bkgd, dir.file("bkgd.tif").c_str());
    cfg.filters.Median = true;
    cfg.filters.MedianSize = 3;
    cfg.filters.Lowpass = true;

    PIV_ImagePair pair;
    pair.setImageCfg(cfg);
    ASSERT_TRUE(pair.load(dir.file("img0001.tif").c_str(), 1, false, true));
    ASSERT_TRUE(pair.isImagePair());

    for (const char* name : {"img0001.tif", "img0002.tif"}) {
        Image2D expected(dir.file(name));
        Image2D m(dir.file("mask.tif")), b(dir.file("bkgd.tif"));
        ASSERT_TRUE(expected.preProcessUsingMaskAndBackground(cfg, &m, &b, false, false, 0));
        ASSERT_TRUE(expected.applyMask(m, false));
        const Image2D& got = std::string(name) == "img0001.tif" ? *pair.imgA() : *pair.imgB();
        EXPECT_TRUE(SameBytes(got, expected)) << name;
        // The masked corner is dark, the rest is not.
        EXPECT_EQ(got.pixel(5, 3), 0.0f);
        EXPECT_GT(got.pixel(12, 9), 0.0f);
    }
}

TEST_F(PivImagePair, DoubleHeightBackgroundGivesTheFramesHalf) {
    Save(Filled(8, 6, IMAGE_UINT16, 100.0f), dir.file("run_a.tif"));
    Save(Filled(8, 6, IMAGE_UINT16, 100.0f), dir.file("run_b.tif"));
    Image2D bkgd(8, 12, IMAGE_UINT16);
    for (int y = 0; y < 12; y++)
        for (int x = 0; x < 8; x++) bkgd.setPixel(x, y, y < 6 ? 10.0f : 20.0f);
    Save(bkgd, dir.file("bkgd.tif"));
    IMAGE_CFG cfg;
    cfg.BkgdSubtract = true;
    PIV::CopyText(cfg.Bkgd, dir.file("bkgd.tif").c_str());
    PIV_ImagePair pair;
    pair.setImageCfg(cfg);
    // run_a -> run_b by the rule of the letter before the dot.
    ASSERT_TRUE(pair.load(dir.file("run_a.tif").c_str(), 1, false, true));
    ASSERT_TRUE(pair.isImagePair());
    EXPECT_EQ(Pixels(*pair.imgA()->background()), std::vector<float>(48, 10.0f));
    EXPECT_EQ(Pixels(*pair.imgB()->background()), std::vector<float>(48, 20.0f));
    EXPECT_LT(pair.imgA()->pixel(3, 3), 100.0f);
}

TEST_F(PivImagePair, DoubleFramePcoFileGivesBothFrames) {
    Image2D a = Ramp(8, 6, IMAGE_UINT16, 1000.0f), b = Ramp(8, 6, IMAGE_UINT16, 3000.0f);
    Image2DPair both(&a, &b);
    const std::string path = dir.file("double.b16");
    ASSERT_TRUE(both.save(path.c_str(), PIV::FORMAT_PCO));

    PIV_ImagePair pair;
    pair.setPCOMode(true);
    ASSERT_TRUE(pair.loadPair(path.c_str(), ""));
    ASSERT_TRUE(pair.isImagePair());
    EXPECT_EQ(Pixels(*pair.imgA()), Pixels(a));
    EXPECT_EQ(Pixels(*pair.imgB()), Pixels(b));

    // Saved again, the frames get a and b behind their common name.
    const std::string out = dir.file("out");
    std::filesystem::create_directory(out);
    ASSERT_TRUE(pair.save(out.c_str(), ""));
    EXPECT_TRUE(std::filesystem::exists(out + "/doublea.img"));  // float after pre-processing
    EXPECT_TRUE(std::filesystem::exists(out + "/doubleb.img"));
}

// Files that hold both frames: an IM7 of two stacked 3 x 2 frames (1..6, then
// 101..106) and a two-page TIFF (pixel (0, 0) 1, then 7). In PCO mode a pair
// takes frame 0 as A and 1 as B; a file named twice, however spelt, or a
// single page in PCO mode gives one frame twice, and the pair says so.
TEST_F(PivImagePair, FilesOfTwoFramesAreKnownAsSuch) {
    std::string words(24, '\0');
    for (int i = 0; i < 12; i++) Put16(words, 2 * i, i < 6 ? i + 1 : i + 95);
    std::string im7 = Im7(0, words, 3, 2);
    Put32(im7, 20, 2);
    const std::string two = dir.file("two.im7"), pages = DataFile("gray8_gray16_pages.tif");
    WriteBytes(two, im7);
    const std::string pagesAgain =
        std::string(KELVANE_TEST_DATA_DIR) + "/./image/" + "gray8_gray16_pages.tif";
    struct Case {
        const char* what;
        bool pcoMode;
        std::string a, b;
        int frames;
        bool same;
        uint64_t heightA;
        float a00, b00;
    } cases[] = {
        {"im7, pco mode", true, two, "", 2, false, 2, 1, 101},
        {"tiff, pco mode", true, pages, "", 2, false, 4, 1, 7},
        {"im7 twice", false, two, two, 2, true, 4, 1, 1},
        {"tiff twice", false, pages, pagesAgain, 2, true, 4, 1, 1},
        {"one page, pco mode", true, DataFile("gray8_strips.tif"), "", 1, true, 4, 1, 1},
        {"two files", false, pages, DataFile("gray8_strips.tif"), 2, false, 4, 1, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        PIV_ImagePair pair;
        pair.setPCOMode(c.pcoMode);
        ASSERT_TRUE(pair.loadPair(c.a.c_str(), c.b.c_str()));
        EXPECT_EQ(pair.frameCount(), c.frames);
        EXPECT_EQ(pair.sameFrameTwice(), c.same);
        EXPECT_EQ(pair.imgA()->height(), c.heightA);
        EXPECT_EQ(pair.imgA()->pixel(0, 0), c.a00);
        EXPECT_EQ(pair.imgB()->pixel(0, 0), c.b00);
    }
}

TEST_F(PivImagePair, AnalysisModes) {
    Save(Ramp(8, 6, IMAGE_UINT8, 1.0f), dir.file("ref.tif"));
    Save(Ramp(8, 6, IMAGE_UINT8, 50.0f), dir.file("shot0001.tif"));
    Save(Ramp(8, 6, IMAGE_UINT8, 90.0f), dir.file("shot0002.tif"));
    // Speckle: frame A is the fixed reference, B the image given.
    PIV_ImagePair speckle;
    speckle.setAnalysisMode(PIV::ANALYSIS_SPECKLE);
    EXPECT_FALSE(speckle.loadPair(dir.file("shot0002.tif").c_str(), "x"));  // no reference
    speckle.setReferenceImage(dir.file("ref.tif").c_str());
    ASSERT_TRUE(speckle.loadPair(dir.file("shot0002.tif").c_str(), "x"));
    EXPECT_STREQ(speckle.imgA()->name(), dir.file("ref.tif").c_str());
    EXPECT_STREQ(speckle.imgB()->name(), dir.file("shot0002.tif").c_str());
    // load() passes no second name, and speckle wants both.
    EXPECT_FALSE(speckle.load(dir.file("shot0002.tif").c_str(), 1, false, true));

    // Autocorrelation: one double-exposed frame.
    PIV_ImagePair single;
    single.setAnalysisMode(PIV::ANALYSIS_AUTO_CORRELATION);
    ASSERT_TRUE(single.load(dir.file("shot0001.tif").c_str(), 1, false, true));
    EXPECT_TRUE(single.imgB()->isNull());

    // Cross-correlation with a separation of 1 and without a second frame.
    PIV_ImagePair pair;
    ASSERT_TRUE(pair.load(dir.file("shot0001.tif").c_str(), 1, false, false));
    EXPECT_TRUE(pair.imgB()->isNull());
    EXPECT_FALSE(pair.isImagePair());
    ASSERT_TRUE(pair.load(dir.file("shot0001.tif").c_str(), 1, false, true));
    EXPECT_EQ(pair.imgB()->pixel(0, 0), 90.0f);
}

TEST_F(PivImagePair, BadInputLoadsWhatItCan) {
    Save(Ramp(8, 6, IMAGE_UINT8, 1.0f), dir.file("lone0007.tif"));
    Save(Ramp(8, 6, IMAGE_UINT8, 1.0f), dir.file("plain.tif"));
    Save(Filled(4, 4, IMAGE_UINT8, 255.0f), dir.file("small_mask.tif"));
    PIV_ImagePair pair;
    // No frame 0008: A loaded, B empty, no pair.
    EXPECT_FALSE(pair.load(dir.file("lone0007.tif").c_str(), 1, false, true));
    EXPECT_FALSE(pair.imgA()->isNull());
    EXPECT_TRUE(pair.imgB()->isNull());
    EXPECT_FALSE(pair.isImagePair());
    // No digits: no second name, so the second load fails.
    EXPECT_FALSE(pair.load(dir.file("plain.tif").c_str(), 1, false, true));
    EXPECT_FALSE(pair.isImagePair());
    // No file at all, or no name.
    EXPECT_FALSE(pair.load(dir.file("missing0001.tif").c_str(), 1, false, true));
    EXPECT_TRUE(pair.isNull());
    EXPECT_FALSE(pair.loadPair("", ""));
    EXPECT_FALSE(pair.loadPair(nullptr, nullptr));
    EXPECT_FALSE(pair.reloadImages());
    // A mask of another size is left out: the frame loads unmasked.
    IMAGE_CFG cfg;
    cfg.MaskEnable = true;
    cfg.MaskRandomize = false;
    PIV::CopyText(cfg.Mask, dir.file("small_mask.tif").c_str());
    PIV_Image2D frame;
    frame.setImageCfg(cfg);
    ASSERT_TRUE(frame.load(dir.file("plain.tif").c_str(), false));
    EXPECT_FALSE(frame.isMaskAvailable());
    EXPECT_EQ(frame.pixel(1, 1), 1.0f + 10.0f + 3.0f);
    // A missing mask file is no failure either.
    PIV::CopyText(cfg.Mask, dir.file("gone.tif").c_str());
    frame.setImageCfg(cfg);
    EXPECT_TRUE(frame.load(dir.file("plain.tif").c_str(), false));
    EXPECT_FALSE(frame.isMaskAvailable());
}

TEST_F(PivImage2D, CropAfterLoad) {
    Save(Ramp(16, 12, IMAGE_UINT8, 0.0f), dir.file("c.tif"));
    IMAGE_CFG cfg;
    cfg.Crop = true;
    cfg.CropRect = RECT3D{4, 12, 2, 8, 0, 0};
    PIV_Image2D img;
    img.setImageCfg(cfg);
    ASSERT_TRUE(img.load(dir.file("c.tif").c_str(), false));
    EXPECT_EQ(Shape(img), Shape(8, 6, IMAGE_FLOAT));
    EXPECT_EQ(img.pixel(0, 0), 40.0f + 6.0f);
}
