#include "image2d_map2d.h"

#include "piv_messages.h"
#include "piv_util.h"

namespace {

bool _outside(double x, double y, const SIZE2D& size) {
    return !(x > -0.5 && x < size.width - 0.5 && y > -0.5 && y < size.height - 0.5);
}

}  // namespace

Image2D_Map2D::Image2D_Map2D() {
    m_error.setName("Image2D_Map2D");
}

bool Image2D_Map2D::mapImage(const Image2D& source, Image2D& dest, bool mask, bool mirror) {
    if (source.isNull()) {
        m_error.setMessage("mapImage() - no data in source image");
        m_error.handleError(PIVerror::IMAGE_IS_NULL, "mapImage()");
        return false;
    }
    if (&source == &dest) {
        m_error.handleError(PIVerror::OVERWRITE_OWN_DATA, "mapImage()");
        return false;
    }
    if (m_map.dest_img_width < 1 || m_map.dest_img_height < 1 ||
        !dest.resize(m_map.dest_img_width, m_map.dest_img_height, IMAGE_FLOAT)) {
        m_error.setMessage("mapImage() - resize failed");
        m_error.handleError(PIVerror::ALLOCATION_FAILED, "mapImage()");
        return false;
    }
    DebugPrint("mapImage() on (%s) - scheme=%d order=%d mask=%d mirror=%d", source.fileName(),
               m_method, m_degree, mask ? 1 : 0, mirror ? 1 : 0);
    setFlagMirroring(mirror);
    // Once per image, not per pixel; a failure falls back to bilinear.
    prepareSplineCoefficients(source, m_method, getDeformOrder(m_degree, m_method));
    const SIZE2D size = source.size2D();
    const int w = m_map.dest_img_width, h = m_map.dest_img_height;
    const float outsideValue = mask ? 255.0f : 0.0f;
    const MAPPING_FXN_2D map = m_map;
#pragma omp parallel for num_threads(PIV::MaxThreads()) schedule(static)
    for (int j = 0; j < h; j++) {
        float* out = dest.scanLine<float>(static_cast<uint64_t>(j));
        for (int i = 0; i < w; i++) {
            double x, y;
            map.mappedPoint(i, j, x, y);
            if (!mirror && _outside(x, y, size))
                out[i] = outsideValue;
            else
                out[i] = kernelValue(source, static_cast<float>(x), static_cast<float>(y));
        }
    }
    dest.setFlagNeedStatistics(true);
    dest.setFlagChanged(true);
    return true;
}

bool Image2D_Map2D::mapImageAndCreateMask(const Image2D& source, Image2D& dest, Image2D& mask,
                                          bool mirror) {
    if (!mapImage(source, dest, false, mirror)) return false;
    return createMask(mask, source.size2D(), false);
}

bool Image2D_Map2D::createMask(Image2D& mask, const SIZE2D& sourceSize, bool invert) {
    DebugPrint("createMask() - scheme=%d order=%d ", m_method, m_degree);
    const int w = m_map.dest_img_width, h = m_map.dest_img_height;
    if (w < 1 || h < 1 || !mask.resize(w, h, IMAGE_UINT8)) {
        m_error.setMessage("createMask() - resize failed");
        m_error.handleError(PIVerror::ALLOCATION_FAILED, "createMask()");
        return false;
    }
    const uint8_t in = invert ? 255 : 0, out = invert ? 0 : 255;
    const MAPPING_FXN_2D map = m_map;
#pragma omp parallel for num_threads(PIV::MaxThreads()) schedule(static)
    for (int j = 0; j < h; j++) {
        uint8_t* row = mask.scanLine<uint8_t>(static_cast<uint64_t>(j));
        for (int i = 0; i < w; i++) {
            double x, y;
            map.mappedPoint(i, j, x, y);
            row[i] = _outside(x, y, sourceSize) ? out : in;
        }
    }
    mask.setFlagNeedStatistics(true);
    mask.setFlagChanged(true);
    return true;
}
