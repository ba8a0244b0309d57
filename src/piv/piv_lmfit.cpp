#include "piv_lmfit.h"

#include <cminpack.h>

#include <algorithm>
#include <cfloat>

const PIV::LM_CONTROL PIV::lm_control_double = {
    30.0 * DBL_EPSILON, 30.0 * DBL_EPSILON, 30.0 * DBL_EPSILON, 30.0 * DBL_EPSILON, 100.0, 100, 1,
};

void PIV::LmWorkspace::reserve(int m, int n) {
    auto grow = [](auto& v, size_t size) {
        if (v.size() < size) v.resize(size);
    };
    grow(fvec, size_t(m));
    grow(fjac, size_t(m) * size_t(n));
    grow(wa4, size_t(m));
    grow(qtf, size_t(n));
    grow(wa1, size_t(n));
    grow(wa2, size_t(n));
    grow(wa3, size_t(n));
    grow(diag, size_t(n));
    grow(ipvt, size_t(n));
}

void PIV::LmFitPoints::reserve(int n) {
    const size_t size = size_t(std::max(n, 0));
    if (x.size() >= size) return;
    x.resize(size);
    y.resize(size);
    value.resize(size);
    weight.resize(size);
}

void PIV::LmFitPoints::add(double px, double py, double v, double w) {
    if (size_t(count) >= x.size()) {
        const size_t grown = std::max<size_t>(64, x.size() * 2);
        x.resize(grown);
        y.resize(grown);
        value.resize(grown);
        weight.resize(grown);
    }
    x[count] = px;
    y[count] = py;
    value[count] = v;
    weight[count] = w;
    count++;
}

PIV::LmResult PIV::LmMinimize(LmResidualFn fcn, void* user, int m, int n, double* params,
                              LmWorkspace& ws, const LM_CONTROL& control) {
    LmResult result{0, 0, 0.0};
    if (m < n || n < 1) return result;
    ws.reserve(m, n);
    const int mode = control.scale_diag ? 1 : 2;
    if (mode == 2) std::fill(ws.diag.begin(), ws.diag.begin() + n, 1.0);
    result.info = lmdif(fcn, user, m, n, params, ws.fvec.data(), control.ftol, control.xtol,
                        control.gtol, control.patience * (n + 1), control.epsilon, ws.diag.data(),
                        mode, control.stepbound, 0, &result.nfev, ws.fjac.data(), m, ws.ipvt.data(),
                        ws.qtf.data(), ws.wa1.data(), ws.wa2.data(), ws.wa3.data(), ws.wa4.data());
    // The residuals at the returned parameters: lmdif leaves them in fvec.
    result.error = enorm(m, ws.fvec.data());
    return result;
}
