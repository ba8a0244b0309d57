#include "piv_vector_status.h"

#include "piv_types.h"

const char* PIV_GetVectorStatus(uint8_t flag) {
    if (flag & VECTOR_MASKED) return "masked";
    if (flag & VECTOR_NO_RESULT) return "no result";
    if (!(flag & VECTOR_ENABLED)) return (flag & VECTOR_EDITED) ? "disabled" : "outlier";
    if (flag & VECTOR_INTERPOLATED) return "interpolated";
    if (flag & VECTOR_FILTERED) return "filtered";
    if (flag & VECTOR_LOWER_PEAK) return "lower peak";
    return "valid";
}
