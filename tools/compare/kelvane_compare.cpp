// kelvane-compare: two NetCDF vector fields on the same grid, node by node.
// Only nodes valid in both count, and nodes within a margin of the image
// edge can be left out, where windows are shrunk or slid inwards.
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "piv_data2d.h"
#include "piv_messages.h"
#include "piv_util.h"
#include "tool_args.h"

namespace {

const char* kUsageText =
    "usage: kelvane-compare [options] A.nc B.nc\n"
    "Compares the displacements of two fields on the same grid (A minus B) over\n"
    "the nodes valid in both, in pixels.\n"
    "\n"
    "  --margin PX      leave out nodes nearer than PX to an image edge (0)\n"
    "  --max-rms PX     exit 1 when the RMS error is above PX\n"
    "  --help, --version\n"
    "Prints the number of nodes compared, the mean error of dx and dy, the RMS\n"
    "error (over both components, and of each), and the share of nodes whose\n"
    "error vector is longer than 0.5 px.\n";

int Usage(const std::string& why) {
    std::fprintf(stderr, "kelvane-compare: %s\n(kelvane-compare --help tells more)\n", why.c_str());
    return tool::kUsage;
}

bool Valid(const PIV_VECTOR& v) {
    return (v.flag & VECTOR_ENABLED) && !(v.flag & (VECTOR_OUTLIER | VECTOR_MASKED));
}

}  // namespace

int main(int argc, char** argv) {
    EnableWarnings(false);
    tool::Args args(argc, argv);
    std::vector<std::string> files;
    double margin = 0.0, maxRms = -1.0;
    std::string error;
    while (args.more()) {
        const std::string a = args.next();
        if (a == "--help" || a == "-h") {
            std::fputs(kUsageText, stdout);
            return tool::kOk;
        } else if (a == "--version") {
            std::printf("kelvane-compare\n%s\n", PIV::LibraryVersionLine());
            return tool::kOk;
        } else if (a == "--margin" || a == "--max-rms") {
            const char* v = args.value(a.c_str(), &error);
            if (!v) return Usage(error);
            double* target = a == "--margin" ? &margin : &maxRms;
            if (!tool::ParseDouble(v, 0.0, 1e9, target)) return Usage("bad value for " + a + ": " + v);
        } else if (!a.empty() && a[0] == '-') {
            return Usage("unknown option " + a);
        } else {
            files.push_back(a);
        }
    }
    if (files.size() != 2) return Usage("expected two NetCDF files");
    PIV_Data2D a, b;
    for (int i = 0; i < 2; i++) {
        PIV_Data2D& f = i == 0 ? a : b;
        if (!f.load(files[size_t(i)].c_str()) || f.isNull()) {
            std::fprintf(stderr, "kelvane-compare: cannot read %s: %s\n", files[size_t(i)].c_str(),
                         f.error().getLastError());
            return tool::kUsage;
        }
    }
    const DATA_GRID4D& ga = a.grid();
    const DATA_GRID4D& gb = b.grid();
    if (ga.nodes.width != gb.nodes.width || ga.nodes.height != gb.nodes.height ||
        ga.step.width != gb.step.width || ga.step.height != gb.step.height ||
        ga.first.x != gb.first.x || ga.first.y != gb.first.y) {
        std::fprintf(stderr,
                     "kelvane-compare: the grids differ: %s has %dx%d nodes from (%d,%d) at step "
                     "%dx%d, %s %dx%d from (%d,%d) at step %dx%d\n",
                     files[0].c_str(), ga.nodes.width, ga.nodes.height, ga.first.x, ga.first.y,
                     ga.step.width, ga.step.height, files[1].c_str(), gb.nodes.width,
                     gb.nodes.height, gb.first.x, gb.first.y, gb.step.width, gb.step.height);
        return tool::kUsage;
    }
    const int width = ga.imageSize.width, height = ga.imageSize.height;
    const int n = ga.nodes.width * ga.nodes.height;
    long compared = 0, far = 0, invalid = 0;
    double sx = 0, sy = 0, sxx = 0, syy = 0;
    for (int k = 0; k < n; k++) {
        const PIV_VECTOR& va = a.data()[k];
        const PIV_VECTOR& vb = b.data()[k];
        if (va.ix < margin || va.iy < margin || va.ix > width - margin || va.iy > height - margin)
            continue;
        if (!Valid(va) || !Valid(vb)) {
            invalid++;
            continue;
        }
        const double ex = double(va.dx) - vb.dx, ey = double(va.dy) - vb.dy;
        compared++;
        sx += ex;
        sy += ey;
        sxx += ex * ex;
        syy += ey * ey;
        if (ex * ex + ey * ey > 0.25) far++;
    }
    if (compared == 0) {
        std::fprintf(stderr, "kelvane-compare: no node valid in both fields inside the margin\n");
        return tool::kFailed;
    }
    const double c = double(compared);
    const double rmsX = std::sqrt(sxx / c), rmsY = std::sqrt(syy / c);
    const double rms = std::sqrt(0.5 * (sxx + syy) / c);
    std::printf("nodes compared: %ld (left out as invalid: %ld)\n", compared, invalid);
    std::printf("mean error: dx %+.5f px, dy %+.5f px\n", sx / c, sy / c);
    std::printf("rms error: %.5f px (dx %.5f, dy %.5f)\n", rms, rmsX, rmsY);
    std::printf("over 0.5 px: %.2f%% (%ld nodes)\n", 100.0 * double(far) / c, far);
    if (maxRms >= 0.0 && rms > maxRms) {
        std::fprintf(stderr, "kelvane-compare: rms error %.5f px is above %.5f px\n", rms, maxRms);
        return tool::kFailed;
    }
    return tool::kOk;
}
