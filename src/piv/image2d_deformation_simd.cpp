// One row of the B-spline warp with Highway, picked at run time for the
// vector units present. Each lane is a target pixel: its weights are made
// once per axis and the stencil's coefficients gathered row by row.
#include "image2d_deformation_simd.h"

#include <cstddef>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "image2d_deformation_simd.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace PIV {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using DF = hn::ScalableTag<float>;
using VF = hn::Vec<DF>;

// The cubic B-spline's weights at fraction t for the samples -1 .. +2,
// in the scalar warp's order of operations.
HWY_INLINE void CubicWeights(DF d, VF t, VF w[4]) {
    const VF t2 = hn::Mul(t, t), t3 = hn::Mul(t2, t);
    const VF u = hn::Sub(hn::Set(d, 1.0f), t);
    const VF half = hn::Set(d, 0.5f), sixth = hn::Set(d, 1.0f / 6.0f);
    w[0] = hn::Mul(hn::Mul(hn::Mul(u, u), u), sixth);
    w[1] = hn::Add(hn::Sub(hn::Set(d, 2.0f / 3.0f), t2), hn::Mul(half, t3));
    w[2] = hn::Add(sixth, hn::Mul(half, hn::Sub(hn::Add(t, t2), t3)));
    w[3] = hn::Mul(t3, sixth);
}

// The quintic's weights at fraction t for the samples -2 .. +3: the closed
// form of the scalar spline weights.
HWY_INLINE void QuinticWeights(DF d, VF t, VF w[6]) {
    const VF t2 = hn::Mul(t, t);
    const VF w5 = hn::Mul(hn::Mul(t, hn::Mul(t2, t2)), hn::Set(d, 1.0f / 120.0f));
    const VF s = hn::Sub(t2, t), s2 = hn::Mul(s, s);
    const VF h = hn::Sub(t, hn::Set(d, 0.5f));
    const VF q = hn::Mul(s, hn::Sub(s, hn::Set(d, 3.0f)));
    const VF c24 = hn::Set(d, 1.0f / 24.0f);
    const VF even =
        hn::Mul(hn::Add(hn::Mul(s, hn::Sub(s, hn::Set(d, 5.0f))), hn::Set(d, 46.0f / 5.0f)), c24);
    const VF odd =
        hn::Mul(hn::Neg(h), hn::Mul(hn::Add(q, hn::Set(d, 4.0f)), hn::Set(d, 1.0f / 12.0f)));
    const VF outer = hn::Mul(hn::Sub(hn::Set(d, 9.0f / 5.0f), q), hn::Set(d, 1.0f / 16.0f));
    const VF tilt = hn::Mul(hn::Mul(h, hn::Sub(hn::Sub(s2, s), hn::Set(d, 5.0f))), c24);
    w[0] = hn::Sub(hn::Mul(hn::Add(hn::Add(hn::Set(d, 1.0f / 5.0f), s), s2), c24), w5);
    w[1] = hn::Add(outer, tilt);
    w[2] = hn::Add(even, odd);
    w[3] = hn::Sub(even, odd);
    w[4] = hn::Sub(outer, tilt);
    w[5] = w5;
}

template <int kDegree>
HWY_INLINE VF Stencil(DF d, const float* c, hn::Vec<hn::RebindToSigned<DF>> first, int width,
                      const VF* wx, const VF* wy) {
    const hn::RebindToSigned<DF> di;
    const auto stride = hn::Set(di, width);
    VF sum = hn::Zero(d);
    auto at = first;
    for (int l = 0; l <= kDegree; l++, at = hn::Add(at, stride)) {
        VF s = hn::Mul(wx[0], hn::GatherIndex(d, c, at));
        for (int m = 1; m <= kDegree; m++)
            s = hn::Add(s, hn::Mul(wx[m], hn::GatherIndex(d, c, hn::Add(at, hn::Set(di, m)))));
        sum = hn::Add(sum, hn::Mul(wy[l], s));
    }
    return sum;
}

// The kDegree + 2 weights of lanes whose stencils start at one of two
// neighbouring samples: those in `late` start one sample later and weigh
// the first 0, the others weigh the last 0.
template <int kDegree>
HWY_INLINE void SpreadWeights(DF d, const VF* w, hn::Mask<DF> late, VF* out) {
    for (int q = 0; q <= kDegree + 1; q++)
        out[q] =
            hn::IfThenElse(late, q > 0 ? w[q - 1] : hn::Zero(d), q <= kDegree ? w[q] : hn::Zero(d));
}

// When the stencils of a vector start at one column offset from their
// pixels, or at two neighbouring ones, and in one row or two neighbouring
// ones, each tap of a source row is one plain load at that offset: lane k
// of the load from `start` + q is the coefficient q + k samples on. The
// lanes that start a column or a row later weigh the extra tap or row 0
// (`wx`, `wy` already spread so), which adds exact zeros to each sum.
// Products and sums are written apart, as in Stencil: the compiler then
// contracts both alike, and the figures stay those of the gather.
template <int kTaps>
HWY_INLINE VF Rows(DF d, const float* start, int width, int rows, const VF* wx, const VF* wy) {
    VF sum = hn::Zero(d);
    for (int l = 0; l < rows; l++, start += width) {
        VF s = hn::Mul(wx[0], hn::LoadU(d, start));
        for (int q = 1; q < kTaps; q++) s = hn::Add(s, hn::Mul(wx[q], hn::LoadU(d, start + q)));
        sum = hn::Add(sum, hn::Mul(wy[l], s));
    }
    return sum;
}

// The pixels of one vector from col on; dx, dy and out hold its lanes.
// `lanes` holds 0, 1, 2, ...: made once, for Iota builds it through memory.
template <int kDegree>
HWY_INLINE void WarpLanes(DF d, const float* c, int width, int height, int row, int col,
                          hn::Vec<hn::RebindToSigned<DF>> lanes, const float* dx, const float* dy,
                          float inv, float low, float high, float* out, int* pending, int& count,
                          int valid) {
    const hn::RebindToSigned<DF> di;
    const VF vinv = hn::Set(d, inv);
    const auto cols = hn::Add(lanes, hn::Set(di, col));
    const VF x = hn::Add(hn::ConvertTo(d, cols), hn::Mul(hn::LoadU(d, dx), vinv));
    const VF y = hn::Sub(hn::Set(d, float(row)), hn::Mul(hn::LoadU(d, dy), vinv));
    const VF edge = hn::Set(d, -0.5f);
    // NaN fails every comparison, so it reads as outside too.
    const auto inside = hn::And(hn::And(hn::Gt(x, edge), hn::Gt(y, edge)),
                                hn::And(hn::Lt(x, hn::Set(d, float(width) - 0.5f)),
                                        hn::Lt(y, hn::Set(d, float(height) - 0.5f))));
    // Only positions inside the image are converted to int.
    const VF xs = hn::IfThenElseZero(inside, x), ys = hn::IfThenElseZero(inside, y);
    const VF fx = hn::Floor(xs), fy = hn::Floor(ys);
    const auto back = hn::Set(di, kDegree / 2);
    const auto i0 = hn::Sub(hn::ConvertTo(di, fx), back);
    const auto j0 = hn::Sub(hn::ConvertTo(di, fy), back);
    const auto zero = hn::Zero(di);
    const auto fits =
        hn::And(hn::And(hn::Not(hn::Lt(i0, zero)), hn::Not(hn::Lt(j0, zero))),
                hn::And(hn::Lt(hn::Add(i0, hn::Set(di, kDegree)), hn::Set(di, width)),
                        hn::Lt(hn::Add(j0, hn::Set(di, kDegree)), hn::Set(di, height))));
    const auto interior = hn::And(inside, hn::RebindMask(d, fits));
    const auto first = hn::IfThenElseZero(hn::RebindMask(di, interior),
                                          hn::Add(hn::Mul(j0, hn::Set(di, width)), i0));
    VF wx[kDegree + 1], wy[kDegree + 1];
    if (kDegree == 3) {
        CubicWeights(d, hn::Sub(xs, fx), wx);
        CubicWeights(d, hn::Sub(ys, fy), wy);
    } else {
        QuinticWeights(d, hn::Sub(xs, fx), wx);
        QuinticWeights(d, hn::Sub(ys, fy), wy);
    }
    VF v;
    // Each lane's first column from the vector's leftmost stencil start
    // (that of lane 0 shifted by the lane), and its first row from the top.
    // Lane 0's, one less where another lane lies before it, serve as those
    // in the cases the row loads take; the others fail the test below.
    const auto lag = hn::Sub(i0, cols);
    const auto one = hn::Set(di, 1), two = hn::Set(di, 2);
    int32_t lead = hn::GetLane(lag), top = hn::GetLane(j0);
    auto late = hn::Sub(lag, hn::Set(di, lead)), down = hn::Sub(j0, hn::Set(di, top));
    if (!hn::AllFalse(di, hn::Lt(late, zero))) lead -= 1, late = hn::Add(late, one);
    if (!hn::AllFalse(di, hn::Lt(down, zero))) top -= 1, down = hn::Add(down, one);
    const bool wide = !hn::AllTrue(di, hn::Eq(late, zero));
    const bool tall = !hn::AllTrue(di, hn::Eq(down, zero));
    const int rows = tall ? kDegree + 2 : kDegree + 1, taps = wide ? kDegree + 2 : kDegree + 1;
    const int64_t origin = int64_t(top) * width + col + lead;
    // Every load, the last of the last row included, stays inside the
    // coefficients. A stencil across the left or right border reads the
    // end of the row before or the start of the row after: such a lane is
    // not interior, and the folding evaluation writes it again.
    if (origin >= 0 && hn::AllTrue(d, inside) &&
        hn::AllTrue(di, hn::And(hn::Lt(late, two), hn::Not(hn::Lt(late, zero)))) &&
        hn::AllTrue(di, hn::And(hn::Lt(down, two), hn::Not(hn::Lt(down, zero)))) &&
        origin + int64_t(rows - 1) * width + taps - 1 + int64_t(hn::Lanes(d)) <=
            int64_t(width) * height) {
        VF sx[kDegree + 2], sy[kDegree + 2];
        SpreadWeights<kDegree>(d, wy, hn::RebindMask(d, hn::Eq(down, one)), sy);
        const float* start = c + origin;
        if (wide) {
            SpreadWeights<kDegree>(d, wx, hn::RebindMask(d, hn::Eq(late, one)), sx);
            v = Rows<kDegree + 2>(d, start, width, rows, sx, sy);
        } else {
            v = Rows<kDegree + 1>(d, start, width, rows, wx, sy);
        }
    } else {
        v = hn::IfThenElseZero(inside, Stencil<kDegree>(d, c, first, width, wx, wy));
    }
    hn::StoreU(hn::Min(hn::Max(v, hn::Set(d, low)), hn::Set(d, high)), d, out);
    const auto border = hn::AndNot(interior, inside);
    if (hn::AllFalse(d, border)) return;
    HWY_ALIGN int32_t flags[hn::MaxLanes(di)];
    hn::Store(hn::VecFromMask(di, hn::RebindMask(di, border)), di, flags);
    for (int k = 0; k < valid; k++)
        if (flags[k]) pending[count++] = col + k;
}

template <int kDegree>
int WarpRow(const float* c, int width, int height, int row, const float* dxRow, const float* dyRow,
            float inv, float low, float high, float* out, int* pending) {
    const DF d;
    const auto lanes = hn::Iota(hn::RebindToSigned<DF>(), 0);
    const int n = int(hn::Lanes(d));
    int count = 0, col = 0;
    for (; col + n <= width; col += n)
        WarpLanes<kDegree>(d, c, width, height, row, col, lanes, dxRow + col, dyRow + col, inv, low,
                           high, out + col, pending, count, n);
    if (col < width) {
        // The last pixels through one padded vector.
        HWY_ALIGN float dx[hn::MaxLanes(d)] = {}, dy[hn::MaxLanes(d)] = {}, o[hn::MaxLanes(d)];
        const int rest = width - col;
        for (int k = 0; k < rest; k++) dx[k] = dxRow[col + k], dy[k] = dyRow[col + k];
        WarpLanes<kDegree>(d, c, width, height, row, col, lanes, dx, dy, inv, low, high, o, pending,
                           count, rest);
        for (int k = 0; k < rest; k++) out[col + k] = o[k];
    }
    return count;
}

int WarpSplineRowImpl(const float* c, int width, int height, int degree, int row,
                      const float* dxRow, const float* dyRow, float inv, float low, float high,
                      float* out, int* pending) {
    if (degree == 3)
        return WarpRow<3>(c, width, height, row, dxRow, dyRow, inv, low, high, out, pending);
    return WarpRow<5>(c, width, height, row, dxRow, dyRow, inv, low, high, out, pending);
}

}  // namespace HWY_NAMESPACE
}  // namespace PIV
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace PIV {

HWY_EXPORT(WarpSplineRowImpl);

int WarpSplineRow(const float* coeffs, int width, int height, int degree, int row,
                  const float* dxRow, const float* dyRow, float inv, float low, float high,
                  float* out, int* pending) {
    return HWY_DYNAMIC_DISPATCH(WarpSplineRowImpl)(coeffs, width, height, degree, row, dxRow, dyRow,
                                                   inv, low, high, out, pending);
}

}  // namespace PIV
#endif  // HWY_ONCE
