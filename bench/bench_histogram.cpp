// The displacement histogram of a 160 x 125 field (20,000 vectors): the
// bins, the dots in their validation colours and the sub-pixel
// distributions, as a new field or a new bin count recomputes them.
//
// histogram_ms: compute2DPDF and compute1DPDFs at 10 and 100 bins/pixel
// (the `bins` argument); budget 20 ms. One vector in ten is an outlier, one
// in a hundred 40 px off and switched off.
// Release build; the counter is the worst iteration.
#include <benchmark/benchmark.h>

#include <QElapsedTimer>

#include <algorithm>
#include <cmath>

#include "bench_app.h"
#include "hist2dview.h"
#include "piv_data2d.h"
#include "piv_messages.h"

namespace {

constexpr int kColumns = 160, kRows = 125;

struct Session {
    PIV_Data2D field;
    Hist2DView view;

    Session() {
        DATA_GRID4D g;
        g.nodes = SIZE3D{kColumns, kRows, 1};
        g.timeSteps = 1;
        g.first = POINT3D{8, 8, 0};
        g.step = SIZE3D{16, 16, 1};
        g.imageSize = SIZE3D{kColumns * 16, kRows * 16, 1};
        field.create(g);
        // A vortex of 6 px at most round the middle of the field.
        for (int r = 0; r < kRows; r++)
            for (int c = 0; c < kColumns; c++) {
                PIV_VECTOR* v = field.pivVector(c, r);
                const int k = r * kColumns + c;
                v->dx = float(6.0 * (r - kRows / 2) / kRows);
                v->dy = float(-6.0 * (c - kColumns / 2) / kColumns);
                v->flag = k % 10 == 0 ? VECTOR_OUTLIER : VECTOR_ENABLED;
                if (k % 100 == 1) v->dx += 40.0f, v->flag = VECTOR_OUTLIER;
            }
        field.setFlagRawData(true);
    }
};

Session& TheSession() {
    bench::OffscreenApp();
    static Session session;
    return session;
}

void BM_Histogram(benchmark::State& state) {
    Session& s = TheSession();
    s.view.setBinsPerPixel(int(state.range(0)));
    double worst = 0.0;
    for (auto _ : state) {
        QElapsedTimer clock;
        clock.start();
        s.view.compute2DPDF(&s.field);
        s.view.compute1DPDFs();
        worst = std::max(worst, clock.nsecsElapsed() / 1e6);
    }
    state.counters["histogram_ms"] = worst;
    state.counters["bins"] = double(s.view.bins(Hist2DView::PDF_X).size());
}
BENCHMARK(BM_Histogram)->Arg(10)->Arg(100)->Unit(benchmark::kMillisecond);

}  // namespace
