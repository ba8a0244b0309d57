// Particle tracking at a fixed seeding: 5,000 particle images on 1024 x 1024
// and 20,000 on 2048 x 2048 (3 px, 8 bit, a uniform 3 px, 2 px shift and a
// uniform guide). Extraction of one frame and the whole tracking of the pair,
// in particles per second; the bins should keep the time per particle the
// same on both sizes.
#include <benchmark/benchmark.h>

#include <memory>

#include "image2d.h"
#include "piv_data2d.h"
#include "piv_messages.h"
#include "ptv_eval2d.h"
#include "synthetic_images.h"

namespace {

struct Scene {
    Image2D a, b;
    PIV_Data2D guide;
    explicit Scene(int size) {
        synth::SynthParams p;
        p.width = p.height = size;
        p.margin = 0;
        p.particleDiameter = 3.0;
        p.particleDensity = 5000.0 / (1024.0 * 1024.0);
        p.seed = 5;
        const auto pair = synth::RenderPair(p, synth::UniformFlow(3.0, 2.0));
        for (Image2D* img : {&a, &b}) img->alloc(size, size, IMAGE_UINT8);
        for (int y = 0; y < size; y++) {
            a.putRow(pair.a.data() + size_t(y) * size_t(size), y);
            b.putRow(pair.b.data() + size_t(y) * size_t(size), y);
        }
        guide.createZeroData(SIZE3D{size, size, 1}, SIZE3D{16, 16, 1}, POINT3D{8, 8, 0},
                             POINT3D{size - 8, size - 8, 0}, 1);
        for (int k = 0; k < guide.nodeCount(); k++) {
            guide.data()[k].dx = 3.0f;
            guide.data()[k].dy = -2.0f;
            guide.data()[k].flag |= VECTOR_ENABLED;
        }
    }
};

const Scene& SceneOf(int size) {
    static const Scene small(1024), large(2048);
    return size == 1024 ? small : large;
}

void BM_ExtractParticles(benchmark::State& state) {
    EnableWarnings(false);
    Image2D frame(SceneOf(int(state.range(0))).a);
    PTV_Eval2D eval;
    unsigned n = 0;
    for (auto _ : state) {
        PARTICLE* p = nullptr;
        if (!eval.extractParticles(frame, &p, &n)) state.SkipWithError("extraction failed");
        delete[] p;
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * n);
    state.counters["particles"] = n;
}
BENCHMARK(BM_ExtractParticles)->Arg(1024)->Arg(2048)->Unit(benchmark::kMillisecond);

void BM_TrackPair(benchmark::State& state) {
    EnableWarnings(false);
    const Scene& s = SceneOf(int(state.range(0)));
    Image2D a(s.a), b(s.b);
    PIV_Data2D guide;
    guide.copy(s.guide);
    PTV_Data2D data;
    PTV_Eval2D eval(&data);
    for (auto _ : state)
        if (!eval.process(a, b, guide)) state.SkipWithError("tracking failed");
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(data.particleCount()));
    state.counters["particles"] = double(data.particleCount());
    state.counters["valid"] = data.validCount();
}
BENCHMARK(BM_TrackPair)->Arg(1024)->Arg(2048)->Unit(benchmark::kMillisecond);

}  // namespace
