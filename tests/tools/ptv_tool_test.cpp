// kelvane-eval --ptv as a user runs it: a pair rendered here, whose particle
// list is the truth, and the table read back from its file.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "image2d.h"
#include "scratch_files.h"
#include "synthetic_images.h"

namespace {

int RunEval(const std::string& args, const test_support::ScratchDir& dir) {
    const std::string cmd =
        std::string("'") + KELVANE_EVAL_TOOL + "' " + args + " 2> '" + dir.file("stderr.txt") + "'";
    const int status = std::system(cmd.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(KelvaneEvalPtv, TableReadBackAgainstTheParticleList) {
    test_support::ScratchDir dir;
    synth::SynthParams sp;
    sp.particleDensity = 0.005;
    const synth::SyntheticPair pair = synth::RenderPair(sp, synth::UniformFlow(3, 2));
    const std::string a = dir.file("run_a.tif"), b = dir.file("run_b.tif");
    const std::string table = dir.file("tracks.txt");
    for (const auto& [path, px] : {std::make_pair(a, &pair.a), std::make_pair(b, &pair.b)}) {
        Image2D img(sp.width, sp.height, IMAGE_UINT8);
        for (int y = 0; y < sp.height; y++) img.putRow(px->data() + size_t(y) * sp.width, y);
        ASSERT_TRUE(img.save(path.c_str()));
    }
    EXPECT_EQ(RunEval("--series '" + a + "' '" + b + "' --output-dir '" + dir.path() + "' --ptv '" +
                          table + "'",
                      dir),
              2);
    ASSERT_EQ(
        RunEval("'" + a + "' '" + b + "' -o '" + dir.file("r.nc") + "' --ptv '" + table + "'", dir),
        0)
        << test_support::ReadBytes(dir.file("stderr.txt"));
    std::ifstream in(table);
    std::string line;
    std::getline(in, line);
    std::getline(in, line);
    EXPECT_EQ(line, "# x y dx dy guide_dx guide_dy distance partner valid");
    const auto& A = pair.particlesA;
    int rows = 0, valid = 0, far = 0, isolated = 0;
    double sx = 0.0, sy = 0.0;
    while (std::getline(in, line)) {
        std::istringstream row(line);
        double x, y, dx, dy, gx, gy, dist;
        int partner, ok;
        rows++;
        ASSERT_TRUE(row >> x >> y >> dx >> dy >> gx >> gy >> dist >> partner >> ok) << line;
        // Two particle images closer than about 4 px merge into one region
        // whose position lies between them: the rule holds for the isolated
        // (no other within 6 px, 3 px or more inside the image).
        size_t k = 0;
        for (size_t i = 1; i < A.size(); i++)
            if (std::hypot(A[i].x - x, A[i].y - y) < std::hypot(A[k].x - x, A[k].y - y)) k = i;
        bool alone = A[k].x >= 3 && A[k].y >= 3 && A[k].x <= 252 && A[k].y <= 252;
        for (size_t i = 0; i < A.size() && alone; i++)
            alone = i == k || std::hypot(A[i].x - A[k].x, A[i].y - A[k].y) >= 6;
        isolated += alone;
        far += alone && std::hypot(A[k].x - x, A[k].y - y) > 0.2;
        if (!ok) continue;
        valid++;
        sx += dx;
        sy += dy;
    }
    std::printf("[ figures  ] %d rows, %d valid, %d isolated, mean (%.4f, %.4f)\n", rows, valid,
                isolated, sx / valid, sy / valid);
    ASSERT_GT(valid, 100);
    ASSERT_GT(isolated, 100);
    EXPECT_EQ(far, 0);
    // The flow moves 2 px down the rows; the table counts dy upwards.
    EXPECT_NEAR(sx / valid, 3.0, 0.05);
    EXPECT_NEAR(sy / valid, -2.0, 0.05);
}

}  // namespace
