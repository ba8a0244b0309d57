// The error object: its texts, its report formats and its handling modes.
#include <gtest/gtest.h>

#include <thread>

#include "message_capture.h"
#include "piv_error.h"

// 1 is spelt as it has always been; a negative code reads as its opposite.
TEST(PIVerrorTexts, KnownNegativeAndUnknownCodes) {
    std::vector<std::string> texts;
    for (int code : {0, 1, 7, -7, 59, -1000}) texts.push_back(PIVerror::getErrorMessage(code));
    EXPECT_EQ(texts, (std::vector<std::string>{
                         "no error", "internal erorr", "memory allocation failed",
                         "memory allocation failed", "undefined error", "undefined error"}));
}

TEST(PIVerror, ReportsNameTheOwnerThePlaceAndTheDetail) {
    MessageCapture capture;
    PIVerror e("Image2D");
    EXPECT_EQ(e.setError(PIVerror::FILE_NOT_FOUND, "no file '%s'", "a.tif"),
              PIVerror::FILE_NOT_FOUND);
    EXPECT_STREQ(e.getLastError(), "ERROR in Image2D : file not found\n   no file 'a.tif'");
    ASSERT_EQ(capture.lines().size(), 1u);
    EXPECT_EQ(capture.lines()[0], e.getLastError());

    // handleError names the place and appends a pending detail, once.
    PIVerror p("PIV_Parameters");
    p.setMessage("grid of %d nodes", 0);
    p.handleError(PIVerror::BAD_GRID_DIMENSION, "requiresNewGrid()");
    EXPECT_STREQ(p.getLastError(),
                 "ERROR 'PIV_Parameters::requiresNewGrid()' : bad/invalid grid dimension\n"
                 "grid of 0 nodes");
    p.handleError(PIVerror::BAD_RANGE);
    EXPECT_STREQ(p.getLastError(), "ERROR 'PIV_Parameters' : bad range");

    // NO_ERROR records the code and reports nothing.
    capture.lines().clear();
    e.handleError(PIVerror::NO_ERROR, "f()");
    EXPECT_EQ(e.getLastErrorCode(), 0);
    EXPECT_TRUE(capture.lines().empty());

    // The static reports have formats of their own.
    PIVerror::handleErrorExt(PIVerror::FILE_NOT_FOUND, "PIV::Load()", true);
    PIVerror::handleErrorExt(PIVerror::FILE_NOT_FOUND, "silent", false);
    PIVerror::handleErrorLongExt(PIVerror::BAD_RANGE, PIVerror::ERROR_REPORT, "range %d..%d", 1, 0);
    const std::vector<std::string> expected = {"ERROR in 'PIV::Load()' : file not found",
                                               "ERROR : bad range\n   range 1..0"};
    EXPECT_EQ(capture.lines(), expected);

    // An overlong detail is cut, not overrun.
    e.setErrorHandling(PIVerror::ERROR_QUIET);
    e.setError(PIVerror::BAD_RANGE, "%s", std::string(10000, 'a').c_str());
    EXPECT_EQ(std::string(e.getLastError()).size(), 2046u);
}

TEST(PIVerror, HandlingModes) {
    PIVerror e("X");
    // Quiet: recorded, and spoken only above debug level 0.
    e.setErrorHandling(PIVerror::ERROR_QUIET);
    {
        DebugLevelScope level(0);
        MessageCapture capture;
        e.handleError(PIVerror::BAD_RANGE, "f()");
        EXPECT_TRUE(capture.lines().empty());
        EXPECT_EQ(e.getLastErrorCode(), PIVerror::BAD_RANGE);
    }
    {
        DebugLevelScope level(1);
        MessageCapture capture;
        e.handleError(PIVerror::BAD_RANGE, "f()");
        EXPECT_EQ(capture.lines().size(), 1u);
    }
}

namespace {

int FailInExitMode(const char* where) {
    PIVerror e("X");
    e.setErrorHandling(PIVerror::ERROR_EXIT);
    e.handleError(PIVerror::INTERNAL_ERROR, where);
    return e.getLastErrorCode();
}

// A thread of its own, then an OpenMP team, then the main thread.
void FailEverywhere() {
    int recorded = 0;
    std::thread([&] { recorded += FailInExitMode("thread()"); }).join();
#pragma omp parallel num_threads(2) reduction(+ : recorded)
    recorded += FailInExitMode("team()");
    if (recorded == 3 * PIVerror::INTERNAL_ERROR) FailInExitMode("main()");
}

}  // namespace

// Only the main thread outside a parallel region may end the process: a
// worker records the error and its caller decides. Were a worker allowed to
// exit, the process would end before the main thread's report.
TEST(PIVerrorDeathTest, ExitModeEndsTheProcessOnlyFromTheMainThread) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // a fork would not carry the OpenMP team
    EXPECT_EXIT(FailEverywhere(), ::testing::ExitedWithCode(1),
                "ERROR 'X::main\\(\\)' : internal erorr");
}
