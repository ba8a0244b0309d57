// Particle images with known positions, a uniform guide field and a tracker
// with its own data, for the tracking tests.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "image2d.h"
#include "piv_data2d.h"
#include "ptv_eval2d.h"
#include "synthetic_images.h"

namespace ptv_test {

// 8-bit particles of diameter 3 px and 0.8 of full scale unless given.
inline Image2D Render(const std::vector<synth::Particle>& particles, int w, int h) {
    synth::SynthParams p;
    const std::vector<float> px = synth::RenderParticles(particles, w, h, p);
    Image2D img(w, h, IMAGE_UINT8);
    for (int y = 0; y < h; y++) img.putRow(px.data() + size_t(y) * size_t(w), y);
    return img;
}
inline synth::Particle At(double x, double y, double peak = 0.8, double d = 3.0) {
    return synth::Particle{x, y, peak, d};
}

// A field of one displacement (dy upwards) over a w x h image, nodes every 16 px.
inline void UniformGuide(PIV_Data2D& f, int w, int h, double dx, double dyUp) {
    EXPECT_TRUE(f.createZeroData(SIZE3D{w, h, 1}, SIZE3D{16, 16, 1}, POINT3D{8, 8, 0},
                                 POINT3D{w - 8, h - 8, 0}, 1));
    for (int k = 0; k < f.nodeCount(); k++) {
        f.data()[k].dx = float(dx);
        f.data()[k].dy = float(dyUp);
        f.data()[k].flag |= VECTOR_ENABLED;
    }
}

// The record whose first particle lies nearest to (x, y), within 0.5 px.
inline const PTV_PAIR* PairAt(const PTV_Data2D& data, double x, double y) {
    for (size_t i = 0; i < data.size(); i++) {
        const PTV_PAIR* p = data.pairData(i);
        if (p->first.id >= 0 && std::hypot(p->first.x - x, p->first.y - y) < 0.5) return p;
    }
    return nullptr;
}

// Index of the particle of `list` the pair's partner shows, -1 for none.
inline int PartnerIndex(const PTV_PAIR* pair, const std::vector<synth::Particle>& list) {
    if (!pair || pair->second.id < 0) return -1;
    for (size_t i = 0; i < list.size(); i++)
        if (std::hypot(pair->second.x - list[i].x, pair->second.y - list[i].y) < 0.5) return int(i);
    return -2;  // a partner that is none of the list
}

}  // namespace ptv_test
