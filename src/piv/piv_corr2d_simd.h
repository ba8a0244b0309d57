// The per-window loops of the FFT correlator, vectorised
// (piv_corr2d_simd.cpp): they run once or twice over every window of an
// evaluation, around the transforms.
#pragma once

#include <cstddef>

namespace PIV {
namespace Simd {

// Multiplies the first w cells of each of h rows (stride apart) of a by the
// weights of the same layout, when weights is not null; then sums the w x h
// cells of a and of b in double.
void WeightAndSumWindows(float* a, float* b, const float* weights, size_t w, size_t h,
                         size_t stride, double& sumA, double& sumB);

// Takes meanA from the cells of a and meanB from those of b and returns the
// sums of squares of what is left, in float.
void CenterWindows(float* a, float* b, size_t w, size_t h, size_t stride, float meanA, float meanB,
                   float& squaresA, float& squaresB);

// cross[k] = conj(A[k]) * B[k] * scale over count interleaved complex values.
void CrossPower(const float* a, const float* b, float* cross, size_t count, float scale);

// p[k] /= factor for n values.
void DivideBy(float* p, size_t n, float factor);

}  // namespace Simd
}  // namespace PIV
