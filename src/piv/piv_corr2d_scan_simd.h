// The loops of the scan correlators (piv_corr2d_scan_simd.cpp): every shift
// of a scan range evaluated over the whole sample. The vector loops hold
// neighbouring shifts in their lanes, so every coefficient is summed in the
// order of the plain loop, row by row, and both give the same bits.
#pragma once

namespace PIV {
namespace Scan {

// The sample (width x height, rows `width` apart) and the scan area (rows
// `areaWidth` apart), whose cell (i, j) is the upper left corner of the
// window compared at plane cell (i, j) of a planeWidth x planeHeight plane.
struct Windows {
    const float* sample;
    int width, height;
    const float* area;
    int areaWidth;
    int planeWidth, planeHeight;
};

// Minimum quadratic difference: sum of (b - a)^2, in float.
void MqdPlain(const Windows& s, float* coeffs);
void Mqd(const Windows& s, float* coeffs);
// Error correlation function: sum |b - a| / sum (a + b) in double, 0 where
// the sum of a + b is 0.
void ErrorFunctionPlain(const Windows& s, float* coeffs);
void ErrorFunction(const Windows& s, float* coeffs);
// Direct cross-correlation: each window's mean (double sum, kept as float)
// goes to means; the coefficient is sum (a - ma)(b - mb) over the square
// root of sum (a - ma)^2 * sum (b - mb)^2 in double, 0 where that product is
// not positive.
void CrossPlain(const Windows& s, float sampleMean, float* means, float* coeffs);
void Cross(const Windows& s, float sampleMean, float* means, float* coeffs);

}  // namespace Scan
}  // namespace PIV
