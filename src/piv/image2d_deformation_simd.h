// The interior of the B-spline warp, many pixels at once: the cubic and the
// quintic, whose stencils are read from the coefficients without folding.
#pragma once

namespace PIV {

// Warps one target row of a `width` x `height` image from its spline
// coefficients (`degree` 3 or 5): pixel col reads the source at
//   x = col + dxRow[col] * inv,  y = row - dyRow[col] * inv,
// and gets the spline there, clipped to [low, high]; a point outside the
// image gives 0, clipped likewise. Pixels whose stencil crosses the border
// are not written: their columns go to `pending` (width ints), for the
// folding evaluation, and their count is returned.
int WarpSplineRow(const float* coeffs, int width, int height, int degree, int row,
                  const float* dxRow, const float* dyRow, float inv, float low, float high,
                  float* out, int* pending);

}  // namespace PIV
