// Shared pieces of the validation sources: the tag values and the one way a
// vector is rejected.
#pragma once

#include "piv_types.h"

namespace PIV {
namespace Outliers {

// Tags of the validation work array: 0 good or untested, 4 interpolated in
// this pass, above 7 rejected.
constexpr unsigned char kInterpolated = 4;
constexpr unsigned char kRejected = 8;

// A rejected vector keeps its displacement; only its status changes.
inline void Reject(PIV_VECTOR& v) {
    v.flag = static_cast<uint8_t>((v.flag & ~(VECTOR_ENABLED | VECTOR_OUTLIER)) | VECTOR_OUTLIER);
}

// The exchanges that sort eight values (Median, MediansOfEight): lower
// index gets the minimum.
constexpr unsigned char kSortEight[19][2] = {{0, 2}, {1, 3}, {4, 6}, {5, 7}, {0, 4}, {1, 5}, {2, 6},
                                             {3, 7}, {0, 1}, {2, 3}, {4, 5}, {6, 7}, {2, 4}, {3, 5},
                                             {1, 4}, {3, 6}, {1, 2}, {3, 4}, {5, 6}};

// Median of 3 to 8 values, the mean of the middle two for an even count; 0
// for any other count. Reorders its input.
float Median(float* values, int n);
// Median of the absolute deviations of the n values from m.
float ResidualMedian(const float* values, int n, float m);

}  // namespace Outliers
}  // namespace PIV
