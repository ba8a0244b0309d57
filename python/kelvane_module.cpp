// The module kelvane: kelvane-eval's evaluation on numpy arrays.
#include "module.h"
#include "piv_fft_plans.h"
#include "piv_util.h"

PYBIND11_MODULE(kelvane, m) {
    m.doc() =
        "PIV evaluation of image pairs held as numpy arrays, the same as kelvane-eval's.\n"
        "Displacements are in pixels; dy counts upwards, against the image rows.";
    m.attr("__version__") = PIV::LibraryVersion();
    // Estimated plans only, as the tool: a script gives the tool's field.
    PIV::SetMeasuredFFTPlans(false);
    kelvane_py::RegisterErrors(m);
    kelvane_py::RegisterResult(m);
    kelvane_py::RegisterParameters(m);
    kelvane_py::RegisterImages(m);
    kelvane_py::RegisterEvaluate(m);
}
