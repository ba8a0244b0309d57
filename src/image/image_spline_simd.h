// The B-spline prefilter over many lines at once.
#pragma once

namespace PIV {
namespace Spline {

// How many lines FilterInterleavedLines takes at a time.
constexpr int kInterleavedLines = 16;

// The recursive filter of ConvertToInterpolationCoefficients, with the same
// mirror boundaries and the same order of operations, on kInterleavedLines
// lines of length n stored side by side: sample k of line j is
// lines[k * kInterleavedLines + j].
void FilterInterleavedLines(double* lines, int n, const double* poles, int poleCount,
                            double tolerance);

}  // namespace Spline
}  // namespace PIV
