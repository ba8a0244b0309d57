// B-spline interpolation of images: the recursive prefilter that turns
// samples into spline coefficients, and the evaluation of the spline at any
// point. The filter and the evaluation run in double; coefficients are
// stored as float, rows packed (width floats per row).
//
// Degree 1 is the shifted linear method: a first-order filter and a linear
// spline evaluated a fixed fraction of a pixel off the samples.
#pragma once

#include <cstdint>

// The spline degree a deformation or resampling really uses: 2 below degree 2
// and for the bilinear method, otherwise the degree, at most 9.
int getDeformOrder(int degree, int method);

// Filters rows and then columns of `data` in place into coefficients.
// 0 on success, 1 for a degree of 0 or above 9. Not vectorised, every line
// goes through ConvertToInterpolationCoefficients on its own: the reference
// the vector loop is held to.
int Image2DToSplineCoefficients(float* data, int width, int height, int degree,
                                bool vectorised = true);

// The in-place recursive filter of one line for the given poles, with mirror
// boundaries. A line of length 1 is left alone.
void ConvertToInterpolationCoefficients(double* line, int length, const double* poles,
                                        int poleCount, double tolerance);

// The spline at (x, y); indices outside the array are folded by mirror.
double InterpolatedSplineValue2D(const float* coefficients, int width, int height, double x,
                                 double y, int degree);

namespace PIV {
namespace Spline {

// The poles of the prefilter for degrees 2..9; their count, 0 otherwise.
int Poles(int degree, double poles[4]);

// B-spline weights of degree 2..9 at `x` for the indices first..first+degree;
// `first` is returned.
int Weights(double x, int degree, double* weights);

// Mirror folding of an index into 0..size-1 with period 2 size - 2.
inline int64_t Mirror(int64_t k, int64_t size) {
    // Inside, or folded once at an end: the stencils near the border, with
    // no division.
    if (k >= 0 && k < size) return k;
    if (size <= 1) return 0;
    if (k < 0 && k > -size) return -k;
    if (k >= size && k <= 2 * size - 2) return 2 * size - 2 - k;
    const int64_t period = 2 * size - 2;
    k %= period;
    if (k < 0) k += period;
    return k < size ? k : period - k;
}

}  // namespace Spline
}  // namespace PIV
