// The field's displacements along one image row, many columns at once.
#pragma once

namespace PIV {

// dx[i] and dy[i] for columns i = 0 .. width-1 from the rows of cubic
// spline coefficients lineX and lineY (`nodes` each, mirror-folded at the
// ends): column i lies in node interval j for runStart[j] <= i <
// runStart[j + 1] (j = 0 .. nodes-1, runStart[nodes] = width), at fraction
// t[i] of it. Sums in double, saturated at float's limits (NaN stays NaN)
// and stored as float.
void MapFieldColumns(const double* lineX, const double* lineY, int nodes, const int* runStart,
                     const double* t, int width, float* dx, float* dy);

}  // namespace PIV
