// Pairing of particle images under a guide field, with the particles placed
// by hand, and the whole tracking against a generator's particle lists.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "message_capture.h"
#include "piv_eval2d.h"
#include "ptv_test_support.h"
#include "scratch_files.h"
#include "synthetic_flows.h"

using namespace ptv_test;

namespace {

TEST(PtvMatching, PartnerByHandPlacedParticles) {
    // Default search radius 10 px and 64 px bins; the guide displaces by
    // (dx, dy up). The case checks the partner of particle 0 of frame 1.
    const struct {
        const char* what;
        double dx, dy;
        std::vector<synth::Particle> a, b;
        int partner;  // index into b, -1 none
    } cases[] = {
        {"the nearest wins over the brighter",
         5,
         0,
         {At(40, 40)},
         {At(45, 48, 0.9), At(47, 41, 0.3)},
         1},
        {"dy of the guide counts upwards", 0, 5, {At(40, 40)}, {At(40, 44), At(40.5, 35)}, 1},
        {"two particles share one partner", 5, 0, {At(40, 47), At(40, 40)}, {At(45, 43.5)}, 0},
        {"expected just left of the image: no bin", -4, 0, {At(3, 40)}, {At(1.5, 40)}, -1},
        {"expected just above the image: no bin", 0, 4, {At(40, 3)}, {At(40, 1.5)}, -1},
        // Expected at (60, 58): own bin x,y < 64; the bin to the right has the
        // nearer centre (44 px against 47 px), so the bin below is not searched.
        {"within the radius in the second bin", 5, 0, {At(55, 58)}, {At(67, 58)}, 0},
        {"within the radius in a third bin", 5, 0, {At(55, 58)}, {At(60, 66)}, -1},
        {"a region of more than 100 px takes no part",
         5,
         0,
         {At(40, 40, 0.95, 16)},
         {At(45, 40, 0.95, 16)},
         -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Image2D a = Render(c.a, 128, 128), b = Render(c.b, 128, 128);
        PIV_Data2D guide;
        UniformGuide(guide, 128, 128, c.dx, c.dy);
        PTV_Data2D data;
        PTV_Eval2D eval(&data);
        ASSERT_TRUE(eval.process(a, b, guide));
        const PTV_PAIR* p = PairAt(data, c.a[0].x, c.a[0].y);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(PartnerIndex(p, c.b), c.partner);
        EXPECT_NEAR(p->guideDx, c.dx, 1e-5);
    }
}

TEST(PtvExtraction, HowEachRegionIsLocated) {
    // A float image whose brightest pixel (265, alone at (90, 90)) makes the
    // working scale exactly 1 once the threshold of 10 is off: the values
    // below are those the rules see.
    Image2D img = Render({At(40, 60, 0.95, 16.0)}, 100, 100);
    img.toFloat();
    img.setPixel(90, 90, 265);
    // A: a 3x3 block (9 px, 3-point rule, exact by symmetry), the same with a
    // tenth pixel (fitted). B: in the corner, columns of 128, 64 and 32: the
    // patch is clamped to centre (1, 1), its logs are flat in y and linear in
    // x, both denominators 0: the first moment, x = 1 - 3 * 96 / (3 * 224).
    const float block[3][3] = {{20, 50, 20}, {50, 110, 50}, {20, 50, 20}};
    for (int j = 0; j < 3; j++)
        for (int i = 0; i < 3; i++) {
            img.setPixel(20 + i, 20 + j, 10 + block[j][i]);
            img.setPixel(60 + i, 20 + j, 10 + block[j][i]);
            img.setPixel(i, j, 10.0f + float(128 >> i));
            // D: the block with a dim tail of ten pixels: the centroid
            // (23.9, 80) lies 3 px from the fitted centre, which is refused.
            img.setPixel(20 + i, 79 + j, 10 + block[j][i]);
        }
    img.setPixel(63, 21, 25);
    for (int i = 23; i < 33; i++) img.setPixel(i, 80, 40);
    PTV_Eval2D eval;
    PARTICLE* found = nullptr;
    unsigned int n = 0;
    ASSERT_TRUE(eval.extractParticles(img, &found, &n));
    std::unique_ptr<PARTICLE[]> own(found);
    ASSERT_EQ(n, 6u);
    EXPECT_EQ(eval.lastCounts().gaussFits, 1);
    EXPECT_EQ(eval.lastCounts().threePointFits, 4);
    EXPECT_EQ(eval.lastCounts().tooLarge, 1);
    // C: a particle of more than 100 px, status 3 at its centroid.
    const struct {
        double x, y;
        int size, status;
    } expected[] = {{1.0 - 288.0 / 672.0, 1, 9, 2},
                    {21, 21, 9, 2},
                    {61.1, 21, 10, 1},
                    {40, 60, 0, 3},
                    {21, 80, 19, 2},
                    {90, 90, 1, 2}};
    for (const auto& e : expected) {
        SCOPED_TRACE(e.x);
        const PARTICLE* p = nullptr;
        for (unsigned i = 0; i < n; i++)
            if (std::hypot(found[i].x - e.x, found[i].y - e.y) < 0.5) p = &found[i];
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(p->status, e.status);
        EXPECT_EQ(p->size > 100, e.status == 3);
        EXPECT_TRUE(e.size == 0 || p->size == e.size);
        EXPECT_TRUE(e.status != 2 || (std::fabs(p->x - e.x) < 1e-5 && p->y == float(e.y)));
    }
}

TEST(PtvExtraction, InvertFindsDarkParticles) {
    std::vector<synth::Particle> list;
    for (int k = 0; k < 20; k++) list.push_back(At(12 + 23.3 * (k % 5), 10 + 25.7 * (k / 5)));
    Image2D bright = Render(list, 128, 128), dark(bright);
    dark.negative(255);
    PTV_Eval2D plain, inverted;
    PTV_PARAMS params;
    params.imageCfg.filters.Invert = true;
    inverted.setParameters(params);
    PARTICLE *p = nullptr, *q = nullptr;
    unsigned np = 0, nq = 0;
    ASSERT_TRUE(plain.extractParticles(bright, &p, &np));
    ASSERT_TRUE(inverted.extractParticles(dark, &q, &nq));
    std::unique_ptr<PARTICLE[]> ownP(p), ownQ(q);
    ASSERT_EQ(np, 20u);
    ASSERT_EQ(nq, 20u);
    for (unsigned i = 0; i < np; i++) {
        EXPECT_NEAR(p[i].x, q[i].x, 0.1);
        EXPECT_NEAR(p[i].y, q[i].y, 0.1);
    }
}

TEST(PtvAccuracy, LambOseenVortexAgainstTheGeneratorsLists) {
    synth::SynthParams sp;
    sp.width = sp.height = 512;
    sp.particleDensity = 0.005;
    sp.particleDiameter = 3.0;
    sp.bitDepth = 8;
    sp.seed = 3;
    // Peak tangential displacement 6 px at 1.12 core radii: gamma = 6 * 2 pi rc / 0.638.
    const synth::LambOseenVortex flow(256, 256, 6.0 * 2.0 * M_PI * 64.0 / 0.63817, 64.0);
    const synth::SyntheticPair pair = synth::RenderPair(sp, flow);
    Image2D a(512, 512, IMAGE_UINT8), b(512, 512, IMAGE_UINT8);
    for (int y = 0; y < 512; y++) {
        a.putRow(pair.a.data() + size_t(y) * 512, y);
        b.putRow(pair.b.data() + size_t(y) * 512, y);
    }
    PIVEVAL_CFG cfg;
    cfg.Method = PIV::METHOD_MULTI_GRID;
    cfg.SampleSize = cfg.FFTSize = SIZE3D{48, 48, 1};
    cfg.grid.step = SIZE3D{16, 16, 1};
    cfg.MultiGrid_SampleSize = SIZE3D{96, 96, 1};
    cfg.MultiGrid_SampleStep = SIZE3D{16, 16, 1};
    cfg.MultiGrid_Desample = 1;
    cfg.DesampleEnable = false;
    PIV_Eval2D piv;
    piv.setPivEvalCfg(cfg);
    ASSERT_TRUE(piv.setPivImages(&a, &b));
    ASSERT_TRUE(piv.interrogateImage(false));
    PTV_Data2D data;
    PTV_Eval2D ptv(&data);
    ASSERT_TRUE(ptv.process(a, b, *piv.data()));

    const auto& A = pair.particlesA;
    const auto& B = pair.particlesB;
    auto inside = [](const synth::Particle& p) {
        return p.x >= 3 && p.y >= 3 && p.x <= 508 && p.y <= 508;
    };
    int isolated = 0, validPairs = 0, wrong = 0, all = 0, allValid = 0;
    double sum2 = 0.0, guide2 = 0.0;
    for (size_t i = 0; i < A.size(); i++) {
        if (!inside(A[i]) || !inside(B[i])) continue;
        bool alone = true;
        for (size_t k = 0; k < A.size() && alone; k++)
            alone = k == i || (std::hypot(A[k].x - A[i].x, A[k].y - A[i].y) >= 6 &&
                               std::hypot(B[k].x - B[i].x, B[k].y - B[i].y) >= 6);
        const PTV_PAIR* p = PairAt(data, A[i].x, A[i].y);
        const bool valid = p && p->valid;
        const bool right = valid && std::hypot(p->second.x - B[i].x, p->second.y - B[i].y) <= 1.0;
        all++;
        allValid += valid;
        if (!alone) continue;
        isolated++;
        if (!valid) continue;
        validPairs++;
        if (!right) {
            wrong++;
            continue;
        }
        const double tx = B[i].x - A[i].x, ty = A[i].y - B[i].y;  // dy upwards
        sum2 += std::pow(p->dx - tx, 2) + std::pow(p->dy - ty, 2);
        guide2 += std::pow(p->guideDx - tx, 2) + std::pow(p->guideDy - ty, 2);
    }
    const int right = validPairs - wrong;
    ASSERT_GT(right, 0);
    const double rms = std::sqrt(sum2 / right);
    std::printf(
        "isolated %d of %d; valid %.1f%% (all: %.1f%%), wrong %.2f%%, "
        "RMS %.3f px, guide RMS %.3f px\n",
        isolated, all, 100.0 * validPairs / isolated, 100.0 * allValid / all,
        100.0 * wrong / validPairs, rms, std::sqrt(guide2 / right));
    EXPECT_GE(validPairs, 0.95 * isolated);
    EXPECT_LE(wrong, 0.01 * validPairs);
    EXPECT_LE(rms, 0.1);
}

}  // namespace

namespace {

TEST(PtvBadInput, ClearErrorAndTheDataLeftAsItWas) {
    MessageCapture log;
    Image2D a = Render({At(40, 40)}, 128, 128), blank(128, 128, IMAGE_UINT8);
    blank.erase();
    Image2D smallMask(64, 64, IMAGE_UINT8);
    smallMask.erase();
    PIV_Data2D guide, empty, other;
    UniformGuide(guide, 128, 128, 1, 0);
    UniformGuide(other, 256, 128, 1, 0);
    const struct {
        const char* what;
        Image2D* second;
        PIV_Data2D* guide;
        Image2D* mask;
        int connectivity, code;
        const char* text;
    } cases[] = {
        {"no particle in image 2", &blank, &guide, nullptr, 4, PIVerror::OPERATION_FAILED,
         "no regions detected in image"},
        {"an empty guide", &a, &empty, nullptr, 4, PIVerror::DATA_IS_NULL, "guide field is empty"},
        {"a guide for another size", &a, &other, nullptr, 4, PIVerror::IMAGE_SIZE_MISMATCH,
         "guide made for 256x128 pixels, images of 128x128"},
        {"a mask of another size", &a, &guide, &smallMask, 4, PIVerror::OPERATION_FAILED,
         "failed applying mask image"},
        {"a connectivity of 6", &a, &guide, nullptr, 6, PIVerror::OPERATION_FAILED,
         "connectivity 6 (4 or 8)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        log.lines().clear();
        PTV_Data2D data;
        data.resize(3);
        PTV_Eval2D eval(&data);
        eval.setMaskImage(c.mask);
        PTV_PARAMS params;
        params.PixelConnectivity = c.connectivity;
        eval.setParameters(params);
        EXPECT_FALSE(eval.process(a, *c.second, *c.guide));
        EXPECT_EQ(eval.error().getLastErrorCode(), c.code);
        EXPECT_NE(log.all().find(c.text), std::string::npos) << log.all();
        EXPECT_EQ(data.size(), 3u);
        EXPECT_EQ(data.particleCount(), 0);
    }
}

TEST(PtvExtraction, LabelImageLandsAtThePrefixPath) {
    test_support::ScratchDir dir;
    Image2D img = Render({At(20, 20), At(40, 30), At(60, 50)}, 80, 80);
    ASSERT_TRUE(img.save(dir.file("run_0007a.tif").c_str()));
    Image2D loaded(dir.file("run_0007a.tif"));
    PTV_PARAMS params;
    std::snprintf(params.LabelImagesPrefix, sizeof(params.LabelImagesPrefix), "%s",
                  dir.file("lbl_").c_str());
    PTV_Eval2D eval;
    eval.setParameters(params);
    eval.setLabelImageSaveFlag(true);
    PARTICLE* found = nullptr;
    unsigned n = 0;
    ASSERT_TRUE(eval.extractParticles(loaded, &found, &n));
    delete[] found;
    Image2D labels(dir.file("lbl_run_0007a.tif"));
    EXPECT_EQ(labels.type(), IMAGE_UINT16);
    EXPECT_EQ(labels.maximum(), 3.0);
    EXPECT_EQ(labels.pixel(40, 30), 2.0f);
}

}  // namespace
