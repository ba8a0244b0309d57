// The validation kelvane-eval runs when no parameter file says otherwise.
//
// The library's normalized median test looks at dx, dy and the length of
// the vector. The length folds where a component changes sign: on both
// sides of such a row the neighbours' lengths agree, their residual median
// is near 0, and a good vector there is rejected and replaced (a 2 px sine
// of 256 px wavelength then ends 0.065 px RMS off instead of 0.015). At the
// edges of the field, where all neighbours lie on one side, it rejects good
// vectors on any gradient; and it takes another peak of a rejected vector
// without asking whether it fits. The tool therefore runs the test of
// Westerweel and Scarano on the two components of the finished field, with
// the settings of the validation record, neighbours beyond the edge
// extrapolated; the iterative methods validate between their passes as
// they always do.
#pragma once

#include "piv_types.h"

class PIV_Data2D;

namespace eval_tool {

// What the evaluation itself is to validate when the tool validates the
// result: the record's tests that look at one vector alone (signal to noise,
// peak ratio, displacement), no neighbourhood test, no replacement.
OUTLIER_CFG DuringEvaluation(const OUTLIER_CFG& wanted);

// Validates the finished `field` by `cfg`, after the evaluation ran the
// one-vector tests of DuringEvaluation(cfg). Up to NumberOfPasses passes of
// the normalized median on dx and dy over the enabled 3x3 neighbours, the
// decisions of a pass all taken on the field as it entered it; between the
// passes the rejected nodes hold the library's interpolation as stand-ins.
// Then each rejected node tries its other correlation peaks against its
// neighbours and keeps the first that passes; what is left is interpolated
// afresh from the vectors that stand. Leaves the field's record holding
// `cfg`.
void ValidateField(PIV_Data2D& field, const OUTLIER_CFG& cfg);

}  // namespace eval_tool
