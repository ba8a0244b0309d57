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

// Rows `rows[0..kL-1]` (which may repeat) into the lanes, and the first
// `used` of them back: four rows by four samples at a time, turned in
// registers, so that every access to the image and to the lines is a
// vector one.
#if HWY_TARGET == HWY_SCALAR
void RowsIn(const float* const* rows, int width, double* c) {
    for (int k = 0; k < width; k++)
        for (size_t r = 0; r < kL; r++) c[size_t(k) * kL + r] = rows[r][k];
}
void RowsOut(double* c, int width, float* const* rows, int used) {
    for (int k = 0; k < width; k++)
        for (int r = 0; r < used; r++) rows[r][k] = float(c[size_t(k) * kL + size_t(r)]);
}
#else
using D4 = hn::FixedTag<float, 4>;
using V4 = hn::Vec<D4>;

HWY_INLINE void Transpose(D4 d4, V4 v[4]) {
    const V4 t0 = hn::InterleaveLower(d4, v[0], v[1]), t1 = hn::InterleaveLower(d4, v[2], v[3]);
    const V4 t2 = hn::InterleaveUpper(d4, v[0], v[1]), t3 = hn::InterleaveUpper(d4, v[2], v[3]);
    v[0] = hn::ConcatLowerLower(d4, t1, t0);
    v[1] = hn::ConcatUpperUpper(d4, t1, t0);
    v[2] = hn::ConcatLowerLower(d4, t3, t2);
    v[3] = hn::ConcatUpperUpper(d4, t3, t2);
}

void RowsIn(const float* const* rows, int width, double* c) {
    const D4 d4;
    const hn::FixedTag<double, 2> d2;
    const hn::FixedTag<float, 2> d2f;
    int k = 0;
    for (; k + 4 <= width; k += 4)
        for (size_t g = 0; g < kL; g += 4) {
            V4 v[4];
            for (size_t r = 0; r < 4; r++) v[r] = hn::LoadU(d4, rows[g + r] + k);
            Transpose(d4, v);
            for (size_t q = 0; q < 4; q++) {
                double* to = c + (size_t(k) + q) * kL + g;
                hn::StoreU(hn::PromoteTo(d2, hn::LowerHalf(d2f, v[q])), d2, to);
                hn::StoreU(hn::PromoteTo(d2, hn::UpperHalf(d2f, v[q])), d2, to + 2);
            }
        }
    for (; k < width; k++)
        for (size_t r = 0; r < kL; r++) c[size_t(k) * kL + r] = rows[r][k];
}

void RowsOut(double* c, int width, float* const* rows, int used) {
    const D4 d4;
    const hn::FixedTag<double, 2> d2;
    const hn::FixedTag<float, 2> d2f;
    int k = 0;
    for (; k + 4 <= width; k += 4)
        for (size_t g = 0; g < size_t(used); g += 4) {
            V4 v[4];
            for (size_t q = 0; q < 4; q++) {
                const double* from = c + (size_t(k) + q) * kL + g;
                v[q] = hn::Combine(d4, hn::DemoteTo(d2f, hn::LoadU(d2, from + 2)),
                                   hn::DemoteTo(d2f, hn::LoadU(d2, from)));
            }
            Transpose(d4, v);
            for (size_t r = 0; r < 4 && g + r < size_t(used); r++)
                hn::StoreU(v[r], d4, rows[g + r] + k);
        }
    for (; k < width; k++)
        for (int r = 0; r < used; r++) rows[r][k] = float(c[size_t(k) * kL + size_t(r)]);
}
#endif

// Columns first .. first + used - 1 of every row into the lanes and back;
// lanes past the image's last column hold 0.
void FilterColumnsImpl(float* data, int width, int height, int used, double* c, const double* poles,
                       int poleCount, double tolerance) {
#if HWY_TARGET != HWY_SCALAR
    const bool full = used == int(kL);
    const hn::FixedTag<float, 4> d4;
    const hn::FixedTag<double, 2> d2;
    const hn::FixedTag<float, 2> d2f;
#endif
    for (int k = 0; k < height; k++) {
        const float* in = data + size_t(k) * size_t(width);
        double* to = c + size_t(k) * kL;
#if HWY_TARGET != HWY_SCALAR
        if (full) {
            for (size_t j = 0; j < kL; j += 4) {
                const auto v = hn::LoadU(d4, in + j);
                hn::StoreU(hn::PromoteTo(d2, hn::LowerHalf(d2f, v)), d2, to + j);
                hn::StoreU(hn::PromoteTo(d2, hn::UpperHalf(d2f, v)), d2, to + j + 2);
            }
            continue;
        }
#endif
        for (size_t j = 0; j < kL; j++) to[j] = j < size_t(used) ? double(in[j]) : 0.0;
    }
    FilterInterleavedLinesImpl(c, height, poles, poleCount, tolerance);
    for (int k = 0; k < height; k++) {
        float* out = data + size_t(k) * size_t(width);
        const double* from = c + size_t(k) * kL;
#if HWY_TARGET != HWY_SCALAR
        if (full) {
            for (size_t j = 0; j < kL; j += 4)
                hn::StoreU(hn::Combine(d4, hn::DemoteTo(d2f, hn::LoadU(d2, from + j + 2)),
                                       hn::DemoteTo(d2f, hn::LoadU(d2, from + j))),
                           d4, out + j);
            continue;
        }
#endif
        for (int j = 0; j < used; j++) out[j] = float(from[j]);
    }
}

void FilterRowsImpl(float* const* rows, int width, int used, double* lines, const double* poles,
                    int poleCount, double tolerance) {
    RowsIn(rows, width, lines);
    FilterInterleavedLinesImpl(lines, width, poles, poleCount, tolerance);
    RowsOut(lines, width, rows, used);
}

}  // namespace HWY_NAMESPACE
}  // namespace Spline
}  // namespace PIV
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace PIV {
namespace Spline {

HWY_EXPORT(FilterInterleavedLinesImpl);
HWY_EXPORT(FilterRowsImpl);
HWY_EXPORT(FilterColumnsImpl);

void FilterInterleavedColumns(float* data, int width, int height, int used, double* lines,
                              const double* poles, int poleCount, double tolerance) {
    HWY_DYNAMIC_DISPATCH(FilterColumnsImpl)
    (data, width, height, used, lines, poles, poleCount, tolerance);
}

void FilterInterleavedRows(float* const* rows, int width, int used, double* lines,
                           const double* poles, int poleCount, double tolerance) {
    HWY_DYNAMIC_DISPATCH(FilterRowsImpl)(rows, width, used, lines, poles, poleCount, tolerance);
}

void FilterInterleavedLines(double* lines, int n, const double* poles, int poleCount,
                            double tolerance) {
    HWY_DYNAMIC_DISPATCH(FilterInterleavedLinesImpl)(lines, n, poles, poleCount, tolerance);
}

}  // namespace Spline
}  // namespace PIV
#endif  // HWY_ONCE
