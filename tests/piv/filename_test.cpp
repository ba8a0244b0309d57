// The naming rules of image pairs and numbered sequences, as worked examples.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "image_types.h"
#include "message_capture.h"
#include "piv_filelist.h"
#include "piv_filename.h"
#include "scratch_files.h"

using test_support::ScratchDir;

namespace {

struct NameCase {
    const char* path;
    int step;
    const char* expected;
};

// Files of the names given, each holding one byte, in a scratch folder.
void Touch(const ScratchDir& dir, std::initializer_list<const char*> names) {
    for (const char* n : names) test_support::WriteBytes(dir.file(n), "x");
}

}  // namespace

TEST(SecondImageName, EachRuleByExample) {
    const NameCase cases[] = {
        // Rules 1 to 4: the LaVision-style extensions move one letter on.
        {"run1.ima", 1, "run1.imb"},
        {"RUN1.IMA", 1, "RUN1.IMB"},
        {"run1.imb", 1, "run1.imc"},
        {"RUN1.IMB", 1, "RUN1.IMC"},
        // Rules 5 and 6: a letter before the dot.
        {"run1a.tif", 1, "run1b.tif"},
        {"run1A.tif", 1, "run1B.tif"},
        // Both rules look at the whole path but change the letter before the
        // extension: a directory "data.a.set" turns img7 into imgb.
        {"/data.a.set/img7.tif", 1, "/data.a.set/imgb.tif"},
        {"/DATA.A.SET/img7.tif", 1, "/DATA.A.SET/imgB.tif"},
        // Rule 7: the sequence, by the separation, 0 counting as 1.
        {"img0007.tif", 1, "img0008.tif"},
        {"img0007.tif", 0, "img0008.tif"},
        {"c:\\data\\img0007.tif", 2, "c:/data/img0009.tif"},
        // No dot in the name, or no digits: no second name.
        {"data", 1, ""},
        {"/dir.d/data", 1, ""},
        {"img.tif", 1, ""},
    };
    MessageCapture quiet;
    for (const NameCase& c : cases)
        EXPECT_STREQ(PIV::GetSecondImageName(c.path, c.step), c.expected) << c.path;
    EXPECT_STREQ(PIV::GetSecondImageName(nullptr, 1), "");
}

TEST(NextFileInSequence, NumbersGrowAndLeadingDigitsStay) {
    const NameCase cases[] = {
        {"img0009.tif", 1, "img0010.tif"},
        {"img99.tif", 1, "img100.tif"},
        // The sum "99" overwrites the last two digits; the leading 1 stays.
        {"img100.tif", -1, "img199.tif"},
        {"dir/7.tif", 5, "dir/12.tif"},
        {"img7_a.tif", 1, ""},
        {"dir.3/img", 1, ""},
    };
    MessageCapture quiet;
    for (const NameCase& c : cases)
        EXPECT_STREQ(PIV::GetNextFileInSequence(c.path, c.step), c.expected) << c.path;
    EXPECT_STREQ(PIV::GetNextFileInSequence(nullptr, 1), "");
}

TEST(PIVFileName, AnalyseSplitsEveryPart) {
    struct Case {
        const char *path, *directory, *stub, *base, *number;
        int value;
        bool hasNumber;
        const char *suffix, *partner, *extension;
    };
    const Case cases[] = {
        {"img_0012_b.tif", "", "img_", "img_0012", "0012", 12, true, "_b", "_a", ".tif"},
        {"/d/run7a.b16", "/d/", "run", "run7", "7", 7, true, "a", "b", ".b16"},
        {"c:\\x\\run7_2.tif", "c:/x/", "run", "run7", "7", 7, true, "_2", "_1", ".tif"},
        {"/d/vol_3C.tif", "/d/", "vol", "vol", "", 0, false, "_3C", "", ".tif"},
        {"/d/slice12_3c.tif", "/d/", "slice", "slice12", "12", 12, true, "_3c", "", ".tif"},
        // A purely numeric base name has no number.
        {"1234.tif", "", "1234", "1234", "", 0, false, "", "", ".tif"},
        // Names of fewer than 3 characters keep their letters.
        {"ab.tif", "", "ab", "ab", "", 0, false, "", "", ".tif"},
        {"noext", "", "noext", "noext", "", 0, false, "", "", ""},
        {"my scan.v2.A.tif", "", "my scan.v2.", "my scan.v2.", "", 0, false, "A", "B", ".tif"},
    };
    for (const Case& c : cases) {
        PIVFileName f(c.path);
        const std::vector<std::string> got = {
            f.directory(), f.stub(),          f.baseName(),  f.numberText(),
            f.suffix(),    f.partnerSuffix(), f.extension(), f.hasNumber() ? "#" : ""};
        EXPECT_EQ(got, (std::vector<std::string>{c.directory, c.stub, c.base, c.number, c.suffix,
                                                 c.partner, c.extension, c.hasNumber ? "#" : ""}))
            << c.path;
        EXPECT_EQ(f.number(), c.value) << c.path;
        EXPECT_EQ(f.digits(), static_cast<int>(std::string(c.number).size())) << c.path;
    }
}

TEST(PathFunctions, PartsOfAPath) {
    EXPECT_STREQ(PIV::GetFileNameFromPath("/a/b/img_a.tif"), "img_a.tif");
    EXPECT_STREQ(PIV::GetFileNameFromPath(nullptr), "");
    EXPECT_STREQ(PIV::GetFileNameFromPath(std::string(2048, 'x').c_str()), "");
    EXPECT_STREQ(PIV::GetBaseNameFromPath("/a/b/img_a.v1.tif"), "img_a.v1");
    EXPECT_STREQ(PIV::GetExtensionFromPath("/a.b/img"), "");
    EXPECT_STREQ(PIV::GetDirectoryFromPath("/a/b/img.tif"), "/a/b/");
    // Only the file's own extension is replaced.
    EXPECT_STREQ(PIV::CreateFileName("/d.x/run", "nc"), "/d.x/run.nc");
    EXPECT_STREQ(PIV::CreateCleanFileName("/d/run_0001_a.tif", "nc"), "/d/run_0001.nc");
    // A root-level file gives the current directory.
    char cwd[4096];
    ASSERT_NE(::getcwd(cwd, sizeof(cwd)), nullptr);
    EXPECT_EQ(PIV::GetDirectoryFromPath("/img.tif"), std::string(cwd) + "/");
}

// Workers of a batch name files at the same time: each thread's names are
// its own. The threads take turns, so that each checks its name after the
// other has derived one: with one buffer for all, every check would see the
// other thread's name.
TEST(PathFunctions, ThreadsDeriveNamesIndependently) {
    constexpr int kNames = 100000;
    std::atomic<int> turn{0};
    auto derive = [&turn](int me, const std::string& stub, int* wrong) {
        for (int i = 0; i < kNames; i++) {
            const std::string number = std::to_string(10000 + i);
            const int mine = 2 * i + me;                         // this thread's turn
            const int checkAt = std::min(mine + 2, 2 * kNames);  // after the other's next name
            while (turn.load() != mine) std::this_thread::yield();
            const char* name = PIV::GetSecondImageName((stub + number + "a.tif").c_str(), 1);
            turn++;
            while (turn.load() < checkAt) std::this_thread::yield();
            if (stub + number + "b.tif" != name) ++*wrong;
        }
    };
    int wrongOne = 0, wrongTwo = 0;
    std::thread one(derive, 0, "r", &wrongOne);
    std::thread two(derive, 1, "/data/campaign/run", &wrongTwo);
    one.join();
    two.join();
    EXPECT_EQ(wrongOne, 0);
    EXPECT_EQ(wrongTwo, 0);
}

TEST(FileList, SequencesInARealFolder) {
    ScratchDir dir;
    // Padded frames with a gap at 0004, unpadded ones across a power of ten.
    Touch(dir, {"p0001.tif", "p0002.tif", "p0003.tif", "p0005.tif", "p0006.tif", "u8.tif", "u9.tif",
                "u10.tif", "u11.tif", "cam0001_a.tif", "cam0002_a.tif"});
    struct Case {
        const char *first, *last;
        int stride;
        bool check;
        const char* names;
    };
    const Case cases[] = {
        // The missing 0004 is skipped when existence is checked, and listed when not.
        {"p0001.tif", "p0006.tif", 1, true, "p0001.tif p0002.tif p0003.tif p0005.tif p0006.tif"},
        {"p0001.tif", "p0006.tif", 1, false,
         "p0001.tif p0002.tif p0003.tif p0004.tif p0005.tif p0006.tif"},
        {"p0001.tif", "p0006.tif", 2, true, "p0001.tif p0003.tif p0005.tif"},
        {"p0001.tif", "p0006.tif", 0, true, "p0001.tif p0002.tif p0003.tif p0005.tif p0006.tif"},
        {"u8.tif", "u11.tif", 1, true, "u8.tif u9.tif u10.tif u11.tif"},
        // Text behind the number stays with each name.
        {"cam0001_a.tif", "cam0002_a.tif", 1, true, "cam0001_a.tif cam0002_a.tif"},
        // A range with no file on disk, or first beyond last: an empty list, still a success.
        {"q0001.tif", "q0003.tif", 1, true, ""},
        {"p0006.tif", "p0001.tif", 1, true, ""},
    };
    ::testing::internal::CaptureStderr();
    for (const Case& c : cases) {
        FileList list;
        EXPECT_TRUE(
            list.buildList(dir.file(c.first).c_str(), dir.file(c.last).c_str(), c.stride, c.check))
            << c.first;
        std::string names;
        for (int i = 0; i < list.count(); i++)
            names += (i ? " " : "") + std::string(list.file(i)).substr(dir.path().size() + 1);
        EXPECT_EQ(names, c.names) << c.first;
    }
    const std::string errors = ::testing::internal::GetCapturedStderr();
    EXPECT_NE(errors.find("File not found: " + dir.file("p0004.tif")), std::string::npos);
    FileList list(dir.file("p0001.tif").c_str(), dir.file("p0006.tif").c_str(), 1, false);
    EXPECT_STREQ(list.fileIndexString(3), "0004");
}

TEST(FileList, BuildFileListAppendAndBadNames) {
    ScratchDir dir;
    Touch(dir, {"s01.b16", "s03.b16"});
    StringArray names;
    char stub[16];
    MessageCapture messages;
    DebugLevelScope level(1);
    EXPECT_TRUE(PIV::BuildFileList(names, dir.file("s01.b16").c_str(), dir.file("s03.b16").c_str(),
                                   1, true, stub, sizeof(stub)));
    ASSERT_EQ(names.size(), 2u);
    EXPECT_EQ(names[1], dir.file("s03.b16"));
    // The stub is cut to the buffer given.
    EXPECT_EQ(std::string(stub), dir.file("s").substr(0, 15));

    FileList list;
    EXPECT_TRUE(list.append(dir.file("s01.b16").c_str(), true));
    EXPECT_FALSE(list.append(dir.file("s02.b16").c_str(), true));
    EXPECT_TRUE(list.append("/else/t007.tif", false));
    EXPECT_EQ(list.count(), 2);
    EXPECT_STREQ(list.fileStub(), "/else/t");

    // No name, or two extensions, are refused.
    FileList none;
    EXPECT_FALSE(none.buildList("", "p0002.tif", 1, false));
    EXPECT_FALSE(none.buildList("p0001.tif", "p0002.b16", 1, false));
    EXPECT_EQ(none.count(), 0);
    EXPECT_PRED_FORMAT2(testing::IsSubstring, "Mismatch in file extensions", messages.all());
}

TEST(PathFunctions, DefaultParameterFileIsCutAt2047Characters) {
    PIV::SetDefaultParFile(std::string(3000, 'p').c_str());
    EXPECT_TRUE(PIV::UseDefaultParFile());
    EXPECT_EQ(std::string(PIV::GetDefaultParFile()).size(), 2047u);
    PIV::SetDefaultParFile(nullptr);
}

// Name lists that never look at the disk; the pair list grows past its first block.
TEST(FileLists, StringAndPairListsWithoutTheDisk) {
    StringFileList* list = new StringFileList("/nowhere/a08.tif", "/nowhere/a12.tif", 2);
    EXPECT_EQ(list->fileString(1), "/nowhere/a10.tif");
    list->release();
    FilePairList pairs;
    for (int i = 0; i < 300; i++)
        ASSERT_TRUE(pairs.append(FILE_PAIR(("a" + std::to_string(i)).c_str(), "b")));
    EXPECT_STREQ(pairs[299].fileA, "a299");
    EXPECT_FALSE(pairs[300].valid);
}
