// Image2D_Interpolation: resamples a whole image through one of the
// interpolation kernels (shifted linear, Gaussian, B-spline, bilinear,
// polynomial). Output pixel (i, j) samples the source at the mapped point,
// for a translation (i + dx, j + dy), so the content moves by (-dx, -dy).
//
// Coordinates put the pixel centre on the integer; a point is outside when
// x <= -0.5, x >= width - 0.5 (likewise y). Kernels return 0 within their
// margin near the border: that dark frame is part of their behaviour.
#pragma once

#include <cstdint>
#include <vector>

#include "image2d.h"
#include "image_spline.h"
#include "piv_error.h"

// The kernels of PIV::InterpolationMethod, on any of the four pixel types.
float _InterpolatePixel2x2(float x, float y, const Image2D* image);
float _InterpolatePixel3x3(float x, float y, const Image2D* image);
float _InterpolatePixel4x4(float x, float y, const Image2D* image);
float _InterpolatePixel5x5(float x, float y, const Image2D* image);
// Unnormalised: a flat image comes out scaled by the sum of the nine weights.
float _InterpolateGaussian3x3(float x, float y, const Image2D* image);
// Unwindowed sinc over (2n + 1)^2 pixels, the image taken as periodic.
float _InterpolateSincNxN(float x, float y, const Image2D* image, int n);

class Image2D_Interpolation {
public:
    Image2D_Interpolation();
    virtual ~Image2D_Interpolation();
    Image2D_Interpolation(const Image2D_Interpolation&) = delete;
    Image2D_Interpolation& operator=(const Image2D_Interpolation&) = delete;

    uint32_t addRef() { return ++m_refCount; }
    uint32_t release();

    PIVerror& error() { return m_error; }

    void setFlagMirroring(bool on) { m_mirroring = on; }
    bool mirroring() const { return m_mirroring; }
    void setFlagProgressMessagesEnabled(bool on) { m_progress = on; }
    void setFlagPreserveIntensity(bool on) { m_preserveIntensity = on; }
    bool preserveIntensity() const { return m_preserveIntensity; }
    void clearSplineCoeffs() { m_coeffsReady = false; }
    bool coefficientsReady() const { return m_coeffsReady; }

    void setInterpolationMethod(int method, int degree) {
        m_method = method;
        m_degree = getDeformOrder(degree, method);
    }
    void setInterpolationDegree(int degree) { m_degree = degree; }
    int interpolationMethod() const { return m_method; }
    int interpolationDegree() const { return m_degree; }

    bool prepareSplineCoefficients(const Image2D& image, int method, int order);
    float interpolatedPixel(const Image2D& image, float x, float y, bool white);

    bool translateImage(Image2D& image, double dx, double dy, bool retainType, bool mask);
    bool translateRotateImage(Image2D& image, double angle, double tx, double ty, double ox,
                              double oy, bool retainType, bool mask);
    bool transformImage(Image2D& image, const IMAGE_TRANSFORMATION_CFG& cfg, bool retainType,
                        bool mask);
    // Samples the image at (fx i, fy j): a stretch about the origin. Spline
    // methods only.
    bool stretchImage(Image2D& image, double fx, double fy, bool retainType);

protected:
    // The value of the current method at (x, y) inside the image (or
    // anywhere with mirroring); `source` is the image the kernels read.
    float kernelValue(const Image2D& source, float x, float y) const;

    // The common frame of the resamplings: output pixel (i, j) takes the
    // value at map(i, j).
    template <typename Map>
    bool resample(Image2D& image, Map&& map, bool retainType, bool mask, const char* what,
                  const char* context, const char* emptyText, char progressChar);

    uint32_t m_refCount;
    mutable PIVerror m_error;
    bool m_coeffsReady;
    std::vector<float> m_coeffs;
    int m_coeffWidth, m_coeffHeight;
    bool m_mirroring;
    bool m_preserveIntensity;
    int m_degree;
    int m_method;
    bool m_progress;
};
