// kelvane-eval --ptv as a user runs it: a pair rendered here, whose particle
// list is the truth, and the table read back from its file.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "ptv_test_support.h"
#include "scratch_files.h"

namespace {

int RunEval(const std::string& args, const test_support::ScratchDir& dir) {
    const int status = std::system(
        ("'" KELVANE_EVAL_TOOL "' " + args + " 2> '" + dir.file("stderr.txt") + "'").c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(KelvaneEvalPtv, TableReadBackAgainstTheParticleList) {
    test_support::ScratchDir dir;
    synth::SynthParams sp;
    sp.particleDensity = 0.005;
    const synth::SyntheticPair s = synth::RenderPair(sp, synth::UniformFlow(3, 2));
    const std::string a = dir.file("run_a.tif"), b = dir.file("run_b.tif");
    const std::string pair = "'" + a + "' '" + b + "'",
                      table = " --ptv '" + dir.file("t.txt") + "'";
    ASSERT_TRUE(ptv_test::ToImage(s.a, 256, 256).save(a.c_str()) &&
                ptv_test::ToImage(s.b, 256, 256).save(b.c_str()));
    EXPECT_EQ(RunEval("--series " + pair + " --output-dir '" + dir.path() + "'" + table, dir), 2);
    ASSERT_EQ(RunEval(pair + " -o '" + dir.file("r.nc") + "'" + table, dir), 0);
    std::ifstream in(dir.file("t.txt"));
    std::string line;
    std::getline(in, line);
    std::getline(in, line);
    EXPECT_EQ(line, "# x y dx dy guide_dx guide_dy distance partner valid");
    // Two particle images closer than about 4 px merge into one region
    // between them: the 0.2 px holds for the isolated.
    int rows = 0, valid = 0, isolated = 0, far = 0;
    double x, y, dx, dy, gx, gy, dist, sx = 0.0, sy = 0.0;
    int partner, ok;
    while (std::getline(in, line) && ++rows) {
        ASSERT_TRUE(std::istringstream(line) >> x >> y >> dx >> dy >> gx >> gy >> dist >> partner >>
                    ok);
        size_t k = 0;
        for (size_t i = 1; i < s.particlesA.size(); i++)
            if (std::hypot(s.particlesA[i].x - x, s.particlesA[i].y - y) <
                std::hypot(s.particlesA[k].x - x, s.particlesA[k].y - y))
                k = i;
        const bool alone = ptv_test::Isolated(s, k);
        isolated += alone;
        far += alone && std::hypot(s.particlesA[k].x - x, s.particlesA[k].y - y) > 0.2;
        valid += ok;
        sx += ok ? dx : 0.0;
        sy += ok ? dy : 0.0;
    }
    std::printf("[ figures  ] %d rows, %d valid, %d isolated, mean (%.4f, %.4f)\n", rows, valid,
                isolated, sx / valid, sy / valid);
    ASSERT_TRUE(valid > 100 && isolated > 100);
    EXPECT_EQ(far, 0);
    // The flow moves 2 px down the rows; the table counts dy upwards.
    EXPECT_NEAR(sx / valid, 3.0, 0.05);
    EXPECT_NEAR(sy / valid, -2.0, 0.05);
}

}  // namespace
