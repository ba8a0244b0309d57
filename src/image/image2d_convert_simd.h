// Integer pixels widened to float, vectorised (image2d_convert_simd.cpp):
// the loop of a conversion to float and of a reader that converts the rows
// of a file as it reads them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace PIV {
namespace Simd {

// out[i] = in[i] for the n pixels of a row; every value of 16 bits and less
// is a float exactly, so the result does not depend on the loop.
void WidenRow(const uint8_t* in, size_t n, float* out);
void WidenRow(const uint16_t* in, size_t n, float* out);

// The plain loop, the reference of the vector one.
template <typename T>
void WidenRowPlain(const T* in, size_t n, float* out) {
    for (size_t i = 0; i < n; i++) out[i] = static_cast<float>(in[i]);
}

}  // namespace Simd
}  // namespace PIV
