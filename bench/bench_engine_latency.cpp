// The window while the engine evaluates a 2048 x 2048 8-bit pair on its
// worker: three passes of 32 px windows at step 16, validated between them.
//
// gap_ms: the longest the windowing thread's event loop went without
//   running a 1 ms timer during the run, progress and status signals
//   included; at most 20 ms keeps the window fluent.
// extra_MB: how far the run's peak memory lies above that of the same
//   evaluation run by the library on the windowing thread, into the
//   session's own field; budget_MB is one copy of pair and field.
// Release build; the figures count, not the time per iteration.
#include <benchmark/benchmark.h>

#include <QElapsedTimer>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QTimer>

#include <malloc.h>

#include <algorithm>
#include <fstream>
#include <string>

#include "bench_app.h"
#include "bench_frames.h"
#include "kelvanedataobject.h"
#include "kelvanestate.h"
#include "mysettings.h"
#include "piv_enums.h"
#include "piv_eval2d.h"
#include "piv_messages.h"
#include "piv_params.h"
#include "pivevalobj.h"
#include "qpiv_imagepair.h"

namespace {

constexpr int kSize = 2048;

// Resident and peak resident memory of the process, in bytes.
long StatusBytes(const char* key) {
    std::ifstream in("/proc/self/status");
    std::string word;
    while (in >> word)
        if (word == key) {
            long kb = 0;
            in >> kb;
            return kb * 1024;
        }
    return 0;
}

void ResetPeak() {
    std::ofstream("/proc/self/clear_refs") << "5";
}

struct Session {
    QTemporaryDir dir;
    MySettings settings{dir.filePath("store.ini"), QSettings::IniFormat};
    KelvaneState state;
    KelvaneDataObject object{&state, &settings};
    PIVevalEngine engine{&object, nullptr};

    Session() {
        const bench::ParticlePair pair(kSize, synth::UniformFlow(3.4, -2.2));
        pair.a.save(dir.filePath("a.tif").toLocal8Bit().constData());
        pair.b.save(dir.filePath("b.tif").toLocal8Bit().constData());
        object.loadPivImage(dir.filePath("a.tif"), dir.filePath("b.tif"), false, 0);
        PIV_PARAMETERS rec = object.parameters(0)->pivParameters();
        rec.eval.Method = PIV::METHOD_MULTI_PASS;
        rec.eval.Passes = 3;
        rec.eval.SampleSize = rec.eval.FFTSize = SIZE3D{32, 32, 1};
        rec.eval.grid.step = SIZE3D{16, 16, 1};
        rec.outlier.Enable = true;
        object.setPivParameters(rec, rec);
    }
    long budget() {
        const QPIV_ImagePair* pair = object.image(0);
        return long(pair->imgA()->numBytes() + pair->imgB()->numBytes()) +
               long(object.data(0)->nodeCount()) * long(sizeof(PIV_VECTOR));
    }
    // The peak above the start of a run by the library on this thread.
    long direct() {
        malloc_trim(0);
        ResetPeak();
        const long start = StatusBytes("VmRSS:");
        PIV_Eval2D eval(object.data(0), object.parameters(0));
        eval.setPivImages(object.image(0)->imgA(), object.image(0)->imgB());
        eval.interrogateImage(false);
        return StatusBytes("VmHWM:") - start;
    }
    // The run on the worker; the worst gap of the event loop in ms.
    double run(long* peak) {
        malloc_trim(0);
        ResetPeak();
        const long start = StatusBytes("VmRSS:");
        QEventLoop loop;
        QElapsedTimer clock;
        qint64 last = 0, worst = 0;
        // The end of the run (delivery, post-processing) counts as a gap too.
        QObject::connect(&engine, &PIVevalEngine::signalEvaluationFinished, &loop, [&] {
            worst = std::max(worst, clock.nsecsElapsed() - last);
            loop.quit();
        });
        QTimer tick;
        tick.setInterval(1);
        QObject::connect(&tick, &QTimer::timeout, [&] {
            const qint64 now = clock.nsecsElapsed();
            worst = std::max(worst, now - last);
            last = now;
        });
        tick.start();
        clock.start();
        if (engine.interrogateImage()) loop.exec();
        *peak = StatusBytes("VmHWM:") - start;
        return worst / 1e6;
    }
};

Session& TheSession() {
    // Large blocks come from and go back to the system at once, so that the
    // resident peak shows what a run holds.
    static const int threshold = mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    (void)threshold;
    bench::OffscreenApp();
    static Session session;
    return session;
}

void BM_EngineRun2048MultiPass(benchmark::State& state) {
    Session& s = TheSession();
    long peak = 0;
    s.run(&peak);  // plans and pools made once
    double gap = 0.0;
    long extra = 0;
    bool evaluated = true;
    for (auto _ : state) {
        gap = std::max(gap, s.run(&peak));
        state.PauseTiming();
        evaluated = evaluated && s.object.isEvaluated(0);
        extra = std::max(extra, peak - s.direct());
        state.ResumeTiming();
    }
    state.counters["gap_ms"] = gap;
    state.counters["extra_MB"] = double(extra) / (1 << 20);
    state.counters["budget_MB"] = double(s.budget()) / (1 << 20);
    state.counters["evaluated"] = evaluated ? 1 : 0;
}
BENCHMARK(BM_EngineRun2048MultiPass)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

}  // namespace
