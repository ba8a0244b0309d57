// kelvane-eval --ensemble as a user runs it, on sparse pairs from
// kelvane-synth: the field and the plane file, and the runs it refuses.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <tuple>

#include "eval_ensemble.h"
#include "message_capture.h"
#include "piv_params.h"
#include "scratch_files.h"

using test_support::ScratchDir;

namespace {

// Exit status and standard error of a shell command.
std::pair<int, std::string> Shell(const std::string& cmd, const ScratchDir& dir) {
    const int status = std::system((cmd + " 2> '" + dir.file("err.txt") + "'").c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1,
            test_support::ReadBytes(dir.file("err.txt"))};
}

// run<FROM>a/b.tif .. run<TO>a/b.tif of this size, 0.002 particles per
// pixel, moving (2.3, -1.6).
int Pairs(const ScratchDir& dir, int from, int to, int size) {
    const std::string d = dir.file("");
    return Shell("for i in $(seq -f %04g " + std::to_string(from) + " " + std::to_string(to) + "); do '" +
                     KELVANE_SYNTH_TOOL + "' --size " + std::to_string(size) +
                     " --density 0.002 --diameter 3 --dx 2.3 --dy -1.6 --seed $i " + d + "run${i}a.tif " + d +
                     "run${i}b.tif " + d + "t.nc > /dev/null || exit 1; done",
                 dir)
        .first;
}

}  // namespace

// Twelve sparse pairs give one field near the flow (dx 2.3, dy +1.6 up), and
// the plane file that ncdump reads as an ensemble file; the refused runs say
// why and leave no final file.
TEST(KelvaneEvalEnsemble, OneFieldFromTheSeriesAndItsRefusals) {
    ScratchDir dir;
    ASSERT_EQ(Pairs(dir, 1, 12, 256), 0);
    const std::string eval = std::string("'") + KELVANE_EVAL_TOOL + "' --window 32 --step 16 ";
    const std::string series = "--series " + dir.file("run0001a.tif") + " ";
    const auto ok = Shell(eval + series + dir.file("run0012a.tif") +
                              " --ensemble --ensemble-mode 1 "
                              "--vary-stride --stride 4 --output-dir " +
                              dir.file("out"),
                          dir);
    ASSERT_EQ(ok.first, 0) << ok.second;
    const auto truth = Shell(std::string("'") + KELVANE_COMPARE_TOOL + "' " + dir.file("out/series_avg.nc") +
                                 " " + dir.file("t.nc") + " --margin 32 --max-rms 0.08 > /dev/null", dir);
    EXPECT_EQ(truth.first, 0) << truth.second;
    EXPECT_EQ(Shell("ncdump -h " + dir.file("out/series_corr.nc") +
                        " | grep -q '\"Kelvane Ensemble Correlation Data\"'", dir).first, 0);

    ASSERT_EQ(Pairs(dir, 13, 13, 128), 0);  // a pair of another size ends the series
    const std::tuple<std::string, int, std::string> cases[] = {
        {series + dir.file("run0012a.tif") + " --ensemble --stats", 2,
         "--stats: both write <stub>_avg.nc"},
        {"--ensemble " + dir.file("run0001a.tif") + " -o x.nc", 2, "it needs --series FIRST LAST"},
        {series + dir.file("run0012a.tif") + " --stride 3", 2, "--stride belongs to --ensemble"},
        {series + dir.file("run0013a.tif") + " --ensemble", 1, dir.file("run0013a.tif")},
    };
    for (const auto& [args, exit, text] : cases) {
        const auto r = Shell(eval + args + " --output-dir " + dir.file("bad"), dir);
        EXPECT_EQ(r.first, exit) << args << "\n" << r.second;
        EXPECT_TRUE(HasText(r.second, text));
        EXPECT_FALSE(std::ifstream(dir.file("bad/series_avg.nc")).good());
    }
    // A stop asked for during the run ends it before anything final.
    eval_tool::Options o;
    o.first = dir.file("run0001a.tif");
    o.last = dir.file("run0012a.tif");
    o.outputDir = dir.file("stopped");
    PIV_Parameters params;
    std::string error;
    int asked = 0;
    MessageCapture quiet;
    EXPECT_EQ(eval_tool::RunEnsemble(o, params, error, [&] { return ++asked > 2; }), 1);
    EXPECT_TRUE(HasText(error, "interrupted"));
    EXPECT_FALSE(std::ifstream(dir.file("stopped/series_avg.nc")).good());
}
