#include "synthetic_images.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

namespace synth {
namespace {

constexpr double kPi = 3.14159265358979323846;

// A particle of diameter d has the profile exp(-8 r^2 / d^2), a Gaussian of
// sigma d/4. For d = 2, sigma is 0.5 px, so the edges of the pixel under its
// centre lie at +-1 sigma and those of the next pixel at 1 and 3 sigma, and
// the pixel means follow from the normal probability table:
//   P(|z| < 1) = 0.682689492, P(|z| < 2) = 0.954499736, P(|z| < 3) = 0.997300204,
// times the one-axis integral sigma * sqrt(2 pi) = 1.253314137.
constexpr double kAxisIntegral = 1.253314137;
constexpr double kCentreAxis = kAxisIntegral * 0.682689492;                         // 0.855624
constexpr double kNeighbourAxis = kAxisIntegral * (0.997300204 - 0.682689492) / 2;  // 0.197153

SynthParams FloatImage(int width, int height) {
    SynthParams params;
    params.width = width;
    params.height = height;
    params.bitDepth = 0;
    return params;
}

float At(const std::vector<float>& image, int width, int x, int y) {
    return image[static_cast<std::size_t>(y) * width + x];
}

TEST(SyntheticFlows, DisplacementsWorkedByHand) {
    const ShearFlow shear(1.0, 0.05, 100.0);
    const SinusoidalFlow sine(2.0, 64.0, 0.0, 0.5), shifted(2.0, 64.0, kPi / 2);
    const LambOseenVortex vortex(128.0, 128.0, 60.0, 10.0);
    const struct {
        const char* why;
        const Flow& flow;
        double x, y, dx, dy, tolerance;
    } cases[] = {
        // dx = 1 + 0.05 (y - 100): 1 px on row 100, 1 + 0.05 * 40 = 3 px on row 140.
        {"shear, reference row", shear, 7, 100, 1, 0, 0},
        {"shear, 40 rows on", shear, 200, 140, 3, 0, 0},
        // Wavelength 64: sin is 1 at y = 16.
        {"sine crest", sine, 0, 16, 2, 0.5, 1e-12},
        {"a phase of pi/2 moves the crest to y = 0", shifted, 0, 0, 2, 0, 1e-12},
        // Gamma 60, rc 10: at r = rc the speed is 60 / (2 pi 10) * (1 - e^-1)
        // = 0.954930 * 0.632121 = 0.603631 px. On the +x side of the centre the
        // tangential direction for positive gamma is +y.
        {"vortex at the core radius", vortex, 138, 128, 0, 0.6036307, 1e-6},
        // Offset (3, 4), r = 5: speed 60 / (2 pi 5) * (1 - e^-0.25) = 0.422459 px
        // along the tangent (-4, 3) / 5.
        {"vortex off axis", vortex, 131, 132, -0.3379675, 0.2534756, 1e-6},
        {"vortex centre at rest", vortex, 128, 128, 0, 0, 0},
        // For r << rc, a solid body: speed = gamma / (2 pi rc^2) * r = 0.0954930 * r.
        {"vortex core", vortex, 128, 128 + 1e-6, -0.0954930e-6, 0, 1e-12},
    };
    for (const auto& c : cases) {
        double dx = -99, dy = -99;
        c.flow.displacement(c.x, c.y, dx, dy);
        EXPECT_NEAR(dx, c.dx, c.tolerance) << c.why;
        EXPECT_NEAR(dy, c.dy, c.tolerance) << c.why;
    }
}

TEST(SyntheticImages, ParticleOnAPixelCentreMatchesTheNormalTable) {
    const std::vector<float> image =
        RenderParticles({{8.0, 8.0, 1.0, 2.0}}, 17, 17, FloatImage(17, 17));
    EXPECT_NEAR(At(image, 17, 8, 8), kCentreAxis * kCentreAxis, 1e-6);  // 0.732093
    EXPECT_NEAR(At(image, 17, 9, 8), kCentreAxis * kNeighbourAxis, 1e-6);
    EXPECT_NEAR(At(image, 17, 8, 7), kCentreAxis * kNeighbourAxis, 1e-6);
    EXPECT_NEAR(At(image, 17, 7, 9), kNeighbourAxis * kNeighbourAxis, 1e-6);
    // Peak 0.5 and 8 bits (full scale 255) round to the nearest count:
    //   centre    0.5 * 0.732093 * 255 = 93.34 -> 93
    //   neighbour 0.5 * 0.168689 * 255 = 21.51 -> 22 (truncation would give 21)
    //   diagonal  0.5 * 0.038869 * 255 =  4.96 ->  5
    SynthParams params = FloatImage(17, 17);
    params.bitDepth = 8;
    const std::vector<float> counts = RenderParticles({{8.0, 8.0, 0.5, 2.0}}, 17, 17, params);
    EXPECT_EQ(At(counts, 17, 8, 8), 93.0f);
    EXPECT_EQ(At(counts, 17, 9, 8), 22.0f);
    EXPECT_EQ(At(counts, 17, 9, 9), 5.0f);
}

TEST(SyntheticImages, AnIsolatedParticleKeepsItsVolumeAndCentroid) {
    // Pixels are unit squares, so their sum is the profile's volume
    // 2 pi sigma^2 * peak = pi d^2 / 8 * peak, here 9 pi / 8 * 0.8; the
    // intensity-weighted mean position is the particle's.
    const std::vector<Particle> particles{{20.3, 17.8, 0.8, 3.0}};
    const std::vector<float> image = RenderParticles(particles, 40, 40, FloatImage(40, 40));
    double sum = 0.0, sx = 0.0, sy = 0.0;
    for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 40; ++x) {
            const double v = At(image, 40, x, y);
            sum += v, sx += v * x, sy += v * y;
        }
    EXPECT_NEAR(sum, 9 * kPi / 8 * 0.8, 1e-6);
    EXPECT_NEAR(sx / sum, 20.3, 0.01);
    EXPECT_NEAR(sy / sum, 17.8, 0.01);
}

TEST(SyntheticImages, CountsClipAtZeroAndFullScale) {
    // Overexposed particles over zero-mean noise: unclipped, the brightest
    // pixels would pass full scale and half the background fall below 0.
    SynthParams params;
    params.width = params.height = 64;
    params.particleDensity = 0.05;
    params.peakIntensity = 3.0;
    params.noiseSigma = 0.05;
    for (int bits : {8, 16}) {
        params.bitDepth = bits;
        const SyntheticPair pair = RenderPair(params, UniformFlow(0.0, 0.0));
        const auto [lo, hi] = std::minmax_element(pair.a.begin(), pair.a.end());
        EXPECT_EQ(*hi, static_cast<float>((1 << bits) - 1)) << bits << " bits";
        EXPECT_EQ(*lo, 0.0f) << bits << " bits";
        for (float v : pair.a) ASSERT_EQ(v, std::floor(v)) << "counts must be whole";
    }
}

TEST(SyntheticImages, NoiseHasTheRequestedSigmaAndIsIndependentBetweenFrames) {
    // 65536 samples: the mean's standard error is 0.1 / 256 = 0.0004, the
    // sigma's about 0.0003, the A-B correlation's 1 / 256 = 0.004. Shared noise
    // would give a correlation of 1 and a false peak at zero displacement.
    SynthParams params = FloatImage(256, 256);
    params.particleDensity = 0.0;
    params.noiseSigma = 0.1;
    const SyntheticPair pair = RenderPair(params, UniformFlow(0.0, 0.0));
    double sa = 0.0, saa = 0.0, sab = 0.0, sbb = 0.0;
    for (std::size_t n = 0; n < pair.a.size(); ++n) {
        sa += pair.a[n];
        saa += double(pair.a[n]) * pair.a[n];
        sab += double(pair.a[n]) * pair.b[n];
        sbb += double(pair.b[n]) * pair.b[n];
    }
    const double count = double(pair.a.size());
    EXPECT_NEAR(sa / count, 0.0, 0.002);
    EXPECT_NEAR(std::sqrt(saa / count), 0.1, 0.002);
    EXPECT_NEAR(sab / std::sqrt(saa * sbb), 0.0, 0.02);
}

TEST(SyntheticPairs, ParticleCountFollowsDensityOverTheWidenedArea) {
    // 0.02 * (256 + 32) * (256 + 32) = 1658.88 -> 1659, seeded over
    // [-16.5, 271.5] on both axes.
    const SyntheticPair pair = RenderPair(SynthParams{}, UniformFlow(0.0, 0.0));
    ASSERT_EQ(pair.particlesA.size(), 1659u);
    // The margins are populated, not just the image.
    for (auto coordinate : {&Particle::x, &Particle::y}) {
        const auto [lo, hi] = std::minmax_element(
            pair.particlesA.begin(), pair.particlesA.end(),
            [&](const Particle& a, const Particle& b) { return a.*coordinate < b.*coordinate; });
        EXPECT_GE((*lo).*coordinate, -16.5);
        EXPECT_LT((*lo).*coordinate, -10.0);
        EXPECT_LE((*hi).*coordinate, 271.5);
        EXPECT_GT((*hi).*coordinate, 265.0);
    }
}

TEST(SyntheticPairs, UniformShiftMovesEveryPixel) {
    SynthParams params;
    params.width = params.height = 96;
    params.particleDensity = 0.04;
    const SyntheticPair pair = RenderPair(params, UniformFlow(3.0, -2.0));
    // B(x, y) = A(x - 3, y + 2) wherever both exist: the pixel integration
    // depends only on the particle's position relative to the pixel. (How
    // particles move is held against the flow by the midpoint test below.)
    for (int y = 0; y < params.height - 2; ++y)
        for (int x = 3; x < params.width; ++x)
            ASSERT_EQ(pair.pixelB(x, y), pair.pixelA(x - 3, y + 2)) << x << "," << y;
}

TEST(SyntheticPairs, ParticlesAreCentredOnTheFlowAtTheirMidpoint) {
    // Near a vortex core the displacement changes by tenths of a pixel per
    // pixel, so evaluating the flow at the A position instead of the midpoint
    // would show here.
    SynthParams params;
    params.width = params.height = 64;
    const LambOseenVortex vortex(32.0, 32.0, 40.0, 6.0);
    const SyntheticPair pair = RenderPair(params, vortex);
    ASSERT_EQ(pair.particlesA.size(), pair.particlesB.size());
    for (std::size_t n = 0; n < pair.particlesA.size(); ++n) {
        const Particle& a = pair.particlesA[n];
        const Particle& b = pair.particlesB[n];
        double dx, dy;
        ExactDisplacement(vortex, (a.x + b.x) / 2, (a.y + b.y) / 2, dx, dy);
        ASSERT_NEAR(b.x - a.x, dx, 1e-9);
        ASSERT_NEAR(b.y - a.y, dy, 1e-9);
    }
}

TEST(SyntheticPairs, RejectsParametersItCannotHonour) {
    for (void (*spoil)(SynthParams&) :
         {+[](SynthParams& p) { p.bitDepth = 4; }, +[](SynthParams& p) { p.width = 0; },
          +[](SynthParams& p) { p.particleDiameter = 0.0; },
          +[](SynthParams& p) { p.particleDensity = -0.1; }}) {
        SynthParams params;
        spoil(params);
        EXPECT_THROW(RenderPair(params, UniformFlow(0.0, 0.0)), std::invalid_argument);
    }
}

}  // namespace
}  // namespace synth
