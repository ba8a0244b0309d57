#include "eval_options.h"

#include <algorithm>
#include <cstdio>
#include <type_traits>

#include "image_format.h"
#include "image_types.h"
#include "piv_enums.h"
#include "piv_opencl.h"
#include "piv_params.h"
#include "piv_util.h"
#include "tool_args.h"

namespace eval_tool {

const char* kUsageText =
    "usage: kelvane-eval [options] FIRST [SECOND] -o RESULT\n"
    "       kelvane-eval [options] --series FIRST LAST --output-dir DIR\n"
    "       kelvane-eval --merge-stats --output-dir DIR [--stub NAME]\n"
    "Evaluates an image pair or a numbered series, validates each field, replaces\n"
    "its outliers and writes the results. SECOND, when left out, is the second\n"
    "frame of FIRST (a two-frame LaVision file, a two-page TIFF, a PCO double\n"
    "image) or the file its name pairs with (run0001a.tif -> run0001b.tif).\n"
    "\n"
    "Settings (tool defaults, then a parameter file as it stands, then switches):\n"
    "  -p, --par FILE        a .par parameter file or a NetCDF data file\n"
    "  --window N            interrogation window, N x N px\n"
    "  --step N              grid step in px\n"
    "  --method single|multipass|multigrid\n"
    "  --passes N            passes of the multi-pass method\n"
    "  --deform, --no-deform image deformation on every pass (quintic B-spline, two\n"
    "                        scans at the final window of the multi-grid), or none\n"
    "  --fit N               peak fit (0 3-point Gaussian, 1 3x3 Gaussian, 2 parabolic,\n"
    "                        3 centroid, 4 Whittaker, 5 2-D Gaussian)\n"
    "  --correlation fft|phase|mqd|direct|error\n"
    "                        FFT cross-correlation, its phase-only form, or a scan\n"
    "                        of every shift: minimum quadratic difference, direct\n"
    "                        cross-correlation, error correlation function\n"
    "  --scan-range N        the shifts a scan tries, -N..N px on both axes\n"
    "  --mask FILE           mask image (non-zero pixels are masked)\n"
    "  --frames I,J          frames (pages) I and J of multi-frame files, from 1\n"
    "  --threads N           worker threads (all by default)\n"
    "  --device D            where windows are correlated: cpu (the default),\n"
    "                        opencl (the first OpenCL device) or opencl:N\n"
    "  --list-devices        print the devices and exit\n"
    "Validation (default: normalized median 2.0, noise floor 0.1 px, other peaks\n"
    "tried, outliers replaced by their neighbours):\n"
    "  --no-validation       none at all\n"
    "  --median T            normalized median threshold\n"
    "  --noise-floor E       its noise floor in px\n"
    "  --min-snr S           reject peaks of a signal-to-noise ratio below S\n"
    "  --min-peak-ratio R    reject peaks less than R times the second peak\n"
    "  --max-displacement D  reject displacements above D px\n"
    "  --validation-passes N passes of the validation\n"
    "  --no-replace          flag outliers but keep no value for them\n"
    "Calibration (needed by --velocity):\n"
    "  --scale PX_PER_MM     magnification\n"
    "  --dt MICROSECONDS     time between the two frames\n"
    "  --origin X,Y          pixel column and row (from the top) of the physical\n"
    "                        origin (default: the lower left corner; y points up)\n"
    "Output:\n"
    "  -o FILE               one pair: .nc (NetCDF), .dat (Tecplot text), .plt\n"
    "                        (Tecplot binary) or .txt (PIV Challenge table)\n"
    "  --cf FILE.nc          one pair: also a CF-1.8 NetCDF file (Python, xarray)\n"
    "  --velocity            write velocities (m/s) instead of pixel displacements\n"
    "  --ptv FILE            one pair: track single particles under the result and\n"
    "                        write a table (x y dx dy guide_dx guide_dy distance\n"
    "                        partner valid)\n"
    "Series:\n"
    "  --series FIRST LAST   the numbered files from FIRST to LAST\n"
    "  --increment K         every K-th file (1)\n"
    "  --separation S        the second frame is S numbers on (1); a/b names pair up\n"
    "  --output-dir DIR      where the results go (required)\n"
    "  --format LIST         any of nc,dat,plt,cf (nc): <base>.nc, <base>_piv.dat,\n"
    "                        <base>_piv.plt, <base>_cf.nc\n"
    "  --stub NAME           name of the statistics files (series)\n"
    "  --stats               also <stub>_avg.nc and <stub>_rms.nc\n"
    "Ensemble correlation (a series, one field from the summed planes of all pairs):\n"
    "  --ensemble            writes <stub>_avg.nc and <stub>_corr.nc (the planes)\n"
    "  --ensemble-mode N     0 one pass, 1 equal passes, 2 a pyramid of windows (0)\n"
    "  --ensemble-passes N   passes of mode 1 (2)\n"
    "  --stride N            early passes take every N-th pair (10), with\n"
    "  --vary-stride         (halved per pass; the last pass takes all)\n"
    "  --save-planes         also <stub>_corr.tif and the early passes' files\n"
    "Shards (one series on many machines, one block each):\n"
    "  --shard K/N           block K (from 0) of N contiguous blocks of the series;\n"
    "                        pairs whose results are all there are skipped, and\n"
    "                        --stats writes <stub>_shard<K>of<N>.nc instead\n"
    "  --merge-stats         merges the partials <stub>_shard*of*.nc of --output-dir\n"
    "                        into <stub>_avg.nc and <stub>_rms.nc\n"
    "  --quiet, --verbose, --help, --version\n"
    "Images: TIFF (8 or 16 bit, multi-page), BMP, PGM (P5), PCO (.b16), LaVision\n"
    "(.im7, .imx, .img).\n"
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

template <class T>
bool Optional(tool::Args& args, const std::string& option, double low, double high,
              std::optional<T>* out, std::string& error) {
    const char* v = args.value(option.c_str(), &error);
    if (!v) return false;
    double d = 0.0;
    int i = 0;
    const bool integral = std::is_integral<T>::value;
    if (integral ? !tool::ParseInt(v, long(low), long(high), &i)
                 : !tool::ParseDouble(v, low, high, &d)) {
        error = "bad value for " + option + ": " + v;
        return false;
    }
    *out = integral ? T(i) : T(d);
    return true;
}

bool Text(tool::Args& args, const std::string& option, std::string* out, std::string& error) {
    const char* v = args.value(option.c_str(), &error);
    if (!v) return false;
    *out = v;
    return true;
}

// "A,B" into two integers within [low, high].
bool IntPair(tool::Args& args, const std::string& option, long low, long high, int* a, int* b,
             std::string& error) {
    std::string v;
    if (!Text(args, option, &v, error)) return false;
    const size_t comma = v.find(',');
    if (comma == std::string::npos || !tool::ParseInt(v.substr(0, comma).c_str(), low, high, a) ||
        !tool::ParseInt(v.substr(comma + 1).c_str(), low, high, b)) {
        error = "bad value for " + option + ": " + v + " (two numbers, as in " + option + " " +
                std::to_string(low) + "," + std::to_string(low + 1) + ")";
        return false;
    }
    return true;
}

bool Formats(const std::string& list, std::vector<std::string>& formats, std::string& error) {
    formats.clear();
    for (size_t start = 0; start <= list.size();) {
        const size_t comma = list.find(',', start);
        const std::string f =
            list.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        if (f != "nc" && f != "dat" && f != "plt" && f != "cf") {
            error = "unknown format \"" + f + "\": the formats are nc, dat, plt and cf";
            return false;
        }
        formats.push_back(f);
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    return true;
}

// "K/N" with N from 1 and K from 0 to N-1.
bool Shard(tool::Args& args, const std::string& option, Options& o, std::string& error) {
    std::string v;
    if (!Text(args, option, &v, error)) return false;
    const size_t slash = v.find('/');
    int k = -1, n = 0;
    if (slash == std::string::npos ||
        !tool::ParseInt(v.substr(slash + 1).c_str(), 1, 1000000, &n) ||
        !tool::ParseInt(v.substr(0, slash).c_str(), 0, n - 1, &k)) {
        error = "bad value for " + option + ": " + v + " (K/N: block K, from 0 to N-1, of N)";
        return false;
    }
    o.shardIndex = k;
    o.shardCount = n;
    return true;
}

int CheckShardOptions(const Options& o, const std::vector<std::string>& files, std::string& error) {
    if (o.shardCount > 0 && !o.series)
        return error = "--shard K/N divides a series: it needs --series FIRST LAST", tool::kUsage;
    if (o.shardCount > 0 && o.stats &&
        std::find(o.formats.begin(), o.formats.end(), "nc") == o.formats.end())
        return error =
                   "--shard with --stats needs nc among --format: a resumed shard reads the "
                   "fields it finished back from their .nc files",
               tool::kUsage;
    if (!o.mergeStats) return tool::kOk;
    if (o.series || !files.empty())
        return error = "--merge-stats takes no images: it reads the partials in --output-dir",
               tool::kUsage;
    if (o.outputDir.empty())
        return error = "--merge-stats needs --output-dir DIR, where the partials are", tool::kUsage;
    if (o.stub.empty() || o.stub.find('/') != std::string::npos)
        return error = "--stub takes a plain file name", tool::kUsage;
    return tool::kOk;
}

std::string Quoted(int argc, char** argv) {
    std::string line;
    for (int i = 0; i < argc; i++) {
        const std::string a = argv[i];
        const bool plain = a.find_first_of(" \t'\"\\$`") == std::string::npos && !a.empty();
        line += (i ? " " : "") + (plain ? a : "'" + a + "'");
    }
    return line;
}

}  // namespace

int ParseOptions(int argc, char** argv, Options& o, std::string& error) {
    tool::Args args(argc, argv);
    o.commandLine = Quoted(argc, argv);
    std::vector<std::string> files;
    std::string ensembleOnly;  // the last option that means an ensemble
    ValidationSwitches& v = o.validation;
    CalibrationSwitches& c = o.calibration;
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
                    ok = false, error = "unknown method " + m + ": single, multipass or multigrid";
            }
        } else if (a == "--passes") {
            ok = Number(args, a, 1, 20, &o.passes, error);
        } else if (a == "--deform") {
            o.deform = 1;
        } else if (a == "--no-deform") {
            o.deform = 0;
        } else if (a == "--fit") {
            ok = Number(args, a, 0, 5, &o.fit, error);
        } else if (a == "--correlation") {
            static const char* const kModes[] = {"fft", "phase", "mqd", "direct", "error"};
            std::string m;
            ok = Text(args, a, &m, error);
            for (int k = 0; ok && k < 5 && o.correlation < 0; k++)
                if (m == kModes[k]) o.correlation = k;
            if (ok && o.correlation < 0)
                ok = false,
                error = "unknown correlation " + m + ": fft, phase, mqd, direct or error";
        } else if (a == "--scan-range") {
            ok = Number(args, a, 0, 256, &o.scanRange, error);
        } else if (a == "--mask") {
            ok = Text(args, a, &o.mask, error);
        } else if (a == "--frames") {
            ok = IntPair(args, a, 1, 100000, &o.frameA, &o.frameB, error);
        } else if (a == "--list-devices") {
            std::puts("cpu");
            for (const std::string& line : PIV::ListDevices()) std::puts(line.c_str());
            return -1;
        } else if (a == "--device") {
            ok = Text(args, a, &o.device, error);
        } else if (a == "--threads") {
            ok = Number(args, a, 1, 1024, &o.threads, error);
        } else if (a == "--no-validation") {
            v.off = true;
        } else if (a == "--median") {
            ok = Optional(args, a, 0.01, 1000.0, &v.median, error);
        } else if (a == "--noise-floor") {
            ok = Optional(args, a, 0.0, 100.0, &v.noiseFloor, error);
        } else if (a == "--min-snr") {
            ok = Optional(args, a, 0.0, 1e6, &v.minSnr, error);
        } else if (a == "--min-peak-ratio") {
            ok = Optional(args, a, 0.0, 1e6, &v.minPeakRatio, error);
        } else if (a == "--max-displacement") {
            ok = Optional(args, a, 0.001, 1e5, &v.maxDisplacement, error);
        } else if (a == "--validation-passes") {
            ok = Optional(args, a, 1, 100, &v.passes, error);
        } else if (a == "--no-replace") {
            v.noReplace = true;
        } else if (a == "--scale") {
            ok = Optional(args, a, 1e-9, 1e9, &c.scale, error);
        } else if (a == "--dt") {
            ok = Optional(args, a, 1e-9, 1e12, &c.dt, error);
        } else if (a == "--origin") {
            int x = 0, y = 0;
            ok = IntPair(args, a, -1000000, 1000000, &x, &y, error);
            c.originX = x, c.originY = y;
        } else if (a == "-o" || a == "--output") {
            ok = Text(args, a, &o.output, error);
        } else if (a == "--cf") {
            ok = Text(args, a, &o.cf, error);
        } else if (a == "--ptv") {
            ok = Text(args, a, &o.ptv, error);
        } else if (a == "--velocity") {
            o.velocity = true;
        } else if (a == "--series") {
            o.series = true;
            ok = Text(args, a, &o.first, error) && Text(args, a, &o.last, error);
        } else if (a == "--increment") {
            ok = Number(args, a, 1, 1000000, &o.increment, error);
        } else if (a == "--separation") {
            ok = Number(args, a, 1, 1000000, &o.separation, error);
            o.separationGiven = true;
        } else if (a == "--output-dir") {
            ok = Text(args, a, &o.outputDir, error);
        } else if (a == "--stub") {
            ok = Text(args, a, &o.stub, error);
        } else if (a == "--format") {
            std::string list;
            ok = Text(args, a, &list, error) && Formats(list, o.formats, error);
        } else if (a == "--stats") {
            o.stats = true;
        } else if (a == "--ensemble") {
            o.ensemble = true;
        } else if (a == "--ensemble-mode") {
            ok = Number(args, a, 0, 2, &o.ensembleMode, error);
            ensembleOnly = a;
        } else if (a == "--ensemble-passes") {
            ok = Number(args, a, 1, 20, &o.ensemblePasses, error);
            ensembleOnly = a;
        } else if (a == "--stride") {
            ok = Number(args, a, 1, 1000000, &o.stride, error);
            ensembleOnly = a;
        } else if (a == "--vary-stride") {
            o.varyStride = true;
            ensembleOnly = a;
        } else if (a == "--save-planes") {
            o.savePlanes = true;
            ensembleOnly = a;
        } else if (a == "--shard") {
            ok = Shard(args, a, o, error);
        } else if (a == "--merge-stats") {
            o.mergeStats = true;
        } else if (a == "--quiet" || a == "-q") {
            o.quiet = true;
        } else if (a == "--verbose" || a == "-v") {
            o.verbose = true;
        } else if (a.size() > 1 && a[0] == '-') {
            ok = false, error = "unknown option " + a;
        } else {
            files.push_back(a);
        }
        if (!ok) return tool::kUsage;
    }
    if (v.off && v.any())
        return error = "--no-validation cannot be combined with other validation switches",
               tool::kUsage;
    if (!o.ptv.empty() && (o.series || o.velocity))
        return error = "--ptv tracks one pair in pixels: not with --series or --velocity",
               tool::kUsage;
    if (!ensembleOnly.empty() && !o.ensemble)
        return error = ensembleOnly + " belongs to --ensemble", tool::kUsage;
    if (o.ensemble && !o.series)
        return error = "--ensemble correlates a series: it needs --series FIRST LAST", tool::kUsage;
    if (o.ensemble && (o.stats || o.shardCount > 0))
        return error = std::string("--ensemble cannot be combined with ") +
                       (o.stats ? "--stats: both write <stub>_avg.nc" : "--shard"),
               tool::kUsage;
    if (const int bad = CheckShardOptions(o, files, error)) return bad;
    if (o.mergeStats) return tool::kOk;
    if (o.series) {
        if (!files.empty()) return error = "a series takes no further file names", tool::kUsage;
        if (o.outputDir.empty()) return error = "a series needs --output-dir DIR", tool::kUsage;
        if (!o.output.empty() || !o.cf.empty())
            return error = "-o and --cf are for one pair; a series uses --output-dir and --format",
                   tool::kUsage;
        if (o.stub.empty() || o.stub.find('/') != std::string::npos)
            return error = "--stub takes a plain file name", tool::kUsage;
        return tool::kOk;
    }
    if (files.empty() || files.size() > 2)
        return error =
                   "expected FIRST [SECOND], " + std::to_string(files.size()) + " file names given",
               tool::kUsage;
    o.first = files[0];
    if (files.size() == 2) o.second = files[1];
    if (o.output.empty()) return error = "-o FILE is needed for one pair", tool::kUsage;
    const std::string ext = tool::Extension(o.output);
    if (ext != ".nc" && ext != ".dat" && ext != ".plt" && ext != ".txt")
        return error = "-o " + o.output + ": the extension must be .nc, .dat, .plt or .txt",
               tool::kUsage;
    if (!o.cf.empty() && tool::Extension(o.cf) != ".nc")
        return error = "--cf " + o.cf + ": the extension must be .nc", tool::kUsage;
    return tool::kOk;
}

OUTLIER_CFG DefaultValidation() {
    OUTLIER_CFG cfg;
    cfg.Enable = true;
    cfg.CheckNormalizedMedian = true;
    cfg.NormalizedMedianThreshold = 2.0f;
    cfg.NormalizedMedianNoiseFloor = 0.1f;
    cfg.TryOtherPeaks = true;
    cfg.InterpolateOutliers = true;
    return cfg;
}

namespace {

OUTLIER_CFG Validation(OUTLIER_CFG cfg, const ValidationSwitches& v) {
    if (v.off) {
        // Every test off as well: the iterative methods switch validation
        // back on between their passes and would run the file's tests.
        const int passes = cfg.NumberOfPasses;
        cfg = OUTLIER_CFG();
        cfg.NumberOfPasses = passes;
        cfg.TryOtherPeaks = false;
        return cfg;
    }
    if (!v.any()) return cfg;
    cfg.Enable = true;
    if (v.median)
        cfg.CheckNormalizedMedian = true, cfg.NormalizedMedianThreshold = float(*v.median);
    if (v.noiseFloor) cfg.NormalizedMedianNoiseFloor = float(*v.noiseFloor);
    if (v.minSnr) cfg.CheckSNR = true, cfg.MinSNR = float(*v.minSnr);
    if (v.minPeakRatio) cfg.CheckPeakRatio = true, cfg.MinPeakRatio = float(*v.minPeakRatio);
    if (v.maxDisplacement)
        cfg.CheckDisplacement = true, cfg.MaxDisplacement = float(*v.maxDisplacement);
    if (v.passes) cfg.NumberOfPasses = *v.passes;
    if (v.noReplace) cfg.InterpolateOutliers = cfg.TryOtherPeaks = false;
    return cfg;
}

// Conversion values no file holds: read over them, what stays was not in it.
constexpr double kUnsetValue = -1.0;
constexpr int kUnsetPixel = -1000001;

// Reads the parameter file over the records in `params` and tells which
// calibration values it names; values it leaves out keep those of
// `params`. A NetCDF result always carries a conversion record; there only
// values other than the record's defaults count.
bool ReadParameterFile(const std::string& path, PIV_Parameters& params, Calibration& c) {
    const PIVCONVERT_CFG before = params.pivConvertCfg();
    PIV_PARAMETERS records = params.pivParameters();
    records.convert.PulseDelay = kUnsetValue;
    records.convert.LengthConversion[0] = kUnsetValue;
    records.convert.ImageOrigin = POINT3D{kUnsetPixel, kUnsetPixel, 0};
    params.setPivParameters(records);
    if (!params.read(path.c_str())) return false;
    PIVCONVERT_CFG got = params.pivConvertCfg();
    const bool netcdf = PIV::GetFileFormat(path.c_str()) == PIV::FORMAT_NETCDF;
    const PIVCONVERT_CFG defaults;
    auto given = [&](double value, double fallback) {
        return value != kUnsetValue && value > 0.0 && (!netcdf || value != fallback);
    };
    c.scaleGiven = given(got.LengthConversion[0], defaults.LengthConversion[0]);
    c.dtGiven = given(got.PulseDelay, defaults.PulseDelay);
    c.originGiven = got.ImageOrigin.x != kUnsetPixel && got.ImageOrigin.y != kUnsetPixel;
    if (got.PulseDelay == kUnsetValue) got.PulseDelay = before.PulseDelay;
    if (got.LengthConversion[0] == kUnsetValue)
        for (int k = 0; k < 3; k++) got.LengthConversion[k] = before.LengthConversion[k];
    if (!c.originGiven) got.ImageOrigin = before.ImageOrigin;
    params.setPivConvertCfg(got);
    return true;
}

}  // namespace

void ApplySwitches(const Options& o, PIV_Parameters& params) {
    PIVEVAL_CFG cfg = params.pivEvalCfg();
    if (o.window > 0) cfg.SampleSize = cfg.FFTSize = SIZE3D{o.window, o.window, 1};
    if (o.step > 0) cfg.grid.step = SIZE3D{o.step, o.step, 1};
    if (o.method >= 0) cfg.Method = o.method;
    if (o.passes > 0) cfg.Passes = o.passes;
    // The quintic, not the library's cubic: frames read 0.35 and 0.65 px apart
    // shift by 0.02 px with the cubic and by 0.005 px with the quintic, which
    // costs three times the cubic; higher orders gain under 0.0015 px more.
    // A second scan at the final window, deformed by the first, takes the
    // rows near the edges of a 2 px sine of 256 px wavelength from 0.0149 to
    // 0.0092 px RMS (a vortex from 0.0081 to 0.0070) at the cost of 0.0012 px
    // on a uniform shift; a third scan makes all three worse again.
    if (o.deform == 1) {
        cfg.ImageMapping2D.Mode = PIV::DEFORM_ALL_PASSES;
        cfg.ImageMapping2D.Method = PIV::INTERPOLATE_BSPLINE;
        cfg.ImageMapping2D.Order = 5;
        cfg.MultiGrid_FinalScans = 2;
    }
    if (o.deform == 0) cfg.ImageMapping2D.Mode = PIV::DEFORM_DISABLED;
    if (o.fit >= 0) cfg.Type = o.fit;
    if (o.correlation >= 0) cfg.CorrelationMode = o.correlation;
    if (o.scanRange >= 0) cfg.ScanRange = SIZE3D{o.scanRange, o.scanRange, 1};
    params.setPivEvalCfg(cfg, false);
    params.setOutlierCfg(Validation(params.outlierCfg(), o.validation));
}

bool ApplyParameters(const Options& o, PIV_Parameters& params, Calibration& calibration,
                     std::string& error) {
    params.setOutlierCfg(DefaultValidation());
    calibration = Calibration();
    if (!o.parFile.empty() && !ReadParameterFile(o.parFile, params, calibration)) {
        std::string why = params.error().getLastError();
        error = "cannot read parameter file " + o.parFile + ": " +
                (why.empty() ? std::string("not a parameter file") : why);
        return false;
    }
    ApplySwitches(o, params);

    PIVCONVERT_CFG convert = params.pivConvertCfg();
    const CalibrationSwitches& c = o.calibration;
    if (c.scale) {
        for (double& m : convert.LengthConversion) m = *c.scale;
        PIV::CopyText(convert.LengthConversionUnits, "mm");
        calibration.scaleGiven = true;
    }
    if (c.dt) {
        convert.PulseDelay = *c.dt;
        PIV::CopyText(convert.PulseDelayUnits, "us");
        calibration.dtGiven = true;
    }
    if (c.originX) {
        convert.ImageOrigin = POINT3D{*c.originX, *c.originY, 0};
        calibration.originGiven = true;
    }
    params.setPivConvertCfg(convert);
    if (o.velocity && !calibration.complete()) {
        const char* missing =
            !calibration.scaleGiven && !calibration.dtGiven
                ? "a scale (--scale PX_PER_MM) and a time step (--dt MICROSECONDS)"
            : !calibration.scaleGiven ? "a scale (--scale PX_PER_MM)"
                                      : "a time step (--dt MICROSECONDS)";
        error = std::string("--velocity needs the calibration: ") + missing +
                (o.parFile.empty() ? "" : ", given neither by the switches nor by " + o.parFile);
        return false;
    }
    return true;
}

}  // namespace eval_tool
