// The post-processing chain after an evaluation, as the program applies it
// before it shows or saves a field: differentials of the raw field, a copy
// that is filled, filtered, masked, converted to physical units and
// differentiated again. The window and the command-line evaluator both run
// it through this one function.
#pragma once

#include <string>

#include "piv_types.h"

class PIV_Data2D;
class PIV_Parameters;

namespace PIV {

struct PostProcessResult {
    bool ok = false;
    int code = 0;        // PIVerror code of the step that failed, 0 on success
    std::string reason;  // that step's text, e.g. "Smoothing of data failed"
    // Steps that failed without ending the chain (a merge, a transform).
    std::string warnings;
};

// Runs the chain from `source` into `result` under `cfg`; `parameters`
// carries the conversion to physical units. The source keeps its vectors
// but gains differentials. A failing step ends the chain with its reason;
// `result` keeps what the steps before it made and has fresh statistics.
//   1 an empty source: "No data available" (14)
//   2 differentiate the source           7 median filter (MedianApply)
//   3 copy into result                   8 Gaussian smoothing (SmoothApply)
//   4 merge with a data file (Apply)     9 mask from MaskFile (MaskEnable)
//   5 transform (transformation.Apply)  10 conversion to physical units
//   6 fill disabled vectors             11 differentiate the result
//                                       12 statistics
// A mask of another size than the field's image is passed over.
PostProcessResult PostProcessData(PIV_Data2D& source, PIV_Data2D& result,
                                  const POSTPROCESS_CFG& cfg, const PIV_Parameters* parameters);

}  // namespace PIV
