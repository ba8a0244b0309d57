// Interpolation kernels, splines and the resampling front ends, held against
// analytic images and the synthetic particle renderer.

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "hwy/targets.h"
#include "image2d_interp.h"
#include "image_spline.h"
#include "image_test_support.h"
#include "piv_util.h"
#include "synthetic_images.h"

using namespace image_test;

namespace {

using Fn = std::function<double(double, double)>;

Image2D AnalyticImage(int w, int h, const Fn& f) {
    Image2D img(w, h, IMAGE_FLOAT);
    for (int y = 0; y < h; y++)
        for (int x = 0; x < w; x++) img.setPixel(x, y, static_cast<float>(f(x, y)));
    return img;
}

// A smooth sinusoid whose wavelengths (17 and 13 pixels) are well sampled.
const Fn Sinusoid = [](double x, double y) {
    return 100.0 + 50.0 * std::sin(2 * M_PI * x / 17.0 + 0.3) * std::cos(2 * M_PI * y / 13.0);
};
const Fn Plane = [](double x, double y) { return 10 + x + 3 * y; };
const Fn Blob = [](double x, double y) {
    return 200.0 * std::exp(-((x - 20.3) * (x - 20.3) + (y - 17.8) * (y - 17.8)) / (2 * 4.0));
};

struct Scheme {
    int method, degree;
    int margin;  // distance from the border where the kernel works
};

float Sample(Image2D_Interpolation& interp, const Image2D& img, double x, double y) {
    return interp.interpolatedPixel(img, static_cast<float>(x), static_cast<float>(y), false);
}

// Largest deviation from f at the points (i + ox, j + oy) inside the margin.
double MaxError(const Scheme& s, const Image2D& img, const Fn& f, double ox, double oy,
                double* rms = nullptr) {
    Image2D_Interpolation interp;
    interp.setInterpolationMethod(s.method, s.degree);
    double worst = 0.0, sum = 0.0;
    int n = 0;
    const int w = static_cast<int>(img.width()), h = static_cast<int>(img.height());
    for (int j = s.margin; j < h - s.margin; j++)
        for (int i = s.margin; i < w - s.margin; i++) {
            const double e = Sample(interp, img, i + ox, j + oy) - f(i + ox, j + oy);
            worst = std::max(worst, std::fabs(e));
            sum += e * e;
            n++;
        }
    if (rms) *rms = std::sqrt(sum / n);
    return worst;
}

}  // namespace

TEST(SplineWeights, SumToOneAndMatchTheCubicClosedForm) {
    for (int degree = 2; degree <= 9; degree++)
        for (double x : {3.0, 3.2, 3.5, 3.77, -1.4}) {
            double w[10];
            SCOPED_TRACE(degree);
            PIV::Spline::Weights(x, degree, w);
            double sum = 0.0;
            for (int k = 0; k <= degree; k++) sum += w[k];
            EXPECT_NEAR(sum, 1.0, 1e-12);
        }
    // The cubic B-spline at t = 0: 1/6, 2/3, 1/6, 0 over floor(x) - 1 .. + 2;
    // the quadratic at its centre: 1/8, 3/4, 1/8, support from round(x) - 1.
    const double cubic[] = {1.0 / 6, 2.0 / 3, 1.0 / 6, 0}, quadratic[] = {0.125, 0.75, 0.125};
    double w[10], v[10];
    EXPECT_EQ(PIV::Spline::Weights(5.0, 3, w), 4);
    EXPECT_EQ(PIV::Spline::Weights(5.0, 2, v), 4);
    for (int k = 0; k < 4; k++) EXPECT_NEAR(w[k], cubic[k], 1e-15) << k;
    for (int k = 0; k < 3; k++) EXPECT_NEAR(v[k], quadratic[k], 1e-15) << k;
}

// Indices fold at both ends of 0 .. 3 with period 6, however far off.
TEST(SplineWeights, MirrorFoldsAtTheEnds) {
    const int64_t folded[] = {1, 0, 1, 2, 3, 2, 1, 0, 1, 2, 3, 2, 1, 0};
    for (int64_t k = -7; k <= 6; k++) EXPECT_EQ(PIV::Spline::Mirror(k, 4), folded[k + 7]) << k;
    EXPECT_EQ(PIV::Spline::Mirror(-5, 1), 0);
}

// Degrees outside 1..9 are refused; a line of one sample is left alone.
TEST(SplinePrefilter, InvalidDegreesAndShortLines) {
    std::vector<float> data(16, 1.0f);
    EXPECT_EQ(Image2DToSplineCoefficients(data.data(), 4, 4, 0), 1);
    EXPECT_EQ(Image2DToSplineCoefficients(data.data(), 4, 4, 10), 1);
    EXPECT_EQ(InterpolatedSplineValue2D(data.data(), 4, 4, 1.0, 1.0, 10), 0.0);
    double line[1] = {7.0};
    const double pole = -0.1715728752538097;
    ConvertToInterpolationCoefficients(line, 1, &pole, 1, 1e-16);
    EXPECT_EQ(line[0], 7.0);
}

// The lines filtered side by side against each line on its own, on every
// instruction set at hand: one to four poles, lines short enough for the start over the whole
// mirrored line and long enough for the truncated one, blocks of lines not full. Noise of 0 .. 255
// counts, the hardest input: 1e-4 counts.
TEST(SplinePrefilter, InterleavedLinesMatchOneLineAtATime) {
    const std::pair<int, int> sizes[] = {{1, 9}, {7, 1}, {33, 70}, {1023, 5}};
    for (int64_t target : hwy::SupportedAndGeneratedTargets())
        for (int degree : {2, 3, 5, 9})
            for (auto [w, h] : sizes) {
                hwy::SetSupportedTargetsForTest(target);
                std::vector<float> fast(size_t(w) * size_t(h));
                for (size_t k = 0; k < fast.size(); k++) fast[k] = float((k * 7919 + 13) % 256);
                std::vector<float> plain = fast;
                ASSERT_EQ(Image2DToSplineCoefficients(fast.data(), w, h, degree), 0);
                ASSERT_EQ(Image2DToSplineCoefficients(plain.data(), w, h, degree, false), 0);
                float worst = 0.0f;
                for (size_t k = 0; k < fast.size(); k++)
                    worst = std::max(worst, std::fabs(fast[k] - plain[k]));
                EXPECT_LE(worst, 1e-4f) << hwy::TargetName(target) << " " << degree << " " << w;
            }
    hwy::SetSupportedTargetsForTest(0);
}

// At the samples every interpolator returns the sample to float rounding,
// but the cubic B-spline: it pairs the O-MOMS pole with plain B-spline
// weights and misses by under 1 % of the sinusoid's amplitude of 50.
TEST(Interpolation, ReturnsTheSamplesAtSamplePoints) {
    const Scheme exact[] = {{3, 2, 1}, {0, 1, 0}, {2, 2, 0}, {2, 4, 0}, {2, 5, 0}, {2, 6, 0},
                            {2, 7, 0}, {2, 8, 0}, {2, 9, 0}, {5, 3, 1}, {5, 4, 2}, {5, 5, 2}};
    for (const Fn& f : {Sinusoid, Blob}) {
        const Image2D img = AnalyticImage(40, 36, f);
        for (const Scheme& s : exact) {
            SCOPED_TRACE(::testing::Message() << "method " << s.method << " degree " << s.degree);
            EXPECT_LT(MaxError(s, img, f, 0.0, 0.0), 2e-3);
        }
        for (int j = 4; j < 32; j += 3)
            for (int i = 4; i < 36; i += 3)
                EXPECT_NEAR(_InterpolateSincNxN(i, j, &img, 4), f(i, j), 2e-3);
    }
    const double e = MaxError({2, 3, 12}, AnalyticImage(48, 44, Sinusoid), Sinusoid, 0.0, 0.0);
    EXPECT_TRUE(e > 0.05 && e < 0.5) << e;
}

TEST(Interpolation, GaussianScalesAFlatImage) {
    const Image2D img = Filled(12, 10, IMAGE_FLOAT, 10);
    Image2D_Interpolation interp;
    interp.setInterpolationMethod(PIV::INTERPOLATE_GAUSS, 0);
    const double gain = std::pow(1.0 + 2.0 * std::exp(-2.0), 2.0);
    for (int j = 1; j < 9; j++)
        for (int i = 1; i < 11; i++) EXPECT_NEAR(Sample(interp, img, i, j), 10.0 * gain, 1e-4);
    EXPECT_EQ(_InterpolateGaussian3x3(0.0f, 5.0f, &img), 0.0f);
    EXPECT_EQ(_InterpolateGaussian3x3(5.0f, 9.0f, &img), 0.0f);
}

TEST(Interpolation, PolynomialDegreeTellsWhichPolynomialsAreExact) {
    const Fn quadratic = [](double x, double y) {
        return 2 + 0.5 * x + 0.25 * y + 0.1 * x * x - 0.05 * x * y + 0.07 * y * y;
    };
    const Fn cubic = [&](double x, double y) {
        return quadratic(x, y) + 0.05 * x * x * x - 0.04 * y * y * y;
    };
    const Fn quartic = [&](double x, double y) {
        return cubic(x, y) + 0.1 * x * x * x * x + 0.05 * y * y * y * y;
    };
    struct Row {
        const Fn* f;
        int degree;
        bool exact;
    } rows[] = {{&quadratic, 3, true},
                {&cubic, 3, false},
                {&cubic, 4, true},
                {&quartic, 4, false},
                {&quartic, 5, true}};
    for (const Row& r : rows) {
        SCOPED_TRACE(::testing::Message() << "degree " << r.degree << " exact " << r.exact);
        const Image2D img = AnalyticImage(12, 12, *r.f);
        const double e = MaxError({5, r.degree, 3}, img, *r.f, 0.31, -0.42);
        // Float arithmetic on values up to 2000 rounds to about 2e-4.
        EXPECT_TRUE(r.exact ? e < 1e-3 : e > 4e-3) << e;
    }
}

// Between samples the error of a kernel of order L on a sinusoid of
// wavelength lambda scales as (2 pi / lambda)^L: bilinear misses by about
// 50 t (1 - t) / 2 ((2 pi / 17)^2 + (2 pi / 13)^2) = 2.2 at t = 0.4. Splines
// are tested 12 pixels in, clear of the mirror boundary.
TEST(Interpolation, BetweenSamplesEachKernelMeetsItsTolerance) {
    const Image2D img = AnalyticImage(48, 44, Sinusoid);
    struct Row {
        Scheme s;
        double maxError;
    } rows[] = {{{3, 2, 1}, 2.5},    {{0, 1, 6}, 0.5},    {{2, 2, 12}, 0.1},  {{2, 3, 12}, 0.6},
                {{2, 4, 12}, 0.002}, {{2, 5, 12}, 0.002}, {{2, 7, 12}, 0.01}, {{2, 9, 12}, 0.03},
                {{5, 3, 3}, 0.5},    {{5, 4, 3}, 0.1},    {{5, 5, 3}, 0.03}};
    double rmsBilinear = 0.0, rmsCubic = 0.0;
    for (const Row& r : rows) {
        SCOPED_TRACE(::testing::Message() << "method " << r.s.method << " degree " << r.s.degree);
        double rms = 0.0;
        EXPECT_LT(MaxError(r.s, img, Sinusoid, 0.37, 0.61, &rms), r.maxError);
        if (r.s.method == 3) rmsBilinear = rms;
        if (r.s.method == 2 && r.s.degree == 3) rmsCubic = rms;
    }
    EXPECT_LT(rmsCubic * 4, rmsBilinear);
}

// Outside the image the value is black, or white on request, unless mirrored;
// bilinear gives 0 in the last column.
TEST(Interpolation, EdgesAndWildPoints) {
    const Image2D img = AnalyticImage(10, 10, Sinusoid);
    EXPECT_EQ(_InterpolatePixel2x2(9.0f, 4.0f, &img), 0.0f);
    EXPECT_NE(_InterpolatePixel2x2(8.0f, 4.0f, &img), 0.0f);
    Image2D_Interpolation interp;
    EXPECT_EQ(interp.interpolatedPixel(img, -0.5f, 3.0f, false), 0.0f);
    EXPECT_EQ(interp.interpolatedPixel(img, 3.0f, 9.5f, true), 255.0f);
    interp.setFlagMirroring(true);
    EXPECT_NE(interp.interpolatedPixel(img, -0.5f, 3.0f, true), 255.0f);
    // Mirroring hands any point to the kernel; wild ones must stay harmless.
    EXPECT_TRUE(std::isfinite(interp.interpolatedPixel(img, NAN, 1e30f, false)));
    interp.setInterpolationMethod(PIV::INTERPOLATE_SHIFTED_LINEAR, 1);
    EXPECT_TRUE(std::isfinite(interp.interpolatedPixel(img, -1e30f, NAN, false)));
}

// ---------------------------------------------------------------------------
// translate against the renderer

namespace {

using synth::Particle;
using synth::RenderParticles;
using synth::SynthParams;

std::vector<Particle> SomeParticles(int w, int h, unsigned seed) {
    std::vector<Particle> p;
    unsigned s = seed;
    auto next = [&] {
        s = s * 1664525u + 1013904223u;
        return (s >> 8) / double(1 << 24);
    };
    for (int k = 0; k < w * h / 40; k++)
        p.push_back({next() * (w + 10) - 5, next() * (h + 10) - 5, 0.5 + 0.4 * next(), 3.0});
    return p;
}

Image2D FromPixels(const std::vector<float>& v, int w, int h) {
    Image2D img(w, h, IMAGE_FLOAT);
    for (int y = 0; y < h; y++)
        for (int x = 0; x < w; x++) img.setPixel(x, y, 255.0f * v[static_cast<size_t>(y) * w + x]);
    return img;
}

double TranslateRms(PIV::InterpolationMethod method, int degree) {
    const int w = 96, h = 80;
    SynthParams params;
    params.bitDepth = 0;
    std::vector<Particle> particles = SomeParticles(w, h, 7);
    Image2D img = FromPixels(RenderParticles(particles, w, h, params), w, h);
    for (Particle& p : particles) {
        p.x -= 0.3;
        p.y += 0.7;
    }
    const Image2D truth = FromPixels(RenderParticles(particles, w, h, params), w, h);
    img.setInterpolationMethod(method, degree);
    EXPECT_TRUE(img.translate(0.3, -0.7));
    double sum = 0.0;
    int n = 0;
    for (int y = 6; y < h - 6; y++)
        for (int x = 6; x < w - 6; x++) {
            const double e = img.pixel(x, y) - truth.pixel(x, y);
            sum += e * e;
            n++;
        }
    return std::sqrt(sum / n);
}

}  // namespace

// Particles of 3 px at up to 230 counts: the cubic spline follows them to
// about 2 counts RMS (under 1 % of the peak), bilinear leaves three times that.
TEST(Translate, ParticleImageMatchesTheRenderedShift) {
    const double spline = TranslateRms(PIV::INTERPOLATE_BSPLINE, 3);
    const double bilinear = TranslateRms(PIV::INTERPOLATE_BILINEAR, 2);
    EXPECT_LT(spline, 2.5);
    EXPECT_LT(spline * 2, bilinear);
}

// Whole pixels copy and clear the border; a B-spline shift of a flat 8-bit 20
// with two peaks never dips below 20; null and empty images are refused.
TEST(Translate, SmallImages) {
    Image2D img = MakeImage(4, 3, IMAGE_UINT16, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    ASSERT_TRUE(img.translate(1.0, -1.0));
    EXPECT_EQ(img.type(), IMAGE_UINT16);
    EXPECT_EQ(Pixels(img), (std::vector<float>{0, 0, 0, 0, 2, 3, 4, 0, 6, 7, 8, 0}));

    Image2D bytes = Spike(6, 5, IMAGE_UINT8, 7, 180);
    bytes.setPixel(1, 3, 180);
    bytes += Filled(6, 5, IMAGE_UINT8, 20);
    bytes.setInterpolationMethod(PIV::INTERPOLATE_BSPLINE, 5);
    ASSERT_TRUE(bytes.translate(0.5, 0.0, true));
    EXPECT_EQ(bytes.type(), IMAGE_UINT8);
    for (int y = 0; y < 5; y++)
        for (int x = 0; x < 5; x++) EXPECT_GE(bytes.pixel(x, y), 20.0f);

    Image2D null, zero = Filled(8, 8, IMAGE_FLOAT, 0);
    EXPECT_EQ(FailCode(null, null.translate(0.5, 0.5)), PIVerror::IMAGE_IS_NULL);
    Image2D_Interpolation interp;
    EXPECT_EQ(FailCode(interp, interp.translateImage(zero, 0.5, 0.5, false, false)),
              PIVerror::IMAGE_IS_NULL);
}

// A translation alone flips the sign of y against translate(); all-zero
// stretches are refused and leave the image.
TEST(Transform, TranslationAndZeroStretch) {
    const Image2D src = AnalyticImage(24, 20, Blob);
    IMAGE_TRANSFORMATION_CFG cfg;
    cfg.Enable = true;
    cfg.StretchX = cfg.StretchY = 1.0;
    cfg.TranslateX = 0.4;
    cfg.TranslateY = 0.25;
    Image2D a(src), b(src), img(src);
    ASSERT_TRUE(a.transform(cfg));
    ASSERT_TRUE(b.translate(0.4, -0.25));
    EXPECT_TRUE(a == b);

    cfg.TranslateX = cfg.TranslateY = cfg.StretchX = cfg.StretchY = 0.0;
    Image2D_Interpolation interp;
    EXPECT_FALSE(interp.transformImage(img, cfg, false, false));
    EXPECT_TRUE(img == src);
}

TEST(Transform, RotationAboutTheCentreByNinetyDegrees) {
    Image2D img = AnalyticImage(21, 21, Plane);
    img.setInterpolationMethod(PIV::INTERPOLATE_BILINEAR, 2);
    ASSERT_TRUE(img.translateRotate(90.0, 0, 0, 10, 10));
    // (i, j) samples (10 - (j - 10), 10 + (i - 10)).
    for (int j = 2; j < 18; j++)
        for (int i = 2; i < 18; i++) EXPECT_NEAR(img.pixel(i, j), Plane(20 - j, i), 1e-3);
}

TEST(Binning, SumsCellsAndRejectsBadFactors) {
    const Image2D src = Filled(34, 32, IMAGE_UINT8, 3);
    Image2D out;
    ASSERT_TRUE(out.binning(src, 2));
    EXPECT_EQ(Shape(out), Shape(17, 16, IMAGE_FLOAT));
    EXPECT_EQ(out.pixel(5, 5), 12.0f);
    EXPECT_EQ(FailCode(out, out.binning(src, 17)), PIVerror::BAD_PARAMETERS);
    EXPECT_EQ(FailCode(out, out.binning(src, 4)), PIVerror::BAD_IMAGE_SIZE);
    ASSERT_TRUE(out.binnedFrom(src, 3, 3, 1, 16));
    EXPECT_EQ(out.pixel(11, 5), 3.0f);  // one column and one row left over
}

// Skew and stretch go through the general mapping: a skew of 10 degrees
// samples (i, sin(10 deg) i + j), exact for bilinear on a plane; a stretch of
// 0.5 samples (i / 2, j) and needs a B-spline.
TEST(Transform, SkewAndStretchOnAPlane) {
    Image2D skewed = AnalyticImage(24, 24, Plane), stretched(skewed);
    IMAGE_TRANSFORMATION_CFG cfg;
    cfg.Enable = true;
    cfg.SkewX = 10.0;
    skewed.setInterpolationMethod(PIV::INTERPOLATE_BILINEAR, 2);
    ASSERT_TRUE(skewed.transform(cfg));
    const double kx = std::sin(10.0 * M_PI / 180.0);
    for (int j = 1; j < 18; j++)
        for (int i = 1; i < 22; i++) EXPECT_NEAR(skewed.pixel(i, j), Plane(i, kx * i + j), 1e-3);

    cfg.SkewX = 0.0;
    cfg.StretchX = 0.5;
    stretched.setInterpolationMethod(PIV::INTERPOLATE_BILINEAR, 2);
    EXPECT_FALSE(stretched.transform(cfg));
    EXPECT_TRUE(HasText(LastText(stretched), "only spport B-spline"));
    stretched.setInterpolationMethod(PIV::INTERPOLATE_BSPLINE, 5);
    ASSERT_TRUE(stretched.transform(cfg));
    for (int j = 8; j < 16; j++)
        for (int i = 16; i < 24; i++) EXPECT_NEAR(stretched.pixel(i, j), Plane(0.5 * i, j), 1e-3);
}
