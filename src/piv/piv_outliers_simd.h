// Medians of full neighbourhoods of eight, many nodes at once, one node per
// vector lane (piv_outliers_simd.cpp): the median test of a field's inner
// nodes.
#pragma once

#include <cstddef>

namespace PIV {
namespace Outliers {

// For n nodes, neighbour k of node i being values[k][i]: the median of the
// eight and the median of their absolute deviations from it, bit for bit
// what Median and ResidualMedian give.
void MediansOfEight(const float* const* values, size_t n, float* median, float* residual);

}  // namespace Outliers
}  // namespace PIV
