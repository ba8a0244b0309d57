// Helpers of the evaluation tests: synthetic pairs as images, an evaluator
// set up for one pass, and error figures against the known flow.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "image2d.h"
#include "piv_eval2d.h"
#include "synthetic_images.h"

namespace eval_test {

// n values drawn evenly from [lo, hi) by a seeded generator: the same on
// every run.
inline std::vector<float> RandomValues(size_t n, unsigned seed, float lo = 0.0f, float hi = 1.0f) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> u(lo, hi);
    std::vector<float> v(n);
    for (float& x : v) x = u(rng);
    return v;
}

inline Image2D ToImage(const std::vector<float>& pixels, int w, int h,
                       ImageType type = IMAGE_UINT8) {
    Image2D img;
    EXPECT_TRUE(img.alloc(w, h, type));
    for (int y = 0; y < h; y++) img.putRow(pixels.data() + size_t(y) * w, y);
    return img;
}

// The pair of the accuracy cases: 2.5 px particles, 0.02 per pixel,
// 8 bit, no noise, fixed seed.
inline synth::SynthParams StandardParams(int size = 256, unsigned seed = 7) {
    synth::SynthParams p;
    p.width = p.height = size;
    p.particleDiameter = 2.5;
    p.particleDensity = 0.02;
    p.bitDepth = 8;
    p.noiseSigma = 0.0;
    p.seed = seed;
    return p;
}

// Single-pass settings: window, step and fit type; everything else default.
inline PIVEVAL_CFG SinglePass(int window = 32, int step = 16, int fit = 1) {
    PIVEVAL_CFG cfg;
    cfg.Method = 0;
    cfg.SampleSize = SIZE3D{window, window, 1};
    cfg.FFTSize = cfg.SampleSize;
    cfg.grid.step = SIZE3D{step, step, 1};
    cfg.Type = fit;
    return cfg;
}

// An evaluator with its own field and parameters over two images it owns.
struct Evaluation {
    Image2D a, b;
    std::unique_ptr<PIV_Eval2D> eval;

    Evaluation(const synth::SyntheticPair& pair, const PIVEVAL_CFG& cfg)
        : a(ToImage(pair.a, pair.width, pair.height)), b(ToImage(pair.b, pair.width, pair.height)),
          eval(new PIV_Eval2D()) {
        eval->setPivEvalCfg(cfg);
        EXPECT_TRUE(eval->setPivImages(&a, &b));
    }
    bool run() { return eval->interrogateImage(false); }
    PIV_Data2D& field() { return *eval->data(); }
};

// Error figures of one component over the nodes considered.
struct ComponentErrors {
    double mean = 0.0, rms = 0.0, p99 = 0.0;
};
struct FieldErrors {
    ComponentErrors x, y;
    int nodes = 0, failed = 0;
};

// Signed errors in, their mean, RMS and 99th percentile of |error| out; the
// errors come back as sorted magnitudes.
inline ComponentErrors Summarise(std::vector<double>& e) {
    ComponentErrors c;
    if (e.empty()) return c;
    double s = 0.0, s2 = 0.0;
    for (double& v : e) {
        s += v;
        s2 += v * v;
        v = std::fabs(v);
    }
    c.mean = s / double(e.size());
    c.rms = std::sqrt(s2 / double(e.size()));
    std::sort(e.begin(), e.end());
    const size_t rank = size_t(std::ceil(0.99 * double(e.size())));
    c.p99 = e[std::min(e.size(), std::max<size_t>(rank, 1)) - 1];
    return c;
}

// Measured minus true displacement at every node whose window lies `margin`
// pixels or more inside the image (interior nodes). The field counts dy
// upwards, the flow downwards.
inline FieldErrors CompareWithFlow(const PIV_Data2D& field, const synth::Flow& flow,
                                   int margin) {
    std::vector<double> ex, ey;
    FieldErrors f;
    const DATA_GRID4D& g = field.grid();
    for (int k = 0; k < field.nodeCount(); k++) {
        const PIV_VECTOR& v = field.data()[k];
        if (v.ix < margin || v.iy < margin || v.ix > g.imageSize.width - margin ||
            v.iy > g.imageSize.height - margin)
            continue;
        f.nodes++;
        if (!(v.flag & VECTOR_ENABLED)) {
            f.failed++;
            continue;
        }
        double dx = 0.0, dy = 0.0;
        synth::ExactDisplacement(flow, v.ix, v.iy, dx, dy);
        ex.push_back(v.dx - dx);
        ey.push_back(v.dy + dy);
    }
    f.x = Summarise(ex);
    f.y = Summarise(ey);
    return f;
}

}  // namespace eval_test
