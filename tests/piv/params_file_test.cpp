// Parameter files of the settings records: the written form against a file
// written by hand from the tables of keys, reading, round trips, views,
// recognition and the failures of PIV_Parameters::read.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cfloat>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "asciiparfile.h"
#include "message_capture.h"
#include "par_records.h"
#include "piv_params.h"
#include "piv_params_io.h"
#include "scratch_files.h"

using par_test::CarriedDifferences;
using par_test::FillRandom;
using par_test::ParRecords;
using test_support::ReadBytes;
using test_support::ScratchDir;
using test_support::WriteBytes;

namespace {

const std::string kGolden = std::string(KELVANE_TEST_DATA_DIR) + "/par/defaults_view0.par";

std::string Save(const ScratchDir& dir, ParRecords& r, int view = 0,
                 const std::string& name = "out.par") {
    const std::string path = dir.file(name);
    EXPECT_EQ(PIV::SaveParametersASCII(path.c_str(), &r.params, &r.image, &r.post, view), 1);
    return path;
}

int Read(const std::string& path, ParRecords& r, int view = 0) {
    return PIV::ReadParametersASCII(path.c_str(), &r.params, &r.image, &r.post, view);
}

bool SameRecords(const ParRecords& a, const ParRecords& b) {
    return PIV::SameRecord(a.params, b.params) && PIV::SameRecord(a.image, b.image) &&
           PIV::SameRecord(a.post, b.post);
}

TEST(ParameterFileGolden, DefaultsAreWrittenAsTheHandWrittenFile) {
    ScratchDir dir;
    ParRecords defaults;
    const std::string golden = ReadBytes(kGolden);
    ASSERT_FALSE(golden.empty());
    EXPECT_EQ(ReadBytes(Save(dir, defaults)), golden);
}

TEST(ParameterFileGolden, ReadingSetsEveryCarriedFieldToItsDefault) {
    std::mt19937 rng(1);
    ParRecords read;
    FillRandom(read, rng);
    ASSERT_EQ(Read(kGolden, read), 1);
    EXPECT_EQ(CarriedDifferences(ParRecords(), read), std::vector<std::string>());
    EXPECT_GT(par_test::CarriedFieldCount(), 200);
}

TEST(ParameterFileRoundTrip, RandomRecordsComeBack) {
    ScratchDir dir;
    std::mt19937 rng(20240611);
    for (int round = 0; round < 150; round++) {
        ParRecords original, read;
        FillRandom(original, rng);
        FillRandom(read, rng);
        const ParRecords before = original;
        const std::string path = Save(dir, original, round % 3);
        EXPECT_TRUE(SameRecords(before, original)) << "saving changed the caller's records";
        ASSERT_EQ(Read(path, read, round % 3), 1);
        const std::vector<std::string> diff = CarriedDifferences(original, read);
        ASSERT_TRUE(diff.empty()) << "round " << round << ": " << diff.front();
    }
}

TEST(ParameterFileViews, OneFileHoldsSeveralViews) {
    ScratchDir dir;
    std::mt19937 rng(5);
    ParRecords view0, view1;
    FillRandom(view0, rng);
    FillRandom(view1, rng);
    const std::string both = dir.file("both.par");
    WriteBytes(both,
               ReadBytes(Save(dir, view0, 0, "v0.par")) + ReadBytes(Save(dir, view1, 1, "v1.par")));

    ParRecords untouched;
    EXPECT_EQ(Read(dir.file("v1.par"), untouched, 0), 1);
    EXPECT_TRUE(SameRecords(untouched, ParRecords())) << "View1_ keys were seen for view 0";

    ParRecords read0, read1;
    Read(both, read0, 0);
    Read(both, read1, 1);
    EXPECT_TRUE(CarriedDifferences(view0, read0).empty());
    EXPECT_TRUE(CarriedDifferences(view1, read1).empty());
}

// A number in a switch's place sets it only above zero.
TEST(ParameterFileKeys, EnableNumbersSetOnlyAboveZero) {
    using Flag = bool& (*)(ParRecords&);
    const Flag magnitude = [](ParRecords& r) -> bool& {
        return r.params.outlier.CheckDisplacement;
    };
    const Flag hist1 = [](ParRecords& r) -> bool& { return r.params.outlier.GlobalHist[1].type1; };
    const Flag hist2 = [](ParRecords& r) -> bool& { return r.params.outlier.GlobalHist[1].type2; };
    const struct {
        const char* line;
        Flag flag;
        bool expected;
    } cases[] = {
        {"View0_PIV_Validation_Magnitude = -1,10", magnitude, false},
        {"View0_PIV_Validation_Magnitude = 0.5,10", magnitude, true},
        {"View0_PIV_Validation_GlobalHist_1_Flags = -1,2", hist1, false},
        {"View0_PIV_Validation_GlobalHist_1_Flags = -1,2", hist2, true},
    };
    ScratchDir dir;
    for (const auto& c : cases) {
        WriteBytes(dir.file("e.par"), std::string(c.line) + "\n");
        ParRecords r;
        c.flag(r) = !c.expected;  // the opposite, so that the line must decide
        ASSERT_EQ(Read(dir.file("e.par"), r), 1);
        EXPECT_EQ(c.flag(r), c.expected) << c.line;
    }
}

TEST(ParameterFileKeys, MethodDescriptionFollowsMethodAndDeformation) {
    const struct {
        int method, mode;
        const char* text;
    } cases[] = {{0, 2, "single-pass cross-correlation"},
                 {1, 0, "multiple-pass cross-correlation"},
                 {1, 1, "multiple-pass with image-deformation"},
                 {2, 2, "multigrid with image-deformation"},
                 {7, 1, "single-pass cross-correlation"}};
    ScratchDir dir;
    for (const auto& c : cases) {
        ParRecords r;
        r.params.eval.Method = c.method;
        r.params.eval.ImageMapping2D.Mode = c.mode;
        const std::string line =
            "View0_PIV_Eval_MethodDescription = \"" + std::string(c.text) + "\"\n";
        EXPECT_TRUE(HasText(ReadBytes(Save(dir, r)), line));
    }
}

TEST(ParameterFileKeys, DerivedKeysAreIgnoredOnReading) {
    ScratchDir dir;
    WriteBytes(dir.file("d.par"),
               "View0_PIV_Eval_MethodDescription = \"bogus\"\n"
               "View0_PIV_Conv_PulseDelayUnits = \"seconds\"\n"
               "View0_PIV_Image_Highpass = 1,3,99\n");
    ParRecords r;
    ASSERT_EQ(Read(dir.file("d.par"), r), 1);
    EXPECT_STREQ(r.params.convert.PulseDelayUnits, "us");
    EXPECT_TRUE(r.image.filters.Highpass);
    EXPECT_EQ(r.image.filters.HighpassCutOff, 3.0f);
}

TEST(ParameterFileKeys, SquarenessRatioCarriesTheYFactor) {
    ScratchDir dir;
    ParRecords r;
    r.params.convert.LengthConversion[0] = 2.0;
    r.params.convert.LengthConversion[1] = 4.0;
    EXPECT_TRUE(HasText(ReadBytes(Save(dir, r)), "View0_PIV_Conv_SquarenessRatio = 0.5\n"));
    r.params.convert.LengthConversion[1] = 0.0;
    EXPECT_TRUE(HasText(ReadBytes(Save(dir, r)), "View0_PIV_Conv_SquarenessRatio = 1\n"));

    WriteBytes(dir.file("r.par"),
               "View0_PIV_Conv_LengthConversion = 3\nView0_PIV_Conv_SquarenessRatio = 0\n");
    ParRecords read;
    ASSERT_EQ(Read(dir.file("r.par"), read), 1);
    EXPECT_EQ(read.params.convert.LengthConversion[1], 3.0);
    EXPECT_EQ(read.params.convert.LengthConversion[2], 3.0);
}

TEST(ParameterFileBadInput, RecordsStayAsTheyWere) {
    MessageCapture messages;
    ScratchDir dir;
    std::mt19937 rng(3);
    std::string garbage(100000, '\0');
    for (char& c : garbage) c = static_cast<char>(rng());
    const std::vector<std::string> files = {garbage, "# only\n[ comments ]\n% here\n",
                                            "View0_PIV_Eval_Method = 2", ""};
    for (const std::string& content : files) {
        WriteBytes(dir.file("bad.par"), content);
        ParRecords r;
        Read(dir.file("bad.par"), r);
        EXPECT_TRUE(SameRecords(r, ParRecords()));
    }
    ParRecords r;
    EXPECT_EQ(Read(dir.file("none.par"), r), 0);
    WriteBytes(dir.file("empty.par"), "");
    EXPECT_EQ(Read(dir.file("empty.par"), r), 0);
}

// Text, huge numbers and quotes where numbers belong; the line syntax tests
// hold the plain saturation of ints and doubles.
TEST(ParameterFileBadInput, WrongTypesAndAbsurdNumbers) {
    ScratchDir dir;
    WriteBytes(dir.file("w.par"),
               "View0_PIV_Eval_PeakFit_MaxIter = 1e99\n"
               "View0_PIV_Eval_SampleOffset = 99999999999,-99999999999,\"7\"\n"
               "View0_PIV_Validation_MinSNR = 1,-1e300\n"
               "View0_PIV_Image_Bkgd = \"no end, of the quote\n");
    ParRecords r;
    ASSERT_EQ(Read(dir.file("w.par"), r), 1);
    EXPECT_EQ(r.params.eval.MaxIter, 1);
    EXPECT_EQ(r.params.eval.SampleOffset.z, 7);
    EXPECT_EQ(r.params.outlier.MinSNR, -FLT_MAX);
    EXPECT_STREQ(r.image.Bkgd, "no end, of the quote");
}

TEST(ParameterFileSave, UnwritableTargetIsReportedButSaveSaysOne) {
    MessageCapture messages;
    ScratchDir dir;
    ParRecords r;
    const std::string path = dir.file("missing/x.par");
    EXPECT_EQ(PIV::SaveParametersASCII(path.c_str(), &r.params, &r.image, &r.post, 0), 1);
    EXPECT_TRUE(HasText(messages.all(), "failed creating file"));
    EXPECT_FALSE(std::filesystem::exists(path));

    const std::string longName(2048, 'n');
    EXPECT_EQ(PIV::SaveParametersASCII(longName.c_str(), &r.params, &r.image, &r.post, 0), 0);
    EXPECT_EQ(PIV::SaveParametersASCII(path.c_str(), nullptr, &r.image, &r.post, 0), 0);
}

// The list goes to standard output, which is closed afterwards: done in a
// child process whose standard output is a file, so this runner's stays open.
TEST(ParameterFileSave, EmptyNamePrintsToStandardOutputAndClosesIt) {
    ScratchDir dir;
    ParRecords r;
    const std::string expected = ReadBytes(Save(dir, r)), printed = dir.file("stdout.txt");
    std::fflush(nullptr);
    const pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        ::dup2(::open(printed.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
        const int saved = PIV::SaveParametersASCII("", &r.params, &r.image, &r.post, 0);
        const bool closed = ::fcntl(STDOUT_FILENO, F_GETFD) == -1 && errno == EBADF;
        ::_exit(saved == 1 && closed ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "save failed or standard output stayed open";
    EXPECT_EQ(ReadBytes(printed), expected);
}

TEST(ParameterFileRecognition, TheMarkWordsInTheFirstFourCommentLines) {
    const struct {
        const char* name;
        std::string text;
        int expected;
    } cases[] = {
        {"written file", "#!PIV% 3.60\n[---- PIV image pre-processing parameters ----]\n", 1},
        {"magic alone is not enough", "#!PIV% 3.60\nKey = 1\n", 0},
        {"any case in the fourth line", "a\nb\nc\n% Piv;PARAMETERS\n", 1},
        {"fifth line is not looked at", "a\nb\nc\nd\n# piv parameters\n", 0},
        {"only comment lines count", "piv parameters\n", 0},
        {"two hits of one word count", "# piv piv\n", 1},
        {"words must stand alone", "# pivparameters\n", 0},
        {"overlong line stops", "# " + std::string(1100, 'x') + "\n# piv parameters\n", 0},
        {"NetCDF is not read yet", std::string("CDF\x01\0\0\0\0", 8) + "# piv parameters\n", 0},
    };
    ScratchDir dir;
    for (const auto& c : cases) {
        WriteBytes(dir.file("f.par"), c.text);
        EXPECT_EQ(PIV::IsParameterFile(dir.file("f.par").c_str()), c.expected) << c.name;
    }
    EXPECT_EQ(PIV::IsParameterFile("/nonexistent/kelvane.par"), 0);
    EXPECT_EQ(PIV::IsParameterFile(nullptr), 0);
    EXPECT_EQ(PIV::IsParameterFile(kGolden.c_str()), 1);
}

// A NetCDF name writes a parameter file all the same.
TEST(HolderFiles, SaveByName) {
    MessageCapture messages;
    ScratchDir dir;
    PIV_Parameters held;
    EXPECT_TRUE(held.save(dir.file("p.nc").c_str(), 0));
    EXPECT_EQ(PIV::IsParameterFile(dir.file("p.nc").c_str()), 1);
    EXPECT_FALSE(held.save("", 0));
    EXPECT_EQ(held.error().getLastErrorCode(), PIVerror::BAD_FILE_NAME);
}

TEST(HolderFiles, ReadFailuresLeaveTheDefaults) {
    MessageCapture messages;
    ScratchDir dir;
    WriteBytes(dir.file("empty.par"), "");
    WriteBytes(dir.file("data.nc"), std::string("CDF\x01\0\0\0\0", 8));
    const struct {
        std::string name;
        int code;
    } cases[] = {{"", PIVerror::BAD_FILE_NAME},
                 {dir.file("none.par"), PIVerror::FILE_NOT_FOUND},
                 {dir.file("empty.par"), PIVerror::FILE_READ_FAILED},
                 {dir.file("data.nc"), PIVerror::FILE_READ_FAILED}};
    PIV_Parameters held;
    for (const auto& c : cases) {
        EXPECT_FALSE(held.read(c.name.c_str())) << c.name;
        EXPECT_EQ(held.error().getLastErrorCode(), c.code) << c.name;
    }
    EXPECT_TRUE(HasText(messages.all(), "read() - no such parameter file: '"));
    EXPECT_TRUE(SameRecords(
        ParRecords{held.pivParameters(), held.imageCfg(), held.postProcessCfg()}, ParRecords()));
}

}  // namespace
