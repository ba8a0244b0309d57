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

// The same on kInterleavedLines rows of `width` samples, taken from `rows`
// (the same row may come more than once) through `lines` (width times
// kInterleavedLines doubles) and stored back into the first `used` of them.
void FilterInterleavedRows(float* const* rows, int width, int used, double* lines,
                           const double* poles, int poleCount, double tolerance);

// The same on kInterleavedLines columns of a `width` x `height` image from
// the one `data` points at, of which `used` lie inside the image.
void FilterInterleavedColumns(float* data, int width, int height, int used, double* lines,
                              const double* poles, int poleCount, double tolerance);

}  // namespace Spline
}  // namespace PIV
