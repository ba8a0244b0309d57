// Pairing of particle images under a guide field, with the particles placed
// by hand, and the whole tracking against a generator's particle lists.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "message_capture.h"
#include "piv_eval2d.h"
#include "ptv_eval2d.h"
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
        {"nearest over brighter", 5, 0, {At(40, 40)}, {At(45, 48, 0.9), At(47, 41, 0.3)}, 1},
        {"dy of the guide counts upwards", 0, 5, {At(40, 40)}, {At(40, 44), At(40.5, 35)}, 1},
        // 2 px particles: 3-point positions, exact by symmetry, so a true tie.
        {"tie: the earlier", 5, 0, {At(40, 40, .8, 2)}, {At(45, 36, .8, 2), At(45, 44, .8, 2)}, 0},
        {"two particles share one partner", 5, 0, {At(40, 47), At(40, 40)}, {At(45, 43.5)}, 0},
        {"expected just left of the image: no bin", -4, 0, {At(3, 40)}, {At(1.5, 40)}, -1},
        {"expected just above the image: no bin", 0, 4, {At(40, 3)}, {At(40, 1.5)}, -1},
        // Expected at (60, 58): own bin x,y < 64; the bin to the right has the
        // nearer centre (44 px against 47 px), so the bin below is not searched.
        {"within the radius in the second bin", 5, 0, {At(55, 58)}, {At(67, 58)}, 0},
        {"within the radius in a third bin", 5, 0, {At(55, 58)}, {At(60, 66)}, -1},
        {"over 100 px: no part", 5, 0, {At(40, 40, 0.95, 16)}, {At(45, 40, 0.95, 16)}, -1},
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
    // x, both denominators 0: the first moment, x = 1 - 96 / 224 = 4 / 7.
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
    const PTV_Eval2D::ExtractionCounts& counts = eval.lastCounts();
    EXPECT_TRUE(counts.gaussFits == 1 && counts.threePointFits == 4 && counts.tooLarge == 1);
    // C: a particle of more than 100 px, status 3 at its centroid.
    const struct {
        double x, y;
        int size, status;
    } expected[] = {{4.0 / 7.0, 1, 9, 2}, {21, 21, 9, 2},  {61.1, 21, 10, 1},
                    {40, 60, 0, 3},       {21, 80, 19, 2}, {90, 90, 1, 2}};
    for (const auto& e : expected) {
        SCOPED_TRACE(e.x);
        const PARTICLE* p = nullptr;
        for (unsigned i = 0; i < n; i++)
            if (std::hypot(found[i].x - e.x, found[i].y - e.y) < 0.5) p = &found[i];
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(p->status, e.status);
        EXPECT_TRUE(e.status == 3 ? p->size > 100 : p->size == e.size);
        EXPECT_TRUE(e.status != 2 || (std::fabs(p->x - e.x) < 1e-5 && p->y == float(e.y)));
    }
}

TEST(PtvExtraction, InvertFindsDarkParticlesAndLabelsLandAtThePrefix) {
    test_support::ScratchDir dir;
    std::vector<synth::Particle> list;
    for (int k = 0; k < 20; k++) list.push_back(At(12 + 23.3 * (k % 5), 10 + 25.7 * (k / 5)));
    ASSERT_TRUE(Render(list, 128, 128).save(dir.file("run_0007a.tif").c_str()));
    Image2D bright(dir.file("run_0007a.tif")), dark(bright);
    dark.negative(255);
    PTV_Eval2D plain, inverted;
    PTV_PARAMS params;
    std::snprintf(params.LabelImagesPrefix, 2048, "%s", dir.file("lbl_").c_str());
    plain.setParameters(params);
    plain.setLabelImageSaveFlag(true);
    params.imageCfg.filters.Invert = true;
    inverted.setParameters(params);
    PARTICLE *p = nullptr, *q = nullptr;
    unsigned np = 0, nq = 0;
    ASSERT_TRUE(plain.extractParticles(bright, &p, &np) &&
                inverted.extractParticles(dark, &q, &nq));
    std::unique_ptr<PARTICLE[]> ownP(p), ownQ(q);
    ASSERT_TRUE(np == 20 && nq == 20);
    for (unsigned i = 0; i < np; i++) EXPECT_LT(std::hypot(p[i].x - q[i].x, p[i].y - q[i].y), 0.1);
    // Twenty regions labelled in raster order: the one at (35.3, 35.7) is the seventh.
    Image2D labels(dir.file("lbl_run_0007a.tif"));
    EXPECT_TRUE(labels.type() == IMAGE_UINT16 && labels.maximum() == 20.0);
    EXPECT_EQ(labels.pixel(35, 36), 7.0f);
}

TEST(PtvCorrelationCheck, AgreesWithTheTracksOfAUniformShift) {
    synth::SynthParams sp;
    sp.particleDensity = 0.01;
    const synth::SyntheticPair s = synth::RenderPair(sp, synth::UniformFlow(3, 2));
    Image2D a = ToImage(s.a, 256, 256), b = ToImage(s.b, 256, 256);
    PIV_Data2D guide;
    UniformGuide(guide, 256, 256, 3, -2);
    PTV_Data2D data;
    PTV_Eval2D eval(&data);
    PTV_Particle2D first;
    ASSERT_TRUE(eval.process(a, b, guide) && eval.detectParticles(a, &first));
    EXPECT_TRUE(first.count() == size_t(data.particleCount()) && first.imageWidth() == 256);
    ASSERT_TRUE(eval.doCorrelationMatching(a, b));
    std::printf("[ figures  ] correlation check RMS %.3f px\n", eval.correlationCheckRms());
    EXPECT_TRUE(eval.correlationCheckRms() >= 0.0 && eval.correlationCheckRms() < 0.1);
}

TEST(PtvAccuracy, LambOseenVortexAgainstTheGeneratorsLists) {
    synth::SynthParams sp;
    sp.width = sp.height = 512;
    sp.particleDensity = 0.005;
    sp.seed = 3;
    // Peak tangential displacement 6 px at 1.12 core radii: gamma = 6 * 2 pi rc / 0.638.
    const synth::LambOseenVortex flow(256, 256, 6.0 * 2.0 * M_PI * 64.0 / 0.63817, 64.0);
    const synth::SyntheticPair s = synth::RenderPair(sp, flow);
    Image2D a = ToImage(s.a, 512, 512), b = ToImage(s.b, 512, 512);
    PIVEVAL_CFG cfg;  // multi-grid, 96 px down to 48 px windows, step 16
    cfg.Method = PIV::METHOD_MULTI_GRID;
    cfg.SampleSize = cfg.FFTSize = SIZE3D{48, 48, 1};
    cfg.grid.step = cfg.MultiGrid_SampleStep = SIZE3D{16, 16, 1};
    cfg.MultiGrid_SampleSize = SIZE3D{96, 96, 1};
    cfg.MultiGrid_Desample = 1;
    cfg.DesampleEnable = false;
    PIV_Eval2D piv;
    piv.setPivEvalCfg(cfg);
    ASSERT_TRUE(piv.setPivImages(&a, &b) && piv.interrogateImage(false));
    PTV_Data2D data;
    PTV_Eval2D ptv(&data);
    ASSERT_TRUE(ptv.process(a, b, *piv.data()));
    int all = 0, allValid = 0, isolated = 0, valid = 0, wrong = 0;
    double e2 = 0.0, g2 = 0.0;
    for (size_t i = 0; i < s.particlesA.size(); i++) {
        const synth::Particle &pa = s.particlesA[i], &pb = s.particlesB[i];
        const PTV_PAIR* p = PairAt(data, pa.x, pa.y);
        const bool ok = p && p->valid, alone = Isolated(s, i);
        const bool inside = pa.x >= 3 && pa.y >= 3 && pa.x <= 508 && pa.y <= 508;
        all += inside;
        allValid += inside && ok;
        isolated += alone;
        if (!alone || !ok) continue;
        valid++;
        if (std::hypot(p->second.x - pb.x, p->second.y - pb.y) > 1.0) {
            wrong++;
            continue;
        }
        const double tx = pb.x - pa.x, ty = pa.y - pb.y;  // dy upwards
        e2 += std::pow(p->dx - tx, 2) + std::pow(p->dy - ty, 2);
        g2 += std::pow(p->guideDx - tx, 2) + std::pow(p->guideDy - ty, 2);
    }
    const double rms = std::sqrt(e2 / (valid - wrong));
    std::printf(
        "[ figures  ] isolated %d of %d; valid %.1f%% (all %.1f%%), wrong %.2f%%, RMS "
        "%.3f px, guide RMS %.3f px\n",
        isolated, all, 100.0 * valid / isolated, 100.0 * allValid / all, 100.0 * wrong / valid, rms,
        std::sqrt(g2 / (valid - wrong)));
    EXPECT_GE(valid, 0.95 * isolated);
    EXPECT_LE(wrong, 0.01 * valid);
    EXPECT_LE(rms, 0.1);
}

TEST(PtvBadInput, ClearErrorAndTheDataLeftAsItWas) {
    MessageCapture log;
    Image2D a = Render({At(40, 40)}, 128, 128), blank = Render({}, 128, 128),
            smallMask = Render({}, 64, 64);
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
        const char* background = nullptr;
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
        {"a search radius of 0", &a, &guide, nullptr, 4, PIVerror::BAD_PARAMETERS,
         "search radius 0, valid radius 1"},
        {"a missing background", &a, &guide, nullptr, 4, PIVerror::OPERATION_FAILED,
         "failed loading background image '/nonexistent/bg.tif'", "/nonexistent/bg.tif"},
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
        params.SearchRadius = c.code == PIVerror::BAD_PARAMETERS ? 0.0 : 10.0;
        params.imageCfg.BkgdSubtract = c.background != nullptr;
        std::snprintf(params.imageCfg.Bkgd, 2048, "%s", c.background ? c.background : "");
        eval.setParameters(params);
        EXPECT_FALSE(eval.process(a, *c.second, *c.guide));
        EXPECT_EQ(eval.error().getLastErrorCode(), c.code);
        EXPECT_NE(log.all().find(c.text), std::string::npos) << log.all();
        EXPECT_TRUE(data.size() == 3 && data.particleCount() == 0);
    }
}

}  // namespace
