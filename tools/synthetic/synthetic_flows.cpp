#include "synthetic_flows.h"

#include <cmath>

namespace synth {

namespace {
constexpr double kPi = 3.14159265358979323846;
}

void UniformFlow::displacement(double, double, double& dx, double& dy) const {
    dx = dx_;
    dy = dy_;
}

void ShearFlow::displacement(double, double y, double& dx, double& dy) const {
    dx = dx0_ + gradient_ * (y - yRef_);
    dy = dy0_;
}

void SinusoidalFlow::displacement(double, double y, double& dx, double& dy) const {
    dx = amplitude_ * std::sin(2.0 * kPi * y / wavelength_ + phase_);
    dy = dy0_;
}

void LambOseenVortex::displacement(double x, double y, double& dx, double& dy) const {
    const double rx = x - xc_, ry = y - yc_;
    const double r2 = rx * rx + ry * ry;
    const double rc2 = rc_ * rc_;
    // Tangential displacement divided by r. (1 - exp(-r^2/rc^2)) / r^2 tends to
    // 1/rc^2 at the centre; expm1 keeps it accurate for r << rc instead of
    // cancelling to zero.
    const double perRadius = r2 > 0.0 ? gamma_ / (2.0 * kPi) * (-std::expm1(-r2 / rc2)) / r2
                                      : gamma_ / (2.0 * kPi * rc2);
    dx = -perRadius * ry;
    dy = perRadius * rx;
}

}  // namespace synth
