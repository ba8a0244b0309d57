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

    // Off, every pixel takes the plain per-pixel evaluation: the reference
    // the vector loop is held to.
    void setFlagVectorised(bool on) { m_vectorised = on; }

private:
    bool warp(const Image2D& src, Image2D& dst, const Image2D* mask, const PIV_DataBase& field,
              double factor, const char* where);
    // The source value at (x, y), 0 outside the image.
    float sourceValue(const Image2D& src, float x, float y) const;

    IMAGEDEF_CFG m_cfg;
    const Image2D* m_source = nullptr;  // the image the coefficients belong to
    bool m_vectorised = true;
};
