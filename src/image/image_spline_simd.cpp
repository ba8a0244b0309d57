// The B-spline prefilter with Highway, picked at run time for the vector
// units present. Each lane is a line: the recursions run along the lines,
// a row of lanes per step, so the chain of each step's dependence on the
// previous one is shared by all lines instead of paid by each.
#include "image_spline_simd.h"

#include <cmath>
#include <cstddef>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "image_spline_simd.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace PIV {
namespace Spline {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

constexpr size_t kL = size_t(kInterleavedLines);

void FilterInterleavedLinesImpl(double* c, int n, const double* poles, int poleCount,
                                double tolerance) {
    if (n <= 1) return;
    const hn::ScalableTag<double> d;
    const size_t step = hn::Lanes(d), size = size_t(n);
    // Applies f to every vector of sample row k.
    const auto each = [&](size_t k, auto f) {
        for (size_t j = 0; j < kL; j += step) f(c + k * kL + j);
    };
    double gain = 1.0;
    for (int p = 0; p < poleCount; p++) gain *= (1.0 - poles[p]) * (1.0 - 1.0 / poles[p]);
    const auto g = hn::Set(d, gain);
    for (size_t k = 0; k < size; k++)
        each(k, [&](double* r) { hn::StoreU(hn::Mul(hn::LoadU(d, r), g), d, r); });
    for (int p = 0; p < poleCount; p++) {
        const double z = poles[p];
        const auto vz = hn::Set(d, z);
        // The causal start, summed into sample 0, which no term reads again.
        int horizon = n;
        if (tolerance > 0.0)
            horizon = static_cast<int>(std::ceil(std::log(tolerance) / std::log(std::fabs(z))));
        if (horizon < n) {
            double zn = z;
            for (size_t k = 1; k < size_t(horizon); k++, zn *= z) {
                const auto w = hn::Set(d, zn);
                each(k, [&](double* r) {
                    double* s = r - k * kL;
                    hn::StoreU(hn::Add(hn::LoadU(d, s), hn::Mul(w, hn::LoadU(d, r))), d, s);
                });
            }
        } else {
            double zn = z;
            const double iz = 1.0 / z;
            double z2n = std::pow(z, n - 1);
            const auto last = hn::Set(d, z2n);
            each(size - 1, [&](double* r) {
                double* s = r - (size - 1) * kL;
                hn::StoreU(hn::Add(hn::LoadU(d, s), hn::Mul(last, hn::LoadU(d, r))), d, s);
            });
            z2n *= z2n * iz;
            for (size_t k = 1; k + 2 <= size; k++) {
                const auto w = hn::Set(d, zn + z2n);
                each(k, [&](double* r) {
                    double* s = r - k * kL;
                    hn::StoreU(hn::Add(hn::LoadU(d, s), hn::Mul(w, hn::LoadU(d, r))), d, s);
                });
                zn *= z;
                z2n *= iz;
            }
            const auto norm = hn::Set(d, 1.0 - zn * zn);
            each(0, [&](double* r) { hn::StoreU(hn::Div(hn::LoadU(d, r), norm), d, r); });
        }
        for (size_t k = 1; k < size; k++)
            each(k, [&](double* r) {
                hn::StoreU(hn::Add(hn::LoadU(d, r), hn::Mul(vz, hn::LoadU(d, r - kL))), d, r);
            });
        const auto end = hn::Set(d, z / (z * z - 1.0));
        each(size - 1, [&](double* r) {
            const auto v = hn::Add(hn::LoadU(d, r), hn::Mul(vz, hn::LoadU(d, r - kL)));
            hn::StoreU(hn::Mul(end, v), d, r);
        });
        for (size_t k = size - 1; k-- > 0;)
            each(k, [&](double* r) {
                hn::StoreU(hn::Mul(vz, hn::Sub(hn::LoadU(d, r + kL), hn::LoadU(d, r))), d, r);
            });
    }
}

}  // namespace HWY_NAMESPACE
}  // namespace Spline
}  // namespace PIV
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace PIV {
namespace Spline {

HWY_EXPORT(FilterInterleavedLinesImpl);

void FilterInterleavedLines(double* lines, int n, const double* poles, int poleCount,
                            double tolerance) {
    HWY_DYNAMIC_DISPATCH(FilterInterleavedLinesImpl)(lines, n, poles, poleCount, tolerance);
}

}  // namespace Spline
}  // namespace PIV
#endif  // HWY_ONCE
