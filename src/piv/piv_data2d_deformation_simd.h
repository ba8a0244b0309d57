// The field's displacements along one image row, many columns at once.
#pragma once

#include <cstdint>

namespace PIV {

// dx[i] and dy[i] for columns i = 0 .. width-1: the sums over the taps m of
// weight[m * width + i] times lineX (lineY) at index[m * width + i], in
// double, saturated at float's limits (NaN stays NaN) and stored as float.
void MapFieldColumns(const double* lineX, const double* lineY, const int64_t* index,
                     const double* weight, int taps, int width, float* dx, float* dy);

}  // namespace PIV
