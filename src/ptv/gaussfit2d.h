// Least-squares fit of a two-dimensional Gaussian to the pixels of a particle
// image, on the library's Levenberg-Marquardt minimiser.
#pragma once

#include "piv_error.h"
#include "piv_lmfit.h"
#include "ptv_types.h"

// Parameters of a fit, in and out. The profile is
// offset + amplitude * exp(-(u^2 / (2 widthX^2) + v^2 / (2 widthY^2))), with
// (u, v) the offset from the centre turned by `rotation` (radians).
struct GAUSSFIT2D_PARAMS {
    double amplitude, offset, cx, cy, widthX, widthY, rotation;
    double error;  // norm of the residuals at the end
    int32_t evaluations;
};

// A rectangle of a value plane, row-major, `stride` values a row.
struct DATA_REGION {
    int32_t x0, y0, width, height, stride;
    const float* values;
};

// A blob found in a value plane: its centre and peak for the start, and its
// pixels.
struct BLOB_INFO {
    double cx, cy;
    float peak;
    int32_t count;
    const PIXEL_VALUE* pixels;
};

class GaussFit2D {
public:
    // Bits of the fit mask: which parameters the model frees.
    enum {
        FIT_AMPLITUDE = 1,
        FIT_CX = 2,
        FIT_CY = 4,
        FIT_WIDTHX = 8,
        FIT_WIDTHY = 16,
        FIT_ROTATION = 32,
        FIT_OFFSET = 64,
    };
    enum Model {
        GaussFxn2D = 0,
        GaussFxn2D_withRotation,
        GaussFxn2D_withOffset,
        GaussFxn2D_fixedPos
    };

    GaussFit2D();

    // 63 with rotation, 95 with offset, 25 fixed position, else the plain
    // five-parameter model.
    void setFitType(int mask);
    Model model() const { return m_model; }
    int parameterCount() const;

    // The centre is rounded to the nearest pixel, except for the fixed
    // position model, which keeps the given point as its centre.
    void setStartParams(double amplitude, double cx, double cy, double wx, double wy,
                        double offset);

    // Fits the group's pixels, started from its centroid and peak. At least
    // 9 pixels and a bounding box more than one pixel wide and high.
    bool doFit(const PixelGroup& group, GAUSSFIT2D_PARAMS* result);
    // Every value of the region, started at its brightest value.
    bool doFit(const DATA_REGION& region, GAUSSFIT2D_PARAMS* result);
    // The blob's pixels, started at its centre and peak.
    bool doFit(const BLOB_INFO* blob, GAUSSFIT2D_PARAMS* result);
    // Fits n points from the start set by setStartParams.
    bool doFit(const float* x, const float* y, const float* values, int n,
               GAUSSFIT2D_PARAMS* result);

    PIVerror& error() { return m_error; }

private:
    bool doActualFit(GAUSSFIT2D_PARAMS* result);
    static int residuals(void* user, int m, int n, const double* p, double* fvec, int iflag);
    void unpack(const double* p, GAUSSFIT2D_PARAMS& out) const;

    Model m_model;
    GAUSSFIT2D_PARAMS m_start;
    PIV::LmFitPoints m_points;
    PIV::LmWorkspace m_work;
    PIVerror m_error;
};
