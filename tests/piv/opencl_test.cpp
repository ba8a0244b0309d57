// The OpenCL correlation against the CPU correlator, on whatever OpenCL
// device the machine lists (pocl on the build machines); skipped without
// one. 256 x 256 pairs of 2.5 px particles under a Lamb-Oseen vortex, so
// that windows see shear and sub-pixel shifts of every fraction.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

#include "eval_test_support.h"
#include "message_capture.h"
#include "piv_opencl.h"
#include "piv_opencl_batch.h"
#include "piv_opencl_context.h"

using namespace eval_test;

namespace {

class OpenCLTest : public testing::Test {
protected:
    void SetUp() override {
        if (PIV::ListDevices().empty()) GTEST_SKIP() << "no OpenCL device";
    }
    void TearDown() override {
        PIV::SetDevice("cpu");
        PIV::SetDeviceMemoryCap(512ull << 20);
    }
};

const synth::SyntheticPair& Pair() {
    static const synth::SyntheticPair pair =
        synth::RenderPair(StandardParams(256), synth::LambOseenVortex(128.0, 128.0, 600.0, 20.0));
    return pair;
}

// The pair an evaluation sees: the vortex; a double exposure, both frames
// of a uniform (4, 3) px shift summed, correlated with itself; or the vortex
// in bands 40 px wide of 2 px and 6 px particles, whose peaks differ in shape
// from window to window.
enum Scene { kVortex, kDoubleExposure, kMixedSizes };

// The field of one evaluation on `device`, which the run is expected to
// keep (`stays`); a mask, when given, covers the left quarter of the frame.
std::vector<PIV_VECTOR> Evaluate(const PIVEVAL_CFG& cfg, const char* device, bool mask,
                                 bool stays = true, Scene scene = kVortex) {
    EXPECT_TRUE(PIV::SetDevice(device));
    const bool doubleExposure = scene == kDoubleExposure;
    synth::SyntheticPair pair =
        doubleExposure ? synth::RenderPair(StandardParams(256), synth::UniformFlow(4.0, 3.0))
                       : Pair();
    for (size_t k = 0; doubleExposure && k < pair.a.size(); k++)
        pair.a[k] = pair.b[k] = std::min(pair.a[k] + pair.b[k], 255.0f);
    if (scene == kMixedSizes) {
        synth::SynthParams small = StandardParams(256), large = StandardParams(256, 11);
        small.particleDiameter = 2.0;
        large.particleDiameter = 6.0;
        const auto flow = synth::LambOseenVortex(128.0, 128.0, 600.0, 20.0);
        pair = synth::RenderPair(small, flow);
        const synth::SyntheticPair other = synth::RenderPair(large, flow);
        for (size_t k = 0; k < pair.a.size(); k++)
            if (k % 256 / 40 % 2) pair.a[k] = other.a[k], pair.b[k] = other.b[k];
    }
    Evaluation e(pair, cfg);
    if (doubleExposure) e.eval->setAnalysisMode(PIV::ANALYSIS_AUTO_CORRELATION);
    Image2D m;
    if (mask) {
        std::vector<float> left(256 * 256, 0.0f);
        for (int y = 0; y < 256; y++)
            for (int x = 0; x < 64; x++) left[size_t(y) * 256 + size_t(x)] = 1.0f;
        m = ToImage(left, 256, 256);
        e.eval->setMaskImages(&m, nullptr, true);
    }
    EXPECT_TRUE(e.run()) << e.eval->getLastError();
    EXPECT_EQ(PIV::CurrentDevice() != "cpu", stays && std::string(device) != "cpu");
    return std::vector<PIV_VECTOR>(e.field().data(), e.field().data() + e.field().nodeCount());
}

// Peaks `first` and `first` + 1 differ by less than 1e-4 of the highest:
// either may lead. A peak's value is its height squared over the mean square.
bool NearTie(const PIV_VECTOR& v, int first = 0) {
    double h[3];
    for (int i = 0; i < 3; i++) h[i] = std::sqrt(std::max(double(v.peak[i].value), 0.0));
    return h[first] - h[first + 1] < 1e-4 * std::max({h[0], h[1], h[2]});
}

// Multi-grid from 64 px to 32 px windows at step 16, deforming every pass.
PIVEVAL_CFG MultiGrid64To32() {
    PIVEVAL_CFG cfg = SinglePass(32, 16, 1);
    cfg.Method = PIV::METHOD_MULTI_GRID;
    cfg.ImageMapping2D.Mode = PIV::DEFORM_ALL_PASSES;
    cfg.MultiGrid_SampleSize = SIZE3D{64, 64, 1};
    cfg.MultiGrid_SampleStep = SIZE3D{16, 16, 1};
    cfg.MultiGrid_Desample = 1;
    cfg.MultiGrid_FastPyramid = true;
    cfg.DesampleEnable = false;
    return cfg;
}

}  // namespace

// Windows of a 256 x 256 pair at corners a hand picks (edges, odd offsets),
// correlated both ways: the device's planes equal FFTW's within 1e-5 of the
// plane's maximum, over both modes, weights and the Nyquist cells.
TEST_F(OpenCLTest, PlanesEqualTheCPUCorrelators) {
    Image2D a = ToImage(Pair().a, 256, 256), b = ToImage(Pair().b, 256, 256);
    const int corners[] = {0, 0, 3, 1, 100, 37, 97, 40, 192, 190, 189, 192, 0, 192, 5, 189};
    struct Case {
        int w, h, mode, window;
        bool nyquist;
    } cases[] = {{32, 32, 0, PIV::FFTWINDOW_NONE, false}, {32, 32, 1, PIV::FFTWINDOW_NONE, true},
                 {32, 32, 0, PIV::FFTWINDOW_HANN, true},  {64, 64, 1, PIV::FFTWINDOW_GAUSS, false},
                 {32, 16, 0, PIV::FFTWINDOW_TUKEY, true}, {24, 24, 0, PIV::FFTWINDOW_NONE, false},
                 // Odd widths have no Nyquist column: the filter leaves them alone.
                 {31, 32, 0, PIV::FFTWINDOW_NONE, true},  {33, 33, 1, PIV::FFTWINDOW_NONE, true}};
    ASSERT_TRUE(PIV::SetDevice("opencl"));
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.w << "x" << c.h << " mode " << c.mode << " window "
                                        << c.window << " nyquist " << c.nyquist);
        PIVEVAL_CFG cfg = SinglePass(c.w);
        cfg.SampleSize = cfg.FFTSize = SIZE3D{c.w, c.h, 1};
        cfg.CorrelationMode = c.mode;
        cfg.CorrFilter_WindowType = c.window;
        cfg.CorrFilter_Nyquist = c.nyquist;
        PIV_Corr2D cpu;
        cpu.setPivEvalCfg(cfg);
        PIV::DEVICE_CORR_JOB job{
            &a,      &b, c.w,   c.h, c.mode, c.nyquist, c.window ? cpu.fft().weights() : nullptr,
            corners, 4,  false, 0,   false,  0,         0};
        int seen = 0;
        std::string why;
        const bool ok = PIV::CorrelateOnDevice(
            job,
            [&](int first, int n, const float* planes, const PIV_PEAK_SCAN*, const float* norms) {
                for (int i = 0; i < n; i++, seen++) {
                    const int* k = corners + 4 * (first + i);
                    const int stride = cpu.fft().fftWidth();
                    EXPECT_TRUE(a.fillSample(cpu.fft().sample1(), c.w, c.h, k[0], k[1], stride));
                    EXPECT_TRUE(b.fillSample(cpu.fft().sample2(), c.w, c.h, k[2], k[3], stride));
                    EXPECT_TRUE(cpu.fft().crossCorrelate(false));
                    EXPECT_NEAR(norms[i], cpu.fft().normFactor(), 1e-5 * norms[i]);
                    const float* want = cpu.fft().corr();
                    const float* got = planes + size_t(i) * size_t(c.w * c.h);
                    float peak = 0.0f, worst = 0.0f;
                    for (int j = 0; j < c.w * c.h; j++) {
                        peak = std::max(peak, std::fabs(want[j]));
                        worst = std::max(worst, std::fabs(got[j] - want[j]));
                    }
                    EXPECT_LE(worst, 1e-5f * peak) << "window " << first + i;
                }
                return true;
            },
            why);
        EXPECT_TRUE(ok) << why;
        EXPECT_EQ(seen, 4);
    }
}

// Single-pass fields, the device against the CPU: where both have a vector
// they agree within 1e-3 px, and both give one at the same nodes. Fits 0-2
// take the device's peak records, 3-4 its planes; both modes, weights,
// Nyquist, a mask over a quarter (the mask test runs on the CPU either way),
// the search near zero, and a double exposure, whose mirror-image peaks may
// lead either way. The 2-D Gaussian fit over two passes of mixed particle
// sizes, where peak shapes fail the check and are measured again.
TEST_F(OpenCLTest, SinglePassFieldsMatchTheCPU) {
    struct Case {
        int mode, window, fit;
        bool nyquist, mask, nearZero;
        Scene scene;
        int passes;
    } cases[] = {{0, PIV::FFTWINDOW_NONE, 0, false, false, false, kVortex, 1},
                 {0, PIV::FFTWINDOW_NONE, 1, false, true, false, kVortex, 1},
                 {1, PIV::FFTWINDOW_NONE, 2, true, false, false, kVortex, 1},
                 {0, PIV::FFTWINDOW_HANN, 0, false, false, true, kVortex, 1},
                 {0, PIV::FFTWINDOW_NONE, 1, false, false, false, kDoubleExposure, 1},
                 {0, PIV::FFTWINDOW_HANN, 3, false, false, false, kVortex, 1},
                 {1, PIV::FFTWINDOW_GAUSS, 4, true, true, false, kVortex, 1},
                 {0, PIV::FFTWINDOW_NONE, 5, false, false, false, kMixedSizes, 2}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "case " << &c - cases);
        PIVEVAL_CFG cfg = SinglePass(32, 16, c.fit);
        cfg.CorrelationMode = c.mode;
        cfg.CorrFilter_WindowType = c.window;
        cfg.CorrFilter_Nyquist = c.nyquist;
        cfg.ROI = c.nearZero;
        cfg.ROI_Size = SIZE3D{6, 4, 1};
        cfg.Size = 5;
        cfg.Method = c.passes > 1 ? PIV::METHOD_MULTI_PASS : PIV::METHOD_SINGLE_PASS;
        cfg.Passes = c.passes;
        const std::vector<PIV_VECTOR> cpu = Evaluate(cfg, "cpu", c.mask, true, c.scene);
        const std::vector<PIV_VECTOR> dev = Evaluate(cfg, "opencl", c.mask, true, c.scene);
        ASSERT_EQ(cpu.size(), dev.size());
        int both = 0, flagsDiffer = 0;
        for (size_t k = 0; k < cpu.size(); k++) {
            const PIV_VECTOR &u = cpu[k], &v = dev[k];
            EXPECT_EQ(u.ix, v.ix);
            EXPECT_EQ(u.iy, v.iy);
            if (u.flag != v.flag && !NearTie(u)) flagsDiffer++;
            if (!(u.flag & VECTOR_ENABLED) || !(v.flag & VECTOR_ENABLED)) continue;
            both++;
            auto mag = [&](float a) { return c.scene == kDoubleExposure ? std::fabs(a) : a; };
            EXPECT_NEAR(mag(u.dx), mag(v.dx), 1e-3) << "node " << k;
            EXPECT_NEAR(mag(u.dy), mag(v.dy), 1e-3) << "node " << k;
            // The second peak too, which validation may fall back on.
            if (NearTie(u, 1)) continue;
            EXPECT_NEAR(mag(u.peak[1].x), mag(v.peak[1].x), 1e-3) << "node " << k;
            EXPECT_NEAR(mag(u.peak[1].y), mag(v.peak[1].y), 1e-3) << "node " << k;
        }
        EXPECT_EQ(flagsDiffer, 0);
        EXPECT_GT(both, c.mask ? 150 : 220);
    }
}

// Multi-grid 64 -> 32 with the deformation of every pass: each level's list
// goes through the device, and the small differences of one level feed the
// next; still 99.5 % of the nodes agree within 1e-3 px, RMS within 1e-3 px.
TEST_F(OpenCLTest, MultiGridWithDeformationMatchesTheCPU) {
    PIVEVAL_CFG cfg = MultiGrid64To32();
    cfg.ImageMapping2D.Method = PIV::INTERPOLATE_BSPLINE;
    cfg.ImageMapping2D.Order = 3;
    const std::vector<PIV_VECTOR> cpu = Evaluate(cfg, "cpu", false);
    const std::vector<PIV_VECTOR> dev = Evaluate(cfg, "opencl", false);
    ASSERT_EQ(cpu.size(), dev.size());
    int both = 0, close = 0;
    double squares = 0.0;
    for (size_t k = 0; k < cpu.size(); k++) {
        const PIV_VECTOR &u = cpu[k], &v = dev[k];
        if (!(u.flag & VECTOR_ENABLED) || !(v.flag & VECTOR_ENABLED)) continue;
        both++;
        const double ex = double(u.dx) - v.dx, ey = double(u.dy) - v.dy;
        squares += ex * ex + ey * ey;
        if (std::fabs(ex) <= 1e-3 && std::fabs(ey) <= 1e-3) close++;
    }
    ASSERT_GT(both, 200);
    EXPECT_GE(close, 0.995 * both);
    EXPECT_LE(std::sqrt(squares / (2.0 * both)), 1e-3);
}

// A memory cap too small for the frames and one window: the list goes to
// the CPU with a message naming the cap, and the field is the CPU's.
TEST_F(OpenCLTest, ACapBelowOneBatchGivesTheCPUField) {
    const PIVEVAL_CFG cfg = SinglePass(32, 16, 1);
    const std::vector<PIV_VECTOR> cpu = Evaluate(cfg, "cpu", false);
    PIV::SetDeviceMemoryCap(100000);
    MessageCapture messages;
    const std::vector<PIV_VECTOR> dev = Evaluate(cfg, "opencl", false, false);
    EXPECT_NE(messages.all().find("memory cap of 100000 bytes holds no batch"), std::string::npos)
        << messages.all();
    ASSERT_EQ(cpu.size(), dev.size());
    EXPECT_EQ(std::memcmp(cpu.data(), dev.data(), sizeof(PIV_VECTOR) * cpu.size()), 0);
}

// The names a device setting takes, and those it refuses.
TEST(DeviceSetting, NamesAndRefusals) {
    const size_t devices = PIV::ListDevices().size();
    struct Case {
        const char* name;
        bool ok;
    } cases[] = {{"cpu", true},       {"opencl", devices > 0}, {"opencl:0", devices > 0},
                 {"opencl:9", false}, {"gpu", false},          {"opencl:", false},
                 {"opencl:1x", false}};
    for (const Case& c : cases) {
        std::string why;
        EXPECT_EQ(PIV::SetDevice(c.name, &why), c.ok) << c.name;
        EXPECT_EQ(why.empty(), c.ok) << c.name << ": " << why;
    }
    PIV::SetDevice("cpu");
    EXPECT_EQ(PIV::CurrentDevice(), "cpu");
}

// A device lost halfway through the first list of a multi-grid run, its
// batches cut small by the memory cap: after 100 to 105 checked calls
// (every place in a batch), each OpenCL call fails, with commands of the
// batch still queued, with an error cl.h names (-5, -14, -37) or one it
// lacks, given by its number. The list is redone on the CPU and the run
// stays there: one message naming the error, and the CPU run's field to the
// byte.
TEST_F(OpenCLTest, ADeviceLostMidRunLeavesTheCPUField) {
    const PIVEVAL_CFG cfg = MultiGrid64To32();
    const std::vector<PIV_VECTOR> cpu = Evaluate(cfg, "cpu", false);
    PIV::SetDeviceMemoryCap(1000000);  // 8 windows of 64 x 64 a batch
    const struct {
        int code;
        const char* name;
    } errors[] = {{-5, "CL_OUT_OF_RESOURCES"},
                  {-14, "CL_EXEC_STATUS_ERROR_FOR_EVENTS_IN_WAIT_LIST"},
                  {-37, "CL_INVALID_HOST_PTR"},
                  {-1234, "unknown error code -1234"}};
    for (int calls = 100; calls < 106; calls++) {
        SCOPED_TRACE(testing::Message() << "lost after " << calls << " calls");
        MessageCapture messages;
        PIV::detail::InjectDeviceFailure(calls, errors[calls % 4].code);
        const std::vector<PIV_VECTOR> dev = Evaluate(cfg, "opencl", false, false);
        PIV::detail::InjectDeviceFailure(-1, 0);
        const std::string all = messages.all();
        EXPECT_NE(all.find(errors[calls % 4].name), std::string::npos) << all;
        EXPECT_EQ(all.find("OpenCL"), all.rfind("OpenCL")) << all;
        ASSERT_EQ(cpu.size(), dev.size());
        EXPECT_EQ(std::memcmp(cpu.data(), dev.data(), sizeof(PIV_VECTOR) * cpu.size()), 0);
    }
}
