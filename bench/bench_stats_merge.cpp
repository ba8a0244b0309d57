// Merging the partial statistics of the shards of a series on a grid of
// 160 x 135 nodes (a 2560 x 2160 camera at a step of 16 px): 1,000 partials
// held in memory into one total, and 50 partial files read one at a time
// beside the total, as kelvane-eval --merge-stats reads them.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "piv_data2d.h"
#include "piv_data2d_stats.h"

namespace {

constexpr int kNx = 160, kNy = 135;

// A shard's sums over three fields of random displacements.
void FillPartial(PIV_Data2D_Stats& stats, unsigned seed) {
    DATA_GRID4D g;
    g.nodes = SIZE3D{kNx, kNy, 1};
    g.timeSteps = 1;
    g.first = POINT3D{16, 16, 0};
    g.step = SIZE3D{16, 16, 1};
    g.imageSize = SIZE3D{(kNx + 1) * 16, (kNy + 1) * 16, 1};
    std::mt19937 rng(seed);
    std::normal_distribution<float> noise(0.0f, 0.5f);
    PIV_Data2D field(g);
    for (int f = 0; f < 3; f++) {
        for (int k = 0; k < field.nodeCount(); k++) {
            PIV_VECTOR& v = field.data()[k];
            v.dx = 2.0f + noise(rng);
            v.dy = -1.0f + noise(rng);
            v.corr = 0.8f + 0.1f * noise(rng);
            v.setSuccess();
        }
        field.setFlagRawData(true);
        field.setDataType(field.dataType() | PIV::DATA_DISPLACEMENT);
        stats.increment(&field, 0, 0);
    }
}

void BM_MergeInMemory(benchmark::State& state) {
    const int partials = int(state.range(0));
    // Merging one partial a thousand times costs what a thousand do.
    PIV_Data2D_Stats part;
    FillPartial(part, 1);
    for (auto _ : state) {
        PIV_Data2D_Stats total;
        for (int i = 0; i < partials; i++)
            if (!total.merge(part)) state.SkipWithError("merge failed");
        benchmark::DoNotOptimize(total.nodeStats());
    }
    state.SetItemsProcessed(state.iterations() * partials);
}
BENCHMARK(BM_MergeInMemory)->Arg(1000)->Unit(benchmark::kMillisecond);

void BM_MergeFiles(benchmark::State& state) {
    const int files = int(state.range(0));
    const char* tmp = std::getenv("TMPDIR");
    const std::string stem = std::string(tmp && *tmp ? tmp : "/tmp") + "/bench_stats_merge_" +
                             std::to_string(::getpid()) + "_";
    std::vector<std::string> names;
    for (int i = 0; i < files; i++) {
        PIV_Data2D_Stats part;
        FillPartial(part, unsigned(i + 1));
        STATS_SHARD shard;
        shard.index = i;
        shard.count = files;
        names.push_back(stem + std::to_string(i) + ".nc");
        if (!part.savePartial(names.back().c_str(), shard)) state.SkipWithError("write failed");
    }
    for (auto _ : state) {
        PIV_Data2D_Stats total, part;
        STATS_SHARD shard;
        for (const std::string& name : names)
            if (!part.loadPartial(name.c_str(), shard) || !total.merge(part))
                state.SkipWithError("read or merge failed");
        benchmark::DoNotOptimize(total.nodeStats());
    }
    for (const std::string& name : names) std::remove(name.c_str());
    state.SetItemsProcessed(state.iterations() * files);
}
BENCHMARK(BM_MergeFiles)->Arg(50)->Unit(benchmark::kMillisecond);

}  // namespace
