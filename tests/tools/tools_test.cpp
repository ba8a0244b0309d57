// The command-line tools as a user runs them: separate processes on pairs
// that kelvane-synth renders, results read back from the files.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "eval_cf.h"
#include "image2d.h"
#include "image_file_builders.h"
#include "image_format.h"
#include "message_capture.h"
#include "piv_data2d.h"
#include "piv_messages.h"
#include "piv_params.h"
#include "scratch_files.h"

using test_support::ScratchDir;

namespace {

struct Outcome {
    int exit = -1;
    std::string out, err;
};

// Runs a tool with its arguments (each one quoted) and returns its exit
// status with what it printed.
Outcome Run(const char* tool, const std::vector<std::string>& args, const ScratchDir& dir) {
    std::string cmd = std::string("'") + tool + "'";
    for (const std::string& a : args) cmd += " '" + a + "'";
    const std::string out = dir.file("stdout.txt"), err = dir.file("stderr.txt");
    cmd += " > '" + out + "' 2> '" + err + "'";
    const int status = std::system(cmd.c_str());
    Outcome o;
    o.exit = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    o.out = test_support::ReadBytes(out);
    o.err = test_support::ReadBytes(err);
    return o;
}

Outcome Synth(const ScratchDir& dir, const std::vector<std::string>& args) {
    return Run(KELVANE_SYNTH_TOOL, args, dir);
}
Outcome Eval(const ScratchDir& dir, const std::vector<std::string>& args) {
    return Run(KELVANE_EVAL_TOOL, args, dir);
}
Outcome Compare(const ScratchDir& dir, const std::vector<std::string>& args) {
    return Run(KELVANE_COMPARE_TOOL, args, dir);
}

struct Pair {
    std::string a, b, truth;
};

Pair MakePair(const ScratchDir& dir, const std::vector<std::string>& flow, int size = 256,
              const std::string& stem = "pair") {
    Pair p{dir.file(stem + "_a.tif"), dir.file(stem + "_b.tif"), dir.file(stem + "_truth.nc")};
    std::vector<std::string> args = flow;
    args.insert(args.end(), {"--size", std::to_string(size), p.a, p.b, p.truth});
    const Outcome o = Synth(dir, args);
    EXPECT_EQ(o.exit, 0) << o.err;
    return p;
}

}  // namespace

// Multi-grid with deformation down to 32 px windows (step 16) on 512 x 512
// pairs, RMS error of both components at the nodes 32 px or more inside:
// 0.0066, 0.0092 and 0.0070 px (seed 1; 0.0063, 0.0081 and 0.0071 for seed
// 2). With the library's cubic and one final scan: 0.0207, 0.0189, 0.0156.
TEST(KelvaneEval, MultiGridWithDeformationAccuracy) {
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"--flow", "uniform", "--dx", "7.3", "--dy", "-5.6"}, "0.012"},
        {{"--flow", "sine", "--amplitude", "2", "--wavelength", "256"}, "0.012"},
        {{"--flow", "vortex", "--peak", "6", "--core", "96"}, "0.015"},
    };
    EnableWarnings(false);
    ScratchDir dir;
    for (const auto& c : cases) {
        const std::string& flow = c.first[1];
        const Pair p = MakePair(dir, c.first, 512, flow);
        const Outcome e = Eval(dir, {"--method", "multigrid", "--deform", "--window", "32",
                                     "--step", "16", p.a, p.b, "-o", dir.file(flow + ".nc")});
        ASSERT_EQ(e.exit, 0) << flow << ": " << e.err;
        const Outcome r = Compare(
            dir, {dir.file(flow + ".nc"), p.truth, "--margin", "32", "--max-rms", c.second});
        std::printf("[ figures  ] %s: %s", flow.c_str(), r.out.c_str());
        EXPECT_EQ(r.exit, 0) << flow << ": " << r.out << r.err;
    }
}

// Pairs named run0001a/run0001b..., and a plain sequence in which frame
// n+1 is the partner of frame n: each pair gets a different shift, so a
// wrong partner would show in the result.
TEST(KelvaneEval, SeriesPairUpByName) {
    EnableWarnings(false);
    ScratchDir dir;
    auto name = [](const char* pattern, int i) {
        char text[64];
        std::snprintf(text, sizeof(text), pattern, i);
        return std::string(text);
    };
    auto meanDx = [&](const std::string& result) {
        PIV_Data2D f;
        EXPECT_TRUE(f.load(dir.file(result).c_str())) << result;
        double mean = 0.0;
        for (int k = 0; k < f.nodeCount(); k++) mean += f.data()[k].dx / f.nodeCount();
        return mean;
    };
    // img0001 + img0002 move by 1 px, img0003 + img0004 by 2 px, ...
    for (int i = 1; i <= 3; i++)
        for (const auto& [a, b, seed] :
             {std::tuple{name("run%04da.tif", i), name("run%04db.tif", i), i},
              {name("img%04d.tif", 2 * i - 1), name("img%04d.tif", 2 * i), 10 + i}})
            ASSERT_EQ(Synth(dir, {"--dx", std::to_string(i), "--dy", "0", "--size", "128", "--seed",
                                  std::to_string(seed), dir.file(a), dir.file(b), dir.file("t.nc")})
                          .exit,
                      0);
    const Outcome ab = Eval(dir, {"--method", "single", "--series", dir.file("run0001a.tif"),
                                  dir.file("run0003a.tif"), "--output-dir", dir.file("ab"),
                                  "--format", "nc,dat", "--stats"});
    ASSERT_EQ(ab.exit, 0) << ab.err;
    EXPECT_TRUE(HasText(ab.err, "3 of 3 pairs evaluated and written, 0 failed"));
    const Outcome seq = Eval(
        dir, {"--method", "multipass", "--series", dir.file("img0001.tif"), dir.file("img0005.tif"),
              "--increment", "2", "--separation", "1", "--output-dir", dir.file("seq")});
    ASSERT_EQ(seq.exit, 0) << seq.err;
    for (int i = 1; i <= 3; i++) {
        EXPECT_NEAR(meanDx(name("ab/run%04da.nc", i)), i, 0.1);
        EXPECT_TRUE(std::ifstream(dir.file(name("ab/run%04da_piv.dat", i))).good());
        EXPECT_NEAR(meanDx(name("seq/img%04d.nc", 2 * i - 1)), i, 0.1);
    }
    EXPECT_TRUE(std::ifstream(dir.file("ab/series_avg.nc")).good());
    EXPECT_TRUE(std::ifstream(dir.file("ab/series_rms.nc")).good());
}

// Each failure is told once, on one line that ends with its reason, with
// the exit status of its kind: 2 for what the user can fix before a run,
// 1 for an evaluation that found nothing.
TEST(KelvaneEval, EachFailureIsToldOnceWithItsReason) {
    ScratchDir dir;
    const Pair p = MakePair(dir, {"--dx", "1"}, 64);
    const std::string out = dir.file("x.nc");
    test_support::WriteBytes(dir.file("black_a.pgm"), "P5 64 64\n255\n" + std::string(4096, '\0'));
    test_support::WriteBytes(dir.file("black_b.pgm"), "P5 64 64\n255\n" + std::string(4096, '\0'));
    test_support::WriteBytes(dir.file("broken.pgm"), "P5\n64 64\n255\n" + std::string(4096, '\0'));
    test_support::WriteBytes(dir.file("x.png"), "\x89PNG\r\n\x1a\n" + std::string(64, '\0'));
    test_support::WriteBytes(dir.file("field.vc7"), std::string(300, '\0'));
    struct Case {
        std::vector<std::string> args;
        int exit;
        const char* said;
    } cases[] = {
        {{"--frobnicate", p.a}, 2, "unknown option --frobnicate"},
        {{"--window", "abc", p.a, p.b, "-o", out}, 2, "bad value for --window"},
        {{p.a, p.b, "-o", dir.file("x.png")}, 2, "extension"},
        {{p.a, p.b}, 2, "-o FILE"},
        {{"--format", "nc,xls", "--series", p.a, p.b, "--output-dir", out},
         2,
         "nc, dat, plt and cf"},
        {{dir.file("missing_a.tif"), p.b, "-o", out}, 2, "missing_a.tif: No such file"},
        {{p.b, "-o", out}, 2, "give SECOND, or --frames"},
        {{p.a, p.a, "-o", out}, 2, "both FIRST and SECOND"},
        {{dir.path(), p.b, "-o", out}, 2, "a folder, not an image"},
        {{dir.file("broken.pgm"), p.b, "-o", out}, 2, "write it with a space after P5"},
        {{dir.file("x.png"), p.b, "-o", out}, 2, "PNG image, which is not supported"},
        {{dir.file("field.vc7"), p.b, "-o", out}, 2, "vector field file, not an image"},
        {{"--window", "128", p.a, p.b, "-o", out}, 2, "128x128 px window is larger than the 64x64"},
        {{p.a, p.b, "-o", dir.file("nowhere/x.nc")}, 2, "nowhere: No such file"},
        {{"--velocity", "--dt", "100", p.a, p.b, "-o", out}, 2, "needs the calibration: a scale"},
        {{"-p", dir.file("nothing.par"), p.a, p.b, "-o", out}, 2, "nothing.par"},
        {{"--mask", dir.file("nomask.tif"), p.a, p.b, "-o", out}, 2, "nomask.tif: No such file"},
        {{"--series", p.a}, 2, "needs a value"},
        {{"--correlation", "fourier", p.a, p.b, "-o", out}, 2, "unknown correlation fourier"},
        {{"--scan-range", "-1", p.a, p.b, "-o", out}, 2, "bad value for --scan-range"},
        {{"--device", "opencl:9", p.a, p.b, "-o", out}, 2, "no OpenCL device"},
        {{"--device", "gpu", p.a, p.b, "-o", out}, 2, "the devices: cpu"},
        {{"--correlation", "mqd", "--scan-range", "20", p.a, p.b, "-o", out},
         2,
         "73x73 px scan area (window and scan range) is larger than the 64x64"},
        {{dir.file("black_a.pgm"), "-o", out}, 1, "the first frame is uniform (every pixel 0)"},
    };
    for (const Case& c : cases) {
        const Outcome o = Eval(dir, c.args);
        SCOPED_TRACE(c.said + std::string(" <- ") + o.err);
        EXPECT_EQ(o.exit, c.exit);
        EXPECT_TRUE(HasText(o.err, c.said));
        const size_t told = o.err.find("kelvane-eval:");  // once: the first is the last
        EXPECT_TRUE(told != std::string::npos && told == o.err.rfind("kelvane-eval:"));
        EXPECT_FALSE(HasText(o.err, ": \n"));
    }
    // A write cut short (no file may grow, and the signal for it is ignored,
    // so that write() fails) is told as a failed write, and leaves no file.
    const std::string big = dir.file("big.dat"), said = dir.file("said.txt");
    const std::string cmd = "( trap '' XFSZ; ulimit -f 0; exec '" + std::string(KELVANE_EVAL_TOOL) +
                            "' '" + p.a + "' '" + p.b + "' -o '" + big + "' ) 2>&1 | cat > '" +
                            said + "'";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
    EXPECT_TRUE(HasText(test_support::ReadBytes(said), "writing " + big + " failed: "));
    EXPECT_FALSE(HasText(test_support::ReadBytes(said), "creation"));
    EXPECT_FALSE(std::ifstream(big).good());
    EXPECT_EQ(Synth(dir, {"--flow", "tornado", "a.tif", "b.tif", "t.nc"}).exit, 2);
    EXPECT_EQ(Compare(dir, {p.truth, dir.file("missing.nc")}).exit, 2);
    EXPECT_EQ(Eval(dir, {"--help"}).exit, 0);
}

// The scan correlators chosen on the command line, a shift inside the range
// of 4 px: the direct cross-correlation within 0.05 px RMS (0.028), the
// minimum quadratic difference, pulled towards whole pixels, within 0.25 px
// (0.154).
TEST(KelvaneEval, ScanCorrelationsFromTheCommandLine) {
    ScratchDir dir;
    const Pair p = MakePair(dir, {"--dx", "2.5", "--dy", "-1.5"}, 128);
    for (const auto& c : {std::make_pair("direct", "0.05"), std::make_pair("mqd", "0.25")}) {
        const std::string out = dir.file(std::string(c.first) + ".nc");
        const Outcome e = Eval(dir, {"--correlation", c.first, "--scan-range", "4",
                                     "--no-validation", p.a, p.b, "-o", out});
        ASSERT_EQ(e.exit, 0) << c.first << ": " << e.err;
        const Outcome r = Compare(dir, {out, p.truth, "--margin", "32", "--max-rms", c.second});
        std::printf("[ figures  ] %s: %s", c.first, r.out.c_str());
        EXPECT_EQ(r.exit, 0) << c.first << ": " << r.out << r.err;
    }
}

// A 64 px square of frame B replaced by particles of another flow: the
// windows that lie inside it see nothing that moved with the flow. Without
// validation they keep displacements of up to 20 px as good vectors; with
// the tool's own validation none of them keeps a vector more than 0.75 px
// off the true (3, -2).
TEST(KelvaneEval, ValidationByDefaultCatchesAPatchOfStrangers) {
    EnableWarnings(false);
    ScratchDir dir;
    const Pair p = MakePair(dir, {"--dx", "3", "--dy", "2"}, 256);
    const Pair other = MakePair(dir, {"--dx", "3", "--dy", "2", "--seed", "7"}, 256, "other");
    Image2D b, stranger;
    ASSERT_TRUE(b.load(p.b) && stranger.load(other.b));
    for (int y = 96; y < 160; y++)
        for (int x = 96; x < 160; x++) b.setPixel(x, y, stranger.pixel(x, y));
    const std::string patched = dir.file("patched_b.tif");
    ASSERT_TRUE(b.save(patched.c_str(), PIV::FORMAT_TIFF));
    for (const bool validate : {true, false}) {
        SCOPED_TRACE(validate ? "validated" : "--no-validation");
        // The default method: multi-pass.
        std::vector<std::string> args = {"--window", "32",    "--step", "16",
                                         p.a,        patched, "-o",     dir.file("f.nc")};
        if (!validate) args.insert(args.begin(), "--no-validation");
        const Outcome o = Eval(dir, args);
        ASSERT_EQ(o.exit, 0) << o.err;
        EXPECT_EQ(HasText(o.err, "0 outliers, 0 replaced"), !validate) << o.err;
        PIV_Data2D f;
        ASSERT_TRUE(f.load(dir.file("f.nc").c_str()));
        int inside = 0, wrongButValid = 0;
        for (int k = 0; k < f.nodeCount(); k++) {
            const PIV_VECTOR& v = f.data()[k];
            if (v.ix < 112 || v.ix > 144 || v.iy < 112 || v.iy > 144) continue;  // window inside
            inside++;
            const bool flagged = (v.flag & VECTOR_OUTLIER) || !(v.flag & VECTOR_ENABLED);
            if (!flagged && std::hypot(v.dx - 3.0, v.dy + 2.0) > 0.75) wrongButValid++;
        }
        EXPECT_EQ(inside, 9);
        EXPECT_EQ(wrongButValid, validate ? 0 : 9);
    }
}

// 20 px/mm and 100 us turn a 2 px shift into 2 / 20 mm / 100 us = 1.0 m/s,
// given as switches or by a parameter file; a parameter file without its
// conversion keys leaves --velocity without a calibration.
TEST(KelvaneEval, CalibrationGivesMetresPerSecond) {
    ScratchDir dir;
    const Pair p = MakePair(dir, {"--dx", "2", "--dy", "0"}, 128);
    PIV_Parameters params;
    PIVCONVERT_CFG c = params.pivConvertCfg();
    c.LengthConversion[0] = 20.0;
    c.PulseDelay = 100.0;
    params.setPivConvertCfg(c);
    const std::string par = dir.file("cal.par"), bare = dir.file("bare.par");
    ASSERT_TRUE(params.saveASCII(par.c_str()));
    std::istringstream all(test_support::ReadBytes(par));
    std::string kept;
    for (std::string line; std::getline(all, line);)
        if (line.find("PIV_Conv_") == std::string::npos) kept += line + "\n";
    test_support::WriteBytes(bare, kept);
    const std::string out = dir.file("v.txt");  // x, y in mm, u, v in m/s, the flag
    for (const std::vector<std::string>& how :
         {std::vector<std::string>{"--scale", "20", "--dt", "100"}, {"-p", par}}) {
        std::vector<std::string> args = {"--velocity", p.a, p.b, "-o", out};
        args.insert(args.begin(), how.begin(), how.end());
        const Outcome o = Eval(dir, args);
        ASSERT_EQ(o.exit, 0) << how[0] << ": " << o.err;
        std::ifstream in(out);
        int rows = 0;
        double x, y, u, v;
        for (std::string line; std::getline(in, line); rows++) {
            ASSERT_TRUE(std::istringstream(line) >> x >> y >> u >> v) << line;
            EXPECT_NEAR(u, 1.0, 0.01);
            EXPECT_NEAR(v, 0.0, 0.01);
        }
        EXPECT_EQ(rows, 49);
    }
    const Outcome o = Eval(dir, {"--velocity", "-p", bare, p.a, p.b, "-o", out});
    EXPECT_EQ(o.exit, 2);
    EXPECT_TRUE(HasText(o.err, "given neither by the switches nor by " + bare)) << o.err;
}

// A file that holds both frames, given alone, is its own pair: a two-frame
// IM7 and a two-page TIFF (joined by libtiff's tiffcp) give the field of the
// same frames given as two files, bit for bit; --frames 2,1 turns it round.
TEST(KelvaneEval, AFileOfTwoFramesIsItsOwnPair) {
    EnableWarnings(false);
    ScratchDir dir;
    const Pair p = MakePair(dir, {"--dx", "2.3", "--dy", "-1.2", "--bits", "16"}, 128);
    Image2D frames[2];
    ASSERT_TRUE(frames[0].load(p.a) && frames[1].load(p.b));
    std::string words(2 * 2 * 128 * 128, '\0');
    size_t at = 0;
    for (const Image2D& f : frames)
        for (int y = 0; y < 128; y++)
            for (int x = 0; x < 128; x++, at += 2)
                image_test::Put16(words, at, unsigned(f.pixel(x, y)));
    std::string im7 = image_test::Im7(0, words, 128, 128);
    image_test::Put32(im7, 20, 2);  // frames
    test_support::WriteBytes(dir.file("two.im7"), im7);
    const std::string tiff = dir.file("two.tif");
    ASSERT_EQ(std::system(("tiffcp '" + p.a + "' '" + p.b + "' '" + tiff + "'").c_str()), 0);
    const auto field = [&](std::vector<std::string> args) {
        args.insert(args.end(), {"-o", dir.file("f.nc")});
        const Outcome o = Eval(dir, args);
        EXPECT_EQ(o.exit, 0) << o.err;
        PIV_Data2D f;
        EXPECT_TRUE(f.load(dir.file("f.nc").c_str()));
        std::vector<std::pair<float, float>> d;
        for (int k = 0; k < f.nodeCount(); k++) d.emplace_back(f.data()[k].dx, f.data()[k].dy);
        return d;
    };
    const auto reference = field({p.a, p.b});
    ASSERT_EQ(reference.size(), 49u);
    EXPECT_EQ(field({dir.file("two.im7")}), reference);
    EXPECT_EQ(field({tiff}), reference);
    const auto reversed = field({"--frames", "2,1", tiff});
    ASSERT_EQ(reversed.size(), reference.size());
    for (size_t k = 0; k < reversed.size(); k++) EXPECT_NEAR(reversed[k].first, -2.3, 0.1);
}

// The CF file as a Python user opens it: cf_check.py reads it and the native
// file with netCDF4 (and xarray where it is there) and holds u, v and corr
// node by node against the native variables, NaN exactly where the native
// flags hold no valid vector (a mask covers the left third), the axes
// growing upwards in pixels or mm. At 20 px/mm and 100 us a pixel of
// displacement is 0.05 mm in 1e-4 s: 0.5 m/s.
TEST(KelvaneEval, CfFileHoldsTheNativeField) {
    ASSERT_EQ(std::system("/usr/bin/python3 -c 'import netCDF4' 2>/dev/null"), 0)
        << "/usr/bin/python3 cannot import netCDF4: scripts/install-deps installs python3-netcdf4";
    EnableWarnings(false);
    ScratchDir dir;
    const Pair p = MakePair(dir, {"--dx", "2.5", "--dy", "-1.25"}, 128);
    Image2D mask(128, 128, IMAGE_UINT8);
    mask.fill(0.0f);
    for (int y = 0; y < 128; y++)
        for (int x = 0; x < 40; x++) mask.setPixel(x, y, 255.0f);
    ASSERT_TRUE(mask.save(dir.file("mask.tif").c_str()));
    const std::string native = dir.file("native.nc"), cf = dir.file("cf.nc");
    for (const bool calibrated : {false, true}) {
        SCOPED_TRACE(calibrated ? "calibrated" : "pixels");
        std::vector<std::string> args = {"--method", "single", "--mask", dir.file("mask.tif"),
                                         p.a,        p.b,      "-o",     native,
                                         "--cf",     cf};
        if (calibrated) args.insert(args.begin(), {"--scale", "20", "--dt", "100"});
        const Outcome e = Eval(dir, args);
        ASSERT_EQ(e.exit, 0) << e.err;
        std::vector<std::string> check = {KELVANE_CF_CHECK, native, cf};
        if (calibrated) check.push_back("0.5");
        const Outcome o = ::Run("/usr/bin/python3", check, dir);
        EXPECT_EQ(o.exit, 0) << o.out << o.err;
    }
    // An empty field: false with a reason naming the file, and no file.
    std::string error;
    EXPECT_FALSE(eval_tool::WriteCF(PIV_Data2D(), {}, dir.file("empty.nc"), error));
    EXPECT_TRUE(HasText(error, "cannot write " + dir.file("empty.nc") + ": the field is empty"));
    EXPECT_FALSE(std::ifstream(dir.file("empty.nc")).good());
}
