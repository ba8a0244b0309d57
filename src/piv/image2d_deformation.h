// Image2D_Deformation: warps an image by a fraction of a displacement field,
// the step that lets image deformation interrogation measure only what the
// field does not yet explain.
//
// Target pixel (col, row) reads the source at
//   x = col + dx / scale,  y = row - dy / scale,  scale = -1 / factor,
// (dx, dy) being the field's displacement at the pixel (dy counts upwards,
// hence its sign). Factor 0.5 reads the first frame half a displacement back
// along the flow, -0.5 the second frame half a displacement forward, so both
// meet in the middle. A source point outside the image gives 0, and the
// result is clipped to the source's range so that kernel overshoot never
// invents intensities.
//
// The source's spline coefficients are kept between calls on the same
// image: call clearSplineCoeffs() when its pixels change.
#pragma once

#include "image2d_interp.h"
#include "piv_types.h"

class PIV_DataBase;

// One frame of a warp: its source and target, moved by `factor` times the
// field; where `mask` is set and not 0, pixels keep the source value.
struct DEFORM_FRAME {
    const Image2D* src = nullptr;
    Image2D* dst = nullptr;
    const Image2D* mask = nullptr;
    double factor = 0.0;
};

class Image2D_Deformation : public Image2D_Interpolation {
public:
    Image2D_Deformation();

    // Takes the record; the interpolation is its Method and the order
    // getDeformOrder makes of its Order.
    void setImageDefCfg(const IMAGEDEF_CFG& cfg);
    const IMAGEDEF_CFG& imageDefCfg() const { return m_cfg; }

    // `dst` becomes a float image of the source's size. Refuses a null or
    // all-zero source (37) and a field without raw data (13).
    bool deformWithPivData(const Image2D& src, Image2D& dst, const PIV_DataBase& field,
                           double factor);
    // As above; pixels where `mask` is not 0 keep the source value.
    bool deformWithMaskedPivData(const Image2D& src, Image2D& dst, const Image2D& mask,
                                 const PIV_DataBase& field, double factor);
    // Warps `first` with this deformer and `second` with `other`, each with
    // its own settings and coefficients, in one pass: both frames read the
    // field at the same pixels, so it is sampled once per row for the two.
    // Each target is the one the frame's warp alone gives; `other`'s
    // failures are reported here.
    bool deformPairWithPivData(const DEFORM_FRAME& first, Image2D_Deformation& other,
                               const DEFORM_FRAME& second, const PIV_DataBase& field);

    // Off, every pixel takes the plain per-pixel evaluation: the reference
    // the vector loop is held to.
    void setFlagVectorised(bool on) { m_vectorised = on; }

private:
    // What the rows of one frame need, made before the workers start.
    struct Plan {
        const DEFORM_FRAME* frame;
        float inv, low, high;
        int vectorDegree;  // 3 or 5 where the vector loop takes the interior
    };
    // `second` and `other` are null for a single frame.
    bool warp(const DEFORM_FRAME& first, Image2D_Deformation* other, const DEFORM_FRAME* second,
              const PIV_DataBase& field, const char* where);
    // The frame's checks, its target and its range; false with the error set.
    bool planFrame(const DEFORM_FRAME& f, Plan& plan, const char* where);
    // The source's coefficients and the choice of loop.
    bool prepareFrame(Plan& plan);
    // `pending` holds width ints, `keep` 2 width floats of the worker.
    void warpRow(const Plan& plan, int row, const float* dxRow, const float* dyRow, int* pending,
                 float* keep) const;
    // The source value at (x, y), 0 outside the image.
    float sourceValue(const Image2D& src, float x, float y) const;

    IMAGEDEF_CFG m_cfg;
    const Image2D* m_source = nullptr;  // the image the coefficients belong to
    bool m_vectorised = true;
};
