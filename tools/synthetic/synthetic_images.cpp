#include "synthetic_images.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <random>
#include <stdexcept>

namespace synth {

namespace {

constexpr double kPi = 3.14159265358979323846;

// Independent random streams of one seed, so that the noise of A and B is
// uncorrelated (a shared noise pattern would correlate into a false peak at
// zero displacement) and neither depends on how many particles were drawn.
enum Stream : unsigned { kPositions = 0, kNoiseA = 1, kNoiseB = 2 };

// The standard distributions may differ between library implementations;
// deriving the values from the engine's raw output, whose sequence the
// standard fixes, keeps a seed's images the same wherever the tests run.
class Rng {
public:
    Rng(unsigned seed, Stream stream) {
        std::seed_seq seq{seed, static_cast<unsigned>(stream)};
        engine_.seed(seq);
    }

    // Uniform on the open interval (0, 1), so that log() below never sees 0.
    double uniform() { return (static_cast<double>(engine_()) + 0.5) * 0x1p-32; }

    // Standard normal by Box-Muller; each draw yields two values.
    double normal() {
        if (hasSpare_) {
            hasSpare_ = false;
            return spare_;
        }
        const double radius = std::sqrt(-2.0 * std::log(uniform()));
        const double angle = 2.0 * kPi * uniform();
        spare_ = radius * std::sin(angle);
        hasSpare_ = true;
        return radius * std::cos(angle);
    }

private:
    std::mt19937 engine_;
    double spare_ = 0.0;
    bool hasSpare_ = false;
};

void CheckImageParams(int width, int height, const SynthParams& params) {
    if (width <= 0 || height <= 0) throw std::invalid_argument("image size must be positive");
    if (params.bitDepth != 0 && (params.bitDepth < 8 || params.bitDepth > 16))
        throw std::invalid_argument("bit depth must be 0 or 8..16");
    if (!(params.noiseSigma >= 0.0)) throw std::invalid_argument("noise sigma must be >= 0");
}

// The pixel range [first, first + count) within `reach` of c, clipped to the
// image; false when the particle lies wholly outside. Works in double so that
// a particle far outside cannot overflow an int.
bool Footprint(double c, double reach, int size, int& first, int& count) {
    const double lo = std::max(std::ceil(c - reach), 0.0);
    const double hi = std::min(std::floor(c + reach), size - 1.0);
    if (!(lo <= hi)) return false;
    first = static_cast<int>(lo);
    count = static_cast<int>(hi - lo) + 1;
    return true;
}

// Mean of exp(-8 (u - c)^2 / d^2) over each pixel [i - 0.5, i + 0.5], i in
// [first, first + count). With k = sqrt(8) / d the integral over [u1, u2] is
// sqrt(pi) / (2k) * (erf(k (u2 - c)) - erf(k (u1 - c))), and a pixel is one
// unit wide, so the integral is the mean. Neighbouring pixels share an edge,
// hence one erf per pixel.
void PixelWeights(double c, double d, int first, int count, std::vector<double>& weights) {
    const double k = std::sqrt(8.0) / d;
    const double scale = std::sqrt(kPi) / (2.0 * k);
    weights.resize(static_cast<std::size_t>(count));
    double lower = std::erf(k * (first - 0.5 - c));
    for (int n = 0; n < count; ++n) {
        const double upper = std::erf(k * (first + n + 0.5 - c));
        weights[n] = scale * (upper - lower);
        lower = upper;
    }
}

std::vector<float> Render(const std::vector<Particle>& particles, int width, int height,
                          const SynthParams& params, Stream noiseStream) {
    std::vector<double> sum(static_cast<std::size_t>(width) * height, 0.0);
    std::vector<double> wx, wy;
    for (const Particle& p : particles) {
        if (!(p.diameter > 0.0)) throw std::invalid_argument("particle diameter must be > 0");
        // At two diameters the profile is exp(-32), below any bit depth.
        const double reach = 2.0 * p.diameter + 2.0;
        int x0, nx, y0, ny;
        if (!Footprint(p.x, reach, width, x0, nx) || !Footprint(p.y, reach, height, y0, ny))
            continue;
        // The profile is separable, so a pixel's mean is the product of the
        // row and column means.
        PixelWeights(p.x, p.diameter, x0, nx, wx);
        PixelWeights(p.y, p.diameter, y0, ny, wy);
        for (int j = 0; j < ny; ++j) {
            const double rowWeight = p.peak * wy[j];
            double* row = &sum[static_cast<std::size_t>(y0 + j) * width + x0];
            for (int i = 0; i < nx; ++i) row[i] += rowWeight * wx[i];
        }
    }

    if (params.noiseSigma > 0.0) {
        Rng rng(params.seed, noiseStream);
        for (double& v : sum) v += params.noiseSigma * rng.normal();
    }

    std::vector<float> image(sum.size());
    if (params.bitDepth == 0) {
        std::copy(sum.begin(), sum.end(), image.begin());
        return image;
    }
    const double fullScale = std::ldexp(1.0, params.bitDepth) - 1.0;
    for (std::size_t n = 0; n < sum.size(); ++n) {
        const double counts = std::floor(sum[n] * fullScale + 0.5);
        image[n] = static_cast<float>(std::clamp(counts, 0.0, fullScale));
    }
    return image;
}

float Pixel(const std::vector<float>& image, int width, int height, int x, int y) {
    if (x < 0 || x >= width || y < 0 || y >= height)
        throw std::out_of_range("pixel outside the image");
    return image[static_cast<std::size_t>(y) * width + x];
}

}  // namespace

float SyntheticPair::pixelA(int x, int y) const {
    return Pixel(a, width, height, x, y);
}

float SyntheticPair::pixelB(int x, int y) const {
    return Pixel(b, width, height, x, y);
}

void ExactDisplacement(const Flow& flow, double x, double y, double& dx, double& dy) {
    flow.displacement(x, y, dx, dy);
}

std::vector<float> RenderParticles(const std::vector<Particle>& particles, int width, int height,
                                   const SynthParams& params) {
    CheckImageParams(width, height, params);
    return Render(particles, width, height, params, kNoiseA);
}

SyntheticPair RenderPair(const SynthParams& params, const Flow& flow) {
    CheckImageParams(params.width, params.height, params);
    if (params.margin < 0) throw std::invalid_argument("margin must be >= 0");
    if (!(params.particleDensity >= 0.0))
        throw std::invalid_argument("particle density must be >= 0");
    if (!(params.particleDiameter > 0.0))
        throw std::invalid_argument("particle diameter must be > 0");

    // The seeded area is the image's pixel area, [-0.5, size - 0.5] on each
    // axis, widened by the margin on every side.
    const double left = -0.5 - params.margin, top = -0.5 - params.margin;
    const double spanX = params.width + 2.0 * params.margin;
    const double spanY = params.height + 2.0 * params.margin;
    const long count = std::lround(params.particleDensity * spanX * spanY);

    SyntheticPair pair;
    pair.width = params.width;
    pair.height = params.height;
    pair.bitDepth = params.bitDepth;
    pair.particlesA.reserve(static_cast<std::size_t>(count));
    pair.particlesB.reserve(static_cast<std::size_t>(count));
    Rng rng(params.seed, kPositions);
    for (long n = 0; n < count; ++n) {
        const double x = left + spanX * rng.uniform();
        const double y = top + spanY * rng.uniform();
        double dx, dy;
        flow.displacement(x, y, dx, dy);
        pair.particlesA.push_back(
            {x - 0.5 * dx, y - 0.5 * dy, params.peakIntensity, params.particleDiameter});
        pair.particlesB.push_back(
            {x + 0.5 * dx, y + 0.5 * dy, params.peakIntensity, params.particleDiameter});
    }
    pair.a = Render(pair.particlesA, pair.width, pair.height, params, kNoiseA);
    pair.b = Render(pair.particlesB, pair.width, pair.height, params, kNoiseB);
    return pair;
}

}  // namespace synth
