// The least-squares paraboloid through the logarithms of a 3x3
// neighbourhood: the sub-pixel fit of the FFT planes (in float) and of the
// scan correlators' planes (in double).
#pragma once

#include <cmath>

namespace PIV {

// ln(v), with -1000 standing for the logarithm of anything not positive.
template <typename T>
inline T SafeLog(T v) {
    return v > T(0) ? std::log(v) : T(-1000);
}

// v holds the nine logarithms in the order of CORR_PEAK_DATA::value: centre,
// north, south, east, west, north-west, south-west, north-east, south-east
// (north the row above). Returns the determinant of the paraboloid; when it
// is not 0, subX and subY take the offset of its vertex from the centre.
template <typename T>
inline T Lsq3x3Paraboloid(const T v[9], T& subX, T& subY) {
    const T c = v[0], n = v[1], s = v[2], e = v[3], w = v[4];
    const T nw = v[5], sw = v[6], ne = v[7], se = v[8];
    const T B = (sw - se - nw + ne) / T(4);
    const T M = (c + n + s + e + w + nw + sw + ne + se) / T(3);
    const T Axx = (se + sw + w + e + nw + ne) / T(2) - M;
    const T Ayy = (sw + s + se + nw + n + ne) / T(2) - M;
    const T D = B * B - T(4) * Axx * Ayy;
    const T Dx = (se - sw - w + e - nw + ne) / T(6);
    const T Dy = (-sw - s - se + nw + n + ne) / T(6);
    if (D != T(0)) {
        subX = (T(2) * Ayy * Dx - B * Dy) / D;
        subY = (B * Dx - T(2) * Axx * Dy) / D;
    }
    return D;
}

}  // namespace PIV
