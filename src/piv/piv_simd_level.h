// Whether the scan correlators use their vector loops. The level names the
// best instruction set the machine offers: 0 none, 2 SSE2, 3 SSSE3, 4 SSE4
// (or a vector unit of another architecture), 5 AVX2, 6 AVX-512. The loops
// choose their instruction set at run time, so the only choice left to a
// user is on or off: any level above 0 turns on what the machine has.
#pragma once

// The level in use: 0 when switched off or when the machine has no vector
// unit the loops know.
int PIV_SIMD_Info();
// 0 or below switches the vector loops off, anything above on.
void PIV_Set_SIMD_Level(int level);

namespace PIV {
inline int SIMD_Info() {
    return PIV_SIMD_Info();
}
}  // namespace PIV
