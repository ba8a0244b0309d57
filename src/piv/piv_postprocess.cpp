#include "piv_postprocess.h"

#include "image2d.h"
#include "piv_data2d.h"
#include "piv_error.h"
#include "piv_messages.h"
#include "piv_params.h"

namespace PIV {

namespace {

struct StepFailed {
    int code;
    const char* reason;
};

}  // namespace

PostProcessResult PostProcessData(PIV_Data2D& source, PIV_Data2D& result,
                                  const POSTPROCESS_CFG& cfg, const PIV_Parameters* parameters) {
    PostProcessResult r;
    try {
        if (source.isNull()) throw StepFailed{PIVerror::DATA_IS_NULL, "No data available"};
        if (!source.differentiate())
            throw StepFailed{PIVerror::OPERATION_FAILED, "Differentiation of raw data failed"};
        result = source;
        result.setFlagSmoothed(false);
        result.setFlagMedianFiltered(false);
        if (cfg.combine.Apply) {
            // Merging with another data file has no definition in the library
            // yet: it fails as a real merge of mismatched grids would, and the
            // chain goes on without it.
            r.warnings += "Merge with data failed (possible image size mismatch)\n";
        }
        // Nor has the transformation of a vector field: it always fails.
        if (cfg.transformation.Enable)
            throw StepFailed{PIVerror::OPERATION_FAILED, "Transform of data failed"};
        if (cfg.InterpolateDisabledVectors) result.interpolateOutliers(false);
        if (cfg.MedianApply && !result.medianFilter(cfg.MedianSize))
            throw StepFailed{PIVerror::OPERATION_FAILED, "Median filter on data failed"};
        if (cfg.SmoothApply && !result.smoothGauss(cfg.SmoothKernel, 0.05f))
            throw StepFailed{PIVerror::OPERATION_FAILED, "Smoothing of data failed"};
        if (cfg.MaskEnable) {
            Image2D mask;
            if (cfg.MaskFile[0] && mask.load(cfg.MaskFile)) {
                if (cfg.MaskInvert) mask.negative(0);
                const SIZE3D& image = result.grid().imageSize;
                if (int(mask.width()) == image.width && int(mask.height()) == image.height &&
                    !result.maskOutVectors(mask))
                    throw StepFailed{PIVerror::OPERATION_FAILED,
                                     "Data masking failed (check mask image size)"};
            } else {
                r.warnings += "Mask file could not be read: ";
                r.warnings += cfg.MaskFile;
                r.warnings += "\n";
            }
        }
        if (!result.convert(parameters))
            throw StepFailed{PIVerror::OPERATION_FAILED, "Conversion to physical units failed"};
        if (!result.differentiate())
            throw StepFailed{PIVerror::OPERATION_FAILED, "Differentiation of data failed"};
        result.doStatistics();
        r.ok = true;
    } catch (const StepFailed& f) {
        r.code = f.code;
        r.reason = f.reason;
        if (!result.isNull()) result.doStatistics();
    }
    return r;
}

}  // namespace PIV
