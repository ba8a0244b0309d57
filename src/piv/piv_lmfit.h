// Levenberg-Marquardt least squares for the library's non-linear fits (the
// 2-D Gaussian peak fits, mapping functions, particle fits), through
// MINPACK's lmdif with one set of control values.
#pragma once

#include <vector>

namespace PIV {

struct LM_CONTROL {
    double ftol;       // relative error desired in the sum of squares
    double xtol;       // relative error desired in the parameters
    double gtol;       // orthogonality desired between residuals and Jacobian
    double epsilon;    // step of the forward-difference Jacobian
    double stepbound;  // initial bound on the steps
    int patience;      // at most patience * (parameters + 1) evaluations
    int scale_diag;    // 1: variables scaled internally
};

// Tolerances at 30 times the machine epsilon of a double, step bound 100,
// patience 100, diagonal scaling on.
extern const LM_CONTROL lm_control_double;

// Residuals of `n` parameters `x` at `m` points into `fvec`; a negative
// return stops the minimisation. The same shape as MINPACK's callback.
using LmResidualFn = int (*)(void* user, int m, int n, const double* x, double* fvec, int iflag);

// Work arrays of the minimiser; they grow with the problem and are kept, so
// that a detector fitting window after window allocates only when a fit is
// larger than any before.
class LmWorkspace {
public:
    void reserve(int m, int n);
    std::vector<double> fvec, fjac, qtf, wa1, wa2, wa3, wa4, diag;
    std::vector<int> ipvt;
};

// Points of a 2-D fit: coordinates, value and weight; kept between fits.
struct LmFitPoints {
    std::vector<double> x, y, value, weight;
    int count = 0;
    void clear() { count = 0; }
    // Room for n points without growing in add().
    void reserve(int n);
    void add(double px, double py, double v, double w);
};

struct LmResult {
    int info;      // MINPACK's outcome: 1 to 4 converged, 0 bad input, above 4 failed
    int nfev;      // function evaluations
    double error;  // Euclidean norm of the residuals at the end
    // Converged: a user stop (negative info) and MINPACK's failures count as not.
    bool good() const { return info >= 1 && info <= 4; }
};

// Minimises the sum of squares of fcn over the n parameters, started and
// ended in `params`. Needs m >= n.
LmResult LmMinimize(LmResidualFn fcn, void* user, int m, int n, double* params, LmWorkspace& ws,
                    const LM_CONTROL& control = lm_control_double);

}  // namespace PIV
