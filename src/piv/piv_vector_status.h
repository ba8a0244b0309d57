// The one-word status of a vector that a status line has room for.
#pragma once

#include <cstdint>

// "valid", "masked", "no result", "disabled" (switched off by hand),
// "outlier", "interpolated", "filtered" or "lower peak": the first that the
// flags byte holds, in this order.
const char* PIV_GetVectorStatus(uint8_t flag);
