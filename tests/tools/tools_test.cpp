// The command-line tools as a user runs them: separate processes on pairs
// that kelvane-synth renders, results read back from the files.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "eval_options.h"
#include "eval_run.h"
#include "image_format.h"
#include "message_capture.h"
#include "piv_data2d.h"
#include "piv_fft_plans.h"
#include "piv_messages.h"
#include "piv_params.h"
#include "scratch_files.h"
#include "tecplot_reader.h"

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

// The same evaluation in this process, through the tool's own evaluator.
PIV_Data2D* InMemory(const std::vector<std::string>& argv, std::string* error) {
    std::vector<char*> raw;
    static std::vector<std::string> keep;
    keep = argv;
    keep.insert(keep.begin(), "kelvane-eval");
    for (std::string& a : keep) raw.push_back(&a[0]);
    static eval_tool::Options o;
    o = eval_tool::Options();
    if (eval_tool::ParseOptions(int(raw.size()), raw.data(), o, *error) != 0) return nullptr;
    static PIV_Parameters params;
    params.setPivParameters(PIV_PARAMETERS());
    params.setPostProcessCfg(POSTPROCESS_CFG());
    params.setImageCfg(IMAGE_CFG());
    if (!eval_tool::ApplyParameters(o, params, *error)) return nullptr;
    PIV::SetMeasuredFFTPlans(false);
    static std::unique_ptr<eval_tool::Evaluator> evaluator;
    evaluator.reset(new eval_tool::Evaluator(o, params));
    if (!evaluator->prepare(*error)) return nullptr;
    const eval_tool::PairResult r = evaluator->evaluate(o.first, o.second);
    if (r.exit != 0) return *error = r.message, nullptr;
    return &evaluator->result();
}

// Displacements (dx, dy) by node position (column, row counted up from the
// bottom) as a result file holds them.
using ByNode = std::map<std::pair<long, long>, std::pair<double, double>>;

// A text export: the columns named in its VARIABLES line, or for the
// challenge table (.txt) x, y, dx, dy without names.
ByNode ReadText(const std::string& path) {
    const bool challenge = path.substr(path.size() - 4) == ".txt";
    std::vector<std::string> names;
    ByNode nodes;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("VARIABLES", 0) == 0)
            for (size_t q = line.find('"'); q != std::string::npos; q = line.find('"', q + 1)) {
                const size_t e = line.find('"', q + 1);
                names.push_back(line.substr(q + 1, e - q - 1));
                q = e;
            }
        std::istringstream s(line);
        std::vector<double> v;
        for (double x; s >> x;) v.push_back(x);
        if (v.size() < 4) continue;  // comments, title, zone and names
        const auto column = [&](const char* name, size_t fixed) {
            if (challenge) return fixed;
            return size_t(std::find(names.begin(), names.end(), name) - names.begin());
        };
        nodes[{std::lround(v[0]), std::lround(v[1])}] = {v.at(column("dx", 2)),
                                                         v.at(column("dy", 3))};
    }
    return nodes;
}

ByNode ReadResult(const std::string& path, int height) {
    ByNode nodes;
    if (path.substr(path.size() - 3) == ".nc") {
        PIV_Data2D back;
        EXPECT_TRUE(back.load(path.c_str()));
        for (int k = 0; k < back.nodeCount(); k++) {
            const PIV_VECTOR& v = back.data()[k];
            nodes[{v.ix, height - v.iy}] = {v.dx, v.dy};
        }
    } else if (path.substr(path.size() - 4) == ".plt") {
        EXPECT_EQ(PIV::GetFileFormat(path.c_str()), PIV::FORMAT_TECPLOT);
        const tecplot_reader::TecplotFile f = tecplot_reader::ReadTecplot(path);
        const tecplot_reader::Zone& z = f.zones.at(0);
        const std::vector<double>&px = z.values.at(f.names.at(0)), &py = z.values.at(f.names.at(1));
        const std::vector<double>&dx = z.values.at("dx"), &dy = z.values.at("dy");
        for (size_t n = 0; n < dx.size(); n++)
            nodes[{std::lround(px[n]), std::lround(py[n])}] = {dx[n], dy[n]};
    } else {
        nodes = ReadText(path);
    }
    return nodes;
}

// Equal to what "%g" keeps of the value: six significant digits.
bool AsPrinted(double file, double memory) {
    return std::fabs(file - memory) <= 1e-5 * std::max(1.0, std::fabs(memory));
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

// Every node of every format, border nodes with their shrunk windows
// included, carries the field the evaluation made in memory with two
// threads; the NetCDF file is made with one.
TEST(KelvaneEval, EachFormatHoldsTheEvaluatedField) {
    EnableWarnings(false);
    ScratchDir dir;
    const Pair p = MakePair(dir, {"--flow", "vortex", "--peak", "5", "--core", "60"});
    const std::vector<std::string> settings = {"--method", "multigrid", "--deform", "--window",
                                               "32",       "--step",    "16"};
    std::string error;
    std::vector<std::string> memArgs = settings;
    memArgs.insert(memArgs.end(), {"--threads", "2", p.a, p.b, "-o", dir.file("unused.nc")});
    const PIV_Data2D* memory = InMemory(memArgs, &error);
    ASSERT_NE(memory, nullptr) << error;
    const int height = memory->grid().imageSize.height;
    for (const std::string ext : {".nc", ".dat", ".txt", ".plt"}) {
        SCOPED_TRACE(ext);
        const std::string out = dir.file("result" + ext);
        std::vector<std::string> args = settings;
        args.insert(args.end(), {"--threads", ext == ".nc" ? "1" : "2", p.a, p.b, "-o", out});
        const Outcome o = Eval(dir, args);
        ASSERT_EQ(o.exit, 0) << o.err;
        const ByNode file = ReadResult(out, height);
        ASSERT_EQ(int(file.size()), memory->nodeCount());
        const bool text = ext == ".dat" || ext == ".txt";
        for (int k = 0; k < memory->nodeCount(); k++) {
            const PIV_VECTOR& v = memory->data()[k];
            const auto at = file.find({v.ix, height - v.iy});
            ASSERT_NE(at, file.end()) << "node " << v.ix << "," << v.iy;
            const auto [dx, dy] = at->second;
            EXPECT_TRUE(text ? AsPrinted(dx, v.dx) : float(dx) == v.dx) << dx << " vs " << v.dx;
            EXPECT_TRUE(text ? AsPrinted(dy, v.dy) : float(dy) == v.dy) << dy << " vs " << v.dy;
        }
    }
}

// A parameter file that asks for the median filter and smoothing: the
// written field is the one after that chain, not the raw one.
TEST(KelvaneEval, ParameterFileDrivesThePostProcessing) {
    EnableWarnings(false);
    ScratchDir dir;
    const Pair p = MakePair(dir, {"--flow", "sine", "--amplitude", "3", "--wavelength", "64"});
    PIV_Parameters params;
    POSTPROCESS_CFG post;
    post.MedianApply = true;
    post.MedianSize = 3;
    post.SmoothApply = true;
    post.SmoothKernel = 1.5f;
    params.setPostProcessCfg(post);
    PIVEVAL_CFG cfg = params.pivEvalCfg();
    cfg.Method = 0;
    params.setPivEvalCfg(cfg, false);
    const std::string par = dir.file("filtered.par");
    ASSERT_TRUE(params.saveASCII(par.c_str()));
    const Outcome plain = Eval(dir, {"--method", "single", p.a, p.b, "-o", dir.file("plain.nc")});
    const Outcome filtered = Eval(dir, {"-p", par, p.a, p.b, "-o", dir.file("filtered.nc")});
    ASSERT_EQ(plain.exit, 0) << plain.err;
    ASSERT_EQ(filtered.exit, 0) << filtered.err;
    PIV_Data2D a, b;
    ASSERT_TRUE(a.load(dir.file("plain.nc").c_str()));
    ASSERT_TRUE(b.load(dir.file("filtered.nc").c_str()));
    // The same raw field, filtered in memory by the library, is the file.
    ASSERT_EQ(a.nodeCount(), b.nodeCount());
    PIV_Data2D expected;
    expected = a;
    expected.setFlagMedianFiltered(false);
    expected.setFlagSmoothed(false);
    ASSERT_TRUE(expected.medianFilter(3));
    ASSERT_TRUE(expected.smoothGauss(1.5, 0.05f));
    int differ = 0;
    for (int k = 0; k < a.nodeCount(); k++) {
        EXPECT_NEAR(b.data()[k].dx, expected.data()[k].dx, 1e-5) << k;
        differ += a.data()[k].dx != b.data()[k].dx;
    }
    EXPECT_GT(differ, a.nodeCount() / 2);
}

// Multi-grid with deformation down to 32 px windows (step 16) on 512 x 512
// pairs, RMS error of both components at the nodes 32 px or more inside:
// the quintic B-spline gives 0.0054, 0.0149 and 0.0081 px, the cubic 0.0207,
// 0.0189 and 0.0156. Most of the sine's error lies in the node rows next to
// the top and bottom edges (0.0097 px without them).
TEST(KelvaneEval, MultiGridWithDeformationAccuracy) {
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"--flow", "uniform", "--dx", "7.3", "--dy", "-5.6"}, "0.012"},
        {{"--flow", "sine", "--amplitude", "2", "--wavelength", "256"}, "0.02"},
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

TEST(KelvaneEval, BadUsageAndUnreadableInput) {
    ScratchDir dir;
    const Pair p = MakePair(dir, {"--dx", "1"}, 64);
    struct Case {
        std::vector<std::string> args;
        const char* said;
    } cases[] = {
        {{"--frobnicate", p.a}, "unknown option --frobnicate"},
        {{"--window", "abc", p.a, p.b, "-o", dir.file("x.nc")}, "bad value for --window"},
        {{p.a, p.b, "-o", dir.file("x.png")}, "extension"},
        {{p.a, p.b}, "-o FILE"},
        {{dir.file("missing_a.tif"), p.b, "-o", dir.file("x.nc")}, "missing_a.tif"},
        {{"-p", dir.file("nothing.par"), p.a, p.b, "-o", dir.file("x.nc")}, "nothing.par"},
        {{"--mask", dir.file("nomask.tif"), p.a, p.b, "-o", dir.file("x.nc")}, "nomask.tif"},
        {{"--series", p.a}, "needs a value"},
    };
    for (const Case& c : cases) {
        const Outcome o = Eval(dir, c.args);
        EXPECT_EQ(o.exit, 2) << c.said << ": " << o.err;
        EXPECT_TRUE(HasText(o.err, c.said));
    }
    EXPECT_EQ(Synth(dir, {"--flow", "tornado", "a.tif", "b.tif", "t.nc"}).exit, 2);
    EXPECT_EQ(Compare(dir, {p.truth, dir.file("missing.nc")}).exit, 2);
    EXPECT_EQ(Eval(dir, {"--help"}).exit, 0);
}
