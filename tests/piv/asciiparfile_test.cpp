// ASCIIParFile: the line syntax, lookup, groups, and writing a list back.
#include "asciiparfile.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "message_capture.h"
#include "scratch_files.h"

using test_support::ReadBytes;
using test_support::ScratchDir;
using test_support::WriteBytes;

namespace {

constexpr int kUntouched = -7;

struct SyntaxCase {
    const char* name;
    std::string text;  // the whole file
    const char* key;
    bool found;
    std::vector<int> ints;  // the first values read as int; kUntouched where none
};

std::string Line(std::size_t length, char fill = 'x') {
    return std::string(length, fill);
}

// clang-format off
const SyntaxCase kSyntaxCases[] = {
    {"PlainLine", "Key = 5\n", "Key", true, {5, kUntouched}},
    {"LastLineWithoutLineFeedIsLost", "Ab = 1\nKey = 5", "Key", false, {}},
    {"LinesBeforeAnUnfinishedLastOneCount", "Ab = 1\nKey = 5", "Ab", true, {1}},
    {"LineOf1023CharactersIsRead", "# " + Line(1021) + "\nKey = 2\n", "Key", true, {2}},
    {"LineOf1024CharactersEndsTheFile", "Key = 1\n# " + Line(1022) + "\nAfter = 2\n", "After", false, {}},
    {"LinesBeforeAnOverlongLineCount", "Key = 1\n# " + Line(1022) + "\nAfter = 2\n", "Key", true, {1}},
    {"OneCharacterKeyIsDropped", "K = 5\n", "K", false, {}},
    {"TwoCharacterKeyIsKept", "Ke = 5\n", "Ke", true, {5}},
    {"ElevenValuesKeepTen", "Key = 1,2,3,4,5,6,7,8,9,10,11\n", "Key", true, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}},
    {"FirstOfDuplicateKeysWins", "Key = 1\nKey = 2\n", "Key", true, {1}},
    {"RunsOfSeparators", "Key;;= 3 ,, 4;\n", "Key", true, {3, 4, kUntouched}},
    {"HashStartsAComment", "  # Key = 5\n", "Key", false, {}},
    {"BracketStartsAComment", "[Key] = 5\n", "[Key]", false, {}},
    {"EmptyValueLeavesAnArrayAlone", "Key =\n", "Key", true, {kUntouched}},
    {"TextReadsAsZero", "Key = abc\n", "Key", true, {0}},
    {"HugeIntegersSaturate", "Key = 99999999999999999999,-99999999999999999999\n", "Key", true, {INT_MAX, INT_MIN}},
    // A string resumes the scan behind its closing quote plus the length of
    // its first run: the 5 lies inside that overshoot, the 7 does not.
    {"ValueRightBehindAStringIsLost", "Key = \"ab\",5\n", "Key", true, {0, kUntouched}},
    {"ValueFarBehindAStringIsRead", "Key = \"a b\" , 7\n", "Key", true, {0, 7}},
    {"BinaryZeroEndsTheLine", std::string("Key = 1,\0 2\n", 12), "Key", true, {1, kUntouched}},
};
// clang-format on

TEST(ParFileSyntax, ReadsAsTheLineSays) {
    ScratchDir dir;
    for (const SyntaxCase& c : kSyntaxCases) {
        SCOPED_TRACE(c.name);
        WriteBytes(dir.file("t.par"), c.text);
        ASCIIParFile file(dir.file("t.par").c_str());
        std::vector<int> values(ASCIIParFile::MaxValues, kUntouched);
        EXPECT_EQ(file.serializeArray(c.key, values.data(), ASCIIParFile::MaxValues), c.found);
        values.resize(c.ints.size());
        EXPECT_EQ(values, c.ints);
    }
}

std::unique_ptr<ASCIIParFile> ReadText(const ScratchDir& dir, const std::string& text) {
    WriteBytes(dir.file("in.par"), text);
    return std::make_unique<ASCIIParFile>(dir.file("in.par").c_str());
}

TEST(ParFileRead, NumbersOfEveryType) {
    ScratchDir dir;
    auto file = ReadText(dir,
                         "Fa = 1e300\nFb = -1e300\nDa = 1e999\nUa = -5\nUc = 300\nBa = 2\n"
                         "Bb = 0\nFc = 0.1\nEmpty =\n");
    // Each key read into a variable of the type its start value has.
    auto read = [&](const char* key, auto start) {
        EXPECT_EQ(file->serialize(key, &start), 1) << key;
        return start;
    };
    EXPECT_EQ(read("Fa", 0.0f), FLT_MAX);
    EXPECT_EQ(read("Fc", 0.0f), 0.1f);
    EXPECT_EQ(read("Da", 0.0), DBL_MAX);
    EXPECT_EQ(read("Ua", 9u), 0u);
    EXPECT_EQ(read("Uc", static_cast<unsigned char>(9)), 255);
    EXPECT_TRUE(read("Ba", false));
    EXPECT_FALSE(read("Bb", true));
    EXPECT_EQ(read("Empty", 5), 0);
}

TEST(ParFileRead, CompoundsZeroMissingComponentsValsKeepThem) {
    ScratchDir dir;
    auto file = ReadText(dir, "Size = 7\nVals = 1\n");
    SIZE3D size{9, 9, 9};
    EXPECT_EQ(file->serialize("Size", &size), 1);
    EXPECT_EQ((std::vector<int>{size.width, size.height, size.depth}), (std::vector<int>{7, 0, 0}));
    int a = 9, b = 9;
    EXPECT_EQ(file->serializeVals("Vals", &a, &b), 1);
    EXPECT_EQ(std::make_pair(a, b), std::make_pair(1, 9));
}

TEST(ParFileRead, MissingFileIsError26AndAnEmptyList) {
    MessageCapture messages;
    ScratchDir dir;
    ASCIIParFile file(dir.file("none.par").c_str());
    EXPECT_TRUE(file.isEmpty());
    EXPECT_FALSE(file.isValid());
    EXPECT_EQ(file.error().getLastErrorCode(), PIVerror::FILE_OPEN_FAILED);
}

TEST(ParFileWrite, FormatOfEveryKind) {
    ScratchDir dir;
    const std::string path = dir.file("out.par");
    ASCIIParFile file(path.c_str(), ASCIIParFile::WRITE);
    ASSERT_TRUE(file.isValid());
    file.addComment("#!top");
    file.beginGroup("A_");
    file.beginGroup("B_");
    auto put = [&](const char* key, auto value) { file.serialize(key, &value); };
    put("Int", -3);
    put("UInt", 4000000000u);
    put("Bool", true);
    file.endGroup();
    put("Float", 0.1f);
    put("Double", 1234567.0);
    put("Size", SIZE3D{1, 2, 3});
    put("Point", POINT2D{-4, 5});
    put("FPoint", FPOINT3D{0.5f, -2.25f, 1e-7f});
    char text[] = "a, b = c";
    file.serializeString("Text", text, sizeof(text));
    double arr[3] = {1.5, 2, 1e20};
    file.serializeArray("Array", arr, 3);
    file.endGroup();
    EXPECT_EQ(file.endGroup(), 0);
    EXPECT_EQ(file.close(), 1);
    EXPECT_EQ(ReadBytes(path),
              "#!top\n"
              "A_B_Int = -3\n"
              "A_B_UInt = 4000000000\n"
              "A_B_Bool = 1\n"
              "A_Float = 0.1\n"
              "A_Double = 1.23457e+06\n"
              "A_Size = 1,2,3\n"
              "A_Point = -4,5\n"
              "A_FPoint = 0.5,-2.25,1e-07\n"
              "A_Text = \"a, b = c\"\n"
              "A_Array = 1.5,2,1e+20\n");
}

TEST(ParFileWrite, RectanglesGoByExtentAndComeBackInOrder) {
    ScratchDir dir;
    const std::string path = dir.file("rect.par");
    ASCIIParFile out(path.c_str(), ASCIIParFile::WRITE);
    RECT3D swapped{100, 50, 30, 10, 5, 1};
    RECT2D flat{-10, -20, 7, 7};
    out.serialize("R3", &swapped);
    out.serialize("R2", &flat);
    out.close();
    EXPECT_EQ(ReadBytes(path), "R3 = 100,30,50,20,5,4\nR2 = -10,7,10,0\n");

    ASCIIParFile in(path.c_str());
    RECT3D back{};
    RECT2D flatBack{};
    in.serialize("R3", &back);
    in.serialize("R2", &flatBack);
    EXPECT_TRUE(back.isIdentical(RECT3D{100, 150, 30, 50, 5, 9}));
    EXPECT_EQ((std::vector<int>{flatBack.left, flatBack.right, flatBack.top, flatBack.bottom}),
              (std::vector<int>{-10, 0, 7, 7}));
}

TEST(ParFileWrite, GroupDepthNineIsTheLimit) {
    ScratchDir dir;
    const std::string path = dir.file("g.par");
    ASCIIParFile file(path.c_str(), ASCIIParFile::WRITE);
    for (int g = 1; g <= 9; g++)
        EXPECT_EQ(file.beginGroup(("g" + std::to_string(g) + "_").c_str()), 1);
    EXPECT_EQ(file.beginGroup("tenth_"), 0);
    int v = 1;
    file.serialize("Key", &v);
    file.close();
    EXPECT_EQ(ReadBytes(path), "g1_g2_g3_g4_g5_g6_g7_g8_g9_Key = 1\n");
}

TEST(ParFileWrite, ReadListIsWrittenBackWithItsComments) {
    ScratchDir dir;
    auto file = ReadText(dir, "  # indented comment\n\nKey=5,6\n[ section ]\nStr = \"x y\"\n");
    EXPECT_EQ(file->create(dir.file("copy.par").c_str()), 1);
    EXPECT_EQ(file->close(), 1);
    // Empty lines are not kept; separators are written in the one form.
    EXPECT_EQ(ReadBytes(dir.file("copy.par")),
              "  # indented comment\nKey = 5,6\n[ section ]\nStr = \"x y\"\n");
}

TEST(ParFileWrite, TooLongStringIsRefused) {
    MessageCapture messages;
    ScratchDir dir;
    ASCIIParFile file(dir.file("s.par").c_str(), ASCIIParFile::WRITE);
    char unterminated[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(file.serializeString("Str", unterminated, sizeof(unterminated)), 0);
    EXPECT_TRUE(file.isEmpty());
}

TEST(ParFileWrite, AppendKeepsWhatTheFileHeld) {
    ScratchDir dir;
    const std::string path = dir.file("a.par");
    WriteBytes(path, "Old = 1\n");
    ASCIIParFile file(path.c_str(), ASCIIParFile::WRITE, true);
    int v = 2;
    file.serialize("New", &v);
    EXPECT_EQ(file.close(), 1);
    EXPECT_EQ(ReadBytes(path), "Old = 1\nNew = 2\n");
}

TEST(ParFileWrite, UnwritableTargetsFailAndLeaveNoTrace) {
    MessageCapture messages;
    ScratchDir dir;
    ASCIIParFile nowhere(dir.file("missing/x.par").c_str(), ASCIIParFile::WRITE);
    int v = 1;
    nowhere.serialize("Key", &v);
    EXPECT_EQ(nowhere.close(), 0);
    EXPECT_EQ(nowhere.error().getLastErrorCode(), PIVerror::FILE_CREATE_FAILED);

    std::filesystem::create_directory(dir.file("sub"));
    ASCIIParFile blocked(dir.file("sub").c_str(), ASCIIParFile::WRITE);
    blocked.serialize("Key", &v);
    EXPECT_EQ(blocked.close(), 0);
    EXPECT_EQ(blocked.error().getLastErrorCode(), PIVerror::FILE_WRITE_FAILED);
    EXPECT_TRUE(std::filesystem::is_directory(dir.file("sub")));
    // Only the directory is left: no temporaries.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);
}

}  // namespace
