// Ensemble correlation against hand-worked passes, synthetic flows and files.
#include <gtest/gtest.h>
#include <netcdf.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <tuple>

#include "eval_test_support.h"
#include "message_capture.h"
#include "piv_corr2d_average.h"
#include "piv_filelist.h"
#include "scratch_files.h"

using namespace eval_test;

namespace {

// Sparse seeding: 0.002 particles per pixel (two a window), 3 px, no noise.
synth::SynthParams Sparse(unsigned seed) {
    synth::SynthParams p = StandardParams(256, seed);
    p.particleDensity = 0.002;
    p.particleDiameter = 3.0;
    return p;
}

// An ensemble of 32 px windows, step 16, over the pairs seeded 1..n.
struct Ensemble {
    PIV_Corr2D_Average avg;
    explicit Ensemble(int fit = PIV::PEAKFIT_GAUSS_3PT, int mode = 0) {
        PIV_PARAMETERS p;
        p.eval = SinglePass(32, 16, fit);
        p.eval.CorrelationMode = mode;
        p.eval.ScanRange = SIZE3D{6, 6, 0};
        avg.setPivParameters(p);
    }
    void add(const synth::SyntheticPair& pair) {
        const Image2D a = ToImage(pair.a, pair.width, pair.height);
        const Image2D b = ToImage(pair.b, pair.width, pair.height);
        ASSERT_TRUE(avg.corrPlaneCount() > 0 || avg.initializeGrid(pair.width, pair.height));
        ASSERT_TRUE(avg.processImagePair(&a, &b));
    }
    void run(int n, const synth::Flow& flow) {
        for (int i = 1; i <= n; i++) add(RenderPair(Sparse(unsigned(i)), flow));
        ASSERT_TRUE(avg.computePivData(avg.pivParameters()->pivEvalCfg().Type, false));
    }
    PIV_Data2D& field() { return *avg.pivData(); }
};

std::string Passes(const CORR_AVERAGE_PARAMS& params, int window, int scan, int step) {
    PIVEVAL_CFG cfg = SinglePass(window, step);
    cfg.ScanRange = SIZE3D{scan, scan, 0};
    std::string s;
    for (const CORR_AVERAGE_PASS& p : PIV::BuildEnsembleCorrSteps(params, cfg))
        s += std::to_string(p.window.width) + "/" + std::to_string(p.scan.width) + "/" +
             std::to_string(p.step.width) + " d" + std::to_string(p.desample) + " s" +
             std::to_string(p.fileStride) + "; ";
    return s;
}

std::string TempPath(const std::string& name) {
    static const test_support::ScratchDir dir;
    return dir.file(name);
}

// Pixels of the square [lo, hi) set to 0 in both frames.
synth::SyntheticPair Blanked(synth::SyntheticPair pair, int lo, int hi) {
    for (int y = lo; y < hi; y++)
        for (int x = lo; x < hi; x++)
            pair.a[size_t(y * pair.width + x)] = pair.b[size_t(y * pair.width + x)] = 0.0f;
    return pair;
}

// Pairs seeded 1..n of this size as "<stub>NN_a.tif", "<stub>NN_b.tif".
FilePairList WritePairs(const std::string& stub, int n, int size, const synth::Flow& flow) {
    FilePairList list;
    for (int i = 1; i <= n; i++) {
        const synth::SyntheticPair p = RenderPair(StandardParams(size, unsigned(i)), flow);
        const std::string a = TempPath(stub + std::to_string(i) + "_a.tif");
        const std::string b = TempPath(stub + std::to_string(i) + "_b.tif");
        EXPECT_TRUE(ToImage(p.a, size, size).save(a.c_str()) && ToImage(p.b, size, size).save(b.c_str()));
        list.append(FILE_PAIR(a.c_str(), b.c_str()));
    }
    return list;
}

}  // namespace

// window/scan/step, desample and file stride per pass.
// Mode 2 reads the last sentence of its rule as: a pyramid whose finest
// level has the evaluation's window, step and scan becomes the final pass
// (desample 1, every pair); otherwise a pass with the true sizes follows.
TEST(EnsembleSteps, PassListsWorkedByHand) {
    struct Case {
        int mode, passes, vary, stride, start, window, scan, step;
        const char* expected;
    } cases[] = {
        {0, 2, 1, 10, 64, 32, 0, 16, "32/0/16 d1 s1; "},
        {1, 1, 1, 10, 64, 32, 0, 16, "32/0/16 d1 s1; "},
        // 10, halved to 5, the last pass on every pair.
        {1, 3, 1, 10, 64, 32, 0, 16, "32/0/16 d1 s10; 32/0/16 d1 s5; 32/0/16 d1 s1; "},
        // 24 rounds up to 32; the start 16 is below the window and becomes
        // 32; k = 2 already covers 32 x 32 (64 x 64 >= 1024). The finest
        // level (32, step 32) is not the evaluation's, so 24/4/12 follows.
        {2, 2, 0, 10, 16, 24, 4, 12, "64/8/64 d2 s1; 32/4/32 d1 s1; 24/4/12 d1 s1; "},
        // Start 128: k = 4 (128 x 128 reaches 128 x 128); strides k^2, and
        // the finest level is the evaluation's own, so it runs every pair.
        {2, 2, 1, 10, 128, 32, 2, 32,
         "128/8/128 d4 s16; 96/6/96 d3 s9; 64/4/64 d2 s4; 32/2/32 d1 s1; "},
    };
    for (const Case& c : cases) {
        CORR_AVERAGE_PARAMS p;
        std::tie(p.mode, p.passCount, p.varyStride, p.stride) = std::tie(c.mode, c.passes, c.vary, c.stride);
        p.startWin = SIZE2D{c.start, c.start};
        EXPECT_EQ(Passes(p, c.window, c.scan, c.step), c.expected) << "mode " << c.mode;
    }
}

// 50 sparse pairs, about two particles per window: a single pair mostly
// finds noise, their sum the flow (2.3, -1.6), which reads dx 2.3, dy +1.6.
TEST(EnsembleAccuracy, SparsePairsGiveTheFlowWhereSinglePairsFail) {
    MessageCapture quiet;
    const synth::UniformFlow flow(2.3, -1.6);
    Ensemble e;
    e.run(50, flow);
    const FieldErrors ens = CompareWithFlow(e.field(), flow, 16);
    EXPECT_EQ(ens.failed, 0);
    EXPECT_LE(std::max(ens.x.rms, ens.y.rms), 0.05);
    int nodes = 0, outliers = 0;
    for (int i = 1; i <= 50; i++) {
        Evaluation single(RenderPair(Sparse(unsigned(i)), flow), SinglePass(32, 16, 0));
        ASSERT_TRUE(single.run());
        for (int k = 0; k < single.field().nodeCount(); k++) {
            const PIV_VECTOR& v = single.field().data()[k];
            if (v.ix < 16 || v.iy < 16 || v.ix > 240 || v.iy > 240) continue;
            nodes++;
            if (!(v.flag & VECTOR_ENABLED) || std::hypot(v.dx - 2.3, v.dy - 1.6) > 0.5) outliers++;
        }
    }
    EXPECT_GT(outliers * 10, nodes);
    std::printf("RMS %.3f px, %d/%d outliers\n", std::max(ens.x.rms, ens.y.rms), outliers, nodes);
}


// The node at (128, 128) sees only the blank square [100, 156) when blanked.
// Blank in all 6 pairs: 6 counted, nothing summed, no peak (flag 12). Blank
// in pairs 4..6: the sum of pairs 1..3 over 6, half the height of 1..3 alone.
TEST(EnsembleEdges, FailedWindowsCountButAddNothing) {
    MessageCapture quiet;
    const synth::UniformFlow flow(2.3, -1.6);
    Ensemble all, half, firstHalf;
    for (int i = 1; i <= 6; i++) {
        const synth::SyntheticPair pair = RenderPair(StandardParams(256, unsigned(i)), flow);
        all.add(Blanked(pair, 100, 156));
        half.add(i > 3 ? Blanked(pair, 100, 156) : pair);
        if (i <= 3) firstHalf.add(pair);
    }
    for (Ensemble* e : {&all, &half, &firstHalf})
        e->avg.computePivData(PIV::PEAKFIT_GAUSS_3PT, false);
    const int node = all.avg.nearestCorrPlaneIndex(128, 128, false);
    const CORR_PLANE_DATA* blank = all.avg.correlationData(node);
    EXPECT_EQ(blank->count, 6);
    for (float v : blank->corrSum) ASSERT_EQ(v, 0.0f);
    EXPECT_EQ(all.field().data()[node].flag, VECTOR_NO_RESULT | VECTOR_OUTLIER);
    EXPECT_EQ(half.avg.correlationData(node)->count, 6);
    EXPECT_NEAR(half.field().data()[node].corr / firstHalf.field().data()[node].corr, 0.5, 1e-5);
}

// sum / count into the plane; with a mask the packed values go to its cells
// and the rest takes their minimum. rms = sqrt((n S2 - S^2) / ((n - 1) n)).
TEST(EnsembleEdges, RestoredPlanesAndWeightsByHand) {
    static const uint8_t kOdd[4] = {0, 1, 0, 1}, kThird[4] = {0, 0, 1, 0};
    struct Case {
        float sum[4];
        const uint8_t* mask;
        int count;
        float plane[4], min, max, mean, rms;
    } cases[] = {
        {{2, 4, 6, 8}, nullptr, 2, {1, 2, 3, 4}, 1, 4, 2.5f, 1.290994f},
        {{6, 2}, kOdd, 2, {1, 3, 1, 1}, 1, 3, 2, 1.414214f},
        {{5}, kThird, 0, {5, 5, 5, 5}, 5, 5, 5, 0},  // count 0 counts as 1
    };
    for (const Case& c : cases) {
        float plane[4], lo, hi, mean, rms;
        _restoreCorrData(c.sum, plane, c.mask, 4, c.count, &lo, &hi, &mean, &rms);
        EXPECT_TRUE(std::equal(plane, plane + 4, c.plane) && lo == c.min && hi == c.max && mean == c.mean);
        EXPECT_NEAR(rms, c.rms, 1e-5);
    }
    // 1 / (i/4 + 0.5) for i <= 2, 1 / (1.5 - i/4) beyond.
    float w[4];
    _createCorrelationWeights(w, 4);
    const float expected[4] = {2.0f, 4.0f / 3.0f, 1.0f, 4.0f / 3.0f};
    EXPECT_TRUE(std::equal(w, w + 4, expected));
}

// Planes packed to a peak ROI of 16 x 16 cells (256 of 1024) give the same
// field as whole planes: the peak (2.3, 1.6) lies well inside. Saved, loaded
// into a new object with the same settings, extracted again: the same field
// bit for bit; a parabola fit then runs on the loaded planes. A vector file,
// a cut file and one whose box (2 x 128: too thin to pack) does not match its
// 256-cell planes are refused and leave the new object empty.
TEST(EnsembleFiles, PlanesSurviveTheFileAndBadFilesAreRefused) {
    MessageCapture quiet;
    const synth::UniformFlow flow(2.3, -1.6);
    Ensemble whole, e, loaded;
    CORR_AVERAGE_PARAMS roi;
    roi.peakRoiEnable = true;
    roi.peakRoiSize = SIZE2D{16, 16};
    e.avg.setEnsembleCorrParams(roi);
    whole.run(8, flow);
    e.run(8, flow);
    EXPECT_EQ(e.avg.correlationData(0)->corrSum.size(), 256u);
    const std::string path = TempPath("planes.nc");
    ASSERT_TRUE(e.avg.saveCorrelationPlanes(path.c_str()));
    ASSERT_TRUE(loaded.avg.loadCorrelationPlanes(path.c_str())) << loaded.avg.getLastError();
    ASSERT_TRUE(loaded.avg.computePivData(PIV::PEAKFIT_GAUSS_3PT, false) &&
                loaded.field().nodeCount() == e.field().nodeCount());
    for (int k = 0; k < e.field().nodeCount(); k++)
        for (PIV_Data2D* other : {&whole.field(), &loaded.field()})
            ASSERT_EQ(std::memcmp(&e.field().data()[k].dx, &other->data()[k].dx, 8), 0) << k;
    ASSERT_TRUE(loaded.avg.computePivData(PIV::PEAKFIT_PARABOLIC, false));
    EXPECT_LE(CompareWithFlow(loaded.field(), flow, 16).x.rms, 0.1);
    const std::string vectors = TempPath("vectors.nc"), cut = TempPath("cut.nc");
    ASSERT_TRUE(e.field().saveNetCDF(vectors.c_str()));
    std::ofstream(cut, std::ios::binary) << test_support::ReadBytes(path).substr(0, 100000);
    const std::string thin = TempPath("thin.nc");
    std::ofstream(thin, std::ios::binary) << test_support::ReadBytes(path);
    const int w = 2, h = 128;
    int id = -1;
    ASSERT_TRUE(!nc_open(thin.c_str(), NC_WRITE, &id) && !nc_redef(id) &&
                !nc_put_att_int(id, NC_GLOBAL, "corr_plane_roi_width", NC_INT, 1, &w) &&
                !nc_put_att_int(id, NC_GLOBAL, "corr_plane_roi_height", NC_INT, 1, &h) &&
                !nc_close(id));
    for (const std::string& bad : {vectors, cut, thin}) {
        PIV_Corr2D_Average fresh;
        EXPECT_FALSE(fresh.loadCorrelationPlanes(bad.c_str())) << bad;
        EXPECT_EQ(fresh.corrPlaneCount(), 0);
        EXPECT_FALSE(e.avg.loadCorrelationPlanes(bad.c_str()));
        EXPECT_EQ(e.avg.corrPlaneCount(), e.field().nodeCount());  // kept
    }
}

// The text dump names its plane by mode; its failures say why.
TEST(EnsembleFiles, SinglePlaneDumpPerModeAndItsFailures) {
    MessageCapture quiet;
    const synth::UniformFlow flow(2.3, -1.6);
    const std::tuple<int, const char*, const char*> cases[] = {
        {0, "# Ensemble correlation data at position: ", "T=\"Corr at ["},
        {2, "# Ensemble MQD correlation data at position: ", "T=\"MQD at ["},
        {3, "# Ensemble direct correlation data at position: ", "T=\"DCC at ["},
        {4, "# Ensemble error correlation function data at position: ", "T=\"ECF at ["},
    };
    for (const auto& [mode, title, zone] : cases) {
        Ensemble e(PIV::PEAKFIT_GAUSS_3PT, mode);
        for (int i = 1; i <= 2; i++) e.add(RenderPair(StandardParams(256, unsigned(i)), flow));
        const std::string path = TempPath("plane" + std::to_string(mode) + ".dat");
        ASSERT_TRUE(e.avg.saveSingleCorrelationPlane(20, path.c_str()));
        const std::string text = test_support::ReadBytes(path);
        EXPECT_EQ(text.rfind(title, 0), 0u) << text.substr(0, 80);
        EXPECT_TRUE(HasText(text, zone));
    }
    Ensemble e;
    e.add(RenderPair(StandardParams(256, 1), flow));
    PIV_Corr2D_Average empty;
    const std::tuple<PIV_Corr2D_Average*, int, std::string, std::string> failures[] = {
        {&empty, 0, TempPath("x.dat"), "saveSingleCorrelationPlane() - no data available"},
        {&e.avg, 9999, TempPath("x.dat"), "saveSingleCorrelationPlane() - invalid index: 9999"},
        {&e.avg, 0, "", "saveSingleCorrelationPlane() - invalid output file specified!"},
        {&e.avg, 0, "/no/such/dir/x.dat", "failed creating file: '/no/such/dir/x.dat'"},
    };
    for (const auto& [avg, index, file, text] : failures) {
        EXPECT_FALSE(avg->saveSingleCorrelationPlane(index, file.c_str()));
        EXPECT_TRUE(HasText(avg->getLastError(), text));
    }
}


// A pyramid from 64 px over files: 64 px windows on pairs binned by 2, then
// 32 px on whole pairs, offset (6, 3) by the first, then the true step 16;
// the first two passes leave their fields and plane images in the work
// folder. A run that cannot go on says why and leaves no field.
TEST(EnsembleSeries, PyramidOverFilesAndTheRunsThatCannotGoOn) {
    MessageCapture quiet;
    const synth::UniformFlow flow(5.6, -3.2);
    FilePairList list = WritePairs("pyr", 6, 256, flow);
    Ensemble e;
    CORR_AVERAGE_PARAMS params;
    params.mode = 2;
    params.peakFitMethod = PIV::PEAKFIT_GAUSS_3PT;
    params.saveIntermediate = true;
    PIV::CopyText(params.workDir, TempPath("").c_str());
    e.avg.setEnsembleCorrParams(params);
    ASSERT_TRUE(e.avg.processImageSeries(&list)) << e.avg.getLastError();
    const POINT2D off = e.avg.correlationData(112)->offset;
    EXPECT_TRUE(e.avg.passes().size() == 3 && e.avg.imagesProcessed() == 6 &&
                e.field().grid().step.width == 16 && off.x == 6 && off.y == 3);
    const FieldErrors f = CompareWithFlow(e.field(), flow, 16);
    EXPECT_EQ(f.failed, 0);
    EXPECT_LE(std::max(f.x.rms, f.y.rms), 0.05);
    for (const char* name : {"enscorr_tmp1.nc", "enscorr_tmp2_corr.tif"})
        EXPECT_TRUE(std::ifstream(TempPath(name)).good()) << name;

    FilePairList missing;
    missing.append(FILE_PAIR("/no/such/a.tif", "/no/such/b.tif"));
    const FilePairList small = WritePairs("small", 1, 128, flow);
    list.append(small[0]);
    const std::pair<const FilePairList*, std::string> cases[] = {
        {&missing, "  First image file not found: /no/such/a.tif"}, {&list, small[0].fileA}};
    const int codes[] = {PIVerror::FILE_NOT_FOUND, PIVerror::IMAGE_SIZE_MISMATCH};
    for (int i = 0; i < 2; i++) {
        EXPECT_FALSE(e.avg.processImageSeries(cases[i].first));
        EXPECT_EQ(e.avg.getLastErrorCode(), codes[i]);
        EXPECT_TRUE(HasText(e.avg.getLastError(), cases[i].second));
        EXPECT_FALSE(e.avg.pivData()->haveRawData());
    }
    // 20000 x 20000 at step 1: 4e8 planes of 64 x 64 cannot be held.
    PIV_PARAMETERS big;
    big.eval = SinglePass(64, 1);
    e.avg.setPivParameters(big);
    EXPECT_FALSE(e.avg.initializeGrid(20000, 20000));
    EXPECT_EQ(e.avg.getLastErrorCode(), PIVerror::ALLOCATION_FAILED);
    EXPECT_TRUE(HasText(e.avg.getLastError(), "bytes"));
}
