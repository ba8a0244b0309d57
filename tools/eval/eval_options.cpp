#include "eval_options.h"

#include <cstdio>

#include "image_types.h"
#include "piv_enums.h"
#include "piv_params.h"
#include "piv_util.h"
#include "tool_args.h"

namespace eval_tool {

const char* kUsageText =
    "usage: kelvane-eval [options] FIRST [SECOND]\n"
    "       kelvane-eval [options] --series FIRST LAST --output-dir DIR\n"
    "Evaluates an image pair (SECOND found by the naming rules when left out) or\n"
    "a numbered series, validates and post-processes each field as the program\n"
    "does, and writes the results.\n"
    "\n"
    "Settings (a parameter file first, then the overrides):\n"
    "  -p, --par FILE        a .par parameter file or a NetCDF data file\n"
    "  --window N            interrogation window, N x N px\n"
    "  --step N              grid step in px\n"
    "  --method single|multipass|multigrid\n"
    "  --passes N            passes of the multi-pass method\n"
    "  --deform, --no-deform quintic B-spline image deformation on every pass, or none\n"
    "  --fit N               peak fit (0 3-point Gaussian, 1 3x3 Gaussian, 2 parabolic,\n"
    "                        3 centroid, 4 Whittaker, 5 2-D Gaussian)\n"
    "  --mask FILE           mask image (non-zero pixels are masked)\n"
    "  --threads N           worker threads (all by default)\n"
    "Output:\n"
    "  -o FILE               one pair: .nc (NetCDF), .dat (Tecplot text), .plt\n"
    "                        (Tecplot binary) or .txt (PIV Challenge table)\n"
    "  --velocity            write velocities instead of pixel displacements\n"
    "Series:\n"
    "  --series FIRST LAST   the numbered files from FIRST to LAST\n"
    "  --increment K         every K-th file (1)\n"
    "  --separation S        the second frame is S numbers on (1); a/b names pair up\n"
    "  --output-dir DIR      where the results go (required)\n"
    "  --format LIST         any of nc,dat,plt (nc): <base>.nc, <base>_piv.dat, ...\n"
    "  --stub NAME           name of the statistics files (series)\n"
    "  --stats               also <stub>_avg.nc and <stub>_rms.nc\n"
    "  --quiet, --verbose, --help, --version\n"
    "Exit status: 0 success, 1 an evaluation failed, 2 bad usage or unreadable input.\n";

namespace {

bool Number(tool::Args& args, const std::string& option, long low, long high, int* out,
            std::string& error) {
    const char* v = args.value(option.c_str(), &error);
    if (!v) return false;
    if (!tool::ParseInt(v, low, high, out)) {
        error = "bad value for " + option + ": " + v;
        return false;
    }
    return true;
}

bool Text(tool::Args& args, const std::string& option, std::string* out, std::string& error) {
    const char* v = args.value(option.c_str(), &error);
    if (!v) return false;
    *out = v;
    return true;
}

}  // namespace

int ParseOptions(int argc, char** argv, Options& o, std::string& error) {
    tool::Args args(argc, argv);
    std::vector<std::string> files;
    while (args.more()) {
        const std::string a = args.next();
        bool ok = true;
        if (a == "--help" || a == "-h") {
            std::fputs(kUsageText, stdout);
            return -1;
        } else if (a == "--version") {
            std::printf("kelvane-eval\n%s\n", PIV::LibraryVersionLine());
            return -1;
        } else if (a == "-p" || a == "--par") {
            ok = Text(args, a, &o.parFile, error);
        } else if (a == "--window") {
            ok = Number(args, a, 4, 1024, &o.window, error);
        } else if (a == "--step") {
            ok = Number(args, a, 1, 1024, &o.step, error);
        } else if (a == "--method") {
            std::string m;
            ok = Text(args, a, &m, error);
            if (ok) {
                if (m == "single")
                    o.method = PIV::METHOD_SINGLE_PASS;
                else if (m == "multipass")
                    o.method = PIV::METHOD_MULTI_PASS;
                else if (m == "multigrid")
                    o.method = PIV::METHOD_MULTI_GRID;
                else
                    ok = false, error = "unknown method " + m;
            }
        } else if (a == "--passes") {
            ok = Number(args, a, 1, 20, &o.passes, error);
        } else if (a == "--deform") {
            o.deform = 1;
        } else if (a == "--no-deform") {
            o.deform = 0;
        } else if (a == "--fit") {
            ok = Number(args, a, 0, 5, &o.fit, error);
        } else if (a == "--mask") {
            ok = Text(args, a, &o.mask, error);
        } else if (a == "--threads") {
            ok = Number(args, a, 1, 1024, &o.threads, error);
        } else if (a == "-o" || a == "--output") {
            ok = Text(args, a, &o.output, error);
        } else if (a == "--velocity") {
            o.velocity = true;
        } else if (a == "--series") {
            o.series = true;
            ok = Text(args, a, &o.first, error) && Text(args, a, &o.last, error);
        } else if (a == "--increment") {
            ok = Number(args, a, 1, 1000000, &o.increment, error);
        } else if (a == "--separation") {
            ok = Number(args, a, 1, 1000000, &o.separation, error);
        } else if (a == "--output-dir") {
            ok = Text(args, a, &o.outputDir, error);
        } else if (a == "--stub") {
            ok = Text(args, a, &o.stub, error);
        } else if (a == "--format") {
            std::string list;
            ok = Text(args, a, &list, error);
            o.formats.clear();
            size_t start = 0;
            while (ok && start <= list.size()) {
                const size_t comma = list.find(',', start);
                const std::string f = list.substr(start, comma == std::string::npos
                                                             ? std::string::npos
                                                             : comma - start);
                if (f == "nc" || f == "dat" || f == "plt")
                    o.formats.push_back("." + f);
                else
                    ok = false, error = "unknown format " + f + " (nc, dat, plt)";
                if (comma == std::string::npos) break;
                start = comma + 1;
            }
        } else if (a == "--stats") {
            o.stats = true;
        } else if (a == "--quiet" || a == "-q") {
            o.quiet = true;
        } else if (a == "--verbose" || a == "-v") {
            o.verbose = true;
        } else if (!a.empty() && a[0] == '-') {
            ok = false, error = "unknown option " + a;
        } else {
            files.push_back(a);
        }
        if (!ok) return tool::kUsage;
    }
    if (o.series) {
        if (!files.empty()) return error = "a series takes no further file names", tool::kUsage;
        if (o.outputDir.empty()) return error = "a series needs --output-dir", tool::kUsage;
        if (!o.output.empty()) return error = "-o is for one pair; a series uses --output-dir", tool::kUsage;
        if (o.stub.empty() || o.stub.find('/') != std::string::npos)
            return error = "--stub takes a plain file name", tool::kUsage;
        return tool::kOk;
    }
    if (files.empty() || files.size() > 2) return error = "expected FIRST [SECOND]", tool::kUsage;
    o.first = files[0];
    if (files.size() == 2) o.second = files[1];
    if (o.output.empty()) return error = "-o FILE is needed for one pair", tool::kUsage;
    const std::string ext = tool::Extension(o.output);
    if (ext != ".nc" && ext != ".dat" && ext != ".plt" && ext != ".txt")
        return error = "-o " + o.output + ": the extension must be .nc, .dat, .plt or .txt",
               tool::kUsage;
    return tool::kOk;
}

bool ApplyParameters(const Options& o, PIV_Parameters& params, std::string& error) {
    if (!o.parFile.empty() && !params.read(o.parFile.c_str())) {
        error = "cannot read parameter file " + o.parFile + ": " + params.error().getLastError();
        return false;
    }
    PIVEVAL_CFG cfg = params.pivEvalCfg();
    if (o.window > 0) cfg.SampleSize = cfg.FFTSize = SIZE3D{o.window, o.window, 1};
    if (o.step > 0) cfg.grid.step = SIZE3D{o.step, o.step, 1};
    if (o.method >= 0) cfg.Method = o.method;
    if (o.passes > 0) cfg.Passes = o.passes;
    // The quintic, not the library's cubic: frames read 0.35 and 0.65 px apart
    // shift by 0.02 px with the cubic and by 0.005 px with the quintic, which
    // costs three times the cubic; higher orders gain under 0.0015 px more.
    if (o.deform == 1) {
        cfg.ImageMapping2D.Mode = PIV::DEFORM_ALL_PASSES;
        cfg.ImageMapping2D.Method = PIV::INTERPOLATE_BSPLINE;
        cfg.ImageMapping2D.Order = 5;
    }
    if (o.deform == 0) cfg.ImageMapping2D.Mode = PIV::DEFORM_DISABLED;
    if (o.fit >= 0) cfg.Type = o.fit;
    params.setPivEvalCfg(cfg, false);
    return true;
}

}  // namespace eval_tool
