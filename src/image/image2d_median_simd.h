// The median of full square windows along one row, one output pixel per
// vector lane: the neighbours are vectors loaded from the shifted source rows
// and a fixed network of Min/Max exchanges selects the middle value. The
// result is bitwise the per-pixel selection's, except for floats holding NaN
// or -0, which the caller keeps away from these rows.
#pragma once

#include <cstdint>

namespace PIV {
namespace MedianRows {

// Writes out[x] for every x in [x0, x1): the median of the window of radius
// r (1 or 2) around column x, rows[0 .. 2r] being the source rows from r above
// to r below the output row. Reads rows[..][x0 - r .. x1 - 1 + r]. Returns
// false, writing nothing, when the run is narrower than one vector.
bool Median(const uint8_t* const* rows, uint8_t* out, int64_t x0, int64_t x1, int r);
bool Median(const uint16_t* const* rows, uint16_t* out, int64_t x0, int64_t x1, int r);
bool Median(const uint32_t* const* rows, uint32_t* out, int64_t x0, int64_t x1, int r);
bool Median(const float* const* rows, float* out, int64_t x0, int64_t x1, int r);

// On by default. Off, the filters take the plain per-pixel selection
// everywhere: the reference the vector rows are held to.
void SetEnabled(bool on);
bool Enabled();

}  // namespace MedianRows
}  // namespace PIV
