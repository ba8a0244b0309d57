// B-spline prefilter and evaluation (Unser, Aldroubi and Eden's recursive
// filter; the weights by the Cox-de Boor recurrence of the cardinal B-spline).
#include "image_spline.h"

#include <omp.h>

#include <cfloat>
#include <cmath>
#include <vector>

#include "image_spline_simd.h"
#include "piv_messages.h"
#include "piv_util.h"

namespace {

// The shifted linear method: the spline sits this far right of the samples,
// and its first-order filter has these two taps.
constexpr double kShiftedLinearTau = 0.21132486540518713;
constexpr double kShiftedLinearGain = 1.2679491924311228;
constexpr double kShiftedLinearFeedback = -0.26794919243112275;

void _shiftedLinearLine(double* c, int n) {
    for (int k = 1; k < n; k++)
        c[k] = kShiftedLinearGain * c[k] + kShiftedLinearFeedback * c[k - 1];
}

double _initialCausal(const double* c, int n, double z, double tolerance) {
    int horizon = n;
    if (tolerance > 0.0)
        horizon = static_cast<int>(std::ceil(std::log(tolerance) / std::log(std::fabs(z))));
    if (horizon < n) {
        double zn = z, sum = c[0];
        for (int k = 1; k < horizon; k++) {
            sum += zn * c[k];
            zn *= z;
        }
        return sum;
    }
    // Full mirror-symmetric start over the whole line.
    double zn = z;
    const double iz = 1.0 / z;
    double z2n = std::pow(z, n - 1);
    double sum = c[0] + z2n * c[n - 1];
    z2n *= z2n * iz;
    for (int k = 1; k <= n - 2; k++) {
        sum += (zn + z2n) * c[k];
        zn *= z;
        z2n *= iz;
    }
    return sum / (1.0 - zn * zn);
}

// Filters every line (rows when alongRows, else columns) through a line
// buffer of its thread. Columns go in blocks of kBlock, gathered row by row,
// so that each cache line of the image is read once per block rather than
// once per column; every line is still filtered on its own.
template <typename F>
bool _filterLines(float* data, int width, int height, bool alongRows, F&& filterLine) {
    constexpr int kBlock = 16;
    const int threads = PIV::MaxThreads();
    const int longest = width > height ? width : height;
    std::vector<double> buffers;
    try {
        buffers.resize(static_cast<size_t>(threads) * static_cast<size_t>(longest) * kBlock);
    } catch (...) {
        DebugPrint("Line allocation failed");
        return false;
    }
    const size_t perThread = static_cast<size_t>(longest) * kBlock;
    if (alongRows) {
#pragma omp parallel for num_threads(threads) schedule(static)
        for (int l = 0; l < height; l++) {
            double* buf = buffers.data() + static_cast<size_t>(omp_get_thread_num()) * perThread;
            float* row = data + static_cast<size_t>(l) * width;
            for (int k = 0; k < width; k++) buf[k] = row[k];
            filterLine(buf, width);
            for (int k = 0; k < width; k++) row[k] = static_cast<float>(buf[k]);
        }
        return true;
    }
    const int blocks = (width + kBlock - 1) / kBlock;
#pragma omp parallel for num_threads(threads) schedule(static)
    for (int b = 0; b < blocks; b++) {
        double* buf = buffers.data() + static_cast<size_t>(omp_get_thread_num()) * perThread;
        const int first = b * kBlock;
        const int count = width - first < kBlock ? width - first : kBlock;
        // buf holds the block's columns one after another, each `height` long.
        for (int k = 0; k < height; k++) {
            const float* in = data + static_cast<size_t>(k) * width + first;
            for (int c = 0; c < count; c++) buf[static_cast<size_t>(c) * height + k] = in[c];
        }
        for (int c = 0; c < count; c++) filterLine(buf + static_cast<size_t>(c) * height, height);
        for (int k = 0; k < height; k++) {
            float* out = data + static_cast<size_t>(k) * width + first;
            for (int c = 0; c < count; c++)
                out[c] = static_cast<float>(buf[static_cast<size_t>(c) * height + k]);
        }
    }
    return true;
}

// The same filter for many lines at once: kInterleavedLines rows or
// columns at a time are laid side by side in a buffer of their thread, so
// that one vector step advances all of them.
bool _filterLinesInterleaved(float* data, int width, int height, bool alongRows,
                             const double* poles, int count) {
    constexpr int kLines = PIV::Spline::kInterleavedLines;
    const int threads = PIV::MaxThreads();
    const size_t perThread = static_cast<size_t>(width > height ? width : height) * kLines;
    std::vector<double> buffers;
    try {
        buffers.resize(static_cast<size_t>(threads) * perThread);
    } catch (...) {
        DebugPrint("Line allocation failed");
        return false;
    }
    const int lines = alongRows ? height : width;
    const int blocks = (lines + kLines - 1) / kLines;
#pragma omp parallel for num_threads(threads) schedule(static)
    for (int b = 0; b < blocks; b++) {
        double* buf = buffers.data() + static_cast<size_t>(omp_get_thread_num()) * perThread;
        const int first = b * kLines;
        const int used = lines - first < kLines ? lines - first : kLines;
        if (alongRows) {
            // Lanes past the last row repeat it.
            float* rows[kLines];
            for (int r = 0; r < kLines; r++)
                rows[r] = data + static_cast<size_t>(first + (r < used ? r : used - 1)) * width;
            PIV::Spline::FilterInterleavedRows(rows, width, used, buf, poles, count, DBL_EPSILON);
            continue;
        }
        PIV::Spline::FilterInterleavedColumns(data + first, width, height, used, buf, poles, count,
                                              DBL_EPSILON);
    }
    return true;
}

}  // namespace

int getDeformOrder(int degree, int method) {
    if (degree < 2) return 2;
    if (method == 3) return 2;
    return degree > 9 ? 9 : degree;
}

namespace PIV {
namespace Spline {

int Poles(int degree, double poles[4]) {
    // Degree 3 uses the pole of the cubic O-MOMS with the weights of the plain
    // cubic B-spline: that pairing is the cubic this program has always had,
    // so its cubic does not return the samples exactly.
    switch (degree) {
        case 2:
            poles[0] = -0.1715728752538097;
            return 1;
        case 3:
            poles[0] = -0.34413115425505025;
            return 1;
        case 4:
            poles[0] = -0.3613412259002118;
            poles[1] = -0.013725429297341663;
            return 2;
        case 5:
            poles[0] = -0.43057534709997825;
            poles[1] = -0.04309628820326328;
            return 2;
        case 6:
            poles[0] = -0.48829458930304476;
            poles[1] = -0.08167927107623751;
            poles[2] = -0.0014141518083258177;
            return 3;
        case 7:
            poles[0] = -0.5352804307964382;
            poles[1] = -0.12255461519232669;
            poles[2] = -0.009148694809608277;
            return 3;
        case 8:
            poles[0] = -0.5746869092487654;
            poles[1] = -0.16303526929728093;
            poles[2] = -0.02363229469484485;
            poles[3] = -0.00015382131064169092;
            return 4;
        case 9:
            poles[0] = -0.6079973891686258;
            poles[1] = -0.20175052019315323;
            poles[2] = -0.04322260854048175;
            poles[3] = -0.002121306903180818;
            return 4;
        default:
            return 0;
    }
}

int Weights(double x, int degree, double* weights) {
    // Far-off or NaN points (only reachable with mirroring) fold like 0.
    if (!(std::fabs(x) < 1e9)) x = 0.0;
    // Odd degrees centre the support on floor(x), even ones on the nearest
    // sample; u is then the offset into the first unit interval.
    const double base = (degree & 1) ? std::floor(x) : std::floor(x + 0.5);
    const double u = (degree & 1) ? x - base : x + 0.5 - base;
    const int first = static_cast<int>(base) - degree / 2;
    if (degree == 3) {
        const double t = u;
        const double w3 = t * t * t / 6.0;
        const double w0 = 1.0 / 6.0 + (t * t - t) / 2.0 - w3;
        const double w2 = t + w0 - 2.0 * w3;
        weights[0] = w0;
        weights[1] = 1.0 - w0 - w2 - w3;
        weights[2] = w2;
        weights[3] = w3;
        return first;
    }
    if (degree == 5) {
        // The same weights in closed form: the recursion below spends forty
        // divisions on them, and the quintic deformation wants them twice a pixel.
        const double t = u, t2 = t * t;
        const double w5 = t * t2 * t2 / 120.0;
        const double s = t2 - t, s2 = s * s, h = t - 0.5, q = s * (s - 3.0);
        const double even = (s * (s - 5.0) + 46.0 / 5.0) / 24.0, odd = -h * (q + 4.0) / 12.0;
        const double outer = (9.0 / 5.0 - q) / 16.0, tilt = h * (s2 - s - 5.0) / 24.0;
        weights[0] = (1.0 / 5.0 + s + s2) / 24.0 - w5;
        weights[1] = outer + tilt;
        weights[2] = even + odd;
        weights[3] = even - odd;
        weights[4] = outer - tilt;
        weights[5] = w5;
        return first;
    }
    // a[k] = M_n(u + k), the cardinal B-spline on [0, n + 1], built up from
    // degree 0 by M_n(x) = x/n M_{n-1}(x) + (n + 1 - x)/n M_{n-1}(x - 1).
    double a[10] = {1.0};
    for (int n = 1; n <= degree; n++) {
        a[n] = 0.0;
        for (int k = n; k >= 0; k--) {
            const double xk = u + k;
            const double left = xk / n * a[k];
            const double right = k > 0 ? (n + 1 - xk) / n * a[k - 1] : 0.0;
            a[k] = left + right;
        }
    }
    for (int m = 0; m <= degree; m++) weights[m] = a[degree - m];
    return first;
}

}  // namespace Spline
}  // namespace PIV

void ConvertToInterpolationCoefficients(double* c, int n, const double* z, int poleCount,
                                        double tolerance) {
    if (n <= 1) return;
    double gain = 1.0;
    for (int k = 0; k < poleCount; k++) gain *= (1.0 - z[k]) * (1.0 - 1.0 / z[k]);
    for (int i = 0; i < n; i++) c[i] *= gain;
    for (int k = 0; k < poleCount; k++) {
        c[0] = _initialCausal(c, n, z[k], tolerance);
        for (int i = 1; i < n; i++) c[i] += z[k] * c[i - 1];
        c[n - 1] = z[k] / (z[k] * z[k] - 1.0) * (c[n - 1] + z[k] * c[n - 2]);
        for (int i = n - 2; i >= 0; i--) c[i] = z[k] * (c[i + 1] - c[i]);
    }
}

int Image2DToSplineCoefficients(float* data, int width, int height, int degree, bool vectorised) {
    if (degree < 1 || degree > 9) {
        DebugPrint("Invalid spline degree");
        return 1;
    }
    if (!data || width < 1 || height < 1) return 0;
    if (degree == 1) {
        auto line = [](double* c, int n) { _shiftedLinearLine(c, n); };
        if (!_filterLines(data, width, height, true, line)) return 0;
        _filterLines(data, width, height, false, line);
        return 0;
    }
    double poles[4];
    const int count = PIV::Spline::Poles(degree, poles);
    if (vectorised) {
        if (!_filterLinesInterleaved(data, width, height, true, poles, count)) return 0;
        _filterLinesInterleaved(data, width, height, false, poles, count);
        return 0;
    }
    auto line = [&](double* c, int n) {
        ConvertToInterpolationCoefficients(c, n, poles, count, DBL_EPSILON);
    };
    if (!_filterLines(data, width, height, true, line)) return 0;
    _filterLines(data, width, height, false, line);
    return 0;
}

double InterpolatedSplineValue2D(const float* c, int width, int height, double x, double y,
                                 int degree) {
    using PIV::Spline::Mirror;
    if (degree > 9) {
        DebugPrint("Invalid spline degree");
        return 0.0;
    }
    if (degree <= 1) {
        if (!(std::fabs(x) < 1e9)) x = 0.0;
        if (!(std::fabs(y) < 1e9)) y = 0.0;
        x -= kShiftedLinearTau;
        y -= kShiftedLinearTau;
        const double fi = std::floor(x), fj = std::floor(y);
        const double fx = x - fi, fy = y - fj;
        auto limit = [](double v, int size) {
            return static_cast<int64_t>(v < 0.0 ? 0.0 : (v > size - 1 ? size - 1 : v));
        };
        const int64_t i0 = limit(fi, width), i1 = limit(fi + 1.0, width);
        const int64_t j0 = limit(fj, height), j1 = limit(fj + 1.0, height);
        const float* r0 = c + j0 * width;
        const float* r1 = c + j1 * width;
        const double top = r0[i0] + (r0[i1] - static_cast<double>(r0[i0])) * fx;
        const double bottom = r1[i0] + (r1[i1] - static_cast<double>(r1[i0])) * fx;
        return top + (bottom - top) * fy;
    }
    double wx[10], wy[10];
    const int64_t i0 = PIV::Spline::Weights(x, degree, wx);
    const int64_t j0 = PIV::Spline::Weights(y, degree, wy);
    int64_t ix[10];
    for (int m = 0; m <= degree; m++) ix[m] = Mirror(i0 + m, width);
    double sum = 0.0;
    for (int l = 0; l <= degree; l++) {
        const float* row = c + Mirror(j0 + l, height) * width;
        double s = 0.0;
        for (int m = 0; m <= degree; m++) s += wx[m] * row[ix[m]];
        sum += wy[l] * s;
    }
    return sum;
}
