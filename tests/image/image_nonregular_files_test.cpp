// Names of things that are no files: a folder, a named pipe nobody writes
// to, an endless device. No loader may wait on them or read them for ever.

#include "image_format.h"
#include "image_test_support.h"

using namespace image_test;
using test_support::SpecialFiles;

TEST(SpecialFiles, NoImageLoaderOpensThem) {
    ScratchDir dir;
    const std::vector<std::string> paths = SpecialFiles(dir, ".tif");
    ASSERT_GE(paths.size(), 2u);
    for (const std::string& path : paths) {
        SCOPED_TRACE(path);
        const char* p = path.c_str();
        EXPECT_EQ(PIV::GetFileFormat(p), PIV::FORMAT_NOT_FOUND);
        int format = -1, width = -1, height = -1, frames = -1;
        EXPECT_FALSE(Image2D::GetImageInfo(p, &format, nullptr, &width, &height, &frames));
        EXPECT_EQ(frames, 0);

        Image2D img;
        EXPECT_EQ(FailCode(img, img.load(p)), PIVerror::FILE_NOT_FOUND);
        EXPECT_TRUE(img.isNull());
        // Each reader called directly cannot open them either.
        EXPECT_EQ(FailCode(img, img.loadTIFF(p, 0)), PIVerror::FILE_OPEN_FAILED);
        EXPECT_EQ(FailCode(img, img.loadPGM(p)), PIVerror::FILE_OPEN_FAILED);
        EXPECT_EQ(FailCode(img, img.loadBMP(p, 0)), PIVerror::FILE_OPEN_FAILED);
        EXPECT_EQ(FailCode(img, img.loadPCO(p, 0)), PIVerror::FILE_OPEN_FAILED);
        EXPECT_EQ(FailCode(img, img.loadLavVC7(p, 0)), PIVerror::FILE_READ_FAILED);
        // A raw frame of 4 x 4 bytes would read as zeros from /dev/zero.
        EXPECT_EQ(FailCode(img, img.loadRaw(p, 4, 4, 8, 0)), PIVerror::FILE_OPEN_FAILED);
        EXPECT_TRUE(img.isNull());
    }
}
