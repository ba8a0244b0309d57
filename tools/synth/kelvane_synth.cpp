// kelvane-synth: a particle image pair for a known flow, and that flow on
// the evaluation grid as a NetCDF field, so that an evaluation can be held
// against exact truth with kelvane-compare.
#include <cmath>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "image2d.h"
#include "image_types.h"
#include "piv_data2d.h"
#include "piv_database.h"
#include "piv_grid.h"
#include "piv_messages.h"
#include "piv_util.h"
#include "synthetic_images.h"
#include "tool_args.h"

namespace {

const char* kUsageText =
    "usage: kelvane-synth [options] FIRST SECOND TRUTH.nc\n"
    "Renders a particle image pair (FIRST, SECOND: .tif or .pgm) whose particles\n"
    "move with the chosen flow, and writes the exact displacement at the nodes of\n"
    "the evaluation grid to TRUTH.nc.\n"
    "\n"
    "  --flow uniform|shear|sine|vortex   (uniform)\n"
    "  --dx PX --dy PX          uniform shift; the base shift of shear and sine (2, 0)\n"
    "  --gradient G             shear: dx grows by G px per row (0.02)\n"
    "  --amplitude PX --wavelength PX   sine: dx = A sin(2 pi y / L) (2, 256)\n"
    "  --peak PX --core PX      vortex: centred Lamb-Oseen vortex (6, 96)\n"
    "  --size N | --width W --height H  image size (512)\n"
    "  --diameter PX            particle diameter (2.5)\n"
    "  --density P              particles per pixel (0.02)\n"
    "  --noise S                Gaussian noise, fraction of full scale (0)\n"
    "  --bits 8|16              depth of the images (8)\n"
    "  --seed N                 random seed (1)\n"
    "  --window N --step N      the evaluation grid of the truth (32, 16)\n"
    "  --help, --version\n"
    "Image y runs down the rows; the field's dy counts upwards, as the program's.\n";

struct Options {
    std::string flow = "uniform";
    double dx = 2.0, dy = 0.0, gradient = 0.02, amplitude = 2.0, wavelength = 256.0;
    double peak = 6.0, core = 96.0;
    int width = 512, height = 512, bits = 8, seed = 1, window = 32, step = 16;
    double diameter = 2.5, density = 0.02, noise = 0.0;
    std::string first, second, truth;
};

int Usage(const std::string& why) {
    std::fprintf(stderr, "kelvane-synth: %s\n(kelvane-synth --help tells more)\n", why.c_str());
    return tool::kUsage;
}

std::unique_ptr<synth::Flow> MakeFlow(const Options& o) {
    if (o.flow == "uniform") return std::make_unique<synth::UniformFlow>(o.dx, o.dy);
    if (o.flow == "shear")
        return std::make_unique<synth::ShearFlow>(o.dx, o.gradient, 0.5 * o.height, o.dy);
    if (o.flow == "sine")
        return std::make_unique<synth::SinusoidalFlow>(o.amplitude, o.wavelength, 0.0, o.dy);
    if (o.flow == "vortex") {
        // The peak of a Lamb-Oseen vortex lies at r = 1.12091 rc, where
        // 1 - exp(-r^2 / rc^2) = 0.71533.
        const double r = 1.12091 * o.core;
        const double gamma = o.peak * 2.0 * M_PI * r / (1.0 - std::exp(-(r * r) / (o.core * o.core)));
        return std::make_unique<synth::LambOseenVortex>(0.5 * o.width, 0.5 * o.height, gamma,
                                                        o.core);
    }
    return nullptr;
}

bool SaveImage(const std::vector<float>& pixels, const Options& o, const std::string& path) {
    Image2D img;
    if (!img.alloc(o.width, o.height, o.bits == 8 ? IMAGE_UINT8 : IMAGE_UINT16)) return false;
    for (int y = 0; y < o.height; y++) img.putRow(pixels.data() + size_t(y) * o.width, y);
    const std::string ext = tool::Extension(path);
    const int format = ext == ".pgm" ? PIV::FORMAT_PGM : PIV::FORMAT_TIFF;
    if (!img.save(path.c_str(), format)) {
        std::fprintf(stderr, "kelvane-synth: cannot write %s: %s\n", path.c_str(),
                     img.error().getLastError());
        return false;
    }
    return true;
}

bool SaveTruth(const synth::Flow& flow, const Options& o) {
    DATA_GRID4D grid;
    grid.imageSize = SIZE3D{o.width, o.height, 1};
    grid.step = SIZE3D{o.step, o.step, 1};
    grid.roiEnabled = false;
    if (!PIV::CreateDataGrid4D(grid, SIZE3D{o.window, o.window, 1})) {
        std::fprintf(stderr, "kelvane-synth: no grid of %d px windows at step %d fits the image\n",
                     o.window, o.step);
        return false;
    }
    PIV_Data2D field(grid);
    if (field.isNull()) return false;
    for (int k = 0; k < field.nodeCount(); k++) {
        PIV_VECTOR& v = field.data()[k];
        double dx = 0.0, dy = 0.0;
        synth::ExactDisplacement(flow, v.ix, v.iy, dx, dy);
        v.dx = float(dx);
        v.dy = float(-dy);
        for (PIV_PEAK& p : v.peak) p = PIV_PEAK{v.dx, v.dy, 1.0f};
        v.flag = VECTOR_ENABLED;
        v.count = 1;
        v.corr = v.snr = 1.0f;
    }
    field.setFlagRawData(true);
    field.setFlagValidated(true);
    field.setDataType(PIV::DATA_DISPLACEMENT);
    field.doStatistics();
    OUTPUT_CFG out;
    out.OutputFormat = 3;
    if (!field.save(o.truth.c_str(), 0, out)) {
        std::fprintf(stderr, "kelvane-synth: cannot write %s: %s\n", o.truth.c_str(),
                     field.error().getLastError());
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    EnableWarnings(false);
    Options o;
    std::vector<std::string> files;
    tool::Args args(argc, argv);
    std::string error;
    while (args.more()) {
        const std::string a = args.next();
        auto number = [&](double low, double high, double* out) {
            const char* v = args.value(a.c_str(), &error);
            if (!v) return false;
            if (!tool::ParseDouble(v, low, high, out)) {
                error = "bad value for " + a + ": " + v;
                return false;
            }
            return true;
        };
        auto integer = [&](long low, long high, int* out) {
            const char* v = args.value(a.c_str(), &error);
            if (!v) return false;
            if (!tool::ParseInt(v, low, high, out)) {
                error = "bad value for " + a + ": " + v;
                return false;
            }
            return true;
        };
        bool ok = true;
        if (a == "--help" || a == "-h") {
            std::fputs(kUsageText, stdout);
            return tool::kOk;
        } else if (a == "--version") {
            std::printf("kelvane-synth\n%s\n", PIV::LibraryVersionLine());
            return tool::kOk;
        } else if (a == "--flow") {
            const char* v = args.value("--flow", &error);
            ok = v != nullptr;
            if (ok) o.flow = v;
        } else if (a == "--dx") {
            ok = number(-1e4, 1e4, &o.dx);
        } else if (a == "--dy") {
            ok = number(-1e4, 1e4, &o.dy);
        } else if (a == "--gradient") {
            ok = number(-10, 10, &o.gradient);
        } else if (a == "--amplitude") {
            ok = number(-1e4, 1e4, &o.amplitude);
        } else if (a == "--wavelength") {
            ok = number(1e-3, 1e9, &o.wavelength);
        } else if (a == "--peak") {
            ok = number(-1e4, 1e4, &o.peak);
        } else if (a == "--core") {
            ok = number(1e-3, 1e9, &o.core);
        } else if (a == "--size") {
            ok = integer(8, 20000, &o.width);
            o.height = o.width;
        } else if (a == "--width") {
            ok = integer(8, 20000, &o.width);
        } else if (a == "--height") {
            ok = integer(8, 20000, &o.height);
        } else if (a == "--diameter") {
            ok = number(0.1, 100, &o.diameter);
        } else if (a == "--density") {
            ok = number(0, 1, &o.density);
        } else if (a == "--noise") {
            ok = number(0, 1, &o.noise);
        } else if (a == "--bits") {
            ok = integer(8, 16, &o.bits);
            if (ok && o.bits != 8 && o.bits != 16) ok = false, error = "--bits takes 8 or 16";
        } else if (a == "--seed") {
            ok = integer(0, 2147483647L, &o.seed);
        } else if (a == "--window") {
            ok = integer(4, 1024, &o.window);
        } else if (a == "--step") {
            ok = integer(1, 1024, &o.step);
        } else if (!a.empty() && a[0] == '-') {
            return Usage("unknown option " + a);
        } else {
            files.push_back(a);
        }
        if (!ok) return Usage(error);
    }
    if (files.size() != 3) return Usage("expected FIRST SECOND TRUTH.nc");
    o.first = files[0];
    o.second = files[1];
    o.truth = files[2];
    for (const std::string* f : {&o.first, &o.second}) {
        const std::string ext = tool::Extension(*f);
        if (ext != ".tif" && ext != ".tiff" && ext != ".pgm")
            return Usage("images are written as .tif or .pgm: " + *f);
    }
    if (tool::Extension(o.truth) != ".nc") return Usage("the truth is a .nc file: " + o.truth);
    std::unique_ptr<synth::Flow> flow = MakeFlow(o);
    if (!flow) return Usage("unknown flow " + o.flow);

    synth::SynthParams p;
    p.width = o.width;
    p.height = o.height;
    p.particleDiameter = o.diameter;
    p.particleDensity = o.density;
    p.noiseSigma = o.noise;
    p.bitDepth = o.bits;
    p.seed = unsigned(o.seed);
    synth::SyntheticPair pair;
    try {
        pair = synth::RenderPair(p, *flow);
    } catch (const std::exception& e) {
        return Usage(e.what());
    }
    if (!SaveImage(pair.a, o, o.first) || !SaveImage(pair.b, o, o.second) || !SaveTruth(*flow, o))
        return tool::kFailed;
    return tool::kOk;
}
