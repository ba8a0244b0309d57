// The settings holder: mending of records and the detection of changes.
#include <gtest/gtest.h>

#include <vector>

#include "message_capture.h"
#include "piv_params.h"

namespace {

bool Is(const SIZE3D& s, int w, int h, int d) {
    return s.width == w && s.height == h && s.depth == d;
}

}  // namespace

TEST(PIV_Parameters, CheckPivEvalCfgMendsEachSpoiledField) {
    // Nonsense in every mended field at once; each field is mended on its
    // own, what lies in range stays.
    PIVEVAL_CFG c;
    c.grid.nodes = {0, -3, 0};       // below one: one
    c.grid.imageSize = {-5, 0, -1};  // negative: zero
    c.grid.step = {0, -2, 8};        // below one: 16
    c.SampleSize = {1, 64, 1};       // below two: 32, and the transform follows
    c.FFTSize = {8, 8, 1};
    c.SampleOffset = {1001, -1000, -2000};  // beyond a thousand: zero
    c.grid.first = {-1, 5, -9};             // negative: zero
    PIV_Parameters::checkPivEvalCfg(c);
    EXPECT_TRUE(Is(c.grid.nodes, 1, 1, 1));
    EXPECT_TRUE(Is(c.grid.imageSize, 0, 0, 0));
    EXPECT_TRUE(Is(c.grid.step, 16, 16, 8));
    EXPECT_TRUE(Is(c.SampleSize, 32, 64, 32));
    EXPECT_TRUE(Is(c.FFTSize, 32, 64, 32));
    EXPECT_EQ(std::vector<int>({c.SampleOffset.x, c.SampleOffset.y, c.SampleOffset.z,
                                c.grid.first.x, c.grid.first.y, c.grid.first.z}),
              std::vector<int>({0, -1000, 0, 0, 5, 0}));
}

TEST(PIV_Parameters, SetPivEvalCfgReportsWhatMatters) {
    PIV_Parameters p;
    PIVEVAL_CFG cfg = p.pivEvalCfg();
    EXPECT_FALSE(p.setPivEvalCfg(cfg, false));

    cfg.ShowIntermediate = !cfg.ShowIntermediate;  // display only: no new evaluation
    EXPECT_FALSE(p.setPivEvalCfg(cfg, false));

    cfg.SampleOffset.x = 4;
    EXPECT_TRUE(p.setPivEvalCfg(cfg, false));
    cfg.MaxIter = 50;  // inside the peak block
    EXPECT_TRUE(p.isNewPeakDetection(cfg));
    EXPECT_TRUE(p.setPivEvalCfg(cfg, false));
}

TEST(PIV_Parameters, ScanRangeMattersOnlyToDirectAndMqdCorrelators) {
    PIV_Parameters p;
    PIVEVAL_CFG cfg = p.pivEvalCfg();
    cfg.ScanRange.width = 9;
    EXPECT_FALSE(p.isNewMethod(cfg));  // FFT correlation ignores it
    cfg.CorrelationMode = 2;
    PIVEVAL_CFG held = p.pivEvalCfg();
    held.CorrelationMode = 2;
    p.setPivEvalCfg(held, false);
    EXPECT_TRUE(p.isNewMethod(cfg));
}

TEST(PIV_Parameters, RequiresNewGridReportsAGridThatCannotBeLaid) {
    PIV_Parameters p;
    p.setImageSize(256, 256, 1, true);
    PIVEVAL_CFG cfg = p.pivEvalCfg();
    cfg.SampleSize = SIZE3D{512, 512, 1};
    MessageCapture capture;
    EXPECT_TRUE(p.requiresNewGrid(cfg));
    EXPECT_TRUE(HasText(p.error().getLastError(), "trouble with grid calculation"));
}
