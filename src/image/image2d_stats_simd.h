// The moments of image rows, vectorised (image2d_stats_simd.cpp): the sums
// an image's statistics come from, added up row by row.
#pragma once

#include <cstddef>
#include <cstdint>

namespace PIV {
namespace Simd {

// Running totals over the rows so far. Set the extremes of the type in use
// to the first pixel before the first row.
struct RowMoments {
    uint64_t intSum = 0, intSquares = 0;
    uint32_t intMin = 0, intMax = 0;
    double floatSum = 0.0, floatSquares = 0.0;
    float floatMin = 0.0f, floatMax = 0.0f;
};

// Adds the n pixels of a row. Integer rows are summed exactly; float rows
// in double, in an order of their own; a NaN never becomes an extreme.
void AddRow(const uint8_t* row, size_t n, RowMoments& m);
void AddRow(const uint16_t* row, size_t n, RowMoments& m);
void AddRow(const float* row, size_t n, RowMoments& m);

}  // namespace Simd
}  // namespace PIV
