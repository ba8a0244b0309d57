// Synthetic particle image pairs with a known displacement field, so that
// tests, benchmarks and the test-pair tool can hold correlation results
// against exact truth.
//
// Coordinates are image pixel coordinates: x runs to the right along a row,
// y runs DOWN through the rows (it is the row index), and pixel (i, j) is the
// unit square centred on (i, j). The program's vector record counts dy
// upwards, so a vector it measures has dy == -flow dy.
#pragma once

#include <vector>

#include "synthetic_flows.h"

namespace synth {

struct SynthParams {
    int width = 256, height = 256;
    double particleDensity = 0.02;  // particles per pixel of the seeded area
    double particleDiameter = 3.0;  // e^-2 intensity diameter in pixels
    // Peak of the continuous particle profile, in fractions of full scale.
    double peakIntensity = 0.8;
    double noiseSigma = 0.0;  // additive Gaussian noise, fraction of full scale
    // 8..16: counts 0..2^bitDepth-1, rounded and clipped; 0: unquantised,
    // unclipped fractions of full scale.
    int bitDepth = 8;
    unsigned seed = 1;
    // Particles are seeded this far beyond the image, so that its borders are
    // as populated as its middle.
    int margin = 16;
};

// A particle image: the profile peak * exp(-8 r^2 / diameter^2), peak in
// fractions of full scale.
struct Particle {
    double x, y, peak, diameter;
};

struct SyntheticPair {
    int width = 0, height = 0, bitDepth = 0;
    // Row-major, width * height; counts 0..2^bitDepth-1, or fractions of full
    // scale when bitDepth is 0.
    std::vector<float> a, b;
    // The same particles in the same order in both lists, margin included.
    std::vector<Particle> particlesA, particlesB;

    float pixelA(int x, int y) const;
    float pixelB(int x, int y) const;
};

// Seeds round(density * (width + 2 margin) * (height + 2 margin)) particles
// uniformly at positions p over the image widened by the margin, and shows
// each at p - d(p)/2 in image A and at p + d(p)/2 in image B. Each particle
// then moves by exactly the flow at its midpoint, the point to which a
// correlation centred between its two images attributes the motion.
// A and B get independent noise. Throws std::invalid_argument on bad params.
SyntheticPair RenderPair(const SynthParams& params, const Flow& flow);

// The true displacement of a particle whose midpoint between A and B is (x, y).
void ExactDisplacement(const Flow& flow, double x, double y, double& dx, double& dy);

// Renders one image of the given particles (each with its own peak and
// diameter) with the noise, bit depth and seed of params; the particle fields
// of params are not used. Each pixel holds the mean of the summed profiles
// over its area, so a small particle centred on a pixel shows less than its
// peak there (0.732 * peak for diameter 2). The noise is the one RenderPair
// adds to image A for the same seed.
std::vector<float> RenderParticles(const std::vector<Particle>& particles, int width, int height,
                                   const SynthParams& params);

}  // namespace synth
