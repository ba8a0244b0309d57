// Weighting windows for interrogation samples (PIV::FFTWindowType).
#pragma once

namespace PIV {

// The one-dimensional weight of cell i of n for the separable types 1 to 6
// (Tukey, Blackman, Hann, Hamming, cosine, Gauss); 1 for anything else.
double FFTWindowWeight1D(int type, int i, int n);

// Fills `out` (rows `stride` floats apart, cells beyond width set to 0) with
// the weights of a width x height window, scaled so that the largest is 1.
// Types 1 to 6 are products of the 1-D weights; 7 to 9 (the LFC windows)
// are their own 2-D functions; 0 or an unknown type gives all ones.
void CreateFFTWindow(int type, int width, int height, int stride, float* out);

}  // namespace PIV
