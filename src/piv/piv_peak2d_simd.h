// The sweeps of the peak search over a correlation plane, vectorised
// (piv_peak2d_simd.cpp). In every one a NaN cell is passed over: it never
// becomes an extreme, a maximum or a candidate.
#pragma once

#include <cstddef>
#include <cstdint>

namespace PIV {
namespace Simd {

// Least and greatest of the n values, both starting from p[0], and the sum
// of their squares in double.
void ScanPlane(const float* p, size_t n, float& least, float& greatest, double& squares);

// The greatest of start and the n values; start when none exceeds it.
float GreatestOf(const float* p, size_t n, float start);

// Bit i of the (n + 63) / 64 words is set where line[i] is above
// line[i - 1], line[i + 1], up[i], down[i] and floor, for i from 1 to n - 2;
// every other bit is cleared.
void PeakCandidates(const float* line, const float* up, const float* down, size_t n, float floor,
                    uint64_t* bits);

}  // namespace Simd
}  // namespace PIV
