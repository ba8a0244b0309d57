// Particle images with known positions, a uniform guide field and look-ups
// in the tracks, for the tracking tests and the tool's.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "image2d.h"
#include "piv_data2d.h"
#include "ptv_data2d.h"
#include "synthetic_images.h"

namespace ptv_test {

inline Image2D ToImage(const std::vector<float>& px, int w, int h) {
    Image2D img(w, h, IMAGE_UINT8);
    for (int y = 0; y < h; y++) img.putRow(px.data() + size_t(y) * size_t(w), y);
    return img;
}
// 8-bit particles of diameter 3 px and 0.8 of full scale unless given.
inline Image2D Render(const std::vector<synth::Particle>& particles, int w, int h) {
    return ToImage(synth::RenderParticles(particles, w, h, synth::SynthParams()), w, h);
}
inline synth::Particle At(double x, double y, double peak = 0.8, double d = 3.0) {
    return synth::Particle{x, y, peak, d};
}

// One displacement (dy upwards) over a w x h image, nodes every 16 px.
inline void UniformGuide(PIV_Data2D& f, int w, int h, double dx, double dyUp) {
    EXPECT_TRUE(f.createZeroData(SIZE3D{w, h, 1}, SIZE3D{16, 16, 1}, POINT3D{8, 8, 0},
                                 POINT3D{w - 8, h - 8, 0}, 1));
    for (int k = 0; k < f.nodeCount(); k++) {
        f.data()[k].dx = float(dx);
        f.data()[k].dy = float(dyUp);
        f.data()[k].flag |= VECTOR_ENABLED;
    }
}

// The record whose first particle lies within 0.5 px of (x, y).
inline const PTV_PAIR* PairAt(const PTV_Data2D& data, double x, double y) {
    for (size_t i = 0; i < data.size(); i++) {
        const PTV_PAIR* p = data.pairData(i);
        if (p->first.id >= 0 && std::hypot(p->first.x - x, p->first.y - y) < 0.5) return p;
    }
    return nullptr;
}

// The index in `list` of the pair's partner; -1 for none, -2 for none of the list.
inline int PartnerIndex(const PTV_PAIR* pair, const std::vector<synth::Particle>& list) {
    if (!pair || pair->second.id < 0) return -1;
    for (size_t i = 0; i < list.size(); i++)
        if (std::hypot(pair->second.x - list[i].x, pair->second.y - list[i].y) < 0.5) return int(i);
    return -2;
}

// Particle i is 3 px or more inside in both images and has no other within
// 6 px in either: its image stands apart from every other.
inline bool Isolated(const synth::SyntheticPair& s, size_t i) {
    for (const auto* list : {&s.particlesA, &s.particlesB}) {
        const synth::Particle& p = (*list)[i];
        if (p.x < 3 || p.y < 3 || p.x > s.width - 4 || p.y > s.height - 4) return false;
        for (size_t k = 0; k < list->size(); k++)
            if (k != i && std::hypot((*list)[k].x - p.x, (*list)[k].y - p.y) < 6) return false;
    }
    return true;
}

}  // namespace ptv_test
