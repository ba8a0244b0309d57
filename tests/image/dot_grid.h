// A calibration target as a camera would see it: Gaussian dots where a known
// mapping puts a regular grid of dewarped pixels, and their centroid measure.
#pragma once

#include <algorithm>
#include <cmath>
#include <vector>

#include "image2d.h"
#include "mapping_fxn2d.h"

namespace dot_grid {

constexpr double kSigma = 1.5;        // dot radius, px
constexpr double kAmplitude = 4000.;  // peak grey value

// Dewarped pixels of the dots: 40, 80, ... up to `extent`.
inline std::vector<FPOINT2D> GridNodes(int extent, int step = 40) {
    std::vector<FPOINT2D> nodes;
    for (int y = step; y <= extent - step; y += step)
        for (int x = step; x <= extent - step; x += step)
            nodes.push_back(FPOINT2D{static_cast<float>(x), static_cast<float>(y)});
    return nodes;
}

// A 16-bit image of w x h with a dot at the mapped position of every node.
inline Image2D Render(int w, int h, const MAPPING_FXN_2D& map, const std::vector<FPOINT2D>& nodes) {
    std::vector<double> acc(static_cast<size_t>(w) * h, 0.0);
    for (const FPOINT2D& n : nodes) {
        double cx, cy;
        map.mappedPoint(n.x, n.y, cx, cy);
        const int x0 = static_cast<int>(cx), y0 = static_cast<int>(cy);
        for (int y = y0 - 8; y <= y0 + 8; y++)
            for (int x = x0 - 8; x <= x0 + 8; x++) {
                if (x < 0 || y < 0 || x >= w || y >= h) continue;
                const double r2 = (x - cx) * (x - cx) + (y - cy) * (y - cy);
                acc[static_cast<size_t>(y) * w + x] +=
                    kAmplitude * std::exp(-r2 / (2 * kSigma * kSigma));
            }
    }
    Image2D img(w, h, IMAGE_UINT16);
    for (int y = 0; y < h; y++)
        for (int x = 0; x < w; x++)
            img.setPixel(x, y,
                         static_cast<float>(std::lround(acc[static_cast<size_t>(y) * w + x])));
    return img;
}

// Intensity-weighted centroid of the (2r + 1)^2 window around (x, y).
inline FPOINT2D Centroid(const Image2D& img, float x, float y, int r = 6) {
    double sum = 0.0, sx = 0.0, sy = 0.0;
    const int x0 = static_cast<int>(std::lround(x)), y0 = static_cast<int>(std::lround(y));
    for (int j = y0 - r; j <= y0 + r; j++)
        for (int i = x0 - r; i <= x0 + r; i++) {
            const double v = img.pixel(i, j);
            sum += v;
            sx += v * i;
            sy += v * j;
        }
    return FPOINT2D{static_cast<float>(sx / sum), static_cast<float>(sy / sum)};
}

// Largest distance between a dot's centroid in a dewarped image and its node.
inline double WorstCentroidError(const Image2D& img, const std::vector<FPOINT2D>& nodes) {
    double worst = 0.0;
    for (const FPOINT2D& n : nodes) {
        const FPOINT2D c = Centroid(img, n.x, n.y);
        worst = std::max(worst, std::hypot(double(c.x) - n.x, double(c.y) - n.y));
    }
    return worst;
}

// A camera looking obliquely at the target: the dewarped pixel (X, Y) is
// seen at ((1.05 X + 0.08 Y + 12) / D, (-0.03 X + 0.92 Y + 20) / D) with
// D = 1 + 3e-4 X - 2e-4 Y.
inline MAPPING_FXN_2D Perspective(int destW, int destH) {
    MAPPING_FXN_2D m;
    m.maptype = PIV::MAPPING_NONLINEAR1;
    m.setOrder(1);
    m.a00 = 1.05;
    m.a01 = 0.08;
    m.a03 = 12.0;
    m.a10 = -0.03;
    m.a11 = 0.92;
    m.a13 = 20.0;
    m.a30 = 3e-4;
    m.a31 = -2e-4;
    m.a33 = 1.0;
    m.magnification = 1.0;
    m.dest_img_width = destW;
    m.dest_img_height = destH;
    return m;
}

// Lens distortion of degree 3 on a small shift and scale.
inline MAPPING_FXN_2D Barrel(int destW, int destH) {
    MAPPING_FXN_2D m;
    m.maptype = PIV::MAPPING_POLYNOMIAL;
    m.setOrder(3);
    // 1, X, Y, X^2, XY, Y^2, X^3, X^2Y, XY^2, Y^3
    const double px[10] = {6.0, 0.97, 0.02, 1e-4, -5e-5, 0, 2e-7, 0, 1e-7, 0};
    const double py[10] = {9.0, -0.01, 1.01, 0, 1e-4, -6e-5, 0, 1e-7, 0, 2e-7};
    for (int i = 0; i < 10; i++) {
        m.px[i] = px[i];
        m.py[i] = py[i];
    }
    m.magnification = 1.0;
    m.dest_img_width = destW;
    m.dest_img_height = destH;
    return m;
}

}  // namespace dot_grid
