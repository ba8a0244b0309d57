// Displacement fields with closed-form truth, for synthetic particle images.
//
// Coordinates are image pixel coordinates: x runs to the right along a row and
// y runs DOWN through the rows. The program's vector record counts dy upwards,
// so a vector it measures has dy == -flow dy.
#pragma once

namespace synth {

// A displacement field in pixels, between image A and image B.
class Flow {
public:
    virtual ~Flow() = default;
    virtual void displacement(double x, double y, double& dx, double& dy) const = 0;
};

class UniformFlow : public Flow {
public:
    UniformFlow(double dx, double dy) : dx_(dx), dy_(dy) {}
    void displacement(double x, double y, double& dx, double& dy) const override;

private:
    double dx_, dy_;
};

// Linear shear: dx = dx0 + gradient * (y - yRef), dy = dy0.
class ShearFlow : public Flow {
public:
    ShearFlow(double dx0, double gradient, double yRef, double dy0 = 0.0)
        : dx0_(dx0), gradient_(gradient), yRef_(yRef), dy0_(dy0) {}
    void displacement(double x, double y, double& dx, double& dy) const override;

private:
    double dx0_, gradient_, yRef_, dy0_;
};

// dx = amplitude * sin(2 pi y / wavelength + phase), dy = dy0.
class SinusoidalFlow : public Flow {
public:
    SinusoidalFlow(double amplitude, double wavelength, double phase = 0.0, double dy0 = 0.0)
        : amplitude_(amplitude), wavelength_(wavelength), phase_(phase), dy0_(dy0) {}
    void displacement(double x, double y, double& dx, double& dy) const override;

private:
    double amplitude_, wavelength_, phase_, dy0_;
};

// Lamb-Oseen vortex centred on (xc, yc) with core radius rc. The tangential
// displacement at radius r is gamma / (2 pi r) * (1 - exp(-r^2 / rc^2)): solid
// body rotation inside the core, a potential vortex far outside it, zero at
// the centre. A positive gamma turns the +x axis towards +y, i.e. clockwise as
// seen on screen (y down).
class LambOseenVortex : public Flow {
public:
    LambOseenVortex(double xc, double yc, double gamma, double rc)
        : xc_(xc), yc_(yc), gamma_(gamma), rc_(rc) {}
    void displacement(double x, double y, double& dx, double& dy) const override;

private:
    double xc_, yc_, gamma_, rc_;
};

}  // namespace synth
