// Test frames shared by the benchmarks.
#pragma once

#include <cstdint>

#include "image2d.h"
#include "synthetic_images.h"

namespace bench {

// A camera-sized 16-bit frame of 12-bit noise from a fixed linear
// congruential sequence: the same pixels on every run.
inline Image2D CameraFrame(int width = 2560, int height = 2160) {
    Image2D img(width, height, IMAGE_UINT16);
    uint32_t s = 12345u;
    for (int y = 0; y < height; y++) {
        uint16_t* row = img.scanLine<uint16_t>(static_cast<uint64_t>(y));
        for (int x = 0; x < width; x++) {
            s = s * 1664525u + 1013904223u;
            row[x] = static_cast<uint16_t>(s >> 20);
        }
    }
    return img;
}

// An 8-bit particle pair for the flow: 2.5 px particles, 0.02 per pixel,
// no noise, fixed seed; square unless a height is given.
struct ParticlePair {
    Image2D a, b;
    ParticlePair(int size, const synth::Flow& flow, unsigned seed = 3)
        : ParticlePair(size, size, flow, seed) {}
    ParticlePair(int width, int height, const synth::Flow& flow, unsigned seed = 3) {
        synth::SynthParams p;
        p.width = width;
        p.height = height;
        p.particleDiameter = 2.5;
        p.particleDensity = 0.02;
        p.seed = seed;
        const auto pair = synth::RenderPair(p, flow);
        for (Image2D* img : {&a, &b}) img->alloc(width, height, IMAGE_UINT8);
        for (int y = 0; y < height; y++) {
            a.putRow(pair.a.data() + size_t(y) * size_t(width), y);
            b.putRow(pair.b.data() + size_t(y) * size_t(width), y);
        }
    }
};

}  // namespace bench
